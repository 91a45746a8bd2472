#include <algorithm>
#include <cerrno>
#include <iterator>

#include "l2cp/key.h"
#include "l2cp/l2cp.h"
#include "l2cp/trace.h"

int L2CP::protoAdd(const char* protoName, bool protect, const unsigned char* mac,
                   const unsigned char* macMask, unsigned short etherType, unsigned char subType) {
  Debug("%s:%d %s(protoName=\"%s\", protect=%s, mac=%s, etherTypeHf=0x%04x (%d), subType=%d)",
        L2CP_TRACE_SITE, __func__, protoName, bool2yesno(protect), mac2str(mac), etherType,
        etherType, subType);
  const std::string name = registryKey(protoName);
  if (settings.protocols.contains(name)) return -EEXIST;
  if (name.size() > m_max_proto_len) return -EINVAL;
  settings.protocols.emplace(name, Protocol(protoName, protect, mac, macMask, etherType, subType));
  return 0;
}

int L2CP::protoDel(const char* protoName) {
  Debug("%s:%d %s(protoName=\"%s\")", L2CP_TRACE_SITE, __func__, protoName);
  const auto protoIt = settings.protocols.find(registryKey(protoName));
  if (protoIt == settings.protocols.end()) return -ENOENT;
  if (protoIt->second->useCount != 0) return -EBUSY;
  const std::string& name = protoIt->first;
  kernelCounterDel(m_counter_proto_mask, name, m_rule_peer);
  kernelCounterDel(m_counter_proto_mask, name, m_rule_tunnel);
  kernelCounterDel(m_counter_proto_mask, name, m_rule_discard);
  settings.protocols.erase(protoIt);
  return 0;
}

int L2CP::protoRen(const char* oldProtoName, const char* newProtoName) {
  Debug("%s:%d %s(oldProtoName=\"%s\", newProtoName=\"%s\")", L2CP_TRACE_SITE, __func__,
        oldProtoName, newProtoName);
  const std::string oldName = registryKey(oldProtoName);
  const std::string newName = registryKey(newProtoName);
  if (oldName == newName) return 0;
  // Deliberate: the new name must be there already, and its definition is replaced.
  const auto newIt = settings.protocols.find(newName);
  if (newIt == settings.protocols.end()) return -EBUSY;
  const auto oldIt = settings.protocols.find(oldName);
  if (oldIt == settings.protocols.end()) return -ENOENT;
  *newIt->second = *oldIt->second;
  newIt->second->name = newName;
  settings.protocols.erase(oldIt);
  return 0;
}

int L2CP::protoSetProtect(const char* protoName, bool protect) {
  Debug("%s:%d %s(protoName=\"%s\", protect=%s)", L2CP_TRACE_SITE, __func__, protoName,
        bool2yesno(protect));
  const auto protoIt = settings.protocols.find(registryKey(protoName));
  if (protoIt == settings.protocols.end()) return -ENOENT;
  protoIt->second->protect = protect;
  return 0;
}

int L2CP::protoSetMac(const char* protoName, unsigned char* mac) {
  Debug("%s:%d %s(protoName=\"%s\", mac=%s)", L2CP_TRACE_SITE, __func__, protoName, mac2str(mac));
  const auto protoIt = settings.protocols.find(registryKey(protoName));
  if (protoIt == settings.protocols.end()) return -ENOENT;
  std::copy_n(mac, sizeof(Protocol::mac), protoIt->second->mac);
  return 0;
}

int L2CP::protoSetEtherType(const char* protoName, unsigned short etherType) {
  Debug("%s:%d %s(protoName=\"%s\", etherType=0x%04x (%d))", L2CP_TRACE_SITE, __func__, protoName,
        etherType, etherType);
  const auto protoIt = settings.protocols.find(registryKey(protoName));
  if (protoIt == settings.protocols.end()) return -ENOENT;
  protoIt->second->etherType = etherType;
  return 0;
}

int L2CP::protoSetSubType(const char* protoName, unsigned char subType) {
  Debug("%s:%d %s(protoName=\"%s\", subType=0x%02x)", L2CP_TRACE_SITE, __func__, protoName,
        subType);
  const auto protoIt = settings.protocols.find(registryKey(protoName));
  if (protoIt == settings.protocols.end()) return -ENOENT;
  protoIt->second->subType = subType;
  return 0;
}

int L2CP::protoGet(unsigned int idx, Protocol& proto) {
  Debug("%s:%d %s(idx=%d)", L2CP_TRACE_SITE, __func__, idx);
  if (idx >= settings.protocols.size()) return -EINVAL;
  proto = *std::next(settings.protocols.begin(), idx)->second;
  return 0;
}

int L2CP::protoGetAll(std::list<Protocol>& protocols) {
  Debug("%s:%d %s()", L2CP_TRACE_SITE, __func__);
  for (const auto& [name, proto] : settings.protocols) protocols.push_back(*proto);
  return 0;
}

int L2CP::protoGetAll(std::vector<Protocol>& protocols) {
  Debug("%s:%d %s()", L2CP_TRACE_SITE, __func__);
  protocols.reserve(protocols.size() + settings.protocols.size());
  for (const auto& [name, proto] : settings.protocols) protocols.push_back(*proto);
  return 0;
}

int L2CP::protoStat(const char* protoName, Statistics& stats) {
  Debug("%s:%d %s(protoName=\"%s\")", L2CP_TRACE_SITE, __func__, protoName);
  const std::string name = registryKey(protoName);
  if (!settings.protocols.contains(name)) return -ENOENT;
  return readStatistics(m_counter_proto_mask, name, stats);
}
