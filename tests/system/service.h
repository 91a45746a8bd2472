#pragma once

/// The service as its clients see it: the generated stubs, with values in place of pointers.

#include <netinet/in.h>
#include <rpc/rpc.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "rpc/l2cp.h"

namespace client {

using Mac = std::vector<unsigned char>;

struct Proto {
  bool protect = false;
  std::string name = {};
  Mac mac = {};
  std::uint16_t etherType = 0;
  std::uint8_t subType = 0;
  unsigned int useCount = 0;
  rpc_l2cp_error error = RPC_L2CP_OK;

  bool operator==(const Proto&) const = default;
};

struct Profile {
  bool dynamic = false;
  bool protect = false;
  std::string name = {};
  unsigned int useCount = 0;
  rpc_l2cp_error error = RPC_L2CP_OK;

  bool operator==(const Profile&) const = default;
};

struct Entry {
  std::string protoName = {};
  rpc_l2cp_rule rule = RPC_L2CP_RULE_DISCARD;
  rpc_l2cp_error error = RPC_L2CP_OK;

  bool operator==(const Entry&) const = default;
};

struct Link {
  std::string profileName = {};
  std::uint16_t vid = 0;
  rpc_l2cp_error error = RPC_L2CP_OK;

  bool operator==(const Link&) const = default;
};

/// Where a profile is attached.
struct Place {
  unsigned int port = 0;
  std::uint16_t vid = 0;

  bool operator==(const Place&) const = default;
};

/// A profile opened for editing: the name of its copy.
struct Edit {
  rpc_l2cp_error error = RPC_L2CP_OK;
  std::string name = {};

  bool operator==(const Edit&) const = default;
};

struct Counters {
  unsigned int total = 0;
  unsigned int discard = 0;
  unsigned int peer = 0;
  unsigned int tunnel = 0;
  rpc_l2cp_error error = RPC_L2CP_OK;

  bool operator==(const Counters&) const = default;
};

template <class Element>
struct List {
  std::vector<Element> list = {};
  rpc_l2cp_error error = RPC_L2CP_OK;

  bool operator==(const List&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Proto& proto) {
  out << "{protect " << proto.protect << ", \"" << proto.name << "\",";
  for (const unsigned char byte : proto.mac) out << " " << static_cast<int>(byte);
  return out << ", type " << proto.etherType << ", subtype " << static_cast<int>(proto.subType)
             << ", uses " << proto.useCount << ", error " << proto.error << "}";
}

inline std::ostream& operator<<(std::ostream& out, const Profile& profile) {
  return out << "{dynamic " << profile.dynamic << ", protect " << profile.protect << ", \""
             << profile.name << "\", uses " << profile.useCount << ", error " << profile.error
             << "}";
}

inline std::ostream& operator<<(std::ostream& out, const Entry& entry) {
  return out << "{\"" << entry.protoName << "\", rule " << entry.rule << ", error " << entry.error
             << "}";
}

inline std::ostream& operator<<(std::ostream& out, const Link& link) {
  return out << "{\"" << link.profileName << "\", vid " << link.vid << ", error " << link.error
             << "}";
}

inline std::ostream& operator<<(std::ostream& out, const Place& place) {
  return out << "{port " << place.port << ", vid " << place.vid << "}";
}

inline std::ostream& operator<<(std::ostream& out, const Edit& edit) {
  return out << "{error " << edit.error << ", \"" << edit.name << "\"}";
}

inline std::ostream& operator<<(std::ostream& out, const Counters& counters) {
  return out << "{total " << counters.total << ", discard " << counters.discard << ", peer "
             << counters.peer << ", tunnel " << counters.tunnel << ", error " << counters.error
             << "}";
}

template <class Element>
std::ostream& operator<<(std::ostream& out, const List<Element>& list) {
  for (const Element& element : list.list) out << element << " ";
  return out << "error " << list.error;
}

/// A call that brought no result.
class CallFailed : public std::runtime_error {
 public:
  CallFailed(const std::string& text, clnt_stat status)
      : std::runtime_error(text), status_(status) {}
  clnt_stat status() const { return status_; }

 private:
  clnt_stat status_;
};

/// A client's handle for one program.
class Connection {
 public:
  /// `transport` is "udp" or "tcp".
  Connection(const char* transport, rpcprog_t program, rpcvers_t version)
      : handle_(clnt_create("127.0.0.1", program, version, transport), &destroy) {
    if (!handle_) throw CallFailed(clnt_spcreateerror(transport), rpc_createerr.cf_stat);
  }

