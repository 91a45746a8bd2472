#include "classifier/matcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "classifier/table.h"
#include "platform/acl_ioctl.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Fate;
using classifier::Table;
using classifier::Verdict;
using support::Bytes;
using support::FrameBuilder;
using support::Mac;
using testing::ElementsAre;
using testing::Optional;

constexpr Mac lldp = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};
constexpr Mac slow = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x02};
constexpr Mac cdp = {0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc};
constexpr Mac station = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};

/// Port 1 with the entry under test, selector "s" and the action list "drop", at 200.
class Matcher : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(request.addSelector("s"), 0);
    for (const auto& [name, type] : {std::pair{"drop", ACL_ACTION_DROP},
                                     {"hide", ACL_ACTION_HIDE},
                                     {"tunnel", ACL_ACTION_NO_L2CP}}) {
      ASSERT_EQ(request.addActionList(name), 0);
      ASSERT_EQ(request.addAction(name, 0, type), 0);
    }
    ASSERT_EQ(request.addActionList("nothing"), 0);
    ASSERT_EQ(request.addEntry("1", 1, 200, "s", "drop"), 0);
  }

  Verdict classify(const FrameBuilder& frame) { return table.classify(1, frame.bytes()); }
  bool matches(const FrameBuilder& frame) { return classify(frame).fate == Fate::discard; }
  bool matches(const Bytes& frame) { return table.classify(1, frame).fate == Fate::discard; }

  /// The smallest cut of the frame that matches, after checking that every longer one does, too.
  std::size_t shortestMatch(const FrameBuilder& frame) {
    const Bytes& bytes = frame.bytes();
    std::size_t shortest = bytes.size() + 1;
    for (std::size_t size = bytes.size() + 1; size-- > 0;) {
      // A copy of exact size, for the address sanitizer to see reads beyond it.
      const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
      if (!matches(cut)) continue;
      EXPECT_EQ(shortest, size + 1);
      shortest = size;
    }
    return shortest;
  }

  static FrameBuilder frame(std::uint16_t etherType = 0x88cc) {
    return FrameBuilder().ethernet(lldp, station).etherType(etherType).payload({0x02, 0x07, 0x04});
  }
  static FrameBuilder tagged(std::uint16_t vlan, std::uint16_t protocol = 0x8100) {
    return FrameBuilder()
        .ethernet(lldp, station)
        .tag(protocol, vlan, 0xf)
        .etherType(0x88cc)
        .payload({0x02, 0x07, 0x04});
  }

  Table table;
  Requests request{table};
};

// Conditions

TEST_F(Matcher, SelectorWithoutConditionsHoldsForEveryFrame) {
  EXPECT_TRUE(matches(frame()));
  EXPECT_EQ(shortestMatch(frame()), 0U);
}

TEST_F(Matcher, AllConditionsMustHold) {
  ASSERT_EQ(request.addDestination("s", lldp), 0);
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  EXPECT_TRUE(matches(frame(0x88cc)));
  EXPECT_FALSE(matches(frame(0x88cd)));
  EXPECT_FALSE(matches(FrameBuilder().ethernet(slow, station).etherType(0x88cc)));
}

TEST_F(Matcher, DestinationIsComparedUnderItsMask) {
  ASSERT_EQ(request.addDestination("s", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0f},
                                   {0xff, 0xff, 0xff, 0xff, 0xff, 0xf0}),
            0);
  EXPECT_TRUE(matches(FrameBuilder().ethernet(lldp, station)));
  EXPECT_TRUE(matches(FrameBuilder().ethernet(slow, station)));
  EXPECT_FALSE(matches(FrameBuilder().ethernet({0x01, 0x80, 0xc2, 0, 0, 0x10}, station)));
  EXPECT_FALSE(matches(FrameBuilder().ethernet({0x01, 0x80, 0xc3, 0, 0, 0x0e}, station)));
}

TEST_F(Matcher, EveryByteOfTheDestinationCounts) {
  ASSERT_EQ(request.addDestination("s", lldp), 0);
  EXPECT_TRUE(matches(frame()));
  for (std::size_t byte = 0; byte < lldp.size(); ++byte) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      Mac other = lldp;
      other[byte] ^= static_cast<std::uint8_t>(1U << bit);
      EXPECT_FALSE(matches(FrameBuilder().ethernet(other, station))) << byte << ' ' << bit;
    }
  }
}

