#include "cli/commands/entry.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr std::uint8_t wholeByte = 0xff;

std::span<const std::uint8_t> bytesOf(const control_field& field) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): XDR's opaque bytes are chars
  return {reinterpret_cast<const std::uint8_t*>(field.control_field_val), field.control_field_len};
}

std::uint32_t numberIn(const control_field& field) {
  std::uint32_t number = 0;
  for (const std::uint8_t byte : bytesOf(field)) number = number << 8U | byte;
  return number;
}

std::string fieldText(control_condition_type type, const control_field& field) {
  switch (type) {
    case CONTROL_CONDITION_VLAN:
      return std::to_string(numberIn(field));
    case CONTROL_CONDITION_DESTINATION:
      return fmt::format("{:02x}", fmt::join(bytesOf(field), ":"));
    case CONTROL_CONDITION_ETHER_TYPE:
    case CONTROL_CONDITION_PAYLOAD:
      break;
  }
  return fmt::format("0x{:02x}", fmt::join(bytesOf(field), ""));
}

}  // namespace

Value fateValue(control_fate fate) {
  switch (fate) {
    case CONTROL_FATE_UNTOUCHED:
      return wordValue("untouched");
    case CONTROL_FATE_DISCARD:
      return wordValue("discard", Style::red);
    case CONTROL_FATE_PEER:
      return wordValue("peer", Style::cyan);
    case CONTROL_FATE_TUNNEL:
      return wordValue("tunnel", Style::green);
  }
  throw NotReached(
      fmt::format("l2cpd answered with fate {}, which is unknown here; is it of another release?",
                  static_cast<int>(fate)));
}

std::string_view conditionName(const control_condition& condition) {
  switch (condition.type) {
    case CONTROL_CONDITION_VLAN:
      return "vlan";
    case CONTROL_CONDITION_DESTINATION:
      return "destination";
    case CONTROL_CONDITION_ETHER_TYPE:
      return "ethertype";
    case CONTROL_CONDITION_PAYLOAD:
      break;
  }
  return "payload";
}

std::string expectedText(const control_condition& condition) {
  if (condition.type == CONTROL_CONDITION_VLAN) {
    const auto& [lowest, highest] = condition.control_condition_u.vlan;
    return lowest == highest ? std::to_string(lowest) : fmt::format("{}-{}", lowest, highest);
  }
  const control_masked& bits = condition.control_condition_u.bits;
  std::string text = fieldText(condition.type, bits.value);
  const auto mask = bytesOf(bits.mask);
  if (!std::all_of(mask.begin(), mask.end(), [](auto byte) { return byte == wholeByte; })) {
    text += "/" + fieldText(condition.type, bits.mask);
  }
  if (bits.offset != 0) text += fmt::format(" at byte {}", bits.offset);
  return text;
}

Value foundValue(const control_condition& condition, const control_field& found) {
  if (found.control_field_len == 0) return nothing("-", "");
  return wordValue(fieldText(condition.type, found));
}

Value profileValue(const control_entry& entry) { return nameOrNothing(entry.profile); }

Value protocolValue(const control_entry& entry) { return nameOrNothing(entry.protocol); }

Value attachedVlanValue(const control_entry& entry) {
  const bool known = *entry.protocol != '\0';
  return known ? vlanValue(static_cast<std::uint16_t>(entry.vid)) : nothing("-", "");
}

CounterName counterName(std::string_view title) {
  struct Kind {
    std::string_view prefix;
    std::string_view name;
  };
  constexpr Kind kinds[] = {{"l2cpPort", "port"},
                            {"l2cpVlan", "vlan"},
                            {"l2cpProfi", "profile"},
                            {"l2cpProto", "protocol"}};
  constexpr std::string_view rules[] = {"discard", "peer", "tunnel"};
  for (const Kind& kind : kinds) {
    if (!title.starts_with(kind.prefix)) continue;
    const std::string_view rest = title.substr(kind.prefix.size());
    for (const std::string_view rule : rules) {
      if (!rest.ends_with(rule)) continue;
      return {kind.name, rest.substr(0, rest.size() - rule.size()), rule};
    }
  }
  return {};
}

}  // namespace cli
