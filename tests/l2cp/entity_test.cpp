#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <boost/bind.hpp>
#include <optional>

#include "host/bllManager.h"
#include "platform/BLLManager.h"
#include "tests/l2cp/entity_fixture.h"

namespace {

using Entity = EntityTest;

constexpr const char* header = "Use Len Short name    Name";
constexpr const char* rule = "---------------------------------------------------";

// What `stop` would do for an entity that a test destroys while it is started.
void unsubscribe(L2CP& entity) {
  singleton<BLLManager>::instance().externalMessage.unsubscribePost(
      boost::bind(&L2CP::externalMessage, &entity, _1, _2, _3));
}

// ---- Loading, construction, destruction ----

TEST_F(Entity, IsRegisteredWithTheManagerWhenTheLibraryIsLoaded) {
  const BLEntity* registered = singleton<BLLManager>::instance().host().find("l2cp");
  EXPECT_EQ(registered, &singleton<L2CP>::instance());
  EXPECT_EQ(singleton<L2CP>::instance().entityName(), "l2cp");
}

TEST_F(Entity, IsMadeWithTheFactorySettingsAndTheTraceOff) {
  EXPECT_EQ(entity.entityName(), "l2cp");
  EXPECT_EQ(text(entity.settings), text(L2CP::Settings()));
  EXPECT_THAT(nameLines(entity), testing::IsEmpty());
  entity.Debug("%s", "not to be seen");
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

TEST_F(Entity, IsMadeWithoutTheKernel) {
  EXPECT_EQ(classifier.opened, 0U);
  EXPECT_THAT(classifier.requests, testing::IsEmpty());
  EXPECT_EQ(service.runs, 0U);
}

TEST_F(Entity, HasNoDescriptorToCloseBeforeItIsStarted) {
  const std::size_t before = openDescriptors();
  EXPECT_TRUE(entity.stop());
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Entity, DestructionFreesTheNamesAndLeavesTheKernelAsItIs) {
  std::optional<L2CP> mortal(std::in_place);
  ASSERT_TRUE(mortal->start());
  ASSERT_EQ(mortal->profileAdd("p", false, false), 0);
  ASSERT_EQ(mortal->profileProtoAdd("p", "LLDP", L2CP::Rule::peer), 0);
  ASSERT_EQ(mortal->portAttach("p", 3, 100), 0);
  ASSERT_FALSE(NameTable(*mortal).listing().empty());
  classifier.take();
  const auto entries = classifier.entries.size();

  // The names themselves are a matter for the leak checker.
  unsubscribe(*mortal);
  mortal.reset();
  EXPECT_THAT(classifier.requests, testing::IsEmpty());
  EXPECT_EQ(classifier.entries.size(), entries);
  EXPECT_NE(fcntl(classifier.descriptor(), F_GETFD), -1);
  close(classifier.descriptor());
}

TEST_F(Entity, DestructionWithTheTraceOnFreesTheNamesAndTracesNothing) {
  std::optional<L2CP> mortal(std::in_place);
  mortal->externalMessage("l2cp_debug", "1", nullptr);
  char shortName[ACL_NAME_SIZE];
  for (int name = 0; name < 1000; ++name) {
    mortal->GetName(("name " + std::to_string(name)).c_str(), shortName, nullptr);
  }
  log.reset();
  mortal.reset();
  EXPECT_THAT(log.lines, testing::IsEmpty());
  EXPECT_THAT(classifier.requests, testing::IsEmpty());
}

TEST_F(Entity, DestructionEndsTheService) {
  std::atomic<bool> interrupted = false;
  service.body = [&] {
    waitForInterruption();
    interrupted = true;
  };
  std::optional<L2CP> mortal(std::in_place);
  ASSERT_TRUE(mortal->start());
  unsubscribe(*mortal);
  mortal.reset();
  EXPECT_TRUE(interrupted);
  close(classifier.descriptor());
}

TEST_F(Entity, StorageHooksChangeNothing) {
  trace(true);
  const Lines before = text(entity.settings);
  entity.applyConfiguration(nullptr);
  entity.saveConfiguration(nullptr);
  EXPECT_EQ(text(entity.settings), before);
  EXPECT_THAT(log.lines, testing::IsEmpty());
  EXPECT_THAT(classifier.requests, testing::IsEmpty());
}

// ---- Trace ----

TEST_F(Entity, TraceGoesToTheSystemLogAtDebugLevel) {
  trace(true);
  entity.Debug("%s:%d   Number %d, 0x%04x, \"%s\".", "l2cp", 17, -3, 0xab, "text");
  ASSERT_EQ(log.lines.size(), 1U);
  EXPECT_EQ(log.lines[0].priority, LOG_DEBUG);
  EXPECT_EQ(log.lines[0].priority, 7);
  EXPECT_EQ(log.lines[0].format, "%s:%d   Number %d, 0x%04x, \"%s\".");
  EXPECT_EQ(log.lines[0].text, "l2cp:17   Number -3, 0x00ab, \"text\".");
}

TEST_F(Entity, TraceThatIsSwitchedOffAgainWritesNothing) {
  trace(true);
  trace(false);
  entity.Debug("%s", "not to be seen");
  entity.protoDel("none");
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

struct SwitchRow {
  const char* argument;
  bool on;
};

class TraceSwitch : public EntityTest, public testing::WithParamInterface<SwitchRow> {};

TEST_P(TraceSwitch, IsTheNumberAtTheBeginningOfTheArgument) {
  for (const bool before : {false, true}) {
    trace(before);
    log.reset();
    entity.externalMessage("l2cp_debug", GetParam().argument, nullptr);
    EXPECT_THAT(log.lines, testing::IsEmpty());
    entity.Debug("%s", "seen");
    EXPECT_EQ(!log.lines.empty(), GetParam().on) << GetParam().argument;
  }
}

INSTANTIATE_TEST_SUITE_P(On, TraceSwitch,
                         testing::Values(SwitchRow{"5", true}, SwitchRow{"12abc", true},
                                         SwitchRow{"1", true}, SwitchRow{"-1", true},
                                         SwitchRow{" 7", true}, SwitchRow{"+3", true},
                                         SwitchRow{"007", true}, SwitchRow{"4294967296", true},
                                         SwitchRow{"99999999999999999999", true}));
INSTANTIATE_TEST_SUITE_P(Off, TraceSwitch,
                         testing::Values(SwitchRow{"0", false}, SwitchRow{"", false},
                                         SwitchRow{"abc", false}, SwitchRow{"0x10", false},
                                         SwitchRow{"-0", false}, SwitchRow{"on", false},
                                         SwitchRow{"0 1", false}));

// ---- Operator commands ----

TEST_F(Entity, DumpOfAnEmptyTableIsTheHeaderBetweenTwoRules) {
  entity.externalMessage("l2cp_dump", "", nullptr);
  ASSERT_EQ(log.lines.size(), 3U);
  EXPECT_EQ(log.lines[0].text, header);
  EXPECT_EQ(log.lines[1].text, rule);
  EXPECT_EQ(log.lines[2].text, rule);
  for (const support::LogLine& line : log.lines) EXPECT_EQ(line.priority, LOG_INFO);
}

TEST_F(Entity, DumpWritesALineForEachNameInTableOrder) {
  char first[40];
  char second[40];
  const std::string longName(123, 'n');
  entity.GetName("l2cp:hide", first, nullptr);
  for (int use = 0; use < 12; ++use) entity.GetName(longName.c_str(), second, nullptr);
  entity.externalMessage("l2cp_dump", "no matter", nullptr);
  ASSERT_EQ(log.lines.size(), 5U);
  EXPECT_EQ(log.lines[0].text, header);
  EXPECT_EQ(log.lines[1].text, rule);
  EXPECT_EQ(log.lines[2].text, fmt::format("  1   9 {} l2cp:hide", first));
  EXPECT_EQ(log.lines[3].text, fmt::format(" 12 123 {} {}", second, longName));
  EXPECT_EQ(log.lines[4].text, rule);
  EXPECT_EQ(log.lines[2].format, "%3d %3ld l2cp:%p %s");
  EXPECT_EQ(log.lines[3].format, "%3d %3ld l2cp:%p %s");
  for (const support::LogLine& line : log.lines) {
    EXPECT_EQ(line.priority, LOG_INFO);
    EXPECT_EQ(line.priority, 6);
  }
}

TEST_F(Entity, DumpDoesNotCountAsAUse) {
  entity.GetName("some name", nullptr, nullptr);
  entity.externalMessage("l2cp_dump", "", nullptr);
  EXPECT_THAT(nameLines(entity), testing::ElementsAre("  1   9 l2cp:* some name"));
}

TEST_F(Entity, DumpPrintsWhatANameHoldsAsItIs) {
  entity.GetName("100%s %n", nullptr, nullptr);
  EXPECT_THAT(nameLines(entity), testing::ElementsAre("  1   8 l2cp:* 100%s %n"));
}

TEST_F(Entity, OtherCommandsAreIgnored) {
  trace(true);
  log.reset();
  for (const char* command :
       {"", "l2cp", "l2cp_debug ", "L2CP_DEBUG", "l2cp_dump2", "debug", "l2cp_dum"}) {
    entity.externalMessage(command, "0", nullptr);
  }
  EXPECT_THAT(log.lines, testing::IsEmpty());
  entity.Debug("%s", "still on");
  EXPECT_EQ(log.lines.size(), 1U);
}

TEST_F(Entity, CommandsAnswerInTheSystemLogOnly) {
  std::ostringstream output;
  entity.externalMessage("l2cp_debug", "1", &output);
  entity.externalMessage("l2cp_dump", "", &output);
  entity.externalMessage("unknown", "", &output);
  EXPECT_EQ(output.str(), "");
}

// ---- Attachments by position ----

class PortGet : public EntityTest {
 protected:
  void SetUp() override {
    for (const char* name : {"a", "b"}) ASSERT_EQ(entity.profileAdd(name, false, false), 0);
    ASSERT_EQ(entity.portAttach("a", 7, 200), 0);
    ASSERT_EQ(entity.portAttach("b", 7, 30), 0);
    ASSERT_EQ(entity.portAttach("a", 7, 4095), 0);
    ASSERT_EQ(entity.portAttach("b", 7, 200), 0);
    ASSERT_EQ(entity.portAttach("b", 8, 1), 0);
  }

  // The profiles of VLAN 200, in the order of their addresses.
  std::pair<std::string, std::string> inOrder() {
    return std::less<const L2CP::Profile*>()(&profile("a"), &profile("b"))
               ? std::make_pair("a", "b")
               : std::make_pair("b", "a");
  }
};

TEST_F(PortGet, WalksVlansAscendingAndTheProfilesOfEachInMapOrder) {
  const auto [first, second] = inOrder();
  const std::vector<std::pair<unsigned short, std::string>> expected = {
      {30, "b"}, {200, first}, {200, second}, {4095, "a"}};
  for (unsigned int idx = 0; idx < expected.size(); ++idx) {
    unsigned short vid = 0;
    std::string name;
    EXPECT_EQ(entity.portGet(7, idx, vid, name), 0);
    EXPECT_EQ(std::make_pair(vid, name), expected[idx]) << idx;
  }
}

TEST_F(PortGet, PositionEqualToTheNumberOfAttachmentsIsInvalid) {
  unsigned short vid = 77;
  std::string name = "untouched";
  EXPECT_EQ(entity.portGet(7, 4, vid, name), -22);
  EXPECT_EQ(entity.portGet(7, 0xffffffff, vid, name), -22);
  EXPECT_EQ(entity.portGet(8, 1, vid, name), -22);
  EXPECT_EQ(vid, 77);
  EXPECT_EQ(name, "untouched");
}

TEST_F(PortGet, PortWithoutAttachmentsDoesNotExist) {
  unsigned short vid = 77;
  std::string name = "untouched";
  EXPECT_EQ(entity.portGet(9, 0, vid, name), -2);
  ASSERT_EQ(entity.portDetach("b", 8, 1), 0);
  EXPECT_EQ(entity.portGet(8, 0, vid, name), -2);
  EXPECT_EQ(vid, 77);
  EXPECT_EQ(name, "untouched");
}

TEST_F(PortGet, ShowsAProfileThatHasLeftTheRegistry) {
  entity.settings.profiles.erase("b");
  unsigned short vid = 0;
  std::string name;
  EXPECT_EQ(entity.portGet(8, 0, vid, name), 0);
  EXPECT_EQ(name, "b");
}

TEST_F(PortGet, TracesPortAndPosition) {
  unsigned short vid = 0;
  std::string name;
  expectTraces({
      {"%s:%d %s(port=%d, idx=%d)", "portGet(port=7, idx=1)",
       [&] { entity.portGet(7, 1, vid, name); }},
      {"%s:%d %s(port=%d, idx=%d)", "portGet(port=-1, idx=-1)",
       [&] { entity.portGet(0xffffffff, 0xffffffff, vid, name); }},
  });
}

// ---- Service profiles ----

TEST_F(Entity, EveryServiceProfileMayBeApplied) {
  EXPECT_EQ(entity.profileApplyCheck(3, "gold"), 0);
  EXPECT_EQ(entity.profileApplyCheck(-1, ""), 0);
  expectTraces({
      {"%s:%d %s(intf=%d, serviceProfile=\"%s\")",
       "profileApplyCheck(intf=3, serviceProfile=\"gold\")",
       [&] { entity.profileApplyCheck(3, "gold"); }},
      {"%s:%d %s(intf=%d, serviceProfile=\"%s\")",
       "profileApplyCheck(intf=-1, serviceProfile=\"\")",
       [&] { entity.profileApplyCheck(-1, ""); }},
  });
}

}  // namespace
