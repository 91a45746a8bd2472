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
#include <string>
#include <vector>

#include "bench/client.h"
#include "bench/ratio.h"
#include "rpc/l2cp.h"

namespace {

using bench::average;
using bench::Client;
using bench::fail;
using bench::filterOf;

constexpr int rounds = 31;
constexpr int callsPerRound = 400;
constexpr int attachmentsPerRound = 100;
constexpr timeval callTimeout{.tv_sec = 5, .tv_usec = 0};

std::string profileName = "bench";
constexpr unsigned int port = 7;
constexpr unsigned short vlan = 100;

// The filter of a procedure without argument or result.
bool_t nothing(XDR* /*xdrs*/, ...) { return TRUE; }

void callNull(const Client& client) {
  if (clnt_call(client.get(), NULLPROC, nothing, nullptr, nothing, nullptr, callTimeout) !=
      RPC_SUCCESS) {
    fail(clnt_sperror(client.get(), "null"));
  }
}

void compareTransport(const char* transport) {
  const Client client(transport);
  const auto nullCost = [&] { return average(callsPerRound, [&] { callNull(client); }); };
  const std::string suffix = std::string(", ") + transport;
  const std::string with = "null procedure" + suffix;

  bench::compare(
      "proto_get" + suffix, with, bench::atLeast(0.95), rounds,
      [&] {
        return average(callsPerRound, [&] {
          client.use(rpc_l2cp_proto_get_1(3, client.get()), filterOf(xdr_rpc_l2cp_proto));
        });
      },
      nullCost);
  bench::compare(
      "port_stat" + suffix, with, bench::atLeast(0.95), rounds,
      [&] {
        return average(callsPerRound, [&] {
          client.use(rpc_l2cp_port_stat_1(port, client.get()), filterOf(xdr_rpc_l2cp_counters));
        });
      },
      nullCost);
  bench::compare(
      "proto_get_all, 14 protocols" + suffix, with, bench::atLeast(0.85), rounds,
      [&] {
        return average(callsPerRound, [&] {
          client.use(rpc_l2cp_proto_get_all_1(client.get()), filterOf(xdr_rpc_l2cp_proto_all));
        });
      },
      nullCost);
  bench::compare(
      "attach 14 protocols" + suffix, with, bench::atLeast(0.35), rounds,
      [&] {
        return average(
            attachmentsPerRound, [&] { client.attach(profileName.data(), port, vlan); },
            [&] { client.detach(profileName.data(), port, vlan); });
      },
      nullCost);
}

void makeProfile() {
  const Client client("tcp");
  client.makeProfile(profileName.data());
  // Makes the port's counters.
  client.attach(profileName.data(), port, vlan);
  client.detach(profileName.data(), port, vlan);
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
      [&] { return average(callsPerRound, [&] { callNull(client); }); },
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
  const xdrproc_t xdr = filterOf(filter);
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
  bench::compare(
      "500 profiles by position", "one profile_get_all", bench::noGoal(), listRounds,
      [&] {
        const bench::Stopwatch watch;
        for (u_int i = 0; i < listLength; ++i) {
          client.use(rpc_l2cp_profile_get_1(i, client.get()), filterOf(xdr_rpc_l2cp_profile));
        }
        return watch.read();
      },
      [&] {
        return average(5, [&] {
          client.use(rpc_l2cp_profile_get_all_1(client.get()), filterOf(xdr_rpc_l2cp_profile_all));
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
