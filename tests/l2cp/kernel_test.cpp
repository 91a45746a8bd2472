/// Counters, the catch-all behind a port's entries, the search for a position, statistics.

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <set>
#include <utility>

#include "tests/l2cp/kernel_fixture.h"
#include "tests/support/refused_block.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Kernel : public KernelTest {};

// ---- Counters -----------------------------------------------------------------------------------

struct CounterOperation {
  const char* what;
  bool (*call)(L2CP&);
  const char* request;
  const char* name;
};

constexpr CounterOperation counterOperations[] = {
    {"add by name",
     [](L2CP& entity) {
       return entity.kernelCounterAdd(L2CP::m_counter_proto_mask, "LLDP", L2CP::m_rule_peer);
     },
     "ADD_COUNTER", "l2cpProtoLLDPpeer"},
    {"add by number",
     [](L2CP& entity) {
       return entity.kernelCounterAdd(L2CP::m_counter_port_mask, 3, L2CP::m_rule_tunnel);
     },
     "ADD_COUNTER", "l2cpPort3tunnel"},
    {"delete by name",
     [](L2CP& entity) {
       return entity.kernelCounterDel(L2CP::m_counter_profile_mask, "P", L2CP::m_rule_discard);
     },
     "DEL_COUNTER", "l2cpProfiPdiscard"},
    {"delete by number",
     [](L2CP& entity) {
       return entity.kernelCounterDel(L2CP::m_counter_vlan_mask, 100, L2CP::m_rule_discard);
     },
     "DEL_COUNTER", "l2cpVlan100discard"},
    {"read by number",
     [](L2CP& entity) {
       unsigned int value = 0;
       return entity.kernelCounterGet(L2CP::m_counter_port_mask, -1, L2CP::m_rule_peer, value);
     },
     "GET_COUNTER", "l2cpPort-1peer"},
};

TEST_F(Kernel, CounterPrimitivesSendOneRequestWithTheShortNameOfTheCounter) {
  for (const CounterOperation& operation : counterOperations) {
    SCOPED_TRACE(operation.what);
    EXPECT_TRUE(operation.call(entity));
    EXPECT_THAT(sent(), ElementsAre(std::string(operation.request) + " <" + operation.name + '>'));
  }
}

TEST_F(Kernel, CounterPrimitivesReportARefusalAsFalseAndDoNotRetry) {
  classifier.refusal = [](const support::Request&) { return EIO; };
  for (const CounterOperation& operation : counterOperations) {
    SCOPED_TRACE(operation.what);
    EXPECT_FALSE(operation.call(entity));
    EXPECT_EQ(classifier.take().size(), 1U);
  }
}

TEST_F(Kernel, EveryCallOfACounterPrimitiveAddsOneUseReadsAndDeletesAndRefusalsIncluded) {
  unsigned int value = 0;
  const auto callAll = [&] {
    entity.kernelCounterAdd("l2cpPort%d%s", 3, "peer");
    entity.kernelCounterGet("l2cpPort%d%s", 3, "peer", value);
    entity.kernelCounterDel("l2cpPort%d%s", 3, "peer");
    entity.kernelCounterAdd("l2cpProto%s%s", "LLDP", "peer");
    entity.kernelCounterDel("l2cpProto%s%s", "LLDP", "peer");
  };
  callAll();
  EXPECT_EQ(uses("l2cpPort3peer"), 3);
  EXPECT_EQ(uses("l2cpProtoLLDPpeer"), 2);
  classifier.refusal = [](const support::Request&) { return EIO; };
  callAll();
  EXPECT_EQ(uses("l2cpPort3peer"), 6);
  EXPECT_EQ(uses("l2cpProtoLLDPpeer"), 4);
}

