// watch, explain, metrics and check against a real daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cli/client.h"
#include "cli/refusal.h"
#include "tests/cli/command_line.h"
#include "tests/cli/live_daemon.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/system/fixture.h"

namespace {
// How much older than it is the daemon says to be, when it is asked for the first time.
std::uint32_t addedToFirstUptime = 0;
}  // namespace

extern "C" control_status* askForStatus(CLIENT* client) asm("__real_control_status_1");
extern "C" control_status* askForOlderStatus(CLIENT* client) asm("__wrap_control_status_1");

control_status* askForOlderStatus(CLIENT* client) {
  control_status* const status = askForStatus(client);
  if (status != nullptr) status->uptime += std::exchange(addedToFirstUptime, 0);
  return status;
}

namespace cli {
namespace {

using support::Process;
using support::World;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class Explaining : public DaemonTest {};
class Checking : public DaemonTest {};
class Watching : public DaemonTest {};

// A profile with one rule.
void makeProfile(const std::string& name, const std::string& protocol, const std::string& rule) {
  does({{"profile", "add", name}, {"profile", "rule", "add", name, protocol, rule}});
}

// ---- Explaining ----

// An entry for each kind of condition, in this order: 200 to 204.
void attachOneOfEach() {
  makeProfile("cfm", "OAM-CFM", "peer");
  makeProfile("efm", "OAM-EFM", "discard");
  makeProfile("mspp", "MSPP", "discard");
  makeProfile("my net", "LACP-LAMP", "tunnel");
  does({{"attach", "cfm", "port", "3", "vlan", "100"},
        {"attach", "cfm", "port", "3"},
        {"attach", "mspp", "port", "3"},
        {"attach", "efm", "port", "3"},
        {"attach", "my net", "port", "3"}});
}

constexpr const char* lacp = "0180c2000002 020000000001 8809 01";
constexpr const char* mspp = "0180c2000003 020000000001 88a8 0007 888e 01";

TEST_F(Explaining, TellsWhyAFrameMeetsItsEntryAndNoneBefore) {
  attachOneOfEach();
  EXPECT_EQ(
      shown({"explain", "3", "hex", lacp}),
      "frame        1\n"
      "length       15\n"
      "destination  01:80:c2:00:00:02\n"
      "vlan         -\n"
      "type         0x8809 LACP\n"
      "fate         tunnel\n"
      "entry        204\n"
      "profile      \"my net\"\n"
      "protocol     LACP-LAMP\n"
      "\n"
      "ENTRY  PROFILE   PROTOCOL   VLAN  FATE     RESULT  CONDITION    EXPECTED               "
      "              FOUND\n"
      "  200  cfm       OAM-CFM     100  peer     missed  vlan         100                    "
      "              -\n"
      "  201  cfm       OAM-CFM     all  peer     missed  destination  "
      "01:80:c2:00:00:30/ff:ff:ff:ff:ff:f0  01:80:c2:00:00:02\n"
      "  202  mspp      MSPP        all  discard  missed  destination  01:80:c2:00:00:03      "
      "              01:80:c2:00:00:02\n"
      "  203  efm       OAM-EFM     all  discard  missed  payload      0x03                   "
      "              0x01\n"
      "  204  \"my net\"  LACP-LAMP   all  tunnel   met     -            -                      "
      "              -\n"
      "\n"
      "COUNTER   NAME       RULE    INCREMENT\n"
      "port      3          tunnel          1\n"
      "vlan      all        tunnel          1\n"
      "profile   \"my net\"   tunnel          1\n"
      "protocol  LACP-LAMP  tunnel          1\n");
}

TEST_F(Explaining, IsShownToProgramsAsItIsToPeople) {
  attachOneOfEach();
  EXPECT_EQ(
      shown({"-o", "explain", "3", "hex", mspp}),
      "kind=frame frame=1 length=19 destination=01:80:c2:00:00:03 vlan=7 type='0x888e EAPOL' "
      "fate=untouched entry=299 profile='' protocol=''\n"
      "kind=entry entry=200 profile=cfm protocol=OAM-CFM vlan=100 fate=peer result=missed "
      "condition=vlan expected=100 found=7\n"
      "kind=entry entry=201 profile=cfm protocol=OAM-CFM vlan=all fate=peer result=missed "
      "condition=destination expected=01:80:c2:00:00:30/ff:ff:ff:ff:ff:f0 "
      "found=01:80:c2:00:00:03\n"
      "kind=entry entry=202 profile=mspp protocol=MSPP vlan=all fate=discard result=missed "
      "condition=ethertype expected=0x22e2 found=0x888e\n"
      "kind=entry entry=203 profile=efm protocol=OAM-EFM vlan=all fate=discard result=missed "
      "condition=destination expected=01:80:c2:00:00:02 found=01:80:c2:00:00:03\n"
      "kind=entry entry=204 profile='my net' protocol=LACP-LAMP vlan=all fate=tunnel "
      "result=missed condition=destination expected=01:80:c2:00:00:02 found=01:80:c2:00:00:03\n"
      "kind=entry entry=299 profile='' protocol='' vlan='' fate=untouched result=met condition='' "
      "expected='' found=''\n");
  does({{"detach", "cfm", "port", "3", "vlan", "100"},
        {"detach", "cfm", "port", "3"},
        {"detach", "efm", "port", "3"},
        {"detach", "my net", "port", "3"}});
  EXPECT_EQ(
      shown({"-j", "explain", "3", "hex", "0180c2000003", "020000000001", "22e2"}),
      R"([{"frame":1,"length":14,"destination":"01:80:c2:00:00:03","vlan":null,"type":"0x22e2",)"
      R"("fate":"discard","entry":202,"profile":"mspp","protocol":"MSPP","entries":[)"
      R"({"entry":202,"profile":"mspp","protocol":"MSPP","vlan":null,"fate":"discard",)"
      R"("result":"met","condition":null,"expected":null,"found":null}],"counters":[)"
      R"({"counter":"port","name":"3","rule":"discard","increment":1},)"
      R"({"counter":"vlan","name":"all","rule":"discard","increment":1},)"
      R"({"counter":"profile","name":"mspp","rule":"discard","increment":1},)"
      R"({"counter":"protocol","name":"MSPP","rule":"discard","increment":1}]}])"
      "\n");
}

TEST_F(Explaining, OfAPortWithoutEntriesSaysThatNoneIsMet) {
  EXPECT_EQ(shown({"-j", "explain", "9", "hex", ""}),
            R"([{"frame":1,"length":0,"destination":null,"vlan":null,"type":null,)"
            R"("fate":"untouched","entry":null,"profile":null,"protocol":null,"entries":[],)"
            R"("counters":[]}])"
            "\n");
  EXPECT_EQ(shown({"-j", "explain", "9", support::World::file("none.pcap", CaptureFile().bytes())}),
            "[]\n");
}

// Of lines for the shell: the frames' fates and entries.
std::vector<std::string> decisions(const std::string& lines) {
  std::vector<std::string> found;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with("kind=frame ")) continue;
    const std::size_t fate = line.find(" fate=");
    found.push_back(line.substr(fate, line.find(' ', line.find(" entry=") + 1) - fate));
  }
  return found;
}

