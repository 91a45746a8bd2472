#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <new>
#include <thread>

#include "host/bllManager.h"
#include "host/bridge.h"
#include "platform/BLLManager.h"
#include "platform/CliConfig.h"
#include "platform/Interfaces.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"
#include "tests/l2cp/entity_fixture.h"

namespace {

using Rule = L2CP::Rule;
using Settings = L2CP::Settings;

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1 || errno != EBADF; }

void fireExternalMessage(const std::string& command) {
  singleton<BLLManager>::instance().externalMessage.fire(
      command, std::string(), static_cast<std::ostringstream*>(nullptr), std::string());
}

const Lines startRequests = {
    "ADD_ACTION_LIST <l2cp:hide>", "ADD_ACTION <l2cp:hide> #0 hide \"\" +0",
    "ADD_ACTION_LIST <l2cp:tunnel>", "ADD_ACTION <l2cp:tunnel> #0 no-l2cp \"\" +0",
    "ADD_ACTION <l2cp:tunnel> #1 no-l2cp \"\" +0"};

const Lines stopRequests = {"DEL_ACTION_LIST <l2cp:tunnel>", "DEL_ACTION_LIST <l2cp:hide>"};

// ---- Start ----

class Start : public EntityTest {
 protected:
  void TearDown() override {
    classifier.refusal = nullptr;
    entity.stop();
  }

  bool listens() {
    log.reset();
    fireExternalMessage("l2cp_dump");
    const bool heard = !log.lines.empty();
    log.reset();
    return heard;
  }
};

TEST_F(Start, OpensTheAclTableOfTheSwitchsBridge) {
  EXPECT_TRUE(entity.start());
  EXPECT_EQ(classifier.opened, 1U);
  EXPECT_EQ(classifier.bridge, "br0");
  EXPECT_EQ(classifier.table, "acl");
  entity.stop();
  setBridgeName("switch7");
  EXPECT_TRUE(entity.start());
  EXPECT_EQ(classifier.bridge, "switch7");
  setBridgeName("br0");
}

TEST_F(Start, MakesTheTwoSharedActionLists) {
  EXPECT_TRUE(entity.start());
  EXPECT_EQ(sent(), startRequests);
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  1   9 l2cp:* l2cp:hide", "  1  11 l2cp:* l2cp:tunnel"));
}

TEST_F(Start, SecondActionOfTheTunnelListIsNoL2cpToo) {
  ASSERT_TRUE(entity.start());
  ASSERT_EQ(classifier.requests.size(), startRequests.size());
  for (const unsigned int index : {0U, 1U}) {
    const support::Request& request = classifier.requests[3 + index];
    ASSERT_EQ(request.code, ACL_ADD_ACTION);
    const auto action = request.as<acl_ioctl_action>();
    EXPECT_EQ(support::fullName(action.actionList), "l2cp:tunnel");
    EXPECT_EQ(action.index, index);
    EXPECT_EQ(action.type, 24U);
  }
}

TEST_F(Start, TracesTheMiddleOfTheTunnelList) {
  expectTraces({{"%s:%d ---\n", "---\n", [&] { EXPECT_TRUE(entity.start()); }}});
}

