// What the XDP program costs for a frame, against a program that does nothing but drop it, and what
// requests cost that change its tables. To be run by bench/run; needs the right to load programs.

#include <bpf/bpf.h>
#include <linux/bpf.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

#include "bench/ratio.h"
#include "bench/switch.h"
#include "tests/support/frame_builder.h"

namespace {

using support::Bytes;
using support::FrameBuilder;

constexpr int rounds = 31;
constexpr std::uint32_t framesPerRound = 200'000;
constexpr std::uint32_t loopback = 1;
constexpr std::uint16_t vlan = 100;

// Differences of nanoseconds drown in what others do on the processor meanwhile.
bench::Nanoseconds processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

bench::Nanoseconds run(int program, const Bytes& frame) {
  xdp_md context{};
  context.data_end = static_cast<std::uint32_t>(frame.size());
  context.ingress_ifindex = loopback;
  bpf_test_run_opts options{};
  options.sz = sizeof options;
  options.data_in = frame.data();
  options.data_size_in = static_cast<std::uint32_t>(frame.size());
  options.ctx_in = &context;
  options.ctx_size_in = sizeof context;
  options.repeat = static_cast<int>(framesPerRound);
  const bench::Nanoseconds begin = processorTime();
  if (bpf_prog_test_run_opts(program, &options) != 0) std::perror("test run");
  return (processorTime() - begin) / framesPerRound;
}

Bytes ordinary() {
  return FrameBuilder()
      .ethernet(bench::station, bench::station)
      .tag(0x8100, vlan)
      .etherType(0x0800)
      .padTo(64)
      .bytes();
}

void frames(bench::Switch& device, int drop) {
  const int program = device.plane.programs().classify;
  const auto baseline = [&] { return run(drop, ordinary()); };
  bench::surplus(
      "ordinary unicast, 99 entries for groups", "a program that drops", 10, rounds,
      [&] { return run(program, ordinary()); }, baseline);
  bench::surplus(
      "first of 99 entries, four counters", "a program that drops", 0, rounds,
      [&] { return run(program, bench::controlFrame(0, vlan)); }, baseline);
  bench::surplus(
      "last of 99 entries, four counters", "a program that drops", 75, rounds,
      [&] { return run(program, bench::controlFrame(bench::entries - 1, vlan)); }, baseline);
  bench::Switch disorderly(vlan);
  disorderly.addPort(1);
  disorderly.plane.setInterface(1, loopback);
  disorderly.addEntriesInDisorder("1");
  bench::surplus(
      "last of 99 entries in disorder", "a program that drops", 75, rounds,
      [&] {
        return run(disorderly.plane.programs().classify,
                   bench::controlFrame(bench::disordered(bench::entries - 1), vlan));
      },
      baseline);
}

// As many as a profile with all built-in protocols has.
constexpr int protocols = 14;

bench::Nanoseconds attach(bench::Switch& device) {
  const bench::Stopwatch watch;
  device.addEntries("2", protocols);
  const bench::Nanoseconds cost = watch.read();
  for (int i = 0; i < protocols; ++i) device.deleteEntry("2", i);
  return cost;
}

bench::Nanoseconds readCounters(bench::Switch& device) {
  constexpr int reads = 1000;
  const bench::Stopwatch watch;
  for (int i = 0; i < reads; ++i) device.request.counter("c" + std::to_string(i % 4));
  return watch.read() / reads;
}

void requests(bench::Switch& few) {
  bench::Switch many(vlan);
  constexpr int ports = 506;
  for (int i = 0; i < ports; ++i) {
    many.addPort(static_cast<std::uint32_t>(1000 + i));
    many.addEntries(std::to_string(1000 + i).c_str(), bench::entries);
  }
  for (bench::Switch* device : {&few, &many}) device->addPort(2);
  bench::compare(
      "attach 14 protocols, 50,000 entries elsewhere", "the same, 99 entries elsewhere",
      bench::atMost(1.1), rounds, [&] { return attach(many); }, [&] { return attach(few); });
  bench::compare(
      "read a counter, 50,000 entries elsewhere", "the same, 99 entries elsewhere",
      bench::atMost(1.1), rounds, [&] { return readCounters(many); },
      [&] { return readCounters(few); });
}

}  // namespace

int main() {
  const int drop = bench::dropProgram();
  if (drop < 0) {
    std::puts("skipped: programs cannot be loaded here");
    return 0;
  }
  bench::Switch device(vlan);
  device.addPort(1);
  device.plane.setInterface(1, loopback);
  device.addEntries("1", bench::entries);
  frames(device, drop);
  requests(device);
}
