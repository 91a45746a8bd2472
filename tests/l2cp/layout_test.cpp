// What modules and daemons built apart from each other rely on: the order of virtual operations,
// and the types and order of the fields of values.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "l2cp/l2cp.h"
#include "l2cp/scripter/l2cpScripter.h"

namespace {

// A pointer to a virtual member function begins with 1 plus the offset of its slot (Itanium C++
// ABI, 2.3).
template <class Pointer>
std::size_t slotOf(Pointer pointer) {
  static_assert(sizeof(pointer) >= sizeof(std::size_t));
  std::size_t word = 0;
  std::memcpy(&word, &pointer, sizeof(word));
  return (word - 1) / sizeof(void*);
}

TEST(Layout, EntityOperationsHaveTheirSlotsInOrder) {
  EXPECT_EQ(slotOf(&L2CP::applyConfiguration), 0U);
  EXPECT_EQ(slotOf(&L2CP::saveConfiguration), 1U);
  EXPECT_EQ(slotOf(&L2CP::start), 2U);
  EXPECT_EQ(slotOf(&L2CP::applyDefaultSettings), 3U);
  EXPECT_EQ(slotOf(&L2CP::stop), 4U);
  EXPECT_EQ(slotOf(&L2CP::getDependencies), 5U);
}

// The destructor has two slots, that for a complete object and that which frees its memory as well.
TEST(Layout, BehindEntityOperationsComeTheTwoDestructorsAndNothingElse) {
  struct FurtherEntity : BLEntity {
    virtual void next() {}
  };
  struct FurtherL2cp : L2CP {
    virtual void next() {}
  };
  static_assert(std::has_virtual_destructor_v<BLEntity>);
  EXPECT_EQ(slotOf(&FurtherEntity::next), 8U);
  EXPECT_EQ(slotOf(&FurtherL2cp::next), 8U);
}

// The two destructors come first.
TEST(Layout, ScripterWritesThroughItsThirdSlot) {
  EXPECT_EQ(slotOf(&L2CPScripter::buildCliCommands), 2U);
}

TEST(Layout, EntityIsAnEntityFirst) {
  L2CP entity;
  EXPECT_EQ(static_cast<void*>(static_cast<BLEntity*>(&entity)), static_cast<void*>(&entity));
}

TEST(Layout, ProtocolHasItsFieldsInOrder) {
  L2CP::Protocol proto;
  auto& [name, protect, mac, macMask, etherType, subType, useCount] = proto;
  EXPECT_EQ(&name, &proto.name);
  EXPECT_EQ(&protect, &proto.protect);
  EXPECT_EQ(&mac, &proto.mac);
  EXPECT_EQ(&macMask, &proto.macMask);
  EXPECT_EQ(&etherType, &proto.etherType);
  EXPECT_EQ(&subType, &proto.subType);
  EXPECT_EQ(&useCount, &proto.useCount);
  static_assert(sizeof(protect) == 1 && sizeof(etherType) == 2 && sizeof(subType) == 1 &&
                sizeof(useCount) == 4);
}

TEST(Layout, ProfileHasItsFieldsInOrder) {
  L2CP::Profile profile;
  auto& [name, useCount, protocols, interfaces, protect, dynamic] = profile;
  EXPECT_EQ(&name, &profile.name);
  EXPECT_EQ(&useCount, &profile.useCount);
  EXPECT_EQ(&protocols, &profile.protocols);
  EXPECT_EQ(&interfaces, &profile.interfaces);
  EXPECT_EQ(&protect, &profile.protect);
  EXPECT_EQ(&dynamic, &profile.dynamic);
  static_assert(sizeof(useCount) == 4 && sizeof(protect) == 1 && sizeof(dynamic) == 1);
}

TEST(Layout, StatisticsArePeerTunnelDiscard) {
  L2CP::Statistics stats;
  auto& [peer, tunnel, discard] = stats;
  EXPECT_EQ(&peer, &stats.peer);
  EXPECT_EQ(&tunnel, &stats.tunnel);
  EXPECT_EQ(&discard, &stats.discard);
}

TEST(Layout, SettingsAreProtocolsProfilesPorts) {
  L2CP::Settings settings;
  auto& [protocols, profiles, ports] = settings;
  EXPECT_EQ(&protocols, &settings.protocols);
  EXPECT_EQ(&profiles, &settings.profiles);
  EXPECT_EQ(&ports, &settings.ports);
}

TEST(Layout, ConstantsHaveTheirTypes) {
  static_assert(std::is_same_v<decltype(L2CP::m_noIndexAvailable), const unsigned int>);
  static_assert(std::is_same_v<decltype(L2CP::m_max_proto_len), const unsigned long>);
  static_assert(std::is_same_v<decltype(L2CP::m_noEtherType), const unsigned short>);
  static_assert(std::is_same_v<decltype(L2CP::m_noSubType), const unsigned char>);
  static_assert(std::is_same_v<decltype(L2CP::m_subTypeMask), const unsigned char>);
  static_assert(sizeof(L2CP::Rule) == 4);
  EXPECT_EQ(sizeof(L2CP::m_acl_mask), 16U);
}

}  // namespace
