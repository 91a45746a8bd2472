#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "l2cp/conditions.h"
#include "l2cp/full_name.h"
#include "l2cp/l2cp.h"
#include "l2cp/mutexGuard.h"
#include "l2cp/positions.h"
#include "l2cp/trace.h"
#include "platform/acl_ioctl.h"

namespace {

constexpr int notAttachedOnVlan = 20;

}  // namespace

// What the entries of an attachment have in common, and the counters that they change.
struct L2CP::Attachment {
  static constexpr std::size_t counterCount = 4;

  // The full name of a counter as a record has room for it.
  struct Counter {
    char text[ACL_NAME_SIZE];
    RepeatedName name;

    // Deliberate: the full name is cut at the field's size, shorter than where the counters
    // themselves are cut, so a very long name leads to a counter that nobody made.
    template <class NameOrNumber>
    void write(const char* mask, const NameOrNumber& of, const char* suffix) {
      name = {.text = FullName(text).masked(mask, of, suffix).view()};
    }
  };

  const std::string& profileName;
  unsigned int port = 0;
  unsigned short vid = 0;
  std::optional<Rule> rule = {};
  std::array<Counter, counterCount> counters = {};

  // The names of the first three stay while protocols of one rule follow each other.
  void nameCounters(const Protocol& proto, Rule wanted) {
    const char* const suffix = rule2str(wanted);
    if (rule != wanted) {
      counters[0].write(m_counter_port_mask, static_cast<int>(port), suffix);
      counters[1].write(m_counter_vlan_mask, static_cast<int>(vid), suffix);
      counters[2].write(m_counter_profile_mask, profileName.c_str(), suffix);
      rule = wanted;
    }
    counters[3].write(m_counter_proto_mask, proto.name.c_str(), suffix);
  }
};

int L2CP::portAttach(const std::string& profileName, unsigned int port, unsigned short vid) {
  Debug("%s:%d %s(profileName=\"%s\", port=%d, vid=%d)", L2CP_TRACE_SITE, __func__,
        profileName.c_str(), port, vid);
  const auto profileIt = settings.profiles.find(profileName);
  if (profileIt == settings.profiles.end()) {
    Debug("%s:%d   L2CP profile \"%s\" does not exist.", L2CP_TRACE_SITE, profileName.c_str());
    return -ENOENT;
  }

  const auto addCounters = [this](const char* mask, const auto& of) {
    kernelCounterAdd(mask, of, m_rule_peer);
    kernelCounterAdd(mask, of, m_rule_tunnel);
    kernelCounterAdd(mask, of, m_rule_discard);
  };
  if (!settings.ports.contains(port)) addCounters(m_counter_port_mask, static_cast<int>(port));
  VlanMap& vlans = settings.ports[port];
  if (!vlans.contains(vid)) addCounters(m_counter_vlan_mask, static_cast<int>(vid));
  ProfileMap& attached = vlans[vid];
  for (const auto& [other, positions] : attached) {
    if (other->name == profileName) {
      Debug("%s:%d   Port and VLAN overlap.", L2CP_TRACE_SITE);
      return -EBUSY;
    }
  }
  addCounters(m_counter_profile_mask, profileName);

  const std::shared_ptr<Profile>& profile = profileIt->second.pointer();
  unsigned int lastIndex = 0;
  Attachment attachment{.profileName = profileName, .port = port, .vid = vid};
  for (const auto& [proto, rule] : profile->protocols) {
    lastIndex = attachProtocol(attachment, *proto, rule);
  }
  ++profile->useCount;
  attached[profile].push_back(lastIndex);
  Debug("%s:%d   OK.", L2CP_TRACE_SITE);
  profile->interfaces.insert(port);
  return 0;
}

