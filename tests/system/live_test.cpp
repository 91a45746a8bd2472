// Frames on real interfaces: a bridge with three ports, behind each a customer, and the daemon with
// the classifier in the kernel.

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <gmock/gmock.h>
#include <linux/bpf.h>
#include <linux/ethtool.h>
#include <linux/filter.h>
#include <linux/if_link.h>
#include <linux/seccomp.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "classifier/xdp/layout.h"
#include "tests/support/frame_builder.h"
#include "tests/support/packet_socket.h"
#include "tests/support/world.h"
#include "tests/system/control.h"
#include "tests/system/fixture.h"
#include "tests/system/service.h"

namespace {

using support::Bytes;
using support::eventually;
using support::FrameBuilder;
using support::PacketSocket;
using support::run;
using support::World;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr const char* configPath = "/run/l2cpd.toml";
constexpr support::Mac station = {0x02, 0, 0, 0, 0, 0xaa};
constexpr support::Mac everybody = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
constexpr support::Mac nearestBridge = {0x01, 0x80, 0xc2, 0, 0, 0x0e};
constexpr support::Mac vendor = {0x01, 0, 0x0c, 0xcc, 0xcc, 0xcc};

Bytes lldp() {
  return FrameBuilder().ethernet(nearestBridge, station).etherType(0x88cc).padTo(60).bytes();
}
Bytes lldp(std::uint16_t vlan) {
  return FrameBuilder()
      .ethernet(nearestBridge, station)
      .tag(0x8100, vlan, 5)
      .etherType(0x88cc)
      .payload({2, 7, 4})
      .padTo(61)
      .bytes();
}
/// Another address than those that a bridge keeps by itself.
Bytes cdp() {
  return FrameBuilder()
      .ethernet(vendor, station)
      .length(46)
      .snap({0, 0, 0x0c}, 0x2000)
      .padTo(60)
      .bytes();
}
Bytes cdp(std::uint16_t vlan) {
  return FrameBuilder()
      .ethernet(vendor, station)
      .tag(0x8100, vlan)
      .length(46)
      .snap({0, 0, 0x0c}, 0x2000)
      .padTo(64)
      .bytes();
}
/// Goes to all ports whatever is attached, so what was sent before has arrived when it does.
Bytes last() {
  return FrameBuilder().ethernet(everybody, station).etherType(0x88b5).padTo(60).bytes();
}

void ip(const std::string& arguments) {
  const support::Run result = run({"sh", "-c", "ip " + arguments});
  if (result.status != 0) throw std::runtime_error("ip " + arguments + ": " + result.output);
}

/// How often the text has the part.
std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

/// The bridge br0 with the ports p1 to p3, the other ends of whose cables are c1 to c3.
class Live : public WorldTest {
 protected:
  void SetUp() override {
    WorldTest::SetUp();
    if (IsSkipped()) return;
    const support::Run bridge = run({"ip", "link", "add", "br0", "type", "bridge"});
    if (bridge.status != 0) GTEST_SKIP() << "no bridge can be made here: " << bridge.output;
    ip("link set br0 up");
    for (int i = 1; i <= 3; ++i) cable(i);
    // Frames stay in their order on one processor.
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof one, &one);
  }

  void TearDown() override {
    service_.reset();
    if (isRunning_) {
      EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << world().daemon().output().text();
    }
  }

  static void cable(int number, const std::string& properties = "") {
    const std::string port = "p" + std::to_string(number);
    const std::string end = "c" + std::to_string(number);
    ip("link add " + port + " " + properties + " type veth peer name " + end);
    plug(port, end);
  }

  /// Into the bridge, which forwards some time after both ends are up.
  static void plug(const std::string& port, const std::string& end) {
    ip("link set " + port + " master br0 up");
    ip("link set " + end + " up");
    awaitForwarding(port);
  }

  static void rename(const std::string& from, const std::string& to) {
    ip("link set " + from + " down");
    ip("link set " + from + " name " + to);
    ip("link set " + to + " up");
    awaitForwarding(to);
  }

  static void awaitForwarding(const std::string& port) {
    EXPECT_TRUE(eventually([&] {
      const support::Run shown = run({"ip", "-details", "link", "show", port});
      return shown.output.find("state forwarding") != std::string::npos;
    })) << port;
  }

  static std::string config(const std::string& more = "", const std::string& port1 = "",
                            const std::string& port2 = "", const std::string& port3 = "") {
    return "classifier = \"xdp\"\n" + more + "\n[[port]]\nnumber = 1\ninterface = \"p1\"\n" +
           port1 + "\n[[port]]\nnumber = 2\ninterface = \"p2\"\n" + port2 +
           "\n[[port]]\nnumber = 3\ninterface = \"p3\"\n" + port3 + "\n";
  }

  /// False where the kernel does not let the daemon have its program; then the test is skipped.
  bool start(const std::string& contents = config()) {
    World::file("l2cpd.toml", contents);
    const support::Process& daemon = world().startDaemon({"-c", configPath}, false);
    if (!daemon.output().waitFor("l2cpd: daemon: ready")) {
      const std::string text = daemon.output().text();
      if (text.find("capabilities") == std::string::npos) {
        ADD_FAILURE() << text;
      } else {
        skip(text);
      }
      return false;
    }
    isRunning_ = true;
    service_ = std::make_unique<client::Service>("tcp");
    return true;
  }
  static void skip(const std::string& reason) { GTEST_SKIP() << reason; }
  void kill() {
    service_.reset();
    world().stopDaemon(SIGKILL);
    isRunning_ = false;
  }
  void stop() {
    service_.reset();
    EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
    isRunning_ = false;
  }

  void attach(const std::string& profile, rpc_l2cp_rule rule, std::uint16_t vlan = 4095,
              const std::vector<unsigned>& ports = {1, 2, 3}) {
    ASSERT_EQ(service_->profileAdd({.name = profile}), RPC_L2CP_OK);
    for (const char* protocol : {"LLDP", "CDP"}) {
      ASSERT_EQ(service_->entryAdd(profile, protocol, rule), RPC_L2CP_OK);
    }
    for (const unsigned port : ports) {
      ASSERT_EQ(service_->attach(profile, port, vlan), RPC_L2CP_OK);
    }
  }

  /// What arrives where when the frames are sent at c1: from the station, and not the last one.
  using Arrived = std::map<std::string, std::vector<Bytes>>;
  static Arrived send(const std::vector<Bytes>& frames) {
    const PacketSocket sender("c1");
    const std::array<std::string, 3> names = {"c2", "c3", "p1"};
    std::vector<PacketSocket> receivers;
    for (const std::string& name : names) receivers.emplace_back(name);
    for (const Bytes& frame : frames) sender.send(frame);
    sender.send(last());

    Arrived arrived;
    for (std::size_t i = 0; i < names.size(); ++i) {
      for (;;) {
        const auto frame = receivers[i].next();
        if (!frame) ADD_FAILURE() << "not even the last frame has arrived on " << names[i];
        if (!frame || *frame == last()) break;
        if (std::equal(station.begin(), station.end(), frame->begin() + 6)) {
          arrived[names[i]].push_back(*frame);
        }
      }
    }
    // None comes back.
    while (const auto frame = sender.next(std::chrono::milliseconds(0))) {
      if (std::equal(station.begin(), station.end(), frame->begin() + 6)) {
        arrived["c1"].push_back(*frame);
      }
    }
    return arrived;
  }

  /// Once the daemon has seen what has changed.
  static bool tunnels() {
    return eventually([] { return send({lldp()}) == Arrived{{"c2", {lldp()}}, {"c3", {lldp()}}}; });
  }

  /// Waits for the frame among others.
  static bool arrives(const PacketSocket& receiver, const Bytes& frame,
                      std::chrono::milliseconds timeout = support::patience) {
    while (const auto next = receiver.next(timeout)) {
      if (*next == frame) return true;
    }
    return false;
  }

  /// Where a frame arrives that is sent at one of the ends.
  static std::vector<std::string> reached(const std::string& from, const Bytes& frame) {
    constexpr std::chrono::milliseconds shortly(50);
    const std::vector<std::string> names = {"c1", "c2", "c3"};
    const std::vector<PacketSocket> receivers(names.begin(), names.end());
    PacketSocket(from).send(frame);
    std::vector<std::string> all;
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (arrives(receivers[i], frame, shortly)) all.push_back(names[i]);
    }
    return all;
  }

  static std::string state(unsigned port) {
    for (const client::LivePort& live : client::Control("tcp").livePorts()) {
      if (live.number == port) return live.state;
    }
    return "no such port";
  }
  static bool becomes(unsigned port, const std::string& wanted) {
    return eventually([&] { return state(port) == wanted; });
  }

  const client::Service& service() { return *service_; }

 private:
  std::unique_ptr<client::Service> service_;
  bool isRunning_ = false;
};

