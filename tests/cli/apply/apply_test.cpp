// Scripts against a real daemon: load, diff and apply.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "cli/apply/daemonState.h"
#include "cli/apply/planRun.h"
#include "cli/apply/stateDifference.h"
#include "cli/carry.h"
#include "cli/failure.h"
#include "tests/cli/apply/confirmed.h"
#include "tests/cli/apply/random_state.h"
#include "tests/cli/command_line.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/script_lines.h"
#include "tests/system/fixture.h"

namespace cli {
namespace {

using support::World;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// Of the running configuration, what it says, in an order that does not depend on the process.
std::vector<std::string> configuration() {
  std::istringstream text(outcome({"running-config", "show"}, {.answers = Sink::file}).out);
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return support::said(lines);
}

// Names gold for a VLAN of interface 3.
const std::string business =
    "vlan-profile metro\n"
    " interface 3 svid 100\n"
    "exit\n"
    "service-profile business\n"
    " vlan-profile metro\n"
    " l2cp-profile gold\n"
    "exit\n";

const std::string site =
    "! the whole language\n"
    "l2protocol \"PTP\" mac any ethertype 0x88f7 subtype 0x01\n"
    "l2cp-profile gold\n"
    " protocol LLDP rule tunnel\n"
    " protocol \"PTP\" rule peer\n"
    "exit\n" +
    business +
    "attach gold port 1\n"
    "apply business interface 3\n";

class Loading : public DaemonTest {};
class Applying : public DaemonTest {};
class Confirming : public DaemonTest {};
class WithoutDaemon : public WorldTest {};

// ---- Load ----

TEST_F(Loading, CarriesAScriptOutAndTakesItAgain) {
  const std::string file = World::file("site.l2cp", site);
  does({{"load", file}});
  const std::vector<std::string> once = configuration();
  EXPECT_THAT(once, ElementsAre("l2protocol \"PTP\" mac any ethertype 0x88f7 subtype 0x01",
                                "l2cp-profile gold", " protocol \"LLDP\" rule tunnel",
                                " protocol \"PTP\" rule peer", "exit", "vlan-profile metro",
                                " interface 3 svid 100", "exit", "service-profile business",
                                " vlan-profile metro", " l2cp-profile gold", "exit",
                                "attach gold port 1", "apply business interface 3"));
  does({{"load", file}});
  EXPECT_EQ(configuration(), once);
}

TEST_F(Loading, UndoesAndChangesWhatIsThere) {
  does({{"load", World::file("site.l2cp", site)},
        {"load",
         World::file("change.l2cp",
                     "no apply business interface 3\n"
                     "no attach gold port 1\n"
                     "l2protocol PTP mac 01:80:c2:00:00:0e ethertype 0x88f8\n"
                     "l2cp-profile gold\n no protocol LLDP\n protocol PTP rule discard\nexit\n"
                     "vlan-profile metro\n interface 3 svid 101\nexit\n"
                     "service-profile business\n no l2cp-profile\nexit\n")}});
  EXPECT_THAT(configuration(),
              ElementsAre("l2protocol \"PTP\" mac 01:80:c2:00:00:0e ethertype 0x88f8",
                          "l2cp-profile gold", " protocol \"PTP\" rule discard", "exit",
                          "vlan-profile metro", " interface 3 svid 101", "exit",
                          "service-profile business", " vlan-profile metro", "exit"));
  // Deleting a profile gives its protocols free.
  does({{"load", World::file("undo.l2cp",
                             "vlan-profile metro\n no interface 3\nexit\n"
                             "service-profile business\n no vlan-profile\nexit\n"
                             "no service-profile business\nno vlan-profile metro\n"
                             "no l2cp-profile gold\nno l2protocol PTP\n")}});
  EXPECT_THAT(configuration(), IsEmpty());
}

TEST_F(Loading, StopsAtTheFirstLineThatIsRefused) {
  const std::string file = World::file(
      "f.l2cp", "l2cp-profile gold\nexit\n\nattach silver port 1\nattach gold port 1\n");
  const auto [status, out, err] = outcome({"load", file});
  EXPECT_EQ(status, 4);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "l2cpctl: error: " + file +
                     ":4: PROFILE_NOT_FOUND: there is no profile of this name; \"l2cpctl profile "
                     "list\" shows those there are; what stands before was carried out\n");
  EXPECT_EQ(shown({"-o", "profile", "list"}), "name=gold protect=no dynamic=no attachments=0\n");
}

TEST_F(Loading, IsRefusedIfNothingWasCarriedOut) {
  const std::string file = World::file("f.l2cp", "attach silver port 1\nl2cp-profile gold\nexit\n");
  EXPECT_EQ(refused({"load", file}),
            "l2cpctl: error: " + file +
                ":1: PROFILE_NOT_FOUND: there is no profile of this name; \"l2cpctl profile list\" "
                "shows those there are; nothing was carried out\n");
  EXPECT_EQ(shown({"-o", "profile", "list"}), "");
}

TEST_F(Loading, BeginsNothingIfALineIsNoCommand) {
  const std::string file = World::file("f.l2cp", "l2cp-profile gold\nexit\nattach gold prot 1\n");
  const auto [status, out, err] = outcome({"load", file});
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "l2cpctl: error: " + file + ":3: \"port\" is missing; nothing was carried out\n");
  EXPECT_EQ(shown({"-o", "profile", "list"}), "");
}

TEST_F(Loading, LeavesOutOnRequestWhatIsRefusedAndWhatStandsInItsMode) {
  const std::string long34(34, 'x');
  const std::string file = World::file("f.l2cp",
                                       "attach silver port 1\n"
                                       "nonsense\n"
                                       "l2cp-profile " +
                                           long34 +
                                           "\n"
                                           " protocol LLDP rule peer\n"
                                           "exit\n"
                                           "l2cp-profile gold\n"
                                           " protocol LLDP rule pear\n"
                                           " protocol CDP rule peer\n"
                                           "exit\n");
  const auto [status, out, err] = outcome({"load", "--keep-going", file});
  EXPECT_EQ(status, 4);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err,
            "l2cpctl: " + file +
                ":1: PROFILE_NOT_FOUND: there is no profile of this name; \"l2cpctl profile list\" "
                "shows those there are\n"
                "l2cpctl: " +
                file +
                ":2: expected one of l2protocol, l2cp-profile, vlan-profile, service-profile, "
                "attach, apply\n"
                "l2cpctl: " +
                file + ":3: the name \"" + long34 +
                "\" is 34 bytes long; 33 is the most there can be\n"
                "l2cpctl: " +
                file +
                ":7: the rule is not \"discard\", \"peer\" or \"tunnel\"\n"
                "l2cpctl: error: " +
                file + ": 5 of 7 commands were not carried out\n");
  EXPECT_THAT(configuration(),
              ElementsAre("l2cp-profile gold", " protocol \"CDP\" rule peer", "exit"));
  EXPECT_EQ(outcome({"load", "--keep-going", World::file("g", "attach silver port 1\n")}).status,
            2);
  EXPECT_EQ(outcome({"load", "--keep-going", World::file("h", "nonsense\n")}).status, 1);
}

