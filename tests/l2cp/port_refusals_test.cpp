/// A classifier that refuses: one request of an attach after the other, and all of them. Whatever
/// it refuses, the attachment is made, and its trace tells.

#include <cerrno>

#include "tests/l2cp/kernel_fixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

/// What an attach of "P" on port 3 and VLAN 100 sends, with what becomes of the request when it is
/// refused, in the order of the requests.
struct Step {
  std::string request;
  /// The step's trace, empty for none.
  std::string trace;
  std::string refusedTrace;
  /// As many steps behind a refused one are left out.
  std::size_t leftOut = 0;
};

constexpr int refusalError = ENOSPC;

std::vector<Step> counters(const std::string& name) {
  return {{"ADD_COUNTER <" + name + "peer>", "", ""},
          {"ADD_COUNTER <" + name + "tunnel>", "", ""},
          {"ADD_COUNTER <" + name + "discard>", "", ""}};
}

std::vector<Step> profileCounters() {
  std::vector<Step> steps;
  for (const char* name : {"l2cpPort3", "l2cpVlan100", "l2cpProfiP"}) {
    for (Step& step : counters(name)) steps.push_back(std::move(step));
  }
  return steps;
}

Step counterChange(const std::string& list, int index, const std::string& counter) {
  return {"ADD_ACTION " + list + " #" + std::to_string(index) + " count " + counter + " +1",
          "  Action \"CounterChange(" + counter + ", +1)\" added.",
          "  Unable to add action \"CounterChange(" + counter + ", +1)\" (28)."};
}

std::vector<Step> entrySteps(const std::string& selector, const std::string& list) {
  const std::string names = selector + " --> " + list;
  return {{R"(GET_PORT_ENTRY 3 kind 1 @200 "" --> "")", "", ""},
          {"ADD_PORT_ENTRY 3 kind 1 @299 \"true\" --> <l2cp:hide>", "", ""},
          {"ADD_PORT_ENTRY 3 kind 1 @200 " + names, "  Port entry \"@3:200: " + names + "\" added.",
           "  Unable to add port entry \"@3:200: " + names + "\" (28)."}};
}