TEST_F(Live, TunnelledFramesReachEachOtherPortOnceAndNobodyElse) {
  if (!start()) return;
  // What the bridge does by itself.
  EXPECT_EQ(send({lldp(), cdp()}),
            (Arrived{{"c2", {cdp()}}, {"c3", {cdp()}}, {"p1", {lldp(), cdp()}}}));
  attach("t", RPC_L2CP_RULE_TUNNEL);
  EXPECT_EQ(send({lldp(), cdp(), lldp(100)}),
            (Arrived{{"c2", {lldp(), cdp(), lldp(100)}}, {"c3", {lldp(), cdp(), lldp(100)}}}));
  EXPECT_EQ(service().portStat(1).tunnel, 3U);
  EXPECT_EQ(service().portStat(2).tunnel, 0U);
}

TEST_F(Live, DiscardedFramesReachNobody) {
  if (!start()) return;
  attach("d", RPC_L2CP_RULE_DISCARD);
  EXPECT_THAT(send({lldp(), cdp(), lldp(100)}), IsEmpty());
  EXPECT_EQ(service().portStat(1).discard, 3U);
}

TEST_F(Live, PeeredFramesReachTheMachineAlone) {
  if (!start()) return;
  EXPECT_EQ(send({cdp(100)}).size(), 3U);
  attach("p", RPC_L2CP_RULE_PEER);
  EXPECT_EQ(send({lldp(), cdp(), lldp(100), cdp(100)}),
            (Arrived{{"p1", {lldp(), cdp(), lldp(100), cdp(100)}}}));
  EXPECT_EQ(service().portStat(1).peer, 4U);
}

TEST_F(Live, PeeredFramesStayHereThoughTheBridgeIsToldToForwardTheirGroup) {
  if (!start()) return;
  ip("link set br0 type bridge group_fwd_mask 0x4000");
  EXPECT_EQ(send({lldp()}), (Arrived{{"c2", {lldp()}}, {"c3", {lldp()}}, {"p1", {lldp()}}}));
  attach("p", RPC_L2CP_RULE_PEER);
  EXPECT_TRUE(eventually([] { return send({lldp()}) == Arrived{{"p1", {lldp()}}}; }));
}

TEST_F(Live, VlansAreKeptApart) {
  if (!start(config("", "vlans = [100, 200]", "vlans = [100]\nnative-vlan = 100",
                    "vlans = [200]\nnative-vlan = 1"))) {
    return;
  }
  attach("t", RPC_L2CP_RULE_TUNNEL);
  EXPECT_EQ(send({lldp(100)}), (Arrived{{"c2", {lldp(100)}}}));
  EXPECT_EQ(send({lldp(200)}), (Arrived{{"c3", {lldp(200)}}}));
  EXPECT_EQ(send({lldp()}), (Arrived{{"c3", {lldp()}}}));
  EXPECT_EQ(send({lldp(300)}), Arrived{});
}

TEST_F(Live, TunnelledFramesStayInTheirBridge) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  ip("link add br1 type bridge");
  ip("link set br1 up");
  ip("link set p3 master br1");
  EXPECT_TRUE(eventually([] { return reached("c1", lldp()) == std::vector<std::string>{"c2"}; }));
  EXPECT_THAT(reached("c3", lldp()), IsEmpty());
  ip("link set p2 master br1");
  EXPECT_TRUE(eventually([] { return reached("c3", lldp()) == std::vector<std::string>{"c2"}; }));
  EXPECT_THAT(reached("c1", lldp()), IsEmpty());
  ip("link set p2 nomaster");
  EXPECT_TRUE(world().daemon().output().waitFor(
      "warning: xdp: port 2, p2: is in no bridge: no frame is tunnelled from or to it"));
  EXPECT_THAT(reached("c2", lldp()), IsEmpty());
  EXPECT_THAT(reached("c3", lldp()), IsEmpty());
}

TEST_F(Live, TunnelledFramesReachTheOthersWhenAPortIsDown) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  ip("link set p2 down");
  EXPECT_TRUE(eventually([] { return reached("c1", lldp()) == std::vector<std::string>{"c3"}; }));
  ip("link set p2 up");
  const std::vector<std::string> both = {"c2", "c3"};
  EXPECT_TRUE(eventually([&] { return reached("c1", lldp()) == both; }));
}

TEST_F(Live, ATunnelledFrameThatIsTooLargeForAPortReachesTheOthers) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  const Bytes large =
      FrameBuilder().ethernet(nearestBridge, station).etherType(0x88cc).padTo(400).bytes();
  const Arrived both{{"c2", {large}}, {"c3", {large}}};
  EXPECT_EQ(send({large}), both);
  ip("link set p2 mtu 200");
  EXPECT_TRUE(eventually([&] { return send({large}) == Arrived{{"c3", {large}}}; }));
  ip("link set p3 mtu 300");
  ip("link set p2 mtu 1500");
  EXPECT_TRUE(eventually([&] { return send({large}) == Arrived{{"c2", {large}}}; }));
  ip("link set p3 mtu 1500");
  EXPECT_TRUE(eventually([&] { return send({large}) == both; }));
}

/// Turns on, or off, what has a virtual cable's other end take redirected frames: ethtool's "gro".
bool receiveInBulk(const char* interface, bool isOn = true) {
  const support::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ethtool_value on{.cmd = ETHTOOL_SGRO, .data = isOn ? 1U : 0U};
  ifreq request{};
  std::strcpy(request.ifr_name, interface);
  request.ifr_data = reinterpret_cast<char*>(&on);
  return ioctl(socket.get(), SIOCETHTOOL, &request) == 0;
}

/// All lengths from 14 to 2000, but for most of those in between.
std::vector<std::size_t> lengths() {
  std::vector<std::size_t> all;
  for (std::size_t length = 14; length <= 2000; length += length < 90 || length >= 1990 ? 1 : 38) {
    all.push_back(length);
  }
  return all;
}

class Lengths : public Live {
 protected:
  /// Short ones are cut within a tag.
  void expectTunnelled(std::size_t tags) {
    FrameBuilder head = FrameBuilder().ethernet(nearestBridge, station);
    for (std::size_t tag = 0; tag < tags; ++tag) head.tag(tag == 0 ? 0x88a8 : 0x8100, 100);
    head.etherType(0x88cc);
    // Below, the customer's own stack does not take the tag.
    const std::size_t shortest = tags == 0 ? 14 : 20;
    std::vector<Bytes> sent;
    std::vector<Bytes> arriving;
    for (const std::size_t length : lengths()) {
      sent.push_back(FrameBuilder(head).padTo(length).cutTo(length).bytes());
      if (length >= shortest) arriving.push_back(sent.back());
    }
    const std::uint64_t before = service().portStat(1).tunnel;
    EXPECT_EQ(send(sent), (Arrived{{"c2", arriving}, {"c3", arriving}})) << tags << " tags";
    EXPECT_EQ(service().portStat(1).tunnel - before, sent.size()) << tags << " tags";
  }

  void expectTunnelled() {
    for (const char* end : {"p1", "c1", "p2", "c2", "p3", "c3", "br0"}) {
      ip(std::string("link set ") + end + " mtu 2000");
    }
    attach("t", RPC_L2CP_RULE_TUNNEL);
    for (std::size_t tags = 0; tags <= 4; ++tags) expectTunnelled(tags);
  }
};

TEST_F(Lengths, FramesOfEachWithUpToFourTagsAreTunnelledUnchangedInGenericMode) {
  if (!start()) return;
  expectTunnelled();
}

TEST_F(Lengths, FramesOfEachWithUpToFourTagsAreTunnelledUnchangedInNativeMode) {
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  if (!start()) return;
  EXPECT_EQ(state(1), "native");
  expectTunnelled();
}

/// Has the spanning tree protocol begin with a port, which is some time before it forwards.
void listen(const char* port) {
  const std::string name = port;
  ip("link set br0 type bridge stp_state 1");
  ip("link set " + name + " nomaster");
  ip("link set " + name + " master br0");
}

TEST_F(Live, TunnelledFramesKeepOffPortsThatTheBridgeDoesNotForwardFrom) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  listen("p2");
  EXPECT_TRUE(eventually([] { return reached("c1", lldp()) == std::vector<std::string>{"c3"}; }));
  EXPECT_THAT(reached("c2", lldp()), IsEmpty());
  ip("link set br0 type bridge stp_state 0");
  ip("link set p2 nomaster");
  ip("link set p2 master br0");
  EXPECT_TRUE(eventually([] { return reached("c2", lldp()).size() == 2; }));
}

TEST_F(Live, PeeredFramesReachTheMachineFromPortsThatTheBridgeDoesNotForwardFrom) {
  if (!start()) return;
  attach("p", RPC_L2CP_RULE_PEER);
  listen("p1");
  const PacketSocket receiver("p1");
  PacketSocket("c1").send(lldp());
  EXPECT_TRUE(arrives(receiver, lldp()));
}

TEST_F(Live, OneVlanIsTunnelledWhileTheOtherIsDiscarded) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL, 100);
  attach("d", RPC_L2CP_RULE_DISCARD, 200);
  EXPECT_EQ(send({lldp(100), lldp(200)}), (Arrived{{"c2", {lldp(100)}}, {"c3", {lldp(100)}}}));
  EXPECT_EQ(service().vlanStat(100).tunnel, 1U);
  EXPECT_EQ(service().vlanStat(200).discard, 1U);
}

TEST_F(Live, VlansFollowTheConfigurationFile) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  World::file("l2cpd.toml", config("", "", "native-vlan = 2\nvlans = [2]"));
  EXPECT_EQ(client::Control("udp").reload(), "");
  EXPECT_EQ(send({lldp()}), (Arrived{{"c3", {lldp()}}}));
}

