#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "l2cp/l2cp.h"

namespace {

using Protocol = L2CP::Protocol;
using Profile = L2CP::Profile;
using Rule = L2CP::Rule;

constexpr unsigned char address[6] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x30};
constexpr unsigned char mask[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xf0};
constexpr unsigned char noBytes[6] = {};
constexpr unsigned char allBytes[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

bool sameMac(const unsigned char (&left)[6], const unsigned char (&right)[6]) {
  return std::equal(std::begin(left), std::end(left), std::begin(right));
}

void expectSame(const Protocol& left, const Protocol& right) {
  EXPECT_EQ(left.name, right.name);
  EXPECT_EQ(left.protect, right.protect);
  EXPECT_TRUE(sameMac(left.mac, right.mac));
  EXPECT_TRUE(sameMac(left.macMask, right.macMask));
  EXPECT_EQ(left.etherType, right.etherType);
  EXPECT_EQ(left.subType, right.subType);
  EXPECT_EQ(left.useCount, right.useCount);
}

Protocol usedProtocol() {
  Protocol proto("OAM", true, address, mask, 0x8902, 0x07);
  proto.useCount = 5;
  return proto;
}

// A profile of which every field differs from a new one's.
Profile appliedProfile(const std::shared_ptr<Protocol>& proto) {
  Profile profile("gold", true, true);
  profile.useCount = 3;
  profile.protocols[proto] = Rule::tunnel;
  profile.interfaces = {4, 9};
  return profile;
}

// ---- Protocols ----

TEST(Protocol, DefaultHasAFullMaskButEtherTypeAndSubtypeZero) {
  const Protocol proto;
  EXPECT_EQ(proto.name, "");
  EXPECT_FALSE(proto.protect);
  EXPECT_TRUE(sameMac(proto.mac, noBytes));
  EXPECT_TRUE(sameMac(proto.macMask, allBytes));
  EXPECT_EQ(proto.etherType, 0);
  EXPECT_EQ(proto.subType, 0);
  EXPECT_EQ(proto.useCount, 0U);
}

TEST(Protocol, TakesWhatItIsMadeFromAndIsNotUsedYet) {
  const Protocol proto("OAM", true, address, mask, 0x8902, 0x07);
  EXPECT_EQ(proto.name, "OAM");
  EXPECT_TRUE(proto.protect);
  EXPECT_TRUE(sameMac(proto.mac, address));
  EXPECT_TRUE(sameMac(proto.macMask, mask));
  EXPECT_EQ(proto.etherType, 0x8902);
  EXPECT_EQ(proto.subType, 0x07);
  EXPECT_EQ(proto.useCount, 0U);
}

TEST(Protocol, ANullNameIsTheEmptyOne) {
  EXPECT_EQ(Protocol(nullptr, false, address, mask, 0, 0).name, "");
}

TEST(Protocol, CopyHasEveryFieldAndTheUseCount) {
  const Protocol source = usedProtocol();
  const Protocol copy(source);  // NOLINT(performance-unnecessary-copy-initialization)
  expectSame(copy, source);
}

TEST(Protocol, AssignmentTakesEveryFieldAndTheUseCount) {
  Protocol target("old", false, noBytes, allBytes, 1, 2);
  target = usedProtocol();
  expectSame(target, usedProtocol());
}

TEST(Protocol, AssignmentToItselfChangesNothing) {
  Protocol proto = usedProtocol();
  const Protocol& itself = proto;
  proto = itself;
  expectSame(proto, usedProtocol());
}

// ---- Profiles ----

TEST(Profile, DefaultIsEmpty) {
  const Profile profile;
  EXPECT_EQ(profile.name, "");
  EXPECT_EQ(profile.useCount, 0U);
  EXPECT_TRUE(profile.protocols.empty());
  EXPECT_TRUE(profile.interfaces.empty());
  EXPECT_FALSE(profile.protect);
  EXPECT_FALSE(profile.dynamic);
}

TEST(Profile, StoresBothFlagsAsGiven) {
  for (const bool protect : {false, true}) {
    for (const bool dynamic : {false, true}) {
      const Profile profile("gold", protect, dynamic);
      EXPECT_EQ(profile.name, "gold");
      EXPECT_EQ(profile.useCount, 0U);
      EXPECT_TRUE(profile.protocols.empty());
      EXPECT_TRUE(profile.interfaces.empty());
      EXPECT_EQ(profile.protect, protect);
      EXPECT_EQ(profile.dynamic, dynamic);
    }
  }
}

TEST(Profile, ANullNameIsTheEmptyOne) { EXPECT_EQ(Profile(nullptr, false, false).name, ""); }

TEST(Profile, CopyOfAnAppliedProfileIsAppliedNowhere) {
  const auto proto = std::make_shared<Protocol>();
  const Profile source = appliedProfile(proto);
  ASSERT_EQ(source.interfaces.size(), 2U);
  const Profile copy(source);
  EXPECT_EQ(copy.name, "gold");
  EXPECT_EQ(copy.useCount, 3U);
  EXPECT_EQ(copy.protocols, source.protocols);
  EXPECT_TRUE(copy.protect);
  EXPECT_TRUE(copy.dynamic);
  EXPECT_TRUE(copy.interfaces.empty());
}

TEST(Profile, AssignmentTakesEverythingButKeepsTheTargetsInterfaces) {
  const auto proto = std::make_shared<Protocol>();
  const auto replaced = std::make_shared<Protocol>();
  const Profile source = appliedProfile(proto);
  Profile target("old", false, false);
  target.protocols[replaced] = Rule::peer;
  target.interfaces = {17};
  target = source;
  EXPECT_EQ(target.name, "gold");
  EXPECT_EQ(target.useCount, 3U);
  EXPECT_EQ(target.protocols, source.protocols);
  EXPECT_TRUE(target.protect);
  EXPECT_TRUE(target.dynamic);
  EXPECT_EQ(target.interfaces, (std::set<unsigned int>{17}));
}

TEST(Profile, AssignmentOfAnUnappliedProfileKeepsTheTargetsInterfacesToo) {
  Profile target("old", false, false);
  target.interfaces = {17, 18};
  target = Profile("new", true, false);
  EXPECT_EQ(target.interfaces, (std::set<unsigned int>{17, 18}));
}

TEST(Profile, AssignmentToItselfChangesNothing) {
  const auto proto = std::make_shared<Protocol>();
  Profile profile = appliedProfile(proto);
  const Profile& itself = profile;
  profile = itself;
  EXPECT_EQ(profile.name, "gold");
  EXPECT_EQ(profile.useCount, 3U);
  EXPECT_EQ(profile.protocols.at(proto), Rule::tunnel);
  EXPECT_EQ(profile.interfaces, (std::set<unsigned int>{4, 9}));
  EXPECT_TRUE(profile.protect);
  EXPECT_TRUE(profile.dynamic);
}

TEST(Profile, EqualityGoesByTheNameAlone) {
  const Profile empty("a", false, false);
  Profile full("a", true, true);
  full.protocols[std::make_shared<Protocol>()] = Rule::peer;
  full.useCount = 1;
  EXPECT_TRUE(empty == full);
  EXPECT_FALSE(empty != full);
  const Profile upperCase("A", false, false);
  EXPECT_FALSE(empty == upperCase);
  EXPECT_TRUE(empty != upperCase);
  EXPECT_FALSE(empty == Profile("a ", false, false));
}

TEST(Profile, EqualityLooksBehindANulByte) {
  Profile left;
  Profile right;
  left.name = std::string("a\0b", 3);
  right.name = std::string("a\0c", 3);
  EXPECT_FALSE(left == right);
}

struct FlagRow {
  std::pair<bool, bool> before;  // protect, dynamic
  void (Profile::*set)(bool);
  bool value;
  std::pair<bool, bool> after;
};

class ProfileFlags : public testing::TestWithParam<FlagRow> {};

TEST_P(ProfileFlags, AreCoupled) {
  const FlagRow& row = GetParam();
  Profile profile("p", row.before.first, row.before.second);
  (profile.*row.set)(row.value);
  EXPECT_EQ(std::make_pair(profile.protect, profile.dynamic), row.after);
}

constexpr std::pair<bool, bool> none{false, false};
constexpr std::pair<bool, bool> dynamicOnly{false, true};
constexpr std::pair<bool, bool> protectOnly{true, false};
constexpr std::pair<bool, bool> both{true, true};

INSTANTIATE_TEST_SUITE_P(
    SetProtect, ProfileFlags,
    testing::Values(FlagRow{none, &Profile::setProtect, false, none},
                    FlagRow{dynamicOnly, &Profile::setProtect, false, dynamicOnly},
                    FlagRow{protectOnly, &Profile::setProtect, false, none},
                    FlagRow{both, &Profile::setProtect, false, none},
                    FlagRow{none, &Profile::setProtect, true, protectOnly},
                    FlagRow{dynamicOnly, &Profile::setProtect, true, both},
                    FlagRow{protectOnly, &Profile::setProtect, true, protectOnly},
                    FlagRow{both, &Profile::setProtect, true, both}));

INSTANTIATE_TEST_SUITE_P(
    SetDynamic, ProfileFlags,
    testing::Values(FlagRow{none, &Profile::setDynamic, false, none},
                    FlagRow{dynamicOnly, &Profile::setDynamic, false, none},
                    FlagRow{protectOnly, &Profile::setDynamic, false, protectOnly},
                    FlagRow{both, &Profile::setDynamic, false, protectOnly},
                    FlagRow{none, &Profile::setDynamic, true, both},
                    FlagRow{dynamicOnly, &Profile::setDynamic, true, dynamicOnly},
                    FlagRow{protectOnly, &Profile::setDynamic, true, both},
                    FlagRow{both, &Profile::setDynamic, true, both}));

// ---- Rules, statistics, constants ----

TEST(Rule, NumbersAreThoseThatTravelOverRpc) {
  EXPECT_EQ(sizeof(Rule), 4U);
  EXPECT_EQ(static_cast<unsigned int>(Rule::discard), 0U);
  EXPECT_EQ(static_cast<unsigned int>(Rule::peer), 1U);
  EXPECT_EQ(static_cast<unsigned int>(Rule::tunnel), 2U);
}

TEST(Rule, ThreeIsUnknown) { EXPECT_STREQ(L2CP::rule2str(static_cast<Rule>(3)), "unknown"); }

TEST(Statistics, CountPeerTunnelAndDiscardInThatOrderFromZero) {
  const L2CP::Statistics zero;
  EXPECT_EQ(zero.peer, 0U);
  EXPECT_EQ(zero.tunnel, 0U);
  EXPECT_EQ(zero.discard, 0U);
  const L2CP::Statistics stats{1, 2, 3};
  EXPECT_EQ(stats.peer, 1U);
  EXPECT_EQ(stats.tunnel, 2U);
  EXPECT_EQ(stats.discard, 3U);
}

TEST(Constants, TextsAreThoseOfKernelObjects) {
  EXPECT_STREQ(L2CP::m_selector_true, "true");
  EXPECT_STREQ(L2CP::m_action_list_drop, "drop");
  EXPECT_STREQ(L2CP::m_action_list_hide, "l2cp:hide");
  EXPECT_STREQ(L2CP::m_action_list_tunnel, "l2cp:tunnel");
  EXPECT_STREQ(L2CP::m_rule_discard, "discard");
  EXPECT_STREQ(L2CP::m_rule_tunnel, "tunnel");
  EXPECT_STREQ(L2CP::m_rule_peer, "peer");
  EXPECT_STREQ(L2CP::m_counter_profile_mask, "l2cpProfi%s%s");
  EXPECT_STREQ(L2CP::m_counter_proto_mask, "l2cpProto%s%s");
  EXPECT_STREQ(L2CP::m_counter_port_mask, "l2cpPort%d%s");
  EXPECT_STREQ(L2CP::m_counter_vlan_mask, "l2cpVlan%d%s");
  EXPECT_STREQ(L2CP::m_acl_mask, "l2cp%s:%02d%03x");
}

TEST(Constants, ArraysHaveRoomForTheirTextsAndNoMore) {
  EXPECT_EQ(sizeof(L2CP::m_selector_true), 5U);
  EXPECT_EQ(sizeof(L2CP::m_action_list_drop), 5U);
  EXPECT_EQ(sizeof(L2CP::m_action_list_hide), 10U);
  EXPECT_EQ(sizeof(L2CP::m_action_list_tunnel), 12U);
  EXPECT_EQ(sizeof(L2CP::m_rule_discard), 8U);
  EXPECT_EQ(sizeof(L2CP::m_rule_tunnel), 7U);
  EXPECT_EQ(sizeof(L2CP::m_rule_peer), 5U);
  EXPECT_EQ(sizeof(L2CP::m_counter_profile_mask), 14U);
  EXPECT_EQ(sizeof(L2CP::m_counter_proto_mask), 14U);
  EXPECT_EQ(sizeof(L2CP::m_counter_port_mask), 13U);
  EXPECT_EQ(sizeof(L2CP::m_counter_vlan_mask), 13U);
  EXPECT_EQ(sizeof(L2CP::m_acl_mask), 16U);
}

TEST(Constants, NumbersAndAddressesMarkWhatIsAbsent) {
  EXPECT_EQ(L2CP::m_noIndexAvailable, 300U);
  EXPECT_EQ(L2CP::m_max_proto_len, 30U);
  EXPECT_EQ(L2CP::m_subTypeMask, 0xff);
  EXPECT_EQ(L2CP::m_noSubType, 0xff);
  EXPECT_EQ(L2CP::m_noEtherType, 0xffff);
  EXPECT_TRUE(sameMac(L2CP::m_allMac, allBytes));
  EXPECT_TRUE(sameMac(L2CP::m_anyMac, noBytes));
}

}  // namespace
