/// Attachments on the software classifier: what becomes of frames, and what the statistics say of
/// them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <ostream>

#include "classifier/table.h"
#include "host/bridge.h"
#include "l2cp/l2cp.h"
#include "tests/l2cp/name_table.h"
#include "tests/support/frame_builder.h"

// GoogleTest prints and compares them by these.
static bool operator==(const L2CP::Statistics& left, const L2CP::Statistics& right) {
  return left.peer == right.peer && left.tunnel == right.tunnel && left.discard == right.discard;
}

static std::ostream& operator<<(std::ostream& out, const L2CP::Statistics& stats) {
  return out << "peer " << stats.peer << ", tunnel " << stats.tunnel << ", discard "
             << stats.discard;
}

namespace {

using classifier::Fate;
using support::Bytes;
using support::FrameBuilder;
using support::Mac;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Statistics = L2CP::Statistics;
using Rule = L2CP::Rule;
using Vlans = std::initializer_list<unsigned short>;

constexpr Mac station{0x02, 0, 0, 0, 0, 1};
constexpr Mac lldpAddress{0x01, 0x80, 0xc2, 0, 0, 0x0e};
constexpr Mac slowAddress{0x01, 0x80, 0xc2, 0, 0, 0x02};
constexpr Mac ciscoAddress{0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc};

constexpr Mac bridgeAddress(std::uint8_t last) { return {0x01, 0x80, 0xc2, 0, 0, last}; }

/// A frame's beginning, tagged unless the VLAN is `untagged`.
constexpr int untagged = -1;

FrameBuilder begin(const Mac& destination, int vlan) {
  FrameBuilder frame;
  frame.ethernet(destination, station);
  if (vlan != untagged) frame.tag(0x8100, static_cast<std::uint16_t>(vlan));
  return frame;
}

Bytes lldp(int vlan) { return begin(lldpAddress, vlan).etherType(0x88cc).payload({2, 7}).bytes(); }

Bytes slow(int vlan, std::uint8_t subType) {
  return begin(slowAddress, vlan).etherType(0x8809).payload({subType, 1}).bytes();
}

Bytes cfm(int vlan, std::uint8_t last) {
  return begin(bridgeAddress(last), vlan).etherType(0x8902).payload({0}).bytes();
}

Bytes snap(int vlan, std::uint16_t protocol) {
  return begin(ciscoAddress, vlan).length(30).snap({0, 0, 0x0c}, protocol).payload({2}).bytes();
}

class PortClassifier : public testing::Test {
 protected:
  void SetUp() override {
    // Tables are never emptied, so every entity has one of its own.
    static int bridges = 0;
    bridge = "test" + std::to_string(++bridges);
    setBridgeName(bridge);
    ASSERT_TRUE(entity.start());
  }

  void TearDown() override { entity.stop(); }

  classifier::Table& table() const { return classifier::tableOf(bridge); }

  Fate fate(unsigned int port, const Bytes& frame) { return table().classify(port, frame).fate; }

  /// The positions of the port's entries.
  std::vector<std::uint32_t> positions(unsigned int port) const {
    std::vector<std::uint32_t> result;
    for (const auto& rule : table().rules(port)) result.push_back(rule->index);
    return result;
  }

  Statistics portStat(unsigned int port) {
    Statistics stats{77, 77, 77};
    EXPECT_EQ(entity.portStat(port, stats), 0);
    return stats;
  }

  Statistics vlanStat(unsigned short vid) {
    Statistics stats{77, 77, 77};
    EXPECT_EQ(entity.vlanStat(vid, stats), 0);
    return stats;
  }

  /// The value of a counter that the statistics by name cannot read.
  std::uint64_t counter(const std::string& fullName) {
    acl_ioctl_counter record{};
    entity.GetName(fullName.c_str(), record.name, nullptr);
    EXPECT_EQ(table().request(ACL_GET_COUNTER, &record), 0) << fullName;
    return record.value;
  }