std::vector<Step> operator+(std::vector<Step> left, const std::vector<Step>& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

std::vector<Step> tunnelledSlow() {
  const std::string selector = "<SLOW/100/01:80:c2:00:00:02/8809/01>";
  const std::string list = "<SLOW/3/100/01:80:c2:00:00:02/8809/01>";
  const std::string add = "ADD_CONDITION " + selector;
  return profileCounters() +
         std::vector<Step>{
             {"ADD_COUNTER <l2cpProtoSLOWtunnel>", "", ""},
             {"ADD_SELECTOR " + selector, "  Selector \"" + selector + "\" added.",
              "  Unable to add selector \"" + selector + "\" (28).", 4},
             {add + " #0 vlan 100..100", "  Condition \"vid1 == 100\" added.",
              "  Unable to add condition \"vid1 == 100\" (28)."},
             {add + " #1 mac 01:80:c2:00:00:02/ff:ff:ff:ff:ff:f0",
              "  Condition \"DMAC == 01:80:c2:00:00:02\" added.",
              "  Unable to add condition \"DMAC == 01:80:c2:00:00:02\" (28)."},
             {add + " #2 type 0x8809", "  Condition \"EtherType == 0x8809\" added.",
              "  Unable to add condition \"EtherType == 0x8809\" (28)."},
             {add + " #3 payload @0 length 1 mask 255 value 1",
              "  Condition \"EtherData[0] == 0x01\" added.",
              "  Unable to add condition \"EtherData[0] == 0x01\" (28)."},
             // The message of a refused action list names the selector.
             {"ADD_ACTION_LIST " + list, "",
              "  Unable to add action list \"" + selector + "\" (28).", 6},
             counterChange(list, 1, "<l2cpPort3tunnel>"),
             counterChange(list, 2, "<l2cpVlan100tunnel>"),
             counterChange(list, 3, "<l2cpProfiPtunnel>"),
             counterChange(list, 4, "<l2cpProtoSLOWtunnel>"),
             {"ADD_ACTION " + list + " #5 no-l2cp <l2cpProtoSLOWtunnel> +1",
              "  Action \"NoL2CP()\" added.", "  Unable to add action \"NoL2CP()\" (28)."},
             {"ADD_ACTION " + list + " #6 hide <l2cpProtoSLOWtunnel> +1",
              "  Action \"Hide()\" added.", "  Unable to add action \"Hide()\" (28)."},
         } +
         entrySteps(selector, list);
}

/// LLDP with a rule that has one action of its own.
std::vector<Step> lldp(const std::string& rule, const Step& action) {
  const std::string selector = "<LLDP/100/01:80:c2:00:00:0e/ffff/ff>";
  const std::string list = "<LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>";
  return profileCounters() +
         std::vector<Step>{
             {"ADD_COUNTER <l2cpProtoLLDP" + rule + '>', "", ""},
             {"ADD_SELECTOR " + selector, "  Selector \"" + selector + "\" added.",
              "  Unable to add selector \"" + selector + "\" (28).", 2},
             {"ADD_CONDITION " + selector + " #0 vlan 100..100",
              "  Condition \"vid1 == 100\" added.",
              "  Unable to add condition \"vid1 == 100\" (28)."},
             {"ADD_CONDITION " + selector + " #1 mac 01:80:c2:00:00:0e/ff:ff:ff:ff:ff:ff",
              "  Condition \"DMAC == 01:80:c2:00:00:0e\" added.",
              "  Unable to add condition \"DMAC == 01:80:c2:00:00:0e\" (28)."},
             {"ADD_ACTION_LIST " + list, "",
              "  Unable to add action list \"" + selector + "\" (28).", 5},
             counterChange(list, 1, "<l2cpPort3" + rule + '>'),
             counterChange(list, 2, "<l2cpVlan100" + rule + '>'),
             counterChange(list, 3, "<l2cpProfiP" + rule + '>'),
             counterChange(list, 4, "<l2cpProtoLLDP" + rule + '>'),
             {"ADD_ACTION " + list + " #5 " + action.request + " <l2cpProtoLLDP" + rule + "> +1",
              action.trace, action.refusedTrace},
         } +
         entrySteps(selector, list);
}

struct Expectation {
  Lines requests;
  Lines traces{"portAttach(profileName=\"P\", port=3, vid=100)"};
};

/// What is sent and traced when the requests for which `isRefused` holds are refused.
template <class Predicate>
Expectation expectation(const std::vector<Step>& steps, const Predicate& isRefused) {
  Expectation result;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const bool refused = isRefused(i);
    result.requests.push_back(steps[i].request);
    const std::string& trace = refused ? steps[i].refusedTrace : steps[i].trace;
    if (!trace.empty()) result.traces.push_back(trace);
    if (refused) i += steps[i].leftOut;
  }
  result.traces.emplace_back("  OK.");
  return result;
}

/// Attaches "P" with that one entry to an empty port of a new entity while `isRefused` holds for
/// the numbers of the requests to refuse, and compares everything that can be seen of it.
template <class Predicate>
void expectAttach(const char* protocol, L2CP::Rule rule, const std::vector<Step>& steps,
                  const Predicate& isRefused) {
  auto& classifier = support::RecordingClassifier::instance();
  classifier.reset();
  L2CP entity;
  ASSERT_TRUE(entity.start());
  constexpr unsigned char mac[]{0x01, 0x80, 0xc2, 0x00, 0x00, 0x02};
  constexpr unsigned char mask[]{0xff, 0xff, 0xff, 0xff, 0xff, 0xf0};
  ASSERT_EQ(entity.protoAdd("SLOW", false, mac, mask, 0x8809, 0x01), 0);
  ASSERT_EQ(entity.profileAdd("P", false, false), 0);
  ASSERT_EQ(entity.profileProtoAdd("P", protocol, rule), 0);
  classifier.take();

  // Requests are numbered as steps, so those left out behind a refused one count.
  std::size_t leftOut = 0;
  classifier.refusal = [&](const support::Request&) {
    const std::size_t number = classifier.requests.size() - 1 + leftOut;
    if (!isRefused(number)) return 0;
    leftOut += steps.at(number).leftOut;
    return refusalError;
  };
  const Lines traces = tracesOf(entity, [&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); });
  classifier.refusal = nullptr;

  const Expectation expected = expectation(steps, isRefused);
  Lines requests;
  const NameTable names(entity);
  for (const auto& request : classifier.take()) requests.push_back(line(request, names));
  EXPECT_THAT(requests, ElementsAreArray(expected.requests));
  EXPECT_THAT(traces, ElementsAreArray(expected.traces));
  const auto& profile = entity.settings.profiles.at("P").pointer();
  EXPECT_EQ(profile->useCount, 1U);
  EXPECT_THAT(profile->interfaces, ElementsAre(3U));
  EXPECT_THAT(entity.settings.ports.at(3).at(100).at(profile), ElementsAre(200U));
  entity.stop();
}

