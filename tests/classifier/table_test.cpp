#include "classifier/table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/acl_ioctl.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Fate;
using classifier::Table;
using support::FrameBuilder;
using testing::Optional;

const std::string longestName(ACL_NAME_SIZE - 1, 'n');
const std::string unendingName(ACL_NAME_SIZE, 'n');

constexpr std::uint32_t everyRequest[] = {
    ACL_ADD_SELECTOR,    ACL_DEL_SELECTOR, ACL_ADD_CONDITION,  ACL_ADD_ACTION_LIST,
    ACL_DEL_ACTION_LIST, ACL_ADD_ACTION,   ACL_ADD_PORT_ENTRY, ACL_DEL_PORT_ENTRY,
    ACL_GET_PORT_ENTRY,  ACL_ADD_COUNTER,  ACL_DEL_COUNTER,    ACL_GET_COUNTER,
};

class Request : public testing::Test {
 protected:
  /// A table with the selector "s", the action list "a" and the counter "c".
  void SetUp() override {
    ASSERT_EQ(request.addSelector("s"), 0);
    ASSERT_EQ(request.addActionList("a"), 0);
    ASSERT_EQ(request.addCounter("c"), 0);
  }

  Fate fate(std::uint32_t port = 1) { return table.classify(port, frame).fate; }

  Table table;
  Requests request{table};
  const support::Bytes frame =
      FrameBuilder().ethernet({1, 2, 3, 4, 5, 6}, {2}).etherType(0x88cc).payload({7}).bytes();
};

TEST_F(Request, WithoutARecordIsEFAULT) {
  for (const std::uint32_t code : everyRequest) EXPECT_EQ(table.request(code, nullptr), -EFAULT);
}

TEST_F(Request, UnknownOnesAreENOTTY) {
  acl_ioctl_selector record = Requests::selector("new");
  EXPECT_EQ(table.request(_IOW('z', 1, __u32), &record), -ENOTTY);
  EXPECT_EQ(table.request(_IOR('z', 3, __u32), &record), -ENOTTY);
  EXPECT_EQ(table.request(0, nullptr), -ENOTTY);
}

// Selectors

TEST_F(Request, AddingASelectorThatExistsIsEEXIST) { EXPECT_EQ(request.addSelector("s"), -EEXIST); }

TEST_F(Request, DeletingAMissingSelectorIsENOENT) {
  EXPECT_EQ(request.deleteSelector("missing"), -ENOENT);
  EXPECT_EQ(request.deleteSelector(""), -ENOENT);
  EXPECT_EQ(request.deleteSelector("s"), 0);
  EXPECT_EQ(request.deleteSelector("s"), -ENOENT);
}

TEST_F(Request, SelectorNamesMustEndInTheirField) {
  EXPECT_EQ(request.addSelector(longestName), 0);
  EXPECT_EQ(request.addSelector(unendingName), -EINVAL);
  EXPECT_EQ(request.deleteSelector(unendingName), -EINVAL);
  EXPECT_EQ(request.addEtherType(unendingName, 0x88cc), -EINVAL);
  EXPECT_EQ(request.deleteSelector(longestName), 0);
}

TEST_F(Request, ASelectorNeedsAName) { EXPECT_EQ(request.addSelector(""), -EINVAL); }

TEST_F(Request, NamesDifferInEveryByte) {
  EXPECT_EQ(request.addSelector("S"), 0);
  EXPECT_EQ(request.addSelector("s "), 0);
  EXPECT_EQ(request.addSelector("\xff"), 0);
}

TEST_F(Request, ClassesOfObjectsDoNotShareNames) {
  EXPECT_EQ(request.addActionList("s"), 0);
  EXPECT_EQ(request.addCounter("s"), 0);
}

TEST_F(Request, WhatStandsBehindTheNulOfANameIsIgnored) {
  acl_ioctl_selector record = Requests::selector("s");
  record.name[5] = 'x';
  EXPECT_EQ(table.request(ACL_ADD_SELECTOR, &record), -EEXIST);
}

