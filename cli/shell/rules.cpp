#include "cli/shell/rules.h"

#include <algorithm>
#include <set>

#include "cli/value.h"

namespace cli {

bool sameProtocols(const Rules& one, const Rules& other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](const auto& a, const auto& b) { return a.first == b.first; });
}

std::vector<script::Command> changes(const std::string& profile, const Rules& before,
                                     const Rules& after) {
  std::vector<script::Command> commands;
  for (const auto& [protocol, rule] : before) {
    if (!after.contains(protocol)) commands.emplace_back(script::NoEntry{profile, protocol});
  }
  for (const auto& [protocol, rule] : after) {
    const auto old = before.find(protocol);
    if (old == before.end() || old->second != rule) {
      commands.emplace_back(script::Entry{profile, protocol, rule});
    }
  }
  return commands;
}

std::vector<std::string> differences(const Rules& before, const Rules& after) {
  std::vector<std::string> lines;
  const auto add = [&](char mark, const std::string& protocol, script::Rule rule) {
    lines.push_back(safeText(mark + script::text(script::Entry{{}, protocol, rule}).substr(1)));
  };
  std::set<std::string> protocols;
  for (const auto& [protocol, rule] : before) protocols.insert(protocol);
  for (const auto& [protocol, rule] : after) protocols.insert(protocol);
  for (const std::string& protocol : protocols) {
    const auto old = before.find(protocol);
    const auto now = after.find(protocol);
    const bool same = old != before.end() && now != after.end() && old->second == now->second;
    if (same) {
      add(' ', protocol, now->second);
      continue;
    }
    if (old != before.end()) add('-', protocol, old->second);
    if (now != after.end()) add('+', protocol, now->second);
  }
  return lines;
}

}  // namespace cli
