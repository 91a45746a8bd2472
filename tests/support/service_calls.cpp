#include "tests/support/service_calls.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <list>
#include <map>
#include <utility>

#include "platform/servprofile.h"

namespace support {

namespace {

using Names = std::list<std::string>;

// The operation of the daemon's library that the one of the same symbol here hides. A member
// function takes its object as a first argument.
template <class Operation>
Operation* hidden(const char* symbol) {
  void* const address = dlsym(RTLD_NEXT, symbol);
  EXPECT_NE(address, nullptr) << symbol;
  return reinterpret_cast<Operation*>(address);  // NOLINT: what dlsym is for
}

int record(std::string call) { return ServiceCalls::instance().record(std::move(call)); }

}  // namespace

ServiceCalls& ServiceCalls::instance() {
  static ServiceCalls calls;
  return calls;
}

void ServiceCalls::reset() { *this = {}; }

std::vector<std::string> ServiceCalls::take() { return std::exchange(calls, {}); }

void ServiceCalls::refuseAt(std::size_t position, int result) {
  refusedPosition_ = position;
  refusal_ = result;
}

int ServiceCalls::record(std::string call) {
  calls.push_back(std::move(call));
  return calls.size() == refusedPosition_ + 1 ? refusal_ : 0;
}

}  // namespace support

using support::hidden;
using support::Names;
using support::record;

int servprofile::servProfileCheckSubAttached(const std::string& profileName, int subProfileKind) {
  const int refusal =
      record(fmt::format("servProfileCheckSubAttached(\"{}\", {})", profileName, subProfileKind));
  if (refusal != 0) return refusal;
  return hidden<int(servprofile*, const std::string&, int)>(
      "_ZN11servprofile27servProfileCheckSubAttachedERKNSt7__cxx1112basic_stringIcSt11char_traitsIc"
      "ESaIcEEEi")(this, profileName, subProfileKind);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the framework's signature
void servprofile::getAllServiceProfilesWithL2cpProfile(std::string l2cpProfile,
                                                       std::list<std::string>& serviceProfiles) {
  record(fmt::format("getAllServiceProfilesWithL2cpProfile(\"{}\")", l2cpProfile));
  hidden<void(servprofile*, std::string, Names&)>(
      "_ZN11servprofile36getAllServiceProfilesWithL2cpProfileENSt7__cxx1112basic_stringIcSt11char_"
      "traitsIcESaIcEEERNS0_4listIS5_SaIS5_EEE")(this, l2cpProfile, serviceProfiles);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the framework's signature
void servprofile::getAllServiceProfilesPerIntf(std::list<std::string> serviceProfiles,
                                               std::map<int, std::list<std::string>>& applied) {
  record(fmt::format("getAllServiceProfilesPerIntf([{}])", fmt::join(serviceProfiles, " ")));
  hidden<void(servprofile*, Names, std::map<int, Names>&)>(
      "_ZN11servprofile28getAllServiceProfilesPerIntfENSt7__cxx114listINS0_12basic_stringIcSt11char"
      "_traitsIcESaIcEEESaIS6_EEERSt3mapIiS8_St4lessIiESaISt4pairIKiS8_EEE")(this, serviceProfiles,
                                                                             applied);
}

int servprofile::servProfileAttach(const std::string& serviceProfile, int intf) {
  const int refusal = record(fmt::format("servProfileAttach(\"{}\", {})", serviceProfile, intf));
  if (refusal != 0) return refusal;
  return hidden<int(servprofile*, const std::string&, int)>(
      "_ZN11servprofile17servProfileAttachERKNSt7__cxx1112basic_stringIcSt11char_"
      "traitsIcESaIcEEEi")(this, serviceProfile, intf);
}

int servprofile::servProfileDetach(const std::string& serviceProfile, int intf) {
  const int refusal = record(fmt::format("servProfileDetach(\"{}\", {})", serviceProfile, intf));
  if (refusal != 0) return refusal;
  return hidden<int(servprofile*, const std::string&, int)>(
      "_ZN11servprofile17servProfileDetachERKNSt7__cxx1112basic_stringIcSt11char_"
      "traitsIcESaIcEEEi")(this, serviceProfile, intf);
}

int servprofile::servProfileL2cpProfile(const std::string& serviceProfile,
                                        const std::string& l2cpProfile) {
  const int refusal =
      record(fmt::format("servProfileL2cpProfile(\"{}\", \"{}\")", serviceProfile, l2cpProfile));
  if (refusal != 0) return refusal;
  return hidden<int(servprofile*, const std::string&, const std::string&)>(
      "_ZN11servprofile22servProfileL2cpProfileERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIc"
      "EEES7_")(this, serviceProfile, l2cpProfile);
}

void servprofile::servProfileLogMsg(int level, const char* function, int line, const char* module,
                                    int unit, const char* objectType, const char* objectName,
                                    const char* detail, int first, int second) {
  EXPECT_GT(line, 0);
  support::ServiceCalls::instance().logMessages.emplace_back(
      level, function, module, unit, objectType, objectName, detail, first, second);
}
