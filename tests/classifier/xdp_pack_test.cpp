#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "classifier/table.h"
#include "classifier/xdp/counters.h"
#include "classifier/xdp/pack.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Counter;
using classifier::Fate;
using classifier::Rules;
using classifier::xdp::Counters;
using classifier::xdp::pack;
using support::Mac;

constexpr Mac lldp = {0x01, 0x80, 0xc2, 0, 0, 0x0e};
constexpr Mac station = {0x02, 0, 0, 0, 0, 1};

/// Rules of port 1, packed.
class Pack : public testing::Test {
 protected:
  /// An entry with a selector and a list of its own.
  std::string add(std::uint32_t action = ACL_ACTION_DROP) {
    const std::string name = std::to_string(next_);
    EXPECT_EQ(request.addSelector(name), 0);
    EXPECT_EQ(request.addActionList(name), 0);
    EXPECT_EQ(request.addAction(name, 15, action), 0);
    EXPECT_EQ(request.addEntry("1", next_ / 100, next_, name, name), 0);
    ++next_;
    return name;
  }

  int packed() {
    return pack(table.rules(1), packed_, [](Counter&) { return std::optional(5U); });
  }

  classifier::Table table;
  Requests request{table};
  classifier::xdp::PackedTable packed_;
  const l2cp_table& result = packed_.table;
  const std::uint32_t& count = packed_.count;

 private:
  std::uint32_t next_ = 0;
};

TEST_F(Pack, MakesOneEntryOfManyConditionsOnOneField) {
  const std::string name = add();
  for (int bit = 0; bit < 8; ++bit) {
    const auto mask = static_cast<std::uint8_t>(1 << bit);
    ASSERT_EQ(request.addPayload(name, 0, mask, 0x42), 0);
  }
  ASSERT_EQ(request.addEtherType(name, 0x8809), 0);
  ASSERT_EQ(request.addEtherType(name, 0x8809), 0);
  ASSERT_EQ(request.addVlan(name, 10, 200), 0);
  ASSERT_EQ(request.addVlan(name, 100, 4094), 0);
  ASSERT_EQ(request.addVlan(name, 0, 100), 0);
  ASSERT_EQ(packed(), 0);
  ASSERT_EQ(count, 1U);
  EXPECT_EQ(result.match[0].mask[0], 0xffffULL << L2CP_TYPE_SHIFT);
  EXPECT_EQ(result.match[0].value[0], 0x8809ULL << L2CP_TYPE_SHIFT);
  const std::uint64_t has = L2CP_HAS_VLAN | L2CP_HAS_TYPE | L2CP_HAS_BYTE;
  EXPECT_EQ(result.match[0].mask[1], has | 0xffU << L2CP_BYTE_SHIFT | 0xffff);
  EXPECT_EQ(result.match[0].value[1], has | 0x42U << L2CP_BYTE_SHIFT | 100);
}

TEST_F(Pack, LeavesOutWhatNoFrameCanSatisfy) {
  const std::string types = add();
  ASSERT_EQ(request.addEtherType(types, 0x8809), 0);
  ASSERT_EQ(request.addEtherType(types, 0x88cc), 0);
  const std::string vlans = add();
  ASSERT_EQ(request.addVlan(vlans, 1, 2), 0);
  ASSERT_EQ(request.addVlan(vlans, 3, 4), 0);
  const std::string macs = add();
  ASSERT_EQ(request.addDestination(macs, lldp), 0);
  ASSERT_EQ(request.addDestination(macs, station), 0);
  ASSERT_EQ(packed(), 0);
  EXPECT_EQ(count, 0U);
}

TEST_F(Pack, LeavesOutWhatStandsLastAndDoesNothing) {
  add();
  ASSERT_EQ(request.addActionList("hide"), 0);
  ASSERT_EQ(request.addAction("hide", 0, ACL_ACTION_HIDE), 0);
  ASSERT_EQ(request.addEntry("1", 9, 999, "true", "hide"), 0);
  ASSERT_EQ(packed(), 0);
  EXPECT_EQ(count, 1U);
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange("hide", 1, "c"), 0);
  ASSERT_EQ(packed(), 0);
  EXPECT_EQ(count, 2U);
}

