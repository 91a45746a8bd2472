#pragma once

/// The daemon's own service as its clients see it: the generated stubs, with values in place of
/// pointers.

#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "host/control.h"
#include "tests/support/frame_builder.h"
#include "tests/system/service.h"

namespace client {

struct Verdict {
  control_fate fate = CONTROL_FATE_UNTOUCHED;
  bool met = false;
  unsigned int kind = 0;
  unsigned int index = 0;
  std::string selector = {};
  std::string actionList = {};
  std::vector<std::string> counters = {};
  std::vector<int> increments = {};
};

struct Status {
  std::string release;
  std::string bridge;
  std::string classifier;
  unsigned int pid;
  unsigned int uptime;
  std::vector<std::pair<std::string, bool>> entities;
  std::vector<std::pair<unsigned int, std::string>> ports;
};

struct LivePort {
  unsigned int number;
  std::string interface;
  std::string state;
};

struct ServiceProfile {
  std::string name = {};
  std::string vlanProfile = {};
  std::string l2cpProfile = {};
  std::vector<int> interfaces = {};

  bool operator==(const ServiceProfile&) const = default;
};

struct VlanProfile {
  std::string name = {};
  /// S-VIDs by interface.
  std::vector<std::pair<int, int>> svids = {};

  bool operator==(const VlanProfile&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const ServiceProfile& profile) {
  out << "{\"" << profile.name << "\", VLAN profile \"" << profile.vlanProfile
      << "\", L2CP profile \"" << profile.l2cpProfile << "\"";
  for (const int intf : profile.interfaces) out << ", on " << intf;
  return out << "}";
}

inline std::ostream& operator<<(std::ostream& out, const VlanProfile& profile) {
  out << "{\"" << profile.name << "\"";
  for (const auto& [intf, svid] : profile.svids) out << ", " << svid << " on " << intf;
  return out << "}";
}

class Control {
 public:
  explicit Control(const char* transport)
      : connection_(transport, CONTROL_PROGRAM, CONTROL_VERSION) {}

  std::string message(std::string command, std::string argument) const {
    return taken(control_message_1(command.data(), argument.data(), handle()), xdr_control_text,
                 [](const control_text& text) { return std::string(text); });
  }

  std::vector<Verdict> feed(unsigned int port, std::vector<support::Bytes> frames) const {
    std::vector<control_frame> wire;
    for (support::Bytes& frame : frames) {
      wire.push_back({.control_frame_len = static_cast<u_int>(frame.size()),
                      .control_frame_val = reinterpret_cast<char*>(frame.data())});  // NOLINT
    }
    return taken(control_feed_1(port,
                                {.control_frames_len = static_cast<u_int>(wire.size()),
                                 .control_frames_val = wire.data()},
                                handle()),
                 xdr_control_feed_result, &verdicts);
  }
  Verdict feed(unsigned int port, const support::Bytes& frame) const {
    return feed(port, std::vector<support::Bytes>{frame}).at(0);
  }
  control_fate fate(unsigned int port, const support::Bytes& frame) const {
    return feed(port, frame).fate;
  }

  control_error applyDefaults() const {
    return connection_.got(control_apply_defaults_1(handle()));
  }

  /// Fails unless the daemon does it.
  std::vector<std::string> runningConfig(control_config_mode mode) const {
    return taken(control_running_config_1(mode, handle()), xdr_control_config_result,
                 [](const control_config_result& result) {
                   if (result.error != CONTROL_OK) throw std::runtime_error("no configuration");
                   return std::vector<std::string>(result.lines.lines_val,
                                                   result.lines.lines_val + result.lines.lines_len);
                 });
  }

  /// Where the script is now, or what went wrong.
  std::pair<control_error, std::string> save() const {
    return taken(control_save_1(handle()), xdr_control_save_result,
                 [](const control_save_result& result) {
                   return std::pair(result.error, std::string(result.text));
                 });
  }

  Status status() const {
    return taken(control_status_1(handle()), xdr_control_status, [](const control_status& wire) {
      Status status{wire.release, wire.bridge, wire.classifier, wire.pid, wire.uptime, {}, {}};
      for (u_int i = 0; i < wire.entities.entities_len; ++i) {
        const control_entity& entity = wire.entities.entities_val[i];
        status.entities.emplace_back(entity.name, entity.running != FALSE);
      }
      for (u_int i = 0; i < wire.ports.ports_len; ++i) {
        status.ports.emplace_back(wire.ports.ports_val[i].number, wire.ports.ports_val[i].name);
      }
      return status;
    });
  }

