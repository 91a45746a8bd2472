#include "cli/client.h"

#include <netdb.h>
#include <netinet/in.h>
#include <rpc/pmap_prot.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <thread>
#include <utility>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr RpcProgram portMapper{PMAPPROG, PMAPVERS};

// Larger than any request, so that each goes out as a single fragment of its record (RFC 5531,
// section 11). The daemon limits the size of records, and its RPC library then takes no others.
constexpr u_int sendBuffer = 512 * 1024;

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::microseconds;

/// A socket until a CLIENT handle takes it over.
class Socket {
 public:
  explicit Socket(int fd) : fd_(fd) {}
  Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  Socket& operator=(Socket&&) = delete;
  ~Socket() {
    if (fd_ >= 0) ::close(fd_);
  }

  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

timeval timevalOf(Microseconds time) {
  constexpr Microseconds::rep perSecond = 1'000'000;
  return {.tv_sec = time.count() / perSecond, .tv_usec = time.count() % perSecond};
}

// What is left until the deadline; never nothing, which would stand for "without limit".
Microseconds leftUntil(Clock::time_point deadline) {
  constexpr Microseconds least{1000};
  return std::max(least, std::chrono::duration_cast<Microseconds>(deadline - Clock::now()));
}

// Also bounds connect, see socket(7).
void limitSending(int fd, Microseconds time) {
  const timeval limit = timevalOf(time);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

const sockaddr* generic(const sockaddr_in& address) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the interface of sockets
  return reinterpret_cast<const sockaddr*>(&address);
}

/// The way to a program, and what every failure on it is reported with.
class Attempt {
 public:
  Attempt(const Server& server, const RpcProgram& program)
      : server_(server), program_(program), deadline_(Clock::now() + server.timeout) {}

  [[noreturn]] void fail(const std::string& how) const {
    throw NotReached(fmt::format("l2cpd not reached at {} (program {:#x}, version {}, TCP): {}",
                                 safeText(server_.address), program_.number, program_.version,
                                 how));
  }

  // What the other side did, to follow its name: for an error number, and for a failed call.
  std::string howItFailed(int error) const {
    if (error == EINPROGRESS || error == EAGAIN) return noAnswer();
    return fmt::format("did not answer ({})", std::strerror(error));
  }
  std::string howItFailed(CLIENT& handle) const {
    rpc_err error{};
    clnt_geterr(&handle, &error);
    switch (error.re_status) {
      case RPC_TIMEDOUT:
        return noAnswer();
      case RPC_CANTSEND:
      case RPC_CANTRECV:
        return error.re_errno != 0 ? howItFailed(error.re_errno) : "closed the connection";
      default:
        return fmt::format("did not understand ({})", clnt_sperrno(error.re_status));
    }
  }

  sockaddr_in resolve() const {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = ::getaddrinfo(server_.address.c_str(), nullptr, &hints, &found);
    if (error != 0) {
      fail(fmt::format("no IPv4 address, nor a name that leads to one ({})", gai_strerror(error)));
    }
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr,
                std::min<std::size_t>(sizeof(address), found->ai_addrlen));
    ::freeaddrinfo(found);
    return address;
  }

  // A connected socket, or the error number of what went wrong.
  std::pair<Socket, int> connectTo(const sockaddr_in& address) const {
    Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.get() < 0) return {std::move(socket), errno};
    limitSending(socket.get(), leftUntil(deadline_));
    const int result = ::connect(socket.get(), generic(address), sizeof(address));
    const int error = result == 0 ? 0 : errno;
    return {std::move(socket), error};
  }

  // The handle closes the socket.
  Handle handleFor(Socket socket, sockaddr_in address, const RpcProgram& program) const {
    const netbuf buffer{.maxlen = sizeof(address), .len = sizeof(address), .buf = &address};
    Handle handle(
        clnt_vc_create(socket.get(), &buffer, program.number, program.version, sendBuffer, 0));
    if (!handle) fail(clnt_spcreateerror("no RPC connection"));
    clnt_control(handle.get(), CLSET_FD_CLOSE, nullptr);
    socket.release();
    return handle;
  }

  // The TCP port at which the program is served, in network byte order.
  in_port_t askPortMapper(sockaddr_in address) const {
    address.sin_port = htons(PMAPPORT);
    auto [socket, error] = connectTo(address);
    if (error != 0) fail("the port mapper " + howItFailed(error));
    const Handle handle = handleFor(std::move(socket), address, portMapper);
    pmap question{.pm_prog = program_.number,
                  .pm_vers = program_.version,
                  .pm_prot = IPPROTO_TCP,
                  .pm_port = 0};
    u_int port = 0;
    const clnt_stat status =
        clnt_call(handle.get(), PMAPPROC_GETPORT, reinterpret_cast<xdrproc_t>(xdr_pmap), &question,
                  reinterpret_cast<xdrproc_t>(xdr_u_int), &port, timevalOf(leftUntil(deadline_)));
    if (status != RPC_SUCCESS) fail("the port mapper " + howItFailed(*handle));
    if (port == 0 || port > std::numeric_limits<in_port_t>::max()) {
      fail("the port mapper answered that nobody serves the program; is l2cpd running?");
    }
    return htons(static_cast<in_port_t>(port));
  }

  Handle connectToProgram(sockaddr_in address) const {
    address.sin_port = askPortMapper(address);
    auto [socket, error] = connectTo(address);
    if (error != 0) {
      fail(fmt::format(
          "the port mapper answered with port {}, but the daemon there {}; is it running?",
          ntohs(address.sin_port), howItFailed(error)));
    }
    limitSending(socket.get(), server_.timeout);
    Handle handle = handleFor(std::move(socket), address, program_);
    timeval limit = timevalOf(server_.timeout);
    clnt_control(handle.get(), CLSET_TIMEOUT, &limit);
    return handle;
  }

 private:
  std::string noAnswer() const {
    return fmt::format("did not answer within {} s", server_.timeout.count());
  }

  const Server& server_;
  const RpcProgram& program_;
  Clock::time_point deadline_;
};

}  // namespace

void DestroyHandle::operator()(CLIENT* handle) const { clnt_destroy(handle); }

Handle Client::connect(const RpcProgram& program) const {
  using namespace std::chrono_literals;
  constexpr auto pause = 100ms;
  const sockaddr_in address = Attempt(server_, program).resolve();
  const Clock::time_point lastAttempt = Clock::now() + server_.wait;
  while (true) {
    try {
      return Attempt(server_, program).connectToProgram(address);
    } catch (const NotReached&) {
      if (isStopRequested() || Clock::now() + pause > lastAttempt) throw;
    }
    std::this_thread::sleep_for(pause);
  }
}

void Client::failed(Handle& handle, const RpcProgram& program) const {
  const Attempt attempt(server_, program);
  const std::string how = attempt.howItFailed(*handle);
  handle.reset();
  attempt.fail("the port mapper answered, but the daemon " + how);
}

}  // namespace cli