TEST_F(Kernel, CounterReadKeepsTheLow32BitsOfTheValue) {
  char name[40];
  entity.GetName("l2cpPort3peer", name, nullptr);
  classifier.counters[name] = 0x1'2345'6789'abcdU;
  unsigned int value = 1;
  EXPECT_TRUE(entity.kernelCounterGet("l2cpPort%d%s", 3, "peer", value));
  EXPECT_EQ(value, 0x6789'abcdU);
}

TEST_F(Kernel, AFailedCounterReadLeavesZero) {
  classifier.refuseAll(ACL_GET_COUNTER, ENOENT);
  unsigned int value = 77;
  EXPECT_FALSE(entity.kernelCounterGet("l2cpPort%d%s", 3, "peer", value));
  EXPECT_EQ(value, 0U);
  value = 77;
  EXPECT_FALSE(entity.kernelCounterGet("l2cpProto%s%s", "LLDP", "peer", value));
  EXPECT_EQ(value, 0U);
}

TEST_F(Kernel, TheReadByNameSendsANamelessRecordAndRegistersAnEmptyName) {
  // A counter of the name that was asked for exists, and makes no difference.
  ASSERT_TRUE(entity.kernelCounterAdd("l2cpProto%s%s", "LLDP", "peer"));
  sent();
  unsigned int value = 77;
  EXPECT_FALSE(entity.kernelCounterGet("l2cpProto%s%s", "LLDP", "peer", value));
  EXPECT_THAT(sent(), ElementsAre("GET_COUNTER \"\""));
  EXPECT_EQ(value, 0U);
  const NameTable names(entity);
  EXPECT_EQ(names.uses(""), 1);
  EXPECT_EQ(names.uses("l2cpProtoLLDPpeer"), 1);
  EXPECT_EQ(names.listing().at(names.listing().size() - 2), "  1   0 l2cp:* ");
}

TEST_F(Kernel, StatisticsByNameStopAtTheirFirstNamelessRead) {
  addProfile("P", {});
  L2CP::Statistics stats{1, 2, 3};
  EXPECT_EQ(entity.protoStat("LLDP", stats), -11);
  EXPECT_EQ(stats.peer, 0U);
  EXPECT_EQ(stats.tunnel, 2U);
  EXPECT_EQ(stats.discard, 3U);
  EXPECT_THAT(sent(), ElementsAre("GET_COUNTER \"\""));
  EXPECT_EQ(entity.profileStat("P", stats), -11);
  EXPECT_THAT(sent(), ElementsAre("GET_COUNTER \"\""));
  EXPECT_EQ(uses(""), 2);
}

TEST_F(Kernel, StatisticsByNameKeepWhatTheyReadBeforeAReadFailed) {
  addProfile("P", {});
  struct {
    std::size_t failedRead;
    unsigned int peer, tunnel, discard;
  } const rows[] = {
      {0, 0, 2, 3},
      {1, 50, 0, 3},
      {2, 50, 50, 0},
  };
  const std::pair<const char*, std::function<int(L2CP::Statistics&)>> readings[] = {
      {"protocol", [&](L2CP::Statistics& stats) { return entity.protoStat("LLDP", stats); }},
      {"profile", [&](L2CP::Statistics& stats) { return entity.profileStat("P", stats); }},
  };
  // The kernel has a nameless counter for once.
  classifier.counters[""] = 50;
  for (const auto& [what, read] : readings) {
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(what) + ", read " + std::to_string(row.failedRead));
      classifier.take();
      classifier.refuseAt(row.failedRead, ENOENT);
      L2CP::Statistics stats{1, 2, 3};
      EXPECT_EQ(read(stats), -11);
      EXPECT_EQ(stats.peer, row.peer);
      EXPECT_EQ(stats.tunnel, row.tunnel);
      EXPECT_EQ(stats.discard, row.discard);
      EXPECT_EQ(sent(), Lines(row.failedRead + 1, "GET_COUNTER \"\""));
    }
  }
}

TEST_F(Kernel, CounterNamesAreCutAt99Characters) {
  const auto name = [](std::size_t size) { return std::string(size, 'n'); };
  // Nine characters stand in front of the name and four behind it.
  ASSERT_TRUE(entity.kernelCounterAdd("l2cpProfi%s%s", name(86), "peer"));
  ASSERT_TRUE(entity.kernelCounterAdd("l2cpProfi%s%s", name(87), "peer"));
  ASSERT_TRUE(entity.kernelCounterDel("l2cpProfi%s%s", name(90), "peer"));
  ASSERT_TRUE(entity.kernelCounterDel("l2cpProfi%s%s", name(500), "peer"));
  EXPECT_THAT(sent(), ElementsAre("ADD_COUNTER <l2cpProfi" + name(86) + "peer>",
                                  "ADD_COUNTER <l2cpProfi" + name(87) + "pee>",
                                  "DEL_COUNTER <l2cpProfi" + name(90) + '>',
                                  "DEL_COUNTER <l2cpProfi" + name(90) + '>'));
}