TEST_F(Matcher, DestinationUnderTheEmptyMaskStillNeedsADestination) {
  ASSERT_EQ(request.addDestination("s", lldp, {}), 0);
  EXPECT_TRUE(matches(FrameBuilder().ethernet(slow, station)));
  EXPECT_EQ(shortestMatch(frame()), 6U);
}

TEST_F(Matcher, SourceIsNotTheDestination) {
  ASSERT_EQ(request.addDestination("s", lldp), 0);
  EXPECT_FALSE(matches(FrameBuilder().ethernet(station, lldp).etherType(0x88cc)));
}

TEST_F(Matcher, VlanRangeIncludesBothEnds) {
  ASSERT_EQ(request.addVlan("s", 100, 102), 0);
  EXPECT_FALSE(matches(tagged(99)));
  EXPECT_TRUE(matches(tagged(100)));
  EXPECT_TRUE(matches(tagged(101)));
  EXPECT_TRUE(matches(tagged(102)));
  EXPECT_FALSE(matches(tagged(103)));
}

TEST_F(Matcher, VlanRangeOfOneIsThatVlan) {
  ASSERT_EQ(request.addVlan("s", 100, 100), 0);
  EXPECT_FALSE(matches(tagged(99)));
  EXPECT_TRUE(matches(tagged(100)));
  EXPECT_FALSE(matches(tagged(101)));
}

TEST_F(Matcher, UntaggedFrameSatisfiesNoOrdinaryVlanRange) {
  ASSERT_EQ(request.addVlan("s", 0, 4095), 0);
  EXPECT_FALSE(matches(frame()));
  EXPECT_TRUE(matches(tagged(0)));
  EXPECT_TRUE(matches(tagged(4095)));
}

TEST_F(Matcher, VlanZeroIsNotUntagged) {
  ASSERT_EQ(request.addVlan("s", 0, 0), 0);
  EXPECT_FALSE(matches(frame()));
  EXPECT_TRUE(matches(tagged(0)));
}

TEST_F(Matcher, VlanRange4095HoldsForEveryFrame) {
  ASSERT_EQ(request.addVlan("s", 4095, 4095), 0);
  EXPECT_TRUE(matches(frame()));
  EXPECT_TRUE(matches(tagged(1)));
  EXPECT_TRUE(matches(tagged(4095)));
  EXPECT_EQ(shortestMatch(tagged(1)), 0U);
}

TEST_F(Matcher, VlanRangeThatOnlyEndsAt4095IsOrdinary) {
  ASSERT_EQ(request.addVlan("s", 4094, 4095), 0);
  EXPECT_FALSE(matches(frame()));
  EXPECT_FALSE(matches(tagged(4093)));
  EXPECT_TRUE(matches(tagged(4094)));
}

TEST_F(Matcher, BothTagProtocolsCarryVlans) {
  ASSERT_EQ(request.addVlan("s", 100, 100), 0);
  EXPECT_TRUE(matches(tagged(100, 0x8100)));
  EXPECT_TRUE(matches(tagged(100, 0x88a8)));
  EXPECT_FALSE(matches(tagged(100, 0x9100)));
}

TEST_F(Matcher, TheOuterTagDecidesTheVlan) {
  ASSERT_EQ(request.addVlan("s", 100, 100), 0);
  const auto doubleTagged = [](std::uint16_t outer, std::uint16_t inner) {
    return FrameBuilder()
        .ethernet(lldp, station)
        .tag(0x88a8, outer)
        .tag(0x8100, inner)
        .etherType(0x88cc);
  };
  EXPECT_TRUE(matches(doubleTagged(100, 200)));
  EXPECT_FALSE(matches(doubleTagged(200, 100)));
}