  CLIENT* handle() const { return handle_.get(); }

  /// The result of a stub.
  template <class Result>
  Result& got(Result* result) const {
    if (result == nullptr) {
      rpc_err error{};
      clnt_geterr(handle_.get(), &error);
      throw CallFailed(clnt_sperror(handle_.get(), "call"), error.re_status);
    }
    return *result;
  }

  /// The value of a stub's result that holds memory, which is freed.
  template <class Wire, class Convert>
  std::invoke_result_t<Convert, const Wire&> taken(Wire* wire, bool_t (*filter)(XDR*, Wire*),
                                                   Convert convert) const {
    struct Freed {
      Wire& result;
      bool_t (*filter)(XDR*, Wire*);
      ~Freed() {
        xdr_free(reinterpret_cast<xdrproc_t>(filter), &result);  // NOLINT: as rpcgen does
      }
    };
    const Freed freed{got(wire), filter};
    return convert(freed.result);
  }

  /// Calls a procedure without argument and without result.
  clnt_stat ping(rpcproc_t procedure = 0) const {
    return clnt_call(handle_.get(), procedure, nothing, nullptr, nothing, nullptr,
                     (timeval{.tv_sec = 25, .tv_usec = 0}));
  }

 private:
  static bool_t nothing(XDR* /*stream*/, ...) { return TRUE; }
  static void destroy(CLIENT* handle) { clnt_destroy(handle); }

  std::unique_ptr<CLIENT, void (*)(CLIENT*)> handle_;
};

class Service {
 public:
  explicit Service(const char* transport) : connection_(transport, L2CP_PROGRAM, L2CP_VERSION) {}

  const Connection& connection() const { return connection_; }

  rpc_l2cp_error protoAdd(const Proto& proto) const {
    rpc_l2cp_proto wire{};
    wire.protect = proto.protect;
    wire.name = text(proto.name);
    wire.mac = mac(proto.mac);
    wire.ether_type = proto.etherType;
    wire.sub_type = proto.subType;
    wire.use_count = proto.useCount;
    wire.error = proto.error;
    return connection_.got(rpc_l2cp_proto_add_1(wire, handle()));
  }
  rpc_l2cp_error protoDel(const std::string& name) const {
    return connection_.got(rpc_l2cp_proto_del_1(text(name), handle()));
  }
  rpc_l2cp_error protoRen(const std::string& from, const std::string& to) const {
    return connection_.got(rpc_l2cp_proto_ren_1(text(from), text(to), handle()));
  }
  Proto protoGet(unsigned int index) const {
    return taken(rpc_l2cp_proto_get_1(index, handle()), xdr_rpc_l2cp_proto,
                 [](const rpc_l2cp_proto& proto) { return value(proto); });
  }
  List<Proto> protoGetAll() const {
    return taken(rpc_l2cp_proto_get_all_1(handle()), xdr_rpc_l2cp_proto_all,
                 &values<Proto, rpc_l2cp_proto_all>);
  }
  rpc_l2cp_error protoSetProtect(const std::string& name, bool protect) const {
    return connection_.got(rpc_l2cp_proto_set_protect_1(text(name), protect, handle()));
  }
  rpc_l2cp_error protoSetMac(const std::string& name, const Mac& address) const {
    return connection_.got(rpc_l2cp_proto_set_mac_1(text(name), mac(address), handle()));
  }
  rpc_l2cp_error protoSetEtherType(const std::string& name, std::uint16_t type) const {
    return connection_.got(rpc_l2cp_proto_set_ether_type_1(text(name), type, handle()));
  }
  rpc_l2cp_error protoSetSubType(const std::string& name, std::uint8_t subType) const {
    return connection_.got(rpc_l2cp_proto_set_sub_type_1(text(name), subType, handle()));
  }
  Counters protoStat(const std::string& name) const {
    return value(connection_.got(rpc_l2cp_proto_stat_1(text(name), handle())));
  }

