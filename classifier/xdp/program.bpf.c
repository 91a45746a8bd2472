/// Decides about each frame that arrives on a port, as classifier/matcher.h does in software, and
/// carries the decision out.

#include <linux/bpf.h>
#include <linux/pkt_cls.h>
// The kernel's types come first.
#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>
#include <stdbool.h>

#include "classifier/xdp/layout.h"

struct {
  __uint(type, BPF_MAP_TYPE_ARRAY);
  __uint(map_flags, BPF_F_MMAPABLE);
  __uint(max_entries, L2CP_INTERFACES);
  __type(key, __u32);
  __type(value, struct l2cp_interface);
} interfaces SEC(".maps");

struct {
  __uint(type, BPF_MAP_TYPE_ARRAY);
  __uint(map_flags, BPF_F_MMAPABLE);
  __uint(max_entries, L2CP_PORTS);
  __type(key, __u32);
  __type(value, struct l2cp_port);
} ports SEC(".maps");

/// By processor, one place for each that the machine may have: set by the loader.
struct {
  __uint(type, BPF_MAP_TYPE_ARRAY);
  __uint(map_flags, BPF_F_MMAPABLE);
  __uint(max_entries, 1);
  __type(key, __u32);
  __type(value, struct l2cp_counters);
} counters SEC(".maps");

/// The interfaces that tunnelled frames leave through.
struct members {
  __uint(type, BPF_MAP_TYPE_DEVMAP);
  __uint(max_entries, 1);
  __type(key, __u32);
  __type(value, __u32);
};

struct {
  __uint(type, BPF_MAP_TYPE_ARRAY_OF_MAPS);
  __uint(max_entries, L2CP_MEMBERSHIPS);
  __type(key, __u32);
  __array(values, struct members);
} memberships SEC(".maps");

static const __u64 destinationBits = (1ULL << L2CP_TYPE_SHIFT) - 1;

struct key {
  __u64 first;
  __u64 second;
};

enum {
  typeOffset = 12,
  typeSize = 2,
  tagSize = 4,
  vlanIdMask = 0x0fff,
  smallestEtherType = 0x0600,
  snapSize = 8,
  snapProtocolOffset = 6,
  // A table is replaced at most as often as requests come, and reading one takes a fraction of the
  // time: even the second attempt fails only when the processor was taken away in between.
  attempts = 8,
};

// Keeps the compiler from moving reads of the maps over a look at the generation. Processors that
// may move them need to be told, too.
#if defined(L2CP_STRONG_ORDER)
#define ORDER_READS() asm volatile("" ::: "memory")
#else
#define ORDER_READS()                          \
  do {                                         \
    __u64 word = 0;                            \
    (void)__sync_fetch_and_add(&word, 1);      \
    asm volatile("" : : "r"(word) : "memory"); \
  } while (0)
#endif

static __always_inline __u32 generationOf(const struct l2cp_port* port) {
  const __u32 generation = *(const volatile __u32*)&port->generation;
  ORDER_READS();
  return generation;
}

static __always_inline bool isStill(const struct l2cp_port* port, __u32 generation) {
  ORDER_READS();
  return *(const volatile __u32*)&port->generation == generation;
}

/// The place of an interface's port in the map of ports, or one behind the last.
static __always_inline __u32 placeOf(__u32 interface) {
  const __u32 index = interface % L2CP_INTERFACES;
  const volatile __u64* word = bpf_map_lookup_elem(&interfaces, &index);
  if (!word) return L2CP_PORTS;
  const union {
    __u64 word;
    struct l2cp_interface interface;
  } known = {.word = *word};
  return known.interface.number == interface ? known.interface.place : L2CP_PORTS;
}

static __always_inline __u16 wordAt(const void* at) { return bpf_ntohs(*(const __u16*)at); }

static __always_inline bool isTag(__u16 type) { return type == 0x8100 || type == 0x88a8; }

static __always_inline bool isSnap(const __u8* llc) {
  return llc[0] == 0xaa && llc[1] == 0xaa && llc[2] == 0x03;
}

