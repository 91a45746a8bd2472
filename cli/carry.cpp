#include "cli/carry.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <variant>

#include "cli/failure.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr control_result inUse = -16;
constexpr control_result exists = -17;

// A name that the module's requests can carry.
char* moduleName(std::string& name) {
  if (name.size() > longestName) {
    throw LocalError(fmt::format("the name {} is {} bytes long; {} is the most there can be",
                                 quotedText(name), name.size(), longestName));
  }
  return wireText(name);
}

char* controlName(std::string& name) {
  if (name.size() > CONTROL_NAME_MAX) {
    throw LocalError(fmt::format("the name {} is {} bytes long; {} is the most there can be",
                                 quotedText(name), name.size(), CONTROL_NAME_MAX));
  }
  return wireText(name);
}

rpc_l2cp_mac_t wireMac(script::Mac& mac) {
  return {.rpc_l2cp_mac_t_len = static_cast<u_int>(mac.size()), .rpc_l2cp_mac_t_val = mac.data()};
}

rpc_l2cp_rule wireRule(script::Rule rule) { return static_cast<rpc_l2cp_rule>(rule); }

// Takes commands by value: requests want names that could be written to.
class Carrier {
 public:
  Carrier(Client& client, const State& known) : client_(client), known_(known) {}

  void operator()(const script::Nothing& /*command*/) const {}
  void operator()(const script::Exit& /*command*/) const {}

  // ---- Protocols ----

  void operator()(script::Protocol command) const {
    rpc_l2cp_proto proto{};
    proto.name = moduleName(command.name);
    proto.mac = wireMac(command.mac);
    proto.ether_type = command.etherType;
    proto.sub_type = command.subType;
    const auto known = known_.protocols.find(command.name);
    if (known != known_.protocols.end()) return change(command, known->second);
    const rpc_l2cp_error error = client_.module<rpc_l2cp_proto_add_1>(proto);
    if (error == RPC_L2CP_ERR_PROTO_EXISTS) return change(command, definitionOf(command.name));
    accept(error, {{RPC_L2CP_ERR_INVALID, advice::protocolNameTooLong}});
  }
  void operator()(script::NoProtocol command) const {
    accept(client_.module<rpc_l2cp_proto_del_1>(moduleName(command.name)));
  }

  // ---- L2CP profiles ----

  void operator()(script::L2cpProfile command) const {
    rpc_l2cp_profile profile{};
    profile.name = moduleName(command.name);
    const rpc_l2cp_error error = client_.module<rpc_l2cp_profile_add_1>(profile);
    if (error != RPC_L2CP_ERR_PROFILE_EXISTS) accept(error);
  }
  void operator()(script::NoL2cpProfile command) const {
    char* const name = moduleName(command.name);
    const auto known = known_.l2cpProfiles.find(command.name);
    if (known != known_.l2cpProfiles.end()) return remove(name, known->second);
    if (!isEditingCopy(command.name)) clear(name);
    accept(client_.module<rpc_l2cp_profile_del_1>(name),
           {{RPC_L2CP_ERR_PROFILE_IN_USE, advice::profileInUseOrNamed}});
  }
  void operator()(script::Entry command) const {
    char* const profile = moduleName(command.profile);
    char* const protocol = moduleName(command.protocol);
    const rpc_l2cp_rule rule = wireRule(command.rule);
    const auto add = [&] {
      return client_.module<rpc_l2cp_profile_proto_add_1>(profile, protocol, rule);
    };
    const auto set = [&] {
      return client_.module<rpc_l2cp_profile_proto_set_1>(profile, protocol, rule);
    };
    rpc_l2cp_error error = knowsRule(command) ? set() : add();
    if (error == RPC_L2CP_ERR_PROTO_IN_USE) {
      error = set();
    } else if (error == RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE) {
      error = add();
    }
    // Of a profile that cannot be changed, what it is already may be said.
    if (error == RPC_L2CP_OK || ruleOf(profile, command.protocol) == rule) return;
    accept(error);
  }
  void operator()(script::NoEntry command) const {
    accept(client_.module<rpc_l2cp_profile_proto_del_1>(moduleName(command.profile),
                                                        moduleName(command.protocol)),
           {{RPC_L2CP_ERR_PROTO_NOT_IN_PROFILE, advice::noSuchRule}});
  }