TEST_F(Request, ConditionCountIsTheCallersOwn) {
  acl_ioctl_selector record = Requests::selector("s", ACL_CONDITION_ETHER_TYPE);
  record.conditionCount = 4000;
  EXPECT_EQ(table.request(ACL_ADD_CONDITION, &record), 0);
}

TEST_F(Request, AddingAConditionToAMissingSelectorIsENOENT) {
  EXPECT_EQ(request.addVlan("missing", 1, 1), -ENOENT);
  EXPECT_EQ(request.addDestination("missing", {}), -ENOENT);
  EXPECT_EQ(request.addEtherType("missing", 0x88cc), -ENOENT);
  EXPECT_EQ(request.addPayload("missing", 0, 0xff, 1), -ENOENT);
}

TEST_F(Request, UnknownConditionTypesAreEINVAL) {
  for (const std::uint32_t type : {0U, 1U, 3U, 7U, 10U, 12U, 0xffffffffU}) {
    EXPECT_EQ(request.send(ACL_ADD_CONDITION, Requests::selector("s", type)), -EINVAL) << type;
  }
}

TEST_F(Request, VlanRangesMustAscendWithin4095) {
  EXPECT_EQ(request.addVlan("s", 2, 1), -EINVAL);
  EXPECT_EQ(request.addVlan("s", 0, 4096), -EINVAL);
  EXPECT_EQ(request.addVlan("s", 4096, 4096), -EINVAL);
  EXPECT_EQ(request.addVlan("s", 0xffff, 0xffff), -EINVAL);
  EXPECT_EQ(request.addVlan("s", 0, 4095), 0);
  EXPECT_EQ(request.addVlan("s", 4095, 4095), 0);
  EXPECT_EQ(request.addVlan("s", 7, 7), 0);
}

TEST_F(Request, PayloadConditionsAreOneByteLong) {
  EXPECT_EQ(request.addPayload("s", 0, 0xff, 1, 0), -EINVAL);
  EXPECT_EQ(request.addPayload("s", 0, 0xff, 1, 2), -EINVAL);
  EXPECT_EQ(request.addPayload("s", 0xffffffff, 0xff, 1, 1), 0);
}

TEST_F(Request, PayloadWithoutMaskOrValueIsEFAULT) {
  const std::uint8_t byte = 1;
  const auto address = reinterpret_cast<std::uintptr_t>(&byte);
  acl_ioctl_selector record = Requests::selector("s", ACL_CONDITION_PAYLOAD);
  record.conditionData.payload = {.offset = 0, .length = 1, .mask = 0, .value = address};
  EXPECT_EQ(request.send(ACL_ADD_CONDITION, record), -EFAULT);
  record.conditionData.payload = {.offset = 0, .length = 1, .mask = address, .value = 0};
  EXPECT_EQ(request.send(ACL_ADD_CONDITION, record), -EFAULT);
}

TEST_F(Request, PayloadMaskAndValueAreReadDuringTheRequest) {
  std::uint8_t mask = 0xff;
  std::uint8_t value = 7;
  acl_ioctl_selector record = Requests::selector("s", ACL_CONDITION_PAYLOAD);
  record.conditionData.payload = {.offset = 0,
                                  .length = 1,
                                  .mask = reinterpret_cast<std::uintptr_t>(&mask),
                                  .value = reinterpret_cast<std::uintptr_t>(&value)};
  ASSERT_EQ(table.request(ACL_ADD_CONDITION, &record), 0);
  value = 8;
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(fate(), Fate::discard);
}

TEST_F(Request, AConditionTooManyIsENOSPC) {
  for (std::size_t i = 0; i < Table::maxConditions; ++i) {
    ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  }
  EXPECT_EQ(request.addEtherType("s", 0x88cc), -ENOSPC);
}

