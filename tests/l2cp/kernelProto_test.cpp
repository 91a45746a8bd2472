/// One protocol alone in the classifier, and the entries of a port with their catch-all.

#include <cerrno>
#include <stdexcept>

#include "tests/l2cp/kernel_fixture.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::vector<unsigned char> slowMac{0x01, 0x80, 0xc2, 0x00, 0x00, 0x02};
const std::vector<unsigned char> noMac(6, 0x00);
const std::vector<unsigned char> fullMask(6, 0xff);
const std::vector<unsigned char> openMask{0xff, 0xff, 0xff, 0xff, 0xff, 0xf0};

class KernelProto : public KernelTest {
 protected:
  void SetUp() override {
    KernelTest::SetUp();
    // Everything that a selector can ask for, with a mask that is not full.
    addProtocol("SLOW", slowMac, openMask, 0x8809, 0x01);
    sent();
  }

  /// The queries of a search that finds nothing, each with those names in its record.
  static Lines failedSearch(const std::string& port, const std::string& names) {
    const std::string beforeIndex = "GET_PORT_ENTRY " + port + " kind 1 @";
    Lines lines;
    for (unsigned int index = 200; index <= 298; ++index) {
      lines.emplace_back(beforeIndex).append(std::to_string(index)).append(" ").append(names);
    }
    return lines;
  }
};

// ---- kernelProtoAdd -----------------------------------------------------------------------------

TEST_F(KernelProto, APeerRuleReturns1AndIssuesNoRequest) {
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "SLOW", Rule::peer, 200), 1U);
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "no such protocol", Rule::peer, 200), 1U);
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, nullptr, Rule::peer, 200), 1U);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(KernelProto, AnUnknownProtocolNameReturns0AndIssuesNoRequest) {
  const std::vector<std::string> names = NameTable(entity).listing();
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "no such protocol", Rule::discard, 200), 0U);
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "", Rule::tunnel, 200), 0U);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(NameTable(entity).listing(), names);
}

TEST_F(KernelProto, ANullProtocolNameIsALogicError) {
  const auto messageOf = [](const auto& operation) -> std::string {
    try {
      operation();
    } catch (const std::logic_error& error) {
      return error.what();
    }
    return "nothing thrown";
  };
  EXPECT_EQ(messageOf([&] { entity.kernelProtoAdd(3, 100, nullptr, Rule::discard, 200); }),
            "basic_string::_M_construct null not valid");
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(messageOf([&] { entity.kernelProtoDel(3, 100, nullptr, Rule::discard, 200); }),
            "basic_string::_M_construct null not valid");
}

