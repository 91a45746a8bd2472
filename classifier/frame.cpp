#include "classifier/frame.h"

namespace classifier {

namespace {

constexpr std::size_t macSize = 6;
constexpr std::size_t typeOffset = 12;
constexpr std::size_t typeSize = 2;
constexpr std::size_t tagSize = 4;

constexpr std::uint16_t customerTag = 0x8100;
constexpr std::uint16_t serviceTag = 0x88a8;
constexpr std::uint16_t vlanIdMask = 0x0fff;

// IEEE 802.3, 3.2.6: types begin here. What is smaller is taken for a length.
constexpr std::uint16_t smallestEtherType = 0x0600;

// IEEE 802, 9.5: an LLC header of aa aa 03, three bytes of OUI, two bytes of protocol id.
constexpr std::size_t snapSize = 8;
constexpr std::size_t snapProtocolOffset = 6;

std::uint16_t word(std::span<const std::uint8_t> bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

bool isTag(std::uint16_t type) { return type == customerTag || type == serviceTag; }

bool startsWithSnap(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= snapSize && bytes[0] == 0xaa && bytes[1] == 0xaa && bytes[2] == 0x03;
}

struct Test {
  const Fields& fields;

  bool operator()(const VlanRange& range) const {
    return range.everyFrame() ||
           (fields.vlan && range.lowest <= *fields.vlan && *fields.vlan <= range.highest);
  }
  bool operator()(const DestinationMac& condition) const {
    return fields.destination && ((*fields.destination ^ condition.mac) & condition.mask) == 0;
  }
  bool operator()(const EtherType& condition) const { return fields.etherType == condition.value; }
  bool operator()(const PayloadByte& condition) const {
    return condition.offset < fields.payload.size() &&
           ((fields.payload[condition.offset] ^ condition.value) & condition.mask) == 0;
  }
};

}  // namespace

Fields fieldsOf(std::span<const std::uint8_t> frame) {
  Fields fields;
  if (frame.size() < macSize) return fields;
  std::uint64_t destination = 0;
  for (std::size_t i = 0; i < macSize; ++i) destination = destination << 8 | frame[i];
  fields.destination = destination;

  std::size_t offset = typeOffset;
  for (std::size_t tags = 0; tags < maxTags; ++tags) {
    if (frame.size() < offset + typeSize || !isTag(word(frame, offset))) break;
    if (tags == 0 && frame.size() >= offset + tagSize) {
      fields.vlan = static_cast<std::uint16_t>(word(frame, offset + typeSize) & vlanIdMask);
    }
    offset += tagSize;
  }
  if (frame.size() < offset + typeSize) return fields;

  const std::uint16_t type = word(frame, offset);
  fields.payload = frame.subspan(offset + typeSize);
  if (type >= smallestEtherType) {
    fields.etherType = type;
  } else if (startsWithSnap(fields.payload)) {
    fields.etherType = word(fields.payload, snapProtocolOffset);
    fields.payload = fields.payload.subspan(snapSize);
  }
  return fields;
}

bool holds(const Condition& condition, const Fields& fields) {
  return std::visit(Test{fields}, condition);
}

}  // namespace classifier
