// Profiles in service: editing and renaming them while frames arrive, where they are used, and the
// daemon's service profiles and VLAN profiles.

#include <string>
#include <vector>

#include "tests/system/road.h"
#include "tests/system/wire.h"

namespace {

using client::Edit;
using client::Entry;
using client::Link;
using client::Place;
using client::Profile;
using client::ServiceProfile;
using client::VlanProfile;
using support::Bytes;
using namespace frames;

class InService : public Road {
 protected:
  /// Profile P, applied through service profile gold on VLAN 100 of interface 3 and VLAN 200 of
  /// interface 5.
  void putIntoService() {
    makeProfile("P");
    ASSERT_EQ(control().vlanProfileAdd("v"), 0);
    ASSERT_EQ(control().vlanProfileSetSvid("v", 3, 100), 0);
    ASSERT_EQ(control().vlanProfileSetSvid("v", 5, 200), 0);
    ASSERT_EQ(control().serviceProfileAdd("gold"), 0);
    ASSERT_EQ(control().serviceProfileSetVlan("gold", "v"), 0);
    ASSERT_EQ(control().serviceProfileSetL2cp("gold", "P"), 0);
    ASSERT_EQ(control().serviceProfileAttach("gold", 3), 0);
    ASSERT_EQ(control().serviceProfileAttach("gold", 5), 0);
  }

  /// What becomes of LLDP, LACP and the spanning tree on both interfaces.
  std::vector<control_fate> fates() {
    std::vector<control_fate> fates;
    for (const auto& [port, vlan] : {std::pair(3U, 100), std::pair(5U, 200)}) {
      const auto vid = static_cast<std::uint16_t>(vlan);
      for (const client::Verdict& verdict :
           control().feed(port, {lldp(vid), lacp(vid), stp(vid)})) {
        fates.push_back(verdict.fate);
      }
    }
    return fates;
  }

  std::vector<std::string> profileNames() {
    std::vector<std::string> names;
    for (const Profile& profile : service().profileGetAll().list) names.push_back(profile.name);
    return names;
  }