// Programs the kernel for one protocol; returns the position of the port entry.
unsigned int L2CP::attachProtocol(Attachment& attachment, const Protocol& proto, Rule rule) {
  const unsigned int port = attachment.port;
  const unsigned short vid = attachment.vid;
  attachment.nameCounters(proto, rule);
  RepeatedName& counter = attachment.counters.back().name;
  if (counter.text.size() < ACL_NAME_SIZE - 1) {
    kernelCounterAdd(counter);
  } else {
    kernelCounterAdd(m_counter_proto_mask, proto.name, rule2str(rule));
  }

  acl_ioctl_selector selector{};
  nameSelector(selector.name, vid, proto);
  if (ioctl(aclFd, ACL_ADD_SELECTOR, &selector) != 0) {
    Debug("%s:%d   Unable to add selector \"%s\" (%d).", L2CP_TRACE_SITE, selector.name, errno);
  } else {
    Debug("%s:%d   Selector \"%s\" added.", L2CP_TRACE_SITE, selector.name);
    attachConditions(selector, vid, proto);
  }

  acl_ioctl_action action{};
  nameActionList(action.actionList, port, vid, proto);
  if (ioctl(aclFd, ACL_ADD_ACTION_LIST, &action) != 0) {
    // Deliberate: the message names the selector.
    Debug("%s:%d   Unable to add action list \"%s\" (%d).", L2CP_TRACE_SITE, selector.name, errno);
  } else {
    attachActions(action, attachment, rule);
  }

  acl_ioctl_port_entry entry{};
  setPort(entry, port);
  entry.kind = protocolKind;
  std::copy_n(selector.name, sizeof(entry.selector), entry.selector);
  std::copy_n(action.actionList, sizeof(entry.actionList), entry.actionList);
  // Deliberate: used without a check, so behind a full port this is the catch-all's position.
  entry.index = findFreeIndex(port);
  if (portEntryAdd(static_cast<int>(port), entry) != 0) {
    Debug("%s:%d   Unable to add port entry \"@%d:%d: %s --> %s\" (%d).", L2CP_TRACE_SITE, port,
          entry.index, entry.selector, entry.actionList, errno);
  } else {
    Debug("%s:%d   Port entry \"@%d:%d: %s --> %s\" added.", L2CP_TRACE_SITE, port, entry.index,
          entry.selector, entry.actionList);
  }
  return entry.index;
}

void L2CP::attachConditions(acl_ioctl_selector& selector, unsigned short vid,
                            const Protocol& proto) const {
  setVlanCondition(selector, vid);
  selector.conditionCount = 0;
  if (ioctl(aclFd, ACL_ADD_CONDITION, &selector) != 0) {
    Debug("%s:%d   Unable to add condition \"vid1 == %d\" (%d).", L2CP_TRACE_SITE, vid, errno);
  } else {
    Debug("%s:%d   Condition \"vid1 == %d\" added.", L2CP_TRACE_SITE, vid);
  }

  setMacCondition(selector, proto.mac, proto.macMask);
  selector.conditionCount = 1;
  if (ioctl(aclFd, ACL_ADD_CONDITION, &selector) != 0) {
    Debug("%s:%d   Unable to add condition \"DMAC == %02x:%02x:%02x:%02x:%02x:%02x\" (%d).",
          L2CP_TRACE_SITE, proto.mac[0], proto.mac[1], proto.mac[2], proto.mac[3], proto.mac[4],
          proto.mac[5], errno);
  } else {
    Debug("%s:%d   Condition \"DMAC == %02x:%02x:%02x:%02x:%02x:%02x\" added.", L2CP_TRACE_SITE,
          proto.mac[0], proto.mac[1], proto.mac[2], proto.mac[3], proto.mac[4], proto.mac[5]);
  }

  if (proto.etherType == m_noEtherType) return;
  setEtherTypeCondition(selector, proto.etherType);
  selector.conditionCount = 2;
  if (ioctl(aclFd, ACL_ADD_CONDITION, &selector) != 0) {
    Debug("%s:%d   Unable to add condition \"EtherType == 0x%04x\" (%d).", L2CP_TRACE_SITE,
          proto.etherType, errno);
  } else {
    Debug("%s:%d   Condition \"EtherType == 0x%04x\" added.", L2CP_TRACE_SITE, proto.etherType);
  }

  // A subtype without an EtherType is not matched.
  if (proto.subType == m_noSubType) return;
  setSubTypeCondition(selector, proto.subType);
  selector.conditionCount = 3;
  if (ioctl(aclFd, ACL_ADD_CONDITION, &selector) != 0) {
    Debug("%s:%d   Unable to add condition \"EtherData[0] == 0x%02x\" (%d).", L2CP_TRACE_SITE,
          proto.subType, errno);
  } else {
    Debug("%s:%d   Condition \"EtherData[0] == 0x%02x\" added.", L2CP_TRACE_SITE, proto.subType);
  }
}

void L2CP::attachCounterChanges(acl_ioctl_action& action, Attachment& attachment) {
  std::array<std::optional<ShortName>, Attachment::counterCount> shortNames;
  {
    const MutexGuard guard(nameMutex);
    for (std::size_t i = 0; i < shortNames.size(); ++i) {
      const TableName* used = useName(attachment.counters[i].name);
      if (used != nullptr) shortNames[i] = used->shortName;
    }
  }

  action.type = ACL_ACTION_COUNTER_CHANGE;
  action.increment = 1;
  for (std::size_t i = 0; i < shortNames.size(); ++i) {
    action.index = static_cast<unsigned int>(i) + 1;
    const std::string_view fullName = attachment.counters[i].name.text;
    std::memcpy(action.counter, fullName.data(), fullName.size() + 1);
    if (shortNames[i]) shortNames[i]->copyTo(action.counter);
    if (ioctl(aclFd, ACL_ADD_ACTION, &action) != 0) {
      Debug("%s:%d   Unable to add action \"CounterChange(%s, +1)\" (%d).", L2CP_TRACE_SITE,
            action.counter, errno);
    } else {
      Debug("%s:%d   Action \"CounterChange(%s, +1)\" added.", L2CP_TRACE_SITE, action.counter);
    }
  }
}