TEST_F(KernelProto, ADiscardedProtocolGetsASelectorWithNumberedConditionsAndAnEntryThatDrops) {
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "SLOW", Rule::discard, 250), 1U);
  EXPECT_THAT(
      sent(),
      ElementsAre("ADD_SELECTOR <l2cpSLOW:03064>",
                  "ADD_CONDITION <l2cpSLOW:03064> #1 vlan 100..100",
                  "ADD_CONDITION <l2cpSLOW:03064> #2 mac 01:80:c2:00:00:02/ff:ff:ff:ff:ff:ff",
                  "ADD_CONDITION <l2cpSLOW:03064> #3 type 0x8809",
                  "ADD_CONDITION <l2cpSLOW:03064> #4 payload @0 length 1 mask 255 value 1",
                  "ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                  "ADD_PORT_ENTRY 3 kind 1 @250 <l2cpSLOW:03064> --> <drop>"));
}

TEST_F(KernelProto, ATunnelledProtocolGetsAnEntryThatHides) {
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "LLDP", Rule::tunnel, 200), 1U);
  EXPECT_THAT(
      sent(),
      ElementsAre("ADD_SELECTOR <l2cpLLDP:03064>",
                  "ADD_CONDITION <l2cpLLDP:03064> #1 vlan 100..100",
                  "ADD_CONDITION <l2cpLLDP:03064> #2 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
                  "ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                  "ADD_PORT_ENTRY 3 kind 1 @200 <l2cpLLDP:03064> --> <l2cp:hide>"));
}

TEST_F(KernelProto, RulesOutOfRangeDrop) {
  for (const std::uint32_t rule : {3U, 7U, 0xffffffffU}) {
    EXPECT_EQ(entity.kernelProtoAdd(3, 4095, "LLDP", static_cast<Rule>(rule), rule), 1U);
    EXPECT_EQ(sent().back(),
              "ADD_PORT_ENTRY 3 kind 1 @" + std::to_string(rule) + " <l2cpLLDP:03fff> --> <drop>");
  }
}

TEST_F(KernelProto, AProtocolWithoutAnythingOnTheWholePortYieldsASelectorWithoutConditions) {
  addProtocol("ANY", noMac, fullMask, 0xffff, 0xff);
  EXPECT_EQ(entity.kernelProtoAdd(3, 4095, "ANY", Rule::discard, 200), 1U);
  EXPECT_THAT(sent(), ElementsAre("ADD_SELECTOR <l2cpANY:03fff>",
                                  "ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                                  "ADD_PORT_ENTRY 3 kind 1 @200 <l2cpANY:03fff> --> <drop>"));
}

TEST_F(KernelProto, ConditionsThatAreNotWantedAreLeftOutAndTheOthersStayNumberedFrom1) {
  const std::string selector = "<l2cpX:03064>";
  const std::string whole = "<l2cpX:03fff>";
  struct Row {
    const char* what;
    std::vector<unsigned char> mac;
    unsigned short vid;
    unsigned short etherType;
    unsigned char subType;
    Lines conditions;
  };
  const Row rows[] = {
      {"whole port",
       slowMac,
       4095,
       0x8809,
       1,
       {whole + " #1 mac 01:80:c2:00:00:02/ff:ff:ff:ff:ff:ff", whole + " #2 type 0x8809",
        whole + " #3 payload @0 length 1 mask 255 value 1"}},
      {"any address",
       noMac,
       100,
       0x8809,
       1,
       {selector + " #1 vlan 100..100", selector + " #2 type 0x8809",
        selector + " #3 payload @0 length 1 mask 255 value 1"}},
      // Unlike an attachment, which leaves the subtype out as well.
      {"any EtherType",
       slowMac,
       100,
       0xffff,
       0xfe,
       {selector + " #1 vlan 100..100", selector + " #2 mac 01:80:c2:00:00:02/ff:ff:ff:ff:ff:ff",
        selector + " #3 payload @0 length 1 mask 255 value 254"}},
      {"any subtype",
       slowMac,
       100,
       0xfffe,
       0xff,
       {selector + " #1 vlan 100..100", selector + " #2 mac 01:80:c2:00:00:02/ff:ff:ff:ff:ff:ff",
        selector + " #3 type 0xfffe"}},
      {"zeros are values",
       noMac,
       100,
       0,
       0,
       {selector + " #1 vlan 100..100", selector + " #2 type 0x0000",
        selector + " #3 payload @0 length 1 mask 255 value 0"}},
  };
  unsigned int index = 200;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    addProtocol("X", row.mac, fullMask, row.etherType, row.subType);
    EXPECT_EQ(entity.kernelProtoAdd(3, row.vid, "X", Rule::discard, index++), 1U);
    Lines conditions;
    for (const std::string& line : sent()) {
      const std::string code = "ADD_CONDITION ";
      if (line.starts_with(code)) conditions.push_back(line.substr(code.size()));
    }
    EXPECT_EQ(conditions, row.conditions);
    ASSERT_EQ(entity.protoDel("X"), 0);
    sent();
  }
}

TEST_F(KernelProto, VlanNumbersAreTakenAsTheyAre) {
  struct {
    unsigned short vid;
    const char* selector;
    const char* condition;
  } const rows[] = {
      {0, "<l2cpLLDP:03000>", " #1 vlan 0..0"},
      {4094, "<l2cpLLDP:03ffe>", " #1 vlan 4094..4094"},
      {4095, "<l2cpLLDP:03fff>", " #1 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff"},
      {65535, "<l2cpLLDP:03ffff>", " #1 vlan 65535..65535"},
  };
  unsigned int index = 200;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.selector);
    EXPECT_EQ(entity.kernelProtoAdd(3, row.vid, "LLDP", Rule::discard, index++), 1U);
    const Lines lines = sent();
    EXPECT_EQ(lines.at(0), std::string("ADD_SELECTOR ") + row.selector);
    EXPECT_EQ(lines.at(1), std::string("ADD_CONDITION ") + row.selector + row.condition);
  }
}

