#pragma once

#include <string_view>

#include "cli/command.h"

namespace cli {

/// To those who ask for counters of a protocol or a profile, which the module never has.
inline constexpr std::string_view countersElsewhere =
    "the module never has counters of protocols and profiles; read those of ports and VLANs with "
    "\"l2cpctl port statistics\" and \"l2cpctl vlan statistics\"";

/// Shows the counters of `whose`, which is of this kind.
void showStatistics(Context& context, std::string_view kind, Value whose,
                    const rpc_l2cp_counters& counters);

}  // namespace cli
