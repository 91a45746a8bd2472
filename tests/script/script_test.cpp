#include "script/script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using script::Command;
using script::Mode;
using script::Reader;
using script::Rule;
using testing::ElementsAre;

constexpr script::Mac lldpMac{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};

/// A reader in the mode of the object "P".
Reader readerIn(Mode mode) {
  Reader reader;
  if (mode == Mode::l2cpProfile) reader.read("l2cp-profile P");
  if (mode == Mode::vlanProfile) reader.read("vlan-profile P");
  if (mode == Mode::serviceProfile) reader.read("service-profile P");
  return reader;
}

struct Line {
  Mode mode;
  const char* text;
  Command command;
};

void PrintTo(const Line& line, std::ostream* out) { *out << line.text; }

class Canonical : public testing::TestWithParam<Line> {};

INSTANTIATE_TEST_SUITE_P(
    Lines, Canonical,
    testing::Values(
        Line{Mode::configuration, "", script::Nothing{}},
        Line{Mode::configuration, "l2protocol \"LLDP\" mac 01:80:c2:00:00:0e",
             script::Protocol{"LLDP", lldpMac}},
        Line{Mode::configuration, "l2protocol \"a b\" mac any", script::Protocol{"a b"}},
        Line{Mode::configuration, "l2protocol \"x\" mac any ethertype 0x88cc",
             script::Protocol{"x", {}, 0x88cc}},
        Line{Mode::configuration, "l2protocol \"x\" mac any ethertype 0x8809 subtype 0x01",
             script::Protocol{"x", {}, 0x8809, 0x01}},
        Line{Mode::configuration, "no l2protocol \"x\"", script::NoProtocol{"x"}},
        Line{Mode::configuration, "l2cp-profile gold", script::L2cpProfile{"gold"}},
        Line{Mode::configuration, "l2cp-profile \"two words\"", script::L2cpProfile{"two words"}},
        Line{Mode::configuration, "no l2cp-profile gold", script::NoL2cpProfile{"gold"}},
        Line{Mode::configuration, "vlan-profile v", script::VlanProfile{"v"}},
        Line{Mode::configuration, "no vlan-profile v", script::NoVlanProfile{"v"}},
        Line{Mode::configuration, "service-profile s", script::ServiceProfile{"s"}},
        Line{Mode::configuration, "no service-profile s", script::NoServiceProfile{"s"}},
        Line{Mode::configuration, "attach gold port 3", script::Attach{"gold", 3, 4095}},
        Line{Mode::configuration, "attach gold port 4294967295 vlan 65535",
             script::Attach{"gold", 4294967295, 65535}},
        Line{Mode::configuration, "no attach gold port 3 vlan 0", script::NoAttach{"gold", 3, 0}},
        Line{Mode::configuration, "apply s interface 0", script::Apply{"s", 0}},
        Line{Mode::configuration, "no apply s interface 2147483647",
             script::NoApply{"s", 2147483647}},
        Line{Mode::l2cpProfile, " protocol \"LLDP\" rule discard",
             script::Entry{"P", "LLDP", Rule::discard}},
        Line{Mode::l2cpProfile, " protocol \"LLDP\" rule peer",
             script::Entry{"P", "LLDP", Rule::peer}},
        Line{Mode::l2cpProfile, " protocol \"LLDP\" rule tunnel",
             script::Entry{"P", "LLDP", Rule::tunnel}},
        Line{Mode::l2cpProfile, " no protocol \"LLDP\"", script::NoEntry{"P", "LLDP"}},
        Line{Mode::l2cpProfile, "exit", script::Exit{}},
        Line{Mode::vlanProfile, " interface 7 svid 4094", script::Svid{"P", 7, 4094}},
        Line{Mode::vlanProfile, " no interface 7", script::NoSvid{"P", 7}},
        Line{Mode::vlanProfile, "exit", script::Exit{}},
        Line{Mode::serviceProfile, " vlan-profile v", script::ServiceVlanProfile{"P", "v"}},
        Line{Mode::serviceProfile, " no vlan-profile", script::ServiceVlanProfile{"P", ""}},
        Line{Mode::serviceProfile, " l2cp-profile gold", script::ServiceL2cpProfile{"P", "gold"}},
        Line{Mode::serviceProfile, " no l2cp-profile", script::ServiceL2cpProfile{"P", ""}},
        Line{Mode::serviceProfile, "exit", script::Exit{}}));