TEST_F(Explaining, AgreesWithWhatBecomesOfRealFramesAndMovesNoCounter) {
  attachOneOfEach();
  const std::string before = shown({"port", "statistics", "3"});
  const auto explained = decisions(shown({"-o", "explain", "3", frames("mixed.pcap")}));
  EXPECT_EQ(shown({"port", "statistics", "3"}), before);
  EXPECT_EQ(explained, decisions(shown({"-o", "feed", "3", frames("mixed.pcap")})));
  EXPECT_EQ(explained.size(), 17);
  EXPECT_NE(shown({"port", "statistics", "3"}), before);
}

// Attaches the profile "all" to VLANs 1 to 7, which leaves one position.
void almostFill(const char* port) {
  does({{"profile", "add", "all"}});
  for (const char* protocol :
       {"All-Bridges", "CDP", "E-LMI", "GMRP-MMRP", "GVRP-MVRP", "LACP-LAMP", "LLDP", "MSPP",
        "OAM-CFM", "OAM-EFM", "PNAC", "Pause-Frame", "UDLD", "xSTP"}) {
    does({{"profile", "rule", "add", "all", protocol, "peer"}});
  }
  for (const char* vid : {"1", "2", "3", "4", "5", "6", "7"}) {
    does({{"attach", "all", "port", port, "vlan", vid}});
  }
}

TEST_F(Explaining, AsksForAnyNumberOfFrames) {
  almostFill("3");
  CaptureFile capture;
  for (int i = 0; i < 150; ++i) capture.frame(20, 'x');
  const std::string lines =
      shown({"-o", "explain", "3", support::World::file("many.pcap", capture.bytes())});
  EXPECT_EQ(decisions(lines).size(), 150);
  EXPECT_THAT(lines, HasSubstr("kind=frame frame=65 "));
  EXPECT_THAT(lines, HasSubstr("kind=frame frame=150 "));
}

TEST_F(Explaining, SaysWhatIsWrongWithAFile) {
  std::string bytes = CaptureFile().frame(60, 'x').frame(60, 'x').bytes();
  bytes.pop_back();
  const auto [status, out, err] =
      outcome({"-o", "explain", "3", support::World::file("cut.pcap", bytes)});
  EXPECT_EQ(status, 1);
  EXPECT_EQ(decisions(out).size(), 1);
  EXPECT_THAT(err, HasSubstr("l2cpctl: error: /run/cut.pcap: frame 2: "));
  EXPECT_EQ(outcome({"explain", "3", "/run/none"}).err,
            "l2cpctl: error: /run/none: No such file or directory\n");
}

TEST_F(Explaining, KnowsWhoseEntryItIsAlsoWhenTheProtocolHasChanged) {
  makeProfile("p", "LLDP", "tunnel");
  does({{"attach", "p", "port", "3"}, {"protocol", "set", "LLDP", "ethertype", "0x88cc"}});
  EXPECT_THAT(shown({"-o", "explain", "3", "hex", "0180c200000e"}),
              HasSubstr("\nkind=entry entry=200 profile=p protocol=LLDP vlan=all fate=tunnel "
                        "result=met "));
}

TEST_F(Explaining, TellsAlikeEntriesOfTwoProfilesApart) {
  makeProfile("first", "LLDP", "tunnel");
  makeProfile("second", "LLDP", "discard");
  does({{"attach", "first", "port", "3", "vlan", "7"},
        {"attach", "second", "port", "3", "vlan", "7"}});
  const std::string lines = shown({"-o", "explain", "3", "hex", "ffffffffffff"});
  EXPECT_THAT(lines, HasSubstr("entry=200 profile=first protocol=LLDP vlan=7 fate=tunnel "));
  // The module gives both the same actions, those of the first.
  EXPECT_THAT(lines, HasSubstr("entry=201 profile=second protocol=LLDP vlan=7 fate=tunnel "));
}

TEST_F(Explaining, ShowsCountersOfNamesThatNobodyKnowsAsTheClassifierDoes) {
  makeProfile("p", "LLDP", "tunnel");
  makeProfile("q", "LLDP", "tunnel");
  does({{"attach", "p", "port", "3"}, {"attach", "q", "port", "3"}, {"detach", "p", "port", "3"}});
  // What is left was made for q and counts for p, of which nothing is attached any more.
  const std::string lines = shown({"-o", "explain", "3", "hex", "0180c200000e"});
  EXPECT_THAT(lines, HasSubstr("\nkind=counter counter=port name=3 rule=tunnel increment=1\n"));
  EXPECT_THAT(lines, testing::ContainsRegex("\nkind=counter counter='' name=l2cp:0x[0-9a-f]+ "
                                            "rule='' increment=1\n"));
}

TEST_F(Explaining, LeavesTheModulesTableOfNamesAsItWas) {
  attachOneOfEach();
  does({{"protocol", "set", "MSPP", "ethertype", "0x1234"}});
  const auto dump = [this](const char* end) {
    shown({"daemon", "message", "l2cp_dump"});
    // The daemon's own lines are written in their order: what follows the table comes behind it.
    shown({"daemon", "message", "l2cp_debug", "1"});
    outcome({"vlan", "statistics", end});
    shown({"daemon", "message", "l2cp_debug", "0"});
    EXPECT_TRUE(world().systemLog().waitFor(std::string("(vid=") + end + ")"));
    std::vector<std::string> names;
    for (const std::string& line : world().systemLog().all()) {
      const std::size_t name = line.find(" l2cp:0x");
      if (name == std::string::npos || line.find("-->") != std::string::npos) continue;
      names.push_back(line.substr(line.find("]: ") + 1));
    }
    return names;
  };
  const auto before = dump("1");
  shown({"explain", "3", frames("mixed.pcap")});
  outcome({"check"});
  const auto both = dump("2");
  ASSERT_GT(before.size(), 20);
  ASSERT_GE(both.size(), 2 * before.size());
  const std::vector<std::string> after(
      both.begin() + static_cast<std::ptrdiff_t>(before.size()),
      both.begin() + static_cast<std::ptrdiff_t>(2 * before.size()));
  EXPECT_EQ(after, before);
}

// ---- Checking ----