TEST_F(Matcher, EtherTypeIsBehindAllTags) {
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  FrameBuilder tags = FrameBuilder().ethernet(lldp, station);
  for (std::size_t count = 0; count <= classifier::maxTags; ++count) {
    EXPECT_TRUE(matches(FrameBuilder(tags).etherType(0x88cc))) << count;
    tags.tag(count % 2 == 0 ? 0x8100 : 0x88a8, 1);
  }
}

TEST_F(Matcher, WhatFollowsTheLastTagSteppedOverIsTheTypeField) {
  ASSERT_EQ(request.addEtherType("s", 0x8100), 0);
  ASSERT_EQ(request.addPayload("s", 2, 0xff, 0x88), 0);
  FrameBuilder tags = FrameBuilder().ethernet(lldp, station);
  for (std::size_t count = 0; count < classifier::maxTags; ++count) tags.tag(0x8100, 1);
  EXPECT_FALSE(matches(FrameBuilder(tags).etherType(0x88cc).payload({0, 0, 0x88})));
  EXPECT_TRUE(matches(FrameBuilder(tags).tag(0x8100, 1).etherType(0x88cc)));
}

TEST_F(Matcher, ATagProtocolIsNoEtherType) {
  ASSERT_EQ(request.addEtherType("s", 0x8100), 0);
  EXPECT_FALSE(matches(tagged(100)));
  EXPECT_FALSE(matches(FrameBuilder().ethernet(lldp, station).etherType(0x8100)));
}

TEST_F(Matcher, LengthIsNoEtherType) {
  ASSERT_EQ(request.addEtherType("s", 0x05ff), 0);
  EXPECT_FALSE(matches(frame(0x05ff)));
}

TEST_F(Matcher, EtherTypesBeginAt0600) {
  ASSERT_EQ(request.addEtherType("s", 0x0600), 0);
  EXPECT_TRUE(matches(frame(0x0600)));
}

TEST_F(Matcher, SnapProtocolIdIsTheEtherType) {
  ASSERT_EQ(request.addDestination("s", cdp), 0);
  ASSERT_EQ(request.addEtherType("s", 0x2000), 0);
  const auto snap = [](std::uint16_t protocol) {
    return FrameBuilder().ethernet(cdp, station).length(100).snap({0, 0, 0x0c}, protocol);
  };
  EXPECT_TRUE(matches(snap(0x2000)));
  EXPECT_FALSE(matches(snap(0x2004)));
  EXPECT_TRUE(matches(FrameBuilder().ethernet(cdp, station).etherType(0x2000)));
}

TEST_F(Matcher, SnapProtocolIdMayBeSmallerThanAnyEtherType) {
  ASSERT_EQ(request.addEtherType("s", 0x0111), 0);
  EXPECT_TRUE(matches(FrameBuilder().ethernet(cdp, station).length(8).snap({0, 0, 0x0c}, 0x0111)));
  EXPECT_FALSE(matches(FrameBuilder().ethernet(cdp, station).length(0x0111).llc(1, 2, 3)));
}

TEST_F(Matcher, SnapOfAnyOrganisationCounts) {
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  EXPECT_TRUE(matches(FrameBuilder().ethernet(lldp, station).length(8).snap({0, 0, 0}, 0x88cc)));
  EXPECT_TRUE(matches(FrameBuilder().ethernet(lldp, station).length(8).snap({1, 2, 3}, 0x88cc)));
}

TEST_F(Matcher, SnapBehindTagsIsFound) {
  ASSERT_EQ(request.addEtherType("s", 0x2000), 0);
  EXPECT_TRUE(matches(
      FrameBuilder().ethernet(cdp, station).tag(0x8100, 5).length(8).snap({0, 0, 0x0c}, 0x2000)));
}

TEST_F(Matcher, SnapBehindAnEtherTypeIsPayload) {
  ASSERT_EQ(request.addEtherType("s", 0x2000), 0);
  EXPECT_FALSE(
      matches(FrameBuilder().ethernet(cdp, station).etherType(0x0600).snap({0, 0, 12}, 0x2000)));
}

