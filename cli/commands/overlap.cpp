#include "cli/commands/overlap.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "cli/value.h"

namespace cli {

namespace {

using Conditions = std::span<const control_condition>;

Conditions conditionsOf(const control_entry& entry) {
  return {entry.conditions.conditions_val, entry.conditions.conditions_len};
}

std::uint64_t numberIn(const control_field& field) {
  std::uint64_t number = 0;
  for (const char byte : std::span(field.control_field_val, field.control_field_len)) {
    number = number << 8U | static_cast<std::uint8_t>(byte);
  }
  return number;
}

bool everyFrame(const control_condition& condition) {
  if (condition.type != CONTROL_CONDITION_VLAN) return false;
  const control_vlan_range& range = condition.control_condition_u.vlan;
  return range.lowest == wholePort && range.highest == wholePort;
}

/// Whether what satisfies `condition` satisfies `wanted`.
bool implies(const control_condition& condition, const control_condition& wanted) {
  if (condition.type != wanted.type || everyFrame(condition)) return false;
  if (condition.type == CONTROL_CONDITION_VLAN) {
    const control_vlan_range& inner = condition.control_condition_u.vlan;
    const control_vlan_range& outer = wanted.control_condition_u.vlan;
    return outer.lowest <= inner.lowest && inner.highest <= outer.highest;
  }
  const control_masked& have = condition.control_condition_u.bits;
  const control_masked& want = wanted.control_condition_u.bits;
  const std::uint64_t mask = numberIn(want.mask);
  return have.offset == want.offset && (mask & ~numberIn(have.mask)) == 0 &&
         ((numberIn(have.value) ^ numberIn(want.value)) & mask) == 0;
}

}  // namespace

bool covers(const control_entry& other, const control_entry& entry) {
  const Conditions conditions = conditionsOf(entry);
  const Conditions wanted = conditionsOf(other);
  return std::all_of(wanted.begin(), wanted.end(), [&](const control_condition& want) {
    return everyFrame(want) ||
           std::any_of(conditions.begin(), conditions.end(),
                       [&](const control_condition& have) { return implies(have, want); });
  });
}

}  // namespace cli
