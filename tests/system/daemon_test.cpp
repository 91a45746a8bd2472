// The daemon as a process: how it starts, what it says, how it stops, and how it gets along with
// the port mapper.

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/world.h"
#include "tests/system/control.h"
#include "tests/system/fixture.h"
#include "tests/system/wire.h"

namespace {

using support::run;
using support::World;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* modulePrograms[] = {"536870941", "536871168"};

std::string registrations() { return run({"rpcinfo", "-p", "127.0.0.1"}).output; }

// ---- Start ----

class Start : public WorldTest {
 protected:
  /// Runs the daemon, which has to refuse to. What it said.
  std::string refusal(const std::vector<std::string>& arguments) {
    EXPECT_EQ(world().startDaemon(arguments, false).wait(), 1);
    return world().daemon().output().text();
  }
  std::string refusedConfig(std::string_view contents) {
    return refusal({"--config", World::file("l2cpd.toml", contents)});
  }
};

TEST_F(Start, SaysWhatItIsAndWhenItIsReady) {
  const support::Process& daemon = world().startDaemon();
  ASSERT_TRUE(daemon.output().waitFor("Starting main RPC loop"));
  const std::vector<std::string> lines = daemon.output().all();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_THAT(lines[0], testing::MatchesRegex("l2cpd: daemon: l2cpd [0-9.]+, bridge br0"));
  EXPECT_EQ(lines[1], "l2cpd: daemon: ready");
  EXPECT_EQ(lines[2], "[" + std::to_string(daemon.id()) +
                          "] BLLManager_mng: Starting main RPC loop - custom made.");
}

TEST_F(Start, ProgramsAreRegisteredForBothTransports) {
  world().startDaemon();
  const std::string table = registrations();
  for (const char* program : modulePrograms) {
    EXPECT_THAT(table, testing::ContainsRegex(std::string(program) + " +1 +udp"));
    EXPECT_THAT(table, testing::ContainsRegex(std::string(program) + " +1 +tcp"));
  }
}

TEST_F(Start, StandardToolFindsThePrograms) {
  world().startDaemon();
  for (const char* program : modulePrograms) {
    for (const char* transport : {"tcp", "udp"}) {
      const support::Run answer = run({"rpcinfo", "-T", transport, "127.0.0.1", program, "1"});
      EXPECT_EQ(answer.status, 0);
      EXPECT_EQ(answer.output,
                std::string("program ") + program + " version 1 ready and waiting\n");
    }
    const support::Run other = run({"rpcinfo", "-T", "tcp", "127.0.0.1", program, "2"});
    EXPECT_EQ(other.status, 1);
    EXPECT_THAT(other.output, HasSubstr("low version = 1, high version = 1"));
  }
}

TEST_F(Start, ServesOnLoopbackAlone) {
  world().startDaemon();
  const std::string sockets = run({"cat", "/proc/self/net/tcp", "/proc/self/net/udp"}).output;
  // Addresses are in the host's byte order; the port mapper alone listens on all of them.
  EXPECT_THAT(sockets, HasSubstr(" 0100007F:"));
  EXPECT_THAT(sockets, Not(testing::ContainsRegex(" 00000000:[^0][0-9A-F]{3} 00000000:0000 0A")));
}

TEST_F(Start, EarlierRegistrationsOfTheProgramsAreReplaced) {
  world().startDaemon();
  world().stopDaemon(SIGKILL);
  EXPECT_THAT(registrations(), HasSubstr(modulePrograms[0]));
  world().startDaemon();
  EXPECT_EQ(client::Service("udp").connection().ping(), RPC_SUCCESS);
  EXPECT_EQ(client::Service("tcp").connection().ping(), RPC_SUCCESS);
}

TEST_F(Start, ConfigurationNamesTheBridge) {
  const std::string file = World::file("l2cpd.toml", "bridge = \"swbridge\"\n");
  const support::Process& daemon = world().startDaemon({"-c", file});
  EXPECT_THAT(daemon.output().text(), HasSubstr(", bridge swbridge\n"));
}

TEST_F(Start, EmptyConfigurationIsTheDefault) {
  const support::Process& daemon = world().startDaemon({"--config", World::file("l2cpd.toml", "")});
  EXPECT_THAT(daemon.output().text(), HasSubstr(", bridge br0\n"));
}

TEST_F(Start, ConfigurationThatDoesNotExistIsRefused) {
  EXPECT_EQ(refusal({"--config", "/run/none.toml"}),
            "l2cpd: error: config: /run/none.toml: No such file or directory\n");
}

TEST_F(Start, ConfigurationThatIsAFolderIsRefused) {
  EXPECT_EQ(refusal({"--config", "/run"}), "l2cpd: error: config: /run: is a directory\n");
}

TEST_F(Start, ConfigurationsThatCannotBeReadAreRefusedWithTheirPlace) {
  EXPECT_THAT(refusedConfig("bridge = \"br0\"\nbridge ="),
              testing::StartsWith("l2cpd: error: config: /run/l2cpd.toml:2: "));
  EXPECT_EQ(refusedConfig("bridge = \"br0\"\ncolour = \"red\"\n"),
            "l2cpd: error: config: /run/l2cpd.toml:2: unknown key \"colour\"\n");
  EXPECT_EQ(refusedConfig("[[port]]\nnumber = -1\nname = \"a\"\n"),
            "l2cpd: error: config: /run/l2cpd.toml:2: \"number\" is not a whole number from 0 to "
            "4294967295\n");
}

TEST_F(Start, UnknownOptionsAreRefusedWithAHint) {
  EXPECT_THAT(refusal({"--bogus"}), AllOf(HasSubstr("--bogus"), HasSubstr("--help")));
  EXPECT_THAT(refusal({"surplus"}), AllOf(HasSubstr("surplus"), HasSubstr("--help")));
  EXPECT_THAT(refusal({"--config"}), AllOf(HasSubstr("--config"), HasSubstr("--help")));
}

TEST_F(Start, VersionAndHelpAreNoRefusals) {
  EXPECT_EQ(world().startDaemon({"--version"}, false).wait(), 0);
  EXPECT_THAT(world().daemon().output().text(), testing::MatchesRegex("l2cpd [0-9.]+\n"));
  EXPECT_EQ(world().startDaemon({"--help"}, false).wait(), 0);
  EXPECT_THAT(world().daemon().output().text(),
              AllOf(HasSubstr("--config"), HasSubstr("--version")));
}

// ---- Without a port mapper ----

class NoPortMapper : public WorldTest {
 protected:
  void SetUp() override {
    WorldTest::SetUp();
    if (!IsSkipped()) world().stopPortMapper();
  }
};

TEST_F(NoPortMapper, DaemonSaysSoForEachTransportAndGoesOn) {
  const support::Process& daemon = world().startDaemon();
  const std::vector<std::string> lines = daemon.output().all();
  ASSERT_GE(lines.size(), 6U);
  const auto message = [](const char* transport, const char* program) {
    return std::string("rte/BLL/core/rpcProxy:[0-9]+ Cannot register ") + transport +
           " RPC service " + program + ", version 1\\.";
  };
  EXPECT_THAT(lines[1], testing::MatchesRegex(message("UDP", "0x2000001d/536870941")));
  EXPECT_THAT(lines[2], testing::MatchesRegex(message("TCP", "0x2000001d/536870941")));
  EXPECT_THAT(lines[3], testing::MatchesRegex(message("UDP", "0x20000100/536871168")));
  EXPECT_THAT(lines[4], testing::MatchesRegex(message("TCP", "0x20000100/536871168")));
  EXPECT_EQ(lines[5], "l2cpd: daemon: ready");
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << daemon.output().text();
}

TEST_F(NoPortMapper, PortMapperThatGoesAwayLeavesClientsServed) {
  world().startPortMapper();
  world().startDaemon();
  const client::Service service("tcp");
  world().stopPortMapper();
  EXPECT_EQ(service.profileAdd({.name = "P"}), RPC_L2CP_OK);
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << world().daemon().output().text();
}

class SilentPortMapper : public WorldTest {};

TEST_F(SilentPortMapper, DoesNotKeepTheDaemonFromBeingStoppedWhileItStarts) {
  world().freezePortMapper();
  const support::Process& daemon = world().startDaemon({}, false);
  ASSERT_TRUE(daemon.output().waitFor(", bridge br0"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_THAT(
      daemon.output().text(),
      testing::EndsWith("l2cpd: warning: rpc: stopped while waiting for the port mapper\n"));
}

TEST_F(SilentPortMapper, DoesNotKeepTheDaemonFromStopping) {
  const support::Process& daemon = world().startDaemon();
  world().freezePortMapper();
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_THAT(daemon.output().text(),
              testing::EndsWith("l2cpd: warning: rpc: the port mapper does not answer; the "
                                "programs stay registered\n"));
}

// ---- Stop ----

class Stop : public WorldTest, public testing::WithParamInterface<int> {};

std::string signalName(const testing::TestParamInfo<int>& signal) {
  return signal.param == SIGTERM ? "SIGTERM" : "SIGINT";
}

INSTANTIATE_TEST_SUITE_P(On, Stop, testing::Values(SIGTERM, SIGINT), signalName);

TEST_P(Stop, EndsWithoutErrorAndTakesThePrograms) {
  world().startDaemon();
  ASSERT_THAT(registrations(), HasSubstr(modulePrograms[0]));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(world().stopDaemon(GetParam()), 0);
  // The loop looks every second whether it is to stop; the rest is for a slow machine.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  const std::string table = registrations();
  for (const char* program : modulePrograms) EXPECT_THAT(table, Not(HasSubstr(program)));
  EXPECT_NE(run({"rpcinfo", "-T", "tcp", "127.0.0.1", modulePrograms[0], "1"}).status, 0);
}

TEST_P(Stop, SaysWhyAndThatItHas) {
  const support::Process& daemon = world().startDaemon();
  ASSERT_TRUE(daemon.output().waitFor("Starting main RPC loop"));
  world().stopDaemon(GetParam());
  const std::vector<std::string> lines = daemon.output().all();
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(lines[3], GetParam() == SIGTERM ? "l2cpd: daemon: stopping on SIGTERM"
                                            : "l2cpd: daemon: stopping on SIGINT");
  EXPECT_EQ(lines[4],
            "[" + std::to_string(daemon.id()) + "] BLLManager_mng: RPC main loop stopping.");
  EXPECT_EQ(lines[5], "l2cpd: daemon: stopped");
}

TEST_P(Stop, OpenConnectionsAndAttachmentsDoNotHoldItUp) {
  world().startDaemon();
  const client::Service service("tcp");
  service.profileAdd({.name = "P"});
  service.entryAdd("P", "LLDP", RPC_L2CP_RULE_TUNNEL);
  service.attach("P", 3, 100);
  const wire::Socket half("tcp");
  half.sendRaw("\x80");
  EXPECT_EQ(world().stopDaemon(GetParam()), 0) << world().daemon().output().text();
}

TEST_P(Stop, DaemonStartsAgainWithNothingOfWhatWas) {
  for (int round = 0; round < 2; ++round) {
    world().startDaemon();
    const client::Service service("udp");
    EXPECT_EQ(service.profileGetAll(), client::List<client::Profile>{});
    EXPECT_EQ(service.profileAdd({.name = "P"}), RPC_L2CP_OK);
    EXPECT_EQ(world().stopDaemon(GetParam()), 0);
  }
}

TEST_P(Stop, SecondDaemonTakesTheProgramsOver) {
  world().startDaemon();
  const client::Service first("tcp");
  EXPECT_EQ(first.profileAdd({.name = "first"}), RPC_L2CP_OK);
  const support::Process second(
      {World::daemonProgram(), "-c", World::file("second.toml", "lock = \"/run/second.lock\"\n")});
  ASSERT_TRUE(second.output().waitFor("l2cpd: daemon: ready"));
  EXPECT_EQ(client::Service("tcp").profileGetAll(), client::List<client::Profile>{});
  EXPECT_EQ(first.profileGet(0).name, "first");
  EXPECT_EQ(world().stopDaemon(GetParam()), 0);
}

/// A client that sends requests without waiting for replies, until the daemon goes.
class Flood {
 public:
  Flood()
      : sender_([this] {
          const std::string request = wire::Call{.procedure = protoGet}.with(index).str();
          const std::string record = wire::Socket::fragment(request, true).str();
          std::string batch;
          for (int i = 0; i < 1000; ++i) batch += record;
          while (socket_.sendRaw(batch)) {
          }
        }),
        receiver_([this] {
          while (const auto reply = socket_.receive()) {
            ++(*reply == wire::success(error) ? replies_ : others_);
          }
        }) {}
  ~Flood() { end(); }
  Flood(const Flood&) = delete;
  Flood& operator=(const Flood&) = delete;

  /// Whole ones, and whatever else came.
  std::size_t replies() const { return replies_; }
  std::size_t others() const { return others_; }
  /// Waits until the daemon is gone and everything that it sent has been received.
  void end() {
    if (sender_.joinable()) sender_.join();
    if (receiver_.joinable()) receiver_.join();
  }

 private:
  static constexpr std::uint32_t protoGet = 4;

  wire::Bytes index = wire::Bytes().word(77);
  // A protocol that does not exist: nothing of it, and the error.
  wire::Bytes error = wire::Bytes().words({0, 0, 0, 0, 0, 0, 1});
  wire::Socket socket_{"tcp"};
  std::atomic<std::size_t> replies_ = 0;
  std::atomic<std::size_t> others_ = 0;
  std::thread sender_;
  std::thread receiver_;
};

TEST_P(Stop, SendsTheRepliesToAllRequestsThatItHasTaken) {
  const support::Process& daemon = world().startDaemon();
  client::Control("udp").message("l2cp_debug", "1");
  Flood flood;
  // In the middle of requests.
  ASSERT_TRUE(support::eventually([&] { return flood.replies() > 100; }));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(world().stopDaemon(GetParam()), 0) << daemon.output().text();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  flood.end();
  const auto executed = [&] {
    const std::vector<std::string> lines = world().systemLog().all();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
          return line.find(" protoGet(idx=77)") != std::string::npos;
        }));
  };
  EXPECT_TRUE(support::eventually([&] { return executed() == flood.replies(); }))
      << executed() << " requests, " << flood.replies() << " replies";
  EXPECT_EQ(flood.others(), 0U);
}

TEST_F(Start, ClientsThatGoAwayBeforeTheirReplyDoNoHarm) {
  world().startDaemon();
  for (int i = 0; i < 50; ++i) {
    wire::Socket("tcp").send(wire::Call{.procedure = 5}.with());
    wire::Socket("udp").send(wire::Call{.procedure = 5}.with());
  }
  EXPECT_EQ(client::Service("tcp").protoGetAll().list.size(), 14U);
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << world().daemon().output().text();
}

TEST_F(Start, DescriptorsDoNotPileUp) {
  const support::Process& daemon = world().startDaemon();
  const auto descriptors = [&] {
    return run({"ls", "/proc/" + std::to_string(daemon.id()) + "/fd"}).output;
  };
  const std::string before = descriptors();
  for (int i = 0; i < 20; ++i) client::Service("tcp").protoGet(0);
  EXPECT_TRUE(support::eventually([&] { return descriptors() == before; }))
      << before << descriptors();
}

}  // namespace