  rpc_l2cp_error profileAdd(const Profile& profile) const {
    rpc_l2cp_profile wire{};
    wire.dynamic = profile.dynamic;
    wire.protect = profile.protect;
    wire.name = text(profile.name);
    wire.use_count = profile.useCount;
    wire.error = profile.error;
    return connection_.got(rpc_l2cp_profile_add_1(wire, handle()));
  }
  rpc_l2cp_error profileDel(const std::string& name) const {
    return connection_.got(rpc_l2cp_profile_del_1(text(name), handle()));
  }
  rpc_l2cp_error profileRen(const std::string& from, const std::string& to) const {
    return connection_.got(rpc_l2cp_profile_ren_1(text(from), text(to), handle()));
  }
  Profile profileGet(unsigned int index) const {
    return taken(rpc_l2cp_profile_get_1(index, handle()), xdr_rpc_l2cp_profile,
                 [](const rpc_l2cp_profile& profile) { return value(profile); });
  }
  List<Profile> profileGetAll() const {
    return taken(rpc_l2cp_profile_get_all_1(handle()), xdr_rpc_l2cp_profile_all,
                 &values<Profile, rpc_l2cp_profile_all>);
  }
  List<Place> profileGetPorts(const std::string& name) const {
    return taken(rpc_l2cp_profile_get_ports_1(text(name), handle()), xdr_rpc_l2cp_port_all,
                 &values<Place, rpc_l2cp_port_all>);
  }
  rpc_l2cp_error profileSetDynamic(const std::string& name, bool dynamic) const {
    return connection_.got(rpc_l2cp_profile_set_dynamic_1(text(name), dynamic, handle()));
  }
  rpc_l2cp_error profileSetProtect(const std::string& name, bool protect) const {
    return connection_.got(rpc_l2cp_profile_set_protect_1(text(name), protect, handle()));
  }
  Counters profileStat(const std::string& name) const {
    return value(connection_.got(rpc_l2cp_profile_stat_1(text(name), handle())));
  }
  /// The service profiles that name it.
  List<std::string> profileGetUse(const std::string& name) const {
    return taken(rpc_l2cp_profile_get_use_1(text(name), handle()), xdr_rpc_l2cp_profile_use,
                 &values<std::string, rpc_l2cp_profile_use>);
  }

  rpc_l2cp_error entryAdd(const std::string& profile, const std::string& proto,
                          rpc_l2cp_rule rule) const {
    return connection_.got(
        rpc_l2cp_profile_proto_add_1(text(profile), text(proto), rule, handle()));
  }
  rpc_l2cp_error entryDel(const std::string& profile, const std::string& proto) const {
    return connection_.got(rpc_l2cp_profile_proto_del_1(text(profile), text(proto), handle()));
  }
  Entry entryGet(const std::string& profile, unsigned int index) const {
    return taken(rpc_l2cp_profile_proto_get_1(text(profile), index, handle()),
                 xdr_rpc_l2cp_profile_proto,
                 [](const rpc_l2cp_profile_proto& entry) { return value(entry); });
  }
  List<Entry> entryGetAll(const std::string& profile) const {
    return taken(rpc_l2cp_profile_proto_get_all_1(text(profile), handle()),
                 xdr_rpc_l2cp_profile_proto_all, &values<Entry, rpc_l2cp_profile_proto_all>);
  }
  rpc_l2cp_error entrySet(const std::string& profile, const std::string& proto,
                          rpc_l2cp_rule rule) const {
    return connection_.got(
        rpc_l2cp_profile_proto_set_1(text(profile), text(proto), rule, handle()));
  }
  rpc_l2cp_error entryDelAll(const std::string& profile) const {
    return connection_.got(rpc_l2cp_profile_proto_del_all_1(text(profile), handle()));
  }

  rpc_l2cp_error attach(const std::string& profile, unsigned int port, std::uint16_t vid) const {
    return connection_.got(rpc_l2cp_profile_port_attach_1(text(profile), port, vid, handle()));
  }
  rpc_l2cp_error detach(const std::string& profile, unsigned int port, std::uint16_t vid) const {
    return connection_.got(rpc_l2cp_profile_port_detach_1(text(profile), port, vid, handle()));
  }
  Link linkGet(unsigned int port, unsigned int index) const {
    return taken(rpc_l2cp_profile_port_get_1(port, index, handle()), xdr_rpc_l2cp_profile_link,
                 [](const rpc_l2cp_profile_link& link) {
                   return Link{link.profile_name, link.vid, link.error};
                 });
  }
  List<Profile> linkGetAll(unsigned int port) const {
    return taken(rpc_l2cp_profile_port_get_all_1(port, handle()), xdr_rpc_l2cp_profile_all,
                 &values<Profile, rpc_l2cp_profile_all>);
  }

  Counters portStat(unsigned int port) const {
    return value(connection_.got(rpc_l2cp_port_stat_1(port, handle())));
  }
  Counters vlanStat(std::uint16_t vid) const {
    return value(connection_.got(rpc_l2cp_vlan_stat_1(vid, handle())));
  }

