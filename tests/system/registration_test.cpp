// The daemon's programs and the port mapper: who knows them after what happens to the port mapper.

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <string>

#include "tests/support/world.h"
#include "tests/system/control.h"
#include "tests/system/fixture.h"

namespace {

using support::eventually;
using support::run;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

constexpr const char* silent =
    "l2cpd: warning: rpc: the port mapper does not answer: new clients cannot find the daemon "
    "until "
    "it does";
constexpr const char* renewed = "l2cpd: rpc: registered with the port mapper again";

class Registration : public WorldTest {
 protected:
  static bool isServed(const char* transport) {
    try {
      return client::Service(transport).protoGetAll().list.size() == 14 &&
             client::Control(transport).status().pid != 0;
    } catch (const client::CallFailed&) {
      return false;
    }
  }
  static bool isServed() { return isServed("udp") && isServed("tcp"); }

  /// Stops the daemon, which has to be gone within two seconds.
  void expectQuickStop() {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << world().daemon().output().text();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  }
};

TEST_F(Registration, IsMadeUpForWhenAPortMapperAppears) {
  world().stopPortMapper();
  const support::Process& daemon = world().startDaemon();
  EXPECT_TRUE(daemon.output().waitFor(silent));
  EXPECT_FALSE(isServed());
  world().startPortMapper();
  EXPECT_TRUE(daemon.output().waitFor(renewed));
  EXPECT_TRUE(isServed());
  expectQuickStop();
}

TEST_F(Registration, IsRenewedAfterThePortMapperWasRestarted) {
  const support::Process& daemon = world().startDaemon();
  for (int round = 0; round < 2; ++round) {
    world().stopPortMapper();
    world().startPortMapper();
    EXPECT_TRUE(eventually([] { return isServed(); })) << daemon.output().text();
  }
  EXPECT_THAT(daemon.output().text(), HasSubstr(renewed));
  expectQuickStop();
}

TEST_F(Registration, LossIsSaidOnceAndClientsThatAreThereAreServedOn) {
  const support::Process& daemon = world().startDaemon();
  const client::Service service("tcp");
  world().stopPortMapper();
  EXPECT_TRUE(daemon.output().waitFor(silent));
  EXPECT_EQ(service.profileAdd({.name = "P"}), RPC_L2CP_OK);
  world().startPortMapper();
  EXPECT_TRUE(daemon.output().waitFor(renewed));
  EXPECT_EQ(client::Service("udp").profileGet(0).name, "P");
  expectQuickStop();
  const std::string text = daemon.output().text();
  EXPECT_EQ(text.find(silent), text.rfind(silent));
}

TEST_F(Registration, OutlastsAPortMapperThatIsFrozenForAWhile) {
  const support::Process& daemon = world().startDaemon();
  const client::Service service("udp");
  world().freezePortMapper();
  EXPECT_TRUE(daemon.output().waitFor(silent));
  EXPECT_EQ(service.protoGetAll().list.size(), 14U);
  world().thawPortMapper();
  EXPECT_TRUE(daemon.output().waitFor("l2cpd: rpc: the port mapper answers again"));
  EXPECT_TRUE(isServed());
  expectQuickStop();
}

TEST_F(Registration, DoesNotHoldUpTheStopWhenThePortMapperIsGone) {
  world().startDaemon();
  world().stopPortMapper();
  expectQuickStop();
}

TEST_F(Registration, DoesNotHoldUpTheStopWhenThePortMapperIsFrozen) {
  world().startDaemon();
  world().freezePortMapper();
  expectQuickStop();
}

TEST_F(Registration, DoesNotHoldUpTheStopWhenThePortMapperIsKnownToBeFrozen) {
  const support::Process& daemon = world().startDaemon();
  world().freezePortMapper();
  EXPECT_TRUE(daemon.output().waitFor(silent));
  expectQuickStop();
}

TEST_F(Registration, DoesNotHoldUpAStopWhileItIsWaitedFor) {
  world().freezePortMapper();
  const support::Process& daemon = world().startDaemon({}, false);
  EXPECT_TRUE(daemon.output().waitFor(
      "l2cpd: warning: rpc: waiting for the port mapper; nobody is served before it answers"));
  expectQuickStop();
}

TEST_F(Registration, OfAnotherDaemonIsLeftAlone) {
  const support::Process& daemon = world().startDaemon();
  const client::Service first("tcp");
  EXPECT_EQ(first.profileAdd({.name = "first"}), RPC_L2CP_OK);
  const support::Process second(
      {support::World::daemonProgram(), "-c",
       support::World::file("second.toml", "lock = \"/run/second.lock\"\n")});
  ASSERT_TRUE(second.output().waitFor("l2cpd: daemon: ready"));
  EXPECT_TRUE(daemon.output().waitFor(
      "l2cpd: warning: rpc: the port mapper has other ports for this daemon's programs: new "
      "clients go there"));
  EXPECT_EQ(client::Service("tcp").profileGetAll(), client::List<client::Profile>{});
  EXPECT_EQ(first.profileGet(0).name, "first");
  expectQuickStop();
  EXPECT_TRUE(isServed());
}

}  // namespace
