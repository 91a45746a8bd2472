// Service profiles and VLAN profiles: what the daemon makes, changes, applies and deletes.

#include "host/profiles.h"

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/services.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Lines = std::vector<std::string>;

class ProfileTables : public testing::Test {
 protected:
  /// Has a module that answers with what stands under the name of its operation.
  void connect() {
    const auto operation = [this](const std::string& name) {
      return [this, name](int intf, const std::string& serviceProfile) {
        asked.push_back(name + " " + std::to_string(intf) + " " + serviceProfile);
        if (onAsk) onAsk();
        const auto answer = answers.find(name);
        return answer == answers.end() ? 0 : answer->second;
      };
    };
    profiles::setModule({.applyCheck = operation("check"),
                         .apply = operation("apply"),
                         .unApply = operation("off")});
  }

  servprofile& table() { return services.table(); }
  int attach(const char* name, int intf) { return table().servProfileAttach(name, intf); }
  int detach(const char* name, int intf) { return table().servProfileDetach(name, intf); }
  int setL2cp(const char* name, const std::string& l2cpProfile) {
    return table().servProfileL2cpProfile(name, l2cpProfile);
  }
  static std::map<std::string, vlanprofile::vlanProfileInfo>& vlans() {
    return singleton<vlanprofile>::instance().vlanProfiles;
  }

  support::Services services;
  Lines asked;
  std::map<std::string, int> answers;
  std::function<void()> onAsk;
};

// ---- Service profiles ----

TEST_F(ProfileTables, ServiceProfileIsMadeWithItsNameAndNothingElse) {
  EXPECT_EQ(profiles::addServiceProfile("gold"), 0);
  EXPECT_THAT(services.lines(), ElementsAre("gold: vlan \"\" l2cp \"\""));
  EXPECT_STREQ(table().servProfiles.at("gold").name, "gold");
}

TEST_F(ProfileTables, ServiceProfileNameHasOneTo65Bytes) {
  const std::string longest(65, 'n');
  EXPECT_EQ(profiles::addServiceProfile(""), -22);
  EXPECT_EQ(profiles::addServiceProfile(std::string(66, 'n')), -22);
  EXPECT_THAT(table().servProfiles, IsEmpty());
  EXPECT_EQ(profiles::addServiceProfile(longest), 0);
  EXPECT_EQ(table().servProfiles.at(longest).name, longest);
}

TEST_F(ProfileTables, ServiceProfileThatExistsIsRefusedAndStaysAsItIs) {
  services.addVlan("v");
  services.add("gold", "P", "v");
  EXPECT_EQ(profiles::addServiceProfile("gold"), -17);
  EXPECT_THAT(services.lines(), ElementsAre("gold: vlan \"v\" l2cp \"P\""));
}

TEST_F(ProfileTables, ServiceProfileIsDeletedUnlessItIsApplied) {
  services.add("gold", "P");
  services.add("silver", "P");
  EXPECT_EQ(profiles::deleteServiceProfile("none"), -2);
  services.apply("gold", 3);
  EXPECT_EQ(profiles::deleteServiceProfile("gold"), -16);
  EXPECT_EQ(profiles::deleteServiceProfile("silver"), 0);
  EXPECT_THAT(services.lines(), ElementsAre("gold: vlan \"\" l2cp \"P\" on 3"));
  ASSERT_EQ(detach("gold", 3), 0);
  EXPECT_EQ(profiles::deleteServiceProfile("gold"), 0);
  EXPECT_EQ(profiles::deleteServiceProfile("gold"), -2);
  EXPECT_THAT(services.lines(), IsEmpty());
}

TEST_F(ProfileTables, VlanProfileOfAServiceProfileIsChecked) {
  services.addVlan("v");
  services.add("gold", "P");
  EXPECT_EQ(profiles::setVlanProfile("none", "v"), -2);
  EXPECT_EQ(profiles::setVlanProfile("gold", "none"), -2);
  EXPECT_EQ(profiles::setVlanProfile("gold", "v"), 0);
  EXPECT_THAT(services.lines(), ElementsAre("gold: vlan \"v\" l2cp \"P\""));
  services.apply("gold", 3);
  EXPECT_EQ(profiles::setVlanProfile("gold", ""), -16);
  EXPECT_EQ(profiles::setVlanProfile("gold", "none"), -16);
  ASSERT_EQ(detach("gold", 3), 0);
  EXPECT_EQ(profiles::setVlanProfile("gold", ""), 0);
  EXPECT_THAT(services.lines(), ElementsAre("gold: vlan \"\" l2cp \"P\""));
}

