// Synopses as grammars.

#include "cli/completion/synopsis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/shell/shellForms.h"

namespace cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Words = std::vector<std::string>;

// What can follow, arguments in capitals as they are.
std::vector<std::string> after(const char* synopsis, const Words& words) {
  std::vector<std::string> expected;
  for (const Expected& each : Synopsis(synopsis).after(words)) expected.push_back(each.word);
  return expected;
}

TEST(Synopsis, IsFollowedWordByWord) {
  constexpr const char* synopsis = "NAME interface INTERFACE svid VID";
  EXPECT_THAT(after(synopsis, {}), ElementsAre("NAME"));
  EXPECT_THAT(after(synopsis, {"x"}), ElementsAre("interface"));
  EXPECT_THAT(after(synopsis, {"x", "int"}), ElementsAre("INTERFACE"));
  EXPECT_THAT(after(synopsis, {"x", "int", "3", "svid", "7"}), IsEmpty());
  EXPECT_THAT(after(synopsis, {"x", "port"}), IsEmpty());
  EXPECT_THAT(after(synopsis, {"x", ""}), IsEmpty());
}

TEST(Synopsis, TellsKeywordsFromArguments) {
  EXPECT_THAT(Synopsis("MAC|any").after(Words{}),
              ElementsAre(Expected{"MAC", true}, Expected{"any", false}));
}

TEST(Synopsis, HasChoicesOfWordsAndOfAllBetweenBrackets) {
  EXPECT_THAT(after("discard|peer|tunnel", {}), ElementsAre("discard", "peer", "tunnel"));
  EXPECT_THAT(after("NAME | position N", {}), ElementsAre("NAME", "position"));
  EXPECT_THAT(after("NAME | position N", {"position"}), ElementsAre("N"));
  EXPECT_THAT(after("NAME {protect on|off | mac MAC|any}", {"x"}), ElementsAre("protect", "mac"));
  EXPECT_THAT(after("NAME {protect on|off | mac MAC|any}", {"x", "m"}), ElementsAre("MAC", "any"));
  EXPECT_THAT(after("NAME {a | b} c", {"x", "b"}), ElementsAre("c"));
}

TEST(Synopsis, HasOptionsThatStandInAnyOrderOnceEach) {
  constexpr const char* synopsis = "NAME [ethertype N] [protect] end";
  EXPECT_THAT(after(synopsis, {"x"}), ElementsAre("ethertype", "protect", "end"));
  EXPECT_THAT(after(synopsis, {"x", "protect"}), ElementsAre("ethertype", "end"));
  EXPECT_THAT(after(synopsis, {"x", "protect", "eth", "1"}), ElementsAre("end"));
  EXPECT_THAT(after(synopsis, {"x", "protect", "protect"}), IsEmpty());
}

TEST(Synopsis, HasOptionsWithinOptions) {
  constexpr const char* synopsis = "[ethertype N [subtype N]]";
  EXPECT_THAT(after(synopsis, {}), ElementsAre("ethertype"));
  EXPECT_THAT(after(synopsis, {"ethertype", "1"}), ElementsAre("subtype"));
}

TEST(Synopsis, RepeatsWhatStandsBeforeThreeDots) {
  EXPECT_THAT(after("WORD ...", {"a", "b", "c"}), ElementsAre("WORD"));
  EXPECT_FALSE(Synopsis("WORD ...").isWhole(Words{}));
  EXPECT_TRUE(Synopsis("[WORD ...]").isWhole(Words{}));
  EXPECT_TRUE(Synopsis("[WORD ...]").isWhole(Words{"a", "b"}));
}

TEST(Synopsis, IsWholeWhenNothingHasToFollow) {
  const Synopsis synopsis("PROFILE port PORT [vlan VID]");
  EXPECT_FALSE(synopsis.isWhole(Words{"x", "port"}));
  EXPECT_TRUE(synopsis.isWhole(Words{"x", "port", "3"}));
  EXPECT_FALSE(synopsis.isWhole(Words{"x", "port", "3", "vlan"}));
  EXPECT_FALSE(synopsis.isWhole(Words{"x", "port", "3", "vlan", "7", "8"}));
  EXPECT_TRUE(Synopsis("").isWhole(Words{}));
}

TEST(Synopsis, IsRefusedWithoutItsBracketsAndWords) {
  for (const char* wrong : {"[a", "a]", "{a", "...", "a||b", "|a"}) {
    EXPECT_THROW(Synopsis{wrong}, std::invalid_argument) << wrong;
  }
}

TEST(Synopsis, OfEveryCommandAndLineCanBeRead) {
  for (const Command* command : commandsWith("")) {
    EXPECT_NO_THROW(Synopsis(command->arguments)) << command->name;
  }
  for (const script::Mode mode : {script::Mode::configuration, script::Mode::l2cpProfile,
                                  script::Mode::vlanProfile, script::Mode::serviceProfile}) {
    for (const LineForm& form : modeForms(mode)) EXPECT_NO_THROW(Synopsis{form.synopsis});
  }
  for (const LineForm& form : topForms()) EXPECT_NO_THROW(Synopsis{form.synopsis});
}

// What the synopses of the shell's lines say is what the language takes.
TEST(Synopsis, OfLinesIsThatOfTheLanguage) {
  const std::vector<std::pair<script::Mode, std::vector<const char*>>> lines{
      {script::Mode::configuration,
       {"l2protocol a mac any ethertype 1 subtype 2", "attach a port 1 vlan 2",
        "apply a interface 1", "no l2protocol a", "no l2cp-profile a", "no vlan-profile a",
        "no service-profile a", "no attach a port 1 vlan 2", "no apply a interface 1",
        "l2cp-profile a"}},
      {script::Mode::l2cpProfile, {"protocol a rule peer", "no protocol a"}},
      {script::Mode::vlanProfile, {"interface 1 svid 2", "no interface 1"}},
      {script::Mode::serviceProfile,
       {"vlan-profile a", "l2cp-profile a", "no vlan-profile", "no l2cp-profile"}}};
  const std::vector<std::pair<script::Mode, const char*>> entries{
      {script::Mode::l2cpProfile, "l2cp-profile x"},
      {script::Mode::vlanProfile, "vlan-profile x"},
      {script::Mode::serviceProfile, "service-profile x"}};
  for (const auto& [mode, all] : lines) {
    for (const char* line : all) {
      script::Reader reader;
      for (const auto& [entered, entry] : entries) {
        if (entered == mode) reader.read(entry);
      }
      EXPECT_NO_THROW(reader.read(line)) << line;
      const Words words = script::split(line);
      const auto forms = modeForms(mode);
      EXPECT_TRUE(std::any_of(forms.begin(), forms.end(), [&](const LineForm& form) {
        return Synopsis(form.synopsis).isWhole(words);
      })) << line;
    }
  }
}

}  // namespace
}  // namespace cli