TEST_F(Live, PortsFollowTheConfigurationFile) {
  if (!start()) return;
  attach("d", RPC_L2CP_RULE_DISCARD);
  World::file("l2cpd.toml", "classifier = \"xdp\"\n[[port]]\nnumber = 7\ninterface = \"p1\"\n");
  EXPECT_EQ(client::Control("udp").reload(), "");
  EXPECT_EQ(state(1), "no such port");
  EXPECT_EQ(send({lldp()}), (Arrived{{"p1", {lldp()}}}));
  World::file("l2cpd.toml", config());
  EXPECT_EQ(client::Control("udp").reload(), "");
  EXPECT_EQ(send({lldp()}), Arrived{});
}

TEST_F(Live, PortsMayExchangeTheirInterfaces) {
  const auto ports = [](const char* first, const char* second) {
    return std::string("classifier = \"xdp\"\n[[port]]\nnumber = 1\ninterface = \"") + first +
           "\"\n[[port]]\nnumber = 2\ninterface = \"" + second + "\"\n";
  };
  if (!start(ports("p1", "p2"))) return;
  attach("d", RPC_L2CP_RULE_DISCARD, 4095, {1});
  attach("t", RPC_L2CP_RULE_TUNNEL, 4095, {2});
  EXPECT_EQ(send({lldp()}), Arrived{});
  World::file("l2cpd.toml", ports("p2", "p1"));
  EXPECT_EQ(client::Control("tcp").reload(), "");
  EXPECT_EQ(send({lldp()}), (Arrived{{"c2", {lldp()}}}));
  World::file("l2cpd.toml", ports("p1", "p2"));
  EXPECT_EQ(client::Control("tcp").reload(), "");
  EXPECT_EQ(send({lldp()}), Arrived{});
  EXPECT_EQ(service().portStat(1).discard, 2U);
  EXPECT_EQ(service().portStat(2).tunnel, 1U);
}

TEST_F(Live, InterfacesThatTakeTagsFromFramesAreNamed) {
  const auto leave = [](const char* interface, const char* tags) {
    return run({"ethtool", "-K", interface, tags, "off"}).status == 0;
  };
  ASSERT_TRUE(leave("p1", "rx-vlan-hw-parse") && leave("p1", "rx-vlan-stag-hw-parse"));
  ASSERT_TRUE(leave("p2", "rx-vlan-hw-parse"));
  ASSERT_TRUE(leave("p3", "rx-vlan-stag-hw-parse"));
  if (!start()) return;
  const std::string text = world().daemon().output().text();
  EXPECT_THAT(text, testing::Not(HasSubstr("port 1, p1: takes tags from frames")));
  EXPECT_THAT(text, HasSubstr("port 2, p2: takes tags from frames"));
  EXPECT_THAT(text, HasSubstr("port 3, p3: takes tags from frames"));
}

TEST_F(Live, InterfacesAreFollowedAsTheyComeAndGo) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  const std::string mode = state(2);
  ip("link delete c2");
  EXPECT_TRUE(becomes(2, "there is no such interface"));
  cable(2);
  EXPECT_TRUE(becomes(2, mode));
  EXPECT_TRUE(tunnels());
}

TEST_F(Live, ANameThatGoesToAnotherInterfaceTakesThePortAlong) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  const std::string mode = state(2);
  for (const char* change :
       {"p2 down", "p2 name old", "old up", "p3 down", "p3 name p2", "p2 up"}) {
    ip(std::string("link set ") + change);
  }
  awaitForwarding("old");
  awaitForwarding("p2");
  EXPECT_TRUE(becomes(3, "there is no such interface"));
  EXPECT_TRUE(becomes(2, mode));
  EXPECT_TRUE(eventually([] { return send({lldp()}).contains("c3"); }));
}

TEST_F(Live, AnInterfaceThatIsNotThereIsSaidAndWaitedFor) {
  rename("p3", "later");
  if (!start()) return;
  EXPECT_THAT(world().daemon().output().text(),
              HasSubstr("warning: xdp: port 3, p3: there is no such interface"));
  attach("d", RPC_L2CP_RULE_DISCARD);
  EXPECT_EQ(send({cdp()}), Arrived{});
  rename("later", "p3");
  EXPECT_TRUE(becomes(3, state(1)));
}

TEST_F(Live, OfInterfacesWhoseNumbersFallTogetherOneIsAPortUntilTheOtherIsMadeAnew) {
  ip("link delete p3");
  cable(3, "index " + std::to_string(if_nametoindex("p1") + L2CP_INTERFACES));
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  EXPECT_EQ(state(3),
            "the number of its interface falls together with another port's; make the interface "
            "anew");
  EXPECT_EQ(send({lldp()}), (Arrived{{"c2", {lldp()}}}));
  ip("link delete p3");
  cable(3);
  EXPECT_TRUE(becomes(3, state(1)));
  EXPECT_TRUE(tunnels());
}

TEST_F(Live, AnInterfaceThatIsReplacedUnseenIsTakenAnew) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  const std::string number = std::to_string(if_nametoindex("p2"));
  world().daemon().signal(SIGSTOP);
  ip("link delete p2");
  cable(2, "index " + number);
  world().daemon().signal(SIGCONT);
  EXPECT_TRUE(tunnels());
  EXPECT_EQ(count(world().daemon().output().text(), "port 2, p2: takes tags from frames"), 2U);
}

TEST_F(Live, AnInterfaceThatWasInAnotherNetworkNamespaceIsTakenAnew) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  const support::Process elsewhere({"unshare", "--net", "sh", "-c", "echo there; exec sleep 60"});
  ASSERT_TRUE(elsewhere.output().waitFor("there"));
  const std::string there = std::to_string(elsewhere.id());
  world().daemon().signal(SIGSTOP);
  ip("link set p2 netns " + there);
  ASSERT_EQ(run({"nsenter", "--net=/proc/" + there + "/ns/net", "ip", "link", "set", "p2", "netns",
                 std::to_string(getpid())})
                .status,
            0);
  plug("p2", "c2");
  world().daemon().signal(SIGCONT);
  EXPECT_TRUE(tunnels());
}

TEST_F(Live, AnInterfaceIsTakenThoughTheKernelCouldNotBeAskedWhenItCame) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  const pid_t daemon = world().daemon().id();
  rlimit usual{};
  ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, nullptr, &usual), 0);
  // It opens nothing more.
  const rlimit none{.rlim_cur = 3, .rlim_max = usual.rlim_max};
  ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, &none, nullptr), 0);
  ip("link delete p3");
  cable(3);
  EXPECT_TRUE(world().daemon().output().waitFor("does not say which interfaces there are"));
  ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, &usual, nullptr), 0);
  EXPECT_TRUE(tunnels());
}

// ---- Rules that change ----

/// Counts the frames from the station that arrive, while others go on.
class Tally {
 public:
  explicit Tally(const std::string& interface)
      : socket_(interface), thread_([this] { gather(); }) {}
  ~Tally() { thread_.join(); }
  Tally(const Tally&) = delete;
  Tally& operator=(const Tally&) = delete;

  /// Waits for the last frame.
  std::uint64_t frames() {
    EXPECT_TRUE(eventually([&] { return ended_.load(); }));
    return frames_;
  }

 private:
  void gather() {
    while (const auto frame = socket_.next()) {
      if (*frame == last()) break;
      frames_ += std::equal(station.begin(), station.end(), frame->begin() + 6) ? 1 : 0;
    }
    ended_ = true;
  }

