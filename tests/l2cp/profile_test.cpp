#include <climits>
#include <stdexcept>

#include "tests/l2cp/service_fixture.h"
#include "tests/support/held_lock.h"

namespace {

using LogMessage = support::ServiceCalls::LogMessage;
using Rule = L2CP::Rule;

class Profiles : public ServedEntityTest {
 protected:
  void add(const char* name, bool protect = false, bool dynamic = false) {
    ASSERT_EQ(entity.profileAdd(name, protect, dynamic), 0);
  }
  std::string shown(const std::string& name) { return text(profile(name)); }

  void setLogLevel(int level) { services.table().servProfileLogLevel = level; }
  std::vector<LogMessage>& logMessages = calls.logMessages;
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
  setLogLevel(2);
  if (row.exists) {
    add("p", row.protect);
    profile("p").useCount = row.useCount;
  }
  if (row.inService) services.add("internet", "p");
  forget();
  const Lines before = text(entity.settings);
  EXPECT_EQ(entity.profileDel("p"), row.result);
  // The service profiles are asked last.
  const bool isAsked = row.result == -16 && row.useCount == 0;
  EXPECT_EQ(calls.calls, isAsked ? Lines{"servProfileCheckSubAttached(\"p\", 5)"} : Lines{});
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
  services.add("internet", "other");
  services.add("voice", "");
  services.add("p", "P");
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
    setLogLevel(level);
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
    setLogLevel(level);
    add("gold");
    ASSERT_EQ(entity.profileDel("gold"), 0);
  }
  EXPECT_THAT(logMessages, testing::IsEmpty());
}

TEST_F(Profiles, RefusedChangesAreNotLogged) {
  add("gold", true);
  setLogLevel(2);
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
  services.add("internet", "p");
  EXPECT_EQ(entity.l2cpProfileStatus("p"), 0);
}

// ---- Renaming ----

class Renaming : public ServedEntityTest {
 protected:
  void SetUp() override {
    ServedEntityTest::SetUp();
    putIntoService();
  }
  int rename() { return entity.profileRen("P", "R"); }
};

const Lines renaming = {
    "getAllServiceProfilesWithL2cpProfile(\"P\")",
    "getAllServiceProfilesPerIntf([bronze gold silver])",
    "servProfileDetach(\"gold\", 3)",
    "servProfileDetach(\"silver\", 5)",
    "servProfileDetach(\"gold\", 5)",
    "servProfileL2cpProfile(\"bronze\", \"\")",
    "servProfileL2cpProfile(\"gold\", \"\")",
    "servProfileL2cpProfile(\"silver\", \"\")",
    "servProfileL2cpProfile(\"bronze\", \"R\")",
    "servProfileL2cpProfile(\"gold\", \"R\")",
    "servProfileL2cpProfile(\"silver\", \"R\")",
    "servProfileAttach(\"gold\", 3)",
    "servProfileAttach(\"silver\", 5)",
    "servProfileAttach(\"gold\", 5)",
};

TEST_F(Renaming, PutsTheNewNameIntoServiceWhereTheOldOneWas) {
  EXPECT_EQ(rename(), 0);
  EXPECT_THAT(shown(),
              testing::ElementsAre(
                  "profile Q: \"Q\" protect=no dynamic=no uses=1 on 3 LACP-LAMP=1",
                  "profile R: \"R\" protect=no dynamic=no uses=3 on 3 on 5 LLDP=1",
                  "port 3 vlan 100: R @201", "port 3 vlan 300: Q @200", "port 5 vlan 100: R @201",
                  "port 5 vlan 200: R @200", "bronze: vlan \"\" l2cp \"R\"",
                  "gold: vlan \"v1\" l2cp \"R\" on 3 5", "silver: vlan \"v2\" l2cp \"R\" on 5",
                  "steel: vlan \"v3\" l2cp \"Q\" on 3"));
}

TEST_F(Renaming, AsksTheServiceProfilesInThisOrder) {
  EXPECT_EQ(rename(), 0);
  EXPECT_EQ(calls.calls, renaming);
}

TEST_F(Renaming, TakesNoLock) {
  const support::LockHeldElsewhere lock;
  EXPECT_EQ(rename(), 0);
  EXPECT_EQ(summary(),
            "Q:1[LACP-LAMP] R:3[LLDP] | 3/100=R 3/300=Q 5/100=R 5/200=R | bronze=R gold=R@3@5 "
            "silver=R@5 steel=Q@3");
}

TEST_F(Renaming, LeavesTheUseCountsOfProtocolsAndTheCountersOfTheOldName) {
  EXPECT_EQ(rename(), 0);
  EXPECT_EQ(protocol("LLDP").useCount, 1U);
  EXPECT_THAT(sent(), testing::Not(testing::Contains(testing::HasSubstr("DEL_COUNTER"))));
}