TEST_F(KernelProto, PortNumbersFrom2To31OnPrintAsNegative) {
  struct {
    unsigned int port;
    std::string text;
    std::string selector;
  } const rows[] = {
      {0, "0", "<l2cpLLDP:00fff>"},
      {9, "9", "<l2cpLLDP:09fff>"},
      {123, "123", "<l2cpLLDP:123fff>"},
      {2147483647U, "2147483647", "<l2cpLLDP:2147483647fff>"},
      {2147483658U, "-2147483638", "<l2cpLLDP:-2147483638fff>"},
      {4294967294U, "-2", "<l2cpLLDP:-2fff>"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.port);
    EXPECT_EQ(entity.kernelProtoAdd(row.port, 4095, "LLDP", Rule::discard, 200), 1U);
    EXPECT_THAT(
        sent(),
        ElementsAre("ADD_SELECTOR " + row.selector,
                    "ADD_CONDITION " + row.selector + " #1 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
                    "ADD_PORT_ENTRY " + row.text + " kind 1 @299 \"true\" --> <l2cp:hide>",
                    "ADD_PORT_ENTRY " + row.text + " kind 1 @200 " + row.selector + " --> <drop>"));
  }
}

TEST_F(KernelProto, TheIndexIsUsedUnchecked) {
  for (const unsigned int index : {0U, 199U, 300U, 4294967295U}) {
    EXPECT_EQ(entity.kernelProtoAdd(3, 4095, "LLDP", Rule::discard, index), 1U);
    EXPECT_EQ(sent().back(),
              "ADD_PORT_ENTRY 3 kind 1 @" + std::to_string(index) + " <l2cpLLDP:03fff> --> <drop>");
  }
}

TEST_F(KernelProto, SelectorNamesAreCutAt199Characters) {
  const std::string name(300, 'n');
  entity.settings.protocols.emplace(
      name, L2CP::Protocol(name.c_str(), false, slowMac.data(), openMask.data(), 0xffff, 0xff));
  EXPECT_EQ(entity.kernelProtoAdd(3, 4095, name.c_str(), Rule::discard, 200), 1U);
  EXPECT_EQ(sent().front(), "ADD_SELECTOR <l2cp" + name.substr(0, 195) + '>');
}

