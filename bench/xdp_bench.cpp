// What the XDP program costs for a frame, against a program that does nothing but drop it, and what
// requests cost that change its tables. To be run by bench/run; needs the right to load programs.

#include <bpf/bpf.h>
#include <linux/bpf.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "bench/ratio.h"
#include "classifier/table.h"
#include "classifier/xdp/plane.h"
#include "platform/acl_ioctl.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Table;
using classifier::xdp::Plane;
using support::Bytes;
using support::FrameBuilder;
using support::Mac;

constexpr int rounds = 31;
constexpr std::uint32_t framesPerRound = 200'000;
constexpr std::uint32_t loopback = 1;
constexpr std::uint32_t port = 1;
constexpr Mac station = {0x02, 0, 0, 0, 0, 1};

Mac group(int number) {
  return {0x01,
          0x80,
          0xc2,
          0,
          static_cast<std::uint8_t>(number >> 8),
          static_cast<std::uint8_t>(number)};
}

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

int dropProgram() {
  const std::array<bpf_insn, 2> drop = {
      bpf_insn{.code = BPF_ALU64 | BPF_MOV | BPF_K, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 1},
      bpf_insn{.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0}};
  return bpf_prog_load(BPF_PROG_TYPE_XDP, "drop", "BSD", drop.data(), drop.size(), nullptr);
}

// A port whose entries are for group addresses, each with its own EtherType and four counters.
class Switch {
 public:
  Switch() {
    plane.addPort(port, {});
    plane.setInterface(port, loopback);
    table.setDataPlane(&plane);
    for (int i = 0; i < 4; ++i) request.addCounter("c" + std::to_string(i));
  }

  void addEntries(const char* text, int count) {
    for (int i = 0; i < count; ++i) addEntry(text, i);
  }

  void addEntry(const char* text, int i) {
    const std::string name = std::string(text) + ":" + std::to_string(i);
    request.addSelector(name);
    request.addVlan(name, 100, 100);
    request.addDestination(name, group(i));
    request.addEtherType(name, 0x88cc);
    request.addActionList(name);
    for (unsigned c = 0; c < 4; ++c) request.addCounterChange(name, c, "c" + std::to_string(c));
    request.addAction(name, 9, ACL_ACTION_DROP);
    if (request.addEntry(text, 1, static_cast<std::uint32_t>(200 + i), name, name) != 0) {
      std::fputs("an entry is refused\n", stderr);
    }
  }
  void deleteEntry(const char* text, int i) {
    const std::string name = std::string(text) + ":" + std::to_string(i);
    request.deleteEntry(text, 1, static_cast<std::uint32_t>(200 + i));
    request.deleteSelector(name);
    request.deleteActionList(name);
  }

  Plane plane;
  Table table;
  Requests request{table};
};

Bytes ordinary() {
  return FrameBuilder()
      .ethernet(station, station)
      .tag(0x8100, 100)
      .etherType(0x0800)
      .padTo(64)
      .bytes();
}
Bytes control(int number) {
  return FrameBuilder()
      .ethernet(group(number), station)
      .tag(0x8100, 100)
      .etherType(0x88cc)
      .padTo(64)
      .bytes();
}

void frames(Switch& device, int drop) {
  const int program = device.plane.programs().classify;
  const auto baseline = [&] { return run(drop, ordinary()); };
  bench::surplus(
      "ordinary unicast, 99 entries for groups", "a program that drops", 10, rounds,
      [&] { return run(program, ordinary()); }, baseline);
  bench::surplus(
      "first of 99 entries, four counters", "a program that drops", 0, rounds,
      [&] { return run(program, control(0)); }, baseline);
  bench::surplus(
      "last of 99 entries, four counters", "a program that drops", 75, rounds,
      [&] { return run(program, control(98)); }, baseline);
}

// As many as a profile with all built-in protocols has.
constexpr int protocols = 14;

bench::Nanoseconds attach(Switch& device) {
  const bench::Stopwatch watch;
  device.addEntries("2", protocols);
  const bench::Nanoseconds cost = watch.read();
  for (int i = 0; i < protocols; ++i) device.deleteEntry("2", i);
  return cost;
}

bench::Nanoseconds readCounters(Switch& device) {
  constexpr int reads = 1000;
  const bench::Stopwatch watch;
  for (int i = 0; i < reads; ++i) device.request.counter("c" + std::to_string(i % 4));
  return watch.read() / reads;
}

void requests(Switch& few) {
  Switch many;
  constexpr int ports = 250;
  for (int i = 0; i < ports; ++i) {
    many.plane.addPort(static_cast<std::uint32_t>(1000 + i), {});
    many.addEntries(std::to_string(1000 + i).c_str(), 99);
  }
  for (Switch* device : {&few, &many}) device->plane.addPort(2, {});
  bench::compare(
      "attach 14 protocols, 24,750 entries elsewhere", "the same, 99 entries elsewhere",
      bench::atMost(1.1), rounds, [&] { return attach(many); }, [&] { return attach(few); });
  bench::compare(
      "read a counter, 24,750 entries elsewhere", "the same, 99 entries elsewhere",
      bench::atMost(1.1), rounds, [&] { return readCounters(many); },
      [&] { return readCounters(few); });
}

}  // namespace

int main() {
  const int drop = dropProgram();
  if (drop < 0) {
    std::puts("skipped: programs cannot be loaded here");
    return 0;
  }
  Switch device;
  device.addEntries("1", 99);
  frames(device, drop);
  requests(device);
}
