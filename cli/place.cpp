#include "cli/place.h"

#include <fmt/format.h>

#include <limits>
#include <span>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

std::uint32_t numberOf(const std::string& port, std::string_view what, std::uint32_t highest,
                       Client& client) {
  if (port.empty()) throw UsageError(fmt::format("the {} is empty", what));
  if (isNumber(port)) return parseNumber(port, what, 0, highest);
  const auto status = client.control<control_status_1>();
  std::string known;
  for (const control_port& named : std::span(status->ports.ports_val, status->ports.ports_len)) {
    if (port == named.name) {
      return parseNumber(std::to_string(named.number), what, 0, highest);
    }
    known += (known.empty() ? "" : ", ") + nameText(named.name);
  }
  throw LocalError(fmt::format("the daemon's configuration has no port {}; {}", quotedText(port),
                               known.empty() ? "it names no ports at all" : "it has: " + known));
}

std::uint16_t vlanUpTo(std::uint16_t highest, Words& words) {
  const std::string word = words.take("VID");
  if (word == vlanText(wholePort)) return wholePort;
  try {
    return static_cast<std::uint16_t>(parseNumber(word, "vlan", 0, highest));
  } catch (const UsageError& error) {
    throw UsageError(fmt::format("{}, nor \"all\"", error.what()));
  }
}

}  // namespace

std::uint32_t portNumber(const std::string& port, Client& client) {
  return numberOf(port, "port", std::numeric_limits<std::uint32_t>::max(), client);
}

std::int32_t interfaceNumber(const std::string& interface, Client& client) {
  return static_cast<std::int32_t>(
      numberOf(interface, "interface", std::numeric_limits<std::int32_t>::max(), client));
}

std::uint16_t takeVlan(Words& words) { return vlanUpTo(wholePort, words); }

std::uint16_t takeAnyVlan(Words& words) {
  return vlanUpTo(std::numeric_limits<std::uint16_t>::max(), words);
}

std::uint32_t takePosition(Words& words) {
  return parseNumber(words.take("N"), "position", 0, std::numeric_limits<std::uint32_t>::max());
}

}  // namespace cli
