// What can be seen of the program without a daemon: its help, and what it says about wrong command
// lines.

#include "cli/program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace cli {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using CommandLine = std::vector<std::string>;

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

Outcome outcome(const CommandLine& line) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = run(line, out, err);
  return {status, out.str(), err.str()};
}

struct Wrong {
  CommandLine line;
  const char* answer;  // without "l2cpctl: error: " and the line end
};

void PrintTo(const Wrong& wrong, std::ostream* stream) {
  for (const std::string& word : wrong.line) *stream << '"' << word << "\" ";
}

class WrongCommandLine : public testing::TestWithParam<Wrong> {};

TEST_P(WrongCommandLine, IsAnsweredInOneLineBeforeAnythingIsSent) {
  const auto [status, out, err] = outcome(GetParam().line);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "l2cpctl: error: " + std::string(GetParam().answer) + "\n");
}

#define SEE(command) "; see \"l2cpctl " command "--help\""

#define NOUNS                                                                             \
  "protocol, profile, attach, detach, port, vlan, feed, explain, watch, metrics, check, " \
  "service-profile, vlan-profile, running-config, load, diff, apply, daemon, complete"

const Wrong wrongCommands[] = {
    {{"-j"}, "a command is missing; there are: " NOUNS SEE("")},
    {{"frob"}, "\"frob\" is no command; there are: " NOUNS SEE("")},
    {{""}, "\"\" is no command; there are: " NOUNS SEE("")},
    {{"pro"}, "\"pro\" could be \"protocol\" or \"profile\"" SEE("")},
    {{"porfile", "list"},
     "\"porfile\" is no command (did you mean \"profile\"?); there are: " NOUNS SEE("")},
    {{"profile", "stat", "x"},
     "profile: \"stat\" could be \"statistics\" or \"status\"" SEE("profile ")},
    {{"protocol"},
     "protocol: a command is missing; there are: list, show, add, delete, rename, set, "
     "statistics" SEE("protocol ")},
    {{"proto", "frob\x1b"},
     "protocol: \"frob\\x1b\" is no command; there are: list, show, add, delete, rename, set, "
     "statistics" SEE("protocol ")},
    {{"profile", "rule"},
     "profile rule: a command is missing; there are: add, set, delete, clear, list, "
     "show" SEE("profile rule ")},
    {{"prof", "ru", "lsit"},
     "profile rule: \"lsit\" is no command (did you mean \"list\"?); there are: add, set, delete, "
     "clear, list, show" SEE("profile rule ")},
    {{"profile list"}, "\"profile list\" is no command; there are: " NOUNS SEE("")},
    {{"help", "profile", "frob"},
     "profile: \"frob\" is no command; there are: list, show, add, delete, rename, set, "
     "statistics, "
     "status, ports, uses, edit, commit, copy, rule" SEE("profile ")},
};
INSTANTIATE_TEST_SUITE_P(Commands, WrongCommandLine, testing::ValuesIn(wrongCommands));

const Wrong wrongOptions[] = {
    {{"-x"}, "\"-x\" is no option" SEE("")},
    {{"protocol", "list", "--jason"}, "\"--jason\" is no option" SEE("")},
    {{"protocol", "list", "-oj"}, "--oneline and JSON are two formats; choose one" SEE("")},
    {{"--color", "sometimes", "protocol", "list"},
     "--color: \"sometimes\" is none of \"auto\", \"always\" and \"never\"" SEE("")},
    {{"--wait", "0", "protocol", "list"}, "--wait: Value 0 not in range 1 to 3600" SEE("")},
    {{"protocol", "list", "-q"}, "protocol list: --quiet does nothing here" SEE("protocol list ")},
    {{"-t", "0", "protocol", "list"}, "--timeout: Value 0 not in range 1 to 3600" SEE("")},
    {{"-t", "3601", "protocol", "list"}, "--timeout: Value 3601 not in range 1 to 3600" SEE("")},
    {{"-t", "soon", "protocol", "list"}, "--timeout: Value soon not in range 1 to 3600" SEE("")},
    {{"protocol", "list", "-s"}, "--server: 1 required ADDRESS missing" SEE("")},
};
INSTANTIATE_TEST_SUITE_P(Options, WrongCommandLine, testing::ValuesIn(wrongOptions));

