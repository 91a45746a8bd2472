#pragma once

#include <functional>
#include <list>
#include <map>
#include <string>

/// The daemon's own side of service profiles and VLAN profiles: making, changing and deleting them,
/// and what it asks of the module when one is applied. All operations are for the thread of the RPC
/// loop.
///
/// Operations return 0, or a negative error number with nothing changed: -2 (no such profile, or
/// the VLAN profile does not exist), -16 (applied on an interface, or named by a service profile),
/// -17 (exists already), -22 (an empty or too long name, or a number out of range).
namespace profiles {

/// The module's operations for service profiles. Until they are set, every profile can be applied.
struct Module {
  std::function<int(int intf, const std::string& serviceProfile)> applyCheck;
  std::function<int(int intf, const std::string& serviceProfile)> apply;
  std::function<int(int intf, const std::string& serviceProfile)> unApply;
};
void setModule(Module module);

/// A name of 1 to 65 bytes.
int addServiceProfile(const std::string& name);
int deleteServiceProfile(const std::string& name);
/// Makes a service profile name a VLAN profile; an empty one for none.
int setVlanProfile(const std::string& serviceProfile, const std::string& vlanProfile);

/// Interfaces and the service profiles applied there, in the order in which they were applied.
const std::map<int, std::list<std::string>>& applied();

/// Takes every service profile off its interfaces and deletes all profiles.
void clear();

/// A name of 1 to 33 bytes.
int addVlanProfile(const std::string& name);
int deleteVlanProfile(const std::string& name);
/// The S-VID, 1 to 4094, on an interface; 0 removes it.
int setSvid(const std::string& vlanProfile, int intf, int svid);

}  // namespace profiles
