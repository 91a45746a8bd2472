/// The plane: what the program does besides deciding as the matcher does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <set>
#include <string>
#include <thread>

#include "classifier/xdp/members.h"
#include "classifier/xdp/plane.h"
#include "tests/classifier/xdp_kernel.h"

namespace {

using classifier::Fate;
using kernel_test::interface;
using kernel_test::Kernel;
using kernel_test::port;
using kernel_test::portText;
using kernel_test::Xdp;
using support::Bytes;
using support::FrameBuilder;
using testing::Optional;

constexpr support::Mac lldp = {0x01, 0x80, 0xc2, 0, 0, 0x0e};

Bytes untagged() { return FrameBuilder().ethernet(lldp, {2}).etherType(0x88cc).bytes(); }
Bytes tagged(std::uint16_t vlan) {
  return FrameBuilder().ethernet(lldp, {2}).tag(0x8100, vlan).etherType(0x88cc).bytes();
}

/// Selector and list for LLDP, with a counter, all of the name.
void addProtocol(Kernel& kernel, const std::string& name, std::uint32_t action) {
  ASSERT_EQ(kernel.request.addSelector(name), 0);
  ASSERT_EQ(kernel.request.addDestination(name, lldp), 0);
  ASSERT_EQ(kernel.request.addCounter(name), 0);
  ASSERT_EQ(kernel.request.addActionList(name), 0);
  ASSERT_EQ(kernel.request.addCounterChange(name, 0, name), 0);
  ASSERT_EQ(kernel.request.addAction(name, 1, action), 0);
}

TEST_F(Xdp, FramesOfInterfacesThatAreNoPortsPass) {
  addProtocol(*kernel, "p", ACL_ACTION_DROP);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  EXPECT_EQ(kernel->fate(untagged()), Fate::discard);
  ASSERT_EQ(kernel->plane.setInterface(port, 0), 0);
  EXPECT_EQ(kernel->fate(untagged()), Fate::untouched);
  EXPECT_THAT(kernel->request.counter("p"), Optional(1));
}

TEST_F(Xdp, APeeredFrameForWhoseMarkThereIsNoRoomIsReportedOnce) {
  addProtocol(*kernel, "p", ACL_ACTION_HIDE);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  EXPECT_EQ(kernel->fate(untagged()), Fate::peer);
  EXPECT_FALSE(kernel->plane.takeUnmarked(port));
  // A driver has taken all that the kernel has for it.
  EXPECT_EQ(kernel->fate(untagged(), kernel->mostBefore(untagged())), Fate::untouched);
  EXPECT_TRUE(kernel->plane.takeUnmarked(port));
  EXPECT_FALSE(kernel->plane.takeUnmarked(port));
}

TEST_F(Xdp, APortInThePlaceOfAnotherIsNotReportedForIt) {
  addProtocol(*kernel, "p", ACL_ACTION_HIDE);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  EXPECT_EQ(kernel->fate(untagged(), kernel->mostBefore(untagged())), Fate::untouched);
  ASSERT_EQ(kernel->plane.removePort(port), 0);
  ASSERT_EQ(kernel->plane.addPort(port, {}), 0);
  EXPECT_FALSE(kernel->plane.takeUnmarked(port));
}

TEST_F(Xdp, APortThatIsRemovedIsWithoutRulesWhenItComesBack) {
  addProtocol(*kernel, "p", ACL_ACTION_DROP);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  ASSERT_EQ(kernel->plane.removePort(port), 0);
  EXPECT_EQ(kernel->fate(untagged()), Fate::untouched);
  EXPECT_EQ(kernel->plane.removePort(port), -ENOENT);
  ASSERT_EQ(kernel->plane.addPort(port, {}), 0);
  ASSERT_EQ(kernel->plane.setInterface(port, interface), 0);
  EXPECT_EQ(kernel->fate(untagged()), Fate::untouched);
  ASSERT_EQ(kernel->table.refresh(port), 0);
  EXPECT_EQ(kernel->fate(untagged()), Fate::discard);
}

TEST_F(Xdp, HoldsItsPortsAndNoMore) {
  for (std::uint32_t i = 1; i < L2CP_PORTS; ++i) {
    ASSERT_EQ(kernel->plane.addPort(port + i, {}), 0);
  }
  EXPECT_EQ(kernel->plane.addPort(port + 1, {}), -EEXIST);
  EXPECT_EQ(kernel->plane.addPort(port + L2CP_PORTS, {}), -ENOSPC);
  ASSERT_EQ(kernel->plane.removePort(port + 1), 0);
  EXPECT_EQ(kernel->plane.addPort(port + L2CP_PORTS, {}), 0);
}

TEST_F(Xdp, AnInterfaceIsOnePortsAlone) {
  ASSERT_EQ(kernel->plane.addPort(8, {}), 0);
  EXPECT_EQ(kernel->plane.setInterface(8, interface), -ENOSPC);
  EXPECT_EQ(kernel->plane.setInterface(9, interface), -ENOENT);
  ASSERT_EQ(kernel->plane.setInterface(port, 0), 0);
  EXPECT_EQ(kernel->plane.setInterface(8, interface), 0);
}

TEST_F(Xdp, RefusesVlansThatAreNone) {
  EXPECT_EQ(kernel->plane.setVlans(port, {.native = 0}), -EINVAL);
  EXPECT_EQ(kernel->plane.setVlans(port, {.native = 4095}), -EINVAL);
  EXPECT_EQ(kernel->plane.setVlans(port, {.native = 1, .tagged = {0}}), -EINVAL);
  EXPECT_EQ(kernel->plane.addPort(8, {.native = 1, .tagged = {4095}}), -EINVAL);
  EXPECT_EQ(kernel->plane.setVlans(9, {}), -ENOENT);
}

TEST_F(Xdp, TunnelsOnlyWithinThePortsVlans) {
  addProtocol(*kernel, "p", ACL_ACTION_NO_L2CP);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  EXPECT_EQ(kernel->fate(untagged()), Fate::tunnel);
  EXPECT_EQ(kernel->fate(tagged(100)), Fate::tunnel);

  ASSERT_EQ(kernel->plane.setVlans(port, {.native = 10, .tagged = {100, 4094}}), 0);
  ASSERT_EQ(kernel->plane.showMembers(), 0);
  EXPECT_EQ(kernel->fate(untagged()), Fate::tunnel);
  EXPECT_EQ(kernel->fate(tagged(0)), Fate::tunnel);
  EXPECT_EQ(kernel->fate(tagged(10)), Fate::tunnel);
  EXPECT_EQ(kernel->fate(tagged(100)), Fate::tunnel);
  EXPECT_EQ(kernel->fate(tagged(4094)), Fate::tunnel);
  EXPECT_EQ(kernel->fate(tagged(101)), Fate::discard);
  EXPECT_EQ(kernel->fate(tagged(1)), Fate::discard);
  EXPECT_THAT(kernel->request.counter("p"), Optional(9));
}

TEST_F(Xdp, TunnelsNothingFromPortsThatTunnelledFramesDoNotLeave) {
  addProtocol(*kernel, "p", ACL_ACTION_NO_L2CP);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  ASSERT_EQ(kernel->plane.setOutlet(port, std::nullopt), 0);
  EXPECT_EQ(kernel->fate(tagged(100)), Fate::tunnel);
  ASSERT_EQ(kernel->plane.showMembers(), 0);
  EXPECT_EQ(kernel->fate(tagged(100)), Fate::discard);
  EXPECT_EQ(kernel->plane.setOutlet(9, std::nullopt), -ENOENT);
}

TEST_F(Xdp, HoldsEveryVlan) {
  classifier::xdp::Vlans all;
  for (int vlan = 1; vlan <= 4094; ++vlan) all.tagged.insert(vlan);
  EXPECT_EQ(kernel->plane.setVlans(port, all), 0);
  EXPECT_EQ(kernel->plane.showMembers(), 0);
  EXPECT_EQ(kernel->plane.setVlans(port, {}), 0);
  EXPECT_EQ(kernel->plane.showMembers(), 0);
}

TEST_F(Xdp, PlacesOfMembersThatAreNoMoreAreUsedAgain) {
  using classifier::xdp::Members;
  const int model =
      bpf_map_create(BPF_MAP_TYPE_DEVMAP, "model", sizeof(int), sizeof(int), 1, nullptr);
  bpf_map_create_opts options{};
  options.sz = sizeof options;
  options.inner_map_fd = static_cast<std::uint32_t>(model);
  const int map =
      bpf_map_create(BPF_MAP_TYPE_ARRAY_OF_MAPS, "few", sizeof(int), sizeof(int), 4, &options);
  ASSERT_GE(map, 0);
  classifier::xdp::Memberships few(map, 4);
  const auto members = [](std::uint64_t arrival) { return Members{{interface, arrival}}; };
  EXPECT_EQ(few.add({members(1), members(2), members(3), members(4)}), -ENOSPC);
  for (std::uint64_t arrival = 0; arrival < 12; arrival += 3) {
    const std::set<Members> three = {members(arrival), members(arrival + 1), members(arrival + 2)};
    ASSERT_EQ(few.add(three), 0) << arrival;
    EXPECT_NE(few.placeOf(members(arrival)), few.placeOf(members(arrival + 1)));
    few.keepOnly(three);
    EXPECT_EQ(few.add({members(arrival + 3)}), -ENOSPC);
    few.keepOnly({});
  }
  EXPECT_EQ(few.add({Members()}), 0);
  EXPECT_EQ(few.placeOf({}), 0);
  close(map);
  close(model);
}

TEST_F(Xdp, RefusesWhatThePackedTableCannotExpress) {
  addProtocol(*kernel, "p", ACL_ACTION_DROP);
  ASSERT_EQ(kernel->request.addSelector("second byte"), 0);
  ASSERT_EQ(kernel->request.addPayload("second byte", 1, 0xff, 1), 0);
  EXPECT_EQ(kernel->request.addEntry(portText, 1, 200, "second byte", "p"), -EINVAL);
  EXPECT_EQ(kernel->request.addEntry("8", 1, 200, "second byte", "p"), 0);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  EXPECT_EQ(kernel->request.addPayload("p", 1, 0xff, 1), -EINVAL);
  EXPECT_EQ(kernel->fate(untagged()), Fate::discard);
}

TEST_F(Xdp, CountsOnEveryProcessor) {
  addProtocol(*kernel, "p", ACL_ACTION_DROP);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  cpu_set_t before;
  ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  std::uint64_t frames = 0;
  for (std::size_t processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (!CPU_ISSET(processor, &before)) continue;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    for (int i = 0; i < 3; ++i) kernel->fate(untagged());
    frames += 3;
  }
  ASSERT_EQ(sched_setaffinity(0, sizeof before, &before), 0);
  EXPECT_THAT(kernel->request.counter("p"), Optional(frames));
}

TEST_F(Xdp, ACounterKeepsWhatItCountedUntilItIsDeleted) {
  addProtocol(*kernel, "p", ACL_ACTION_DROP);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  kernel->fate(untagged());
  ASSERT_EQ(kernel->request.deleteEntry(portText, 1, 200), 0);
  EXPECT_THAT(kernel->request.counter("p"), Optional(1));
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "p", "p"), 0);
  kernel->fate(untagged());
  EXPECT_THAT(kernel->request.counter("p"), Optional(2));
  ASSERT_EQ(kernel->request.deleteCounter("p"), 0);
  ASSERT_EQ(kernel->request.addCounter("p"), 0);
  kernel->fate(untagged());
  EXPECT_THAT(kernel->request.counter("p"), Optional(0));
}

