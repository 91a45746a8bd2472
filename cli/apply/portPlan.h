#pragma once

/// What becomes of the attachments of one port on the way from one state to another.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "cli/apply/state.h"
#include "script/script.h"

namespace cli {

/// What cannot stay in force, because it is made of something else before and behind.
struct Changes {
  std::set<std::string> services;
  std::set<std::string> profiles;
  std::set<std::string> edited;  ///< replaced in force, by a request of its own
};

struct PortPlan {
  std::vector<script::Command> detaching;  ///< before anything else is changed
  std::vector<script::Command> attaching;  ///< after everything else
  std::vector<Attachment> interrupted;     ///< attached before and behind, but not throughout
  std::set<std::string> edited;            ///< profiles that are in force when they are edited
};

PortPlan planPort(const State& current, const State& wanted, std::uint32_t port,
                  const Changes& changes, bool hasGaps);

/// The service profiles that are applied on the interface of a port's number and attach this there.
std::vector<std::string> applicationsOf(const State& state, const Attachment& attachment,
                                        std::uint32_t port);

}  // namespace cli
