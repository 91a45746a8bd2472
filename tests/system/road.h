#pragma once

/// Clients of a real daemon, and frames to see what it makes of them.

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/frame_builder.h"
#include "tests/system/control.h"
#include "tests/system/fixture.h"
#include "tests/system/service.h"

namespace frames {

using support::Bytes;
using support::FrameBuilder;

inline constexpr support::Mac station{0x02, 0, 0, 0, 0, 1};
inline constexpr support::Mac other{0x02, 0, 0, 0, 0, 2};
inline constexpr support::Mac bridgeGroup{0x01, 0x80, 0xc2, 0, 0, 0x00};
inline constexpr support::Mac slowProtocols{0x01, 0x80, 0xc2, 0, 0, 0x02};
inline constexpr support::Mac nearestBridge{0x01, 0x80, 0xc2, 0, 0, 0x0e};

inline Bytes lldp(std::uint16_t vlan) {
  return FrameBuilder()
      .ethernet(nearestBridge, station)
      .tag(0x8100, vlan)
      .etherType(0x88cc)
      .bytes();
}
inline Bytes untaggedLldp() {
  return FrameBuilder().ethernet(nearestBridge, station).etherType(0x88cc).bytes();
}
inline Bytes lacp(std::uint16_t vlan, std::uint8_t subType = 1) {
  return FrameBuilder()
      .ethernet(slowProtocols, station)
      .tag(0x8100, vlan)
      .etherType(0x8809)
      .payload({subType, 1})
      .bytes();
}
inline Bytes stp(std::uint16_t vlan) {
  return FrameBuilder()
      .ethernet(bridgeGroup, station)
      .tag(0x8100, vlan)
      .length(7)
      .llc(0x42, 0x42, 0x03)
      .payload({0, 0, 2, 2})
      .bytes();
}
inline Bytes data(std::uint16_t vlan) {
  return FrameBuilder().ethernet(other, station).tag(0x8100, vlan).etherType(0x0800).bytes();
}

}  // namespace frames

class Road : public TransportTest {
 protected:
  void SetUp() override {
    TransportTest::SetUp();
    if (IsSkipped()) return;
    service_ = std::make_unique<client::Service>(GetParam());
    control_ = std::make_unique<client::Control>(GetParam());
  }
  void TearDown() override {
    service_.reset();
    control_.reset();
    TransportTest::TearDown();
  }

  const client::Service& service() { return *service_; }
  const client::Control& control() { return *control_; }

  /// Discards LLDP, peers LACP, tunnels the spanning tree.
  void makeProfile(const char* name) {
    ASSERT_EQ(service().profileAdd({.name = name}), RPC_L2CP_OK);
    ASSERT_EQ(service().entryAdd(name, "LLDP", RPC_L2CP_RULE_DISCARD), RPC_L2CP_OK);
    ASSERT_EQ(service().entryAdd(name, "LACP-LAMP", RPC_L2CP_RULE_PEER), RPC_L2CP_OK);
    ASSERT_EQ(service().entryAdd(name, "xSTP", RPC_L2CP_RULE_TUNNEL), RPC_L2CP_OK);
  }

  /// The full names that "l2cp_dump" shows, by their short names.
  std::map<std::string, std::string> fullNames() {
    const long before = rules();
    control().message("l2cp_dump", "");
    // Everything is in the log when the rule behind the last line is.
    support::eventually([&] { return rules() == before + 2; });
    std::map<std::string, std::string> names;
    for (const std::string& line : world().systemLog().all()) {
      const auto begin = line.find(" l2cp:0x");
      if (begin == std::string::npos) continue;
      const auto end = line.find(' ', begin + 1);
      names[line.substr(begin + 1, end - begin - 1)] = line.substr(end + 1);
    }
    return names;
  }

  std::vector<std::string> fullNamesOf(const std::vector<std::string>& shortNames) {
    const auto names = fullNames();
    std::vector<std::string> result;
    for (const std::string& name : shortNames) result.push_back(names.at(name));
    return result;
  }

 private:
  long rules() {
    const auto lines = world().systemLog().all();
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.ends_with("---------------------------------------------------");
    });
  }

  std::unique_ptr<client::Service> service_;
  std::unique_ptr<client::Control> control_;
};
