#pragma once

#include <initializer_list>
#include <string_view>

#include "host/control.h"
#include "rpc/l2cp.h"

namespace cli {

/// The name of an error in the interface file without its common beginning, such as "PROTO_EXISTS";
/// empty for a number that has none.
std::string_view errorName(rpc_l2cp_error error);
std::string_view errorName(control_error error);

/// What the error generally means and what to do about it, as a sentence that follows a colon.
std::string_view errorAdvice(rpc_l2cp_error error);
std::string_view errorAdvice(control_error error);

/// The same for the error numbers of service profiles and VLAN profiles.
std::string_view resultName(control_result result);
std::string_view resultAdvice(control_result result);

/// What an error means to one procedure where that is not what it means to others.
struct Meaning {
  rpc_l2cp_error error;
  std::string_view advice;
};

struct ResultMeaning {
  control_result result;
  std::string_view advice;
};

/// Throws Refused with the error's name and advice unless the error is none. What `meanings` says
/// goes before the general advice.
void accept(rpc_l2cp_error error, std::initializer_list<Meaning> meanings = {});
void accept(control_error error);
void acceptResult(control_result result, std::initializer_list<ResultMeaning> meanings = {});

/// What several commands say about the same refusal.
namespace advice {

inline constexpr std::string_view protocolNameTooLong =
    "the name is too long for the module; 30 bytes are the most";
inline constexpr std::string_view profileInUseOrNamed =
    "the profile is attached, or a service profile names it; detach it everywhere first with "
    "\"l2cpctl detach\"";
inline constexpr std::string_view noSuchRule =
    "the profile has no rule for this protocol; \"l2cpctl profile rule list\" shows those there "
    "are";
inline constexpr std::string_view nothingOnPort =
    "nothing is attached to the port; \"l2cpctl profile list\" counts attachments";
inline constexpr std::string_view noSuchVlanProfile =
    "there is no VLAN profile of this name; \"l2cpctl vlan-profile list\" shows those there are";
inline constexpr std::string_view vlanProfileNamed =
    "a service profile names the VLAN profile; change that first with \"l2cpctl service-profile "
    "unset\"";
inline constexpr std::string_view vlanProfileInForce =
    "a service profile that names the VLAN profile is applied on an interface; take it off with "
    "\"l2cpctl service-profile detach\" first";
inline constexpr std::string_view noSuchServiceProfile =
    "there is no service profile of this name; \"l2cpctl service-profile list\" shows those there "
    "are";
inline constexpr std::string_view noSuchServiceOrVlanProfile =
    "there is no service profile or no VLAN profile of this name; \"l2cpctl service-profile list\" "
    "and \"l2cpctl vlan-profile list\" show those there are";
inline constexpr std::string_view noServiceOrItsProfile =
    "there is no such service profile, or the L2CP profile that it names does not exist; look at "
    "\"l2cpctl service-profile list\" and \"l2cpctl profile list\"";
inline constexpr std::string_view attachedByOther =
    "the L2CP profile is attached to this port and S-VID already; \"l2cpctl port show\" lists what "
    "is";
inline constexpr std::string_view notAppliedOrDetached =
    "the service profile is not applied there, or its L2CP profile not attached there any more; "
    "look at \"l2cpctl service-profile show\" and \"l2cpctl port show\"";
// Whoever detaches a profile behind a service profile's back has to put it back.
inline constexpr std::string_view nothingToDetach =
    "the L2CP profile is not attached there any more; put it back with \"l2cpctl attach\" first";

}  // namespace advice

}  // namespace cli