/// As `fieldsOf` in classifier/frame.cpp. The frame has a type field or a tag's.
static __always_inline struct key keyOf(const void* frame, const void* end) {
  struct key key = {.first = l2cpDestination(*(const __u64*)frame), .second = L2CP_HAS_DESTINATION};
  const void* at = frame + typeOffset;
  __u16 type = wordAt(at);
#pragma unroll
  for (int tags = 0; tags < L2CP_TAGS; ++tags) {
    if (!isTag(type)) break;
    if (tags == 0 && at + tagSize <= end) {
      key.second |= (wordAt(at + typeSize) & vlanIdMask) | L2CP_HAS_VLAN;
    }
    at += tagSize;
    if (at + typeSize > end) return key;
    type = wordAt(at);
  }

  const __u8* payload = at + typeSize;
  if (type >= smallestEtherType) {
    key.first |= (__u64)type << L2CP_TYPE_SHIFT;
    key.second |= L2CP_HAS_TYPE;
  } else if ((const void*)payload + snapSize <= end && isSnap(payload)) {
    key.first |= (__u64)wordAt(payload + snapProtocolOffset) << L2CP_TYPE_SHIFT;
    key.second |= L2CP_HAS_TYPE;
    payload += snapSize;
  }
  if ((const void*)payload + 1 <= end) {
    key.second |= (__u64)*payload << L2CP_BYTE_SHIFT | L2CP_HAS_BYTE;
  }
  return key;
}

static __always_inline bool fits(const struct l2cp_match* match, const struct key* key) {
  return (key->first & match->mask[0]) == match->value[0] &&
         (key->second & match->mask[1]) == match->value[1];
}

/// Runs the changes if the table is still the one that they were read from.
static __always_inline bool settle(const struct l2cp_port* port, __u32 generation,
                                   const struct l2cp_outcome* outcome, int count) {
  struct l2cp_change changes[L2CP_CHANGES];
#pragma unroll
  for (int i = 0; i < count; ++i) changes[i] = outcome->change[i];
  if (!isStill(port, generation)) return false;

  const __u32 processor = bpf_get_smp_processor_id();
  struct l2cp_counters* mine = bpf_map_lookup_elem(&counters, &processor);
  if (!mine) return true;
#pragma unroll
  for (int i = 0; i < count; ++i) {
    mine->value[changes[i].counter % L2CP_COUNTERS] += (__u64)(__s64)changes[i].increment;
  }
  return true;
}

// The verifier takes global functions one by one, whatever they are called with. Inline, it would
// follow what comes after each entry for each of the entries before, for each number of tags.

/// The position of the first entry that fits.
__noinline __u32 walk(const struct l2cp_table* table, __u64 first, __u64 second) {
  if (!table) return L2CP_ENTRIES;
  const struct key key = {.first = first, .second = second};
#pragma clang loop unroll(disable)
  for (__u32 block = 0; block < L2CP_ENTRIES / L2CP_BLOCK; ++block) {
    if (!fits(&table->block[block], &key)) continue;
    const struct l2cp_match* const match = &table->match[block * L2CP_BLOCK];
#pragma unroll
    for (__u32 i = 0; i < L2CP_BLOCK; ++i) {
      if (fits(&match[i], &key)) return block * L2CP_BLOCK + i;
    }
  }
  return L2CP_ENTRIES;
}

/// What becomes of the frame, or -1 if the table was replaced meanwhile.
__noinline int decide(const struct l2cp_port* port, __u64 first, __u64 second) {
  if (!port) return L2CP_UNTOUCHED;
  const __u32 generation = generationOf(port);
  const __u32 position = walk(&port->tables[generation % 2], first, second);
  if (position > L2CP_ENTRIES) return -1;

  const struct l2cp_outcome* outcome = &port->tables[generation % 2].outcome[position];
  const int fate = (int)outcome->fate;
  const __u32 changes = outcome->changes;
  if (changes == 0) return isStill(port, generation) ? fate : -1;
  const bool settled = changes <= L2CP_FEW_CHANGES
                           ? settle(port, generation, outcome, L2CP_FEW_CHANGES)
                           : settle(port, generation, outcome, L2CP_CHANGES);
  return settled ? fate : -1;
}

