#include "host/profileChanges.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "host/profiles.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

namespace {

using Lines = std::vector<std::string>;
using Svids = std::map<int, int>;

servprofile& services() { return singleton<servprofile>::instance(); }

/// What the daemon runs with, and what the file says from now on.
class Changes : public testing::Test {
 protected:
  void SetUp() override { profiles::clear(); }
  void TearDown() override { profiles::clear(); }

  Lines change() { return changeProfiles(current, wanted); }

  /// The VLAN profiles that there are.
  static std::map<std::string, Svids> vlanProfiles() {
    std::map<std::string, Svids> all;
    for (const auto& [name, info] : singleton<vlanprofile>::instance().vlanProfiles) {
      all[name] = info.svids;
    }
    return all;
  }
  /// The service profiles that there are.
  static std::map<std::string, Config::ServiceProfile> serviceProfiles() {
    std::map<std::string, Config::ServiceProfile> all;
    for (const auto& [name, info] : services().servProfiles) {
      all[name] = {info.vlanProfile, info.l2cpProfile};
    }
    return all;
  }
  void expectAsWanted() const {
    EXPECT_EQ(vlanProfiles(), wanted.vlanProfiles);
    EXPECT_EQ(serviceProfiles(), wanted.serviceProfiles);
    expectKnown();
  }
  void expectKnown() const {
    EXPECT_EQ(current.vlanProfiles, vlanProfiles());
    EXPECT_EQ(current.serviceProfiles, serviceProfiles());
  }

  /// "business" with its VLAN profile, applied on port 3.
  void apply() {
    wanted.vlanProfiles = {{"metro", {{3, 100}}}};
    wanted.serviceProfiles = {{"business", {"metro", ""}}};
    ASSERT_EQ(change(), Lines{});
    ASSERT_EQ(services().servProfileAttach("business", 3), 0);
  }