const Wrong wrongProtocols[] = {
    {{"protocol", "list", "x"}, "protocol list: \"x\" is one word too many" SEE("protocol list ")},
    {{"protocol", "show"}, "protocol show: NAME is missing" SEE("protocol show ")},
    {{"protocol", "add", "", "mac", "any"}, "protocol add: the name is empty" SEE("protocol add ")},
    {{"protocol", "add", "a\x1b", "mac", "any"},
     "protocol add: the name \"a\\x1b\" has a control character, and could not be saved" SEE(
         "protocol add ")},
    {{"protocol", "add", "x"}, "protocol add: \"mac\" is missing" SEE("protocol add ")},
    {{"protocol", "add", "x", "mac"}, "protocol add: MAC is missing" SEE("protocol add ")},
    {{"protocol", "add", "x", "mac", "any", "mac", "any"},
     "protocol add: \"mac\" stands there twice" SEE("protocol add ")},
    {{"protocol", "add", "x", "mac", "any", "ethertype"},
     "protocol add: the ethertype is missing" SEE("protocol add ")},
    {{"protocol", "add", "x", "mac", "any", "ethertype", "65536"},
     "protocol add: ethertype: \"65536\" is no number from 0 to 65534, nor \"none\"" SEE(
         "protocol add ")},
    {{"protocol", "add", "x", "mac", "any", "subtype", "0x100"},
     "protocol add: subtype: \"0x100\" is no number from 0 to 254, nor \"none\"" SEE(
         "protocol add ")},
    {{"protocol", "add", "x", "mac", "any", "protect", "protect"},
     "protocol add: \"protect\" stands there twice" SEE("protocol add ")},
    {{"protocol", "add", "x", "ethr", "1"},
     "protocol add: \"ethr\" stands where \"mac\", \"ethertype\", \"subtype\" or \"protect\" "
     "should" SEE("protocol add ")},
    {{"protocol", "show", "position", "x"},
     "protocol show: position: \"x\" is no number from 0 to 4294967295" SEE("protocol show ")},
    {{"protocol", "delete", "x", "y"},
     "protocol delete: \"y\" is one word too many" SEE("protocol delete ")},
    {{"protocol", "rename", "x"}, "protocol rename: NEW is missing" SEE("protocol rename ")},
    {{"profile", "add", "a\" "},
     "profile add: the name \"a\\\" \" has a quotation mark in front of a blank, and could not be "
     "saved" SEE("profile add ")},
    {{"protocol", "set", "x"},
     "protocol set: \"protect\", \"mac\", \"ethertype\" or \"subtype\" is missing" SEE(
         "protocol set ")},
    {{"protocol", "set", "x", "name", "y"},
     "protocol set: \"name\" stands where \"protect\", \"mac\", \"ethertype\" or \"subtype\" "
     "should" SEE("protocol set ")},
    {{"protocol", "set", "x", "protect", "on", "mac"},
     "protocol set: \"mac\" is one word too many" SEE("protocol set ")},
    {{"protocol", "set", "x", "protect"},
     "protocol set: \"on\" or \"off\" is missing" SEE("protocol set ")},
    {{"protocol", "set", "x", "mac", "01:80:c2:00:00"},
     "protocol set: mac: \"01:80:c2:00:00\" is no address; write aa:bb:cc:dd:ee:ff, "
     "aa-bb-cc-dd-ee-ff, aabb.ccdd.eeff or \"any\"" SEE("protocol set ")},
};
INSTANTIATE_TEST_SUITE_P(Protocols, WrongCommandLine, testing::ValuesIn(wrongProtocols));

const Wrong wrongProfiles[] = {
    {{"profile", "add", "x", "dynamic", "dynamic"},
     "profile add: \"dynamic\" stands there twice" SEE("profile add ")},
    {{"profile", "add", "0123456789012345678901234567890123"},
     "profile add: the name \"0123456789012345678901234567890123\" is 34 bytes long; 33 is the "
     "most there can be" SEE("profile add ")},
    {{"profile", "set", "x", "colour", "red"},
     "profile set: \"colour\" stands where \"protect\" or \"dynamic\" should" SEE("profile set ")},
    {{"profile", "set", "x", "dynamic", "yes"},
     "profile set: \"yes\" stands where \"on\" or \"off\" should" SEE("profile set ")},
    {{"profile", "set", "x", "dynamic", "o"},
     "profile set: \"o\" could be \"on\" or \"off\"" SEE("profile set ")},
    {{"profile", "rename", "x"}, "profile rename: NEW is missing" SEE("profile rename ")},
    {{"profile", "rename", "x", ""},
     "profile rename: the new name is empty" SEE("profile rename ")},
    {{"profile", "commit", "x"}, "profile commit: COPY is missing" SEE("profile commit ")},
    {{"profile", "rule", "show", "x"},
     "profile rule show: PROTOCOL is missing" SEE("profile rule show ")},
    {{"profile", "rule", "add", "x"},
     "profile rule add: PROTOCOL is missing" SEE("profile rule add ")},
    {{"profile", "rule", "add", "x", "y"},
     "profile rule add: \"discard\", \"peer\" or \"tunnel\" is missing" SEE("profile rule add ")},
    {{"profile", "rule", "set", "x", "y", "drop"},
     "profile rule set: \"drop\" stands where \"discard\", \"peer\" or \"tunnel\" should" SEE(
         "profile rule set ")},
    {{"profile", "rule", "clear", "x", "y"},
     "profile rule clear: \"y\" is one word too many" SEE("profile rule clear ")},
};
INSTANTIATE_TEST_SUITE_P(Profiles, WrongCommandLine, testing::ValuesIn(wrongProfiles));