TEST_F(KernelProto, WhatEachRefusalLeaves) {
  const std::string selector = "<l2cpSLOW:03064>";
  const Lines requests{
      "ADD_SELECTOR " + selector,
      "ADD_CONDITION " + selector + " #1 vlan 100..100",
      "ADD_CONDITION " + selector + " #2 mac 01:80:c2:00:00:02/ff:ff:ff:ff:ff:ff",
      "ADD_CONDITION " + selector + " #3 type 0x8809",
      "ADD_CONDITION " + selector + " #4 payload @0 length 1 mask 255 value 1",
      "ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
      "ADD_PORT_ENTRY 3 kind 1 @200 " + selector + " --> <drop>",
  };
  struct Row {
    std::size_t refused;
    unsigned int result;
    std::size_t sent;
    /// The request behind those, with the record as the last condition left it.
    const char* undone;
  };
  const Row rows[] = {
      {0, 0, 1, nullptr},
      {1, 0, 2, " #1 vlan 100..100"},
      {2, 0, 3, " #2 mac 01:80:c2:00:00:02/ff:ff:ff:ff:ff:ff"},
      {3, 0, 4, " #3 type 0x8809"},
      {4, 0, 5, " #4 payload @0 length 1 mask 255 value 1"},
      // Whether the catch-all could be made is not asked.
      {5, 1, 7, nullptr},
      {6, 0, 7, " #4 payload @0 length 1 mask 255 value 1"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("request " + std::to_string(row.refused));
    L2CP fresh;
    classifier.reset();
    ASSERT_TRUE(fresh.start());
    ASSERT_EQ(fresh.protoAdd("SLOW", false, slowMac.data(), openMask.data(), 0x8809, 1), 0);
    classifier.take();
    classifier.refuseAt(row.refused, ENOSPC);
    EXPECT_EQ(fresh.kernelProtoAdd(3, 100, "SLOW", Rule::discard, 200), row.result);
    const NameTable names(fresh);
    Lines lines;
    for (const auto& request : classifier.take()) lines.push_back(line(request, names));
    Lines expected(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(row.sent));
    if (row.undone != nullptr) expected.push_back("DEL_SELECTOR " + selector + row.undone);
    EXPECT_EQ(lines, expected);
    fresh.stop();
  }
}

TEST_F(KernelProto, ARefusedEntryOfASelectorWithoutConditionsDeletesTheSelector) {
  addProtocol("ANY", noMac, fullMask, 0xffff, 0xff);
  install("3", 1, 200, "somebody", "else");
  EXPECT_EQ(entity.kernelProtoAdd(3, 4095, "ANY", Rule::tunnel, 200), 0U);
  EXPECT_THAT(sent(), ElementsAre("ADD_SELECTOR <l2cpANY:03fff>",
                                  "ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                                  "ADD_PORT_ENTRY 3 kind 1 @200 <l2cpANY:03fff> --> <l2cp:hide>",
                                  "DEL_SELECTOR <l2cpANY:03fff>"));
}

TEST_F(KernelProto, ARefusedEntryOfAProtocolStaysCounted) {
  classifier.refuseAt(3, ENOSPC);
  ASSERT_EQ(entity.kernelProtoAdd(3, 4095, "LLDP", Rule::discard, 200), 0U);
  classifier.refusal = nullptr;
  sent();
  EXPECT_EQ(entity.kernelProtoAdd(3, 4095, "LLDP", Rule::discard, 200), 1U);
  EXPECT_THAT(sent(), ElementsAre("ADD_SELECTOR <l2cpLLDP:03fff>",
                                  "ADD_CONDITION <l2cpLLDP:03fff> #1 "
                                  "mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
                                  "ADD_PORT_ENTRY 3 kind 1 @200 <l2cpLLDP:03fff> --> <drop>"));
}

TEST_F(KernelProto, NothingOfItIsTraced) {
  EXPECT_THAT(traced([&] {
                entity.kernelProtoAdd(3, 100, "SLOW", Rule::discard, 200);
                entity.kernelProtoAdd(3, 100, "no such protocol", Rule::discard, 200);
                entity.kernelProtoDel(3, 100, "SLOW", Rule::discard, 200);
              }),
              IsEmpty());
}

// ---- kernelProtoDel -----------------------------------------------------------------------------

TEST_F(KernelProto, DeletingSearchesAnEntryWithoutNamesAndDeletesTheSelector) {
  install("3", 1, 217, "", "");
  EXPECT_EQ(entity.kernelProtoDel(3, 100, "SLOW", Rule::discard, 250), 1U);
  const Lines lines = sent();
  ASSERT_EQ(lines.size(), 21U);
  EXPECT_EQ(lines.front(), "GET_PORT_ENTRY 3 kind 1 @200 \"\" --> \"\"");
  EXPECT_EQ(Lines(lines.begin() + 17, lines.end()),
            (Lines{"GET_PORT_ENTRY 3 kind 1 @217 \"\" --> \"\"",
                   "DEL_PORT_ENTRY 3 kind 1 @217 \"\" --> \"\"",
                   "DEL_PORT_ENTRY 3 kind 1 @299 \"\" --> \"\"", "DEL_SELECTOR <l2cpSLOW:03064>"}));
  EXPECT_FALSE(holds("3", 1, 217));
}

TEST_F(KernelProto, DeletingDoesNotFindWhatAKernelReportsWithNames) {
  ASSERT_EQ(entity.kernelProtoAdd(3, 4095, "LLDP", Rule::tunnel, 200), 1U);
  sent();
  EXPECT_EQ(entity.kernelProtoDel(3, 4095, "LLDP", Rule::tunnel, 200), 1U);
  Lines expected = failedSearch("3", "<l2cpLLDP:03fff> --> <l2cp:hide>");
  expected.front() = R"(GET_PORT_ENTRY 3 kind 1 @200 "" --> "")";
  expected.push_back("DEL_SELECTOR <l2cpLLDP:03fff>");
  EXPECT_THAT(sent(), ElementsAreArray(expected));
  EXPECT_TRUE(holds("3", 1, 200));
  EXPECT_TRUE(holds("3", 1, 299));
}

TEST_F(KernelProto, DeletingNeverFailsAndAsksNeitherRegistryNorRule) {
  classifier.refusal = [](const support::Request&) { return EIO; };
  for (const std::uint32_t rule : {0U, 1U, 2U, 7U}) {
    EXPECT_EQ(entity.kernelProtoDel(3, 10, "no such protocol", static_cast<Rule>(rule), 0), 1U);
    EXPECT_EQ(sent(), failedSearch("3", "\"\" --> \"\"") +
                          Lines{"DEL_SELECTOR <l2cpno such protocol:0300a>"});
  }
}

// ---- portEntryAdd -------------------------------------------------------------------------------

TEST_F(KernelProto, TheFirstEntryOnAPortCreatesTheHideEntryBeforeItTheSecondDoesNot) {
  EXPECT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 200, "one", "list")), 0);
  EXPECT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 201, "two", "list")), 0);
  EXPECT_EQ(entity.portEntryAdd(4, portEntry("4", 1, 200, "one", "list")), 0);
  EXPECT_THAT(sent(), ElementsAre("ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                                  "ADD_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\"",
                                  "ADD_PORT_ENTRY 3 kind 1 @201 \"two\" --> \"list\"",
                                  "ADD_PORT_ENTRY 4 kind 1 @299 \"true\" --> <l2cp:hide>",
                                  "ADD_PORT_ENTRY 4 kind 1 @200 \"one\" --> \"list\""));
}

