/// Where profiles are used.

#include <list>
#include <map>
#include <stdexcept>

#include "tests/l2cp/service_fixture.h"
#include "tests/support/held_lock.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Places = std::list<std::pair<unsigned int, unsigned short>>;

class Relations : public ServedEntityTest {
 protected:
  void SetUp() override {
    ServedEntityTest::SetUp();
    addProfile("P", {"LLDP"});
    addProfile("Q");
    forget();
  }

  void attach(const char* name, unsigned int port, unsigned short vid) {
    ASSERT_EQ(entity.portAttach(name, port, vid), 0);
  }
};

// ---- Ports of a profile ----

TEST_F(Relations, ProfileThatIsAttachedNowhereHasNoPorts) {
  attach("Q", 3, 100);
  Places places;
  EXPECT_EQ(entity.profileGetPorts("P", places), 0);
  EXPECT_THAT(places, IsEmpty());
}

TEST_F(Relations, PortsOfAProfileAreInOrderOfPortAndVlanWhateverElseIsThere) {
  attach("P", 4294967295, 0);
  attach("P", 3, 4095);
  attach("P", 3, 100);
  attach("P", 0, 65535);
  attach("Q", 3, 100);
  attach("Q", 4, 100);
  Places places;
  EXPECT_EQ(entity.profileGetPorts("P", places), 0);
  EXPECT_THAT(places,
              ElementsAre(Pair(0, 65535), Pair(3, 100), Pair(3, 4095), Pair(4294967295, 0)));
}

TEST_F(Relations, PortsAreAppendedBehindWhatAListHolds) {
  attach("P", 3, 100);
  Places places = {{9, 9}};
  EXPECT_EQ(entity.profileGetPorts("P", places), 0);
  EXPECT_EQ(entity.profileGetPorts("P", places), 0);
  EXPECT_THAT(places, ElementsAre(Pair(9, 9), Pair(3, 100), Pair(3, 100)));
}

TEST_F(Relations, PortsOfAnUnknownProfileAreNotFound) {
  attach("P", 3, 100);
  Places places = {{9, 9}};
  EXPECT_EQ(entity.profileGetPorts("none", places), -2);
  EXPECT_EQ(entity.profileGetPorts("p", places), -2);
  EXPECT_EQ(entity.profileGetPorts("", places), -2);
  EXPECT_THAT(places, ElementsAre(Pair(9, 9)));
}

TEST_F(Relations, PortsAreFoundByTheNameOfWhatIsAttached) {
  attach("P", 3, 100);
  ASSERT_EQ(entity.profileRen("P", "R"), 0);
  Places places;
  EXPECT_EQ(entity.profileGetPorts("P", places), -2);
  EXPECT_EQ(entity.profileGetPorts("R", places), 0);
  EXPECT_THAT(places, IsEmpty());
  // The attachment still goes to the old profile; another one of its name finds it.
  addProfile("P");
  EXPECT_EQ(entity.profileGetPorts("P", places), 0);
  EXPECT_THAT(places, ElementsAre(Pair(3, 100)));
}

TEST_F(Relations, PlaceWithTwoProfilesOfTheSameNameIsOnePlace) {
  attach("P", 3, 100);
  entity.settings.ports[3][100][std::make_shared<L2CP::Profile>("P", false, false)] = {200};
  Places places;
  EXPECT_EQ(entity.profileGetPorts("P", places), 0);
  EXPECT_THAT(places, ElementsAre(Pair(3, 100)));
}

// ---- Profiles of a port ----

TEST_F(Relations, PortThatNothingWasEverAttachedToIsNotFound) {
  attach("P", 3, 100);
  std::list<L2CP::Profile> profiles;
  EXPECT_EQ(entity.profileGetAllForPort(4, profiles), -2);
  ASSERT_EQ(entity.portDetach("P", 3, 100), 0);
  EXPECT_EQ(entity.profileGetAllForPort(3, profiles), -2);
  EXPECT_THAT(profiles, IsEmpty());
}

TEST_F(Relations, ProfileOnTwoVlansIsListedOnceForItsPortAndIsTwoPlaces) {
  attach("P", 3, 100);
  attach("P", 3, 200);
  std::list<L2CP::Profile> profiles;
  EXPECT_EQ(entity.profileGetAllForPort(3, profiles), 0);
  ASSERT_EQ(profiles.size(), 1U);
  // Where it is applied does not travel with a copy.
  EXPECT_EQ(text(profiles.front()), "\"P\" protect=no dynamic=no uses=2 LLDP=1");
  Places places;
  EXPECT_EQ(entity.profileGetPorts("P", places), 0);
  EXPECT_THAT(places, ElementsAre(Pair(3, 100), Pair(3, 200)));
}

