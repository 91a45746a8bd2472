#include "platform/CliConfig.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

constexpr auto configuration = scriptingProductDefs::CLI_MODE_CONF;
constexpr auto profile = scriptingProductDefs::CLI_MODE_L2CP_PROFILE;

TEST(CliModes, AreTheSameForTheSameArguments) {
  CliMode* outer = CliMode::cliMode(configuration, nullptr);
  EXPECT_EQ(CliMode::cliMode(configuration, nullptr), outer);
  EXPECT_EQ(CliMode::cliMode(profile, "P", outer), CliMode::cliMode(profile, "P", outer));
  const std::string sameText = "P";
  EXPECT_EQ(CliMode::cliMode(profile, sameText.c_str(), outer),
            CliMode::cliMode(profile, "P", outer));
}

TEST(CliModes, DifferByKindNameAndParent) {
  CliMode* outer = CliMode::cliMode(configuration, nullptr);
  CliMode* inner = CliMode::cliMode(profile, "P", outer);
  EXPECT_NE(inner, outer);
  EXPECT_NE(CliMode::cliMode(profile, "Q", outer), inner);
  EXPECT_NE(CliMode::cliMode(profile, "P"), inner);
  EXPECT_NE(CliMode::cliMode(configuration, "P", outer), inner);
}

TEST(CliModes, KnowWhatTheyWereAskedForWith) {
  CliMode* outer = CliMode::cliMode(configuration, nullptr);
  EXPECT_EQ(outer->id(), configuration);
  EXPECT_EQ(outer->name(), "");
  EXPECT_EQ(outer->parent(), nullptr);
  CliMode* inner = CliMode::cliMode(profile, "P", outer);
  EXPECT_EQ(inner->id(), profile);
  EXPECT_EQ(inner->name(), "P");
  EXPECT_EQ(inner->parent(), outer);
}

TEST(CliModes, NullNameIsTheEmptyOne) {
  EXPECT_EQ(CliMode::cliMode(configuration, nullptr), CliMode::cliMode(configuration, ""));
}

TEST(CliCommands, KeepModeTextAndFlags) {
  CliMode* mode = CliMode::cliMode(configuration, nullptr);
  const CliCommand command(mode, "text", true, false);
  EXPECT_EQ(command.mode(), mode);
  EXPECT_EQ(command.text(), "text");
  EXPECT_TRUE(command.isDefault());
  EXPECT_FALSE(command.isHidden());
  EXPECT_TRUE(CliCommand(mode, "", false, true).isHidden());
}

/// Writes its name and the mode that it was asked with.
class NamedScripter : public Scripter {
 public:
  NamedScripter(const std::string& name, int order) : Scripter(name) { order_ = order; }
  explicit NamedScripter(const std::string& name) : Scripter(name) {}

  bool buildCliCommands(std::list<CliCommand>& out, ConfigMode mode, bool verbose) override {
    out.emplace_back(nullptr, name() + " " + std::to_string(mode) + (verbose ? " verbose" : ""),
                     false, false);
    return true;
  }
};

std::vector<std::string> texts(const CliConfig& config, Scripter::ConfigMode mode) {
  std::vector<std::string> result;
  for (const CliCommand& command : config.runningConfig(mode)) result.push_back(command.text());
  return result;
}

TEST(RunningConfiguration, WithoutScriptersIsEmpty) {
  EXPECT_EQ(texts(CliConfig(), Scripter::configAll), std::vector<std::string>{});
}

TEST(RunningConfiguration, IsWrittenInTheOrderOfTheScriptersThenOfTheirAddition) {
  CliConfig config;
  config.addScripter(new NamedScripter("late", 200));     // NOLINT: taken over
  config.addScripter(new NamedScripter("first", 50));     // NOLINT
  config.addScripter(new NamedScripter("usual"));         // NOLINT
  config.addScripter(new NamedScripter("second", 50));    // NOLINT
  config.addScripter(new NamedScripter("negative", -1));  // NOLINT
  EXPECT_EQ(texts(config, Scripter::configDifferences),
            (std::vector<std::string>{"negative 0", "first 0", "second 0", "usual 0", "late 0"}));
}

TEST(RunningConfiguration, LacksScriptersThatWereRemoved) {
  CliConfig config;
  for (const char* name : {"gone", "stays", "gone"}) {
    config.addScripter(new NamedScripter(name));  // NOLINT: taken over
  }
  config.removeScripter("gone");
  config.removeScripter("was never there");
  EXPECT_EQ(texts(config, Scripter::configAll), std::vector<std::string>{"stays 1"});
}

TEST(RunningConfiguration, PassesTheModeOn) {
  CliConfig config;
  config.addScripter(new NamedScripter("one"));  // NOLINT: taken over
  EXPECT_EQ(texts(config, Scripter::configAll), std::vector<std::string>{"one 1"});
  EXPECT_EQ(texts(config, Scripter::configDynamicProfiles), std::vector<std::string>{"one 2"});
}

TEST(CliConfiguration, ReplaysNoDynamicProfilesAtFirst) {
  CliConfig config;
  EXPECT_EQ(config.isScriptingDynamicProfilesMode(), 0);
  config.setScriptingDynamicProfilesMode(true);
  EXPECT_EQ(config.isScriptingDynamicProfilesMode(), 1);
  config.setScriptingDynamicProfilesMode(false);
  EXPECT_EQ(config.isScriptingDynamicProfilesMode(), 0);
}

TEST(CliConfiguration, HasProfileModesAtFirst) {
  CliConfig config;
  EXPECT_TRUE(config.checkProfileMode());
  config.setProfileMode(false);
  EXPECT_FALSE(config.checkProfileMode());
}

}  // namespace
