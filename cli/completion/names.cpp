#include "cli/completion/names.h"

#include <algorithm>
#include <chrono>
#include <span>

#include "cli/failure.h"
#include "cli/refusal.h"

namespace cli {

namespace {

std::vector<std::string> namesFrom(const auto* things, std::size_t count) {
  std::vector<std::string> names;
  for (const auto& thing : std::span(things, count)) names.emplace_back(thing.name);
  return names;
}

std::vector<std::string> ask(NameKind kind, Client& client) {
  switch (kind) {
    case NameKind::none:
      return {};
    case NameKind::protocol: {
      const auto all = client.module<rpc_l2cp_proto_get_all_1>();
      return namesFrom(all->list.list_val, all->list.list_len);
    }
    case NameKind::profile: {
      const auto all = client.module<rpc_l2cp_profile_get_all_1>();
      return namesFrom(all->list.list_val, all->list.list_len);
    }
    case NameKind::serviceProfile: {
      const auto all = client.control<control_service_profile_list_1>();
      return namesFrom(all->list.list_val, all->list.list_len);
    }
    case NameKind::vlanProfile: {
      const auto all = client.control<control_vlan_profile_list_1>();
      return namesFrom(all->list.list_val, all->list.list_len);
    }
    case NameKind::port: {
      const auto status = client.control<control_status_1>();
      return namesFrom(status->ports.ports_val, status->ports.ports_len);
    }
  }
  return {};
}

}  // namespace

Server withoutPatience(Server server) {
  server.timeout = std::min(server.timeout, std::chrono::seconds(1));
  server.wait = {};
  return server;
}

std::vector<std::string> LiveNames::of(NameKind kind) {
  try {
    return ask(kind, client_);
  } catch (const NotReached&) {
    return {};
  }
}

}  // namespace cli