TEST_F(Matcher, OnlyTheWholeSnapHeaderMakesAnEtherType) {
  ASSERT_EQ(request.addEtherType("s", 0x2000), 0);
  const FrameBuilder whole =
      FrameBuilder().ethernet(cdp, station).length(8).snap({0, 0, 0x0c}, 0x2000);
  EXPECT_TRUE(matches(whole));
  for (const std::size_t byte : {14U, 15U, 16U}) {
    Bytes other = whole.bytes();
    other[byte] ^= 0x01;
    EXPECT_FALSE(matches(other)) << byte;
  }
}

TEST_F(Matcher, OtherLlcFramesHaveNoEtherType) {
  ASSERT_EQ(request.addEtherType("s", 0x4242), 0);
  EXPECT_FALSE(matches(FrameBuilder().ethernet(lldp, station).length(38).llc(0x42, 0x42, 0x03)));
}

TEST_F(Matcher, PayloadByteIsComparedUnderItsMask) {
  ASSERT_EQ(request.addPayload("s", 0, 0xf0, 0x5f), 0);
  const auto withByte = [](std::uint8_t byte) {
    return FrameBuilder().ethernet(slow, station).etherType(0x8809).payload({byte});
  };
  EXPECT_TRUE(matches(withByte(0x50)));
  EXPECT_TRUE(matches(withByte(0x5a)));
  EXPECT_FALSE(matches(withByte(0x40)));
}

TEST_F(Matcher, PayloadOffsetCountsBehindTheEtherType) {
  ASSERT_EQ(request.addPayload("s", 2, 0xff, 0x04), 0);
  EXPECT_TRUE(matches(frame()));
  EXPECT_TRUE(matches(tagged(1)));
  EXPECT_FALSE(matches(frame().cutTo(16)));
}

TEST_F(Matcher, PayloadOffsetCountsBehindTheSnapProtocolId) {
  ASSERT_EQ(request.addPayload("s", 1, 0xff, 0x77), 0);
  EXPECT_TRUE(matches(FrameBuilder()
                          .ethernet(cdp, station)
                          .length(10)
                          .snap({0, 0, 0x0c}, 0x2000)
                          .payload({0x66, 0x77})));
}

TEST_F(Matcher, PayloadOffsetCountsBehindTheLengthOfOtherLlcFrames) {
  ASSERT_EQ(request.addPayload("s", 2, 0xff, 0x03), 0);
  EXPECT_TRUE(matches(FrameBuilder().ethernet(lldp, station).length(38).llc(0x42, 0x42, 0x03)));
}

TEST_F(Matcher, PayloadOffsetsThatNoFrameReachesAreNotSatisfied) {
  ASSERT_EQ(request.addPayload("s", 0xffffffff, 0x00, 0x00), 0);
  EXPECT_FALSE(matches(frame().padTo(1514)));
}

TEST_F(Matcher, PayloadUnderTheEmptyMaskStillNeedsTheByte) {
  ASSERT_EQ(request.addPayload("s", 0, 0x00, 0xff), 0);
  EXPECT_EQ(shortestMatch(frame()), 15U);
}

TEST_F(Matcher, FrameTooShortForTheByteDoesNotSatisfyTheCondition) {
  ASSERT_EQ(request.addPayload("s", 2, 0xff, 0x04), 0);
  EXPECT_EQ(shortestMatch(frame()), 17U);
  EXPECT_EQ(shortestMatch(tagged(1)), 21U);
}

TEST_F(Matcher, FrameTooShortForTheDestinationDoesNotSatisfyTheCondition) {
  ASSERT_EQ(request.addDestination("s", lldp), 0);
  EXPECT_EQ(shortestMatch(frame()), 6U);
}

TEST_F(Matcher, FrameTooShortForTheEtherTypeDoesNotSatisfyTheCondition) {
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  EXPECT_EQ(shortestMatch(frame()), 14U);
  EXPECT_EQ(shortestMatch(tagged(1)), 18U);
}

TEST_F(Matcher, FrameTooShortForTheTagDoesNotSatisfyTheCondition) {
  ASSERT_EQ(request.addVlan("s", 0, 4095), 0);
  EXPECT_EQ(shortestMatch(tagged(1)), 16U);
}

TEST_F(Matcher, FrameTooShortForTheProtocolIdDoesNotSatisfyTheCondition) {
  ASSERT_EQ(request.addEtherType("s", 0x2000), 0);
  EXPECT_EQ(shortestMatch(FrameBuilder().ethernet(cdp, station).length(8).snap({0, 0, 12}, 0x2000)),
            22U);
}