TEST_F(Kernel, CounterNamesAreCutWhereverTheirEndFalls) {
  for (std::size_t size = 80; size <= 100; ++size) {
    SCOPED_TRACE(size);
    const std::string fullName = "l2cpProto" + std::string(size, 'n') + "discard";
    ASSERT_TRUE(entity.kernelCounterAdd("l2cpProto%s%s", std::string(size, 'n'), "discard"));
    EXPECT_THAT(sent(), ElementsAre("ADD_COUNTER <" + fullName.substr(0, 99) + '>'));
  }
}

TEST_F(Kernel, CounterNamesEndAtTheFirstNulOfAName) {
  ASSERT_TRUE(entity.kernelCounterAdd("l2cpProto%s%s", std::string("a\0b", 3), "peer"));
  ASSERT_TRUE(entity.kernelCounterAdd("l2cpProto%s%s", "", "peer"));
  EXPECT_THAT(sent(), ElementsAre("ADD_COUNTER <l2cpProtoapeer>", "ADD_COUNTER <l2cpProtopeer>"));
}

TEST_F(Kernel, CounterNumbersPrintAsSigned) {
  for (const int number : {0, 2147483647, -2147483647 - 1, -1}) {
    ASSERT_TRUE(entity.kernelCounterAdd("l2cpVlan%d%s", number, "tunnel"));
    EXPECT_THAT(sent(), ElementsAre("ADD_COUNTER <l2cpVlan" + std::to_string(number) + "tunnel>"));
  }
}

TEST_F(Kernel, AShortNameThatIsNotToBeHadFailsTheRequest) {
  if (!support::ownMalloc) GTEST_SKIP() << "the sanitizer's malloc cannot be made to fail";
  const std::string name(70, 'n');
  unsigned int value = 77;
  support::refusedBlock = std::string("l2cpProtopeer").size() + name.size() + 8;
  EXPECT_FALSE(entity.kernelCounterAdd("l2cpProto%s%s", name, "peer"));
  EXPECT_FALSE(entity.kernelCounterDel("l2cpProto%s%s", name, "peer"));
  support::refusedBlock = std::string("l2cpPort-123456peer").size() + 8;
  EXPECT_FALSE(entity.kernelCounterAdd("l2cpPort%d%s", -123456, "peer"));
  EXPECT_FALSE(entity.kernelCounterDel("l2cpPort%d%s", -123456, "peer"));
  EXPECT_FALSE(entity.kernelCounterGet("l2cpPort%d%s", -123456, "peer", value));
  support::refusedBlock = 0;
  EXPECT_EQ(value, 0U);
  EXPECT_THAT(sent(), ElementsAre("ADD_COUNTER null", "DEL_COUNTER null", "ADD_COUNTER null",
                                  "DEL_COUNTER null", "GET_COUNTER \"\""));
}

// A name that is not to be had goes out as an empty one, and the rest as always.
class KernelWithoutName : public Kernel {
 protected:
  void SetUp() override {
    if (!support::ownMalloc) GTEST_SKIP() << "the sanitizer's malloc cannot be made to fail";
    Kernel::SetUp();
    addProfile("P", {{"LLDP", Rule::discard}});
    // So that the names of the counters are there already.
    ASSERT_EQ(entity.portAttach("P", 3, 200), 0);
    ASSERT_EQ(entity.portDetach("P", 3, 200), 0);
    entity.GetName("l2cpVlan100peer", nullptr, nullptr);
    entity.GetName("l2cpVlan100tunnel", nullptr, nullptr);
    entity.GetName("l2cpVlan100discard", nullptr, nullptr);
    sent();
  }

  /// What is sent while entries of the table for that name are refused.
  Lines sentWithout(const std::string& fullName, const std::function<void()>& operation) {
    EXPECT_EQ(uses(fullName), 0);
    support::refusedBlock = fullName.size() + 8;
    operation();
    support::refusedBlock = 0;
    EXPECT_EQ(uses(fullName), 0);
    return sent();
  }

