#pragma once

/// What conditions see of a frame.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "classifier/rule.h"

namespace classifier {

/// Tags that are stepped over to find the type field. What follows the last of them is taken as the
/// type field even when it is a tag, so that a data plane whose loops must be bounded can agree.
inline constexpr std::size_t maxTags = 8;

/// The fields of an Ethernet frame, each absent when the frame is too short to hold it.
struct Fields {
  /// Six bytes in 48 bits, the first byte uppermost.
  std::optional<std::uint64_t> destination;
  /// The VLAN id of the outer tag (IEEE 802.1Q: 0x8100 or 0x88a8); absent from an untagged frame.
  std::optional<std::uint16_t> vlan;
  /// The type field behind all tags, or the protocol id of a SNAP header. Absent from other LLC
  /// frames.
  std::optional<std::uint16_t> etherType;
  /// What follows the EtherType; in LLC frames other than SNAP, what follows the length field.
  std::span<const std::uint8_t> payload;
};

/// Takes a frame of any size, from the destination address on and without its check sequence. The
/// result refers to the memory of `frame`.
Fields fieldsOf(std::span<const std::uint8_t> frame);

/// Whether the frame satisfies the condition. A field or byte that the frame does not have
/// satisfies no condition on it.
bool holds(const Condition& condition, const Fields& fields);

}  // namespace classifier