TEST_F(Start, TracesNothingIfTheTunnelListIsNotReached) {
  trace(true);
  classifier.refuseAt(3, ENOSPC);
  EXPECT_FALSE(entity.start());
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

void logBefore(const std::string&, const std::string&, std::ostringstream*, const std::string&) {
  support::SyslogCapture::instance().lines.push_back({0, "", "before"});
}

void logBehind(const std::string&, const std::string&, std::ostringstream*, const std::string&) {
  support::SyslogCapture::instance().lines.push_back({0, "", "behind"});
}

TEST_F(Start, ListensToOperatorCommandsBehindThoseWhoListenAlready) {
  BLLManager::ExternalMessage& event = singleton<BLLManager>::instance().externalMessage;
  event.subscribePost(logBefore);
  ASSERT_TRUE(entity.start());
  event.subscribePost(logBehind);
  fireExternalMessage("l2cp_dump");
  event.unsubscribePost(&logBefore);
  event.unsubscribePost(&logBehind);
  ASSERT_EQ(log.lines.size(), 7U);
  EXPECT_EQ(log.lines.front().text, "before");
  EXPECT_EQ(log.lines[1].text, "Use Len Short name    Name");
  EXPECT_EQ(log.lines.back().text, "behind");
}

TEST_F(Start, PassesCommandAndArgumentOn) {
  ASSERT_TRUE(entity.start());
  BLLManager::ExternalMessage& event = singleton<BLLManager>::instance().externalMessage;
  const auto fire = [&](const char* argument) {
    std::ostringstream output;
    event.fire(std::string("l2cp_debug"), std::string(argument), &output, std::string());
  };
  fire("1");
  entity.Debug("%s", "seen");
  fire("0");
  entity.Debug("%s", "not to be seen");
  ASSERT_EQ(log.lines.size(), 1U);
  EXPECT_EQ(log.lines[0].text, "seen");
}

TEST_F(Start, StartsTheServicesThreadUnderItsName) {
  std::promise<void> served;
  service.body = [&] { served.set_value(); };
  ASSERT_TRUE(entity.start());
  EXPECT_EQ(served.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  EXPECT_TRUE(
      singleton<BLLManager>::instance().host().waitForThread("L2CP_mng", std::chrono::seconds(30)));
  EXPECT_EQ(service.runs, 1U);
}

TEST_F(Start, IsRefusedByAServiceThatRunsAlready) {
  ASSERT_TRUE(entity.start());
  const int first = classifier.descriptor();
  sent();
  EXPECT_FALSE(entity.start());
  EXPECT_EQ(sent(), startRequests);
  EXPECT_EQ(classifier.opened, 2U);
  entity.stop();
  EXPECT_FALSE(isOpen(classifier.descriptor()));
  close(first);
}

TEST_F(Start, FailsIfTheClassifierCannotBeOpened) {
  classifier.openError = ENODEV;
  EXPECT_FALSE(entity.start());
  EXPECT_EQ(classifier.opened, 1U);
  EXPECT_THAT(classifier.requests, testing::IsEmpty());
  EXPECT_THAT(nameLines(entity), testing::IsEmpty());
  EXPECT_FALSE(listens());
  EXPECT_EQ(service.runs, 0U);
  EXPECT_TRUE(entity.stop());
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  1  11 l2cp:* l2cp:tunnel", "  1   9 l2cp:* l2cp:hide"));
}

TEST_F(Start, FailsWhateverNegativeNumberTheOpeningOfTheClassifierReturns) {
  const std::size_t descriptors = openDescriptors();
  classifier.openError = EIO;
  for (const int number : {-1, -2, -5, -22, -2147483647 - 1}) {
    classifier.openFailure = number;
    EXPECT_FALSE(entity.start());
    EXPECT_THAT(sent(), testing::IsEmpty());
    EXPECT_FALSE(listens());
    EXPECT_TRUE(entity.stop());
    sent();
  }
  EXPECT_EQ(service.runs, 0U);
  EXPECT_EQ(openDescriptors(), descriptors);
  classifier.openError = 0;
  EXPECT_TRUE(entity.start());
  EXPECT_EQ(sent(), startRequests);
}

TEST_F(Start, SucceedsAfterAFailedOne) {
  classifier.openError = ENODEV;
  ASSERT_FALSE(entity.start());
  classifier.openError = 0;
  EXPECT_TRUE(entity.start());
  EXPECT_EQ(sent(), startRequests);
}

TEST_F(Start, WorksAgainAfterOneThatFoundTheServiceRunning) {
  trace(true);
  service.body = waitForInterruption;
  const std::size_t descriptors = openDescriptors();
  ASSERT_TRUE(entity.start());
  const int first = classifier.descriptor();
  ASSERT_FALSE(entity.start());
  EXPECT_TRUE(entity.stop());
  // The second start forgot the first one's descriptor.
  EXPECT_TRUE(isOpen(first));
  close(first);
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_FALSE(listens());
  trace(false);
  sent();
  EXPECT_TRUE(entity.start());
  EXPECT_EQ(sent(), startRequests);
  EXPECT_TRUE(listens());
  EXPECT_TRUE(entity.stop());
  EXPECT_EQ(service.runs, 2U);
}

TEST_F(Start, AndStopManyTimesLeaveNothingBehind) {
  ASSERT_TRUE(entity.start());
  ASSERT_TRUE(entity.stop());
  const std::size_t descriptors = openDescriptors();
  const std::size_t names = nameLines(entity).size();
  for (int round = 0; round < 1000; ++round) {
    ASSERT_TRUE(entity.start());
    ASSERT_TRUE(entity.stop());
    classifier.requests.clear();
  }
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(nameLines(entity).size(), names);
  EXPECT_FALSE(listens());
  EXPECT_EQ(service.runs, 1001U);
}

class StartRefusal : public Start, public testing::WithParamInterface<std::size_t> {};

TEST_P(StartRefusal, EndsTheStartThereAndStopClosesTheDescriptor) {
  const std::size_t step = GetParam();
  classifier.refuseAt(step, EEXIST);
  EXPECT_FALSE(entity.start());
  EXPECT_EQ(sent(), Lines(startRequests.begin(),
                          startRequests.begin() + static_cast<std::ptrdiff_t>(step) + 1));
  EXPECT_FALSE(listens());
  EXPECT_EQ(service.runs, 0U);

  // Nothing is undone by the failed start itself.
  const int descriptor = classifier.descriptor();
  EXPECT_TRUE(isOpen(descriptor));
  classifier.refusal = nullptr;
  EXPECT_TRUE(entity.stop());
  EXPECT_EQ(sent(), stopRequests);
  EXPECT_FALSE(isOpen(descriptor));
}

TEST_P(StartRefusal, IsTracedOnlyIfTheMiddleOfTheTunnelListWasReached) {
  trace(true);
  classifier.refuseAt(GetParam(), ENOMEM);
  EXPECT_FALSE(entity.start());
  classifier.refusal = nullptr;
  EXPECT_TRUE(entity.stop());
  EXPECT_THAT(log.traces(), GetParam() < 4 ? Lines{} : Lines{"---\n"});
}

TEST_P(StartRefusal, IsFollowedByAStartThatWorks) {
  const std::size_t descriptors = openDescriptors();
  for (int round = 0; round < 3; ++round) {
    classifier.reset();
    classifier.refuseAt(GetParam(), ENOSPC);
    EXPECT_FALSE(entity.start());
    classifier.refusal = nullptr;
    EXPECT_TRUE(entity.stop());
    EXPECT_EQ(openDescriptors(), descriptors);
    sent();
    EXPECT_TRUE(entity.start());
    EXPECT_EQ(sent(), startRequests);
    EXPECT_TRUE(listens());
    EXPECT_TRUE(entity.stop());
    EXPECT_FALSE(listens());
    EXPECT_EQ(openDescriptors(), descriptors);
  }
  EXPECT_EQ(service.runs, 3U);
}

INSTANTIATE_TEST_SUITE_P(EachRequest, StartRefusal, testing::Range<std::size_t>(0, 5));

// ---- Stop ----

class Stop : public EntityTest {
 protected:
  void SetUp() override { ASSERT_TRUE(entity.start()); }
  void TearDown() override {
    classifier.refusal = nullptr;
    entity.stop();
  }
};

TEST_F(Stop, DeletesTheSharedActionListsAndClosesTheClassifier) {
  sent();
  const int descriptor = classifier.descriptor();
  EXPECT_TRUE(isOpen(descriptor));
  EXPECT_TRUE(entity.stop());
  EXPECT_EQ(sent(), stopRequests);
  EXPECT_FALSE(isOpen(descriptor));
  EXPECT_THAT(nameLines(entity),
              testing::ElementsAre("  2   9 l2cp:* l2cp:hide", "  2  11 l2cp:* l2cp:tunnel"));
}

TEST_F(Stop, GoesOnIfTheActionListsAreNotDeleted) {
  sent();
  classifier.refuseAll(ACL_DEL_ACTION_LIST, ENOENT);
  EXPECT_TRUE(entity.stop());
  EXPECT_EQ(sent(), stopRequests);
  EXPECT_FALSE(isOpen(classifier.descriptor()));
}

TEST_F(Stop, TracesNothing) {
  trace(true);
  EXPECT_TRUE(entity.stop());
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

TEST_F(Stop, NoLongerListensToOperatorCommands) {
  EXPECT_TRUE(entity.stop());
  fireExternalMessage("l2cp_dump");
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

TEST_F(Stop, LeavesOtherEntitiesListening) {
  L2CP other;
  ASSERT_TRUE(other.start());
  const int descriptor = classifier.descriptor();
  EXPECT_TRUE(entity.stop());
  fireExternalMessage("l2cp_dump");
  EXPECT_FALSE(log.lines.empty());
  EXPECT_TRUE(isOpen(descriptor));
  EXPECT_TRUE(other.stop());
}

TEST_F(Stop, ASecondTimeClosesNothing) {
  ASSERT_TRUE(entity.stop());
  sent();
  // Takes the number that has become free.
  const int reused = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(reused, classifier.descriptor());
  EXPECT_TRUE(entity.stop());
  EXPECT_TRUE(isOpen(reused));
  EXPECT_THAT(sent(), testing::IsEmpty());
  close(reused);
}

TEST_F(Stop, LeavesAttachmentsAndCountersInTheKernel) {
  ASSERT_EQ(entity.profileAdd("p", false, false), 0);
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::tunnel), 0);
  ASSERT_EQ(entity.portAttach("p", 3, 100), 0);
  sent();
  const Lines before = text(entity.settings);
  EXPECT_TRUE(entity.stop());
  EXPECT_EQ(sent(), stopRequests);
  EXPECT_EQ(text(entity.settings), before);
}

TEST_F(Stop, AndStartMakeTheSameObjectsUnderTheSameNames) {
  const std::vector<support::Request> before = classifier.take();
  ASSERT_TRUE(entity.stop());
  classifier.take();
  ASSERT_TRUE(entity.start());
  const std::vector<support::Request> again = classifier.take();
  ASSERT_EQ(again.size(), before.size());
  for (std::size_t number = 0; number < again.size(); ++number) {
    EXPECT_EQ(again[number].code, before[number].code);
    EXPECT_EQ(again[number].bytes, before[number].bytes);
  }
}

TEST_F(Start, AndStopLeaveAnEntityThatCanBeStartedAgain) {
  for (int round = 0; round < 5; ++round) {
    ASSERT_TRUE(entity.start());
    ASSERT_TRUE(entity.stop());
  }
  EXPECT_EQ(service.runs, 5U);
  EXPECT_EQ(classifier.opened, 5U);
}

TEST_F(Start, IsUndoneByAStopThatBeginsWithTheServiceAndWaitsForItsEnd) {
  std::atomic<bool> ended = false;
  std::size_t requestsAtTheEnd = 0;
  std::size_t linesAtTheEnd = 0;
  service.body = [&] {
    waitForInterruption();
    // Longer than a stop that does not insist would wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    requestsAtTheEnd = classifier.requests.size();
    fireExternalMessage("l2cp_dump");
    linesAtTheEnd = log.lines.size();
    ended = true;
  };
  ASSERT_TRUE(entity.start());
  ASSERT_EQ(sent(), startRequests);
  log.reset();
  EXPECT_TRUE(entity.stop());
  EXPECT_TRUE(ended);
  EXPECT_EQ(requestsAtTheEnd, 0U);
  EXPECT_EQ(linesAtTheEnd, 5U);
  EXPECT_EQ(sent(), stopRequests);
}

// ---- Dependencies ----

TEST_F(Start, DependsOnInterfacesVlanProfilesAndServiceProfilesInThatOrder) {
  std::list<std::string> entities = {"what the list held"};
  trace(true);
  EXPECT_EQ(entity.getDependencies(entities), 0);
  EXPECT_THAT(entities, testing::ElementsAre("Interfaces", "vlanprofile", "servprofile"));
  EXPECT_EQ(entity.getDependencies(entities), 0);
  EXPECT_EQ(entities.size(), 3U);
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

TEST_F(Start, DependsOnEntitiesByTheNamesThatTheyHave) {
  std::list<std::string> entities;
  EXPECT_EQ(entity.getDependencies(entities), 0);
  EXPECT_THAT(entities, testing::ElementsAre(singleton<Interfaces>::instance().entityName(),
                                             singleton<vlanprofile>::instance().entityName(),
                                             singleton<servprofile>::instance().entityName()));
}

// ---- Applying settings ----

class ApplySettings : public StartedEntityTest {
 protected:
  void SetUp() override {
    StartedEntityTest::SetUp();
    ASSERT_EQ(entity.protoAdd("own", false, someMac, someMask, 0x1234, 0x56), 0);
    for (const char* name : {"a", "b"}) {
      ASSERT_EQ(entity.profileAdd(name, false, false), 0);
      ASSERT_EQ(entity.profileProtoAdd(name, "own", Rule::tunnel), 0);
    }
    ASSERT_EQ(entity.profileProtoAdd("a", "LLDP", Rule::peer), 0);
  }

  void attach(const char* profileName, unsigned int port, unsigned short vid) {
    ASSERT_EQ(entity.portAttach(profileName, port, vid), 0);
  }

  /// Applies, and returns what that traces: the operations in their order, with their sub-steps.
  Lines apply(const Settings& settings, int result = 0) {
    log.reset();
    trace(true);
    EXPECT_EQ(entity.applySettings("any name", settings), result);
    trace(false);
    return log.traces();
  }

  /// The live attachments alone.
  Lines attachments() {
    Settings settings;
    settings.protocols.clear();
    settings.ports = entity.settings.ports;
    return text(settings);
  }
};

TEST_F(ApplySettings, EqualToACopyOfTheLiveStateChangesNothing) {
  attach("a", 3, 100);
  attach("b", 3, 100);
  attach("a", 5, 4095);
  classifier.take();
  const Settings copy = entity.settings;
  const Lines before = text(entity.settings);
  EXPECT_THAT(apply(copy), testing::IsEmpty());
  EXPECT_EQ(text(entity.settings), before);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(ApplySettings, WithoutTheBridgesNameIsTheSame) {
  EXPECT_EQ(entity.applySettings(nullptr, entity.settings), 0);
}

TEST_F(ApplySettings, LackingOneOfTwoAttachmentsOfAPortDetachesExactlyThatOne) {
  attach("a", 3, 100);
  attach("b", 3, 100);
  Settings wanted = entity.settings;
  wanted.ports[3][100].erase(entity.settings.profiles.at("a").pointer());
  classifier.take();
  EXPECT_THAT(apply(wanted),
              testing::ElementsAre("portDetach(profileName=\"a\", port=3, vid=100)"));
  EXPECT_EQ(profile("a").useCount, 0U);
  EXPECT_EQ(profile("b").useCount, 1U);
  EXPECT_EQ(entity.settings.ports.at(3).at(100).size(), 1U);
  EXPECT_THAT(sent(), testing::Contains("DEL_SELECTOR <own/100/01:80:c2:00:ab:cd/1234/56>"));
}

TEST_F(ApplySettings, LackingAVlanDetachesAllThatIsOnIt) {
  attach("a", 3, 100);
  attach("b", 3, 100);
  attach("b", 3, 200);
  Settings wanted = entity.settings;
  wanted.ports[3].erase(100);
  EXPECT_THAT(apply(wanted),
              testing::UnorderedElementsAre("portDetach(profileName=\"a\", port=3, vid=100)",
                                            "portDetach(profileName=\"b\", port=3, vid=100)"));
  EXPECT_THAT(attachments(), testing::ElementsAre("port 3 vlan 200: b @203"));
}

TEST_F(ApplySettings, LackingAPortDetachesAllThatIsOnItFirstVlanFirst) {
  attach("b", 3, 200);
  attach("a", 3, 30);
  attach("b", 3, 4095);
  attach("a", 5, 1);
  attach("b", 2, 1);
  Settings wanted = entity.settings;
  wanted.ports.erase(3);
  wanted.ports.erase(2);
  EXPECT_THAT(apply(wanted),
              testing::ElementsAre("portDetach(profileName=\"b\", port=2, vid=1)",
                                   "portDetach(profileName=\"a\", port=3, vid=30)",
                                   "portDetach(profileName=\"b\", port=3, vid=200)",
                                   "portDetach(profileName=\"b\", port=3, vid=4095)"));
  EXPECT_THAT(attachments(), testing::ElementsAre("port 5 vlan 1: a @201"));
}

TEST_F(ApplySettings, DetachesTheProfilesOfAVlanInMapOrder) {
  attach("b", 3, 100);
  attach("a", 3, 100);
  const bool aFirst = std::less<>()(&profile("a"), &profile("b"));
  Lines expected = {"portDetach(profileName=\"a\", port=3, vid=100)",
                    "portDetach(profileName=\"b\", port=3, vid=100)"};
  if (!aFirst) std::swap(expected[0], expected[1]);
  Settings wanted = entity.settings;
  wanted.ports.clear();
  EXPECT_EQ(apply(wanted), expected);
}

TEST_F(ApplySettings, AnotherProfileOfTheSameNameIsAnotherAttachment) {
  attach("a", 3, 100);
  Settings wanted = entity.settings;
  wanted.ports[3][100].clear();
  wanted.ports[3][100][wanted.profiles.at("a").pointer()] = {200};
  EXPECT_THAT(apply(wanted),
              testing::ElementsAre("portDetach(profileName=\"a\", port=3, vid=100)"));
  EXPECT_THAT(attachments(), testing::IsEmpty());
}

TEST_F(ApplySettings, MakesNoAttachments) {
  Settings wanted = entity.settings;
  wanted.ports[3][100][entity.settings.profiles.at("a").pointer()] = {200};
  wanted.ports[4][1][entity.settings.profiles.at("b").pointer()] = {200};
  classifier.take();
  EXPECT_THAT(apply(wanted), testing::IsEmpty());
  EXPECT_THAT(attachments(), testing::IsEmpty());
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(ApplySettings, LeavesTheFieldsOfAnExistingProtocol) {
  Settings wanted = entity.settings;
  std::copy_n(otherMac, sizeof(otherMac), wanted.protocols.at("own")->mac);
  wanted.protocols.at("own")->protect = true;
  wanted.protocols.at("LLDP")->etherType = 7;
  wanted.protocols.at("LLDP")->name = "changed";
  const Lines before = text(entity.settings);
  EXPECT_THAT(apply(wanted), testing::IsEmpty());
  EXPECT_EQ(text(entity.settings), before);
}

TEST_F(ApplySettings, LeavesFlagsAndRulesOfAnExistingProfile) {
  Settings wanted = entity.settings;
  L2CP::Profile& other = *wanted.profiles.at("a");
  other.protect = true;
  other.protocols.clear();
  other.protocols[wanted.protocols.at("CDP").pointer()] = Rule::discard;
  const Lines before = text(entity.settings);
  EXPECT_THAT(apply(wanted), testing::IsEmpty());
  EXPECT_EQ(text(entity.settings), before);
}

TEST_F(ApplySettings, TakesRulesOfRemovedProtocolsOutOfEveryProfile) {
  Settings wanted = entity.settings;
  wanted.protocols.erase("LLDP");
  wanted.protocols.erase("own");
  // Asked for in every profile, whether it has the entry or not.
  EXPECT_THAT(apply(wanted),
              testing::ElementsAre("profileProtoDel(profileName=\"a\", protoName=\"LLDP\")",
                                   "profileProtoDel(profileName=\"a\", protoName=\"own\")",
                                   "profileProtoDel(profileName=\"b\", protoName=\"LLDP\")",
                                   "profileProtoDel(profileName=\"b\", protoName=\"own\")",
                                   "protoDel(protoName=\"LLDP\")", "protoDel(protoName=\"own\")"));
  EXPECT_TRUE(profile("a").protocols.empty());
  EXPECT_TRUE(profile("b").protocols.empty());
  EXPECT_FALSE(entity.settings.protocols.contains("LLDP"));
  EXPECT_FALSE(entity.settings.protocols.contains("own"));
}

TEST_F(ApplySettings, AddsWhatIsNewWithAllItsValues) {
  Settings wanted = entity.settings;
  wanted.protocols.emplace("y", L2CP::Protocol("y", false, otherMac, someMask, 0xffff, 0xff));
  wanted.protocols.emplace("x", L2CP::Protocol("x", true, someMac, someMask, 0x88cc, 1));
  wanted.protocols.at("x")->useCount = 9;
  wanted.profiles.emplace("new", L2CP::Profile("new", false, true));
  L2CP::Profile& added = *wanted.profiles.at("new");
  added.useCount = 9;
  added.protocols[wanted.protocols.at("x").pointer()] = Rule::discard;
  EXPECT_THAT(
      apply(wanted),
      testing::ElementsAre(
          "protoAdd(protoName=\"x\", protect=yes, mac=01:80:c2:00:ab:cd, etherTypeHf=0x88cc "
          "(35020), subType=1)",
          "protoAdd(protoName=\"y\", protect=no, mac=01:00:5e:00:00:fb, etherTypeHf=0xffff "
          "(65535), subType=255)",
          "profileAdd(profileName=\"new\", protect=no, dynamic=yes)",
          "profileProtoAdd(profileName=\"new\", protoName=\"x\", rule=0)"));
  EXPECT_EQ(text(protocol("x")),
            "\"x\" protect=yes 01:80:c2:00:ab:cd/ff:ff:ff:ff:ff:f0 88cc 01 uses=1");
  EXPECT_EQ(text(protocol("y")),
            "\"y\" protect=no 01:00:5e:00:00:fb/ff:ff:ff:ff:ff:f0 ffff ff uses=0");
  EXPECT_EQ(text(profile("new")), "\"new\" protect=no dynamic=yes uses=0 x=0");
  EXPECT_EQ(profile("new").protocols.begin()->first, entity.settings.protocols.at("x").pointer());
}

TEST_F(ApplySettings, AddsTheRulesOfANewProfileInMapOrder) {
  Settings wanted = entity.settings;
  wanted.profiles.emplace("new", L2CP::Profile("new", false, false));
  auto& rules = wanted.profiles.at("new")->protocols;
  for (const char* name : {"xSTP", "CDP", "LLDP", "own"}) {
    rules[wanted.protocols.at(name).pointer()] = Rule::peer;
  }
  Lines expected = {"profileAdd(profileName=\"new\", protect=no, dynamic=no)"};
  for (const auto& [proto, rule] : rules) {
    expected.push_back(
        fmt::format("profileProtoAdd(profileName=\"new\", protoName=\"{}\", rule=1)", proto->name));
  }
  EXPECT_EQ(apply(wanted), expected);
}

TEST_F(ApplySettings, ANewProtectedProfileArrivesWithoutItsRules) {
  Settings wanted = entity.settings;
  wanted.profiles.emplace("new", L2CP::Profile("new", true, false));
  wanted.profiles.at("new")->protocols[wanted.protocols.at("CDP").pointer()] = Rule::peer;
  EXPECT_THAT(
      apply(wanted),
      testing::ElementsAre("profileAdd(profileName=\"new\", protect=yes, dynamic=no)",
                           "profileProtoAdd(profileName=\"new\", protoName=\"CDP\", rule=1)"));
  EXPECT_EQ(text(profile("new")), "\"new\" protect=yes dynamic=no uses=0");
}

TEST_F(ApplySettings, ANewProtectedProfileHasItsRulesWhileDynamicProfilesAreScripted) {
  Settings wanted = entity.settings;
  wanted.profiles.emplace("new", L2CP::Profile("new", true, true));
  wanted.profiles.at("new")->protocols[wanted.protocols.at("CDP").pointer()] = Rule::peer;
  singleton<CliConfig>::instance().setScriptingDynamicProfilesMode(true);
  apply(wanted);
  singleton<CliConfig>::instance().setScriptingDynamicProfilesMode(false);
  EXPECT_EQ(text(profile("new")), "\"new\" protect=yes dynamic=yes uses=0 CDP=1");
}

TEST_F(ApplySettings, DoesItsStepsInThisOrder) {
  attach("b", 3, 100);
  Settings wanted;
  wanted.protocols.erase("LLDP");
  wanted.protocols.emplace("new", L2CP::Protocol("new", false, someMac, someMask, 1, 2));
  wanted.profiles.emplace("c", L2CP::Profile("c", false, false));
  wanted.profiles.at("c")->protocols[wanted.protocols.at("new").pointer()] = Rule::tunnel;
  classifier.take();
  EXPECT_THAT(apply(wanted), testing::ElementsAre(
                                 "portDetach(profileName=\"b\", port=3, vid=100)",
                                 "profileProtoDel(profileName=\"a\", protoName=\"LLDP\")",
                                 "profileProtoDel(profileName=\"a\", protoName=\"own\")",
                                 "profileProtoDel(profileName=\"b\", protoName=\"LLDP\")",
                                 "profileProtoDel(profileName=\"b\", protoName=\"own\")",
                                 "profileDel(profileName=\"a\")", "profileDel(profileName=\"b\")",
                                 "protoDel(protoName=\"LLDP\")", "protoDel(protoName=\"own\")",
                                 "protoAdd(protoName=\"new\", protect=no, mac=01:80:c2:00:ab:cd, "
                                 "etherTypeHf=0x0001 (1), subType=2)",
                                 "profileAdd(profileName=\"c\", protect=no, dynamic=no)",
                                 "profileProtoAdd(profileName=\"c\", protoName=\"new\", rule=2)"));
  const auto counters = [](const std::string& full) {
    return Lines{"DEL_COUNTER <" + full + "peer>", "DEL_COUNTER <" + full + "tunnel>",
                 "DEL_COUNTER <" + full + "discard>"};
  };
  const Lines requests = sent();
  const auto firstCounter =
      std::find(requests.begin(), requests.end(), "DEL_COUNTER <l2cpProfiapeer>");
  EXPECT_EQ(Lines(firstCounter, requests.end()), counters("l2cpProfia") + counters("l2cpProfib") +
                                                     counters("l2cpProtoLLDP") +
                                                     counters("l2cpProtoown"));
}

TEST_F(ApplySettings, PassesRefusalsOver) {
  // "a" is protected, so that neither it nor its protocols can go.
  profile("a").protect = true;
  const Settings wanted;
  EXPECT_THAT(apply(wanted),
              testing::ElementsAre("profileProtoDel(profileName=\"a\", protoName=\"own\")",
                                   "profileProtoDel(profileName=\"b\", protoName=\"own\")",
                                   "profileDel(profileName=\"a\")", "profileDel(profileName=\"b\")",
                                   "protoDel(protoName=\"own\")"));
  EXPECT_EQ(text(profile("a")), "\"a\" protect=yes dynamic=no uses=0 LLDP=1 own=2");
  EXPECT_FALSE(entity.settings.profiles.contains("b"));
  EXPECT_EQ(protocol("own").useCount, 1U);
}

TEST_F(ApplySettings, AProfileDeletedWithItsRulesKeepsTheirProtocolsCounted) {
  Settings wanted = entity.settings;
  wanted.profiles.clear();
  apply(wanted);
  EXPECT_TRUE(entity.settings.profiles.empty());
  EXPECT_EQ(protocol("own").useCount, 2U);
  EXPECT_EQ(protocol("LLDP").useCount, 1U);
}

// ---- What has left the registry ----

TEST_F(ApplySettings, DetachesAProfileThatHasLeftTheRegistryWithTheUsualRequests) {
  attach("a", 3, 100);
  const std::weak_ptr<L2CP::Profile> watch = entity.settings.profiles.at("a").pointer();
  const Settings before = entity.settings;
  classifier.take();
  ASSERT_EQ(entity.portDetach("a", 3, 100), 0);
  const Lines usual = sent();
  ASSERT_FALSE(usual.empty());

  ASSERT_EQ(entity.portAttach("a", 3, 100), 0);
  entity.settings.profiles.erase("a");
  classifier.take();
  EXPECT_THAT(apply(Settings()),
              testing::Contains("portDetach(profileName=\"a\", port=3, vid=100)").Times(1));
  const Lines requests = sent();
  ASSERT_GE(requests.size(), usual.size());
  EXPECT_EQ(Lines(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(usual.size())),
            usual);
  EXPECT_THAT(attachments(), testing::IsEmpty());
  // The copy made before still refers to it.
  ASSERT_FALSE(watch.expired());
  EXPECT_EQ(text(*watch.lock()), "\"a\" protect=no dynamic=no uses=0 LLDP=1 own=2");
}

TEST_F(ApplySettings, DetachesAProfileThatWasReplacedByAnotherOfItsName) {
  attach("a", 3, 100);
  entity.settings.profiles.erase("a");
  ASSERT_EQ(entity.profileAdd("a", false, false), 0);
  apply(Settings());
  EXPECT_THAT(attachments(), testing::IsEmpty());
  EXPECT_FALSE(entity.settings.profiles.contains("a"));
}

TEST_F(ApplySettings, LeavesAProfileThatHasLeftTheRegistryOnAPortThatStays) {
  attach("a", 3, 100);
  attach("b", 3, 100);
  Settings wanted = entity.settings;
  wanted.ports[3][100].erase(entity.settings.profiles.at("a").pointer());
  entity.settings.profiles.erase("a");
  wanted.profiles.erase("a");
  EXPECT_THAT(apply(wanted),
              testing::ElementsAre("portDetach(profileName=\"a\", port=3, vid=100)"));
  EXPECT_EQ(entity.settings.ports.at(3).at(100).size(), 2U);
}

TEST_F(ApplySettings, ComesToAnEndWhereLevelsOfTheAttachmentsAreEmpty) {
  entity.settings.ports[7];
  entity.settings.ports[8][5];
  attach("b", 8, 6);
  Settings wanted = entity.settings;
  wanted.ports.clear();
  EXPECT_EQ(entity.applySettings("br0", wanted), 0);
  EXPECT_EQ(profile("b").useCount, 0U);
}

// ---- The lock ----

TEST_F(ApplySettings, IsBusyWhileSomebodyHoldsTheLock) {
  attach("a", 3, 100);
  classifier.take();
  const Lines before = text(entity.settings);
  {
    const BLLManager::exclusiveLock_t held;
    ASSERT_TRUE(held);
    EXPECT_THAT(apply(Settings(), -16), testing::IsEmpty());
  }
  {
    const BLLManager::sharedLock_t held;
    ASSERT_TRUE(held);
    EXPECT_THAT(apply(Settings(), -16), testing::IsEmpty());
  }
  EXPECT_EQ(text(entity.settings), before);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(ApplySettings, HoldsTheLockThroughoutAndReleasesIt) {
  boost::shared_mutex& mutex = singleton<BLLManager>::instance().host().configurationLock();
  int lines = 0;
  trace(true);
  log.onLine = [&](const support::LogLine&) {
    ++lines;
    EXPECT_FALSE(mutex.try_lock_shared());
  };
  EXPECT_EQ(entity.applySettings("br0", Settings()), 0);
  log.onLine = nullptr;
  EXPECT_GT(lines, 0);
  ASSERT_TRUE(mutex.try_lock());
  mutex.unlock();
}

TEST_F(ApplySettings, ReleasesTheLockWhenAnExceptionPasses) {
  trace(true);
  log.onLine = [](const support::LogLine&) { throw std::bad_alloc(); };
  EXPECT_THROW(entity.applySettings("br0", Settings()), std::bad_alloc);
  log.onLine = nullptr;
  boost::shared_mutex& mutex = singleton<BLLManager>::instance().host().configurationLock();
  ASSERT_TRUE(mutex.try_lock());
  mutex.unlock();
}

// ---- Default settings ----

TEST_F(Start, WithDefaultSettingsAppliedToAFreshEntityChangesNothing) {
  const Lines before = text(entity.settings);
  trace(true);
  EXPECT_TRUE(entity.applyDefaultSettings());
  EXPECT_EQ(text(entity.settings), before);
  EXPECT_THAT(log.lines, testing::IsEmpty());
  EXPECT_THAT(classifier.requests, testing::IsEmpty());
}

TEST_F(ApplySettings, OfTheDefaultAddsADeletedBuiltInProtocolBack) {
  ASSERT_EQ(entity.protoDel("CDP"), 0);
  ASSERT_EQ(entity.protoDel("xSTP"), 0);
  EXPECT_TRUE(entity.applyDefaultSettings());
  EXPECT_EQ(text(protocol("CDP")),
            "\"CDP\" protect=yes 01:00:0c:cc:cc:cc/ff:ff:ff:ff:ff:ff 2000 ff uses=0");
  EXPECT_EQ(text(protocol("xSTP")),
            "\"xSTP\" protect=yes 01:80:c2:00:00:00/ff:ff:ff:ff:ff:ff ffff ff uses=0");
}

TEST_F(ApplySettings, OfTheDefaultRemovesEverythingElse) {
  attach("a", 3, 100);
  attach("b", 3, 100);
  attach("b", 9, 4095);
  EXPECT_TRUE(entity.applyDefaultSettings());
  EXPECT_THAT(entity.settings.profiles, testing::IsEmpty());
  EXPECT_THAT(entity.settings.ports, testing::IsEmpty());
  EXPECT_FALSE(entity.settings.protocols.contains("own"));
  EXPECT_EQ(entity.settings.protocols.size(), 14U);
  EXPECT_THAT(classifier.entries, testing::IsEmpty());
}

TEST_F(ApplySettings, OfTheDefaultLeavesAChangedBuiltInProtocolChanged) {
  ASSERT_EQ(entity.protoSetEtherType("LLDP", 0x88cc), 0);
  EXPECT_TRUE(entity.applyDefaultSettings());
  EXPECT_EQ(protocol("LLDP").etherType, 0x88cc);
}

TEST_F(ApplySettings, OfTheDefaultSucceedsEvenIfThingsHaveToStay) {
  profile("a").protect = true;
  EXPECT_TRUE(entity.applyDefaultSettings());
  EXPECT_TRUE(entity.settings.profiles.contains("a"));
}

TEST_F(ApplySettings, OfTheDefaultFailsIfTheLockIsNotToBeHad) {
  const Lines before = text(entity.settings);
  const BLLManager::exclusiveLock_t held;
  ASSERT_TRUE(held);
  EXPECT_FALSE(entity.applyDefaultSettings());
  EXPECT_EQ(text(entity.settings), before);
}

}  // namespace
