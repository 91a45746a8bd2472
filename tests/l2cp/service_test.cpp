/// The service profiles' side of the entity.

#include <functional>
#include <future>
#include <new>
#include <set>
#include <streambuf>
#include <utility>

#include "host/bllManager.h"
#include "platform/Log.h"
#include "tests/l2cp/kernel_fixture.h"
#include "tests/support/held_lock.h"
#include "tests/support/refused_block.h"
#include "tests/support/services.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class Service : public KernelTest {};

struct Check {
  int intf;
  const char* serviceProfile;
  const char* trace;
};

constexpr Check checks[] = {
    {3, "gold", "profileApplyCheck(intf=3, serviceProfile=\"gold\")"},
    {0, "", "profileApplyCheck(intf=0, serviceProfile=\"\")"},
    {-1, "no such profile", "profileApplyCheck(intf=-1, serviceProfile=\"no such profile\")"},
    {2147483647, "100%s", "profileApplyCheck(intf=2147483647, serviceProfile=\"100%s\")"},
};

TEST_F(Service, ProfileApplyCheckTracesItsArgumentsAndVetoesNothing) {
  for (const Check& check : checks) {
    SCOPED_TRACE(check.trace);
    EXPECT_THAT(
        traced([&] { EXPECT_EQ(entity.profileApplyCheck(check.intf, check.serviceProfile), 0); }),
        ElementsAre(check.trace));
    EXPECT_THAT(support::SyslogCapture::instance().traceFormats(),
                ElementsAre("%s:%d %s(intf=%d, serviceProfile=\"%s\")"));
  }
}

TEST_F(Service, ProfileApplyCheckChangesNothing) {
  const std::vector<std::string> names = NameTable(entity).listing();
  EXPECT_EQ(entity.profileApplyCheck(3, "gold"), 0);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(NameTable(entity).listing(), names);
  EXPECT_THAT(entity.settings.profiles, IsEmpty());
  EXPECT_THAT(entity.settings.ports, IsEmpty());
}

TEST_F(Service, ProfileApplyCheckNeedsNoStartedEntityAndNoTrace) {
  L2CP idle;
  EXPECT_EQ(idle.profileApplyCheck(3, "gold"), 0);
  EXPECT_THAT(support::SyslogCapture::instance().lines, IsEmpty());
}

// ---- Applying and taking off ----

/// Profile P of LLDP, and the service profile "gold" that names it and the VLAN profile "v", which
/// has the S-VID 100 on interface 3.
class Applying : public KernelTest {
 protected:
  void SetUp() override {
    KernelTest::SetUp();
    addProfile("P", {{"LLDP", Rule::peer}});
    services.addVlan("v", {{3, 100}});
    services.add("gold", "P", "v");
    classifier.take();
  }

  static void setSvid(int intf, int svid) {
    singleton<vlanprofile>::instance().vlanProfiles.at("v").svids[intf] = svid;
  }
  L2CP::Profile& profile(const char* name) { return *entity.settings.profiles.at(name); }

  std::list<std::pair<unsigned int, unsigned short>> places() {
    std::list<std::pair<unsigned int, unsigned short>> places;
    EXPECT_EQ(entity.profileGetPorts("P", places), 0);
    return places;
  }

  support::Services services;
};

TEST_F(Applying, AttachesTheL2cpProfileOnTheSvidOfTheInterface) {
  EXPECT_THAT(traced([&] { EXPECT_EQ(entity.profileApply(3, "gold"), 0); }),
              testing::IsSupersetOf({"profileApply(intf=3, serviceProfile=\"gold\")",
                                     "portAttach(profileName=\"P\", port=3, vid=100)", "  OK."}));
  EXPECT_THAT(places(), ElementsAre(Pair(3, 100)));
  EXPECT_EQ(profile("P").useCount, 1U);
  EXPECT_TRUE(holds("3", 1, 200));
}

TEST_F(Applying, TakingOffDetachesItAgain) {
  ASSERT_EQ(entity.profileApply(3, "gold"), 0);
  const Lines traces = traced([&] { EXPECT_EQ(entity.profileUnApply(3, "gold"), 0); });
  ASSERT_GE(traces.size(), 2U);
  EXPECT_EQ(traces[0], "profileUnApply(intf=3, serviceProfile=\"gold\")");
  EXPECT_EQ(traces[1], "portDetach(profileName=\"P\", port=3, vid=100)");
  EXPECT_THAT(places(), IsEmpty());
  EXPECT_EQ(profile("P").useCount, 0U);
  EXPECT_THAT(classifier.entries, IsEmpty());
}

