#include "host/loopCall.h"

#include <gtest/gtest.h>
#include <sys/select.h>

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;

/// Seconds for what should happen at once.
constexpr int patience = 30;

/// Turns the RPC library's loop once. Whether there was anything to do within so many seconds.
bool turn(int seconds = 0) {
  fd_set ready = svc_fdset;
  timeval time{.tv_sec = seconds, .tv_usec = 0};
  if (select(FD_SETSIZE, &ready, nullptr, nullptr, &time) <= 0) return false;
  svc_getreqset(&ready);
  return true;
}

TEST(LoopCall, IsMadeByTheLoop) {
  int calls = 0;
  const LoopCall call([&] { ++calls; });
  EXPECT_FALSE(turn());
  call.request();
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(turn());
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(turn());
}

TEST(LoopCall, IsMadeOnceForAllRequestsBeforeIt) {
  int calls = 0;
  const LoopCall call([&] { ++calls; });
  for (int i = 0; i < 3; ++i) call.request();
  EXPECT_TRUE(turn());
  EXPECT_FALSE(turn());
  EXPECT_EQ(calls, 1);
}

TEST(LoopCall, MayBeRequestedWhileItIsMade) {
  int calls = 0;
  const LoopCall* self = nullptr;
  const LoopCall call([&] {
    if (++calls == 1) self->request();
  });
  self = &call;
  call.request();
  EXPECT_TRUE(turn());
  EXPECT_TRUE(turn());
  EXPECT_FALSE(turn());
  EXPECT_EQ(calls, 2);
}

TEST(LoopCall, MayBeRequestedFromAnyThread) {
  std::thread::id caller;
  const LoopCall call([&] { caller = std::this_thread::get_id(); });
  std::thread([&] { call.request(); }).join();
  EXPECT_TRUE(turn());
  EXPECT_EQ(caller, std::this_thread::get_id());
}

TEST(LoopCall, IsNotTakenForAnother) {
  int first = 0;
  int second = 0;
  const LoopCall one([&] { ++first; });
  const LoopCall other([&] { ++second; });
  other.request();
  EXPECT_TRUE(turn());
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST(LoopCall, LeavesNothingInTheLoop) {
  {
    const LoopCall call([] { FAIL() << "called"; });
  }
  EXPECT_FALSE(turn());
}

TEST(LoopAlarm, GoesOffOnceWhenItsTimeHasPassed) {
  using std::chrono::steady_clock;
  int calls = 0;
  const LoopAlarm alarm([&] { ++calls; });
  const auto begin = steady_clock::now();
  alarm.set(20ms);
  EXPECT_TRUE(turn(patience));
  EXPECT_GE(steady_clock::now() - begin, 20ms);
  EXPECT_FALSE(turn());
  EXPECT_EQ(calls, 1);
}

TEST(LoopAlarm, GoesOffAtTheTimeThatItWasSetToLast) {
  int calls = 0;
  const LoopAlarm alarm([&] { ++calls; });
  alarm.set(1ns);
  EXPECT_TRUE(turn(patience));
  alarm.set(1ms);
  alarm.set(1h);
  EXPECT_FALSE(turn(1));
  alarm.set(1001ms);
  EXPECT_TRUE(turn(patience));
  EXPECT_EQ(calls, 2);
}

}  // namespace
