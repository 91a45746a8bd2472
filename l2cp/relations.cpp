#include <algorithm>
#include <cerrno>

#include "l2cp/key.h"
#include "l2cp/l2cp.h"
#include "l2cp/trace.h"
#include "platform/servprofile.h"

int L2CP::profileGetPorts(const char* profileName,
                          std::list<std::pair<unsigned int, unsigned short>>& ports) {
  Debug("%s:%d %s(profileName=\"%s\")", L2CP_TRACE_SITE, __func__, profileName);
  const std::string name = registryKey(profileName);
  if (!settings.profiles.contains(name)) return -ENOENT;
  for (const auto& [port, vlans] : settings.ports) {
    for (const auto& [vid, attached] : vlans) {
      const bool isAttached =
          std::any_of(attached.begin(), attached.end(),
                      [&](const auto& element) { return element.first->name == name; });
      if (isAttached) ports.emplace_back(port, vid);
    }
  }
  return 0;
}

int L2CP::profileGetAllForPort(unsigned int port, std::list<Profile>& profiles) {
  Debug("%s:%d %s(port=%d)", L2CP_TRACE_SITE, __func__, port);
  const auto portIt = settings.ports.find(port);
  if (portIt == settings.ports.end()) return -ENOENT;
  for (const auto& [vid, attached] : portIt->second) {
    for (const auto& [profile, positions] : attached) {
      if (std::find(profiles.begin(), profiles.end(), *profile) == profiles.end()) {
        profiles.push_back(*profile);
      }
    }
  }
  return 0;
}

int L2CP::profileGetServiceProfiles(const char* profileName,
                                    std::list<std::string>& serviceProfiles) {
  Debug("%s:%d %s(profileName=\"%s\")", L2CP_TRACE_SITE, __func__, profileName);
  const std::string name = registryKey(profileName);
  if (!settings.profiles.contains(name)) return -ENOENT;
  for (const auto& [serviceProfile, info] : singleton<servprofile>::instance().servProfiles) {
    if (name == info.l2cpProfile) serviceProfiles.push_back(serviceProfile);
  }
  return 0;
}

int L2CP::getL2cpProfilesPerServiceProfile(const std::string& profileName,
                                           std::map<std::string, std::string>& profiles) {
  const std::string byDefault = "DEFAULT";
  profiles.clear();
  for (const auto& [serviceProfile, info] : singleton<servprofile>::instance().servProfiles) {
    if (info.name == byDefault || info.l2cpProfile == byDefault) continue;
    if (info.l2cpProfile == profileName) profiles[serviceProfile] = info.l2cpProfile;
  }
  return 0;
}
