#include "host/registrar.h"

#include <arpa/inet.h>
#include <rpc/pmap_clnt.h>
#include <rpc/pmap_prot.h>
#include <rpc/rpc.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "host/log.h"

namespace {

using namespace std::chrono_literals;

constexpr auto interval = 2s;
// A question to the port mapper, and how long until it is repeated in case it got lost.
constexpr timeval answerTimeout{.tv_sec = 1, .tv_usec = 0};
constexpr timeval repeatInterval{.tv_sec = 0, .tv_usec = 400'000};

template <class Value>
Value socketOption(int socket, int option) {
  Value value{};
  socklen_t size = sizeof(value);
  getsockopt(socket, SOL_SOCKET, option, &value, &size);
  return value;
}

struct Answer {
  clnt_stat status;
  in_port_t port;
};

// Asks the port mapper for the port of a program and protocol: 0 if it knows none. The RPC
// library's own function would wait for a minute.
Answer registeredPort(const RpcProgram& program, unsigned long protocol) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(PMAPPORT);
  int socket = RPC_ANYSOCK;
  CLIENT* client = clntudp_create(&address, PMAPPROG, PMAPVERS, repeatInterval, &socket);
  if (client == nullptr) return {rpc_createerr.cf_stat, 0};

  pmap question{
      .pm_prog = program.number, .pm_vers = program.version, .pm_prot = protocol, .pm_port = 0};
  u_short port = 0;
  // NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast): the RPC library asks for it
  const clnt_stat status =
      clnt_call(client, PMAPPROC_GETPORT, reinterpret_cast<xdrproc_t>(xdr_pmap),
                reinterpret_cast<char*>(&question), reinterpret_cast<xdrproc_t>(xdr_u_short),
                reinterpret_cast<char*>(&port), answerTimeout);
  // NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
  clnt_destroy(client);
  return {status, port};
}

}  // namespace

RpcPorts RpcPorts::ofThisProcess() {
  RpcPorts ports;
  for (int socket = 0; socket < FD_SETSIZE; ++socket) {
    if (!FD_ISSET(socket, &svc_fdset)) continue;
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the sockets interface wants it
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) continue;
    // The loop also watches sockets that are no transports, such as what tells of interfaces.
    if (address.sin_family != AF_INET) continue;
    const bool datagrams = socketOption<int>(socket, SO_TYPE) == SOCK_DGRAM;
    (datagrams ? ports.udp : ports.tcp).insert(ntohs(address.sin_port));
  }
  return ports;
}

/// What the thread works with. It may outlive the registrar while the port mapper is silent.
struct Registrar::Watch {
  enum class State { registered, renewed, silent, taken };

  Watch(std::span<const RpcProgram> ofProcess, RpcPorts ownPorts)
      : programs(ofProcess.begin(), ofProcess.end()), ports(std::move(ownPorts)) {}

  void run() {
    State state = State::registered;
    while (!waitForStop()) {
      const State before = std::exchange(state, check());
      if (state != before) report(before, state);
    }
    const bool done = unregister();
    const std::lock_guard lock(mutex);
    unregistered = done;
    ended = true;
    changed.notify_all();
  }

  bool waitForStop() {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, interval, [this] { return stopping; });
  }

  State check() const {
    State state = State::registered;
    for (const RpcProgram& program : programs) {
      for (const auto& [protocol, own] :
           {std::pair{IPPROTO_UDP, &ports.udp}, std::pair{IPPROTO_TCP, &ports.tcp}}) {
        if (own->empty()) continue;
        const auto [status, port] = registeredPort(program, static_cast<unsigned long>(protocol));
        if (status != RPC_SUCCESS) return State::silent;
        if (own->contains(port)) continue;
        if (port != 0) {
          state = State::taken;
        } else if (!pmap_set(program.number, program.version, protocol, *own->begin())) {
          return State::silent;
        } else if (state == State::registered) {
          state = State::renewed;
        }
      }
    }
    return state;
  }

  static void report(State before, State state) {
    switch (state) {
      case State::registered:
        if (before == State::silent) hostlog::information("rpc", "the port mapper answers again");
        break;
      case State::renewed:
        hostlog::information("rpc", "registered with the port mapper again");
        break;
      case State::silent:
        hostlog::warning("rpc",
                         "the port mapper does not answer: new clients cannot find the "
                         "daemon until it does");
        break;
      case State::taken:
        hostlog::warning("rpc",
                         "the port mapper has other ports for this daemon's programs: new "
                         "clients go there");
        break;
    }
  }

  // False for a port mapper that is there and silent. One that is gone knows nothing any more.
  bool unregister() const {
    return std::all_of(programs.begin(), programs.end(),
                       [this](const RpcProgram& program) { return unregister(program); });
  }

  bool unregister(const RpcProgram& program) const {
    const Answer udp = registeredPort(program, IPPROTO_UDP);
    if (udp.status == RPC_TIMEDOUT) return false;
    const Answer tcp = registeredPort(program, IPPROTO_TCP);
    if (tcp.status == RPC_TIMEDOUT) return false;
    // Both go at once, so that what another process has registered has to stay as a whole.
    if (ports.udp.contains(udp.port) || ports.tcp.contains(tcp.port)) {
      pmap_unset(program.number, program.version);
    }
    return true;
  }

  const std::vector<RpcProgram> programs;
  const RpcPorts ports;

  std::mutex mutex;
  std::condition_variable changed;
  bool stopping = false;
  bool ended = false;
  bool unregistered = false;
};

Registrar::Registrar(std::span<const RpcProgram> programs, RpcPorts ports)
    : watch_(std::make_shared<Watch>(programs, std::move(ports))),
      thread_([watch = watch_] { watch->run(); }) {}

Registrar::~Registrar() {
  beginStop();
  if (thread_.joinable()) thread_.detach();
}

void Registrar::beginStop() {
  const std::lock_guard lock(watch_->mutex);
  watch_->stopping = true;
  watch_->changed.notify_all();
}

bool Registrar::waitStopped(std::chrono::steady_clock::time_point deadline) {
  {
    std::unique_lock lock(watch_->mutex);
    if (!watch_->changed.wait_until(lock, deadline, [this] { return watch_->ended; })) return false;
  }
  if (thread_.joinable()) thread_.join();
  return watch_->unregistered;
}