  // ---- VLAN profiles ----

  void operator()(script::VlanProfile command) const {
    acceptUnless(exists, client_.control<control_vlan_profile_add_1>(controlName(command.name)));
  }
  void operator()(script::NoVlanProfile command) const {
    acceptResult(client_.control<control_vlan_profile_delete_1>(controlName(command.name)),
                 {{-2, advice::noSuchVlanProfile}, {inUse, advice::vlanProfileNamed}});
  }
  void operator()(script::Svid command) const {
    setSvid(command.vlanProfile, command.interface, command.vid);
  }
  void operator()(script::NoSvid command) const {
    setSvid(command.vlanProfile, command.interface, 0);
  }

  // ---- Service profiles ----

  void operator()(script::ServiceProfile command) const {
    acceptUnless(exists, client_.control<control_service_profile_add_1>(controlName(command.name)));
  }
  void operator()(script::NoServiceProfile command) const {
    acceptResult(client_.control<control_service_profile_delete_1>(controlName(command.name)),
                 {{-2, advice::noSuchServiceProfile}});
  }
  void operator()(script::ServiceVlanProfile command) const {
    const control_result result = client_.control<control_service_profile_set_vlan_1>(
        controlName(command.serviceProfile), controlName(command.vlanProfile));
    if (result == inUse && service(command.serviceProfile).vlanProfile == command.vlanProfile) {
      return;
    }
    acceptResult(result, {{-2, advice::noSuchServiceOrVlanProfile}});
  }
  void operator()(script::ServiceL2cpProfile command) const {
    const control_result result = client_.control<control_service_profile_set_l2cp_1>(
        controlName(command.serviceProfile), controlName(command.l2cpProfile));
    if (result == inUse && service(command.serviceProfile).l2cpProfile == command.l2cpProfile) {
      return;
    }
    acceptResult(result, {{-2, advice::noSuchServiceProfile}});
  }

  // ---- Where they are in force ----

  void operator()(script::Attach command) const {
    const rpc_l2cp_error error = client_.module<rpc_l2cp_profile_port_attach_1>(
        moduleName(command.profile), command.port, command.vid);
    // This is how the module says that the profile is attached there already.
    if (error != RPC_L2CP_ERR_FAILED) accept(error);
  }
  void operator()(script::NoAttach command) const {
    accept(client_.module<rpc_l2cp_profile_port_detach_1>(moduleName(command.profile), command.port,
                                                          command.vid),
           {{RPC_L2CP_ERR_PROTO_NOT_FOUND, advice::nothingOnPort}});
  }
  void operator()(script::Apply command) const {
    acceptUnless(exists,
                 client_.control<control_service_profile_attach_1>(
                     controlName(command.serviceProfile), command.interface),
                 {{-2, advice::noServiceOrItsProfile}, {inUse, advice::attachedByOther}});
  }
  void operator()(script::NoApply command) const {
    acceptResult(client_.control<control_service_profile_detach_1>(
                     controlName(command.serviceProfile), command.interface),
                 {{-2, advice::noServiceOrItsProfile},
                  {-9, advice::notAppliedOrDetached},
                  {-19, advice::nothingToDetach},
                  {-20, advice::nothingToDetach}});
  }

 private:
  struct Service {
    std::string vlanProfile;
    std::string l2cpProfile;
  };

  static void acceptUnless(control_result already, control_result result,
                           std::initializer_list<ResultMeaning> meanings = {}) {
    if (result != already) acceptResult(result, meanings);
  }

  Definition definitionOf(const std::string& protocol) const {
    const auto all = client_.module<rpc_l2cp_proto_get_all_1>();
    accept(all->error);
    const std::span protocols(all->list.list_val, all->list.list_len);
    const auto found =
        std::find_if(protocols.begin(), protocols.end(),
                     [&](const rpc_l2cp_proto& proto) { return proto.name == protocol; });
    if (found == protocols.end()) accept(RPC_L2CP_ERR_PROTO_NOT_FOUND);
    const std::span mac(found->mac.rpc_l2cp_mac_t_val, found->mac.rpc_l2cp_mac_t_len);
    Definition definition{{}, found->ether_type, found->sub_type};
    std::copy_n(mac.begin(), std::min(mac.size(), definition.mac.size()), definition.mac.begin());
    return definition;
  }

