#include "classifier/explain.h"

#include <gtest/gtest.h>

#include "classifier/table.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Explanation;
using classifier::Fate;
using classifier::Table;
using support::Bytes;
using support::FrameBuilder;

constexpr support::Mac slow{0x01, 0x80, 0xc2, 0, 0, 0x02};
constexpr support::Mac lldp{0x01, 0x80, 0xc2, 0, 0, 0x0e};
constexpr support::Mac station{0x02, 0, 0, 0, 0, 1};

// A port as an attachment makes it: OAM at 200, LACP at 201, LLDP of VLAN 100 at 202, the
// catch-all.
class Explaining : public testing::Test {
 protected:
  void SetUp() override {
    add("OAM", 200, 4095, slow, ACL_ACTION_DROP);
    ASSERT_EQ(request.addEtherType("OAM", 0x8809), 0);
    ASSERT_EQ(request.addPayload("OAM", 0, 0xff, 3), 0);
    add("LACP", 201, 4095, slow, ACL_ACTION_NO_L2CP);
    ASSERT_EQ(request.addEtherType("LACP", 0x8809), 0);
    ASSERT_EQ(request.addPayload("LACP", 0, 0xff, 1), 0);
    add("LLDP", 202, 100, lldp, ACL_ACTION_HIDE);
  }

  void add(const char* name, std::uint32_t index, std::uint16_t vid, const support::Mac& mac,
           std::uint32_t action) {
    ASSERT_EQ(request.addSelector(name), 0);
    ASSERT_EQ(request.addVlan(name, vid, vid), 0);
    ASSERT_EQ(request.addDestination(name, mac), 0);
    ASSERT_EQ(request.addCounter(name), 0);
    ASSERT_EQ(request.addActionList(name), 0);
    ASSERT_EQ(request.addCounterChange(name, 0, name), 0);
    ASSERT_EQ(request.addAction(name, 1, action), 0);
    ASSERT_EQ(request.addEntry("1", 1, index, name, name), 0);
  }

  Explanation of(const Bytes& frame) const {
    return classifier::explain(table.rules(1), classifier::fieldsOf(frame));
  }

  Table table;
  Requests request{table};
};

using Misses = std::vector<std::size_t>;

TEST_F(Explaining, TellsTheFirstConditionThatFailsOfEachEntryBeforeTheOneMet) {
  const Explanation lacp =
      of(FrameBuilder().ethernet(slow, station).etherType(0x8809).payload({1}).bytes());
  EXPECT_EQ(lacp.met, 1);
  EXPECT_EQ(lacp.fate, Fate::tunnel);
  EXPECT_EQ(lacp.misses, Misses{3});
  const Explanation tagged =
      of(FrameBuilder().ethernet(lldp, station).tag(0x8100, 100).etherType(0x88cc).bytes());
  EXPECT_EQ(tagged.met, 2);
  EXPECT_EQ(tagged.fate, Fate::peer);
  EXPECT_EQ(tagged.misses, (Misses{1, 1}));
}

TEST_F(Explaining, TellsOfEveryEntryWhenTheFrameMeetsNone) {
  const Explanation untagged = of(FrameBuilder().ethernet(lldp, station).etherType(0x88cc).bytes());
  EXPECT_EQ(untagged.met, std::nullopt);
  EXPECT_EQ(untagged.fate, Fate::untouched);
  EXPECT_EQ(untagged.misses, (Misses{1, 1, 0}));
  EXPECT_EQ(of(FrameBuilder().ethernet(slow, station).etherType(0x88cc).bytes()).misses,
            (Misses{2, 2, 0}));
  EXPECT_EQ(of({}).misses, (Misses{1, 1, 0}));
}

TEST_F(Explaining, AgreesWithTheDecisionAboutEveryFrameAndMovesNoCounter) {
  const Bytes frames[] = {
      FrameBuilder().ethernet(slow, station).etherType(0x8809).payload({1}).padTo(60).bytes(),
      FrameBuilder().ethernet(slow, station).tag(0x88a8, 7).etherType(0x8809).payload({3}).bytes(),
      FrameBuilder().ethernet(lldp, station).tag(0x8100, 100).etherType(0x88cc).bytes(),
      FrameBuilder().ethernet(lldp, station).tag(0x8100, 101).etherType(0x88cc).bytes(),
      FrameBuilder()
          .ethernet(slow, station)
          .length(8)
          .snap({0, 0, 0}, 0x8809)
          .payload({1})
          .bytes()};
  for (const Bytes& whole : frames) {
    for (std::size_t size = 0; size <= whole.size(); ++size) {
      const Bytes frame(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      const auto counters = [&] {
        return std::array{request.counter("OAM"), request.counter("LACP"), request.counter("LLDP")};
      };
      const auto before = counters();
      const Explanation explanation = of(frame);
      EXPECT_EQ(counters(), before);
      const classifier::Verdict verdict = table.classify(1, frame);
      EXPECT_EQ(explanation.fate, verdict.fate);
      ASSERT_EQ(explanation.met.has_value(), verdict.entry != nullptr);
      if (explanation.met) {
        EXPECT_EQ(table.rules(1)[*explanation.met]->index, verdict.entry->index);
      }
      EXPECT_EQ(explanation.misses.size(), explanation.met.value_or(3));
    }
  }
}

}  // namespace