TEST_F(Loading, CountsWhatIsLeftOutAlikeWhateverKeptItsModeFromBeingEntered) {
  const std::string rest =
      "\n protocol LLDP rule peer\n! a comment\n protocol CDP rule peer\nexit\n"
      "l2cp-profile okk\nexit\n";
  for (const std::string& entering :
       {std::string("l2cp-profile"), "l2cp-profile " + std::string(34, 'x')}) {
    const std::string file = World::file("f.l2cp", entering + rest);
    EXPECT_THAT(outcome({"load", "--keep-going", file}).err,
                testing::EndsWith(file + ": 3 of 4 commands were not carried out\n"));
  }
}

TEST_F(Loading, SaysWhatIsSoAlreadyOfWhatCannotBeChanged) {
  does({{"load", World::file("site.l2cp", site)}});
  const auto refusal = [](const std::string& lines) {
    return refused({"load", World::file("f.l2cp", lines)});
  };
  does({{"load", World::file("same", "l2cp-profile gold\n protocol LLDP rule tunnel\nexit\n")},
        {"load", World::file("same", "vlan-profile metro\n interface 3 svid 100\nexit\n")},
        {"load", World::file("same",
                             "service-profile business\n vlan-profile metro\n"
                             " l2cp-profile gold\nexit\n")}});
  EXPECT_THAT(refusal("no l2cp-profile gold\n"),
              HasSubstr(":1: PROFILE_IN_USE: the profile is attached, or a service profile names"));
  EXPECT_THAT(refusal("no l2protocol PTP\n"), HasSubstr(":1: PROTO_IN_USE: "));
  EXPECT_THAT(refusal("no vlan-profile metro\n"), HasSubstr(":1: IN_USE: a service profile names"));
  EXPECT_THAT(refusal("no service-profile business\n"),
              HasSubstr(":1: IN_USE: the profile is appl"));
  EXPECT_THAT(refusal("no apply business interface 4\n"), HasSubstr(":1: NOT_APPLIED: "));
  EXPECT_THAT(refusal("no attach gold port 1 vlan 7\n"), HasSubstr(":1: DETACH_REFUSED: "));
  EXPECT_THAT(refusal("l2protocol 0123456789012345678901234567890 mac any\n"),
              HasSubstr(":1: INVALID: the name is too long for the module"));
  const auto inMode = [](const std::string& lines) {
    const auto [status, out, err] = outcome({"load", World::file("f.l2cp", lines)});
    EXPECT_EQ(status, 4);
    return err;
  };
  EXPECT_THAT(inMode("l2cp-profile gold\n protocol LLDP rule peer\n"),
              HasSubstr(":2: PROFILE_IN_USE: "));
  EXPECT_THAT(inMode("vlan-profile metro\n interface 4 svid 100\n"), HasSubstr(":2: IN_USE: "));
  EXPECT_THAT(inMode("service-profile business\n no vlan-profile\n"), HasSubstr(":2: IN_USE: "));
  EXPECT_THAT(inMode("service-profile other\n l2cp-profile gold\nexit\napply other interface 4\n"),
              HasSubstr(":4: NOTHING_THERE: "));
}

/// Has standard input be this text.
class Input {
 public:
  explicit Input(const std::string& text) : before_(dup(STDIN_FILENO)) {
    const support::Descriptor file(open(World::file("input", text).c_str(), O_RDONLY | O_CLOEXEC));
    dup2(file.get(), STDIN_FILENO);
  }
  ~Input() { dup2(before_.get(), STDIN_FILENO); }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

 private:
  support::Descriptor before_;
};

TEST_F(Loading, ReadsStandardInput) {
  {
    const Input input("l2cp-profile gold\n protocol LLDP rule peer\nexit\n");
    does({{"load", "-"}});
  }
  const Input input("\nattach silver port 1\n");
  EXPECT_THAT(refused({"load", "-"}), StartsWith("l2cpctl: error: standard input:2: PROFILE_NOT_"));
  EXPECT_EQ(configuration().size(), 3);
}

TEST_F(Loading, TellsOfFilesThatCannotBeRead) {
  for (const char* command : {"load", "diff", "apply"}) {
    EXPECT_EQ(outcome({command, "/nowhere"}).err,
              "l2cpctl: error: /nowhere: No such file or directory\n");
    EXPECT_EQ(outcome({command, "/run"}).err, "l2cpctl: error: /run: Is a directory\n");
    EXPECT_EQ(outcome({command, "/run"}).status, 1);
  }
}

TEST_F(WithoutDaemon, IsSaidByEachWithTheLineThatWasToBeCarriedOut) {
  const std::string file = World::file("f.l2cp", "\nl2cp-profile gold\nexit\n");
  EXPECT_THAT(notReached({"load", file}), StartsWith("l2cpctl: error: " + file + ":2: "));
  EXPECT_THAT(notReached({"load", "--keep-going", file}), HasSubstr("nothing was carried out"));
  notReached({"diff", file});
  notReached({"apply", file});
}

TEST_F(Loading, EndsBetweenTwoLinesAtASignal) {
  std::string script;
  for (int i = 0; i < 200000; ++i) script += "l2cp-profile gold\nexit\n";
  const std::string file = World::file("long.l2cp", script);
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
    does({{"running-config", "defaults"}});
    support::Process load({L2CPCTL_PROGRAM, "load", file});
    ASSERT_TRUE(support::eventually([] {
      return !outcome({"-o", "profile", "list"}).out.empty();
    }));
    load.signal(number);
    EXPECT_EQ(load.wait(), 4);
    EXPECT_THAT(load.output().text(),
                testing::MatchesRegex("l2cpctl: error: /run/long.l2cp:[0-9]+: interrupted; what "
                                      "stands before was carried out\n"));
  }
}

// One that cannot be read is no empty one, which would delete everything.
TEST_F(Loading, TellsOfStandardInputThatCannotBeRead) {
  does({{"load", World::file("site.l2cp", site)}});
  const std::vector<std::string> before = configuration();
  for (const std::string command : {"load", "diff", "apply"}) {
    const auto run = [&](const std::string& input) {
      return support::run({"/bin/sh", "-c", L2CPCTL_PROGRAM " " + command + " - " + input});
    };
    const support::Run folder = run("</run");
    EXPECT_EQ(folder.output, "l2cpctl: error: standard input: Is a directory\n");
    EXPECT_EQ(folder.status, 1);
    const support::Run closed = run("<&-");
    EXPECT_EQ(closed.output, "l2cpctl: error: standard input: Bad file descriptor\n");
    EXPECT_EQ(closed.status, 1);
  }
  EXPECT_EQ(configuration(), before);
}

// ---- Diff and apply ----

const std::string other =
    "l2cp-profile gold\n"
    " protocol LLDP rule tunnel\n"
    " protocol CDP rule peer\n"
    "exit\n" +
    business + "apply business interface 3\n";

