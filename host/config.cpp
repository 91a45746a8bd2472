#include "host/config.h"

#include <fmt/core.h>

#include <toml++/toml.h>
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <sstream>
#include <string_view>

namespace {

// The file and line of a part of the configuration, for messages.
std::string place(const std::string& path, const toml::source_region& source) {
  return fmt::format("{}:{}", path, source.begin.line);
}

class Reader {
 public:
  explicit Reader(const std::string& path) : path_(path) {}

  Config read() {
    const toml::table root = parse();
    Config config;
    checkKeys(root, "", {"bridge", "port"});
    if (const toml::node* bridge = root.get("bridge")) {
      config.bridge = text(*bridge, "bridge");
      if (!isDeviceName(config.bridge)) {
        fail(*bridge,
             "\"bridge\" is no device name: 1 to 15 bytes, without \"/\", \":\" and white space, "
             "not \".\" or \"..\"");
      }
    }
    if (const toml::node* ports = root.get("port")) readPorts(*ports, config);
    return config;
  }

 private:
  static constexpr std::size_t longestDeviceName = 15;
  static constexpr std::size_t longestPortName = 64;

  toml::table parse() {
    // Opening a folder succeeds and reading it does not, so both are asked for first.
    std::error_code error;
    if (std::filesystem::is_directory(path_, error)) {
      throw ConfigError(fmt::format("{}: is a directory", path_));
    }
    std::ifstream file(path_, std::ios::binary);
    if (!file) throw ConfigError(fmt::format("{}: {}", path_, std::strerror(errno)));
    std::ostringstream contents;
    // An empty file gives nothing and is fine; one that cannot be read gives nothing, too.
    if (file.peek() != std::ifstream::traits_type::eof()) contents << file.rdbuf();
    if (file.bad() || contents.fail()) throw ConfigError(fmt::format("{}: cannot be read", path_));
    try {
      return toml::parse(contents.str());
    } catch (const toml::parse_error& problem) {
      throw ConfigError(
          fmt::format("{}: {}", place(path_, problem.source()), problem.description()));
    }
  }

  [[noreturn]] void fail(const toml::node& node, std::string_view problem) const {
    throw ConfigError(fmt::format("{}: {}", place(path_, node.source()), problem));
  }

  void checkKeys(const toml::table& table, std::string_view where,
                 std::initializer_list<std::string_view> known) const {
    for (const auto& [key, value] : table) {
      if (std::find(known.begin(), known.end(), key.str()) == known.end()) {
        throw ConfigError(
            fmt::format("{}: unknown key \"{}\"{}", place(path_, key.source()), key.str(), where));
      }
    }
  }

  std::string text(const toml::node& node, std::string_view key) const {
    const auto value = node.value_exact<std::string>();
    if (!value) fail(node, fmt::format("\"{}\" is not a text", key));
    return *value;
  }

  static bool isDeviceName(const std::string& name) {
    const bool plain = std::all_of(name.begin(), name.end(), [](unsigned char c) {
      return c != '/' && c != ':' && c != '\0' && std::isspace(c) == 0;
    });
    return plain && !name.empty() && name.size() <= longestDeviceName && name != "." &&
           name != "..";
  }

  static bool isPortName(const std::string& name) {
    const auto isControl = [](unsigned char c) { return std::iscntrl(c) != 0; };
    return !name.empty() && name.size() <= longestPortName && !isNumber(name) &&
           std::none_of(name.begin(), name.end(), isControl);
  }

  // Whether a client would take the name for a port number: decimal, or hexadecimal behind "0x".
  static bool isNumber(std::string_view name) {
    const bool hexadecimal = name.starts_with("0x") || name.starts_with("0X");
    if (hexadecimal) name.remove_prefix(2);
    return std::all_of(name.begin(), name.end(), [&](unsigned char c) {
      return (hexadecimal ? std::isxdigit(c) : std::isdigit(c)) != 0;
    });
  }

  void readPorts(const toml::node& node, Config& config) const {
    const toml::array* ports = node.as_array();
    if (ports == nullptr) fail(node, "ports are written as [[port]]");
    for (const toml::node& element : *ports) {
      const toml::table* port = element.as_table();
      if (port == nullptr) fail(element, "ports are written as [[port]]");
      readPort(*port, config);
    }
  }

  void readPort(const toml::table& port, Config& config) const {
    checkKeys(port, " in [[port]]", {"number", "name"});
    const toml::node* numberNode = port.get("number");
    const toml::node* nameNode = port.get("name");
    if (numberNode == nullptr) fail(port, "[[port]] without \"number\"");
    if (nameNode == nullptr) fail(port, "[[port]] without \"name\"");

    const auto number = numberNode->value_exact<std::int64_t>();
    if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max()) {
      fail(*numberNode, "\"number\" is not a whole number from 0 to 4294967295");
    }
    std::string name = text(*nameNode, "name");
    if (!isPortName(name)) {
      fail(*nameNode, "\"name\" is not 1 to 64 bytes without control characters, or is a number");
    }
    for (const auto& [otherNumber, otherName] : config.ports) {
      if (otherNumber == *number) fail(*numberNode, fmt::format("port {} is there twice", *number));
      if (otherName == name) fail(*nameNode, fmt::format("the name \"{}\" is there twice", name));
    }
    config.ports.emplace(static_cast<std::uint32_t>(*number), std::move(name));
  }

  const std::string& path_;
};

}  // namespace

Config readConfig(const std::string& path) { return Reader(path).read(); }
