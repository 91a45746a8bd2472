// Frames through a bridge of three virtual cables, with and without the XDP program on its ports,
// in generic mode. To be run by bench/run as root; makes a network namespace of its own.

#include <ifaddrs.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <sched.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "bench/nftables.h"
#include "bench/ratio.h"
#include "bench/sender.h"
#include "bench/switch.h"
#include "classifier/xdp/attachment.h"
#include "tests/support/frame_builder.h"

namespace {

using bench::Nanoseconds;
using classifier::xdp::Attachment;
using classifier::xdp::Mode;
using classifier::xdp::Problem;
using support::Bytes;
using support::FrameBuilder;

constexpr int rounds = 15;
constexpr std::uint32_t framesPerRound = 400 * bench::batch;
constexpr std::uint32_t ports = 3;
constexpr support::Mac receiver = {0x02, 0, 0, 0, 0, 2};

void makeNetwork() {
  if (unshare(CLONE_NEWNET) != 0 ||
      std::system(  // NOLINT(cert-env33-c): a benchmark's own words
          "ip link add br0 type bridge mcast_snooping 0 && ip link set br0 up && "
          "for i in 1 2 3; do ip link add p$i type veth peer name c$i && "
          "ip link set p$i master br0 up && ip link set c$i up || exit 1; done") != 0) {
    throw std::runtime_error("no bridge can be made here");
  }
}

std::uint64_t received(std::string_view interface) {
  ifaddrs* all = nullptr;
  if (getifaddrs(&all) != 0) return 0;
  std::uint64_t frames = 0;
  for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
    const bool isLink = one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_PACKET;
    if (isLink && one->ifa_data != nullptr && interface == one->ifa_name) {
      frames = static_cast<const rtnl_link_stats*>(one->ifa_data)->rx_packets;
    }
  }
  freeifaddrs(all);
  return frames;
}

// The entries of each port tunnel.
class Programs {
 public:
  Programs() {
    for (std::uint32_t port = 1; port <= ports; ++port) {
      switch_.addPort(port);
      switch_.plane.setInterface(port, interfaceOf(port));
      switch_.plane.setOutlet(port, classifier::xdp::Outlet{.bridge = 1});
      switch_.addEntries(std::to_string(port).c_str(), bench::entries);
    }
    switch_.plane.showMembers();
  }

  // As long as what is returned lives.
  std::vector<Attachment> attach(Mode mode) const {
    std::vector<Attachment> attachments;
    for (std::uint32_t port = 1; port <= ports; ++port) {
      auto made = Attachment::make(switch_.plane.programs(), interfaceOf(port), {.mode = mode});
      if (const auto* problem = std::get_if<Problem>(&made)) {
        throw std::runtime_error(problem->text);
      }
      attachments.push_back(std::get<Attachment>(std::move(made)));
    }
    return attachments;
  }

 private:
  static std::uint32_t interfaceOf(std::uint32_t port) {
    return if_nametoindex(("p" + std::to_string(port)).c_str());
  }

  bench::Switch switch_{bench::wholePort, ACL_ACTION_NO_L2CP};
};

// As many rules before the bridge as a port has entries.
class Chain {
 public:
  Chain() {
    nft_.run("add table bridge l2cp\n" + bench::addCounters("bridge l2cp", "c") +
             "add chain bridge l2cp p { type filter hook prerouting priority 0 ; }\n" +
             bench::addRules("bridge l2cp p", "accept"));
  }
  ~Chain() { nft_.run("delete table bridge l2cp"); }
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

 private:
  bench::Nftables nft_;
};

// The cost of each frame that arrives at the other cables' ends.
template <class Sender>
Nanoseconds deliver(const Sender& send, const Bytes& frame) {
  const std::uint64_t before = received("c2") + received("c3");
  const Nanoseconds cost = send(frame, framesPerRound) * framesPerRound;
  const std::uint64_t arrived = received("c2") + received("c3") - before;
  return cost / static_cast<double>(arrived > 0 ? arrived : 1);
}

template <class Sender>
void tunnels(const Programs& programs, const char* what, const Sender& send) {
  const Bytes frame = bench::controlFrame(bench::entries - 1, bench::wholePort);
  const auto with = [&] {
    const auto attached = programs.attach(Mode::generic);
    return deliver(send, frame);
  };
  bench::compare(what, "flooded by the bridge", bench::atLeast(1.2), rounds, with,
                 [&] { return deliver(send, frame); });
  bench::compare(what, "flooded behind a chain of 99 rules", bench::atLeast(3), rounds, with, [&] {
    const Chain chain;
    return deliver(send, frame);
  });
}

template <class Sender>
void ordinary(const Programs& programs, const char* what, Mode mode, const Sender& send) {
  const Bytes frame =
      FrameBuilder().ethernet(receiver, bench::station).etherType(0x88b6).padTo(64).bytes();
  bench::compare(
      what, "without programs", bench::atLeast(0.9), rounds,
      [&] {
        const auto attached = programs.attach(mode);
        return deliver(send, frame);
      },
      [&] { return deliver(send, frame); });
}

void run() {
  makeNetwork();
  const Programs programs;
  // The bridge learns where the receiver is.
  bench::Socket("c2")(
      FrameBuilder().ethernet(bench::station, receiver).etherType(0x88b5).padTo(64).bytes(),
      bench::batch);

  const bench::Socket socket("c1");
  tunnels(programs, "tunnel to two ports, generic mode, from a socket", socket);
  ordinary(programs, "ordinary unicast, generic mode, from a socket", Mode::generic, socket);
  bench::gatherFrames("p1");
  const bench::Driver driver("c1");
  tunnels(programs, "tunnel to two ports, generic mode, live frames", driver);
  ordinary(programs, "ordinary unicast, generic mode, live frames", Mode::generic, driver);
  ordinary(programs, "ordinary unicast, native mode, live frames", Mode::native, driver);
}

}  // namespace

int main() { return bench::runOrSkip(run); }