void expectEachRefusal(const char* protocol, L2CP::Rule rule, const std::vector<Step>& steps) {
  for (std::size_t refused = 0; refused < steps.size(); ++refused) {
    SCOPED_TRACE("refused: " + steps[refused].request);
    expectAttach(protocol, rule, steps, [refused](std::size_t i) { return i == refused; });
  }
}

const Step drop{"drop", "  Action \"Drop()\" added.", "  Unable to add action \"Drop()\" (28)."};
const Step hide{"hide", "  Action \"Hide()\" added.", "  Unable to add action \"Hide()\" (28)."};

TEST(PortRefusals, ATunnelledProtocolIsAttachedWhicheverRequestIsRefused) {
  expectEachRefusal("SLOW", L2CP::Rule::tunnel, tunnelledSlow());
}

TEST(PortRefusals, ADiscardedProtocolIsAttachedWhicheverRequestIsRefused) {
  expectEachRefusal("LLDP", L2CP::Rule::discard, lldp("discard", drop));
}

TEST(PortRefusals, APeeredProtocolIsAttachedWhicheverRequestIsRefused) {
  expectEachRefusal("LLDP", L2CP::Rule::peer, lldp("peer", hide));
}

TEST(PortRefusals, AClassifierThatRefusesEverythingFailsNoAttach) {
  const auto everything = [](std::size_t) { return true; };
  expectAttach("SLOW", L2CP::Rule::tunnel, tunnelledSlow(), everything);
  expectAttach("LLDP", L2CP::Rule::discard, lldp("discard", drop), everything);
  expectAttach("LLDP", L2CP::Rule::peer, lldp("peer", hide), everything);
}

TEST(PortRefusals, AConditionThatIsRefusedLeavesTheNumbersOfTheOthers) {
  const std::vector<Step> steps = tunnelledSlow();
  expectAttach("SLOW", L2CP::Rule::tunnel, steps, [&](std::size_t i) {
    return i < steps.size() && steps[i].request.starts_with("ADD_CONDITION");
  });
}

TEST(PortRefusals, ActionsThatAreRefusedLeaveTheNumbersOfTheOthers) {
  const std::vector<Step> steps = tunnelledSlow();
  expectAttach("SLOW", L2CP::Rule::tunnel, steps, [&](std::size_t i) {
    return i < steps.size() && steps[i].request.starts_with("ADD_ACTION ");
  });
}

class PortRefusalsOfAttach : public KernelTest {};

TEST_F(PortRefusalsOfAttach, TheMessageAboutARefusedActionListNamesTheSelector) {
  addProfile("P", {{"LLDP", Rule::discard}});
  classifier.refuseAll(ACL_ADD_ACTION_LIST, refusalError);
  const Lines traces = traced([&] { EXPECT_EQ(entity.portAttach("P", 3, 100), 0); });
  EXPECT_THAT(traces, testing::Contains("  Unable to add action list "
                                        "\"<LLDP/100/01:80:c2:00:00:0e/ffff/ff>\" (28)."));
  EXPECT_THAT(traces, testing::Each(testing::Not(testing::HasSubstr(
                          "action list \"<LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>"))));
}

