#include <algorithm>
#include <cerrno>
#include <iterator>

#include "l2cp/key.h"
#include "l2cp/l2cp.h"
#include "l2cp/serviceProfiles.h"
#include "platform/Log.h"

namespace {

constexpr int failed = -1;
constexpr int differs = -2;

bool sameProtocol(const L2CP::Protocol& left, const L2CP::Protocol& right) {
  const auto equal = [](const auto& bytes, const auto& others) {
    return std::equal(std::begin(bytes), std::end(bytes), std::begin(others));
  };
  return left.subType == right.subType && equal(left.mac, right.mac) &&
         equal(left.macMask, right.macMask) && left.etherType == right.etherType &&
         left.name == right.name && left.protect == right.protect &&
         left.useCount == right.useCount;
}

}  // namespace

int L2CP::l2cpProfileCopy(const char* source, const char* destination) {
  const auto sourceIt = settings.profiles.find(registryKey(source));
  if (sourceIt == settings.profiles.end()) return failed;
  const auto [copyIt, isNew] = settings.profiles.try_emplace(registryKey(destination));
  if (!isNew) return failed;
  Profile& copy = *copyIt->second;
  // Deliberate: the use counts of the protocols do not rise with the copied entries.
  copy = *sourceIt->second;
  copy.name = copyIt->first;
  copy.setDynamic(false);
  copy.setProtect(false);
  copy.useCount = 0;
  return 0;
}

rpcl2cpProfEditResult L2CP::l2cpProfileEdit(const char* profileName) {
  constexpr std::size_t longestName = sizeof(rpcl2cpProfEditResult::name) - 1;
  // Deliberate: kept from call to call, so that beside an error stands the last success's name.
  static rpcl2cpProfEditResult result;
  for (unsigned long number = 1;; ++number) {
    const std::string candidate = "temp_l2cp_prof_" + std::to_string(number);
    if (candidate.size() > longestName) {
      result.error = static_cast<rpc_l2cp_error>(failed);
      return result;
    }
    Profile existing;
    if (profileGet(candidate.c_str(), existing) == 0) continue;
    if (l2cpProfileCopy(profileName, candidate.c_str()) != 0) {
      result.error = RPC_L2CP_ERR_FAILED;
      return result;
    }
    result.error = RPC_L2CP_OK;
    std::fill(std::begin(result.name), std::end(result.name), '\0');
    result.name[candidate.copy(result.name, longestName)] = '\0';
    return result;
  }
}

int L2CP::l2cpProfileCompareContent(const std::string& first, const std::string& second) {
  // Deliberate: a name that is not there becomes an empty profile.
  const auto findOrMake = [this](const std::string& name) -> const Profile& {
    const auto [profileIt, isNew] = settings.profiles.try_emplace(name);
    if (isNew) profileIt->second->name = name;
    return *profileIt->second;
  };
  const Profile& left = findOrMake(first);
  const Profile& right = findOrMake(second);
  if (left.dynamic != right.dynamic || left.protect != right.protect ||
      left.protocols.size() != right.protocols.size()) {
    return differs;
  }
  // Deliberate: rules do not count.
  const bool same = std::equal(
      left.protocols.begin(), left.protocols.end(), right.protocols.begin(),
      [](const auto& one, const auto& other) { return sameProtocol(*one.first, *other.first); });
  return same ? 0 : differs;
}

int L2CP::l2cpProfileReplace(const char* target, const char* temporary) {
  // Copies: the caller's names may be those of the profiles that go.
  const std::string name = registryKey(target);
  const std::string copy = registryKey(temporary);
  const ServiceProfiles services(*this, name);
  const bool replaced = services.detach() && services.clear() && profileDel(name.c_str()) == 0 &&
                        l2cpProfileCopy(copy.c_str(), name.c_str()) == 0 &&
                        profileDel(copy.c_str()) == 0 && services.name(name) && services.attach();
  return replaced ? 0 : failed;
}

int L2CP::l2cpProfileOnExit(const char* target, const char* temporary) {
  if (l2cpProfileCompareContent(registryKey(target), registryKey(temporary)) == 0) {
    profileDel(temporary);
    return differs;
  }
  return l2cpProfileReplace(target, temporary) == 0 ? 0 : failed;
}

int L2CP::l2cpDynamicProfilesDeleteAll() {
  std::list<std::string> names;
  for (const auto& [name, profile] : settings.profiles) {
    if (profile->dynamic) names.push_back(name);
  }
  for (const std::string& name : names) {
    profileSetProtect(name.c_str(), false);
    const int deleted = profileDel(name.c_str());
    if (deleted == -EBUSY) {
      singleton<Log>::instance().setMsgLevel(1)
          << "ISA: can not delete L2CP profile " << name << " error code: " << deleted << "\n";
    }
  }
  return 0;
}
