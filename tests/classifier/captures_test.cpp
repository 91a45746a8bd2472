/// Frames recorded from real equipment, met with the selectors of the well-known protocols. The
/// files are read where the environment variable L2CP_CAPTURES says they are.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <variant>

#include "classifier/capture.h"
#include "classifier/table.h"
#include "platform/acl_ioctl.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Fate;
using classifier::Table;

/// What the frames of a file met: the number of frames by selector, "true" for the catch-all.
using Met = std::map<std::string, int>;

class Captures : public testing::Test {
 protected:
  void SetUp() override {
    const char* named = std::getenv("L2CP_CAPTURES");
    if (named == nullptr) GTEST_SKIP() << "L2CP_CAPTURES does not name a folder of captures";
    folder = named;

    addProtocol("LLDP", {0x01, 0x80, 0xc2, 0, 0, 0x0e}, ACL_ACTION_HIDE);
    addProtocol("CDP", {0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc}, ACL_ACTION_NO_L2CP);
    ASSERT_EQ(request.addEtherType("CDP", 0x2000), 0);
    addProtocol("UDLD", {0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc}, ACL_ACTION_DROP);
    ASSERT_EQ(request.addEtherType("UDLD", 0x0111), 0);
    addProtocol("LACP", {0x01, 0x80, 0xc2, 0, 0, 0x02}, ACL_ACTION_DROP);
    ASSERT_EQ(request.addEtherType("LACP", 0x8809), 0);
    ASSERT_EQ(request.addPayload("LACP", 0, 0xff, 0x01), 0);
    addProtocol("STP", {0x01, 0x80, 0xc2, 0, 0, 0x00}, ACL_ACTION_NO_L2CP);
    addProtocol("PNAC", {0x01, 0x80, 0xc2, 0, 0, 0x03}, ACL_ACTION_HIDE);
    ASSERT_EQ(request.addEtherType("PNAC", 0x888e), 0);
    ASSERT_EQ(request.addActionList("hide"), 0);
    ASSERT_EQ(request.addAction("hide", 0, ACL_ACTION_HIDE), 0);
    ASSERT_EQ(request.addEntry("1", 1, 299, "true", "hide"), 0);
  }

  /// Selector, action list, counter and entry of one name.
  void addProtocol(const std::string& name, const support::Mac& destination, std::uint32_t action) {
    ASSERT_EQ(request.addSelector(name), 0);
    ASSERT_EQ(request.addDestination(name, destination), 0);
    ASSERT_EQ(request.addCounter(name), 0);
    ASSERT_EQ(request.addActionList(name), 0);
    ASSERT_EQ(request.addCounterChange(name, 0, name), 0);
    ASSERT_EQ(request.addAction(name, 1, action), 0);
    ASSERT_EQ(request.addEntry("1", 1, nextIndex++, name, name), 0);
    fates[name] = action == ACL_ACTION_DROP   ? Fate::discard
                  : action == ACL_ACTION_HIDE ? Fate::peer
                                              : Fate::tunnel;
  }

  Met classify(const std::string& file) {
    Met met;
    auto opened = capture::Reader::open(folder / file);
    if (const auto* error = std::get_if<capture::Error>(&opened)) {
      ADD_FAILURE() << error->text;
      return met;
    }
    auto& reader = std::get<capture::Reader>(opened);
    while (const auto frame = reader.next()) {
      const classifier::Verdict verdict = table.classify(1, frame->bytes);
      if (!verdict.entry) {
        ADD_FAILURE() << file << " frame " << frame->number << " met no entry";
        continue;
      }
      const std::string selector(verdict.entry->selector.view());
      EXPECT_EQ(verdict.fate, fates.at(selector)) << file << " frame " << frame->number;
      ++met[selector];
    }
    EXPECT_EQ(reader.error(), nullptr);
    for (const auto& [name, fate] : fates) {
      if (name == "true") continue;
      const auto expected = static_cast<std::uint64_t>(met.contains(name) ? met.at(name) : 0);
      EXPECT_EQ(request.counter(name), expected) << name;
    }
    return met;
  }

  std::filesystem::path folder;
  Table table;
  Requests request{table};
  std::uint32_t nextIndex = 200;
  std::map<std::string, Fate> fates = {{"true", Fate::untouched}};
};

TEST_F(Captures, SpanningTreeIsFoundByItsAddress) {
  EXPECT_EQ(classify("stp.pcap"), (Met{{"STP", 14}}));
}

TEST_F(Captures, LinkAggregationIsFoundByItsSubtype) {
  EXPECT_EQ(classify("lacp.pcap"), (Met{{"LACP", 20}}));
}

TEST_F(Captures, DiscoveryProtocolsAreToldApart) {
  EXPECT_EQ(classify("lldp_cdp.pcap"), (Met{{"LLDP", 8}, {"CDP", 4}}));
}

TEST_F(Captures, AnotherProtocolOfTheSameAddressIsNotTaken) {
  EXPECT_EQ(classify("dtp.pcap"), (Met{{"true", 10}}));
}

TEST_F(Captures, AuthenticationSentToStationsIsNotTaken) {
  EXPECT_EQ(classify("eapol_unicast.pcap"), (Met{{"true", 114}}));
}

TEST_F(Captures, DoubleTaggedTrafficIsNotTaken) {
  EXPECT_EQ(classify("qinq.pcap"), (Met{{"true", 2}}));
}

TEST_F(Captures, TheOuterTagOfDoubleTaggedTrafficCounts) {
  for (const auto& [name, vlan] : {std::pair{"outer", 200}, {"inner", 2001}}) {
    const auto id = static_cast<std::uint16_t>(vlan);
    ASSERT_EQ(request.addSelector(name), 0);
    ASSERT_EQ(request.addVlan(name, id, id), 0);
    ASSERT_EQ(request.addEntry("1", 1, nextIndex++, name, "hide"), 0);
    ASSERT_EQ(request.addCounter(name), 0);
    fates[name] = Fate::peer;
  }
  auto opened = capture::Reader::open(folder / "qinq.pcap");
  auto& reader = std::get<capture::Reader>(opened);
  while (const auto frame = reader.next()) {
    EXPECT_EQ(table.classify(1, frame->bytes).entry->selector.view(), "outer");
  }
}

}  // namespace