TEST_F(Applying, IsShownBeforeItHappens) {
  does({{"load", World::file("site.l2cp", site)}});
  const std::string file = World::file("other.l2cp", other);
  EXPECT_EQ(shown({"diff", file}),
            "-l2protocol \"PTP\" mac any ethertype 0x88f7 subtype 0x01\n"
            " l2cp-profile gold\n"
            "- protocol \"PTP\" rule peer\n"
            "+ protocol \"CDP\" rule peer\n"
            "-attach gold port 1\n");
  EXPECT_THAT(shown({"-o", "diff", file}),
              AllOf(StartsWith("line='-l2protocol \"PTP\" mac any eth"),
                    HasSubstr("\nline='+ protocol \"CDP\" rule peer'\n")));
  EXPECT_EQ(shown({"-j", "diff", file}),
            R"({"lines":["-l2protocol \"PTP\" mac any ethertype 0x88f7 subtype 0x01",)"
            R"(" l2cp-profile gold","- protocol \"PTP\" rule peer","+ protocol \"CDP\" rule peer",)"
            R"("-attach gold port 1"]})"
            "\n");
  EXPECT_EQ(shown({"apply", "--dry-run", file}),
            "no attach gold port 1\n"
            "! in force, edited as a copy that takes its place at \"exit\":\n"
            "l2cp-profile gold\n"
            " no protocol \"PTP\"\n"
            " protocol \"CDP\" rule peer\n"
            "exit\n"
            "no l2protocol \"PTP\"\n"
            "! interrupted: gold port 3 vlan 100\n");
  EXPECT_EQ(shown({"-o", "apply", "--dry-run", file}),
            "line='no attach gold port 1'\n"
            "line='! in force, edited as a copy that takes its place at \"exit\":'\n"
            "line='l2cp-profile gold'\n"
            "line=' no protocol \"PTP\"'\n"
            "line=' protocol \"CDP\" rule peer'\n"
            "line=exit\n"
            "line='no l2protocol \"PTP\"'\n"
            "line='! interrupted: gold port 3 vlan 100'\n");
  EXPECT_EQ(shown({"-j", "apply", "--dry-run", file}),
            R"({"lines":["no attach gold port 1",)"
            R"("! in force, edited as a copy that takes its place at \"exit\":",)"
            R"("l2cp-profile gold"," no protocol \"PTP\""," protocol \"CDP\" rule peer","exit",)"
            R"("no l2protocol \"PTP\"","! interrupted: gold port 3 vlan 100"]})"
            "\n");
  EXPECT_EQ(shown({"-p", "apply", "--dry-run", file}),
            "{\n"
            "  \"lines\": [\n"
            "    \"no attach gold port 1\",\n"
            "    \"! in force, edited as a copy that takes its place at \\\"exit\\\":\",\n"
            "    \"l2cp-profile gold\",\n"
            "    \" no protocol \\\"PTP\\\"\",\n"
            "    \" protocol \\\"CDP\\\" rule peer\",\n"
            "    \"exit\",\n"
            "    \"no l2protocol \\\"PTP\\\"\",\n"
            "    \"! interrupted: gold port 3 vlan 100\"\n"
            "  ]\n"
            "}\n");
  EXPECT_THAT(shown({"-o", "apply", "--dry-run", file}),
              StartsWith("line='no attach gold port 1'\n"));
  // Nothing has happened.
  EXPECT_EQ(shown({"diff", World::file("site.l2cp", site)}), "");
  EXPECT_EQ(shown({"-j", "diff", World::file("site.l2cp", site)}), "{\"lines\":[]}\n");
}

TEST_F(Applying, DoesWhatDiffersAndNothingTheSecondTime) {
  does({{"load", World::file("site.l2cp", site)}});
  const std::string file = World::file("other.l2cp", other);
  EXPECT_EQ(shown({"apply", file}),
            "commands  6\n"
            "\n"
            "PORT  VLAN  PROFILE\n"
            "   3   100  gold\n");
  EXPECT_THAT(configuration(),
              ElementsAre("l2cp-profile gold", " protocol \"CDP\" rule peer",
                          " protocol \"LLDP\" rule tunnel", "exit", "vlan-profile metro",
                          " interface 3 svid 100", "exit", "service-profile business",
                          " vlan-profile metro", " l2cp-profile gold", "exit",
                          "apply business interface 3"));
  EXPECT_EQ(shown({"-o", "profile", "list"}), "name=gold protect=no dynamic=no attachments=1\n");
  EXPECT_EQ(shown({"apply", file}), "commands  0\n\nPORT  VLAN  PROFILE\n");
  EXPECT_EQ(shown({"-j", "apply", file}), "{\"commands\":0,\"interruptions\":[]}\n");
  EXPECT_EQ(shown({"-o", "apply", file}), "kind=summary commands=0\n");
  EXPECT_EQ(shown({"-j", "apply", World::file("site.l2cp", site)}),
            R"({"commands":6,"interruptions":[{"port":3,"vlan":100,"profile":"gold"}]})"
            "\n");
  EXPECT_EQ(shown({"-o", "apply", file}),
            "kind=summary commands=6\nkind=interruption port=3 vlan=100 profile=gold\n");
  // The editing cycles have left every use of a protocol counted once.
  EXPECT_THAT(shown({"-j", "apply", World::file("nothing", "")}), HasSubstr("\"commands\":4,"));
  EXPECT_THAT(configuration(), IsEmpty());
  EXPECT_THAT(shown({"-o", "protocol", "list"}),
              testing::Not(testing::ContainsRegex("rules=[^0]")));
}

TEST_F(Applying, ChangesNothingIfALineIsWrong) {
  does({{"load", World::file("site.l2cp", site)}});
  const std::vector<std::string> before = configuration();
  const std::string one = World::file("one.l2cp", "attach silver port 1\n");
  const auto single = outcome({"apply", one});
  EXPECT_EQ(single.status, 1);
  EXPECT_EQ(single.err,
            "l2cpctl: error: " + one + ":1: there is no profile of this name; nothing was done\n");
  const std::string two =
      World::file("two.l2cp", "nonsense\nl2cp-profile gold\n protocol LDLP rule peer\nexit\n");
  for (const char* command : {"apply", "diff"}) {
    const auto [status, out, err] = outcome({command, two});
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "l2cpctl: " + two +
                       ":1: expected one of l2protocol, l2cp-profile, vlan-profile, "
                       "service-profile, attach, apply\n"
                       "l2cpctl: " +
                       two +
                       ":3: there is no protocol of this name\n"
                       "l2cpctl: error: " +
                       two + ": 2 lines are wrong; nothing was done\n");
  }
  EXPECT_EQ(configuration(), before);
}

