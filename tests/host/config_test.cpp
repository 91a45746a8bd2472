#include "host/config.h"

#include <gmock/gmock.h>
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

// ---- Valid ----

TEST(ConfigFile, MayBeEmpty) {
  for (const char* contents : {"", "\n", "# nothing\n"}) {
    const Config config = accepted(contents);
    EXPECT_EQ(config.bridge, "br0");
    EXPECT_EQ(config.ports, Ports{});
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
  EXPECT_EQ(config.ports, (Ports{{3, "uplink"}, {7, "customer 7"}}));
}

TEST(ConfigFile, MayWritePortsInOneLine) {
  EXPECT_EQ(accepted("port = [{number = 1, name = \"a\"}, {number = 2, name = \"b\"}]\n").ports,
            (Ports{{1, "a"}, {2, "b"}}));
  EXPECT_EQ(accepted("port = []\n").ports, Ports{});
}

TEST(ConfigFile, PortNumbersReachToTheirEnds) {
  EXPECT_EQ(accepted("[[port]]\nnumber = 0\nname = \"first\"\n"
                     "[[port]]\nnumber = 4294967295\nname = \"last\"\n")
                .ports,
            (Ports{{0, "first"}, {4294967295, "last"}}));
}

TEST(ConfigFile, NamesReachToTheirEnds) {
  const std::string longest(64, 'n');
  EXPECT_EQ(accepted("bridge = \"" + std::string(15, 'b') + "\"\n[[port]]\nnumber = 1\nname = \"" +
                     longest + "\"\n")
                .ports,
            (Ports{{1, longest}}));
  EXPECT_EQ(accepted("bridge = \"b\"\n").bridge, "b");
}

TEST(ConfigFile, PortNameMayBeginWithDigitsAndBeOfAnyScript) {
  EXPECT_EQ(accepted("[[port]]\nnumber = 1\nname = \"1a\"\n[[port]]\nnumber = 2\nname = \"Büro\"\n")
                .ports,
            (Ports{{1, "1a"}, {2, "Büro"}}));
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
    "FILE:2: \"bridge\" is no device name: 1 to 15 bytes, without \"/\", \":\" and white space, "
    "not \".\" or \"..\"";
constexpr const char* noPorts = "FILE:1: ports are written as [[port]]";
constexpr const char* noNumber = "FILE:2: \"number\" is not a whole number from 0 to 4294967295";
constexpr const char* noName =
    "FILE:3: \"name\" is not 1 to 64 bytes without control characters, or is a number";

std::string bridge(const std::string& value) { return "\nbridge = " + value + "\n"; }
std::string number(const std::string& value) {
  return "[[port]]\nnumber = " + value + "\nname = \"a\"\n";
}
std::string name(const std::string& value) {
  return "[[port]]\nnumber = 1\nname = " + value + "\n";
}

INSTANTIATE_TEST_SUITE_P(
    For, RefusedConfig,
    testing::Values(
        Refusal{"UnknownKey", "bridge = \"br0\"\n\ncolour = 1\n", "FILE:3: unknown key \"colour\""},
        Refusal{"UnknownTable", "[log]\nlevel = 1\n", "FILE:1: unknown key \"log\""},
        Refusal{"KeyInAnotherCase", "Bridge = \"br0\"\n", "FILE:1: unknown key \"Bridge\""},
        Refusal{"BridgeThatIsANumber", bridge("3"), "FILE:2: \"bridge\" is not a text"},
        Refusal{"BridgeThatIsAList", bridge("[\"a\"]"), "FILE:2: \"bridge\" is not a text"},
        Refusal{"EmptyBridge", bridge("\"\""), noDevice},
        Refusal{"LongBridge", bridge("\"" + std::string(16, 'b') + "\""), noDevice},
        Refusal{"BridgeWithASlash", bridge("\"a/b\""), noDevice},
        Refusal{"BridgeWithAColon", bridge("\"a:b\""), noDevice},
        Refusal{"BridgeWithABlank", bridge("\"a b\""), noDevice},
        Refusal{"BridgeWithATab", bridge("\"a\\tb\""), noDevice},
        Refusal{"BridgeWithAZeroByte", bridge("\"a\\u0000b\""), noDevice},
        Refusal{"BridgeOfADot", bridge("\".\""), noDevice},
        Refusal{"BridgeOfTwoDots", bridge("\"..\""), noDevice},
        Refusal{"PortThatIsANumber", "port = 3\n", noPorts},
        Refusal{"PortThatIsATable", "[port]\nnumber = 3\nname = \"a\"\n", noPorts},
        Refusal{"PortThatIsAListOfNumbers", "port = [3]\n", noPorts},
        Refusal{"UnknownKeyOfAPort", "[[port]]\nnumber = 3\nname = \"a\"\nspeed = 1\n",
                "FILE:4: unknown key \"speed\" in [[port]]"},
        Refusal{"PortWithoutNumber", "\n[[port]]\nname = \"a\"\n",
                "FILE:2: [[port]] without \"number\""},
        Refusal{"PortWithoutName", "\n[[port]]\nnumber = 1\n", "FILE:2: [[port]] without \"name\""},
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

TEST_P(RefusedConfig, NamesThePlaceAndTheProblem) {
  EXPECT_EQ(refusal(GetParam().contents), GetParam().problem);
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

TEST(ConfigFile, ThatCannotBeReadIsRefused) {
  // Can be opened; what is at its beginning cannot be read.
  EXPECT_EQ(refusalOf("/proc/self/mem"), "/proc/self/mem: cannot be read");
}

}  // namespace
