#include "host/scriptText.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

CliMode* outer() { return CliMode::cliMode(scriptingProductDefs::CLI_MODE_CONF, nullptr); }
CliMode* inner(const char* name) {
  return CliMode::cliMode(scriptingProductDefs::CLI_MODE_L2CP_PROFILE, name, outer());
}
CliCommand line(CliMode* mode, const char* text) { return {mode, text, false, false}; }

TEST(ScriptText, OfNothingIsNothing) { EXPECT_EQ(scriptText({}), Lines{}); }

TEST(ScriptText, LinesAtConfigurationLevelStandAsTheyAre) {
  EXPECT_EQ(scriptText({line(outer(), "one"), line(outer(), ""), line(outer(), " two")}),
            (Lines{"one", "", " two"}));
}

TEST(ScriptText, LinesWithoutModeStandAsTheyAre) {
  EXPECT_EQ(scriptText({line(nullptr, "one")}), Lines{"one"});
}

TEST(ScriptText, ModeIsEnteredAndLeftAtTheEnd) {
  EXPECT_EQ(scriptText({line(inner("P"), "one"), line(inner("P"), "two")}),
            (Lines{"l2cp-profile P", " one", " two", "exit"}));
}

TEST(ScriptText, ModeIsLeftBeforeTheNextIsEntered) {
  EXPECT_EQ(
      scriptText({line(inner("P"), "one"), line(inner("\"two words\""), "two")}),
      (Lines{"l2cp-profile P", " one", "exit", "l2cp-profile \"two words\"", " two", "exit"}));
}

TEST(ScriptText, ModeIsLeftBeforeConfigurationLevelGoesOn) {
  EXPECT_EQ(scriptText({line(outer(), "before"), line(inner("P"), "one"), line(outer(), "behind")}),
            (Lines{"before", "l2cp-profile P", " one", "exit", "behind"}));
}

TEST(ScriptText, ModeIsEnteredAgainWhenItComesAgain) {
  EXPECT_EQ(scriptText({line(inner("P"), "one"), line(outer(), ""), line(inner("P"), "two")}),
            (Lines{"l2cp-profile P", " one", "exit", "", "l2cp-profile P", " two", "exit"}));
}

}  // namespace
