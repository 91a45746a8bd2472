#pragma once

#include <algorithm>
#include <cstdint>

#include "l2cp/l2cp.h"
#include "platform/acl_ioctl.h"

// Write one condition into a selector record. Operand bytes that the condition does not fill are
// zero. The condition's number within the selector is the caller's.

inline void clearCondition(acl_ioctl_selector& selector, acl_condition_type type) {
  selector.conditionType = type;
  std::fill(std::begin(selector.conditionData.bytes), std::end(selector.conditionData.bytes),
            static_cast<unsigned char>(0));
}

inline void setVlanCondition(acl_ioctl_selector& selector, unsigned short vid) {
  clearCondition(selector, ACL_CONDITION_VLAN);
  selector.conditionData.vlan = {.lowest = vid, .highest = vid};
}

inline void setMacCondition(acl_ioctl_selector& selector, const unsigned char* mac,
                            const unsigned char* mask) {
  clearCondition(selector, ACL_CONDITION_DESTINATION_MAC);
  std::copy_n(mac, sizeof(acl_condition_destination_mac::mac),
              selector.conditionData.destinationMac.mac);
  std::copy_n(mask, sizeof(acl_condition_destination_mac::mask),
              selector.conditionData.destinationMac.mask);
}

inline void setEtherTypeCondition(acl_ioctl_selector& selector, unsigned short etherType) {
  clearCondition(selector, ACL_CONDITION_ETHER_TYPE);
  selector.conditionData.etherType = {.etherType = etherType};
}

/// `subType` must live until the request has been answered: the kernel reads it in place.
inline void setSubTypeCondition(acl_ioctl_selector& selector, const unsigned char& subType) {
  clearCondition(selector, ACL_CONDITION_PAYLOAD);
  // NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast): the record carries addresses
  selector.conditionData.payload = {
      .offset = 0,
      .length = 1,
      .mask = reinterpret_cast<std::uintptr_t>(&L2CP::m_subTypeMask),
      .value = reinterpret_cast<std::uintptr_t>(&subType),
  };
  // NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
}