// Expects that there is something to tell.
std::string found(const CommandLine& line) {
  const auto [status, out, err] = outcome(line);
  EXPECT_EQ(status, 5) << out << err;
  EXPECT_EQ(err, "");
  return out;
}

TEST_F(Checking, FindsNothingWhereAllIsInForce) {
  attachOneOfEach();
  EXPECT_EQ(shown({"check"}), "0 findings\n");
  EXPECT_EQ(shown({"-o", "check"}), "");
  EXPECT_EQ(shown({"-j", "check"}), "[]\n");
}

TEST_F(Checking, FindsCopiesThatWereLeftBehind) {
  makeProfile("p", "LLDP", "peer");
  does({{"profile", "add", "temp_l2cp_prof_"},
        {"profile", "add", "temp_l2cp_prof_01"},
        {"profile", "add", "temp_l2cp_prof_1x"}});
  shown({"profile", "edit", "p"});
  shown({"profile", "edit", "p"});
  does({{"attach", "temp_l2cp_prof_2", "port", "1"}});
  EXPECT_EQ(found({"check"}),
            "editing-copy: temp_l2cp_prof_1 is a copy for editing that was neither put in its "
            "profile's place nor given up\n"
            "    If nobody is editing, give it up with \"l2cpctl profile delete "
            "temp_l2cp_prof_1\".\n"
            "editing-copy: temp_l2cp_prof_2 is a copy for editing that was neither put in its "
            "profile's place nor given up, and it is attached\n"
            "    If nobody is editing, detach it and give it up with \"l2cpctl profile delete "
            "temp_l2cp_prof_2\".\n"
            "\n"
            "2 findings\n");
  does({{"detach", "temp_l2cp_prof_2", "port", "1"},
        {"profile", "delete", "temp_l2cp_prof_1"},
        {"profile", "delete", "temp_l2cp_prof_2"}});
  shown({"check"});
}

TEST_F(Checking, AdvisesCommandsThatAShellTakesAsTheyAre) {
  for (const std::string name : {"$(reboot)", "it's", "-x"}) {
    does({{"profile", "add", "--", name},
          {"profile", "rule", "add", "--", name, "LLDP", "peer"},
          {"attach", "--", name, "port", "3"},
          {"profile", "rename", "--", name, "was " + name},
          {"profile", "add", "--", name}});
    const std::string findings = found({"check"});
    const std::size_t begin = findings.find("l2cpctl detach ");
    ASSERT_NE(begin, std::string::npos) << findings;
    const std::string advised = findings.substr(begin, findings.find("\" (for", begin) - begin);
    const support::Run run =
        support::run({"/bin/sh", "-c", "l2cpctl() { " L2CPCTL_PROGRAM " \"$@\"; }; " + advised});
    EXPECT_EQ(run.output, "") << advised;
    EXPECT_EQ(shown({"-o", "port", "list"}), "");
  }
}

TEST_F(Checking, FindsServiceProfilesWhoseProfileWasDetached) {
  makeProfile("p", "LLDP", "peer");
  does({{"vlan-profile", "add", "metro"},
        {"vlan-profile", "set", "metro", "interface", "3", "svid", "4"},
        {"service-profile", "add", "s"},
        {"service-profile", "set", "s", "vlan-profile", "metro"},
        {"service-profile", "set", "s", "l2cp-profile", "p"},
        {"service-profile", "attach", "s", "interface", "3"}});
  EXPECT_EQ(shown({"check"}), "0 findings\n");
  does({{"detach", "p", "port", "3", "vlan", "4"}});
  EXPECT_EQ(
      found({"check"}),
      "detached-profile: port 3, VLAN 4: the service profile s is applied there, but its "
      "profile p is not attached any more\n"
      "    Attach it with \"l2cpctl attach p port 3 vlan 4\"; then the service profile can be "
      "detached, too.\n"
      "\n"
      "1 finding\n");
  does({{"attach", "p", "port", "3", "vlan", "4"},
        {"service-profile", "detach", "s", "interface", "3"}});
}

TEST_F(Checking, FindsAttachedProfilesWithoutRules) {
  does({{"profile", "add", "p"}, {"attach", "p", "port", "3"}});
  EXPECT_EQ(found({"check"}),
            "no-rules: port 3, VLAN all: p is attached, but has no rules\n"
            "    Detach p, give it rules with \"l2cpctl profile rule add\" and attach it again.\n"
            "\n"
            "1 finding\n");
}

TEST_F(Checking, ProgramsReadTheSameNameInAFindingAndInItsSentences) {
  does({{"profile", "add", "m\xff"}, {"attach", "m\xff", "port", "3"}});
  const std::string findings = found({"-j", "check"});
  EXPECT_THAT(findings, HasSubstr(R"("profile":"m\\xff")"));
  EXPECT_THAT(findings, HasSubstr(R"(VLAN all: m\\xff is attached)"));
  EXPECT_THAT(findings, HasSubstr(R"(Detach m\\xff, give)"));
}

TEST_F(Checking, FindsProtocolsThatDeletedProfilesHold) {
  makeProfile("p", "LLDP", "peer");
  makeProfile("q", "LLDP", "peer");
  does({{"profile", "delete", "p"}});
  shown({"check"});
  does({{"profile", "delete", "q"}});
  const std::string advice =
      "Save with \"l2cpctl running-config save\" and restart l2cpd: counts begin anew. Or put "
      "another protocol in its place with \"l2cpctl protocol rename OTHER LLDP\"; delete profiles "
      "only after \"l2cpctl profile rule clear\".";
  EXPECT_EQ(found({"check"}),
            "stuck-protocol: LLDP counts 2 rules of profiles that are gone, so that it cannot be "
            "deleted though no profile names it\n    " +
                advice + "\n\n1 finding\n");
  EXPECT_EQ(found({"-o", "check"}),
            "finding=stuck-protocol port='' vlan='' profile='' protocol=LLDP entry='' "
            "problem='LLDP counts 2 rules of profiles that are gone, so that it cannot be deleted "
            "though no profile names it' advice='" +
                advice + "'\n");
  refused({"protocol", "delete", "LLDP"});
  does({{"protocol", "add", "other", "mac", "any"},
        {"protocol", "rename", "other", "LLDP"},
        {"protocol", "delete", "LLDP"}});
  shown({"check"});
}

