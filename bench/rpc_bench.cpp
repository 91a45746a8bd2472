// Requests against the null procedure of the same transport, that against a bare UDP echo, and long
// lists against what their encoding and decoding alone costs. To
// be run by bench/run: needs a port mapper and l2cpd, and all of them on one CPU (across two, the
// wake-ups hide everything else).

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/ratio.h"
#include "rpc/l2cp.h"

namespace {

constexpr int rounds = 31;
constexpr int callsPerRound = 400;
constexpr int attachmentsPerRound = 100;
constexpr timeval callTimeout{.tv_sec = 5, .tv_usec = 0};

std::string profileName = "bench";
constexpr unsigned int port = 7;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "rpc_bench: %s\n", what);
  std::exit(1);
}

// The filter of a procedure without argument or result.
bool_t nothing(XDR* /*xdrs*/, ...) { return TRUE; }

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

  void null() const {
    if (clnt_call(handle_, NULLPROC, nothing, nullptr, nothing, nullptr, callTimeout) !=
        RPC_SUCCESS) {
      fail(clnt_sperror(handle_, "null"));
    }
  }

 private:
  CLIENT* handle_;
};

bench::Nanoseconds average(int count, const std::function<void()>& call) {
  const bench::Stopwatch watch;
  for (int i = 0; i < count; ++i) call();
  return watch.read() / count;
}

void compareTransport(const char* transport) {
  const Client client(transport);
  const auto nullCost = [&] { return average(callsPerRound, [&] { client.null(); }); };
  const std::string suffix = std::string(", ") + transport;
  const std::string with = "null procedure" + suffix;
  const auto filter = [](auto* function) {
    return reinterpret_cast<xdrproc_t>(function);  // NOLINT: RPC's interface
  };

  bench::compare(
      "proto_get" + suffix, with, bench::atLeast(0.95), rounds,
      [&] {
        return average(callsPerRound, [&] {
          client.use(rpc_l2cp_proto_get_1(3, client.get()), filter(xdr_rpc_l2cp_proto));
        });
      },
      nullCost);
  bench::compare(
      "port_stat" + suffix, with, bench::atLeast(0.95), rounds,
      [&] {
        return average(callsPerRound, [&] {
          client.use(rpc_l2cp_port_stat_1(port, client.get()), filter(xdr_rpc_l2cp_counters));
        });
      },
      nullCost);
  bench::compare(
      "proto_get_all, 14 protocols" + suffix, with, bench::atLeast(0.85), rounds,
      [&] {
        return average(callsPerRound, [&] {
          client.use(rpc_l2cp_proto_get_all_1(client.get()), filter(xdr_rpc_l2cp_proto_all));
        });
      },
      nullCost);
  bench::compare(
      "attach 14 protocols" + suffix, with, bench::atLeast(0.35), rounds,
      [&] {
        bench::Nanoseconds total = 0;
        for (int i = 0; i < attachmentsPerRound; ++i) {
          const bench::Stopwatch watch;
          client.check(rpc_l2cp_profile_port_attach_1(profileName.data(), port, 100, client.get()));
          total += watch.read();
          client.check(rpc_l2cp_profile_port_detach_1(profileName.data(), port, 100, client.get()));
        }
        return total / attachmentsPerRound;
      },
      nullCost);
}

void makeProfile() {
  const Client client("tcp");
  rpc_l2cp_profile profile{};
  profile.name = profileName.data();
  client.check(rpc_l2cp_profile_add_1(profile, client.get()));
  rpc_l2cp_proto_all* all = rpc_l2cp_proto_get_all_1(client.get());
  if (all == nullptr) fail("no protocols");
  for (u_int i = 0; i < all->list.list_len; ++i) {
    client.check(rpc_l2cp_profile_proto_add_1(profileName.data(), all->list.list_val[i].name,
                                              RPC_L2CP_RULE_DISCARD, client.get()));
  }
  // Makes the port's counters.
  client.check(rpc_l2cp_profile_port_attach_1(profileName.data(), port, 100, client.get()));
  client.check(rpc_l2cp_profile_port_detach_1(profileName.data(), port, 100, client.get()));
}

// ---- A bare UDP echo, the least that a request and its reply can cost ----

sockaddr* generic(sockaddr_in& address) {
  return reinterpret_cast<sockaddr*>(&address);  // NOLINT: the sockets interface asks for it
}

int boundSocket(sockaddr_in& address) {
  const int socket = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  if (socket < 0 || bind(socket, generic(address), length) != 0 ||
      getsockname(socket, generic(address), &length) != 0) {
    fail("no UDP socket");
  }
  return socket;
}

bool waitReadable(int socket, timeval timeout) {
  fd_set ready;
  FD_ZERO(&ready);
  FD_SET(socket, &ready);
  return select(FD_SETSIZE, &ready, nullptr, nullptr, &timeout) > 0;
}

