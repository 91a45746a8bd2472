// The whole road: a request becomes an operation of the module, the operation becomes requests to
// the classifier, the classifier decides about frames, and counters are read back on the same road.

#include <set>
#include <string>
#include <vector>

#include "tests/system/road.h"
#include "tests/system/wire.h"

namespace {

using client::Counters;
using support::Bytes;
using namespace frames;

FOR_BOTH_TRANSPORTS(Road);

TEST_P(Road, AttachedProfileDecidesAboutFramesAndCountsThem) {
  makeProfile("P");
  ASSERT_EQ(service().attach("P", 3, 100), RPC_L2CP_OK);

  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_DISCARD);
  EXPECT_EQ(control().fate(3, lacp(100)), CONTROL_FATE_PEER);
  EXPECT_EQ(control().fate(3, stp(100)), CONTROL_FATE_TUNNEL);
  EXPECT_EQ(control().fate(3, stp(100)), CONTROL_FATE_TUNNEL);

  const Counters expected{.total = 4, .discard = 1, .peer = 1, .tunnel = 2};
  EXPECT_EQ(service().portStat(3), expected);
  EXPECT_EQ(service().vlanStat(100), expected);
}

TEST_P(Road, VerdictNamesTheCountersOfPortVlanProfileAndProtocol) {
  makeProfile("P");
  service().attach("P", 3, 100);
  const client::Verdict verdict = control().feed(3, lldp(100));
  EXPECT_TRUE(verdict.met);
  EXPECT_EQ(verdict.kind, 1U);
  EXPECT_GE(verdict.index, 200U);
  EXPECT_LE(verdict.index, 202U);
  EXPECT_EQ(verdict.increments, (std::vector<int>{1, 1, 1, 1}));
  EXPECT_EQ(fullNamesOf(verdict.counters),
            (std::vector<std::string>{"l2cpPort3discard", "l2cpVlan100discard", "l2cpProfiPdiscard",
                                      "l2cpProtoLLDPdiscard"}));
  EXPECT_EQ(fullNamesOf({verdict.selector, verdict.actionList}),
            (std::vector<std::string>{"LLDP/100/01:80:c2:00:00:0e/ffff/ff",
                                      "LLDP/3/100/01:80:c2:00:00:0e/ffff/ff"}));
}

TEST_P(Road, FramesThatNoEntryClaimsReachTheCatchAllUntouched) {
  makeProfile("P");
  service().attach("P", 3, 100);
  for (const Bytes& frame : {data(100), lldp(101), untaggedLldp(), lacp(100, 2), Bytes{}}) {
    const client::Verdict verdict = control().feed(3, frame);
    EXPECT_EQ(verdict.fate, CONTROL_FATE_UNTOUCHED);
    EXPECT_TRUE(verdict.met);
    EXPECT_EQ(verdict.index, 299U);
    EXPECT_EQ(verdict.selector, "true");
    EXPECT_EQ(verdict.counters, std::vector<std::string>{});
  }
  EXPECT_EQ(service().portStat(3), Counters{});
}

TEST_P(Road, OtherPortsAreUntouched) {
  makeProfile("P");
  service().attach("P", 3, 100);
  const client::Verdict verdict = control().feed(4, lldp(100));
  EXPECT_EQ(verdict.fate, CONTROL_FATE_UNTOUCHED);
  EXPECT_FALSE(verdict.met);
  EXPECT_EQ(verdict.selector, "");
  EXPECT_EQ(service().vlanStat(100), Counters{});
}

TEST_P(Road, WholePortIsEveryFrameTaggedOrNot) {
  makeProfile("P");
  service().attach("P", 3, 4095);
  EXPECT_EQ(control().fate(3, untaggedLldp()), CONTROL_FATE_DISCARD);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_DISCARD);
  EXPECT_EQ(service().vlanStat(4095), (Counters{.total = 2, .discard = 2}));
}

