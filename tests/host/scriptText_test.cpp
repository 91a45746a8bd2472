#include "host/scriptText.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <utility>
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
  EXPECT_EQ(
      scriptText({line(outer(), "attach P port 1"), line(outer(), ""), line(outer(), "! comment")}),
      (Lines{"attach P port 1", "", "! comment"}));
}

TEST(ScriptText, LinesWithoutModeStandAsTheyAre) {
  EXPECT_EQ(scriptText({line(nullptr, "attach P port 1")}), Lines{"attach P port 1"});
}

TEST(ScriptText, ModeIsEnteredAndLeftAtTheEnd) {
  EXPECT_EQ(
      scriptText({line(inner("P"), "protocol \"a\" rule peer"),
                  line(inner("P"), "protocol \"b\" rule peer")}),
      (Lines{"l2cp-profile P", " protocol \"a\" rule peer", " protocol \"b\" rule peer", "exit"}));
}

TEST(ScriptText, ModeIsLeftBeforeTheNextIsEntered) {
  EXPECT_EQ(scriptText({line(inner("P"), "protocol \"a\" rule peer"),
                        line(inner("\"two words\""), "protocol \"a\" rule peer")}),
            (Lines{"l2cp-profile P", " protocol \"a\" rule peer", "exit",
                   "l2cp-profile \"two words\"", " protocol \"a\" rule peer", "exit"}));
}

TEST(ScriptText, ModeIsLeftBeforeConfigurationLevelGoesOn) {
  EXPECT_EQ(scriptText({line(outer(), "! before"), line(inner("P"), "no protocol \"a\""),
                        line(outer(), "! behind")}),
            (Lines{"! before", "l2cp-profile P", " no protocol \"a\"", "exit", "! behind"}));
}

TEST(ScriptText, ModeIsEnteredAgainWhenItComesAgain) {
  EXPECT_EQ(scriptText({line(inner("P"), "no protocol \"a\""), line(outer(), ""),
                        line(inner("P"), "no protocol \"b\"")}),
            (Lines{"l2cp-profile P", " no protocol \"a\"", "exit", "", "l2cp-profile P",
                   " no protocol \"b\"", "exit"}));
}

TEST(ScriptText, ModeWithoutLinesIsEnteredAndLeft) {
  const auto mode = [](scriptingProductDefs::CliModeId id) {
    return line(CliMode::cliMode(id, "X", outer()), "");
  };
  EXPECT_EQ(scriptText({mode(scriptingProductDefs::CLI_MODE_VLAN_PROFILE),
                        mode(scriptingProductDefs::CLI_MODE_SERVICE_PROFILE)}),
            (Lines{"vlan-profile X", "exit", "service-profile X", "exit"}));
}

TEST(ScriptText, LineThatDoesNotReadBackIsAComment) {
  EXPECT_EQ(scriptText({line(outer(), "l2protocol \"a\" b\" mac any"),
                        line(outer(), "l2protocol \"a\nattach P port 1\" mac any")}),
            (Lines{"! left out (\"mac\" is missing): l2protocol \"a\" b\" mac any",
                   "! left out (there is a control character in the line): l2protocol "
                   "\"a\\x0aattach P port 1\" mac any"}));
}

TEST(ScriptText, ModeThatCannotBeEnteredIsACommentAndItsLinesAreGone) {
  EXPECT_EQ(scriptText({line(inner("\"P\" Q\""), "no protocol \"a\""), line(outer(), "! behind")}),
            (Lines{"! left out (there are words too many): l2cp-profile \"P\" Q\"", "! behind"}));
}

TEST(ScriptText, NameOfAnL2cpProfileIsWrittenSoThatItReadsBack) {
  // What the module writes, and what has to be written. It quotes names with blanks alone.
  const std::pair<const char*, const char*> names[] = {
      {"gold", "gold"}, {"\"two words\"", "\"two words\""}, {"\"quoted\"", "\"\"quoted\"\""},
      {"\"", "\"\"\""}, {"tab\there", "\"tab\there\""},     {"", "\"\""},
  };
  for (const auto& [written, expected] : names) {
    EXPECT_EQ(scriptText({line(inner(written), "")}),
              (Lines{std::string("l2cp-profile ") + expected, "exit"}));
  }
}

TEST(ScriptText, CommentsCannotHoldALine) {
  EXPECT_EQ(scriptText({line(outer(), "! a\nattach P port 1"), line(inner("P"), "! b\rattach")}),
            (Lines{"! a\\x0aattach P port 1", "l2cp-profile P", " ! b\\x0dattach", "exit"}));
}

}  // namespace
