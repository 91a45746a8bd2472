/// The compiled matcher against a linear scan over the same 99 entries: as many as one port and
/// kind can have before the catch-all. The ratio is measured in alternating turns within one run,
/// so that a machine that speeds up or slows down meanwhile does so for both.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "classifier/frame.h"
#include "classifier/matcher.h"
#include "classifier/table.h"
#include "platform/acl_ioctl.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace {

using support::Bytes;
using support::FrameBuilder;
using support::Mac;

struct Protocol {
  const char* name;
  Mac destination;
  std::uint16_t etherType;  ///< 0: any
  int subtype;              ///< -1: any
};

constexpr std::array<Protocol, 11> protocols = {{
    {"stp", {0x01, 0x80, 0xc2, 0, 0, 0x00}, 0, -1},
    {"pause", {0x01, 0x80, 0xc2, 0, 0, 0x01}, 0x8808, -1},
    {"lacp", {0x01, 0x80, 0xc2, 0, 0, 0x02}, 0x8809, 0x01},
    {"lamp", {0x01, 0x80, 0xc2, 0, 0, 0x02}, 0x8809, 0x02},
    {"oam", {0x01, 0x80, 0xc2, 0, 0, 0x02}, 0x8809, 0x03},
    {"esmc", {0x01, 0x80, 0xc2, 0, 0, 0x02}, 0x8809, 0x0a},
    {"pnac", {0x01, 0x80, 0xc2, 0, 0, 0x03}, 0x888e, -1},
    {"elmi", {0x01, 0x80, 0xc2, 0, 0, 0x07}, 0x88ee, -1},
    {"lldp", {0x01, 0x80, 0xc2, 0, 0, 0x0e}, 0, -1},
    {"gmrp", {0x01, 0x80, 0xc2, 0, 0, 0x20}, 0, -1},
    {"udld", {0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc}, 0x0111, -1},
}};
constexpr std::uint16_t firstVlan = 100;
constexpr std::uint16_t vlans = 9;

constexpr Mac station = {0x02, 0, 0, 0, 0, 0x01};

/// Every protocol on every VLAN, VLAN by VLAN.
void fill(classifier::Table& table) {
  Requests request(table);
  int failed = request.addActionList("hide");
  failed |= request.addAction("hide", 0, ACL_ACTION_HIDE);
  std::uint32_t index = 200;
  for (std::uint16_t vlan = firstVlan; vlan < firstVlan + vlans; ++vlan) {
    for (const Protocol& protocol : protocols) {
      const std::string name = protocol.name + std::to_string(vlan);
      failed |= request.addSelector(name);
      failed |= request.addVlan(name, vlan, vlan);
      failed |= request.addDestination(name, protocol.destination);
      if (protocol.etherType != 0) failed |= request.addEtherType(name, protocol.etherType);
      if (protocol.subtype >= 0) {
        failed |= request.addPayload(name, 0, 0xff, static_cast<std::uint8_t>(protocol.subtype));
      }
      failed |= request.addEntry("1", 1, index++, name, "hide");
    }
  }
  if (failed != 0) std::abort();
}

/// What one would write without the matcher: the frame is taken apart once, then the entries are
/// compared one after the other, the condition first that most often fails.
class LinearScan {
 public:
  explicit LinearScan(const classifier::Rules& rules) {
    for (const auto& rule : rules) {
      Entry entry;
      for (const classifier::Condition& condition : rule->conditions) {
        std::visit([&](const auto& c) { entry.add(c); }, condition);
      }
      entries_.push_back(entry);
    }
  }

  /// The position of the first entry that holds: the number of entries when none does.
  std::size_t match(std::span<const std::uint8_t> frame) const {
    const classifier::Fields fields = classifier::fieldsOf(frame);
    const auto found =
        std::ranges::find_if(entries_, [&](const Entry& e) { return e.holds(fields); });
    return static_cast<std::size_t>(found - entries_.begin());
  }

 private:
  struct Entry {
    std::uint64_t mac = 0;
    std::uint64_t macMask = 0;
    std::uint16_t lowestVlan = 0;
    std::uint16_t highestVlan = 0;
    std::uint16_t etherType = 0;
    bool hasMac = false;
    bool hasVlan = false;
    bool hasEtherType = false;
    bool hasByte = false;
    std::uint8_t byteMask = 0;
    std::uint8_t byte = 0;
    std::uint32_t offset = 0;

    void add(const classifier::DestinationMac& c) {
      hasMac = true;
      mac = c.mac & c.mask;
      macMask = c.mask;
    }
    void add(const classifier::VlanRange& c) {
      hasVlan = !c.everyFrame();
      lowestVlan = c.lowest;
      highestVlan = c.highest;
    }
    void add(const classifier::EtherType& c) {
      hasEtherType = true;
      etherType = c.value;
    }
    void add(const classifier::PayloadByte& c) {
      hasByte = true;
      byteMask = c.mask;
      byte = c.value & c.mask;
      offset = c.offset;
    }