TEST_F(Matcher, SeveralConditionsOfOneTypeMustAllHold) {
  ASSERT_EQ(request.addDestination("s", {0x01}, {0xff}), 0);
  ASSERT_EQ(request.addDestination("s", {0, 0, 0, 0, 0, 0x0e}, {0, 0, 0, 0, 0, 0x0f}), 0);
  ASSERT_EQ(request.addPayload("s", 0, 0xff, 0x02), 0);
  ASSERT_EQ(request.addPayload("s", 1, 0xff, 0x07), 0);
  EXPECT_TRUE(matches(frame()));
  EXPECT_FALSE(matches(FrameBuilder().ethernet(slow, station).etherType(0x88cc).payload({2, 7})));
  EXPECT_FALSE(matches(FrameBuilder().ethernet(lldp, station).etherType(0x88cc).payload({2, 6})));
}

TEST_F(Matcher, ConditionsThatContradictEachOtherNeverHold) {
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  ASSERT_EQ(request.addEtherType("s", 0x88cd), 0);
  EXPECT_FALSE(matches(frame(0x88cc)));
  EXPECT_FALSE(matches(frame(0x88cd)));
}

TEST_F(Matcher, RepeatedConditionsChangeNothing) {
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  EXPECT_TRUE(matches(frame(0x88cc)));
}

TEST_F(Matcher, VlanRangesOfOneSelectorMustAllHold) {
  ASSERT_EQ(request.addVlan("s", 100, 200), 0);
  ASSERT_EQ(request.addVlan("s", 150, 250), 0);
  EXPECT_FALSE(matches(tagged(149)));
  EXPECT_TRUE(matches(tagged(150)));
  EXPECT_TRUE(matches(tagged(200)));
  EXPECT_FALSE(matches(tagged(201)));
}

// The entry met

TEST_F(Matcher, PortWithoutEntriesLeavesFramesUntouched) {
  const Verdict verdict = table.classify(2, frame().bytes());
  EXPECT_EQ(verdict.fate, Fate::untouched);
  EXPECT_EQ(verdict.entry, nullptr);
}

TEST_F(Matcher, FrameThatMeetsNoEntryIsUntouched) {
  ASSERT_EQ(request.addEtherType("s", 0x0800), 0);
  const Verdict verdict = classify(frame());
  EXPECT_EQ(verdict.fate, Fate::untouched);
  EXPECT_EQ(verdict.entry, nullptr);
}

TEST_F(Matcher, VerdictNamesTheEntryMet) {
  const Verdict verdict = classify(frame());
  ASSERT_TRUE(verdict.entry);
  EXPECT_EQ(verdict.entry->kind, 1U);
  EXPECT_EQ(verdict.entry->index, 200U);
  EXPECT_EQ(verdict.entry->selector.view(), "s");
  EXPECT_EQ(verdict.entry->actionList.view(), "drop");
}

TEST_F(Matcher, EntryOfTheLowestIndexIsMet) {
  ASSERT_EQ(request.addEntry("1", 1, 201, "s", "hide"), 0);
  EXPECT_EQ(classify(frame()).entry->index, 200U);
  ASSERT_EQ(request.addEntry("1", 1, 0, "s", "tunnel"), 0);
  EXPECT_EQ(classify(frame()).entry->index, 0U);
}

TEST_F(Matcher, IndexComesBeforeKind) {
  ASSERT_EQ(request.addEntry("1", 0, 201, "s", "hide"), 0);
  EXPECT_EQ(classify(frame()).entry->index, 200U);
  ASSERT_EQ(request.addEntry("1", 7, 199, "s", "hide"), 0);
  EXPECT_EQ(classify(frame()).entry->index, 199U);
}

TEST_F(Matcher, OfEqualIndicesTheLowestKindIsMet) {
  ASSERT_EQ(request.addEntry("1", 2, 200, "s", "hide"), 0);
  EXPECT_EQ(classify(frame()).entry->kind, 1U);
  ASSERT_EQ(request.addEntry("1", 0, 200, "s", "hide"), 0);
  EXPECT_EQ(classify(frame()).entry->kind, 0U);
}

