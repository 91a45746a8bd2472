#include <climits>
#include <cstring>
#include <stdexcept>
#include <tuple>

#include "platform/servprofile.h"
#include "tests/l2cp/entity_fixture.h"

namespace {

/// What the service profiles' log was told: level, function, module, unit, type and name of the
/// object, detail, two numbers. The line has to be one.
using LogMessage =
    std::tuple<int, std::string, std::string, int, std::string, std::string, std::string, int, int>;
std::vector<LogMessage> logMessages;

}  // namespace

// In place of the daemon's own, which does not write down all it is given.
void servprofile::servProfileLogMsg(int level, const char* function, int line, const char* module,
                                    int unit, const char* objectType, const char* objectName,
                                    const char* detail, int first, int second) {
  EXPECT_GT(line, 0);
  logMessages.emplace_back(level, function, module, unit, objectType, objectName, detail, first,
                           second);
}

namespace {

using Rule = L2CP::Rule;

class Profiles : public StartedEntityTest {
 protected:
  void SetUp() override {
    StartedEntityTest::SetUp();
    services.servProfiles.clear();
    services.servProfileLogLevel = 1;
    logMessages.clear();
  }

  void add(const char* name, bool protect = false, bool dynamic = false) {
    ASSERT_EQ(entity.profileAdd(name, protect, dynamic), 0);
  }
  bool exists(const std::string& name) { return entity.settings.profiles.contains(name); }
  std::string shown(const std::string& name) { return text(profile(name)); }

  /// Has a service profile name an L2CP profile.
  void addService(const std::string& name, const char* l2cpProfile) {
    std::strcpy(services.servProfiles[name].l2cpProfile, l2cpProfile);
  }