TEST_F(KernelProto, EntriesOfKind0CountApartAndAllOtherKindsTogether) {
  EXPECT_EQ(entity.portEntryAdd(3, portEntry("3", 0, 200, "one", "list")), 0);
  EXPECT_EQ(entity.portEntryAdd(3, portEntry("3", 7, 200, "two", "list")), 0);
  EXPECT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 200, "three", "list")), 0);
  EXPECT_EQ(entity.portEntryAdd(3, portEntry("3", 7, 201, "four", "list")), 0);
  EXPECT_THAT(sent(), ElementsAre("ADD_PORT_ENTRY 3 kind 0 @299 \"true\" --> <l2cp:hide>",
                                  "ADD_PORT_ENTRY 3 kind 0 @200 \"one\" --> \"list\"",
                                  "ADD_PORT_ENTRY 3 kind 7 @299 \"true\" --> <l2cp:hide>",
                                  "ADD_PORT_ENTRY 3 kind 7 @200 \"two\" --> \"list\"",
                                  "ADD_PORT_ENTRY 3 kind 1 @200 \"three\" --> \"list\"",
                                  "ADD_PORT_ENTRY 3 kind 7 @201 \"four\" --> \"list\""));
}

TEST_F(KernelProto, TheRecordGoesOutAsItIsAndThePortArgumentDecidesAboutTheHideEntry) {
  acl_ioctl_port_entry entry = portEntry("nine", 1, 4294967295U, "one", "list");
  entry.reserved[11] = 5;
  EXPECT_EQ(entity.portEntryAdd(-3, entry), 0);
  EXPECT_THAT(sent(), ElementsAre("ADD_PORT_ENTRY -3 kind 1 @299 \"true\" --> <l2cp:hide>",
                                  "ADD_PORT_ENTRY nine kind 1 @4294967295 \"one\" --> \"list\" "
                                  "[39]=5"));
}

TEST_F(KernelProto, ARefusedEntryIsCountedAllTheSame) {
  const acl_ioctl_port_entry entry = portEntry("3", 1, 200, "one", "list");
  classifier.refuseAt(1, ENOSPC);
  errno = 0;
  EXPECT_EQ(entity.portEntryAdd(3, entry), -1);
  EXPECT_EQ(errno, ENOSPC);
  classifier.refusal = nullptr;
  sent();
  // No second catch-all: one entry is counted.
  EXPECT_EQ(entity.portEntryAdd(3, entry), 0);
  EXPECT_THAT(sent(), ElementsAre("ADD_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\""));
  // Two are counted, so the catch-all outlives the only entry.
  entity.portEntryDel(3, entry);
  EXPECT_FALSE(holds("3", 1, 200));
  EXPECT_TRUE(holds("3", 1, 299));
}

