#include "l2cp/scripter/l2cpScripter.h"

#include "platform/CliConfig.h"
#include "tests/l2cp/entity_fixture.h"

namespace {

using Rule = L2CP::Rule;

const Lines builtInLines = {
    "conf: l2protocol \"All-Bridges\" mac 01:80:c2:00:00:10",
    "conf: l2protocol \"CDP\" mac 01:00:0c:cc:cc:cc ethertype 0x2000",
    "conf: l2protocol \"E-LMI\" mac 01:80:c2:00:00:07",
    "conf: l2protocol \"GMRP-MMRP\" mac 01:80:c2:00:00:20",
    "conf: l2protocol \"GVRP-MVRP\" mac 01:80:c2:00:00:21",
    "conf: l2protocol \"LACP-LAMP\" mac 01:80:c2:00:00:02 ethertype 0x8809 subtype 0x01",
    "conf: l2protocol \"LLDP\" mac 01:80:c2:00:00:0e",
    "conf: l2protocol \"MSPP\" mac 01:80:c2:00:00:03 ethertype 0x22e2",
    "conf: l2protocol \"OAM-CFM\" mac 01:80:c2:00:00:30 ethertype 0x8902",
    "conf: l2protocol \"OAM-EFM\" mac 01:80:c2:00:00:02 ethertype 0x8809 subtype 0x03",
    "conf: l2protocol \"PNAC\" mac 01:80:c2:00:00:03 ethertype 0x888e",
    "conf: l2protocol \"Pause-Frame\" mac 01:80:c2:00:00:01",
    "conf: l2protocol \"UDLD\" mac 01:00:0c:cc:cc:cc ethertype 0x0111",
    "conf: l2protocol \"xSTP\" mac 01:80:c2:00:00:00",
};

const std::string separator = "conf: ";

constexpr auto someOtherMode = static_cast<Scripter::ConfigMode>(7);

// "conf: text" or "conf/l2cp-profile gold: text".
std::string modeText(const CliMode* mode) {
  if (mode == nullptr) return "nowhere";
  std::string text = mode->parent() == nullptr ? "" : modeText(mode->parent()) + '/';
  switch (mode->id()) {
    case scriptingProductDefs::CLI_MODE_CONF:
      text += "conf";
      break;
    case scriptingProductDefs::CLI_MODE_L2CP_PROFILE:
      text += "l2cp-profile";
      break;
    case scriptingProductDefs::CLI_MODE_VLAN_PROFILE:
    case scriptingProductDefs::CLI_MODE_SERVICE_PROFILE:
      text += "another module's";
      break;
  }
  return mode->name().empty() ? text : text + ' ' + mode->name();
}

Lines commandLines(const std::list<CliCommand>& commands) {
  Lines lines;
  for (const CliCommand& command : commands) {
    EXPECT_FALSE(command.isDefault());
    EXPECT_FALSE(command.isHidden());
    lines.push_back(modeText(command.mode()) + ": " + command.text());
  }
  return lines;
}

/// The scripter reads the process's one entity.
class L2cpScripter : public testing::Test {
 protected:
  L2cpScripter() { reset(); }
  ~L2cpScripter() override { reset(); }

  void reset() {
    entity.settings = L2CP::Settings();
    singleton<CliConfig>::instance().setProfileMode(true);
  }

  static Lines script(Scripter::ConfigMode mode, bool verbose = false) {
    std::list<CliCommand> commands;
    EXPECT_TRUE(L2CPScripter().buildCliCommands(commands, mode, verbose));
    return commandLines(commands);
  }

  void addProtocol(const char* name, const unsigned char* mac, unsigned short etherType,
                   unsigned char subType) {
    ASSERT_EQ(entity.protoAdd(name, true, mac, someMask, etherType, subType), 0);
  }

  /// A profile that has one entry, for CDP.
  void addProfile(const char* name, bool protect, bool dynamic) {
    ASSERT_EQ(entity.profileAdd(name, false, false), 0);
    ASSERT_EQ(entity.profileProtoAdd(name, "CDP", Rule::tunnel), 0);
    entity.settings.profiles.at(name)->protect = protect;
    entity.settings.profiles.at(name)->dynamic = dynamic;
  }