TEST_F(Pack, KeepsAnEntryThatDoesNothingBeforeOthers) {
  ASSERT_EQ(request.addActionList("nothing"), 0);
  ASSERT_EQ(request.addEntry("1", 0, 0, "true", "nothing"), 0);
  ASSERT_EQ(request.addActionList("drop"), 0);
  ASSERT_EQ(request.addAction("drop", 0, ACL_ACTION_DROP), 0);
  ASSERT_EQ(request.addEntry("1", 0, 1, "true", "drop"), 0);
  ASSERT_EQ(packed(), 0);
  ASSERT_EQ(count, 2U);
  EXPECT_EQ(result.outcome[0].fate, static_cast<unsigned>(L2CP_UNTOUCHED));
}

TEST_F(Pack, AVlanRangeTakesAPlaceForEachAlignedBlock) {
  const std::string name = add();
  ASSERT_EQ(request.addVlan(name, 1, 4094), 0);
  ASSERT_EQ(packed(), 0);
  EXPECT_EQ(count, 22U);
  for (std::uint32_t vlan = 0; vlan < 4096; ++vlan) {
    const std::uint64_t key = vlan | L2CP_HAS_VLAN;
    const auto fitting = std::ranges::count_if(
        std::span(result.match, count),
        [&](const l2cp_match& match) { return (key & match.mask[1]) == match.value[1]; });
    EXPECT_EQ(fitting, vlan >= 1 && vlan <= 4094 ? 1 : 0) << vlan;
  }
}

TEST_F(Pack, ARangeOfAllVlansWantsATag) {
  ASSERT_EQ(request.addVlan(add(), 0, 4095), 0);
  ASSERT_EQ(packed(), 0);
  ASSERT_EQ(count, 1U);
  EXPECT_EQ(result.match[0].mask[1], std::uint64_t{L2CP_HAS_VLAN} | 0xf000);
}

TEST_F(Pack, TheWholePortWantsNothing) {
  ASSERT_EQ(request.addVlan(add(), 4095, 4095), 0);
  ASSERT_EQ(packed(), 0);
  ASSERT_EQ(count, 1U);
  EXPECT_EQ(result.match[0].mask[0], 0U);
  EXPECT_EQ(result.match[0].mask[1], 0U);
}

TEST_F(Pack, APayloadByteFurtherBehindIsEINVAL) {
  ASSERT_EQ(request.addPayload(add(), 1, 0xff, 1), 0);
  EXPECT_EQ(packed(), -EINVAL);
}

TEST_F(Pack, APlaceTooManyIsENOSPC) {
  for (int i = 0; i < L2CP_ENTRIES; ++i) add();
  EXPECT_EQ(packed(), 0);
  EXPECT_EQ(count, std::uint32_t{L2CP_ENTRIES});
  add();
  EXPECT_EQ(packed(), -ENOSPC);
}

TEST_F(Pack, ABlockTooManyIsENOSPC) {
  for (int i = 0; i < L2CP_ENTRIES - 1; ++i) add();
  ASSERT_EQ(request.addVlan(add(), 2, 4), 0);
  EXPECT_EQ(packed(), -ENOSPC);
}

TEST_F(Pack, ACounterTooManyIsENOSPC) {
  const std::string name = add();
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange(name, 0, "c"), 0);
  EXPECT_EQ(pack(table.rules(1), packed_, [](Counter&) { return std::nullopt; }), -ENOSPC);
}

