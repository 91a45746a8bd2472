// Every procedure of the service, called by a generated client in another process than the
// module's.

#include "tests/system/service.h"

#include <algorithm>
#include <memory>

#include "tests/system/fixture.h"

namespace {

using client::Counters;
using client::Entry;
using client::Link;
using client::Mac;
using client::Profile;
using client::Proto;

class Service : public TransportTest {
 protected:
  void SetUp() override {
    TransportTest::SetUp();
    if (!IsSkipped()) service_ = std::make_unique<client::Service>(GetParam());
  }
  void TearDown() override {
    service_.reset();
    TransportTest::TearDown();
  }

  const client::Service& service() { return *service_; }

  /// A profile with one entry, attached where it is told.
  void attached(const std::string& profile, unsigned int port, std::uint16_t vid) {
    ASSERT_EQ(service().profileAdd({.name = profile}), RPC_L2CP_OK);
    ASSERT_EQ(service().entryAdd(profile, "LLDP", RPC_L2CP_RULE_DISCARD), RPC_L2CP_OK);
    ASSERT_EQ(service().attach(profile, port, vid), RPC_L2CP_OK);
  }

 private:
  std::unique_ptr<client::Service> service_;
};

FOR_BOTH_TRANSPORTS(Service);

const Proto custom{true, "Custom", {0x02, 1, 2, 3, 4, 5}, 0x88b5, 0x07};

TEST_P(Service, NullProcedureReplies) { EXPECT_EQ(service().connection().ping(), RPC_SUCCESS); }

// ---- Protocols ----

TEST_P(Service, ProtocolAddedIsFoundInTheCatalogue) {
  EXPECT_EQ(service().protoAdd(custom), RPC_L2CP_OK);
  EXPECT_EQ(service().protoGet(2), custom);
}

TEST_P(Service, AddingAProtocolIgnoresItsUseCountAndError) {
  Proto proto = custom;
  proto.useCount = 77;
  proto.error = RPC_L2CP_ERR_DETACH_REFUSED;
  EXPECT_EQ(service().protoAdd(proto), RPC_L2CP_OK);
  EXPECT_EQ(service().protoGet(2), custom);
}

TEST_P(Service, AddingAProtocolThatExistsIsRefused) {
  EXPECT_EQ(service().protoAdd({.name = "LLDP", .mac = Mac(6)}), RPC_L2CP_ERR_PROTO_EXISTS);
}

TEST_P(Service, ProtocolNameOfThirtyCharactersIsAccepted) {
  EXPECT_EQ(service().protoAdd({.name = std::string(30, 'n'), .mac = Mac(6)}), RPC_L2CP_OK);
}

TEST_P(Service, ProtocolNameOfThirtyOneCharactersIsInvalid) {
  EXPECT_EQ(service().protoAdd({.name = std::string(31, 'n'), .mac = Mac(6)}),
            RPC_L2CP_ERR_INVALID);
}

TEST_P(Service, ProtocolNameOfThirtyThreeCharactersReachesTheModule) {
  EXPECT_EQ(service().protoAdd({.name = std::string(33, 'n'), .mac = Mac(6)}),
            RPC_L2CP_ERR_INVALID);
}

TEST_P(Service, ProtocolWithAnEmptyNameIsAProtocol) {
  EXPECT_EQ(service().protoAdd({.name = "", .mac = Mac(6)}), RPC_L2CP_OK);
  EXPECT_EQ(service().protoGet(0), (Proto{.name = "", .mac = Mac(6)}));
  EXPECT_EQ(service().protoDel(""), RPC_L2CP_OK);
}

TEST_P(Service, ProtocolDeletedIsGoneEvenIfProtected) {
  EXPECT_EQ(service().protoDel("All-Bridges"), RPC_L2CP_OK);
  EXPECT_EQ(service().protoGet(0).name, "CDP");
  EXPECT_EQ(service().protoDel("All-Bridges"), RPC_L2CP_ERR_PROTO_NOT_FOUND);
}

TEST_P(Service, ProtocolInAProfileIsNotDeleted) {
  service().profileAdd({.name = "P"});
  service().entryAdd("P", "LLDP", RPC_L2CP_RULE_PEER);
  EXPECT_EQ(service().protoDel("LLDP"), RPC_L2CP_ERR_PROTO_IN_USE);
}

TEST_P(Service, ProtocolOfADeletedProfileKeepsItsUseCount) {
  service().profileAdd({.name = "P"});
  service().entryAdd("P", "All-Bridges", RPC_L2CP_RULE_PEER);
  EXPECT_EQ(service().profileDel("P"), RPC_L2CP_OK);
  EXPECT_EQ(service().protoGet(0).useCount, 1U);
  EXPECT_EQ(service().protoDel("All-Bridges"), RPC_L2CP_ERR_PROTO_IN_USE);
}

TEST_P(Service, RenamingReplacesTheProtocolThatHasTheNewName) {
  service().protoAdd(custom);
  EXPECT_EQ(service().protoRen("Custom", "CDP"), RPC_L2CP_OK);
  Proto renamed = custom;
  renamed.name = "CDP";
  EXPECT_EQ(service().protoGet(1), renamed);
  EXPECT_EQ(service().protoGet(2).name, "E-LMI");
}

TEST_P(Service, RenamingToTheSameNameSucceeds) {
  EXPECT_EQ(service().protoRen("nobody", "nobody"), RPC_L2CP_OK);
}

TEST_P(Service, RenamingToANameThatDoesNotExistIsRefusedAsInUse) {
  EXPECT_EQ(service().protoRen("LLDP", "nobody"), RPC_L2CP_ERR_PROTO_IN_USE);
}

TEST_P(Service, RenamingAProtocolThatDoesNotExistFindsNothing) {
  EXPECT_EQ(service().protoRen("nobody", "LLDP"), RPC_L2CP_ERR_PROTO_NOT_FOUND);
}

TEST_P(Service, ProtocolsAreListedInNameOrder) {
  EXPECT_EQ(service().protoGetAll(), (client::List<Proto>{client::builtInProtocols()}));
}

TEST_P(Service, ProtocolsOneByOneAreThoseOfTheList) {
  const std::vector<Proto> expected = client::builtInProtocols();
  for (unsigned int index = 0; index < expected.size(); ++index) {
    EXPECT_EQ(service().protoGet(index), expected[index]);
  }
}

TEST_P(Service, ProtocolPastTheEndIsAFailureWithoutData) {
  const Proto nothing{.error = RPC_L2CP_ERR_FAILED};
  EXPECT_EQ(service().protoGet(14), nothing);
  EXPECT_EQ(service().protoGet(4294967295), nothing);
}

TEST_P(Service, FailedGetAfterASuccessfulOneCarriesNoOldData) {
  EXPECT_EQ(service().protoGet(0).name, "All-Bridges");
  EXPECT_EQ(service().protoGet(14), (Proto{.error = RPC_L2CP_ERR_FAILED}));
  EXPECT_EQ(service().protoGet(0).name, "All-Bridges");
}

TEST_P(Service, SuccessiveListsShowEachTheCatalogueOfTheirTime) {
  client::List<Proto> expected{client::builtInProtocols()};
  EXPECT_EQ(service().protoGetAll(), expected);
  service().protoDel("xSTP");
  expected.list.pop_back();
  EXPECT_EQ(service().protoGetAll(), expected);
  for (const Proto& proto : client::builtInProtocols()) service().protoDel(proto.name);
  EXPECT_EQ(service().protoGetAll(), client::List<Proto>{});
}

TEST_P(Service, FieldsOfAProtocolAreSetOneByOne) {
  Proto expected = client::builtInProtocols()[0];
  EXPECT_EQ(service().protoSetProtect("All-Bridges", false), RPC_L2CP_OK);
  expected.protect = false;
  EXPECT_EQ(service().protoGet(0), expected);
  EXPECT_EQ(service().protoSetMac("All-Bridges", {9, 8, 7, 6, 5, 4}), RPC_L2CP_OK);
  expected.mac = {9, 8, 7, 6, 5, 4};
  EXPECT_EQ(service().protoGet(0), expected);
  EXPECT_EQ(service().protoSetEtherType("All-Bridges", 0x88cc), RPC_L2CP_OK);
  expected.etherType = 0x88cc;
  EXPECT_EQ(service().protoGet(0), expected);
  EXPECT_EQ(service().protoSetSubType("All-Bridges", 0x80), RPC_L2CP_OK);
  expected.subType = 0x80;
  EXPECT_EQ(service().protoGet(0), expected);
}

TEST_P(Service, FieldsOfAnUnknownProtocolAreNotFound) {
  EXPECT_EQ(service().protoSetProtect("nobody", true), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(service().protoSetMac("nobody", Mac(6)), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(service().protoSetEtherType("nobody", 1), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(service().protoSetSubType("nobody", 1), RPC_L2CP_ERR_PROTO_NOT_FOUND);
}

TEST_P(Service, ShortMacsAreFilledUpWithZeros) {
  EXPECT_EQ(service().protoAdd({.name = "A", .mac = {}}), RPC_L2CP_OK);
  EXPECT_EQ(service().protoGet(0).mac, Mac(6));
  EXPECT_EQ(service().protoSetMac("A", {1, 2, 3}), RPC_L2CP_OK);
  EXPECT_EQ(service().protoGet(0).mac, (Mac{1, 2, 3, 0, 0, 0}));
  EXPECT_EQ(service().protoSetMac("A", {}), RPC_L2CP_OK);
  EXPECT_EQ(service().protoGet(0).mac, Mac(6));
}

TEST_P(Service, StatisticsOfProtocolsAreNeverThere) {
  attached("P", 3, 100);
  EXPECT_EQ(service().protoStat("LLDP"), (Counters{.error = RPC_L2CP_ERR_NO_COUNTERS}));
  EXPECT_EQ(service().protoStat("nobody"), (Counters{.error = RPC_L2CP_ERR_PROTO_NOT_FOUND}));
}

// ---- Profiles ----

TEST_P(Service, ProfileFlagsTravelInTheirPlaces) {
  EXPECT_EQ(service().profileAdd({.dynamic = true, .protect = false, .name = "A"}), RPC_L2CP_OK);
  EXPECT_EQ(service().profileAdd({.dynamic = false, .protect = true, .name = "B"}), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0), (Profile{.dynamic = true, .name = "A"}));
  EXPECT_EQ(service().profileGet(1), (Profile{.protect = true, .name = "B"}));
}

TEST_P(Service, AddingAProfileIgnoresItsUseCountAndError) {
  EXPECT_EQ(
      service().profileAdd({.name = "A", .useCount = 9, .error = RPC_L2CP_ERR_PROFILE_PROTECTED}),
      RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0), Profile{.name = "A"});
}

TEST_P(Service, AddingAProfileThatExistsIsRefused) {
  service().profileAdd({.name = "P"});
  EXPECT_EQ(service().profileAdd({.protect = true, .name = "P"}), RPC_L2CP_ERR_PROFILE_EXISTS);
  EXPECT_EQ(service().profileGet(0), Profile{.name = "P"});
}

TEST_P(Service, ProfileNameOfThirtyThreeCharactersIsAccepted) {
  const std::string name(33, 'p');
  EXPECT_EQ(service().profileAdd({.name = name}), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0).name, name);
}

TEST_P(Service, DeletingAProfileChecksInOrder) {
  EXPECT_EQ(service().profileDel("P"), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  attached("P", 3, 100);
  EXPECT_EQ(service().profileDel("P"), RPC_L2CP_ERR_PROFILE_IN_USE);
  service().profileSetProtect("P", true);
  EXPECT_EQ(service().profileDel("P"), RPC_L2CP_ERR_PROFILE_PROTECTED);
  service().profileSetProtect("P", false);
  service().detach("P", 3, 100);
  EXPECT_EQ(service().profileDel("P"), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGetAll(), client::List<Profile>{});
}

TEST_P(Service, StatusOfAProfileChecksInOrder) {
  EXPECT_EQ(service().profileStatus("P"), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  attached("P", 3, 100);
  EXPECT_EQ(service().profileStatus("P"), RPC_L2CP_ERR_PROFILE_IN_USE);
  service().profileSetProtect("P", true);
  EXPECT_EQ(service().profileStatus("P"), RPC_L2CP_ERR_PROFILE_PROTECTED);
  service().profileSetProtect("P", false);
  service().detach("P", 3, 100);
  EXPECT_EQ(service().profileStatus("P"), RPC_L2CP_OK);
}

TEST_P(Service, StatusTakesANameOfAnyLength) {
  EXPECT_EQ(service().profileStatus(std::string(4000, 'x')), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
}

TEST_P(Service, ProfilesAreListedInNameOrder) {
  service().profileAdd({.name = "b"});
  service().profileAdd({.dynamic = true, .protect = true, .name = "B"});
  attached("a", 3, 100);
  const client::List<Profile> expected{
      {{true, true, "B"}, {false, false, "a", 1}, {false, false, "b"}}};
  EXPECT_EQ(service().profileGetAll(), expected);
  for (unsigned int index = 0; index < 3; ++index) {
    EXPECT_EQ(service().profileGet(index), expected.list[index]);
  }
}

TEST_P(Service, ProfilePastTheEndIsNotFound) {
  const Profile nothing{.error = RPC_L2CP_ERR_PROFILE_NOT_FOUND};
  EXPECT_EQ(service().profileGet(0), nothing);
  service().profileAdd({.dynamic = true, .protect = true, .name = "P"});
  EXPECT_EQ(service().profileGet(0).name, "P");
  EXPECT_EQ(service().profileGet(1), nothing);
}

TEST_P(Service, ProfileFlagsAreCoupled) {
  service().profileAdd({.name = "P"});
  EXPECT_EQ(service().profileSetDynamic("P", true), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0), (Profile{.dynamic = true, .protect = true, .name = "P"}));
  EXPECT_EQ(service().profileSetDynamic("P", false), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0), (Profile{.protect = true, .name = "P"}));
  service().profileSetDynamic("P", true);
  EXPECT_EQ(service().profileSetProtect("P", false), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0), Profile{.name = "P"});
  EXPECT_EQ(service().profileSetProtect("P", true), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0), (Profile{.protect = true, .name = "P"}));
}