static __always_inline int tunnel(const struct l2cp_port* port, const struct key* key) {
  __u32 vlan = key->second & vlanIdMask;
  if (vlan == 0) vlan = port->nativeVlan % L2CP_VLANS;
  const __u32 place = *(const volatile __u16*)&port->memberships[vlan];
  if (place == 0) return XDP_DROP;
  void* members = bpf_map_lookup_elem(&memberships, &place);
  if (!members) return XDP_DROP;
  return (int)bpf_redirect_map(members, 0, BPF_F_BROADCAST | BPF_F_EXCLUDE_INGRESS);
}

/// Marks the frame for `l2cp_keep`. Some drivers have no room for that.
static __always_inline int peer(struct xdp_md* context, struct l2cp_port* port) {
  if (bpf_xdp_adjust_meta(context, -(int)sizeof(__u32)) == 0) {
    __u32* mark = (__u32*)(long)context->data_meta;
    if ((void*)(mark + 1) <= (void*)(long)context->data) *mark = L2CP_PEER_MARK;
  } else if (port->unmarked == 0) {
    port->unmarked = 1;
  }
  return XDP_PASS;
}

SEC("xdp")
int l2cp_classify(struct xdp_md* context) {
  const void* const frame = (const void*)(long)context->data;
  const void* const end = (const void*)(long)context->data_end;
  if (frame + typeOffset + typeSize > end) return XDP_PASS;
  const __u32 place = placeOf(context->ingress_ifindex);
  struct l2cp_port* const port = bpf_map_lookup_elem(&ports, &place);
  if (!port) return XDP_PASS;

  // Most frames are nothing that any entry could be about, and their addresses tell.
  const __u64 destination = l2cpDestination(*(const __u64*)frame);
  const __u32 generation = generationOf(port);
  const bool isGroup = (destination & l2cpGroupBit()) != 0;
  const struct l2cp_match* const any = &port->tables[generation % 2].any[isGroup];
  if (((destination ^ any->value[0]) & any->mask[0] & destinationBits) != 0 &&
      isStill(port, generation)) {
    return XDP_PASS;
  }

  const struct key key = keyOf(frame, end);
  if (!fits(any, &key) && isStill(port, generation)) return XDP_PASS;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    switch (decide(port, key.first, key.second)) {
      case L2CP_UNTOUCHED:
        return XDP_PASS;
      case L2CP_DISCARD:
        return XDP_DROP;
      case L2CP_PEER:
        return peer(context, port);
      case L2CP_TUNNEL:
        return tunnel(port, &key);
    }
  }
  return XDP_ABORTED;
}

static __always_inline bool isMarked(const struct __sk_buff* frame) {
  const __u32* const mark = (const __u32*)(long)frame->data_meta;
  return (const void*)(mark + 1) <= (const void*)(long)frame->data && *mark == L2CP_PEER_MARK;
}

/// Stands behind packet sockets and before the bridge, and ends frames for the machine itself that
/// the bridge would forward. It leaves alone those that a bridge keeps by itself: their receivers
/// may be further up.
SEC("tc")
int l2cp_keep(struct __sk_buff* context) {
  if (!isMarked(context)) return TC_ACT_UNSPEC;
  const __u8* const frame = (const __u8*)(long)context->data;
  const void* const end = (const void*)(long)context->data_end;
  if ((const void*)frame + typeOffset > end) return TC_ACT_UNSPEC;
  const bool isLinkLocal = frame[0] == 0x01 && frame[1] == 0x80 && frame[2] == 0xc2 &&
                           frame[3] == 0 && frame[4] == 0 && frame[5] < 16;
  if (!isLinkLocal) return TC_ACT_SHOT;
  const __u32 place = placeOf(context->ingress_ifindex);
  const struct l2cp_port* const port = bpf_map_lookup_elem(&ports, &place);
  return port && (port->forwardedGroups >> frame[5] & 1) != 0 ? TC_ACT_SHOT : TC_ACT_UNSPEC;
}

const char licence[] SEC("license") = "BSD-3-Clause";