  servprofile& services = singleton<servprofile>::instance();
};

// ---- Adding ----

TEST_F(Profiles, AreAddedEmptyAndUnusedWithTheirFlagsAsGiven) {
  add("plain");
  add("protected", true, false);
  add("dynamic", false, true);
  add("both", true, true);
  EXPECT_EQ(shown("plain"), "\"plain\" protect=no dynamic=no uses=0");
  EXPECT_EQ(shown("protected"), "\"protected\" protect=yes dynamic=no uses=0");
  EXPECT_EQ(shown("dynamic"), "\"dynamic\" protect=no dynamic=yes uses=0");
  EXPECT_EQ(shown("both"), "\"both\" protect=yes dynamic=yes uses=0");
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(Profiles, ExistingNameIsRefusedAndKeepsItsFlags) {
  add("p", true, false);
  EXPECT_EQ(entity.profileAdd("p", false, true), -17);
  EXPECT_EQ(shown("p"), "\"p\" protect=yes dynamic=no uses=0");
}

TEST_F(Profiles, NamesMayBeEmptyOrOfAnyLength) {
  const std::string name(5000, 'n');
  add("");
  add(name.c_str());
  EXPECT_TRUE(exists(""));
  EXPECT_TRUE(exists(name));
  EXPECT_EQ(entity.profileAdd("", false, false), -17);
}

// ---- Deleting ----

TEST_F(Profiles, AreDeletedWithTheirThreeCounters) {
  add("p");
  EXPECT_EQ(entity.profileDel("p"), 0);
  EXPECT_FALSE(exists("p"));
  EXPECT_THAT(sent(),
              testing::ElementsAre("DEL_COUNTER <l2cpProfippeer>", "DEL_COUNTER <l2cpProfiptunnel>",
                                   "DEL_COUNTER <l2cpProfipdiscard>"));
}

TEST_F(Profiles, AreDeletedEvenIfTheirCountersAreNot) {
  add("p");
  classifier.refuseAll(ACL_DEL_COUNTER, ENOENT);
  EXPECT_EQ(entity.profileDel("p"), 0);
  EXPECT_FALSE(exists("p"));
  EXPECT_EQ(sent().size(), 3U);
}

struct DeletionRow {
  const char* why;
  bool exists;
  bool protect;
  unsigned int useCount;
  bool inService;
  int result;
};

class ProfileDeletion : public Profiles, public testing::WithParamInterface<DeletionRow> {};

TEST_P(ProfileDeletion, IsCheckedInThisOrder) {
  const DeletionRow& row = GetParam();
  SCOPED_TRACE(row.why);
  services.servProfileLogLevel = 2;
  if (row.exists) {
    add("p", row.protect);
    profile("p").useCount = row.useCount;
  }
  if (row.inService) addService("internet", "p");
  logMessages.clear();
  const Lines before = text(entity.settings);
  EXPECT_EQ(entity.profileDel("p"), row.result);
  EXPECT_EQ(text(entity.settings), before);
  EXPECT_THAT(sent(), testing::IsEmpty());
  EXPECT_THAT(logMessages, testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, ProfileDeletion,
    testing::Values(DeletionRow{"absent", false, false, 0, true, -2},
                    DeletionRow{"protected", true, true, 0, false, -1},
                    DeletionRow{"protected comes before in use", true, true, 1, true, -1},
                    DeletionRow{"in use", true, false, 1, false, -16},
                    DeletionRow{"in use, highest count", true, false, UINT_MAX, false, -16},
                    DeletionRow{"named by a service profile", true, false, 0, true, -16}));

TEST_F(Profiles, ServiceProfilesThatNameOthersDoNotHinderDeletion) {
  add("p");
  addService("internet", "other");
  addService("voice", "");
  addService("p", "P");
  EXPECT_EQ(entity.profileDel("p"), 0);
}

TEST_F(Profiles, DeletionKeepsTheUseCountsOfTheirProtocols) {
  add("p");
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::peer), 0);
  ASSERT_EQ(entity.profileDel("p"), 0);
  EXPECT_EQ(protocol("LLDP").useCount, 1U);
  EXPECT_EQ(entity.protoDel("LLDP"), -16);
}

TEST_F(Profiles, DeletedAfterTheSettingsWereCopiedAreStillInTheCopy) {
  add("p");
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::peer), 0);
  ASSERT_EQ(entity.portAttach("p", 3, 100), 0);
  const L2CP::Settings copy = entity.settings;
  ASSERT_EQ(entity.portDetach("p", 3, 100), 0);
  ASSERT_EQ(entity.profileDel("p"), 0);
  EXPECT_EQ(text(*copy.profiles.at("p")), "\"p\" protect=no dynamic=no uses=1 LLDP=1");
  EXPECT_EQ(text(*copy.ports.at(3).at(100).begin()->first),
            "\"p\" protect=no dynamic=no uses=0 LLDP=1");
}

TEST_F(Profiles, WhoseUseCountWrappedToZeroCanBeDeletedUnderTheirAttachment) {
  add("p");
  ASSERT_EQ(entity.profileProtoAdd("p", "LLDP", Rule::peer), 0);
  profile("p").useCount = UINT_MAX;
  ASSERT_EQ(entity.portAttach("p", 3, 100), 0);
  ASSERT_EQ(profile("p").useCount, 0U);
  EXPECT_EQ(entity.profileDel("p"), 0);

  // The attachment shows it, but a new profile of the name is another one.
  unsigned short vid = 0;
  std::string name;
  EXPECT_EQ(entity.portGet(3, 0, vid, name), 0);
  EXPECT_EQ(name, "p");
  EXPECT_EQ(entity.portDetach("p", 3, 100), -2);
  add("p");
  EXPECT_EQ(shown("p"), "\"p\" protect=no dynamic=no uses=0");
}

// ---- The service profiles' log ----

TEST_F(Profiles, ChangesAreLoggedAboveLevelOne) {
  for (const int level : {2, 3, INT_MAX}) {
    services.servProfileLogLevel = level;
    logMessages.clear();
    add("gold");
    ASSERT_EQ(entity.profileDel("gold"), 0);
    EXPECT_THAT(logMessages,
                testing::ElementsAre(
                    LogMessage{2, "profileAdd", "BLL", 0, "l2cp-profile", "gold", "", 0, 0},
                    LogMessage{2, "profileDel", "BLL", 0, "l2cp-profile", "gold", "", 0, 0}));
  }
}