Lines names(const std::list<L2CP::Profile>& profiles) {
  Lines names;
  for (const L2CP::Profile& profile : profiles) names.push_back(profile.name);
  return names;
}

TEST_F(Relations, ProfilesOfAPortAreInTheOrderOfItsVlans) {
  attach("P", 3, 200);
  attach("Q", 3, 100);
  attach("Q", 3, 300);
  attach("P", 4, 1);
  std::list<L2CP::Profile> profiles;
  EXPECT_EQ(entity.profileGetAllForPort(3, profiles), 0);
  EXPECT_THAT(names(profiles), ElementsAre("Q", "P"));
}

TEST_F(Relations, ProfileIsNotAppendedIfTheListHasOneOfItsName) {
  attach("P", 3, 100);
  attach("Q", 3, 100);
  std::list<L2CP::Profile> profiles = {{"x", false, false}, {"P", true, true}};
  EXPECT_EQ(entity.profileGetAllForPort(3, profiles), 0);
  EXPECT_THAT(names(profiles), ElementsAre("x", "P", "Q"));
  EXPECT_TRUE(std::next(profiles.begin())->dynamic);
}

TEST_F(Relations, ProfileThatWasRenamedIsListedForThePortByItsOldName) {
  attach("P", 3, 100);
  ASSERT_EQ(entity.profileRen("P", "R"), 0);
  std::list<L2CP::Profile> profiles;
  EXPECT_EQ(entity.profileGetAllForPort(3, profiles), 0);
  EXPECT_THAT(names(profiles), ElementsAre("P"));
}

// ---- Service profiles of a profile ----

TEST_F(Relations, ServiceProfilesThatNameAProfileAreListedInNameOrder) {
  services.add("silver", "P");
  services.add("gold", "P");
  services.add("bronze", "p");
  services.add("iron", "");
  services.add("DEFAULT", "P");
  std::list<std::string> list = {"before"};
  EXPECT_EQ(entity.profileGetServiceProfiles("P", list), 0);
  EXPECT_THAT(list, ElementsAre("before", "DEFAULT", "gold", "silver"));
  EXPECT_EQ(entity.profileGetServiceProfiles("Q", list), 0);
  EXPECT_EQ(list.size(), 4U);
}

TEST_F(Relations, ServiceProfilesOfAnUnknownProfileAreNotFoundEvenIfTheyNameIt) {
  services.add("gold", "none");
  services.add("iron", "");
  std::list<std::string> list = {"before"};
  EXPECT_EQ(entity.profileGetServiceProfiles("none", list), -2);
  EXPECT_EQ(entity.profileGetServiceProfiles("", list), -2);
  EXPECT_THAT(list, ElementsAre("before"));
}

TEST_F(Relations, ServiceProfilesWithoutAnL2cpProfileNameTheOneWithoutAName) {
  addProfile("");
  services.add("gold", "P");
  services.add("iron", "");
  std::list<std::string> list;
  EXPECT_EQ(entity.profileGetServiceProfiles("", list), 0);
  EXPECT_THAT(list, ElementsAre("iron"));
}

TEST_F(Relations, NameThatOnlyBeginsAlikeIsAnotherOne) {
  addProfile("Pp");
  services.add("gold", "Pp");
  std::list<std::string> list;
  EXPECT_EQ(entity.profileGetServiceProfiles("P", list), 0);
  EXPECT_THAT(list, IsEmpty());
}

TEST_F(Relations, MapOfServiceProfilesReplacesWhatWasThere) {
  services.add("silver", "P");
  services.add("gold", "P");
  services.add("bronze", "Q");
  std::map<std::string, std::string> map = {{"before", "x"}, {"gold", "x"}};
  EXPECT_EQ(entity.getL2cpProfilesPerServiceProfile("P", map), 0);
  EXPECT_THAT(map, ElementsAre(Pair("gold", "P"), Pair("silver", "P")));
  EXPECT_EQ(entity.getL2cpProfilesPerServiceProfile("none", map), 0);
  EXPECT_THAT(map, IsEmpty());
}

TEST_F(Relations, MapOfServiceProfilesNeedsNoL2cpProfile) {
  services.add("gold", "none");
  services.add("iron", "");
  std::map<std::string, std::string> map;
  EXPECT_EQ(entity.getL2cpProfilesPerServiceProfile("none", map), 0);
  EXPECT_THAT(map, ElementsAre(Pair("gold", "none")));
  EXPECT_EQ(entity.getL2cpProfilesPerServiceProfile("", map), 0);
  EXPECT_THAT(map, ElementsAre(Pair("iron", "")));
}