TEST_F(KernelProto, ARefusedHideEntryIsNotRetriedUntilTheCountHasReturnedTo0) {
  const acl_ioctl_port_entry one = portEntry("3", 1, 200, "one", "list");
  const acl_ioctl_port_entry two = portEntry("3", 1, 201, "two", "list");
  classifier.refuseAt(0, ENOSPC);
  EXPECT_EQ(entity.portEntryAdd(3, one), 0);
  classifier.refusal = nullptr;
  EXPECT_EQ(entity.portEntryAdd(3, two), 0);
  EXPECT_FALSE(holds("3", 1, 299));
  entity.portEntryDel(3, one);
  entity.portEntryDel(3, two);
  EXPECT_EQ(entity.portEntryAdd(3, one), 0);
  EXPECT_TRUE(holds("3", 1, 299));
}

// ---- portEntryDel -------------------------------------------------------------------------------

TEST_F(KernelProto, TheHideEntryExistsExactlyWhileTheCountIsAbove0) {
  const acl_ioctl_port_entry one = portEntry("3", 1, 200, "one", "list");
  const acl_ioctl_port_entry two = portEntry("3", 1, 201, "two", "list");
  for (int round = 0; round < 2; ++round) {
    EXPECT_FALSE(holds("3", 1, 299));
    entity.portEntryAdd(3, one);
    EXPECT_TRUE(holds("3", 1, 299));
    entity.portEntryAdd(3, two);
    entity.portEntryDel(3, one);
    EXPECT_TRUE(holds("3", 1, 299));
    entity.portEntryDel(3, two);
    EXPECT_FALSE(holds("3", 1, 299));
  }
}

TEST_F(KernelProto, DeletingTheLastEntryOfAPortRemovesTheHideEntry) {
  ASSERT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 200, "one", "list")), 0);
  sent();
  entity.portEntryDel(3, portEntry("3", 1, 0, "one", "list"));
  EXPECT_THAT(sent(), ElementsAre("GET_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 1 @299 \"\" --> \"\""));
  EXPECT_THAT(classifier.entries, IsEmpty());
}

TEST_F(KernelProto, AnEntryIsFoundByBothNamesWhateverItsIndex) {
  install("3", 1, 200, "one", "other list");
  install("3", 1, 201, "other", "list");
  install("3", 1, 203, "ONE", "list");
  install("3", 1, 204, "one", "list");
  entity.portEntryDel(3, portEntry("3", 1, 200, "one", "list"));
  EXPECT_THAT(sent(), ElementsAre("GET_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\"",
                                  "GET_PORT_ENTRY 3 kind 1 @201 \"one\" --> \"other list\"",
                                  "GET_PORT_ENTRY 3 kind 1 @202 \"other\" --> \"list\"",
                                  "GET_PORT_ENTRY 3 kind 1 @203 \"other\" --> \"list\"",
                                  "GET_PORT_ENTRY 3 kind 1 @204 \"ONE\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 1 @204 \"one\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 1 @299 \"\" --> \"\""));
}

TEST_F(KernelProto, OnlyTheFirstOfTwoEqualEntriesIsDeleted) {
  install("3", 1, 298, "one", "list");
  install("3", 1, 297, "one", "list");
  entity.portEntryDel(3, portEntry("3", 1, 298, "one", "list"));
  EXPECT_FALSE(holds("3", 1, 297));
  EXPECT_TRUE(holds("3", 1, 298));
}

TEST_F(KernelProto, AnEntryTheKernelDoesNotReportFrom200To298ChangesNeitherKernelNorCounts) {
  ASSERT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 200, "one", "list")), 0);
  install("3", 1, 199, "two", "list");
  install("3", 1, 300, "two", "list");
  install("3", 0, 250, "two", "list");
  install("4", 1, 250, "two", "list");
  const auto entries = classifier.entries.size();
  sent();
  entity.portEntryDel(3, portEntry("3", 1, 200, "two", "list"));
  const Lines lines = sent();
  EXPECT_EQ(lines.size(), 99U);
  EXPECT_THAT(lines, Each(testing::StartsWith("GET_PORT_ENTRY 3 kind 1 @2")));
  EXPECT_EQ(classifier.entries.size(), entries);
  // The count is still 1: the next deletion brings it to 0.
  entity.portEntryDel(3, portEntry("3", 1, 200, "one", "list"));
  EXPECT_FALSE(holds("3", 1, 299));
}

