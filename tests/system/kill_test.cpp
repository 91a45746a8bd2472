// The daemon is killed at a random moment while clients attach, detach and save, and has to come
// back with what was saved. L2CP_KILL_ROUNDS says how often (20 times without it), L2CP_KILL_SEED
// chooses what the clients do and when the daemon is killed.

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <thread>

#include "script/script.h"
#include "tests/system/startup.h"
#include "tests/system/wire.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;

#ifdef L2CP_SANITIZED
constexpr auto longestRestart = 10s;
#else
constexpr auto longestRestart = 2s;
#endif

unsigned int setting(const char* name, unsigned int otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : static_cast<unsigned int>(std::strtoul(text, nullptr, 10));
}

constexpr unsigned int noisePort = 1000;

/// Attaches and detaches the profile "noise", again and again until the daemon goes away.
class Noise {
 public:
  explicit Noise(unsigned int port) : thread_([this, port] { run(port); }) {}
  ~Noise() { thread_.join(); }
  Noise(const Noise&) = delete;
  Noise& operator=(const Noise&) = delete;

 private:
  void run(unsigned int port) const {
    constexpr std::uint32_t attach = 60;
    constexpr std::uint32_t detach = 61;
    const wire::Bytes place = wire::Bytes().text("noise").words({port, 7});
    for (;;) {
      for (const std::uint32_t procedure : {attach, detach}) {
        socket_.send(wire::Call{.procedure = procedure}.with(place));
        if (!socket_.receive()) return;
      }
    }
  }

  wire::Socket socket_{"tcp"};
  std::thread thread_;
};

/// Kills a process after a while.
class Killer {
 public:
  Killer(const support::Process& process, std::chrono::microseconds delay)
      : thread_([&process, delay] {
          std::this_thread::sleep_for(delay);
          process.signal(SIGKILL);
        }) {}
  ~Killer() { thread_.join(); }
  Killer(const Killer&) = delete;
  Killer& operator=(const Killer&) = delete;

 private:
  std::thread thread_;
};

/// Without what `Noise` did, which nobody knows.
Lines withoutNoise(Lines lines) {
  std::erase_if(lines, [](const std::string& line) { return line.starts_with("attach noise "); });
  return lines;
}

class Kill : public StartupTest {
 protected:
  void SetUp() override {
    StartupTest::SetUp();
    if (IsSkipped()) return;
    const unsigned int seed = setting("L2CP_KILL_SEED", std::random_device()());
    std::cout << "L2CP_KILL_SEED=" << seed << "\n";
    random_.seed(seed);
    start();
    service().profileAdd({.name = "noise"});
    service().entryAdd("noise", "CDP", RPC_L2CP_RULE_TUNNEL);
    // Saved scripts shall be long enough to be cut in two.
    for (int i = 0; i < 100; ++i) {
      const std::string name = "profile " + std::to_string(i);
      service().profileAdd({.name = name});
      service().entryAdd(name, "LLDP", RPC_L2CP_RULE_PEER);
    }
    control().vlanProfileAdd("v");
    control().serviceProfileAdd("s");
    control().serviceProfileSetVlan("s", "v");
    control().serviceProfileSetL2cp("s", "profile 0");
    beginSaving();
    save();
    saved_ = saving_;
  }

  unsigned int below(unsigned int end) {
    return std::uniform_int_distribution<unsigned int>(0, end - 1)(random_);
  }

  void detachFirst(unsigned int port) {
    const client::Link link = service().linkGet(port, 0);
    if (link.error == RPC_L2CP_OK) service().detach(link.profileName, port, link.vid);
  }

  void change() {
    const std::string name = "profile " + std::to_string(below(100));
    const unsigned int port = below(3);
    const auto vid = static_cast<std::uint16_t>(below(3));
    switch (below(6)) {
      case 0:
        service().entryAdd(name, "xSTP", RPC_L2CP_RULE_DISCARD);
        break;
      case 1:
        service().entryDel(name, "xSTP");
        break;
      case 2:
        service().attach(name, port, vid);
        break;
      case 3:
        detachFirst(port);
        break;
      case 4:
        control().vlanProfileSetSvid("v", static_cast<int>(port), 300);
        control().serviceProfileAttach("s", static_cast<int>(port));
        break;
      default:
        control().serviceProfileDetach("s", static_cast<int>(port));
    }
  }

  void beginSaving() { saving_ = withoutNoise(running()); }

  /// Changes and saves until the daemon is killed.
  void work(std::chrono::microseconds time) {
    const Noise one(noisePort);
    const Noise other(noisePort + 1);
    const Killer killer(world().daemon(), time);
    try {
      for (;;) {
        for (unsigned int changes = below(3); changes != 0; --changes) change();
        beginSaving();
        if (control().save().first != CONTROL_OK) ADD_FAILURE() << "not saved";
        saved_ = saving_;
        ++saves_;
      }
    } catch (const client::CallFailed&) {
      // It was killed.
    }
  }

  /// As a script that nobody finished would not be.
  static void expectReadable(const std::string& file) {
    script::Reader reader;
    for (const std::string& line : fileLines(file)) EXPECT_NO_THROW(reader.read(line)) << line;
    EXPECT_EQ(reader.mode(), script::Mode::configuration) << file;
  }

  /// Starts it and expects what was saved last, or was being saved.
  void expectRestored() {
    expectReadable(path);
    if (access(previous, F_OK) == 0) expectReadable(previous);
    const Lines script = withoutNoise(fileLines(path));
    EXPECT_THAT(script, testing::AnyOf(saved_, saving_));

    const Clock::time_point begin = Clock::now();
    start();
    const Lines lines = running();
    EXPECT_LT(Clock::now() - begin, longestRestart);
    const Lines messages = startupMessages();
    ASSERT_EQ(messages.size(), 1U) << testing::PrintToString(messages);
    EXPECT_TRUE(messages[0].ends_with(" commands, 0 problems")) << messages[0];
    EXPECT_EQ(support::said(withoutNoise(lines)), support::said(script));
    saved_ = script;
    saving_ = script;
  }

  static constexpr const char* previous = "/run/startup.l2cp.old";

  std::mt19937 random_;
  Lines saved_;
  Lines saving_;
  unsigned int saves_ = 0;
};

TEST_F(Kill, AtAnyMomentLeavesAStateThatWasSaved) {
  unsigned int longestRound = 50000;
  const unsigned int rounds = setting("L2CP_KILL_ROUNDS", 20);
  for (unsigned int round = 0; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    work(std::chrono::microseconds(below(longestRound)));
    kill();
    expectRestored();
    // So that something is saved in time on a slow machine, too.
    if (saves_ == 0 && longestRound < 1000000) longestRound *= 2;
  }
  EXPECT_GT(saves_, 0U);
  RecordProperty("saves", static_cast<int>(saves_));
}

TEST_F(Kill, WhileItStartsChangesNothing) {
  constexpr unsigned int longestStart = 30000;
  const unsigned int rounds = setting("L2CP_KILL_ROUNDS", 20);
  kill();
  for (unsigned int round = 0; round < rounds; ++round) {
    const support::Process& daemon = world().startDaemon(arguments(), false);
    std::this_thread::sleep_for(std::chrono::microseconds(below(longestStart)));
    daemon.signal(SIGKILL);
    world().daemon().wait();
  }
  expectRestored();
}

}  // namespace
