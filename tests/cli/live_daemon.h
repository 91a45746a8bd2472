#pragma once

/// A daemon with the classifier in the kernel.

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/system/fixture.h"

namespace cli {

/// Port 1 is a port of a bridge, the interface of port 2 is not there, and port 3 has none.
class LiveDaemon : public WorldTest {
 protected:
  void SetUp() override {
    WorldTest::SetUp();
    if (IsSkipped()) return;
    const support::Run made =
        support::run({"sh", "-c",
                      "ip link add br0 type bridge && ip link add p1 type veth peer name c1 && "
                      "ip link set br0 up && ip link set p1 master br0 up && ip link set c1 up"});
    if (made.status != 0) GTEST_SKIP() << "no bridge can be made here: " << made.output;
    start(support::World::file("l2cpd.toml",
                               "classifier = \"xdp\"\n[xdp]\nmode = \"generic\"\n"
                               "[[port]]\nnumber = 1\nname = \"uplink\"\ninterface = \"p1\"\n"
                               "[[port]]\nnumber = 2\ninterface = \"missing0\"\n"
                               "[[port]]\nnumber = 3\nname = \"spare\"\n"));
  }

  void TearDown() override {
    if (!isRunning_) return;
    EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << world().daemon().output().text();
  }

 private:
  void start(const std::string& file) {
    const support::Process& daemon = world().startDaemon({"-c", file}, false);
    isRunning_ = daemon.output().waitFor("l2cpd: daemon: ready");
    if (isRunning_) return;
    const std::string text = daemon.output().text();
    ASSERT_NE(text.find("capabilities"), std::string::npos) << text;
    GTEST_SKIP() << text;
  }

  bool isRunning_ = false;
};

}  // namespace cli
