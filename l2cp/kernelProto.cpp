#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>

#include "l2cp/conditions.h"
#include "l2cp/key.h"
#include "l2cp/l2cp.h"
#include "l2cp/positions.h"
#include "platform/acl_ioctl.h"

namespace {

constexpr unsigned short wholePort = 4095;

bool sameName(const char* left, const char* right) {
  return std::strncmp(left, right, ACL_NAME_SIZE) == 0;
}

// Twice the port number, wrapping at 32 bits, plus 1 for kinds other than 0.
int entryCountKey(int port, const acl_ioctl_port_entry& entry) {
  return static_cast<int>(2U * static_cast<unsigned int>(port) + (entry.kind != 0 ? 1U : 0U));
}

}  // namespace

bool L2CP::addKernelProtoConditions(acl_ioctl_selector& selector, unsigned short vid,
                                    const Protocol& proto) {
  const auto add = [&] {
    ++selector.conditionCount;
    return ioctl(aclFd, ACL_ADD_CONDITION, &selector) == 0;
  };
  if (vid != wholePort) {
    setVlanCondition(selector, vid);
    if (!add()) return false;
  }
  if (!std::equal(std::begin(proto.mac), std::end(proto.mac), m_anyMac)) {
    // Deliberate: always the full mask, whatever the protocol's own.
    setMacCondition(selector, proto.mac, m_allMac);
    if (!add()) return false;
  }
  if (proto.etherType != m_noEtherType) {
    setEtherTypeCondition(selector, proto.etherType);
    if (!add()) return false;
  }
  if (proto.subType != m_noSubType) {
    setSubTypeCondition(selector, proto.subType);
    if (!add()) return false;
  }
  return true;
}

unsigned int L2CP::kernelProtoAdd(unsigned int port, unsigned short vid, const char* protoName,
                                  Rule rule, unsigned int index) {
  if (rule == Rule::peer) return 1;
  const auto protoIt = settings.protocols.find(registryKey(protoName));
  if (protoIt == settings.protocols.end()) return 0;

  acl_ioctl_selector selector{};
  aclName(selector.name, protoName, port, vid);
  if (ioctl(aclFd, ACL_ADD_SELECTOR, &selector) != 0) return 0;

  bool installed = addKernelProtoConditions(selector, vid, *protoIt->second);
  if (installed) {
    acl_ioctl_port_entry entry{};
    setPort(entry, port);
    entry.kind = protocolKind;
    entry.index = index;
    std::memcpy(entry.selector, selector.name, sizeof(entry.selector));
    GetName(rule == Rule::tunnel ? m_action_list_hide : m_action_list_drop, entry.actionList,
            nullptr);
    installed = portEntryAdd(static_cast<int>(port), entry) == 0;
  }
  if (!installed) ioctl(aclFd, ACL_DEL_SELECTOR, &selector);
  return installed ? 1 : 0;
}

unsigned int L2CP::kernelProtoDel(unsigned int port, unsigned short vid, const char* protoName,
                                  Rule /*rule*/, unsigned int index) {
  // The names stay empty: the entry found is one that the kernel reports without names.
  acl_ioctl_port_entry entry{};
  setPort(entry, port);
  entry.kind = protocolKind;
  entry.index = index;
  portEntryDel(static_cast<int>(port), entry);

  acl_ioctl_selector selector{};
  aclName(selector.name, registryKey(protoName), port, vid);
  ioctl(aclFd, ACL_DEL_SELECTOR, &selector);
  return 1;
}

int L2CP::portEntryAdd(int port, const acl_ioctl_port_entry& entry) {
  unsigned int& count = portEntryCount[entryCountKey(port, entry)];
  if (count == 0) {
    kernelHideRuleAdd(static_cast<unsigned int>(port), static_cast<int>(entry.kind));
  }
  // Deliberate: the entry counts even if the kernel refuses it.
  ++count;
  acl_ioctl_port_entry record = entry;
  return ioctl(aclFd, ACL_ADD_PORT_ENTRY, &record);
}

void L2CP::portEntryDel(int port, const acl_ioctl_port_entry& entry) {
  acl_ioctl_port_entry found = entry;
  const auto isWanted = [&] {
    return ioctl(aclFd, ACL_GET_PORT_ENTRY, &found) == 0 &&
           sameName(found.selector, entry.selector) && sameName(found.actionList, entry.actionList);
  };
  found.index = firstPosition;
  while (!isWanted()) {
    if (++found.index > lastPosition) return;
  }
  ioctl(aclFd, ACL_DEL_PORT_ENTRY, &found);

  const auto [countIt, isNew] = portEntryCount.try_emplace(entryCountKey(port, entry), 0);
  if (!isNew) --countIt->second;
  if (countIt->second == 0) {
    kernelHideRuleDel(static_cast<unsigned int>(port), static_cast<int>(entry.kind));
  }
}
