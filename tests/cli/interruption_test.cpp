#include "cli/interruption.h"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

namespace cli {
namespace {

using Reason = Interruption::Reason;

class InterruptionBy : public testing::TestWithParam<int> {};

TEST_P(InterruptionBy, ASignalEndsTheWaitingThatItComesIn) {
  const Interruption interruption;
  const pthread_t waiting = pthread_self();
  std::thread sender([waiting] { pthread_kill(waiting, GetParam()); });
  EXPECT_EQ(interruption.waitUntil(Interruption::Clock::now() + std::chrono::minutes(5)),
            Reason::signal);
  sender.join();
}

TEST_P(InterruptionBy, ASignalBeforeTheWaitingEndsItAtOnce) {
  const Interruption interruption;
  pthread_kill(pthread_self(), GetParam());
  EXPECT_EQ(interruption.waitUntil(Interruption::Clock::now() + std::chrono::minutes(5)),
            Reason::signal);
}

/// Handles a signal by counting it.
class Handled {
 public:
  explicit Handled(int number) : number_(number) {
    count_ = 0;
    before_ = std::signal(number, [](int) { count_ = count_ + 1; });
  }
  ~Handled() { std::signal(number_, before_); }
  Handled(const Handled&) = delete;
  Handled& operator=(const Handled&) = delete;

  static int count() { return count_; }

 private:
  static inline volatile std::sig_atomic_t count_ = 0;
  int number_;
  void (*before_)(int);
};

TEST_P(InterruptionBy, ASignalIsHeardOfInTheEndByWhoHandledItBefore) {
  const Handled handled(GetParam());
  {
    const Interruption interruption;
    std::raise(GetParam());
    EXPECT_EQ(interruption.waitUntil(Interruption::Clock::now() + std::chrono::minutes(5)),
              Reason::signal);
    EXPECT_EQ(Handled::count(), 0);
  }
  EXPECT_EQ(Handled::count(), 1);
  { const Interruption interruption; }
  EXPECT_EQ(Handled::count(), 1);
  {
    const Interruption interruption;
    std::raise(GetParam());
  }
  EXPECT_EQ(Handled::count(), 2);
  std::raise(GetParam());
  EXPECT_EQ(Handled::count(), 3);
}

TEST_P(InterruptionBy, ASignalHasOtherWaitingEndToo) {
  {
    const Interruption interruption;
    EXPECT_FALSE(isStopRequested());
    std::raise(GetParam());
    EXPECT_TRUE(isStopRequested());
  }
  EXPECT_FALSE(isStopRequested());
}

TEST_P(InterruptionBy, ASignalThatWasIgnoredIsNone) {
  const auto before = std::signal(GetParam(), SIG_IGN);
  {
    const Interruption interruption;
    std::raise(GetParam());
    EXPECT_EQ(interruption.waitUntil(Interruption::Clock::now()), Reason::time);
  }
  std::signal(GetParam(), before);
}

INSTANTIATE_TEST_SUITE_P(Signals, InterruptionBy, testing::Values(SIGHUP, SIGINT, SIGTERM));

TEST(Interruption, WithoutASignalWaitsForTheTime) {
  const Interruption interruption;
  const auto time = Interruption::Clock::now() + std::chrono::milliseconds(20);
  EXPECT_EQ(interruption.waitUntil(time), Reason::time);
  EXPECT_GE(Interruption::Clock::now(), time);
  EXPECT_EQ(interruption.waitUntil(Interruption::Clock::now() - std::chrono::hours(1)),
            Reason::time);
}

}  // namespace
}  // namespace cli
