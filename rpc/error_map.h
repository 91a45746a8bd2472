#pragma once

#include <span>

#include "rpc/l2cp.h"

/// What an operation's result becomes on the wire. 0 is always RPC_L2CP_OK, and a result that a
/// procedure does not list is RPC_L2CP_ERR_FAILED.
struct ErrorMapping {
  int result;
  rpc_l2cp_error error;
};

rpc_l2cp_error wireError(int result, std::span<const ErrorMapping> mappings);

/// The mappings of all procedures side by side. They differ on purpose, also where one might expect
/// them to agree; some list results that no operation returns today.
namespace errors {

inline constexpr ErrorMapping protoAdd[] = {{-17, RPC_L2CP_ERR_PROTO_EXISTS},
                                            {-22, RPC_L2CP_ERR_INVALID}};
inline constexpr ErrorMapping protoDel[] = {{-2, RPC_L2CP_ERR_PROTO_NOT_FOUND},
                                            {-16, RPC_L2CP_ERR_PROTO_IN_USE}};
inline constexpr ErrorMapping protoRen[] = {{-2, RPC_L2CP_ERR_PROTO_NOT_FOUND},
                                            {-16, RPC_L2CP_ERR_PROTO_IN_USE}};
inline constexpr std::span<const ErrorMapping> protoGet{};
inline constexpr ErrorMapping protoSet[] = {{-2, RPC_L2CP_ERR_PROTO_NOT_FOUND}};
inline constexpr ErrorMapping protoStat[] = {{-2, RPC_L2CP_ERR_PROTO_NOT_FOUND},
                                             {-11, RPC_L2CP_ERR_NO_COUNTERS}};

inline constexpr ErrorMapping profileAdd[] = {{-17, RPC_L2CP_ERR_PROFILE_EXISTS}};
inline constexpr ErrorMapping profileDel[] = {{-1, RPC_L2CP_ERR_PROFILE_PROTECTED},
                                              {-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                              {-16, RPC_L2CP_ERR_PROFILE_IN_USE}};
inline constexpr ErrorMapping profileRen[] = {{-1, RPC_L2CP_ERR_PROFILE_PROTECTED},
                                              {-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                              {-16, RPC_L2CP_ERR_PROFILE_IN_USE},
                                              {-28, RPC_L2CP_ERR_PROFILE_EXISTS}};
inline constexpr ErrorMapping profileGet[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND}};
inline constexpr ErrorMapping profileGetPorts[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND}};
inline constexpr ErrorMapping profileSet[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND}};
inline constexpr ErrorMapping profileStat[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                               {-11, RPC_L2CP_ERR_NO_COUNTERS}};
inline constexpr ErrorMapping profileGetUse[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND}};

inline constexpr ErrorMapping profileProtoAdd[] = {{-1, RPC_L2CP_ERR_PROFILE_PROTECTED},
                                                   {-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                                   {-16, RPC_L2CP_ERR_PROFILE_IN_USE},
                                                   {-17, RPC_L2CP_ERR_PROTO_IN_USE},
                                                   {-19, RPC_L2CP_ERR_PROTO_NOT_FOUND}};
inline constexpr ErrorMapping profileProtoDel[] = {{-1, RPC_L2CP_ERR_PROFILE_PROTECTED},
                                                   {-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                                   {-16, RPC_L2CP_ERR_PROFILE_IN_USE},
                                                   {-19, RPC_L2CP_ERR_PROTO_NOT_FOUND},
                                                   {-22, RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE}};
inline constexpr ErrorMapping profileProtoGet[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                                   {-22, RPC_L2CP_ERR_PROTO_NOT_FOUND}};
inline constexpr ErrorMapping profileProtoGetAll[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND}};
inline constexpr ErrorMapping profileProtoSet[] = {{-1, RPC_L2CP_ERR_PROFILE_PROTECTED},
                                                   {-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                                   {-16, RPC_L2CP_ERR_PROFILE_IN_USE},
                                                   {-19, RPC_L2CP_ERR_PROTO_NOT_FOUND},
                                                   {-22, RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE}};
inline constexpr ErrorMapping profileProtoDelAll[] = {{-1, RPC_L2CP_ERR_PROFILE_PROTECTED},
                                                      {-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                                      {-16, RPC_L2CP_ERR_PROFILE_IN_USE},
                                                      {-19, RPC_L2CP_ERR_PROTO_NOT_FOUND},
                                                      {-22, RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE}};

inline constexpr ErrorMapping portAttach[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND}};
inline constexpr ErrorMapping portDetach[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                              {-9, RPC_L2CP_ERR_NOT_ATTACHED},
                                              {-19, RPC_L2CP_ERR_PROTO_NOT_FOUND},
                                              {-20, RPC_L2CP_ERR_DETACH_REFUSED}};
inline constexpr ErrorMapping portGet[] = {{-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                           {-22, RPC_L2CP_ERR_NO_SUCH_LINK}};

inline constexpr ErrorMapping portStat[] = {{-11, RPC_L2CP_ERR_NO_COUNTERS}};
inline constexpr ErrorMapping vlanStat[] = {{-11, RPC_L2CP_ERR_NO_COUNTERS}};

inline constexpr ErrorMapping profileCopy[] = {{-2, RPC_L2CP_ERR_PROTO_NOT_FOUND},
                                               {-16, RPC_L2CP_ERR_PROTO_IN_USE}};
inline constexpr ErrorMapping profileStatus[] = {{-1, RPC_L2CP_ERR_PROFILE_PROTECTED},
                                                 {-2, RPC_L2CP_ERR_PROFILE_NOT_FOUND},
                                                 {-16, RPC_L2CP_ERR_PROFILE_IN_USE},
                                                 {-28, RPC_L2CP_ERR_PROFILE_EXISTS}};

}  // namespace errors