class PortRefusalsOfDetach : public KernelTest {
 protected:
  void SetUp() override {
    KernelTest::SetUp();
    addProfile("P", {{"LLDP", Rule::discard}});
    ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
    sent();
  }

  /// Detaches, which succeeds and says no more than its own name.
  Lines detach() {
    EXPECT_THAT(traced([&] { EXPECT_EQ(entity.portDetach("P", 3, 100), 0); }),
                ElementsAre("portDetach(profileName=\"P\", port=3, vid=100)"));
    EXPECT_TRUE(entity.settings.ports.empty());
    EXPECT_EQ(entity.settings.profiles.at("P")->useCount, 0U);
    EXPECT_TRUE(entity.settings.profiles.at("P")->interfaces.empty());
    return sent();
  }

  const std::string selector = "<LLDP/100/01:80:c2:00:00:0e/ffff/ff>";
  const std::string list = "<LLDP/3/100/01:80:c2:00:00:0e/ffff/ff>";
  const std::string names = selector + " --> " + list;
  const Lines requests{R"(GET_PORT_ENTRY 3 kind 1 @200 "" --> "")",
                       "GET_PORT_ENTRY 3 kind 1 @201 " + names,
                       "GET_PORT_ENTRY 3 kind 1 @200 " + names,
                       "DEL_PORT_ENTRY 3 kind 1 @200 " + names,
                       R"(DEL_PORT_ENTRY 3 kind 1 @299 "" --> "")",
                       "DEL_SELECTOR " + selector,
                       "DEL_ACTION_LIST " + list};
};

TEST_F(PortRefusalsOfDetach, RefusedDeletionsChangeNothingAboutTheDetach) {
  classifier.refusal = [](const support::Request& request) {
    return request.code == ACL_GET_PORT_ENTRY ? 0 : EIO;
  };
  EXPECT_EQ(detach(), requests);
}

TEST_F(PortRefusalsOfDetach, AFirstQueryThatIsRefusedEndsTheSearchForAPosition) {
  classifier.refuseAt(0, EIO);
  Lines expected = requests;
  expected.erase(expected.begin() + 1);
  EXPECT_EQ(detach(), expected);
}

TEST_F(PortRefusalsOfDetach, RefusedQueriesLeaveTheEntryAndItsCount) {
  classifier.refuseAll(ACL_GET_PORT_ENTRY, EIO);
  Lines expected{requests.front()};
  for (unsigned int index = 200; index <= 298; ++index) {
    expected.push_back("GET_PORT_ENTRY 3 kind 1 @" + std::to_string(index) + ' ' + names);
  }
  expected.push_back("DEL_SELECTOR " + selector);
  expected.push_back("DEL_ACTION_LIST " + list);
  EXPECT_EQ(detach(), expected);
  EXPECT_TRUE(holds("3", 1, 200));
  EXPECT_TRUE(holds("3", 1, 299));
  // One entry is still counted: the next attach makes no catch-all.
  classifier.refusal = nullptr;
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  const Lines attached = sent();
  EXPECT_EQ(
      Lines(attached.end() - 2, attached.end()),
      (Lines{"GET_PORT_ENTRY 3 kind 1 @201 " + names, "ADD_PORT_ENTRY 3 kind 1 @201 " + names}));
}

TEST_F(PortRefusalsOfDetach, AnEntryThatWasRefusedKeepsTheHideEntryBehindTheLastDetach) {
  addProfile("Q", {{"PNAC", Rule::peer}});
  classifier.refusal = [](const support::Request& request) {
    return request.code == ACL_ADD_PORT_ENTRY ? ENOSPC : 0;
  };
  ASSERT_EQ(entity.portAttach("Q", 3, 100), 0);
  classifier.refusal = nullptr;
  ASSERT_EQ(entity.portDetach("Q", 3, 100), 0);
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_EQ(classifier.entries.size(), 1U);
  EXPECT_TRUE(holds("3", 1, 299));
}

