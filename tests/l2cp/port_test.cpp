/// Attachments of profiles to ports and VLANs: what is recorded, what the classifier is asked for
/// and in which order, what is traced.

#include <functional>
#include <initializer_list>
#include <list>
#include <map>
#include <set>

#include "tests/l2cp/kernel_fixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Vlans = std::initializer_list<unsigned short>;

// What one protocol of profile "P" on port 3 and VLAN 100 sends besides its searches and entries.
// Short names are 19 characters long, so the names here are chosen to leave nothing behind them.
struct AttachedProtocol {
  std::string selector;
  std::string actionList;
  Lines requests;
  Lines traces;
};

const std::map<std::string, AttachedProtocol>& onPort3Vlan100() {
  static const std::map<std::string, AttachedProtocol> protocols{
      {"LLDP",  // discard
       {"<LLDP/100/01:80:c2:00:00:0e/ffff/ff>",
        "<LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>",
        {
            "ADD_COUNTER <l2cpProtoLLDPdiscard>",
            "ADD_SELECTOR <LLDP/100/01:80:c2:00:00:0e/ffff/ff>",
            "ADD_CONDITION <LLDP/100/01:80:c2:00:00:0e/ffff/ff> #0 vlan 100..100",
            "ADD_CONDITION <LLDP/100/01:80:c2:00:00:0e/ffff/ff> #1 mac "
            "01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
            "ADD_ACTION_LIST <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>",
            "ADD_ACTION <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff> #1 count <l2cpPort3discard> +1",
            "ADD_ACTION <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff> #2 count <l2cpVlan100discard> +1",
            "ADD_ACTION <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff> #3 count <l2cpProfiPdiscard> +1",
            "ADD_ACTION <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff> #4 count <l2cpProtoLLDPdiscard> +1",
            "ADD_ACTION <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff> #5 drop <l2cpProtoLLDPdiscard> +1",
        },
        {
            "  Selector \"<LLDP/100/01:80:c2:00:00:0e/ffff/ff>\" added.",
            "  Condition \"vid1 == 100\" added.",
            "  Condition \"DMAC == 01:80:c2:00:00:0e\" added.",
            "  Action \"CounterChange(<l2cpPort3discard>, +1)\" added.",
            "  Action \"CounterChange(<l2cpVlan100discard>, +1)\" added.",
            "  Action \"CounterChange(<l2cpProfiPdiscard>, +1)\" added.",
            "  Action \"CounterChange(<l2cpProtoLLDPdiscard>, +1)\" added.",
            "  Action \"Drop()\" added.",
        }}},
      {"PNAC",  // peer
       {"<PNAC/100/01:80:c2:00:00:03/888e/ff>",
        "<PNAC/3/100/01:80:c2:00:00:03/888e/ff>",
        {
            "ADD_COUNTER <l2cpProtoPNACpeer>",
            "ADD_SELECTOR <PNAC/100/01:80:c2:00:00:03/888e/ff>",
            "ADD_CONDITION <PNAC/100/01:80:c2:00:00:03/888e/ff> #0 vlan 100..100",
            "ADD_CONDITION <PNAC/100/01:80:c2:00:00:03/888e/ff> #1 mac "
            "01:80:c2:00:00:03/ff:ff:ff:ff:ff:ff",
            "ADD_CONDITION <PNAC/100/01:80:c2:00:00:03/888e/ff> #2 type 0x888e",
            "ADD_ACTION_LIST <PNAC/3/100/01:80:c2:00:00:03/888e/ff>",
            "ADD_ACTION <PNAC/3/100/01:80:c2:00:00:03/888e/ff> #1 count <l2cpPort3peer> +1",
            "ADD_ACTION <PNAC/3/100/01:80:c2:00:00:03/888e/ff> #2 count <l2cpVlan100peer> +1",
            "ADD_ACTION <PNAC/3/100/01:80:c2:00:00:03/888e/ff> #3 count <l2cpProfiPpeer> +1",
            "ADD_ACTION <PNAC/3/100/01:80:c2:00:00:03/888e/ff> #4 count <l2cpProtoPNACpeer> +1",
            "ADD_ACTION <PNAC/3/100/01:80:c2:00:00:03/888e/ff> #5 hide <l2cpProtoPNACpeer> +1",
        },
        {
            "  Selector \"<PNAC/100/01:80:c2:00:00:03/888e/ff>\" added.",
            "  Condition \"vid1 == 100\" added.",
            "  Condition \"DMAC == 01:80:c2:00:00:03\" added.",
            "  Condition \"EtherType == 0x888e\" added.",
            "  Action \"CounterChange(<l2cpPort3peer>, +1)\" added.",
            "  Action \"CounterChange(<l2cpVlan100peer>, +1)\" added.",
            "  Action \"CounterChange(<l2cpProfiPpeer>, +1)\" added.",
            "  Action \"CounterChange(<l2cpProtoPNACpeer>, +1)\" added.",
            "  Action \"Hide()\" added.",
        }}},
      {"SLOW",  // tunnel
       {"<SLOW/100/01:80:c2:00:00:02/8809/01>",
        "<SLOW/3/100/01:80:c2:00:00:02/8809/01>",
        {
            "ADD_COUNTER <l2cpProtoSLOWtunnel>",
            "ADD_SELECTOR <SLOW/100/01:80:c2:00:00:02/8809/01>",
            "ADD_CONDITION <SLOW/100/01:80:c2:00:00:02/8809/01> #0 vlan 100..100",
            "ADD_CONDITION <SLOW/100/01:80:c2:00:00:02/8809/01> #1 mac "
            "01:80:c2:00:00:02/ff:ff:ff:ff:ff:f0",
            "ADD_CONDITION <SLOW/100/01:80:c2:00:00:02/8809/01> #2 type 0x8809",
            "ADD_CONDITION <SLOW/100/01:80:c2:00:00:02/8809/01> #3 payload @0 length 1 mask 255 "
            "value 1",
            "ADD_ACTION_LIST <SLOW/3/100/01:80:c2:00:00:02/8809/01>",
            "ADD_ACTION <SLOW/3/100/01:80:c2:00:00:02/8809/01> #1 count <l2cpPort3tunnel> +1",
            "ADD_ACTION <SLOW/3/100/01:80:c2:00:00:02/8809/01> #2 count <l2cpVlan100tunnel> +1",
            "ADD_ACTION <SLOW/3/100/01:80:c2:00:00:02/8809/01> #3 count <l2cpProfiPtunnel> +1",
            "ADD_ACTION <SLOW/3/100/01:80:c2:00:00:02/8809/01> #4 count <l2cpProtoSLOWtunnel> +1",
            "ADD_ACTION <SLOW/3/100/01:80:c2:00:00:02/8809/01> #5 no-l2cp <l2cpProtoSLOWtunnel> "
            "+1",
            "ADD_ACTION <SLOW/3/100/01:80:c2:00:00:02/8809/01> #6 hide <l2cpProtoSLOWtunnel> +1",
        },
        {
            "  Selector \"<SLOW/100/01:80:c2:00:00:02/8809/01>\" added.",
            "  Condition \"vid1 == 100\" added.",
            "  Condition \"DMAC == 01:80:c2:00:00:02\" added.",
            "  Condition \"EtherType == 0x8809\" added.",
            "  Condition \"EtherData[0] == 0x01\" added.",
            "  Action \"CounterChange(<l2cpPort3tunnel>, +1)\" added.",
            "  Action \"CounterChange(<l2cpVlan100tunnel>, +1)\" added.",
            "  Action \"CounterChange(<l2cpProfiPtunnel>, +1)\" added.",
            "  Action \"CounterChange(<l2cpProtoSLOWtunnel>, +1)\" added.",
            "  Action \"NoL2CP()\" added.",
            "  Action \"Hide()\" added.",
        }}},
  };
  return protocols;
}

const Lines port3Counters{"ADD_COUNTER <l2cpPort3peer>", "ADD_COUNTER <l2cpPort3tunnel>",
                          "ADD_COUNTER <l2cpPort3discard>"};
const Lines vlan100Counters{"ADD_COUNTER <l2cpVlan100peer>", "ADD_COUNTER <l2cpVlan100tunnel>",
                            "ADD_COUNTER <l2cpVlan100discard>"};