  std::vector<LivePort> livePorts() const {
    return taken(control_live_ports_1(handle()), xdr_control_live_ports,
                 [](const control_live_ports& wire) {
                   std::vector<LivePort> ports;
                   for (u_int i = 0; i < wire.list.list_len; ++i) {
                     const control_live_port& port = wire.list.list_val[i];
                     ports.push_back({port.number, port.interface, port.state});
                   }
                   return ports;
                 });
  }

  /// Why not all of the configuration file is in force.
  std::string reload() const {
    return taken(control_reload_1(handle()), xdr_control_text,
                 [](const control_text& text) { return std::string(text); });
  }

  std::vector<ServiceProfile> serviceProfiles() const {
    return taken(
        control_service_profile_list_1(handle()), xdr_control_service_profiles,
        [](const control_service_profiles& wire) {
          std::vector<ServiceProfile> profiles;
          for (u_int i = 0; i < wire.list.list_len; ++i) {
            const control_service_profile& profile = wire.list.list_val[i];
            const int* interfaces = profile.interfaces.interfaces_val;
            profiles.push_back(
                {profile.name, profile.vlan_profile, profile.l2cp_profile,
                 std::vector<int>(interfaces, interfaces + profile.interfaces.interfaces_len)});
          }
          return profiles;
        });
  }
  int serviceProfileAdd(std::string name) const {
    return connection_.got(control_service_profile_add_1(name.data(), handle()));
  }
  int serviceProfileDelete(std::string name) const {
    return connection_.got(control_service_profile_delete_1(name.data(), handle()));
  }
  int serviceProfileSetVlan(std::string name, std::string vlanProfile) const {
    return connection_.got(
        control_service_profile_set_vlan_1(name.data(), vlanProfile.data(), handle()));
  }
  int serviceProfileSetL2cp(std::string name, std::string l2cpProfile) const {
    return connection_.got(
        control_service_profile_set_l2cp_1(name.data(), l2cpProfile.data(), handle()));
  }
  int serviceProfileAttach(std::string name, int intf) const {
    return connection_.got(control_service_profile_attach_1(name.data(), intf, handle()));
  }
  int serviceProfileDetach(std::string name, int intf) const {
    return connection_.got(control_service_profile_detach_1(name.data(), intf, handle()));
  }

  std::vector<VlanProfile> vlanProfiles() const {
    return taken(control_vlan_profile_list_1(handle()), xdr_control_vlan_profiles,
                 [](const control_vlan_profiles& wire) {
                   std::vector<VlanProfile> profiles;
                   for (u_int i = 0; i < wire.list.list_len; ++i) {
                     const control_vlan_profile& profile = wire.list.list_val[i];
                     VlanProfile& value = profiles.emplace_back();
                     value.name = profile.name;
                     for (u_int j = 0; j < profile.svids.svids_len; ++j) {
                       const control_svid& svid = profile.svids.svids_val[j];
                       value.svids.emplace_back(svid.intf, svid.svid);
                     }
                   }
                   return profiles;
                 });
  }
  int vlanProfileAdd(std::string name) const {
    return connection_.got(control_vlan_profile_add_1(name.data(), handle()));
  }
  int vlanProfileDelete(std::string name) const {
    return connection_.got(control_vlan_profile_delete_1(name.data(), handle()));
  }
  int vlanProfileSetSvid(std::string name, int intf, int svid) const {
    return connection_.got(control_vlan_profile_set_svid_1(name.data(), intf, svid, handle()));
  }

 private:
  CLIENT* handle() const { return connection_.handle(); }

  template <class Wire, class Convert>
  std::invoke_result_t<Convert, const Wire&> taken(Wire* wire, bool_t (*filter)(XDR*, Wire*),
                                                   Convert convert) const {
    return connection_.taken(wire, filter, convert);
  }

  static std::vector<Verdict> verdicts(const control_feed_result& result) {
    if (result.error != CONTROL_OK) throw std::runtime_error("frames refused");
    std::vector<Verdict> verdicts;
    for (u_int i = 0; i < result.verdicts.verdicts_len; ++i) {
      const control_verdict& wire = result.verdicts.verdicts_val[i];
      Verdict verdict{wire.fate,  wire.met != FALSE, wire.kind,
                      wire.index, wire.selector,     wire.action_list};
      for (u_int j = 0; j < wire.counters.counters_len; ++j) {
        verdict.counters.emplace_back(wire.counters.counters_val[j].name);
        verdict.increments.push_back(wire.counters.counters_val[j].increment);
      }
      verdicts.push_back(std::move(verdict));
    }
    return verdicts;
  }

  Connection connection_;
};

}  // namespace client
