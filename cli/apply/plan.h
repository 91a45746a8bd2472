#pragma once

/// From one configuration to another: what differs, and the commands that make the difference in an
/// order that the daemon takes.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "cli/apply/state.h"
#include "script/script.h"

namespace cli {

/// An attachment that stays but for a moment.
struct Reattachment {
  std::uint32_t port = 0;
  Attachment attachment;
  bool operator==(const Reattachment&) const = default;
};

struct Plan {
  /// To be carried out in this order. Commands of a mode stand between those that enter and leave
  /// it.
  std::vector<script::Command> commands;
  /// Profiles that are in force while their mode is entered: to be changed by an editing cycle,
  /// whose copy takes their place when the mode is left.
  std::set<std::string> edited;
  std::vector<Reattachment> interruptions;  ///< by ascending port
};

/// The least that leads from one state to another. What is in force and stays is not touched unless
/// the module refuses to change what it is made of, or would put what is new in front of what it
/// shall stand behind: new entries of a port go to its first free positions. `portsWithGaps` are
/// those on which such positions lie in front of others.
Plan planFor(const State& current, const State& wanted,
             const std::set<std::uint32_t>& portsWithGaps = {});

/// The lines that say the plan's commands, with a comment where a profile is edited, instead of
/// what no script can say, and at the end for each interruption.
std::vector<std::string> textOf(const Plan& plan);

}  // namespace cli