TEST_F(Request, TheSelectorTrueIsBuiltIn) {
  EXPECT_EQ(request.addEntry("1", 1, 200, "true", "a"), 0);
  EXPECT_EQ(request.addSelector("true"), -EEXIST);
}

TEST_F(Request, TheSelectorTrueCannotBeChanged) {
  EXPECT_EQ(request.deleteSelector("true"), -EINVAL);
  EXPECT_EQ(request.addEtherType("true", 0x88cc), -EINVAL);
}

TEST_F(Request, OnlyTheNameTrueIsBuiltIn) {
  EXPECT_EQ(request.addEntry("1", 1, 200, "true", "drop"), -ENOENT);
  EXPECT_EQ(request.addActionList("true"), 0);
  EXPECT_EQ(request.addCounter("true"), 0);
  EXPECT_EQ(request.addActionList("drop"), 0);
}

// Action lists

TEST_F(Request, AddingAnActionListThatExistsIsEEXIST) {
  EXPECT_EQ(request.addActionList("a"), -EEXIST);
}

TEST_F(Request, DeletingAMissingActionListIsENOENT) {
  EXPECT_EQ(request.deleteActionList("missing"), -ENOENT);
  EXPECT_EQ(request.deleteActionList("a"), 0);
  EXPECT_EQ(request.deleteActionList("a"), -ENOENT);
}

TEST_F(Request, ActionListNamesMustEndInTheirField) {
  EXPECT_EQ(request.addActionList(longestName), 0);
  EXPECT_EQ(request.addActionList(unendingName), -EINVAL);
  EXPECT_EQ(request.deleteActionList(unendingName), -EINVAL);
  EXPECT_EQ(request.addAction(unendingName, 0, ACL_ACTION_DROP), -EINVAL);
}

TEST_F(Request, AnActionListNeedsAName) { EXPECT_EQ(request.addActionList(""), -EINVAL); }

TEST_F(Request, AddingAnActionToAMissingListIsENOENT) {
  EXPECT_EQ(request.addAction("missing", 0, ACL_ACTION_DROP), -ENOENT);
}

TEST_F(Request, UnknownActionTypesAreEINVAL) {
  for (const std::uint32_t type : {1U, 9U, 11U, 23U, 25U, 27U, 29U, 0xffffffffU}) {
    EXPECT_EQ(request.addAction("a", 0, type), -EINVAL) << type;
  }
}

TEST_F(Request, AnActionIndexTwiceInOneListIsEEXIST) {
  EXPECT_EQ(request.addAction("a", 5, ACL_ACTION_DROP), 0);
  EXPECT_EQ(request.addAction("a", 5, ACL_ACTION_DROP), -EEXIST);
  EXPECT_EQ(request.addAction("a", 5, ACL_ACTION_HIDE), -EEXIST);
  EXPECT_EQ(request.addActionList("b"), 0);
  EXPECT_EQ(request.addAction("b", 5, ACL_ACTION_DROP), 0);
}

TEST_F(Request, OneTypeOfActionMayStandTwiceInAList) {
  EXPECT_EQ(request.addAction("a", 0, ACL_ACTION_NO_L2CP), 0);
  EXPECT_EQ(request.addAction("a", 1, ACL_ACTION_NO_L2CP), 0);
}

TEST_F(Request, AChangeOfAMissingCounterIsENOENT) {
  EXPECT_EQ(request.addCounterChange("a", 0, "missing"), -ENOENT);
  EXPECT_EQ(request.addCounterChange("a", 0, ""), -ENOENT);
}

TEST_F(Request, TheCounterOfAChangeMustEndInItsField) {
  EXPECT_EQ(request.addCounterChange("a", 0, unendingName), -EINVAL);
}

TEST_F(Request, OtherActionsDoNotLookAtTheCounter) {
  acl_ioctl_action record = Requests::action("a");
  record.type = ACL_ACTION_DROP;
  Requests::fill(record.counter, unendingName);
  EXPECT_EQ(request.send(ACL_ADD_ACTION, record), 0);
}