TEST_F(Applying, TracesBeginWithTheArguments) {
  for (const bool applies : {true, false}) {
    traced([&] {
      const int intf = -1;
      applies ? entity.profileApply(intf, "100%s") : entity.profileUnApply(intf, "100%s");
    });
    EXPECT_EQ(support::SyslogCapture::instance().traceFormats().at(0),
              "%s:%d %s(intf=%d, serviceProfile=\"%s\")");
    EXPECT_EQ(support::SyslogCapture::instance().traces().at(0),
              std::string(applies ? "profileApply" : "profileUnApply") +
                  "(intf=-1, serviceProfile=\"100%s\")");
  }
}

struct Refusal {
  const char* why;
  const char* l2cpProfile;
  const char* vlanProfile;
  int svid;
  int applied;
  Lines traces;
  int takenOff;
};

TEST_F(Applying, RefusalsAreTracedWithTheirOwnNumbersAndThoseOfTakingOffAreSilent) {
  const Refusal refusals[] = {
      {"nothing named", "", "", 100, -2, {"  No L2CP profile specified."}, 0},
      {"no L2CP profile comes first", "", "none", 0, -2, {"  No L2CP profile specified."}, 0},
      {"no VLAN profile named", "P", "", 100, -19, {"  No VLAN profile \"\"."}, -19},
      {"unknown VLAN profile", "P", "none", 100, -19, {"  No VLAN profile \"none\"."}, -19},
      {"VLAN profile comes before L2CP profile",
       "none",
       "none",
       100,
       -19,
       {"  No VLAN profile \"none\"."},
       -19},
      {"no S-VID", "P", "v", 0, -99, {"  VLAN profile \"v\" has no S-VID"}, -64},
      {"negative S-VID", "P", "v", -1, -99, {"  VLAN profile \"v\" has no S-VID"}, -64},
      {"S-VID of the whole port", "P", "v", 4095, -99, {"  VLAN profile \"v\" has no S-VID"}, -64},
      {"S-VID beyond 16 bits", "P", "v", 65636, -99, {"  VLAN profile \"v\" has no S-VID"}, -64},
      {"S-VID comes before L2CP profile",
       "none",
       "v",
       0,
       -99,
       {"  VLAN profile \"v\" has no S-VID"},
       -64},
      {"unknown L2CP profile",
       "none",
       "v",
       100,
       -2,
       {"portAttach(profileName=\"none\", port=3, vid=100)",
        "  L2CP profile \"none\" does not exist."},
       -2},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.why);
    auto& info = services.table().servProfiles.at("gold");
    std::strcpy(info.l2cpProfile, refusal.l2cpProfile);
    std::strcpy(info.vlanProfile, refusal.vlanProfile);
    setSvid(3, refusal.svid);
    EXPECT_EQ(traced([&] { EXPECT_EQ(entity.profileApply(3, "gold"), refusal.applied); }),
              Lines{"profileApply(intf=3, serviceProfile=\"gold\")"} + refusal.traces);
    const Lines begin = {"profileUnApply(intf=3, serviceProfile=\"gold\")"};
    const Lines traces =
        traced([&] { EXPECT_EQ(entity.profileUnApply(3, "gold"), refusal.takenOff); });
    EXPECT_EQ(traces, refusal.takenOff == -2
                          ? begin + Lines{"portDetach(profileName=\"none\", port=3, vid=100)"}
                          : begin);
    EXPECT_THAT(entity.settings.ports, IsEmpty());
    EXPECT_THAT(sent(), IsEmpty());
  }
}

TEST_F(Applying, SvidsReachFromOneTo4094) {
  for (const int svid : {1, 4094}) {
    setSvid(3, svid);
    EXPECT_EQ(entity.profileApply(3, "gold"), 0);
    EXPECT_THAT(places(), ElementsAre(Pair(3, svid)));
    EXPECT_EQ(entity.profileUnApply(3, "gold"), 0);
  }
}

TEST_F(Applying, SvidIsThatOfTheVlanProfileNamedAndOfTheInterface) {
  services.addVlan("w", {{3, 300}, {4, 400}});
  services.add("silver", "P", "w");
  EXPECT_EQ(entity.profileApply(3, "silver"), 0);
  EXPECT_EQ(entity.profileApply(4, "silver"), 0);
  EXPECT_EQ(entity.profileApply(4, "gold"), -99);
  EXPECT_EQ(entity.profileApply(3, "gold"), 0);
  EXPECT_THAT(places(), ElementsAre(Pair(3, 100), Pair(3, 300), Pair(4, 400)));
}

TEST_F(Applying, NegativeInterfaceIsThePortOfThatPattern) {
  setSvid(-1, 100);
  EXPECT_EQ(entity.profileApply(-1, "gold"), 0);
  EXPECT_THAT(places(), ElementsAre(Pair(4294967295, 100)));
  EXPECT_EQ(entity.profileUnApply(-1, "gold"), 0);
}

