// What can stand in lines that are being written, with names that are not a daemon's.

#include "cli/completion/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "cli/failure.h"
#include "cli/shell/lineStart.h"
#include "cli/shell/shellForms.h"
#include "cli/shell/shown.h"

namespace cli {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using Words = std::vector<std::string>;

class KnownNames : public Names {
 public:
  std::vector<std::string> of(NameKind kind) override { return names[kind]; }
  std::map<NameKind, std::vector<std::string>> names{
      {NameKind::protocol, {"CDP", "LLDP"}},
      {NameKind::profile, {"gold", "my net", "\x1b[2J", "\xff"}},
      {NameKind::serviceProfile, {"business"}},
      {NameKind::vlanProfile, {"metro"}},
      {NameKind::port, {"uplink"}}};
};

// The words that are suggested; arguments without a list in angle brackets.
Words wordsOf(const Suggestions& suggestions) {
  Words words;
  for (const Suggestion& each : suggestions) {
    words.push_back(each.word.empty() ? "<" + each.meaning + ">" : each.word);
  }
  return words;
}

Words commands(const Words& words, const char* beginning = "") {
  KnownNames names;
  return wordsOf(suggestCommands(words, beginning, names));
}

Words lines(script::Mode mode, const Words& words, const char* beginning = "") {
  KnownNames names;
  return wordsOf(suggestLines(modeForms(mode), words, beginning, names));
}

TEST(CommandCompletion, LeadsToCommandsWordByWord) {
  EXPECT_THAT(commands({}, "pro"), ElementsAre("protocol", "profile"));
  EXPECT_THAT(commands({"prof"}, "s"), ElementsAre("show", "set", "statistics", "status"));
  EXPECT_THAT(commands({"prof", "rule"}),
              ElementsAre("add", "set", "delete", "clear", "list", "show"));
  EXPECT_THAT(commands({"pro"}), IsEmpty());
  EXPECT_THAT(commands({"frob"}), IsEmpty());
  EXPECT_THAT(commands({"help", "vlan"}), ElementsAre("statistics"));
  EXPECT_THAT(commands({"profile", "list"}), IsEmpty());
}

TEST(CommandCompletion, KnowsTheNamesThatAnArgumentCanBe) {
  EXPECT_THAT(commands({"profile", "show"}), ElementsAre("gold", "my net", "<NAME>", "position"));
  EXPECT_THAT(commands({"protocol", "delete"}, "L"), ElementsAre("LLDP"));
  EXPECT_THAT(commands({"protocol", "rename", "CDP"}, "L"), ElementsAre("LLDP"));
  EXPECT_THAT(commands({"profile", "rename", "gold"}), ElementsAre("<NEW>"));
  EXPECT_THAT(commands({"profile", "add"}), ElementsAre("<NAME>"));
  EXPECT_THAT(commands({"profile", "rule", "add", "gold"}, "C"), ElementsAre("CDP"));
  EXPECT_THAT(commands({"attach", "gold", "port"}), ElementsAre("uplink", "<PORT>"));
  EXPECT_THAT(commands({"service-profile", "set", "business", "vlan-profile"}, "m"),
              ElementsAre("metro"));
  EXPECT_THAT(commands({"service-profile", "set", "business", "l2cp-profile"}, "m"),
              ElementsAre("my net"));
  EXPECT_THAT(commands({"vlan-profile", "show"}, "me"), ElementsAre("metro"));
  EXPECT_THAT(commands({"feed", "3"}), ElementsAre("<FILE>"));
}

TEST(CommandCompletion, SuggestsNoNameThatCannotBeTyped) {
  EXPECT_THAT(commands({"profile", "show"}), Not(Contains("\x1b[2J")));
  EXPECT_THAT(commands({"profile", "show"}), Not(Contains("\xff")));
}

TEST(CommandCompletion, SuggestsKeywordsThatCanStandThere) {
  EXPECT_THAT(commands({"protocol", "add", "x", "mac", "any"}),
              ElementsAre("ethertype", "subtype", "protect"));
  EXPECT_THAT(commands({"protocol", "add", "x", "mac", "any", "protect"}),
              ElementsAre("ethertype", "subtype"));
  EXPECT_THAT(commands({"profile", "set", "gold", "protect"}), ElementsAre("on", "off"));
}

TEST(CommandCompletion, SuggestsOptionsAndWhatTheyTake) {
  EXPECT_THAT(commands({}, "--col"), ElementsAre("--color"));
  EXPECT_THAT(commands({}, "-j"), ElementsAre("-j"));
  EXPECT_THAT(commands({"profile"}, "-"), Contains("--json"));
  EXPECT_THAT(commands({"--color"}), ElementsAre("auto", "always", "never"));
  EXPECT_THAT(commands({}, "--color=a"), ElementsAre("--color=auto", "--color=always"));
  EXPECT_THAT(commands({"-s"}), ElementsAre("<ADDRESS>"));
  EXPECT_THAT(commands({"-js"}), ElementsAre("<ADDRESS>"));
  EXPECT_THAT(commands({}, "--json=x"), IsEmpty());
}

TEST(CommandCompletion, LooksPastOptions) {
  EXPECT_THAT(commands({"-j", "-s", "host", "vlan", "-t", "5"}), ElementsAre("statistics"));
  EXPECT_THAT(commands({"-t5", "vlan"}), ElementsAre("statistics"));
  EXPECT_THAT(commands({"--timeout=5", "vlan"}), ElementsAre("statistics"));
  EXPECT_THAT(commands({"profile", "show", "--"}, "-"), IsEmpty());
  EXPECT_THAT(partsOf(Words{"-j", "a", "-s", "b", "--", "-c"}).words, ElementsAre("a", "-c"));
  EXPECT_THAT(partsOf(Words{"-j", "a", "-s", "b", "--", "-c"}).options,
              ElementsAre("-j", "-s", "b"));
}

TEST(CommandCompletion, KnowsWhenACommandIsWhole) {
  EXPECT_TRUE(isWholeCommand(Words{"prof", "li", "-j"}));
  EXPECT_FALSE(isWholeCommand(Words{"profile"}));
  EXPECT_FALSE(isWholeCommand(Words{"profile", "show"}));
  EXPECT_FALSE(isWholeCommand(Words{"profile", "list", "-s"}));
}

TEST(LineCompletion, KnowsKeywordsAndNamesOfEachMode) {
  EXPECT_THAT(lines(script::Mode::configuration, {}, "l2"),
              ElementsAre("l2protocol", "l2cp-profile"));
  EXPECT_THAT(lines(script::Mode::configuration, {"l2cp-profile"}, "g"), ElementsAre("gold"));
  EXPECT_THAT(lines(script::Mode::configuration, {"no"}),
              ElementsAre("l2protocol", "l2cp-profile", "vlan-profile", "service-profile", "attach",
                          "apply"));
  EXPECT_THAT(lines(script::Mode::configuration, {"no", "apply"}, "b"), ElementsAre("business"));
  EXPECT_THAT(lines(script::Mode::l2cpProfile, {"protocol", "LLDP", "rule"}),
              ElementsAre("discard", "peer", "tunnel"));
  EXPECT_THAT(lines(script::Mode::serviceProfile, {"vlan-profile"}, "m"), ElementsAre("metro"));
}

TEST(LineCompletion, WritesAbbreviatedKeywordsInFull) {
  const auto full = [](script::Mode mode, const Words& words) {
    return inFull(modeForms(mode), words);
  };
  EXPECT_THAT(full(script::Mode::configuration, {"att", "att", "po", "3", "v", "7"}),
              ElementsAre("attach", "att", "port", "3", "vlan", "7"));
  EXPECT_THAT(full(script::Mode::configuration, {"n", "l2c", "gold"}),
              ElementsAre("no", "l2cp-profile", "gold"));
  EXPECT_THAT(full(script::Mode::l2cpProfile, {"pr", "pr", "r", "t"}),
              ElementsAre("protocol", "pr", "rule", "tunnel"));
  EXPECT_THAT(full(script::Mode::configuration, {"frob", "x"}), ElementsAre("frob", "x"));
  EXPECT_THROW(full(script::Mode::configuration, {"l2", "x"}), UsageError);
}

// ---- Lines that are being written ----

void expectStart(const char* line, const Words& words, const char* beginning, std::size_t from,
                 bool quoted = false) {
  const LineStart start = startOf(line);
  EXPECT_EQ(start.words, words) << line;
  EXPECT_EQ(start.beginning, beginning) << line;
  EXPECT_EQ(start.from, from) << line;
  EXPECT_EQ(start.quoted, quoted) << line;
}

TEST(LineStart, IsTheWordsBeforeTheCursorAndTheOneAtIt) {
  expectStart("", {}, "", 0);
  expectStart("  ", {}, "", 2);
  expectStart("prof", {}, "prof", 0);
  expectStart("profile ", {"profile"}, "", 8);
  expectStart(" profile\tshow  go", {"profile", "show"}, "go", 15);
}

TEST(LineStart, KnowsQuotations) {
  expectStart("show \"", {"show"}, "", 5, true);
  expectStart("show \"my n", {"show"}, "my n", 5, true);
  expectStart("show \"my net\"", {"show"}, "my net", 5);
  expectStart("show \"my net\" x", {"show", "my net"}, "x", 14);
  expectStart("show \"a\"b", {"show"}, "a\"b", 5, true);
  expectStart("show a\"b", {"show"}, "a\"b", 5);
}

// ---- What "show" means ----

TEST(Shown, IsACommandThatOnlyLooks) {
  EXPECT_THAT(shownBy({"profile", "gold"}), ElementsAre("profile", "show", "gold"));
  EXPECT_THAT(shownBy({"prof"}), ElementsAre("profile", "list"));
  EXPECT_THAT(shownBy({"port", "statistics", "3"}), ElementsAre("port", "statistics", "3"));
  EXPECT_THAT(shownBy({"running-config"}), ElementsAre("running-config", "show"));
  EXPECT_THAT(shownBy({"run", "all"}), ElementsAre("running-config", "show", "all"));
  EXPECT_THAT(shownBy({"daemon"}), ElementsAre("daemon", "status"));
  EXPECT_THAT(shownBy({"vlan", "7"}), ElementsAre("vlan", "statistics", "7"));
  EXPECT_THAT(shownBy({"port", "stat", "3"}), ElementsAre("port", "statistics", "3"));
  EXPECT_THAT(shownBy({"profile", "stati", "cc"}), ElementsAre("profile", "statistics", "cc"));
  EXPECT_THAT(shownBy({"vlan", "st", "7"}), ElementsAre("vlan", "statistics", "7"));
  EXPECT_THAT(shownBy({"dae", "st"}), ElementsAre("daemon", "status"));
  EXPECT_THAT(shownBy({"run", "sh", "all"}), ElementsAre("running-config", "show", "all"));
  EXPECT_THAT(shownBy({"profile", "delete"}), ElementsAre("profile", "show", "delete"));
  EXPECT_THROW(shownBy({}), UsageError);
  // Names come first.
  EXPECT_THAT(shownBy({"profile", "li"}), ElementsAre("profile", "show", "li"));
  EXPECT_THAT(shownBy({"profile", "pos", "3"}), ElementsAre("profile", "show", "pos", "3"));
  EXPECT_THAT(shownBy({"profile", "stat"}), ElementsAre("profile", "show", "stat"));
  EXPECT_THROW(shownBy({"profile", "stat", "cc"}), UsageError);
  EXPECT_THROW(shownBy({"attach"}), UsageError);
  EXPECT_THROW(shownBy({"pro"}), UsageError);
}

}  // namespace
}  // namespace cli