TEST_F(Renaming, IsRefusedForAMissingOldNameAndAnExistingNewOne) {
  const struct {
    const char* why;
    const char* oldName;
    const char* newName;
    int result;
  } rows[] = {
      {"no old name", "none", "R", -2},
      {"no old name comes before the new name exists", "none", "Q", -2},
      {"the new name exists", "P", "Q", -28},
      {"the same name", "P", "P", -28},
      {"no name at all", "", "R", -2},
  };
  services.table().servProfileLogLevel = 2;
  const Lines before = shown();
  for (const auto& row : rows) {
    EXPECT_EQ(entity.profileRen(row.oldName, row.newName), row.result) << row.why;
    EXPECT_EQ(shown(), before) << row.why;
    EXPECT_THAT(sent(), testing::IsEmpty()) << row.why;
    EXPECT_THAT(calls.calls, testing::IsEmpty()) << row.why;
  }
  EXPECT_THAT(calls.logMessages, testing::IsEmpty());
}

/// What is left if a call is refused. Calls behind it are not made.
struct StepRow {
  std::size_t position;
  const char* left;
};

void PrintTo(const StepRow& row, std::ostream* out) { *out << renaming[row.position]; }

class RenamingRefused : public Renaming, public testing::WithParamInterface<StepRow> {};

INSTANTIATE_TEST_SUITE_P(
    Step, RenamingRefused,
    testing::Values(
        StepRow{2,
                "P:3[LLDP] Q:1[LACP-LAMP] R:0[LLDP] | 3/100=P 3/300=Q 5/100=P 5/200=P | "
                "bronze=P gold=P@3@5 silver=P@5 steel=Q@3"},
        StepRow{3,
                "P:2[LLDP] Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q 5/100=P 5/200=P | "
                "bronze=P gold=P@5 silver=P@5 steel=Q@3"},
        StepRow{4,
                "P:1[LLDP] Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q 5/100=P | "
                "bronze=P gold=P@5 silver=P steel=Q@3"},
        StepRow{5,
                "P:0[LLDP] Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q | "
                "bronze=P gold=P silver=P steel=Q@3"},
        StepRow{6,
                "P:0[LLDP] Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q | "
                "bronze= gold=P silver=P steel=Q@3"},
        StepRow{7,
                "P:0[LLDP] Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q | "
                "bronze= gold= silver=P steel=Q@3"},
        StepRow{8, "Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q | bronze= gold= silver= steel=Q@3"},
        StepRow{9, "Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q | bronze=R gold= silver= steel=Q@3"},
        StepRow{10, "Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q | bronze=R gold=R silver= steel=Q@3"},
        StepRow{11, "Q:1[LACP-LAMP] R:0[LLDP] | 3/300=Q | bronze=R gold=R silver=R steel=Q@3"},
        StepRow{12,
                "Q:1[LACP-LAMP] R:1[LLDP] | 3/100=R 3/300=Q | "
                "bronze=R gold=R@3 silver=R steel=Q@3"},
        StepRow{13,
                "Q:1[LACP-LAMP] R:2[LLDP] | 3/100=R 3/300=Q 5/200=R | "
                "bronze=R gold=R@3 silver=R@5 steel=Q@3"}),
    [](const auto& row) { return std::to_string(row.param.position); });

TEST_P(RenamingRefused, EndsThereAndUndoesNothing) {
  const std::size_t position = GetParam().position;
  calls.refuseAt(position, position % 2 == 0 ? -2 : 1);
  EXPECT_EQ(rename(), -100);
  EXPECT_EQ(summary(), GetParam().left);
  const auto end = renaming.begin() + static_cast<std::ptrdiff_t>(position) + 1;
  EXPECT_EQ(calls.calls, Lines(renaming.begin(), end));
}

TEST_F(Renaming, GoesByNeitherProtectionNorUseAndKeepsNoFlag) {
  ASSERT_EQ(entity.profileSetDynamic("P", true), 0);
  EXPECT_EQ(rename(), 0);
  EXPECT_EQ(text(profile("R")), "\"R\" protect=no dynamic=no uses=3 on 3 on 5 LLDP=1");
}

TEST_F(Renaming, IsNotLogged) {
  services.table().servProfileLogLevel = 3;
  EXPECT_EQ(rename(), 0);
  EXPECT_THAT(calls.logMessages, testing::IsEmpty());
}

TEST_F(Renaming, NameThatServiceProfilesCannotHoldEndsItBehindTheOldName) {
  const std::string name(34, 'n');
  EXPECT_EQ(entity.profileRen("P", name.c_str()), -100);
  EXPECT_EQ(summary(),
            "Q:1[LACP-LAMP] " + name + ":0[LLDP] | 3/300=Q | bronze= gold= silver= steel=Q@3");
}

TEST_F(Renaming, ServiceProfilesCalledDefaultKeepTheOldNameAndCannotBePutBack) {
  services.addVlan("v4", {{9, 400}});
  services.add("DEFAULT", "P", "v4");
  services.apply("DEFAULT", 9);
  EXPECT_EQ(rename(), -100);
  EXPECT_EQ(summary(),
            "Q:1[LACP-LAMP] R:3[LLDP] | 3/100=R 3/300=Q 5/100=R 5/200=R | "
            "DEFAULT=P bronze=R gold=R@3@5 silver=R@5 steel=Q@3");
}