TEST_P(Canonical, LineIsReadAsItsCommandAndWrittenAsItStands) {
  const auto& [mode, text, command] = GetParam();
  EXPECT_EQ(readerIn(mode).read(text), command);
  EXPECT_EQ(script::text(command), text);
}

struct Loose {
  const char* what;
  const char* text;
  Command command;
};

TEST(Reading, TakesWhatPeopleWriteToo) {
  const Loose loose[] = {
      {"a bare name", "l2protocol LLDP mac 01:80:C2:00:00:0E", script::Protocol{"LLDP", lldpMac}},
      {"decimal numbers", "l2protocol x mac any ethertype 2048 subtype 3",
       script::Protocol{"x", {}, 2048, 3}},
      {"a hexadecimal port", "attach x port 0X1f vlan 0x10", script::Attach{"x", 31, 16}},
      {"blanks and tabs", " \tattach \t x   port 3\t", script::Attach{"x", 3}},
      {"a quoted bare name", "attach \"x\" port 3", script::Attach{"x", 3}},
      {"the whole port by its number", "attach x port 3 vlan 4095", script::Attach{"x", 3}},
      {"a comment", "! attach x port 3", script::Nothing{}},
      {"an indented comment with a control character", "  !\x01", script::Nothing{}},
      {"blanks alone", " \t ", script::Nothing{}},
  };
  for (const auto& [what, text, command] : loose) {
    EXPECT_EQ(Reader().read(text), command) << what;
  }
}

TEST(Reading, ModeLastsFromItsCommandToExit) {
  Reader reader;
  EXPECT_EQ(reader.mode(), Mode::configuration);
  reader.read("l2cp-profile gold");
  EXPECT_EQ(reader.mode(), Mode::l2cpProfile);
  EXPECT_EQ(reader.name(), "gold");
  reader.read("");
  reader.read("! comment");
  EXPECT_EQ(reader.mode(), Mode::l2cpProfile);
  reader.read("exit");
  EXPECT_EQ(reader.mode(), Mode::configuration);
  EXPECT_EQ(reader.name(), "");
}

TEST(Reading, LineThatIsNotUnderstoodLeavesTheModeAsItIs) {
  Reader reader;
  EXPECT_THROW(reader.read("l2cp-profile gold surplus"), script::Problem);
  EXPECT_EQ(reader.mode(), Mode::configuration);
  reader.read("vlan-profile v");
  EXPECT_THROW(reader.read("exit now"), script::Problem);
  EXPECT_EQ(reader.mode(), Mode::vlanProfile);
}

struct Refusal {
  Mode mode;
  const char* text;
  const char* problem;
};

