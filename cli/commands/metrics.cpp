#include <fmt/format.h>

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/command.h"
#include "cli/commands/livePorts.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

using Labels = std::vector<std::pair<std::string_view, std::string>>;

// A label's value between its quotation marks. What could harm a terminal is "\xNN", as everywhere.
std::string labelText(std::string_view value) {
  std::string text;
  while (true) {
    const std::size_t end = value.find('\n');
    for (const char c : safeText(unicodeText(value.substr(0, end)))) {
      if (c == '\\' || c == '"') text += '\\';
      text += c;
    }
    if (end == std::string_view::npos) return text;
    text += "\\n";
    value.remove_prefix(end + 1);
  }
}

// The text exposition format of Prometheus, version 0.0.4.
class Exposition {
 public:
  void family(std::string_view name, std::string_view type, std::string_view help) {
    name_ = name;
    lines_.push_back(fmt::format("# HELP {} {}", name, help));
    lines_.push_back(fmt::format("# TYPE {} {}", name, type));
  }

  void sample(const Labels& labels, std::int64_t value) {
    std::string text;
    for (const auto& [label, of] : labels) {
      text += fmt::format("{}{}=\"{}\"", text.empty() ? "" : ",", label, labelText(of));
    }
    lines_.push_back(text.empty() ? fmt::format("{} {}", name_, value)
                                  : fmt::format("{}{{{}}} {}", name_, text, value));
  }

  const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::string_view name_;
  std::vector<std::string> lines_;
};

class Gatherer {
 public:
  explicit Gatherer(Client& client) : client_(client) {}

  std::vector<std::string> lines() {
    daemon();
    attachments();
    frames();
    catalogue();
    profiles();
    return out_.lines();
  }

 private:
  void daemon() {
    const auto status = client_.control<control_status_1>();
    out_.family("l2cpd_info", "gauge", "The daemon: 1 with its release, bridge and classifier.");
    out_.sample({{"release", status->release},
                 {"bridge", status->bridge},
                 {"classifier", status->classifier}},
                1);
    out_.family("l2cpd_uptime_seconds", "gauge", "How long the daemon has been running.");
    out_.sample({}, status->uptime);
    out_.family("l2cpd_entity_running", "gauge", "Whether an entity of the daemon is running.");
    for (const auto& entity :
         std::span(status->entities.entities_val, status->entities.entities_len)) {
      out_.sample({{"entity", entity.name}}, entity.running != FALSE ? 1 : 0);
    }
    for (const auto& port : std::span(status->ports.ports_val, status->ports.ports_len)) {
      names_.emplace(port.number, port.name);
    }
  }

  void attachments() {
    const auto result = client_.control<control_attachments_1>();
    for (const auto& at : std::span(result->list.list_val, result->list.list_len)) {
      ports_[at.port] += 1;
      vids_.insert(static_cast<std::uint16_t>(at.vid));
    }
    out_.family("l2cp_port_attachments", "gauge", "Profiles in force on a port and its VLANs.");
    for (const auto& [port, count] : ports_) out_.sample(portLabels(port), count);

    out_.family("l2cp_port_entries", "gauge",
                "Entries of a port in the classifier, the catch-all included, of at most 100.");
    for (const auto& [port, count] : ports_) {
      const auto entries = client_.control<control_entries_1>(port);
      out_.sample(portLabels(port), entries->list.list_len);
      unplaced_[port] = entries->unplaced.unplaced_len;
    }
    out_.family("l2cp_port_rules_not_in_force", "gauge",
                "Rules of attached profiles for which the port had no entry left.");
    for (const auto& [port, count] : unplaced_) out_.sample(portLabels(port), count);
    interfaces();
  }

  // Also of ports to which nothing is attached yet.
  void interfaces() {
    const LivePorts live(client_);
    if (!live.areThere()) return;
    std::set<std::uint32_t> ports;
    for (const auto& [port, problem] : live.problems()) ports.insert(port);
    for (const auto& [port, count] : ports_) ports.insert(port);
    out_.family("l2cp_port_live", "gauge",
                "Whether the kernel decides about the frames that arrive on a port's interface.");
    for (const std::uint32_t port : ports) out_.sample(portLabels(port), live.isLive(port) ? 1 : 0);
  }

  Labels portLabels(std::uint32_t port) const {
    const auto name = names_.find(port);
    Labels labels{{"port", std::to_string(port)}};
    if (name != names_.end()) labels.emplace_back("name", name->second);
    return labels;
  }

  void frames() {
    out_.family("l2cp_port_frames_total", "counter",
                "Frames of a port by the rule that they met. Wraps at 4294967296.");
    for (const auto& [port, count] : ports_) {
      addFrames(portLabels(port), *client_.module<rpc_l2cp_port_stat_1>(port));
    }
    out_.family(
        "l2cp_vlan_frames_total", "counter",
        "Frames of all ports by the VLAN of the attachment and the rule that they met. Wraps "
        "at 4294967296.");
    for (const std::uint16_t vid : vids_) {
      addFrames({{"vlan", vlanText(vid)}}, *client_.module<rpc_l2cp_vlan_stat_1>(vid));
    }
  }

  void addFrames(Labels labels, const rpc_l2cp_counters& counters) {
    // What was detached just now may never have had any.
    if (counters.error == RPC_L2CP_ERR_NO_COUNTERS) return;
    accept(counters.error);
    const std::pair<const char*, std::uint32_t> rules[] = {
        {"discard", counters.discard}, {"peer", counters.peer}, {"tunnel", counters.tunnel}};
    labels.emplace_back("rule", "");
    for (const auto& [rule, count] : rules) {
      labels.back().second = rule;
      out_.sample(labels, count);
    }
  }

  void catalogue() {
    const auto protocols = client_.module<rpc_l2cp_proto_get_all_1>();
    accept(protocols->error);
    out_.family("l2cp_protocol_rules", "gauge", "Rules of profiles that refer to a protocol.");
    for (const auto& protocol : std::span(protocols->list.list_val, protocols->list.list_len)) {
      out_.sample({{"protocol", protocol.name}}, protocol.use_count);
    }
  }

  void profiles() {
    const auto profiles = client_.module<rpc_l2cp_profile_get_all_1>();
    accept(profiles->error);
    out_.family("l2cp_profile_attachments", "gauge",
                "Ports and VLANs where a profile is in force.");
    for (const auto& profile : std::span(profiles->list.list_val, profiles->list.list_len)) {
      out_.sample({{"profile", profile.name}}, profile.use_count);
    }
  }

  Client& client_;
  Exposition out_;
  std::map<std::uint32_t, std::string> names_;
  std::map<std::uint32_t, std::int64_t> ports_;
  std::map<std::uint32_t, std::int64_t> unplaced_;
  std::set<std::uint16_t> vids_;
};

void metrics(Context& context) {
  context.words.end();
  const std::vector<std::string> lines = Gatherer(context.client).lines();
  context.output.lines(lines);
}

constexpr Command commands[] = {
    {"metrics", "", "Shows counters and states in the text format of Prometheus.",
     "Everything or, if something goes wrong, nothing and an exit status other than 0: fit for "
     "the\n"
     "textfile collector of its node exporter, which wants the file replaced in one step.",
     "l2cpctl metrics", metrics}};

}  // namespace

constinit const Noun metricsNoun{"metrics", "Counters and states for Prometheus", commands};

}  // namespace cli