TEST_F(Applying, ChangesNothingIfAProfileIsProtected) {
  does({{"load", World::file("site.l2cp", site)}, {"profile", "set", "gold", "protect", "on"}});
  const std::vector<std::string> before = configuration();
  EXPECT_EQ(
      refused({"apply", World::file("other.l2cp", other)}),
      "l2cpctl: error: PROFILE_PROTECTED: the file changes the profile \"gold\", which is "
      "protected; switch that off first with \"l2cpctl profile set NAME protect off\"; nothing "
      "was done\n");
  EXPECT_THAT(refused({"apply", World::file("nothing", "")}),
              HasSubstr("the file deletes the profile \"gold\", which is protected"));
  EXPECT_EQ(configuration(), before);
  // Where it is in force may be changed.
  const std::string without = site.substr(0, site.find("attach gold"));
  EXPECT_THAT(shown({"-j", "apply", World::file("without", without)}),
              HasSubstr("\"commands\":2,"));
}

TEST_F(Applying, ChangesNothingIfAProtocolIsUsedUnseen) {
  does({{"load", World::file("site.l2cp",
                             "l2protocol PTP mac any\nl2cp-profile gold\n"
                             " protocol PTP rule peer\nexit\n")},
        // The module goes on counting the rules of a profile that is deleted with them.
        {"profile", "delete", "gold"}});
  EXPECT_EQ(
      refused({"apply", World::file("nothing", "")}),
      "l2cpctl: error: PROTO_IN_USE: the file deletes the protocol \"PTP\", whose use count is 1, "
      "while the profiles of the running configuration have 0 rules for it: rules of profiles that "
      "were deleted with them are counted, and so are those added to copies that are being edited; "
      "let the file keep the protocol, or have l2cpd count anew by \"l2cpctl running-config save\" "
      "and a restart; nothing was done\n");
  EXPECT_EQ(shown({"-j", "apply", World::file("keep", "l2protocol PTP mac any\n")}),
            "{\"commands\":0,\"interruptions\":[]}\n");
}

TEST_F(Applying, ChangesNothingIfAProtocolIsUsedMoreThanIsCounted) {
  const std::string file = World::file("c1",
                                       "l2protocol PTP mac any\nl2cp-profile c1\n"
                                       " protocol PTP rule peer\nexit\n");
  const std::string nothing = World::file("nothing", "");
  const auto refusal = [](const std::string& count, const std::string& rules) {
    return "l2cpctl: error: PROTO_IN_USE: the file deletes the protocol \"PTP\", whose use count "
           "is " +
           count + ", while the profiles of the running configuration have " + rules +
           " rules for it: the rules that a profile is copied with are not counted, but are taken "
           "off the count when they go; let the file keep the protocol, or have l2cpd count anew "
           "by \"l2cpctl running-config save\" and a restart; nothing was done\n";
  };
  does({{"load", file}, {"profile", "copy", "c1", "c2"}});
  EXPECT_EQ(refused({"apply", nothing}), refusal("1", "2"));
  does({{"load", World::file("gone", "no l2cp-profile c2\nno l2cp-profile c1\n")}});
  EXPECT_EQ(refused({"apply", nothing}), refusal("-1", "0"));
}

TEST_F(Applying, LeavesAloneWhatIsNoConfiguration) {
  does({{"profile", "add", "learnt", "dynamic"}, {"profile", "add", "gold"}});
  shown({"profile", "edit", "gold"});
  does({{"attach", "temp_l2cp_prof_1", "port", "4"}});
  EXPECT_THAT(shown({"-j", "apply", World::file("nothing", "")}), HasSubstr("\"commands\":1,"));
  EXPECT_EQ(shown({"-o", "profile", "list"}),
            "name=learnt protect=no dynamic=yes attachments=0\n"
            "name=temp_l2cp_prof_1 protect=no dynamic=no attachments=1\n");
}

TEST_F(Applying, RefusesLinesAboutProfilesThatAreNoConfiguration) {
  does({{"profile", "add", "learnt", "dynamic"}, {"profile", "add", "kept", "dynamic", "protect"}});
  const std::string profiles = shown({"-o", "profile", "list"});
  const std::string file = World::file("f.l2cp",
                                       "l2cp-profile gold\nexit\n"
                                       "l2cp-profile learnt\n protocol LLDP rule peer\nexit\n"
                                       "attach learnt port 1\n"
                                       "no l2cp-profile kept\n"
                                       "l2cp-profile temp_l2cp_prof_7\nexit\n");
  const std::string dynamic =
      ": the profile is dynamic, and so is no part of the configuration; make it static with "
      "\"l2cpctl profile set NAME dynamic off\" or choose another name\n";
  for (const char* command : {"apply", "diff"}) {
    const auto [status, out, err] = outcome({command, file});
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "l2cpctl: " + file + ":3" + dynamic +      //
                       "l2cpctl: " + file + ":6" + dynamic +  //
                       "l2cpctl: " + file + ":7" + dynamic +  //
                       "l2cpctl: " + file +
                       ":8: profiles of such names are copies that are being edited\n"
                       "l2cpctl: error: " +
                       file + ": 4 lines are wrong; nothing was done\n");
  }
  EXPECT_EQ(shown({"-o", "profile", "list"}), profiles);
}

TEST_F(Applying, KnowsProfilesWithoutRulesAndWhereTheyAreInForce) {
  const std::string file =
      World::file("f.l2cp",
                  "l2cp-profile none\nexit\nvlan-profile metro\n interface 3 svid 100\nexit\n"
                  "service-profile business\n vlan-profile metro\n l2cp-profile none\nexit\n"
                  "attach none port 1\nattach none port 2 vlan 7\napply business interface 3\n");
  EXPECT_THAT(shown({"-j", "apply", file}), HasSubstr("\"commands\":12,"));
  EXPECT_EQ(shown({"-j", "apply", file}), "{\"commands\":0,\"interruptions\":[]}\n");
  EXPECT_THAT(shown({"-j", "apply", World::file("nothing", "")}), HasSubstr("\"commands\":6,"));
  EXPECT_EQ(shown({"-o", "profile", "list"}), "");
}

TEST_F(Applying, DeletesABuiltInProtocolOnlyIfToldTo) {
  const std::string without = World::file("without", "no l2protocol LLDP\n");
  const std::string nothing = World::file("nothing", "");
  EXPECT_EQ(refused({"apply", "--confirm", "5", without}),
            "l2cpctl: error: the file deletes the built-in protocol \"LLDP\", which could not be "
            "undone; apply that without --confirm; nothing was done\n");
  EXPECT_THAT(shown({"-j", "apply", nothing}), HasSubstr("\"commands\":0,"));
  EXPECT_THAT(shown({"-j", "apply", without}), HasSubstr("\"commands\":1,"));
  EXPECT_THAT(shown({"-j", "apply", without}), HasSubstr("\"commands\":0,"));
  EXPECT_EQ(outcome({"protocol", "show", "LLDP"}).status, 2);
}