TEST_F(Renaming, ProfileThatServiceProfilesCannotNameIsRenamedAlone) {
  addProfile("DEFAULT", {"CDP"});
  services.add("iron", "DEFAULT");
  forget();
  EXPECT_EQ(entity.profileRen("DEFAULT", "S"), 0);
  EXPECT_THAT(calls.calls, testing::ElementsAre("getAllServiceProfilesWithL2cpProfile(\"DEFAULT\")",
                                                "getAllServiceProfilesPerIntf([iron])"));
  EXPECT_THAT(services.lines(), testing::Contains("iron: vlan \"\" l2cp \"DEFAULT\""));
  EXPECT_EQ(text(profile("S")), "\"S\" protect=no dynamic=no uses=0 CDP=1");
}

TEST_F(Profiles, RenamedWithoutServiceProfilesAreACopyInThePlaceOfTheOldOne) {
  add("p", true, true);
  profile("p").protocols.emplace(entity.settings.protocols.at("LLDP").pointer(), Rule::tunnel);
  EXPECT_EQ(entity.profileRen("p", ""), 0);
  EXPECT_FALSE(exists("p"));
  EXPECT_EQ(shown(""), "\"\" protect=no dynamic=no uses=0 LLDP=2");
  EXPECT_THAT(sent(), testing::IsEmpty());
  EXPECT_THAT(calls.calls, testing::ElementsAre("getAllServiceProfilesWithL2cpProfile(\"p\")",
                                                "getAllServiceProfilesPerIntf([])"));
}

class RenamedWhileAttached : public Profiles {
 protected:
  void SetUp() override {
    Profiles::SetUp();
    addProfile("p", {"LLDP"});
    ASSERT_EQ(entity.portAttach("p", 3, 100), 0);
    old = entity.settings.profiles.at("p").pointer();
    ASSERT_EQ(entity.profileRen("p", "q"), 0);
    classifier.take();
  }

  std::weak_ptr<L2CP::Profile> old;
};

TEST_F(RenamedWhileAttached, LeaveTheAttachmentToTheOldOneWhichIsNotFound) {
  unsigned short vid = 0;
  std::string name;
  EXPECT_EQ(entity.portGet(3, 0, vid, name), 0);
  EXPECT_EQ(name, "p");
  L2CP::Profile output;
  EXPECT_EQ(entity.profileGet("p", output), -2);
  EXPECT_EQ(entity.portDetach("p", 3, 100), -2);
  EXPECT_EQ(entity.portDetach("q", 3, 100), -9);
  EXPECT_EQ(shown("q"), "\"q\" protect=no dynamic=no uses=0 LLDP=1");
  EXPECT_EQ(entity.profileDel("q"), 0);
  EXPECT_EQ(text(*old.lock()), "\"p\" protect=no dynamic=no uses=1 on 3 LLDP=1");
}

TEST_F(RenamedWhileAttached, CanBeAttachedThereUnderTheNewNameButNotUnderTheOldOne) {
  EXPECT_EQ(entity.portAttach("q", 3, 100), 0);
  add("p");
  EXPECT_EQ(entity.portAttach("p", 3, 100), -16);
}

TEST_F(RenamedWhileAttached, NewProfileOfTheOldNameDetachesTheOldOne) {
  add("p");
  EXPECT_EQ(entity.portDetach("p", 3, 100), 0);
  EXPECT_TRUE(old.expired());
  EXPECT_EQ(shown("p"), "\"p\" protect=no dynamic=no uses=0");
  EXPECT_THAT(entity.settings.ports, testing::IsEmpty());
}

TEST_F(RenamedWhileAttached, SettingsThatLackTheAttachmentEndIt) {
  EXPECT_EQ(entity.applySettings("", L2CP::Settings()), 0);
  EXPECT_TRUE(old.expired());
  EXPECT_THAT(entity.settings.ports, testing::IsEmpty());
  EXPECT_THAT(classifier.entries, testing::IsEmpty());
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

TEST_F(Profiles, StatusAndRenamingAreNotTraced) {
  add("p");
  trace(true);
  entity.l2cpProfileStatus("none");
  entity.profileRen("none", "q");
  entity.profileRen("p", "p");
  entity.profileRen("p", "q");
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

// ---- Null names ----

TEST_F(Profiles, ANullNameIsALogicError) {
  L2CP::Profile output;
  L2CP::Statistics stats;
  const char* const null = nullptr;
  const std::vector<std::function<void()>> operations = {
      [&] { entity.profileAdd(null, true, true); },  [&] { entity.profileDel(null); },
      [&] { entity.profileSetProtect(null, true); }, [&] { entity.profileSetDynamic(null, true); },
      [&] { entity.profileGet(null, output); },      [&] { entity.profileStat(null, stats); },
      [&] { entity.l2cpProfileStatus(null); },       [&] { entity.profileRen(null, "q"); },
      [&] { entity.profileRen("p", null); },
  };
  const Lines before = text(entity.settings);
  for (const auto& call : operations) {
    try {
      call();
      ADD_FAILURE() << "operation " << &call - operations.data() << " has not thrown";
    } catch (const std::logic_error& error) {
      EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
    }
  }
  EXPECT_EQ(text(entity.settings), before);
}

}  // namespace