TEST_F(Checking, FindsProtocolsWhoseCountIsTooLowAfterAProfileWasCopied) {
  makeProfile("p", "LLDP", "peer");
  does({{"profile", "copy", "p", "q"}, {"profile", "copy", "p", "r"}});
  const std::string save =
      "save with \"l2cpctl running-config save\" and restart l2cpd: counts begin anew.";
  const auto finding = [&](const char* rules, const char* counted, const char* what) {
    return std::string("low-count: LLDP is in ") + rules + ", but counts " + counted +
           ": those that a copy of a profile was made with do not count, nor those of a protocol "
           "that had this name before; " +
           what +
           "\n    Delete copies with \"l2cpctl profile delete\" alone: \"l2cpctl profile rule "
           "clear\" "
           "and \"l2cpctl load\" take off what was not counted. Or " +
           save + "\n\n1 finding\n";
  };
  EXPECT_EQ(found({"check"}), finding("3 rules", "1", "it can be deleted before the last is gone"));
  does({{"profile", "rule", "clear", "q"}});
  EXPECT_EQ(found({"check"}), finding("2 rules", "0", "it can be deleted before the last is gone"));
  does({{"profile", "rule", "clear", "r"}});
  EXPECT_EQ(found({"check"}),
            finding("1 rule", "-1", "it cannot be deleted when the last is gone"));
  does({{"profile", "rule", "clear", "p"}});
  EXPECT_EQ(
      found({"check"}),
      "stuck-protocol: LLDP counts -2 rules, so that it cannot be deleted though no profile "
      "names it: those that a copy of a profile was made with do not count, but are taken off "
      "when they are deleted\n"
      "    Save with \"l2cpctl running-config save\" and restart l2cpd: counts begin anew. Or "
      "put another protocol in its place with \"l2cpctl protocol rename OTHER LLDP\".\n"
      "\n1 finding\n");
  does({{"protocol", "add", "other", "mac", "any"}, {"protocol", "rename", "other", "LLDP"}});
  shown({"check"});
}

TEST_F(Checking, FindsNothingAboutCountsOnceACopyIsDeletedOrWhileAProfileIsEdited) {
  makeProfile("p", "LLDP", "peer");
  does({{"profile", "copy", "p", "q"}, {"profile", "delete", "q"}});
  shown({"check"});
  shown({"profile", "edit", "p"});
  EXPECT_THAT(found({"check"}), Not(HasSubstr("low-count")));
}

TEST_F(LiveDaemon, AttachmentsToPortsThatTheKernelDoesNotDecideAboutAreFound) {
  makeProfile("p", "LLDP", "peer");
  does({{"attach", "p", "port", "1"}});
  EXPECT_EQ(shown({"check"}), "0 findings\n");
  does({{"attach", "p", "port", "2", "vlan", "7"},
        {"attach", "p", "port", "3"},
        {"attach", "p", "port", "77"}});
  const auto finding = [](const char* port, const char* problem, const char* advice) {
    return std::string("undecided-port: port ") + port +
           ": what is attached there has no effect on frames that arrive: " + problem + "\n    " +
           advice + "\n";
  };
  const char* const configure =
      "Give the port an interface in l2cpd.toml and have that read with \"l2cpctl daemon reload\", "
      "or detach what is attached there.";
  EXPECT_EQ(found({"check"}),
            finding("2", "missing0: there is no such interface",
                    "See to its interface, \"l2cpctl daemon status\" shows how it fares; or detach "
                    "what is attached there.") +
                finding("3", "the port has no interface", configure) +
                finding("77", "the port has no interface", configure) + "\n3 findings\n");
  does({{"detach", "p", "port", "2", "vlan", "7"}, {"detach", "p", "port", "3"}});
  EXPECT_EQ(
      found({"-o", "check"}),
      "finding=undecided-port port=77 vlan='' profile='' protocol='' entry='' problem='port 77: "
      "what is attached there has no effect on frames that arrive: the port has no "
      "interface' advice='" +
          std::string(configure) + "'\n");
}

TEST_F(LiveDaemon, MetricsTellWhetherTheKernelDecidesAboutFramesOfPorts) {
  makeProfile("p", "LLDP", "peer");
  does({{"attach", "p", "port", "77"}});
  EXPECT_THAT(
      shown({"metrics"}),
      HasSubstr(
          "\n# HELP l2cp_port_live Whether the kernel decides about the frames that arrive on a "
          "port's interface.\n"
          "# TYPE l2cp_port_live gauge\n"
          "l2cp_port_live{port=\"1\",name=\"uplink\"} 1\n"
          "l2cp_port_live{port=\"2\",name=\"missing0\"} 0\n"
          "l2cp_port_live{port=\"77\"} 0\n"
          "# HELP l2cp_port_frames_total "));
}

TEST_F(Checking, FindsWhatWasRenamedWhileItWasAttached) {
  makeProfile("old", "LLDP", "peer");
  does({{"attach", "old", "port", "3", "vlan", "7"}, {"profile", "rename", "old", "new"}});
  EXPECT_EQ(found({"check"}),
            "unlisted-attachment: port 3, VLAN 7: old is in force there as it was before it was "
            "renamed or replaced, and is not the profile of this name any more\n"
            "    Detach it with \"l2cpctl detach old port 3 vlan 7\" (for that, there has to be a "
            "profile of this name: add an empty one if need be) and attach the profile that is "
            "wanted.\n"
            "\n"
            "1 finding\n");
  does({{"profile", "add", "old"}});
  EXPECT_THAT(found({"check"}), StartsWith("unlisted-attachment: port 3, VLAN 7: old "));
  does({{"detach", "old", "port", "3", "vlan", "7"}, {"attach", "new", "port", "3", "vlan", "7"}});
  shown({"check"});
}

TEST_F(Checking, FindsAttachmentsForWhichThereIsNoPosition) {
  almostFill("3");
  makeProfile("last", "LLDP", "discard");
  makeProfile("late", "CDP", "discard");
  does({{"attach", "last", "port", "3", "vlan", "8"}});
  EXPECT_EQ(shown({"check"}), "0 findings\n");
  does({{"attach", "late", "port", "3", "vlan", "8"}});
  EXPECT_EQ(
      found({"check"}),
      "no-position: port 3, VLAN 8: late is attached, but not in force for CDP: all positions "
      "of the port are taken\n"
      "    Detach from the port what it can do without, then detach late and attach it "
      "again.\n"
      "\n"
      "1 finding\n");
  does({{"detach", "all", "port", "3", "vlan", "7"}});
  EXPECT_EQ(
      found({"-j", "check"}),
      R"([{"finding":"no-position","port":3,"vlan":8,"profile":"late","protocol":"CDP",)"
      R"("entry":null,"problem":"port 3, VLAN 8: late is attached, but not in force for CDP: )"
      R"(there was no position for it, though there is one now","advice":"Detach late and )"
      R"(attach it again."}])"
      "\n");
  does(
      {{"detach", "late", "port", "3", "vlan", "8"}, {"attach", "late", "port", "3", "vlan", "8"}});
  shown({"check"});
}

