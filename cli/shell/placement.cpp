#include "cli/shell/placement.h"

#include <algorithm>
#include <map>
#include <set>
#include <span>
#include <utility>

#include "cli/refusal.h"

namespace cli {

namespace {

using Point = std::pair<std::uint32_t, std::uint16_t>;
using Svids = std::map<std::pair<std::string, std::int32_t>, std::int32_t>;

Svids svidsOf(Client& client) {
  Svids svids;
  const auto all = client.control<control_vlan_profile_list_1>();
  for (const auto& profile : std::span(all->list.list_val, all->list.list_len)) {
    for (const control_svid& each : std::span(profile.svids.svids_val, profile.svids.svids_len)) {
      svids[{profile.name, each.intf}] = each.svid;
    }
  }
  return svids;
}

std::set<Point> pointsOf(std::string& profile, Client& client) {
  std::set<Point> points;
  const auto places = client.module<rpc_l2cp_profile_get_ports_1>(wireText(profile));
  accept(places->error);
  for (const auto& [port, vid] : std::span(places->list.list_val, places->list.list_len)) {
    points.emplace(port, vid);
  }
  return points;
}

std::vector<script::Attach> attachments(const std::string& profile, const std::set<Point>& points) {
  std::vector<script::Attach> commands;
  commands.reserve(points.size());
  for (const auto& [port, vid] : points) commands.push_back({profile, port, vid});
  return commands;
}

const Placement::Service* find(const Placement& placement, const std::string& name) {
  const auto found = std::find_if(placement.services.begin(), placement.services.end(),
                                  [&](const auto& service) { return service.name == name; });
  return found == placement.services.end() ? nullptr : &*found;
}

}  // namespace

Placement placementOf(std::string profile, Client& client) {
  Placement placement;
  std::set<Point> direct = pointsOf(profile, client);
  std::set<Point> lost;
  const auto services = client.control<control_service_profile_list_1>();
  const Svids svids = svidsOf(client);
  for (const auto& service : std::span(services->list.list_val, services->list.list_len)) {
    if (service.l2cp_profile != profile) continue;
    const std::span interfaces(service.interfaces.interfaces_val,
                               service.interfaces.interfaces_len);
    placement.services.push_back({service.name, {interfaces.begin(), interfaces.end()}, {}});
    for (const std::int32_t interface : interfaces) {
      const auto svid = svids.find({service.vlan_profile, interface});
      if (svid == svids.end()) continue;
      const Point point(static_cast<std::uint32_t>(interface),
                        static_cast<std::uint16_t>(svid->second));
      placement.services.back().attached.push_back({profile, point.first, point.second});
      if (direct.erase(point) == 0) lost.insert(point);
    }
  }
  placement.direct = attachments(profile, direct);
  placement.lost = attachments(profile, lost);
  return placement;
}

std::vector<script::Command> toRestore(const std::string& profile, const Placement& before,
                                       const Placement& now) {
  std::vector<script::Command> commands;
  for (const Placement::Service& service : before.services) {
    const Placement::Service* const there = find(now, service.name);
    if (there == nullptr) commands.emplace_back(script::ServiceL2cpProfile{service.name, profile});
    for (const std::int32_t interface : service.interfaces) {
      const bool applied =
          there != nullptr && std::find(there->interfaces.begin(), there->interfaces.end(),
                                        interface) != there->interfaces.end();
      if (!applied) commands.emplace_back(script::Apply{service.name, interface});
    }
  }
  for (const script::Attach& attach : before.direct) {
    if (std::find(now.direct.begin(), now.direct.end(), attach) == now.direct.end()) {
      commands.emplace_back(attach);
    }
  }
  return commands;
}

}  // namespace cli