TEST_F(Matcher, EntriesThatDoNotHoldAreSteppedOver) {
  ASSERT_EQ(request.addEtherType("s", 0x0800), 0);
  ASSERT_EQ(request.addSelector("t"), 0);
  ASSERT_EQ(request.addEtherType("t", 0x88cc), 0);
  ASSERT_EQ(request.addEntry("1", 1, 201, "t", "hide"), 0);
  ASSERT_EQ(request.addEntry("1", 1, 299, "true", "hide"), 0);
  EXPECT_EQ(classify(frame()).entry->index, 201U);
  EXPECT_EQ(classify(frame(0x86dd)).entry->index, 299U);
}

TEST_F(Matcher, SearchEndsAtTheFirstEntryEvenWhenItsActionsSetNoFate) {
  ASSERT_EQ(request.addEntry("1", 1, 100, "s", "nothing"), 0);
  const Verdict verdict = classify(frame());
  EXPECT_EQ(verdict.fate, Fate::untouched);
  EXPECT_EQ(verdict.entry->index, 100U);
}

TEST_F(Matcher, SimilarEntriesWithDifferentRestsAreTriedInOrder) {
  ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
  for (std::uint16_t i = 0; i < 50; ++i) {
    const std::string name = "vlans " + std::to_string(i);
    ASSERT_EQ(request.addSelector(name), 0);
    ASSERT_EQ(request.addDestination(name, lldp), 0);
    ASSERT_EQ(request.addVlan(name, static_cast<std::uint16_t>(10 * i),
                              static_cast<std::uint16_t>(10 * i + 14)),
              0);
    ASSERT_EQ(request.addEntry("1", 1, i, name, "drop"), 0);
  }
  EXPECT_EQ(classify(tagged(0)).entry->index, 0U);
  EXPECT_EQ(classify(tagged(14)).entry->index, 0U);
  EXPECT_EQ(classify(tagged(15)).entry->index, 1U);
  EXPECT_EQ(classify(tagged(499)).entry->index, 49U);
  EXPECT_EQ(classify(tagged(505)).entry, nullptr);
}

// Fates

TEST_F(Matcher, EachActionHasItsFate) {
  ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
  for (const auto& [list, fate] : {std::pair{"drop", Fate::discard},
                                   {"hide", Fate::peer},
                                   {"tunnel", Fate::tunnel},
                                   {"nothing", Fate::untouched}}) {
    ASSERT_EQ(request.addEntry("1", 1, 200, "s", list), 0);
    EXPECT_EQ(classify(frame()).fate, fate) << list;
    ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
  }
}

TEST_F(Matcher, DropComesBeforeNoL2cpBeforeHideWhateverTheirOrder) {
  ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
  std::vector<std::uint32_t> types = {ACL_ACTION_DROP, ACL_ACTION_HIDE, ACL_ACTION_NO_L2CP};
  do {
    for (std::size_t count = 1; count <= types.size(); ++count) {
      ASSERT_EQ(request.addActionList("list"), 0);
      for (std::uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(request.addAction("list", i, types[i]), 0);
      }
      ASSERT_EQ(request.addEntry("1", 1, 200, "s", "list"), 0);
      const auto has = [&](std::uint32_t type) {
        return std::find(types.begin(), types.begin() + static_cast<std::ptrdiff_t>(count), type) !=
               types.begin() + static_cast<std::ptrdiff_t>(count);
      };
      const Fate expected = has(ACL_ACTION_DROP)      ? Fate::discard
                            : has(ACL_ACTION_NO_L2CP) ? Fate::tunnel
                                                      : Fate::peer;
      EXPECT_EQ(classify(frame()).fate, expected);
      ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
      ASSERT_EQ(request.deleteActionList("list"), 0);
    }
  } while (std::next_permutation(types.begin(), types.end()));
}