  PacketSocket socket_;
  std::atomic<std::uint64_t> frames_ = 0;
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

TEST_F(Live, EveryFrameIsCountedAsItIsTreatedWhileAProfileInServiceIsEdited) {
  if (!start()) return;
  const client::Control control("tcp");
  ASSERT_EQ(service().profileAdd({.name = "P"}), RPC_L2CP_OK);
  ASSERT_EQ(service().entryAdd("P", "LLDP", RPC_L2CP_RULE_TUNNEL), RPC_L2CP_OK);
  ASSERT_EQ(control.vlanProfileAdd("v"), 0);
  ASSERT_EQ(control.vlanProfileSetSvid("v", 1, 100), 0);
  ASSERT_EQ(control.serviceProfileAdd("gold"), 0);
  ASSERT_EQ(control.serviceProfileSetVlan("gold", "v"), 0);
  ASSERT_EQ(control.serviceProfileSetL2cp("gold", "P"), 0);
  ASSERT_EQ(control.serviceProfileAttach("gold", 1), 0);

  Tally machine("p1");
  Tally second("c2");
  Tally third("c3");
  std::atomic<bool> done = false;
  std::atomic<std::uint64_t> sent = 0;
  std::thread sending([&] {
    const PacketSocket sender("c1");
    for (; !done; ++sent) sender.send(lldp(100));
    sender.send(last());
  });
  const auto moreFrames = [&] {
    const std::uint64_t before = sent;
    EXPECT_TRUE(eventually([&] { return sent > before + 500; }));
  };
  for (int cycle = 0; cycle < 10; ++cycle) {
    moreFrames();
    const bool discards = cycle % 2 == 0;
    const client::Edit edit = service().profileEdit("P");
    EXPECT_EQ(edit.error, RPC_L2CP_OK);
    // A profile in which rules alone have changed would stay as it is.
    EXPECT_EQ(discards ? service().entryAdd(edit.name, "CDP", RPC_L2CP_RULE_DISCARD)
                       : service().entryDel(edit.name, "CDP"),
              RPC_L2CP_OK);
    EXPECT_EQ(service().entrySet(edit.name, "LLDP",
                                 discards ? RPC_L2CP_RULE_DISCARD : RPC_L2CP_RULE_TUNNEL),
              RPC_L2CP_OK);
    EXPECT_EQ(service().profileOnExit("P", edit.name), RPC_L2CP_OK);
  }
  moreFrames();
  done = true;
  sending.join();

  const client::Counters counted = service().portStat(1);
  EXPECT_GT(counted.tunnel, 0U);
  EXPECT_GT(counted.discard, 0U);
  EXPECT_EQ(second.frames(), counted.tunnel);
  EXPECT_EQ(third.frames(), counted.tunnel);
  // While no profile is attached, frames pass to the bridge, which keeps them.
  EXPECT_EQ(machine.frames(), sent - counted.tunnel - counted.discard);
}

/// Has the thread run beside the daemon where there is a processor for it.
void runBeside() {
  cpu_set_t others;
  CPU_ZERO(&others);
  for (std::size_t i = 0; i < CPU_SETSIZE; ++i) CPU_SET(i, &others);
  CPU_CLR(static_cast<std::size_t>(sched_getcpu()), &others);
  sched_setaffinity(0, sizeof others, &others);
}

TEST_F(Live, TunnelledFramesReachTheOthersWhileNativeVlansChange) {
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  const client::Control control("tcp");
  Tally second("c2");
  std::atomic<bool> done = false;
  std::atomic<std::uint64_t> sent = 0;
  std::thread sending([&] {
    runBeside();
    const PacketSocket sender("c1");
    for (; !done; ++sent) sender.send(lldp());
    sender.send(last());
  });
  for (const char* vlan : {"2", "1", "3", "1"}) {
    const std::string native = std::string("vlans = [100]\nnative-vlan = ") + vlan;
    World::file("l2cpd.toml", config("", native, native));
    EXPECT_EQ(control.reload(), "");
    const std::uint64_t before = sent;
    EXPECT_TRUE(eventually([&] { return sent > before + 500; }));
  }
  done = true;
  sending.join();
  EXPECT_EQ(second.frames(), sent);
}

// ---- Coming and going ----

/// The numbers of the programs on p1, 0 for none.
bpf_xdp_query_opts programs() {
  bpf_xdp_query_opts found{};
  found.sz = sizeof found;
  bpf_xdp_query(static_cast<int>(if_nametoindex("p1")), 0, &found);
  return found;
}
bool isClear() { return programs().attach_mode == XDP_ATTACHED_NONE; }

// BPF_TCX_INGRESS, of Linux 6.6.
constexpr auto behindSockets = static_cast<bpf_attach_type>(46);

/// How many programs are behind the packet sockets of p1, those without a link left out; negative
/// where the kernel has none with links.
int filters() {
  std::array<std::uint32_t, 64> numbers{};
  auto count = static_cast<std::uint32_t>(numbers.size());
  const int error = bpf_prog_query(static_cast<int>(if_nametoindex("p1")), behindSockets, 0,
                                   nullptr, numbers.data(), &count);
  return error == 0 ? static_cast<int>(count) : error;
}

std::string unlinkedFilters() {
  return run({"tc", "filter", "show", "dev", "p1", "ingress"}).output;
}

TEST_F(Live, ProgramsGoWithTheDaemonHoweverItEnds) {
  if (!start()) return;
  EXPECT_FALSE(isClear());
  stop();
  EXPECT_TRUE(eventually(isClear));
  EXPECT_EQ(unlinkedFilters(), "");
  ASSERT_TRUE(start());
  attach("d", RPC_L2CP_RULE_DISCARD);
  const bool hasLinks = filters() >= 0;
  EXPECT_TRUE(!hasLinks || filters() == 1);
  kill();
  EXPECT_TRUE(eventually(isClear));
  if (hasLinks) {
    EXPECT_TRUE(eventually([] { return filters() == 0; }));
    EXPECT_EQ(unlinkedFilters(), "");
  }
  EXPECT_EQ(send({cdp()}), (Arrived{{"c2", {cdp()}}, {"c3", {cdp()}}, {"p1", {cdp()}}}));
  ASSERT_TRUE(start());
  EXPECT_FALSE(isClear());
}

/// A program that lets every frame pass.
int foreignProgram() {
  const std::array<bpf_insn, 2> pass = {
      bpf_insn{.code = BPF_ALU64 | BPF_MOV | BPF_K, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 2},
      bpf_insn{.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0}};
  return bpf_prog_load(BPF_PROG_TYPE_XDP, "foreign", "BSD", pass.data(), pass.size(), nullptr);
}

/// Has this thread, and the processes that it starts, get another answer from a system call.
/// Negative where that is not to be had.
int answerCall(std::uint32_t call, std::uint32_t answer, unsigned flags = 0) {
  std::array<sock_filter, 4> code = {
      sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
      sock_filter BPF_STMT(BPF_RET | BPF_K, answer),
      sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program{.len = code.size(), .filter = code.data()};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program));
}

/// A kernel for what `run` starts that answers some uses of bpf(2) otherwise.
class OtherKernel {
 public:
  /// What it answers; 0 leaves the call to the kernel that there is. The arguments of the call can
  /// be read from, and its results written to, the process of the request.
  using ErrorOf = std::function<int(const seccomp_notif&)>;

  OtherKernel(ErrorOf errorOf, const std::function<void()>& run) : errorOf_(std::move(errorOf)) {
    std::promise<int> asking;
    std::promise<void> done;
    // Processes end with the thread that has started them.
    starting_ = std::thread([&, over = over_.get_future()] {
      asking.set_value(
          answerCall(SYS_bpf, SECCOMP_RET_USER_NOTIF, SECCOMP_FILTER_FLAG_NEW_LISTENER));
      run();
      done.set_value();
      over.wait();
    });
    requests_ = support::Descriptor(asking.get_future().get());
    if (isThere()) answering_ = std::thread([this] { answer(); });
    done.get_future().wait();
  }
  /// What was started has to have ended.
  ~OtherKernel() {
    over_.set_value();
    starting_.join();
    if (isThere()) answering_.join();
  }
  OtherKernel(const OtherKernel&) = delete;
  OtherKernel& operator=(const OtherKernel&) = delete;

  /// False where that is not to be had.
  bool isThere() const { return requests_.get() >= 0; }

  /// The call's attributes, as far as they are looked at.
  static bpf_attr attributesOf(const seccomp_notif& request) {
    constexpr std::size_t size = 64;
    bpf_attr attributes{};
    iovec here{.iov_base = &attributes, .iov_len = size};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an address of another process
    iovec there{.iov_base = reinterpret_cast<void*>(request.data.args[1]), .iov_len = size};
    process_vm_readv(static_cast<pid_t>(request.pid), &here, 1, &there, 1, 0);
    return attributes;
  }