TEST_P(Road, DetachingEndsTheTreatmentAndKeepsTheCounters) {
  makeProfile("P");
  service().attach("P", 3, 100);
  control().feed(3, lldp(100));
  ASSERT_EQ(service().detach("P", 3, 100), RPC_L2CP_OK);
  const client::Verdict verdict = control().feed(3, lldp(100));
  EXPECT_EQ(verdict.fate, CONTROL_FATE_UNTOUCHED);
  EXPECT_FALSE(verdict.met);
  EXPECT_EQ(service().portStat(3), (Counters{.total = 1, .discard = 1}));

  ASSERT_EQ(service().attach("P", 3, 100), RPC_L2CP_OK);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_DISCARD);
  EXPECT_EQ(service().portStat(3), (Counters{.total = 2, .discard = 2}));
}

TEST_P(Road, DetachingOneVlanLeavesTheOther) {
  makeProfile("P");
  service().attach("P", 3, 100);
  service().attach("P", 3, 200);
  service().detach("P", 3, 100);
  EXPECT_EQ(control().feed(3, lldp(100)).index, 299U);
  EXPECT_EQ(control().fate(3, lldp(200)), CONTROL_FATE_DISCARD);
}

TEST_P(Road, EditedProfileActsWhenItIsAttachedAgain) {
  makeProfile("P");
  service().attach("P", 3, 100);
  EXPECT_EQ(service().entrySet("P", "LLDP", RPC_L2CP_RULE_PEER), RPC_L2CP_ERR_PROFILE_IN_USE);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_DISCARD);
  service().detach("P", 3, 100);
  service().entrySet("P", "LLDP", RPC_L2CP_RULE_PEER);
  service().attach("P", 3, 100);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_PEER);
}

TEST_P(Road, ProtocolMadeByAClientMatchesEveryDestination) {
  service().protoAdd(
      {.name = "Any", .mac = {9, 9, 9, 9, 9, 9}, .etherType = 0x0800, .subType = 0xff});
  service().profileAdd({.name = "P"});
  service().entryAdd("P", "Any", RPC_L2CP_RULE_DISCARD);
  service().attach("P", 3, 100);
  EXPECT_EQ(control().fate(3, data(100)), CONTROL_FATE_DISCARD);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_UNTOUCHED);
}

TEST_P(Road, PortNumbersReachToTheirEnd) {
  makeProfile("P");
  for (const unsigned int port : {0U, 2147483647U, 2147483648U, 4294967295U}) {
    ASSERT_EQ(service().attach("P", port, 100), RPC_L2CP_OK);
    EXPECT_EQ(control().fate(port, lldp(100)), CONTROL_FATE_DISCARD) << port;
    EXPECT_EQ(service().portStat(port), (Counters{.total = 1, .discard = 1})) << port;
    ASSERT_EQ(service().detach("P", port, 100), RPC_L2CP_OK);
    EXPECT_FALSE(control().feed(port, lldp(100)).met) << port;
  }
}

TEST_P(Road, FailedStatisticsCarryTheCountersOfTheLastSuccessOfTheirProcedure) {
  makeProfile("P");
  service().attach("P", 3, 100);
  control().feed(3, {lldp(100), lldp(100), lacp(100)});
  EXPECT_EQ(service().portStat(4), (Counters{.error = RPC_L2CP_ERR_NO_COUNTERS}));
  const Counters counted{.total = 3, .discard = 2, .peer = 1};
  EXPECT_EQ(service().portStat(3), counted);
  Counters kept = counted;
  kept.error = RPC_L2CP_ERR_NO_COUNTERS;
  EXPECT_EQ(service().portStat(4), kept);
  EXPECT_EQ(service().portStat(4), kept);
  // Another procedure keeps its own.
  EXPECT_EQ(service().vlanStat(200), (Counters{.error = RPC_L2CP_ERR_NO_COUNTERS}));
  EXPECT_EQ(service().vlanStat(100), counted);
  EXPECT_EQ(service().vlanStat(200), kept);
}

TEST_P(Road, FullPortTakesFurtherEntriesAtNoPosition) {
  service().profileAdd({.name = "P"});
  for (const client::Proto& proto : client::builtInProtocols()) {
    service().entryAdd("P", proto.name, RPC_L2CP_RULE_DISCARD);
  }
  // Eight times fourteen entries are more than the 99 positions of a port.
  for (std::uint16_t vid = 100; vid < 108; ++vid) {
    EXPECT_EQ(service().attach("P", 3, vid), RPC_L2CP_OK);
  }
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_DISCARD);
  EXPECT_EQ(control().feed(3, lldp(108)).index, 299U);
  for (std::uint16_t vid = 100; vid < 108; ++vid) {
    EXPECT_EQ(service().detach("P", 3, vid), RPC_L2CP_OK);
  }
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_UNTOUCHED);
}