TEST_F(ProfileTables, L2cpProfileOfAServiceProfileNeedNotExist) {
  const std::string longest(33, 'n');
  services.add("gold", "");
  EXPECT_EQ(setL2cp("none", "P"), -2);
  EXPECT_EQ(setL2cp("gold", longest + "n"), -22);
  EXPECT_EQ(table().servProfiles.at("gold").l2cpProfile, std::string());
  EXPECT_EQ(setL2cp("gold", longest), 0);
  EXPECT_EQ(table().servProfiles.at("gold").l2cpProfile, longest);
  EXPECT_EQ(setL2cp("gold", "P"), 0);
  services.apply("gold", 3);
  EXPECT_EQ(setL2cp("gold", "Q"), -16);
  EXPECT_EQ(setL2cp("gold", longest + "n"), -16);
  EXPECT_EQ(table().servProfiles.at("gold").l2cpProfile, std::string("P"));
}

TEST_F(ProfileTables, ShorterNameLeavesNothingOfALongerOneBehind) {
  services.add("gold", "longer");
  ASSERT_EQ(setL2cp("gold", "P"), 0);
  char expected[34] = "P";
  EXPECT_EQ(std::memcmp(table().servProfiles.at("gold").l2cpProfile, expected, sizeof(expected)),
            0);
}

// ---- Applying ----

TEST_F(ProfileTables, ApplyingAsksTheModuleFirstWhetherThenToDoIt) {
  connect();
  services.add("gold", "P");
  EXPECT_EQ(attach("gold", 3), 0);
  EXPECT_THAT(asked, ElementsAre("check 3 gold", "apply 3 gold"));
  EXPECT_THAT(profiles::applied(), ElementsAre(Pair(3, ElementsAre("gold"))));
}

TEST_F(ProfileTables, ModuleIsAskedBeforeTheServiceProfileCountsAsApplied) {
  connect();
  services.add("gold", "P");
  onAsk = [] { EXPECT_THAT(profiles::applied(), IsEmpty()); };
  EXPECT_EQ(attach("gold", 3), 0);
}

TEST_F(ProfileTables, ModuleIsNotAskedToApplyOneWithoutAnL2cpProfile) {
  connect();
  services.add("gold", "");
  EXPECT_EQ(attach("gold", 3), 0);
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_THAT(profiles::applied(), ElementsAre(Pair(3, ElementsAre("gold"))));
}

TEST_F(ProfileTables, ModuleThatRefusesLeavesEverythingAsItWas) {
  connect();
  services.add("gold", "P");
  answers["check"] = -5;
  EXPECT_EQ(attach("gold", 3), -5);
  EXPECT_THAT(asked, ElementsAre("check 3 gold"));
  answers = {{"apply", -99}};
  EXPECT_EQ(attach("gold", 3), -99);
  answers = {{"apply", 7}};
  EXPECT_EQ(attach("gold", 3), 7);
  EXPECT_THAT(profiles::applied(), IsEmpty());
  EXPECT_EQ(setL2cp("gold", "Q"), 0);
}

TEST_F(ProfileTables, ApplyingIsCheckedBeforeTheModuleIsAsked) {
  connect();
  services.add("gold", "P");
  services.apply("gold", 3);
  asked.clear();
  EXPECT_EQ(attach("none", 3), -2);
  EXPECT_EQ(attach("none", -1), -2);
  EXPECT_EQ(attach("gold", -1), -22);
  EXPECT_EQ(attach("gold", 3), -17);
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_FALSE(table().servProfiles.contains("none"));
  EXPECT_THAT(profiles::applied(), ElementsAre(Pair(3, ElementsAre("gold"))));
}

TEST_F(ProfileTables, ApplyingNeedsNoModule) {
  services.add("gold", "P");
  EXPECT_EQ(attach("gold", 0), 0);
  EXPECT_EQ(attach("gold", 2147483647), 0);
  EXPECT_EQ(detach("gold", 0), 0);
  EXPECT_THAT(profiles::applied(), ElementsAre(Pair(2147483647, ElementsAre("gold"))));
}

TEST_F(ProfileTables, InterfacesKeepTheOrderInWhichTheirServiceProfilesWereApplied) {
  for (const char* name : {"a", "b", "c"}) services.add(name, "P");
  services.apply("c", 5);
  services.apply("a", 5);
  services.apply("b", 3);
  services.apply("b", 5);
  EXPECT_THAT(profiles::applied(),
              ElementsAre(Pair(3, ElementsAre("b")), Pair(5, ElementsAre("c", "a", "b"))));
  ASSERT_EQ(detach("a", 5), 0);
  ASSERT_EQ(detach("b", 3), 0);
  EXPECT_THAT(profiles::applied(), ElementsAre(Pair(5, ElementsAre("c", "b"))));
}