TEST_F(Applying, TwiceOnOneInterfaceIsRefusedTheSecondTime) {
  EXPECT_EQ(entity.profileApply(3, "gold"), 0);
  EXPECT_EQ(entity.profileApply(3, "gold"), -16);
  EXPECT_EQ(profile("P").useCount, 1U);
}

TEST_F(Applying, TakingOffAnswersWhatDetachingAnswers) {
  setSvid(4, 100);
  setSvid(5, 100);
  addProfile("Q", {});
  ASSERT_EQ(entity.portAttach("P", 4, 200), 0);
  ASSERT_EQ(entity.portAttach("Q", 5, 100), 0);
  EXPECT_EQ(entity.profileUnApply(3, "gold"), -19);
  EXPECT_EQ(entity.profileUnApply(4, "gold"), -20);
  EXPECT_EQ(entity.profileUnApply(5, "gold"), -9);
}

TEST_F(Applying, AndTakingOffTakeNoLock) {
  const support::LockHeldElsewhere lock;
  EXPECT_EQ(entity.profileApplyCheck(3, "gold"), 0);
  EXPECT_EQ(entity.profileApply(3, "gold"), 0);
  EXPECT_THAT(places(), ElementsAre(Pair(3, 100)));
  EXPECT_EQ(entity.profileUnApply(3, "gold"), 0);
  EXPECT_THAT(places(), IsEmpty());
}

TEST_F(Applying, UnknownServiceProfileComesIntoBeingEmpty) {
  EXPECT_EQ(entity.profileApply(3, "applied"), -2);
  EXPECT_EQ(entity.profileUnApply(3, "taken off"), 0);
  EXPECT_EQ(entity.profileApplyCheck(3, "checked"), 0);
  EXPECT_THAT(services.lines(),
              ElementsAre("applied: vlan \"\" l2cp \"\"", "gold: vlan \"v\" l2cp \"P\"",
                          "taken off: vlan \"\" l2cp \"\""));
  EXPECT_STREQ(services.table().servProfiles.at("applied").name, "");
}

TEST_F(Applying, TakingOffAServiceProfileWithoutL2cpProfileLeavesAttachmentsAlone) {
  ASSERT_EQ(entity.profileApply(3, "gold"), 0);
  services.table().servProfileL2cpProfile("gold", "");
  classifier.take();
  EXPECT_EQ(entity.profileUnApply(3, "gold"), 0);
  EXPECT_THAT(places(), ElementsAre(Pair(3, 100)));
  EXPECT_THAT(sent(), IsEmpty());
}

// ---- Where a profile is applied ----

class Applied : public Applying {
 protected:
  std::set<unsigned int> interfaces() {
    std::set<unsigned int> result = {77};
    EXPECT_TRUE(entity.profileAppliedIntfGet("P", result));
    return result;
  }
};

TEST_F(Applied, ProfileIsAppliedWhereItIsAttachedInWhateverWay) {
  EXPECT_FALSE(entity.profileIsApplied("P"));
  EXPECT_THAT(interfaces(), IsEmpty());
  ASSERT_EQ(entity.profileApply(3, "gold"), 0);
  EXPECT_TRUE(entity.profileIsApplied("P"));
  EXPECT_THAT(interfaces(), ElementsAre(3));
  ASSERT_EQ(entity.portAttach("P", 0, 4095), 0);
  EXPECT_THAT(interfaces(), ElementsAre(0, 3));
  ASSERT_EQ(entity.profileUnApply(3, "gold"), 0);
  EXPECT_TRUE(entity.profileIsApplied("P"));
  EXPECT_THAT(interfaces(), ElementsAre(0));
}

TEST_F(Applied, DetachingOneVlanOfAPortMakesItSeemAppliedNowhere) {
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  ASSERT_EQ(entity.portAttach("P", 3, 200), 0);
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_FALSE(entity.profileIsApplied("P"));
  EXPECT_THAT(interfaces(), IsEmpty());
  EXPECT_EQ(profile("P").useCount, 1U);
}

TEST_F(Applied, UnknownProfileIsNotAppliedAndTheLogSaysSo) {
  testing::internal::CaptureStderr();
  EXPECT_THAT(traced([&] { EXPECT_FALSE(entity.profileIsApplied("no such one")); }), IsEmpty());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::MatchesRegex("l2cpd: warning: module: l2cp:[0-9]+:profileIsApplied:profile "
                                    "doesn't exist: no such one\n"));
  EXPECT_EQ(entity.settings.profiles.size(), 1U);
}

