#include "cli/command.h"
#include "cli/commands/statistics.h"
#include "cli/place.h"
#include "cli/refusal.h"

namespace cli {

namespace {

void statistics(Context& context) {
  const std::uint16_t vid = takeVlan(context.words);
  context.words.end();
  const auto counters = context.client.module<rpc_l2cp_vlan_stat_1>(vid);
  accept(counters->error,
         {{RPC_L2CP_ERR_NO_COUNTERS,
           "the VLAN has no counters yet; they come into being when a profile is attached to it "
           "with \"l2cpctl attach\""}});
  showStatistics(context, "vlan", vlanValue(vid), *counters);
}

constexpr Command commands[] = {
    {"vlan statistics", "VID", "Shows how many frames of a VLAN met which rule, on all ports.",
     "Only attachments with this \"vlan\" count; those to whole ports are VLAN 4095, or \"all\".",
     "l2cpctl vlan statistics 100", statistics}};

}  // namespace

constinit const Noun vlanNoun{"vlan", "VLANs: counters", commands};

}  // namespace cli
