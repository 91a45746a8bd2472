#pragma once

/// What is in force but cannot be said by a script: dynamic profiles and copies that are being
/// edited. They stay as they are, and where they are, whatever a script says.

#include <cstdint>
#include <string>
#include <vector>

#include "cli/apply/daemonState.h"
#include "cli/apply/state.h"

namespace cli {

/// A service profile on an interface where one of these profiles is in force through it.
struct UnscriptedApplication {
  std::string service;
  std::int32_t interface = 0;
  std::string profile;
};

/// Adds to a wanted state what stays: these profiles, their attachments, each behind what it stands
/// behind now, and the applications of service profiles that attach them. Returns the applications
/// that cannot stay, because the wanted state has no such service profile, or one that attaches
/// something else.
std::vector<UnscriptedApplication> keepUnscripted(State& wanted, const DaemonState& daemon);

/// The state that leads back from one to an earlier one. What cannot be said by a script is where
/// it was before, and where it is now besides; what is not there any more does not come back.
State stateToReturnTo(const DaemonState& before, const DaemonState& now);

}  // namespace cli