TEST_F(Profiles, ChangesAreNotLoggedUpToLevelOne) {
  for (const int level : {1, 0, -1}) {
    services.servProfileLogLevel = level;
    add("gold");
    ASSERT_EQ(entity.profileDel("gold"), 0);
  }
  EXPECT_THAT(logMessages, testing::IsEmpty());
}

TEST_F(Profiles, RefusedChangesAreNotLogged) {
  add("gold", true);
  services.servProfileLogLevel = 2;
  EXPECT_EQ(entity.profileAdd("gold", false, false), -17);
  EXPECT_EQ(entity.profileDel("gold"), -1);
  EXPECT_EQ(entity.profileDel("none"), -2);
  EXPECT_THAT(logMessages, testing::IsEmpty());
}

// ---- Flags ----

TEST_F(Profiles, MakingOneDynamicProtectsItAsWell) {
  add("p");
  EXPECT_EQ(entity.profileSetDynamic("p", true), 0);
  EXPECT_EQ(shown("p"), "\"p\" protect=yes dynamic=yes uses=0");
}

TEST_F(Profiles, UnprotectingADynamicOneMakesItNonDynamicAsWell) {
  add("p", true, true);
  EXPECT_EQ(entity.profileSetProtect("p", false), 0);
  EXPECT_EQ(shown("p"), "\"p\" protect=no dynamic=no uses=0");
}

TEST_F(Profiles, ProtectingAndMakingNonDynamicChangeOnlyTheirFlag) {
  add("p", true, true);
  EXPECT_EQ(entity.profileSetDynamic("p", false), 0);
  EXPECT_EQ(shown("p"), "\"p\" protect=yes dynamic=no uses=0");
  add("q", false, true);
  EXPECT_EQ(entity.profileSetProtect("q", true), 0);
  EXPECT_EQ(shown("q"), "\"q\" protect=yes dynamic=yes uses=0");
}

TEST_F(Profiles, SettingAFlagToItsValueChangesNothing) {
  add("p", false, true);
  EXPECT_EQ(entity.profileSetDynamic("p", true), 0);
  EXPECT_EQ(entity.profileSetProtect("p", false), 0);
  EXPECT_EQ(shown("p"), "\"p\" protect=no dynamic=yes uses=0");
}

TEST_F(Profiles, FlagsOfOnesInUseCanBeSetWithoutTheKernel) {
  add("p");
  ASSERT_EQ(entity.portAttach("p", 3, 100), 0);
  classifier.take();
  EXPECT_EQ(entity.profileSetProtect("p", true), 0);
  EXPECT_EQ(entity.profileSetDynamic("p", true), 0);
  EXPECT_EQ(shown("p"), "\"p\" protect=yes dynamic=yes uses=1 on 3");
  EXPECT_THAT(sent(), testing::IsEmpty());
}

TEST_F(Profiles, FlagsOfUnknownOnesCannotBeSet) {
  EXPECT_EQ(entity.profileSetProtect("none", true), -2);
  EXPECT_EQ(entity.profileSetDynamic("none", true), -2);
  EXPECT_FALSE(exists("none"));
}

// ---- Reading ----

class ReadProfiles : public Profiles {
 protected:
  void SetUp() override {
    Profiles::SetUp();
    add("b", true, false);
    add("a", false, true);
    add("c");
    ASSERT_EQ(entity.profileProtoAdd("c", "LLDP", Rule::tunnel), 0);
    ASSERT_EQ(entity.portAttach("c", 3, 100), 0);
    output.interfaces = {17};
  }

  L2CP::Profile output{"untouched", false, false};
};

