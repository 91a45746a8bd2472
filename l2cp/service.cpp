#include <cerrno>

#include "l2cp/l2cp.h"
#include "l2cp/trace.h"
#include "platform/BLLManager.h"
#include "platform/Log.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

namespace {

constexpr int noSvidToApply = -99;
constexpr int noSvidToUnApply = -64;

bool isSvid(int vid) { return vid >= 1 && vid <= 4094; }

// Deliberate: a service profile that the daemon does not know is entered into its table.
const servprofile::servProfileInfo& findOrMake(const std::string& serviceProfile) {
  return singleton<servprofile>::instance().servProfiles[serviceProfile];
}

const vlanprofile::vlanProfileInfo* findVlanProfile(const std::string& name) {
  const auto& profiles = singleton<vlanprofile>::instance().vlanProfiles;
  const auto profileIt = profiles.find(name);
  return profileIt == profiles.end() ? nullptr : &profileIt->second;
}

}  // namespace

int L2CP::profileApplyCheck(int intf, const std::string& serviceProfile) {
  Debug("%s:%d %s(intf=%d, serviceProfile=\"%s\")", L2CP_TRACE_SITE, __func__, intf,
        serviceProfile.c_str());
  return 0;
}

int L2CP::profileApply(int intf, const std::string& serviceProfile) {
  Debug("%s:%d %s(intf=%d, serviceProfile=\"%s\")", L2CP_TRACE_SITE, __func__, intf,
        serviceProfile.c_str());
  const servprofile::servProfileInfo& info = findOrMake(serviceProfile);
  if (info.l2cpProfile[0] == '\0') {
    Debug("%s:%d   No L2CP profile specified.", L2CP_TRACE_SITE);
    return -ENOENT;
  }
  const vlanprofile::vlanProfileInfo* vlanProfile = findVlanProfile(info.vlanProfile);
  if (vlanProfile == nullptr) {
    Debug("%s:%d   No VLAN profile \"%s\".", L2CP_TRACE_SITE, info.vlanProfile);
    return -ENODEV;
  }
  const int svid = singleton<vlanprofile>::instance().vlanProfileSvidGet(intf, vlanProfile->id);
  if (!isSvid(svid)) {
    Debug("%s:%d   VLAN profile \"%s\" has no S-VID", L2CP_TRACE_SITE, info.vlanProfile);
    return noSvidToApply;
  }
  return portAttach(info.l2cpProfile, static_cast<unsigned int>(intf),
                    static_cast<unsigned short>(svid));
}

int L2CP::profileUnApply(int intf, const std::string& serviceProfile) {
  Debug("%s:%d %s(intf=%d, serviceProfile=\"%s\")", L2CP_TRACE_SITE, __func__, intf,
        serviceProfile.c_str());
  // Deliberate: refusals are silent and have other numbers than those of applying.
  const servprofile::servProfileInfo& info = findOrMake(serviceProfile);
  if (info.l2cpProfile[0] == '\0') return 0;
  const vlanprofile::vlanProfileInfo* vlanProfile = findVlanProfile(info.vlanProfile);
  if (vlanProfile == nullptr) return -ENODEV;
  const int svid = singleton<vlanprofile>::instance().vlanProfileSvidGet(intf, vlanProfile->id);
  if (!isSvid(svid)) return noSvidToUnApply;
  return portDetach(info.l2cpProfile, static_cast<unsigned int>(intf),
                    static_cast<unsigned short>(svid));
}

bool L2CP::profileIsApplied(const std::string& profileName) const {
  const BLLManager::sharedLock_t lock;
  if (!lock) return false;
  const auto profileIt = settings.profiles.find(profileName);
  if (profileIt == settings.profiles.end()) {
    singleton<Log>::instance().setMsgLevel(1) << "l2cp"
                                              << ":" << __LINE__ << ":" << __func__ << ":"
                                              << "profile doesn't exist: " << profileName << "\n";
    return false;
  }
  return !profileIt->second->interfaces.empty();
}

bool L2CP::profileAppliedIntfGet(const std::string& profileName,
                                 std::set<unsigned int>& interfaces) const {
  const BLLManager::sharedLock_t lock;
  if (!lock) return false;
  const auto profileIt = settings.profiles.find(profileName);
  if (profileIt == settings.profiles.end()) return false;
  if (&interfaces != &profileIt->second->interfaces) interfaces = profileIt->second->interfaces;
  return true;
}