// ---- Frames ----

TEST_P(Road, FramesAreJudgedInTheirOrder) {
  makeProfile("P");
  service().attach("P", 3, 100);
  const auto verdicts = control().feed(3, {lacp(100), data(100), lldp(100), Bytes{1}, stp(100)});
  std::vector<control_fate> fates;
  for (const client::Verdict& verdict : verdicts) fates.push_back(verdict.fate);
  EXPECT_EQ(fates, (std::vector<control_fate>{CONTROL_FATE_PEER, CONTROL_FATE_UNTOUCHED,
                                              CONTROL_FATE_DISCARD, CONTROL_FATE_UNTOUCHED,
                                              CONTROL_FATE_TUNNEL}));
}

TEST_P(Road, NoFramesAreNoVerdicts) {
  EXPECT_EQ(control().feed(3, std::vector<Bytes>{}).size(), 0U);
}

TEST_P(Road, LongFrameIsAFrame) {
  Bytes frame = lldp(100);
  frame.resize(8000);
  EXPECT_EQ(control().fate(3, frame), CONTROL_FATE_UNTOUCHED);
}

TEST_P(Road, MoreFramesThanOneRequestHoldsAreGarbage) {
  for (const auto& [procedure, most] : {std::pair(2U, 1024U), std::pair(32U, 64U)}) {
    wire::Bytes many;
    many.words({3, most + 1});
    for (unsigned int i = 0; i <= most; ++i) many.word(0);
    EXPECT_EQ(
        wire::readable(
            wire::Socket(GetParam())
                .call(wire::Call{.procedure = procedure, .program = CONTROL_PROGRAM}.with(many))),
        wire::readable(wire::garbageArguments()));
  }
}

TEST_P(Road, ManyFramesAreOneRequest) {
  // The verdicts have to fit into one reply.
  const unsigned int count = GetParam() == std::string("tcp") ? 1024 : 20;
  makeProfile("P");
  service().attach("P", 3, 100);
  EXPECT_EQ(control().feed(3, std::vector<Bytes>(count, lldp(100))).size(), count);
  EXPECT_EQ(service().portStat(3), (Counters{.total = count, .discard = count}));
}

// ---- Operator's messages ----

TEST_P(Road, DebugMessageSwitchesTheTrace) {
  EXPECT_EQ(control().message("l2cp_debug", "1"), "");
  service().protoGet(7);
  EXPECT_TRUE(world().systemLog().waitFor(" protoGet(idx=7)"));
  EXPECT_EQ(control().message("l2cp_debug", "0"), "");
  service().protoGet(8);
  control().message("l2cp_dump", "");
  EXPECT_TRUE(world().systemLog().waitFor("Use Len Short name    Name"));
  for (const std::string& line : world().systemLog().all()) {
    EXPECT_EQ(line.find("protoGet(idx=8)"), std::string::npos) << line;
    // Priority: user facility, debug.
    if (line.find("protoGet") != std::string::npos) {
      EXPECT_TRUE(line.starts_with("<15>")) << line;
    }
  }
}

TEST_P(Road, DumpMessageListsTheNamesGivenToTheClassifier) {
  const auto names = fullNames();
  std::vector<std::string> full;
  for (const auto& [shortName, fullName] : names) full.push_back(fullName);
  EXPECT_EQ(std::multiset<std::string>(full.begin(), full.end()),
            (std::multiset<std::string>{"l2cp:hide", "l2cp:tunnel"}));
}

TEST_P(Road, UnknownMessagesAreAnsweredWithNothing) {
  EXPECT_EQ(control().message("somebody", "else"), "");
  EXPECT_EQ(control().message("", ""), "");
  EXPECT_EQ(control().message(std::string(1000, 'x'), std::string(1000, 'y')), "");
}

