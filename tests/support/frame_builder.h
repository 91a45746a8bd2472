#pragma once

/// Ethernet frames written field by field:
///
///     const auto frame = FrameBuilder().ethernet(lldp, station).tag(0x8100, 100).etherType(0x88cc)
///                            .payload({0x02, 0x07}).bytes();

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace support {

using Mac = std::array<std::uint8_t, 6>;
using Bytes = std::vector<std::uint8_t>;

class FrameBuilder {
 public:
  FrameBuilder& ethernet(const Mac& destination, const Mac& source) {
    bytes_.insert(bytes_.end(), destination.begin(), destination.end());
    bytes_.insert(bytes_.end(), source.begin(), source.end());
    return *this;
  }

  /// `control` is the tag's priority (3 bits) and drop eligibility (1 bit).
  FrameBuilder& tag(std::uint16_t protocol, std::uint16_t vlan, std::uint8_t control = 0) {
    return word(protocol).word(static_cast<std::uint16_t>(control << 12 | vlan));
  }

  FrameBuilder& etherType(std::uint16_t type) { return word(type); }

  /// The length field that stands in place of the EtherType before an LLC header.
  FrameBuilder& length(std::uint16_t bytes) { return word(bytes); }

  FrameBuilder& llc(std::uint8_t destination, std::uint8_t source, std::uint8_t control) {
    return payload({destination, source, control});
  }

  FrameBuilder& snap(const std::array<std::uint8_t, 3>& oui, std::uint16_t protocol) {
    return llc(0xaa, 0xaa, 0x03).payload({oui[0], oui[1], oui[2]}).word(protocol);
  }

  FrameBuilder& payload(std::initializer_list<std::uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes);
    return *this;
  }

  /// Fills up with zeros, as the shortest frames on the wire are.
  FrameBuilder& padTo(std::size_t size) {
    if (bytes_.size() < size) bytes_.resize(size);
    return *this;
  }

  /// Keeps the first `size` bytes.
  FrameBuilder& cutTo(std::size_t size) {
    if (bytes_.size() > size) bytes_.resize(size);
    return *this;
  }

  const Bytes& bytes() const { return bytes_; }

 private:
  FrameBuilder& word(std::uint16_t value) {
    return payload({static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)});
  }

  Bytes bytes_;
};

}  // namespace support
