// Attaching a profile of 14 protocols over RPC, with the XDP program as classifier, against the
// same as a transaction of the kernel's packet filter and as flows of Open vSwitch, each on an
// empty machine and on one that holds 50,000 elsewhere. To be run by bench/run as root, all on one
// CPU.

#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "bench/client.h"
#include "bench/nftables.h"
#include "bench/openFlow.h"
#include "bench/ratio.h"
#include "bench/switch.h"
#include "classifier/xdp/layout.h"
#include "tests/support/world.h"

namespace {

using bench::Nanoseconds;
using support::World;

constexpr int rounds = 21;
constexpr int attachmentsPerRound = 50;
constexpr int transactionsPerRound = 10;
constexpr int readsPerRound = 400;
constexpr int protocols = 14;
constexpr unsigned int port = 7;
constexpr unsigned short vlan = 100;

std::string profileName = "bench";

std::string configuration() {
  std::string text = "classifier = \"xdp\"\nstartup = \"\"\n";
  for (int i = 1; i <= L2CP_PORTS; ++i) {
    const std::string number = std::to_string(i);
    text += "[[port]]\nnumber = " + number + "\ninterface = \"p" + number + "\"\n";
  }
  return text;
}

/// A daemon in a world of its own.
class Daemon {
 public:
  Daemon() : client_(started(world_)) {
    client_.makeProfile(profileName.data());
    // Makes the port's counters.
    attach();
    detach();
  }

  /// All ports but the one that is measured get as many attachments as they hold.
  void fill() {
    constexpr unsigned short attachments = bench::entries / protocols;
    for (unsigned int other = 1; other <= L2CP_PORTS; ++other) {
      for (unsigned short i = 1; other != port && i <= attachments; ++i) {
        client_.attach(profileName.data(), other, static_cast<unsigned short>(vlan + i));
      }
    }
  }

  Nanoseconds attachments() {
    return bench::average(
        attachmentsPerRound, [&] { attach(); }, [&] { detach(); });
  }
  Nanoseconds reads() {
    return bench::average(readsPerRound, [&] {
      client_.use(rpc_l2cp_port_stat_1(port, client_.get()),
                  bench::filterOf(xdr_rpc_l2cp_counters));
    });
  }

 private:
  static const char* started(World& world) {
    world.startPortMapper();
    world.startDaemon({"--config", World::file("l2cpd.toml", configuration())});
    return "tcp";
  }
  void attach() { client_.attach(profileName.data(), port, vlan); }
  void detach() { client_.detach(profileName.data(), port, vlan); }

  World world_;
  bench::Client client_;
};

/// The packet filter of the network in which this is made: a table with a chain for each port.
class Filter {
 public:
  Filter() {
    nft_.run("add table netdev l2cp");
    nft_.run(chain(port));
    for (int i = 0; i < protocols; ++i) transaction_ += rule(port, i);
  }

  /// As many rules as make 50,000.
  void fill() {
    constexpr unsigned int ports = 506;

    for (unsigned int other = 1000; other < 1000 + ports; ++other) {
      std::string commands = chain(other);
      for (int i = 0; i < bench::entries; ++i) commands += rule(other, i);
      nft_.run(commands);
    }
  }

  Nanoseconds transactions() {
    return bench::average(
        transactionsPerRound, [&] { nft_.run(transaction_); },
        [&] { nft_.run("flush chain netdev l2cp " + name(port)); });
  }

 private:
  static std::string name(unsigned int number) { return "p" + std::to_string(number); }
  static std::string chain(unsigned int number) {
    return bench::addCounters("netdev l2cp", name(number) + "c") + "add chain netdev l2cp " +
           name(number) + "\n";
  }
  static std::string rule(unsigned int number, int i) {
    const std::string conditions = "ether daddr " + bench::addressText(bench::group(i)) +
                                   " vlan id " + std::to_string(vlan) + " vlan type 0x" +
                                   bench::hexadecimal(bench::etherType, 4);
    return bench::addRule("netdev l2cp " + name(number), conditions, name(number) + "c", "drop");
  }

  bench::Nftables nft_;
  std::string transaction_;
};

class Flows {
 public:
  Flows() {
    for (int i = 0; i < protocols; ++i) {
      add_.addFlow(port, vlan, bench::group(i), bench::etherType,
                   static_cast<std::uint16_t>(1000 - i));
    }
    add_.plain(bench::openflow::barrierRequest);
    remove_.removeFlows().plain(bench::openflow::barrierRequest);
  }

  Nanoseconds changes() {
    return bench::average(
        attachmentsPerRound, [&] { run(add_); }, [&] { run(remove_); });
  }

 private:
  void run(const bench::OpenFlowMessages& messages) {
    connection_.send(messages);
    connection_.waitForBarrier();
  }

  bench::OpenVSwitch switch_;
  bench::OpenFlowConnection connection_{switch_.socket()};
  bench::OpenFlowMessages add_;
  bench::OpenFlowMessages remove_;
};

std::unique_ptr<Flows> flows() {
  try {
    return std::make_unique<Flows>();
  } catch (const std::exception& problem) {
    std::printf("skipped, flows: %s\n", problem.what());
    return nullptr;
  }
}

void run() {
  // Each in a network of its own, which is the one that was made last.
  const auto openFlow = flows();
  Daemon empty;
  Filter emptyFilter;
  Daemon full;
  Filter fullFilter;
  full.fill();
  fullFilter.fill();

  const auto toEmpty = [&] { return empty.attachments(); };
  const auto toFull = [&] { return full.attachments(); };
  bench::compare("attach 14 protocols, empty machine", "libnftables, 14 rules", bench::atLeast(15),
                 rounds, toEmpty, [&] { return emptyFilter.transactions(); });
  bench::compare("attach 14 protocols, 50,000 entries elsewhere", "libnftables, as many rules",
                 bench::atLeast(30), rounds, toFull, [&] { return fullFilter.transactions(); });
  if (openFlow) {
    bench::compare("attach 14 protocols, empty machine", "Open vSwitch, 14 flows, barrier",
                   bench::atLeast(1.3), rounds, toEmpty, [&] { return openFlow->changes(); });
  }
  bench::compare("attach 14 protocols, 50,000 entries elsewhere", "on an empty machine",
                 bench::atMost(1.1), rounds, toFull, toEmpty);
  bench::compare(
      "statistics of a port, 50,000 entries elsewhere", "on an empty machine", bench::atMost(1.1),
      rounds, [&] { return full.reads(); }, [&] { return empty.reads(); });
}

}  // namespace

int main() { return bench::runOrSkip(run); }