TEST_F(Applying, FindsNoDifferenceInASubtypeThatIsNotMatched) {
  does({{"protocol", "add", "PTP", "mac", "any", "subtype", "3"}});
  const std::string file =
      World::file("saved.l2cp", outcome({"running-config", "show"}, {.answers = Sink::file}).out);
  EXPECT_EQ(shown({"diff", file}), "");
  EXPECT_THAT(shown({"-j", "apply", file}), HasSubstr("\"commands\":0,"));
  shown({"apply", World::file("f", "l2protocol PTP mac any ethertype 0x88f7\n")});
  EXPECT_THAT(shown({"-o", "protocol", "show", "PTP"}),
              HasSubstr(" ethertype=0x88f7 subtype=none"));
}

TEST_F(Applying, IsNotLeftHalfWayBySignals) {
  std::string script = "l2cp-profile gold\n protocol LLDP rule peer\nexit\n";
  for (int port = 0; port < 2000; ++port) {
    script += "attach gold port " + std::to_string(port) + "\n";
  }
  const std::string file = World::file("many.l2cp", script);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    support::Process apply({L2CPCTL_PROGRAM, "apply", file});
    ASSERT_TRUE(support::eventually([] {
      return !outcome({"-o", "profile", "ports", "gold"}).out.empty();
    }));
    apply.signal(number);
    // The machine may have been too busy to send the signal in time.
    EXPECT_THAT(apply.wait(), testing::AnyOf(128 + number, 0));
    EXPECT_THAT(apply.output().text(), HasSubstr("commands  "));
    EXPECT_EQ(shown({"diff", file}), "");
    shown({"apply", World::file("gold.l2cp", "l2cp-profile gold\nexit\n")});
  }
}

class WithDaemonThatGoes : public WorldTest {};

TEST_F(WithDaemonThatGoes, ASignalMeanwhileDoesNotHideHowFarApplyGot) {
  world().startDaemon();
  std::string script = "l2cp-profile gold\n protocol LLDP rule peer\nexit\n";
  for (int port = 0; port < 20000; ++port) {
    script += "attach gold port " + std::to_string(port) + "\n";
  }
  support::Process apply({L2CPCTL_PROGRAM, "apply", World::file("many.l2cp", script)});
  ASSERT_TRUE(support::eventually([] {
    return !outcome({"-o", "profile", "ports", "gold"}).out.empty();
  }));
  world().daemon().signal(SIGSTOP);
  apply.signal(SIGINT);
  world().stopDaemon(SIGKILL);
  EXPECT_EQ(apply.wait(), 4);
  EXPECT_THAT(apply.output().text(),
              testing::ContainsRegex(": l2cpd not reached [^\n]*; [0-9]+ of 20003 commands were "
                                     "carried out\n"));
}

TEST_F(Applying, PutsWhatIsNewBehindWhatStaysAlsoWherePositionsAreFree) {
  const std::string profiles =
      "l2cp-profile a\n protocol LLDP rule peer\nexit\n"
      "l2cp-profile b\n protocol CDP rule peer\nexit\n"
      "l2cp-profile c\n protocol xSTP rule peer\nexit\n";
  does({{"load", World::file("f", profiles + "attach a port 1\nattach b port 1\n")},
        {"detach", "a", "port", "1"}});
  const std::string wanted = profiles + "attach b port 1\nattach c port 1\n";
  EXPECT_EQ(shown({"apply", "--dry-run", World::file("g", wanted)}),
            "no attach b port 1\nattach b port 1\nattach c port 1\n! interrupted: b port 1\n");
  shown({"apply", World::file("g", wanted)});
  EXPECT_THAT(shown({"running-config", "show"}),
              testing::EndsWith("attach b port 1\nattach c port 1\n"));
  EXPECT_EQ(shown({"diff", World::file("g", wanted)}), "");
}

TEST_F(Applying, EndsAtWhatIsRefusedAfterAllAndSaysHowFarItGot) {
  does({{"load", World::file("site.l2cp", site)}});
  Client client({});
  Notes notes;
  const DaemonState daemon = daemonState(client);
  const auto ends = [&](const Plan& plan) -> std::pair<ExitStatus, std::string> {
    try {
      perform(plan, daemon.state, client, notes);
    } catch (const BatchFailure& failure) {
      return {failure.status(), failure.what()};
    }
    return {};
  };
  EXPECT_THAT(ends({{script::NoL2cpProfile{"a\x1b"}}, {}, {}}),
              testing::Pair(ExitStatus::refused,
                            AllOf(StartsWith("\"no l2cp-profile a\\x1b\": PROFILE_NOT_FOUND: "),
                                  HasSubstr("; 0 of 1 commands were carried out"))));
  EXPECT_THAT(ends({{script::L2cpProfile{"silver"}, script::NoL2cpProfile{"a"}}, {}, {}}),
              testing::Pair(ExitStatus::partly, HasSubstr("; 1 of 2 commands were carried out")));
  // An editing cycle that is broken off leaves nothing behind, and no use of a protocol.
  does({{"detach", "gold", "port", "1"}});
  EXPECT_EQ(ends({{script::L2cpProfile{"gold"}, script::NoEntry{"gold", "LLDP"},
                   script::Entry{"gold", "CDP", script::Rule::peer},
                   script::Entry{"gold", "PTP", script::Rule::discard},
                   script::Entry{"gold", "none", script::Rule::peer}, script::Exit{}},
                  {"gold"},
                  {}})
                .first,
            ExitStatus::partly);
  EXPECT_EQ(shown({"-o", "profile", "list"}),
            "name=gold protect=no dynamic=no attachments=1\n"
            "name=silver protect=no dynamic=no attachments=0\n");
  EXPECT_EQ(daemonState(client).uses, daemon.uses);
}

/// A profile that is in force through service profiles, and the state and plan for editing it.
class EditingInForce : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    if (IsSkipped()) return;
    does({{"load", World::file("site.l2cp",
                               "l2cp-profile gold\n protocol LLDP rule peer\nexit\n"
                               "vlan-profile metro\n interface 3 svid 100\n interface 5 svid 200\n"
                               "exit\nservice-profile business\n vlan-profile metro\n"
                               " l2cp-profile gold\nexit\nservice-profile idle\n"
                               " l2cp-profile gold\nexit\n"
                               "apply business interface 3\napply business interface 5\n")}});
    daemon_ = daemonState(client_);
    State wanted = daemon_.state;
    wanted.l2cpProfiles.at("gold")["CDP"] = script::Rule::tunnel;
    plan_ = planFor(daemon_.state, wanted);
  }

  // What is said at the end of the plan, which fails.
  std::string failure() {
    try {
      Notes notes;
      perform(plan_, daemon_.state, client_, notes);
    } catch (const BatchFailure& failure) {
      EXPECT_EQ(failure.status(), ExitStatus::partly);
      return failure.what();
    }
    return {};
  }

  Client client_{Server()};
  DaemonState daemon_;
  Plan plan_;
};

