// Whether two answers are of one run of the daemon.

#include "cli/daemonRun.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr DaemonRun::Clock::time_point begin{seconds(1000000)};

DaemonRun answer(std::uint32_t process, std::uint32_t uptime, milliseconds asked,
                 milliseconds took = milliseconds(0)) {
  control_status status{};
  status.pid = process;
  status.uptime = uptime;
  return {status, begin + asked, begin + asked + took};
}

TEST(DaemonRun, IsTheSameWhileTheDaemonGrowsOlderWithTheClock) {
  const DaemonRun first = answer(11, 0, milliseconds(999));
  EXPECT_FALSE(answer(11, 0, milliseconds(999)).isRestartOf(first));
  EXPECT_FALSE(answer(11, 1, milliseconds(1000)).isRestartOf(first));
  EXPECT_FALSE(answer(11, 2, milliseconds(2999)).isRestartOf(first));
  EXPECT_FALSE(answer(11, 3600, seconds(3600)).isRestartOf(first));
}

TEST(DaemonRun, IsTheSameHoweverLongAnAnswerTakes) {
  const DaemonRun first = answer(11, 0, milliseconds(0), seconds(9));
  EXPECT_FALSE(answer(11, 10, seconds(10)).isRestartOf(first));
  EXPECT_FALSE(answer(11, 10, seconds(10), seconds(9)).isRestartOf(first));
  EXPECT_FALSE(answer(11, 19, seconds(10), seconds(9)).isRestartOf(first));
}

TEST(DaemonRun, IsAnotherOneWithAnotherProcess) {
  EXPECT_TRUE(answer(12, 5, seconds(5)).isRestartOf(answer(11, 4, seconds(4))));
}

TEST(DaemonRun, IsAnotherOneOfAProcessThatHasTheSameNumber) {
  EXPECT_TRUE(answer(11, 0, seconds(4)).isRestartOf(answer(11, 2, seconds(2))));
  // Older than the first was when it was asked, but not as old as it would be.
  EXPECT_TRUE(answer(11, 50, seconds(60)).isRestartOf(answer(11, 5, seconds(5))));
}

}  // namespace
}  // namespace cli