  Edit profileEdit(const std::string& name) const {
    const rpcl2cpProfEditResult& edit =
        connection_.got(rpc_l2cp_profile_edit_1(text(name), handle()));
    return {edit.error, std::string(edit.name, strnlen(edit.name, sizeof(edit.name)))};
  }
  rpc_l2cp_error profileCopy(const std::string& source, const std::string& destination) const {
    return connection_.got(rpc_l2cp_profile_copy_1(text(source), text(destination), handle()));
  }
  rpc_l2cp_error profileOnExit(const std::string& target, const std::string& temporary) const {
    return connection_.got(rpc_l2cp_profile_on_exit_1(text(target), text(temporary), handle()));
  }
  rpc_l2cp_error profileStatus(const std::string& name) const {
    return connection_.got(rpc_l2cp_profile_status_1(text(name), handle()));
  }

 private:
  CLIENT* handle() const { return connection_.handle(); }

  // The wire's types are not const, although nobody writes an argument.
  static char* text(const std::string& text) { return const_cast<char*>(text.c_str()); }
  static rpc_l2cp_mac_t mac(const Mac& mac) {
    return {.rpc_l2cp_mac_t_len = static_cast<u_int>(mac.size()),
            .rpc_l2cp_mac_t_val = const_cast<unsigned char*>(mac.data())};
  }

  static Proto value(const rpc_l2cp_proto& proto) {
    const unsigned char* mac = proto.mac.rpc_l2cp_mac_t_val;
    return {proto.protect != FALSE,
            proto.name,
            Mac(mac, mac + proto.mac.rpc_l2cp_mac_t_len),
            proto.ether_type,
            proto.sub_type,
            proto.use_count,
            proto.error};
  }
  static Profile value(const rpc_l2cp_profile& profile) {
    return {profile.dynamic != FALSE, profile.protect != FALSE, profile.name, profile.use_count,
            profile.error};
  }
  static Entry value(const rpc_l2cp_profile_proto& entry) {
    return {entry.proto_name, entry.rule, entry.error};
  }
  static Place value(const rpc_l2cp_port_vlan_t& place) { return {place.port, place.vid}; }
  static std::string value(rpc_service_profile_name_t name) { return name; }
  static Counters value(const rpc_l2cp_counters& counters) {
    return {counters.total, counters.discard, counters.peer, counters.tunnel, counters.error};
  }
  template <class Element, class Wire>
  static List<Element> values(const Wire& wire) {
    List<Element> result;
    result.error = wire.error;
    for (u_int i = 0; i < wire.list.list_len; ++i) {
      result.list.push_back(value(wire.list.list_val[i]));
    }
    return result;
  }

  template <class Wire, class Convert>
  std::invoke_result_t<Convert, const Wire&> taken(Wire* wire, bool_t (*filter)(XDR*, Wire*),
                                                   Convert convert) const {
    return connection_.taken(wire, filter, convert);
  }

  Connection connection_;
};

/// The fourteen protocols that are there from the beginning, in name order.
inline std::vector<Proto> builtInProtocols() {
  const auto bridge = [](unsigned char last) { return Mac{0x01, 0x80, 0xc2, 0, 0, last}; };
  const Mac vendor{0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc};
  return {
      {true, "All-Bridges", bridge(0x10), 0xffff, 0xff},
      {true, "CDP", vendor, 0x2000, 0xff},
      {true, "E-LMI", bridge(0x07), 0xffff, 0xff},
      {true, "GMRP-MMRP", bridge(0x20), 0xffff, 0xff},
      {true, "GVRP-MVRP", bridge(0x21), 0xffff, 0xff},
      {true, "LACP-LAMP", bridge(0x02), 0x8809, 0x01},
      {true, "LLDP", bridge(0x0e), 0xffff, 0xff},
      {true, "MSPP", bridge(0x03), 0x22e2, 0xff},
      {true, "OAM-CFM", bridge(0x30), 0x8902, 0xff},
      {true, "OAM-EFM", bridge(0x02), 0x8809, 0x03},
      {true, "PNAC", bridge(0x03), 0x888e, 0xff},
      {true, "Pause-Frame", bridge(0x01), 0xffff, 0xff},
      {true, "UDLD", vendor, 0x0111, 0xff},
      {true, "xSTP", bridge(0x00), 0xffff, 0xff},
  };
}

}  // namespace client
