#include "cli/commands/livePorts.h"

#include <fmt/format.h>

#include <span>

#include "cli/value.h"

namespace cli {

bool isLive(std::string_view state) { return state == "native" || state == "generic"; }

LivePorts::LivePorts(Client& client)
    : areThere_(std::string_view(client.control<control_status_1>()->classifier) == "xdp") {
  const auto live = client.control<control_live_ports_1>();
  for (const auto& port : std::span(live->list.list_val, live->list.list_len)) {
    problems_[port.number] =
        cli::isLive(port.state)
            ? ""
            : fmt::format("{}: {}", nameText(port.interface), safeText(port.state));
  }
}

std::string LivePorts::problem(std::uint32_t port) const {
  const auto found = problems_.find(port);
  return found == problems_.end() ? "the port has no interface" : found->second;
}

}  // namespace cli