TEST_F(PortRefusalsOfDetach, AFullPortRefusesWithTheErrorOfTheClassifier) {
  addProfile("Q", {{"PNAC", Rule::peer}});
  classifier.occupy(3, 201, 298);
  const Lines traces = traced([&] { EXPECT_EQ(entity.portAttach("Q", 3, 100), 0); });
  EXPECT_EQ(traces.at(traces.size() - 2),
            "  Unable to add port entry \"@3:299: <PNAC/100/01:80:c2:00:00:03/888e/ff> --> "
            "<PNAC/3/100/01:80:c2:00:00:03/888e/ff>\" (17).");
}

TEST(PortRefusals, FormatsOfRefusalTraces) {
  auto& classifier = support::RecordingClassifier::instance();
  classifier.reset();
  L2CP entity;
  ASSERT_TRUE(entity.start());
  constexpr unsigned char mac[]{0x01, 0x80, 0xc2, 0x00, 0x00, 0x02};
  ASSERT_EQ(entity.protoAdd("SLOW", false, mac, mac, 0x8809, 0x01), 0);
  ASSERT_EQ(entity.profileAdd("P", false, false), 0);
  ASSERT_EQ(entity.profileProtoAdd("P", "SLOW", L2CP::Rule::tunnel), 0);
  const auto formats = [&](const std::vector<unsigned long>& refusedCodes, unsigned int port) {
    classifier.refusal = [&](const support::Request& request) {
      return std::ranges::count(refusedCodes, request.code) != 0 ? EIO : 0;
    };
    tracesOf(entity, [&] { EXPECT_EQ(entity.portAttach("P", port, 100), 0); });
    classifier.refusal = nullptr;
    return support::SyslogCapture::instance().traceFormats();
  };
  const std::string counterChange = "%s:%d   Unable to add action \"CounterChange(%s, +1)\" (%d).";
  EXPECT_THAT(
      formats({ACL_ADD_CONDITION, ACL_ADD_ACTION}, 1),
      ElementsAre("%s:%d %s(profileName=\"%s\", port=%d, vid=%d)", "%s:%d   Selector \"%s\" added.",
                  "%s:%d   Unable to add condition \"vid1 == %d\" (%d).",
                  "%s:%d   Unable to add condition \"DMAC == %02x:%02x:%02x:%02x:%02x:%02x\" (%d).",
                  "%s:%d   Unable to add condition \"EtherType == 0x%04x\" (%d).",
                  "%s:%d   Unable to add condition \"EtherData[0] == 0x%02x\" (%d).", counterChange,
                  counterChange, counterChange, counterChange,
                  "%s:%d   Unable to add action \"NoL2CP()\" (%d).",
                  "%s:%d   Unable to add action \"Hide()\" (%d).",
                  "%s:%d   Port entry \"@%d:%d: %s --> %s\" added.", "%s:%d   OK."));
  EXPECT_THAT(
      formats({ACL_ADD_SELECTOR, ACL_ADD_ACTION_LIST, ACL_ADD_PORT_ENTRY}, 2),
      ElementsAre("%s:%d %s(profileName=\"%s\", port=%d, vid=%d)",
                  "%s:%d   Unable to add selector \"%s\" (%d).",
                  "%s:%d   Unable to add action list \"%s\" (%d).",
                  "%s:%d   Unable to add port entry \"@%d:%d: %s --> %s\" (%d).", "%s:%d   OK."));
  unsigned int port = 3;
  for (const auto& [rule, action] :
       {std::pair(L2CP::Rule::discard, "%s:%d   Unable to add action \"Drop()\" (%d)."),
        std::pair(L2CP::Rule::peer, "%s:%d   Unable to add action \"Hide()\" (%d).")}) {
    entity.settings.profiles.at("P")->useCount = 0;
    ASSERT_EQ(entity.profileProtoSet("P", "SLOW", rule), 0);
    EXPECT_EQ(formats({ACL_ADD_ACTION}, port++).at(10), action);
  }
  entity.stop();
}

}  // namespace
