#pragma once

#include <algorithm>
#include <list>
#include <map>
#include <string>

#include "l2cp/l2cp.h"
#include "platform/servprofile.h"

/// The service profiles that name an L2CP profile, and the interfaces where they are applied, as
/// they are when this is made. While the L2CP profile is exchanged for another one, they are off
/// their interfaces and name none. Every step ends with false at its first refusal, and what was
/// done before it stays.
class ServiceProfiles {
 public:
  ServiceProfiles(L2CP& entity, const std::string& profileName) : profileName_(profileName) {
    entity.getL2cpProfilesPerServiceProfile(profileName, named_);
    std::list<std::string> naming;
    services().getAllServiceProfilesWithL2cpProfile(profileName, naming);
    services().getAllServiceProfilesPerIntf(naming, applied_);
  }

  bool detach() const {
    return forAllApplied([](const std::string& serviceProfile, int intf) {
      return services().servProfileDetach(serviceProfile, intf) == 0;
    });
  }

  bool clear() const {
    return std::all_of(named_.begin(), named_.end(), [&](const auto& element) {
      return element.second != profileName_ ||
             services().servProfileL2cpProfile(element.first, "") == 0;
    });
  }

  bool name(const std::string& profileName) const {
    return std::all_of(named_.begin(), named_.end(), [&](const auto& element) {
      return services().servProfileL2cpProfile(element.first, profileName) == 0;
    });
  }

  bool attach() const {
    return forAllApplied([](const std::string& serviceProfile, int intf) {
      return services().servProfileAttach(serviceProfile, intf) == 0;
    });
  }

 private:
  static servprofile& services() { return singleton<servprofile>::instance(); }

  template <class Step>
  bool forAllApplied(Step step) const {
    return std::all_of(applied_.begin(), applied_.end(), [&](const auto& element) {
      const auto& [intf, serviceProfiles] = element;
      return std::all_of(
          serviceProfiles.begin(), serviceProfiles.end(),
          [&, number = intf](const std::string& name) { return step(name, number); });
    });
  }

  std::string profileName_;
  std::map<std::string, std::string> named_;
  std::map<int, std::list<std::string>> applied_;
};
