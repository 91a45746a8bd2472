#pragma once

/// Random tables and frames are made of small sets of values, so that they meet often.

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

#include "tests/support/frame_builder.h"

/// Choices that depend on the seed alone.
class RandomChoices {
 public:
  explicit RandomChoices(unsigned seed) : random_(seed) {}

  int below(int bound) { return std::uniform_int_distribution(0, bound - 1)(random_); }
  bool oneIn(int count) { return below(count) == 0; }
  template <class Range>
  auto pick(const Range& range) {
    return *std::next(std::begin(range), below(static_cast<int>(std::size(range))));
  }

  /// A frame of any kind, tagged or not.
  support::Bytes frame() {
    support::FrameBuilder frame;
    frame.ethernet(pick(macs), {2});
    const int tags = oneIn(3) ? 0 : oneIn(6) ? below(11) : 1 + below(2);
    for (int i = 0; i < tags; ++i) {
      frame.tag(oneIn(2) ? 0x8100 : 0x88a8, pick(vlans), static_cast<std::uint8_t>(below(16)));
    }
    if (oneIn(3)) {
      frame.length(static_cast<std::uint16_t>(pick(std::array{0, 8, 38, 0x5ff})));
      if (oneIn(4)) {
        frame.llc(0xaa, oneIn(2) ? 0xaa : 0x42, 0x03);
      } else {
        frame.snap({0, 0, static_cast<std::uint8_t>(below(2))}, pick(types));
      }
    } else {
      frame.etherType(pick(types));
    }
    for (int count = below(6); count > 0; --count) frame.payload({pick(values)});
    return frame.bytes();
  }

  static constexpr std::array<support::Mac, 5> macs = {{{0x01, 0x80, 0xc2, 0, 0, 0x00},
                                                        {0x01, 0x80, 0xc2, 0, 0, 0x0e},
                                                        {0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcc},
                                                        {0x02, 0x00, 0x00, 0, 0, 0x0e},
                                                        {0x02, 0x00, 0x00, 0, 0, 0x0f}}};
  static constexpr std::array<std::uint16_t, 8> vlans = {0, 1, 2, 100, 101, 4094, 4095, 4095};
  static constexpr std::array<std::uint16_t, 7> types = {0x88cc, 0x8809, 0x2000, 0x0111,
                                                         0x8100, 0x0600, 0x0026};
  /// Of the payload's bytes.
  static constexpr std::array<std::uint8_t, 5> values = {0x00, 0x01, 0x11, 0xaa, 0xff};

 private:
  std::mt19937 random_;
};