TEST_F(ReadProfiles, ByNameTakesEverythingButWhereTheyAreApplied) {
  EXPECT_EQ(entity.profileGet("c", output), 0);
  EXPECT_EQ(text(output), "\"c\" protect=no dynamic=no uses=1 on 17 LLDP=2");
  EXPECT_EQ(shown("c"), "\"c\" protect=no dynamic=no uses=1 on 3 LLDP=2");
}

TEST_F(ReadProfiles, ByPositionIsInNameOrder) {
  const Lines expected = {"\"a\" protect=no dynamic=yes uses=0 on 17",
                          "\"b\" protect=yes dynamic=no uses=0 on 17",
                          "\"c\" protect=no dynamic=no uses=1 on 17 LLDP=2"};
  for (unsigned int idx = 0; idx < expected.size(); ++idx) {
    EXPECT_EQ(entity.profileGet(idx, output), 0);
    EXPECT_EQ(text(output), expected[idx]);
  }
}

TEST_F(ReadProfiles, UnknownNamesAreNotFound) {
  EXPECT_EQ(entity.profileGet("none", output), -2);
  EXPECT_EQ(entity.profileGet("C", output), -2);
  EXPECT_EQ(output.name, "untouched");
}

TEST_F(ReadProfiles, PositionEqualToTheirNumberIsNotFound) {
  EXPECT_EQ(entity.profileGet(3U, output), -2);
  EXPECT_EQ(entity.profileGet(UINT_MAX, output), -2);
  EXPECT_EQ(output.name, "untouched");
}

TEST_F(Profiles, PositionZeroOfNoneIsNotFound) {
  L2CP::Profile output;
  EXPECT_EQ(entity.profileGet(0U, output), -2);
}

TEST_F(ReadProfiles, AreAppendedBehindWhatAListHoldsWithoutWhereTheyAreApplied) {
  std::list<L2CP::Profile> profiles = {output};
  EXPECT_EQ(entity.profileGetAll(profiles), 0);
  Lines lines;
  for (const L2CP::Profile& profile : profiles) lines.push_back(text(profile));
  EXPECT_THAT(lines, testing::ElementsAre("\"untouched\" protect=no dynamic=no uses=0",
                                          "\"a\" protect=no dynamic=yes uses=0",
                                          "\"b\" protect=yes dynamic=no uses=0",
                                          "\"c\" protect=no dynamic=no uses=1 LLDP=2"));
}

TEST_F(Profiles, AreListedEvenIfThereAreNone) {
  std::list<L2CP::Profile> profiles;
  EXPECT_EQ(entity.profileGetAll(profiles), 0);
  EXPECT_TRUE(profiles.empty());
}

// ---- Statistics ----

TEST_F(Profiles, StatisticsOfOneThatWasNeverAttachedCannotBeRead) {
  add("p");
  L2CP::Statistics stats{1, 2, 3};
  EXPECT_EQ(entity.profileStat("p", stats), -11);
  EXPECT_EQ(stats.peer, 0U);
  EXPECT_EQ(stats.tunnel, 2U);
  EXPECT_EQ(stats.discard, 3U);
  EXPECT_THAT(sent(), testing::ElementsAre("GET_COUNTER \"\""));
}

TEST_F(Profiles, StatisticsOfAnAttachedOneAskForANamelessCounterAndFailToo) {
  add("p");
  ASSERT_EQ(entity.portAttach("p", 3, 100), 0);
  classifier.take();
  L2CP::Statistics stats;
  EXPECT_EQ(entity.profileStat("p", stats), -11);
  EXPECT_THAT(sent(), testing::ElementsAre("GET_COUNTER \"\""));
  EXPECT_THAT(nameLines(entity), testing::Contains("  1   0 l2cp:* "));
}

TEST_F(Profiles, StatisticsOfAnUnknownOneAreNotFound) {
  L2CP::Statistics stats{1, 2, 3};
  EXPECT_EQ(entity.profileStat("none", stats), -2);
  EXPECT_EQ(stats.peer, 1U);
  EXPECT_THAT(sent(), testing::IsEmpty());
}

