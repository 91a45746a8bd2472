// The daemon's configuration file: which one is read, what of it is in force, and what happens when
// it is read again. The lock, and what the service manager and the system log are told.

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/world.h"
#include "tests/system/control.h"
#include "tests/system/fixture.h"
#include "tests/system/wire.h"

namespace {

using support::eventually;
using support::run;
using support::World;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

using Ports = std::vector<std::pair<unsigned int, std::string>>;

constexpr const char* configPath = "/run/l2cpd.toml";

void writeConfig(std::string_view contents) { World::file("l2cpd.toml", contents); }

// ---- Which file ----

class ConfigurationFile : public WorldTest {
 protected:
  void install(std::string_view contents) {
    try {
      World::installConfiguration(contents);
    } catch (const support::Unavailable& reason) {
      GTEST_SKIP() << reason.what();
    }
  }
};

TEST_F(ConfigurationFile, ThatIsInstalledIsReadUnlessAnotherIsNamed) {
  install("bridge = \"installed\"\n");
  if (IsSkipped()) return;
  EXPECT_THAT(world().startDaemon().output().text(), HasSubstr(", bridge installed\n"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  writeConfig("bridge = \"named\"\n");
  EXPECT_THAT(world().startDaemon({"-c", configPath}).output().text(),
              HasSubstr(", bridge named\n"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_F(ConfigurationFile, ThatIsInstalledIsRefusedLikeAnyOther) {
  install("bridge = 3\n");
  if (IsSkipped()) return;
  EXPECT_EQ(world().startDaemon({}, false).wait(), 1);
  EXPECT_EQ(world().daemon().output().text(),
            "l2cpd: error: config: " L2CPD_CONFIG ":1: \"bridge\" is not a text\n");
}

TEST_F(ConfigurationFile, MayBeInstalledWhileTheDaemonRuns) {
  const support::Process& daemon = world().startDaemon();
  install("[[port]]\nnumber = 3\nname = \"uplink\"\n");
  if (IsSkipped()) return;
  daemon.signal(SIGHUP);
  // The daemon is in this world's mount namespace.
  EXPECT_TRUE(daemon.output().waitFor("l2cpd: config: " L2CPD_CONFIG " read again"));
  EXPECT_EQ(client::Control("udp").status().ports, (Ports{{3, "uplink"}}));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_F(ConfigurationFile, IsCheckedWithoutStartingOrTouchingAnything) {
  writeConfig(
      "bridge = \"br0\"\nlock = \"/run/checked/lock\"\nstartup = \"/run/checked/script\"\n");
  const auto check = [](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), World::daemonProgram());
    return run(arguments);
  };
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--check", configPath},
                                             {"--check", "--config", configPath},
                                             {"-c", configPath, "--check"}}) {
    const support::Run checked = check(arguments);
    EXPECT_EQ(checked.status, 0);
    EXPECT_EQ(checked.output, "/run/l2cpd.toml: ok\n");
  }
  const support::Run refused =
      check({"--check", World::file("other.toml", "\nbrige = \"br0\"\n"), "-c", configPath});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output, "/run/other.toml:2: unknown key \"brige\"; did you mean \"bridge\"?\n");
  const support::Run missing = check({"--check", "/run/none.toml"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.output, "/run/none.toml: No such file or directory\n");

  EXPECT_FALSE(std::filesystem::exists("/run/checked"));
  EXPECT_FALSE(std::filesystem::exists("/run/l2cpd"));
  EXPECT_THAT(run({"rpcinfo", "-p", "127.0.0.1"}).output, Not(HasSubstr("536870941")));
  EXPECT_EQ(world().systemLog().text(), "");
}

TEST_F(ConfigurationFile, ThatIsInstalledIsCheckedUnlessAnotherIsNamed) {
  const std::vector<std::string> command = {World::daemonProgram(), "--check"};
  if (!std::filesystem::exists(L2CPD_CONFIG)) {
    const support::Run none = run(command);
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.output, L2CPD_CONFIG ": not there, the defaults hold\n");
  }
  install("lock = 3\n");
  if (IsSkipped()) return;
  const support::Run refused = run(command);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output, L2CPD_CONFIG ":1: \"lock\" is not a text\n");
}

// ---- What is in force ----

constexpr const char* wholeConfig =
    "[[port]]\nnumber = 3\ninterface = \"eth3\"\nsvids = { \"metro\" = 100 }\n"
    "[[port]]\nnumber = 7\nname = \"customer\"\n"
    "[[vlan-profile]]\nname = \"metro\"\n"
    "[[service-profile]]\nname = \"business\"\nvlan-profile = \"metro\"\nl2cp-profile = \"gold\"\n";

class Configured : public DaemonTest {
 protected:
  void prepare() override { writeConfig(wholeConfig); }
  std::vector<std::string> arguments() override { return {"--config", configPath}; }