const Wrong wrongPlaces[] = {
    {{"attach", "x"}, "attach: \"port\" is missing" SEE("attach ")},
    {{"attach", "x", "vlan", "3"}, "attach: \"vlan\" stands where \"port\" should" SEE("attach ")},
    {{"attach", "x", "port", "3", "4"},
     "attach: \"4\" stands where \"vlan\" should" SEE("attach ")},
    {{"attach", "x", "port", "3", "vlan", "4096"},
     "attach: vlan: \"4096\" is no number from 0 to 4095, nor \"all\"" SEE("attach ")},
    {{"detach", "x", "port", "4294967296"},
     "detach: port: \"4294967296\" is no number from 0 to 4294967295" SEE("detach ")},
    {{"detach", "x", "port", ""}, "detach: the port is empty" SEE("detach ")},
    {{"port", "show"}, "port show: PORT is missing" SEE("port show ")},
    {{"vlan", "statistics", "any"},
     "vlan statistics: vlan: \"any\" is no number from 0 to 4095, nor \"all\"" SEE(
         "vlan statistics ")},
    {{"detach", "x", "port", "3", "vlan", "65536"},
     "detach: vlan: \"65536\" is no number from 0 to 65535, nor \"all\"" SEE("detach ")},
    {{"feed", "3"}, "feed: FILE is missing" SEE("feed ")},
    {{"explain"}, "explain: PORT is missing" SEE("explain ")},
    {{"explain", "3"}, "explain: FILE is missing" SEE("explain ")},
    {{"explain", "3", "a.pcap", "b.pcap"},
     "explain: \"b.pcap\" is one word too many" SEE("explain ")},
    {{"explain", "3", "hex", "0180", "c20\x1b"},
     "explain: \"0\\x1b\" stands where byte 4 of the frame should, two hexadecimal digits" SEE(
         "explain ")},
    {{"watch", "x"},
     "watch: \"x\" stands where \"port\", \"vlan\", \"interval\" or \"count\" should" SEE(
         "watch ")},
    {{"watch", "interval", "0"},
     "watch: interval: \"0\" is no number from 1 to 3600" SEE("watch ")},
    {{"watch", "interval", "1", "interval", "2"},
     "watch: \"interval\" stands there twice" SEE("watch ")},
    {{"watch", "count", "0"},
     "watch: count: \"0\" is no number from 1 to 4294967295" SEE("watch ")},
    {{"watch", "port", "1", "vlan", "2"},
     "watch: either a port or a VLAN can be watched, or all of them" SEE("watch ")},
    {{"metrics", "x"}, "metrics: \"x\" is one word too many" SEE("metrics ")},
    {{"check", "x"}, "check: \"x\" is one word too many" SEE("check ")},
};
INSTANTIATE_TEST_SUITE_P(Places, WrongCommandLine, testing::ValuesIn(wrongPlaces));

const Wrong wrongDaemonCommands[] = {
    {{"daemon", "message", ""}, "daemon message: the command is empty" SEE("daemon message ")},
    {{"running-config", "show", "most"},
     "running-config show: \"most\" stands where \"all\" or \"dynamic\" should" SEE(
         "running-config show ")},
    {{"running-config", "defaults", "now"},
     "running-config defaults: \"now\" is one word too many" SEE("running-config defaults ")},
    {{"running-config", "save", "now"},
     "running-config save: \"now\" is one word too many" SEE("running-config save ")},
};
INSTANTIATE_TEST_SUITE_P(Daemon, WrongCommandLine, testing::ValuesIn(wrongDaemonCommands));