  /// What an attach of P sends with these names behind the creation of counters.
  static Lines attached(const std::string& selector, const std::string& list) {
    return {"ADD_SELECTOR " + selector,
            "ADD_CONDITION " + selector + " #0 vlan 100..100",
            "ADD_CONDITION " + selector + " #1 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
            "ADD_ACTION_LIST " + list,
            "ADD_ACTION " + list + " #1 count <l2cpPort3discard> +1",
            "ADD_ACTION " + list + " #2 count <l2cpVlan100discard> +1",
            "ADD_ACTION " + list + " #3 count <l2cpProfiPdiscard> +1",
            "ADD_ACTION " + list + " #4 count <l2cpProtoLLDPdiscard> +1",
            "ADD_ACTION " + list + " #5 drop <l2cpProtoLLDPdiscard> +1",
            R"(GET_PORT_ENTRY 3 kind 1 @200 "" --> "")",
            "ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
            "ADD_PORT_ENTRY 3 kind 1 @200 " + selector + " --> " + list};
  }

  static Lines detached(const std::string& selector, const std::string& list) {
    const std::string names = selector + " --> " + list;
    return {R"(GET_PORT_ENTRY 3 kind 1 @200 "" --> "")",
            "GET_PORT_ENTRY 3 kind 1 @201 " + names,
            "GET_PORT_ENTRY 3 kind 1 @200 " + names,
            "DEL_PORT_ENTRY 3 kind 1 @200 " + names,
            R"(DEL_PORT_ENTRY 3 kind 1 @299 "" --> "")",
            "DEL_SELECTOR " + selector,
            "DEL_ACTION_LIST " + list};
  }

  /// Attaches and detaches P without that name.
  void expectAttachAndDetach(const std::string& missing, const std::string& selectorShown,
                             const std::string& listShown) {
    Lines lines = sentWithout(missing, [&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); });
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("ADD_COUNTER "); });
    EXPECT_EQ(lines, attached(selectorShown, listShown));
    EXPECT_EQ(sentWithout(missing, [&] { EXPECT_EQ(entity.portDetach("P", 3, 100), 0); }),
              detached(selectorShown, listShown));
    EXPECT_THAT(classifier.entries, IsEmpty());
  }

  const std::string selector = "LLDP/100/01:80:c2:00:00:0e/ffff/ff";
  const std::string list = "LLDP/3/100/01:80:c2:00:00:0e/ffff/ff";
};

TEST_F(KernelWithoutName, TheHideEntryGoesOutWithoutAnActionList) {
  ASSERT_EQ(entity.PutName("l2cp:hide", uses("l2cp:hide")), 0);
  EXPECT_THAT(sentWithout("l2cp:hide", [&] { EXPECT_TRUE(entity.kernelHideRuleAdd(3, 1)); }),
              ElementsAre("ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> \"\""));
  classifier.entries.clear();
  classifier.refuseAll(ACL_ADD_PORT_ENTRY, ENOENT);
  EXPECT_THAT(sentWithout("l2cp:hide", [&] { EXPECT_FALSE(entity.kernelHideRuleAdd(3, 1)); }),
              ElementsAre("ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> \"\""));
}

TEST_F(KernelWithoutName, ASelectorGoesOutAndIsReferredToWithoutOne) {
  expectAttachAndDetach(selector, "\"\"", '<' + list + '>');
}

TEST_F(KernelWithoutName, AnActionListGoesOutAndIsReferredToWithoutOne) {
  expectAttachAndDetach(list, '<' + selector + '>', "\"\"");
}

// Shortened in place, the counter's name stays where nothing takes its place.
TEST_F(KernelWithoutName, ACounterOfAnActionGoesOutUnderItsFullName) {
  const std::string profile(40, 'p');
  addProfile(profile.c_str(), {{"LLDP", Rule::peer}});
  const std::string cut = "l2cpProfi" + std::string(30, 'p');
  EXPECT_THAT(sentWithout(cut, [&] { EXPECT_EQ(entity.portAttach(profile, 3, 100), 0); }),
              testing::Contains("ADD_ACTION <" + list + "> #3 count \"" + cut + "\" +1"));
}

