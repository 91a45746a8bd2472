// The procedures of the service called directly: what they make of their arguments, what they fill
// into their results, and how long that lives.

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <new>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/bllManager.h"
#include "l2cp/l2cp.h"
#include "platform/acl_ioctl.h"
#include "platform/singleton.h"
#include "rpc/l2cp.h"
#include "tests/support/recording_classifier.h"
#include "tests/support/refused_block.h"
#include "tests/support/rpc_service.h"
#include "tests/support/services.h"

namespace {

using Mac = std::vector<unsigned char>;

L2CP& entity() { return singleton<L2CP>::instance(); }

class Handlers : public testing::Test {
 protected:
  void SetUp() override {
    classifier().reset();
    entity().settings = L2CP::Settings();
    ASSERT_TRUE(entity().start());
  }
  void TearDown() override { entity().stop(); }

  static support::RecordingClassifier& classifier() {
    return support::RecordingClassifier::instance();
  }
};

// The wire's texts are not const, although no handler writes them.
char* text(const char* text) { return const_cast<char*>(text); }

rpc_l2cp_mac_t wireMac(Mac& bytes) {
  return {.rpc_l2cp_mac_t_len = static_cast<u_int>(bytes.size()),
          .rpc_l2cp_mac_t_val = bytes.data()};
}

rpc_l2cp_error addProto(const char* name, Mac mac, u_short etherType = 0x88b5, u_char subType = 7) {
  // Of exactly this size, so that a look behind its end is seen.
  mac.shrink_to_fit();
  rpc_l2cp_proto proto{};
  proto.protect = TRUE;
  proto.name = text(name);
  proto.mac = wireMac(mac);
  proto.ether_type = etherType;
  proto.sub_type = subType;
  proto.use_count = 99;
  proto.error = RPC_L2CP_ERR_INVALID;
  return *rpc_l2cp_proto_add_1_svc(proto, nullptr);
}

rpc_l2cp_error addProfile(const char* name, bool protect = false, bool dynamic = false) {
  rpc_l2cp_profile profile{};
  profile.protect = protect;
  profile.dynamic = dynamic;
  profile.name = text(name);
  profile.use_count = 99;
  profile.error = RPC_L2CP_ERR_INVALID;
  return *rpc_l2cp_profile_add_1_svc(profile, nullptr);
}

rpc_l2cp_error addEntry(const char* profile, const char* proto, int rule) {
  return *rpc_l2cp_profile_proto_add_1_svc(text(profile), text(proto),
                                           static_cast<rpc_l2cp_rule>(rule), nullptr);
}

rpc_l2cp_error attach(const char* profile, u_int port, u_short vid) {
  return *rpc_l2cp_profile_port_attach_1_svc(text(profile), port, vid, nullptr);
}

const L2CP::Protocol& protocol(const char* name) { return *entity().settings.protocols.at(name); }
const L2CP::Profile& profile(const char* name) { return *entity().settings.profiles.at(name); }

Mac bytes(const unsigned char (&mac)[6]) { return {std::begin(mac), std::end(mac)}; }

// ---- Arguments ----

TEST_F(Handlers, ProtocolMadeOverRpcHasTheMaskThatHoldsForAnyAddress) {
  EXPECT_EQ(addProto("A", {1, 2, 3, 4, 5, 6}), RPC_L2CP_OK);
  EXPECT_EQ(bytes(protocol("A").mac), (Mac{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(bytes(protocol("A").macMask), Mac(6, 0));
  EXPECT_EQ(protocol("A").etherType, 0x88b5);
  EXPECT_EQ(protocol("A").subType, 7);
  EXPECT_TRUE(protocol("A").protect);
}

TEST_F(Handlers, UseCountAndErrorOfANewProtocolAreIgnored) {
  addProto("A", Mac(6));
  EXPECT_EQ(protocol("A").useCount, 0U);
}

TEST_F(Handlers, MacOfANewProtocolIsFilledUpWithZeros) {
  EXPECT_EQ(addProto("none", {}), RPC_L2CP_OK);
  EXPECT_EQ(bytes(protocol("none").mac), Mac(6, 0));
  EXPECT_EQ(addProto("three", {0xff, 0xfe, 0xfd}), RPC_L2CP_OK);
  EXPECT_EQ(bytes(protocol("three").mac), (Mac{0xff, 0xfe, 0xfd, 0, 0, 0}));
}

TEST_F(Handlers, MacOfAProtocolIsFilledUpWithZerosAndItsMaskStays) {
  for (std::size_t size = 0; size <= 6; ++size) {
    Mac mac(size, 0xee);
    mac.shrink_to_fit();
    EXPECT_EQ(*rpc_l2cp_proto_set_mac_1_svc(text("LLDP"), wireMac(mac), nullptr), RPC_L2CP_OK);
    mac.resize(6);
    EXPECT_EQ(bytes(protocol("LLDP").mac), mac) << size;
    EXPECT_EQ(bytes(protocol("LLDP").macMask), Mac(6, 0xff)) << size;
  }
}

TEST_F(Handlers, ProtectOfANewProtocolIsAnyNumberButZero) {
  Mac mac(6);
  rpc_l2cp_proto proto{};
  proto.mac = wireMac(mac);
  proto.name = text("A");
  proto.protect = -7;
  rpc_l2cp_proto_add_1_svc(proto, nullptr);
  EXPECT_TRUE(protocol("A").protect);
  proto.name = text("B");
  proto.protect = 0;
  rpc_l2cp_proto_add_1_svc(proto, nullptr);
  EXPECT_FALSE(protocol("B").protect);
}

TEST_F(Handlers, FieldsOfAProtocolReachTheirPlaces) {
  EXPECT_EQ(*rpc_l2cp_proto_set_protect_1_svc(text("LLDP"), FALSE, nullptr), RPC_L2CP_OK);
  EXPECT_FALSE(protocol("LLDP").protect);
  EXPECT_EQ(*rpc_l2cp_proto_set_protect_1_svc(text("LLDP"), 2, nullptr), RPC_L2CP_OK);
  EXPECT_TRUE(protocol("LLDP").protect);
  EXPECT_EQ(*rpc_l2cp_proto_set_ether_type_1_svc(text("LLDP"), 0x88cc, nullptr), RPC_L2CP_OK);
  EXPECT_EQ(protocol("LLDP").etherType, 0x88cc);
  EXPECT_EQ(*rpc_l2cp_proto_set_sub_type_1_svc(text("LLDP"), 0x80, nullptr), RPC_L2CP_OK);
  EXPECT_EQ(protocol("LLDP").subType, 0x80);
}

TEST_F(Handlers, FlagsOfANewProfileAreNotMistakenForEachOther) {
  EXPECT_EQ(addProfile("protected", true, false), RPC_L2CP_OK);
  EXPECT_TRUE(profile("protected").protect);
  EXPECT_FALSE(profile("protected").dynamic);
  EXPECT_EQ(addProfile("dynamic", false, true), RPC_L2CP_OK);
  EXPECT_FALSE(profile("dynamic").protect);
  EXPECT_TRUE(profile("dynamic").dynamic);
  EXPECT_EQ(profile("dynamic").useCount, 0U);
}

TEST_F(Handlers, FlagsOfAProfileReachTheirPlaces) {
  addProfile("P");
  EXPECT_EQ(*rpc_l2cp_profile_set_protect_1_svc(text("P"), 2, nullptr), RPC_L2CP_OK);
  EXPECT_TRUE(profile("P").protect);
  EXPECT_FALSE(profile("P").dynamic);
  EXPECT_EQ(*rpc_l2cp_profile_set_dynamic_1_svc(text("P"), 2, nullptr), RPC_L2CP_OK);
  EXPECT_TRUE(profile("P").dynamic);
}

TEST_F(Handlers, RulesAreTakenByTheirNumber) {
  const struct {
    int number;
    L2CP::Rule rule;
  } rows[] = {{0, L2CP::Rule::discard},   {1, L2CP::Rule::peer},
              {2, L2CP::Rule::tunnel},    {3, L2CP::Rule::discard},
              {255, L2CP::Rule::discard}, {2147483647, L2CP::Rule::discard},
              {-1, L2CP::Rule::discard},  {-2147483647 - 1, L2CP::Rule::discard}};
  addProfile("P");
  for (const auto& row : rows) {
    EXPECT_EQ(addEntry("P", "LLDP", row.number), RPC_L2CP_OK);
    EXPECT_EQ(profile("P").protocols.begin()->second, row.rule) << row.number;
    EXPECT_EQ(
        *rpc_l2cp_profile_proto_set_1_svc(text("P"), text("LLDP"), RPC_L2CP_RULE_PEER, nullptr),
        RPC_L2CP_OK);
    EXPECT_EQ(profile("P").protocols.begin()->second, L2CP::Rule::peer);
    EXPECT_EQ(*rpc_l2cp_profile_proto_set_1_svc(text("P"), text("LLDP"),
                                                static_cast<rpc_l2cp_rule>(row.number), nullptr),
              RPC_L2CP_OK);
    EXPECT_EQ(profile("P").protocols.begin()->second, row.rule) << row.number;
    EXPECT_EQ(*rpc_l2cp_profile_proto_del_1_svc(text("P"), text("LLDP"), nullptr), RPC_L2CP_OK);
  }
}

TEST_F(Handlers, AttachingAndDetachingPassPortAndVlanOn) {
  addProfile("P");
  EXPECT_EQ(attach("P", 4294967295, 65535), RPC_L2CP_OK);
  ASSERT_TRUE(entity().settings.ports.contains(4294967295));
  EXPECT_TRUE(entity().settings.ports.at(4294967295).contains(65535));
  EXPECT_EQ(*rpc_l2cp_profile_port_detach_1_svc(text("P"), 4294967295, 65535, nullptr),
            RPC_L2CP_OK);
  EXPECT_TRUE(entity().settings.ports.empty());
}

void expectLogicError(const std::function<void()>& call) {
  try {
    call();
    ADD_FAILURE() << "no error";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
  }
}

TEST_F(Handlers, NullProfileNameIsALogicErrorOfAttachAndDetach) {
  expectLogicError([] { rpc_l2cp_profile_port_attach_1_svc(nullptr, 3, 100, nullptr); });
  expectLogicError([] { rpc_l2cp_profile_port_detach_1_svc(nullptr, 3, 100, nullptr); });
}

// ---- Results ----

TEST_F(Handlers, ProtocolIsFilledInWithACopyOfItsTextAndMac) {
  addProto("A", {1, 2, 3, 4, 5, 6});
  addProfile("P");
  addEntry("P", "A", 0);
  const rpc_l2cp_proto* result = rpc_l2cp_proto_get_1_svc(0, nullptr);
  rpc_l2cp_profile_proto_del_1_svc(text("P"), text("A"), nullptr);
  rpc_l2cp_proto_del_1_svc(text("A"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_EQ(result->protect, TRUE);
  EXPECT_STREQ(result->name, "A");
  ASSERT_EQ(result->mac.rpc_l2cp_mac_t_len, 6U);
  EXPECT_EQ(Mac(result->mac.rpc_l2cp_mac_t_val, result->mac.rpc_l2cp_mac_t_val + 6),
            (Mac{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(result->ether_type, 0x88b5);
  EXPECT_EQ(result->sub_type, 7);
  EXPECT_EQ(result->use_count, 1U);
}

TEST_F(Handlers, MacThatFindsNoMemoryIsLeftOutOfTheResult) {
  if (!support::ownMalloc) GTEST_SKIP() << "the sanitizer has an allocator of its own";
  support::refusedBlock = 6;
  const rpc_l2cp_proto* result = rpc_l2cp_proto_get_1_svc(0, nullptr);
  const rpc_l2cp_proto_all* list = rpc_l2cp_proto_get_all_1_svc(nullptr);
  support::refusedBlock = 0;
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_STREQ(result->name, "All-Bridges");
  EXPECT_EQ(result->mac.rpc_l2cp_mac_t_len, 0U);
  EXPECT_EQ(result->mac.rpc_l2cp_mac_t_val, nullptr);
  EXPECT_EQ(list->error, RPC_L2CP_OK);
  ASSERT_EQ(list->list.list_len, 14U);
  for (u_int i = 0; i < 14; ++i) {
    EXPECT_EQ(list->list.list_val[i].mac.rpc_l2cp_mac_t_len, 0U);
    EXPECT_EQ(list->list.list_val[i].mac.rpc_l2cp_mac_t_val, nullptr);
  }
}

TEST_F(Handlers, ListIsReleasedBeforeTheNextOneIsBuilt) {
  if (!support::ownMalloc) GTEST_SKIP() << "the sanitizer has an allocator of its own";
  static const rpc_l2cp_proto_all* list;
  static bool wasReleased;
  list = rpc_l2cp_proto_get_all_1_svc(nullptr);
  ASSERT_EQ(list->list.list_len, 14U);
  wasReleased = false;
  support::beforeRefusal = [] {
    wasReleased = list->list.list_len == 0 && list->list.list_val == nullptr;
  };
  support::refusedBlock = 14 * sizeof(rpc_l2cp_proto);
  EXPECT_THROW(rpc_l2cp_proto_get_all_1_svc(nullptr), std::bad_alloc);
  support::refusedBlock = 0;
  support::beforeRefusal = nullptr;
  EXPECT_TRUE(wasReleased);
  EXPECT_EQ(rpc_l2cp_proto_get_all_1_svc(nullptr)->list.list_len, 14U);
}

TEST_F(Handlers, FailedProtocolGetClearsTheLastResult) {
  rpc_l2cp_proto_get_1_svc(0, nullptr);
  const rpc_l2cp_proto* result = rpc_l2cp_proto_get_1_svc(14, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_FAILED);
  EXPECT_EQ(result->protect, FALSE);
  EXPECT_EQ(result->name, nullptr);
  EXPECT_EQ(result->mac.rpc_l2cp_mac_t_len, 0U);
  EXPECT_EQ(result->mac.rpc_l2cp_mac_t_val, nullptr);
  EXPECT_EQ(result->ether_type, 0);
  EXPECT_EQ(result->sub_type, 0);
  EXPECT_EQ(result->use_count, 0U);
}

TEST_F(Handlers, ProtocolListHoldsThemAllInNameOrder) {
  const rpc_l2cp_proto_all* result = rpc_l2cp_proto_get_all_1_svc(nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  ASSERT_EQ(result->list.list_len, 14U);
  EXPECT_STREQ(result->list.list_val[0].name, "All-Bridges");
  EXPECT_STREQ(result->list.list_val[13].name, "xSTP");
  for (u_int i = 0; i < 14; ++i) {
    EXPECT_EQ(result->list.list_val[i].error, RPC_L2CP_OK);
    EXPECT_EQ(result->list.list_val[i].mac.rpc_l2cp_mac_t_len, 6U);
  }
}

TEST_F(Handlers, EmptyProtocolListHasNoArray) {
  rpc_l2cp_proto_get_all_1_svc(nullptr);
  entity().settings.protocols.clear();
  const rpc_l2cp_proto_all* result = rpc_l2cp_proto_get_all_1_svc(nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_EQ(result->list.list_len, 0U);
  EXPECT_EQ(result->list.list_val, nullptr);
}

TEST_F(Handlers, ProfileIsFilledInAndAFailedGetClearsIt) {
  addProfile("P", true, true);
  attach("P", 3, 100);
  const rpc_l2cp_profile* result = rpc_l2cp_profile_get_1_svc(0, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_EQ(result->dynamic, TRUE);
  EXPECT_EQ(result->protect, TRUE);
  EXPECT_STREQ(result->name, "P");
  EXPECT_EQ(result->use_count, 1U);

  rpc_l2cp_profile_get_1_svc(1, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(result->dynamic, FALSE);
  EXPECT_EQ(result->protect, FALSE);
  EXPECT_EQ(result->name, nullptr);
  EXPECT_EQ(result->use_count, 0U);
}

TEST_F(Handlers, ProfileListHoldsThemAllInNameOrder) {
  const rpc_l2cp_profile_all* result = rpc_l2cp_profile_get_all_1_svc(nullptr);
  EXPECT_EQ(result->list.list_len, 0U);
  EXPECT_EQ(result->list.list_val, nullptr);
  addProfile("b");
  addProfile("a", true, false);
  rpc_l2cp_profile_get_all_1_svc(nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  ASSERT_EQ(result->list.list_len, 2U);
  EXPECT_STREQ(result->list.list_val[0].name, "a");
  EXPECT_EQ(result->list.list_val[0].protect, TRUE);
  EXPECT_EQ(result->list.list_val[0].error, RPC_L2CP_OK);
  EXPECT_STREQ(result->list.list_val[1].name, "b");
}

TEST_F(Handlers, EntryIsFilledInAndAFailedGetClearsIt) {
  addProfile("P");
  addEntry("P", "LLDP", RPC_L2CP_RULE_TUNNEL);
  const rpc_l2cp_profile_proto* result = rpc_l2cp_profile_proto_get_1_svc(text("P"), 0, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_STREQ(result->proto_name, "LLDP");
  EXPECT_EQ(result->rule, RPC_L2CP_RULE_TUNNEL);

  rpc_l2cp_profile_proto_get_1_svc(text("P"), 1, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(result->proto_name, nullptr);
  EXPECT_EQ(result->rule, RPC_L2CP_RULE_DISCARD);
}

TEST_F(Handlers, EntryListIsInNameOrderAndAFailedGetClearsIt) {
  addProfile("P");
  addEntry("P", "xSTP", RPC_L2CP_RULE_TUNNEL);
  addEntry("P", "CDP", RPC_L2CP_RULE_PEER);
  const rpc_l2cp_profile_proto_all* result =
      rpc_l2cp_profile_proto_get_all_1_svc(text("P"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  ASSERT_EQ(result->list.list_len, 2U);
  EXPECT_STREQ(result->list.list_val[0].proto_name, "CDP");
  EXPECT_EQ(result->list.list_val[0].rule, RPC_L2CP_RULE_PEER);
  EXPECT_EQ(result->list.list_val[0].error, RPC_L2CP_OK);
  EXPECT_STREQ(result->list.list_val[1].proto_name, "xSTP");
  EXPECT_EQ(result->list.list_val[1].rule, RPC_L2CP_RULE_TUNNEL);

  rpc_l2cp_profile_proto_get_all_1_svc(text("Q"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(result->list.list_len, 0U);
  EXPECT_EQ(result->list.list_val, nullptr);
}

TEST_F(Handlers, LinkIsFilledInAndAFailedGetClearsIt) {
  addProfile("P");
  attach("P", 3, 4095);
  const rpc_l2cp_profile_link* result = rpc_l2cp_profile_port_get_1_svc(3, 0, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_STREQ(result->profile_name, "P");
  EXPECT_EQ(result->vid, 4095);

  rpc_l2cp_profile_port_get_1_svc(3, 1, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_NO_SUCH_LINK);
  EXPECT_EQ(result->profile_name, nullptr);
  EXPECT_EQ(result->vid, 0);
}

TEST_F(Handlers, PortListHoldsPortsAndVlansInOrderAndAFailedGetClearsIt) {
  addProfile("P");
  const rpc_l2cp_port_all* result = rpc_l2cp_profile_get_ports_1_svc(text("P"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_EQ(result->list.list_len, 0U);
  EXPECT_EQ(result->list.list_val, nullptr);

  attach("P", 4294967295, 65535);
  attach("P", 3, 200);
  attach("P", 3, 100);
  rpc_l2cp_profile_get_ports_1_svc(text("P"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  ASSERT_EQ(result->list.list_len, 3U);
  const rpc_l2cp_port_vlan_t* places = result->list.list_val;
  EXPECT_EQ(places[0].port, 3U);
  EXPECT_EQ(places[0].vid, 100U);
  EXPECT_EQ(places[1].port, 3U);
  EXPECT_EQ(places[1].vid, 200U);
  EXPECT_EQ(places[2].port, 4294967295U);
  EXPECT_EQ(places[2].vid, 65535U);

  rpc_l2cp_profile_get_ports_1_svc(text("Q"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(result->list.list_len, 0U);
  EXPECT_EQ(result->list.list_val, nullptr);
}

TEST_F(Handlers, UseListHoldsCopiesOfTheNamesAndAFailedGetClearsIt) {
  const support::Services services;
  addProfile("P");
  services.add("silver", "P");
  services.add("gold", "P");
  services.add("bronze", "Q");
  const rpc_l2cp_profile_use* result = rpc_l2cp_profile_get_use_1_svc(text("P"), nullptr);
  services.reset();
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  ASSERT_EQ(result->list.list_len, 2U);
  EXPECT_STREQ(result->list.list_val[0], "gold");
  EXPECT_STREQ(result->list.list_val[1], "silver");

  rpc_l2cp_profile_get_use_1_svc(text("Q"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(result->list.list_len, 0U);
  EXPECT_EQ(result->list.list_val, nullptr);
}

TEST_F(Handlers, ProfilesOfAPortAreFilledInAndAPortWithoutAttachmentsIsNoError) {
  addProfile("P", true, true);
  addProfile("Q");
  attach("Q", 3, 200);
  attach("P", 3, 100);
  attach("P", 3, 300);
  const rpc_l2cp_profile_all* result = rpc_l2cp_profile_port_get_all_1_svc(3, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  ASSERT_EQ(result->list.list_len, 2U);
  EXPECT_STREQ(result->list.list_val[0].name, "P");
  EXPECT_EQ(result->list.list_val[0].dynamic, TRUE);
  EXPECT_EQ(result->list.list_val[0].protect, TRUE);
  EXPECT_EQ(result->list.list_val[0].use_count, 2U);
  EXPECT_EQ(result->list.list_val[0].error, RPC_L2CP_OK);
  EXPECT_STREQ(result->list.list_val[1].name, "Q");
  EXPECT_EQ(result->list.list_val[1].dynamic, FALSE);
  EXPECT_EQ(result->list.list_val[1].use_count, 1U);

  rpc_l2cp_profile_port_get_all_1_svc(4, nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_EQ(result->list.list_len, 0U);
  EXPECT_EQ(result->list.list_val, nullptr);
}

// ---- Editing ----

TEST_F(Handlers, EditResultIsCopiedWholeWithTheLastNameBesideAnError) {
  addProfile("P");
  const rpcl2cpProfEditResult* result = rpc_l2cp_profile_edit_1_svc(text("P"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_OK);
  EXPECT_STREQ(result->name, "temp_l2cp_prof_1");
  EXPECT_TRUE(entity().settings.profiles.contains("temp_l2cp_prof_1"));

  rpc_l2cp_profile_edit_1_svc(text("none"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_FAILED);
  EXPECT_STREQ(result->name, "temp_l2cp_prof_1");
  // It is the operation that remembers the name, also of a success that no client saw.
  ASSERT_EQ(entity().l2cpProfileEdit("P").error, RPC_L2CP_OK);
  rpc_l2cp_profile_edit_1_svc(text("none"), nullptr);
  EXPECT_EQ(result->error, RPC_L2CP_ERR_FAILED);
  EXPECT_STREQ(result->name, "temp_l2cp_prof_2");
}

TEST_F(Handlers, EditResultHoldsNothingOfALongerNameBehindAShorterOne) {
  addProfile("P");
  for (int i = 1; i <= 100; ++i) rpc_l2cp_profile_edit_1_svc(text("P"), nullptr);
  ASSERT_EQ(entity().profileDel("temp_l2cp_prof_2"), 0);
  const rpcl2cpProfEditResult* result = rpc_l2cp_profile_edit_1_svc(text("P"), nullptr);
  std::string expected = "temp_l2cp_prof_2";
  expected.resize(33);
  EXPECT_EQ(std::string(result->name, sizeof(result->name)), expected);
}

rpc_l2cp_error copyProfile(const char* source, const char* destination) {
  return *rpc_l2cp_profile_copy_1_svc(text(source), text(destination), nullptr);
}

TEST_F(Handlers, CopyingNamesAMissingSourceEvenIfTheDestinationExists) {
  addProfile("P");
  addProfile("Q", true, true);
  EXPECT_EQ(copyProfile("none", "C"), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(copyProfile("none", "P"), RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(copyProfile("P", "Q"), RPC_L2CP_ERR_FAILED);
  EXPECT_EQ(copyProfile("P", "P"), RPC_L2CP_ERR_FAILED);
  EXPECT_EQ(copyProfile("Q", "P"), RPC_L2CP_ERR_FAILED);
  attach("P", 3, 100);
  EXPECT_EQ(copyProfile("P", "Q"), RPC_L2CP_ERR_FAILED);
  EXPECT_EQ(entity().settings.profiles.size(), 2U);
  EXPECT_EQ(copyProfile("P", "C"), RPC_L2CP_OK);
  EXPECT_EQ(copyProfile("Q", "D"), RPC_L2CP_OK);
  EXPECT_FALSE(profile("D").protect);
}

TEST_F(Handlers, LeavingAnswersWithTheResultOfTheOperationItself) {
  const auto leave = [](const char* target, const char* temporary) {
    return static_cast<int>(
        *rpc_l2cp_profile_on_exit_1_svc(text(target), text(temporary), nullptr));
  };
  addProfile("P", true, false);
  addProfile("A");
  addProfile("B");
  addProfile("C");
  addEntry("C", "LLDP", 0);
  EXPECT_EQ(leave("P", "C"), -1);
  EXPECT_EQ(leave("A", "B"), -2);
  EXPECT_FALSE(entity().settings.profiles.contains("B"));
  EXPECT_EQ(leave("A", "C"), 0);
  EXPECT_EQ(profile("A").protocols.size(), 1U);
}

TEST_F(Handlers, RenamingIsMappedAndItsFailurePartWayIsPlain) {
  const support::Services services;
  const auto rename = [](const char* from, const char* to) {
    return *rpc_l2cp_profile_ren_1_svc(text(from), text(to), nullptr);
  };
  addProfile("P", true, true);
  addProfile("Q");
  EXPECT_EQ(rename("none", "R"), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(rename("none", "Q"), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(rename("P", "Q"), RPC_L2CP_ERR_PROFILE_EXISTS);
  EXPECT_EQ(rename("P", "R"), RPC_L2CP_OK);
  EXPECT_EQ(profile("R").name, "R");
  services.add("gold", "R");
  EXPECT_EQ(rename("R", std::string(34, 'n').c_str()), RPC_L2CP_ERR_FAILED);
}

TEST_F(Handlers, NullNamesOfEditingAreLogicErrors) {
  addProfile("P");
  expectLogicError([] { rpc_l2cp_profile_ren_1_svc(nullptr, text("Q"), nullptr); });
  expectLogicError([] { rpc_l2cp_profile_get_ports_1_svc(nullptr, nullptr); });
  expectLogicError([] { rpc_l2cp_profile_get_use_1_svc(nullptr, nullptr); });
  expectLogicError([] { rpc_l2cp_profile_edit_1_svc(nullptr, nullptr); });
  expectLogicError([] { rpc_l2cp_profile_copy_1_svc(nullptr, text("Q"), nullptr); });
  expectLogicError([] { rpc_l2cp_profile_on_exit_1_svc(text("P"), nullptr, nullptr); });
}

// ---- Life of results ----

TEST_F(Handlers, ResultsStandAlwaysAtTheSamePlace) {
  addProfile("P");
  addEntry("P", "LLDP", 0);
  attach("P", 3, 100);
  EXPECT_EQ(rpc_l2cp_proto_get_1_svc(0, nullptr), rpc_l2cp_proto_get_1_svc(14, nullptr));
  EXPECT_EQ(rpc_l2cp_proto_get_all_1_svc(nullptr), rpc_l2cp_proto_get_all_1_svc(nullptr));
  EXPECT_EQ(rpc_l2cp_proto_del_1_svc(text("CDP"), nullptr),
            rpc_l2cp_proto_del_1_svc(text("CDP"), nullptr));
  EXPECT_EQ(rpc_l2cp_profile_get_1_svc(0, nullptr), rpc_l2cp_profile_get_1_svc(1, nullptr));
  EXPECT_EQ(rpc_l2cp_profile_get_all_1_svc(nullptr), rpc_l2cp_profile_get_all_1_svc(nullptr));
  EXPECT_EQ(rpc_l2cp_profile_proto_get_1_svc(text("P"), 0, nullptr),
            rpc_l2cp_profile_proto_get_1_svc(text("P"), 0, nullptr));
  EXPECT_EQ(rpc_l2cp_profile_proto_get_all_1_svc(text("P"), nullptr),
            rpc_l2cp_profile_proto_get_all_1_svc(text("P"), nullptr));
  EXPECT_EQ(rpc_l2cp_profile_port_get_1_svc(3, 0, nullptr),
            rpc_l2cp_profile_port_get_1_svc(3, 0, nullptr));
  EXPECT_EQ(rpc_l2cp_profile_get_ports_1_svc(text("P"), nullptr),
            rpc_l2cp_profile_get_ports_1_svc(text("Q"), nullptr));
  EXPECT_EQ(rpc_l2cp_profile_get_use_1_svc(text("P"), nullptr),
            rpc_l2cp_profile_get_use_1_svc(text("Q"), nullptr));
  EXPECT_EQ(rpc_l2cp_profile_port_get_all_1_svc(3, nullptr),
            rpc_l2cp_profile_port_get_all_1_svc(4, nullptr));
  EXPECT_EQ(rpc_l2cp_profile_edit_1_svc(text("P"), nullptr),
            rpc_l2cp_profile_edit_1_svc(text("Q"), nullptr));
  EXPECT_EQ(rpc_l2cp_port_stat_1_svc(3, nullptr), rpc_l2cp_port_stat_1_svc(4, nullptr));
}

TEST_F(Handlers, EveryProcedureHasItsOwnResult) {
  Mac mac(6);
  rpc_l2cp_proto proto{};
  proto.name = text("A");
  rpc_l2cp_profile profile{};
  profile.name = text("P");
  const std::vector<const void*> results{
      rpc_l2cp_proto_add_1_svc(proto, nullptr),
      rpc_l2cp_proto_del_1_svc(text("A"), nullptr),
      rpc_l2cp_proto_ren_1_svc(text("A"), text("B"), nullptr),
      rpc_l2cp_proto_get_1_svc(0, nullptr),
      rpc_l2cp_proto_get_all_1_svc(nullptr),
      rpc_l2cp_proto_set_protect_1_svc(text("A"), TRUE, nullptr),
      rpc_l2cp_proto_set_mac_1_svc(text("A"), wireMac(mac), nullptr),
      rpc_l2cp_proto_set_ether_type_1_svc(text("A"), 0, nullptr),
      rpc_l2cp_proto_set_sub_type_1_svc(text("A"), 0, nullptr),
      rpc_l2cp_proto_stat_1_svc(text("A"), nullptr),
      rpc_l2cp_profile_add_1_svc(profile, nullptr),
      rpc_l2cp_profile_del_1_svc(text("P"), nullptr),
      rpc_l2cp_profile_ren_1_svc(text("P"), text("P"), nullptr),
      rpc_l2cp_profile_get_1_svc(0, nullptr),
      rpc_l2cp_profile_get_all_1_svc(nullptr),
      rpc_l2cp_profile_get_ports_1_svc(text("P"), nullptr),
      rpc_l2cp_profile_get_use_1_svc(text("P"), nullptr),
      rpc_l2cp_profile_set_dynamic_1_svc(text("P"), TRUE, nullptr),
      rpc_l2cp_profile_set_protect_1_svc(text("P"), TRUE, nullptr),
      rpc_l2cp_profile_stat_1_svc(text("P"), nullptr),
      rpc_l2cp_profile_proto_add_1_svc(text("P"), text("A"), RPC_L2CP_RULE_PEER, nullptr),
      rpc_l2cp_profile_proto_del_1_svc(text("P"), text("A"), nullptr),
      rpc_l2cp_profile_proto_get_1_svc(text("P"), 0, nullptr),
      rpc_l2cp_profile_proto_get_all_1_svc(text("P"), nullptr),
      rpc_l2cp_profile_proto_set_1_svc(text("P"), text("A"), RPC_L2CP_RULE_PEER, nullptr),
      rpc_l2cp_profile_proto_del_all_1_svc(text("P"), nullptr),
      rpc_l2cp_profile_port_attach_1_svc(text("P"), 3, 100, nullptr),
      rpc_l2cp_profile_port_detach_1_svc(text("P"), 3, 100, nullptr),
      rpc_l2cp_profile_port_get_1_svc(3, 0, nullptr),
      rpc_l2cp_profile_port_get_all_1_svc(3, nullptr),
      rpc_l2cp_profile_edit_1_svc(text("P"), nullptr),
      rpc_l2cp_profile_copy_1_svc(text("P"), text("P"), nullptr),
      rpc_l2cp_profile_on_exit_1_svc(text("P"), text("P"), nullptr),
      rpc_l2cp_port_stat_1_svc(3, nullptr),
      rpc_l2cp_vlan_stat_1_svc(100, nullptr),
      rpc_l2cp_profile_status_1_svc(text("P"), nullptr)};
  EXPECT_EQ(std::set(results.begin(), results.end()).size(), results.size());
}

TEST_F(Handlers, ErrorOfOneProcedureSurvivesThatOfAnother) {
  const auto* del = rpc_l2cp_proto_del_1_svc(text("nobody"), nullptr);
  EXPECT_EQ(*del, RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(*rpc_l2cp_profile_del_1_svc(text("nobody"), nullptr), RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  EXPECT_EQ(*del, RPC_L2CP_ERR_PROTO_NOT_FOUND);
}

TEST_F(Handlers, ResultsSurviveCallsOfOtherProcedures) {
  const rpc_l2cp_proto* result = rpc_l2cp_proto_get_1_svc(0, nullptr);
  rpc_l2cp_proto_get_all_1_svc(nullptr);
  rpc_l2cp_profile_get_1_svc(0, nullptr);
  EXPECT_STREQ(result->name, "All-Bridges");
}

// ---- Statistics ----

struct Counters {
  u_int total, discard, peer, tunnel;
  int error;

  bool operator==(const Counters&) const = default;
};

void PrintTo(const Counters& counters, std::ostream* out) {
  *out << "total " << counters.total << ", discard " << counters.discard << ", peer "
       << counters.peer << ", tunnel " << counters.tunnel << ", error " << counters.error;
}

Counters read(const rpc_l2cp_counters* wire) {
  return {wire->total, wire->discard, wire->peer, wire->tunnel, wire->error};
}

class Statistics : public Handlers {
 protected:
  /// Gives the counter of that full name a value.
  static void count(const char* fullName, std::uint64_t value) {
    char shortName[40];
    classifier().counters[entity().GetName(fullName, shortName, nullptr)] = value;
  }
  static void refuse() { classifier().refuseAll(ACL_GET_COUNTER, ENOENT); }
};

TEST_F(Statistics, CountersOfAPortGoToTheirPlaces) {
  count("l2cpPort3peer", 1);
  count("l2cpPort3tunnel", 20);
  count("l2cpPort3discard", 300);
  EXPECT_EQ(read(rpc_l2cp_port_stat_1_svc(3, nullptr)), (Counters{321, 300, 1, 20, 0}));
}

TEST_F(Statistics, CountersOfAVlanGoToTheirPlaces) {
  count("l2cpVlan100peer", 1);
  count("l2cpVlan100tunnel", 20);
  count("l2cpVlan100discard", 300);
  EXPECT_EQ(read(rpc_l2cp_vlan_stat_1_svc(100, nullptr)), (Counters{321, 300, 1, 20, 0}));
}

TEST_F(Statistics, SumWrapsAround) {
  count("l2cpPort3peer", 0xffffffff);
  count("l2cpPort3tunnel", 0xffffffff);
  count("l2cpPort3discard", 5);
  EXPECT_EQ(read(rpc_l2cp_port_stat_1_svc(3, nullptr)),
            (Counters{3, 5, 0xffffffff, 0xffffffff, 0}));
}

TEST_F(Statistics, CountersAreTheirLowerHalves) {
  count("l2cpPort3peer", 0x100000007);
  EXPECT_EQ(read(rpc_l2cp_port_stat_1_svc(3, nullptr)), (Counters{7, 0, 7, 0, 0}));
}

TEST_F(Statistics, FailureKeepsTheCountersOfTheLastSuccess) {
  count("l2cpPort3peer", 1);
  count("l2cpPort3tunnel", 20);
  count("l2cpPort3discard", 300);
  count("l2cpVlan100peer", 4);
  rpc_l2cp_port_stat_1_svc(3, nullptr);
  rpc_l2cp_vlan_stat_1_svc(100, nullptr);
  refuse();
  EXPECT_EQ(read(rpc_l2cp_port_stat_1_svc(4, nullptr)), (Counters{321, 300, 1, 20, 9}));
  EXPECT_EQ(read(rpc_l2cp_port_stat_1_svc(5, nullptr)), (Counters{321, 300, 1, 20, 9}));
  EXPECT_EQ(read(rpc_l2cp_vlan_stat_1_svc(5, nullptr)), (Counters{4, 0, 4, 0, 9}));
  classifier().refusal = nullptr;
  EXPECT_EQ(read(rpc_l2cp_port_stat_1_svc(4, nullptr)), (Counters{0, 0, 0, 0, 0}));
}

TEST_F(Statistics, FailureOfTheLastReadKeepsAllCounters) {
  count("l2cpPort3peer", 1);
  rpc_l2cp_port_stat_1_svc(3, nullptr);
  count("l2cpPort3peer", 2);
  classifier().requests.clear();
  classifier().refuseAt(2, ENOENT);
  EXPECT_EQ(read(rpc_l2cp_port_stat_1_svc(3, nullptr)), (Counters{1, 0, 1, 0, 9}));
}

TEST_F(Statistics, ProtocolsAndProfilesHaveNoReadableCounters) {
  addProfile("P");
  EXPECT_EQ(read(rpc_l2cp_proto_stat_1_svc(text("LLDP"), nullptr)), (Counters{0, 0, 0, 0, 9}));
  EXPECT_EQ(read(rpc_l2cp_proto_stat_1_svc(text("nobody"), nullptr)), (Counters{0, 0, 0, 0, 3}));
  EXPECT_EQ(read(rpc_l2cp_profile_stat_1_svc(text("P"), nullptr)), (Counters{0, 0, 0, 0, 9}));
  EXPECT_EQ(read(rpc_l2cp_profile_stat_1_svc(text("Q"), nullptr)), (Counters{0, 0, 0, 0, 11}));
}

// Each of the three reads finds the nameless counter with the next value.
void countNameless(u_int peer, u_int tunnel, u_int discard) {
  auto& classifier = support::RecordingClassifier::instance();
  classifier.refusal = [&classifier, values = std::vector{discard, tunnel, peer}](
                           const support::Request& request) mutable {
    if (request.code != ACL_GET_COUNTER || values.empty()) return ENOENT;
    classifier.counters[""] = values.back();
    values.pop_back();
    return 0;
  };
}

TEST_F(Statistics, ProtocolsHaveThoseOfANamelessCounterAndAFailureKeepsThem) {
  const auto stat = [](const char* name) {
    return read(rpc_l2cp_proto_stat_1_svc(text(name), nullptr));
  };
  countNameless(1, 20, 300);
  EXPECT_EQ(stat("LLDP"), (Counters{321, 300, 1, 20, 0}));
  refuse();
  EXPECT_EQ(stat("LLDP"), (Counters{321, 300, 1, 20, 9}));
  EXPECT_EQ(stat("nobody"), (Counters{321, 300, 1, 20, 3}));
  countNameless(0xffffffff, 0xffffffff, 5);
  EXPECT_EQ(stat("LLDP"), (Counters{3, 5, 0xffffffff, 0xffffffff, 0}));
}

TEST_F(Statistics, ProfilesHaveThoseOfANamelessCounterAndAFailureKeepsThem) {
  addProfile("P");
  const auto stat = [](const char* name) {
    return read(rpc_l2cp_profile_stat_1_svc(text(name), nullptr));
  };
  countNameless(1, 20, 300);
  EXPECT_EQ(stat("P"), (Counters{321, 300, 1, 20, 0}));
  refuse();
  EXPECT_EQ(stat("P"), (Counters{321, 300, 1, 20, 9}));
  EXPECT_EQ(stat("Q"), (Counters{321, 300, 1, 20, 11}));
  countNameless(0xffffffff, 0xffffffff, 5);
  EXPECT_EQ(stat("P"), (Counters{3, 5, 0xffffffff, 0xffffffff, 0}));
}

// ---- Locks ----

TEST_F(Handlers, ServeWhileSomebodyHoldsTheConfigurationLock) {
  addProfile("P");
  const BLLManager::exclusiveLock_t lock;
  ASSERT_TRUE(lock);
  // Whoever asks for the lock waits at least so long. On a busy machine a call may take as long by
  // itself, but hardly each time.
  const auto shortest = [](const std::function<void(u_short)>& call) {
    auto result = std::chrono::steady_clock::duration::max();
    for (u_short round = 1; round <= 3; ++round) {
      const auto begin = std::chrono::steady_clock::now();
      call(round);
      result = std::min(result, std::chrono::steady_clock::now() - begin);
    }
    return result;
  };
  EXPECT_LT(shortest([](u_short) {
              EXPECT_EQ(rpc_l2cp_proto_get_1_svc(0, nullptr)->error, RPC_L2CP_OK);
            }),
            BLLManager::Host::lockWait);
  EXPECT_LT(shortest([](u_short) {
              EXPECT_EQ(rpc_l2cp_profile_get_all_1_svc(nullptr)->error, RPC_L2CP_OK);
            }),
            BLLManager::Host::lockWait);
  EXPECT_LT(shortest([](u_short vid) { EXPECT_EQ(attach("P", 3, vid), RPC_L2CP_OK); }),
            BLLManager::Host::lockWait);
}

// ---- Errors ----

TEST_F(Handlers, RefusalsOfTheEntityAreMapped) {
  EXPECT_EQ(addProto("LLDP", Mac(6)), RPC_L2CP_ERR_PROTO_EXISTS);
  EXPECT_EQ(addProto(std::string(31, 'n').c_str(), Mac(6)), RPC_L2CP_ERR_INVALID);
  EXPECT_EQ(*rpc_l2cp_proto_ren_1_svc(text("LLDP"), text("nobody"), nullptr),
            RPC_L2CP_ERR_PROTO_IN_USE);
  EXPECT_EQ(*rpc_l2cp_proto_ren_1_svc(text("nobody"), text("LLDP"), nullptr),
            RPC_L2CP_ERR_PROTO_NOT_FOUND);
  EXPECT_EQ(*rpc_l2cp_proto_ren_1_svc(text("LLDP"), text("CDP"), nullptr), RPC_L2CP_OK);
  EXPECT_EQ(addProfile("P"), RPC_L2CP_OK);
  EXPECT_EQ(addProfile("P"), RPC_L2CP_ERR_PROFILE_EXISTS);
  EXPECT_EQ(attach("P", 3, 100), RPC_L2CP_OK);
  EXPECT_EQ(attach("P", 3, 100), RPC_L2CP_ERR_FAILED);
  EXPECT_EQ(*rpc_l2cp_profile_status_1_svc(text("P"), nullptr), RPC_L2CP_ERR_PROFILE_IN_USE);
  EXPECT_EQ(*rpc_l2cp_profile_del_1_svc(text("P"), nullptr), RPC_L2CP_ERR_PROFILE_IN_USE);
  EXPECT_EQ(addEntry("P", "LLDP", 0), RPC_L2CP_ERR_PROFILE_IN_USE);
  EXPECT_EQ(*rpc_l2cp_profile_proto_del_all_1_svc(text("P"), nullptr), RPC_L2CP_ERR_PROFILE_IN_USE);
  EXPECT_EQ(*rpc_l2cp_profile_port_detach_1_svc(text("P"), 3, 101, nullptr),
            RPC_L2CP_ERR_DETACH_REFUSED);
  EXPECT_EQ(*rpc_l2cp_profile_port_detach_1_svc(text("P"), 4, 100, nullptr),
            RPC_L2CP_ERR_PROTO_NOT_FOUND);
}

}  // namespace
