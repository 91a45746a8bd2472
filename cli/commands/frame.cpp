#include "cli/commands/frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t macSize = 6;
constexpr std::size_t typeOffset = 12;
constexpr std::size_t tagSize = 4;

constexpr std::uint16_t customerTag = 0x8100;
constexpr std::uint16_t serviceTag = 0x88a8;
constexpr std::uint16_t vlanIdMask = 0x0fff;

// IEEE 802.3, 3.2.6: smaller values of the type field are lengths.
constexpr std::uint16_t smallestEtherType = 0x0600;

constexpr std::uint16_t slowProtocols = 0x8809;

// Service access points of LLC (IEEE 802.2): of SNAP, and of the bridge group's protocols.
constexpr std::uint8_t snapSap = 0xaa;
constexpr std::uint8_t bridgeSap = 0x42;
constexpr std::size_t snapProtocolOffset = 6;

struct NamedNumber {
  std::uint16_t number;
  std::string_view name;
};
constexpr NamedNumber etherTypes[] = {{0x0800, "IPv4"},  {0x0806, "ARP"},   {0x86dd, "IPv6"},
                                      {0x8808, "PAUSE"}, {0x888e, "EAPOL"}, {0x88cc, "LLDP"},
                                      {0x88ee, "E-LMI"}, {0x88f5, "MVRP"},  {0x88f6, "MMRP"},
                                      {0x88f7, "PTP"},   {0x8902, "CFM"}};
constexpr NamedNumber slowSubTypes[] = {{0x01, "LACP"}, {0x02, "LAMP"}, {0x03, "OAM"}};
constexpr NamedNumber snapProtocols[] = {{0x0111, "UDLD"}, {0x2000, "CDP"}};
// The protocol identifiers with which the bridge group's protocols begin.
constexpr NamedNumber bridgeProtocols[] = {{0x0000, "STP"}, {0x0001, "GARP"}};

std::optional<std::uint16_t> word(Bytes bytes, std::size_t offset) {
  if (bytes.size() < offset + 2) return std::nullopt;
  return static_cast<std::uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

bool isTag(std::uint16_t type) { return type == customerTag || type == serviceTag; }

// The name with a blank before it, or nothing.
std::string nameOf(std::optional<std::uint16_t> number, std::span<const NamedNumber> names) {
  const auto found = std::find_if(names.begin(), names.end(),
                                  [&](const NamedNumber& named) { return named.number == number; });
  return found == names.end() ? "" : fmt::format(" {}", found->name);
}

std::string etherTypeName(std::uint16_t type, Bytes payload) {
  if (type != slowProtocols) return nameOf(type, etherTypes);
  return payload.empty() ? "" : nameOf(payload.front(), slowSubTypes);
}

std::string llcText(Bytes payload) {
  if (payload.empty()) return "LLC";
  const std::uint8_t destinationSap = payload.front();
  if (destinationSap == snapSap) {
    const auto protocol = word(payload, snapProtocolOffset);
    if (!protocol) return "SNAP";
    return fmt::format("SNAP 0x{:04x}{}", *protocol, nameOf(protocol, snapProtocols));
  }
  constexpr std::size_t identifierOffset = 3;
  const std::string name =
      destinationSap == bridgeSap ? nameOf(word(payload, identifierOffset), bridgeProtocols) : "";
  return fmt::format("LLC {:02x}{}", destinationSap, name);
}

int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::vector<std::uint8_t> parseFrame(std::string_view text) {
  constexpr std::string_view separators = " \t\n:-.";
  std::vector<std::uint8_t> bytes;
  while (true) {
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    if (text.empty()) return bytes;
    const int high = digitOf(text.front());
    const int low = text.size() > 1 ? digitOf(text[1]) : -1;
    if (high < 0 || low < 0) {
      throw UsageError(
          fmt::format("{} stands where byte {} of the frame should, two hexadecimal "
                      "digits",
                      quotedText(text.substr(0, 2)), bytes.size() + 1));
    }
    bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    text.remove_prefix(2);
  }
}

FrameText frameText(Bytes frame) {
  FrameText text{.destination = "-", .vlan = std::nullopt, .type = "-"};
  if (frame.size() < macSize) return text;
  text.destination = fmt::format("{:02x}", fmt::join(frame.first(macSize), ":"));

  std::size_t offset = typeOffset;
  auto type = word(frame, offset);
  for (; type && isTag(*type); type = word(frame, offset)) {
    const auto tag = word(frame, offset + 2);
    if (offset == typeOffset && tag) text.vlan = static_cast<std::uint16_t>(*tag & vlanIdMask);
    offset += tagSize;
  }
  if (!type) return text;
  const Bytes payload = frame.subspan(offset + 2);
  text.type = *type < smallestEtherType
                  ? llcText(payload)
                  : fmt::format("0x{:04x}{}", *type, etherTypeName(*type, payload));
  return text;
}

}  // namespace cli