TEST_F(KernelWithoutName, OneProtocolGoesOutWithoutTheNameOfItsSelector) {
  const auto add = [&] {
    EXPECT_EQ(entity.kernelProtoAdd(3, 4095, "LLDP", Rule::tunnel, 200), 1U);
  };
  EXPECT_THAT(sentWithout("l2cpLLDP:03fff", add),
              ElementsAre("ADD_SELECTOR \"\"",
                          "ADD_CONDITION \"\" #1 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
                          "ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                          "ADD_PORT_ENTRY 3 kind 1 @200 \"\" --> <l2cp:hide>"));
  const auto del = [&] { entity.kernelProtoDel(3, 4095, "LLDP", Rule::tunnel, 200); };
  EXPECT_EQ(sentWithout("l2cpLLDP:03fff", del).back(), "DEL_SELECTOR \"\"");
}

TEST_F(KernelWithoutName, OneProtocolGoesOutWithoutTheNameOfItsActionList) {
  const auto add = [&] {
    EXPECT_EQ(entity.kernelProtoAdd(3, 4095, "LLDP", Rule::discard, 200), 1U);
  };
  EXPECT_EQ(sentWithout("drop", add).back(),
            "ADD_PORT_ENTRY 3 kind 1 @200 <l2cpLLDP:03fff> --> \"\"");
}

// ---- The catch-all ------------------------------------------------------------------------------

TEST_F(Kernel, TheHideEntryStandsAt299WithTheLiteralSelectorTrue) {
  const int usesBefore = uses("l2cp:hide");
  EXPECT_TRUE(entity.kernelHideRuleAdd(3, 1));
  EXPECT_TRUE(entity.kernelHideRuleAdd(3, 0));
  EXPECT_TRUE(entity.kernelHideRuleAdd(4294967295U, -1));
  EXPECT_THAT(sent(),
              ElementsAre("ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                          "ADD_PORT_ENTRY 3 kind 0 @299 \"true\" --> <l2cp:hide>",
                          "ADD_PORT_ENTRY -1 kind 4294967295 @299 \"true\" --> <l2cp:hide>"));
  EXPECT_EQ(uses("l2cp:hide"), usesBefore + 3);
  EXPECT_EQ(uses("true"), 0);
}

TEST_F(Kernel, TheHideEntryIsDeletedWithoutNames) {
  ASSERT_TRUE(entity.kernelHideRuleAdd(3, 1));
  sent();
  const int usesBefore = uses("l2cp:hide");
  EXPECT_TRUE(entity.kernelHideRuleDel(3, 1));
  EXPECT_THAT(sent(), ElementsAre("DEL_PORT_ENTRY 3 kind 1 @299 \"\" --> \"\""));
  EXPECT_EQ(uses("l2cp:hide"), usesBefore);
}

TEST_F(Kernel, ARefusedHideEntryIsReportedAsFalse) {
  ASSERT_TRUE(entity.kernelHideRuleAdd(3, 1));
  EXPECT_FALSE(entity.kernelHideRuleAdd(3, 1));
  ASSERT_TRUE(entity.kernelHideRuleDel(3, 1));
  EXPECT_FALSE(entity.kernelHideRuleDel(3, 1));
}

// ---- The search for a position ------------------------------------------------------------------

TEST_F(Kernel, FindFreeIndexOfAPortWithoutEntriesIs200) {
  EXPECT_EQ(entity.findFreeIndex(3), 200U);
  EXPECT_THAT(sent(), ElementsAre("GET_PORT_ENTRY 3 kind 1 @200 \"\" --> \"\""));
}

TEST_F(Kernel, FindFreeIndexWith200To298AllPresentIs299) {
  classifier.occupy(3, 200, 298);
  EXPECT_EQ(entity.findFreeIndex(3), 299U);
  const Lines lines = sent();
  ASSERT_EQ(lines.size(), 99U);
  EXPECT_EQ(lines.front(), "GET_PORT_ENTRY 3 kind 1 @200 \"\" --> \"\"");
  EXPECT_EQ(lines.back(), "GET_PORT_ENTRY 3 kind 1 @298 \"somebody\" --> \"else\"");
}

TEST_F(Kernel, FindFreeIndexWith200To297PresentIs298) {
  classifier.occupy(3, 200, 297);
  EXPECT_EQ(entity.findFreeIndex(3), 298U);
  EXPECT_EQ(classifier.take().size(), 99U);
}

TEST_F(Kernel, FindFreeIndexWith200And202PresentIs201) {
  classifier.occupy(3, 200, 200);
  classifier.occupy(3, 202, 202);
  EXPECT_EQ(entity.findFreeIndex(3), 201U);
}

