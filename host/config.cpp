#include "host/config.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <toml++/toml.h>
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <span>
#include <sstream>
#include <string_view>
#include <vector>

#include "classifier/xdp/layout.h"
#include "host/nearestWord.h"
#include "host/paths.h"

namespace {

constexpr std::string_view classifiers[] = {"software", "xdp"};
constexpr std::string_view xdpModes[] = {"auto", "native", "generic"};

constexpr std::string_view keys[] = {"bridge",  "classifier",     "xdp",
                                     "startup", "strict-startup", "lock",
                                     "port",    "vlan-profile",   "service-profile"};
constexpr std::string_view xdpKeys[] = {"mode", "replace", "keep"};
constexpr std::string_view portKeys[] = {"number", "name",        "interface",
                                         "vlans",  "native-vlan", "svids"};
constexpr std::string_view vlanProfileKeys[] = {"name"};
constexpr std::string_view serviceProfileKeys[] = {"name", "vlan-profile", "l2cp-profile"};

constexpr std::size_t longestDeviceName = 15;
constexpr std::size_t longestPortName = 64;
constexpr std::size_t longestServiceProfileName = 65;
constexpr std::size_t longestProfileName = 33;
constexpr int highestVlan = 4094;

bool isControl(char character) { return std::iscntrl(static_cast<unsigned char>(character)) != 0; }

// Messages quote words of the file, and each has to stay on one line.
std::string printable(std::string text) {
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

bool isDeviceName(const std::string& name) {
  const bool plain = std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return c != '/' && c != ':' && std::isspace(c) == 0 && std::iscntrl(c) == 0;
  });
  return plain && !name.empty() && name.size() <= longestDeviceName && name != "." && name != "..";
}

bool isName(const std::string& name, std::size_t longest) {
  return !name.empty() && name.size() <= longest &&
         std::none_of(name.begin(), name.end(), isControl);
}

// Whether a client would take the name for a port number: decimal, or hexadecimal behind "0x".
bool isNumber(std::string_view name) {
  const bool hexadecimal = name.starts_with("0x") || name.starts_with("0X");
  if (hexadecimal) name.remove_prefix(2);
  return std::all_of(name.begin(), name.end(), [&](unsigned char c) {
    return (hexadecimal ? std::isxdigit(c) : std::isdigit(c)) != 0;
  });
}

bool isAbsolutePath(const std::string& path) {
  return path.starts_with('/') && std::none_of(path.begin(), path.end(), isControl);
}

template <class Map>
std::vector<std::string_view> keysOf(const Map& map) {
  std::vector<std::string_view> names;
  names.reserve(map.size());
  for (const auto& [key, value] : map) names.emplace_back(key);
  return names;
}

class Reader {
 public:
  explicit Reader(const std::string& path) : path_(path) {}

  Config read() {
    const toml::table root = parse();
    checkKeys(root, "", keys);
    if (const toml::node* node = root.get("bridge")) config_.bridge = deviceName(*node, "bridge");
    if (const toml::node* node = root.get("classifier")) readClassifier(*node);
    if (const toml::node* node = root.get("xdp")) readXdp(*node);
    if (const toml::node* node = root.get("startup")) {
      const bool isNone = text(*node, "startup").empty();
      config_.startup = isNone ? "" : absolutePath(*node, "startup");
      config_.isStartupChosen = true;
    }
    if (const toml::node* node = root.get("strict-startup")) {
      config_.strictStartup = truth(*node, "strict-startup");
    }
    if (const toml::node* node = root.get("lock")) {
      config_.lock = absolutePath(*node, "lock");
      config_.isLockChosen = true;
    }
    // In this order: service profiles and ports name VLAN profiles, and the classifier above limits
    // the ports.
    forEachTable(root, "vlan-profile", &Reader::readVlanProfile);
    forEachTable(root, "service-profile", &Reader::readServiceProfile);
    forEachTable(root, "port", &Reader::readPort);
    return std::move(config_);
  }

