#include "cli/apply/daemonState.h"

#include <algorithm>
#include <span>
#include <variant>
#include <vector>

#include "cli/apply/portPlan.h"
#include "cli/carry.h"
#include "cli/refusal.h"

namespace cli {

namespace {

script::Mac macOf(const rpc_l2cp_mac_t& wire) {
  const std::span bytes(wire.rpc_l2cp_mac_t_val, wire.rpc_l2cp_mac_t_len);
  script::Mac mac{};
  std::copy_n(bytes.begin(), std::min(bytes.size(), mac.size()), mac.begin());
  return mac;
}

/// A line of the running configuration.
struct Line {
  script::Command command;
  std::string leftOut;  ///< what would have stood there, if that could not be written
};

struct Lines {
  std::vector<Line> all;
  bool isComplete = true;  ///< nothing had to be left out
};

// What a comment has behind its reason.
std::string leftOutOf(std::string_view comment) {
  constexpr std::string_view end = "): ";
  const std::size_t found = comment.find(end);
  return found == std::string_view::npos ? "" : std::string(comment.substr(found + end.size()));
}

class Inquiry {
 public:
  explicit Inquiry(Client& client) : client_(client) {}

  DaemonState make() {
    const Lines lines = runningConfiguration(CONTROL_CONFIG_DIFFERENCES);
    askProtocols(lines);
    askL2cpProfiles(lines);
    askVlanProfiles();
    askServices();
    for (const Line& line : lines.all) takePlace(line.command);
    if (!hasAllAttachments()) takePlacesOfAll(lines);
    // Also what no line can say, because something in it cannot be written.
    state().applications = applications_;
    const auto gaps = client_.control<control_ports_with_gaps_1>();
    const std::span ports(gaps->list.list_val, gaps->list.list_len);
    result_.portsWithGaps = {ports.begin(), ports.end()};
    return std::move(result_);
  }

 private:
  Lines runningConfiguration(control_config_mode mode) {
    const auto config = client_.control<control_running_config_1>(mode);
    accept(config->error);
    Lines lines;
    script::Reader reader;
    for (const char* line : std::span(config->lines.lines_val, config->lines.lines_len)) {
      const std::string_view text = line;
      lines.all.push_back({reader.read(text), {}});
      if (std::holds_alternative<script::Nothing>(lines.all.back().command) && !text.empty()) {
        lines.all.back().leftOut = leftOutOf(text);
        lines.isComplete = false;
      }
    }
    return lines;
  }

  void askProtocols(const Lines& differences) {
    const auto all = client_.module<rpc_l2cp_proto_get_all_1>();
    accept(all->error);
    for (const rpc_l2cp_proto& proto : std::span(all->list.list_val, all->list.list_len)) {
      state().protocols[proto.name] = {macOf(proto.mac), proto.ether_type, proto.sub_type};
      result_.uses[proto.name] = proto.use_count;
      if (proto.protect != FALSE) result_.protectedProtocols.insert(proto.name);
    }
    for (const Line& line : runningConfiguration(CONTROL_CONFIG_ALL).all) {
      if (const auto* proto = std::get_if<script::Protocol>(&line.command)) {
        result_.builtIn.insert(proto->name);
      }
    }
    for (const Line& line : differences.all) {
      if (const auto* proto = std::get_if<script::Protocol>(&line.command)) {
        result_.builtIn.erase(proto->name);
      }
    }
  }

  void askL2cpProfiles(const Lines& lines) {
    std::map<std::string, Rules> written;
    for (const Line& line : lines.all) {
      if (const auto* profile = std::get_if<script::L2cpProfile>(&line.command)) {
        written[profile->name];
      } else if (const auto* entry = std::get_if<script::Entry>(&line.command)) {
        written[entry->profile][entry->protocol] = entry->rule;
      }
    }
    const auto all = client_.module<rpc_l2cp_profile_get_all_1>();
    accept(all->error);
    for (const rpc_l2cp_profile& profile : std::span(all->list.list_val, all->list.list_len)) {
      if (profile.dynamic != FALSE || isEditingCopy(profile.name)) {
        result_.unscripted.insert(profile.name);
      } else if (profile.protect != FALSE) {
        result_.protectedProfiles.insert(profile.name);
      }
      const auto found = written.find(profile.name);
      const bool isKnown = lines.isComplete && found != written.end();
      state().l2cpProfiles[profile.name] = isKnown ? found->second : rulesOf(profile.name);
      attachments_[profile.name] = profile.use_count;
    }
  }

