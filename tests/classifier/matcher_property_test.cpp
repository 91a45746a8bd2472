/// The compiled matcher against the definition: random tables, random frames, every cut length. The
/// definition is written down here once more, as plainly as possible and sharing no code with the
/// library.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "classifier/table.h"
#include "platform/acl_ioctl.h"
#include "tests/classifier/random_choices.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Fate;
using classifier::Table;
using support::Bytes;
using support::Mac;

// The definition

/// The bytes of a frame, which may not be there.
class Cursor {
 public:
  Cursor(std::span<const std::uint8_t> frame, std::size_t offset)
      : frame_(frame), offset_(offset) {}

  std::optional<unsigned> byte(std::size_t distance) const {
    const std::size_t at = offset_ + distance;
    if (at >= frame_.size()) return std::nullopt;
    return frame_[at];
  }
  std::optional<unsigned> word(std::size_t distance) const {
    const auto high = byte(distance);
    const auto low = byte(distance + 1);
    if (!high || !low) return std::nullopt;
    return *high * 256 + *low;
  }
  Cursor behind(std::size_t distance) const { return {frame_, offset_ + distance}; }

 private:
  std::span<const std::uint8_t> frame_;
  std::size_t offset_;
};

bool isTag(std::optional<unsigned> type) { return type && (*type == 0x8100 || *type == 0x88a8); }

Cursor typeField(std::span<const std::uint8_t> frame) {
  Cursor cursor(frame, 12);
  for (int tags = 0; tags < 8 && isTag(cursor.word(0)); ++tags) cursor = cursor.behind(4);
  return cursor;
}

bool isSnap(const Cursor& type) {
  return type.word(0) && *type.word(0) < 0x600 && type.byte(2) == 0xaaU && type.byte(3) == 0xaaU &&
         type.byte(4) == 0x03U && type.word(8);
}

struct ModelCondition {
  std::uint32_t type = 0;
  std::uint16_t lowest = 0;
  std::uint16_t highest = 0;
  Mac mac{};
  Mac macMask{};
  std::uint16_t etherType = 0;
  std::uint32_t offset = 0;
  std::uint8_t mask = 0;
  std::uint8_t value = 0;

  bool holds(std::span<const std::uint8_t> frame) const {
    const Cursor start(frame, 0);
    const Cursor typeAt = typeField(frame);
    const auto typeOrLength = typeAt.word(0);
    switch (type) {
      case ACL_CONDITION_VLAN: {
        if (lowest == 4095 && highest == 4095) return true;
        const auto control = start.word(14);
        if (!isTag(start.word(12)) || !control) return false;
        const unsigned id = *control % 4096;
        return lowest <= id && id <= highest;
      }
      case ACL_CONDITION_DESTINATION_MAC:
        for (std::size_t i = 0; i < 6; ++i) {
          const auto byte = start.byte(i);
          if (!byte || (*byte & macMask[i]) != (unsigned{mac[i]} & macMask[i])) return false;
        }
        return true;
      case ACL_CONDITION_ETHER_TYPE:
        if (!typeOrLength) return false;
        if (*typeOrLength >= 0x600) return *typeOrLength == etherType;
        return isSnap(typeAt) && typeAt.word(8) == unsigned{etherType};
      case ACL_CONDITION_PAYLOAD: {
        if (!typeOrLength) return false;
        const auto byte = typeAt.behind(isSnap(typeAt) ? 10 : 2).byte(offset);
        return byte && (*byte & mask) == (unsigned{value} & mask);
      }
    }
    ADD_FAILURE() << "condition type " << type;
    return false;
  }
};

struct ModelEntry {
  std::uint32_t kind;
  std::uint32_t index;
  std::string selector;
  std::string actionList;
};

struct ModelAction {
  std::uint32_t type = 0;
  std::string counter;
  std::int32_t increment = 0;
};

struct Model {
  std::map<std::string, std::vector<ModelCondition>> selectors;
  std::map<std::string, std::map<std::uint32_t, ModelAction>> actionLists;
  std::map<std::string, std::uint64_t> counters;
  std::vector<ModelEntry> entries;

