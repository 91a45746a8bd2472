/// The XDP program against the software matcher: the same requests, the same frames, run through
/// the program by the kernel's own test facility. That takes 14 bytes and more.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "classifier/capture.h"
#include "classifier/table.h"
#include "tests/classifier/random_choices.h"
#include "tests/classifier/requests.h"
#include "tests/classifier/xdp_kernel.h"
#include "tests/support/frame_builder.h"

namespace {

using classifier::Table;
using kernel_test::Kernel;
using kernel_test::port;
using kernel_test::portText;
using kernel_test::smallestFrame;
using kernel_test::Xdp;
using support::Bytes;
using support::Mac;

/// Sends each request to both sides, which have to answer alike.
class Both : public RandomChoices {
 public:
  Both(Kernel& kernel, unsigned seed) : RandomChoices(seed), kernel_(kernel) {}

  void build() {
    // Small tables are the ones that have much in common, by which most frames pass.
    const int entries = oneIn(2) ? below(5) : below(80);
    for (int i = 0; i < 6; ++i) makeCounter("c" + std::to_string(i));
    for (int i = 0; i < entries; ++i) ASSERT_NO_FATAL_FAILURE(addEntry());
  }

  /// Each entry has a selector, a list and a counter of its own, which tells that it was met.
  void addEntry() {
    const std::string name = "e" + std::to_string(entries_++);
    const std::string selector = oneIn(40) ? "true" : name;
    ask(0, [&](Requests& r) { return r.addSelector(name); });
    for (int count = below(5); count > 0; --count) addCondition(name);
    ask(0, [&](Requests& r) { return r.addActionList(name); });
    makeCounter(name);
    const std::int32_t own = below(1000) - 500;
    ask(0, [&](Requests& r) { return r.addCounterChange(name, 0, name, own == 0 ? 1 : own); });
    for (int count = oneIn(5) ? below(16) : below(4); count > 0; --count) addAction(name);

    const auto index = static_cast<std::uint32_t>(below(1000));
    const int result = kernel_.request.addEntry(portText, static_cast<std::uint32_t>(below(2)),
                                                index, selector, name);
    // The packed table can be full; then the other side does without the entry, too.
    if (result == -ENOSPC || result == -EEXIST) return;
    ASSERT_EQ(result, 0);
    const auto rules = kernel_.table.rules(port);
    const auto added = std::find_if(rules.begin(), rules.end(), [&](const auto& rule) {
      return rule->actionList.view() == name;
    });
    ASSERT_NE(added, rules.end());
    ASSERT_EQ(software_.addEntry(portText, (*added)->kind, index, selector, name), 0);
    places_.emplace_back((*added)->kind, index);
  }

  void change() {
    if (oneIn(2) || places_.empty()) return addEntry();
    const auto victim = places_.begin() + below(static_cast<int>(places_.size()));
    ask(0, [&](Requests& r) { return r.deleteEntry(portText, victim->first, victim->second); });
    places_.erase(victim);
  }

  void compare(const Bytes& frame) {
    if (frame.size() < smallestFrame) return;
    const classifier::Verdict verdict = table_.classify(port, frame);
    ASSERT_EQ(classifier::text(kernel_.fate(frame)), classifier::text(verdict.fate))
        << testing::PrintToString(frame);
    ++frames;
    if (verdict.entry) ++met;
  }

  void compareCounters() {
    for (const std::string& name : counters_) {
      const auto expected = software_.counter(name);
      ASSERT_TRUE(expected);
      ASSERT_EQ(kernel_.request.counter(name), expected) << name;
    }
  }

  std::size_t frames = 0;
  std::size_t met = 0;

 private:
  template <class Ask>
  void ask(int expected, Ask ask) {
    ASSERT_EQ(ask(kernel_.request), expected);
    ASSERT_EQ(ask(software_), expected);
  }

  void makeCounter(const std::string& name) {
    ask(0, [&](Requests& r) { return r.addCounter(name); });
    counters_.push_back(name);
  }

  void addCondition(const std::string& name) {
    switch (below(4)) {
      case 0: {
        auto lowest = pick(vlans);
        auto highest = oneIn(2) ? lowest : pick(vlans);
        if (lowest > highest) std::swap(lowest, highest);
        return ask(0, [&](Requests& r) { return r.addVlan(name, lowest, highest); });
      }
      case 1: {
        const Mac mac = pick(macs);
        const Mac mask = pick(macMasks);
        return ask(0, [&](Requests& r) { return r.addDestination(name, mac, mask); });
      }
      case 2: {
        const std::uint16_t type = pick(types);
        return ask(0, [&](Requests& r) { return r.addEtherType(name, type); });
      }
      default: {
        const std::uint8_t mask = pick(masks);
        const std::uint8_t value = pick(values);
        return ask(0, [&](Requests& r) { return r.addPayload(name, 0, mask, value); });
      }
    }
  }

