#include "cli/command.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/statistics.h"
#include "cli/value.h"

namespace cli {

namespace {

std::uint32_t onlyPort(Context& context) {
  const std::string port = context.words.take("PORT");
  context.words.end();
  return portNumber(port, context.client);
}

void show(Context& context) {
  const std::uint32_t port = onlyPort(context);
  std::vector<Row> rows;
  for (u_int index = 0;; ++index) {
    const auto link = context.client.module<rpc_l2cp_profile_port_get_1>(port, index);
    // The first is a port without attachments, the second the end of a port's list.
    if (link->error == RPC_L2CP_ERR_PROFILE_NOT_FOUND) break;
    if (link->error == RPC_L2CP_ERR_NO_SUCH_LINK) break;
    accept(link->error);
    rows.push_back({vlanText(link->vid), nameText(link->profile_name)});
  }
  context.output.table({{"VLAN", Column::Align::right}, {"PROFILE"}}, rows);
}

void statistics(Context& context) {
  const std::uint32_t port = onlyPort(context);
  showStatistics(context, *context.client.module<rpc_l2cp_port_stat_1>(port),
                 {{RPC_L2CP_ERR_NO_COUNTERS,
                   "the port has no counters yet; they come into being when a profile is attached "
                   "to it with \"l2cpctl attach\""}});
}

constexpr Command commands[] = {
    {"port show", "PORT", "Lists the profiles that are attached to a port, VLANs ascending.",
     "VLAN \"all\" stands for the whole port. PORT is a number, or a name from the daemon's\n"
     "configuration (\"l2cpctl daemon status\" lists them).",
     "l2cpctl port show uplink", show},
    {"port statistics", "PORT", "Shows how many frames of a port met which rule.",
     "A frame counts for its rule at its port and at the VLAN of the attachment. Counters begin\n"
     "with the first attachment, outlive it, and wrap at 4294967296.",
     "l2cpctl port statistics 3", statistics}};

}  // namespace

constinit const Noun portNoun{"port", "Ports: what is attached, and counters", commands};

}  // namespace cli
