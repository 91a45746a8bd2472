#pragma once

#include <initializer_list>
#include <string_view>

#include "cli/command.h"
#include "cli/refusal.h"

namespace cli {

/// To those who ask for counters of a protocol or a profile, which the module never has.
inline constexpr std::string_view countersElsewhere =
    "the module never has counters of protocols and profiles; read those of ports and VLANs with "
    "\"l2cpctl port statistics\" and \"l2cpctl vlan statistics\"";

/// Shows the counters, or throws Refused with what `meanings` says about the error in them.
void showStatistics(Context& context, const rpc_l2cp_counters& counters,
                    std::initializer_list<Meaning> meanings = {});

}  // namespace cli
