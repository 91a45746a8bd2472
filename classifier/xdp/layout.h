#pragma once

/// What the XDP program (program.bpf.c) and its loader agree on: the layout of the maps. The loader
/// writes the maps in place, so every field is read by one processor while another writes.

#include <linux/types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  L2CP_PORTS = 512,
  /// Packed entries of a port.
  L2CP_ENTRIES = 100,
  /// Entries in a row that are looked at together: a divisor of their number.
  L2CP_BLOCK = 10,
  /// Counter changes of an entry.
  L2CP_CHANGES = 16,
  /// As many as most entries have: they take the short way.
  L2CP_FEW_CHANGES = 4,
  /// Counters of each processor. A power of two.
  L2CP_COUNTERS = 1 << 17,
  /// Tags that are stepped over, as in classifier/frame.h.
  L2CP_TAGS = 8,
  /// VLAN ids. No frame belongs to VLAN 0.
  L2CP_VLANS = 4096,
  /// Places in the map of memberships. The first one is nobody's.
  L2CP_MEMBERSHIPS = 1 << 16,
  /// Places in the map of interfaces; an interface has the place of its number modulo this. A power
  /// of two.
  L2CP_INTERFACES = 1 << 16,
  /// Written before a frame that is handed to the machine itself, for who stands behind.
  L2CP_PEER_MARK = 0x4c324350,
};

enum l2cp_fate {
  L2CP_UNTOUCHED = 0,
  L2CP_DISCARD = 1,
  L2CP_PEER = 2,
  L2CP_TUNNEL = 3,
};

/// What conditions see of a frame, in two words. The first: the destination in the lower 48 bits,
/// as `l2cpDestination` has it, and the EtherType above. The second: the VLAN id in the lowest 16
/// bits, the first payload byte above, and bits that say what of this the frame has. What it has
/// not is zero.
enum {
  L2CP_TYPE_SHIFT = 48,
  L2CP_BYTE_SHIFT = 16,
  L2CP_HAS_VLAN = 1 << 24,
  L2CP_HAS_TYPE = 1 << 25,
  L2CP_HAS_BYTE = 1 << 26,
  /// Every frame has one: the bit is there to be missed by patterns that no frame is to fit.
  L2CP_HAS_DESTINATION = 1 << 27,
};

/// The destination address of the eight bytes at the beginning of a frame.
static inline __u64 l2cpDestination(__u64 firstBytes) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return firstBytes & 0xffffffffffffULL;
#else
  return firstBytes >> 16;
#endif
}

/// The bit of a destination that tells groups from individuals.
// NOLINTNEXTLINE(modernize-redundant-void-arg): the header is one of C, too
static inline __u64 l2cpGroupBit(void) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return 1;
#else
  return 1ULL << 40;
#endif
}

/// A frame fits when (key & mask) == value in both words.
struct l2cp_match {
  __u64 mask[2];
  __u64 value[2];
};

/// Aligned so that it is read in one piece.
struct l2cp_change {
  __u32 counter;
  __s32 increment;
} __attribute__((aligned(8)));

/// Changes that are not there are zero. Counter 0 is nobody's, so that they do no harm.
struct l2cp_outcome {
  __u32 fate;
  __u32 changes;
  struct l2cp_change change[L2CP_CHANGES];
};

/// The first entry that a frame fits decides. Behind the last one stands one more that every frame
/// fits and that does nothing, so that looking for an entry needs no count.
struct l2cp_table {
  /// What all entries have in common that a frame to an individual address (0) or to a group (1)
  /// can fit. A frame that does not fit this fits none of them.
  struct l2cp_match any[2];
  /// What the entries of each block have in common. A frame that does not fit this fits none of
  /// them.
  struct l2cp_match block[L2CP_ENTRIES / L2CP_BLOCK];
  struct l2cp_match match[L2CP_ENTRIES + 1];
  struct l2cp_outcome outcome[L2CP_ENTRIES + 1];
};

/// The table in force is tables[generation % 2]. The other one may be written at any time. Who has
/// read a table and finds the generation as it was before has read one table and all of it.
struct l2cp_port {
  __u32 generation;
  /// The VLAN of frames without a tag, and of those with VLAN id 0.
  __u32 nativeVlan;
  /// The groups 01-80-C2-00-00-0x, bit x for each, that a bridge above would forward.
  __u32 forwardedGroups;
  /// Set by the program: a frame for the machine itself had to pass without its mark.
  __u32 unmarked;
  /// Where tunnelled frames of each VLAN go: the place of its interfaces in the map of memberships;
  /// 0 where none do, and for VLANs that the port is not in.
  __u16 memberships[L2CP_VLANS];
  struct l2cp_table tables[2];
};

/// One word, so that both halves change at once.
struct l2cp_interface {
  /// 0 where there is none.
  __u32 number;
  /// The port's place in the map of ports.
  __u32 place;
};

struct l2cp_counters {
  __u64 value[L2CP_COUNTERS];
};

#ifdef __cplusplus
}
#endif
