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

}  // namespace cli
