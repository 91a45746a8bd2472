#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// What a frame looks like to a reader, each text "-" where the frame is too short to have it.
struct FrameText {
  std::string destination;
  /// Id of the outer tag, 0x8100 or 0x88a8; none for an untagged frame.
  std::optional<std::uint16_t> vlan;
  /// What is behind the tags, with its name if it has a well-known one: "0x88cc LLDP",
  /// "SNAP 0x2000 CDP", "LLC 42 STP".
  std::string type;
};

/// Takes a frame of any size, from the destination address on.
FrameText frameText(std::span<const std::uint8_t> frame);

/// The bytes of a frame written as hexadecimal digits, two for each, with blanks, ":", "-" or "."
/// between bytes or none. Throws UsageError.
std::vector<std::uint8_t> parseFrame(std::string_view text);

}  // namespace cli
