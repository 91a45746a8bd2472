#include "cli/commands/overlap.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "cli/commands/entry.h"

namespace cli {
namespace {

/// An entry of conditions added one by one.
class Entry {
 public:
  Entry& vlan(unsigned lowest, unsigned highest) {
    control_condition condition{};
    condition.type = CONTROL_CONDITION_VLAN;
    condition.control_condition_u.vlan = {lowest, highest};
    conditions_.push_back(condition);
    return *this;
  }
  Entry& destination(const std::string& mac, const std::string& mask = std::string(6, '\xff')) {
    return masked(CONTROL_CONDITION_DESTINATION, mac, mask);
  }
  Entry& etherType(const std::string& type) {
    return masked(CONTROL_CONDITION_ETHER_TYPE, type, "\xff\xff");
  }
  Entry& payload(unsigned offset, const std::string& value, const std::string& mask = "\xff") {
    return masked(CONTROL_CONDITION_PAYLOAD, value, mask, offset);
  }

  const control_entry& get() {
    entry_.conditions = {static_cast<u_int>(conditions_.size()), conditions_.data()};
    return entry_;
  }
  const control_condition& only() const { return conditions_.front(); }

 private:
  Entry& masked(control_condition_type type, const std::string& value, const std::string& mask,
                unsigned offset = 0) {
    control_condition condition{};
    condition.type = type;
    condition.control_condition_u.bits = {field(value), field(mask), offset};
    conditions_.push_back(condition);
    return *this;
  }
  control_field field(const std::string& bytes) {
    bytes_.push_back(bytes);
    return {static_cast<u_int>(bytes.size()), bytes_.back().data()};
  }

  std::deque<std::string> bytes_;
  std::vector<control_condition> conditions_;
  control_entry entry_{};
};

bool covering(Entry other, Entry entry) { return covers(other.get(), entry.get()); }

const std::string lldp("\x01\x80\xc2\x00\x00\x0e", 6);
const std::string cfm("\x01\x80\xc2\x00\x00\x30", 6);
const std::string cfmMask("\xff\xff\xff\xff\xff\xf0", 6);

TEST(Overlap, OfAnEntryWithoutConditionsIsEverything) {
  EXPECT_TRUE(covering(Entry(), Entry().vlan(1, 1).destination(lldp)));
  EXPECT_TRUE(covering(Entry(), Entry()));
  EXPECT_FALSE(covering(Entry().destination(lldp), Entry()));
}

TEST(Overlap, OfAWholePortIsAllItsVlans) {
  EXPECT_TRUE(covering(Entry().vlan(4095, 4095), Entry().vlan(100, 100)));
  EXPECT_TRUE(covering(Entry().vlan(4095, 4095), Entry()));
  EXPECT_FALSE(covering(Entry().vlan(100, 100), Entry().vlan(4095, 4095)));
  EXPECT_FALSE(covering(Entry().vlan(100, 100), Entry()));
}

TEST(Overlap, OfVlanRangesIsThatOfTheirNumbers) {
  EXPECT_TRUE(covering(Entry().vlan(10, 20), Entry().vlan(10, 20)));
  EXPECT_TRUE(covering(Entry().vlan(10, 20), Entry().vlan(15, 20)));
  EXPECT_FALSE(covering(Entry().vlan(10, 20), Entry().vlan(9, 20)));
  EXPECT_FALSE(covering(Entry().vlan(10, 20), Entry().vlan(10, 21)));
}

TEST(Overlap, OfAddressesGoesByTheirMasks) {
  const std::string cfmLevel1("\x01\x80\xc2\x00\x00\x31", 6);
  EXPECT_TRUE(covering(Entry().destination(cfm, cfmMask), Entry().destination(cfmLevel1)));
  EXPECT_FALSE(covering(Entry().destination(cfmLevel1), Entry().destination(cfm, cfmMask)));
  EXPECT_FALSE(covering(Entry().destination(cfm, cfmMask), Entry().destination(lldp)));
  EXPECT_TRUE(covering(Entry().destination(lldp, std::string(6, '\0')), Entry().destination(cfm)));
  EXPECT_FALSE(covering(Entry().destination(lldp), Entry().destination(lldp, cfmMask)));
}

TEST(Overlap, NeedsEveryConditionToFollow) {
  EXPECT_TRUE(covering(Entry().destination(lldp),
                       Entry().destination(lldp).etherType("\x88\xcc").payload(0, "\x01")));
  EXPECT_FALSE(
      covering(Entry().destination(lldp).etherType("\x88\xcc"), Entry().destination(lldp)));
  EXPECT_FALSE(covering(Entry().etherType("\x88\xcc"), Entry().etherType("\x88\x09")));
  EXPECT_FALSE(covering(Entry().etherType("\x88\x09").payload(0, "\x01"),
                        Entry().etherType("\x88\x09").payload(0, "\x03")));
}

TEST(Overlap, OfPayloadIsThatOfOnePlace) {
  EXPECT_TRUE(covering(Entry().payload(2, "\x10", "\xf0"), Entry().payload(2, "\x13")));
  EXPECT_FALSE(covering(Entry().payload(1, "\x10", "\xf0"), Entry().payload(2, "\x13")));
}

TEST(Condition, IsShownWithWhatItExpects) {
  EXPECT_EQ(expectedText(Entry().vlan(100, 100).only()), "100");
  EXPECT_EQ(expectedText(Entry().vlan(100, 200).only()), "100-200");
  EXPECT_EQ(expectedText(Entry().destination(lldp).only()), "01:80:c2:00:00:0e");
  EXPECT_EQ(expectedText(Entry().destination(cfm, cfmMask).only()),
            "01:80:c2:00:00:30/ff:ff:ff:ff:ff:f0");
  EXPECT_EQ(expectedText(Entry().etherType("\x88\xcc").only()), "0x88cc");
  EXPECT_EQ(expectedText(Entry().payload(0, "\x01").only()), "0x01");
  EXPECT_EQ(expectedText(Entry().payload(3, "\x10", "\xf0").only()), "0x10/0xf0 at byte 3");
}

TEST(CounterNames, AreTakenApart) {
  const auto parts = [](std::string_view title) {
    const CounterName name = counterName(title);
    return std::string(name.kind) + " " + std::string(name.name) + " " + std::string(name.rule);
  };
  EXPECT_EQ(parts("l2cpPort3tunnel"), "port 3 tunnel");
  EXPECT_EQ(parts("l2cpVlan4095discard"), "vlan 4095 discard");
  EXPECT_EQ(parts("l2cpProfipeerpeer"), "profile peer peer");
  EXPECT_EQ(parts("l2cpPrototunneldiscard"), "protocol tunnel discard");
  EXPECT_EQ(parts("l2cpProfigold"), "  ");
  EXPECT_EQ(parts("l2cp:hide"), "  ");
  EXPECT_EQ(parts(""), "  ");
}

}  // namespace
}  // namespace cli