[[noreturn]] void echo(int socket) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) {
    if (!waitReadable(socket, {.tv_sec = 1, .tv_usec = 0})) continue;
    char buffer[9000];
    sockaddr_in peer{};
    socklen_t length = sizeof(peer);
    const ssize_t size = recvfrom(socket, buffer, sizeof(buffer), 0, generic(peer), &length);
    if (size >= 0) sendto(socket, buffer, static_cast<std::size_t>(size), 0, generic(peer), length);
  }
}

void compareNullWithEcho() {
  sockaddr_in server{};
  const int serverSocket = boundSocket(server);
  const pid_t child = fork();
  if (child == 0) echo(serverSocket);
  sockaddr_in own{};
  const int socket = boundSocket(own);
  if (connect(socket, generic(server), sizeof(server)) != 0) fail("no echo");

  const Client client("udp");
  // A null call is 40 bytes and its reply 24.
  std::vector<char> request(40);
  bench::compare(
      "null procedure, udp", "bare echo, udp", bench::atLeast(0.75), rounds,
      [&] { return average(callsPerRound, [&] { client.null(); }); },
      [&] {
        return average(callsPerRound, [&] {
          char reply[64];
          // With a time limit, as every client of a datagram service has one.
          if (send(socket, request.data(), request.size(), 0) < 0 ||
              !waitReadable(socket, callTimeout) || recv(socket, reply, sizeof(reply), 0) < 0) {
            fail("no echo");
          }
        });
      });
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

// ---- Long lists, which only TCP carries ----

constexpr int listLength = 500;
constexpr int listRounds = 11;

void fillLists(const Client& client) {
  for (int i = 0; i < listLength; ++i) {
    std::string name = "number " + std::to_string(i);
    unsigned char mac[] = {0x01, 0x80, 0xc2, 0, 0, 0x40};
    rpc_l2cp_proto proto{};
    proto.name = name.data();
    proto.mac = {.rpc_l2cp_mac_t_len = sizeof(mac), .rpc_l2cp_mac_t_val = mac};
    client.check(rpc_l2cp_proto_add_1(proto, client.get()));
    rpc_l2cp_profile profile{};
    profile.name = name.data();
    client.check(rpc_l2cp_profile_add_1(profile, client.get()));
  }
}

// Encodes a list into memory, decodes it again and frees what that took.
template <class List>
void carryInMemory(List& list, bool_t (*filter)(XDR*, List*), std::vector<char>& memory) {
  XDR stream{};
  xdrmem_create(&stream, memory.data(), static_cast<u_int>(memory.size()), XDR_ENCODE);
  if (!filter(&stream, &list)) fail("a list does not fit");
  List copy{};
  xdrmem_create(&stream, memory.data(), static_cast<u_int>(memory.size()), XDR_DECODE);
  if (!filter(&stream, &copy)) fail("a list does not decode");
  stream.x_op = XDR_FREE;
  filter(&stream, &copy);
}

template <class List>
void compareList(const char* what, const Client& client, List* (*getAll)(CLIENT*),
                 bool_t (*filter)(XDR*, List*)) {
  const auto xdr = reinterpret_cast<xdrproc_t>(filter);  // NOLINT: RPC's interface
  std::vector<char> memory(std::size_t{1} << 20);
  const List list = *getAll(client.get());
  const double length = list.list.list_len;
  bench::compare(
      std::string(what) + ", an element of " + std::to_string(list.list.list_len),
      "in memory alone", bench::noGoal(), listRounds,
      [&] { return average(20, [&] { client.use(getAll(client.get()), xdr); }) / length; },
      [&] {
        List original = list;
        return average(20, [&] { carryInMemory(original, filter, memory); }) / length;
      });
}

void compareLists() {
  const Client client("tcp");
  fillLists(client);
  compareList("proto_get_all", client, rpc_l2cp_proto_get_all_1, xdr_rpc_l2cp_proto_all);
  compareList("profile_get_all", client, rpc_l2cp_profile_get_all_1, xdr_rpc_l2cp_profile_all);
  const auto filter = [](auto* function) {
    return reinterpret_cast<xdrproc_t>(function);  // NOLINT: RPC's interface
  };
  bench::compare(
      "500 profiles by position", "one profile_get_all", bench::noGoal(), listRounds,
      [&] {
        const bench::Stopwatch watch;
        for (u_int i = 0; i < listLength; ++i) {
          client.use(rpc_l2cp_profile_get_1(i, client.get()), filter(xdr_rpc_l2cp_profile));
        }
        return watch.read();
      },
      [&] {
        return average(5, [&] {
          client.use(rpc_l2cp_profile_get_all_1(client.get()), filter(xdr_rpc_l2cp_profile_all));
        });
      });
}

}  // namespace

int main() {
  makeProfile();
  compareNullWithEcho();
  compareTransport("udp");
  compareTransport("tcp");
  compareLists();
}
