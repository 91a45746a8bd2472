#include "classifier/matcher.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace classifier {

namespace {

constexpr std::uint64_t destinationBits = 0xffff'ffff'ffff;
constexpr std::uint64_t destinationPresent = std::uint64_t{1} << 48;

constexpr std::uint64_t vlanBits = 0xffff;
constexpr std::uint64_t vlanPresent = std::uint64_t{1} << 48;

constexpr unsigned etherTypeShift = 16;
constexpr std::uint64_t etherTypeBits = std::uint64_t{0xffff} << etherTypeShift;
constexpr std::uint64_t etherTypePresent = std::uint64_t{1} << 49;

constexpr unsigned byteShift = 32;
constexpr std::uint64_t bytePresent = std::uint64_t{1} << 50;

}  // namespace

Matcher::Key Matcher::keyOf(const Fields& fields) {
  Key key;
  if (fields.destination) key.destination = *fields.destination | destinationPresent;
  if (fields.vlan) key.rest |= *fields.vlan | vlanPresent;
  if (fields.etherType) {
    key.rest |= std::uint64_t{*fields.etherType} << etherTypeShift | etherTypePresent;
  }
  if (!fields.payload.empty()) {
    key.rest |= std::uint64_t{fields.payload[0]} << byteShift | bytePresent;
  }
  return key;
}

/// The packed conditions of one rule: (key & mask) == value.
struct Matcher::Pattern {
  Key mask;
  Key value;
  /// Two conditions want different values of one bit: no frame satisfies both.
  bool contradictory = false;

  /// Adds a condition; false when it cannot be expressed in bits of the key.
  bool add(const VlanRange& range) {
    if (range.everyFrame()) return true;
    if (range.lowest != range.highest) return false;
    require({0, vlanBits | vlanPresent}, {0, range.lowest | vlanPresent});
    return true;
  }
  bool add(const DestinationMac& condition) {
    const std::uint64_t bits = condition.mask & destinationBits;
    require({bits | destinationPresent, 0}, {(condition.mac & bits) | destinationPresent, 0});
    return true;
  }
  bool add(const EtherType& condition) {
    require({0, etherTypeBits | etherTypePresent},
            {0, std::uint64_t{condition.value} << etherTypeShift | etherTypePresent});
    return true;
  }
  bool add(const PayloadByte& condition) {
    if (condition.offset != 0) return false;
    const std::uint64_t bits = std::uint64_t{condition.mask} << byteShift;
    const std::uint64_t wanted = std::uint64_t{condition.value} << byteShift;
    require({0, bits | bytePresent}, {0, (wanted & bits) | bytePresent});
    return true;
  }

  void require(const Key& bits, const Key& wanted) {
    if ((value & bits) != (wanted & mask)) contradictory = true;
    mask = {mask.destination | bits.destination, mask.rest | bits.rest};
    value = {value.destination | wanted.destination, value.rest | wanted.rest};
  }
};

void Matcher::Group::reserve(std::size_t rules) {
  slots_.resize(std::bit_ceil(2 * rules));
  shift_ = 64U - static_cast<unsigned>(std::countr_zero(slots_.size()));
}

std::size_t Matcher::Group::slotOf(const Key& maskedKey) const {
  // Multiplicative hashing: the upper bits of the sum depend on every bit of the key.
  std::size_t slot =
      (maskedKey.destination * 0x9e37'79b9'7f4a'7c15 + maskedKey.rest * 0xc2b2'ae3d'27d4'eb4f) >>
      shift_;
  while (slots_[slot].first != none && slots_[slot].key != maskedKey) {
    slot = (slot + 1) & (slots_.size() - 1);
  }
  return slot;
}

Matcher::Position& Matcher::Group::chain(const Key& maskedKey) {
  Slot& slot = slots_[slotOf(maskedKey)];
  slot.key = maskedKey;
  return slot.first;
}

Matcher::Position Matcher::Group::find(const Key& key) const {
  return slots_[slotOf(key & mask_)].first;
}

Matcher::Matcher(Rules rules) : rules_(std::move(rules)), candidates_(rules_.size()) {
  std::vector<Pattern> patterns(rules_.size());
  std::vector<std::size_t> groupSizes;
  std::vector<std::size_t> groupOf(rules_.size());
  for (Position position = 0; position < rules_.size(); ++position) {
    Pattern& pattern = patterns[position];
    for (const Condition& condition : rules_[position]->conditions) {
      const bool packed = std::visit([&](const auto& c) { return pattern.add(c); }, condition);
      if (!packed) candidates_[position].unpacked.push_back(condition);
    }
    if (pattern.contradictory) continue;
    auto group = std::ranges::find(groups_, pattern.mask, &Group::mask);
    if (group == groups_.end()) {
      group = groups_.emplace(groups_.end(), pattern.mask, position);
      groupSizes.push_back(0);
    }
    groupOf[position] = static_cast<std::size_t>(group - groups_.begin());
    ++groupSizes[groupOf[position]];
  }

  for (std::size_t i = 0; i < groups_.size(); ++i) groups_[i].reserve(groupSizes[i]);
  // Backwards, so that each rule goes to the front of its chain and chains ascend.
  for (auto position = static_cast<Position>(rules_.size()); position-- > 0;) {
    if (patterns[position].contradictory) continue;
    Position& first = groups_[groupOf[position]].chain(patterns[position].value);
    candidates_[position].next = std::exchange(first, position);
  }
}

const std::shared_ptr<const Rule>* Matcher::match(std::span<const std::uint8_t> frame) const {
  const Fields fields = fieldsOf(frame);
  const Key key = keyOf(fields);
  Position found = none;
  for (const Group& group : groups_) {
    // Neither this group nor a later one has a rule that comes before the one found.
    if (group.best() >= found) break;
    for (Position position = group.find(key); position < found;
         position = candidates_[position].next) {
      if (std::ranges::all_of(candidates_[position].unpacked,
                              [&](const Condition& c) { return holds(c, fields); })) {
        found = position;
      }
    }
  }
  return found == none ? nullptr : &rules_[found];
}

}  // namespace classifier
