#pragma once

/// A client of the daemon as benchmarks want it: whatever goes wrong ends the program.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "bench/ratio.h"
#include "rpc/l2cp.h"

namespace bench {

[[noreturn]] inline void fail(const char* what) {
  std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, what);
  std::exit(1);
}

/// The generated filter of a type as the library takes it.
template <class Filter>
xdrproc_t filterOf(Filter* filter) {
  return reinterpret_cast<xdrproc_t>(filter);  // NOLINT: RPC's interface
}

class Client {
 public:
  explicit Client(const char* transport)
      : handle_(clnt_create("127.0.0.1", L2CP_PROGRAM, L2CP_VERSION, transport)) {
    if (handle_ == nullptr) fail(clnt_spcreateerror("no daemon"));
  }
  ~Client() { clnt_destroy(handle_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  CLIENT* get() const { return handle_; }

  // A generated stub's result, whose memory the library allocated.
  template <class Result>
  void use(Result* result, xdrproc_t filter) const {
    if (result == nullptr) fail(clnt_sperror(handle_, "call"));
    // Not clnt_freeres, which makes two system calls to free what needs none.
    xdr_free(filter, reinterpret_cast<char*>(result));  // NOLINT: RPC's interface
  }

  void check(const rpc_l2cp_error* error) const {
    if (error == nullptr) fail(clnt_sperror(handle_, "call"));
    if (*error != RPC_L2CP_OK) fail("a request was refused");
  }

  void attach(char* profile, unsigned int port, unsigned short vlan) const {
    check(rpc_l2cp_profile_port_attach_1(profile, port, vlan, handle_));
  }
  void detach(char* profile, unsigned int port, unsigned short vlan) const {
    check(rpc_l2cp_profile_port_detach_1(profile, port, vlan, handle_));
  }

  // A profile that discards all built-in protocols.
  void makeProfile(char* name) const {
    rpc_l2cp_profile profile{};
    profile.name = name;
    check(rpc_l2cp_profile_add_1(profile, handle_));
    const rpc_l2cp_proto_all* all = rpc_l2cp_proto_get_all_1(handle_);
    if (all == nullptr) fail("no protocols");
    for (u_int i = 0; i < all->list.list_len; ++i) {
      check(rpc_l2cp_profile_proto_add_1(name, all->list.list_val[i].name, RPC_L2CP_RULE_DISCARD,
                                         handle_));
    }
  }

 private:
  CLIENT* handle_;
};

inline Nanoseconds average(int count, const std::function<void()>& call) {
  const Stopwatch watch;
  for (int i = 0; i < count; ++i) call();
  return watch.read() / count;
}

/// The same where each call has to be undone before the next one.
inline Nanoseconds average(int count, const std::function<void()>& call,
                           const std::function<void()>& undo) {
  Nanoseconds total = 0;
  for (int i = 0; i < count; ++i) {
    const Stopwatch watch;
    call();
    total += watch.read();
    undo();
  }
  return total / count;
}

}  // namespace bench
