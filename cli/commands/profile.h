#pragma once

#include <span>

#include "cli/answer.h"

namespace cli {

/// What there is to show of profiles.
Table profileTable(std::span<const rpc_l2cp_profile> profiles);

}  // namespace cli
