#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "cli/apply/state.h"
#include "cli/client.h"

namespace cli {

/// What a daemon's configuration is, and what is to be known for changing it. Dynamic profiles are
/// none of it, and neither are the copies that are being edited; they stay as they are.
struct DaemonState {
  State state;
  /// The protocols that a script need not name: what the running configuration leaves out.
  std::set<std::string> builtIn;
  std::set<std::string> protectedProtocols;
  std::set<std::string> protectedProfiles;
  std::set<std::string> dynamicProfiles;
  std::map<std::string, std::uint32_t> uses;  ///< of protocols, as the module counts them
  std::set<std::uint32_t> portsWithGaps;
};

/// Asks the daemon. Also what the running configuration cannot say is found: names that no script
/// can hold, profiles without rules, and where these are in force.
DaemonState daemonState(Client& client);

}  // namespace cli