  const ModelEntry* meet(std::span<const std::uint8_t> frame) const {
    const ModelEntry* first = nullptr;
    for (const ModelEntry& entry : entries) {
      const auto& conditions = selectors.at(entry.selector);
      const bool holds = std::all_of(conditions.begin(), conditions.end(),
                                     [&](const ModelCondition& c) { return c.holds(frame); });
      const bool comesFirst = first == nullptr || entry.index < first->index ||
                              (entry.index == first->index && entry.kind < first->kind);
      if (holds && comesFirst) first = &entry;
    }
    return first;
  }

  Fate run(const ModelEntry& entry) {
    bool drop = false;
    bool noL2cp = false;
    bool hide = false;
    for (const auto& [index, action] : actionLists.at(entry.actionList)) {
      if (action.type == ACL_ACTION_DROP) drop = true;
      if (action.type == ACL_ACTION_NO_L2CP) noL2cp = true;
      if (action.type == ACL_ACTION_HIDE) hide = true;
      if (action.type == ACL_ACTION_COUNTER_CHANGE) {
        counters.at(action.counter) += static_cast<std::uint64_t>(action.increment);
      }
    }
    if (drop) return Fate::discard;
    if (noL2cp) return Fate::tunnel;
    return hide && entry.selector != "true" ? Fate::peer : Fate::untouched;
  }
};

// Random tables and frames

class World : public RandomChoices {
 public:
  explicit World(unsigned seed) : RandomChoices(seed) { model.selectors["true"] = {}; }

  void addSelector() {
    const std::string name = "s" + std::to_string(model.selectors.size());
    ASSERT_EQ(request.addSelector(name), 0);
    model.selectors[name] = {};
    for (int count = below(5); count > 0; --count) addCondition(name);
  }

  void addCondition(const std::string& name) {
    ModelCondition c{};
    c.type = pick(std::vector<std::uint32_t>{ACL_CONDITION_VLAN, ACL_CONDITION_DESTINATION_MAC,
                                             ACL_CONDITION_ETHER_TYPE, ACL_CONDITION_PAYLOAD});
    int result = 0;
    switch (c.type) {
      case ACL_CONDITION_VLAN:
        c.lowest = pick(vlans);
        c.highest = oneIn(2) ? c.lowest : pick(vlans);
        if (c.lowest > c.highest) std::swap(c.lowest, c.highest);
        result = request.addVlan(name, c.lowest, c.highest);
        break;
      case ACL_CONDITION_DESTINATION_MAC:
        c.mac = pick(macs);
        c.macMask = pick(macMasks);
        result = request.addDestination(name, c.mac, c.macMask);
        break;
      case ACL_CONDITION_ETHER_TYPE:
        c.etherType = pick(types);
        result = request.addEtherType(name, c.etherType);
        break;
      case ACL_CONDITION_PAYLOAD:
        c.offset = pick(offsets);
        c.mask = pick(masks);
        c.value = pick(values);
        result = request.addPayload(name, c.offset, c.mask, c.value);
        break;
    }
    if (model.selectors[name].size() < Table::maxConditions) {
      ASSERT_EQ(result, 0);
      model.selectors[name].push_back(c);
    } else {
      ASSERT_EQ(result, -ENOSPC);
    }
  }

  void addActionList() {
    const std::string name = "a" + std::to_string(model.actionLists.size());
    ASSERT_EQ(request.addActionList(name), 0);
    model.actionLists[name] = {};
    for (int count = below(5); count > 0; --count) addAction(name);
  }

  void addAction(const std::string& name) {
    auto& actions = model.actionLists[name];
    const auto index = static_cast<std::uint32_t>(below(8));
    ModelAction action;
    action.type =
        pick(std::vector<std::uint32_t>{ACL_ACTION_DROP, ACL_ACTION_HIDE, ACL_ACTION_NO_L2CP,
                                        ACL_ACTION_COUNTER_CHANGE, ACL_ACTION_COUNTER_CHANGE});
    int result = 0;
    if (action.type == ACL_ACTION_COUNTER_CHANGE) {
      action.counter = "c" + std::to_string(below(3));
      action.increment = below(7) - 3;
      if (model.counters.try_emplace(action.counter, 0).second) {
        ASSERT_EQ(request.addCounter(action.counter), 0);
      }
      result = request.addCounterChange(name, index, action.counter, action.increment);
    } else {
      result = request.addAction(name, index, action.type);
    }
    ASSERT_EQ(result, actions.contains(index) ? -EEXIST : 0);
    actions.try_emplace(index, action);
  }