TEST_F(Matcher, HideOfTheCatchAllLeavesTheFrameUntouched) {
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  ASSERT_EQ(request.addEntry("1", 1, 299, "true", "hide"), 0);
  const Verdict verdict = classify(frame(0x0800));
  EXPECT_EQ(verdict.fate, Fate::untouched);
  EXPECT_EQ(verdict.entry->index, 299U);
  EXPECT_EQ(classify(frame(0x88cc)).fate, Fate::discard);
}

TEST_F(Matcher, CatchAllSteppedInFrontHidesNothing) {
  ASSERT_EQ(request.addEntry("1", 1, 100, "true", "hide"), 0);
  EXPECT_EQ(classify(frame()).fate, Fate::untouched);
}

TEST_F(Matcher, OtherSelectorsWithoutConditionsAreNoCatchAll) {
  ASSERT_EQ(request.addEntry("1", 1, 100, "s", "hide"), 0);
  EXPECT_EQ(classify(frame()).fate, Fate::peer);
}

TEST_F(Matcher, CatchAllCountsAndDropsLikeAnyEntry) {
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange("drop", 1, "c"), 0);
  ASSERT_EQ(request.addEntry("1", 1, 100, "true", "drop"), 0);
  EXPECT_EQ(classify(frame()).fate, Fate::discard);
  EXPECT_THAT(request.counter("c"), Optional(1));
}

TEST(FateText, IsTheNameOfTheFate) {
  EXPECT_STREQ(text(Fate::untouched), "untouched");
  EXPECT_STREQ(text(Fate::discard), "discard");
  EXPECT_STREQ(text(Fate::peer), "peer");
  EXPECT_STREQ(text(Fate::tunnel), "tunnel");
}

// Counters

TEST_F(Matcher, CountersChangeInTheOrderOfTheActions) {
  for (const char* name : {"port", "vlan", "profile"}) ASSERT_EQ(request.addCounter(name), 0);
  ASSERT_EQ(request.addCounterChange("drop", 9, "profile", -1), 0);
  ASSERT_EQ(request.addCounterChange("drop", 3, "port", 1), 0);
  ASSERT_EQ(request.addCounterChange("drop", 4, "vlan", 10), 0);
  const Verdict verdict = classify(frame());
  std::vector<std::pair<std::string_view, int>> changes;
  for (const auto& change : verdict.entry->counterChanges) {
    changes.emplace_back(change.counter->name.view(), change.increment);
  }
  EXPECT_THAT(changes,
              ElementsAre(std::pair{"port", 1}, std::pair{"vlan", 10}, std::pair{"profile", -1}));
}

TEST_F(Matcher, CountersWrapAt64Bits) {
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange("drop", 1, "c", -1), 0);
  classify(frame());
  EXPECT_THAT(request.counter("c"), Optional(UINT64_MAX));
  ASSERT_EQ(request.addCounterChange("drop", 2, "c", 3), 0);
  classify(frame());
  EXPECT_THAT(request.counter("c"), Optional(1));
}

TEST_F(Matcher, CountersExceed32Bits) {
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange("drop", 1, "c", INT32_MAX), 0);
  for (int i = 0; i < 3; ++i) classify(frame());
  EXPECT_THAT(request.counter("c"), Optional(std::uint64_t{3} * INT32_MAX));
}

TEST_F(Matcher, OneCounterMayChangeTwice) {
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange("drop", 1, "c", 2), 0);
  ASSERT_EQ(request.addCounterChange("drop", 2, "c", 3), 0);
  classify(frame());
  EXPECT_THAT(request.counter("c"), Optional(5));
}

TEST_F(Matcher, FramesThatMeetAnotherEntryDoNotCount) {
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange("drop", 1, "c"), 0);
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  classify(frame(0x0800));
  table.classify(2, frame().bytes());
  EXPECT_THAT(request.counter("c"), Optional(0));
}

TEST_F(Matcher, EntriesOfManyPortsShareACounter) {
  ASSERT_EQ(request.addCounter("c"), 0);
  ASSERT_EQ(request.addCounterChange("drop", 1, "c"), 0);
  ASSERT_EQ(request.addEntry("2", 1, 200, "s", "drop"), 0);
  classify(frame());
  table.classify(2, frame().bytes());
  EXPECT_THAT(request.counter("c"), Optional(2));
}

}  // namespace
