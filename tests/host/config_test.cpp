#include "host/config.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

namespace {

/// A file that is gone with its object.
class File {
 public:
  explicit File(const std::string& contents)
      : path_(testing::TempDir() + "config." + std::to_string(getpid()) + ".toml") {
    std::ofstream(path_, std::ios::binary) << contents;
  }
  ~File() { std::filesystem::remove(path_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Why a configuration is refused; the file's path reads "FILE".
std::string refusal(const std::string& contents) {
  const File file(contents);
  try {
    readConfig(file.path());
  } catch (const ConfigError& problem) {
    std::string text = problem.what();
    const auto begin = text.find(file.path());
    return begin == std::string::npos ? text : text.replace(begin, file.path().size(), "FILE");
  }
  return "accepted";
}

Config accepted(const std::string& contents) {
  const File file(contents);
  return readConfig(file.path());
}

using Ports = std::map<std::uint32_t, std::string>;

/// Names by number.
Ports portNames(const Config& config) {
  Ports names;
  for (const auto& [number, port] : config.ports) names.emplace(number, port.name);
  return names;
}

// ---- Defaults ----

TEST(Config, DefaultsOfRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "not root";
  const Config config;
  EXPECT_EQ(config.bridge, "br0");
  EXPECT_EQ(config.classifier, "software");
  EXPECT_EQ(config.startup, "/var/lib/l2cpd/startup.l2cp");
  EXPECT_EQ(config.lock, "/run/l2cpd/l2cpd.lock");
  EXPECT_FALSE(config.isStartupChosen || config.isLockChosen);
}

/// Takes a user's identity; each test has a process of its own.
class ConfigOfAUser : public testing::Test {
 protected:
  void SetUp() override {
    constexpr uid_t nobody = 65534;
    if (geteuid() == 0 && seteuid(nobody) != 0) GTEST_SKIP() << "no other user";
  }
  void TearDown() override { EXPECT_EQ(seteuid(getuid()), 0); }
};

TEST_F(ConfigOfAUser, HasItsFilesInTheFoldersOfTheUser) {
  setenv("XDG_STATE_HOME", "/state", 1);
  setenv("XDG_RUNTIME_DIR", "/runtime", 1);
  EXPECT_EQ(Config().startup, "/state/l2cpd/startup.l2cp");
  EXPECT_EQ(Config().lock, "/runtime/l2cpd/l2cpd.lock");
}

TEST_F(ConfigOfAUser, HasItsScriptInTheHomeUnlessToldOtherwise) {
  setenv("HOME", "/home/user", 1);
  for (const char* noPath : {"", "relative"}) {
    setenv("XDG_STATE_HOME", noPath, 1);
    EXPECT_EQ(Config().startup, "/home/user/.local/state/l2cpd/startup.l2cp");
  }
  unsetenv("XDG_STATE_HOME");
  EXPECT_EQ(Config().startup, "/home/user/.local/state/l2cpd/startup.l2cp");
}

TEST_F(ConfigOfAUser, HasNoFilesWithoutFoldersForThem) {
  for (const char* variable : {"XDG_STATE_HOME", "XDG_RUNTIME_DIR", "HOME"}) unsetenv(variable);
  EXPECT_EQ(Config().startup, "");
  EXPECT_EQ(Config().lock, "");
}

/// The file that is installed, with what is commented out as it is or put in force.
std::string installed(bool isInForce) {
  std::ifstream file(INSTALLED_CONFIG);
  std::string contents;
  for (std::string line; std::getline(file, line);) {
    // Defaults follow the mark at once; everything else that is commented out follows a blank.
    const bool isDefault = line.size() > 1 && line[0] == '#' && line[1] != ' ';
    contents += (isInForce && isDefault ? line.substr(1) : line) + "\n";
  }
  return contents;
}

TEST(InstalledConfig, IsTheDefault) { EXPECT_EQ(accepted(installed(false)), Config()); }

TEST(InstalledConfig, ShowsTheDefaults) {
  if (geteuid() != 0) GTEST_SKIP() << "shows root's defaults";
  Config config = accepted(installed(true));
  EXPECT_TRUE(config.isStartupChosen && config.isLockChosen);
  config.isStartupChosen = config.isLockChosen = false;
  EXPECT_EQ(config, Config());
}

TEST(InstalledConfig, ShowsEveryKey) {
  std::string contents = installed(true);
  // The examples: keys and tables.
  for (auto at = contents.find("\n# "); at != std::string::npos;
       at = contents.find("\n# ", at + 1)) {
    const std::string_view behind = std::string_view(contents).substr(at + 3);
    const std::string_view line = behind.substr(0, behind.find('\n'));
    if (line.starts_with("[[") || line.find(" = ") != std::string_view::npos) {
      contents.erase(at + 1, 2);
    }
  }
  const Config config = accepted(contents);
  EXPECT_EQ(config.ports,
            (std::map<std::uint32_t, Config::Port>{{3, {"uplink", "eth3", {100, 200}}}}));
  EXPECT_EQ(config.vlanProfiles,
            (std::map<std::string, std::map<int, int>>{{"metro", {{3, 100}}}}));
  EXPECT_EQ(config.serviceProfiles,
            (std::map<std::string, Config::ServiceProfile>{{"business", {"metro", "gold"}}}));
}

// ---- Valid ----

TEST(ConfigFile, MayBeEmpty) {
  for (const char* contents : {"", "\n", "# nothing\n"}) {
    const Config config = accepted(contents);
    EXPECT_EQ(config, Config());
  }
}

TEST(ConfigFile, NamesBridgeAndPorts) {
  const Config config = accepted(
      "bridge = \"swbridge\"  # a comment\n"
      "[[port]]\n"
      "number = 7\n"
      "name = \"customer 7\"\n"
      "[[port]]\n"
      "name = \"uplink\"\n"
      "number = 3\n");
  EXPECT_EQ(config.bridge, "swbridge");
  EXPECT_EQ(portNames(config), (Ports{{3, "uplink"}, {7, "customer 7"}}));
}

TEST(ConfigFile, MayWritePortsInOneLine) {
  EXPECT_EQ(
      portNames(accepted("port = [{number = 1, name = \"a\"}, {number = 2, name = \"b\"}]\n")),
      (Ports{{1, "a"}, {2, "b"}}));
  EXPECT_EQ(accepted("port = []\n"), Config());
}

TEST(ConfigFile, PortNumbersReachToTheirEnds) {
  EXPECT_EQ(portNames(accepted("[[port]]\nnumber = 0\nname = \"first\"\n"
                               "[[port]]\nnumber = 4294967295\nname = \"last\"\n")),
            (Ports{{0, "first"}, {4294967295, "last"}}));
}

TEST(ConfigFile, NamesReachToTheirEnds) {
  const std::string longest(64, 'n');
  EXPECT_EQ(portNames(accepted("bridge = \"" + std::string(15, 'b') +
                               "\"\n[[port]]\nnumber = 1\nname = \"" + longest + "\"\n")),
            (Ports{{1, longest}}));
  EXPECT_EQ(accepted("bridge = \"b\"\n").bridge, "b");
  const std::string vlanProfile(33, 'v');
  const std::string serviceProfile(65, 's');
  const Config config =
      accepted("[[vlan-profile]]\nname = \"" + vlanProfile + "\"\n[[service-profile]]\nname = \"" +
               serviceProfile + "\"\nvlan-profile = \"" + vlanProfile + "\"\n");
  EXPECT_EQ(config.serviceProfiles.at(serviceProfile).vlanProfile, vlanProfile);
}

TEST(ConfigFile, PortNameMayBeginWithDigitsAndBeOfAnyScript) {
  EXPECT_EQ(portNames(accepted("[[port]]\nnumber = 1\nname = \"1a\"\n"
                               "[[port]]\nnumber = 2\nname = \"Büro\"\n")),
            (Ports{{1, "1a"}, {2, "Büro"}}));
}

TEST(ConfigFile, PortIsNamedAfterItsInterfaceUnlessItHasAName) {
  EXPECT_EQ(accepted("[[port]]\nnumber = 1\ninterface = \"eth1\"\n"
                     "[[port]]\nnumber = 2\ninterface = \"2\"\nname = \"two\"\n")
                .ports,
            (std::map<std::uint32_t, Config::Port>{{1, {"eth1", "eth1"}}, {2, {"two", "2"}}}));
}

TEST(ConfigFile, TellsThePathsOfScriptAndLock) {
  const Config config = accepted("startup = \"/s\"\nlock = \"/l\"\nclassifier = \"software\"\n");
  EXPECT_EQ(config.startup, "/s");
  EXPECT_EQ(config.lock, "/l");
  EXPECT_TRUE(config.isStartupChosen && config.isLockChosen);
  EXPECT_EQ(accepted("startup = \"\"\n").startup, "");
  EXPECT_FALSE(config.strictStartup);
  EXPECT_TRUE(accepted("strict-startup = true\n").strictStartup);
}

TEST(ConfigFile, TellsVlansAndSvidsOfPorts) {
  const Config config = accepted(
      "[[port]]\nnumber = 2147483647\nname = \"a\"\nvlans = [4094, 1]\n"
      "svids = { \"silver\" = 4094, \"gold\" = 1 }\n"
      "[[port]]\nnumber = 0\nname = \"b\"\nvlans = []\nsvids = { \"gold\" = 7 }\n"
      "[[vlan-profile]]\nname = \"gold\"\n"
      "[[vlan-profile]]\nname = \"silver\"\n"
      "[[vlan-profile]]\nname = \"none\"\n");
  EXPECT_EQ(config.ports.at(2147483647).vlans, (std::set<int>{1, 4094}));
  EXPECT_EQ(config.ports.at(0).vlans, std::set<int>{});
  EXPECT_EQ(
      config.vlanProfiles,
      (std::map<std::string, std::map<int, int>>{
          {"gold", {{0, 7}, {2147483647, 1}}}, {"none", {}}, {"silver", {{2147483647, 4094}}}}));
}

TEST(ConfigFile, TellsTheNativeVlansOfPorts) {
  const Config config = accepted(
      "[[port]]\nnumber = 1\nname = \"a\"\nnative-vlan = 4094\n"
      "[[port]]\nnumber = 2\nname = \"b\"\n");
  EXPECT_EQ(config.ports.at(1).nativeVlan, 4094);
  EXPECT_EQ(config.ports.at(2).nativeVlan, 1);
}

TEST(ConfigFile, TellsHowProgramsAreAttached) {
  const Config config =
      accepted("classifier = \"xdp\"\n[xdp]\nmode = \"generic\"\nreplace = true\nkeep = true\n");
  EXPECT_EQ(config.classifier, "xdp");
  EXPECT_EQ(config.xdp, (Config::Xdp{.mode = "generic", .replace = true, .keep = true}));
  EXPECT_EQ(accepted("[xdp]\n").xdp,
            (Config::Xdp{.mode = "auto", .replace = false, .keep = false}));
}

TEST(ConfigFile, TellsServiceProfiles) {
  const Config config = accepted(
      "[[service-profile]]\nname = \"plain\"\n"
      "[[service-profile]]\nname = \"full\"\nvlan-profile = \"v\"\nl2cp-profile = \"not here\"\n"
      "[[vlan-profile]]\nname = \"v\"\n");
  EXPECT_EQ(config.serviceProfiles, (std::map<std::string, Config::ServiceProfile>{
                                        {"full", {"v", "not here"}}, {"plain", {}}}));
}

// ---- Refused ----

struct Refusal {
  const char* what;
  std::string contents;
  const char* problem;
};

void PrintTo(const Refusal& row, std::ostream* out) { *out << row.what; }

class RefusedConfig : public testing::TestWithParam<Refusal> {};

constexpr const char* noDevice =
    "FILE:2: \"bridge\" is no device name: 1 to 15 bytes, without \"/\", \":\", white space and "
    "control characters, not \".\" or \"..\"";
constexpr const char* noInterface =
    "FILE:2: \"interface\" is no device name: 1 to 15 bytes, without \"/\", \":\", white space and "
    "control characters, not \".\" or \"..\"";
constexpr const char* noPorts = "FILE:1: ports are written as [[port]]";
constexpr const char* noNumber = "FILE:2: \"number\" is not a whole number from 0 to 4294967295";
constexpr const char* noName =
    "FILE:3: \"name\" is not 1 to 64 bytes without control characters, or is a number";

constexpr const char* noVlans = "FILE:3: \"vlans\" is not a list of whole numbers from 1 to 4094";
constexpr const char* noSvids = "FILE:5: \"svids\" is written as { \"VLAN profile\" = S-VID, ... }";
constexpr const char* noSvid = "FILE:5: the S-VID of \"gold\" is not a whole number from 1 to 4094";
constexpr const char* noVlanProfileName =
    "FILE:2: \"name\" is not 1 to 33 bytes without control characters";

std::string bridge(const std::string& value) { return "\nbridge = " + value + "\n"; }
std::string number(const std::string& value) {
  return "[[port]]\nnumber = " + value + "\nname = \"a\"\n";
}
std::string name(const std::string& value) {
  return "[[port]]\nnumber = 1\nname = " + value + "\n";
}
std::string interface(const std::string& value) {
  return "[[port]]\ninterface = " + value + "\nnumber = 1\n";
}
std::string vlans(const std::string& value) {
  return "[[port]]\nnumber = 1\nvlans = " + value + "\nname = \"a\"\n";
}
std::string svids(const std::string& value, const std::string& port = "1") {
  return "[[port]]\nname = \"a\"\nnumber = " + port + "\n\nsvids = " + value +
         "\n[[vlan-profile]]\nname = \"gold\"\n";
}
std::string vlanProfile(const std::string& value) {
  return "[[vlan-profile]]\nname = " + value + "\n";
}
std::string serviceProfile(const std::string& lines) {
  return "[[service-profile]]\n" + lines + "\n[[vlan-profile]]\nname = \"metro\"\n";
}

INSTANTIATE_TEST_SUITE_P(
    For, RefusedConfig,
    testing::Values(
        Refusal{"UnknownKey", "bridge = \"br0\"\n\ncolour = 1\n", "FILE:3: unknown key \"colour\""},
        Refusal{"UnknownTable", "[log]\nlevel = 1\n", "FILE:1: unknown key \"log\""},
        Refusal{"KeyInAnotherCase", "Bridge = \"br0\"\n",
                "FILE:1: unknown key \"Bridge\"; did you mean \"bridge\"?"},
        Refusal{"BridgeThatIsANumber", bridge("3"), "FILE:2: \"bridge\" is not a text"},
        Refusal{"BridgeThatIsAList", bridge("[\"a\"]"), "FILE:2: \"bridge\" is not a text"},
        Refusal{"EmptyBridge", bridge("\"\""), noDevice},
        Refusal{"LongBridge", bridge("\"" + std::string(16, 'b') + "\""), noDevice},
        Refusal{"BridgeWithASlash", bridge("\"a/b\""), noDevice},
        Refusal{"BridgeWithAColon", bridge("\"a:b\""), noDevice},
        Refusal{"BridgeWithABlank", bridge("\"a b\""), noDevice},
        Refusal{"BridgeWithATab", bridge("\"a\\tb\""), noDevice},
        Refusal{"BridgeWithAZeroByte", bridge("\"a\\u0000b\""), noDevice},
        Refusal{"BridgeWithAnEscape", bridge("\"a\\u001bc\""), noDevice},
        Refusal{"BridgeWithADelete", bridge("\"a\\u007f\""), noDevice},
        Refusal{"BridgeOfADot", bridge("\".\""), noDevice},
        Refusal{"BridgeOfTwoDots", bridge("\"..\""), noDevice},
        Refusal{"PortThatIsANumber", "port = 3\n", noPorts},
        Refusal{"PortThatIsATable", "[port]\nnumber = 3\nname = \"a\"\n", noPorts},
        Refusal{"PortThatIsAListOfNumbers", "port = [3]\n", noPorts},
        Refusal{"UnknownKeyOfAPort", "[[port]]\nnumber = 3\nname = \"a\"\nspeed = 1\n",
                "FILE:4: unknown key \"speed\" in [[port]]"},
        Refusal{"PortWithoutNumber", "\n[[port]]\nname = \"a\"\n",
                "FILE:2: [[port]] without \"number\""},
        Refusal{"PortWithoutName", "\n[[port]]\nnumber = 1\n",
                "FILE:2: [[port]] without \"name\" and \"interface\""},
        Refusal{"EmptyPort", "[[port]]\n", "FILE:1: [[port]] without \"number\""},
        Refusal{"NegativeNumber", number("-1"), noNumber},
        Refusal{"NumberPastTheEnd", number("4294967296"), noNumber},
        Refusal{"NumberOfManyDigits", number("9223372036854775807"), noNumber},
        Refusal{"BrokenNumber", number("3.0"), noNumber},
        Refusal{"NumberThatIsAText", number("\"3\""), noNumber},
        Refusal{"NameThatIsANumber", name("3"), "FILE:3: \"name\" is not a text"},
        Refusal{"EmptyName", name("\"\""), noName},
        Refusal{"LongName", name("\"" + std::string(65, 'n') + "\""), noName},
        Refusal{"NameOfDigits", name("\"123\""), noName},
        Refusal{"NameOfHexDigits", name("\"0x1F\""), noName},
        Refusal{"NameWithALineBreak", name("\"a\\nb\""), noName},
        Refusal{"NameWithAZeroByte", name("\"a\\u0000\""), noName},
        Refusal{"NameWithADeleteCharacter", name("\"a\\u007f\""), noName},
        Refusal{"NumberTwice",
                "[[port]]\nnumber = 1\nname = \"a\"\n[[port]]\nnumber = 1\nname = \"b\"\n",
                "FILE:5: port 1 is there twice"},
        Refusal{"NameTwice",
                "[[port]]\nnumber = 1\nname = \"a\"\n[[port]]\nnumber = 2\nname = \"a\"\n",
                "FILE:6: the name \"a\" is there twice"}),
    [](const auto& row) { return std::string(row.param.what); });

INSTANTIATE_TEST_SUITE_P(
    ForSettings, RefusedConfig,
    testing::Values(
        Refusal{"MisspeltKey", "brige = \"br0\"\n",
                "FILE:1: unknown key \"brige\"; did you mean \"bridge\"?"},
        Refusal{"KeyWithALineBreak", "\"a\\nb\" = 1\n", "FILE:1: unknown key \"a?b\""},
        Refusal{"ClassifierThatIsANumber", "classifier = 1\n",
                "FILE:1: \"classifier\" is not a text"},
        Refusal{"UnknownClassifier", "classifier = \"hardware store\"\n",
                "FILE:1: there is no classifier \"hardware store\""},
        Refusal{"MisspeltClassifier", "classifier = \"sofware\"\n",
                "FILE:1: there is no classifier \"sofware\"; did you mean \"software\"?"},
        Refusal{"XdpThatIsAText", "xdp = \"native\"\n", "FILE:1: \"xdp\" is written as [xdp]"},
        Refusal{"UnknownKeyOfXdp", "[xdp]\nmodes = 1\n",
                "FILE:2: unknown key \"modes\" in [xdp]; did you mean \"mode\"?"},
        Refusal{"UnknownMode", "[xdp]\nmode = \"nativ\"\n",
                "FILE:2: there is no mode \"nativ\"; did you mean \"native\"?"},
        Refusal{"KeepThatIsANumber", "[xdp]\nkeep = 1\n",
                "FILE:2: \"keep\" is neither true nor false"},
        Refusal{"StartupThatIsANumber", "startup = 1\n", "FILE:1: \"startup\" is not a text"},
        Refusal{"StrictnessThatIsAText", "strict-startup = \"true\"\n",
                "FILE:1: \"strict-startup\" is neither true nor false"},
        Refusal{"RelativeStartup", "startup = \"startup.l2cp\"\n",
                "FILE:1: \"startup\" is no absolute path"},
        Refusal{"StartupWithAZeroByte", "startup = \"/a\\u0000b\"\n",
                "FILE:1: \"startup\" is no absolute path"},
        Refusal{"LockThatIsANumber", "lock = 1\n", "FILE:1: \"lock\" is not a text"},
        Refusal{"RelativeLock", "lock = \"l2cpd.lock\"\n", "FILE:1: \"lock\" is no absolute path"},
        Refusal{"EmptyLock", "lock = \"\"\n", "FILE:1: \"lock\" is no absolute path"}),
    [](const auto& row) { return std::string(row.param.what); });

INSTANTIATE_TEST_SUITE_P(
    ForPorts, RefusedConfig,
    testing::Values(
        Refusal{"MisspeltKey", "[[prot]]\nnumber = 1\n",
                "FILE:1: unknown key \"prot\"; did you mean \"port\"?"},
        Refusal{"MisspeltKeyOfAPort", "[[port]]\nvlan = [1]\n",
                "FILE:2: unknown key \"vlan\" in [[port]]; did you mean \"vlans\"?"},
        Refusal{"InterfaceThatIsANumber", interface("3"), "FILE:2: \"interface\" is not a text"},
        Refusal{"LongInterface", interface("\"" + std::string(16, 'i') + "\""), noInterface},
        Refusal{"InterfaceWithAnEscape", interface("\"p\\u001b[2J\""), noInterface},
        Refusal{"InterfaceThatCannotBeAName", interface("\"17\""),
                "FILE:2: \"interface\" is a number, so that the port needs a \"name\""},
        Refusal{"InterfaceTwice",
                "[[port]]\nnumber = 1\nname = \"a\"\ninterface = \"eth0\"\n"
                "[[port]]\nnumber = 2\nname = \"b\"\ninterface = \"eth0\"\n",
                "FILE:8: the interface \"eth0\" is there twice"},
        Refusal{"InterfaceThatIsAnotherPortsName",
                "[[port]]\nnumber = 1\nname = \"eth0\"\n"
                "[[port]]\nnumber = 2\ninterface = \"eth0\"\n",
                "FILE:6: the name \"eth0\" is there twice"},
        Refusal{"VlansThatAreANumber", vlans("3"), noVlans},
        Refusal{"VlanZero", vlans("[1, 0]"), noVlans},
        Refusal{"VlanPastTheEnd", vlans("[4095]"), noVlans},
        Refusal{"VlanThatIsAText", vlans("[\"1\"]"), noVlans},
        Refusal{"NativeVlanZero", "[[port]]\nnumber = 1\nnative-vlan = 0\nname = \"a\"\n",
                "FILE:3: \"native-vlan\" is not a whole number from 1 to 4094"},
        Refusal{"VlanTwice", vlans("[5, 6, 5]"), "FILE:3: VLAN 5 is there twice"},
        Refusal{"SvidsThatAreANumber", svids("7"), noSvids},
        Refusal{"SvidsThatAreAList", svids("[7]"), noSvids},
        Refusal{"SvidZero", svids("{ \"gold\" = 0 }"), noSvid},
        Refusal{"SvidPastTheEnd", svids("{ \"gold\" = 4095 }"), noSvid},
        Refusal{"SvidThatIsAText", svids("{ \"gold\" = \"7\" }"), noSvid},
        Refusal{"SvidOfNoVlanProfile", svids("{ \"silver\" = 7 }"),
                "FILE:5: there is no VLAN profile \"silver\""},
        Refusal{"SvidOfAMisspeltVlanProfile", svids("{ \"glod\" = 7 }"),
                "FILE:5: there is no VLAN profile \"glod\"; did you mean \"gold\"?"},
        Refusal{"SvidOfAPortBeyondInterfaces", svids("{ \"gold\" = 7 }", "2147483648"),
                "FILE:5: ports above 2147483647 cannot have S-VIDs"}),
    [](const auto& row) { return std::string(row.param.what); });

INSTANTIATE_TEST_SUITE_P(
    ForProfiles, RefusedConfig,
    testing::Values(
        Refusal{"VlanProfileThatIsAText", "vlan-profile = \"a\"\n",
                "FILE:1: vlan-profiles are written as [[vlan-profile]]"},
        Refusal{"ServiceProfileThatIsATable", "[service-profile]\nname = \"a\"\n",
                "FILE:1: service-profiles are written as [[service-profile]]"},
        Refusal{"MisspeltTable", "[[vlan-profiles]]\nname = \"a\"\n",
                "FILE:1: unknown key \"vlan-profiles\"; did you mean \"vlan-profile\"?"},
        Refusal{"MisspeltKeyOfAVlanProfile", "[[vlan-profile]]\nnmae = \"a\"\n",
                "FILE:2: unknown key \"nmae\" in [[vlan-profile]]; did you mean \"name\"?"},
        Refusal{"VlanProfileWithoutName", "\n[[vlan-profile]]\n",
                "FILE:2: [[vlan-profile]] without \"name\""},
        Refusal{"VlanProfileNameThatIsANumber", vlanProfile("1"), "FILE:2: \"name\" is not a text"},
        Refusal{"EmptyVlanProfileName", vlanProfile("\"\""), noVlanProfileName},
        Refusal{"LongVlanProfileName", vlanProfile("\"" + std::string(34, 'v') + "\""),
                noVlanProfileName},
        Refusal{"VlanProfileNameWithATab", vlanProfile("\"a\\tb\""), noVlanProfileName},
        Refusal{"VlanProfileTwice", vlanProfile("\"a\"") + vlanProfile("\"a\""),
                "FILE:4: the VLAN profile \"a\" is there twice"},
        Refusal{"UnknownKeyOfAServiceProfile", serviceProfile("profile = \"a\""),
                "FILE:2: unknown key \"profile\" in [[service-profile]]"},
        Refusal{"MisspeltKeyOfAServiceProfile", serviceProfile("vlan_profile = \"a\""),
                "FILE:2: unknown key \"vlan_profile\" in [[service-profile]]; did you mean "
                "\"vlan-profile\"?"},
        Refusal{"ServiceProfileWithoutName", serviceProfile("vlan-profile = \"metro\""),
                "FILE:1: [[service-profile]] without \"name\""},
        Refusal{"LongServiceProfileName", serviceProfile("name = \"" + std::string(66, 's') + "\""),
                "FILE:2: \"name\" is not 1 to 65 bytes without control characters"},
        Refusal{"ServiceProfileTwice",
                serviceProfile("name = \"a\"\n[[service-profile]]\nname = \"a\""),
                "FILE:4: the service profile \"a\" is there twice"},
        Refusal{"NoVlanProfile", serviceProfile("name = \"a\"\nvlan-profile = \"other\""),
                "FILE:3: there is no VLAN profile \"other\""},
        Refusal{"MisspeltVlanProfile", serviceProfile("name = \"a\"\nvlan-profile = \"Metor\""),
                "FILE:3: there is no VLAN profile \"Metor\"; did you mean \"metro\"?"},
        Refusal{"EmptyVlanProfile", serviceProfile("name = \"a\"\nvlan-profile = \"\""),
                "FILE:3: \"vlan-profile\" is not 1 to 33 bytes without control characters"},
        Refusal{"LongL2cpProfile",
                serviceProfile("name = \"a\"\nl2cp-profile = \"" + std::string(34, 'l') + "\""),
                "FILE:3: \"l2cp-profile\" is not 1 to 33 bytes without control characters"},
        Refusal{"L2cpProfileThatIsANumber", serviceProfile("name = \"a\"\nl2cp-profile = 3"),
                "FILE:3: \"l2cp-profile\" is not a text"}),
    [](const auto& row) { return std::string(row.param.what); });

TEST_P(RefusedConfig, NamesThePlaceAndTheProblem) {
  EXPECT_EQ(refusal(GetParam().contents), GetParam().problem);
}

/// As many ports, each with an interface.
std::string manyPorts(int count) {
  std::string contents;
  for (int i = 1; i <= count; ++i) {
    contents += "[[port]]\nnumber = " + std::to_string(i) + "\ninterface = \"p" +
                std::to_string(i) + "\"\n";
  }
  return contents;
}

TEST(ConfigFile, WithMorePortsThanTheKernelHoldsIsRefusedWhereTheClassifierIsThere) {
  EXPECT_EQ(accepted(manyPorts(513)).ports.size(), 513U);
  const std::string most = "classifier = \"xdp\"\n" + manyPorts(512);
  EXPECT_EQ(accepted(most).ports.size(), 512U);
  EXPECT_EQ(accepted(most + "[[port]]\nnumber = 513\nname = \"a\"\n").ports.size(), 513U);
  EXPECT_EQ(refusal("classifier = \"xdp\"\n" + manyPorts(513)),
            "FILE:1540: the classifier \"xdp\" holds 512 ports with an interface");
}

TEST(ConfigFile, ThatIsNoTomlIsRefusedWithItsPlace) {
  EXPECT_THAT(refusal("bridge = \"br0\"\nbridge = \n"), testing::StartsWith("FILE:2: "));
  EXPECT_THAT(refusal("bridge = \"br0\"\nbridge = \"br1\"\n"), testing::StartsWith("FILE:2: "));
  EXPECT_THAT(refusal("bridge = \"\xff\xfe\"\n"), testing::StartsWith("FILE:1: "));
  EXPECT_THAT(refusal(std::string("a\0b", 3)), testing::StartsWith("FILE:1: "));
}

std::string refusalOf(const std::string& path) {
  try {
    readConfig(path);
  } catch (const ConfigError& problem) {
    return problem.what();
  }
  return "accepted";
}

TEST(ConfigFile, ThatDoesNotExistIsRefused) {
  EXPECT_EQ(refusalOf("/nowhere/l2cpd.toml"), "/nowhere/l2cpd.toml: No such file or directory");
  EXPECT_EQ(refusalOf("/proc/version/l2cpd.toml"), "/proc/version/l2cpd.toml: Not a directory");
}

TEST(ConfigFile, ThatIsAFolderIsRefused) { EXPECT_EQ(refusalOf("/proc"), "/proc: is a directory"); }

// Opening a pipe would wait for somebody who writes.
TEST(ConfigFile, ThatIsAPipeOrADeviceIsRefused) {
  const std::string pipe = testing::TempDir() + "config." + std::to_string(getpid());
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(refusalOf(pipe), pipe + ": is not a regular file");
  unlink(pipe.c_str());
  EXPECT_EQ(refusalOf("/dev/zero"), "/dev/zero: is not a regular file");
  EXPECT_EQ(readConfig("/dev/null"), Config());
}

TEST(ConfigFile, ThatCannotBeReadIsRefused) {
  // Can be opened; what is at its beginning cannot be read.
  EXPECT_EQ(refusalOf("/proc/self/mem"), "/proc/self/mem: cannot be read");
}

}  // namespace
