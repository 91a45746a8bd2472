#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

/// What l2cpd reads from its configuration file.
struct Config {
  std::string bridge = "br0";
  /// Names for port numbers.
  std::map<std::uint32_t, std::string> ports;
  /// The script that is replayed at the start and written by saving; empty: none.
  std::string startup;
};

/// A configuration file that cannot be used. The text names the file and, where there is one, the
/// line, and says what is wrong.
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a TOML file:
///
///     bridge = "br0"        # 1 to 15 bytes, no "/", ":" and white space, as for any Linux device
///
///     [[port]]
///     number = 3            # 0 to 4294967295, once
///     name = "uplink"       # 1 to 64 bytes without control characters, once, no number
///
/// Everything may be left out. Throws ConfigError, also for keys that it does not know.
Config readConfig(const std::string& path);