TEST_F(Kernel, FindFreeIndexReusesFreedPositionsLowestFirst) {
  classifier.occupy(3, 200, 210);
  for (const std::uint32_t freed : {207U, 204U, 201U}) {
    classifier.entries.erase({"3", 1, freed});
    EXPECT_EQ(entity.findFreeIndex(3), freed);
  }
}

TEST_F(Kernel, ALaterQueryOfASearchCarriesTheNamesThatTheKernelWrote) {
  install("3", 1, 200, "first", "list one");
  install("3", 1, 201, "second", "list two");
  EXPECT_EQ(entity.findFreeIndex(3), 202U);
  EXPECT_THAT(sent(), ElementsAre("GET_PORT_ENTRY 3 kind 1 @200 \"\" --> \"\"",
                                  "GET_PORT_ENTRY 3 kind 1 @201 \"first\" --> \"list one\"",
                                  "GET_PORT_ENTRY 3 kind 1 @202 \"second\" --> \"list two\""));
}

TEST_F(Kernel, FindFreeIndexLooksAtTheEntriesOfItsPortOfKind1Alone) {
  classifier.occupy(30, 200, 298);
  install("3", 0, 200, "other kind", "list");
  install("3", 2, 200, "other kind", "list");
  EXPECT_EQ(entity.findFreeIndex(3), 200U);
}

TEST_F(Kernel, FindFreeIndexTakesAnyRefusedQueryForAFreePosition) {
  classifier.occupy(3, 200, 298);
  classifier.refuseAt(5, EIO);
  EXPECT_EQ(entity.findFreeIndex(3), 205U);
}

TEST_F(Kernel, FindFreeIndexPrintsPortsFrom2To31OnAsNegative) {
  classifier.occupy(2147483648U, 200, 200);
  EXPECT_EQ(entity.findFreeIndex(0), 200U);
  EXPECT_EQ(entity.findFreeIndex(2147483647U), 200U);
  EXPECT_EQ(entity.findFreeIndex(2147483648U), 201U);
  EXPECT_EQ(entity.findFreeIndex(4294967295U), 200U);
  EXPECT_THAT(sent(),
              ElementsAre("GET_PORT_ENTRY 0 kind 1 @200 \"\" --> \"\"",
                          "GET_PORT_ENTRY 2147483647 kind 1 @200 \"\" --> \"\"",
                          "GET_PORT_ENTRY -2147483648 kind 1 @200 \"\" --> \"\"",
                          "GET_PORT_ENTRY -2147483648 kind 1 @201 \"somebody\" --> \"else\"",
                          "GET_PORT_ENTRY -1 kind 1 @200 \"\" --> \"\""));
}

// ---- Statistics ---------------------------------------------------------------------------------

struct NumberStatistics {
  const char* what;
  int (*read)(L2CP&, L2CP::Statistics&);
  const char* trace;
  std::vector<std::string> counters;
};

const NumberStatistics numberStatistics[] = {
    {"port",
     [](L2CP& entity, L2CP::Statistics& stats) { return entity.portStat(3, stats); },
     "portStat(port=3)",
     {"l2cpPort3peer", "l2cpPort3tunnel", "l2cpPort3discard"}},
    {"port from 2^31 on",
     [](L2CP& entity, L2CP::Statistics& stats) { return entity.portStat(4294967295U, stats); },
     "portStat(port=-1)",
     {"l2cpPort-1peer", "l2cpPort-1tunnel", "l2cpPort-1discard"}},
    {"VLAN",
     [](L2CP& entity, L2CP::Statistics& stats) { return entity.vlanStat(100, stats); },
     "vlanStat(vid=100)",
     {"l2cpVlan100peer", "l2cpVlan100tunnel", "l2cpVlan100discard"}},
    {"largest VLAN number",
     [](L2CP& entity, L2CP::Statistics& stats) { return entity.vlanStat(65535, stats); },
     "vlanStat(vid=65535)",
     {"l2cpVlan65535peer", "l2cpVlan65535tunnel", "l2cpVlan65535discard"}},
};