TEST_F(Checking, FindsVlansThatTheClassifierRefuses) {
  makeProfile("p", "LLDP", "peer");
  Client client({});
  std::string profile = "p";
  constexpr std::uint16_t vid = 5000;
  accept(client.module<rpc_l2cp_profile_port_attach_1>(wireText(profile), 3U, vid));
  EXPECT_EQ(
      found({"check"}),
      "refused-vlan: port 3: p is attached on VLAN 5000, which the classifier refuses, so "
      "that it is in force on every VLAN of the port\n"
      "    Detach it with \"l2cpctl detach p port 3 vlan 5000\" and attach it on a VLAN from 0 "
      "to 4094.\n"
      "\n"
      "1 finding\n");
  does({{"detach", "p", "port", "3", "vlan", "5000"}});
  shown({"check"});
}

TEST_F(Checking, FindsNamesThatAreTooLongForACounter) {
  const std::string fits(24, 'f');
  const std::string tooLong(25, 't');
  does({{"protocol", "add", std::string(27, 'x'), "mac", "any", "ethertype", "0x1234"}});
  makeProfile(fits, "LLDP", "tunnel");
  makeProfile(tooLong, "CDP", "tunnel");
  makeProfile("x", std::string(27, 'x'), "peer");
  does({{"attach", fits, "port", "3"},
        {"attach", tooLong, "port", "3"},
        {"attach", tooLong, "port", "4"},
        {"attach", "x", "port", "5"}});
  EXPECT_EQ(
      found({"check"}),
      "missing-counter: " + tooLong +
          ": what becomes of frames by its rule tunnel is not counted for this profile: 25 "
          "bytes are too long a name for that\n"
          "    Ports and VLANs count all the same. For the profile's own counter, detach it, "
          "give it a name of at most 24 bytes and attach it again.\n"
          "missing-counter: " +
          std::string(27, 'x') +
          ": what becomes of frames by its rule peer is not counted for this protocol: 27 "
          "bytes are too long a name for that\n"
          "    Ports and VLANs count all the same. For the protocol's own counter, detach it, "
          "give it a name of at most 26 bytes and attach it again.\n"
          "\n"
          "2 findings\n");
}