TEST_F(Pack, KeepsTheCounterChangesInTheirOrder) {
  const std::string name = add(ACL_ACTION_NO_L2CP);
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange(name, 2, "c", -7), 0);
  ASSERT_EQ(request.addCounterChange(name, 1, "c", 3), 0);
  ASSERT_EQ(packed(), 0);
  const l2cp_outcome& outcome = result.outcome[0];
  EXPECT_EQ(outcome.fate, static_cast<unsigned>(L2CP_TUNNEL));
  ASSERT_EQ(outcome.changes, 2U);
  EXPECT_EQ(outcome.change[0].counter, 5U);
  EXPECT_EQ(outcome.change[0].increment, 3);
  EXPECT_EQ(outcome.change[1].increment, -7);
  EXPECT_EQ(outcome.change[2].counter, 0U);
}

std::uint64_t destination(const Mac& mac) {
  std::uint8_t bytes[8] = {};
  std::ranges::copy(mac, bytes);
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return l2cpDestination(word);
}

bool fits(const l2cp_match& match, std::uint64_t first) {
  return (first & match.mask[0]) == match.value[0];
}

TEST_F(Pack, FramesToAStationFitNothingInCommonWithEntriesForGroups) {
  ASSERT_EQ(request.addDestination(add(), lldp), 0);
  ASSERT_EQ(request.addDestination(add(), {0x01, 0, 0x0c, 0xcc, 0xcc, 0xcc}), 0);
  ASSERT_EQ(packed(), 0);
  EXPECT_FALSE(fits(result.any[0], destination(station)));
  EXPECT_TRUE(fits(result.any[1], destination(lldp)));
}

TEST_F(Pack, AnEntryForEveryAddressLeavesItsTypeInCommonForStations) {
  ASSERT_EQ(request.addDestination(add(), lldp), 0);
  ASSERT_EQ(request.addEtherType(add(), 0x888e), 0);
  ASSERT_EQ(packed(), 0);
  EXPECT_FALSE(fits(result.any[0], destination(station) | 0x0800ULL << L2CP_TYPE_SHIFT));
  EXPECT_TRUE(fits(result.any[0], destination(station) | 0x888eULL << L2CP_TYPE_SHIFT));
}

TEST_F(Pack, AnEmptyTableHasNothingThatFramesFit) {
  ASSERT_EQ(packed(), 0);
  EXPECT_FALSE(fits(result.any[0], destination(station)));
  EXPECT_FALSE(fits(result.any[1], destination(lldp)));
}

TEST_F(Pack, MakesTheSameOfRulesWhateverItMadeBefore) {
  const auto expectAsAnew = [&] {
    ASSERT_EQ(packed(), 0);
    classifier::xdp::PackedTable anew;
    ASSERT_EQ(pack(table.rules(1), anew, [](Counter&) { return std::optional(5U); }), 0);
    ASSERT_EQ(count, anew.count);
    for (std::uint32_t i = 0; i <= count; ++i) {
      EXPECT_EQ(std::memcmp(&result.match[i], &anew.table.match[i], sizeof(l2cp_match)), 0) << i;
      EXPECT_EQ(result.outcome[i].fate, anew.table.outcome[i].fate) << i;
    }
  };
  for (std::uint32_t i = 0; i < 6; ++i) {
    const std::string name = add(i % 2 == 0 ? ACL_ACTION_DROP : ACL_ACTION_NO_L2CP);
    ASSERT_EQ(request.addVlan(name, static_cast<std::uint16_t>(10 * i),
                              static_cast<std::uint16_t>(10 * i + 6)),
              0);
    expectAsAnew();
  }
  ASSERT_EQ(request.deleteEntry("1", 0, 2), 0);
  expectAsAnew();
  ASSERT_EQ(request.addEtherType("3", 0x8809), 0);
  expectAsAnew();
  ASSERT_EQ(request.addPayload("4", 1, 0xff, 1), 0);
  ASSERT_EQ(packed(), -EINVAL);
  ASSERT_EQ(request.deleteEntry("1", 0, 4), 0);
  expectAsAnew();
  ASSERT_EQ(request.deleteEntry("1", 0, 0), 0);
  expectAsAnew();
}