TEST(Reading, RefusesWhatItDoesNotUnderstandAndSaysWhy) {
  constexpr const char* commands =
      "expected one of l2protocol, l2cp-profile, vlan-profile, service-profile, attach, apply";
  constexpr const char* mac = "the MAC is not \"any\" or six bytes like 01:80:c2:00:00:0e";
  const Refusal refusals[] = {
      {Mode::configuration, "bogus", commands},
      {Mode::configuration, "exit", commands},
      {Mode::configuration, "protocol \"LLDP\" rule peer", commands},
      {Mode::configuration, "no",
       "behind \"no\": expected one of l2protocol, l2cp-profile, vlan-profile, service-profile, "
       "attach, apply"},
      {Mode::configuration, "no no attach x port 3",
       "behind \"no\": expected one of l2protocol, l2cp-profile, vlan-profile, service-profile, "
       "attach, apply"},
      {Mode::configuration, "l2protocol", "the protocol's name is missing"},
      {Mode::configuration, "l2protocol x", "\"mac\" is missing"},
      {Mode::configuration, "l2protocol x mac", "the MAC is missing"},
      {Mode::configuration, "l2protocol x mac 01:80:c2:00:00", mac},
      {Mode::configuration, "l2protocol x mac 01:80:c2:00:00:0g", mac},
      {Mode::configuration, "l2protocol x mac 01-80-c2-00-00-0e", mac},
      {Mode::configuration, "l2protocol x mac 01:80:c2:00:00:0e:", mac},
      {Mode::configuration, "l2protocol x mac any ethertype", "the EtherType is missing"},
      {Mode::configuration, "l2protocol x mac any ethertype 0x10000",
       "the EtherType is not a number from 0 to 65535"},
      {Mode::configuration, "l2protocol x mac any ethertype -1",
       "the EtherType is not a number from 0 to 65535"},
      {Mode::configuration, "l2protocol x mac any ethertype 0x",
       "the EtherType is not a number from 0 to 65535"},
      {Mode::configuration, "l2protocol x mac any ethertype 1 subtype 256",
       "the subtype is not a number from 0 to 255"},
      {Mode::configuration, "l2protocol x mac any subtype 1", "there are words too many"},
      {Mode::configuration, "l2cp-profile", "the profile's name is missing"},
      {Mode::configuration, "l2cp-profile \"gold", "a quotation does not end"},
      {Mode::configuration, "l2cp-profile \"gold\"x", "a quotation does not end"},
      {Mode::configuration, "l2cp-profile gold\x01", "there is a control character in the line"},
      {Mode::configuration, "l2cp-profile gold\r", "there is a control character in the line"},
      {Mode::configuration, "l2cp-profile gold\x7f", "there is a control character in the line"},
      {Mode::configuration, "attach x", "\"port\" is missing"},
      {Mode::configuration, "attach x port", "the port is missing"},
      {Mode::configuration, "attach x port 4294967296",
       "the port is not a number from 0 to 4294967295"},
      {Mode::configuration, "attach x port 3 vlan", "the VLAN id is missing"},
      {Mode::configuration, "attach x port 3 vlan 65536",
       "the VLAN id is not a number from 0 to 65535"},
      {Mode::configuration, "attach x port 3 vlan 1 1", "there are words too many"},
      {Mode::configuration, "apply s interface 2147483648",
       "the interface is not a number from 0 to 2147483647"},
      {Mode::l2cpProfile, "l2protocol x mac any", "expected one of protocol, exit"},
      {Mode::l2cpProfile, "no exit", "behind \"no\": expected one of protocol, exit"},
      {Mode::l2cpProfile, "protocol x", "\"rule\" is missing"},
      {Mode::l2cpProfile, "protocol x rule drop",
       "the rule is not \"discard\", \"peer\" or \"tunnel\""},
      {Mode::vlanProfile, "interface 3 svid 0", "the VLAN id is not a number from 1 to 4094"},
      {Mode::vlanProfile, "interface 3 svid 4095", "the VLAN id is not a number from 1 to 4094"},
      {Mode::vlanProfile, "svid 3", "expected one of interface, exit"},
      {Mode::serviceProfile, "vlan-profile", "the profile's name is missing"},
      {Mode::serviceProfile, "no vlan-profile v", "there are words too many"},
      {Mode::serviceProfile, "name x", "expected one of vlan-profile, l2cp-profile, exit"},
  };
  for (const auto& [mode, text, problem] : refusals) {
    try {
      readerIn(mode).read(text);
      ADD_FAILURE() << text << " was read";
    } catch (const script::Problem& thrown) {
      EXPECT_STREQ(thrown.what(), problem) << text;
    }
  }
}

