#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "cli/apply/state.h"
#include "cli/client.h"

namespace cli {

/// What a daemon's configuration is, and what is to be known for changing it.
struct DaemonState {
  State state;
  /// Profiles that are part of the state, but of no script: dynamic ones, and copies that are being
  /// edited.
  std::set<std::string> unscripted;
  /// The protocols that a script need not name: what the running configuration leaves out.
  std::set<std::string> builtIn;
  std::set<std::string> protectedProtocols;
  std::set<std::string> protectedProfiles;    ///< but for those of no script
  std::map<std::string, std::uint32_t> uses;  ///< of protocols, as the module counts them
  std::set<std::uint32_t> portsWithGaps;
};

/// Asks the daemon. Also what the running configuration cannot say is found: names that no script
/// can hold, profiles without rules, and where these are in force.
DaemonState daemonState(Client& client);

}  // namespace cli