  L2CP& entity = singleton<L2CP>::instance();
};

TEST_F(L2cpScripter, HasItsNameAndItsPlaceInTheOrder) {
  const L2CPScripter scripter;
  EXPECT_EQ(scripter.name(), "L2CPScripter");
  EXPECT_EQ(scripter.order(), 50);
}

TEST_F(L2cpScripter, IsAddedOnceWhenTheLibraryIsLoaded) {
  EXPECT_EQ(commandLines(singleton<CliConfig>::instance().runningConfig(Scripter::configAll)),
            builtInLines + Lines{separator});
}

TEST_F(L2cpScripter, OfTheDefaultCatalogueWritesTheSeparatorAloneInTheOrdinaryMode) {
  EXPECT_THAT(script(Scripter::configDifferences), testing::ElementsAre(separator));
}

TEST_F(L2cpScripter, OfTheDefaultCatalogueWritesFourteenLinesAndTheSeparatorWithDefaults) {
  ASSERT_EQ(builtInLines.size(), 14U);
  EXPECT_EQ(script(Scripter::configAll), builtInLines + Lines{separator});
}

TEST_F(L2cpScripter, WritesRulesOfDynamicProfilesAloneInTheirMode) {
  addProtocol("own", someMac, 1, 2);
  addProfile("dynamic", true, true);
  addProfile("plain", false, false);
  EXPECT_THAT(script(Scripter::configDynamicProfiles),
              testing::ElementsAre("conf/l2cp-profile dynamic: protocol \"CDP\" rule tunnel"));
}

TEST_F(L2cpScripter, WritesNothingInTheModeOfDynamicProfilesIfThereAreNone) {
  EXPECT_THAT(script(Scripter::configDynamicProfiles), testing::IsEmpty());
}

TEST_F(L2cpScripter, SkipsDynamicProfilesInTheOtherModes) {
  addProfile("dynamic", true, true);
  addProfile("plain", false, false);
  const std::string rule = "conf/l2cp-profile plain: protocol \"CDP\" rule tunnel";
  EXPECT_EQ(script(Scripter::configDifferences), (Lines{separator, rule}));
  EXPECT_EQ(script(Scripter::configAll), (builtInLines + Lines{separator, rule}));
}

TEST_F(L2cpScripter, BehavesAsInTheOrdinaryModeInAnyOther) {
  addProtocol("own", someMac, 1, 2);
  addProfile("dynamic", true, true);
  addProfile("plain", true, false);
  const Lines ordinary = script(Scripter::configDifferences);
  EXPECT_EQ(ordinary.size(), 3U);
  EXPECT_EQ(script(someOtherMode), ordinary);
  EXPECT_EQ(script(static_cast<Scripter::ConfigMode>(-1)), ordinary);
}

TEST_F(L2cpScripter, WritesAnAddressOfZerosAsAny) {
  addProtocol("own", L2CP::m_anyMac, 0xffff, 0xff);
  EXPECT_THAT(script(Scripter::configDifferences),
              testing::ElementsAre("conf: l2protocol \"own\" mac any", separator));
}

TEST_F(L2cpScripter, WritesEtherTypeAndSubtypeAsHexadecimalNumbers) {
  addProtocol("a", someMac, 0, 0);
  addProtocol("b", someMac, 0xfffe, 0xfe);
  addProtocol("c", someMac, 0xab, 0xff);
  EXPECT_THAT(script(Scripter::configDifferences),
              testing::ElementsAre(
                  "conf: l2protocol \"a\" mac 01:80:c2:00:ab:cd ethertype 0x0000 subtype 0x00",
                  "conf: l2protocol \"b\" mac 01:80:c2:00:ab:cd ethertype 0xfffe subtype 0xfe",
                  "conf: l2protocol \"c\" mac 01:80:c2:00:ab:cd ethertype 0x00ab", separator));
}

TEST_F(L2cpScripter, WritesNoSubtypeWithoutAnEtherType) {
  addProtocol("own", someMac, 0xffff, 0x01);
  EXPECT_THAT(script(Scripter::configDifferences),
              testing::ElementsAre("conf: l2protocol \"own\" mac 01:80:c2:00:ab:cd", separator));
}

TEST_F(L2cpScripter, WritesProtocolNamesAsTheyAre) {
  addProtocol("a \"b", someMac, 0xffff, 0xff);
  addProtocol("", someMac, 0xffff, 0xff);
  EXPECT_THAT(script(Scripter::configDifferences),
              testing::ElementsAre("conf: l2protocol \"\" mac 01:80:c2:00:ab:cd",
                                   "conf: l2protocol \"a \"b\" mac 01:80:c2:00:ab:cd", separator));
}

TEST_F(L2cpScripter, SkipsAChangedBuiltInProtocolByItsName) {
  ASSERT_EQ(entity.protoSetEtherType("LLDP", 0x88cc), 0);
  EXPECT_THAT(script(Scripter::configDifferences), testing::ElementsAre(separator));
  EXPECT_THAT(
      script(Scripter::configAll),
      testing::Contains("conf: l2protocol \"LLDP\" mac 01:80:c2:00:00:0e ethertype 0x88cc"));
}

TEST_F(L2cpScripter, WritesNoSeparatorWithoutProtocols) {
  entity.settings.protocols.clear();
  EXPECT_THAT(script(Scripter::configDifferences), testing::IsEmpty());
  EXPECT_THAT(script(Scripter::configAll), testing::IsEmpty());
}

TEST_F(L2cpScripter, WritesProfilesInNameOrderWithTheirRulesInMapOrder) {
  const std::vector<std::pair<std::string, Rule>> rules = {{"xSTP", Rule::discard},
                                                           {"CDP", Rule::peer},
                                                           {"LLDP", Rule::tunnel},
                                                           {"UDLD", static_cast<Rule>(7)}};
  Lines expected = {separator};
  for (const char* name : {"a", "b"}) {
    ASSERT_EQ(entity.profileAdd(name, false, false), 0);
    for (const auto& [proto, rule] : rules) {
      ASSERT_EQ(entity.profileProtoAdd(name, proto.c_str(), rule), 0);
    }
    for (const auto& [proto, rule] : entity.settings.profiles.at(name)->protocols) {
      expected.push_back(fmt::format("conf/l2cp-profile {}: protocol \"{}\" rule {}", name,
                                     proto->name, L2CP::rule2str(rule)));
    }
  }
  EXPECT_EQ(script(Scripter::configDifferences), expected);
  EXPECT_THAT(expected,
              testing::IsSupersetOf({"conf/l2cp-profile a: protocol \"xSTP\" rule discard",
                                     "conf/l2cp-profile a: protocol \"CDP\" rule peer",
                                     "conf/l2cp-profile b: protocol \"LLDP\" rule tunnel",
                                     "conf/l2cp-profile b: protocol \"UDLD\" rule unknown"}));
}

TEST_F(L2cpScripter, QuotesAProfileNameThatHoldsABlank) {
  for (const char* name : {"two words", " ", "tab\tname"}) addProfile(name, false, false);
  EXPECT_THAT(
      script(Scripter::configDifferences),
      testing::ElementsAre(separator, "conf/l2cp-profile \" \": protocol \"CDP\" rule tunnel",
                           "conf/l2cp-profile tab\tname: protocol \"CDP\" rule tunnel",
                           "conf/l2cp-profile \"two words\": protocol \"CDP\" rule tunnel"));
}

TEST_F(L2cpScripter, WritesNothingOfAProfileWithoutRules) {
  ASSERT_EQ(entity.profileAdd("empty", false, false), 0);
  EXPECT_THAT(script(Scripter::configDifferences), testing::ElementsAre(separator));
}

TEST_F(L2cpScripter, WritesNoAttachments) {
  addProfile("p", false, false);
  const Lines before = script(Scripter::configAll);
  ASSERT_EQ(entity.portAttach("p", 3, 100), 0);
  EXPECT_EQ(script(Scripter::configAll), before);
}

TEST_F(L2cpScripter, WritesTheRuleOfAProtocolThatHasLeftTheCatalogue) {
  addProfile("p", false, false);
  entity.settings.protocols.erase("CDP");
  EXPECT_THAT(script(Scripter::configDifferences),
              testing::ElementsAre(separator, "conf/l2cp-profile p: protocol \"CDP\" rule tunnel"));
}

TEST_F(L2cpScripter, LeavesTheListAsItWasWithoutProfileModes) {
  addProfile("dynamic", true, true);
  addProfile("plain", false, false);
  singleton<CliConfig>::instance().setProfileMode(false);
  std::list<CliCommand> commands;
  commands.emplace_back(CliMode::cliMode(scriptingProductDefs::CLI_MODE_CONF, nullptr), "first",
                        false, false);
  for (const auto mode : {Scripter::configDifferences, Scripter::configAll,
                          Scripter::configDynamicProfiles, someOtherMode}) {
    EXPECT_TRUE(L2CPScripter().buildCliCommands(commands, mode, false));
  }
  EXPECT_THAT(commandLines(commands), testing::ElementsAre("conf: first"));
}

TEST_F(L2cpScripter, AppendsToWhatTheListHolds) {
  std::list<CliCommand> commands;
  commands.emplace_back(CliMode::cliMode(scriptingProductDefs::CLI_MODE_CONF, nullptr), "first",
                        false, false);
  EXPECT_TRUE(L2CPScripter().buildCliCommands(commands, Scripter::configDifferences, false));
  EXPECT_THAT(commandLines(commands), testing::ElementsAre("conf: first", separator));
}

TEST_F(L2cpScripter, DoesNotLookAtTheVerboseFlag) {
  addProtocol("own", someMac, 1, 2);
  addProfile("dynamic", true, true);
  addProfile("plain", false, false);
  for (const auto mode :
       {Scripter::configDifferences, Scripter::configAll, Scripter::configDynamicProfiles}) {
    EXPECT_EQ(script(mode, true), script(mode, false));
  }
}

TEST_F(L2cpScripter, LeavesTheEntityAsItIs) {
  addProfile("dynamic", true, true);
  const Lines before = text(entity.settings);
  script(Scripter::configAll);
  script(Scripter::configDynamicProfiles);
  EXPECT_EQ(text(entity.settings), before);
}

}  // namespace