    bool holds(const classifier::Fields& fields) const {
      if (hasMac && (!fields.destination || (*fields.destination & macMask) != mac)) return false;
      if (hasVlan && (!fields.vlan || *fields.vlan < lowestVlan || *fields.vlan > highestVlan)) {
        return false;
      }
      if (hasEtherType && fields.etherType != etherType) return false;
      return !hasByte ||
             (offset < fields.payload.size() && (fields.payload[offset] & byteMask) == byte);
    }
  };

  std::vector<Entry> entries_;
};

struct World {
  World() {
    fill(table);
    compiled = std::make_unique<classifier::Matcher>(table.rules(1));
    linear = std::make_unique<LinearScan>(table.rules(1));
  }

  classifier::Table table;
  std::unique_ptr<classifier::Matcher> compiled;
  std::unique_ptr<LinearScan> linear;

  static const World& get() {
    static const World world;
    return world;
  }
};

Bytes frameOf(const Protocol& protocol, std::uint16_t vlan) {
  return FrameBuilder()
      .ethernet(protocol.destination, station)
      .tag(0x8100, vlan)
      .length(46)
      .snap({0, 0, 0x0c}, protocol.etherType)
      .padTo(64)
      .bytes();
}

constexpr std::size_t lastEntry = 0;
constexpr std::size_t noEntry = 1;
constexpr std::size_t firstEntry = 2;

struct Scenario {
  const char* name;
  Bytes frame;
  std::size_t position;
  /// What is demanded of the ratio. The other ratios complete the picture.
  const char* limit = "";
};

const std::array<Scenario, 3>& scenarios() {
  static const std::array<Scenario, 3> all = {{
      {"last entry", frameOf(protocols.back(), firstVlan + vlans - 1), 98, " (limit 0.4)"},
      {"no entry",
       FrameBuilder()
           .ethernet(station, station)
           .tag(0x8100, 100)
           .etherType(0x0800)
           .padTo(64)
           .bytes(),
       99},
      {"first entry", frameOf(protocols.front(), firstVlan), 0},
  }};
  return all;
}

/// Both must find the entry that the scenario is about, or comparing their speed means nothing.
bool agree() {
  const World& world = World::get();
  const classifier::Rules rules = world.table.rules(1);
  return rules.size() == 99 && std::ranges::all_of(scenarios(), [&](const Scenario& scenario) {
           const auto* rule = world.compiled->match(scenario.frame);
           const std::size_t position =
               rule == nullptr ? rules.size() : (*rule)->index - rules.front()->index;
           return position == scenario.position &&
                  world.linear->match(scenario.frame) == scenario.position;
         });
}

void compiledMatcher(benchmark::State& state, std::size_t scenario) {
  const Bytes& frame = scenarios()[scenario].frame;
  const World& world = World::get();
  while (state.KeepRunning()) benchmark::DoNotOptimize(world.compiled->match(frame));
}

void linearScan(benchmark::State& state, std::size_t scenario) {
  const Bytes& frame = scenarios()[scenario].frame;
  const World& world = World::get();
  while (state.KeepRunning()) benchmark::DoNotOptimize(world.linear->match(frame));
}

/// Lock, counters and verdict included.
void tableClassify(benchmark::State& state, std::size_t scenario) {
  const Bytes& frame = scenarios()[scenario].frame;
  classifier::Table table;
  fill(table);
  while (state.KeepRunning()) benchmark::DoNotOptimize(table.classify(1, frame));
}

BENCHMARK_CAPTURE(compiledMatcher, last, lastEntry);
BENCHMARK_CAPTURE(linearScan, last, lastEntry);
BENCHMARK_CAPTURE(tableClassify, last, lastEntry);
BENCHMARK_CAPTURE(compiledMatcher, none, noEntry);
BENCHMARK_CAPTURE(linearScan, none, noEntry);
BENCHMARK_CAPTURE(tableClassify, none, noEntry);
BENCHMARK_CAPTURE(compiledMatcher, first, firstEntry);
BENCHMARK_CAPTURE(linearScan, first, firstEntry);
BENCHMARK_CAPTURE(tableClassify, first, firstEntry);

template <class Function>
double nanoseconds(Function&& function) {
  constexpr int calls = 2000;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < calls; ++i) benchmark::DoNotOptimize(function());
  const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
  return taken.count() / calls;
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

void printRatio(const Scenario& scenario) {
  const World& world = World::get();
  std::vector<double> compiled;
  std::vector<double> linear;
  std::vector<double> ratio;
  for (int turn = 0; turn < 501; ++turn) {
    compiled.push_back(nanoseconds([&] { return world.compiled->match(scenario.frame); }));
    linear.push_back(nanoseconds([&] { return world.linear->match(scenario.frame); }));
    ratio.push_back(compiled.back() / linear.back());
  }
  std::printf("%-12s compiled %6.1f ns, linear %6.1f ns, ratio %.3f%s\n", scenario.name,
              median(compiled), median(linear), median(ratio), scenario.limit);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
  if (!agree()) {
    std::fputs("the compiled matcher and the linear scan disagree\n", stderr);
    return EXIT_FAILURE;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  std::printf("\n99 entries, medians of alternating turns\n");
  for (const Scenario& scenario : scenarios()) printRatio(scenario);
  return EXIT_SUCCESS;
}
