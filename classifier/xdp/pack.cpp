#include "classifier/xdp/pack.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>

namespace classifier::xdp {

namespace {

static_assert(static_cast<int>(Fate::untouched) == L2CP_UNTOUCHED);
static_assert(static_cast<int>(Fate::discard) == L2CP_DISCARD);
static_assert(static_cast<int>(Fate::peer) == L2CP_PEER);
static_assert(static_cast<int>(Fate::tunnel) == L2CP_TUNNEL);

constexpr std::uint32_t vlanIds = 4096;
constexpr std::uint64_t vlanIdBits = 0xffff;
constexpr std::uint64_t etherTypeBits = 0xffff;

/// Six bytes in the lower 48 bits, the first one uppermost, as a key has them.
std::uint64_t destinationBits(std::uint64_t address) {
  constexpr std::size_t size = 6;
  std::uint8_t bytes[sizeof(std::uint64_t)] = {};
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>(address >> 8 * (size - 1 - i));
  }
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return l2cpDestination(word);
}

/// The conditions of one rule.
class Pattern {
 public:
  /// False when the condition cannot be expressed in bits of the key.
  bool add(const VlanRange& range) {
    if (range.everyFrame()) return true;
    isTagged_ = true;
    lowest_ = std::max<std::uint32_t>(lowest_, range.lowest);
    end_ = std::min<std::uint32_t>(end_, range.highest + 1U);
    return true;
  }
  bool add(const DestinationMac& condition) {
    const std::uint64_t bits = destinationBits(condition.mask);
    require(0, bits, destinationBits(condition.mac) & bits);
    return true;
  }
  bool add(const EtherType& condition) {
    require(0, etherTypeBits << L2CP_TYPE_SHIFT, std::uint64_t{condition.value} << L2CP_TYPE_SHIFT);
    require(1, L2CP_HAS_TYPE, L2CP_HAS_TYPE);
    return true;
  }
  bool add(const PayloadByte& condition) {
    if (condition.offset != 0) return false;
    const std::uint64_t bits = std::uint64_t{condition.mask} << L2CP_BYTE_SHIFT;
    require(1, bits | L2CP_HAS_BYTE,
            (std::uint64_t{condition.value} << L2CP_BYTE_SHIFT & bits) | L2CP_HAS_BYTE);
    return true;
  }

  /// Calls `use` with each match that the rule is made of.
  template <class Use>
  void forEachMatch(Use use) const {
    if (isContradictory_) return;
    if (!isTagged_) return use(match_);
    for (std::uint32_t block = lowest_; block < end_;) {
      const std::uint32_t size =
          std::bit_floor(std::min(block == 0 ? vlanIds : block & ~(block - 1), end_ - block));
      l2cp_match match = match_;
      match.mask[1] |= (vlanIdBits & ~std::uint64_t{size - 1}) | L2CP_HAS_VLAN;
      match.value[1] |= block | L2CP_HAS_VLAN;
      use(match);
      block += size;
    }
  }

 private:
  void require(std::size_t word, std::uint64_t bits, std::uint64_t wanted) {
    __u64& mask = match_.mask[word];
    __u64& value = match_.value[word];
    if ((value & bits) != (wanted & mask)) isContradictory_ = true;
    mask |= bits;
    value |= wanted;
  }

