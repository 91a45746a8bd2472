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

TEST_P(InterruptionBy, SignalsDoWhatTheyDidBeforeWhenItIsOver) {
  static volatile std::sig_atomic_t handled;
  handled = 0;
  const auto before = std::signal(GetParam(), [](int) { handled = 1; });
  {
    const Interruption interruption;
    pthread_kill(pthread_self(), GetParam());
  }
  EXPECT_EQ(handled, 0);
  std::raise(GetParam());
  EXPECT_EQ(handled, 1);
  std::signal(GetParam(), before);
}

INSTANTIATE_TEST_SUITE_P(Signals, InterruptionBy, testing::Values(SIGINT, SIGTERM));

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