TEST_F(Applied, InterfacesOfAnUnknownProfileAreLeftAsTheyWereWithoutAWord) {
  std::set<unsigned int> interfaces = {77};
  testing::internal::CaptureStderr();
  EXPECT_THAT(traced([&] { EXPECT_FALSE(entity.profileAppliedIntfGet("none", interfaces)); }),
              IsEmpty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(interfaces, ElementsAre(77));
}

TEST_F(Applied, InterfacesCanBeReadIntoTheProfilesOwn) {
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  EXPECT_TRUE(entity.profileAppliedIntfGet("P", profile("P").interfaces));
  EXPECT_THAT(profile("P").interfaces, ElementsAre(3));
}

TEST_F(Applied, QueriesAreNeitherTracedNorLoggedNorSent) {
  testing::internal::CaptureStderr();
  std::set<unsigned int> interfaces;
  EXPECT_THAT(traced([&] {
                entity.profileIsApplied("P");
                entity.profileAppliedIntfGet("P", interfaces);
              }),
              IsEmpty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Applied, QueriesShareTheConfigurationLockAndGiveItBack) {
  {
    const BLLManager::sharedLock_t lock;
    ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
    EXPECT_TRUE(entity.profileIsApplied("P"));
    EXPECT_THAT(interfaces(), ElementsAre(3));
    testing::internal::CaptureStderr();
    entity.profileIsApplied("none");
    testing::internal::GetCapturedStderr();
  }
  auto& lock = singleton<BLLManager>::instance().host().configurationLock();
  ASSERT_TRUE(lock.try_lock());
  lock.unlock();
}

/// What another thread gets of the configuration lock at the moment.
enum class Lock { nothing, shared, exclusive };

Lock lockForOthers() {
  const auto tryLock = [] {
    auto& lock = singleton<BLLManager>::instance().host().configurationLock();
    if (lock.try_lock()) {
      lock.unlock();
      return Lock::exclusive;
    }
    if (!lock.try_lock_shared()) return Lock::nothing;
    lock.unlock_shared();
    return Lock::shared;
  };
  return std::async(std::launch::async, tryLock).get();
}

/// Takes what is written to the daemon's log, piece by piece, for as long as it lives. What a
/// callback throws passes through the log.
class LogHook : public std::streambuf {
 public:
  explicit LogHook(std::function<void()> onPiece)
      : onPiece_(std::move(onPiece)), exceptions_(log().exceptions()), before_(log().rdbuf(this)) {
    log().exceptions(std::ios::badbit);
  }
  ~LogHook() override {
    log().rdbuf(before_);
    log().exceptions(exceptions_);
  }

 protected:
  std::streamsize xsputn(const char* /*text*/, std::streamsize size) override {
    onPiece_();
    return size;
  }
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }

 private:
  static Log& log() { return singleton<Log>::instance(); }

  std::function<void()> onPiece_;
  std::ios::iostate exceptions_;
  std::streambuf* before_;
};

TEST_F(Applied, TheLockIsSharedFromTheFirstToTheLastWordOfTheLog) {
  int pieces = 0;
  const LogHook hook([&] {
    ++pieces;
    EXPECT_EQ(lockForOthers(), Lock::shared);
  });
  EXPECT_FALSE(entity.profileIsApplied("none"));
  EXPECT_GT(pieces, 1);
  EXPECT_EQ(lockForOthers(), Lock::exclusive);
}

TEST_F(Applied, TheLockIsGivenBackWhenTheLogThrows) {
  const LogHook hook([] { throw std::bad_alloc(); });
  EXPECT_THROW(entity.profileIsApplied("none"), std::bad_alloc);
  EXPECT_EQ(lockForOthers(), Lock::exclusive);
}

TEST_F(Applied, TheLockIsSharedWhileInterfacesAreCopiedAndGivenBackWhenMemoryIsOut) {
  if (!support::ownMalloc) GTEST_SKIP() << "the sanitizer's malloc cannot be made to fail";
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  std::set<unsigned int> interfaces;
  static std::vector<Lock> seen;
  support::beforeRefusal = [] { seen.push_back(lockForOthers()); };
  // An element of the set: three links, a colour, the number.
  support::refusedBlock = 5 * sizeof(void*);
  EXPECT_THROW(entity.profileAppliedIntfGet("P", interfaces), std::bad_alloc);
  support::refusedBlock = 0;
  support::beforeRefusal = nullptr;
  EXPECT_THAT(seen, ElementsAre(Lock::shared));
  EXPECT_EQ(lockForOthers(), Lock::exclusive);
}

TEST_F(Applied, QueriesThatDoNotGetTheLockAnswerFalseAndChangeNothing) {
  ASSERT_EQ(entity.portAttach("P", 3, 100), 0);
  const BLLManager::exclusiveLock_t lock;
  ASSERT_TRUE(lock);
  std::set<unsigned int> interfaces = {77};
  testing::internal::CaptureStderr();
  // Both wait for the lock at the same time.
  auto query = std::async(std::launch::async, [&] { return entity.profileIsApplied("none"); });
  EXPECT_FALSE(entity.profileAppliedIntfGet("P", interfaces));
  EXPECT_FALSE(query.get());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(interfaces, ElementsAre(77));
}

}  // namespace