  // Makes a protocol that is there what the command says, with no more requests than that takes.
  void change(script::Protocol& command, const Definition& before) const {
    char* const name = wireText(command.name);
    if (before.mac != command.mac) {
      accept(client_.module<rpc_l2cp_proto_set_mac_1>(name, wireMac(command.mac)));
    }
    if (before.etherType != command.etherType) {
      accept(client_.module<rpc_l2cp_proto_set_ether_type_1>(name, command.etherType));
    }
    if (before.subType != command.subType) {
      accept(client_.module<rpc_l2cp_proto_set_sub_type_1>(name, command.subType));
    }
  }

  bool knowsRule(const script::Entry& entry) const {
    const auto profile = known_.l2cpProfiles.find(entry.profile);
    return profile != known_.l2cpProfiles.end() && profile->second.contains(entry.protocol);
  }

  // Deletes a profile with its rules. One that cannot be deleted after all keeps them.
  void remove(char* name, const Rules& rules) const {
    constexpr Meaning inUseOrNamed{RPC_L2CP_ERR_PROFILE_IN_USE, advice::profileInUseOrNamed};
    if (!rules.empty())
      accept(client_.module<rpc_l2cp_profile_proto_del_all_1>(name), {inUseOrNamed});
    const rpc_l2cp_error error = client_.module<rpc_l2cp_profile_del_1>(name);
    if (error == RPC_L2CP_OK) return;
    for (const auto& [known, rule] : rules) {
      std::string protocol = known;
      client_.module<rpc_l2cp_profile_proto_add_1>(name, wireText(protocol), wireRule(rule));
    }
    accept(error, {inUseOrNamed});
  }

  // Removes a profile's rules, which would otherwise go on counting as uses of their protocols, but
  // only if the profile itself can then be deleted.
  void clear(char* name) const {
    const auto users = client_.module<rpc_l2cp_profile_get_use_1>(name);
    accept(users->error);
    if (users->list.list_len != 0) {
      accept(RPC_L2CP_ERR_PROFILE_IN_USE,
             {{RPC_L2CP_ERR_PROFILE_IN_USE, advice::profileInUseOrNamed}});
    }
    accept(client_.module<rpc_l2cp_profile_proto_del_all_1>(name));
  }

  std::optional<rpc_l2cp_rule> ruleOf(char* profile, const std::string& protocol) const {
    const auto entries = client_.module<rpc_l2cp_profile_proto_get_all_1>(profile);
    const std::span rules(entries->list.list_val, entries->list.list_len);
    for (const rpc_l2cp_profile_proto& entry : rules) {
      if (entry.proto_name == protocol) return entry.rule;
    }
    return {};
  }

  void setSvid(std::string& vlanProfile, std::int32_t interface, int svid) const {
    const control_result result =
        client_.control<control_vlan_profile_set_svid_1>(controlName(vlanProfile), interface, svid);
    if (result == inUse && svidOf(vlanProfile, interface) == svid) return;
    acceptResult(result, {{-2, advice::noSuchVlanProfile}, {inUse, advice::vlanProfileInForce}});
  }

  // 0 for none.
  int svidOf(const std::string& vlanProfile, std::int32_t interface) const {
    const auto all = client_.control<control_vlan_profile_list_1>();
    for (const auto& profile : std::span(all->list.list_val, all->list.list_len)) {
      if (profile.name != vlanProfile) continue;
      for (const auto& svid : std::span(profile.svids.svids_val, profile.svids.svids_len)) {
        if (svid.intf == interface) return svid.svid;
      }
    }
    return 0;
  }

  Service service(const std::string& name) const {
    const auto all = client_.control<control_service_profile_list_1>();
    for (const auto& profile : std::span(all->list.list_val, all->list.list_len)) {
      if (profile.name == name) return {profile.vlan_profile, profile.l2cp_profile};
    }
    return {};
  }

  Client& client_;
  const State& known_;
};

}  // namespace

void carry(const script::Command& command, Client& client, const State& known) {
  std::visit(Carrier(client, known), command);
}

bool isEditingCopy(std::string_view profile) {
  constexpr std::string_view prefix = "temp_l2cp_prof_";
  if (!profile.starts_with(prefix)) return false;
  profile.remove_prefix(prefix.size());
  return !profile.empty() && profile.front() != '0' &&
         profile.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace cli
