/// What a data plane is given by the request side, and what becomes of its refusals.

#include "classifier/dataPlane.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "classifier/table.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Fate;
using classifier::Rules;
using classifier::Table;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

class FixedShare : public classifier::CounterShare {
 public:
  explicit FixedShare(std::uint64_t value) : value_(value) {}
  std::uint64_t value() const override { return value_; }

 private:
  std::uint64_t value_;
};

/// Keeps what it is given, for ports 1 and 2.
class RecordingPlane : public classifier::DataPlane {
 public:
  bool has(std::uint32_t port) const override { return ports.contains(port); }
  int replace(std::uint32_t port, const Rules& rules) override {
    if (memoryEnds) throw std::bad_alloc();
    if (rules.size() > most) return -ENOSPC;
    for (const auto& rule : rules) {
      if (rule->conditions.size() > mostConditions) return -EINVAL;
    }
    for (const auto& rule : rules) {
      for (const auto& change : rule->counterChanges) {
        if (!change.counter->share) change.counter->share = std::make_unique<FixedShare>(1000);
      }
    }
    rulesOf[port] = rules;
    return 0;
  }

  std::vector<std::uint32_t> indices(std::uint32_t port) {
    std::vector<std::uint32_t> all;
    for (const auto& rule : rulesOf[port]) all.push_back(rule->index);
    return all;
  }

  std::set<std::uint32_t> ports = {1, 2};
  std::map<std::uint32_t, Rules> rulesOf;
  std::size_t most = 100;
  std::size_t mostConditions = 16;
  bool memoryEnds = false;
};

class DataPlane : public testing::Test {
 protected:
  void SetUp() override {
    table.setDataPlane(&plane);
    ASSERT_EQ(request.addSelector("s"), 0);
    ASSERT_EQ(request.addActionList("a"), 0);
    ASSERT_EQ(request.addCounter("c"), 0);
  }

  RecordingPlane plane;
  Table table;
  Requests request{table};
  const support::Bytes frame =
      support::FrameBuilder().ethernet({1, 2, 3, 4, 5, 6}, {2}).etherType(0x88cc).bytes();
};

TEST_F(DataPlane, GetsTheRulesOfAPortWheneverTheyChange) {
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_THAT(plane.indices(1), ElementsAre(200));
  ASSERT_EQ(request.addEntry("1", 1, 199, "true", "a"), 0);
  EXPECT_THAT(plane.indices(1), ElementsAre(199, 200));
  ASSERT_EQ(request.deleteEntry("1", 1, 200), 0);
  EXPECT_THAT(plane.indices(1), ElementsAre(199));
  ASSERT_EQ(request.deleteEntry("1", 1, 199), 0);
  EXPECT_THAT(plane.indices(1), IsEmpty());
  EXPECT_FALSE(plane.rulesOf.contains(2));
}

TEST_F(DataPlane, GetsNothingOfPortsThatItDoesNotHave) {
  ASSERT_EQ(request.addEntry("3", 1, 200, "s", "a"), 0);
  EXPECT_THAT(plane.rulesOf, IsEmpty());
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  EXPECT_THAT(plane.rulesOf, IsEmpty());
  EXPECT_EQ(table.classify(3, frame).fate, Fate::discard);
}

TEST_F(DataPlane, GetsTheRulesThatAreThereWhenItComesToHaveThePort) {
  ASSERT_EQ(request.addEntry("3", 1, 200, "s", "a"), 0);
  plane.ports.insert(3);
  EXPECT_EQ(table.refresh(3), 0);
  EXPECT_THAT(plane.indices(3), ElementsAre(200));
  EXPECT_EQ(table.refresh(4), 0);
}

TEST_F(DataPlane, SeesChangesOfObjectsOnAllPortsThatUseThem) {
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.addEntry("2", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.addEtherType("s", 0x88cc), 0);
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  for (const std::uint32_t port : {1U, 2U}) {
    ASSERT_EQ(plane.rulesOf[port].size(), 1U);
    EXPECT_EQ(plane.rulesOf[port][0]->conditions.size(), 1U);
    EXPECT_EQ(plane.rulesOf[port][0]->fate, Fate::discard);
  }
}

TEST_F(DataPlane, IsLeftAloneByChangesOfObjectsThatItsPortsDoNotUse) {
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.addSelector("other"), 0);
  ASSERT_EQ(request.addEntry("3", 1, 200, "other", "a"), 0);
  const auto before = plane.rulesOf[1];
  ASSERT_EQ(request.addEtherType("other", 0x88cc), 0);
  EXPECT_EQ(plane.rulesOf[1], before);
}

TEST_F(DataPlane, RefusesAnEntryAndNothingChanges) {
  plane.most = 1;
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("1", 1, 201, "s", "a"), -ENOSPC);
  EXPECT_EQ(request.getEntry("1", 1, 201), -ENOENT);
  plane.most = 0;
  EXPECT_EQ(request.addEntry("2", 1, 200, "s", "a"), -ENOSPC);
  EXPECT_THAT(table.rules(2), IsEmpty());
  plane.most = 100;
  EXPECT_EQ(request.addEntry("1", 1, 201, "s", "a"), 0);
  EXPECT_EQ(request.addEntry("2", 1, 200, "s", "a"), 0);
}

TEST_F(DataPlane, RefusesAConditionOnOnePortAndKeepsTheRulesOfAll) {
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  ASSERT_EQ(request.addEntry("2", 1, 200, "s", "a"), 0);
  plane.mostConditions = 0;
  EXPECT_EQ(request.addEtherType("s", 0x1234), -EINVAL);
  for (const std::uint32_t port : {1U, 2U}) {
    EXPECT_THAT(plane.rulesOf[port][0]->conditions, IsEmpty());
    EXPECT_THAT(table.rules(port)[0]->conditions, IsEmpty());
  }
  ASSERT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), 0);
  EXPECT_EQ(table.classify(1, frame).fate, Fate::discard);
}

TEST_F(DataPlane, WithoutMemoryRefusesAndNothingChanges) {
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  plane.memoryEnds = true;
  EXPECT_EQ(request.addEntry("1", 1, 201, "s", "a"), -ENOMEM);
  EXPECT_EQ(request.deleteEntry("1", 1, 200), -ENOMEM);
  EXPECT_EQ(request.addAction("a", 0, ACL_ACTION_DROP), -ENOMEM);
  plane.memoryEnds = false;
  EXPECT_EQ(request.getEntry("1", 1, 201), -ENOENT);
  EXPECT_EQ(request.getEntry("1", 1, 200), 0);
  EXPECT_EQ(table.classify(1, frame).fate, Fate::untouched);
  EXPECT_EQ(request.deleteEntry("1", 1, 200), 0);
  EXPECT_THAT(plane.indices(1), IsEmpty());
}

TEST_F(DataPlane, AddsItsShareToTheCounterThatIsRead) {
  ASSERT_EQ(request.addCounterChange("a", 0, "c"), 0);
  ASSERT_EQ(request.addEntry("1", 1, 200, "s", "a"), 0);
  EXPECT_THAT(request.counter("c"), Optional(1000));
  table.classify(1, frame);
  EXPECT_THAT(request.counter("c"), Optional(1001));
}

}  // namespace