  const std::vector<control_fate> untouched = std::vector<control_fate>(6, CONTROL_FATE_UNTOUCHED);
  const std::vector<control_fate> unedited = {CONTROL_FATE_DISCARD, CONTROL_FATE_PEER,
                                              CONTROL_FATE_TUNNEL,  CONTROL_FATE_DISCARD,
                                              CONTROL_FATE_PEER,    CONTROL_FATE_TUNNEL};
  const std::string copy = "temp_l2cp_prof_1";
};

FOR_BOTH_TRANSPORTS(InService);

using Names = std::vector<std::string>;
using ServiceProfiles = std::vector<ServiceProfile>;

// ---- Editing ----

TEST_P(InService, EditingCycleTakesEffectOnAllInterfacesWhenItEnds) {
  putIntoService();
  EXPECT_EQ(fates(), unedited);

  EXPECT_EQ(service().profileEdit("P"), (Edit{RPC_L2CP_OK, copy}));
  EXPECT_EQ(service().entrySet("P", "LLDP", RPC_L2CP_RULE_PEER), RPC_L2CP_ERR_PROFILE_IN_USE);
  EXPECT_EQ(service().entrySet(copy, "LLDP", RPC_L2CP_RULE_PEER), RPC_L2CP_OK);
  EXPECT_EQ(service().entryDel(copy, "LACP-LAMP"), RPC_L2CP_OK);
  EXPECT_EQ(service().profileStatus("P"), RPC_L2CP_ERR_PROFILE_IN_USE);
  EXPECT_EQ(fates(), unedited);

  EXPECT_EQ(service().profileOnExit("P", copy), RPC_L2CP_OK);
  EXPECT_EQ(fates(), (std::vector<control_fate>{CONTROL_FATE_PEER, CONTROL_FATE_UNTOUCHED,
                                                CONTROL_FATE_TUNNEL, CONTROL_FATE_PEER,
                                                CONTROL_FATE_UNTOUCHED, CONTROL_FATE_TUNNEL}));
  EXPECT_EQ(service().profileGetAll(), (client::List<Profile>{{{.name = "P", .useCount = 2}}}));
  EXPECT_EQ(service().entryGetAll("P"),
            (client::List<Entry>{{{"LLDP", RPC_L2CP_RULE_PEER}, {"xSTP", RPC_L2CP_RULE_TUNNEL}}}));
  EXPECT_EQ(control().serviceProfiles(), (ServiceProfiles{{"gold", "v", "P", {3, 5}}}));
  // Counters of ports and VLANs go on.
  EXPECT_EQ(service().portStat(3),
            (client::Counters{.total = 8, .discard = 2, .peer = 3, .tunnel = 3}));
  EXPECT_EQ(service().vlanStat(200),
            (client::Counters{.total = 8, .discard = 2, .peer = 3, .tunnel = 3}));
}

TEST_P(InService, EditingOnlyRulesChangesNothing) {
  putIntoService();
  ASSERT_EQ(service().profileEdit("P").error, RPC_L2CP_OK);
  for (const char* proto : {"LLDP", "LACP-LAMP", "xSTP"}) {
    ASSERT_EQ(service().entrySet(copy, proto, RPC_L2CP_RULE_DISCARD), RPC_L2CP_OK);
  }
  EXPECT_EQ(service().profileOnExit("P", copy), RPC_L2CP_EDIT_UNCHANGED);
  EXPECT_EQ(fates(), unedited);
  EXPECT_EQ(profileNames(), Names{"P"});
  EXPECT_EQ(service().profileGet(0).useCount, 2U);
}

TEST_P(InService, EditingCyclesFollowOneAnother) {
  putIntoService();
  for (const char* proto : {"CDP", "UDLD", "PNAC"}) {
    EXPECT_EQ(service().profileEdit("P"), (Edit{RPC_L2CP_OK, copy}));
    EXPECT_EQ(service().entryAdd(copy, proto, RPC_L2CP_RULE_TUNNEL), RPC_L2CP_OK);
    EXPECT_EQ(service().profileOnExit("P", copy), RPC_L2CP_OK);
    EXPECT_EQ(fates(), unedited);
  }
  EXPECT_EQ(service().entryGetAll("P").list.size(), 6U);
  EXPECT_EQ(control().serviceProfileDetach("gold", 3), 0);
  EXPECT_EQ(control().serviceProfileDetach("gold", 5), 0);
  EXPECT_EQ(fates(), untouched);
  EXPECT_FALSE(control().feed(3, lldp(100)).met);
  EXPECT_FALSE(control().feed(5, lldp(200)).met);
}

TEST_P(InService, ReplacingAProtectedProfileFailsAndLeavesItOutOfService) {
  putIntoService();
  ASSERT_EQ(service().profileSetProtect("P", true), RPC_L2CP_OK);
  ASSERT_EQ(service().profileEdit("P").error, RPC_L2CP_OK);
  EXPECT_EQ(service().profileOnExit("P", copy), RPC_L2CP_EDIT_FAILED);
  EXPECT_EQ(fates(), untouched);
  EXPECT_EQ(profileNames(), (Names{"P", copy}));
  EXPECT_EQ(control().serviceProfiles(), (ServiceProfiles{{"gold", "v", "", {}}}));

  // By hand it gets back to where it was.
  ASSERT_EQ(service().profileSetProtect("P", false), RPC_L2CP_OK);
  EXPECT_EQ(service().profileOnExit("P", copy), RPC_L2CP_EDIT_UNCHANGED);
  EXPECT_EQ(control().serviceProfileSetL2cp("gold", "P"), 0);
  EXPECT_EQ(control().serviceProfileAttach("gold", 3), 0);
  EXPECT_EQ(control().serviceProfileAttach("gold", 5), 0);
  EXPECT_EQ(fates(), unedited);
}

TEST_P(InService, ReplacingAProfileThatIsAttachedDirectlyTooFails) {
  putIntoService();
  ASSERT_EQ(service().attach("P", 7, 300), RPC_L2CP_OK);
  ASSERT_EQ(service().profileEdit("P").error, RPC_L2CP_OK);
  ASSERT_EQ(service().entryDel(copy, "LLDP"), RPC_L2CP_OK);
  EXPECT_EQ(service().profileOnExit("P", copy), RPC_L2CP_EDIT_FAILED);
  EXPECT_EQ(fates(), untouched);
  EXPECT_EQ(control().fate(7, lldp(300)), CONTROL_FATE_DISCARD);
}

TEST_P(InService, MissingProfileCannotBeEditedAndTheNameIsThatOfTheLastSuccess) {
  EXPECT_EQ(service().profileEdit("none"), (Edit{RPC_L2CP_ERR_FAILED, ""}));
  makeProfile("P");
  EXPECT_EQ(service().profileEdit("P"), (Edit{RPC_L2CP_OK, "temp_l2cp_prof_1"}));
  EXPECT_EQ(service().profileEdit("P"), (Edit{RPC_L2CP_OK, "temp_l2cp_prof_2"}));
  ASSERT_EQ(service().profileDel("temp_l2cp_prof_1"), RPC_L2CP_OK);
  EXPECT_EQ(service().profileEdit(""), (Edit{RPC_L2CP_ERR_FAILED, "temp_l2cp_prof_2"}));
  EXPECT_EQ(service().profileEdit("P"), (Edit{RPC_L2CP_OK, "temp_l2cp_prof_1"}));
}

TEST_P(InService, LeavingWithUnknownNamesMakesProfiles) {
  EXPECT_EQ(service().profileOnExit("target", "temporary"), RPC_L2CP_EDIT_UNCHANGED);
  EXPECT_EQ(profileNames(), Names{"target"});
  makeProfile("P");
  EXPECT_EQ(service().profileOnExit("new", "P"), RPC_L2CP_OK);
  EXPECT_EQ(profileNames(), (Names{"new", "target"}));
  EXPECT_EQ(service().entryGetAll("new").list.size(), 3U);
}

TEST_P(InService, CopyingNamesAMissingSource) {
  makeProfile("P");
  ASSERT_EQ(service().profileSetDynamic("P", true), RPC_L2CP_OK);
  EXPECT_EQ(service().profileCopy("none", "C"), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(service().profileCopy("none", "P"), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(service().profileCopy("P", "P"), RPC_L2CP_ERR_FAILED);
  EXPECT_EQ(service().profileCopy("P", "C"), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0), Profile{.name = "C"});
  EXPECT_EQ(service().entryGetAll("C"), service().entryGetAll("P"));
}

TEST_P(InService, CopyMayHaveANameThatOtherProceduresCut) {
  const std::string name(4000, 'n');
  makeProfile("P");
  EXPECT_EQ(service().profileCopy("P", name), RPC_L2CP_OK);
  EXPECT_EQ(profileNames(), (Names{"P", name.substr(0, 33)}));
  EXPECT_EQ(service().profileStatus(name), RPC_L2CP_OK);
  EXPECT_EQ(service().profileOnExit("P", name), RPC_L2CP_EDIT_UNCHANGED);
  EXPECT_EQ(profileNames(), Names{"P"});
}

TEST_P(InService, RepliesOfEditingAreTheseBytes) {
  makeProfile("P");
  const auto call = [&](std::uint32_t procedure, const wire::Bytes& arguments) {
    return wire::readable(
        wire::Socket(GetParam()).call(wire::Call{.procedure = procedure}.with(arguments)));
  };
  wire::Bytes edited = wire::Bytes().word(0);
  std::string name = copy;
  name.resize(33);
  for (const char character : name) edited.word(static_cast<std::uint32_t>(character));
  EXPECT_EQ(call(100, wire::Bytes().text("P")), wire::readable(wire::success(edited)));
  EXPECT_EQ(call(102, wire::Bytes().text("P").text(copy)),
            wire::readable(wire::success(wire::Bytes().word(0xfffffffe))));
  EXPECT_EQ(call(101, wire::Bytes().text("none").text("P")),
            wire::readable(wire::success(wire::Bytes().word(3))));
  EXPECT_EQ(call(22, wire::Bytes().text("P").text("R")),
            wire::readable(wire::success(wire::Bytes().word(0))));
  EXPECT_EQ(call(25, wire::Bytes().text("P")),
            wire::readable(wire::success(wire::Bytes().words({0, 11}))));
  EXPECT_EQ(call(29, wire::Bytes().text("R")),
            wire::readable(wire::success(wire::Bytes().words({0, 0}))));
  EXPECT_EQ(call(63, wire::Bytes().word(3)),
            wire::readable(wire::success(wire::Bytes().words({0, 0}))));
}

// ---- Renaming ----

TEST_P(InService, RenamedProfileStaysInService) {
  putIntoService();
  ASSERT_EQ(service().profileSetDynamic("P", true), RPC_L2CP_OK);
  EXPECT_EQ(service().profileRen("P", "R"), RPC_L2CP_OK);
  EXPECT_EQ(fates(), unedited);
  EXPECT_EQ(service().profileGetAll(), (client::List<Profile>{{{.name = "R", .useCount = 2}}}));
  EXPECT_EQ(control().serviceProfiles(), (ServiceProfiles{{"gold", "v", "R", {3, 5}}}));
  EXPECT_EQ(fullNamesOf(control().feed(3, lldp(100)).counters),
            (Names{"l2cpPort3discard", "l2cpVlan100discard", "l2cpProfiRdiscard",
                   "l2cpProtoLLDPdiscard"}));
}

TEST_P(InService, RenamingIsRefusedForAMissingNameAndATakenOne) {
  putIntoService();
  makeProfile("Q");
  EXPECT_EQ(service().profileRen("none", "R"), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(service().profileRen("none", "Q"), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(service().profileRen("P", "Q"), RPC_L2CP_ERR_PROFILE_EXISTS);
  EXPECT_EQ(service().profileRen("P", "P"), RPC_L2CP_ERR_PROFILE_EXISTS);
  EXPECT_EQ(fates(), unedited);
}

TEST_P(InService, RenamingThatCannotBePutBackFailsPartWay) {
  putIntoService();
  ASSERT_EQ(control().serviceProfileAdd("DEFAULT"), 0);
  ASSERT_EQ(control().vlanProfileAdd("w"), 0);
  ASSERT_EQ(control().vlanProfileSetSvid("w", 4, 400), 0);
  ASSERT_EQ(control().serviceProfileSetVlan("DEFAULT", "w"), 0);
  ASSERT_EQ(control().serviceProfileSetL2cp("DEFAULT", "P"), 0);
  ASSERT_EQ(control().serviceProfileAttach("DEFAULT", 4), 0);
  EXPECT_EQ(service().profileRen("P", "R"), RPC_L2CP_ERR_FAILED);
  // The service profile of that name keeps naming the old profile, which is gone.
  EXPECT_EQ(control().serviceProfiles(),
            (ServiceProfiles{{"DEFAULT", "w", "P", {}}, {"gold", "v", "R", {3}}}));
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_DISCARD);
  EXPECT_EQ(control().fate(5, lldp(200)), CONTROL_FATE_UNTOUCHED);
}

TEST_P(InService, RenamingLeavesADirectAttachmentWithTheOldProfileUntilDefaultsAreApplied) {
  makeProfile("P");
  ASSERT_EQ(service().attach("P", 3, 100), RPC_L2CP_OK);
  ASSERT_EQ(service().profileRen("P", "R"), RPC_L2CP_OK);
  EXPECT_EQ(service().linkGet(3, 0), (Link{"P", 100}));
  EXPECT_EQ(service().linkGetAll(3), (client::List<Profile>{{{.name = "P", .useCount = 1}}}));
  EXPECT_EQ(service().profileGetPorts("P").error, RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(service().profileGetPorts("R"), client::List<Place>{});
  EXPECT_EQ(service().detach("P", 3, 100), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(service().detach("R", 3, 100), RPC_L2CP_ERR_NOT_ATTACHED);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_DISCARD);

  EXPECT_EQ(control().applyDefaults(), CONTROL_OK);
  EXPECT_EQ(service().linkGet(3, 0).error, RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_FALSE(control().feed(3, lldp(100)).met);
}

// ---- Where profiles are used ----

TEST_P(InService, PlacesOfAProfileAreThoseOfServiceProfilesAndDirectOnes) {
  putIntoService();
  ASSERT_EQ(service().attach("P", 3, 50), RPC_L2CP_OK);
  ASSERT_EQ(service().attach("P", 4294967295, 65535), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGetPorts("P"),
            (client::List<Place>{{{3, 50}, {3, 100}, {5, 200}, {4294967295, 65535}}}));
  makeProfile("Q");
  EXPECT_EQ(service().profileGetPorts("Q"), client::List<Place>{});
  EXPECT_EQ(service().profileGetPorts("none"),
            (client::List<Place>{{}, RPC_L2CP_ERR_PROFILE_NOT_FOUND}));
}

TEST_P(InService, UseOfAProfileIsTheServiceProfilesThatNameIt) {
  const std::string longest(65, 's');
  putIntoService();
  makeProfile("Q");
  for (const std::string& name : {std::string("bronze"), std::string("DEFAULT"), longest}) {
    ASSERT_EQ(control().serviceProfileAdd(name), 0);
    ASSERT_EQ(control().serviceProfileSetL2cp(name, "P"), 0);
  }
  EXPECT_EQ(service().profileGetUse("P"),
            (client::List<std::string>{{"DEFAULT", "bronze", "gold", longest}}));
  EXPECT_EQ(service().profileGetUse("Q"), client::List<std::string>{});
  EXPECT_EQ(service().profileGetUse("none"),
            (client::List<std::string>{{}, RPC_L2CP_ERR_PROFILE_NOT_FOUND}));
}

TEST_P(InService, ProfilesOfAPortAreListedOnceEachAndAnEmptyPortIsNoError) {
  putIntoService();
  makeProfile("Q");
  ASSERT_EQ(service().attach("Q", 3, 50), RPC_L2CP_OK);
  ASSERT_EQ(service().attach("P", 3, 300), RPC_L2CP_OK);
  EXPECT_EQ(service().linkGetAll(3),
            (client::List<Profile>{{{.name = "Q", .useCount = 1}, {.name = "P", .useCount = 3}}}));
  EXPECT_EQ(service().linkGetAll(4), client::List<Profile>{});
}

TEST_P(InService, ProfileThatAServiceProfileNamesIsInUse) {
  makeProfile("P");
  ASSERT_EQ(control().serviceProfileAdd("gold"), 0);
  ASSERT_EQ(control().serviceProfileSetL2cp("gold", "P"), 0);
  EXPECT_EQ(service().profileDel("P"), RPC_L2CP_ERR_PROFILE_IN_USE);
  EXPECT_EQ(service().profileStatus("P"), RPC_L2CP_OK);
  ASSERT_EQ(control().serviceProfileSetL2cp("gold", ""), 0);
  EXPECT_EQ(service().profileDel("P"), RPC_L2CP_OK);
}

// ---- The daemon's service profiles ----

TEST_P(InService, ServiceProfilesAreListedInNameOrderWithWhereTheyAreApplied) {
  EXPECT_EQ(control().serviceProfiles(), ServiceProfiles{});
  putIntoService();
  ASSERT_EQ(control().serviceProfileAdd("bronze"), 0);
  ASSERT_EQ(control().serviceProfileAttach("bronze", 7), 0);
  ASSERT_EQ(control().serviceProfileAttach("bronze", 0), 0);
  EXPECT_EQ(control().serviceProfiles(),
            (ServiceProfiles{{"bronze", "", "", {0, 7}}, {"gold", "v", "P", {3, 5}}}));
}

TEST_P(InService, ServiceProfilesAreMadeAndDeletedUnlessApplied) {
  EXPECT_EQ(control().serviceProfileAdd(""), -22);
  EXPECT_EQ(control().serviceProfileAdd(std::string(66, 's')), -22);
  EXPECT_EQ(control().serviceProfileDelete("gold"), -2);
  putIntoService();
  EXPECT_EQ(control().serviceProfileAdd("gold"), -17);
  EXPECT_EQ(control().serviceProfileDelete("gold"), -16);
  ASSERT_EQ(control().serviceProfileDetach("gold", 3), 0);
  EXPECT_EQ(control().serviceProfileDelete("gold"), -16);
  ASSERT_EQ(control().serviceProfileDetach("gold", 5), 0);
  EXPECT_EQ(control().serviceProfileDelete("gold"), 0);
  EXPECT_EQ(control().serviceProfiles(), ServiceProfiles{});
}

TEST_P(InService, ServiceProfileNamesOtherProfilesUnlessApplied) {
  EXPECT_EQ(control().serviceProfileSetVlan("gold", ""), -2);
  EXPECT_EQ(control().serviceProfileSetL2cp("gold", ""), -2);
  putIntoService();
  EXPECT_EQ(control().serviceProfileSetVlan("gold", ""), -16);
  EXPECT_EQ(control().serviceProfileSetL2cp("gold", ""), -16);
  ASSERT_EQ(control().serviceProfileAdd("bronze"), 0);
  EXPECT_EQ(control().serviceProfileSetVlan("bronze", "none"), -2);
  EXPECT_EQ(control().serviceProfileSetL2cp("bronze", std::string(34, 'p')), -22);
  EXPECT_EQ(control().serviceProfileSetL2cp("bronze", "nobody"), 0);
  EXPECT_EQ(control().serviceProfiles(),
            (ServiceProfiles{{"bronze", "", "nobody", {}}, {"gold", "v", "P", {3, 5}}}));
}

TEST_P(InService, ApplyingIsRefusedByTheDaemonOrByTheModule) {
  putIntoService();
  EXPECT_EQ(control().serviceProfileAttach("none", 3), -2);
  EXPECT_EQ(control().serviceProfileAttach("gold", -1), -22);
  EXPECT_EQ(control().serviceProfileAttach("gold", 3), -17);
  EXPECT_EQ(control().serviceProfileAttach("gold", 4), -99);
  ASSERT_EQ(control().serviceProfileAdd("silver"), 0);
  ASSERT_EQ(control().serviceProfileSetL2cp("silver", "P"), 0);
  EXPECT_EQ(control().serviceProfileAttach("silver", 3), -19);
  ASSERT_EQ(control().serviceProfileSetVlan("silver", "v"), 0);
  EXPECT_EQ(control().serviceProfileAttach("silver", 3), -16);
  ASSERT_EQ(control().serviceProfileSetL2cp("silver", "none"), 0);
  EXPECT_EQ(control().serviceProfileAttach("silver", 3), -2);
  EXPECT_EQ(control().serviceProfiles(),
            (ServiceProfiles{{"gold", "v", "P", {3, 5}}, {"silver", "v", "none", {}}}));
  EXPECT_EQ(service().profileGet(0).useCount, 2U);
}

TEST_P(InService, TakingOffIsRefusedByTheDaemonOrByTheModule) {
  putIntoService();
  EXPECT_EQ(control().serviceProfileDetach("none", 3), -2);
  EXPECT_EQ(control().serviceProfileDetach("gold", 4), -9);
  EXPECT_EQ(control().serviceProfileDetach("gold", -1), -9);
  // Somebody detaches the profile behind the service profile's back.
  ASSERT_EQ(service().detach("P", 3, 100), RPC_L2CP_OK);
  EXPECT_EQ(control().serviceProfileDetach("gold", 3), -19);
  EXPECT_EQ(control().serviceProfiles(), (ServiceProfiles{{"gold", "v", "P", {3, 5}}}));
  ASSERT_EQ(service().attach("P", 3, 100), RPC_L2CP_OK);
  EXPECT_EQ(control().serviceProfileDetach("gold", 3), 0);
  EXPECT_EQ(control().serviceProfileDetach("gold", 3), -9);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_UNTOUCHED);
  EXPECT_EQ(control().fate(5, lldp(200)), CONTROL_FATE_DISCARD);
}

// ---- The daemon's VLAN profiles ----

TEST_P(InService, VlanProfilesAreListedInNameOrderWithTheirSvids) {
  EXPECT_EQ(control().vlanProfiles(), std::vector<VlanProfile>{});
  putIntoService();
  ASSERT_EQ(control().vlanProfileAdd("a"), 0);
  EXPECT_EQ(control().vlanProfiles(),
            (std::vector<VlanProfile>{{"a", {}}, {"v", {{3, 100}, {5, 200}}}}));
}

TEST_P(InService, VlanProfilesAreMadeAndDeletedUnlessNamed) {
  EXPECT_EQ(control().vlanProfileAdd(""), -22);
  EXPECT_EQ(control().vlanProfileAdd(std::string(34, 'v')), -22);
  EXPECT_EQ(control().vlanProfileDelete("v"), -2);
  putIntoService();
  EXPECT_EQ(control().vlanProfileAdd("v"), -17);
  EXPECT_EQ(control().vlanProfileDelete("v"), -16);
  for (const int intf : {3, 5}) ASSERT_EQ(control().serviceProfileDetach("gold", intf), 0);
  EXPECT_EQ(control().vlanProfileDelete("v"), -16);
  ASSERT_EQ(control().serviceProfileSetVlan("gold", ""), 0);
  EXPECT_EQ(control().vlanProfileDelete("v"), 0);
  EXPECT_EQ(control().vlanProfiles(), std::vector<VlanProfile>{});
}

TEST_P(InService, SvidsAreSetAndRemovedUnlessInForce) {
  EXPECT_EQ(control().vlanProfileSetSvid("v", 3, 100), -2);
  putIntoService();
  EXPECT_EQ(control().vlanProfileSetSvid("v", 3, 300), -16);
  EXPECT_EQ(control().vlanProfileSetSvid("v", 3, 0), -16);
  EXPECT_EQ(control().vlanProfileSetSvid("v", -1, 300), -22);
  EXPECT_EQ(control().vlanProfileSetSvid("v", 3, -1), -22);
  EXPECT_EQ(control().vlanProfileSetSvid("v", 3, 4095), -22);
  for (const int intf : {3, 5}) ASSERT_EQ(control().serviceProfileDetach("gold", intf), 0);
  EXPECT_EQ(control().vlanProfileSetSvid("v", 3, 300), 0);
  EXPECT_EQ(control().vlanProfileSetSvid("v", 5, 0), 0);
  EXPECT_EQ(control().vlanProfiles(), (std::vector<VlanProfile>{{"v", {{3, 300}}}}));

  ASSERT_EQ(control().serviceProfileAttach("gold", 3), 0);
  EXPECT_EQ(control().fate(3, lldp(300)), CONTROL_FATE_DISCARD);
  EXPECT_EQ(control().fate(3, lldp(100)), CONTROL_FATE_UNTOUCHED);
}

TEST_P(InService, NamesLongerThanTheControlServiceTakesAreGarbage) {
  for (const std::uint32_t procedure : {11U, 12U, 21U, 22U}) {
    const auto call = wire::Call{.procedure = procedure, .program = CONTROL_PROGRAM}.with(
        wire::Bytes().text(std::string(256, 'n')));
    EXPECT_EQ(wire::readable(wire::Socket(GetParam()).call(call)),
              wire::readable(wire::garbageArguments()))
        << procedure;
  }
}

}  // namespace