  /// Has the file read again, and waits until that is over. What the log said meanwhile.
  std::vector<std::string> reload() {
    const support::Lines& log = world().daemon().output();
    EXPECT_TRUE(log.waitFor("Starting main RPC loop"));
    const std::size_t before = log.all().size();
    world().daemon().signal(SIGHUP);
    std::vector<std::string> lines;
    EXPECT_TRUE(eventually([&] {
      lines = log.all();
      lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
      return !lines.empty() &&
             (lines.back().ends_with(" read again") || lines.back().ends_with("has changed"));
    }));
    return lines;
  }
};

constexpr const char* readAgain = "l2cpd: config: /run/l2cpd.toml read again";

TEST_F(Configured, ProfilesAndPortsAreThereWhenTheDaemonIsReady) {
  const client::Control control("tcp");
  EXPECT_EQ(control.status().ports, (Ports{{3, "eth3"}, {7, "customer"}}));
  EXPECT_EQ(control.status().classifier, "software");
  EXPECT_THAT(control.vlanProfiles(), ElementsAre(client::VlanProfile{"metro", {{3, 100}}}));
  EXPECT_THAT(control.serviceProfiles(),
              ElementsAre(client::ServiceProfile{"business", "metro", "gold", {}}));
}

TEST_F(Configured, ServiceProfileCanBeAppliedOnceItsL2cpProfileIsThere) {
  const client::Service service("tcp");
  const client::Control control("tcp");
  EXPECT_NE(control.serviceProfileAttach("business", 3), 0);
  service.profileAdd({.name = "gold"});
  service.entryAdd("gold", "LLDP", RPC_L2CP_RULE_TUNNEL);
  EXPECT_EQ(control.serviceProfileAttach("business", 3), 0);
  const client::Link link = service.linkGet(3, 0);
  EXPECT_EQ(link.profileName, "gold");
  EXPECT_EQ(link.vid, 100);
}

TEST_F(Configured, HangUpReadsTheFileAgain) {
  writeConfig(
      "[[port]]\nnumber = 3\nname = \"uplink\"\nsvids = { \"metro\" = 101 }\n"
      "[[vlan-profile]]\nname = \"metro\"\n"
      "[[service-profile]]\nname = \"home\"\nvlan-profile = \"metro\"\n");
  EXPECT_THAT(reload(), ElementsAre(readAgain));
  const client::Control control("udp");
  EXPECT_EQ(control.status().ports, (Ports{{3, "uplink"}}));
  EXPECT_THAT(control.vlanProfiles(), ElementsAre(client::VlanProfile{"metro", {{3, 101}}}));
  EXPECT_THAT(control.serviceProfiles(),
              ElementsAre(client::ServiceProfile{"home", "metro", "", {}}));
}

TEST_F(Configured, FileThatCannotBeUsedChangesNothing) {
  writeConfig("[[vlan-profile]]\nname = \"other\"\n[[port]]\nnumber = 3\nnme = \"a\"\n");
  EXPECT_THAT(reload(),
              ElementsAre("l2cpd: error: config: /run/l2cpd.toml:5: unknown key \"nme\" in "
                          "[[port]]; did you mean \"name\"?; nothing has changed"));
  std::filesystem::remove(configPath);
  EXPECT_THAT(reload(), ElementsAre("l2cpd: error: config: /run/l2cpd.toml: No such file or "
                                    "directory; nothing has changed"));
  const client::Control control("udp");
  EXPECT_EQ(control.status().ports, (Ports{{3, "eth3"}, {7, "customer"}}));
  EXPECT_THAT(control.vlanProfiles(), ElementsAre(client::VlanProfile{"metro", {{3, 100}}}));
  EXPECT_EQ(control.serviceProfiles().size(), 1U);
}

TEST_F(Configured, WhatIsInUseStaysAndIsNamed) {
  const client::Control control("tcp");
  client::Service("tcp").profileAdd({.name = "gold"});
  ASSERT_EQ(control.serviceProfileAttach("business", 3), 0);
  writeConfig("[[port]]\nnumber = 7\nname = \"renamed\"\n");
  EXPECT_THAT(
      reload(),
      ElementsAre("l2cpd: warning: config: the service profile \"business\" is applied on an "
                  "interface and stays",
                  "l2cpd: warning: config: the VLAN profile \"metro\" is named by a service "
                  "profile and stays",
                  readAgain));
  EXPECT_EQ(control.status().ports, (Ports{{7, "renamed"}}));
  EXPECT_THAT(control.serviceProfiles(),
              ElementsAre(client::ServiceProfile{"business", "metro", "gold", {3}}));
  ASSERT_EQ(control.serviceProfileDetach("business", 3), 0);
  EXPECT_THAT(reload(), ElementsAre(readAgain));
  EXPECT_TRUE(control.serviceProfiles().empty());
  EXPECT_TRUE(control.vlanProfiles().empty());
}

TEST_F(Configured, WhatCannotChangeWhileTheDaemonRunsIsSaid) {
  writeConfig("bridge = \"br1\"\nstartup = \"/run/script\"\nlock = \"/run/lock\"\n");
  const std::vector<std::string> expected = {
      "\"bridge\" stays \"br0\" until the daemon is started again",
      "\"startup\" stays \"/var/lib/l2cpd/startup.l2cp\" until the daemon is started again",
      "\"lock\" stays \"/run/l2cpd/l2cpd.lock\" until the daemon is started again"};
  std::vector<std::string> lines;
  std::string text;
  for (const std::string& line : expected) {
    lines.push_back("l2cpd: warning: config: " + line);
    text += (text.empty() ? "" : "\n") + line;
  }
  lines.emplace_back(readAgain);
  EXPECT_EQ(reload(), lines);
  EXPECT_EQ(client::Control("udp").status().bridge, "br0");
  EXPECT_EQ(client::Control("udp").reload(), text);
}

TEST_F(Configured, ClientsCanHaveTheFileReadAgain) {
  const client::Control control("tcp");
  EXPECT_EQ(control.reload(), "");
  writeConfig("[[port]]\nnumber = 3\nname = \"uplink\"\n");
  EXPECT_EQ(control.reload(), "");
  EXPECT_EQ(control.status().ports, (Ports{{3, "uplink"}}));
  writeConfig("classifier = \"hardware\"\n");
  EXPECT_EQ(control.reload(), "/run/l2cpd.toml:1: there is no classifier \"hardware\"");
  EXPECT_EQ(control.status().ports, (Ports{{3, "uplink"}}));
}

TEST_F(Configured, ManyHangUpsBesideRequestsDoNoHarm) {
  const client::Control control("tcp");
  for (int round = 0; round < 100; ++round) {
    world().daemon().signal(SIGHUP);
    EXPECT_EQ(control.status().ports.size(), 2U);
    EXPECT_EQ(control.vlanProfiles().size(), 1U);
  }
}

TEST_F(ConfigurationFile, HangUpWhileTheDaemonStartsIsNotLost) {
  world().freezePortMapper();
  writeConfig("");
  const support::Process& daemon = world().startDaemon({"-c", configPath}, false);
  ASSERT_TRUE(daemon.output().waitFor(", bridge br0"));
  writeConfig("[[port]]\nnumber = 3\nname = \"uplink\"\n");
  daemon.signal(SIGHUP);
  world().thawPortMapper();
  EXPECT_TRUE(daemon.output().waitFor(readAgain));
  EXPECT_EQ(client::Control("tcp").status().ports, (Ports{{3, "uplink"}}));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << daemon.output().text();
}

// ---- The lock ----

class LockOfTheDaemon : public WorldTest {
 protected:
  static std::string contents(const char* path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  /// What a daemon says that does not start with this configuration.
  static std::string refusal(std::string_view config) {
    const support::Run second =
        run({World::daemonProgram(), "-c", World::file("second.toml", config)});
    EXPECT_EQ(second.status, 1);
    return second.output;
  }
};

constexpr const char* defaultLock = "/run/l2cpd/l2cpd.lock";

TEST_F(LockOfTheDaemon, NamesTheDaemonThatRuns) {
  const support::Process& daemon = world().startDaemon();
  EXPECT_EQ(contents(defaultLock), std::to_string(daemon.id()) + "\n");
  const client::Service service("tcp");
  const std::string registered = run({"rpcinfo", "-p", "127.0.0.1"}).output;
  EXPECT_EQ(refusal(""), "l2cpd: error: daemon: another l2cpd is running (process " +
                             std::to_string(daemon.id()) + "), it holds /run/l2cpd/l2cpd.lock\n");
  EXPECT_EQ(run({"rpcinfo", "-p", "127.0.0.1"}).output, registered);
  EXPECT_EQ(service.profileAdd({.name = "P"}), RPC_L2CP_OK);
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_F(LockOfTheDaemon, GoesWithTheProcessHoweverItEnds) {
  for (const int signal : {SIGKILL, SIGTERM, SIGTERM}) {
    const support::Process& daemon = world().startDaemon();
    EXPECT_EQ(contents(defaultLock), std::to_string(daemon.id()) + "\n");
    EXPECT_EQ(world().stopDaemon(signal), signal == SIGKILL ? 128 + SIGKILL : 0);
  }
}

TEST_F(LockOfTheDaemon, IsWhereTheConfigurationSays) {
  const support::Process& daemon =
      world().startDaemon({"-c", World::file("first.toml", "lock = \"/run/a/b/lock\"\n")});
  EXPECT_EQ(contents("/run/a/b/lock"), std::to_string(daemon.id()) + "\n");
  EXPECT_FALSE(std::filesystem::exists(defaultLock));
  EXPECT_THAT(refusal("lock = \"/run/a/b/lock\"\n"), EndsWith(", it holds /run/a/b/lock\n"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_F(LockOfTheDaemon, IsNotNeededAtItsDefaultPlace) {
  World::file("l2cpd", "no folder");
  const support::Process& daemon = world().startDaemon();
  EXPECT_THAT(
      daemon.output().text(),
      testing::StartsWith("l2cpd: warning: daemon: no lock: /run/l2cpd: Not a directory\n"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_F(LockOfTheDaemon, IsNeededAtAPlaceThatTheConfigurationNames) {
  World::file("l2cpd", "no folder");
  EXPECT_EQ(refusal("lock = \"/run/l2cpd/l2cpd.lock\"\n"),
            "l2cpd: error: daemon: /run/l2cpd: Not a directory\n");
}

TEST_F(LockOfTheDaemon, StartupFolderIsMadeAndNeededOnlyWhereTheConfigurationNamesOne) {
  world().startDaemon();
  EXPECT_TRUE(std::filesystem::is_directory("/var/lib/l2cpd"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  std::filesystem::remove_all("/var/lib/l2cpd");
  std::ofstream("/var/lib/l2cpd") << "no folder";
  EXPECT_THAT(world().startDaemon().output().text(),
              HasSubstr("l2cpd: warning: daemon: no folder for the startup script: "
                        "/var/lib/l2cpd: Not a directory\n"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_EQ(refusal("startup = \"/var/lib/l2cpd/script\"\n"),
            "l2cpd: error: config: /var/lib/l2cpd: Not a directory\n");
}

/// The daemon as a user without rights and folders.
class DaemonOfAUser : public WorldTest {
 protected:
  void SetUp() override {
    WorldTest::SetUp();
    if (IsSkipped()) return;
    const support::Run version = run(command({}, {"--version"}));
    if (version.status != 0) GTEST_SKIP() << "there is no other user here: " << version.output;
  }

  static std::vector<std::string> command(const std::vector<std::string>& variables,
                                          const std::vector<std::string>& arguments = {}) {
    std::vector<std::string> words{
        "setpriv", "--reuid=65534",  "--clear-groups", "env", "-u", "HOME", "-u", "XDG_STATE_HOME",
        "-u",      "XDG_RUNTIME_DIR"};
    words.insert(words.end(), variables.begin(), variables.end());
    words.emplace_back(World::daemonProgram());
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
  }
};

TEST_F(DaemonOfAUser, SaysThatThereIsNoFolderForTheLock) {
  support::Process daemon(command({}));
  EXPECT_TRUE(daemon.output().waitFor("l2cpd: daemon: ready"));
  EXPECT_THAT(daemon.output().text(), HasSubstr("l2cpd: warning: daemon: no lock: "
                                                "XDG_RUNTIME_DIR names no folder for it\n"));
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0) << daemon.output().text();
}

TEST_F(DaemonOfAUser, DoesNotStartBesideALockThatItMayNotLookInto) {
  std::filesystem::create_directories("/run/user/l2cpd");
  std::filesystem::permissions(World::file("user/l2cpd/l2cpd.lock", ""),
                               std::filesystem::perms::none);
  const support::Run refused = run(command({"XDG_RUNTIME_DIR=/run/user"}));
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output,
            "l2cpd: error: daemon: /run/user/l2cpd/l2cpd.lock: Permission denied\n");
}

// ---- The service manager ----

/// A service manager that listens, and a daemon that it started.
class Managed : public WorldTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    WorldTest::SetUp();
    if (IsSkipped()) return;
    const std::string name = GetParam();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (name.front() == '@') address.sun_path[0] = '\0';
    support::Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    socket_ = socket.get();
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the sockets interface wants it
    ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0);
    heard_ = std::make_unique<support::Lines>(std::move(socket), support::Lines::Kind::datagrams);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    writeConfig("");
  }
  void TearDown() override {
    unsetenv("NOTIFY_SOCKET");
    if (heard_) shutdown(socket_, SHUT_RDWR);
  }

  const support::Lines& heard() const { return *heard_; }
  /// Waits until that many lines are there.
  std::vector<std::string> heard(std::size_t count) const {
    EXPECT_TRUE(eventually([&] { return heard().all().size() >= count; })) << heard().text();
    return heard().all();
  }

 private:
  int socket_ = -1;
  std::unique_ptr<support::Lines> heard_;
};

INSTANTIATE_TEST_SUITE_P(At, Managed, testing::Values("@notify", "/run/notify"),
                         [](const auto& name) {
                           return *name.param == '@' ? "AnAbstractName" : "APath";
                         });

TEST_P(Managed, IsReadyWhenRequestsAreServed) {
  world().freezePortMapper();
  const support::Process& daemon = world().startDaemon({"-c", configPath}, false);
  ASSERT_TRUE(daemon.output().waitFor("waiting for the port mapper"));
  EXPECT_EQ(heard().text(), "");
  world().thawPortMapper();
  ASSERT_TRUE(heard().waitFor("READY=1"));
  EXPECT_EQ(client::Service("tcp").connection().ping(), RPC_SUCCESS);
  EXPECT_EQ(client::Control("udp").status().pid, static_cast<unsigned int>(daemon.id()));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_THAT(heard(4),
              ElementsAre("READY=1", "STATUS=Serving requests", "STOPPING=1", "STATUS=Stopping"));
}

TEST_P(Managed, IsToldOfTheEndOfADaemonThatWaitsForThePortMapper) {
  world().freezePortMapper();
  const support::Process& daemon = world().startDaemon({"-c", configPath}, false);
  ASSERT_TRUE(daemon.output().waitFor(", bridge br0"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_THAT(heard(2), ElementsAre("STOPPING=1", "STATUS=Stopping"));
}

TEST_P(Managed, IsToldOfReloads) {
  const support::Process& daemon = world().startDaemon({"-c", configPath});
  heard(2);
  daemon.signal(SIGHUP);
  EXPECT_THAT(heard(7), ElementsAre("READY=1", "STATUS=Serving requests", "RELOADING=1",
                                    testing::StartsWith("MONOTONIC_USEC="),
                                    "STATUS=Reading the configuration again", "READY=1",
                                    "STATUS=Serving requests"));
  writeConfig("bridge = 3\n");
  daemon.signal(SIGHUP);
  EXPECT_EQ(heard(12).back(),
            "STATUS=Serving requests; the new configuration was refused, see the log");
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_P(Managed, IsToldNothingByADaemonThatDoesNotStart) {
  writeConfig("bridge = 3\n");
  EXPECT_EQ(world().startDaemon({"-c", configPath}, false).wait(), 1);
  EXPECT_EQ(heard().text(), "");
}

// ---- The log ----

class LogOfTheDaemon : public WorldTest {};

TEST_F(LogOfTheDaemon, IsTheSystemLogAndStandardError) {
  const support::Process& daemon = world().startDaemon();
  const std::string tag = " l2cpd[" + std::to_string(daemon.id()) + "]: ";
  EXPECT_TRUE(world().systemLog().waitFor(tag + "daemon: ready"));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  for (const std::string& line : world().systemLog().all()) {
    EXPECT_TRUE(line.starts_with("<30>")) << line;  // Facility of daemons, information.
    EXPECT_THAT(line, HasSubstr(tag));
  }
  EXPECT_TRUE(daemon.output().waitFor("l2cpd: daemon: stopped"));
  writeConfig("bridge = 3\n");
  EXPECT_EQ(world().startDaemon({"-c", configPath}, false).wait(), 1);
  EXPECT_TRUE(
      world().systemLog().waitFor("]: error: config: /run/l2cpd.toml:1: \"bridge\" is not a text"));
  EXPECT_THAT(world().systemLog().all().back(), testing::StartsWith("<27>"));
}

TEST_F(LogOfTheDaemon, HasWhatItsLevelLetsThrough) {
  const support::Process& daemon = world().startDaemon({"--log-level", "warning"}, false);
  EXPECT_TRUE(daemon.output().waitFor("Starting main RPC loop"));
  EXPECT_EQ(client::Control("tcp").status().pid, static_cast<unsigned int>(daemon.id()));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_THAT(daemon.output().text(), Not(HasSubstr("l2cpd: ")));
  EXPECT_EQ(world().systemLog().text(), "");

  for (const char* word : {"loud", "1", ""}) {
    EXPECT_EQ(world().startDaemon({"--log-level", word}, false).wait(), 1);
    EXPECT_THAT(
        world().daemon().output().text(),
        testing::AllOf(HasSubstr("{error,warning,information,debug}"), HasSubstr("--help")));
  }
}

}  // namespace