const Lines profilePCounters{"ADD_COUNTER <l2cpProfiPpeer>", "ADD_COUNTER <l2cpProfiPtunnel>",
                             "ADD_COUNTER <l2cpProfiPdiscard>"};

class Port : public KernelTest {
 protected:
  void SetUp() override {
    KernelTest::SetUp();
    const std::vector<unsigned char> mac{0x01, 0x80, 0xc2, 0x00, 0x00, 0x02};
    const std::vector<unsigned char> mask{0xff, 0xff, 0xff, 0xff, 0xff, 0xf0};
    addProtocol("SLOW", mac, mask, 0x8809, 0x01);
    sent();
  }

  /// Profile "P" with one protocol for each rule.
  void addProfileP() {
    addProfile("P", {{"SLOW", Rule::tunnel}, {"LLDP", Rule::discard}, {"PNAC", Rule::peer}});
  }

  static std::string entry(const char* request, unsigned int port, unsigned int index,
                           const std::string& names) {
    return std::string(request) + ' ' + std::to_string(static_cast<int>(port)) + " kind 1 @" +
           std::to_string(index) + ' ' + names;
  }

  /// The queries of a search that starts with `first` in its record and finds `taken` from 200 on.
  static Lines queries(unsigned int port, const Lines& taken,
                       const std::string& first = "\"\" --> \"\"") {
    Lines lines{entry("GET_PORT_ENTRY", port, 200, first)};
    for (std::size_t i = 0; i < taken.size(); ++i) {
      lines.push_back(entry("GET_PORT_ENTRY", port, 201 + static_cast<unsigned int>(i), taken[i]));
    }
    return lines;
  }

  /// The indices recorded for an attachment.
  std::list<unsigned int> positions(const char* profile, unsigned int port, unsigned short vid) {
    return entity.settings.ports.at(port).at(vid).at(
        entity.settings.profiles.at(profile).pointer());
  }

  unsigned int useCount(const char* profile) {
    return entity.settings.profiles.at(profile)->useCount;
  }

  std::set<unsigned int> interfaces(const char* profile) {
    return entity.settings.profiles.at(profile)->interfaces;
  }

  /// The lines that begin with that request name, without it.
  static Lines only(const std::string& request, const Lines& lines) {
    Lines result;
    for (const std::string& line : lines) {
      if (line.starts_with(request + ' ')) result.push_back(line.substr(request.size() + 1));
    }
    return result;
  }
};

// ---- Attaching ----------------------------------------------------------------------------------

TEST_F(Port, AttachingAProfileThatDoesNotExistReturnsMinus2AndIsTraced) {
  EXPECT_THAT(traced([&] { EXPECT_EQ(entity.portAttach("nobody", 3, 100), -2); }),
              ElementsAre("portAttach(profileName=\"nobody\", port=3, vid=100)",
                          "  L2CP profile \"nobody\" does not exist."));
  EXPECT_THAT(support::SyslogCapture::instance().traceFormats(),
              ElementsAre("%s:%d %s(profileName=\"%s\", port=%d, vid=%d)",
                          "%s:%d   L2CP profile \"%s\" does not exist."));
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(entity.settings.ports, IsEmpty());
}

TEST_F(Port, AttachingToAnEmptyPortSendsTheseRequestsInThisOrder) {
  addProfileP();
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);

  Lines expected = port3Counters + vlan100Counters + profilePCounters;
  Lines taken;
  for (const std::string& name : byAddress({"LLDP", "PNAC", "SLOW"})) {
    const AttachedProtocol& proto = onPort3Vlan100().at(name);
    const std::string names = proto.selector + " --> " + proto.actionList;
    expected = expected + proto.requests + queries(3, taken);
    if (taken.empty())
      expected.emplace_back("ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>");
    expected.push_back(
        entry("ADD_PORT_ENTRY", 3, 200 + static_cast<unsigned int>(taken.size()), names));
    taken.push_back(names);
  }
  EXPECT_THAT(sent(), ElementsAreArray(expected));
}

TEST_F(Port, AttachingIsTracedStepByStep) {
  addProfileP();
  const Lines traces = traced([&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); });

  Lines expected{"portAttach(profileName=\"P\", port=3, vid=100)"};
  unsigned int index = 200;
  for (const std::string& name : byAddress({"LLDP", "PNAC", "SLOW"})) {
    const AttachedProtocol& proto = onPort3Vlan100().at(name);
    expected = expected + proto.traces;
    expected.push_back("  Port entry \"@3:" + std::to_string(index++) + ": " + proto.selector +
                       " --> " + proto.actionList + "\" added.");
  }
  expected.emplace_back("  OK.");
  EXPECT_THAT(traces, ElementsAreArray(expected));
}

TEST_F(Port, AttachTraceFormats) {
  addProfile("P", {{"SLOW", Rule::tunnel}});
  traced([&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); });
  const std::string counterChange = "%s:%d   Action \"CounterChange(%s, +1)\" added.";
  EXPECT_THAT(
      support::SyslogCapture::instance().traceFormats(),
      ElementsAre("%s:%d %s(profileName=\"%s\", port=%d, vid=%d)", "%s:%d   Selector \"%s\" added.",
                  "%s:%d   Condition \"vid1 == %d\" added.",
                  "%s:%d   Condition \"DMAC == %02x:%02x:%02x:%02x:%02x:%02x\" added.",
                  "%s:%d   Condition \"EtherType == 0x%04x\" added.",
                  "%s:%d   Condition \"EtherData[0] == 0x%02x\" added.", counterChange,
                  counterChange, counterChange, counterChange, "%s:%d   Action \"NoL2CP()\" added.",
                  "%s:%d   Action \"Hide()\" added.",
                  "%s:%d   Port entry \"@%d:%d: %s --> %s\" added.", "%s:%d   OK."));
}

TEST_F(Port, AttachTraceFormatsOfTheOtherRules) {
  struct {
    const char* profile;
    Rule rule;
    const char* action;
  } const rows[] = {{"D", Rule::discard, "%s:%d   Action \"Drop()\" added."},
                    {"E", Rule::peer, "%s:%d   Action \"Hide()\" added."}};
  const std::string counterChange = "%s:%d   Action \"CounterChange(%s, +1)\" added.";
  for (const auto& row : rows) {
    addProfile(row.profile, {{"LLDP", row.rule}});
    traced([&] { EXPECT_EQ(entity.portAttach(row.profile, 3, 100), 0); });
    EXPECT_THAT(
        support::SyslogCapture::instance().traceFormats(),
        ElementsAre("%s:%d %s(profileName=\"%s\", port=%d, vid=%d)",
                    "%s:%d   Selector \"%s\" added.", "%s:%d   Condition \"vid1 == %d\" added.",
                    "%s:%d   Condition \"DMAC == %02x:%02x:%02x:%02x:%02x:%02x\" added.",
                    counterChange, counterChange, counterChange, counterChange, row.action,
                    "%s:%d   Port entry \"@%d:%d: %s --> %s\" added.", "%s:%d   OK."));
  }
}

TEST_F(Port, WhenAnAttachIsTracedAsDoneThePortIsNotYetAmongTheInterfaces) {
  addProfile("P", {{"LLDP", Rule::discard}});
  auto& log = support::SyslogCapture::instance();
  int told = 0;
  log.onLine = [&](const support::LogLine& line) {
    if (line.format != "%s:%d   OK.") return;
    ++told;
    EXPECT_EQ(useCount("P"), 1U);
    EXPECT_THAT(positions("P", 3, 100), ElementsAre(200U));
    EXPECT_THAT(interfaces("P"), IsEmpty());
  };
  entity.externalMessage("l2cp_debug", "1", nullptr);
  EXPECT_EQ(entity.portAttach("P", 3, 100), 0);
  log.reset();
  EXPECT_EQ(told, 1);
  EXPECT_THAT(interfaces("P"), ElementsAre(3U));
}

// ---- Traces among requests ----------------------------------------------------------------------