  void addAction(const std::string& name) {
    const auto index = static_cast<std::uint32_t>(1 + below(15));
    const std::string counter = "c" + std::to_string(below(6));
    const std::int32_t increment = below(7) - 3;
    const std::uint32_t type =
        pick(std::array{ACL_ACTION_DROP, ACL_ACTION_HIDE, ACL_ACTION_NO_L2CP});
    const bool counts = oneIn(2);
    const auto add = [&](Requests& r) {
      return counts ? r.addCounterChange(name, index, counter, increment)
                    : r.addAction(name, index, type);
    };
    ASSERT_EQ(add(kernel_.request), add(software_));
  }

  static constexpr std::array<Mac, 6> macMasks = {{{0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
                                                   {0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
                                                   {0xff, 0xff, 0xff, 0xff, 0xff, 0xf0},
                                                   {0x01},
                                                   {0, 0, 0, 0, 0, 0xff},
                                                   {}}};
  static constexpr std::array<std::uint8_t, 4> masks = {0xff, 0x0f, 0x01, 0x00};

  Kernel& kernel_;
  Table table_;
  Requests software_{table_};
  int entries_ = 0;
  std::vector<std::string> counters_;
  /// Kind and index.
  std::vector<std::pair<std::uint32_t, std::uint32_t>> places_;
};

std::vector<Bytes> recordedFrames() {
  std::vector<Bytes> frames;
  for (const auto& file : std::filesystem::directory_iterator(L2CP_FRAMES)) {
    if (file.path().extension() != ".pcap" && file.path().extension() != ".pcapng") continue;
    auto opened = capture::Reader::open(file.path());
    auto* reader = std::get_if<capture::Reader>(&opened);
    EXPECT_NE(reader, nullptr) << file.path();
    while (reader != nullptr) {
      const auto frame = reader->next();
      if (!frame) break;
      frames.emplace_back(frame->bytes.begin(), frame->bytes.end());
    }
  }
  return frames;
}

TEST_F(Xdp, DecidesAndCountsAsTheSoftwareDoesOverRandomTablesAndFramesCutAtEveryLength) {
  std::size_t frames = 0;
  std::size_t met = 0;
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    kernel = std::make_unique<Kernel>();
    Both both(*kernel, seed);
    ASSERT_NO_FATAL_FAILURE(both.build());
    for (int round = 0; round < 12; ++round) {
      for (int i = 0; i < 12; ++i) {
        const Bytes frame = both.frame();
        for (std::size_t size = smallestFrame; size <= frame.size(); ++size) {
          const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
          ASSERT_NO_FATAL_FAILURE(both.compare(cut)) << "cut to " << size;
        }
      }
      ASSERT_NO_FATAL_FAILURE(both.compareCounters());
      for (int changes = both.below(4); changes > 0; --changes) {
        ASSERT_NO_FATAL_FAILURE(both.change());
      }
    }
    frames += both.frames;
    met += both.met;
  }
  EXPECT_GE(frames, 60000U);
  EXPECT_GT(met, frames / 10);
}

TEST_F(Xdp, DecidesAndCountsAsTheSoftwareDoesOverRecordedFrames) {
  std::size_t frames = 0;
  const std::vector<Bytes> recorded = recordedFrames();
  ASSERT_GT(recorded.size(), 50U);
  for (unsigned seed = 1000; frames < 60000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    kernel = std::make_unique<Kernel>();
    Both both(*kernel, seed);
    ASSERT_NO_FATAL_FAILURE(both.build());
    for (const Bytes& frame : recorded) {
      const std::size_t longest = std::min<std::size_t>(frame.size(), 64);
      for (std::size_t size = smallestFrame; size <= longest; ++size) {
        const Bytes cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_NO_FATAL_FAILURE(both.compare(cut)) << "cut to " << size;
      }
      ASSERT_NO_FATAL_FAILURE(both.compare(frame));
    }
    ASSERT_NO_FATAL_FAILURE(both.compareCounters());
    frames += both.frames;
  }
}

}  // namespace