 private:
  void answer() {
    for (;;) {
      pollfd ready{.fd = requests_.get(), .events = POLLIN, .revents = 0};
      poll(&ready, 1, -1);
      if ((ready.revents & POLLIN) == 0) return;
      seccomp_notif request{};
      if (ioctl(requests_.get(), SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) continue;
      seccomp_notif_resp response{.id = request.id, .val = 0, .error = 0, .flags = 0};
      response.error = errorOf_(request);
      if (response.error == 0) response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
      ioctl(requests_.get(), SECCOMP_IOCTL_NOTIF_SEND, &response);
    }
  }

  const ErrorOf errorOf_;
  std::promise<void> over_;
  std::thread starting_;
  support::Descriptor requests_;
  std::thread answering_;
};

/// As before Linux 5.19: there are no links behind packet sockets, and maps are put into maps one
/// by one.
int olderKernel(const seccomp_notif& request) {
  constexpr int enotsupp = 524;
  if (request.data.args[0] == BPF_MAP_UPDATE_BATCH) return -enotsupp;
  const bool isLink = request.data.args[0] == BPF_LINK_CREATE;
  const auto type = OtherKernel::attributesOf(request).link_create.attach_type;
  return isLink && type == behindSockets ? -EINVAL : 0;
}

TEST_F(Live, AReloadWhoseVlansCannotBePutIntoForceSaysSoAndIsTriedAgain) {
  std::atomic<bool> isFull = false;
  const auto noMaps = [&](const seccomp_notif& request) {
    return isFull && request.data.args[0] == BPF_MAP_CREATE ? -EMFILE : 0;
  };
  bool isStarted = false;
  const OtherKernel kernel(noMaps, [&] { isStarted = start(); });
  if (!isStarted) return;
  if (kernel.isThere()) {
    attach("t", RPC_L2CP_RULE_TUNNEL);
    isFull = true;
    World::file("l2cpd.toml", config("", "", "native-vlan = 2\nvlans = [2]"));
    EXPECT_EQ(client::Control("tcp").reload(),
              "tunnelled frames go where they went before: Too many open files");
    EXPECT_EQ(send({lldp()}), (Arrived{{"c2", {lldp()}}, {"c3", {lldp()}}}));
    isFull = false;
    EXPECT_TRUE(eventually([] { return send({lldp()}) == Arrived{{"c3", {lldp()}}}; }));
  }
  stop();
  if (!kernel.isThere()) GTEST_SKIP() << "system calls cannot be answered here";
}

constexpr std::string_view verifierLog =
    "0: R1=ctx(off=0,imm=0) R10=fp0\n17: (71) r2 = *(u8 *)(r1 +12)\n"
    "invalid access to packet, off=12 size=1, R1(id=1,off=12,r=0)\n";

/// Has something against XDP programs.
int refusingVerifier(const seccomp_notif& request) {
  const bpf_attr attributes = OtherKernel::attributesOf(request);
  if (request.data.args[0] != BPF_PROG_LOAD || attributes.prog_type != BPF_PROG_TYPE_XDP) return 0;
  if (std::string_view(attributes.prog_name) != "l2cp_classify") return 0;
  std::string log(verifierLog);
  if (attributes.log_size > log.size()) {
    iovec here{.iov_base = log.data(), .iov_len = log.size() + 1};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an address of another process
    iovec there{.iov_base = reinterpret_cast<void*>(attributes.log_buf), .iov_len = log.size() + 1};
    process_vm_writev(static_cast<pid_t>(request.pid), &here, 1, &there, 1, 0);
  }
  return -EACCES;
}

TEST_F(Live, WhatTheVerifierHasAgainstTheProgramIsSaidInFull) {
  World::file("l2cpd.toml", config());
  support::Run result{};
  const OtherKernel kernel(refusingVerifier, [&] {
    result = run({World::daemonProgram(), "-c", configPath});
  });
  if (!kernel.isThere()) GTEST_SKIP() << "system calls cannot be answered here";
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("with all of what follows"));
  std::istringstream lines{std::string(verifierLog)};
  for (std::string line; std::getline(lines, line);) EXPECT_THAT(result.output, HasSubstr(line));
  EXPECT_THAT(result.output, testing::Not(HasSubstr("CAP_")));
}

TEST_F(Live, PeeredFramesStayHereWithAnOlderKernel) {
  bool isStarted = false;
  const OtherKernel kernel(olderKernel, [&] { isStarted = start(); });
  if (!isStarted) return;
  if (!kernel.isThere()) {
    stop();
    GTEST_SKIP() << "system calls cannot be answered here";
  }
  EXPECT_NE(unlinkedFilters(), "");
  attach("p", RPC_L2CP_RULE_PEER);
  EXPECT_EQ(send({lldp(), cdp()}), (Arrived{{"p1", {lldp(), cdp()}}}));
  // Looked at when interfaces change.
  ASSERT_EQ(run({"tc", "qdisc", "delete", "dev", "p1", "clsact"}).status, 0);
  ip("link set c3 alias other");
  EXPECT_TRUE(eventually([] { return unlinkedFilters() != ""; }));
  EXPECT_TRUE(eventually([] { return send({cdp()}) == Arrived{{"p1", {cdp()}}}; }));
  stop();
  EXPECT_EQ(unlinkedFilters(), "");
}

TEST_F(Live, TunnelledFramesReachTheOthersWithAnOlderKernel) {
  bool isStarted = false;
  const OtherKernel kernel(olderKernel, [&] { isStarted = start(); });
  if (!isStarted) return;
  if (kernel.isThere()) {
    attach("t", RPC_L2CP_RULE_TUNNEL);
    EXPECT_EQ(send({lldp()}), (Arrived{{"c2", {lldp()}}, {"c3", {lldp()}}}));
  }
  stop();
  if (!kernel.isThere()) GTEST_SKIP() << "system calls cannot be answered here";
}

TEST_F(Live, AnotherProgramGivesWayOnlyWhenThatIsAskedFor) {
  const support::Descriptor program(foreignProgram());
  const int interface = static_cast<int>(if_nametoindex("p1"));
  if (bpf_xdp_attach(interface, program.get(), XDP_FLAGS_SKB_MODE, nullptr) != 0) {
    GTEST_SKIP() << "no programs can be attached here";
  }
  const auto foreign = programs().skb_prog_id;
  ASSERT_TRUE(start());
  EXPECT_EQ(state(1), "another XDP program is there; it gives way only with \"replace = true\"");
  EXPECT_EQ(programs().skb_prog_id, foreign);
  stop();
  EXPECT_EQ(programs().skb_prog_id, foreign);

  ASSERT_TRUE(start(config("[xdp]\nreplace = true")));
  EXPECT_EQ(state(1), state(2));
  EXPECT_NE(programs().skb_prog_id, foreign);
}

TEST_F(Live, APortIsTakenWhenTheOtherProgramHasGone) {
  const support::Descriptor program(foreignProgram());
  const int interface = static_cast<int>(if_nametoindex("p1"));
  if (bpf_xdp_attach(interface, program.get(), XDP_FLAGS_SKB_MODE, nullptr) != 0) {
    GTEST_SKIP() << "no programs can be attached here";
  }
  ASSERT_TRUE(start());
  ASSERT_EQ(bpf_xdp_detach(interface, XDP_FLAGS_SKB_MODE, nullptr), 0);
  EXPECT_TRUE(becomes(1, state(2)));
}

TEST_F(Live, NativeModeIsUsedWhereEveryPortTakesItsFrames) {
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  if (!start()) return;
  EXPECT_EQ(state(1), "native");
  attach("t", RPC_L2CP_RULE_TUNNEL, 100);
  attach("p", RPC_L2CP_RULE_PEER, 200);
  attach("d", RPC_L2CP_RULE_DISCARD, 300);
  EXPECT_EQ(send({lldp(100), cdp(200), cdp(300), cdp(400)}),
            (Arrived{{"c2", {lldp(100), cdp(400)}},
                     {"c3", {lldp(100), cdp(400)}},
                     {"p1", {cdp(200), cdp(400)}}}));
}

/// The rules of the ports that a program has, for the test to write to: in the order of the ports.
class PortsOf {
 public:
  explicit PortsOf(std::uint32_t program) {
    const support::Descriptor descriptor(bpf_prog_get_fd_by_id(program));
    std::array<std::uint32_t, 16> maps{};
    bpf_prog_info info{};
    info.nr_map_ids = maps.size();
    info.map_ids = reinterpret_cast<std::uint64_t>(maps.data());
    std::uint32_t size = sizeof info;
    if (bpf_obj_get_info_by_fd(descriptor.get(), &info, &size) != 0) return;
    for (const std::uint32_t map : std::span(maps).first(info.nr_map_ids)) {
      map_ = support::Descriptor(bpf_map_get_fd_by_id(map));
      bpf_map_info found{};
      size = sizeof found;
      bpf_obj_get_info_by_fd(map_.get(), &found, &size);
      if (std::string_view(found.name) == "ports") break;
    }
    memory_ = mmap(nullptr, sizeof(l2cp_port), PROT_READ | PROT_WRITE, MAP_SHARED, map_.get(), 0);
  }
  ~PortsOf() { munmap(memory_, sizeof(l2cp_port)); }
  PortsOf(const PortsOf&) = delete;
  PortsOf& operator=(const PortsOf&) = delete;

  l2cp_port& first() { return *static_cast<l2cp_port*>(memory_); }

 private:
  support::Descriptor map_{-1};
  void* memory_ = nullptr;
};

TEST_F(Live, NativeModeIsLeftByAPortWhoseDriverHasNoRoomForMarks) {
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  if (!start()) return;
  attach("p", RPC_L2CP_RULE_PEER);
  EXPECT_EQ(send({cdp()}), (Arrived{{"p1", {cdp()}}}));
  EXPECT_EQ(state(1), "native");
  // As the program says it: the drivers of these interfaces have room.
  PortsOf(programs().drv_prog_id).first().unmarked = 1;
  EXPECT_TRUE(becomes(1, "generic"));
  EXPECT_EQ(state(2), "native");
  EXPECT_THAT(world().daemon().output().text(),
              HasSubstr("port 1, p1: in native mode, its driver has no room for what keeps frames "
                        "for the switch itself from the bridge\n"));
  EXPECT_EQ(send({cdp()}), (Arrived{{"p1", {cdp()}}}));
}

TEST_F(Live, GenericModeIsKeptByAPortWhoseDriverHasNoRoomForMarksWhateverHasRefusedItBefore) {
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  ip("link set c1 mtu 9000");
  if (!start()) return;
  EXPECT_EQ(state(1), "generic");
  ASSERT_TRUE(receiveInBulk("c2", false));
  EXPECT_TRUE(becomes(2, "generic"));
  ip("link set c1 mtu 1500");
  ASSERT_TRUE(receiveInBulk("c2"));
  EXPECT_TRUE(becomes(1, "native"));
  PortsOf(programs().drv_prog_id).first().unmarked = 1;
  EXPECT_TRUE(becomes(1, "generic"));
  EXPECT_EQ(client::Control("tcp").reload(), "");
  EXPECT_EQ(state(1), "generic");
  EXPECT_EQ(state(2), "native");
}