class PortEvents : public Port {
 protected:
  /// The requests and the traces of an operation in their order.
  Lines events(const std::function<void()>& operation) {
    auto& log = support::SyslogCapture::instance();
    log.reset();
    classifier.take();
    std::vector<bool> isTrace;
    log.onLine = [&](const support::LogLine&) { isTrace.push_back(true); };
    classifier.refusal = [&](const support::Request&) {
      isTrace.push_back(false);
      return 0;
    };
    entity.externalMessage("l2cp_debug", "1", nullptr);
    operation();
    entity.externalMessage("l2cp_debug", "0", nullptr);
    classifier.refusal = nullptr;
    log.onLine = nullptr;

    const NameTable names(entity);
    const Lines traces = log.traces();
    const Lines requests = sent();
    auto trace = traces.begin();
    auto request = requests.begin();
    Lines lines;
    for (const bool which : isTrace) lines.push_back(which ? names.resolved(*trace++) : *request++);
    return lines;
  }
};

TEST_F(PortEvents, OfAnAttachAreItsEntryThenEachRequestWithItsTraceBehindIt) {
  addProfile("P", {{"LLDP", Rule::discard}});
  const AttachedProtocol& proto = onPort3Vlan100().at("LLDP");
  Lines expected = Lines{"portAttach(profileName=\"P\", port=3, vid=100)"} + port3Counters +
                   vlan100Counters + profilePCounters;
  auto trace = proto.traces.begin();
  for (const std::string& request : proto.requests) {
    expected.push_back(request);
    const bool isTraced =
        !request.starts_with("ADD_COUNTER ") && !request.starts_with("ADD_ACTION_LIST ");
    if (isTraced) expected.push_back(*trace++);
  }
  ASSERT_EQ(trace, proto.traces.end());
  const std::string names = proto.selector + " --> " + proto.actionList;
  expected = expected + queries(3, {});
  expected.emplace_back("ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>");
  expected.push_back(entry("ADD_PORT_ENTRY", 3, 200, names));
  expected.push_back("  Port entry \"@3:200: " + names + "\" added.");
  expected.emplace_back("  OK.");
  EXPECT_THAT(events([&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); }),
              ElementsAreArray(expected));
}

TEST_F(PortEvents, BeginWithTheEntryOfTheOperation) {
  addProfile("P", {{"LLDP", Rule::discard}});
  L2CP::Statistics stats;
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"portAttach(", [&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); }},
      {"portStat(", [&] { EXPECT_EQ(entity.portStat(3, stats), 0); }},
      {"vlanStat(", [&] { EXPECT_EQ(entity.vlanStat(100, stats), 0); }},
      {"profileStat(", [&] { EXPECT_EQ(entity.profileStat("P", stats), -11); }},
      {"protoStat(", [&] { EXPECT_EQ(entity.protoStat("LLDP", stats), -11); }},
      {"portDetach(", [&] { EXPECT_EQ(entity.portDetach("P", 3, 100), 0); }},
      {"profileDel(", [&] { EXPECT_EQ(entity.profileDel("P"), 0); }},
      {"protoDel(", [&] { EXPECT_EQ(entity.protoDel("SLOW"), 0); }},
  };
  for (const auto& [name, call] : rows) {
    SCOPED_TRACE(name);
    const Lines lines = events(call);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_THAT(lines[0], testing::StartsWith(name));
    EXPECT_THAT(lines[1], testing::MatchesRegex("(ADD|DEL|GET)_.*"));
  }
}

// ---- What an attach leaves ----------------------------------------------------------------------

TEST_F(Port, AnAttachmentIsRecordedWithThePositionOfItsLastEntryAlone) {
  addProfileP();
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(entity.settings.ports.size(), 1U);
  EXPECT_EQ(entity.settings.ports.at(3).size(), 1U);
  EXPECT_EQ(entity.settings.ports.at(3).at(100).size(), 1U);
  EXPECT_THAT(positions("P", 3, 100), ElementsAre(202U));
  EXPECT_EQ(useCount("P"), 1U);
  EXPECT_THAT(interfaces("P"), ElementsAre(3U));
}