TEST_F(Relations, MapOfServiceProfilesLeavesTheDefaultsOut) {
  services.add("DEFAULT", "P");
  services.add("gold", "DEFAULT");
  services.add("default", "P");
  std::map<std::string, std::string> map;
  EXPECT_EQ(entity.getL2cpProfilesPerServiceProfile("P", map), 0);
  EXPECT_THAT(map, ElementsAre(Pair("default", "P")));
  EXPECT_EQ(entity.getL2cpProfilesPerServiceProfile("DEFAULT", map), 0);
  EXPECT_THAT(map, IsEmpty());
}

TEST_F(Relations, DefaultServiceProfileIsKnownByTheNameInItsRecord) {
  services.add("gold", "P");
  services.add("DEFAULT", "P");
  auto& table = services.table().servProfiles;
  std::swap(table.at("gold").name, table.at("DEFAULT").name);
  std::map<std::string, std::string> map;
  EXPECT_EQ(entity.getL2cpProfilesPerServiceProfile("P", map), 0);
  EXPECT_THAT(map, ElementsAre(Pair("DEFAULT", "P")));
}

// ---- Trace, names, sides ----

TEST_F(Relations, TheThreeListsTraceTheirArguments) {
  Places places;
  std::list<L2CP::Profile> profiles;
  std::list<std::string> list;
  expectTraces({
      {"%s:%d %s(profileName=\"%s\")", "profileGetPorts(profileName=\"P\")",
       [&] { entity.profileGetPorts("P", places); }},
      {"%s:%d %s(profileName=\"%s\")", "profileGetPorts(profileName=\"\")",
       [&] { entity.profileGetPorts("", places); }},
      {"%s:%d %s(profileName=\"%s\")", "profileGetServiceProfiles(profileName=\"none\")",
       [&] { entity.profileGetServiceProfiles("none", list); }},
      {"%s:%d %s(port=%d)", "profileGetAllForPort(port=3)",
       [&] { entity.profileGetAllForPort(3, profiles); }},
      {"%s:%d %s(port=%d)", "profileGetAllForPort(port=-1)",
       [&] { entity.profileGetAllForPort(4294967295, profiles); }},
  });
}

TEST_F(Relations, TheMapAndTheDependenciesAreNotTraced) {
  std::map<std::string, std::string> map;
  std::list<std::string> dependencies = {"before"};
  EXPECT_THAT(tracesOf(entity,
                       [&] {
                         entity.getL2cpProfilesPerServiceProfile("P", map);
                         EXPECT_EQ(entity.getDependencies(dependencies), 0);
                       }),
              IsEmpty());
  EXPECT_THAT(dependencies, ElementsAre("Interfaces", "vlanprofile", "servprofile"));
}

TEST_F(Relations, AskingTakesNoLock) {
  services.add("gold", "P");
  attach("P", 3, 100);
  const support::LockHeldElsewhere lock;
  Places places;
  EXPECT_EQ(entity.profileGetPorts("P", places), 0);
  EXPECT_THAT(places, ElementsAre(Pair(3, 100)));
  std::list<L2CP::Profile> profiles;
  EXPECT_EQ(entity.profileGetAllForPort(3, profiles), 0);
  EXPECT_EQ(profiles.size(), 1U);
  std::list<std::string> list;
  EXPECT_EQ(entity.profileGetServiceProfiles("P", list), 0);
  EXPECT_THAT(list, ElementsAre("gold"));
  std::map<std::string, std::string> map;
  EXPECT_EQ(entity.getL2cpProfilesPerServiceProfile("P", map), 0);
  EXPECT_THAT(map, ElementsAre(Pair("gold", "P")));
  EXPECT_EQ(entity.getDependencies(list), 0);
  EXPECT_EQ(list.size(), 3U);
}

TEST_F(Relations, AskingAsksNeitherTheKernelNorTheServiceProfilesAndChangesNothing) {
  services.add("gold", "P");
  attach("P", 3, 100);
  forget();
  const Lines before = shown();
  Places places;
  std::list<L2CP::Profile> profiles;
  std::list<std::string> list;
  std::map<std::string, std::string> map;
  entity.profileGetPorts("P", places);
  entity.profileGetAllForPort(3, profiles);
  entity.profileGetAllForPort(4, profiles);
  entity.profileGetServiceProfiles("P", list);
  entity.getL2cpProfilesPerServiceProfile("P", map);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(calls.calls, IsEmpty());
  EXPECT_EQ(shown(), before);
}

TEST_F(Relations, ANullNameIsALogicError) {
  Places places;
  std::list<std::string> list;
  EXPECT_THROW(entity.profileGetPorts(nullptr, places), std::logic_error);
  EXPECT_THROW(entity.profileGetServiceProfiles(nullptr, list), std::logic_error);
}

}  // namespace