  void addProfile(const char* name,
                  const std::vector<std::pair<const char*, L2CP::Rule>>& entries) {
    ASSERT_EQ(entity.profileAdd(name, false, false), 0);
    for (const auto& [proto, rule] : entries) {
      ASSERT_EQ(entity.profileProtoAdd(name, proto, rule), 0) << proto;
    }
  }

  template <class Operation>
  std::vector<std::string> traced(const Operation& operation) {
    return tracesOf(entity, operation);
  }

  std::string bridge;
  L2CP entity;
};

// ---- Fates and counters -------------------------------------------------------------------------

TEST_F(PortClassifier, EachRuleHasItsFateAndItsCounters) {
  addProfile("P", {{"LLDP", Rule::discard}, {"LACP-LAMP", Rule::peer}, {"CDP", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(portStat(3), (Statistics{0, 0, 0}));

  EXPECT_EQ(fate(3, lldp(100)), Fate::discard);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(fate(3, slow(100, 1)), Fate::peer);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(fate(3, snap(100, 0x2000)), Fate::tunnel);

  EXPECT_EQ(portStat(3), (Statistics{2, 3, 1}));
  EXPECT_EQ(vlanStat(100), (Statistics{2, 3, 1}));
  EXPECT_EQ(counter("l2cpProfiPpeer"), 2U);
  EXPECT_EQ(counter("l2cpProfiPtunnel"), 3U);
  EXPECT_EQ(counter("l2cpProfiPdiscard"), 1U);
  EXPECT_EQ(counter("l2cpProtoLLDPdiscard"), 1U);
  EXPECT_EQ(counter("l2cpProtoLACP-LAMPpeer"), 2U);
  EXPECT_EQ(counter("l2cpProtoCDPtunnel"), 3U);
}

TEST_F(PortClassifier, FramesThatNoRuleIsForAreUntouchedAndNotCounted) {
  addProfile("P", {{"LLDP", Rule::discard}, {"LACP-LAMP", Rule::peer}, {"CDP", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(fate(4, lldp(100)), Fate::untouched);
  EXPECT_EQ(fate(3, lldp(101)), Fate::untouched);
  EXPECT_EQ(fate(3, lldp(untagged)), Fate::untouched);
  EXPECT_EQ(fate(3, slow(100, 3)), Fate::untouched);
  EXPECT_EQ(fate(3, snap(100, 0x0111)), Fate::untouched);
  EXPECT_EQ(fate(3, begin(station, 100).etherType(0x0800).bytes()), Fate::untouched);
  EXPECT_EQ(portStat(3), (Statistics{0, 0, 0}));
  EXPECT_EQ(vlanStat(100), (Statistics{0, 0, 0}));
}

TEST_F(PortClassifier, AllBuiltInProtocolsTellTheirFramesApart) {
  struct Sample {
    const char* protocol;
    Bytes frame;
  };
  const Sample samples[] = {
      {"xSTP", begin(bridgeAddress(0x00), untagged).length(38).llc(0x42, 0x42, 3).bytes()},
      {"Pause-Frame", begin(bridgeAddress(0x01), untagged).etherType(0x8808).bytes()},
      {"LACP-LAMP", slow(untagged, 1)},
      {"OAM-EFM", slow(untagged, 3)},
      {"PNAC", begin(bridgeAddress(0x03), untagged).etherType(0x888e).bytes()},
      {"E-LMI", begin(bridgeAddress(0x07), untagged).etherType(0x88ee).bytes()},
      {"LLDP", lldp(untagged)},
      {"GMRP-MMRP", begin(bridgeAddress(0x20), untagged).etherType(0x88f6).bytes()},
      {"GVRP-MVRP", begin(bridgeAddress(0x21), untagged).etherType(0x88f5).bytes()},
      {"All-Bridges", begin(bridgeAddress(0x10), untagged).etherType(0x1234).bytes()},
      {"OAM-CFM", cfm(untagged, 0x3f)},
      {"MSPP", begin(bridgeAddress(0x03), untagged).etherType(0x22e2).bytes()},
      {"CDP", snap(untagged, 0x2000)},
      {"UDLD", snap(untagged, 0x0111)},
  };
  ASSERT_EQ(std::size(samples), entity.settings.protocols.size());
  ASSERT_EQ(entity.profileAdd("ALL", false, false), 0);
  constexpr Rule rules[] = {Rule::discard, Rule::peer, Rule::tunnel};
  constexpr Fate fates[] = {Fate::discard, Fate::peer, Fate::tunnel};
  for (std::size_t i = 0; i < std::size(samples); ++i) {
    ASSERT_EQ(entity.profileProtoAdd("ALL", samples[i].protocol, rules[i % 3]), 0);
  }
  ASSERT_EQ(entity.portAttach("ALL", 3, 4095), 0);
  for (std::size_t i = 0; i < std::size(samples); ++i) {
    SCOPED_TRACE(samples[i].protocol);
    EXPECT_EQ(fate(3, samples[i].frame), fates[i % 3]);
    EXPECT_EQ(
        counter(std::string("l2cpProto") + samples[i].protocol + L2CP::rule2str(rules[i % 3])), 1U);
  }
  EXPECT_EQ(portStat(3), (Statistics{5, 4, 5}));
  EXPECT_EQ(vlanStat(4095), (Statistics{5, 4, 5}));
}

TEST_F(PortClassifier, AnAttachmentMatchesUnderTheProtocolsOwnMaskTheSingleFormUnderTheFullOne) {
  addProfile("P", {{"OAM-CFM", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(fate(3, cfm(100, 0x30)), Fate::tunnel);
  EXPECT_EQ(fate(3, cfm(100, 0x37)), Fate::tunnel);
  EXPECT_EQ(fate(3, cfm(100, 0x40)), Fate::untouched);
  ASSERT_EQ(entity.kernelProtoAdd(4, 100, "OAM-CFM", Rule::tunnel, 200), 1U);
  EXPECT_EQ(fate(4, cfm(100, 0x30)), Fate::peer);
  EXPECT_EQ(fate(4, cfm(100, 0x37)), Fate::untouched);
}

TEST_F(PortClassifier, Vlan4095StandsForTheWholePort) {
  addProfile("P", {{"LLDP", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 4095), 0);
  for (const int vlan : {untagged, 0, 1, 100, 4094, 4095}) {
    EXPECT_EQ(fate(3, lldp(vlan)), Fate::tunnel) << vlan;
  }
  EXPECT_EQ(vlanStat(4095), (Statistics{0, 6, 0}));
  EXPECT_EQ(portStat(3), (Statistics{0, 6, 0}));
}

TEST_F(PortClassifier, TheEdgesOfTheVlanRangeAreVlansOfTheirOwn) {
  addProfile("P", {{"LLDP", Rule::peer}});
  for (const unsigned short vid : Vlans{0, 4094}) ASSERT_EQ(entity.portAttach("P", 3, vid), 0);
  EXPECT_EQ(fate(3, lldp(0)), Fate::peer);
  EXPECT_EQ(fate(3, lldp(4094)), Fate::peer);
  for (const int vlan : {untagged, 1, 4093, 4095}) {
    EXPECT_EQ(fate(3, lldp(vlan)), Fate::untouched) << vlan;
  }
  EXPECT_EQ(vlanStat(0), (Statistics{1, 0, 0}));
  EXPECT_EQ(vlanStat(4094), (Statistics{1, 0, 0}));
}

TEST_F(PortClassifier, AVlanNumberThatNoTagHoldsLosesItsConditionAlone) {
  addProfile("P", {{"LLDP", Rule::peer}});
  EXPECT_THAT(traced([&] { EXPECT_EQ(entity.portAttach("P", 3, 65535), 0); }),
              Contains("  Unable to add condition \"vid1 == 65535\" (22)."));
  EXPECT_EQ(fate(3, lldp(7)), Fate::peer);
  EXPECT_EQ(fate(3, slow(7, 1)), Fate::untouched);
  EXPECT_EQ(vlanStat(65535), (Statistics{1, 0, 0}));
}

TEST_F(PortClassifier, PortNumbersAreAny32BitNumber) {
  addProfile("P", {{"LLDP", Rule::discard}});
  for (const unsigned int port : {0U, 2147483647U, 2147483648U, 4294967295U}) {
    SCOPED_TRACE(port);
    ASSERT_EQ(entity.portAttach("P", port, 100), 0);
    EXPECT_EQ(fate(port, lldp(100)), Fate::discard);
    EXPECT_EQ(portStat(port), (Statistics{0, 0, 1}));
  }
  EXPECT_EQ(vlanStat(100), (Statistics{0, 0, 4}));
  // Ports 0 and 2^31 share their count of entries, so the second of them has no catch-all.
  EXPECT_THAT(positions(0), ElementsAre(200U, 299U));
  EXPECT_THAT(positions(2147483648U), ElementsAre(200U));
}

TEST_F(PortClassifier, APortCountsAllItsVlansAndAVlanAllItsPorts) {
  addProfile("P", {{"LLDP", Rule::peer}, {"CDP", Rule::discard}});
  for (const unsigned int port : {3U, 4U}) {
    for (const unsigned short vid : Vlans{100, 200}) {
      ASSERT_EQ(entity.portAttach("P", port, vid), 0);
    }
  }
  const auto show = [&](unsigned int port, int vlan, int lldpFrames, int cdpFrames) {
    for (int i = 0; i < lldpFrames; ++i) EXPECT_EQ(fate(port, lldp(vlan)), Fate::peer);
    for (int i = 0; i < cdpFrames; ++i) EXPECT_EQ(fate(port, snap(vlan, 0x2000)), Fate::discard);
  };
  show(3, 100, 1, 10);
  show(3, 200, 2, 20);
  show(4, 100, 3, 30);
  show(4, 200, 4, 40);
  EXPECT_EQ(portStat(3), (Statistics{3, 0, 30}));
  EXPECT_EQ(portStat(4), (Statistics{7, 0, 70}));
  EXPECT_EQ(vlanStat(100), (Statistics{4, 0, 40}));
  EXPECT_EQ(vlanStat(200), (Statistics{6, 0, 60}));
  EXPECT_EQ(counter("l2cpProfiPpeer"), 10U);
  EXPECT_EQ(counter("l2cpProfiPdiscard"), 100U);
}

// ---- Statistics ---------------------------------------------------------------------------------

TEST_F(PortClassifier, StatisticsWithoutCountersReturnMinus11AndLeavePeerAt0) {
  Statistics stats{1, 2, 3};
  EXPECT_EQ(entity.portStat(3, stats), -11);
  EXPECT_EQ(stats, (Statistics{0, 2, 3}));
  stats = {1, 2, 3};
  EXPECT_EQ(entity.vlanStat(100, stats), -11);
  EXPECT_EQ(stats, (Statistics{0, 2, 3}));
}

TEST_F(PortClassifier, StatisticsStopAtTheCounterThatIsMissing) {
  addProfile("P", {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(fate(3, lldp(100)), Fate::peer);
  ASSERT_TRUE(entity.kernelCounterDel(L2CP::m_counter_port_mask, 3, L2CP::m_rule_tunnel));
  ASSERT_FALSE(entity.kernelCounterDel(L2CP::m_counter_port_mask, 3, L2CP::m_rule_tunnel));
  Statistics stats{7, 8, 9};
  EXPECT_EQ(entity.portStat(3, stats), -11);
  EXPECT_EQ(stats, (Statistics{1, 0, 9}));
}

TEST_F(PortClassifier, StatisticsByNameNeverFindTheirCounters) {
  addProfile("P", {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(fate(3, lldp(100)), Fate::peer);
  Statistics stats{7, 8, 9};
  EXPECT_EQ(entity.protoStat("LLDP", stats), -11);
  EXPECT_EQ(stats, (Statistics{0, 8, 9}));
  stats = {7, 8, 9};
  EXPECT_EQ(entity.profileStat("P", stats), -11);
  EXPECT_EQ(stats, (Statistics{0, 8, 9}));
}

TEST_F(PortClassifier, CountersOutliveTheDetachAndGoOnCountingWithTheNextAttach) {
  addProfile("P", {{"LLDP", Rule::discard}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(fate(3, lldp(100)), Fate::discard);
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_EQ(fate(3, lldp(100)), Fate::untouched);
  EXPECT_THAT(positions(3), IsEmpty());
  EXPECT_EQ(portStat(3), (Statistics{0, 0, 1}));
  EXPECT_EQ(vlanStat(100), (Statistics{0, 0, 1}));
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(fate(3, lldp(100)), Fate::discard);
  EXPECT_EQ(portStat(3), (Statistics{0, 0, 2}));
  EXPECT_EQ(vlanStat(100), (Statistics{0, 0, 2}));
}

TEST_F(PortClassifier, AnEntityThatIsNotStartedHasNoClassifierYetAttachesAllTheSame) {
  L2CP idle;
  ASSERT_EQ(idle.profileAdd("P", false, false), 0);
  ASSERT_EQ(idle.profileProtoAdd("P", "LLDP", Rule::peer), 0);
  EXPECT_THAT(tracesOf(idle, [&] { EXPECT_EQ(idle.portAttach("P", 3, 100), 0); }),
              ElementsAre("portAttach(profileName=\"P\", port=3, vid=100)",
                          "  Unable to add selector \"<LLDP/100/01:80:c2:00:00:0e/ffff/ff>\" (9).",
                          "  Unable to add action list \"<LLDP/100/01:80:c2:00:00:0e/ffff/ff>\" "
                          "(9).",
                          "  Unable to add port entry \"@3:200: "
                          "<LLDP/100/01:80:c2:00:00:0e/ffff/ff> --> "
                          "<LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>\" (9).",
                          "  OK."));
  Statistics stats{1, 2, 3};
  EXPECT_EQ(idle.portStat(3, stats), -11);
  EXPECT_EQ(idle.findFreeIndex(3), 200U);
  EXPECT_EQ(idle.portDetach("P", 3, 100), 0);
  EXPECT_FALSE(idle.kernelCounterAdd(L2CP::m_counter_port_mask, 3, L2CP::m_rule_peer));
  EXPECT_FALSE(idle.kernelHideRuleAdd(3, 1));
  EXPECT_EQ(idle.kernelProtoAdd(3, 100, "LLDP", Rule::tunnel, 200), 0U);
}

// ---- Several attachments ------------------------------------------------------------------------

TEST_F(PortClassifier, TheCatchAllStandsBehindAPortsEntriesWhileThereAreAny) {
  addProfile("P", {{"LLDP", Rule::peer}});
  addProfile("Q", {{"CDP", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_THAT(positions(3), ElementsAre(200U, 299U));
  ASSERT_EQ(entity.portAttach("Q", 3, 100), 0);
  EXPECT_THAT(positions(3), ElementsAre(200U, 201U, 299U));
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_THAT(positions(3), ElementsAre(201U, 299U));
  EXPECT_EQ(fate(3, lldp(100)), Fate::untouched);
  EXPECT_EQ(fate(3, snap(100, 0x2000)), Fate::tunnel);
  ASSERT_EQ(entity.portDetach("Q", 3, 100), 0);
  EXPECT_THAT(positions(3), IsEmpty());
}

TEST_F(PortClassifier, OfTwoVlansThatBothHoldTheEarlierAttachmentDecides) {
  addProfile("P", {{"LLDP", Rule::peer}});
  addProfile("Q", {{"LLDP", Rule::discard}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(entity.portAttach("Q", 3, 4095), 0);
  EXPECT_EQ(fate(3, lldp(100)), Fate::peer);
  EXPECT_EQ(fate(3, lldp(200)), Fate::discard);
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_EQ(fate(3, lldp(100)), Fate::discard);
}

TEST_F(PortClassifier, TwoProfilesWithACommonProtocolOnOnePortAndVlanShareTheFirstOnesActionList) {
  addProfile("P", {{"LLDP", Rule::peer}});
  addProfile("Q", {{"LLDP", Rule::discard}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  const std::string selector = "<LLDP/100/01:80:c2:00:00:0e/ffff/ff>";
  EXPECT_THAT(traced([&] { EXPECT_EQ(entity.portAttach("Q", 3, 100), 0); }),
              ElementsAre("portAttach(profileName=\"Q\", port=3, vid=100)",
                          "  Unable to add selector \"" + selector + "\" (17).",
                          "  Unable to add action list \"" + selector + "\" (17).",
                          "  Port entry \"@3:201: " + selector +
                              " --> <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>\" added.",
                          "  OK."));
  EXPECT_EQ(fate(3, lldp(100)), Fate::peer);
  EXPECT_EQ(counter("l2cpProfiPpeer"), 1U);
  EXPECT_EQ(counter("l2cpProfiQdiscard"), 0U);
  // Their entries have the same names, so either detach takes the lower one.
  ASSERT_EQ(entity.portDetach("Q", 3, 100), 0);
  EXPECT_THAT(positions(3), ElementsAre(201U, 299U));
  EXPECT_EQ(fate(3, lldp(100)), Fate::peer);
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_THAT(positions(3), IsEmpty());
}

TEST_F(PortClassifier, TwoPortsShareASelectorAndADetachLeavesTheOthersEntryWorking) {
  addProfile("P", {{"LLDP", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  const std::vector<std::string> traces =
      traced([&] { EXPECT_EQ(entity.portAttach("P", 4, 100), 0); });
  // The selector is there, with its conditions.
  EXPECT_EQ(traces.at(1),
            "  Unable to add selector \"<LLDP/100/01:80:c2:00:00:0e/ffff/ff>\" (17).");
  EXPECT_EQ(traces.at(2), "  Action \"CounterChange(<l2cpPort4tunnel>, +1)\" added.");
  EXPECT_EQ(fate(4, lldp(100)), Fate::tunnel);
  EXPECT_EQ(fate(4, lldp(101)), Fate::untouched);
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_EQ(fate(3, lldp(100)), Fate::untouched);
  EXPECT_EQ(fate(4, lldp(100)), Fate::tunnel);
  // Its name is free for the next attach.
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(fate(3, lldp(100)), Fate::tunnel);
  ASSERT_EQ(entity.portDetach("P", 4, 100), 0);
  EXPECT_THAT(positions(4), IsEmpty());
  EXPECT_EQ(fate(3, lldp(100)), Fate::tunnel);
}

TEST_F(PortClassifier, AFullPortRefusesWhatItHasNoPositionForAndTakesItOnceThereIsRoom) {
  ASSERT_EQ(entity.profileAdd("ALL", false, false), 0);
  for (const auto& [name, proto] : entity.settings.protocols) {
    ASSERT_EQ(entity.profileProtoAdd("ALL", name.c_str(), Rule::discard), 0);
  }
  // Seven times 14 entries leave one of the 99 positions.
  for (unsigned short vid = 1; vid <= 7; ++vid) ASSERT_EQ(entity.portAttach("ALL", 3, vid), 0);
  const std::vector<std::string> traces =
      traced([&] { EXPECT_EQ(entity.portAttach("ALL", 3, 8), 0); });
  EXPECT_EQ(
      std::ranges::count_if(traces,
                            [](const std::string& trace) {
                              return trace.starts_with("  Unable to add port entry \"@3:299: ") &&
                                     trace.ends_with("\" (17).");
                            }),
      13);
  EXPECT_EQ(table().rules(3).size(), 100U);
  EXPECT_EQ(entity.findFreeIndex(3), 299U);

  ASSERT_EQ(entity.portDetach("ALL", 3, 1), 0);
  EXPECT_EQ(entity.findFreeIndex(3), 200U);
  ASSERT_EQ(entity.portAttach("ALL", 3, 9), 0);
  EXPECT_EQ(table().rules(3).size(), 100U);
  EXPECT_EQ(fate(3, lldp(1)), Fate::untouched);
  EXPECT_EQ(fate(3, lldp(9)), Fate::discard);
}

TEST_F(PortClassifier, RefusedEntriesStayCountedAndKeepTheCatchAll) {
  addProfile("P", {{"LLDP", Rule::peer}});
  for (unsigned short vid = 1; vid <= 100; ++vid) ASSERT_EQ(entity.portAttach("P", 3, vid), 0);
  for (unsigned short vid = 1; vid <= 100; ++vid) ASSERT_EQ(entity.portDetach("P", 3, vid), 0);
  EXPECT_TRUE(entity.settings.ports.empty());
  EXPECT_THAT(positions(3), ElementsAre(299U));
  EXPECT_EQ(fate(3, lldp(1)), Fate::untouched);
}

// ---- Names and rules out of the ordinary --------------------------------------------------------

TEST_F(PortClassifier, RuleOutOfRangeCountsForItsProtocolAloneAndLeavesTheFrameUntouched) {
  for (const std::uint32_t number : {7U, 0xffffffffU}) {
    SCOPED_TRACE(number);
    const std::string name = "P" + std::to_string(number);
    const auto port = number == 7 ? 7U : 8U;
    addProfile(name.c_str(), {{"LLDP", static_cast<Rule>(number)}});
    const std::vector<std::string> traces =
        traced([&] { EXPECT_EQ(entity.portAttach(name, port, 100), 0); });
    EXPECT_THAT(
        traces,
        testing::IsSupersetOf(
            {"  Unable to add action \"CounterChange(<l2cpPort" + std::to_string(port) +
                 "unknown>, +1)\" (2).",
             std::string("  Unable to add action \"CounterChange(<l2cpVlan100unknown>, "
                         "+1)\" (2)."),
             "  Unable to add action \"CounterChange(<l2cpProfi" + name + "unknown>, +1)\" (2).",
             std::string("  Action \"CounterChange(<l2cpProtoLLDPunknown>, +1)\" added.")}));
    EXPECT_EQ(fate(port, lldp(100)), Fate::untouched);
  }
  EXPECT_EQ(counter("l2cpProtoLLDPunknown"), 2U);
  EXPECT_EQ(portStat(7), (Statistics{0, 0, 0}));
}

TEST_F(PortClassifier, ALongProfileNameLosesItsCounterAndNothingElse) {
  const std::string profile(40, 'p');
  addProfile(profile.c_str(), {{"LLDP", Rule::discard}});
  EXPECT_THAT(traced([&] { EXPECT_EQ(entity.portAttach(profile, 3, 100), 0); }),
              Contains("  Unable to add action \"CounterChange(<l2cpProfi" + std::string(30, 'p') +
                       ">, +1)\" (2)."));
  EXPECT_EQ(fate(3, lldp(100)), Fate::discard);
  EXPECT_EQ(portStat(3), (Statistics{0, 0, 1}));
  EXPECT_EQ(counter("l2cpProfi" + profile + "discard"), 0U);
  EXPECT_EQ(counter("l2cpProtoLLDPdiscard"), 1U);
}

TEST_F(PortClassifier, ASubtypeWithoutEtherTypeIsMatchedByTheSingleFormAlone) {
  ASSERT_EQ(entity.protoAdd("X", false, slowAddress.data(), L2CP::m_allMac, L2CP::m_noEtherType, 1),
            0);
  addProfile("P", {{"X", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(fate(3, slow(100, 1)), Fate::tunnel);
  EXPECT_EQ(fate(3, slow(100, 2)), Fate::tunnel);
  ASSERT_EQ(entity.kernelProtoAdd(4, 100, "X", Rule::tunnel, 200), 1U);
  EXPECT_EQ(fate(4, slow(100, 1)), Fate::peer);
  EXPECT_EQ(fate(4, slow(100, 2)), Fate::untouched);
}

// ---- The single form ----------------------------------------------------------------------------

TEST_F(PortClassifier, TheSingleFormTunnelsByHiding) {
  ASSERT_EQ(entity.kernelProtoAdd(3, 100, "LLDP", Rule::tunnel, 250), 1U);
  EXPECT_THAT(positions(3), ElementsAre(250U, 299U));
  EXPECT_EQ(fate(3, lldp(100)), Fate::peer);
  EXPECT_EQ(fate(3, lldp(101)), Fate::untouched);
}

TEST_F(PortClassifier, TheSingleFormDiscardsOnlyWhereSomebodyMadeTheListDrop) {
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "LLDP", Rule::discard, 250), 0U);
  EXPECT_THAT(positions(3), ElementsAre(299U));

  acl_ioctl_action drop{};
  entity.GetName(L2CP::m_action_list_drop, drop.actionList, nullptr);
  ASSERT_EQ(table().request(ACL_ADD_ACTION_LIST, &drop), 0);
  drop.type = ACL_ACTION_DROP;
  ASSERT_EQ(table().request(ACL_ADD_ACTION, &drop), 0);
  // The selector of the first try is gone, or this one would fail.
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "LLDP", Rule::discard, 250), 1U);
  EXPECT_EQ(fate(3, lldp(100)), Fate::discard);
}

TEST_F(PortClassifier, TheSingleFormDoesNotFindItsEntryAgain) {
  ASSERT_EQ(entity.kernelProtoAdd(3, 100, "LLDP", Rule::tunnel, 250), 1U);
  EXPECT_EQ(entity.kernelProtoDel(3, 100, "LLDP", Rule::tunnel, 250), 1U);
  EXPECT_THAT(positions(3), ElementsAre(250U, 299U));
  EXPECT_EQ(fate(3, lldp(100)), Fate::peer);
  // Its selector has lost its name, so another one takes it.
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "LLDP", Rule::tunnel, 251), 1U);
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "LLDP", Rule::tunnel, 252), 0U);
}

TEST_F(PortClassifier, AProtocolWithoutConditionsTakesEveryFrame) {
  constexpr unsigned char zero[6] = {};
  ASSERT_EQ(entity.protoAdd("ANY", false, zero, zero, L2CP::m_noEtherType, L2CP::m_noSubType), 0);
  ASSERT_EQ(entity.kernelProtoAdd(3, 4095, "ANY", Rule::tunnel, 200), 1U);
  EXPECT_EQ(fate(3, begin(station, untagged).etherType(0x0800).bytes()), Fate::peer);
  // An attachment states the same with two conditions that always hold.
  addProfile("P", {{"ANY", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 4, 4095), 0);
  EXPECT_EQ(fate(4, begin(station, untagged).etherType(0x0800).bytes()), Fate::tunnel);
}

// ---- The end ------------------------------------------------------------------------------------

TEST_F(PortClassifier, AttachmentsAndCountersStayInTheClassifierBehindAStop) {
  addProfile("P", {{"LLDP", Rule::discard}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_TRUE(entity.stop());
  EXPECT_EQ(fate(3, lldp(100)), Fate::discard);
  Statistics stats;
  EXPECT_EQ(entity.portStat(3, stats), -11);
  ASSERT_TRUE(entity.start());
  EXPECT_EQ(portStat(3), (Statistics{0, 0, 1}));
}

}  // namespace