TEST_F(Port, AttachingOnASecondVlanCreatesNoPortCountersAndNoHideEntry) {
  addProfile("P", {{"LLDP", Rule::discard}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  sent();
  ASSERT_EQ(entity.portAttach("P", 3, 200), 0);
  const std::string selector = "<LLDP/200/01:80:c2:00:00:0e/ffff/ff>";
  const std::string list = "<LLDP/3/200/01:80:c2:00:00:0e/ffff/ff>";
  const std::string first =
      "<LLDP/100/01:80:c2:00:00:0e/ffff/ff> --> <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>";
  const Lines vlan200Counters{"ADD_COUNTER <l2cpVlan200peer>", "ADD_COUNTER <l2cpVlan200tunnel>",
                              "ADD_COUNTER <l2cpVlan200discard>"};
  const Lines expected =
      vlan200Counters + profilePCounters +
      Lines{"ADD_COUNTER <l2cpProtoLLDPdiscard>",
            "ADD_SELECTOR " + selector,
            "ADD_CONDITION " + selector + " #0 vlan 200..200",
            "ADD_CONDITION " + selector + " #1 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
            "ADD_ACTION_LIST " + list,
            "ADD_ACTION " + list + " #1 count <l2cpPort3discard> +1",
            "ADD_ACTION " + list + " #2 count <l2cpVlan200discard> +1",
            "ADD_ACTION " + list + " #3 count <l2cpProfiPdiscard> +1",
            "ADD_ACTION " + list + " #4 count <l2cpProtoLLDPdiscard> +1",
            "ADD_ACTION " + list + " #5 drop <l2cpProtoLLDPdiscard> +1",
            "GET_PORT_ENTRY 3 kind 1 @200 \"\" --> \"\"",
            "GET_PORT_ENTRY 3 kind 1 @201 " + first,
            "ADD_PORT_ENTRY 3 kind 1 @201 " + selector + " --> " + list};
  EXPECT_THAT(sent(), ElementsAreArray(expected));
  EXPECT_EQ(useCount("P"), 2U);
  EXPECT_THAT(positions("P", 3, 200), ElementsAre(201U));
}

TEST_F(Port, AttachingASecondProfileToPortAndVlanSucceedsAndCreatesItsOwnCountersAlone) {
  addProfile("P", {{"LLDP", Rule::discard}});
  addProfile("Q", {{"PNAC", Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  sent();
  ASSERT_EQ(entity.portAttach("Q", 3, 100), 0);
  const std::string selector = "<PNAC/100/01:80:c2:00:00:03/888e/ff>";
  const std::string list = "<PNAC/3/100/01:80:c2:00:00:03/888e/ff>";
  const std::string first =
      "<LLDP/100/01:80:c2:00:00:0e/ffff/ff> --> <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>";
  EXPECT_THAT(
      sent(),
      ElementsAre("ADD_COUNTER <l2cpProfiQpeer>", "ADD_COUNTER <l2cpProfiQtunnel>",
                  "ADD_COUNTER <l2cpProfiQdiscard>", "ADD_COUNTER <l2cpProtoPNACpeer>",
                  "ADD_SELECTOR " + selector, "ADD_CONDITION " + selector + " #0 vlan 100..100",
                  "ADD_CONDITION " + selector + " #1 mac 01:80:c2:00:00:03/ff:ff:ff:ff:ff:ff",
                  "ADD_CONDITION " + selector + " #2 type 0x888e", "ADD_ACTION_LIST " + list,
                  "ADD_ACTION " + list + " #1 count <l2cpPort3peer> +1",
                  "ADD_ACTION " + list + " #2 count <l2cpVlan100peer> +1",
                  "ADD_ACTION " + list + " #3 count <l2cpProfiQpeer> +1",
                  "ADD_ACTION " + list + " #4 count <l2cpProtoPNACpeer> +1",
                  "ADD_ACTION " + list + " #5 hide <l2cpProtoPNACpeer> +1",
                  "GET_PORT_ENTRY 3 kind 1 @200 \"\" --> \"\"",
                  "GET_PORT_ENTRY 3 kind 1 @201 " + first,
                  "ADD_PORT_ENTRY 3 kind 1 @201 " + selector + " --> " + list));
  EXPECT_EQ(entity.settings.ports.at(3).at(100).size(), 2U);
}

TEST_F(Port, AttachingToAnotherPortAsksForTheVlanCountersAndTheSharedSelectorAgain) {
  addProfile("P", {{"LLDP", Rule::discard}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  sent();
  ASSERT_EQ(entity.portAttach("P", 4, 100), 0);
  const std::string selector = "<LLDP/100/01:80:c2:00:00:0e/ffff/ff>";
  const std::string list = "<LLDP/4/100/01:80:c2:00:00:0e/ffff/ff>";
  const Lines port4Counters{"ADD_COUNTER <l2cpPort4peer>", "ADD_COUNTER <l2cpPort4tunnel>",
                            "ADD_COUNTER <l2cpPort4discard>"};
  const Lines expected =
      port4Counters + vlan100Counters + profilePCounters +
      Lines{"ADD_COUNTER <l2cpProtoLLDPdiscard>",
            "ADD_SELECTOR " + selector,
            "ADD_CONDITION " + selector + " #0 vlan 100..100",
            "ADD_CONDITION " + selector + " #1 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
            "ADD_ACTION_LIST " + list,
            "ADD_ACTION " + list + " #1 count <l2cpPort4discard> +1",
            "ADD_ACTION " + list + " #2 count <l2cpVlan100discard> +1",
            "ADD_ACTION " + list + " #3 count <l2cpProfiPdiscard> +1",
            "ADD_ACTION " + list + " #4 count <l2cpProtoLLDPdiscard> +1",
            "ADD_ACTION " + list + " #5 drop <l2cpProtoLLDPdiscard> +1",
            "GET_PORT_ENTRY 4 kind 1 @200 \"\" --> \"\"",
            "ADD_PORT_ENTRY 4 kind 1 @299 \"true\" --> <l2cp:hide>",
            "ADD_PORT_ENTRY 4 kind 1 @200 " + selector + " --> " + list};
  EXPECT_THAT(sent(), ElementsAreArray(expected));
  EXPECT_THAT(interfaces("P"), ElementsAre(3U, 4U));
}

TEST_F(Port, AttachingTheSameProfileTwiceReturnsMinus16AndLeavesTheFirstAttachmentAlone) {
  addProfileP();
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  sent();
  const std::vector<std::string> names = NameTable(entity).listing();
  EXPECT_THAT(
      traced([&] { EXPECT_EQ(entity.portAttach("P", 3, 100), -16); }),
      ElementsAre("portAttach(profileName=\"P\", port=3, vid=100)", "  Port and VLAN overlap."));
  EXPECT_EQ(support::SyslogCapture::instance().traceFormats().back(),
            "%s:%d   Port and VLAN overlap.");
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(NameTable(entity).listing(), names);
  EXPECT_THAT(positions("P", 3, 100), ElementsAre(202U));
  EXPECT_EQ(useCount("P"), 1U);
}

TEST_F(Port, EmptyNamesOverlapAndNamesOfDifferentLengthOrCaseDoNot) {
  for (const char* name : {"", "P", "PP", "p"}) addProfile(name, {});
  for (const char* name : {"", "P", "PP", "p"}) EXPECT_EQ(entity.portAttach(name, 3, 100), 0);
  for (const char* name : {"", "P", "PP", "p"}) EXPECT_EQ(entity.portAttach(name, 3, 100), -16);
}

TEST_F(Port, PortAndVlanKeysThatAreThereAlreadyGetNoCountersEvenIfEmpty) {
  addProfile("P", {});
  entity.settings.ports[3][100];
  EXPECT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(sent(), profilePCounters);
}

TEST_F(Port, AProfileWithoutRulesWritesNoEntryYetRecordsOnePosition) {
  addProfile("P", {});
  EXPECT_THAT(traced([&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); }),
              ElementsAre("portAttach(profileName=\"P\", port=3, vid=100)", "  OK."));
  EXPECT_EQ(sent(), port3Counters + vlan100Counters + profilePCounters);
  EXPECT_THAT(positions("P", 3, 100), ElementsAre(0U));
  EXPECT_EQ(useCount("P"), 1U);
  EXPECT_THAT(interfaces("P"), ElementsAre(3U));
  EXPECT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Port, AllBuiltInProtocolsOnAnEmptyPortTake278Requests) {
  ASSERT_EQ(entity.protoDel("SLOW"), 0);
  ASSERT_EQ(entity.settings.protocols.size(), 14U);
  ASSERT_EQ(entity.profileAdd("ALL", false, false), 0);
  for (const auto& [name, proto] : entity.settings.protocols) {
    ASSERT_EQ(entity.profileProtoAdd("ALL", name.c_str(), Rule::discard), 0);
  }
  classifier.take();
  ASSERT_EQ(entity.portAttach("ALL", 3, 100), 0);
  std::map<std::string, int> counts;
  for (const std::string& name : classifier.names()) ++counts[name];
  EXPECT_EQ(counts, (std::map<std::string, int>{{"ADD_COUNTER", 3 + 3 + 3 + 14},
                                                {"ADD_SELECTOR", 14},
                                                {"ADD_CONDITION", 14 + 14 + 7 + 2},
                                                {"ADD_ACTION_LIST", 14},
                                                {"ADD_ACTION", 14 * 5},
                                                {"GET_PORT_ENTRY", 14 * 15 / 2},
                                                {"ADD_PORT_ENTRY", 1 + 14}}));
  EXPECT_EQ(classifier.requests.size(), 278U);
  EXPECT_THAT(positions("ALL", 3, 100), ElementsAre(213U));
}

// ---- Selectors ----------------------------------------------------------------------------------

class PortConditions : public Port {
 protected:
  /// The conditions of a protocol attached alone on that VLAN.
  Lines conditions(unsigned short etherType, unsigned char subType, unsigned short vid = 100) {
    const std::vector<unsigned char> mac{0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
    const std::vector<unsigned char> mask{0xff, 0x00, 0xff, 0x00, 0xff, 0x00};
    addProtocol("X", mac, mask, etherType, subType);
    addProfile("PX", {{"X", Rule::peer}});
    EXPECT_EQ(entity.portAttach("PX", 3, vid), 0);
    Lines lines = only("ADD_CONDITION", sent());
    for (std::string& line : lines) line.erase(0, line.find("> #") + 2);
    return lines;
  }

  const std::string ownMask = "#1 mac 02:00:00:00:00:01/ff:00:ff:00:ff:00";
};

TEST_F(PortConditions, AProtocolWithoutEtherTypeAndSubtypeHasVlanAndAddressAlone) {
  EXPECT_THAT(conditions(0xffff, 0xff), ElementsAre("#0 vlan 100..100", ownMask));
}

TEST_F(PortConditions, AProtocolWithEtherTypeAndNoSubtypeHasThree) {
  EXPECT_THAT(conditions(0x88cc, 0xff), ElementsAre("#0 vlan 100..100", ownMask, "#2 type 0x88cc"));
}

TEST_F(PortConditions, AProtocolWithEtherTypeAndSubtypeHasFour) {
  EXPECT_THAT(conditions(0x8809, 0xfe), ElementsAre("#0 vlan 100..100", ownMask, "#2 type 0x8809",
                                                    "#3 payload @0 length 1 mask 255 value 254"));
}

TEST_F(PortConditions, ASubtypeWithoutEtherTypeIsNotMatched) {
  EXPECT_THAT(conditions(0xffff, 0x01), ElementsAre("#0 vlan 100..100", ownMask));
}

TEST_F(PortConditions, ZeroIsAnEtherTypeAndASubtype) {
  EXPECT_THAT(conditions(0, 0), ElementsAre("#0 vlan 100..100", ownMask, "#2 type 0x0000",
                                            "#3 payload @0 length 1 mask 255 value 0"));
}

TEST_F(PortConditions, TheVlanConditionIsThereForTheWholePortAsWell) {
  EXPECT_THAT(conditions(0xffff, 0xff, 4095), ElementsAre("#0 vlan 4095..4095", ownMask));
}

TEST_F(PortConditions, AnyAddressIsAConditionAsWell) {
  const std::vector<unsigned char> zero(6, 0);
  addProtocol("ANY", zero, zero, 0xffff, 0xff);
  addProfile("PA", {{"ANY", Rule::peer}});
  ASSERT_EQ(entity.portAttach("PA", 3, 100), 0);
  EXPECT_THAT(only("ADD_CONDITION", sent()),
              ElementsAre("<ANY/100/00:00:00:00:00:00/ffff/ff> #0 vlan 100..100",
                          "<ANY/100/00:00:00:00:00:00/ffff/ff> #1 mac "
                          "00:00:00:00:00:00/00:00:00:00:00:00"));
}

TEST_F(Port, ThePayloadConditionPointsAtTheSubtypeInTheRegistryAndAtTheSharedMask) {
  addProfile("P", {{"SLOW", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  const auto isPayload = [](const support::Request& request) {
    return request.payloadValue.has_value();
  };
  const auto request = std::ranges::find_if(classifier.requests, isPayload);
  ASSERT_NE(request, classifier.requests.end());
  const NameTable names(entity);
  RecordFields record(request->bytes, names);
  EXPECT_EQ(record.number<const unsigned char*>(60), &L2CP::m_subTypeMask);
  EXPECT_EQ(record.number<const unsigned char*>(68),
            &entity.settings.protocols.at("SLOW")->subType);
}

// ---- Action lists -------------------------------------------------------------------------------

class PortActions : public Port {
 protected:
  /// The actions of LLDP attached with that rule, without the list's name.
  Lines actions(Rule rule) {
    addProfile("P", {{"LLDP", rule}});
    EXPECT_EQ(entity.portAttach("P", 3, 100), 0);
    attached = sent();
    Lines lines = only("ADD_ACTION", attached);
    for (std::string& line : lines) line.erase(0, line.find("> #") + 2);
    return lines;
  }

  Lines attached;
};

TEST_F(PortActions, TunnelHoldsFourCounterChangesThenNoL2cpThenHide) {
  EXPECT_THAT(
      actions(Rule::tunnel),
      ElementsAre("#1 count <l2cpPort3tunnel> +1", "#2 count <l2cpVlan100tunnel> +1",
                  "#3 count <l2cpProfiPtunnel> +1", "#4 count <l2cpProtoLLDPtunnel> +1",
                  "#5 no-l2cp <l2cpProtoLLDPtunnel> +1", "#6 hide <l2cpProtoLLDPtunnel> +1"));
}

TEST_F(PortActions, PeerHoldsFourCounterChangesThenHide) {
  EXPECT_THAT(actions(Rule::peer),
              ElementsAre("#1 count <l2cpPort3peer> +1", "#2 count <l2cpVlan100peer> +1",
                          "#3 count <l2cpProfiPpeer> +1", "#4 count <l2cpProtoLLDPpeer> +1",
                          "#5 hide <l2cpProtoLLDPpeer> +1"));
}

TEST_F(PortActions, DiscardHoldsFourCounterChangesThenDrop) {
  EXPECT_THAT(actions(Rule::discard),
              ElementsAre("#1 count <l2cpPort3discard> +1", "#2 count <l2cpVlan100discard> +1",
                          "#3 count <l2cpProfiPdiscard> +1", "#4 count <l2cpProtoLLDPdiscard> +1",
                          "#5 drop <l2cpProtoLLDPdiscard> +1"));
}

TEST_F(PortActions, Rule7CountsAsUnknownAndDecidesNothing) {
  EXPECT_THAT(actions(static_cast<Rule>(7)),
              ElementsAre("#1 count <l2cpPort3unknown> +1", "#2 count <l2cpVlan100unknown> +1",
                          "#3 count <l2cpProfiPunknown> +1", "#4 count <l2cpProtoLLDPunknown> +1"));
  EXPECT_THAT(attached, testing::Contains("ADD_COUNTER <l2cpProtoLLDPunknown>"));
  EXPECT_EQ(attached.back(),
            "ADD_PORT_ENTRY 3 kind 1 @200 <LLDP/100/01:80:c2:00:00:0e/ffff/ff> --> "
            "<LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>");
}

TEST_F(PortActions, TheLargestRuleNumberCountsAsUnknownAndDecidesNothing) {
  EXPECT_EQ(actions(static_cast<Rule>(0xffffffffU)).back(), "#4 count <l2cpProtoLLDPunknown> +1");
}

TEST_F(Port, CounterNamesOfActionsAreCutAt39CharactersAndTheCountersThemselvesLater) {
  const std::string profile(40, 'p');
  addProfile(profile.c_str(), {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach(profile, 3, 100), 0);
  const NameTable names(entity);
  EXPECT_EQ(names.uses("l2cpProfi" + profile + "peer"), 1);
  EXPECT_EQ(names.uses("l2cpProfi" + std::string(30, 'p')), 1);
  EXPECT_THAT(sent(), testing::IsSupersetOf({"ADD_COUNTER <l2cpProfi" + profile + "peer>",
                                             "ADD_COUNTER <l2cpProfi" + profile + "tunnel>"}));
}

TEST_F(Port, ACounterNameOf39CharactersIsNotCut) {
  const std::string profile(26, 'p');
  addProfile(profile.c_str(), {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach(profile, 3, 100), 0);
  EXPECT_EQ(uses("l2cpProfi" + profile + "peer"), 2);
}

TEST_F(Port, ARecordCarriesTheTailsOfFullNamesBehindTheShortOnes) {
  const std::string profile(40, 'p');
  addProfile(profile.c_str(), {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach(profile, 3, 100), 0);
  // The names are written one after the other into one field, long before short.
  std::string field(40, '\0');
  const auto write = [&field](const std::string& text) {
    field.replace(0, text.size() + 1, text + '\0');
  };
  const std::string fullNames[] = {"l2cpPort3peer", "l2cpVlan100peer",
                                   "l2cpProfi" + std::string(30, 'p'), "l2cpProtoLLDPpeer",
                                   "l2cpProtoLLDPpeer"};
  auto fullName = std::begin(fullNames);
  unsigned int index = 1;
  for (const support::Request& request : classifier.take()) {
    if (request.code != ACL_ADD_ACTION) continue;
    SCOPED_TRACE(index);
    ASSERT_NE(fullName, std::end(fullNames));
    const std::string sentField(request.bytes.begin() + 48, request.bytes.begin() + 88);
    const std::string shortName = sentField.c_str();
    // The last action is no counter change: the field stays.
    if (index < 5) write(*fullName);
    if (index < 5) write(shortName);
    EXPECT_EQ(sentField, field);
    EXPECT_EQ(support::fullName(shortName), *fullName);
    ++fullName;
    ++index;
  }
  EXPECT_EQ(index, 6U);
}

TEST_F(Port, SelectorAndActionListNamesAreCutAt199Characters) {
  const std::string name(250, 'n');
  const std::vector<unsigned char> mac(6, 2);
  entity.settings.protocols.emplace(
      name, L2CP::Protocol(name.c_str(), false, mac.data(), mac.data(), 0xffff, 0xff));
  addProfile("P", {{name.c_str(), Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  // Both names are cut within the protocol's, and so they are one name of two objects.
  const std::string cut = '<' + std::string(199, 'n') + '>';
  const Lines lines = sent();
  EXPECT_THAT(only("ADD_COUNTER", lines),
              testing::Contains("<l2cpProto" + name.substr(0, 90) + '>'));
  EXPECT_THAT(only("ADD_SELECTOR", lines), ElementsAre(cut));
  EXPECT_THAT(only("ADD_ACTION_LIST", lines), ElementsAre(cut));
  EXPECT_EQ(lines.back(), "ADD_PORT_ENTRY 3 kind 1 @200 " + cut + " --> " + cut);
}

TEST_F(Port, NamesShorterThan200CharactersAreNotCut) {
  // The selector's name is 199 characters long, the action list's two more.
  const std::string name(199 - std::string("/100/02:02:02:02:02:02/ffff/ff").size(), 'n');
  const std::vector<unsigned char> mac(6, 2);
  entity.settings.protocols.emplace(
      name, L2CP::Protocol(name.c_str(), false, mac.data(), mac.data(), 0xffff, 0xff));
  addProfile("P", {{name.c_str(), Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(sent().back(), "ADD_PORT_ENTRY 3 kind 1 @200 <" + name +
                               "/100/02:02:02:02:02:02/ffff/ff> --> <" + name +
                               "/3/100/02:02:02:02:02:02/ffff/>");
}

TEST_F(Port, NamesAreCutWhereverTheirEndFalls) {
  const std::string selectorEnd = "/65535/02:a0:0b:ff:00:10/0a0b/0c";
  const std::string listEnd = "/-2147483648/65535/02:a0:0b:ff:00:10/0a0b/0c";
  const std::string aclEnd = ":-2147483648ffff";
  constexpr unsigned char mac[]{0x02, 0xa0, 0x0b, 0xff, 0x00, 0x10};
  for (std::size_t size = 199 - listEnd.size(); size <= 200; ++size) {
    SCOPED_TRACE(size);
    const std::string name(size, 'n');
    const L2CP::Protocol proto(name.c_str(), false, mac, mac, 0x0a0b, 0x0c);
    char shortName[40];
    const auto expectRegistered = [&](const char* result, const std::string& fullName) {
      EXPECT_EQ(result, shortName);
      EXPECT_EQ(support::fullName(shortName), fullName.substr(0, 199));
    };
    expectRegistered(entity.nameSelector(shortName, 65535, proto), name + selectorEnd);
    expectRegistered(entity.nameActionList(shortName, 2147483648U, 65535, proto), name + listEnd);
    expectRegistered(entity.aclName(shortName, name, 2147483648U, 65535), "l2cp" + name + aclEnd);
  }
}

TEST_F(Port, CounterNamesAreCutWhereverTheirEndFalls) {
  for (std::size_t size = 15; size <= 45; ++size) {
    SCOPED_TRACE(size);
    const std::string profile(size, 'p');
    addProfile(profile.c_str(), {{"LLDP", Rule::discard}});
    ASSERT_EQ(entity.portAttach(profile, 3, 100), 0);
    const std::string fullName = "l2cpProfi" + profile + "discard";
    EXPECT_THAT(sent(), testing::AllOf(testing::Contains("ADD_COUNTER <" + fullName + '>'),
                                       testing::Contains(testing::HasSubstr(
                                           " #3 count <" + fullName.substr(0, 39) + '>'))));
    ASSERT_EQ(entity.portDetach(profile, 3, 100), 0);
    sent();
  }
}

TEST_F(Port, NamesAreTextAndNoFormats) {
  constexpr unsigned char mac[6]{};
  ASSERT_EQ(entity.protoAdd("%d%s%n", false, mac, mac, 0xffff, 0xff), 0);
  addProfile("%s%n", {{"%d%s%n", Rule::peer}});
  const Lines traces = traced([&] { EXPECT_EQ(entity.portAttach("%s%n", 3, 100), 0); });
  EXPECT_EQ(traces.front(), "portAttach(profileName=\"%s%n\", port=3, vid=100)");
  const Lines lines = sent();
  EXPECT_THAT(lines, testing::IsSupersetOf(
                         {"ADD_COUNTER <l2cpProfi%s%npeer>", "ADD_COUNTER <l2cpProto%d%s%npeer>"}));
  EXPECT_EQ(lines.back(),
            "ADD_PORT_ENTRY 3 kind 1 @200 <%d%s%n/100/00:00:00:00:00:00/ffff/ff> --> "
            "<%d%s%n/3/100/00:00:00:00:00:00/ffff/ff>");
}

// ---- Ports, VLANs and positions -----------------------------------------------------------------

TEST_F(Port, PortNumbersPrintAsSignedAndAreKeptAsTheyAre) {
  addProfile("P", {{"LLDP", Rule::peer}});
  struct {
    unsigned int port;
    const char* text;
  } const rows[] = {{0, "0"}, {2147483647U, "2147483647"}, {4294967295U, "-1"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.port);
    const std::string text = row.text;
    const std::string selector = "<LLDP/100/01:80:c2:00:00:0e/ffff/ff>";
    const std::string list = "<LLDP/" + text + "/100/01:80:c2:00:00:0e/ffff/ff>";
    const Lines traces = traced([&] { EXPECT_EQ(entity.portAttach("P", row.port, 100), 0); });
    EXPECT_EQ(traces.front(), "portAttach(profileName=\"P\", port=" + text + ", vid=100)");
    EXPECT_EQ(traces.at(traces.size() - 2),
              "  Port entry \"@" + text + ":200: " + selector + " --> " + list + "\" added.");
    const Lines lines = sent();
    EXPECT_EQ(lines.front(), "ADD_COUNTER <l2cpPort" + text + "peer>");
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
              (Lines{"GET_PORT_ENTRY " + text + " kind 1 @200 \"\" --> \"\"",
                     "ADD_PORT_ENTRY " + text + " kind 1 @299 \"true\" --> <l2cp:hide>",
                     "ADD_PORT_ENTRY " + text + " kind 1 @200 " + selector + " --> " + list}));
    EXPECT_TRUE(entity.settings.ports.contains(row.port));
    EXPECT_EQ(traced([&] { EXPECT_EQ(entity.portDetach("P", row.port, 100), 0); }),
              Lines{"portDetach(profileName=\"P\", port=" + text + ", vid=100)"});
    EXPECT_EQ(sent().back(), "DEL_ACTION_LIST " + list);
    EXPECT_THAT(classifier.entries, IsEmpty());
  }
}

TEST_F(Port, Port2147483648SharesItsEntryCountWithPort0) {
  addProfile("P", {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 2147483648U, 100), 0);
  EXPECT_TRUE(holds("-2147483648", 1, 299));
  ASSERT_EQ(entity.portAttach("P", 0, 100), 0);
  EXPECT_TRUE(holds("0", 1, 200));
  EXPECT_FALSE(holds("0", 1, 299));
  ASSERT_EQ(entity.portDetach("P", 2147483648U, 100), 0);
  EXPECT_TRUE(holds("-2147483648", 1, 299));
}

TEST_F(Port, VlanNumbersAreTakenAsTheyAre) {
  addProfile("P", {{"LLDP", Rule::peer}});
  for (const unsigned short vid : Vlans{0, 4094, 4095, 65535}) {
    const std::string text = std::to_string(vid);
    SCOPED_TRACE(text);
    const std::string selector = "<LLDP/" + text + "/01:80:c2:00:00:0e/ffff/ff>";
    const Lines traces = traced([&] { EXPECT_EQ(entity.portAttach("P", 3, vid), 0); });
    EXPECT_EQ(traces.front(), "portAttach(profileName=\"P\", port=3, vid=" + text + ')');
    EXPECT_EQ(traces.at(2), "  Condition \"vid1 == " + text + "\" added.");
    const Lines lines = sent();
    EXPECT_THAT(lines, testing::IsSupersetOf(
                           {"ADD_COUNTER <l2cpVlan" + text + "peer>",
                            "ADD_CONDITION " + selector + " #0 vlan " + text + ".." + text}));
    EXPECT_EQ(traced([&] { EXPECT_EQ(entity.portDetach("P", 3, vid), 0); }),
              Lines{"portDetach(profileName=\"P\", port=3, vid=" + text + ')'});
    EXPECT_THAT(only("DEL_SELECTOR", sent()), ElementsAre(selector));
  }
}

TEST_F(Port, BehindAFullPortPosition299IsUsedUnchecked) {
  addProfile("P", {{"LLDP", Rule::peer}});
  classifier.occupy(3, 200, 298);
  const Lines traces = traced([&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); });
  const std::string names =
      "<LLDP/100/01:80:c2:00:00:0e/ffff/ff> --> <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>";
  const Lines lines = sent();
  EXPECT_EQ(only("GET_PORT_ENTRY", lines).size(), 99U);
  EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
            (Lines{"ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>",
                   "ADD_PORT_ENTRY 3 kind 1 @299 " + names}));
  EXPECT_EQ(Lines(traces.end() - 2, traces.end()),
            (Lines{"  Unable to add port entry \"@3:299: " + names + "\" (17).", "  OK."}));
  EXPECT_THAT(positions("P", 3, 100), ElementsAre(299U));
}

TEST_F(Port, FreedPositionsAreTakenLowestFirst) {
  addProfile("P", {{"LLDP", Rule::peer}});
  for (unsigned short vid = 1; vid <= 4; ++vid) ASSERT_EQ(entity.portAttach("P", 3, vid), 0);
  ASSERT_EQ(entity.portDetach("P", 3, 3), 0);
  ASSERT_EQ(entity.portDetach("P", 3, 2), 0);
  ASSERT_EQ(entity.portAttach("P", 3, 5), 0);
  ASSERT_EQ(entity.portAttach("P", 3, 6), 0);
  ASSERT_EQ(entity.portAttach("P", 3, 7), 0);
  EXPECT_THAT(positions("P", 3, 5), ElementsAre(201U));
  EXPECT_THAT(positions("P", 3, 6), ElementsAre(202U));
  EXPECT_THAT(positions("P", 3, 7), ElementsAre(204U));
}

// ---- Detaching ----------------------------------------------------------------------------------

TEST_F(Port, RefusedDetachesReturnTheirCodesAndChangeNothing) {
  for (const char* name : {"P", "Q"}) addProfile(name, {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  entity.settings.ports[5];
  entity.settings.ports[6][100];
  sent();
  const std::vector<std::string> names = NameTable(entity).listing();
  struct {
    const char* profile;
    unsigned int port;
    unsigned short vid;
    int result;
  } const rows[] = {
      {"nobody", 4, 200, -2},                      // asked before port and VLAN
      {"P", 4, 100, -19},     {"P", 5, 100, -19},  // a port without VLANs
      {"P", 3, 200, -20},     {"Q", 3, 200, -20},
      {"Q", 3, 100, -9},      {"P", 6, 100, -9},  // a VLAN without profiles
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.profile) + ' ' + std::to_string(row.port) + ' ' +
                 std::to_string(row.vid));
    EXPECT_EQ(
        traced([&] { EXPECT_EQ(entity.portDetach(row.profile, row.port, row.vid), row.result); }),
        (Lines{std::string("portDetach(profileName=\"") + row.profile +
               "\", port=" + std::to_string(row.port) + ", vid=" + std::to_string(row.vid) + ')'}));
    EXPECT_THAT(support::SyslogCapture::instance().traceFormats(),
                ElementsAre("%s:%d %s(profileName=\"%s\", port=%d, vid=%d)"));
  }
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(NameTable(entity).listing(), names);
  EXPECT_EQ(entity.settings.ports.size(), 3U);
  EXPECT_EQ(useCount("P"), 1U);
  EXPECT_THAT(interfaces("P"), ElementsAre(3U));
}

TEST_F(Port, ADetachThatLeavesOthersDeletesItsEntriesSelectorsAndListsAlone) {
  addProfile("P", {{"LLDP", Rule::discard}});
  addProfile("Q", {{"PNAC", Rule::peer}, {"SLOW", Rule::tunnel}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(entity.portAttach("Q", 3, 100), 0);
  sent();

  Lines traces = traced([&] { EXPECT_EQ(entity.portDetach("Q", 3, 100), 0); });
  EXPECT_THAT(traces, ElementsAre("portDetach(profileName=\"Q\", port=3, vid=100)"));
  const auto namesOf = [](const std::string& protocol) {
    const AttachedProtocol& proto = onPort3Vlan100().at(protocol);
    return proto.selector + " --> " + proto.actionList;
  };
  const std::vector<std::string> order = byAddress({"PNAC", "SLOW"});
  Lines expected;
  // The first of Q's entries stands at 201, the second at 202.
  expected = expected + queries(3, {namesOf("LLDP"), namesOf(order[0]), namesOf(order[1])});
  expected.push_back(entry("GET_PORT_ENTRY", 3, 200, namesOf(order[0])));
  expected.push_back(entry("GET_PORT_ENTRY", 3, 201, namesOf("LLDP")));
  expected.push_back(entry("DEL_PORT_ENTRY", 3, 201, namesOf(order[0])));
  expected.push_back("DEL_SELECTOR " + onPort3Vlan100().at(order[0]).selector);
  expected.push_back("DEL_ACTION_LIST " + onPort3Vlan100().at(order[0]).actionList);
  // A hole is at 201 now, and a query that finds nothing leaves the record as it is.
  expected = expected + queries(3, {namesOf("LLDP")});
  expected.push_back(entry("GET_PORT_ENTRY", 3, 200, namesOf(order[1])));
  expected.push_back(entry("GET_PORT_ENTRY", 3, 201, namesOf("LLDP")));
  expected.push_back(entry("GET_PORT_ENTRY", 3, 202, namesOf("LLDP")));
  expected.push_back(entry("DEL_PORT_ENTRY", 3, 202, namesOf(order[1])));
  expected.push_back("DEL_SELECTOR " + onPort3Vlan100().at(order[1]).selector);
  expected.push_back("DEL_ACTION_LIST " + onPort3Vlan100().at(order[1]).actionList);
  EXPECT_THAT(sent(), ElementsAreArray(expected));

  EXPECT_EQ(entity.settings.ports.at(3).at(100).size(), 1U);
  EXPECT_EQ(useCount("Q"), 0U);
  EXPECT_THAT(interfaces("Q"), IsEmpty());
  EXPECT_EQ(useCount("P"), 1U);
  EXPECT_THAT(interfaces("P"), ElementsAre(3U));
}

TEST_F(Port, TheLastDetachDeletesTheHideEntryAndThePortButNoCounter) {
  addProfile("P", {{"LLDP", Rule::discard}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  sent();
  EXPECT_EQ(entity.portDetach("P", 3, 100), 0);
  const std::string selector = "<LLDP/100/01:80:c2:00:00:0e/ffff/ff>";
  const std::string list = "<LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>";
  const std::string names = selector + " --> " + list;
  EXPECT_THAT(sent(), ElementsAre("GET_PORT_ENTRY 3 kind 1 @200 \"\" --> \"\"",
                                  "GET_PORT_ENTRY 3 kind 1 @201 " + names,
                                  "GET_PORT_ENTRY 3 kind 1 @200 " + names,
                                  "DEL_PORT_ENTRY 3 kind 1 @200 " + names,
                                  "DEL_PORT_ENTRY 3 kind 1 @299 \"\" --> \"\"",
                                  "DEL_SELECTOR " + selector, "DEL_ACTION_LIST " + list));
  EXPECT_THAT(entity.settings.ports, IsEmpty());
  EXPECT_THAT(interfaces("P"), IsEmpty());
  EXPECT_EQ(useCount("P"), 0U);
  EXPECT_THAT(classifier.entries, IsEmpty());
}

TEST_F(Port, ADetachRemovesTheLevelsThatItLeavesEmptyAndNoOthers) {
  for (const char* name : {"P", "Q"}) addProfile(name, {});
  for (const unsigned short vid : Vlans{10, 20}) {
    ASSERT_EQ(entity.portAttach("P", 3, vid), 0);
    ASSERT_EQ(entity.portAttach("Q", 3, vid), 0);
  }
  ASSERT_EQ(entity.portDetach("P", 3, 10), 0);
  EXPECT_TRUE(entity.settings.ports.at(3).contains(10));
  ASSERT_EQ(entity.portDetach("Q", 3, 10), 0);
  EXPECT_FALSE(entity.settings.ports.at(3).contains(10));
  ASSERT_EQ(entity.portDetach("P", 3, 20), 0);
  ASSERT_EQ(entity.portDetach("Q", 3, 20), 0);
  EXPECT_FALSE(entity.settings.ports.contains(3));
}

TEST_F(Port, DetachingOneVlanTakesThePortOffTheInterfacesThoughAnotherVlanRemains) {
  addProfile("P", {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 10), 0);
  ASSERT_EQ(entity.portAttach("P", 3, 20), 0);
  ASSERT_EQ(entity.portAttach("P", 4, 10), 0);
  ASSERT_EQ(entity.portDetach("P", 3, 10), 0);
  EXPECT_THAT(interfaces("P"), ElementsAre(4U));
  EXPECT_EQ(entity.settings.ports.at(3).size(), 1U);
  EXPECT_EQ(useCount("P"), 2U);
  // Attaching once more puts it back.
  ASSERT_EQ(entity.portAttach("P", 3, 30), 0);
  EXPECT_THAT(interfaces("P"), ElementsAre(3U, 4U));
}

TEST_F(Port, ASelectorSharedByTwoPortsIsDeletedByEitherDetach) {
  addProfile("P", {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(entity.portAttach("P", 4, 100), 0);
  sent();
  for (const unsigned int port : {3U, 4U}) {
    ASSERT_EQ(entity.portDetach("P", port, 100), 0);
    const Lines lines = sent();
    EXPECT_THAT(only("DEL_SELECTOR", lines), ElementsAre("<LLDP/100/01:80:c2:00:00:0e/ffff/ff>"));
    EXPECT_THAT(only("DEL_ACTION_LIST", lines),
                ElementsAre("<LLDP/" + std::to_string(port) + "/100/01:80:c2:00:00:0e/ffff/ff>"));
  }
}

TEST_F(Port, CountersOutliveTheDetach) {
  addProfileP();
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_THAT(only("DEL_COUNTER", sent()), IsEmpty());
}

TEST_F(Port, ADetachedProfileCanBeAttachedAgainAndAsksForThePortCountersAgain) {
  addProfile("P", {});
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
    EXPECT_EQ(sent(), port3Counters + vlan100Counters + profilePCounters);
    ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  }
}

TEST_F(Port, DetachDeletesUnderTheNamesThatTheProtocolHasThen) {
  addProfile("P", {{"LLDP", Rule::peer}});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(entity.protoSetEtherType("LLDP", 0x88cc), 0);
  sent();
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  const Lines lines = sent();
  EXPECT_THAT(only("DEL_SELECTOR", lines), ElementsAre("<LLDP/100/01:80:c2:00:00:0e/88cc/ff>"));
  EXPECT_THAT(only("DEL_ACTION_LIST", lines),
              ElementsAre("<LLDP/3/100/01:80:c2:00:00:0e/88cc/ff>"));
  // The entry is not found, so it stays, and the catch-all with it.
  EXPECT_THAT(only("DEL_PORT_ENTRY", lines), IsEmpty());
  EXPECT_TRUE(holds("3", 1, 200));
  EXPECT_THAT(entity.settings.ports, IsEmpty());
}

// ---- Use counts of names ------------------------------------------------------------------------

TEST_F(Port, UseCountsOfNamesAfterALife) {
  addProfile("P", {{"LLDP", Rule::discard}});
  L2CP::Statistics stats;
  EXPECT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(entity.portAttach("P", 3, 200), 0);
  EXPECT_EQ(entity.portAttach("P", 3, 100), -16);
  EXPECT_EQ(entity.portStat(3, stats), 0);
  EXPECT_EQ(entity.vlanStat(100, stats), 0);
  EXPECT_EQ(entity.protoStat("LLDP", stats), -11);
  EXPECT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_EQ(entity.portDetach("P", 3, 200), 0);
  EXPECT_EQ(entity.portDetach("P", 3, 200), -19);
  EXPECT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(entity.kernelProtoAdd(3, 100, "LLDP", Rule::tunnel, 210), 1U);
  EXPECT_EQ(entity.kernelProtoDel(3, 100, "LLDP", Rule::tunnel, 210), 1U);
  EXPECT_THAT(NameTable(entity).listing(),
              ElementsAre("Use Len Short name    Name",
                          "---------------------------------------------------",
                          // The start, twice the catch-all, and kernelProtoAdd's action list.
                          "  4   9 l2cp:* l2cp:hide", "  1  11 l2cp:* l2cp:tunnel",
                          // Created twice (the port had gone in between), read once; for discard
                          // three actions more.
                          "  3  13 l2cp:* l2cpPort3peer", "  3  15 l2cp:* l2cpPort3tunnel",
                          "  6  16 l2cp:* l2cpPort3discard", "  3  15 l2cp:* l2cpVlan100peer",
                          "  3  17 l2cp:* l2cpVlan100tunnel", "  5  18 l2cp:* l2cpVlan100discard",
                          // Created with every attachment.
                          "  3  14 l2cp:* l2cpProfiPpeer", "  3  16 l2cp:* l2cpProfiPtunnel",
                          "  6  17 l2cp:* l2cpProfiPdiscard", "  6  20 l2cp:* l2cpProtoLLDPdiscard",
                          // Attached twice, detached once.
                          "  3  34 l2cp:* LLDP/100/01:80:c2:00:00:0e/ffff/ff",
                          "  3  36 l2cp:* LLDP/3/100/01:80:c2:00:00:0e/ffff/ff",
                          "  1  15 l2cp:* l2cpVlan200peer", "  1  17 l2cp:* l2cpVlan200tunnel",
                          "  2  18 l2cp:* l2cpVlan200discard",
                          "  2  34 l2cp:* LLDP/200/01:80:c2:00:00:0e/ffff/ff",
                          "  2  36 l2cp:* LLDP/3/200/01:80:c2:00:00:0e/ffff/ff",
                          // The nameless read.
                          "  1   0 l2cp:* ", "  2  14 l2cp:* l2cpLLDP:03064",
                          "---------------------------------------------------"));
}

// ---- portGet ------------------------------------------------------------------------------------

class PortGet : public Port {
 protected:
  struct Answer {
    int result;
    unsigned short vid;
    std::string profileName;
    bool operator==(const Answer&) const = default;
  };

  Answer get(unsigned int port, unsigned int idx) {
    Answer answer{0, 7777, "unchanged"};
    answer.result = entity.portGet(port, idx, answer.vid, answer.profileName);
    return answer;
  }
};

TEST_F(PortGet, APortWithoutAttachmentsReturnsMinus2) {
  addProfile("P", {});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(get(4, 0), (Answer{-2, 7777, "unchanged"}));
}

TEST_F(PortGet, WalksVlansInAscendingOrderAndTheirProfilesInTheOrderOfTheMap) {
  for (const char* name : {"A", "B", "C"}) addProfile(name, {});
  for (const unsigned short vid : Vlans{4095, 20, 100})
    ASSERT_EQ(entity.portAttach("A", 3, vid), 0);
  ASSERT_EQ(entity.portAttach("C", 3, 20), 0);
  ASSERT_EQ(entity.portAttach("B", 3, 20), 0);
  ASSERT_EQ(entity.portAttach("B", 4, 1), 0);
  std::vector<std::string> onVlan20{"A", "B", "C"};
  std::ranges::sort(onVlan20, std::less<>(), [this](const auto& name) {
    return entity.settings.profiles.at(name).pointer().get();
  });
  EXPECT_EQ(get(3, 0), (Answer{0, 20, onVlan20[0]}));
  EXPECT_EQ(get(3, 1), (Answer{0, 20, onVlan20[1]}));
  EXPECT_EQ(get(3, 2), (Answer{0, 20, onVlan20[2]}));
  EXPECT_EQ(get(3, 3), (Answer{0, 100, "A"}));
  EXPECT_EQ(get(3, 4), (Answer{0, 4095, "A"}));
  EXPECT_EQ(get(3, 5), (Answer{-22, 7777, "unchanged"}));
  EXPECT_EQ(get(3, 4294967295U), (Answer{-22, 7777, "unchanged"}));
}

TEST_F(PortGet, AnIndexEqualToTheNumberOfPairsReturnsMinus22) {
  addProfile("P", {});
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_EQ(get(3, 0), (Answer{0, 100, "P"}));
  EXPECT_EQ(get(3, 1), (Answer{-22, 7777, "unchanged"}));
}

TEST_F(PortGet, EmptyLevelsAreSteppedOver) {
  addProfile("P", {});
  entity.settings.ports[5];
  entity.settings.ports[6][10];
  ASSERT_EQ(entity.portAttach("P", 6, 20), 0);
  EXPECT_EQ(get(5, 0), (Answer{-22, 7777, "unchanged"}));
  EXPECT_EQ(get(6, 0), (Answer{0, 20, "P"}));
}

TEST_F(PortGet, IsTracedAndSendsNothing) {
  EXPECT_THAT(traced([&] { get(3, 1); }), ElementsAre("portGet(port=3, idx=1)"));
  EXPECT_THAT(support::SyslogCapture::instance().traceFormats(),
              ElementsAre("%s:%d %s(port=%d, idx=%d)"));
  EXPECT_THAT(traced([&] { get(4294967295U, 4294967294U); }),
              ElementsAre("portGet(port=-1, idx=-2)"));
  EXPECT_THAT(sent(), IsEmpty());
}

}  // namespace
