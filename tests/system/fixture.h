#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/world.h"

/// A world with a port mapper. Where none can be made the test is skipped and says why.
class WorldTest : public testing::Test {
 protected:
  void SetUp() override {
    try {
      world_.emplace();
      world_->startPortMapper();
    } catch (const support::Unavailable& reason) {
      GTEST_SKIP() << reason.what();
    }
  }

  support::World& world() { return *world_; }

 private:
  std::optional<support::World> world_;
};

/// In it a daemon that serves, and in the end stops as it should: a leak or a race that a sanitizer
/// found shows in the exit status.
class DaemonTest : public WorldTest {
 protected:
  void SetUp() override {
    WorldTest::SetUp();
    if (IsSkipped()) return;
    prepare();
    world().startDaemon(arguments());
  }

  void TearDown() override {
    if (IsSkipped()) return;
    EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << world().daemon().output().text();
  }

  /// Before the daemon starts.
  virtual void prepare() {}
  virtual std::vector<std::string> arguments() { return {}; }
};

/// The same for each of the two transports.
class TransportTest : public DaemonTest, public testing::WithParamInterface<const char*> {};

inline std::string transportName(const testing::TestParamInfo<const char*>& info) {
  return info.param;
}

#define FOR_BOTH_TRANSPORTS(Fixture) \
  INSTANTIATE_TEST_SUITE_P(Over, Fixture, testing::Values("udp", "tcp"), transportName)