TEST_F(KernelProto, ARefusedQueryIsNoFindEvenIfTheRecordHasTheNames) {
  ASSERT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 200, "one", "list")), 0);
  sent();
  classifier.refuseAll(ACL_GET_PORT_ENTRY, EIO);
  entity.portEntryDel(3, portEntry("3", 1, 200, "one", "list"));
  EXPECT_EQ(sent(), failedSearch("3", "\"one\" --> \"list\""));
  EXPECT_TRUE(holds("3", 1, 200));
}

TEST_F(KernelProto, ARefusedDeletionIsCountedAllTheSame) {
  ASSERT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 200, "one", "list")), 0);
  sent();
  classifier.refuseAt(1, EIO);
  entity.portEntryDel(3, portEntry("3", 1, 200, "one", "list"));
  EXPECT_THAT(sent(), ElementsAre("GET_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 1 @299 \"\" --> \"\""));
}

TEST_F(KernelProto, AnEntryThatWasNeverCountedStartsItsPortAt0) {
  install("3", 1, 200, "one", "list");
  install("3", 1, 299, "true", "l2cp:hide");
  entity.portEntryDel(3, portEntry("3", 1, 200, "one", "list"));
  EXPECT_THAT(classifier.entries, IsEmpty());
  // The count is there, and 0: the next entry makes the catch-all.
  sent();
  ASSERT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 200, "one", "list")), 0);
  EXPECT_EQ(sent().size(), 2U);
}

TEST_F(KernelProto, ACountOf0Wraps) {
  const acl_ioctl_port_entry entry = portEntry("3", 1, 200, "one", "list");
  install("3", 1, 200, "one", "list");
  entity.portEntryDel(3, entry);
  install("3", 1, 200, "one", "list");
  sent();
  entity.portEntryDel(3, entry);
  // 2^32 - 1 entries: no catch-all to remove, none to make for the next entry.
  EXPECT_THAT(sent(), ElementsAre("GET_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\""));
  ASSERT_EQ(entity.portEntryAdd(3, entry), 0);
  EXPECT_THAT(sent(), ElementsAre("ADD_PORT_ENTRY 3 kind 1 @200 \"one\" --> \"list\""));
  // With that one the count has come round to 0.
  ASSERT_EQ(entity.portEntryAdd(3, portEntry("3", 1, 201, "two", "list")), 0);
  EXPECT_THAT(sent(), ElementsAre("ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                                  "ADD_PORT_ENTRY 3 kind 1 @201 \"two\" --> \"list\""));
}

TEST_F(KernelProto, TheHideEntryIsRemovedUnderTheKindOfTheLastEntry) {
  ASSERT_EQ(entity.portEntryAdd(3, portEntry("3", 7, 200, "one", "list")), 0);
  install("3", 9, 200, "two", "list");
  sent();
  entity.portEntryDel(3, portEntry("3", 9, 200, "two", "list"));
  EXPECT_THAT(sent(), ElementsAre("GET_PORT_ENTRY 3 kind 9 @200 \"two\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 9 @200 \"two\" --> \"list\"",
                                  "DEL_PORT_ENTRY 3 kind 9 @299 \"\" --> \"\""));
  EXPECT_TRUE(holds("3", 7, 299));
}

TEST_F(KernelProto, PortsThatDifferInTheHighestBitAloneShareTheirCount) {
  struct {
    unsigned int first;
    unsigned int second;
    std::string text;
  } const rows[] = {
      {0, 2147483648U, "-2147483648"},
      {2147483647U, 4294967295U, "-1"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.second);
    ASSERT_EQ(entity.kernelProtoAdd(row.first, 4095, "LLDP", Rule::discard, 200), 1U);
    sent();
    ASSERT_EQ(entity.kernelProtoAdd(row.second, 4095, "LLDP", Rule::discard, 200), 1U);
    const std::string selector = "<l2cpLLDP:" + row.text + "fff>";
    EXPECT_THAT(
        sent(),
        ElementsAre("ADD_SELECTOR " + selector,
                    "ADD_CONDITION " + selector + " #1 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
                    "ADD_PORT_ENTRY " + row.text + " kind 1 @200 " + selector + " --> <drop>"));
  }
}

}  // namespace