TEST_F(Checking, FindsEntriesThatAnEarlierOneHides) {
  makeProfile("wide", "LLDP", "tunnel");
  makeProfile("narrow", "LLDP", "discard");
  does({{"attach", "wide", "port", "3"}, {"attach", "narrow", "port", "3", "vlan", "100"}});
  EXPECT_EQ(
      found({"check"}),
      "hidden-entry: port 3: no frame ever meets entry 201 (narrow: LLDP, VLAN 100): entry "
      "200 (wide: LLDP, VLAN all) comes first and takes every frame that would; its fate is "
      "tunnel instead of discard\n"
      "    Detach both, and attach first what is to be met first: entries come in the order of "
      "attachments.\n"
      "\n"
      "1 finding\n");
  EXPECT_THAT(found({"-j", "check"}),
              StartsWith(R"([{"finding":"hidden-entry","port":3,"vlan":100,"profile":"narrow",)"
                         R"("protocol":"LLDP","entry":201,"problem":"port 3: )"));
  does({{"detach", "wide", "port", "3"},
        {"detach", "narrow", "port", "3", "vlan", "100"},
        {"attach", "narrow", "port", "3", "vlan", "100"},
        {"attach", "wide", "port", "3"}});
  shown({"check"});
}

TEST_F(Checking, FindsRulesThatAnotherAttachmentLeftBehind) {
  makeProfile("first", "LLDP", "tunnel");
  makeProfile("second", "LLDP", "discard");
  does({{"attach", "first", "port", "3", "vlan", "7"},
        {"attach", "second", "port", "3", "vlan", "7"}});
  EXPECT_THAT(
      found({"check"}),
      StartsWith("hidden-entry: port 3: no frame ever meets entry 201 (second: LLDP, VLAN "
                 "7): entry 200 (first: LLDP, VLAN 7) comes first and takes every frame that "
                 "would\n"));
  does({{"detach", "first", "port", "3", "vlan", "7"}});
  EXPECT_EQ(found({"check"}),
            "other-rule: port 3, VLAN 7: second has the rule discard for LLDP, but tunnel is in "
            "force: it was attached beside a profile that has it\n"
            "    Detach second and attach it again.\n"
            "\n"
            "1 finding\n");
  does({{"detach", "second", "port", "3", "vlan", "7"},
        {"attach", "second", "port", "3", "vlan", "7"}});
  shown({"check"});
}

TEST_F(Checking, FindsEntriesThatAnotherOfTheSameProfileHides) {
  does({{"protocol", "add", "a", "mac", "any"},
        {"protocol", "add", "b", "mac", "any"},
        {"profile", "add", "p"},
        {"profile", "rule", "add", "p", "a", "peer"},
        {"profile", "rule", "add", "p", "b", "peer"},
        {"attach", "p", "port", "3"}});
  // Which of them comes first is the module's own affair.
  EXPECT_THAT(
      found({"check"}),
      MatchesRegex(
          "hidden-entry: port 3: no frame ever meets entry 201 \\(p: [ab], VLAN all\\): entry "
          "200 \\(p: [ab], VLAN all\\) comes first and takes every frame that would\n"
          "    Make one of the two narrower, or give [ab] a profile of its own and attach "
          "that before the other: entries come in the order of attachments, and within one in "
          "no order of choice.\n"
          "\n"
          "1 finding\n"));
}

TEST_F(Checking, ShowsNamesSoThatTheyCannotHarmATerminal) {
  Client client({});
  std::string name = "\x1b[2J\n";
  rpc_l2cp_proto proto{};
  proto.name = wireText(name);
  accept(client.module<rpc_l2cp_proto_add_1>(proto));
  does({{"profile", "add", "p"}});
  std::string profile = "p";
  accept(client.module<rpc_l2cp_profile_proto_add_1>(wireText(profile), wireText(name),
                                                     RPC_L2CP_RULE_PEER));
  does({{"profile", "delete", "p"}});
  for (const char* format : {"--color=never", "-o", "-j", "-p"}) {
    const std::string text = found({format, "check"});
    EXPECT_THAT(text, AllOf(HasSubstr("[2J"), Not(HasSubstr("\x1b")))) << format;
  }
}

// ---- Metrics ----

class Metrics : public DaemonTest {
 protected:
  std::vector<std::string> arguments() override {
    return {"-c", World::file("l2cpd.toml",
                              "[[port]]\nnumber = 3\nname = 'up \"link\\1\"'\n"
                              "[[port]]\nnumber = 9\nname = \"unused\"\n")};
  }
};

TEST_F(Metrics, AreInTheFormatOfPrometheus) {
  makeProfile("my \"net\"", "LLDP", "tunnel");
  makeProfile("p", "LLDP", "discard");
  for (const char* protocol : {"All-Bridges", "CDP", "E-LMI", "GMRP-MMRP", "GVRP-MVRP", "LACP-LAMP",
                               "MSPP", "OAM-CFM", "OAM-EFM", "PNAC", "Pause-Frame", "UDLD"}) {
    does({{"protocol", "delete", protocol}});
  }
  does({{"attach", "my \"net\"", "port", "3"}, {"attach", "p", "port", "4", "vlan", "100"}});
  shown({"feed", "-q", "3", frames("lldp.pcap")});
  shown({"feed", "-q", "4", frames("lldp-vlan100.pcap")});
  const std::string text = shown({"metrics"});
  const std::string begin =
      "# HELP l2cpd_info The daemon: 1 with its release, bridge and classifier.\n"
      "# TYPE l2cpd_info gauge\n"
      "l2cpd_info\\{release=\"[0-9.]+\",bridge=\"br0\",classifier=\"software\"\\} 1\n"
      "# HELP l2cpd_uptime_seconds How long the daemon has been running.\n"
      "# TYPE l2cpd_uptime_seconds gauge\n"
      "l2cpd_uptime_seconds [0-9]+\n";
  const std::size_t rest = text.find("# HELP l2cpd_entity_running");
  ASSERT_NE(rest, std::string::npos) << text;
  EXPECT_THAT(text.substr(0, rest), MatchesRegex(begin));
  EXPECT_EQ(
      text.substr(rest),
      "# HELP l2cpd_entity_running Whether an entity of the daemon is running.\n"
      "# TYPE l2cpd_entity_running gauge\n"
      "l2cpd_entity_running{entity=\"Interfaces\"} 1\n"
      "l2cpd_entity_running{entity=\"vlanprofile\"} 1\n"
      "l2cpd_entity_running{entity=\"servprofile\"} 1\n"
      "l2cpd_entity_running{entity=\"l2cp\"} 1\n"
      "# HELP l2cp_port_attachments Profiles in force on a port and its VLANs.\n"
      "# TYPE l2cp_port_attachments gauge\n"
      R"(l2cp_port_attachments{port="3",name="up \"link\\1\""} 1)"
      "\n"
      "l2cp_port_attachments{port=\"4\"} 1\n"
      "# HELP l2cp_port_entries Entries of a port in the classifier, the catch-all included, of at "
      "most 100.\n"
      "# TYPE l2cp_port_entries gauge\n"
      R"(l2cp_port_entries{port="3",name="up \"link\\1\""} 2)"
      "\n"
      "l2cp_port_entries{port=\"4\"} 2\n"
      "# HELP l2cp_port_rules_not_in_force Rules of attached profiles for which the port had no "
      "entry left.\n"
      "# TYPE l2cp_port_rules_not_in_force gauge\n"
      R"(l2cp_port_rules_not_in_force{port="3",name="up \"link\\1\""} 0)"
      "\n"
      "l2cp_port_rules_not_in_force{port=\"4\"} 0\n"
      "# HELP l2cp_port_frames_total Frames of a port by the rule that they met. Wraps at "
      "4294967296.\n"
      "# TYPE l2cp_port_frames_total counter\n"
      R"(l2cp_port_frames_total{port="3",name="up \"link\\1\"",rule="discard"} 0)"
      "\n"
      R"(l2cp_port_frames_total{port="3",name="up \"link\\1\"",rule="peer"} 0)"
      "\n"
      R"(l2cp_port_frames_total{port="3",name="up \"link\\1\"",rule="tunnel"} 4)"
      "\n"
      "l2cp_port_frames_total{port=\"4\",rule=\"discard\"} 3\n"
      "l2cp_port_frames_total{port=\"4\",rule=\"peer\"} 0\n"
      "l2cp_port_frames_total{port=\"4\",rule=\"tunnel\"} 0\n"
      "# HELP l2cp_vlan_frames_total Frames of all ports by the VLAN of the attachment and the "
      "rule "
      "that they met. Wraps at 4294967296.\n"
      "# TYPE l2cp_vlan_frames_total counter\n"
      "l2cp_vlan_frames_total{vlan=\"100\",rule=\"discard\"} 3\n"
      "l2cp_vlan_frames_total{vlan=\"100\",rule=\"peer\"} 0\n"
      "l2cp_vlan_frames_total{vlan=\"100\",rule=\"tunnel\"} 0\n"
      "l2cp_vlan_frames_total{vlan=\"all\",rule=\"discard\"} 0\n"
      "l2cp_vlan_frames_total{vlan=\"all\",rule=\"peer\"} 0\n"
      "l2cp_vlan_frames_total{vlan=\"all\",rule=\"tunnel\"} 4\n"
      "# HELP l2cp_protocol_rules Rules of profiles that refer to a protocol.\n"
      "# TYPE l2cp_protocol_rules gauge\n"
      "l2cp_protocol_rules{protocol=\"LLDP\"} 2\n"
      "l2cp_protocol_rules{protocol=\"xSTP\"} 0\n"
      "# HELP l2cp_profile_attachments Ports and VLANs where a profile is in force.\n"
      "# TYPE l2cp_profile_attachments gauge\n"
      R"(l2cp_profile_attachments{profile="my \"net\""} 1)"
      "\n"
      "l2cp_profile_attachments{profile=\"p\"} 1\n");
}

TEST_F(Metrics, AreReadByPrometheusWithTheNamesAsTheyAre) {
  const char* const python = "/usr/bin/python3";
  if (support::run({python, "-c", "import prometheus_client.parser"}).status != 0) {
    GTEST_SKIP() << "python3-prometheus-client is not installed";
  }
  Client client({});
  for (std::string name :
       {"a\"b", "a\\b", "a\\nb", "a\nb", "}{,=", "caf\xc3\xa9", "\xff", "\\xff", "\x1b[2J"}) {
    rpc_l2cp_proto proto{};
    proto.name = wireText(name);
    accept(client.module<rpc_l2cp_proto_add_1>(proto));
  }
  const std::string script = World::file("read.py",
                                         "import sys\n"
                                         "from prometheus_client.parser import "
                                         "text_string_to_metric_families as families\n"
                                         "for family in families(sys.stdin.read()):\n"
                                         "  assert family.documentation and family.type != "
                                         "'unknown', family\n"
                                         "  for sample in family.samples:\n"
                                         "    if 'protocol' in sample.labels:\n"
                                         "      print(ascii(sample.labels['protocol']))\n");
  const support::Run read = support::run(
      {"/bin/sh", "-c", L2CPCTL_PROGRAM " metrics | " + std::string(python) + " " + script});
  EXPECT_EQ(read.status, 0) << read.output;
  for (const char* name :
       {"'a\"b'\n", "'a\\\\b'\n", "'a\\\\nb'\n", "'a\\nb'\n", "'}{,='\n", "'caf\\xe9'\n",
        "'\\\\xff'\n", "'\\\\x5cxff'\n", "'\\\\x1b[2J'\n", "'LLDP'\n"}) {
    EXPECT_THAT(read.output, HasSubstr(name));
  }
}