TEST_F(Live, NativeModeIsUsedAgainByPortsThatTakeFramesOnlyWithEachOthersPrograms) {
  ip("link add a0 type veth peer name a1");
  for (const char* end : {"a0", "a1"}) ip(std::string("link set ") + end + " up");
  if (!start("classifier = \"xdp\"\n[[port]]\nnumber = 1\ninterface = \"a0\"\n"
             "[[port]]\nnumber = 2\ninterface = \"a1\"\n"
             "[[port]]\nnumber = 3\ninterface = \"p3\"\n")) {
    return;
  }
  EXPECT_EQ(state(1), "generic");
  ip("link delete p3");
  EXPECT_TRUE(becomes(1, "native"));
  EXPECT_EQ(state(2), "native");
}

TEST_F(Live, TheLogSaysWhereTagsMayBeHiddenAndWhatBecomesOfThem) {
  const std::string hidden =
      "port 1, p1: takes tags from frames where it can, and frames that arrive so count as "
      "untagged";
  if (!start()) return;
  EXPECT_THAT(world().daemon().output().text(), HasSubstr(hidden + "; see l2cpd.toml(5)"));
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  stop();
  ASSERT_TRUE(start());
  EXPECT_THAT(world().daemon().output().text(),
              HasSubstr(hidden + " and are tunnelled without their tag; see l2cpd.toml(5)"));
}

TEST_F(Live, NativeModeIsLeftAndUsedAgainAsPortsTakeItsFrames) {
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  if (!start()) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  ASSERT_TRUE(receiveInBulk("c2", false));
  EXPECT_TRUE(becomes(1, "generic"));
  EXPECT_EQ(send({lldp()}), (Arrived{{"c2", {lldp()}}, {"c3", {lldp()}}}));
  ASSERT_TRUE(receiveInBulk("c2"));
  EXPECT_TRUE(becomes(1, "native"));
  EXPECT_EQ(state(2), "native");
  EXPECT_EQ(send({lldp()}), (Arrived{{"c2", {lldp()}}, {"c3", {lldp()}}}));
}

TEST_F(Live, OtherPortsKeepTheirModeWhileOneThatRefusesNativeModeIsMadeAnew) {
  for (const char* end : {"c1", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  if (!start()) return;
  const auto said = [&](const char* part) { return count(world().daemon().output().text(), part); };
  constexpr const char* refusal = "p2 takes no frames that are redirected in native mode";
  const std::size_t before = said("port 1, p1: attached");
  for (int i = 0; i < 2; ++i) {
    ip("link delete p2");
    EXPECT_TRUE(becomes(2, "there is no such interface"));
    cable(2);
    EXPECT_TRUE(becomes(2, "generic"));
  }
  // Some time later it is asked whether it takes them now.
  EXPECT_TRUE(eventually([&] { return said(refusal) > 1; }));
  EXPECT_TRUE(becomes(2, "generic"));
  EXPECT_EQ(said("port 1, p1: attached"), before);
  EXPECT_EQ(state(1), "generic");
}

TEST_F(Live, GenericModeIsUsedWhereFramesWouldGetLost) {
  if (!start()) return;
  EXPECT_EQ(state(1), "generic");
  EXPECT_THAT(world().daemon().output().text(),
              HasSubstr("takes no frames that are redirected in native mode"));
}

TEST_F(Live, GenericModeIsUsedWhereTheDriverRefusesTheProgram) {
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  // Larger than the room that a program in the driver has.
  ip("link set c1 mtu 9000");
  if (!start()) return;
  EXPECT_EQ(state(1), "generic");
  EXPECT_EQ(state(2), "native");
  ip("link set c1 mtu 1500");
  EXPECT_EQ(client::Control("tcp").reload(), "");
  EXPECT_EQ(state(1), "native");
}

TEST_F(Live, ADriverThatHasRefusedTheProgramIsAskedAgainWithAnotherMtu) {
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  ip("link set c1 mtu 9000");
  if (!start()) return;
  EXPECT_EQ(state(1), "generic");
  ip("link set c1 mtu 1500");
  ip("link set p1 mtu 1400");
  EXPECT_TRUE(becomes(1, "native"));
}

TEST_F(Live, APortTooManyIsLeftOutWithItsReasonAndTriedAgainOnEachReload) {
  std::string most;
  for (int i = 1; i <= 512; ++i) {
    const std::string number = std::to_string(i);
    most += "[[port]]\nnumber = " + number + "\ninterface = \"p" + number + "\"\n";
  }
  const std::string oneMore = most + "[[port]]\nnumber = 513\ninterface = \"p513\"\n";
  const std::string xdp = "classifier = \"xdp\"\n";
  const std::string problem = "the classifier \"xdp\" holds 512 ports with an interface";
  if (!start(xdp + most)) return;
  const client::Control control("udp");
  World::file("l2cpd.toml", xdp + oneMore);
  EXPECT_THAT(control.reload(), HasSubstr("/run/l2cpd.toml:1540: " + problem));
  EXPECT_EQ(state(513), "no such port");
  // A file that names another classifier has no such limit; the daemon keeps the one that it has.
  World::file("l2cpd.toml", oneMore);
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(control.reload(), HasSubstr("port 513: " + problem + "\n"));
    EXPECT_EQ(state(513), problem);
    EXPECT_EQ(state(512), "there is no such interface");
  }
  World::file("l2cpd.toml", xdp + most);
  EXPECT_EQ(control.reload(), "");
  EXPECT_EQ(state(513), "no such port");
}

TEST_F(Live, PortsTakeNoneOfTheDescriptorsThatClientsNeed) {
  constexpr int ports = 40;
  std::string all = "classifier = \"xdp\"\n";
  for (int i = 1; i <= ports; ++i) {
    if (i > 3) cable(i);
    const std::string number = std::to_string(i);
    all += "[[port]]\nnumber = " + number + "\ninterface = \"p" + number + "\"\n";
  }
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit few{.rlim_cur = 64, .rlim_max = limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const bool started = start(all);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  if (!started) return;
  for (const client::LivePort& live : client::Control("tcp").livePorts()) {
    EXPECT_EQ(live.state, "generic") << live.number;
  }
}

TEST_F(Live, WithoutTheRightToLoadProgramsTheDaemonSaysWhatItNeeds) {
  World::file("l2cpd.toml", config());
  const support::Run result = run({"setpriv", "--bounding-set=-all", "--inh-caps=-all",
                                   World::daemonProgram(), "-c", configPath});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("CAP_BPF, CAP_NET_ADMIN and CAP_PERFMON"));
}

TEST_F(Live, WithoutOneOfTheRightsTheDaemonSaysWhatItNeeds) {
  World::file("l2cpd.toml", config());
  for (const char* right : {"bpf", "net_admin", "perfmon"}) {
    const std::string rights = std::string("-") + right;
    const support::Run result =
        run({"setpriv", "--bounding-set=" + rights + ",-sys_admin",
             "--inh-caps=" + rights + ",-sys_admin", World::daemonProgram(), "-c", configPath});
    EXPECT_EQ(result.status, 1) << right;
    EXPECT_THAT(result.output, HasSubstr("CAP_BPF, CAP_NET_ADMIN and CAP_PERFMON")) << right;
  }
}

TEST_F(Live, WithoutXdpInTheKernelTheDaemonSaysWhatThereIsToDo) {
  World::file("l2cpd.toml", config());
  support::Run result{};
  std::thread([&] {
    if (answerCall(SYS_bpf, SECCOMP_RET_ERRNO | ENOSYS) == 0)
      result = run({World::daemonProgram(), "-c", configPath});
  }).join();
  if (result.output.empty()) GTEST_SKIP() << "system calls cannot be refused here";
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("error: xdp: the XDP program cannot be loaded: Function not "
                                       "implemented; that needs Linux 5.14 or later"));
}

TEST_F(Live, WhereNativeModeIsRefusedTheReasonSaysWhatThereIsToDo) {
  ip("link set c1 mtu 9000");
  if (!start(config("[xdp]\nmode = \"native\""))) return;
  EXPECT_THAT(state(1), HasSubstr("MTU"));
  EXPECT_EQ(state(2), "native");
  ip("link set c1 mtu 1500");
  EXPECT_TRUE(becomes(1, "native"));
}

// ---- Programs that are kept ----

class Kept : public Live {
 protected:
  void SetUp() override {
    Live::SetUp();
    if (IsSkipped()) return;
    if (mount("bpf", "/sys/fs/bpf", "bpf", 0, nullptr) != 0) {
      GTEST_SKIP() << "no BPF file system can be mounted here";
    }
  }

  static std::string keptFolder() {
    struct stat space {};
    EXPECT_EQ(stat("/proc/self/ns/net", &space), 0);
    return "/sys/fs/bpf/l2cpd/" + std::to_string(space.st_ino);
  }
  static std::string keptFile(const char* interface) {
    return keptFolder() + '/' + std::to_string(if_nametoindex(interface));
  }

  static std::string keeping() {
    return config("startup = \"/run/startup.l2cp\"\n[xdp]\nkeep = true");
  }