TEST_F(EditingInForce, IsPutBackIfTheCopyCannotTakeThePlace) {
  const CommandLine attach{"attach", "gold", "port", "7"};
  const CommandLine protect{"profile", "set", "gold", "protect", "on"};
  for (const CommandLine& meanwhile : {protect, attach}) {
    does({meanwhile});
    const std::vector<std::string> before = configuration();
    const std::string profile = shown({"-o", "profile", "list"});
    EXPECT_EQ(failure(),
              "\"exit\": EDIT_FAILED: the edited copy could not take the profile's place; "
              "\"l2cpctl profile show\" tells whether somebody has attached or protected the "
              "profile; the profile is in force where it was; 2 of 3 commands were carried out");
    EXPECT_EQ(configuration(), before);
    EXPECT_EQ(shown({"-o", "profile", "list"}), profile);
    EXPECT_EQ(daemonState(client_).uses, daemon_.uses);
    does({{"profile", "set", "gold", "protect", "off"}});
  }
}

TEST_F(EditingInForce, SaysWhatCannotBePutBack) {
  does({{"load", World::file("meanwhile",
                             "no apply business interface 5\n"
                             "attach gold port 5 vlan 200\n")}});
  EXPECT_THAT(
      failure(),
      HasSubstr("or protected the profile; not put back: \"apply business interface 5\": "));
  EXPECT_EQ(shown({"-o", "service-profile", "list"}),
            "name=business vlan_profile=metro l2cp_profile=gold interfaces=3\n"
            "name=idle vlan_profile='' l2cp_profile=gold interfaces=''\n");
}

/// A plan carried out, and how many requests that took.
class Requests : public DaemonTest {
 protected:
  std::size_t toLead(const std::string& from, const std::string& to) {
    shown({"apply", World::file("from", from)});
    const std::string file = World::file("to", to);
    Client client{Server()};
    const DaemonState before = daemonState(client);
    State wanted = before.state;
    for (const char* name : {"A", "B"}) wanted.protocols.erase(name);
    wanted.l2cpProfiles.clear();
    script::Reader reader;
    std::istringstream lines(to);
    for (std::string line; std::getline(lines, line);)
      EXPECT_EQ(wanted.take(reader.read(line)), "");
    Notes notes;
    const std::size_t others = client.requests();
    perform(planFor(before.state, wanted), before.state, client, notes);
    const std::size_t count = client.requests() - others;
    EXPECT_EQ(shown({"diff", file}), "");
    EXPECT_EQ(daemonState(client).uses, counted(wanted));
    return count;
  }

 private:
  // Every rule counts once.
  static std::map<std::string, std::uint32_t> counted(const State& state) {
    std::map<std::string, std::uint32_t> uses;
    for (const auto& [name, definition] : state.protocols) uses[name];
    for (const auto& [name, rules] : state.l2cpProfiles) {
      for (const auto& [protocol, rule] : rules) ++uses[protocol];
    }
    return uses;
  }
};

TEST_F(Requests, AreAsFewAsWhatDiffers) {
  const std::string empty = "l2cp-profile gold\nexit\n";
  const std::string peer = "l2cp-profile gold\n protocol LLDP rule peer\n protocol CDP rule peer\n";
  const std::string tunnel =
      "l2cp-profile gold\n protocol LLDP rule tunnel\n protocol CDP rule peer\n";
  EXPECT_EQ(toLead(peer, tunnel), 1u);
  EXPECT_EQ(toLead(peer, empty), 2u);
  EXPECT_EQ(toLead(empty, peer), 2u);
  EXPECT_EQ(toLead(empty, ""), 1u);
  // One that takes the rules away, so that they stop counting as uses.
  EXPECT_EQ(toLead(peer, ""), 2u);
  EXPECT_EQ(
      toLead("l2protocol A mac any ethertype 0x88f7\n", "l2protocol A mac any ethertype 0x88f8\n"),
      1u);
  EXPECT_EQ(
      toLead("l2protocol A mac any ethertype 0x88f7\n", "l2protocol B mac any ethertype 0x88f7\n"),
      2u);
}

TEST_F(Requests, FindOutWhatHasChangedMeanwhile) {
  does({{"load", World::file("f",
                             "l2protocol A mac any\nl2cp-profile gold\n"
                             " protocol LLDP rule peer\nexit\n"
                             "service-profile business\nexit\n")}});
  Client client{Server()};
  const DaemonState before = daemonState(client);
  does({{"profile", "rule", "delete", "gold", "LLDP"},
        {"profile", "rule", "add", "gold", "CDP", "peer"}});
  carry(script::Entry{"gold", "LLDP", script::Rule::tunnel}, client, before.state);
  carry(script::Entry{"gold", "CDP", script::Rule::tunnel}, client, before.state);
  const std::string rules = "protocol=CDP rule=tunnel\nprotocol=LLDP rule=tunnel\n";
  EXPECT_EQ(shown({"-o", "profile", "rule", "list", "gold"}), rules);
  // What cannot be deleted after all keeps its rules.
  const DaemonState now = daemonState(client);
  does({{"load", World::file("g", "service-profile business\n l2cp-profile gold\nexit\n")}});
  EXPECT_THROW(carry(script::NoL2cpProfile{"gold"}, client, now.state), Refused);
  EXPECT_EQ(shown({"-o", "profile", "rule", "list", "gold"}), rules);
  EXPECT_EQ(daemonState(client).uses, now.uses);
}

// ---- Names ----

TEST_F(Applying, SavesAndLoadsAnyNameThatTheLanguageCanWrite) {
  const std::vector<std::string> names{
      "two  words",  "quo\"te",           "\"quoted\"", "back\\slash", "h\xc3\xb6me",
      "raw\xff\xfe", "\xe2\x80\xaetrick", "!",          "-j",          "exit"};
  for (const std::string& name : names) {
    does({{"profile", "add", "--", name},
          {"profile", "rule", "add", "--", name, "LLDP", "peer"},
          {"protocol", "add", "--", name, "mac", "any", "ethertype", "0x88f7"},
          {"profile", "rule", "add", "--", name, name, "tunnel"},
          {"attach", "--", name, "port", "1", "vlan", "7"},
          {"vlan-profile", "add", "--", name},
          {"vlan-profile", "set", "--", name, "interface", "2", "svid", "9"},
          {"service-profile", "add", "--", name},
          {"service-profile", "set", "--", name, "vlan-profile", name}});
  }
  const std::vector<std::string> before = configuration();
  const std::string saved = outcome({"running-config", "show"}, {.answers = Sink::file}).out;
  EXPECT_THAT(saved, HasSubstr("raw\xff\xfe"));
  EXPECT_THAT(shown({"running-config", "show"}),
              AllOf(HasSubstr("raw\\xff\\xfe"), testing::Not(HasSubstr("\xe2\x80\xae"))));
  const std::string file = World::file("saved.l2cp", saved);
  EXPECT_EQ(shown({"diff", file}), "");
  EXPECT_THAT(shown({"diff", World::file("nothing", "")}),
              HasSubstr("-l2cp-profile raw\\xff\\xfe\n"));
  shown({"apply", World::file("nothing", "")});
  EXPECT_THAT(configuration(), IsEmpty());
  does({{"load", file}});
  EXPECT_EQ(configuration(), before);
  shown({"apply", World::file("nothing", "")});
  shown({"apply", file});
  EXPECT_EQ(configuration(), before);
}