TEST_F(Xdp, AFrameIsCountedUnderTheRuleThatItIsTreatedUnder) {
  addProtocol(*kernel, "drop", ACL_ACTION_DROP);
  addProtocol(*kernel, "tunnel", ACL_ACTION_NO_L2CP);
  ASSERT_EQ(kernel->request.addEntry(portText, 1, 250, "drop", "drop"), 0);
  std::atomic<bool> done = false;
  std::atomic<std::uint64_t> replacements = 0;
  // The entry before goes and comes: in between there is always a rule.
  std::thread replacing([&] {
    for (; !done; ++replacements) {
      ASSERT_EQ(kernel->request.addEntry(portText, 1, 200, "tunnel", "tunnel"), 0);
      ASSERT_EQ(kernel->request.deleteEntry(portText, 1, 200), 0);
    }
  });
  std::uint64_t dropped = 0;
  std::uint64_t tunnelled = 0;
  for (int i = 0; i < 20000 || dropped == 0 || tunnelled == 0; ++i) {
    const Fate fate = kernel->fate(untagged());
    dropped += fate == Fate::discard ? 1 : 0;
    tunnelled += fate == Fate::tunnel ? 1 : 0;
    ASSERT_NE(fate, Fate::untouched);
  }
  done = true;
  replacing.join();
  EXPECT_GT(replacements, 0U);
  EXPECT_THAT(kernel->request.counter("drop"), Optional(dropped));
  EXPECT_THAT(kernel->request.counter("tunnel"), Optional(tunnelled));
}

}  // namespace
