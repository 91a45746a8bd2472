#include <algorithm>

#include "l2cp/l2cp.h"

const unsigned int L2CP::m_noIndexAvailable = 300;
const unsigned long L2CP::m_max_proto_len = 30;
const char L2CP::m_selector_true[5] = "true";
const char L2CP::m_action_list_drop[5] = "drop";
const char L2CP::m_action_list_hide[10] = "l2cp:hide";
const char L2CP::m_action_list_tunnel[12] = "l2cp:tunnel";
const char L2CP::m_rule_discard[8] = "discard";
const char L2CP::m_rule_tunnel[7] = "tunnel";
const char L2CP::m_rule_peer[5] = "peer";
const char L2CP::m_counter_profile_mask[14] = "l2cpProfi%s%s";
const char L2CP::m_counter_proto_mask[14] = "l2cpProto%s%s";
const char L2CP::m_counter_port_mask[13] = "l2cpPort%d%s";
const char L2CP::m_counter_vlan_mask[13] = "l2cpVlan%d%s";
const char L2CP::m_acl_mask[16] = "l2cp%s:%02d%03x";
const unsigned char L2CP::m_subTypeMask = 0xff;
const unsigned char L2CP::m_noSubType = 0xff;
const unsigned short L2CP::m_noEtherType = 0xffff;
const unsigned char L2CP::m_allMac[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
const unsigned char L2CP::m_anyMac[6] = {};

L2CP::Protocol::Protocol(const char* protoName, bool isProtected, const unsigned char* address,
                         const unsigned char* addressMask, unsigned short type,
                         unsigned char firstByte)
    : name(protoName == nullptr ? "" : protoName),
      protect(isProtected),
      etherType(type),
      subType(firstByte) {
  std::copy_n(address, sizeof(mac), mac);
  std::copy_n(addressMask, sizeof(macMask), macMask);
}

L2CP::Profile::Profile(const char* profileName, bool isProtected, bool isDynamic)
    : name(profileName == nullptr ? "" : profileName), protect(isProtected), dynamic(isDynamic) {}

L2CP::Profile::Profile(const Profile& other)
    : name(other.name),
      useCount(other.useCount),
      protocols(other.protocols),
      protect(other.protect),
      dynamic(other.dynamic) {}

L2CP::Profile& L2CP::Profile::operator=(const Profile& other) {
  name = other.name;
  useCount = other.useCount;
  protocols = other.protocols;
  protect = other.protect;
  dynamic = other.dynamic;
  return *this;
}

void L2CP::Profile::setProtect(bool on) {
  if (protect && !on) dynamic = false;
  protect = on;
}

void L2CP::Profile::setDynamic(bool on) {
  if (!dynamic && on) protect = true;
  dynamic = on;
}