 private:
  toml::table parse() {
    // The usual name of an empty file.
    if (path_ == "/dev/null") return {};
    // Opening a folder succeeds and reading it does not; opening a pipe waits for a writer.
    std::error_code error;
    const auto status = std::filesystem::status(path_, error);
    if (std::filesystem::is_directory(status)) refuse(path_, "is a directory");
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
      refuse(path_, "is not a regular file");
    }
    std::ifstream file(path_, std::ios::binary);
    if (!file) refuse(path_, std::strerror(errno));
    std::ostringstream contents;
    // An empty file gives nothing and is fine; one that cannot be read gives nothing, too.
    if (file.peek() != std::ifstream::traits_type::eof()) contents << file.rdbuf();
    if (file.bad() || contents.fail()) refuse(path_, "cannot be read");
    try {
      return toml::parse(contents.str());
    } catch (const toml::parse_error& problem) {
      fail(problem.source(), problem.description());
    }
  }

  [[noreturn]] static void refuse(const std::string& place, std::string_view problem) {
    throw ConfigError(printable(fmt::format("{}: {}", place, problem)));
  }
  [[noreturn]] void fail(const toml::source_region& source, std::string_view problem) const {
    refuse(fmt::format("{}:{}", path_, source.begin.line), problem);
  }
  [[noreturn]] void fail(const toml::node& node, std::string_view problem) const {
    fail(node.source(), problem);
  }

  // ---- Values of any key ----

  void checkKeys(const toml::table& table, std::string_view where,
                 std::span<const std::string_view> known) const {
    for (const auto& [key, value] : table) {
      if (std::find(known.begin(), known.end(), key.str()) != known.end()) continue;
      fail(key.source(),
           fmt::format("unknown key \"{}\"{}{}", key.str(), where, suggestion(key.str(), known)));
    }
  }

  std::string text(const toml::node& node, std::string_view key) const {
    const auto value = node.value_exact<std::string>();
    if (!value) fail(node, fmt::format("\"{}\" is not a text", key));
    return *value;
  }

  bool truth(const toml::node& node, std::string_view key) const {
    const auto value = node.value_exact<bool>();
    if (!value) fail(node, fmt::format("\"{}\" is neither true nor false", key));
    return *value;
  }

  std::string deviceName(const toml::node& node, std::string_view key) const {
    std::string name = text(node, key);
    if (!isDeviceName(name)) {
      fail(node, fmt::format("\"{}\" is no device name: 1 to 15 bytes, without \"/\", \":\", "
                             "white space and control characters, not \".\" or \"..\"",
                             key));
    }
    return name;
  }

  std::string absolutePath(const toml::node& node, std::string_view key) const {
    std::string path = text(node, key);
    if (!isAbsolutePath(path)) fail(node, fmt::format("\"{}\" is no absolute path", key));
    return path;
  }

  std::string profileName(const toml::node& node, std::string_view key, std::size_t longest) const {
    std::string name = text(node, key);
    if (!isName(name, longest)) {
      fail(node,
           fmt::format("\"{}\" is not 1 to {} bytes without control characters", key, longest));
    }
    return name;
  }

  static std::optional<std::int64_t> wholeNumber(const toml::node& node, std::int64_t lowest,
                                                 std::int64_t highest) {
    const auto number = node.value_exact<std::int64_t>();
    return number && *number >= lowest && *number <= highest ? number : std::nullopt;
  }

  const toml::node& required(const toml::table& table, std::string_view kind,
                             std::string_view key) const {
    const toml::node* node = table.get(key);
    if (node == nullptr) fail(table, fmt::format("[[{}]] without \"{}\"", kind, key));
    return *node;
  }

  void forEachTable(const toml::table& root, std::string_view kind,
                    void (Reader::*readOne)(const toml::table&)) {
    const toml::node* node = root.get(kind);
    if (node == nullptr) return;
    const auto check = [&](const auto* wanted, const toml::node& given) {
      if (wanted == nullptr) fail(given, fmt::format("{0}s are written as [[{0}]]", kind));
    };
    const toml::array* tables = node->as_array();
    check(tables, *node);
    for (const toml::node& element : *tables) {
      const toml::table* table = element.as_table();
      check(table, element);
      (this->*readOne)(*table);
    }
  }

  // ---- Single keys ----

  std::string oneOf(const toml::node& node, std::string_view key,
                    std::span<const std::string_view> words) const {
    std::string word = text(node, key);
    if (std::find(words.begin(), words.end(), word) == words.end()) {
      fail(node, fmt::format("there is no {} \"{}\"{}", key, word, suggestion(word, words)));
    }
    return word;
  }

  void readClassifier(const toml::node& node) {
    config_.classifier = oneOf(node, "classifier", classifiers);
  }

  void readXdp(const toml::node& node) {
    const toml::table* table = node.as_table();
    if (table == nullptr) fail(node, "\"xdp\" is written as [xdp]");
    checkKeys(*table, " in [xdp]", xdpKeys);
    Config::Xdp& xdp = config_.xdp;
    if (const toml::node* mode = table->get("mode")) xdp.mode = oneOf(*mode, "mode", xdpModes);
    if (const toml::node* replace = table->get("replace")) xdp.replace = truth(*replace, "replace");
    if (const toml::node* keep = table->get("keep")) xdp.keep = truth(*keep, "keep");
  }

  void readVlanProfile(const toml::table& table) {
    checkKeys(table, " in [[vlan-profile]]", vlanProfileKeys);
    const toml::node& nameNode = required(table, "vlan-profile", "name");
    const std::string name = profileName(nameNode, "name", longestProfileName);
    if (!config_.vlanProfiles.try_emplace(name).second) {
      fail(nameNode, fmt::format("the VLAN profile \"{}\" is there twice", name));
    }
  }

  // The S-VIDs of a VLAN profile that has to be there.
  std::map<int, int>& vlanProfile(std::string_view name, const toml::source_region& source) {
    const auto found = config_.vlanProfiles.find(std::string(name));
    if (found == config_.vlanProfiles.end()) {
      fail(source, fmt::format("there is no VLAN profile \"{}\"{}", name,
                               suggestion(name, keysOf(config_.vlanProfiles))));
    }
    return found->second;
  }

  void readServiceProfile(const toml::table& table) {
    checkKeys(table, " in [[service-profile]]", serviceProfileKeys);
    const toml::node& nameNode = required(table, "service-profile", "name");
    const std::string name = profileName(nameNode, "name", longestServiceProfileName);
    const auto [profile, isNew] = config_.serviceProfiles.try_emplace(name);
    if (!isNew) fail(nameNode, fmt::format("the service profile \"{}\" is there twice", name));
    if (const toml::node* node = table.get("vlan-profile")) {
      profile->second.vlanProfile = profileName(*node, "vlan-profile", longestProfileName);
      vlanProfile(profile->second.vlanProfile, node->source());
    }
    if (const toml::node* node = table.get("l2cp-profile")) {
      profile->second.l2cpProfile = profileName(*node, "l2cp-profile", longestProfileName);
    }
  }

  void readPort(const toml::table& table) {
    checkKeys(table, " in [[port]]", portKeys);
    const toml::node& numberNode = required(table, "port", "number");
    const auto number = wholeNumber(numberNode, 0, std::numeric_limits<std::uint32_t>::max());
    if (!number) fail(numberNode, "\"number\" is not a whole number from 0 to 4294967295");
    if (config_.ports.contains(static_cast<std::uint32_t>(*number))) {
      fail(numberNode, fmt::format("port {} is there twice", *number));
    }
    Config::Port port;
    if (const toml::node* node = table.get("interface")) readInterface(*node, port);
    readPortName(table, port);
    if (const toml::node* node = table.get("vlans")) readVlans(*node, port);
    if (const toml::node* node = table.get("native-vlan")) {
      const auto vlan = wholeNumber(*node, 1, highestVlan);
      if (!vlan) fail(*node, "\"native-vlan\" is not a whole number from 1 to 4094");
      port.nativeVlan = static_cast<int>(*vlan);
    }
    if (const toml::node* node = table.get("svids")) readSvids(*node, *number);
    config_.ports.emplace(static_cast<std::uint32_t>(*number), std::move(port));
  }

  bool isAnyPort(const std::string& value, std::string Config::Port::*field) const {
    return std::any_of(config_.ports.begin(), config_.ports.end(),
                       [&](const auto& element) { return element.second.*field == value; });
  }

  void readInterface(const toml::node& node, Config::Port& port) const {
    port.interface = deviceName(node, "interface");
    if (isAnyPort(port.interface, &Config::Port::interface)) {
      fail(node, fmt::format("the interface \"{}\" is there twice", port.interface));
    }
    const auto others =
        std::count_if(config_.ports.begin(), config_.ports.end(),
                      [](const auto& element) { return !element.second.interface.empty(); });
    if (config_.classifier == "xdp" && others >= L2CP_PORTS) {
      fail(node, fmt::format("the classifier \"xdp\" holds {} ports with an interface",
                             static_cast<int>(L2CP_PORTS)));
    }
  }

  void readPortName(const toml::table& table, Config::Port& port) const {
    const toml::node* node = table.get("name");
    if (node != nullptr) {
      port.name = text(*node, "name");
      if (!isName(port.name, longestPortName) || isNumber(port.name)) {
        fail(*node, "\"name\" is not 1 to 64 bytes without control characters, or is a number");
      }
    } else {
      node = table.get("interface");
      if (node == nullptr) fail(table, "[[port]] without \"name\" and \"interface\"");
      if (isNumber(port.interface)) {
        fail(*node, "\"interface\" is a number, so that the port needs a \"name\"");
      }
      port.name = port.interface;
    }
    if (isAnyPort(port.name, &Config::Port::name)) {
      fail(*node, fmt::format("the name \"{}\" is there twice", port.name));
    }
  }

  void readVlans(const toml::node& node, Config::Port& port) const {
    constexpr const char* problem = "\"vlans\" is not a list of whole numbers from 1 to 4094";
    const toml::array* vlans = node.as_array();
    if (vlans == nullptr) fail(node, problem);
    for (const toml::node& element : *vlans) {
      const auto vlan = wholeNumber(element, 1, highestVlan);
      if (!vlan) fail(element, problem);
      if (!port.vlans.insert(static_cast<int>(*vlan)).second) {
        fail(element, fmt::format("VLAN {} is there twice", *vlan));
      }
    }
  }

  void readSvids(const toml::node& node, std::int64_t port) {
    const toml::table* svids = node.as_table();
    if (svids == nullptr) fail(node, "\"svids\" is written as { \"VLAN profile\" = S-VID, ... }");
    if (port > std::numeric_limits<int>::max()) {
      fail(node, "ports above 2147483647 cannot have S-VIDs");
    }
    for (const auto& [name, value] : *svids) {
      std::map<int, int>& profile = vlanProfile(name.str(), name.source());
      const auto svid = wholeNumber(value, 1, highestVlan);
      if (!svid) {
        fail(value,
             fmt::format("the S-VID of \"{}\" is not a whole number from 1 to 4094", name.str()));
      }
      profile[static_cast<int>(port)] = static_cast<int>(*svid);
    }
  }

  const std::string& path_;
  Config config_;
};

