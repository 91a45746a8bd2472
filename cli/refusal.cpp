#include "cli/refusal.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "cli/failure.h"

namespace cli {

namespace {

[[noreturn]] void refuse(std::string_view name, int number, std::string_view advice) {
  if (name.empty()) throw Refused(fmt::format("error {}: {}", number, advice));
  throw Refused(fmt::format("{}: {}", name, advice));
}

constexpr std::string_view unknownAdvice =
    "this error is unknown here; the daemon may be newer than this program";

// The interface names none of these numbers.
struct Result {
  control_result number;
  std::string_view name;
  std::string_view advice;
};
constexpr Result results[] = {
    {0, "OK", "nothing is wrong"},
    {-2, "NOT_FOUND",
     "there is no profile of this name; \"l2cpctl service-profile list\" and \"l2cpctl "
     "vlan-profile "
     "list\" show those there are"},
    {-9, "NOT_APPLIED",
     "the service profile is not applied there; \"l2cpctl service-profile show\" tells where it "
     "is"},
    {-16, "IN_USE",
     "the profile is applied on an interface; take it off with \"l2cpctl service-profile detach\" "
     "first"},
    {-17, "EXISTS", "there is a profile of this name; choose another name"},
    {-19, "NOTHING_THERE",
     "the service profile has no VLAN profile; give it one with \"l2cpctl service-profile set NAME "
     "vlan-profile\""},
    {-20, "NOTHING_ON_VLAN",
     "nothing is attached to the port on the S-VID any more; \"l2cpctl port show\" lists what is"},
    {-22, "INVALID",
     "the daemon does not take one of the values; check them against the command's help"},
    {-64, "SVID_GONE",
     "the VLAN profile has no S-VID for the interface any more; set it again with \"l2cpctl "
     "vlan-profile set\""},
    {-99, "NO_SVID",
     "the VLAN profile has no S-VID for the interface; give it one with \"l2cpctl vlan-profile "
     "set\""},
};

const Result* find(control_result number) {
  const auto* const found = std::find_if(std::begin(results), std::end(results),
                                         [&](const Result& each) { return each.number == number; });
  return found == std::end(results) ? nullptr : found;
}

}  // namespace

// Without a default, so that the compiler reports an error that the interface file gains.
std::string_view errorName(rpc_l2cp_error error) {
  switch (error) {
    case RPC_L2CP_OK:
      return "OK";
    case RPC_L2CP_ERR_FAILED:
      return "FAILED";
    case RPC_L2CP_ERR_PROTO_EXISTS:
      return "PROTO_EXISTS";
    case RPC_L2CP_ERR_PROTO_NOT_FOUND:
      return "PROTO_NOT_FOUND";
    case RPC_L2CP_ERR_PROTO_IN_USE:
      return "PROTO_IN_USE";
    case RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE:
      return "PROTO_NOT_IN_PROFILE";
    case RPC_L2CP_ERR_INVALID:
      return "INVALID";
    case RPC_L2CP_ERR_NO_COUNTERS:
      return "NO_COUNTERS";
    case RPC_L2CP_ERR_PROFILE_EXISTS:
      return "PROFILE_EXISTS";
    case RPC_L2CP_ERR_PROFILE_NOT_FOUND:
      return "PROFILE_NOT_FOUND";
    case RPC_L2CP_ERR_PROFILE_IN_USE:
      return "PROFILE_IN_USE";
    case RPC_L2CP_ERR_NOT_ATTACHED:
      return "NOT_ATTACHED";
    case RPC_L2CP_ERR_PROFILE_PROTECTED:
      return "PROFILE_PROTECTED";
    case RPC_L2CP_ERR_NO_SUCH_LINK:
      return "NO_SUCH_LINK";
    case RPC_L2CP_ERR_DETACH_REFUSED:
      return "DETACH_REFUSED";
    case RPC_L2CP_EDIT_FAILED:
      return "EDIT_FAILED";
    case RPC_L2CP_EDIT_UNCHANGED:
      return "EDIT_UNCHANGED";
    case RPC_L2CP_ERR_LOWEST:
    case RPC_L2CP_ERR_HIGHEST:
      break;
  }
  return {};
}

std::string_view errorAdvice(rpc_l2cp_error error) {
  switch (error) {
    case RPC_L2CP_OK:
      return "nothing is wrong";
    case RPC_L2CP_ERR_FAILED:
      return "the module could not do it; \"l2cpctl daemon message l2cp_debug 1\" makes it say why "
             "in the daemon's system log";
    case RPC_L2CP_ERR_PROTO_EXISTS:
      return "there is a protocol of this name; choose another name, or change that one with "
             "\"l2cpctl protocol set\"";
    case RPC_L2CP_ERR_PROTO_NOT_FOUND:
      return "there is no protocol of this name; \"l2cpctl protocol list\" shows those there are";
    case RPC_L2CP_ERR_PROTO_IN_USE:
      return "rules of profiles refer to the protocol; delete them first with \"l2cpctl profile "
             "rule delete\"";
    case RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE:
      return "the profile has no rule for this protocol; add one with \"l2cpctl profile rule add\"";
    case RPC_L2CP_ERR_INVALID:
      return "the module does not take one of the values; check them against the command's help";
    case RPC_L2CP_ERR_NO_COUNTERS:
      return "the module has no counters to show; those of a port or VLAN come into being when a "
             "profile is attached to it";
    case RPC_L2CP_ERR_PROFILE_EXISTS:
      return "there is a profile of this name; choose another name, or change that one with "
             "\"l2cpctl profile set\"";
    case RPC_L2CP_ERR_PROFILE_NOT_FOUND:
      return "there is no profile of this name; \"l2cpctl profile list\" shows those there are";
    case RPC_L2CP_ERR_PROFILE_IN_USE:
      return "the profile is in force somewhere; detach it everywhere first with \"l2cpctl "
             "detach\"";
    case RPC_L2CP_ERR_NOT_ATTACHED:
      return "other profiles are attached there, but not this one; \"l2cpctl port show\" lists "
             "them";
    case RPC_L2CP_ERR_PROFILE_PROTECTED:
      return "the profile is protected; switch that off first with \"l2cpctl profile set NAME "
             "protect off\"";
    case RPC_L2CP_ERR_NO_SUCH_LINK:
      return "the port has no attachment at this position; look again with \"l2cpctl port show\"";
    case RPC_L2CP_ERR_DETACH_REFUSED:
      return "nothing is attached to the port on this VLAN; \"l2cpctl port show\" lists what is";
    case RPC_L2CP_EDIT_FAILED:
      return "the edited copy could not take the profile's place, or only part-way; look at both "
             "with \"l2cpctl profile show\"";
    case RPC_L2CP_EDIT_UNCHANGED:
      return "the copy has the same protocols, whatever their rules, and was discarded";
    case RPC_L2CP_ERR_LOWEST:
    case RPC_L2CP_ERR_HIGHEST:
      break;
  }
  return unknownAdvice;
}

std::string_view errorName(control_error error) {
  switch (error) {
    case CONTROL_OK:
      return "OK";
    case CONTROL_ERR_FAILED:
      return "FAILED";
    case CONTROL_ERR_INVALID:
      return "INVALID";
  }
  return {};
}

std::string_view errorAdvice(control_error error) {
  switch (error) {
    case CONTROL_OK:
      return "nothing is wrong";
    case CONTROL_ERR_FAILED:
      return "the daemon is busy or the module is not running; look at \"l2cpctl daemon status\" "
             "and try again";
    case CONTROL_ERR_INVALID:
      return "the daemon does not take one of the values; check them against the command's help";
  }
  return unknownAdvice;
}

void accept(rpc_l2cp_error error, std::initializer_list<Meaning> meanings) {
  if (error == RPC_L2CP_OK) return;
  for (const Meaning& meaning : meanings) {
    if (meaning.error == error) refuse(errorName(error), error, meaning.advice);
  }
  refuse(errorName(error), error, errorAdvice(error));
}

void accept(control_error error) {
  if (error != CONTROL_OK) refuse(errorName(error), error, errorAdvice(error));
}

std::string_view resultName(control_result result) {
  const Result* const found = find(result);
  return found == nullptr ? std::string_view() : found->name;
}

std::string_view resultAdvice(control_result result) {
  const Result* const found = find(result);
  return found == nullptr ? unknownAdvice : found->advice;
}

void acceptResult(control_result result, std::initializer_list<ResultMeaning> meanings) {
  if (result == 0) return;
  for (const ResultMeaning& meaning : meanings) {
    if (meaning.result == result) refuse(resultName(result), result, meaning.advice);
  }
  refuse(resultName(result), result, resultAdvice(result));
}

}  // namespace cli