// ---- Configuration ----

class RunningConfig : public Road {
 protected:
  void configure() {
    service().protoAdd({true, "Custom", {0x02, 1, 2, 3, 4, 0xff}, 0x88b5, 0x07});
    service().protoAdd({true, "Untyped", {0, 0, 0, 0, 0, 0}, 0xffff, 0x07});
    service().profileAdd({.name = "P"});
    service().entryAdd("P", "Custom", RPC_L2CP_RULE_PEER);
    service().profileAdd({.name = "two words"});
    service().entryAdd("two words", "LLDP", RPC_L2CP_RULE_TUNNEL);
    service().profileAdd({.name = "empty"});
    service().profileAdd({.dynamic = true, .protect = false, .name = "dynamic"});
    service().entryAdd("dynamic", "CDP", RPC_L2CP_RULE_DISCARD);
  }
};

FOR_BOTH_TRANSPORTS(RunningConfig);

const std::vector<std::string> profileLines{"l2cp-profile P",
                                            " protocol \"Custom\" rule peer",
                                            "exit",
                                            "l2cp-profile \"two words\"",
                                            " protocol \"LLDP\" rule tunnel",
                                            "exit"};

TEST_P(RunningConfig, DifferencesFromTheDefaultsAreNoneAtFirst) {
  EXPECT_EQ(control().runningConfig(CONTROL_CONFIG_DIFFERENCES), std::vector<std::string>{""});
}

TEST_P(RunningConfig, DifferencesLeaveOutTheBuiltInProtocols) {
  configure();
  std::vector<std::string> expected{
      "l2protocol \"Custom\" mac 02:01:02:03:04:ff ethertype 0x88b5 subtype 0x07",
      "l2protocol \"Untyped\" mac any", ""};
  expected.insert(expected.end(), profileLines.begin(), profileLines.end());
  EXPECT_EQ(control().runningConfig(CONTROL_CONFIG_DIFFERENCES), expected);
}

TEST_P(RunningConfig, EverythingHasTheBuiltInProtocolsToo) {
  configure();
  std::vector<std::string> expected{
      "l2protocol \"All-Bridges\" mac 01:80:c2:00:00:10",
      "l2protocol \"CDP\" mac 01:00:0c:cc:cc:cc ethertype 0x2000",
      "l2protocol \"Custom\" mac 02:01:02:03:04:ff ethertype 0x88b5 subtype 0x07",
      "l2protocol \"E-LMI\" mac 01:80:c2:00:00:07",
      "l2protocol \"GMRP-MMRP\" mac 01:80:c2:00:00:20",
      "l2protocol \"GVRP-MVRP\" mac 01:80:c2:00:00:21",
      "l2protocol \"LACP-LAMP\" mac 01:80:c2:00:00:02 ethertype 0x8809 subtype 0x01",
      "l2protocol \"LLDP\" mac 01:80:c2:00:00:0e",
      "l2protocol \"MSPP\" mac 01:80:c2:00:00:03 ethertype 0x22e2",
      "l2protocol \"OAM-CFM\" mac 01:80:c2:00:00:30 ethertype 0x8902",
      "l2protocol \"OAM-EFM\" mac 01:80:c2:00:00:02 ethertype 0x8809 subtype 0x03",
      "l2protocol \"PNAC\" mac 01:80:c2:00:00:03 ethertype 0x888e",
      "l2protocol \"Pause-Frame\" mac 01:80:c2:00:00:01",
      "l2protocol \"UDLD\" mac 01:00:0c:cc:cc:cc ethertype 0x0111",
      "l2protocol \"Untyped\" mac any",
      "l2protocol \"xSTP\" mac 01:80:c2:00:00:00",
      ""};
  expected.insert(expected.end(), profileLines.begin(), profileLines.end());
  EXPECT_EQ(control().runningConfig(CONTROL_CONFIG_ALL), expected);
}

TEST_P(RunningConfig, DynamicProfilesAreAScriptOfTheirOwn) {
  EXPECT_EQ(control().runningConfig(CONTROL_CONFIG_DYNAMIC), std::vector<std::string>{});
  configure();
  EXPECT_EQ(
      control().runningConfig(CONTROL_CONFIG_DYNAMIC),
      (std::vector<std::string>{"l2cp-profile dynamic", " protocol \"CDP\" rule discard", "exit"}));
}