  /// A second daemon, which keeps its program on p4.
  static std::unique_ptr<support::Process> startAnother() {
    ip("link add p4 type veth peer name c4");
    const std::string path = World::file("other.toml",
                                         "startup = \"\"\nlock = \"/run/2.lock\"\n"
                                         "classifier = \"xdp\"\n[xdp]\nkeep = true\n"
                                         "[[port]]\nnumber = 4\ninterface = \"p4\"\n");
    auto other = std::make_unique<support::Process>(
        std::vector<std::string>{World::daemonProgram(), "-c", path});
    EXPECT_TRUE(other->output().waitFor("l2cpd: daemon: ready")) << other->output().text();
    return other;
  }

  /// With what it has now as startup script. How many frames were sent at c1, the last one not
  /// counted.
  std::uint64_t sendWhileTheDaemonIsKilledAndStarted() {
    EXPECT_EQ(client::Control("tcp").save().first, CONTROL_OK);
    std::atomic<bool> done = false;
    std::atomic<std::uint64_t> sent = 0;
    std::thread sending([&] {
      const PacketSocket sender("c1");
      for (; !done; ++sent) sender.send(cdp());
      sender.send(last());
    });
    const auto moreFrames = [&] {
      const std::uint64_t before = sent;
      EXPECT_TRUE(eventually([&] { return sent > before + 1000; }));
    };
    moreFrames();
    for (int round = 0; round < 3; ++round) {
      if (round == 1) {
        stop();
      } else {
        kill();
      }
      moreFrames();
      EXPECT_TRUE(start(keeping()));
      moreFrames();
    }
    done = true;
    sending.join();
    return sent;
  }
};

TEST_F(Kept, FramesMeetTheRulesWithoutABreakWhileTheDaemonIsKilledAndStarted) {
  if (!start(keeping())) return;
  attach("d", RPC_L2CP_RULE_DISCARD);
  // Were there a moment without rules, the bridge would forward what comes then.
  Tally second("c2");
  const std::uint64_t sent = sendWhileTheDaemonIsKilledAndStarted();
  EXPECT_EQ(second.frames(), 0U) << "of " << sent;
  EXPECT_EQ(send({lldp()}), Arrived{});
  EXPECT_GT(service().portStat(1).discard, 0U);
}

TEST_F(Kept, TunnelledFramesReachEachPortWhileTheDaemonIsKilledAndStarted) {
  if (!start(keeping())) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  Tally second("c2");
  Tally third("c3");
  const std::uint64_t sent = sendWhileTheDaemonIsKilledAndStarted();
  EXPECT_EQ(second.frames(), sent);
  EXPECT_EQ(third.frames(), sent);
}

TEST_F(Kept, AnEndWhileProgramsGiveWayToOthersLeavesWhatDelivers) {
  if (!start(keeping())) return;
  attach("t", RPC_L2CP_RULE_TUNNEL);
  ASSERT_EQ(client::Control("tcp").save().first, CONTROL_OK);
  for (const char* attached : {"port 1, p1: attached", "port 2, p2: attached"}) {
    kill();
    const support::Process& daemon = world().startDaemon({"-c", configPath}, false);
    ASSERT_TRUE(daemon.output().waitFor(attached));
    kill();
    EXPECT_EQ(send({lldp()}), (Arrived{{"c2", {lldp()}}, {"c3", {lldp()}}}));
    ASSERT_TRUE(start(keeping()));
  }
}

TEST_F(Kept, FramesMeetTheRulesThoughTheDaemonIsKilledWhileItStarts) {
  if (!start(keeping())) return;
  attach("d", RPC_L2CP_RULE_DISCARD);
  ASSERT_EQ(client::Control("tcp").save().first, CONTROL_OK);
  kill();
  const PacketSocket receiver("c2");
  std::atomic<bool> done = false;
  std::atomic<int> sent = 0;
  std::thread sending([&] {
    const PacketSocket sender("c1");
    for (; !done; ++sent) sender.send(cdp());
  });
  // At every moment of it, the last one when it serves.
  for (auto moment = 0ms; moment < 150ms; moment += 10ms) {
    world().startDaemon({"-c", configPath}, false);
    std::this_thread::sleep_for(moment);
    world().stopDaemon(SIGKILL);
  }
  done = true;
  sending.join();
  int forwarded = 0;
  while (const auto frame = receiver.next(std::chrono::milliseconds(0))) {
    forwarded += *frame == cdp() ? 1 : 0;
  }
  EXPECT_EQ(forwarded, 0) << "of " << sent << " frames";
  ASSERT_TRUE(start(keeping()));
  EXPECT_EQ(send({lldp(), cdp()}), Arrived{});
  EXPECT_EQ(service().portStat(1).discard, 2U);
}