TEST_P(Service, FlagsOfAnUnknownProfileAreNotFound) {
  EXPECT_EQ(service().profileSetDynamic("P", true), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(service().profileSetProtect("P", true), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
}

TEST_P(Service, StatisticsOfProfilesAreNeverThere) {
  attached("P", 3, 100);
  EXPECT_EQ(service().profileStat("P"), (Counters{.error = RPC_L2CP_ERR_NO_COUNTERS}));
  EXPECT_EQ(service().profileStat("Q"), (Counters{.error = RPC_L2CP_ERR_PROFILE_NOT_FOUND}));
}

// ---- Entries of profiles ----

TEST_P(Service, AddingAnEntryChecksInOrder) {
  EXPECT_EQ(service().entryAdd("P", "nobody", RPC_L2CP_RULE_PEER), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  attached("P", 3, 100);
  service().profileSetProtect("P", true);
  EXPECT_EQ(service().entryAdd("P", "nobody", RPC_L2CP_RULE_PEER), RPC_L2CP_ERR_PROFILE_PROTECTED);
  service().profileSetProtect("P", false);
  EXPECT_EQ(service().entryAdd("P", "nobody", RPC_L2CP_RULE_PEER), RPC_L2CP_ERR_PROFILE_IN_USE);
  service().detach("P", 3, 100);
  EXPECT_EQ(service().entryAdd("P", "nobody", RPC_L2CP_RULE_PEER), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(service().entryAdd("P", "LLDP", RPC_L2CP_RULE_PEER), RPC_L2CP_ERR_PROTO_IN_USE);
  EXPECT_EQ(service().entryAdd("P", "CDP", RPC_L2CP_RULE_PEER), RPC_L2CP_OK);
}

TEST_P(Service, ChangingAndDeletingAnEntryCheckInOrder) {
  const auto both = [&](const char* proto, rpc_l2cp_error expected) {
    EXPECT_EQ(service().entrySet("P", proto, RPC_L2CP_RULE_TUNNEL), expected);
    EXPECT_EQ(service().entryDel("P", proto), expected);
  };
  both("nobody", RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  attached("P", 3, 100);
  service().profileSetProtect("P", true);
  both("nobody", RPC_L2CP_ERR_PROFILE_PROTECTED);
  service().profileSetProtect("P", false);
  both("nobody", RPC_L2CP_ERR_PROFILE_IN_USE);
  service().detach("P", 3, 100);
  both("nobody", RPC_L2CP_ERR_PROTO_NOT_FOUND);
  both("CDP", RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE);
  both("LLDP", RPC_L2CP_OK);
  both("LLDP", RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE);
}

TEST_P(Service, DeletingAllEntriesChecksInOrder) {
  EXPECT_EQ(service().entryDelAll("P"), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  attached("P", 3, 100);
  service().profileSetProtect("P", true);
  EXPECT_EQ(service().entryDelAll("P"), RPC_L2CP_ERR_PROFILE_PROTECTED);
  service().profileSetProtect("P", false);
  EXPECT_EQ(service().entryDelAll("P"), RPC_L2CP_ERR_PROFILE_IN_USE);
  service().detach("P", 3, 100);
  EXPECT_EQ(service().entryDelAll("P"), RPC_L2CP_OK);
  EXPECT_EQ(service().entryGetAll("P"), client::List<Entry>{});
  EXPECT_EQ(service().protoDel("LLDP"), RPC_L2CP_OK);
  EXPECT_EQ(service().entryDelAll("P"), RPC_L2CP_OK);
}

TEST_P(Service, EntriesAreListedInTheOrderOfTheirProtocolsNames) {
  service().profileAdd({.name = "P"});
  service().entryAdd("P", "xSTP", RPC_L2CP_RULE_TUNNEL);
  service().entryAdd("P", "CDP", RPC_L2CP_RULE_DISCARD);
  service().entryAdd("P", "LLDP", RPC_L2CP_RULE_PEER);
  client::List<Entry> expected{{{"CDP", RPC_L2CP_RULE_DISCARD},
                                {"LLDP", RPC_L2CP_RULE_PEER},
                                {"xSTP", RPC_L2CP_RULE_TUNNEL}}};
  EXPECT_EQ(service().entryGetAll("P"), expected);
  service().entrySet("P", "LLDP", RPC_L2CP_RULE_TUNNEL);
  expected.list[1].rule = RPC_L2CP_RULE_TUNNEL;
  EXPECT_EQ(service().entryGetAll("P"), expected);
  service().entryDel("P", "CDP");
  expected.list.erase(expected.list.begin());
  EXPECT_EQ(service().entryGetAll("P"), expected);
}

TEST_P(Service, EntriesOfAnUnknownProfileAreNotFound) {
  EXPECT_EQ(service().entryGetAll("P"), (client::List<Entry>{{}, RPC_L2CP_ERR_PROFILE_NOT_FOUND}));
}

TEST_P(Service, EntriesOneByOneEndWithProtocolNotFound) {
  const Entry noProfile{.error = RPC_L2CP_ERR_PROFILE_NOT_FOUND};
  const Entry noEntry{.error = RPC_L2CP_ERR_PROTO_NOT_FOUND};
  EXPECT_EQ(service().entryGet("P", 0), noProfile);
  service().profileAdd({.name = "P"});
  EXPECT_EQ(service().entryGet("P", 0), noEntry);
  service().entryAdd("P", "LLDP", RPC_L2CP_RULE_PEER);
  EXPECT_EQ(service().entryGet("P", 0), (Entry{"LLDP", RPC_L2CP_RULE_PEER}));
  EXPECT_EQ(service().entryGet("P", 1), noEntry);
  EXPECT_EQ(service().entryGet("P", 4294967295), noEntry);
}

TEST_P(Service, RuleNumbersOutOfRangeAreTakenForDiscard) {
  service().profileAdd({.name = "P"});
  service().entryAdd("P", "LLDP", RPC_L2CP_RULE_PEER);
  for (const int number : {3, 255, -1, 2147483647, -2147483647 - 1}) {
    const auto rule = static_cast<rpc_l2cp_rule>(number);
    EXPECT_EQ(service().entrySet("P", "LLDP", RPC_L2CP_RULE_PEER), RPC_L2CP_OK);
    EXPECT_EQ(service().entrySet("P", "LLDP", rule), RPC_L2CP_OK);
    EXPECT_EQ(service().entryGet("P", 0), (Entry{"LLDP", RPC_L2CP_RULE_DISCARD})) << number;
    EXPECT_EQ(service().entryDel("P", "LLDP"), RPC_L2CP_OK);
    EXPECT_EQ(service().entryAdd("P", "LLDP", rule), RPC_L2CP_OK);
    EXPECT_EQ(service().entryGet("P", 0), (Entry{"LLDP", RPC_L2CP_RULE_DISCARD})) << number;
  }
}

// ---- Attachments ----

TEST_P(Service, AttachingTwiceIsAPlainFailure) {
  EXPECT_EQ(service().attach("P", 3, 100), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  attached("P", 3, 100);
  EXPECT_EQ(service().attach("P", 3, 100), RPC_L2CP_ERR_FAILED);
  EXPECT_EQ(service().attach("P", 3, 101), RPC_L2CP_OK);
  EXPECT_EQ(service().attach("P", 4, 100), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0).useCount, 3U);
}

TEST_P(Service, DetachingChecksInOrder) {
  EXPECT_EQ(service().detach("P", 3, 100), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  service().profileAdd({.name = "P"});
  EXPECT_EQ(service().detach("P", 3, 100), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  attached("Q", 3, 200);
  EXPECT_EQ(service().detach("P", 3, 100), RPC_L2CP_ERR_DETACH_REFUSED);
  EXPECT_EQ(service().detach("P", 3, 200), RPC_L2CP_ERR_NOT_ATTACHED);
  EXPECT_EQ(service().detach("Q", 3, 200), RPC_L2CP_OK);
  EXPECT_EQ(service().detach("Q", 3, 200), RPC_L2CP_ERR_PROTO_NOT_FOUND);
}

TEST_P(Service, AttachmentsOfAPortAreWalkedVlanByVlan) {
  const Link noPort{.error = RPC_L2CP_ERR_PROFILE_NOT_FOUND};
  EXPECT_EQ(service().linkGet(3, 0), noPort);
  attached("P", 3, 200);
  attached("Q", 3, 100);
  EXPECT_EQ(service().linkGet(3, 0), (Link{"Q", 100}));
  EXPECT_EQ(service().linkGet(3, 1), (Link{"P", 200}));
  EXPECT_EQ(service().linkGet(3, 2), Link{.error = RPC_L2CP_ERR_NO_SUCH_LINK});
  EXPECT_EQ(service().linkGet(3, 4294967295), Link{.error = RPC_L2CP_ERR_NO_SUCH_LINK});
  EXPECT_EQ(service().linkGet(4, 0), noPort);
  service().detach("P", 3, 200);
  service().detach("Q", 3, 100);
  EXPECT_EQ(service().linkGet(3, 0), noPort);
}

TEST_P(Service, TwoProfilesShareAPortAndVlan) {
  attached("P", 3, 100);
  attached("Q", 3, 100);
  EXPECT_EQ(service().linkGet(3, 2), Link{.error = RPC_L2CP_ERR_NO_SUCH_LINK});
  std::vector<std::string> names{service().linkGet(3, 0).profileName,
                                 service().linkGet(3, 1).profileName};
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"P", "Q"}));
}

TEST_P(Service, PortsAndVlansReachToTheEndOfTheirNumbers) {
  attached("P", 4294967295, 65535);
  EXPECT_EQ(service().linkGet(4294967295, 0), (Link{"P", 65535}));
  EXPECT_EQ(service().portStat(4294967295), Counters{});
  EXPECT_EQ(service().vlanStat(65535), Counters{});
  EXPECT_EQ(service().attach("P", 0, 0), RPC_L2CP_OK);
  EXPECT_EQ(service().linkGet(0, 0), (Link{"P", 0}));
  EXPECT_EQ(service().attach("P", 2147483648, 4096), RPC_L2CP_OK);
  EXPECT_EQ(service().linkGet(2147483648, 0), (Link{"P", 4096}));
  EXPECT_EQ(service().detach("P", 4294967295, 65535), RPC_L2CP_OK);
  EXPECT_EQ(service().detach("P", 0, 0), RPC_L2CP_OK);
  EXPECT_EQ(service().detach("P", 2147483648, 4096), RPC_L2CP_OK);
  EXPECT_EQ(service().profileStatus("P"), RPC_L2CP_OK);
}

TEST_P(Service, StatisticsOfAPortAndVlanNeedAnAttachment) {
  const Counters noCounters{.error = RPC_L2CP_ERR_NO_COUNTERS};
  EXPECT_EQ(service().portStat(3), noCounters);
  EXPECT_EQ(service().vlanStat(100), noCounters);
  attached("P", 3, 100);
  EXPECT_EQ(service().portStat(3), Counters{});
  EXPECT_EQ(service().vlanStat(100), Counters{});
  service().detach("P", 3, 100);
  EXPECT_EQ(service().portStat(3), Counters{});
}

// ---- Size of replies ----

TEST_P(Service, ListLargerThanADatagramComesOverTcpAlone) {
  constexpr int count = 300;
  const std::string longest(30, 'n');
  for (int i = 0; i < count; ++i) {
    Proto proto = custom;
    proto.name = longest.substr(0, 26) + std::to_string(1000 + i);
    ASSERT_EQ(service().protoAdd(proto), RPC_L2CP_OK);
  }
  if (GetParam() == std::string("tcp")) {
    EXPECT_EQ(service().protoGetAll().list.size(), 14U + count);
  } else {
    try {
      service().protoGetAll();
      FAIL() << "a datagram held the list";
    } catch (const client::CallFailed& failure) {
      EXPECT_EQ(failure.status(), RPC_SYSTEMERROR) << failure.what();
    }
  }
  EXPECT_EQ(service().protoGet(0).name, "All-Bridges");
}

TEST_P(Service, ClientsOfBothTransportsSeeTheSameRegistries) {
  const client::Service other(GetParam() == std::string("tcp") ? "udp" : "tcp");
  EXPECT_EQ(service().profileAdd({.name = "P"}), RPC_L2CP_OK);
  EXPECT_EQ(other.profileGet(0), Profile{.name = "P"});
  EXPECT_EQ(other.profileDel("P"), RPC_L2CP_OK);
  EXPECT_EQ(service().profileGet(0), Profile{.error = RPC_L2CP_ERR_PROFILE_NOT_FOUND});
}

}  // namespace