TEST(Words, AreSeparatedByBlanksAndHeldTogetherByQuotations) {
  EXPECT_THAT(script::split("a  \"b c\"\td \"\""), ElementsAre("a", "b c", "d", ""));
}

TEST(Words, QuotationEndsWhereABlankOrTheEndFollows) {
  EXPECT_THAT(script::split("\"a\"b\" c"), ElementsAre("a\"b", "c"));
  EXPECT_THAT(script::split("\"a b\"\""), ElementsAre("a b\""));
}

TEST(Names, ReadBackUnlessTheyHoldAQuotationMarkBeforeABlank) {
  for (const char* name : {"x", "", "two words", "a\"b", "a b\"", "\"x", "\xc3\xa4", "no", "!"}) {
    const std::string line = script::text(script::Attach{name, 3});
    EXPECT_EQ(Reader().read(line), Command(script::Attach{name, 3})) << line;
  }
  EXPECT_THROW(Reader().read(script::text(script::Attach{"a\" b", 3})), script::Problem);
}

TEST(Names, AreWritableIfTheyReadBack) {
  for (const char* name : {"x", "", "two words", "a\"b", "\"x", "\"", "\"\"", "tab\there", "! x"}) {
    EXPECT_TRUE(script::isWritable(name)) << name;
  }
  for (const char* name : {"a\" b", "\" ", "a\nb", "\x7f", "\x1b[31m"}) {
    EXPECT_FALSE(script::isWritable(name)) << name;
  }
}

TEST(LineWriter, WritesALineOnlyIfItReadsBackAsItsCommand) {
  script::LineWriter writer;
  EXPECT_EQ(writer.line(script::L2cpProfile{"two words"}), "l2cp-profile \"two words\"");
  EXPECT_EQ(
      writer.line(script::Entry{"two words", "a\x1b", Rule::peer}),
      " ! left out (there is a control character in the line): protocol \"a\\x1b\" rule peer");
  EXPECT_EQ(writer.line(script::NoEntry{"two words", "LLDP"}), " no protocol \"LLDP\"");
  EXPECT_EQ(writer.line(script::NoEntry{"another", "LLDP"}),
            " ! left out (it would say something else): no protocol \"LLDP\"");
  EXPECT_EQ(writer.line(script::Exit{}), "exit");
  EXPECT_EQ(writer.line(script::NoL2cpProfile{"x\nattach P port 1"}),
            "! left out (there is a control character in the line): no l2cp-profile "
            "\"x\\x0aattach P port 1\"");
  EXPECT_EQ(writer.line(script::Protocol{"x", {}, script::noEtherType, 3}),
            "l2protocol \"x\" mac any");
}

TEST(LineWriter, LeavesOutWhatStandsInAModeThatCannotBeEntered) {
  script::LineWriter writer;
  EXPECT_EQ(writer.line(script::VlanProfile{"\"a\" b"}),
            "! left out (there are words too many): vlan-profile \"\"a\" b\"");
  EXPECT_EQ(writer.line(script::NoSvid{"\"a\" b", 7}),
            " ! left out (its mode cannot be entered): no interface 7");
  EXPECT_EQ(writer.line(script::Exit{}), "! left out (its mode cannot be entered): exit");
  EXPECT_EQ(writer.line(script::NoVlanProfile{"b"}), "no vlan-profile b");
}

TEST(Parsing, CountsCommandsInAModeThatCouldNotBeEntered) {
  std::istringstream text(
      "l2cp-profile\n protocol LLDP rule peer\n! nothing\n\n protocol LLDP rule pear\nexit\n"
      "nonsense\nattach P port 1\n");
  const script::Script script = script::parse(text);
  EXPECT_EQ(script.leftOut, 1u);
  EXPECT_EQ(script.mistakes.size(), 3u);
  EXPECT_EQ(script.statements.size(), 1u);
}

}  // namespace
