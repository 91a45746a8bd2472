#include <cerrno>
#include <iterator>

#include "l2cp/key.h"
#include "l2cp/l2cp.h"
#include "l2cp/trace.h"
#include "platform/CliConfig.h"

namespace {

using Entries = std::map<std::shared_ptr<L2CP::Protocol>, L2CP::Rule>;

// The entry of a profile that may be changed, for a protocol of the catalogue. 0, or why not.
int findEntry(L2CP::Settings& settings, const char* profileName, const char* protoName,
              L2CP::Profile*& profile, Entries::iterator& entry) {
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  profile = &*profileIt->second;
  if (profile->protect) return -EPERM;
  if (profile->useCount != 0) return -EBUSY;
  const auto protoIt = settings.protocols.find(registryKey(protoName));
  if (protoIt == settings.protocols.end()) return -ENODEV;
  entry = profile->protocols.find(protoIt->second.pointer());
  return entry == profile->protocols.end() ? -EINVAL : 0;
}

}  // namespace

int L2CP::profileProtoAdd(const char* profileName, const char* protoName, Rule rule) {
  Debug("%s:%d %s(profileName=\"%s\", protoName=\"%s\", rule=%d)", L2CP_TRACE_SITE, __func__,
        profileName, protoName, static_cast<int>(rule));
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  Profile& profile = *profileIt->second;
  if (singleton<CliConfig>::instance().isScriptingDynamicProfilesMode() != 1 && profile.protect) {
    return -EPERM;
  }
  if (profile.useCount != 0) return -EBUSY;
  const auto protoIt = settings.protocols.find(registryKey(protoName));
  if (protoIt == settings.protocols.end()) return -ENODEV;
  if (!profile.protocols.emplace(protoIt->second.pointer(), rule).second) return -EEXIST;
  ++protoIt->second->useCount;
  return 0;
}

int L2CP::profileProtoSet(const char* profileName, const char* protoName, Rule newRule) {
  Debug("%s:%d %s(profileName=\"%s\", protoName=\"%s\", newRule=%d)", L2CP_TRACE_SITE, __func__,
        profileName, protoName, static_cast<int>(newRule));
  Profile* profile = nullptr;
  Entries::iterator entry;
  const int refusal = findEntry(settings, profileName, protoName, profile, entry);
  if (refusal != 0) return refusal;
  entry->second = newRule;
  return 0;
}

int L2CP::profileProtoDel(const char* profileName, const char* protoName) {
  Debug("%s:%d %s(profileName=\"%s\", protoName=\"%s\")", L2CP_TRACE_SITE, __func__, profileName,
        protoName);
  Profile* profile = nullptr;
  Entries::iterator entry;
  const int refusal = findEntry(settings, profileName, protoName, profile, entry);
  if (refusal != 0) return refusal;
  --entry->first->useCount;
  profile->protocols.erase(entry);
  return 0;
}

int L2CP::profileProtoDelAll(const char* profileName) {
  Debug("%s:%d %s(profileName=\"%s\")", L2CP_TRACE_SITE, __func__, profileName);
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  Profile& profile = *profileIt->second;
  if (profile.protect) return -EPERM;
  if (profile.useCount != 0) return -EBUSY;
  for (const auto& [proto, rule] : profile.protocols) --proto->useCount;
  profile.protocols.clear();
  return 0;
}

int L2CP::profileProtoGet(const char* profileName, unsigned int idx, std::string& protoName,
                          Rule& rule) {
  Debug("%s:%d %s(profileName=\"%s\", idx=%d)", L2CP_TRACE_SITE, __func__, profileName, idx);
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  const Entries& entries = profileIt->second->protocols;
  if (idx >= entries.size()) return -EINVAL;
  const auto& [proto, entryRule] = *std::next(entries.begin(), idx);
  protoName = proto->name;
  rule = entryRule;
  return 0;
}

int L2CP::profileGetProtocols(const char* profileName, std::map<std::string, Rule>& protocols) {
  Debug("%s:%d %s(profileName=\"%s\")", L2CP_TRACE_SITE, __func__, profileName);
  const auto profileIt = settings.profiles.find(registryKey(profileName));
  if (profileIt == settings.profiles.end()) return -ENOENT;
  for (const auto& [proto, rule] : profileIt->second->protocols) protocols[proto->name] = rule;
  return 0;
}
