#include "cli/place.h"

#include <fmt/format.h>

#include <limits>
#include <span>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

std::uint32_t portNumber(const std::string& port, Client& client) {
  if (port.empty()) throw UsageError("the port is empty");
  if (isNumber(port)) {
    return parseNumber(port, "port", 0, std::numeric_limits<std::uint32_t>::max());
  }
  const auto status = client.control<control_status_1>();
  std::string known;
  for (const control_port& named : std::span(status->ports.ports_val, status->ports.ports_len)) {
    if (port == named.name) return named.number;
    known += (known.empty() ? "" : ", ") + nameText(named.name);
  }
  throw LocalError(fmt::format("the daemon's configuration has no port {}; {}", quotedText(port),
                               known.empty() ? "it names no ports at all" : "it has: " + known));
}

std::uint16_t takeVlan(Words& words) {
  return static_cast<std::uint16_t>(parseNumber(words.take("VID"), "vlan", 0, wholePort));
}

}  // namespace cli
