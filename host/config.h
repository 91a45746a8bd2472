#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

/// What l2cpd reads from its configuration file; what it has before it has read any.
struct Config {
  struct Port {
    std::string name;            ///< the interface's unless the file says otherwise
    std::string interface = {};  ///< a device; empty for none
    std::set<int> vlans = {};    ///< of tagged frames; empty for every one
    int nativeVlan = 1;          ///< of untagged frames

    bool operator==(const Port&) const = default;
  };

  /// Names of the profiles that make up a service; an empty one for none.
  struct ServiceProfile {
    std::string vlanProfile = {};
    std::string l2cpProfile = {};

    bool operator==(const ServiceProfile&) const = default;
  };

  /// How the classifier "xdp" has its programs on interfaces.
  struct Xdp {
    std::string mode = "auto";
    bool replace = false;  ///< programs of others
    bool keep = false;     ///< ours, while no daemon runs

    bool operator==(const Xdp&) const = default;
  };

  Config();
  bool operator==(const Config&) const = default;

  std::string bridge = "br0";
  std::string classifier = "software";
  Xdp xdp;
  /// Path of the script that is replayed at the start and written by saving; empty for none.
  std::string startup;
  /// Whether nothing of a script is carried out that has a line with a problem.
  bool strictStartup = false;
  /// Path of the lock file; empty for none.
  std::string lock;
  /// Whether the file names them. They need not be usable if it does not.
  bool isStartupChosen = false;
  bool isLockChosen = false;
  std::map<std::uint32_t, Port> ports;
  /// S-VIDs by port, by the name of the VLAN profile.
  std::map<std::string, std::map<int, int>> vlanProfiles;
  std::map<std::string, ServiceProfile> serviceProfiles;
};

/// A configuration file that cannot be used. The text is one line: it names the file and, where
/// there is one, the line, and says what is wrong.
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a TOML file as packaging/l2cpd.toml shows one. Everything may be left out. Throws
/// ConfigError, also for keys that it does not know, for what is there twice and for VLAN profiles
/// that are named and not there.
Config readConfig(const std::string& path);

/// The file that is read: `named`, or if that is empty the one that is installed; empty if there is
/// none.
std::string configFile(const std::string& named);
