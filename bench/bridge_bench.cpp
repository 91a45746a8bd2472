// Frames through a bridge of three virtual cables, with and without the XDP program on its ports,
// in generic mode. To be run by bench/run as root; makes a network namespace of its own.

#include <ifaddrs.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <sched.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "bench/ratio.h"
#include "classifier/table.h"
#include "classifier/xdp/attachment.h"
#include "classifier/xdp/plane.h"
#include "platform/acl_ioctl.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"
#include "tests/support/packet_socket.h"

namespace {

using classifier::Table;
using classifier::xdp::Attachment;
using classifier::xdp::Mode;
using classifier::xdp::Plane;
using classifier::xdp::Problem;
using support::Bytes;
using support::FrameBuilder;
using support::PacketSocket;

constexpr int rounds = 21;
constexpr int framesPerRound = 20'000;
constexpr std::uint32_t ports = 3;
constexpr std::uint32_t entries = 99;
constexpr support::Mac sender = {0x02, 0, 0, 0, 0, 1};
constexpr support::Mac receiver = {0x02, 0, 0, 0, 0, 2};
constexpr support::Mac group = {0x01, 0, 0x0c, 0xcc, 0xcc, 0xcc};

bool makeNetwork() {
  if (unshare(CLONE_NEWNET) != 0) return false;
  return std::system(  // NOLINT(cert-env33-c): a benchmark's own words
             "ip link add br0 type bridge mcast_snooping 0 && ip link set br0 up && "
             "for i in 1 2 3; do ip link add p$i type veth peer name c$i && "
             "ip link set p$i master br0 up && ip link set c$i up || exit 1; done") == 0;
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

// The last of 99 entries of each port tunnels, the others are about other protocols.
class Programs {
 public:
  Programs() {
    table_.setDataPlane(&plane_);
    for (std::uint32_t port = 1; port <= ports; ++port) addPort(port);
  }

  // False if a program cannot be attached.
  bool attach() {
    for (std::uint32_t port = 1; port <= ports; ++port) {
      auto made = Attachment::make(plane_.programs(), interfaceOf(port), {.mode = Mode::generic});
      if (const auto* problem = std::get_if<Problem>(&made)) {
        std::printf("skipped: %s\n", problem->text.c_str());
        return false;
      }
      attachments_.push_back(std::get<Attachment>(std::move(made)));
    }
    return true;
  }
  void detach() { attachments_.clear(); }

 private:
  static std::uint32_t interfaceOf(std::uint32_t port) {
    return if_nametoindex(("p" + std::to_string(port)).c_str());
  }

  void addPort(std::uint32_t port) {
    plane_.addPort(port, {});
    plane_.setInterface(port, interfaceOf(port));
    const std::string text = std::to_string(port);
    request_.addCounter(text);
    for (std::uint32_t i = 0; i < entries; ++i) {
      const std::string name = text + ":" + std::to_string(i);
      request_.addSelector(name);
      request_.addDestination(name, group);
      request_.addEtherType(name, static_cast<std::uint16_t>(0x9000 + i));
      request_.addActionList(name);
      for (unsigned c = 0; c < 4; ++c) request_.addCounterChange(name, c, text);
      request_.addAction(name, 9, ACL_ACTION_NO_L2CP);
      if (request_.addEntry(text, 1, 200 + i, name, name) != 0) std::puts("an entry is refused");
    }
  }

  Plane plane_;
  Table table_;
  Requests request_{table_};
  std::vector<Attachment> attachments_;
};

// The cost of each frame that arrives at the other cables' ends.
bench::Nanoseconds send(const PacketSocket& socket, const Bytes& frame) {
  const std::uint64_t before = received("c2") + received("c3");
  const bench::Stopwatch watch;
  for (int i = 0; i < framesPerRound; ++i) socket.send(frame);
  const bench::Nanoseconds cost = watch.read();
  const std::uint64_t arrived = received("c2") + received("c3") - before;
  return cost / static_cast<double>(arrived > 0 ? arrived : 1);
}

}  // namespace

int main() {
  if (!makeNetwork()) {
    std::puts("skipped: no bridge can be made here");
    return 0;
  }
  std::optional<Programs> programs;
  try {
    programs.emplace();
  } catch (const classifier::xdp::PlaneError&) {
    std::puts("skipped: programs cannot be loaded here");
    return 0;
  }
  if (!programs->attach()) return 0;
  const Bytes protocol =
      FrameBuilder().ethernet(group, sender).etherType(0x9000 + entries - 1).padTo(64).bytes();
  const Bytes ordinary =
      FrameBuilder().ethernet(receiver, sender).etherType(0x88b6).padTo(64).bytes();
  const PacketSocket from("c1");
  // The bridge learns where the receiver is.
  PacketSocket("c2").send(
      FrameBuilder().ethernet(group, receiver).etherType(0x88b5).padTo(64).bytes());

  const auto with = [&](const Bytes& frame) {
    return [&] {
      programs->detach();
      programs->attach();
      return send(from, frame);
    };
  };
  const auto without = [&](const Bytes& frame) {
    return [&] {
      programs->detach();
      return send(from, frame);
    };
  };
  bench::compare("tunnel to two ports, last of 99 entries", "flooded by the bridge",
                 bench::atLeast(1.2), rounds, with(protocol), without(protocol));
  bench::compare("ordinary unicast through the bridge, program on", "without the program",
                 bench::atLeast(0.9), rounds, with(ordinary), without(ordinary));
}