// Each line of a text between these, and what else stands between two.
std::string eachLine(const std::string& text, const std::string& before, const std::string& after,
                     const std::string& between = "") {
  std::string all;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    all += (all.empty() ? "" : between) + before + line + after;
  }
  return all;
}

std::string replaced(std::string text, std::string_view what, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

TEST_F(Metrics, AreLinesForPrograms) {
  makeProfile("my \"net\"", "LLDP", "tunnel");
  does({{"attach", "my \"net\"", "port", "3"}});
  const auto metrics = [](const CommandLine& line) {
    return std::regex_replace(shown(line), std::regex("uptime_seconds [0-9]+"), "uptime_seconds 1");
  };
  const std::string text = metrics({"metrics"});
  EXPECT_EQ(metrics({"-o", "metrics"}), eachLine(text, "line='", "'\n"));
  const std::string escaped = replaced(replaced(text, "\\", "\\\\"), "\"", "\\\"");
  EXPECT_EQ(metrics({"-j", "metrics"}),
            "{\"lines\":[" + eachLine(escaped, "\"", "\"", ",") + "]}\n");
  EXPECT_EQ(metrics({"-p", "metrics"}),
            "{\n  \"lines\": [\n" + eachLine(escaped, "    \"", "\"", ",\n") + "\n  ]\n}\n");
}

TEST_F(Metrics, AreAllThereOrNone) {
  EXPECT_EQ(support::run({"/bin/sh", "-c", L2CPCTL_PROGRAM " metrics >/dev/full"}).status, 1);
  EXPECT_EQ(notReached({"-s", "192.0.2.1", "-t", "1", "metrics"}).substr(0, 16),
            "l2cpctl: error: ");
}

// ---- Watching ----

// The program itself, with its first refresh shown.
class Watch : public Process {
 public:
  explicit Watch(std::vector<std::string> words)
      : Process((words.insert(words.begin(), {L2CPCTL_PROGRAM}), words)) {
    EXPECT_TRUE(output().waitFor("20")) << output().text();
  }
};

constexpr const char* timePattern = "20[0-9-]+T[0-9:]+Z";

TEST_F(Watching, ShowsCountersOfAllThatIsAttached) {
  makeProfile("p", "LLDP", "tunnel");
  does({{"attach", "p", "port", "3"}, {"attach", "p", "port", "12", "vlan", "100"}});
  shown({"feed", "-q", "3", frames("lldp.pcap")});
  EXPECT_THAT(
      shown({"watch", "count", "1"}),
      MatchesRegex(
          std::string(timePattern) +
          "\n\n"
          "PORT  NAME  DISCARD  PEER  TUNNEL  TOTAL  DISCARD-RATE  PEER-RATE  TUNNEL-RATE  "
          "TOTAL-RATE\n"
          "   3  -           0     0       4      4             -          -            -          "
          " "
          "-\n"
          "  12  -           0     0       0      0             -          -            -          "
          " "
          "-\n"
          "\n"
          "VLAN  DISCARD  PEER  TUNNEL  TOTAL  DISCARD-RATE  PEER-RATE  TUNNEL-RATE  TOTAL-RATE\n"
          " 100        0     0       0      0             -          -            -           -\n"
          " all        0     0       4      4             -          -            -           "
          "-\n"));
  EXPECT_THAT(shown({"-o", "watch", "vlan", "all", "count", "1"}),
              MatchesRegex("kind=refresh time=" + std::string(timePattern) +
                           " daemon=running reason=''\n"
                           "kind=vlan vlan=all discard=0 peer=0 tunnel=4 total=4 discard_rate='' "
                           "peer_rate='' tunnel_rate='' total_rate=''\n"));
  EXPECT_THAT(shown({"-j", "watch", "port", "7", "count", "1"}),
              MatchesRegex("\\{\"time\":\"" + std::string(timePattern) +
                           "\",\"daemon\":\"running\",\"reason\":null,\"ports\":\\[\\{\"port\":7,"
                           "\"name\":null,\"discard\":null,\"peer\":null,\"tunnel\":null,\"total\":"
                           "null,\"discard_rate\":null,\"peer_rate\":null,\"tunnel_rate\":null,"
                           "\"total_rate\":null\\}\\],\"vlans\":\\[\\]\\}\n"));
  EXPECT_THAT(shown({"-p", "watch", "vlan", "all", "count", "1"}),
              MatchesRegex("\\{\n"
                           "  \"time\": \"" +
                           std::string(timePattern) +
                           "\",\n"
                           "  \"daemon\": \"running\",\n"
                           "  \"reason\": null,\n"
                           "  \"ports\": \\[\\],\n"
                           "  \"vlans\": \\[\n"
                           "    \\{\n"
                           "      \"vlan\": null,\n"
                           "      \"discard\": 0,\n"
                           "      \"peer\": 0,\n"
                           "      \"tunnel\": 4,\n"
                           "      \"total\": 4,\n"
                           "      \"discard_rate\": null,\n"
                           "      \"peer_rate\": null,\n"
                           "      \"tunnel_rate\": null,\n"
                           "      \"total_rate\": null\n"
                           "    \\}\n"
                           "  \\]\n"
                           "\\}\n"));
}

TEST_F(Watching, ShowsRatesOfWhatHappensInBetween) {
  makeProfile("p", "LLDP", "tunnel");
  does({{"attach", "p", "port", "3"}});
  Watch watch({"-o", "watch", "port", "3"});
  shown({"feed", "-q", "3", frames("lldp.pcap")});
  EXPECT_TRUE(watch.output().waitFor("tunnel=4 "));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
  const auto lines = watch.output().all();
  const auto counted = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find("tunnel=4 ") != std::string::npos;
  });
  ASSERT_NE(counted, lines.end());
  // Four frames in a second, or in as many as a busy machine makes of it.
  EXPECT_THAT(*counted, MatchesRegex("kind=port port=3 name='' discard=0 peer=0 tunnel=4 total=4 "
                                     "discard_rate=0.00 peer_rate=0.00 tunnel_rate=[0-9.]+ "
                                     "total_rate=[0-9.]+"));
  EXPECT_THAT(*counted, Not(HasSubstr("tunnel_rate=0.00")));
  EXPECT_THAT(*counted, Not(HasSubstr("total_rate=0.00")));
}

