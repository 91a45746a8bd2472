/// What messages of the kernel say about interfaces.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "classifier/xdp/netlink.h"

namespace {

using classifier::xdp::Link;
using classifier::xdp::linkOf;
using Bytes = std::vector<std::byte>;

void append(Bytes& bytes, const void* data, std::size_t size) {
  const auto* begin = static_cast<const std::byte*>(data);
  bytes.insert(bytes.end(), begin, begin + size);
  bytes.resize((bytes.size() + 3) / 4 * 4);
}

Bytes nested(std::uint16_t type, std::span<const std::byte> contents) {
  const nlattr head{.nla_len = static_cast<std::uint16_t>(sizeof head + contents.size()),
                    .nla_type = type};
  Bytes bytes;
  append(bytes, &head, sizeof head);
  append(bytes, contents.data(), contents.size());
  return bytes;
}
/// A number, or a text with the zero behind it.
template <class Value>
Bytes attribute(std::uint16_t type, const Value& value) {
  return nested(type, std::as_bytes(std::span(&value, 1)));
}

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes message(const Bytes& attributes) {
  ifinfomsg fixed{};
  fixed.ifi_index = 7;
  Bytes bytes;
  append(bytes, &fixed, sizeof fixed);
  return bytes + attributes;
}

Bytes bridge(bool filtersVlans, std::uint16_t tag, std::uint8_t ownGroup) {
  const std::array<std::uint8_t, ETH_ALEN> address = {0x01, 0x80, 0xc2, 0, 0, ownGroup};
  return message(nested(
      IFLA_LINKINFO,
      attribute(IFLA_INFO_KIND, "bridge") +
          nested(IFLA_INFO_DATA, attribute(IFLA_BR_GROUP_FWD_MASK, std::uint16_t{0x4000}) +
                                     attribute(IFLA_BR_VLAN_FILTERING, std::uint8_t{filtersVlans}) +
                                     attribute(IFLA_BR_GROUP_ADDR, address) +
                                     attribute(IFLA_BR_VLAN_PROTOCOL, htons(tag)))));
}

Bytes bridgePort() {
  return message(attribute(IFLA_IFNAME, "p7") + attribute(IFLA_MTU, std::uint32_t{1500}) +
                 attribute(IFLA_MASTER, std::uint32_t{3}) +
                 nested(IFLA_LINKINFO, attribute(IFLA_INFO_SLAVE_KIND, "bridge") +
                                           nested(IFLA_INFO_SLAVE_DATA,
                                                  attribute(IFLA_BRPORT_STATE,
                                                            std::uint8_t{BR_STATE_FORWARDING}))));
}

TEST(LinkOf, ABridgesPortHasItsBridgeAndWhetherItForwards) {
  const Link link = linkOf(bridgePort());
  EXPECT_EQ(link.number, 7U);
  EXPECT_EQ(link.name, "p7");
  EXPECT_EQ(link.mtu, 1500U);
  EXPECT_EQ(link.bridge, 3U);
  EXPECT_TRUE(link.forwards);
}

TEST(LinkOf, WhatBelongsToSomethingElseIsInNoBridge) {
  const Link link = linkOf(message(attribute(IFLA_MASTER, std::uint32_t{3}) +
                                   nested(IFLA_LINKINFO, attribute(IFLA_INFO_SLAVE_KIND, "bond"))));
  EXPECT_EQ(link.bridge, 0U);
  EXPECT_FALSE(link.forwards);
}

TEST(LinkOf, ABridgeForwardsTheGroupsThatItIsTold) {
  EXPECT_EQ(linkOf(bridge(true, ETH_P_8021Q, 0)).forwardedGroups, 0x4000);
  EXPECT_EQ(linkOf(bridge(false, ETH_P_8021AD, 0)).forwardedGroups, 0x4000);
}

TEST(LinkOf, AProviderBridgeForwardsTheGroupsOfItsCustomersToo) {
  EXPECT_EQ(linkOf(bridge(true, ETH_P_8021AD, 8)).forwardedGroups, 0xf801);
  EXPECT_EQ(linkOf(bridge(true, ETH_P_8021AD, 0)).forwardedGroups, 0xf800);
}

TEST(LinkOf, NothingIsReadBehindTheEndOfAMessage) {
  for (const Bytes& whole : {bridge(true, ETH_P_8021AD, 8), bridgePort()}) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_FALSE(linkOf(cut).forwards);
      EXPECT_EQ(linkOf(cut).forwardedGroups, 0);
    }
  }
}

}  // namespace