TEST_F(Kernel, PortAndVlanStatisticsReadPeerThenTunnelThenDiscard) {
  for (const NumberStatistics& row : numberStatistics) {
    SCOPED_TRACE(row.what);
    unsigned int value = 10;
    for (const std::string& counter : row.counters) {
      char name[40];
      entity.GetName(counter.c_str(), name, nullptr);
      classifier.counters[name] = value++;
    }
    L2CP::Statistics stats;
    EXPECT_THAT(traced([&] { EXPECT_EQ(row.read(entity, stats), 0); }), ElementsAre(row.trace));
    EXPECT_EQ(stats.peer, 10U);
    EXPECT_EQ(stats.tunnel, 11U);
    EXPECT_EQ(stats.discard, 12U);
    EXPECT_THAT(sent(), ElementsAre("GET_COUNTER <" + row.counters[0] + '>',
                                    "GET_COUNTER <" + row.counters[1] + '>',
                                    "GET_COUNTER <" + row.counters[2] + '>'));
  }
}

TEST_F(Kernel, StatisticsStopAtTheFirstFailedReadAndKeepWhatTheyDidNotReach) {
  struct {
    std::size_t failedRead;
    unsigned int peer, tunnel, discard;
  } const rows[] = {
      {0, 0, 2, 3},
      {1, 50, 0, 3},
      {2, 50, 50, 0},
  };
  for (const NumberStatistics& statistics : numberStatistics) {
    for (const std::string& counter : statistics.counters) {
      char name[40];
      entity.GetName(counter.c_str(), name, nullptr);
      classifier.counters[name] = 50;
    }
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(statistics.what) + ", read " + std::to_string(row.failedRead));
      classifier.refuseAt(row.failedRead, ENOENT);
      L2CP::Statistics stats{1, 2, 3};
      EXPECT_THAT(traced([&] { EXPECT_EQ(statistics.read(entity, stats), -11); }),
                  ElementsAre(statistics.trace));
      EXPECT_EQ(stats.peer, row.peer);
      EXPECT_EQ(stats.tunnel, row.tunnel);
      EXPECT_EQ(stats.discard, row.discard);
      EXPECT_EQ(classifier.take().size(), row.failedRead + 1);
    }
  }
}

TEST_F(Kernel, StatisticsTraceFormats) {
  traced([&] {
    L2CP::Statistics stats;
    entity.portStat(3, stats);
    entity.vlanStat(3, stats);
  });
  EXPECT_THAT(support::SyslogCapture::instance().traceFormats(),
              ElementsAre("%s:%d %s(port=%d)", "%s:%d %s(vid=%d)"));
}

TEST_F(Kernel, StatisticsDoNotAskWhetherTheModuleKnowsThePortOrVlan) {
  ASSERT_THAT(entity.settings.ports, IsEmpty());
  L2CP::Statistics stats;
  EXPECT_EQ(entity.portStat(3, stats), 0);
  EXPECT_EQ(entity.vlanStat(100, stats), 0);
}

TEST_F(Kernel, NothingIsTracedWhileTheSwitchIsOff) {
  L2CP::Statistics stats;
  entity.portStat(3, stats);
  entity.vlanStat(3, stats);
  EXPECT_THAT(support::SyslogCapture::instance().lines, IsEmpty());
}

// ---- The requests themselves --------------------------------------------------------------------

TEST_F(Kernel, RequestCodesCarryTheSizeOfAWordWhateverTheRecord) {
  addProfile("P", {{"LACP-LAMP", Rule::tunnel}});
  entity.portAttach("P", 3, 100);
  entity.portDetach("P", 3, 100);
  entity.kernelCounterDel("l2cpPort%d%s", 3, "peer");
  L2CP::Statistics stats;
  entity.portStat(3, stats);
  std::set<std::pair<unsigned long, std::size_t>> codes;
  for (const support::Request& request : classifier.requests) {
    codes.emplace(request.code, request.bytes.size());
  }
  EXPECT_THAT(codes, ElementsAre(std::pair(0x40047a03UL, 116U), std::pair(0x40047a04UL, 116U),
                                 std::pair(0x40047a05UL, 116U), std::pair(0x40047a08UL, 92U),
                                 std::pair(0x40047a09UL, 92U), std::pair(0x40047a0aUL, 92U),
                                 std::pair(0x40047a0dUL, 120U), std::pair(0x40047a0eUL, 120U),
                                 std::pair(0x40047a10UL, 40U), std::pair(0x40047a11UL, 40U),
                                 std::pair(0x40047a15UL, 120U), std::pair(0xc0047a13UL, 56U)));
}

}  // namespace