TEST_F(Kept, NativeModeIsUsedSomeTimeAfterTheStartThoughProgramsWereKeptInTheOther) {
  if (!start(keeping())) return;
  EXPECT_EQ(state(1), "generic");
  kill();
  for (const char* end : {"c1", "c2", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  ASSERT_TRUE(start(keeping()));
  EXPECT_EQ(state(1), "generic");
  EXPECT_TRUE(becomes(1, "native"));
  EXPECT_EQ(state(3), "native");
}

TEST_F(Kept, PortsStayInTheModeOfTheirProgramsWhileOneRefusesTheOther) {
  for (const char* end : {"c1", "c3"}) ASSERT_TRUE(receiveInBulk(end)) << end;
  if (!start(keeping())) return;
  kill();
  ASSERT_TRUE(start(keeping()));
  EXPECT_EQ(state(1), "generic");
  EXPECT_THAT(world().daemon().output().text(),
              HasSubstr("p2 takes no frames that are redirected in native mode"));
  ASSERT_TRUE(receiveInBulk("c2"));
  EXPECT_TRUE(becomes(1, "native"));
}

TEST_F(Kept, AReloadHasNativeModeTriedByPortsThatTakeItsFramesOnlyThen) {
  ip("link add a0 type veth peer name a1");
  for (const char* end : {"a0", "a1"}) ip(std::string("link set ") + end + " up");
  const std::string two =
      "classifier = \"xdp\"\n[[port]]\nnumber = 1\ninterface = \"a0\"\n"
      "[[port]]\nnumber = 2\ninterface = \"a1\"\n";
  const std::string keep = "[xdp]\nkeep = true\n";
  if (!start(two + "[[port]]\nnumber = 3\ninterface = \"p3\"\n" + keep)) return;
  stop();
  ASSERT_TRUE(start(two + keep));
  EXPECT_EQ(state(1), "generic");
  EXPECT_EQ(client::Control("tcp").reload(), "");
  EXPECT_TRUE(becomes(1, "native"));
}

TEST_F(Kept, PeeredFramesStayHereWhileNoDaemonRuns) {
  if (!start(keeping())) return;
  attach("p", RPC_L2CP_RULE_PEER);
  kill();
  EXPECT_EQ(send({lldp(), cdp()}), (Arrived{{"p1", {lldp(), cdp()}}}));
}

TEST_F(Kept, ProgramsOfPortsThatAreNoMoreAreRemoved) {
  if (!start(keeping())) return;
  stop();
  EXPECT_FALSE(isClear());
  ASSERT_TRUE(start("classifier = \"xdp\"\n[xdp]\nkeep = true\n"));
  EXPECT_TRUE(eventually(isClear));
}

TEST_F(Kept, ProgramsAreRemovedByADaemonThatIsNotToKeepThem) {
  if (!start(keeping())) return;
  kill();
  EXPECT_FALSE(isClear());
  ASSERT_TRUE(start(config()));
  EXPECT_FALSE(isClear());
  stop();
  EXPECT_TRUE(eventually(isClear));
}

TEST_F(Kept, ProgramsAreRemovedByADaemonThatDoesNotUseThem) {
  if (!start(keeping())) return;
  attach("d", RPC_L2CP_RULE_DISCARD);
  stop();
  EXPECT_FALSE(isClear());
  ASSERT_TRUE(start("classifier = \"software\"\n"));
  EXPECT_TRUE(eventually(isClear));
  EXPECT_THAT(world().daemon().output().text(),
              HasSubstr("xdp: programs that an earlier daemon has kept on interfaces are removed"));
  EXPECT_EQ(send({cdp()}), (Arrived{{"c2", {cdp()}}, {"c3", {cdp()}}, {"p1", {cdp()}}}));
}

TEST_F(Kept, WhoMayNotRemoveProgramsIsToldHowTheyAre) {
  if (!start(keeping())) return;
  stop();
  ASSERT_EQ(run({"chmod", "-R", "a+rX", "/sys/fs/bpf"}).status, 0);
  World::file("l2cpd.toml", "lock = \"/run/lock/l2cpd\"\nstartup = \"\"\n");
  ASSERT_EQ(run({"install", "-d", "-m", "0777", "/run/lock"}).status, 0);
  const support::Process daemon({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                 World::daemonProgram(), "-c", configPath});
  EXPECT_TRUE(daemon.output().waitFor("l2cpd: daemon: ready")) << daemon.output().text();
  const std::string remedy = "rm -r " + keptFolder();
  EXPECT_THAT(daemon.output().text(), HasSubstr("have root run \"" + remedy + "\""));
  EXPECT_FALSE(isClear());
  ASSERT_EQ(run({"sh", "-c", remedy}).status, 0);
  EXPECT_TRUE(eventually(isClear));
}

TEST_F(Kept, WhoMayNotLookForProgramsIsToldHowTheyGo) {
  ASSERT_EQ(chmod("/sys/fs/bpf", 0700), 0);
  World::file("l2cpd.toml", "lock = \"/run/lock/l2cpd\"\nstartup = \"\"\n");
  ASSERT_EQ(run({"install", "-d", "-m", "0777", "/run/lock"}).status, 0);
  const support::Process daemon({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                 World::daemonProgram(), "-c", configPath});
  EXPECT_TRUE(daemon.output().waitFor("l2cpd: daemon: ready")) << daemon.output().text();
  EXPECT_THAT(daemon.output().text(), HasSubstr("have root run \"rm -r " + keptFolder() + "\""));
}

TEST_F(Kept, ProgramsOfADaemonThatRunsAreLeftToItThoughTheirFolderWasRemovedMeanwhile) {
  if (!start(keeping())) return;
  attach("d", RPC_L2CP_RULE_DISCARD);
  ASSERT_EQ(run({"rm", "-r", "/sys/fs/bpf/l2cpd"}).status, 0);
  ip("link set c3 alias other");
  EXPECT_TRUE(eventually([] { return access(keptFile("p3").c_str(), F_OK) == 0; }));
  const std::string path = World::file("other.toml",
                                       "startup = \"\"\nlock = \"/run/2.lock\"\n"
                                       "classifier = \"xdp\"\n[xdp]\nkeep = true\n");
  const support::Run second = run({World::daemonProgram(), "-c", path});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(access(keptFile("p1").c_str(), F_OK), 0);
  kill();
  EXPECT_EQ(send({cdp()}), Arrived{});
}

TEST_F(Kept, AFolderThatAnotherDaemonHasTakenMeanwhileIsLeftToIt) {
  if (!start(keeping())) return;
  world().daemon().signal(SIGSTOP);
  ASSERT_EQ(run({"rm", "-r", "/sys/fs/bpf/l2cpd"}).status, 0);
  const auto second = startAnother();
  world().daemon().signal(SIGCONT);
  ip("link set c3 alias other");
  EXPECT_TRUE(world().daemon().output().waitFor("programs end with the daemon: another one keeps"));
  EXPECT_EQ(access(keptFile("p4").c_str(), F_OK), 0);
  stop();
  EXPECT_TRUE(eventually(isClear));
  EXPECT_EQ(access(keptFile("p4").c_str(), F_OK), 0);
}

TEST_F(Kept, AFolderThatAnotherDaemonMakesIsLeftToItByOneThatKeepsNothing) {
  if (!start(config())) return;
  const auto second = startAnother();
  ip("link delete p3");
  EXPECT_TRUE(world().daemon().output().waitFor("p3: there is no such interface"));
  EXPECT_EQ(access(keptFile("p4").c_str(), F_OK), 0);
}

TEST_F(Kept, ProgramsOfADaemonThatRunsAreLeftToIt) {
  if (!start(keeping())) return;
  attach("d", RPC_L2CP_RULE_DISCARD);
  const std::string path = World::file("other.toml", "startup = \"\"\nlock = \"/run/2.lock\"\n");
  const support::Process software({World::daemonProgram(), "-c", path});
  ASSERT_TRUE(software.output().waitFor("bridge br0")) << software.output().text();
  EXPECT_EQ(send({cdp()}), Arrived{});
  World::file("other.toml",
              "startup = \"\"\nlock = \"/run/3.lock\"\n"
              "classifier = \"xdp\"\n[xdp]\nkeep = true\n");
  const support::Run second = run({World::daemonProgram(), "-c", path});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.output,
              HasSubstr("another daemon that runs keeps its own in " + keptFolder()));
  EXPECT_EQ(send({cdp()}), Arrived{});
}

TEST_F(Kept, ProgramsOfAnotherNetworkNamespaceAreLeftAlone) {
  if (!start(keeping())) return;
  stop();
  World::file("l2cpd.toml", "startup = \"\"\nlock = \"/run/other.lock\"\n");
  const support::Process other({"unshare", "--net", World::daemonProgram(), "-c", configPath});
  ASSERT_TRUE(other.output().waitFor("bridge br0")) << other.output().text();
  EXPECT_FALSE(isClear());
}

TEST_F(Kept, WhatAnotherNetworkNamespaceHasLeftAndKeepsNothingIsRemoved) {
  if (!start(keeping())) return;
  stop();
  // As if it were that of another namespace.
  ASSERT_EQ(run({"sh", "-c", "mv /sys/fs/bpf/l2cpd/* /sys/fs/bpf/l2cpd/1"}).status, 0);
  const std::string third = "/sys/fs/bpf/l2cpd/1/" + std::to_string(if_nametoindex("p3"));
  ASSERT_EQ(access(third.c_str(), F_OK), 0);
  ip("link delete p3");
  ASSERT_TRUE(start("classifier = \"software\"\n"));
  EXPECT_NE(access(third.c_str(), F_OK), 0);
  EXPECT_FALSE(isClear());
  stop();
  ip("link delete p1");
  ip("link delete p2");
  ASSERT_TRUE(start("classifier = \"software\"\n"));
  EXPECT_NE(access("/sys/fs/bpf/l2cpd/1", F_OK), 0);
}

TEST_F(Kept, FilesThatAreRemovedAreMadeAgain) {
  if (!start(keeping())) return;
  attach("d", RPC_L2CP_RULE_DISCARD);
  ASSERT_EQ(run({"sh", "-c", "rm -r /sys/fs/bpf/l2cpd"}).status, 0);
  ip("link delete p3");
  cable(3);
  EXPECT_TRUE(eventually([] { return access(keptFile("p1").c_str(), F_OK) == 0; }));
  kill();
  EXPECT_FALSE(isClear());
  EXPECT_EQ(send({cdp()}), Arrived{});
}

TEST_F(Kept, AProgramThatCannotBeKeptIsAttachedAllTheSameAndStays) {
  if (!start(keeping())) return;
  const std::string mode = state(1);
  // No folder can be made there.
  ASSERT_EQ(run({"sh", "-c", "rm -r /sys/fs/bpf/l2cpd"}).status, 0);
  const support::Descriptor program(foreignProgram());
  ASSERT_EQ(bpf_obj_pin(program.get(), "/sys/fs/bpf/l2cpd"), 0);
  ip("link delete p3");
  cable(3);
  EXPECT_TRUE(becomes(3, mode));
  EXPECT_TRUE(world().daemon().output().waitFor(
      "warning: xdp: port 3, p3: its program ends with the daemon: /sys/fs/bpf/l2cpd/"));
  // Nothing more happens to it.
  EXPECT_EQ(state(3), mode);
  const auto text = world().daemon().output().text();
  ip("link set c3 alias other");
  EXPECT_EQ(state(3), mode);
  EXPECT_EQ(world().daemon().output().text(), text);
}

TEST_F(Kept, AServicesUserNeedsAFolderOfItsOwnAndIsToldHowItGetsOne) {
  // As service managers mount it.
  ASSERT_EQ(chmod("/sys/fs/bpf", 0700), 0);
  World::file("l2cpd.toml", keeping());
  const std::string rights = "+bpf,+net_admin,+perfmon";
  const std::vector<std::string> asUser = {"setpriv",
                                           "--reuid=65534",
                                           "--regid=65534",
                                           "--clear-groups",
                                           "--inh-caps=" + rights,
                                           "--ambient-caps=" + rights,
                                           World::daemonProgram(),
                                           "-c",
                                           configPath};
  const support::Process refused(asUser);
  ASSERT_TRUE(refused.output().waitForEnd());
  const std::string text = refused.output().text();
  if (text.find("/sys/fs/bpf") == std::string::npos) GTEST_SKIP() << text;
  EXPECT_THAT(text, HasSubstr("/sys/fs/bpf/l2cpd: Permission denied"));
  const std::string remedy[] = {"chmod a+x /sys/fs/bpf",
                                "install -d -m 0700 -o 65534 /sys/fs/bpf/l2cpd"};
  for (const std::string& command : remedy) {
    EXPECT_THAT(text, HasSubstr("\"" + command + "\""));
    ASSERT_EQ(run({"sh", "-c", command}).status, 0);
  }
  support::Process daemon(asUser);
  EXPECT_TRUE(daemon.output().waitFor("l2cpd: daemon: ready")) << daemon.output().text();
  EXPECT_TRUE(becomes(1, "generic"));
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_FALSE(isClear());
}

TEST_F(Live, KeepingProgramsNeedsTheirFileSystem) {
  World::file("l2cpd.toml", config("[xdp]\nkeep = true"));
  if (run({"sh", "-c", "mount | grep -q ' /sys/fs/bpf type bpf'"}).status == 0) {
    GTEST_SKIP() << "the machine has one";
  }
  const support::Process& daemon = world().startDaemon({"-c", configPath}, false);
  ASSERT_TRUE(daemon.output().waitForEnd());
  const std::string text = daemon.output().text();
  if (text.find("capabilities") != std::string::npos) GTEST_SKIP() << text;
  EXPECT_THAT(text, HasSubstr("mount -t bpf bpf /sys/fs/bpf"));
}

}  // namespace