  void addEntry() {
    const ModelEntry entry{.kind = static_cast<std::uint32_t>(below(3)),
                           .index = static_cast<std::uint32_t>(below(60)),
                           .selector = oneIn(40) ? "true" : pick(model.selectors).first,
                           .actionList = pick(model.actionLists).first};
    const bool taken = std::any_of(
        model.entries.begin(), model.entries.end(),
        [&](const ModelEntry& e) { return e.kind == entry.kind && e.index == entry.index; });
    ASSERT_EQ(request.addEntry("7", entry.kind, entry.index, entry.selector, entry.actionList),
              taken ? -EEXIST : 0);
    if (!taken) model.entries.push_back(entry);
  }

  void deleteEntry() {
    if (model.entries.empty()) return;
    const auto victim = model.entries.begin() + below(static_cast<int>(model.entries.size()));
    ASSERT_EQ(request.deleteEntry("7", victim->kind, victim->index), 0);
    model.entries.erase(victim);
  }

  void change() {
    switch (below(4)) {
      case 0:
        return addEntry();
      case 1:
        return deleteEntry();
      case 2: {
        const std::string name = pick(model.selectors).first;
        if (name != "true") addCondition(name);
        return;
      }
      default:
        return addAction(pick(model.actionLists).first);
    }
  }

  void check(std::span<const std::uint8_t> bytes) {
    const ModelEntry* expected = model.meet(bytes);
    const classifier::Verdict verdict = table.classify(7, bytes);
    if (expected == nullptr) {
      ASSERT_EQ(verdict.entry, nullptr);
      ASSERT_EQ(verdict.fate, Fate::untouched);
      return;
    }
    ASSERT_TRUE(verdict.entry);
    ASSERT_EQ(verdict.entry->index, expected->index);
    ASSERT_EQ(verdict.entry->kind, expected->kind);
    ASSERT_EQ(verdict.entry->selector.view(), expected->selector);
    ASSERT_EQ(verdict.entry->actionList.view(), expected->actionList);
    ASSERT_EQ(verdict.fate, model.run(*expected));
    ++met;
  }

  void checkCounters() {
    for (const auto& [name, value] : model.counters) {
      ASSERT_EQ(request.counter(name), value) << name;
    }
  }

  Table table;
  Requests request{table};
  Model model;
  /// Frames that met an entry: a test in which few do proves little.
  std::size_t met = 0;

 private:
  const std::vector<Mac> macMasks = {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
                                     {0xff, 0xff, 0xff, 0xff, 0xff, 0xf0},
                                     {0x01},
                                     {0, 0, 0, 0, 0, 0xff},
                                     {}};
  const std::vector<std::uint32_t> offsets = {0, 0, 0, 1, 2, 5, 0xffffffff};
  const std::vector<std::uint8_t> masks = {0xff, 0xff, 0x0f, 0x00};
};

class MatcherProperty : public testing::TestWithParam<unsigned> {};

TEST_P(MatcherProperty, CompiledRulesDecideAsTheDefinitionDoes) {
  World world(GetParam());
  const int selectors = 1 + world.below(40);
  const int lists = 1 + world.below(10);
  const int entries = world.below(120);
  for (int i = 0; i < selectors; ++i) ASSERT_NO_FATAL_FAILURE(world.addSelector());
  for (int i = 0; i < lists; ++i) ASSERT_NO_FATAL_FAILURE(world.addActionList());
  for (int i = 0; i < entries; ++i) ASSERT_NO_FATAL_FAILURE(world.addEntry());

  for (int round = 0; round < 10; ++round) {
    for (int i = 0; i < 10; ++i) {
      const Bytes frame = world.frame();
      for (std::size_t size = 0; size <= frame.size(); ++size) {
        // A copy of exact size, for the address sanitizer to see reads beyond it.
        const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_NO_FATAL_FAILURE(world.check(cut)) << "frame " << i << " cut to " << size;
      }
    }
    ASSERT_NO_FATAL_FAILURE(world.checkCounters());
    for (int changes = world.below(4); changes > 0; --changes) {
      ASSERT_NO_FATAL_FAILURE(world.change());
    }
  }
  if (entries > 20) {
    EXPECT_GT(world.met, 0U);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, MatcherProperty, testing::Range(0U, 100U));

}  // namespace