TEST_F(Applying, RefusesNamesThatTheLanguageCannotWriteAndDeletesThem) {
  for (const char* command : {"load", "diff", "apply"}) {
    EXPECT_THAT(outcome({command, World::file("f", "l2cp-profile a\x1b[2J\nexit\n")}).err,
                HasSubstr(":1: there is a control character in the line"));
    EXPECT_THAT(outcome({command, World::file("f", "l2cp-profile \"a\" b\"\nexit\n")}).err,
                HasSubstr(":1: there are words too many"));
  }
  // Other clients can make them.
  Client client({});
  for (const char* name : {"a\x1b[2J", "a\" b"}) {
    carry(script::L2cpProfile{name}, client);
    carry(script::Attach{name, 1}, client);
  }
  const std::string nothing = World::file("nothing", "");
  const std::string control = "! left out (there is a control character in the line): ";
  const std::string words = "! left out (there are words too many): ";
  const std::string port = "! left out (\"port\" is missing): ";
  for (const Sink sink : {Sink::file, Sink::terminal}) {
    EXPECT_EQ(outcome({"diff", nothing}, {.answers = sink}).out,
              "-" + control + "l2cp-profile a\\x1b[2J\n" +       //
                  "-" + words + "l2cp-profile \"a\" b\"\n" +     //
                  "-" + control + "attach a\\x1b[2J port 1\n" +  //
                  "-" + port + "attach \"a\" b\" port 1\n");
    EXPECT_EQ(outcome({"apply", "--dry-run", nothing}, {.answers = sink}).out,
              control + "no attach a\\x1b[2J port 1\n" +     //
                  port + "no attach \"a\" b\" port 1\n" +    //
                  control + "no l2cp-profile a\\x1b[2J\n" +  //
                  words + "no l2cp-profile \"a\" b\"\n");
  }
  EXPECT_THAT(shown({"-j", "apply", nothing}), HasSubstr("\"commands\":4,"));
  EXPECT_EQ(shown({"-o", "profile", "list"}), "");
}

TEST_F(Applying, NoNameSaysSomethingElseInWhatIsShown) {
  const std::string forgery = "\nattach a port 7\n!";
  Client client({});
  carry(script::Protocol{"x\"" + forgery, {}, 0x88f7}, client);
  for (const std::string& name : {std::string("a"), "b" + forgery, "d" + forgery}) {
    carry(script::L2cpProfile{name}, client);
    carry(script::Entry{name, "LLDP", script::Rule::peer}, client);
    carry(script::Attach{name, 1}, client);
  }
  carry(script::NoAttach{"a", 1}, client);
  carry(script::Entry{"a", "x\"" + forgery, script::Rule::peer}, client);
  // Interrupted, as it stands behind what goes.
  does({{"profile", "set", "d" + forgery, "dynamic", "on"}});
  const std::string file = World::file("f", "l2cp-profile a\n protocol LLDP rule peer\nexit\n");
  const std::string comment = "! left out (there is a control character in the line): ";
  const std::string forged = "\\x0aattach a port 7\\x0a!";
  const std::string plan = outcome({"apply", "--dry-run", file}, {.answers = Sink::file}).out;
  EXPECT_EQ(plan, comment + "no attach \"b" + forged + "\" port 1\n" +                           //
                      comment + "no attach \"d" + forged + "\" port 1\n" + "l2cp-profile a\n" +  //
                      " " + comment + "no protocol \"x\"" + forged + "\"\n" + "exit\n" +         //
                      comment + "no l2cp-profile \"b" + forged + "\"\n" + comment +
                      "no l2protocol \"x\"" + forged + "\"\n" + comment + "attach \"d" + forged +
                      "\" port 1\n" + "! interrupted: \"d" + forged + "\" port 1\n");
  const std::string difference = outcome({"diff", file}, {.answers = Sink::file}).out;
  EXPECT_EQ(difference,
            "-" + comment + "l2protocol \"x\"" + forged + "\" mac any ethertype 0x88f7\n" +  //
                " l2cp-profile a\n" +                                                        //
                "- " + comment + "protocol \"x\"" + forged + "\" rule peer\n" +              //
                "-" + comment + "l2cp-profile \"b" + forged + "\"\n" +                       //
                "- ! left out (its mode cannot be entered): protocol \"LLDP\" rule peer\n" + "-" +
                comment + "attach \"b" + forged + "\" port 1\n");
  for (const std::string& text : {plan, difference}) {
    outcome({"load", "--keep-going", World::file("shown", text)});
    EXPECT_EQ(shown({"profile", "ports", "a"}), "PORT  VLAN\n");
  }
}

// ---- Confirmation ----

TEST_F(Confirming, KeepsTheChangesAfterEnterOrAYes) {
  for (const char* answer : {"\n", "y\n", " yes\r\nno\n"}) {
    SCOPED_TRACE(answer);
    shown({"apply", World::file("nothing", "")});
    Confirmed apply(World::file("site.l2cp", site), "30");
    ASSERT_TRUE(apply.isWaiting());
    apply.write(answer);
    EXPECT_EQ(apply.process().wait(), 0);
    EXPECT_EQ(shown({"diff", World::file("site.l2cp", site)}), "");
    EXPECT_THAT(apply.process().output().text(), HasSubstr("commands  14\n"));
  }
}

TEST_F(Confirming, GoesOnAtSignalsThatWouldStopTheProgram) {
  Confirmed apply(World::file("site.l2cp", site), "30");
  ASSERT_TRUE(apply.isWaiting());
  for (const int number : {SIGTSTP, SIGTTIN, SIGTTOU}) apply.process().signal(number);
  apply.write("\n");
  EXPECT_EQ(apply.process().wait(), 0);
  EXPECT_EQ(shown({"diff", World::file("site.l2cp", site)}), "");
}

TEST_F(Confirming, GoesOnAtSignalsThatAreIgnored) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  Confirmed apply(World::file("site.l2cp", site), "30");
  std::signal(SIGHUP, before);
  ASSERT_TRUE(apply.isWaiting());
  apply.process().signal(SIGHUP);
  apply.write("\n");
  EXPECT_EQ(apply.process().wait(), 0);
  EXPECT_EQ(shown({"diff", World::file("site.l2cp", site)}), "");
}

class Undoing : public Confirming {
 protected:
  void SetUp() override {
    Confirming::SetUp();
    if (IsSkipped()) return;
    does({{"load", World::file("other.l2cp", other)}});
    before_ = configuration();
  }

  // Expects that nothing has changed in the end, and that this is the reason.
  void isUndone(Confirmed& apply, const std::string& reason) {
    EXPECT_EQ(apply.process().wait(), 4);
    EXPECT_THAT(
        apply.process().output().text(),
        HasSubstr("l2cpctl: error: " + reason + "; the configuration is as it was before\n"));
    EXPECT_EQ(configuration(), before_);
  }

