#pragma once

/// Where an L2CP profile is in force, and through what.

#include <cstdint>
#include <string>
#include <vector>

#include "cli/client.h"
#include "script/script.h"

namespace cli {

struct Placement {
  /// A service profile that names the profile.
  struct Service {
    std::string name;
    std::vector<std::int32_t> interfaces;  ///< where it is applied
    std::vector<script::Attach> attached;  ///< what that should have attached
    bool operator==(const Service&) const = default;
  };
  std::vector<Service> services;
  std::vector<script::Attach> direct;  ///< through no service profile, in the ports' order
  /// What service profiles should have attached, but somebody has detached.
  std::vector<script::Attach> lost;
  bool operator==(const Placement&) const = default;
};

/// Throws Refused for a profile that does not exist, and NotReached.
Placement placementOf(std::string profile, Client& client);

/// What makes the profile be in force where it was `before`, as far as it is not so `now`.
std::vector<script::Command> toRestore(const std::string& profile, const Placement& before,
                                       const Placement& now);

}  // namespace cli