// A file in one of the system's folders, for root and whoever else may write there, such as the
// service's own user; other users have a folder of their own (XDG Base Directory), named by a
// variable or else below their home. Empty if there is none.
std::string defaultFile(const std::string& systemFolder, const char* variable,
                        const char* belowHome, const char* file) {
  if (geteuid() == 0 || faccessat(AT_FDCWD, systemFolder.c_str(), W_OK, AT_EACCESS) == 0) {
    return fmt::format("{}/{}", systemFolder, file);
  }
  const char* folder = std::getenv(variable);
  if (folder != nullptr && *folder == '/') return fmt::format("{}/l2cpd/{}", folder, file);
  const char* home = std::getenv("HOME");
  if (belowHome == nullptr || home == nullptr || *home != '/') return {};
  return fmt::format("{}/{}/l2cpd/{}", home, belowHome, file);
}

}  // namespace

Config::Config()
    : startup(defaultFile("/var/lib/l2cpd", "XDG_STATE_HOME", ".local/state", "startup.l2cp")),
      lock(defaultFile("/run/l2cpd", "XDG_RUNTIME_DIR", nullptr, "l2cpd.lock")) {}

Config readConfig(const std::string& path) { return Reader(path).read(); }

std::string configFile(const std::string& named) {
  if (!named.empty()) return named;
  std::error_code error;
  return std::filesystem::exists(installedConfigFile, error) || error ? installedConfigFile : "";
}
