#pragma once

/// Requests and records of the packet classifier, shared by the module that sends them and by
/// whatever answers them.
///
/// A request is an `ioctl` on the descriptor of `br_open` whose argument points at a record. It
/// returns 0, or -1 with `errno`: EEXIST (creating what exists), ENOENT (using or deleting what
/// does not), EINVAL (a malformed record), ENOSPC (a table is full), EFAULT (no record). Names are
/// NUL-terminated within their field. Numbers are in host order. Records are zero-filled before
/// use; a field that a request does not use is ignored.

#include <linux/types.h>
#include <sys/ioctl.h>

#ifdef __cplusplus
#include <cstddef>
#else
#include <assert.h>
#include <stddef.h>
#endif

#define ACL_NAME_SIZE 40
#define ACL_PORT_SIZE 20

/// The size encoded in a request code is always that of a 32-bit word, whatever the record.
#define ACL_ADD_SELECTOR _IOW('z', 3, __u32)
#define ACL_DEL_SELECTOR _IOW('z', 4, __u32)
#define ACL_ADD_CONDITION _IOW('z', 5, __u32)
#define ACL_ADD_ACTION_LIST _IOW('z', 8, __u32)
#define ACL_DEL_ACTION_LIST _IOW('z', 9, __u32)
#define ACL_ADD_ACTION _IOW('z', 10, __u32)
#define ACL_ADD_PORT_ENTRY _IOW('z', 13, __u32)
#define ACL_DEL_PORT_ENTRY _IOW('z', 14, __u32)
#define ACL_ADD_COUNTER _IOW('z', 16, __u32)
#define ACL_DEL_COUNTER _IOW('z', 17, __u32)
#define ACL_GET_COUNTER _IOWR('z', 19, __u32)
/// Succeeds when the entry exists, and writes its selector and action list into the record.
#define ACL_GET_PORT_ENTRY _IOW('z', 21, __u32)

enum acl_condition_type {
  ACL_CONDITION_DESTINATION_MAC = 4,
  ACL_CONDITION_ETHER_TYPE = 5,
  ACL_CONDITION_PAYLOAD = 6,
  ACL_CONDITION_VLAN = 11,
};

enum acl_action_type {
  ACL_ACTION_DROP = 0,
  ACL_ACTION_HIDE = 10,
  ACL_ACTION_NO_L2CP = 24,
  ACL_ACTION_COUNTER_CHANGE = 28,
};

#pragma pack(push, 1)

/// The outer tag's VLAN id, both ends included. 4095..4095 holds for every frame of the port.
struct acl_condition_vlan {
  __u16 lowest;
  __u16 highest;
};

struct acl_condition_destination_mac {
  __u8 mac[6];
  __u8 mask[6];
};

struct acl_condition_ether_type {
  __u16 etherType;
};

/// `length` bytes from `offset` behind the EtherType. `mask` and `value` are the addresses of that
/// many bytes in the caller's memory, read during the request.
struct acl_condition_payload {
  __u32 offset;
  __u32 length;
  __u64 mask;
  __u64 value;
};

/// Selector requests. A selector without conditions holds for every frame.
struct acl_ioctl_selector {
  char name[ACL_NAME_SIZE];
  __u32 conditionCount;
  __u32 conditionType;
  __u32 reserved;
  union {
    __u8 bytes[64];
    struct acl_condition_vlan vlan;
    struct acl_condition_destination_mac destinationMac;
    struct acl_condition_ether_type etherType;
    struct acl_condition_payload payload;
  } conditionData;
};

/// Action list requests; creating and deleting use the name alone.
struct acl_ioctl_action {
  char actionList[ACL_NAME_SIZE];
  __u32 index;
  __u32 type;
  char counter[ACL_NAME_SIZE];
  __s32 increment;
};

/// Port entry requests. `port` is the port number in decimal.
struct acl_ioctl_port_entry {
  char port[ACL_PORT_SIZE];
  __u32 kind;
  __u32 index;
  __u8 reserved[12];
  char selector[ACL_NAME_SIZE];
  char actionList[ACL_NAME_SIZE];
};