const Wrong wrongServices[] = {
    {{"service-profile", "add", std::string(66, 'x')},
     "service-profile add: the name "
     "\"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\" is 66 bytes long; 65 "
     "is "
     "the most there can be" SEE("service-profile add ")},
    {{"service-profile", "set", "x", "name", "y"},
     "service-profile set: \"name\" stands where \"vlan-profile\" or \"l2cp-profile\" should" SEE(
         "service-profile set ")},
    {{"service-profile", "set", "x", "vlan-profile"},
     "service-profile set: PROFILE is missing" SEE("service-profile set ")},
    {{"service-profile", "unset", "x", "vlan-profile", "y"},
     "service-profile unset: \"y\" is one word too many" SEE("service-profile unset ")},
    {{"service-profile", "attach", "x", "interface", "2147483648"},
     "service-profile attach: interface: \"2147483648\" is no number from 0 to 2147483647" SEE(
         "service-profile attach ")},
    {{"service-profile", "detach", "x", "interface", ""},
     "service-profile detach: the interface is empty" SEE("service-profile detach ")},
    {{"vlan-profile", "set", "x", "interface", "3", "svid", "4095"},
     "vlan-profile set: svid: \"4095\" is no number from 1 to 4094" SEE("vlan-profile set ")},
    {{"vlan-profile", "unset", "x", "3"},
     "vlan-profile unset: \"3\" stands where \"interface\" should" SEE("vlan-profile unset ")},
};
INSTANTIATE_TEST_SUITE_P(Services, WrongCommandLine, testing::ValuesIn(wrongServices));

TEST(Program, RefusesMessagesLongerThanARequestCarries) {
  const auto [status, out, err] = outcome({"daemon", "message", "x", std::string(32001, 'y')});
  EXPECT_EQ(status, 1);
  EXPECT_EQ(err,
            "l2cpctl: error: daemon message: the argument is 32001 bytes long; 32000 is the most; "
            "see \"l2cpctl daemon message --help\"\n");
}

TEST(Program, TakesWordsThatLookLikeOptionsBehindTwoDashes) {
  EXPECT_EQ(outcome({"protocol", "show", "-x"}).err,
            "l2cpctl: error: \"-x\" is no option; see \"l2cpctl --help\"\n");
  EXPECT_EQ(outcome({"protocol", "show", "--", "-x", "-h"}).err,
            "l2cpctl: error: protocol show: \"-h\" is one word too many; see \"l2cpctl protocol "
            "show --help\"\n");
}

TEST(Program, TakesNegativeNumbersForWords) {
  EXPECT_EQ(outcome({"vlan", "statistics", "-1"}).err,
            "l2cpctl: error: vlan statistics: vlan: \"-1\" is no number from 0 to 4095, nor "
            "\"all\"; see \"l2cpctl vlan statistics --help\"\n");
}

TEST(Program, GivesItsExamplesAsCommandsThatItTakes) {
  for (const Command* command : commandsWith("")) {
    std::istringstream example{std::string(command->example)};
    CommandLine line;
    for (std::string word; example >> word;) line.push_back(word);
    ASSERT_EQ(line.front(), "l2cpctl");
    line.erase(line.begin());
    // To be understood is all that can be expected without a daemon.
    line.insert(line.begin(), {"-s", "::1"});
    // What completes words is silent about a daemon that is not there.
    if (command->name == "complete") {
      EXPECT_EQ(outcome(line).out, "WORD  MEANING\nshow  Shows a profile and its rules.\n");
      continue;
    }
    EXPECT_THAT(outcome(line).err,
                testing::AnyOf(HasSubstr("l2cpd not reached at ::1"), HasSubstr(": No such file")))
        << command->example;
  }
}

TEST(Program, TakesAbbreviatedCommands) {
  EXPECT_EQ(outcome({"prof", "li", "x"}).err,
            "l2cpctl: error: profile list: \"x\" is one word too many; see \"l2cpctl profile list "
            "--help\"\n");
  EXPECT_EQ(outcome({"vlan", "s"}).err,
            "l2cpctl: error: vlan statistics: VID is missing; see \"l2cpctl vlan statistics "
            "--help\"\n");
}

