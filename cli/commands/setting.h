#pragma once

/// Settings that are written as a keyword.

#include "cli/words.h"
#include "rpc/l2cp.h"

namespace cli {

/// Takes "on" or "off".
bool takeSwitch(Words& words);

/// Takes "discard", "peer" or "tunnel".
rpc_l2cp_rule takeRule(Words& words);

}  // namespace cli