TEST_F(Watching, EndsAfterAsManyRefreshesAsAreWanted) {
  const std::string refreshes = shown({"-o", "watch", "interval", "1", "count", "2"});
  EXPECT_THAT(refreshes, MatchesRegex("(kind=refresh time=" + std::string(timePattern) +
                                      " daemon=running reason=''\n){2}"));
}

TEST_F(Watching, EndsWellWithASignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Watch watch({"-j", "watch", "interval", "3600"});
    watch.signal(signal);
    EXPECT_EQ(watch.wait(), 0);
    EXPECT_THAT(watch.output().text(), MatchesRegex("\\{\"time\":[^\n]*\\}\n?"));
  }
}

TEST_F(Watching, EndsWhenNobodyReadsItAnyMore) {
  const support::Run run = support::run(
      {"/bin/sh", "-c",
       "{ " L2CPCTL_PROGRAM " watch interval 3600; echo status $? >&2; } | head -n 1"});
  EXPECT_THAT(run.output, HasSubstr("status 0\n"));
}

TEST_F(Watching, SaysThatItsOutputCannotBeWritten) {
  const support::Run full = support::run({"/bin/sh", "-c", L2CPCTL_PROGRAM " watch >/dev/full"});
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.output, "l2cpctl: error: the output cannot be written\n");
}

TEST_F(Watching, GoesOnWhenTheDaemonIsGoneAndBack) {
  makeProfile("p", "LLDP", "tunnel");
  does({{"attach", "p", "port", "3"}});
  shown({"feed", "-q", "3", frames("lldp.pcap")});
  Watch watch({"-o", "watch", "port", "3"});
  EXPECT_TRUE(watch.output().waitFor("tunnel=4 "));
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_TRUE(watch.output().waitFor("daemon=unreachable reason='l2cpd not reached at 127.0.0.1 "));
  world().startDaemon();
  EXPECT_TRUE(watch.output().waitFor("daemon=restarted reason=''"));
  does({{"profile", "add", "p"},
        {"profile", "rule", "add", "p", "LLDP", "tunnel"},
        {"attach", "p", "port", "3"}});
  shown({"feed", "-q", "3", frames("lldp-vlan100.pcap")});
  EXPECT_TRUE(watch.output().waitFor("tunnel=3 total=3 discard_rate=0.00 "));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
  for (const std::string& line : watch.output().all()) {
    EXPECT_THAT(line, Not(testing::ContainsRegex("rate=[0-9]{3}|rate=-")));
  }
}

TEST_F(Watching, TellsOfARestartThatKeepsTheNumberOfTheProcess) {
  makeProfile("p", "LLDP", "tunnel");
  does({{"attach", "p", "port", "3"}});
  addedToFirstUptime = 60;
  const std::string refreshes = shown({"-o", "watch", "port", "3", "count", "2"});
  EXPECT_THAT(refreshes, MatchesRegex("kind=refresh time=[^ ]+ daemon=running reason=''\n"
                                      "kind=port port=3 [^\n]*\n"
                                      "kind=refresh time=[^ ]+ daemon=restarted reason=''\n"
                                      "kind=port port=3 [^\n]* discard_rate='' peer_rate='' "
                                      "tunnel_rate='' total_rate=''\n"));
}

TEST_F(Watching, GoesOnWhenTheDaemonDoesNotAnswerForAWhile) {
  Watch watch({"-o", "-t", "1", "watch"});
  world().daemon().signal(SIGSTOP);
  EXPECT_TRUE(watch.output().waitFor("daemon=unreachable reason='l2cpd not reached at "));
  world().daemon().signal(SIGCONT);
  const auto answered = [&] {
    const auto lines = watch.output().all();
    return lines.back().find("daemon=running") != std::string::npos;
  };
  EXPECT_TRUE(support::eventually(answered)) << watch.output().text();
  EXPECT_THAT(watch.output().text(), Not(HasSubstr("restarted")));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
}

TEST_F(Watching, DoesNotBeginWithoutADaemon) {
  EXPECT_THAT(notReached({"-s", "192.0.2.1", "-t", "1", "watch"}),
              HasSubstr("l2cpd not reached at 192.0.2.1 "));
}

// Whether a process holds a signal back.
bool holdsBack(pid_t process, int number) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with("SigBlk:")) continue;
    const std::uint64_t mask =
        std::stoull(line.substr(line.find_first_not_of("SigBlk:\t ")), nullptr, 16);
    return (mask >> (number - 1) & 1) != 0;
  }
  return false;
}

TEST_F(Watching, EndsWithASignalAlsoWhileItWaitsForADaemonThatIsStarting) {
  support::Process watch({L2CPCTL_PROGRAM, "-s", "192.0.2.1", "--wait", "3600", "watch"});
  ASSERT_TRUE(support::eventually([&] { return holdsBack(watch.id(), SIGINT); }));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 3);
  EXPECT_THAT(watch.output().text(), HasSubstr("l2cpd not reached at 192.0.2.1 "));
}

class WatchingOnATerminal : public Watching {
 protected:
  // What is shown up to and with the given text, without carriage returns.
  std::string shownUntil(const std::string& end) {
    std::string shown = terminal_.until(end) + end;
    std::erase(shown, '\r');
    return shown;
  }

  static constexpr winsize window{.ws_row = 6, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
  support::PseudoTerminal terminal_{&window};
};

TEST_F(WatchingOnATerminal, DrawsInPlaceAsMuchAsFits) {
  if (!terminal_.isThere()) GTEST_SKIP() << "no terminals here";
  makeProfile("p", "LLDP", "tunnel");
  for (const char* port : {"1", "2", "3", "4"}) does({{"attach", "p", "port", port}});
  const support::Run run =
      support::run({"/bin/sh", "-c",
                    "TERM=xterm NO_COLOR=1 " L2CPCTL_PROGRAM " watch count 2 >&" +
                        std::to_string(terminal_.number())});
  EXPECT_EQ(run.status, 0) << run.output;
  std::string drawn = shownUntil("\x1b[J");
  drawn += shownUntil("\x1b[J");
  const std::string head = std::string(timePattern) +
                           "\x1b\\[K\n"
                           "\x1b\\[K\n"
                           "PORT  NAME [^\n]*\x1b\\[K\n"
                           "   1  -  [^\n]*\x1b\\[K\n"
                           "   2  -  [^\n]*\x1b\\[K\n";
  EXPECT_THAT(drawn, MatchesRegex("\x1b\\[2J\x1b\\[H\x1b\\[\\?7l" + head +
                                  "\x1b\\[\\?7h\x1b\\[J\x1b\\[H\x1b\\[\\?7l" + head +
                                  "\x1b\\[\\?7h\x1b\\[J"));
}

}  // namespace
}  // namespace cli