TEST_P(RunningConfig, OtherModesAreInvalid) {
  for (const std::uint32_t mode : {3U, 4U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
    EXPECT_EQ(wire::readable(wire::Socket(GetParam())
                                 .call(wire::Call{.procedure = 4, .program = CONTROL_PROGRAM}.with(
                                     wire::Bytes().word(mode)))),
              wire::readable(wire::success(wire::Bytes().words({CONTROL_ERR_INVALID, 0}))))
        << mode;
  }
}

TEST_P(Road, ApplyingDefaultsRemovesWhatIsNotBuiltIn) {
  makeProfile("P");
  service().attach("P", 3, 100);
  service().protoAdd({true, "Custom", {1, 2, 3, 4, 5, 6}, 0x88b5, 0x07});
  service().protoDel("CDP");
  EXPECT_EQ(control().applyDefaults(), CONTROL_OK);
  EXPECT_EQ(service().profileGetAll(), client::List<client::Profile>{});
  EXPECT_EQ(service().linkGet(3, 0), client::Link{.error = RPC_L2CP_ERR_PROFILE_NOT_FOUND});
  EXPECT_FALSE(control().feed(3, lldp(100)).met);
  std::vector<std::string> names;
  for (const client::Proto& proto : service().protoGetAll().list) names.push_back(proto.name);
  std::vector<std::string> expected;
  for (const client::Proto& proto : client::builtInProtocols()) expected.push_back(proto.name);
  EXPECT_EQ(names, expected);
}

TEST_P(Road, ApplyingDefaultsLeavesProtectedProfiles) {
  service().profileAdd({.protect = true, .name = "P"});
  service().profileAdd({.name = "Q"});
  EXPECT_EQ(control().applyDefaults(), CONTROL_OK);
  EXPECT_EQ(service().profileGetAll(),
            (client::List<client::Profile>{{{.protect = true, .name = "P"}}}));
}

TEST_P(Road, ApplyingDefaultsToTheDefaultsChangesNothing) {
  EXPECT_EQ(control().applyDefaults(), CONTROL_OK);
  EXPECT_EQ(service().protoGetAll(), (client::List<client::Proto>{client::builtInProtocols()}));
}

// ---- Status ----

TEST_P(Road, StatusTellsWhatRuns) {
  const client::Status status = control().status();
  EXPECT_NE(status.release, "");
  EXPECT_EQ(status.bridge, "br0");
  EXPECT_EQ(status.classifier, "software");
  EXPECT_EQ(status.pid, static_cast<unsigned int>(world().daemon().id()));
  EXPECT_LT(status.uptime, 600U);
  EXPECT_EQ(
      status.entities,
      (std::vector<std::pair<std::string, bool>>{
          {"Interfaces", true}, {"vlanprofile", true}, {"servprofile", true}, {"l2cp", true}}));
  EXPECT_EQ(status.ports, (std::vector<std::pair<unsigned int, std::string>>{}));
}

class Configured : public Road {
 protected:
  std::vector<std::string> arguments() override {
    return {"--config", support::World::file("l2cpd.toml",
                                             "bridge = \"swbridge\"\n"
                                             "[[port]]\n"
                                             "number = 4294967295\n"
                                             "name = \"last\"\n"
                                             "[[port]]\n"
                                             "number = 3\n"
                                             "name = \"uplink\"\n")};
  }
};

FOR_BOTH_TRANSPORTS(Configured);

TEST_P(Configured, StatusTellsTheBridgeAndThePortsInAscendingOrder) {
  const client::Status status = control().status();
  EXPECT_EQ(status.bridge, "swbridge");
  EXPECT_EQ(status.ports, (std::vector<std::pair<unsigned int, std::string>>{
                              {3, "uplink"}, {4294967295, "last"}}));
}

TEST_P(Configured, FramesMeetTheClassifierOfTheConfiguredBridge) {
  makeProfile("P");
  service().attach("P", 3, 100);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_DISCARD);
}

}  // namespace
