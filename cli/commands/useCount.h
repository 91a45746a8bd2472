#pragma once

#include <cstdint>
#include <optional>

#include "cli/commands/finding.h"
#include "rpc/l2cp.h"

namespace cli {

/// What is wrong with how many rules a protocol counts, when so many name it. While a profile is
/// being edited too few are no fault: editing moves counts, and puts them right when it ends.
std::optional<Finding> aboutCount(const rpc_l2cp_proto& protocol, std::int64_t uses, bool isEdited);

}  // namespace cli
