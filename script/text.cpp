#include <fmt/core.h>

#include <algorithm>
#include <string_view>

#include "script/script.h"

namespace script {

namespace {

std::string_view ruleText(Rule rule) {
  switch (rule) {
    case Rule::discard:
      return "discard";
    case Rule::peer:
      return "peer";
    case Rule::tunnel:
      return "tunnel";
  }
  return "unknown";
}

std::string macText(const Mac& mac) {
  if (mac == Mac{}) return "any";
  return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3],
                     mac[4], mac[5]);
}

std::string vlanText(std::uint16_t vid) {
  return vid == wholePort ? "" : fmt::format(" vlan {}", vid);
}

struct Writer {
  std::string operator()(const Nothing& /*command*/) const { return ""; }
  std::string operator()(const Exit& /*command*/) const { return "exit"; }
  std::string operator()(const Protocol& command) const {
    std::string line = fmt::format("l2protocol \"{}\" mac {}", command.name, macText(command.mac));
    if (command.etherType == noEtherType) return line;
    line += fmt::format(" ethertype 0x{:04x}", command.etherType);
    if (command.subType != noSubType) line += fmt::format(" subtype 0x{:02x}", command.subType);
    return line;
  }
  std::string operator()(const NoProtocol& command) const {
    return fmt::format("no l2protocol \"{}\"", command.name);
  }
  std::string operator()(const L2cpProfile& command) const {
    return "l2cp-profile " + nameText(command.name);
  }
  std::string operator()(const NoL2cpProfile& command) const {
    return "no l2cp-profile " + nameText(command.name);
  }
  std::string operator()(const Entry& command) const {
    return fmt::format(" protocol \"{}\" rule {}", command.protocol, ruleText(command.rule));
  }
  std::string operator()(const NoEntry& command) const {
    return fmt::format(" no protocol \"{}\"", command.protocol);
  }
  std::string operator()(const VlanProfile& command) const {
    return "vlan-profile " + nameText(command.name);
  }
  std::string operator()(const NoVlanProfile& command) const {
    return "no vlan-profile " + nameText(command.name);
  }
  std::string operator()(const Svid& command) const {
    return fmt::format(" interface {} svid {}", command.interface, command.vid);
  }
  std::string operator()(const NoSvid& command) const {
    return fmt::format(" no interface {}", command.interface);
  }
  std::string operator()(const ServiceProfile& command) const {
    return "service-profile " + nameText(command.name);
  }
  std::string operator()(const NoServiceProfile& command) const {
    return "no service-profile " + nameText(command.name);
  }
  std::string operator()(const ServiceVlanProfile& command) const {
    if (command.vlanProfile.empty()) return " no vlan-profile";
    return " vlan-profile " + nameText(command.vlanProfile);
  }
  std::string operator()(const ServiceL2cpProfile& command) const {
    if (command.l2cpProfile.empty()) return " no l2cp-profile";
    return " l2cp-profile " + nameText(command.l2cpProfile);
  }
  std::string operator()(const Attach& command) const {
    return fmt::format("attach {} port {}{}", nameText(command.profile), command.port,
                       vlanText(command.vid));
  }
  std::string operator()(const NoAttach& command) const {
    return fmt::format("no attach {} port {}{}", nameText(command.profile), command.port,
                       vlanText(command.vid));
  }
  std::string operator()(const Apply& command) const {
    return fmt::format("apply {} interface {}", nameText(command.serviceProfile),
                       command.interface);
  }
  std::string operator()(const NoApply& command) const {
    return fmt::format("no apply {} interface {}", nameText(command.serviceProfile),
                       command.interface);
  }
};

}  // namespace

std::string nameText(std::string_view name) {
  const bool plain =
      !name.empty() && name.front() != '"' && name.find_first_of(" \t") == std::string_view::npos;
  return plain ? std::string(name) : fmt::format("\"{}\"", name);
}

bool isWritable(std::string_view name) {
  try {
    const std::vector<std::string> words = split(nameText(name));
    return words.size() == 1 && words.front() == name;
  } catch (const Problem&) {
    return false;
  }
}

std::string comment(std::string_view text) {
  std::string safe;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      safe += fmt::format("\\x{:02x}", byte);
    } else {
      safe += c;
    }
  }
  return safe;
}

std::string leftOut(std::string_view reason, std::string_view line) {
  return comment(fmt::format("! left out ({}): {}", reason, line));
}

std::string text(const Command& command) { return std::visit(Writer{}, command); }

std::string LineWriter::line(const Command& command) {
  std::string line = text(command);
  const bool isInner = line.starts_with(' ');
  const std::string problem = skipping_ ? "its mode cannot be entered" : problemOf(command, line);
  if (entersMode(command)) skipping_ = !problem.empty();
  if (std::holds_alternative<Exit>(command)) skipping_ = false;
  if (problem.empty()) return line;
  return (isInner ? " " : "") + leftOut(problem, isInner ? line.substr(1) : line);
}

std::string LineWriter::problemOf(const Command& command, const std::string& line) {
  Command wanted = command;
  // A subtype without an EtherType is not matched, and not written.
  if (auto* const protocol = std::get_if<Protocol>(&wanted)) {
    if (protocol->etherType == noEtherType) protocol->subType = noSubType;
  }
  const Reader before = reader_;
  try {
    if (reader_.read(line) == wanted) return {};
  } catch (const Problem& problem) {
    return problem.what();
  }
  reader_ = before;
  return "it would say something else";
}

}  // namespace script
