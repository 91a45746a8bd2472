#include <cerrno>
#include <iterator>

#include "l2cp/key.h"
#include "l2cp/l2cp.h"
#include "l2cp/serviceProfiles.h"
#include "l2cp/trace.h"
#include "platform/servprofile.h"

namespace {

constexpr int renamedPartly = -100;

// Tells the service profiles' log of a change to the registry, if it wants to know.
void logChange(const char* function, int line, const char* profileName) {
  constexpr int changeLevel = 2;
  servprofile& services = singleton<servprofile>::instance();
  if (services.servProfileLogLevel < changeLevel) return;
  services.servProfileLogMsg(changeLevel, function, line, "BLL", 0, "l2cp-profile", profileName, "",
                             0, 0);
}

}  // namespace

int L2CP::profileAdd(const char* profileName, bool protect, bool dynamic) {
  Debug("%s:%d %s(profileName=\"%s\", protect=%s, dynamic=%s)", L2CP_TRACE_SITE, __func__,
        profileName, bool2yesno(protect), bool2yesno(dynamic));
  const std::string name = registryKey(profileName);
  if (settings.profiles.contains(name)) return -EEXIST;
  settings.profiles.emplace(name, Profile(profileName, protect, dynamic));
  logChange(__func__, __LINE__, name.c_str());
  return 0;
}

int L2CP::profileDel(const char* profileName) {
  Debug("%s:%d %s(profileName=\"%s\")", L2CP_TRACE_SITE, __func__, profileName);
  const std::string name = registryKey(profileName);
  const auto profileIt = settings.profiles.find(name);
  if (profileIt == settings.profiles.end()) return -ENOENT;
  if (profileIt->second->protect) return -EPERM;
  if (profileIt->second->useCount != 0) return -EBUSY;
  if (singleton<servprofile>::instance().servProfileCheckSubAttached(
          name, servprofile::subProfileL2cp) != 0) {
    return -EBUSY;
  }
  kernelCounterDel(m_counter_profile_mask, name, m_rule_peer);
  kernelCounterDel(m_counter_profile_mask, name, m_rule_tunnel);
  kernelCounterDel(m_counter_profile_mask, name, m_rule_discard);
  // Deliberate: the use counts of the profile's protocols stay as they are.
  settings.profiles.erase(profileIt);
  logChange(__func__, __LINE__, name.c_str());
  return 0;
}

int L2CP::profileSetProtect(const char* profileName, bool protect) {
  Debug("%s:%d %s(profileName=\"%s\", protect=%s)", L2CP_TRACE_SITE, __func__, profileName,
        bool2yesno(protect));
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  profileIt->second->setProtect(protect);
  return 0;
}

int L2CP::profileSetDynamic(const char* profileName, bool dynamic) {
  Debug("%s:%d %s(profileName=\"%s\", dynamic=%s)", L2CP_TRACE_SITE, __func__, profileName,
        bool2yesno(dynamic));
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  profileIt->second->setDynamic(dynamic);
  return 0;
}

int L2CP::profileGet(const char* profileName, Profile& profile) {
  Debug("%s:%d %s(profileName=\"%s\")", L2CP_TRACE_SITE, __func__, profileName);
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  profile = *profileIt->second;
  return 0;
}

int L2CP::profileGet(unsigned int idx, Profile& profile) {
  Debug("%s:%d %s(idx=%d)", L2CP_TRACE_SITE, __func__, idx);
  if (idx >= settings.profiles.size()) return -ENOENT;
  profile = *std::next(settings.profiles.begin(), idx)->second;
  return 0;
}

int L2CP::profileGetAll(std::list<Profile>& profiles) {
  Debug("%s:%d %s()", L2CP_TRACE_SITE, __func__);
  for (const auto& [name, profile] : settings.profiles) profiles.push_back(*profile);
  return 0;
}

int L2CP::profileStat(const char* profileName, Statistics& stats) {
  Debug("%s:%d %s(profileName=\"%s\")", L2CP_TRACE_SITE, __func__, profileName);
  const std::string name = registryKey(profileName);
  if (!settings.profiles.contains(name)) return -ENOENT;
  return readStatistics(m_counter_profile_mask, name, stats);
}

int L2CP::l2cpProfileStatus(const char* profileName) {
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  if (profileIt->second->protect) return -EPERM;
  return profileIt->second->useCount != 0 ? -EBUSY : 0;
}

int L2CP::profileRen(const char* oldName, const char* newName) {
  const std::string oldKey = registryKey(oldName);
  const std::string newKey = registryKey(newName);
  if (!settings.profiles.contains(oldKey)) return -ENOENT;
  if (settings.profiles.contains(newKey)) return -ENOSPC;
  if (l2cpProfileCopy(oldName, newName) != 0) return renamedPartly;

  const ServiceProfiles services(*this, oldKey);
  if (!services.detach() || !services.clear()) return renamedPartly;
  // An attachment made directly still points at the old profile and keeps it alive.
  settings.profiles.erase(oldKey);
  const auto renamed = settings.profiles.find(newKey);
  if (renamed != settings.profiles.end()) renamed->second->name = newKey;
  if (!services.name(newKey) || !services.attach()) return renamedPartly;
  return 0;
}
