#include <sys/ioctl.h>
#include <unistd.h>

#include <boost/bind.hpp>
#include <cerrno>

#include "l2cp/l2cp.h"
#include "l2cp/registration.h"
#include "l2cp/trace.h"
#include "platform/BLLManager.h"
#include "platform/Interfaces.h"
#include "platform/acl_ioctl.h"
#include "platform/br_open.h"
#include "platform/itbridge.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

void L2CP::applyConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) {}

void L2CP::saveConfiguration(boost::shared_ptr<Storage::Setting> /*setting*/) const {}

bool L2CP::start() {
  if (!l2cpIsRegistered()) return false;
  aclFd = br_open(singleton<itbridge>::instance().bridgeNameGet(), "acl");
  if (aclFd < 0) return false;

  acl_ioctl_action action{};
  if (!addSharedActionList(m_action_list_hide, action)) return false;
  action.index = 0;
  action.type = ACL_ACTION_HIDE;
  if (ioctl(aclFd, ACL_ADD_ACTION, &action) != 0) return false;

  if (!addSharedActionList(m_action_list_tunnel, action)) return false;
  action.index = 0;
  action.type = ACL_ACTION_NO_L2CP;
  if (ioctl(aclFd, ACL_ADD_ACTION, &action) != 0) return false;
  Debug("%s:%d ---\n", L2CP_TRACE_SITE);
  // Deliberate: the second action, too, is no-L2CP rather than hide.
  action.index = 1;
  if (ioctl(aclFd, ACL_ADD_ACTION, &action) != 0) return false;

  singleton<BLLManager>::instance().externalMessage.subscribePost(
      boost::bind(&L2CP::externalMessage, this, _1, _2, _3));
  return rpcProxy.start();
}

bool L2CP::addSharedActionList(const char* name, acl_ioctl_action& action) {
  action = {};
  GetName(name, action.actionList, nullptr);
  return ioctl(aclFd, ACL_ADD_ACTION_LIST, &action) == 0;
}

bool L2CP::stop() {
  rpcProxy.stop(false);
  singleton<BLLManager>::instance().externalMessage.unsubscribePost(
      boost::bind(&L2CP::externalMessage, this, _1, _2, _3));

  acl_ioctl_action action{};
  GetName(m_action_list_tunnel, action.actionList, nullptr);
  ioctl(aclFd, ACL_DEL_ACTION_LIST, &action);
  action = {};
  GetName(m_action_list_hide, action.actionList, nullptr);
  ioctl(aclFd, ACL_DEL_ACTION_LIST, &action);

  if (aclFd != -1) {
    close(aclFd);
    aclFd = -1;
  }
  return true;
}

bool L2CP::applyDefaultSettings() {
  const Settings defaults;
  return applySettings(singleton<itbridge>::instance().bridgeNameGet(), defaults) == 0;
}

int L2CP::getDependencies(std::list<std::string>& entities) {
  entities = {singleton<Interfaces>::instance().entityName(),
              singleton<vlanprofile>::instance().entityName(),
              singleton<servprofile>::instance().entityName()};
  return 0;
}

int L2CP::applySettings(const char* /*bridgeName*/, const Settings& wanted) {
  const BLLManager::exclusiveLock_t lock;
  if (!lock) return -EBUSY;

  for (auto portIt = settings.ports.begin(); portIt != settings.ports.end();) {
    const unsigned int port = portIt->first;
    ++portIt;
    const auto keptIt = wanted.ports.find(port);
    if (keptIt == wanted.ports.end()) {
      detachAll(port);
    } else {
      detachMissing(port, keptIt->second);
    }
  }

  std::list<std::string> surplus;
  for (const auto& [name, proto] : settings.protocols) {
    if (!wanted.protocols.contains(name)) surplus.push_back(name);
  }
  for (const auto& [profileName, profile] : settings.profiles) {
    for (const std::string& protoName : surplus) {
      profileProtoDel(profileName.c_str(), protoName.c_str());
    }
  }
  for (auto profileIt = settings.profiles.begin(); profileIt != settings.profiles.end();) {
    const std::string name = profileIt->first;
    ++profileIt;
    if (!wanted.profiles.contains(name)) profileDel(name.c_str());
  }
  for (const std::string& protoName : surplus) protoDel(protoName.c_str());

  for (const auto& [name, proto] : wanted.protocols) {
    if (settings.protocols.contains(name)) continue;
    protoAdd(name.c_str(), proto->protect, proto->mac, proto->macMask, proto->etherType,
             proto->subType);
  }
  for (const auto& [name, profile] : wanted.profiles) {
    if (settings.profiles.contains(name)) continue;
    profileAdd(name.c_str(), profile->protect, profile->dynamic);
    for (const auto& [proto, rule] : profile->protocols) {
      profileProtoAdd(name.c_str(), proto->name.c_str(), rule);
    }
  }
  return 0;
}

// Detaches whatever is attached to a port, first VLAN and first profile first.
void L2CP::detachAll(unsigned int port) {
  for (auto portIt = settings.ports.find(port); portIt != settings.ports.end();
       portIt = settings.ports.find(port)) {
    VlanMap& vlans = portIt->second;
    const auto vlanIt = vlans.begin();
    if (vlanIt == vlans.end()) {
      settings.ports.erase(portIt);
    } else if (vlanIt->second.empty()) {
      vlans.erase(vlanIt);
    } else {
      const auto profileIt = vlanIt->second.begin();
      const std::string profileName = profileIt->first->name;
      // A profile that has left the registry cannot be detached by name, and the walk must end.
      if (portDetach(profileName, port, vlanIt->first) != 0) detach(portIt, vlanIt, profileIt);
    }
  }
}

// Detaches what is attached to a port and not kept. Attachments are the same if they point at the
// same profile.
void L2CP::detachMissing(unsigned int port, const VlanMap& kept) {
  std::list<std::pair<unsigned short, std::string>> missing;
  for (const auto& [vid, attached] : settings.ports.at(port)) {
    const auto keptIt = kept.find(vid);
    for (const auto& [profile, positions] : attached) {
      if (keptIt == kept.end() || !keptIt->second.contains(profile)) {
        missing.emplace_back(vid, profile->name);
      }
    }
  }
  for (const auto& [vid, profileName] : missing) portDetach(profileName, port, vid);
}