TEST(Program, ShowsItsVersion) {
  for (const char* option : {"-V", "--version"}) {
    const auto [status, out, err] = outcome({option});
    EXPECT_EQ(status, 0);
    EXPECT_THAT(out, testing::MatchesRegex("l2cpctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(err, "");
  }
}

TEST(Help, OfTheProgramNamesCommandsAndOptions) {
  const auto [status, out, err] = outcome({"--help"});
  EXPECT_EQ(status, 0);
  EXPECT_EQ(err, "");
  EXPECT_THAT(out, StartsWith("Usage: l2cpctl [OPTIONS] COMMAND\n"));
  for (const Noun* noun : allNouns()) {
    EXPECT_THAT(out, HasSubstr("\n  " + std::string(noun->name) + " "));
  }
  for (const char* part :
       {"\n  -s,--server ADDRESS ", "\n  -t,--timeout SECONDS ", "\n  --wait SECONDS ",
        "\n  -o,--oneline ", "\n  -j,--json ", "\n  -p,--pretty ", "\n  --color WHEN ",
        "\n  -q,--quiet ", "\n  -V,--version ", "\n  -h,--help ", "\nExample:\n  l2cpctl "}) {
    EXPECT_THAT(out, HasSubstr(part));
  }
}

TEST(Help, IsShownWithoutAnyWords) { EXPECT_EQ(outcome({}).out, outcome({"--help"}).out); }

TEST(Help, OfANounNamesItsCommands) {
  const auto [status, out, err] = outcome({"profile", "rule", "-h"});
  EXPECT_EQ(status, 0);
  EXPECT_EQ(out,
            "Usage: l2cpctl [OPTIONS] profile rule COMMAND\n"
            "\n"
            "Commands:\n"
            "  profile rule add PROFILE PROTOCOL discard|peer|tunnel\n"
            "      Adds a rule to a profile: what happens to a protocol's frames.\n"
            "  profile rule set PROFILE PROTOCOL discard|peer|tunnel\n"
            "      Changes a rule of a profile.\n"
            "  profile rule delete PROFILE PROTOCOL\n"
            "      Deletes a rule of a profile.\n"
            "  profile rule clear PROFILE\n"
            "      Deletes all rules of a profile.\n"
            "  profile rule list PROFILE\n"
            "      Lists the rules of a profile, in the protocols' name order.\n"
            "  profile rule show PROFILE {PROTOCOL | position N}\n"
            "      Shows one rule of a profile.\n"
            "\n"
            "Example:\n"
            "  l2cpctl profile rule add customer LLDP tunnel\n"
            "\n"
            "\"l2cpctl profile rule ... --help\" says more about each.\n");
}

TEST(Help, OfACommandSaysWhatAUserHasToKnow) {
  EXPECT_THAT(outcome({"protocol", "add", "--help"}).out,
              testing::AllOf(HasSubstr("always gets the all-zero mask for its MAC address"),
                             HasSubstr("a subtype has no effect")));
  for (const char* noun : {"protocol", "profile"}) {
    EXPECT_THAT(outcome({noun, "statistics", "-h"}).out,
                HasSubstr("The module always answers that there are none. Read those of ports and "
                          "VLANs instead"));
  }
}

TEST(Help, OfEveryCommandHasASynopsisAndAnExample) {
  for (const Command* command : commandsWith("")) {
    const std::string name(command->name);
    CommandLine line;
    std::istringstream words(name);
    for (std::string word; words >> word;) line.push_back(word);
    line.emplace_back("--help");
    const auto [status, out, err] = outcome(line);
    EXPECT_EQ(status, 0) << name;
    EXPECT_THAT(out, StartsWith("Usage: l2cpctl [OPTIONS] " + name));
    EXPECT_THAT(out, HasSubstr("\nExample:\n  l2cpctl " + name));
    EXPECT_THAT(out, EndsWith("\n"));
  }
}

TEST(Help, IsAlsoAskedForByAWordInPlaceOfACommand) {
  EXPECT_EQ(outcome({"help"}).out, outcome({"--help"}).out);
  EXPECT_EQ(outcome({"port", "help"}).out, outcome({"port", "--help"}).out);
  EXPECT_EQ(outcome({"help", "profile"}).out, outcome({"profile", "--help"}).out);
  EXPECT_EQ(outcome({"help", "prof", "ru", "del"}).out,
            outcome({"profile", "rule", "delete", "--help"}).out);
  EXPECT_EQ(outcome({"-h", "port", "show", "whatever"}).out, outcome({"port", "show", "-h"}).out);
}

}  // namespace
}  // namespace cli
