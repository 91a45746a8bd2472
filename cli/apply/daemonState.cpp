#include "cli/apply/daemonState.h"

#include <algorithm>
#include <span>
#include <variant>
#include <vector>

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

/// The running configuration, as far as it is commands.
struct Lines {
  std::vector<script::Command> commands;
  bool isComplete = true;  ///< nothing had to be left out
};

class Inquiry {
 public:
  explicit Inquiry(Client& client) : client_(client) {}

  DaemonState make() {
    const Lines lines = runningConfiguration(CONTROL_CONFIG_DIFFERENCES);
    askProtocols(lines);
    askL2cpProfiles(lines);
    askVlanProfiles();
    askServices();
    for (const script::Command& command : lines.commands) takePlace(command);
    // Also what no line can say, because something in it cannot be written.
    state().applications = applications_;
    askOtherAttachments();
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
      lines.commands.push_back(reader.read(line));
      const std::string_view text = line;
      if (std::holds_alternative<script::Nothing>(lines.commands.back()) && !text.empty()) {
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
    for (const script::Command& command : runningConfiguration(CONTROL_CONFIG_ALL).commands) {
      if (const auto* proto = std::get_if<script::Protocol>(&command)) {
        result_.builtIn.insert(proto->name);
      }
    }
    for (const script::Command& command : differences.commands) {
      if (const auto* proto = std::get_if<script::Protocol>(&command)) {
        result_.builtIn.erase(proto->name);
      }
    }
  }

  void askL2cpProfiles(const Lines& lines) {
    std::map<std::string, Rules> written;
    for (const script::Command& command : lines.commands) {
      if (const auto* profile = std::get_if<script::L2cpProfile>(&command)) {
        written[profile->name];
      } else if (const auto* entry = std::get_if<script::Entry>(&command)) {
        written[entry->profile][entry->protocol] = entry->rule;
      }
    }
    const auto all = client_.module<rpc_l2cp_profile_get_all_1>();
    accept(all->error);
    for (const rpc_l2cp_profile& profile : std::span(all->list.list_val, all->list.list_len)) {
      if (profile.dynamic != FALSE) result_.dynamicProfiles.insert(profile.name);
      if (profile.dynamic != FALSE || isEditingCopy(profile.name)) continue;
      if (profile.protect != FALSE) result_.protectedProfiles.insert(profile.name);
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

  void askOtherAttachments() {
    for (const auto& [port, attachments] : state().ports) {
      for (const Attachment& attachment : attachments) --attachments_[attachment.profile];
    }
    for (const auto& [name, missing] : attachments_) {
      if (missing == 0) continue;
      std::string profile = name;
      const auto places = client_.module<rpc_l2cp_profile_get_ports_1>(wireText(profile));
      for (const auto& place : std::span(places->list.list_val, places->list.list_len)) {
        state().take(script::Attach{name, place.port, place.vid});
      }
    }
  }

  State& state() { return result_.state; }

  Client& client_;
  DaemonState result_;
  Applications applications_;
  std::map<std::string, std::uint32_t> attachments_;  ///< by profile, until they are found
};

}  // namespace

DaemonState daemonState(Client& client) { return Inquiry(client).make(); }

}  // namespace cli
