#pragma once

/// The daemon's service profiles and VLAN profiles, for tests that arrange and read them.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/profiles.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

namespace support {

/// Empties the tables when it comes and when it goes, and disconnects the module.
class Services {
 public:
  Services() { reset(); }
  ~Services() { reset(); }
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  void reset() const {
    profiles::setModule({});
    const auto applied = profiles::applied();
    for (const auto& [intf, names] : applied) {
      for (const std::string& name : names) {
        table().servProfiles[name];  // Only what is in the table can be taken off.
        table().servProfileDetach(name, intf);
      }
    }
    table().servProfiles.clear();
    table().servProfileLogLevel = 1;
    singleton<vlanprofile>::instance().vlanProfiles.clear();
  }

  void addVlan(const std::string& name, const std::map<int, int>& svids = {}) const {
    ASSERT_EQ(profiles::addVlanProfile(name), 0);
    for (const auto& [intf, svid] : svids) ASSERT_EQ(profiles::setSvid(name, intf, svid), 0);
  }

  /// A service profile with the names of its L2CP profile and its VLAN profile.
  void add(const std::string& name, const std::string& l2cpProfile,
           const std::string& vlanProfile = "") const {
    ASSERT_EQ(profiles::addServiceProfile(name), 0);
    ASSERT_EQ(table().servProfileL2cpProfile(name, l2cpProfile), 0);
    ASSERT_EQ(profiles::setVlanProfile(name, vlanProfile), 0);
  }

  void apply(const std::string& name, int intf) const {
    ASSERT_EQ(table().servProfileAttach(name, intf), 0);
  }

  /// The service profiles in name order: "gold: vlan \"v\" l2cp \"P\" on 3 5".
  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    for (const auto& [name, info] : table().servProfiles) {
      lines.push_back(name + ": vlan \"" + info.vlanProfile + "\" l2cp \"" + info.l2cpProfile +
                      '"' + places(name));
    }
    return lines;
  }

  static servprofile& table() { return singleton<servprofile>::instance(); }

 private:
  static std::string places(const std::string& name) {
    std::string text;
    for (const auto& [intf, names] : profiles::applied()) {
      if (std::find(names.begin(), names.end(), name) != names.end()) {
        text += (text.empty() ? " on " : " ") + std::to_string(intf);
      }
    }
    return text;
  }
};

}  // namespace support