  l2cp_match match_{};
  /// Two conditions want different values of one bit.
  bool isContradictory_ = false;
  bool isTagged_ = false;
  std::uint32_t lowest_ = 0;
  std::uint32_t end_ = vlanIds;
};

bool doesNothing(const Rule& rule) {
  return rule.fate == Fate::untouched && rule.counterChanges.empty();
}

bool packOutcome(const Rule& rule, l2cp_outcome& outcome, const PlaceOf& placeOf) {
  outcome = {};
  outcome.fate = static_cast<std::uint32_t>(rule.fate);
  for (const CounterChange& change : rule.counterChanges) {
    if (outcome.changes >= L2CP_CHANGES) return false;
    const auto place = placeOf(*change.counter);
    if (!place) return false;
    outcome.change[outcome.changes++] = {.counter = *place, .increment = change.increment};
  }
  return true;
}

/// Takes out of `any` what the match has otherwise.
void keepCommon(l2cp_match& any, const l2cp_match& match) {
  for (std::size_t word = 0; word < 2; ++word) {
    any.mask[word] &= match.mask[word] & ~(any.value[word] ^ match.value[word]);
    any.value[word] &= any.mask[word];
  }
}

/// What the matches have in common that frames can fit whose group bit is `groupBit`.
l2cp_match common(std::span<const l2cp_match> matches, std::uint64_t groupBit) {
  l2cp_match any = {.mask = {l2cpGroupBit(), 0}, .value = {groupBit ^ l2cpGroupBit(), 0}};
  bool isFirst = true;
  for (const l2cp_match& match : matches) {
    if (((match.value[0] ^ groupBit) & match.mask[0] & l2cpGroupBit()) != 0) continue;
    if (isFirst) any = match;
    isFirst = false;
    keepCommon(any, match);
  }
  return any;
}

/// The blocks of as many entries and the one behind the last.
void packBlocks(l2cp_table& table, std::uint32_t count) {
  for (std::uint32_t first = 0; first <= count && first < L2CP_ENTRIES; first += L2CP_BLOCK) {
    l2cp_match& block = table.block[first / L2CP_BLOCK];
    block = table.match[first];
    const std::uint32_t end = std::min<std::uint32_t>(first + L2CP_BLOCK, count + 1);
    for (std::uint32_t i = first + 1; i < end; ++i) keepCommon(block, table.match[i]);
  }
}

/// Writes the entries of a rule behind those that the table has. 0 or as `pack`.
int packRule(const Rule& rule, PackedTable& packed, const PlaceOf& placeOf) {
  std::uint32_t& count = packed.count;
  l2cp_table& table = packed.table;
  Pattern pattern;
  for (const Condition& condition : rule.conditions) {
    if (!std::visit([&](const auto& c) { return pattern.add(c); }, condition)) return -EINVAL;
  }
  bool hasRoom = true;
  const std::uint32_t first = count;
  pattern.forEachMatch([&](const l2cp_match& match) {
    hasRoom = hasRoom && count < L2CP_ENTRIES;
    if (hasRoom) table.match[count++] = match;
  });
  if (!hasRoom) return -ENOSPC;
  if (first == count) return 0;
  if (!packOutcome(rule, table.outcome[first], placeOf)) return -ENOSPC;
  std::fill(table.outcome + first + 1, table.outcome + count, table.outcome[first]);
  return 0;
}

bool isSame(const PackedTable::Packed& packed, const std::shared_ptr<const Rule>& rule) {
  return !packed.rule.owner_before(rule) && !rule.owner_before(packed.rule);
}

}  // namespace

int pack(const Rules& rules, PackedTable& packed, const PlaceOf& placeOf) {
  const auto last = std::find_if_not(rules.rbegin(), rules.rend(),
                                     [](const auto& rule) { return doesNothing(*rule); });
  const std::span wanted(rules.begin(), last.base());
  const auto [stale, fresh] = std::ranges::mismatch(packed.rules, wanted, isSame);
  packed.count = stale == packed.rules.begin() ? 0 : std::prev(stale)->end;
  packed.rules.erase(stale, packed.rules.end());
  for (const auto& rule : std::span(fresh, wanted.end())) {
    if (const int error = packRule(*rule, packed, placeOf); error != 0) return error;
    packed.rules.push_back({rule, packed.count});
  }

  l2cp_table& table = packed.table;
  const std::uint32_t count = packed.count;
  const std::span matches(table.match, count);
  table.any[0] = common(matches, 0);
  table.any[1] = common(matches, l2cpGroupBit());
  table.match[count] = {};
  table.outcome[count] = {};
  packBlocks(table, count);
  return 0;
}

}  // namespace classifier::xdp