TEST_F(Pack, WhatFitsAnEntryFitsItsBlock) {
  for (const std::uint32_t entries : {0U, 9U, 10U, 21U, 100U}) {
    SCOPED_TRACE(entries);
    for (std::uint32_t i = count; i < entries; ++i) {
      const std::string name = add();
      const auto low = static_cast<std::uint8_t>(i);
      const Mac mask = i % 4 == 3 ? Mac{} : Mac{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
      ASSERT_EQ(request.addDestination(name, {1, 0x80, 0xc2, 0, 0, low}, mask), 0);
      ASSERT_EQ(request.addVlan(name, static_cast<std::uint16_t>(100 + i / 14),
                                static_cast<std::uint16_t>(100 + i / 14)),
                0);
    }
    ASSERT_EQ(packed(), 0);
    ASSERT_EQ(count, entries);
    for (std::uint32_t i = 0; i <= entries && i < L2CP_ENTRIES; ++i) {
      const l2cp_match& block = result.block[i / L2CP_BLOCK];
      for (int word = 0; word < 2; ++word) {
        EXPECT_EQ(block.mask[word] & ~result.match[i].mask[word], 0U) << i;
        EXPECT_EQ(block.value[word], result.match[i].value[word] & block.mask[word]) << i;
      }
    }
  }
}

TEST_F(Pack, ABlockHasTheVlanOfItsEntries) {
  for (std::uint32_t i = 0; i < L2CP_BLOCK; ++i) {
    const std::string name = add();
    ASSERT_EQ(request.addVlan(name, 7, 7), 0);
    ASSERT_EQ(request.addEtherType(name, static_cast<std::uint16_t>(0x8000 + i)), 0);
  }
  ASSERT_EQ(packed(), 0);
  const std::uint64_t has = L2CP_HAS_VLAN | L2CP_HAS_TYPE;
  EXPECT_EQ(result.block[0].mask[1], has | 0xffff);
  EXPECT_EQ(result.block[0].value[1], has | 7);
}

// Counters

class CounterPlaces : public testing::Test {
 protected:
  static constexpr std::size_t processors = 3;

  std::shared_ptr<l2cp_counters[]> values{new l2cp_counters[processors]{}};
  std::shared_ptr<Counters> counters =
      std::make_shared<Counters>(std::span(values.get(), processors), values);
};

TEST_F(CounterPlaces, AreOnePerCounterAndNeverTheFirst) {
  Counter first{classifier::Name("first")};
  Counter second{classifier::Name("second")};
  const auto place = counters->placeOf(first);
  EXPECT_EQ(counters->placeOf(first), place);
  EXPECT_NE(counters->placeOf(second), place);
  EXPECT_NE(place, 0U);
}

TEST_F(CounterPlaces, AreSummedOverTheProcessors) {
  Counter counter{classifier::Name("c")};
  counter.value = 5;
  const std::uint32_t place = *counters->placeOf(counter);
  values[0].value[place] = 1ULL << 40;
  values[1].value[place] = ~0ULL;
  values[2].value[place] = 2;
  EXPECT_EQ(counter.total(), (1ULL << 40) + 6);
}

TEST_F(CounterPlaces, EndAndBeginAgainAtZero) {
  std::vector<std::unique_ptr<Counter>> all;
  for (std::uint32_t i = 1; i < L2CP_COUNTERS; ++i) {
    all.push_back(std::make_unique<Counter>(classifier::Name("c")));
    ASSERT_TRUE(counters->placeOf(*all.back()));
  }
  Counter late{classifier::Name("late")};
  EXPECT_EQ(counters->placeOf(late), std::nullopt);

  const std::uint32_t place = *counters->placeOf(*all[77]);
  values[1].value[place] = 99;
  EXPECT_EQ(all[77]->total(), 99U);
  all[77].reset();
  EXPECT_EQ(counters->placeOf(late), place);
  EXPECT_EQ(late.total(), 0U);
}

TEST_F(CounterPlaces, OutliveWhoMadeThem) {
  Counter counter{classifier::Name("c")};
  const std::uint32_t place = *counters->placeOf(counter);
  values[0].value[place] = 3;
  counters.reset();
  values.reset();
  EXPECT_EQ(counter.total(), 3U);
}

}  // namespace