TEST_F(Request, AnActionTooManyIsENOSPC) {
  for (std::uint32_t i = 0; i < Table::maxActions; ++i) {
    ASSERT_EQ(request.addAction("a", i, ACL_ACTION_HIDE), 0);
  }
  EXPECT_EQ(request.addAction("a", Table::maxActions, ACL_ACTION_HIDE), -ENOSPC);
  EXPECT_EQ(request.addAction("a", 0, ACL_ACTION_HIDE), -EEXIST);
}

// Counters

TEST_F(Request, AddingACounterThatExistsIsEEXIST) { EXPECT_EQ(request.addCounter("c"), -EEXIST); }

TEST_F(Request, MissingCountersAreENOENT) {
  EXPECT_EQ(request.deleteCounter("missing"), -ENOENT);
  EXPECT_EQ(request.send(ACL_GET_COUNTER, Requests::counterRecord("missing")), -ENOENT);
  EXPECT_EQ(request.deleteCounter("c"), 0);
  EXPECT_EQ(request.deleteCounter("c"), -ENOENT);
}

TEST_F(Request, CounterNamesMustEndInTheirField) {
  EXPECT_EQ(request.addCounter(longestName), 0);
  EXPECT_EQ(request.addCounter(unendingName), -EINVAL);
  EXPECT_EQ(request.deleteCounter(unendingName), -EINVAL);
  EXPECT_EQ(request.send(ACL_GET_COUNTER, Requests::counterRecord(unendingName)), -EINVAL);
}

TEST_F(Request, ACounterNeedsAName) { EXPECT_EQ(request.addCounter(""), -EINVAL); }

TEST_F(Request, ReadingACounterWritesItsValueBehindTheName) {
  ASSERT_EQ(request.addCounterChange("a", 0, "c", 0x01020304), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  fate();

  acl_ioctl_counter record = Requests::counterRecord("c");
  std::memset(&record.value, 0xff, sizeof record.value + sizeof record.reserved);
  ASSERT_EQ(table.request(ACL_GET_COUNTER, &record), 0);
  std::array<unsigned char, sizeof record> expected{};
  expected[0] = 'c';
  const std::uint64_t value = 0x01020304;
  std::memcpy(&expected[40], &value, sizeof value);
  std::memset(&expected[48], 0xff, 8);
  EXPECT_EQ(std::memcmp(&record, expected.data(), sizeof record), 0);
}

TEST_F(Request, ACounterStartsAtZero) { EXPECT_THAT(request.counter("c"), Optional(0)); }

// Port entries

TEST_F(Request, AnEntryNeedsItsSelectorAndItsActionList) {
  EXPECT_EQ(request.addEntry("1", 1, 200, "missing", "a"), -ENOENT);
  EXPECT_EQ(request.addEntry("1", 1, 200, "s", "missing"), -ENOENT);
  EXPECT_EQ(request.addEntry("1", 1, 200, "", ""), -ENOENT);
  EXPECT_EQ(request.getEntry("1", 1, 200), -ENOENT);
}

TEST_F(Request, AnEntryPositionIsTakenOnce) {
  EXPECT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("1", 1, 200, "s", "a"), -EEXIST);
  EXPECT_EQ(request.addEntry("1", 1, 200, "true", "a"), -EEXIST);
}

