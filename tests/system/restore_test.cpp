// What was saved is there after a restart.

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <utility>

#include "script/script.h"
#include "tests/system/road.h"
#include "tests/system/startup.h"

namespace {

using namespace frames;
using testing::ElementsAre;
using testing::IsEmpty;

class Restore : public StartupTest {
 protected:
  void makeProfile(const std::string& name, const char* protocol, rpc_l2cp_rule rule) {
    ASSERT_EQ(service().profileAdd({.name = name}), RPC_L2CP_OK);
    ASSERT_EQ(service().entryAdd(name, protocol, rule), RPC_L2CP_OK);
  }
  void makeService(const std::string& name, const std::string& profile, int intf, int svid) {
    ASSERT_EQ(control().vlanProfileAdd(name), 0);
    ASSERT_EQ(control().vlanProfileSetSvid(name, intf, svid), 0);
    ASSERT_EQ(control().serviceProfileAdd(name), 0);
    ASSERT_EQ(control().serviceProfileSetVlan(name, name), 0);
    ASSERT_EQ(control().serviceProfileSetL2cp(name, profile), 0);
    ASSERT_EQ(control().serviceProfileAttach(name, intf), 0);
  }

  /// What becomes of a frame: its fate, and the position of the entry that it met.
  using Met = std::pair<control_fate, unsigned int>;
  std::vector<Met> met(unsigned int port, const std::vector<Bytes>& frames) {
    std::vector<Met> results;
    for (const client::Verdict& verdict : control().feed(port, frames)) {
      results.emplace_back(verdict.fate, verdict.met ? verdict.index : 0);
    }
    return results;
  }
};

TEST_F(Restore, SavedConfigurationIsInForceAfterARestart) {
  start();
  service().protoAdd(
      {.name = "own", .mac = {0x01, 0x80, 0xc2, 0, 0, 0x0e}, .etherType = 0x88cc, .subType = 0xff});
  makeProfile("A", "own", RPC_L2CP_RULE_PEER);
  makeProfile("B", "LLDP", RPC_L2CP_RULE_TUNNEL);
  makeProfile("C", "xSTP", RPC_L2CP_RULE_DISCARD);
  // Which of them a frame meets is a matter of their order alone.
  service().attach("B", 3, 100);
  service().attach("A", 3, 4095);
  makeService("s", "C", 3, 100);
  service().attach("A", 4, 4095);
  service().attach("B", 4, 100);

  const std::vector<Bytes> frames = {lldp(100), lldp(101), untaggedLldp(), stp(100), stp(101)};
  const std::vector<Met> on3 = met(3, frames);
  EXPECT_EQ(on3, (std::vector<Met>{{CONTROL_FATE_TUNNEL, 200},
                                   {CONTROL_FATE_PEER, 201},
                                   {CONTROL_FATE_PEER, 201},
                                   {CONTROL_FATE_DISCARD, 202},
                                   {CONTROL_FATE_UNTOUCHED, 299}}));
  const std::vector<Met> on4 = met(4, frames);
  const Lines lines = running();
  save();
  EXPECT_EQ(fileLines(path), lines);

  restart();
  EXPECT_THAT(startupMessages(),
              ElementsAre("startup: /run/startup.l2cp: 17 commands, 0 problems"));
  EXPECT_EQ(running(), lines);
  EXPECT_EQ(met(3, frames), on3);
  EXPECT_EQ(met(4, frames), on4);
  EXPECT_EQ(control().serviceProfiles().at(0).interfaces, std::vector<int>{3});
}

TEST_F(Restore, ProfileOfSeveralRulesTakesItsPositionsTogether) {
  start();
  for (const char* name : {"A", "B"}) {
    makeProfile(name, "LLDP", RPC_L2CP_RULE_DISCARD);
    ASSERT_EQ(service().entryAdd(name, "LACP-LAMP", RPC_L2CP_RULE_PEER), RPC_L2CP_OK);
    ASSERT_EQ(service().entryAdd(name, "xSTP", RPC_L2CP_RULE_TUNNEL), RPC_L2CP_OK);
  }
  service().attach("B", 3, 7);
  service().attach("A", 3, 6);
  const auto positions = [&](std::uint16_t vlan) {
    std::set<unsigned int> taken;
    std::vector<control_fate> fates;
    for (const auto& [fate, position] : met(3, {lldp(vlan), lacp(vlan), stp(vlan)})) {
      fates.push_back(fate);
      taken.insert(position);
    }
    EXPECT_THAT(fates, ElementsAre(CONTROL_FATE_DISCARD, CONTROL_FATE_PEER, CONTROL_FATE_TUNNEL));
    return taken;
  };
  for (int round = 0; round < 2; ++round) {
    EXPECT_THAT(positions(7), ElementsAre(200, 201, 202));
    EXPECT_THAT(positions(6), ElementsAre(203, 204, 205));
    save();
    restart();
  }
}

TEST_F(Restore, WhatWasNotSavedIsGone) {
  start();
  EXPECT_THAT(startupMessages(), IsEmpty());
  makeProfile("A", "LLDP", RPC_L2CP_RULE_PEER);
  save();
  makeProfile("B", "LLDP", RPC_L2CP_RULE_PEER);
  restart();
  EXPECT_THAT(running(), ElementsAre("", "l2cp-profile A", " protocol \"LLDP\" rule peer", "exit"));
}

TEST_F(Restore, PreviousScriptIsKept) {
  start();
  makeProfile("A", "LLDP", RPC_L2CP_RULE_PEER);
  save();
  const Lines first = fileLines(path);
  ASSERT_EQ(service().profileDel("A"), RPC_L2CP_OK);
  save();
  EXPECT_THAT(fileLines(path), ElementsAre(""));
  EXPECT_EQ(fileLines(std::string(path) + ".old"), first);
}

TEST_F(Restore, LinesWithProblemsAreNamedAndTheOthersCarriedOut) {
  support::World::file("startup.l2cp",
                       "l2cp-profile A\n"
                       " protocol \"LLDP\" rule peer\n"
                       " protocol \"LLDP\" rule drop\n"
                       "exit\n"
                       "attach A port 3\n"
                       "attach B port 3\n"
                       "\x1b[2J");
  start();
  EXPECT_THAT(startupMessages(),
              ElementsAre("startup: /run/startup.l2cp:3: the rule is not \"discard\", \"peer\" or "
                          "\"tunnel\"",
                          "startup: /run/startup.l2cp:7: there is a control character in the line",
                          "startup: /run/startup.l2cp:6: there is no profile or protocol of this "
                          "name",
                          "startup: /run/startup.l2cp: 3 commands, 3 problems"));
  EXPECT_EQ(control().fate(3, untaggedLldp()), CONTROL_FATE_PEER);
}

TEST_F(Restore, StrictStartHasOnlyWhatTheConfigurationFileMakesIfALineHasAProblem) {
  for (const char* bad : {"attach B port 3\n", "attach A port\n"}) {
    support::World::file("startup.l2cp", std::string("vlan-profile metro\n"
                                                     " interface 4 svid 8\n"
                                                     "exit\n"
                                                     "vlan-profile extra\n"
                                                     "exit\n"
                                                     "l2cp-profile A\n"
                                                     " protocol \"LLDP\" rule peer\n"
                                                     "exit\n"
                                                     "attach A port 3\n") +
                                             bad);
    world().startDaemon(
        {"--config", support::World::file("strict.toml", "startup = \"" + std::string(path) +
                                                             "\"\n"
                                                             "strict-startup = true\n"
                                                             "[[vlan-profile]]\n"
                                                             "name = \"metro\"\n"
                                                             "[[port]]\n"
                                                             "number = 3\n"
                                                             "name = \"three\"\n"
                                                             "svids = { metro = 7 }\n")});
    connect();
    EXPECT_THAT(running(), ElementsAre("", "vlan-profile metro", " interface 3 svid 7", "exit"));
    EXPECT_EQ(control().fate(3, untaggedLldp()), CONTROL_FATE_UNTOUCHED);
    EXPECT_THAT(startupMessages(),
                testing::Contains("startup: /run/startup.l2cp: 0 commands, 1 problems"));
    EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  }
}

TEST_F(Restore, WhatClientsTookAwayFromTheProfilesOfTheConfigurationFileStaysAway) {
  const auto startWithProfiles = [this] {
    world().startDaemon(
        {"--config", support::World::file("profiles.toml", "startup = \"" + std::string(path) +
                                                               "\"\n"
                                                               "[[vlan-profile]]\n"
                                                               "name = \"metro\"\n"
                                                               "[[vlan-profile]]\n"
                                                               "name = \"spare\"\n"
                                                               "[[service-profile]]\n"
                                                               "name = \"business\"\n"
                                                               "vlan-profile = \"spare\"\n"
                                                               "l2cp-profile = \"gold\"\n"
                                                               "[[service-profile]]\n"
                                                               "name = \"gone\"\n"
                                                               "vlan-profile = \"metro\"\n"
                                                               "[[port]]\n"
                                                               "number = 3\n"
                                                               "name = \"three\"\n"
                                                               "svids = { metro = 7 }\n")});
  };
  startWithProfiles();
  connect();
  EXPECT_EQ(control().serviceProfileDelete("gone"), 0);
  EXPECT_EQ(control().serviceProfileSetVlan("business", "metro"), 0);
  EXPECT_EQ(control().serviceProfileSetL2cp("business", ""), 0);
  EXPECT_EQ(control().vlanProfileDelete("spare"), 0);
  EXPECT_EQ(control().vlanProfileSetSvid("metro", 3, 0), 0);
  EXPECT_EQ(control().vlanProfileSetSvid("metro", 4, 8), 0);
  const Lines lines = running();
  // Twice: what has gone from the file's profiles has to be said again.
  for (int round = 0; round < 2; ++round) {
    save();
    EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
    startWithProfiles();
    connect();
    EXPECT_EQ(running(), lines);
    EXPECT_THAT(startupMessages(), testing::Contains(testing::HasSubstr("0 problems")));
  }
  // A file that has not got them any more is no problem either.
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  start();
  EXPECT_EQ(running(), lines);
  EXPECT_THAT(startupMessages(), testing::Contains(testing::HasSubstr("0 problems")));
}

TEST_F(Restore, WhatIsNoFileIsNoReasonNotToStart) {
  mkdir(path, 0700);
  start();
  EXPECT_THAT(startupMessages(), ElementsAre("startup: /run/startup.l2cp: is not a regular file",
                                             "startup: /run/startup.l2cp: 0 commands, 1 problems"));
  EXPECT_EQ(control().save(),
            std::pair(CONTROL_ERR_FAILED, std::string("/run/startup.l2cp is not a regular file")));
}

TEST_F(Restore, SavingIsRefusedWithoutAPath) {
  world().startDaemon({"--config", support::World::file("none.toml", "startup = \"\"\n")});
  EXPECT_EQ(
      client::Control("tcp").save(),
      std::pair(CONTROL_ERR_FAILED, std::string("the configuration names no startup script")));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_F(Restore, FullDiskLeavesTheScriptAndTheDaemonAsTheyAre) {
  ASSERT_EQ(mkdir("/run/disk", 0700), 0);
  ASSERT_EQ(mount("none", "/run/disk", "tmpfs", 0, "size=8k"), 0);
  world().startDaemon(
      {"--config", support::World::file("disk.toml", "startup = \"/run/disk/startup.l2cp\"\n")});
  connect();
  makeProfile("A", "LLDP", RPC_L2CP_RULE_PEER);
  EXPECT_EQ(control().save().first, CONTROL_OK);
  const Lines saved = fileLines("/run/disk/startup.l2cp");
  for (std::uint16_t vid = 0; vid < 200; ++vid) service().attach("A", 3, vid);
  EXPECT_EQ(control().save(),
            std::pair(CONTROL_ERR_FAILED, std::string("cannot write /run/disk/startup.l2cp.new: No "
                                                      "space left on device")));
  EXPECT_EQ(fileLines("/run/disk/startup.l2cp"), saved);
  EXPECT_NE(access("/run/disk/startup.l2cp.new", F_OK), 0);
  for (std::uint16_t vid = 0; vid < 200; ++vid) service().detach("A", 3, vid);
  EXPECT_EQ(control().save().first, CONTROL_OK);
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

// ---- Names ----

TEST_F(Restore, NamesOfClientsSmuggleNothingIntoTheScript) {
  start();
  makeProfile("victim", "LLDP", RPC_L2CP_RULE_PEER);
  for (const std::string name :
       {"a\nattach victim port 9\n", "b\rattach victim port 9", "c\" x\nattach victim port 9",
        "\x1b[2Jd", "e\" rule peer\n\"", "\x7f", "f\" mac any\nexit\n"}) {
    service().protoAdd({.name = name.substr(0, 30), .mac = {1, 2, 3, 4, 5, 6}});
    service().profileAdd({.name = name});
    service().attach(name, 3, 1);
    service().profileAdd({.name = name + "r"});
    service().entryAdd(name + "r", "LLDP", RPC_L2CP_RULE_PEER);
    service().entryAdd(name + "r", name, RPC_L2CP_RULE_PEER);
    service().attach(name + "r", 3, 1);
    control().vlanProfileAdd(name);
    control().vlanProfileSetSvid(name, 3, 5);
    control().serviceProfileAdd(name);
    control().serviceProfileSetVlan(name, name);
    control().serviceProfileSetL2cp(name, name + "r");
    control().serviceProfileAttach(name, 3);
  }
  ASSERT_EQ(service().linkGet(3, 13).error, RPC_L2CP_OK);
  save();
  script::Reader reader;
  for (const std::string& line : fileLines(path)) {
    EXPECT_NO_THROW(reader.read(line)) << line;
    EXPECT_FALSE(line.starts_with("attach")) << line;
  }
  restart();
  EXPECT_THAT(startupMessages(), ElementsAre("startup: /run/startup.l2cp: 2 commands, 0 problems"));
  EXPECT_THAT(running(),
              ElementsAre("", "l2cp-profile victim", " protocol \"LLDP\" rule peer", "exit"));
}

// ---- Any state ----

/// Clients of both services that do something, with names that are awkward to write.
class Clients {
 public:
  /// Few names at a time, so that they meet.
  Clients(const client::Service& service, const client::Control& control, unsigned int seed)
      : service_(service), control_(control), random_(seed) {
    const std::vector<std::string> all = {"a",       "b c",  "d\te",   "\"f\"",    "g\"h",
                                          "exit",    "\" i", "j\n! k", "",         "\xc3\xa4\xff",
                                          "no port", "\"",   "l\x01",  "m port 1", "x"};
    std::sample(all.begin(), all.end(), std::back_inserter(names_), 3, random_);
  }

  void act() {
    const std::string one = name();
    const std::string other = name();
    const int intf = static_cast<int>(below(3));
    switch (below(22)) {
      case 0:
        service_.protoAdd({.name = one,
                           .mac = client::Mac(6, static_cast<unsigned char>(below(2))),
                           .etherType = static_cast<std::uint16_t>(below(2) == 0 ? 0xffff : 0x88b5),
                           .subType = static_cast<std::uint8_t>(below(2) == 0 ? 0xff : 3)});
        break;
      case 1:
        service_.protoDel(one);
        break;
      case 2:
        service_.protoRen(protocol(), protocol());
        break;
      case 3:
      case 4:
        service_.profileAdd({.dynamic = below(8) == 0, .protect = below(8) == 0, .name = one});
        break;
      case 5:
        service_.profileDel(one);
        break;
      case 6:
        service_.profileRen(one, other);
        break;
      case 7:
      case 8:
      case 9:
        service_.entryAdd(one, protocol(), static_cast<rpc_l2cp_rule>(below(3)));
        break;
      case 10:
        service_.entryDel(one, protocol());
        break;
      case 11:
      case 12:
        service_.attach(one, static_cast<unsigned int>(intf), vid());
        break;
      case 13:
        service_.detach(one, static_cast<unsigned int>(intf), vid());
        break;
      case 14:
        service_.profileOnExit(one, other);
        break;
      case 15:
        control_.vlanProfileAdd(one);
        break;
      case 16:
        control_.vlanProfileSetSvid(one, intf, static_cast<int>(below(3)));
        break;
      case 17:
        control_.serviceProfileAdd(one);
        break;
      case 18:
        control_.serviceProfileSetVlan(one, other);
        break;
      case 19:
        control_.serviceProfileSetL2cp(one, other);
        break;
      case 20:
        control_.serviceProfileAttach(one, intf);
        break;
      default:
        if (below(10) == 0) control_.applyDefaults();
        control_.serviceProfileDetach(one, intf);
    }
  }

 private:
  unsigned int below(unsigned int end) {
    return std::uniform_int_distribution<unsigned int>(0, end - 1)(random_);
  }
  std::string name() { return names_[below(static_cast<unsigned int>(names_.size()))]; }
  std::string protocol() { return below(3) == 0 ? "LLDP" : name(); }
  std::uint16_t vid() { return below(4) == 0 ? 4095 : static_cast<std::uint16_t>(below(3)); }

  const client::Service& service_;
  const client::Control& control_;
  std::mt19937 random_;
  std::vector<std::string> names_;
};

TEST_F(Restore, AnyStateSaysTheSameAfterARestart) {
  for (unsigned int seed = 1; seed <= 20; ++seed) {
    start();
    Clients clients(service(), control(), seed);
    for (int i = 0; i < 300; ++i) clients.act();
    const Lines lines = running();
    save();
    EXPECT_EQ(fileLines(path), lines);
    restart();
    const Lines messages = startupMessages();
    EXPECT_TRUE(messages.empty() || messages.back().ends_with(" 0 problems"))
        << "seed " << seed << testing::PrintToString(messages);
    EXPECT_EQ(support::said(running()), support::said(lines)) << "seed " << seed;
    kill();
    unlink(path);
  }
}

}  // namespace