  // A rule whose protocol is not in the catalogue any more cannot be changed or written.
  Rules rulesOf(char* profile) {
    const auto entries = client_.module<rpc_l2cp_profile_proto_get_all_1>(profile);
    accept(entries->error);
    Rules rules;
    for (const auto& entry : std::span(entries->list.list_val, entries->list.list_len)) {
      if (!state().protocols.contains(entry.proto_name)) continue;
      rules[entry.proto_name] = static_cast<script::Rule>(entry.rule);
    }
    return rules;
  }

  void askVlanProfiles() {
    const auto all = client_.control<control_vlan_profile_list_1>();
    for (const auto& profile : std::span(all->list.list_val, all->list.list_len)) {
      Svids& svids = state().vlanProfiles[profile.name];
      for (const auto& svid : std::span(profile.svids.svids_val, profile.svids.svids_len)) {
        svids[svid.intf] = static_cast<std::uint16_t>(svid.svid);
      }
    }
  }

  void askServices() {
    const auto all = client_.control<control_service_profile_list_1>();
    for (const auto& profile : std::span(all->list.list_val, all->list.list_len)) {
      state().services[profile.name] = {profile.vlan_profile, profile.l2cp_profile};
      const auto& [count, interfaces] = profile.interfaces;
      for (const int interface : std::span(interfaces, count)) {
        applications_[profile.name].insert(interface);
      }
    }
  }

  // Only the lines tell the order of a port's attachments.
  void takePlace(const script::Command& command) {
    if (std::holds_alternative<script::Attach>(command) ||
        std::holds_alternative<script::NoAttach>(command) ||
        std::holds_alternative<script::Apply>(command)) {
      state().take(command);
    }
  }

  bool hasAllAttachments() const {
    std::map<std::string, std::uint32_t> found;
    for (const auto& [port, attachments] : result_.state.ports) {
      for (const Attachment& attachment : attachments) ++found[attachment.profile];
    }
    return std::all_of(attachments_.begin(), attachments_.end(), [&](const auto& profile) {
      return profile.second == 0 || found[profile.first] == profile.second;
    });
  }

  // Also of those that no line says, where comments stand in their places.
  void takePlacesOfAll(const Lines& lines) {
    const auto all = client_.control<control_attachments_1>();
    std::map<std::string, script::Attach> places;
    state().applications = applications_;
    for (const auto& each : std::span(all->list.list_val, all->list.list_len)) {
      if (each.listed == FALSE) continue;
      const script::Attach attach{each.profile, each.port, static_cast<std::uint16_t>(each.vid)};
      for (const std::string& line : linesOf(attach)) places.emplace(line, attach);
    }
    state().ports.clear();
    state().applications.clear();
    for (const auto& [command, leftOut] : lines.all) {
      takePlace(command);
      const auto place = places.find(leftOut);
      if (place != places.end()) state().take(place->second);
    }
    for (const auto& [line, attach] : places) state().take(attach);
  }

  // The lines that could stand for an attachment.
  std::vector<std::string> linesOf(const script::Attach& attach) {
    std::vector<std::string> lines{script::comment(script::text(attach))};
    for (const auto& service : applicationsOf(state(), {attach.profile, attach.vid}, attach.port)) {
      const script::Apply apply{service, static_cast<std::int32_t>(attach.port)};
      lines.push_back(script::comment(script::text(apply)));
    }
    return lines;
  }

  State& state() { return result_.state; }

  Client& client_;
  DaemonState result_;
  Applications applications_;
  std::map<std::string, std::uint32_t> attachments_;  ///< how many, by profile
};

}  // namespace

DaemonState daemonState(Client& client) { return Inquiry(client).make(); }

}  // namespace cli
