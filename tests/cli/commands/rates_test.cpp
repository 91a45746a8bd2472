#include "cli/commands/rates.h"

#include <gtest/gtest.h>

#include <limits>

namespace cli {
namespace {

using std::chrono::milliseconds;
using Kind = RateMeter::Kind;

constexpr RateMeter::Place port3{Kind::port, 3};

RateMeter::Clock::time_point at(milliseconds time) { return RateMeter::Clock::time_point(time); }

TEST(Rates, AreNotKnownFromOneReading) {
  RateMeter meter;
  const Rates rates = meter.read(port3, {5, 6, 7}, at(milliseconds(0)));
  EXPECT_FALSE(rates.discard || rates.peer || rates.tunnel || rates.total());
}

TEST(Rates, AreFramesInASecondSinceTheReadingBefore) {
  RateMeter meter;
  meter.read(port3, {5, 6, 7}, at(milliseconds(0)));
  const Rates rates = meter.read(port3, {6, 6, 12}, at(milliseconds(500)));
  EXPECT_EQ(rates.discard, 2);
  EXPECT_EQ(rates.peer, 0);
  EXPECT_EQ(rates.tunnel, 10);
  EXPECT_EQ(rates.total(), 12);
  EXPECT_EQ(meter.read(port3, {6, 6, 13}, at(milliseconds(2500))).tunnel, 0.5);
}

TEST(Rates, AreNotKnownOfACounterThatHasBecomeSmaller) {
  RateMeter meter;
  meter.read(port3, {5, 4'000'000'000, 7}, at(milliseconds(0)));
  const Rates rates = meter.read(port3, {6, 1, 8}, at(milliseconds(1000)));
  EXPECT_EQ(rates.discard, 1);
  EXPECT_EQ(rates.peer, std::nullopt);
  EXPECT_EQ(rates.total(), std::nullopt);
  EXPECT_EQ(meter.read(port3, {6, 3, 8}, at(milliseconds(2000))).peer, 2);
}

TEST(Rates, AreNotKnownWhenNoTimeHasPassed) {
  RateMeter meter;
  meter.read(port3, {}, at(milliseconds(7)));
  EXPECT_EQ(meter.read(port3, {1, 1, 1}, at(milliseconds(7))).peer, std::nullopt);
}

TEST(Rates, OfTheGreatestDifferenceAreRight) {
  RateMeter meter;
  constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
  meter.read(port3, {}, at(milliseconds(0)));
  EXPECT_EQ(meter.read(port3, {most, most, most}, at(milliseconds(1000))).total(), 3.0 * most);
}

TEST(Rates, OfPlacesAreTheirOwn) {
  RateMeter meter;
  meter.read(port3, {1, 1, 1}, at(milliseconds(0)));
  EXPECT_EQ(meter.read({Kind::vlan, 3}, {9, 9, 9}, at(milliseconds(1000))).peer, std::nullopt);
  EXPECT_EQ(meter.read(port3, {2, 2, 2}, at(milliseconds(1000))).peer, 1);
}

TEST(Rates, BeginAnewWhenAllIsForgotten) {
  RateMeter meter;
  meter.read(port3, {}, at(milliseconds(0)));
  meter.forget();
  EXPECT_EQ(meter.read(port3, {1, 1, 1}, at(milliseconds(1000))).peer, std::nullopt);
  EXPECT_EQ(meter.read(port3, {2, 2, 2}, at(milliseconds(2000))).peer, 1);
}

}  // namespace
}  // namespace cli
