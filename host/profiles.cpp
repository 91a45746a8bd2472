#include "host/profiles.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

namespace {

servprofile& services() { return singleton<servprofile>::instance(); }
vlanprofile& vlans() { return singleton<vlanprofile>::instance(); }

profiles::Module& module() {
  static profiles::Module instance;
  return instance;
}

std::map<int, std::list<std::string>>& appliedProfiles() {
  static std::map<int, std::list<std::string>> instance;
  return instance;
}

bool contains(const std::list<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool isApplied(const std::string& serviceProfile) {
  const auto& all = appliedProfiles();
  return std::any_of(all.begin(), all.end(),
                     [&](const auto& element) { return contains(element.second, serviceProfile); });
}

// Copies a name and its NUL into a field of a record. False if it does not fit.
template <std::size_t Size>
bool store(char (&field)[Size], const std::string& name) {
  if (name.size() >= Size) return false;
  std::fill(std::begin(field), std::end(field), '\0');
  name.copy(field, Size);
  return true;
}

// The record of a service profile that may be changed. 0, or why not.
int findChangeable(const std::string& name, servprofile::servProfileInfo*& info) {
  const auto profileIt = services().servProfiles.find(name);
  if (profileIt == services().servProfiles.end()) return -ENOENT;
  if (isApplied(name)) return -EBUSY;
  info = &profileIt->second;
  return 0;
}

bool isNamed(const std::string& vlanProfile) {
  const auto& all = services().servProfiles;
  return std::any_of(all.begin(), all.end(), [&](const auto& element) {
    return element.second.vlanProfile == vlanProfile;
  });
}

bool isInForce(const std::string& vlanProfile) {
  const auto& all = services().servProfiles;
  return std::any_of(all.begin(), all.end(), [&](const auto& element) {
    return element.second.vlanProfile == vlanProfile && isApplied(element.first);
  });
}

}  // namespace

// ---- What modules call ----

int servprofile::servProfileCheckSubAttached(const std::string& profileName, int subProfileKind) {
  if (subProfileKind != subProfileL2cp || profileName.empty()) return 0;
  const bool named =
      std::any_of(servProfiles.begin(), servProfiles.end(),
                  [&](const auto& element) { return element.second.l2cpProfile == profileName; });
  return named ? 1 : 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the framework's signature
void servprofile::getAllServiceProfilesWithL2cpProfile(std::string l2cpProfile,
                                                       std::list<std::string>& serviceProfiles) {
  serviceProfiles.clear();
  for (const auto& [name, info] : servProfiles) {
    if (info.l2cpProfile == l2cpProfile) serviceProfiles.push_back(name);
  }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the framework's signature
void servprofile::getAllServiceProfilesPerIntf(std::list<std::string> serviceProfiles,
                                               std::map<int, std::list<std::string>>& applied) {
  applied.clear();
  for (const auto& [intf, names] : appliedProfiles()) {
    for (const std::string& name : names) {
      if (contains(serviceProfiles, name)) applied[intf].push_back(name);
    }
  }
}

int servprofile::servProfileAttach(const std::string& serviceProfile, int intf) {
  const auto profileIt = servProfiles.find(serviceProfile);
  if (profileIt == servProfiles.end()) return -ENOENT;
  if (intf < 0) return -EINVAL;
  const auto intfIt = appliedProfiles().find(intf);
  if (intfIt != appliedProfiles().end() && contains(intfIt->second, serviceProfile)) return -EEXIST;
  if (profileIt->second.l2cpProfile[0] != '\0' && module().apply) {
    int answer = module().applyCheck(intf, serviceProfile);
    if (answer == 0) answer = module().apply(intf, serviceProfile);
    if (answer != 0) return answer;
  }
  appliedProfiles()[intf].push_back(serviceProfile);
  return 0;
}

int servprofile::servProfileDetach(const std::string& serviceProfile, int intf) {
  if (!servProfiles.contains(serviceProfile)) return -ENOENT;
  const auto intfIt = appliedProfiles().find(intf);
  if (intfIt == appliedProfiles().end() || !contains(intfIt->second, serviceProfile)) return -EBADF;
  if (module().unApply) {
    const int answer = module().unApply(intf, serviceProfile);
    if (answer != 0) return answer;
  }
  intfIt->second.remove(serviceProfile);
  if (intfIt->second.empty()) appliedProfiles().erase(intfIt);
  return 0;
}

int servprofile::servProfileL2cpProfile(const std::string& serviceProfile,
                                        const std::string& l2cpProfile) {
  servProfileInfo* info = nullptr;
  const int refusal = findChangeable(serviceProfile, info);
  if (refusal != 0) return refusal;
  return store(info->l2cpProfile, l2cpProfile) ? 0 : -EINVAL;
}

int vlanprofile::vlanProfileSvidGet(int intf, int id) const {
  for (const auto& [name, info] : vlanProfiles) {
    if (info.id != id) continue;
    const auto svidIt = info.svids.find(intf);
    return svidIt == info.svids.end() ? 0 : svidIt->second;
  }
  return 0;
}

// ---- What the daemon itself does ----

namespace profiles {

void setModule(Module newModule) { module() = std::move(newModule); }

int addServiceProfile(const std::string& name) {
  servprofile::servProfileInfo info;
  if (name.empty() || !store(info.name, name)) return -EINVAL;
  return services().servProfiles.emplace(name, info).second ? 0 : -EEXIST;
}

int deleteServiceProfile(const std::string& name) {
  servprofile::servProfileInfo* info = nullptr;
  const int refusal = findChangeable(name, info);
  if (refusal == 0) services().servProfiles.erase(name);
  return refusal;
}

int setVlanProfile(const std::string& serviceProfile, const std::string& vlanProfile) {
  servprofile::servProfileInfo* info = nullptr;
  const int refusal = findChangeable(serviceProfile, info);
  if (refusal != 0) return refusal;
  if (!vlanProfile.empty() && !vlans().vlanProfiles.contains(vlanProfile)) return -ENOENT;
  return store(info->vlanProfile, vlanProfile) ? 0 : -EINVAL;
}

const std::map<int, std::list<std::string>>& applied() { return appliedProfiles(); }

void clear() {
  while (!appliedProfiles().empty()) {
    const int intf = appliedProfiles().begin()->first;
    const std::string name = appliedProfiles().begin()->second.front();
    // One that the module refuses to detach is off the interface all the same.
    if (services().servProfileDetach(name, intf) != 0) {
      auto& names = appliedProfiles()[intf];
      names.remove(name);
      if (names.empty()) appliedProfiles().erase(intf);
    }
  }
  services().servProfiles.clear();
  vlans().vlanProfiles.clear();
}

int addVlanProfile(const std::string& name) {
  constexpr std::size_t longestName = sizeof(servprofile::servProfileInfo::vlanProfile) - 1;
  if (name.empty() || name.size() > longestName) return -EINVAL;
  auto& all = vlans().vlanProfiles;
  if (all.contains(name)) return -EEXIST;
  int highest = 0;
  for (const auto& [other, info] : all) highest = std::max(highest, info.id);
  all[name].id = highest + 1;
  return 0;
}

int deleteVlanProfile(const std::string& name) {
  if (!vlans().vlanProfiles.contains(name)) return -ENOENT;
  if (isNamed(name)) return -EBUSY;
  vlans().vlanProfiles.erase(name);
  return 0;
}

int setSvid(const std::string& vlanProfile, int intf, int svid) {
  constexpr int highestSvid = 4094;
  const auto profileIt = vlans().vlanProfiles.find(vlanProfile);
  if (profileIt == vlans().vlanProfiles.end()) return -ENOENT;
  if (intf < 0 || svid < 0 || svid > highestSvid) return -EINVAL;
  // The module detaches by the S-VID that it finds here.
  if (isInForce(vlanProfile)) return -EBUSY;
  if (svid == 0) {
    profileIt->second.svids.erase(intf);
  } else {
    profileIt->second.svids[intf] = svid;
  }
  return 0;
}

}  // namespace profiles