void L2CP::attachActions(acl_ioctl_action& action, Attachment& attachment, Rule rule) {
  const auto addAction = [&](unsigned int index, acl_action_type type, const char* added,
                             const char* refused) {
    action.index = index;
    action.type = type;
    if (ioctl(aclFd, ACL_ADD_ACTION, &action) != 0) {
      Debug(refused, L2CP_TRACE_SITE, errno);
    } else {
      Debug(added, L2CP_TRACE_SITE);
    }
  };
  const auto addHide = [&](unsigned int index) {
    addAction(index, ACL_ACTION_HIDE, "%s:%d   Action \"Hide()\" added.",
              "%s:%d   Unable to add action \"Hide()\" (%d).");
  };

  attachCounterChanges(action, attachment);
  switch (rule) {
    case Rule::discard:
      addAction(5, ACL_ACTION_DROP, "%s:%d   Action \"Drop()\" added.",
                "%s:%d   Unable to add action \"Drop()\" (%d).");
      break;
    case Rule::tunnel:
      addAction(5, ACL_ACTION_NO_L2CP, "%s:%d   Action \"NoL2CP()\" added.",
                "%s:%d   Unable to add action \"NoL2CP()\" (%d).");
      addHide(6);
      break;
    case Rule::peer:
      addHide(5);
      break;
  }
}

int L2CP::portDetach(const std::string& profileName, unsigned int port, unsigned short vid) {
  Debug("%s:%d %s(profileName=\"%s\", port=%d, vid=%d)", L2CP_TRACE_SITE, __func__,
        profileName.c_str(), port, vid);
  if (!settings.profiles.contains(profileName)) return -ENOENT;
  const auto portIt = settings.ports.find(port);
  if (portIt == settings.ports.end() || portIt->second.empty()) return -ENODEV;
  const auto vlanIt = portIt->second.find(vid);
  if (vlanIt == portIt->second.end()) return -notAttachedOnVlan;
  ProfileMap& attached = vlanIt->second;
  const auto profileIt = std::find_if(attached.begin(), attached.end(), [&](const auto& element) {
    return element.first->name == profileName;
  });
  if (profileIt == attached.end()) return -EBADF;
  detach(portIt, vlanIt, profileIt);
  return 0;
}

// Takes one attachment out of the kernel and out of the map, with the levels it leaves empty.
void L2CP::detach(PortMap::iterator portIt, VlanMap::iterator vlanIt,
                  ProfileMap::iterator profileIt) {
  const unsigned int port = portIt->first;
  const unsigned short vid = vlanIt->first;
  const std::shared_ptr<Profile> profile = profileIt->first;

  for (const auto& [proto, rule] : profile->protocols) {
    acl_ioctl_selector selector{};
    acl_ioctl_action action{};
    acl_ioctl_port_entry entry{};
    setPort(entry, port);
    entry.kind = protocolKind;
    nameSelector(selector.name, vid, *proto);
    std::copy_n(selector.name, sizeof(entry.selector), entry.selector);
    nameActionList(action.actionList, port, vid, *proto);
    std::copy_n(action.actionList, sizeof(entry.actionList), entry.actionList);
    // `portEntryDel` goes by the names; the search is part of the request order all the same.
    entry.index = findFreeIndex(port);
    portEntryDel(static_cast<int>(port), entry);
    ioctl(aclFd, ACL_DEL_SELECTOR, &selector);
    ioctl(aclFd, ACL_DEL_ACTION_LIST, &action);
  }

  --profile->useCount;
  vlanIt->second.erase(profileIt);
  if (vlanIt->second.empty()) portIt->second.erase(vlanIt);
  if (portIt->second.empty()) settings.ports.erase(portIt);
  // Deliberate: also if the profile is still attached to the port on another VLAN.
  profile->interfaces.erase(port);
}

int L2CP::portGet(unsigned int port, unsigned int idx, unsigned short& vid,
                  std::string& profileName) {
  Debug("%s:%d %s(port=%d, idx=%d)", L2CP_TRACE_SITE, __func__, port, idx);
  const auto portIt = settings.ports.find(port);
  if (portIt == settings.ports.end()) return -ENOENT;
  unsigned int position = 0;
  for (const auto& [attachedVid, attached] : portIt->second) {
    for (const auto& [profile, positions] : attached) {
      if (position++ == idx) {
        vid = attachedVid;
        profileName = profile->name;
        return 0;
      }
    }
  }
  return -EINVAL;
}