  std::vector<std::string> before_;
};

TEST_F(Undoing, HappensWhenTheInputEnds) {
  Confirmed apply(World::file("site.l2cp", site), "30");
  ASSERT_TRUE(apply.isWaiting());
  apply.write("no line end");
  apply.end();
  isUndone(apply, "the input ended without a confirmation");
}

TEST_F(Undoing, HappensAtAnotherAnswerThanYes) {
  for (const std::string& answer : {std::string("no\n"), std::string(300, 'y') + '\n'}) {
    Confirmed apply(World::file("site.l2cp", site), "30");
    ASSERT_TRUE(apply.isWaiting());
    apply.write(answer);
    isUndone(apply, "the answer was neither Enter nor \"yes\"");
  }
}

TEST_F(Undoing, ProtectsAgainWhatWasProtected) {
  does({{"load", World::file("ptp", "l2protocol PTP mac any ethertype 0x88f7\n")},
        {"protocol", "set", "PTP", "protect", "on"}});
  const std::string before = shown({"-o", "protocol", "show", "PTP"});
  EXPECT_THAT(before, HasSubstr("protect=yes"));
  Confirmed apply(World::file("nothing", ""), "30");
  ASSERT_TRUE(apply.isWaiting());
  EXPECT_EQ(outcome({"protocol", "show", "PTP"}).status, 2);
  apply.end();
  EXPECT_EQ(apply.process().wait(), 4);
  EXPECT_EQ(shown({"-o", "protocol", "show", "PTP"}), before);
}

TEST_F(Undoing, HappensWhenTheTimeIsOver) {
  Confirmed apply(World::file("site.l2cp", site), "1");
  isUndone(apply, "nobody confirmed it in time");
}

TEST_F(Undoing, HappensAtSignalsThatWouldEndTheProgram) {
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    Confirmed apply(World::file("site.l2cp", site), "30");
    ASSERT_TRUE(apply.isWaiting());
    apply.process().signal(number);
    isUndone(apply, "a signal came instead of a confirmation");
  }
}

/// Messages go to a terminal.
class UndoingOnTerminal : public Undoing {
 protected:
  support::PseudoTerminal terminal_;
};

TEST_F(Undoing, HappensAlsoWhereNoMessageCanBeWritten) {
  Confirmed apply(World::file("site.l2cp", site), "1", "&-");
  EXPECT_EQ(apply.process().wait(), 4);
  EXPECT_EQ(configuration(), before_);
}

TEST_F(UndoingOnTerminal, CountsTheSecondsDown) {
  if (!terminal_.isThere()) GTEST_SKIP() << "no terminals here";
  setenv("TERM", "xterm", 1);
  Confirmed apply(World::file("site.l2cp", site), "30",
                  "/proc/self/fd/" + std::to_string(terminal_.number()));
  // A busy machine may let a second pass unseen.
  const auto secondsShown = [this] {
    terminal_.until("\x1b[?7l\r\x1b[KPress Enter to keep the changes; ");
    return std::stoi(terminal_.until(" s are left \x1b[?7h"));
  };
  const int first = secondsShown();
  EXPECT_THAT(first, AllOf(testing::Ge(1), testing::Le(30)));
  EXPECT_LT(secondsShown(), first);
  apply.end();
  terminal_.until("\r\x1b[Kl2cpctl: error: the input ended without a confirmation; ");
  EXPECT_EQ(apply.process().wait(), 4);
}

TEST_F(Confirming, WantsAFileAndSomethingToDo) {
  EXPECT_THAT(outcome({"apply", "-", "--confirm", "5"}).err, HasSubstr("name a file"));
  EXPECT_THAT(outcome({"apply", "x", "--confirm", "5", "--dry-run"}).err,
              HasSubstr("--dry-run leaves nothing to --confirm"));
  EXPECT_EQ(shown({"-j", "apply", World::file("nothing", ""), "--confirm", "5"}),
            "{\"commands\":0,\"interruptions\":[]}\n");
}

// ---- Any two configurations ----

// The lines that say a state, those of modes told apart, without an order.
std::vector<std::string> flat(const std::vector<std::string>& lines) {
  std::vector<std::string> all;
  std::string mode;
  for (const std::string& line : lines) {
    if (line == "exit") continue;
    if (!line.starts_with(' ')) mode = line;
    all.push_back(line.starts_with(' ') ? mode + line : line);
  }
  std::sort(all.begin(), all.end());
  return all;
}

std::vector<std::string> flat(const State& state) {
  State own = state;
  std::erase_if(own.protocols, [](const auto& each) { return each.second.etherType < 0x88f7; });
  for (const char* name : {"LLDP", "CDP", "xSTP"}) own.protocols.erase(name);
  std::vector<std::string> lines = linesBetween({}, own);
  for (std::string& line : lines) line.erase(0, 1);
  return flat(lines);
}

// The running configuration says nothing about profiles without rules.
bool canBeShown(const State& state) {
  return std::none_of(state.l2cpProfiles.begin(), state.l2cpProfiles.end(),
                      [](const auto& profile) { return profile.second.empty(); });
}

// No line says them, and so none can ask for them or for others.
void giveSubtypesThatAreNotMatched(const State& state) {
  for (const auto& [name, definition] : state.protocols) {
    if (definition == Definition{}) does({{"protocol", "set", "--", name, "subtype", "3"}});
  }
}

TEST_F(Applying, LeadsFromAnyConfigurationToAnyOther) {
  const int pairs = pairsToTry(100);
  Client client({});
  std::map<std::string, Definition> builtIn;
  const DaemonState fresh = daemonState(client);
  for (const char* name : {"LLDP", "CDP", "xSTP"}) builtIn[name] = fresh.state.protocols.at(name);
  RandomStates states(20261123);
  RandomState wanted;
  int compared = 0;
  for (int i = 0; i < pairs && !HasFailure(); ++i) {
    const std::string before = outcome({"running-config", "show"}, {.answers = Sink::file}).out;
    wanted = states.number(3) != 0 ? states.variationOf(wanted, builtIn) : states.next(builtIn);
    const std::string file = World::file("wanted.l2cp", wanted.script());
    SCOPED_TRACE("pair " + std::to_string(i) + "\nfrom\n" + before + "to\n" + wanted.script() +
                 "by\n" + outcome({"apply", "--dry-run", file}, {.answers = Sink::file}).out);
    const auto [status, out, err] = outcome({"apply", file});
    EXPECT_EQ(status, 0) << err;
    giveSubtypesThatAreNotMatched(wanted.state);
    EXPECT_EQ(shown({"diff", file}), "");
    EXPECT_EQ(shown({"-j", "apply", file}), "{\"commands\":0,\"interruptions\":[]}\n");
    if (!canBeShown(wanted.state)) continue;
    EXPECT_EQ(flat(configuration()), flat(wanted.state));
    ++compared;
  }
  EXPECT_GT(compared, pairs / 4);
}

}  // namespace
}  // namespace cli