// ---- Status ----

TEST_F(Profiles, StatusTellsWhetherOneMayBeChanged) {
  EXPECT_EQ(entity.l2cpProfileStatus("p"), -2);
  add("p");
  EXPECT_EQ(entity.l2cpProfileStatus("p"), 0);
  profile("p").useCount = 1;
  EXPECT_EQ(entity.l2cpProfileStatus("p"), -16);
  profile("p").protect = true;
  EXPECT_EQ(entity.l2cpProfileStatus("p"), -1);
  profile("p").useCount = 0;
  EXPECT_EQ(entity.l2cpProfileStatus("p"), -1);
}

TEST_F(Profiles, StatusDoesNotAskTheServiceProfiles) {
  add("p");
  addService("internet", "p");
  EXPECT_EQ(entity.l2cpProfileStatus("p"), 0);
}

// ---- Trace ----

TEST_F(Profiles, OperationsTraceTheirArguments) {
  L2CP::Profile output;
  L2CP::Statistics stats;
  std::list<L2CP::Profile> all;
  expectTraces({
      {"%s:%d %s(profileName=\"%s\", protect=%s, dynamic=%s)",
       "profileAdd(profileName=\"p q\", protect=yes, dynamic=no)",
       [&] { entity.profileAdd("p q", true, false); }},
      {"%s:%d %s(profileName=\"%s\", protect=%s, dynamic=%s)",
       "profileAdd(profileName=\"\", protect=no, dynamic=yes)",
       [&] { entity.profileAdd("", false, true); }},
      {"%s:%d %s(profileName=\"%s\", protect=%s)",
       "profileSetProtect(profileName=\"p q\", protect=no)",
       [&] { entity.profileSetProtect("p q", false); }},
      {"%s:%d %s(profileName=\"%s\", dynamic=%s)",
       "profileSetDynamic(profileName=\"none\", dynamic=yes)",
       [&] { entity.profileSetDynamic("none", true); }},
      {"%s:%d %s(profileName=\"%s\")", "profileDel(profileName=\"p q\")",
       [&] { entity.profileDel("p q"); }},
      {"%s:%d %s(profileName=\"%s\")", "profileStat(profileName=\"\")",
       [&] { entity.profileStat("", stats); }},
      {"%s:%d %s(profileName=\"%s\")", "profileGet(profileName=\"none\")",
       [&] { entity.profileGet("none", output); }},
      {"%s:%d %s(idx=%d)", "profileGet(idx=5)", [&] { entity.profileGet(5U, output); }},
      {"%s:%d %s(idx=%d)", "profileGet(idx=-1)", [&] { entity.profileGet(UINT_MAX, output); }},
      {"%s:%d %s()", "profileGetAll()", [&] { entity.profileGetAll(all); }},
  });
}

TEST_F(Profiles, StatusIsNotTraced) {
  trace(true);
  entity.l2cpProfileStatus("none");
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

// ---- Null names ----

TEST_F(Profiles, ANullNameIsALogicError) {
  L2CP::Profile output;
  L2CP::Statistics stats;
  const char* const null = nullptr;
  const std::vector<std::function<void()>> calls = {
      [&] { entity.profileAdd(null, true, true); },  [&] { entity.profileDel(null); },
      [&] { entity.profileSetProtect(null, true); }, [&] { entity.profileSetDynamic(null, true); },
      [&] { entity.profileGet(null, output); },      [&] { entity.profileStat(null, stats); },
      [&] { entity.l2cpProfileStatus(null); },
  };
  const Lines before = text(entity.settings);
  for (const auto& call : calls) {
    try {
      call();
      ADD_FAILURE() << "call " << &call - calls.data() << " has not thrown";
    } catch (const std::logic_error& error) {
      EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
    }
  }
  EXPECT_EQ(text(entity.settings), before);
}

}  // namespace