// ---- Taking off ----

TEST_F(ProfileTables, TakingOffTellsTheModuleWhateverTheServiceProfileNames) {
  connect();
  services.add("gold", "P");
  services.add("iron", "");
  services.apply("gold", 3);
  services.apply("iron", 3);
  asked.clear();
  onAsk = [] { EXPECT_EQ(profiles::applied().count(3), 1U); };
  EXPECT_EQ(detach("gold", 3), 0);
  EXPECT_EQ(detach("iron", 3), 0);
  EXPECT_THAT(asked, ElementsAre("off 3 gold", "off 3 iron"));
  EXPECT_THAT(profiles::applied(), IsEmpty());
}

TEST_F(ProfileTables, ModuleThatRefusesToTakeOneOffKeepsItApplied) {
  connect();
  services.add("gold", "P");
  services.apply("gold", 3);
  answers["off"] = -64;
  EXPECT_EQ(detach("gold", 3), -64);
  answers["off"] = 1;
  EXPECT_EQ(detach("gold", 3), 1);
  EXPECT_THAT(profiles::applied(), ElementsAre(Pair(3, ElementsAre("gold"))));
  EXPECT_EQ(profiles::deleteServiceProfile("gold"), -16);
}

TEST_F(ProfileTables, TakingOffIsCheckedBeforeTheModuleIsTold) {
  connect();
  services.add("gold", "P");
  services.add("silver", "P");
  services.apply("gold", 3);
  asked.clear();
  EXPECT_EQ(detach("none", 3), -2);
  EXPECT_EQ(detach("gold", 4), -9);
  EXPECT_EQ(detach("gold", -1), -9);
  EXPECT_EQ(detach("silver", 3), -9);
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_FALSE(table().servProfiles.contains("none"));
}

// ---- What modules read ----

TEST_F(ProfileTables, ServiceProfilesThatNameAnL2cpProfileReplaceTheList) {
  services.add("silver", "P");
  services.add("gold", "P");
  services.add("bronze", "p");
  services.add("DEFAULT", "P");
  std::list<std::string> names = {"before"};
  table().getAllServiceProfilesWithL2cpProfile("P", names);
  EXPECT_THAT(names, ElementsAre("DEFAULT", "gold", "silver"));
  table().getAllServiceProfilesWithL2cpProfile("none", names);
  EXPECT_THAT(names, IsEmpty());
}

TEST_F(ProfileTables, InterfacesOfSomeServiceProfilesReplaceTheMap) {
  for (const char* name : {"a", "b", "c"}) services.add(name, "P");
  services.apply("c", 5);
  services.apply("a", 5);
  services.apply("b", 3);
  services.apply("a", 0);
  std::map<int, std::list<std::string>> applied = {{9, {"before"}}};
  table().getAllServiceProfilesPerIntf({"a", "c", "none"}, applied);
  EXPECT_THAT(applied, ElementsAre(Pair(0, ElementsAre("a")), Pair(5, ElementsAre("c", "a"))));
  table().getAllServiceProfilesPerIntf({}, applied);
  EXPECT_THAT(applied, IsEmpty());
}

TEST_F(ProfileTables, L2cpProfileIsAttachedWhileAServiceProfileNamesIt) {
  services.add("gold", "P");
  EXPECT_NE(table().servProfileCheckSubAttached("P", 5), 0);
  EXPECT_EQ(table().servProfileCheckSubAttached("P", 6), 0);
  EXPECT_EQ(table().servProfileCheckSubAttached("none", 5), 0);
  // A service profile without an L2CP profile names none, whatever the empty field looks like.
  EXPECT_EQ(table().servProfileCheckSubAttached("", 5), 0);
  ASSERT_EQ(setL2cp("gold", ""), 0);
  EXPECT_EQ(table().servProfileCheckSubAttached("P", 5), 0);
}

// ---- VLAN profiles ----

TEST_F(ProfileTables, VlanProfileNameHasOneTo33Bytes) {
  const std::string longest(33, 'n');
  EXPECT_EQ(profiles::addVlanProfile(""), -22);
  EXPECT_EQ(profiles::addVlanProfile(longest + "n"), -22);
  EXPECT_THAT(vlans(), IsEmpty());
  EXPECT_EQ(profiles::addVlanProfile(longest), 0);
  services.add("gold", "", longest);
  EXPECT_EQ(table().servProfiles.at("gold").vlanProfile, longest);
}

