#pragma once

/// Profiles that are attached beside another one and share the classifier's objects with it. The
/// objects for a protocol are those of its VLAN on the port: they are made for the first profile
/// that has a rule for it there, and go with it.

#include <set>
#include <string>
#include <vector>

#include "cli/client.h"
#include "cli/shell/placement.h"
#include "script/script.h"

namespace cli {

/// An attachment of the profile or of a neighbour.
struct Seat {
  script::Attach attach;
  std::string service;    ///< the service profile that made it; empty if it is attached directly
  bool isShared = false;  ///< has to go when the profile goes
};
using Seats = std::vector<Seat>;

/// On the ports where the profile has neighbours, in the order in which frames meet them.
/// `protocols` are those for which the profile has rules, or will have. Throws Failure.
Seats seatsBeside(const std::string& profile, const Placement& placement,
                  const std::set<std::string>& protocols, Client& client);

script::Command toTake(const Seat& seat);
script::Command toPutBack(const Seat& seat);

}  // namespace cli