  Config current;
  Config wanted;
};

TEST_F(Changes, MakeWhatIsNew) {
  wanted.vlanProfiles = {{"metro", {{3, 100}, {4, 200}}}, {"none", {}}};
  wanted.serviceProfiles = {{"business", {"metro", "gold"}}, {"plain", {}}};
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

TEST_F(Changes, ChangeWhatIsThere) {
  wanted.vlanProfiles = {{"metro", {{3, 100}, {4, 200}}}, {"other", {}}};
  wanted.serviceProfiles = {{"business", {"metro", "gold"}}};
  change();
  wanted.vlanProfiles["metro"] = {{4, 201}, {5, 300}};
  wanted.serviceProfiles["business"] = {"other", ""};
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

TEST_F(Changes, RemoveWhatIsGone) {
  wanted.vlanProfiles = {{"metro", {{3, 100}}}};
  wanted.serviceProfiles = {{"business", {"metro", "gold"}}};
  change();
  wanted = Config();
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
  EXPECT_TRUE(vlanProfiles().empty() && serviceProfiles().empty());
}

TEST_F(Changes, MoveAServiceToAnotherVlanProfileInOneStep) {
  wanted.vlanProfiles = {{"old", {{3, 100}}}};
  wanted.serviceProfiles = {{"business", {"old", ""}}};
  change();
  wanted.vlanProfiles = {{"new", {{3, 100}}}};
  wanted.serviceProfiles = {{"business", {"new", ""}}};
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

// ---- What clients did meanwhile ----

TEST_F(Changes, LeaveAloneWhatTheFileDoesNotChange) {
  wanted.vlanProfiles = {{"metro", {{3, 100}}}};
  wanted.serviceProfiles = {{"business", {"metro", "gold"}}};
  change();
  ASSERT_EQ(profiles::setSvid("metro", 3, 7), 0);
  ASSERT_EQ(services().servProfileL2cpProfile("business", "silver"), 0);
  ASSERT_EQ(profiles::addVlanProfile("client's"), 0);
  ASSERT_EQ(profiles::addServiceProfile("client's"), 0);
  EXPECT_EQ(change(), Lines{});
  EXPECT_EQ(vlanProfiles(), (std::map<std::string, Svids>{{"client's", {}}, {"metro", {{3, 7}}}}));
  EXPECT_EQ(serviceProfiles().at("business").l2cpProfile, "silver");
  EXPECT_EQ(serviceProfiles().size(), 2U);
}

TEST_F(Changes, KeepTheSvidsOfPortsThatTheFileDoesNotChange) {
  wanted.vlanProfiles = {{"metro", {{3, 100}, {4, 200}}}};
  change();
  ASSERT_EQ(profiles::setSvid("metro", 3, 7), 0);
  wanted.vlanProfiles["metro"][4] = 201;
  EXPECT_EQ(change(), Lines{});
  EXPECT_EQ(vlanProfiles().at("metro"), (Svids{{3, 7}, {4, 201}}));
}

TEST_F(Changes, TakeOverWhatAClientHasMade) {
  ASSERT_EQ(profiles::addVlanProfile("metro"), 0);
  ASSERT_EQ(profiles::addServiceProfile("business"), 0);
  wanted.vlanProfiles = {{"metro", {{3, 100}}}};
  wanted.serviceProfiles = {{"business", {"metro", "gold"}}};
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

TEST_F(Changes, MakeAgainWhatAClientHasDeleted) {
  wanted.vlanProfiles = {{"metro", {{3, 100}, {4, 200}}}};
  wanted.serviceProfiles = {{"business", {"metro", "gold"}}};
  change();
  profiles::clear();
  wanted.serviceProfiles["business"].l2cpProfile = "silver";
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

TEST_F(Changes, DoNotMissWhatAClientHasDeletedAsWell) {
  wanted.vlanProfiles = {{"metro", {{3, 100}}}};
  wanted.serviceProfiles = {{"business", {"metro", "gold"}}};
  change();
  profiles::clear();
  wanted = Config();
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

// ---- What is in use ----

TEST_F(Changes, LeaveAServiceProfileThatIsApplied) {
  apply();
  wanted.serviceProfiles["business"].l2cpProfile = "gold";
  const Lines line{
      "the service profile \"business\" is applied on an interface and stays as it is"};
  EXPECT_EQ(change(), line);
  expectKnown();
  EXPECT_EQ(change(), line);
  ASSERT_EQ(services().servProfileDetach("business", 3), 0);
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

TEST_F(Changes, LeaveAServiceProfileThatIsAppliedAndGone) {
  apply();
  wanted = Config();
  EXPECT_EQ(change(),
            (Lines{"the service profile \"business\" is applied on an interface and stays",
                   "the VLAN profile \"metro\" is named by a service profile and stays"}));
  EXPECT_EQ(vlanProfiles().at("metro"), (Svids{{3, 100}}));
  expectKnown();
  ASSERT_EQ(services().servProfileDetach("business", 3), 0);
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

TEST_F(Changes, LeaveTheSvidsOfAVlanProfileThatIsInForce) {
  apply();
  wanted.vlanProfiles["metro"] = {{3, 101}, {4, 200}};
  EXPECT_EQ(change(),
            Lines{"the VLAN profile \"metro\" is in force on an interface and keeps its S-VIDs"});
  EXPECT_EQ(vlanProfiles().at("metro"), (Svids{{3, 100}}));
  expectKnown();
  ASSERT_EQ(services().servProfileDetach("business", 3), 0);
  EXPECT_EQ(change(), Lines{});
  expectAsWanted();
}

TEST_F(Changes, ChangeTheRestBesideWhatIsInUse) {
  apply();
  wanted.vlanProfiles = {{"fresh", {{5, 5}}}, {"metro", {{3, 101}}}};
  wanted.serviceProfiles["other"] = {"fresh", "gold"};
  EXPECT_EQ(change().size(), 1U);
  EXPECT_EQ(vlanProfiles(),
            (std::map<std::string, Svids>{{"fresh", {{5, 5}}}, {"metro", {{3, 100}}}}));
  EXPECT_EQ(serviceProfiles(), wanted.serviceProfiles);
}

}  // namespace