TEST_F(Request, PositionsDifferByPortKindAndIndex) {
  EXPECT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("2", 1, 200, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("1", 0, 200, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("1", 1, 201, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("1", 0xffffffff, 0xffffffff, "s", "a"), 0);
  EXPECT_EQ(request.getEntry("1", 0, 201), -ENOENT);
  EXPECT_EQ(request.deleteEntry("1", 0, 200), 0);
  EXPECT_EQ(request.getEntry("1", 0, 200), -ENOENT);
  EXPECT_EQ(request.getEntry("1", 1, 200), 0);
  EXPECT_EQ(request.getEntry("1", 0xffffffff, 0xffffffff), 0);
}

TEST_F(Request, EntryNamesMustEndInTheirFields) {
  EXPECT_EQ(request.addEntry("1", 1, 200, unendingName, "a"), -EINVAL);
  EXPECT_EQ(request.addEntry("1", 1, 200, "s", unendingName), -EINVAL);
}

TEST_F(Request, MissingEntriesAreENOENT) {
  EXPECT_EQ(request.getEntry("1", 1, 200), -ENOENT);
  EXPECT_EQ(request.deleteEntry("1", 1, 200), -ENOENT);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(request.getEntry("1", 1, 201), -ENOENT);
  EXPECT_EQ(request.deleteEntry("1", 1, 199), -ENOENT);
  EXPECT_EQ(request.deleteEntry("1", 1, 200), 0);
  EXPECT_EQ(request.deleteEntry("1", 1, 200), -ENOENT);
}

TEST_F(Request, QueryingAnEntryWritesItsNames) {
  ASSERT_EQ(request.addSelector(longestName), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, longestName, "a"), 0);

  acl_ioctl_port_entry record = Requests::entry("1", 1, 200);
  std::memset(record.reserved, 0xee, sizeof record.reserved);
  std::memset(record.selector, 0xff, sizeof record.selector + sizeof record.actionList);
  ASSERT_EQ(table.request(ACL_GET_PORT_ENTRY, &record), 0);
  acl_ioctl_port_entry expected = Requests::entry("1", 1, 200, longestName, "a");
  std::memset(expected.reserved, 0xee, sizeof expected.reserved);
  EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
}

TEST_F(Request, AFailedQueryLeavesTheRecordAlone) {
  acl_ioctl_port_entry record = Requests::entry("1", 1, 200, "old", "older");
  const acl_ioctl_port_entry before = record;
  ASSERT_EQ(table.request(ACL_GET_PORT_ENTRY, &record), -ENOENT);
  EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
}

TEST_F(Request, QueryingAnEntryGivesTheNamesItWasAddedWithAfterTheyAreDeleted) {
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.deleteSelector("s"), 0);
  ASSERT_EQ(request.deleteActionList("a"), 0);

  acl_ioctl_port_entry record = Requests::entry("1", 1, 200);
  ASSERT_EQ(table.request(ACL_GET_PORT_ENTRY, &record), 0);
  EXPECT_STREQ(record.selector, "s");
  EXPECT_STREQ(record.actionList, "a");
}

TEST_F(Request, DeletingAnEntryTakesItsPositionAlone) {
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(
      request.send(ACL_DEL_PORT_ENTRY, Requests::entry("1", 1, 200, unendingName, "another list")),
      0);
}

TEST_F(Request, PortsMustBeDecimalNumbers) {
  for (const char* port : {"", " 1", "1 ", "+1", "0x1", "1a", "a", "-", "--1", "1.0", "4294967296",
                           "-2147483649", "99999999999999999"}) {
    EXPECT_EQ(request.addEntry(port, 1, 200, "s", "a"), -EINVAL) << port;
    EXPECT_EQ(request.deleteEntry(port, 1, 200), -EINVAL) << port;
    EXPECT_EQ(request.getEntry(port, 1, 200), -EINVAL) << port;
  }
}

TEST_F(Request, PortTextMustEndInItsField) {
  EXPECT_EQ(request.addEntry("0000000000000000001", 1, 200, "s", "a"), 0);
  EXPECT_EQ(request.getEntry("1", 1, 200), 0);
  EXPECT_EQ(request.addEntry("00000000000000000001", 1, 200, "s", "a"), -EINVAL);
}

