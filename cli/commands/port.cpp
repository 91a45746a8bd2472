#include <algorithm>
#include <map>
#include <tuple>
#include <vector>

#include "cli/command.h"
#include "cli/commands/profile.h"
#include "cli/commands/statistics.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

std::uint32_t onlyPort(Context& context) {
  const std::string port = context.words.take("PORT");
  context.words.end();
  return portNumber(port, context.client);
}

struct Attachment {
  std::uint32_t port;
  std::uint16_t vid;
  std::string profile;
  std::string portName;

  bool operator<(const Attachment& other) const {
    return std::tie(port, vid, profile) < std::tie(other.port, other.vid, other.profile);
  }
};
constexpr Field<Attachment> attachmentFields[] = {
    {{"port", Align::right}, [](const Attachment& of) { return numberValue(of.port); }},
    {{"name"}, [](const Attachment& of) { return nameOrNothing(of.portName); }},
    {{"vlan", Align::right}, [](const Attachment& of) { return vlanValue(of.vid); }},
    {{"profile"}, [](const Attachment& of) { return nameValue(of.profile); }}};
constexpr Kind<Attachment> attachmentKind{"attachment", "attachments", attachmentFields};

using Link = rpc_l2cp_profile_link;
constexpr Field<Link> linkFields[] = {
    {{"vlan", Align::right}, [](const Link& of) { return vlanValue(of.vid); }},
    {{"profile"}, [](const Link& of) { return nameValue(of.profile_name); }}};
constexpr Kind<Link> linkKind{"attachment", "attachments", linkFields};

void list(Context& context) {
  context.words.end();
  const auto profiles = context.client.module<rpc_l2cp_profile_get_all_1>();
  accept(profiles->error);
  const auto status = context.client.control<control_status_1>();
  std::map<std::uint32_t, std::string> names;
  for (const control_port& port : std::span(status->ports.ports_val, status->ports.ports_len)) {
    names.emplace(port.number, port.name);
  }
  std::vector<Attachment> attachments;
  for (const auto& profile : std::span(profiles->list.list_val, profiles->list.list_len)) {
    const auto places = context.client.module<rpc_l2cp_profile_get_ports_1>(profile.name);
    // One that was deleted in the meantime is attached nowhere.
    if (places->error == RPC_L2CP_ERR_PROFILE_NOT_FOUND) continue;
    accept(places->error);
    for (const auto& [port, vid] : std::span(places->list.list_val, places->list.list_len)) {
      attachments.push_back({port, vid, profile.name, names[port]});
    }
  }
  std::sort(attachments.begin(), attachments.end());
  context.output.list(tableOf(attachmentKind, attachments));
}

void show(Context& context) {
  const std::uint32_t port = onlyPort(context);
  Table attachments = tableOf(linkKind, std::span<const Link>());
  for (u_int index = 0;; ++index) {
    const auto link = context.client.module<rpc_l2cp_profile_port_get_1>(port, index);
    // The first is a port without attachments, the second the end of a port's list.
    if (link->error == RPC_L2CP_ERR_PROFILE_NOT_FOUND) break;
    if (link->error == RPC_L2CP_ERR_NO_SUCH_LINK) break;
    accept(link->error);
    attachments.rows.push_back(rowOf(linkKind, *link));
  }
  context.output.list(attachments);
}

void profiles(Context& context) {
  const std::uint32_t port = onlyPort(context);
  const auto all = context.client.module<rpc_l2cp_profile_port_get_all_1>(port);
  accept(all->error);
  context.output.list(profileTable(std::span(all->list.list_val, all->list.list_len)));
}

void statistics(Context& context) {
  const std::uint32_t port = onlyPort(context);
  const auto counters = context.client.module<rpc_l2cp_port_stat_1>(port);
  accept(counters->error,
         {{RPC_L2CP_ERR_NO_COUNTERS,
           "the port has no counters yet; they come into being when a profile is attached to it "
           "with \"l2cpctl attach\""}});
  showStatistics(context, "port", numberValue(port), *counters);
}

constexpr Command commands[] = {
    {"port list", "", "Lists what is attached to all ports: ports ascending, then VLANs.",
     "NAME is the port's name in the daemon's configuration; VLAN \"all\" stands for the whole "
     "port.",
     "l2cpctl port list", list},
    {"port show", "PORT", "Lists the profiles that are attached to a port, VLANs ascending.",
     "VLAN \"all\" stands for the whole port. PORT is a number, or a name from the daemon's\n"
     "configuration (\"l2cpctl daemon status\" lists them).",
     "l2cpctl port show uplink", show},
    {"port profiles", "PORT", "Lists the profiles that are attached to a port, each once.",
     "ATTACHMENTS counts all places where a profile is in force, on this port and others.",
     "l2cpctl port profiles uplink", profiles},
    {"port statistics", "PORT", "Shows how many frames of a port met which rule.",
     "A frame counts for its rule at its port and at the VLAN of the attachment. Counters begin\n"
     "with the first attachment, outlive it, and wrap at 4294967296.",
     "l2cpctl port statistics 3", statistics}};

}  // namespace

constinit const Noun portNoun{"port", "Ports: what is attached, and counters", commands};

}  // namespace cli
