#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>

#include "l2cp/full_name.h"
#include "l2cp/l2cp.h"
#include "l2cp/positions.h"
#include "l2cp/trace.h"
#include "platform/acl_ioctl.h"

namespace {

constexpr std::size_t counterNameSize = 100;

// The full name of a counter.
struct CounterName {
  char text[counterNameSize];
  std::string_view view;

  CounterName(const char* mask, const std::string& name, const char* suffix)
      : view(FullName(text).masked(mask, name.c_str(), suffix).view()) {}
  CounterName(const char* mask, int number, const char* suffix)
      : view(FullName(text).masked(mask, number, suffix).view()) {}
  CounterName(const CounterName&) = delete;
  CounterName& operator=(const CounterName&) = delete;
};

bool request(int aclFd, unsigned long code, void* record) {
  return ioctl(aclFd, code, record) == 0;
}

}  // namespace

// A name that cannot be had goes out as a null one, or as an empty one within a record, and the
// kernel refuses it.

bool L2CP::kernelCounterAdd(const char* mask, const std::string& name, const char* suffix) {
  const CounterName full(mask, name, suffix);
  acl_ioctl_counter record{};
  return request(aclFd, ACL_ADD_COUNTER, getName(full.view, record.name));
}

bool L2CP::kernelCounterAdd(const char* mask, int number, const char* suffix) {
  const CounterName full(mask, number, suffix);
  acl_ioctl_counter record{};
  return request(aclFd, ACL_ADD_COUNTER, getName(full.view, record.name));
}

bool L2CP::kernelCounterAdd(RepeatedName& name) {
  acl_ioctl_counter record{};
  return request(aclFd, ACL_ADD_COUNTER, getName(name, record.name));
}

bool L2CP::kernelCounterDel(const char* mask, const std::string& name, const char* suffix) {
  const CounterName full(mask, name, suffix);
  acl_ioctl_counter record{};
  return request(aclFd, ACL_DEL_COUNTER, getName(full.view, record.name));
}

bool L2CP::kernelCounterDel(const char* mask, int number, const char* suffix) {
  const CounterName full(mask, number, suffix);
  acl_ioctl_counter record{};
  return request(aclFd, ACL_DEL_COUNTER, getName(full.view, record.name));
}

bool L2CP::kernelCounterGet(const char* mask, const std::string& name, const char* suffix,
                            unsigned int& value) {
  value = 0;
  CounterName full(mask, name, suffix);
  acl_ioctl_counter record{};
  // Deliberate: the buffers stand in the other order than everywhere else. The empty name of the
  // record is registered, the record goes out nameless and the read fails.
  GetName(record.name, full.text, nullptr);
  if (!request(aclFd, ACL_GET_COUNTER, &record)) return false;
  value = static_cast<unsigned int>(record.value);
  return true;
}

bool L2CP::kernelCounterGet(const char* mask, int number, const char* suffix, unsigned int& value) {
  value = 0;
  const CounterName full(mask, number, suffix);
  acl_ioctl_counter record{};
  getName(full.view, record.name);
  if (!request(aclFd, ACL_GET_COUNTER, &record)) return false;
  value = static_cast<unsigned int>(record.value);
  return true;
}

bool L2CP::kernelHideRuleAdd(unsigned int port, int kind) {
  acl_ioctl_port_entry entry{};
  setPort(entry, port);
  entry.kind = static_cast<unsigned int>(kind);
  entry.index = hidePosition;
  std::snprintf(entry.selector, sizeof(entry.selector), "%s", m_selector_true);
  GetName(m_action_list_hide, entry.actionList, nullptr);
  return request(aclFd, ACL_ADD_PORT_ENTRY, &entry);
}

bool L2CP::kernelHideRuleDel(unsigned int port, int kind) {
  acl_ioctl_port_entry entry{};
  setPort(entry, port);
  entry.kind = static_cast<unsigned int>(kind);
  entry.index = hidePosition;
  return request(aclFd, ACL_DEL_PORT_ENTRY, &entry);
}

unsigned int L2CP::findFreeIndex(unsigned int port) const {
  // One record for the whole search: a later query carries what the kernel wrote into it.
  acl_ioctl_port_entry entry{};
  setPort(entry, port);
  entry.kind = protocolKind;
  entry.index = firstPosition;
  while (entry.index <= lastPosition && request(aclFd, ACL_GET_PORT_ENTRY, &entry)) ++entry.index;
  return entry.index;
}

template <class NameOrNumber>
int L2CP::readStatistics(const char* mask, const NameOrNumber& of, Statistics& stats) {
  const bool read = kernelCounterGet(mask, of, m_rule_peer, stats.peer) &&
                    kernelCounterGet(mask, of, m_rule_tunnel, stats.tunnel) &&
                    kernelCounterGet(mask, of, m_rule_discard, stats.discard);
  return read ? 0 : -EAGAIN;
}

template int L2CP::readStatistics(const char* mask, const int& of, Statistics& stats);
template int L2CP::readStatistics(const char* mask, const std::string& of, Statistics& stats);

int L2CP::portStat(unsigned int port, Statistics& stats) {
  Debug("%s:%d %s(port=%d)", L2CP_TRACE_SITE, __func__, port);
  return readStatistics(m_counter_port_mask, static_cast<int>(port), stats);
}

int L2CP::vlanStat(unsigned short vid, Statistics& stats) {
  Debug("%s:%d %s(vid=%d)", L2CP_TRACE_SITE, __func__, vid);
  return readStatistics(m_counter_vlan_mask, static_cast<int>(vid), stats);
}