TEST_F(Request, PortsOfTheUpperHalfMayComeAsNegativeNumbers) {
  EXPECT_EQ(request.addEntry("-1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(request.getEntry("4294967295", 1, 200), 0);
  EXPECT_EQ(request.addEntry("2147483648", 1, 200, "s", "a"), 0);
  EXPECT_EQ(request.getEntry("-2147483648", 1, 200), 0);
  EXPECT_EQ(request.addEntry("0", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  EXPECT_EQ(fate(0xffffffff), Fate::discard);
  EXPECT_EQ(fate(0x80000000), Fate::discard);
  EXPECT_EQ(fate(0), Fate::discard);
  EXPECT_EQ(fate(1), Fate::untouched);
}

TEST_F(Request, AnEntryTooManyOfOneKindIsENOSPC) {
  for (std::uint32_t i = 0; i < Table::maxEntries; ++i) {
    ASSERT_EQ(request.addEntry("1", 1, 1000 - i, "s", "a"), 0);
  }
  EXPECT_EQ(request.addEntry("1", 1, 1001, "s", "a"), -ENOSPC);
  EXPECT_EQ(request.addEntry("1", 1, 1, "s", "a"), -ENOSPC);
  EXPECT_EQ(request.addEntry("1", 1, 1000, "s", "a"), -EEXIST);
  EXPECT_EQ(request.addEntry("1", 0, 1, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("1", 2, 1, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("2", 1, 1, "s", "a"), 0);
  EXPECT_EQ(request.deleteEntry("1", 1, 950), 0);
  EXPECT_EQ(request.addEntry("1", 1, 0xffffffff, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("1", 1, 950, "s", "a"), -ENOSPC);
}

TEST_F(Request, AnEntryTooManyOfOnePortIsENOSPC) {
  for (std::uint32_t i = 0; i < Table::maxPortEntries; ++i) {
    ASSERT_EQ(request.addEntry("1", i, 1, "s", "a"), 0);
  }
  EXPECT_EQ(request.addEntry("1", Table::maxPortEntries, 1, "s", "a"), -ENOSPC);
  EXPECT_EQ(request.addEntry("2", Table::maxPortEntries, 1, "s", "a"), 0);
}

TEST(FullTable, RefusesSelectors) {
  Table table;
  Requests request(table);
  // The built-in one is among them.
  for (std::size_t i = 1; i < Table::maxObjects; ++i) {
    ASSERT_EQ(request.addSelector(std::to_string(i)), 0);
  }
  EXPECT_EQ(request.addSelector("one too many"), -ENOSPC);
  EXPECT_EQ(request.addSelector("1"), -EEXIST);
  EXPECT_EQ(request.deleteSelector("1"), 0);
  EXPECT_EQ(request.addSelector("in its place"), 0);
}

TEST(FullTable, RefusesActionLists) {
  Table table;
  Requests request(table);
  for (std::size_t i = 0; i < Table::maxObjects; ++i) {
    ASSERT_EQ(request.addActionList(std::to_string(i)), 0);
  }
  EXPECT_EQ(request.addActionList("one too many"), -ENOSPC);
  EXPECT_EQ(request.addActionList("1"), -EEXIST);
}

TEST(FullTable, RefusesCounters) {
  Table table;
  Requests request(table);
  for (std::size_t i = 0; i < Table::maxObjects; ++i) {
    ASSERT_EQ(request.addCounter(std::to_string(i)), 0);
  }
  EXPECT_EQ(request.addCounter("one too many"), -ENOSPC);
  EXPECT_EQ(request.addCounter("1"), -EEXIST);
}

TEST(FullTable, RefusesEntries) {
  Table table;
  Requests request(table);
  ASSERT_EQ(request.addActionList("a"), 0);
  for (std::size_t i = 0; i < Table::maxObjects; ++i) {
    const auto index = static_cast<std::uint32_t>(i % Table::maxEntries);
    ASSERT_EQ(request.addEntry(std::to_string(i / Table::maxEntries), 1, index, "true", "a"), 0);
  }
  EXPECT_EQ(request.addEntry("-1", 1, 0, "true", "a"), -ENOSPC);
  EXPECT_EQ(request.addEntry("0", 1, 0, "true", "a"), -EEXIST);
  EXPECT_EQ(request.deleteEntry("0", 1, 0), 0);
  EXPECT_EQ(request.addEntry("-1", 1, 0, "true", "a"), 0);
}

// Names are unlinked

TEST_F(Request, AnEntryKeepsTheSelectorWhoseNameIsDeleted) {
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.deleteSelector("s"), 0);
  EXPECT_EQ(fate(), Fate::discard);

  ASSERT_EQ(request.addSelector("s"), 0);
  ASSERT_EQ(request.addEtherType("s", 0x0800), 0);
  EXPECT_EQ(fate(), Fate::discard);
}

TEST_F(Request, AnEntryKeepsTheActionListWhoseNameIsDeleted) {
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_HIDE), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.deleteActionList("a"), 0);
  EXPECT_EQ(fate(), Fate::peer);

  ASSERT_EQ(request.addActionList("a"), 0);
  ASSERT_EQ(request.addAction("a", 1, ACL_ACTION_DROP), 0);
  EXPECT_EQ(fate(), Fate::peer);
}

TEST_F(Request, AnActionBindsTheCounterWhenItIsAdded) {
  ASSERT_EQ(request.addCounterChange("a", 0, "c"), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  fate();
  EXPECT_THAT(request.counter("c"), Optional(1));
  ASSERT_EQ(request.deleteCounter("c"), 0);
  ASSERT_EQ(request.addCounter("c"), 0);
  fate();
  EXPECT_THAT(request.counter("c"), Optional(0));
}

TEST_F(Request, WhatWasUsedLastIsGoneOnceItIsDeleted) {
  EXPECT_EQ(request.addSelector("last"), 0);
  EXPECT_EQ(request.addEtherType("last", 0x88cc), 0);
  EXPECT_EQ(request.deleteSelector("last"), 0);
  EXPECT_EQ(request.addEtherType("last", 0x88cc), -ENOENT);
  EXPECT_EQ(request.addActionList("last"), 0);
  EXPECT_EQ(request.addAction("last", 1, ACL_ACTION_DROP), 0);
  EXPECT_EQ(request.deleteActionList("last"), 0);
  EXPECT_EQ(request.addAction("last", 2, ACL_ACTION_DROP), -ENOENT);
}

TEST_F(Request, ADeletedNameCannotBeUsedForNewEntries) {
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.deleteSelector("s"), 0);
  EXPECT_EQ(request.addEntry("1", 1, 201, "s", "a"), -ENOENT);
  EXPECT_EQ(request.addEtherType("s", 0x88cc), -ENOENT);
  ASSERT_EQ(request.deleteActionList("a"), 0);
  EXPECT_EQ(request.addEntry("1", 1, 201, "true", "a"), -ENOENT);
  EXPECT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), -ENOENT);
}

TEST_F(Request, CountersSurviveTheEntriesThatUsedThem) {
  ASSERT_EQ(request.addCounterChange("a", 0, "c"), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  fate();
  ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
  ASSERT_EQ(request.deleteActionList("a"), 0);
  EXPECT_THAT(request.counter("c"), Optional(1));
}

// Changes show at once

TEST_F(Request, AConditionAddedLaterNarrowsTheEntriesThatUseItsSelector) {
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(fate(), Fate::discard);
  ASSERT_EQ(request.addEtherType("s", 0x0800), 0);
  EXPECT_EQ(fate(), Fate::untouched);
}

TEST_F(Request, AnActionAddedLaterRunsForTheEntriesThatUseItsList) {
  ASSERT_EQ(request.addAction("a", 9, ACL_ACTION_HIDE), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(fate(), Fate::peer);
  ASSERT_EQ(request.addCounterChange("a", 3, "c", 5), 0);
  ASSERT_EQ(request.addAction("a", 1, ACL_ACTION_NO_L2CP), 0);
  EXPECT_EQ(fate(), Fate::tunnel);
  EXPECT_THAT(request.counter("c"), Optional(5));
}

TEST_F(Request, EntriesShowAsSoonAsTheyAreAddedOrDeleted) {
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  EXPECT_EQ(fate(), Fate::untouched);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(fate(), Fate::discard);
  ASSERT_EQ(request.addActionList("b"), 0);
  ASSERT_EQ(request.addEntry("1", 1, 199, "s", "b"), 0);
  EXPECT_EQ(fate(), Fate::untouched);
  ASSERT_EQ(request.deleteEntry("1", 1, 199), 0);
  EXPECT_EQ(fate(), Fate::discard);
  ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
  EXPECT_EQ(fate(), Fate::untouched);
}

TEST_F(Request, AVerdictKeepsWhatItSaysWhenTheEntryGoes) {
  ASSERT_EQ(request.addCounterChange("a", 0, "c", 5), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  const classifier::Verdict verdict = table.classify(1, frame);
  ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
  ASSERT_EQ(request.deleteSelector("s"), 0);
  ASSERT_EQ(request.deleteActionList("a"), 0);
  ASSERT_EQ(request.deleteCounter("c"), 0);
  ASSERT_TRUE(verdict.entry);
  EXPECT_EQ(verdict.entry->selector.view(), "s");
  EXPECT_EQ(verdict.entry->actionList.view(), "a");
  ASSERT_EQ(verdict.entry->counterChanges.size(), 1U);
  EXPECT_EQ(verdict.entry->counterChanges[0].counter->name.view(), "c");
  EXPECT_EQ(verdict.entry->counterChanges[0].increment, 5);
}

TEST_F(Request, FailedOnesChangeNothing) {
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_NE(request.addVlan("s", 2, 1), 0);
  EXPECT_NE(request.addAction("a", 1, 1), 0);
  EXPECT_NE(request.addCounterChange("a", 2, "missing"), 0);
  EXPECT_NE(request.addEntry("1", 1, 100, "s", "missing"), 0);
  const classifier::Verdict verdict = table.classify(1, frame);
  EXPECT_EQ(verdict.fate, Fate::discard);
  EXPECT_EQ(verdict.entry->index, 200U);
  EXPECT_TRUE(verdict.entry->conditions.empty());
  EXPECT_TRUE(verdict.entry->counterChanges.empty());
}

TEST_F(Request, TablesAreSeparate) {
  Table other;
  Requests otherRequest(other);
  EXPECT_EQ(otherRequest.deleteSelector("s"), -ENOENT);
  EXPECT_EQ(otherRequest.addSelector("true"), -EEXIST);
}

TEST_F(Request, MayComeFromManyThreadsWhileFramesArrive) {
  constexpr int rounds = 2000;
  ASSERT_EQ(request.addCounterChange("a", 0, "c"), 0);
  ASSERT_EQ(request.addEntry("1", 1, 299, "true", "a"), 0);
  std::vector<std::thread> threads;
  for (std::uint32_t number = 0; number < 3; ++number) {
    threads.emplace_back([&, number] {
      Requests mine(table);
      const std::string name = "thread " + std::to_string(number);
      for (int round = 0; round < rounds; ++round) {
        EXPECT_EQ(mine.addSelector(name), 0);
        EXPECT_EQ(mine.addEtherType(name, 0x0800), 0);
        EXPECT_EQ(mine.addEntry("1", 1, number, name, "a"), 0);
        table.classify(1, frame);
        EXPECT_EQ(mine.deleteEntry("1", 1, number), 0);
        EXPECT_EQ(mine.deleteSelector(name), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(request.counter("c"), Optional(3 * rounds));
}

TEST(TableOf, IsOneTablePerBridge) {
  EXPECT_EQ(&classifier::tableOf("br0"), &classifier::tableOf(std::string("br0")));
  EXPECT_NE(&classifier::tableOf("br0"), &classifier::tableOf("br1"));
}

}  // namespace