/// Counter requests; creating and deleting use the name alone.
struct acl_ioctl_counter {
  char name[ACL_NAME_SIZE];
  __u64 value;
  __u8 reserved[8];
};

#pragma pack(pop)

static_assert(ACL_ADD_SELECTOR == 0x40047a03, "request code");
static_assert(ACL_DEL_SELECTOR == 0x40047a04, "request code");
static_assert(ACL_ADD_CONDITION == 0x40047a05, "request code");
static_assert(ACL_ADD_ACTION_LIST == 0x40047a08, "request code");
static_assert(ACL_DEL_ACTION_LIST == 0x40047a09, "request code");
static_assert(ACL_ADD_ACTION == 0x40047a0a, "request code");
static_assert(ACL_ADD_PORT_ENTRY == 0x40047a0d, "request code");
static_assert(ACL_DEL_PORT_ENTRY == 0x40047a0e, "request code");
static_assert(ACL_ADD_COUNTER == 0x40047a10, "request code");
static_assert(ACL_DEL_COUNTER == 0x40047a11, "request code");
static_assert(ACL_GET_COUNTER == 0xc0047a13, "request code");
static_assert(ACL_GET_PORT_ENTRY == 0x40047a15, "request code");

static_assert(offsetof(struct acl_condition_vlan, lowest) == 0, "layout");
static_assert(offsetof(struct acl_condition_vlan, highest) == 2, "layout");
static_assert(offsetof(struct acl_condition_destination_mac, mac) == 0, "layout");
static_assert(offsetof(struct acl_condition_destination_mac, mask) == 6, "layout");
static_assert(offsetof(struct acl_condition_ether_type, etherType) == 0, "layout");
static_assert(offsetof(struct acl_condition_payload, offset) == 0, "layout");
static_assert(offsetof(struct acl_condition_payload, length) == 4, "layout");
static_assert(offsetof(struct acl_condition_payload, mask) == 8, "layout");
static_assert(offsetof(struct acl_condition_payload, value) == 16, "layout");

static_assert(sizeof(struct acl_ioctl_selector) == 116, "layout");
static_assert(offsetof(struct acl_ioctl_selector, name) == 0, "layout");
static_assert(offsetof(struct acl_ioctl_selector, conditionCount) == 40, "layout");
static_assert(offsetof(struct acl_ioctl_selector, conditionType) == 44, "layout");
static_assert(offsetof(struct acl_ioctl_selector, reserved) == 48, "layout");
static_assert(offsetof(struct acl_ioctl_selector, conditionData) == 52, "layout");

static_assert(sizeof(struct acl_ioctl_action) == 92, "layout");
static_assert(offsetof(struct acl_ioctl_action, actionList) == 0, "layout");
static_assert(offsetof(struct acl_ioctl_action, index) == 40, "layout");
static_assert(offsetof(struct acl_ioctl_action, type) == 44, "layout");
static_assert(offsetof(struct acl_ioctl_action, counter) == 48, "layout");
static_assert(offsetof(struct acl_ioctl_action, increment) == 88, "layout");

static_assert(sizeof(struct acl_ioctl_port_entry) == 120, "layout");
static_assert(offsetof(struct acl_ioctl_port_entry, port) == 0, "layout");
static_assert(offsetof(struct acl_ioctl_port_entry, kind) == 20, "layout");
static_assert(offsetof(struct acl_ioctl_port_entry, index) == 24, "layout");
static_assert(offsetof(struct acl_ioctl_port_entry, reserved) == 28, "layout");
static_assert(offsetof(struct acl_ioctl_port_entry, selector) == 40, "layout");
static_assert(offsetof(struct acl_ioctl_port_entry, actionList) == 80, "layout");

static_assert(sizeof(struct acl_ioctl_counter) == 56, "layout");
static_assert(offsetof(struct acl_ioctl_counter, name) == 0, "layout");
static_assert(offsetof(struct acl_ioctl_counter, value) == 40, "layout");
