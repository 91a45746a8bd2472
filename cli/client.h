#pragma once

#include <rpc/rpc.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "host/control.h"
#include "rpc/l2cp.h"

namespace cli {

/// Where the daemon is and how long it may take: to be connected to, and then for every answer.
struct Server {
  std::string address = "127.0.0.1";  ///< IPv4, or a name of one
  std::chrono::seconds timeout{5};
  std::chrono::seconds wait{0};  ///< for a daemon that is starting: new attempts are made that long
};

struct RpcProgram {
  rpcprog_t number;
  rpcvers_t version;
};

struct DestroyHandle {
  void operator()(CLIENT* handle) const;
};
using Handle = std::unique_ptr<CLIENT, DestroyHandle>;

/// The answer of a procedure. Owns the memory that its texts and lists were decoded into.
template <class Result>
class Reply {
 public:
  explicit Reply(const Result& result) : result_(result) {}
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;
  ~Reply();

  const Result& operator*() const { return result_; }
  const Result* operator->() const { return &result_; }

 private:
  Result result_;
};

/// Speaks to the daemon. A program is connected to by its first call, over TCP and with the help of
/// the port mapper at the server's address; every later call uses the same connection.
///
///     const auto catalogue = client.module<rpc_l2cp_proto_get_all_1>();
///     accept(catalogue->error);
///
/// Calls throw NotReached, with a text that says what was tried and how far it got, if there is no
/// connection or no answer in time.
class Client {
 public:
  explicit Client(Server server) : server_(std::move(server)) {}

  /// Calls the procedure of a client stub. Answers that are nothing but an error code or a number
  /// are returned as they are, all others as a Reply.
  template <auto stub, class... Arguments>
  auto module(Arguments... arguments) {
    return call<stub>(module_, moduleProgram, arguments...);
  }
  template <auto stub, class... Arguments>
  auto control(Arguments... arguments) {
    return call<stub>(control_, controlProgram, arguments...);
  }

  /// How many have been sent.
  std::size_t requests() const { return requests_; }

 private:
  static constexpr RpcProgram moduleProgram{L2CP_PROGRAM, L2CP_VERSION};
  static constexpr RpcProgram controlProgram{CONTROL_PROGRAM, CONTROL_VERSION};

  Handle connect(const RpcProgram& program) const;
  /// Also gives the connection up: the next call makes a new one.
  [[noreturn]] void failed(Handle& handle, const RpcProgram& program) const;

  template <auto stub, class... Arguments>
  auto call(Handle& handle, const RpcProgram& program, Arguments... arguments) {
    if (!handle) handle = connect(program);
    ++requests_;
    const auto* result = stub(arguments..., handle.get());
    if (result == nullptr) failed(handle, program);
    using Result = std::remove_cvref_t<decltype(*result)>;
    if constexpr (std::is_enum_v<Result> || std::is_integral_v<Result>) {
      return *result;
    } else {
      return Reply<Result>(*result);
    }
  }

  Server server_;
  Handle module_;
  Handle control_;
  std::size_t requests_ = 0;
};

/// The stubs take texts that they could write to, although they never do.
inline char* wireText(std::string& text) { return text.data(); }

// ---- Release of what replies own ----

inline bool_t filter(XDR* xdr, rpc_l2cp_proto_all* of) { return xdr_rpc_l2cp_proto_all(xdr, of); }
inline bool_t filter(XDR* xdr, rpc_l2cp_profile_all* of) {
  return xdr_rpc_l2cp_profile_all(xdr, of);
}
inline bool_t filter(XDR* xdr, rpc_l2cp_profile_proto_all* of) {
  return xdr_rpc_l2cp_profile_proto_all(xdr, of);
}
inline bool_t filter(XDR* xdr, rpc_l2cp_profile_link* of) {
  return xdr_rpc_l2cp_profile_link(xdr, of);
}
inline bool_t filter(XDR* xdr, rpc_l2cp_proto* of) { return xdr_rpc_l2cp_proto(xdr, of); }
inline bool_t filter(XDR* xdr, rpc_l2cp_profile* of) { return xdr_rpc_l2cp_profile(xdr, of); }
inline bool_t filter(XDR* xdr, rpc_l2cp_profile_proto* of) {
  return xdr_rpc_l2cp_profile_proto(xdr, of);
}
inline bool_t filter(XDR* xdr, rpc_l2cp_profile_use* of) {
  return xdr_rpc_l2cp_profile_use(xdr, of);
}
inline bool_t filter(XDR* xdr, rpc_l2cp_port_all* of) { return xdr_rpc_l2cp_port_all(xdr, of); }
inline bool_t filter(XDR* xdr, rpcl2cpProfEditResult* of) {
  return xdr_rpcl2cpProfEditResult(xdr, of);
}
inline bool_t filter(XDR* xdr, rpc_l2cp_counters* of) { return xdr_rpc_l2cp_counters(xdr, of); }
inline bool_t filter(XDR* xdr, control_text* of) { return xdr_control_text(xdr, of); }
inline bool_t filter(XDR* xdr, control_feed_result* of) { return xdr_control_feed_result(xdr, of); }
inline bool_t filter(XDR* xdr, control_config_result* of) {
  return xdr_control_config_result(xdr, of);
}
inline bool_t filter(XDR* xdr, control_save_result* of) { return xdr_control_save_result(xdr, of); }
inline bool_t filter(XDR* xdr, control_service_profiles* of) {
  return xdr_control_service_profiles(xdr, of);
}
inline bool_t filter(XDR* xdr, control_vlan_profiles* of) {
  return xdr_control_vlan_profiles(xdr, of);
}
inline bool_t filter(XDR* xdr, control_attachments* of) { return xdr_control_attachments(xdr, of); }
inline bool_t filter(XDR* xdr, control_entries* of) { return xdr_control_entries(xdr, of); }
inline bool_t filter(XDR* xdr, control_explain_result* of) {
  return xdr_control_explain_result(xdr, of);
}
inline bool_t filter(XDR* xdr, control_ports* of) { return xdr_control_ports(xdr, of); }
inline bool_t filter(XDR* xdr, control_status* of) { return xdr_control_status(xdr, of); }
inline bool_t filter(XDR* xdr, control_live_ports* of) { return xdr_control_live_ports(xdr, of); }

template <class Result>
Reply<Result>::~Reply() {
  XDR xdr{};
  xdr.x_op = XDR_FREE;
  filter(&xdr, &result_);
}

}  // namespace cli