TEST_F(ProfileTables, VlanProfileThatExistsIsRefusedAndKeepsItsSvids) {
  services.addVlan("v", {{3, 100}});
  EXPECT_EQ(profiles::addVlanProfile("v"), -17);
  EXPECT_THAT(vlans().at("v").svids, ElementsAre(Pair(3, 100)));
}

TEST_F(ProfileTables, VlanProfilesHaveIdsOfTheirOwnFromOne) {
  for (const char* name : {"c", "a", "b"}) services.addVlan(name);
  EXPECT_EQ(vlans().at("c").id, 1);
  EXPECT_EQ(vlans().at("a").id, 2);
  EXPECT_EQ(vlans().at("b").id, 3);
  for (const char* deleted : {"c", "b"}) {
    ASSERT_EQ(profiles::deleteVlanProfile(deleted), 0);
    ASSERT_EQ(profiles::addVlanProfile(deleted + std::string("2")), 0);
    std::set<int> ids;
    for (const auto& [name, info] : vlans()) ids.insert(info.id);
    EXPECT_EQ(ids.size(), 3U);
    EXPECT_GE(*ids.begin(), 1);
  }
}

TEST_F(ProfileTables, VlanProfileIsDeletedUnlessAServiceProfileNamesIt) {
  services.addVlan("v");
  services.add("gold", "P", "v");
  EXPECT_EQ(profiles::deleteVlanProfile("none"), -2);
  EXPECT_EQ(profiles::deleteVlanProfile("v"), -16);
  ASSERT_EQ(profiles::setVlanProfile("gold", ""), 0);
  EXPECT_EQ(profiles::deleteVlanProfile("v"), 0);
  EXPECT_THAT(vlans(), IsEmpty());
}

TEST_F(ProfileTables, SvidsAreSetReplacedAndRemoved) {
  services.addVlan("v");
  EXPECT_EQ(profiles::setSvid("v", 3, 1), 0);
  EXPECT_EQ(profiles::setSvid("v", 0, 4094), 0);
  EXPECT_EQ(profiles::setSvid("v", 2147483647, 5), 0);
  EXPECT_EQ(profiles::setSvid("v", 3, 100), 0);
  EXPECT_EQ(profiles::setSvid("v", 9, 0), 0);
  EXPECT_THAT(vlans().at("v").svids, ElementsAre(Pair(0, 4094), Pair(3, 100), Pair(2147483647, 5)));
  EXPECT_EQ(profiles::setSvid("v", 0, 0), 0);
  EXPECT_THAT(vlans().at("v").svids, ElementsAre(Pair(3, 100), Pair(2147483647, 5)));
}

TEST_F(ProfileTables, SvidIsCheckedInThisOrder) {
  services.addVlan("v", {{3, 100}});
  services.add("gold", "P", "v");
  services.apply("gold", 3);
  const struct {
    const char* why;
    const char* vlanProfile;
    int intf;
    int svid;
    int result;
  } rows[] = {
      {"no VLAN profile", "none", -1, 4095, -2},
      {"negative interface comes before in force", "v", -1, 100, -22},
      {"negative S-VID comes before in force", "v", 3, -1, -22},
      {"S-VID of the whole port", "v", 3, 4095, -22},
      {"in force", "v", 3, 200, -16},
      {"in force, removing", "v", 3, 0, -16},
      {"in force, another interface", "v", 4, 200, -16},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(profiles::setSvid(row.vlanProfile, row.intf, row.svid), row.result) << row.why;
  }
  EXPECT_THAT(vlans().at("v").svids, ElementsAre(Pair(3, 100)));
  ASSERT_EQ(detach("gold", 3), 0);
  EXPECT_EQ(profiles::setSvid("v", 3, 200), 0);
}

TEST_F(ProfileTables, SvidIsFoundByTheIdOfItsVlanProfile) {
  services.addVlan("v", {{3, 100}, {4, 101}});
  services.addVlan("w", {{3, 200}});
  const vlanprofile& vlan = singleton<vlanprofile>::instance();
  EXPECT_EQ(vlan.vlanProfileSvidGet(3, vlans().at("v").id), 100);
  EXPECT_EQ(vlan.vlanProfileSvidGet(4, vlans().at("v").id), 101);
  EXPECT_EQ(vlan.vlanProfileSvidGet(3, vlans().at("w").id), 200);
  EXPECT_EQ(vlan.vlanProfileSvidGet(4, vlans().at("w").id), 0);
  EXPECT_EQ(vlan.vlanProfileSvidGet(3, 0), 0);
  EXPECT_EQ(vlan.vlanProfileSvidGet(3, 99), 0);
}

}  // namespace
