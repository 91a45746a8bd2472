#include "cli/value.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "cli/failure.h"

namespace cli {
namespace {

using namespace std::string_literals;

// What a refused value is answered with.
std::string refusal(const std::function<void()>& parse) {
  try {
    parse();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "taken";
}

// ---- Numbers ----

TEST(Number, IsDecimalOrHexadecimal) {
  EXPECT_EQ(parseNumber("0", "n", 0, 10), 0U);
  EXPECT_EQ(parseNumber("10", "n", 0, 10), 10U);
  EXPECT_EQ(parseNumber("0010", "n", 0, 10), 10U);
  EXPECT_EQ(parseNumber("0xA", "n", 0, 10), 10U);
  EXPECT_EQ(parseNumber("0X0a", "n", 0, 10), 10U);
  EXPECT_EQ(parseNumber("4294967295", "n", 0, 0xffffffff), 0xffffffffU);
  EXPECT_EQ(parseNumber("0xffffffff", "n", 0, 0xffffffff), 0xffffffffU);
}

TEST(Number, OutsideItsRangeIsRefused) {
  EXPECT_EQ(refusal([] { parseNumber("4096", "vlan", 0, 4095); }),
            "vlan: \"4096\" is no number from 0 to 4095");
  EXPECT_EQ(refusal([] { parseNumber("1", "n", 2, 3); }), "n: \"1\" is no number from 2 to 3");
  // These would be small numbers if 32 or 64 bits were all that is looked at.
  EXPECT_EQ(refusal([] { parseNumber("4294967297", "n", 0, 9); }),
            "n: \"4294967297\" is no number from 0 to 9");
  EXPECT_EQ(refusal([] { parseNumber("18446744073709551617", "n", 0, 9); }),
            "n: \"18446744073709551617\" is no number from 0 to 9");
}

TEST(Number, OfAnotherFormIsRefused) {
  for (const char* text : {"", " ", "1 ", " 1", "+1", "-1", "1a", "a", "0x", "0x ", "0xg", "1.0",
                           "x1", "0x-1", "\xd9\xa1"}) {
    EXPECT_FALSE(isNumber(text)) << text;
    EXPECT_THAT(refusal([&] { parseNumber(text, "n", 0, 9); }),
                testing::EndsWith("is no number from 0 to 9"))
        << text;
  }
}

TEST(EtherType, OfTheMarkerForNoneHasToBeWrittenAsNone) {
  EXPECT_EQ(parseEtherType("0"), 0);
  EXPECT_EQ(parseEtherType("0xfffe"), 0xfffe);
  EXPECT_EQ(parseEtherType("none"), noEtherType);
  EXPECT_EQ(refusal([] { parseEtherType("0xffff"); }),
            "ethertype: \"0xffff\" is no number from 0 to 65534, nor \"none\"");
}

TEST(SubType, OfTheMarkerForNoneHasToBeWrittenAsNone) {
  EXPECT_EQ(parseSubType("0"), 0);
  EXPECT_EQ(parseSubType("254"), 254);
  EXPECT_EQ(parseSubType("none"), noSubType);
  EXPECT_EQ(refusal([] { parseSubType("255"); }),
            "subtype: \"255\" is no number from 0 to 254, nor \"none\"");
  EXPECT_EQ(refusal([] { parseSubType("NONE"); }),
            "subtype: \"NONE\" is no number from 0 to 254, nor \"none\"");
}

// ---- MAC addresses ----

TEST(MacAddress, IsReadInAllThreeForms) {
  const Mac mac{0x01, 0x80, 0xc2, 0x00, 0xAB, 0x0e};
  EXPECT_EQ(parseMac("01:80:c2:00:ab:0e"), mac);
  EXPECT_EQ(parseMac("01-80-C2-00-AB-0E"), mac);
  EXPECT_EQ(parseMac("0180.c200.aB0e"), mac);
}

TEST(MacAddress, AnyIsTheAddressOfZeros) {
  EXPECT_EQ(parseMac("any"), Mac{});
  EXPECT_EQ(parseMac("00:00:00:00:00:00"), Mac{});
}

TEST(MacAddress, OfAnotherFormIsRefused) {
  EXPECT_EQ(refusal([] { parseMac("1:2:3:4:5:6"); }),
            "mac: \"1:2:3:4:5:6\" is no address; write aa:bb:cc:dd:ee:ff, aa-bb-cc-dd-ee-ff, "
            "aabb.ccdd.eeff or \"any\"");
  for (const char* text :
       {"", ":", "any ", "01:80:c2:00:00", "01:80:c2:00:00:0",
        "01:80:c2:00:00:0e:", "01:80:c2:00:00:0e:01", "01:80:c2:00:00:0g", "01:80-c2:00:00:0e",
        "0180c200000e", "0180.c200.000", "0180.c200.000e.", "0180.c200.000e.0001", "0180:c200:000e",
        "0:180c2:0000e", ".180c.2000.00e", " 01:80:c2:00:00:0e", "01:80:c2:00:00:0e\n"}) {
    EXPECT_THAT(refusal([&] { parseMac(text); }), testing::HasSubstr("is no address")) << text;
  }
}

TEST(Rule, UnknownToThisProgramIsShownByItsNumber) {
  EXPECT_EQ(ruleText(static_cast<rpc_l2cp_rule>(3)), "rule 3");
  EXPECT_EQ(ruleText(RPC_L2CP_RULE_LOWEST), "rule -2147483648");
}

// ---- Names ----

TEST(Name, MayBeAsLongAsRequestsCarry) {
  EXPECT_EQ(parseName(std::string(33, 'x'), "the name"), std::string(33, 'x'));
  EXPECT_EQ(
      refusal([] { parseName(std::string(34, 'x'), "the name"); }),
      "the name \"" + std::string(34, 'x') + "\" is 34 bytes long; 33 is the most there can be");
  EXPECT_EQ(parseName(std::string(65, 'x'), "the name", 65), std::string(65, 'x'));
  EXPECT_NE(refusal([] { parseName(std::string(66, 'x'), "the name", 65); }), "taken");
}

TEST(Name, IsCountedInBytesNotCharacters) {
  std::string letters;
  for (int i = 0; i < 17; ++i) letters += "\xc3\xbc";
  EXPECT_THAT(refusal([&] { parseName(letters, "the name"); }),
              testing::HasSubstr("34 bytes long"));
}

TEST(Name, OfWhatIsThereMayHoldAnyBytes) {
  for (const std::string& text : {""s, "\x1b[31m"s, "a\" b"s, "\xc2\x85"s}) {
    EXPECT_EQ(parseName(text, "the name"), text);
  }
}

TEST(NewName, IsNotEmpty) {
  EXPECT_EQ(refusal([] { parseNewName("", "the profile"); }), "the profile is empty");
}

TEST(NewName, WithControlCharactersThatNoScriptCanHoldIsRefused) {
  EXPECT_EQ(refusal([] { parseNewName("a\nb", "the name"); }),
            "the name \"a\\x0ab\" has a control character, and could not be saved");
  for (const std::string& text : {"\x1b[31m"s, "a\0b"s, "\x7f"s, "a\" b\x1f"s}) {
    EXPECT_THAT(refusal([&] { parseNewName(text, "the name"); }),
                testing::HasSubstr("has a control character"))
        << text;
  }
}

TEST(NewName, WithAQuotationMarkInFrontOfABlankIsRefused) {
  EXPECT_EQ(
      refusal([] { parseNewName("a\" b", "the name"); }),
      "the name \"a\\\" b\" has a quotation mark in front of a blank, and could not be saved");
}

TEST(NewName, MayHoldAnyOtherBytes) {
  for (const std::string& text :
       {"my net"s, "\""s, "caf\xc3\xa9"s, "\xff\xfe"s, "-"s, "tab\t"s, "\xc2\x85"s}) {
    EXPECT_EQ(parseNewName(text, "the name"), text);
  }
}

// ---- Safe text ----

TEST(SafeText, LeavesPrintableTextAlone) {
  EXPECT_EQ(safeText(""), "");
  EXPECT_EQ(safeText("plain ~ \"text\" \\ and more"), "plain ~ \"text\" \\ and more");
  EXPECT_EQ(safeText("gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x90\x84"),
            "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x90\x84");
}

TEST(SafeText, EscapesControlCharacters) {
  EXPECT_EQ(safeText("a\0b"s), "a\\x00b");
  EXPECT_EQ(safeText("\x1b[2J\r\n\t\x7f"), "\\x1b[2J\\x0d\\x0a\\x09\\x7f");
  // U+0080 to U+009F, among them the one-character form of "escape [".
  EXPECT_EQ(safeText("\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0"), "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f\xc2\xa0");
}

TEST(SafeText, EscapesMarksThatChangeTheDirectionOfWriting) {
  // NOLINTNEXTLINE(misc-misleading-bidirectional): what is tested
  EXPECT_EQ(safeText("\xe2\x80\xae"), "\\xe2\\x80\\xae");
  // NOLINTNEXTLINE(misc-misleading-bidirectional): what is tested
  EXPECT_EQ(safeText("\xe2\x81\xa6"), "\\xe2\\x81\\xa6");
  EXPECT_EQ(safeText("\xe2\x80\x8f\xd8\x9c"), "\\xe2\\x80\\x8f\\xd8\\x9c");
  EXPECT_EQ(safeText("\xe2\x80\xa8\xef\xbb\xbf"), "\\xe2\\x80\\xa8\\xef\\xbb\\xbf");
}

TEST(SafeText, EscapesEveryByteThatIsNotUtf8) {
  EXPECT_EQ(safeText("\xff\xfe"), "\\xff\\xfe");
  EXPECT_EQ(safeText("\x80 \xbf"), "\\x80 \\xbf");                  // continuation alone
  EXPECT_EQ(safeText("\xc3"), "\\xc3");                             // cut short at the end
  EXPECT_EQ(safeText("\xe2\x82"), "\\xe2\\x82");                    // cut short at the end
  EXPECT_EQ(safeText("\xc3 x"), "\\xc3 x");                         // cut short by a blank
  EXPECT_EQ(safeText("\xc0\xaf"), "\\xc0\\xaf");                    // longer than need be
  EXPECT_EQ(safeText("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");           // longer than need be
  EXPECT_EQ(safeText("\xed\xa0\x80"), "\\xed\\xa0\\x80");           // half of a UTF-16 pair
  EXPECT_EQ(safeText("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");  // past U+10FFFF
  EXPECT_EQ(safeText("\xf8\x88\x80\x80\x80"), "\\xf8\\x88\\x80\\x80\\x80");
}

TEST(NameText, QuotesWhatCouldBeMisread) {
  EXPECT_EQ(nameText("LLDP"), "LLDP");
  EXPECT_EQ(nameText("my net"), "\"my net\"");
  EXPECT_EQ(nameText(""), "\"\"");
  EXPECT_EQ(nameText("-"), "\"-\"");
  EXPECT_EQ(nameText("say \"x\""), "\"say \\\"x\\\"\"");
  EXPECT_EQ(nameText("a\\x41"), "\"a\\\\x41\"");
  EXPECT_EQ(nameText("a\x1b"), "a\\x1b");
}

TEST(UnicodeText, ReplacesOnlyBytesThatAreNotUtf8) {
  EXPECT_EQ(unicodeText("gr\xc3\xbc\xc3\x9f \x1b\n\xe2\x80\xae"),
            "gr\xc3\xbc\xc3\x9f \x1b\n\xe2\x80\xae");
  EXPECT_EQ(unicodeText("a\xff\xc3"), "a\\xff\\xc3");
  EXPECT_EQ(unicodeText("a\\xff"), "a\\x5cxff");
  EXPECT_EQ(unicodeText("a\\xf \\\\y\\"), "a\\xf \\\\y\\");
  EXPECT_EQ(unicodeText(""), "");
}

TEST(ShellText, LeavesAloneWhatNoShellTakesForMore) {
  for (const char* plain : {"LLDP", "01:80:c2:00:00:0e", "a_b-c.d/e,f+g@h%i=j", "0"}) {
    EXPECT_EQ(shellText(plain), plain);
  }
}

TEST(ShellText, QuotesWhatAShellWouldTakeForMore) {
  EXPECT_EQ(shellText(""), "''");
  EXPECT_EQ(shellText("my net"), "'my net'");
  EXPECT_EQ(shellText("it's $HOME `x` \\ \"y\" ~ * ! #"), "'it'\\''s $HOME `x` \\ \"y\" ~ * ! #'");
  EXPECT_EQ(shellText("caf\xc3\xa9"), "'caf\xc3\xa9'");
}

TEST(ShellText, WritesWhatCouldHarmATerminalInOctalDigits) {
  EXPECT_EQ(shellText("\x1b[2J9"), "$'\\033[2J9'");
  EXPECT_EQ(shellText("line\nline"), "$'line\\012line'");
  EXPECT_EQ(shellText("\xff\x80"), "$'\\377\\200'");
  // NOLINTNEXTLINE(misc-misleading-bidirectional): what is tested
  EXPECT_EQ(shellText("\xe2\x80\xae"), "$'\\342\\200\\256'");
  EXPECT_EQ(shellText("it's \\ \x07 caf\xc3\xa9"), "$'it\\'s \\\\ \\007 caf\xc3\xa9'");
}

TEST(ShellText, IsReadBackByAShell) {
  const std::string texts[] = {"",
                               "my net",
                               "it's",
                               "$HOME `ls` $(ls)",
                               "a\\b \"c\"",
                               "a\nb'",
                               "\x1b[2J\\9'",
                               "\xff"
                               "1",
                               "caf\xc3\xa9 \xe2\x80\xae!",
                               "~ #*"};
  std::string script = "printf '%s|'";
  std::string expected;
  for (const std::string& text : texts) {
    script += ' ' + shellText(text);
    expected += text + '|';
  }
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::tmpfile(), std::fclose);
  const int output = fileno(file.get());
  const pid_t shell = fork();
  if (shell == 0) {
    dup2(output, STDOUT_FILENO);
    execlp("bash", "bash", "-c", script.c_str(), nullptr);
    _exit(127);
  }
  int status = 0;
  ASSERT_EQ(waitpid(shell, &status, 0), shell);
  std::string read(expected.size() + 1, '\0');
  read.resize(static_cast<std::size_t>(pread(output, read.data(), read.size(), 0)));
  EXPECT_EQ(read, expected);
}

// ---- Other values as text ----

TEST(Text, OfMacAddresses) {
  EXPECT_EQ(macText({0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e}), "01:80:c2:00:00:0e");
  EXPECT_EQ(macText({}), "any");
}

TEST(Text, OfTypesNamesTheMarkerNone) {
  EXPECT_EQ(etherTypeText(0x88cc), "0x88cc");
  EXPECT_EQ(etherTypeText(1), "0x0001");
  EXPECT_EQ(etherTypeText(noEtherType), "none");
  EXPECT_EQ(subTypeText(1), "0x01");
  EXPECT_EQ(subTypeText(noSubType), "none");
}

TEST(Text, OfVlansNamesTheWholePortAll) {
  EXPECT_EQ(vlanText(0), "0");
  EXPECT_EQ(vlanText(4094), "4094");
  EXPECT_EQ(vlanText(4095), "all");
}

TEST(Text, OfDurationsHasDaysOnlyFromOneOn) {
  EXPECT_EQ(durationText(0), "00:00:00");
  EXPECT_EQ(durationText(86399), "23:59:59");
  EXPECT_EQ(durationText(86400), "1 d 00:00:00");
  EXPECT_EQ(durationText(0xffffffff), "49710 d 06:28:15");
}

}  // namespace
}  // namespace cli
