#pragma once

/// The XDP program in the kernel, behind a table of the request side. Frames are run through it by
/// the kernel's own test facility, which takes 14 bytes and more.

#include <bpf/bpf.h>
#include <gtest/gtest.h>
#include <linux/bpf.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "classifier/table.h"
#include "classifier/xdp/plane.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace kernel_test {

using classifier::Fate;
using support::Bytes;

inline constexpr std::size_t smallestFrame = 14;
inline constexpr std::uint32_t port = 7;
inline constexpr const char* portText = "7";
/// Where frames of test runs arrive: loopback.
inline constexpr std::uint32_t interface = 1;

/// The program with one port, in whose place is a table of the request side.
class Kernel {
 public:
  Kernel() {
    EXPECT_EQ(plane.addPort(port, {}), 0);
    EXPECT_EQ(plane.setInterface(port, interface), 0);
    EXPECT_EQ(plane.setOutlet(port, classifier::xdp::Outlet{.bridge = 2}), 0);
    EXPECT_EQ(plane.showMembers(), 0);
    table.setDataPlane(&plane);
  }

  /// `before` is the size of what a driver has put before the frame.
  Fate fate(const Bytes& frame, std::uint32_t before = 0) {
    EXPECT_EQ(run(frame, before), 0);
    // What stands before the frame is handed out, too.
    const std::uint32_t size = context.data - context.data_meta;
    EXPECT_EQ(options.data_size_out, size + frame.size());
    EXPECT_TRUE(std::equal(frame.begin(), frame.end(), result.begin() + size))
        << "the frame was changed";
    switch (options.retval) {
      case XDP_PASS:
        return isMarked(size - before) ? Fate::peer : Fate::untouched;
      case XDP_DROP:
        return Fate::discard;
      case XDP_REDIRECT:
        return Fate::tunnel;
    }
    ADD_FAILURE() << "the program answered " << options.retval;
    return Fate::untouched;
  }

  /// The most that the kernel lets a driver put there.
  std::uint32_t mostBefore(const Bytes& frame) {
    std::uint32_t before = 256;
    while (before > 0 && run(frame, before) != 0) before -= 4;
    return before;
  }

  classifier::xdp::Plane plane;
  classifier::Table table;
  Requests request{table};

 private:
  /// 0 or what the kernel says.
  int run(const Bytes& frame, std::uint32_t before) {
    // The facility hands over a copy, and bytes behind its end are there to be read by mistake.
    Bytes all(before);
    all.insert(all.end(), frame.begin(), frame.end());
    context = {};
    context.data = before;
    context.data_end = static_cast<std::uint32_t>(all.size());
    context.ingress_ifindex = interface;
    options = {};
    options.sz = sizeof options;
    options.data_in = all.data();
    options.data_out = result.data();
    options.data_size_in = static_cast<std::uint32_t>(all.size());
    options.data_size_out = static_cast<std::uint32_t>(result.size());
    options.ctx_in = &context;
    options.ctx_out = &context;
    options.ctx_size_in = sizeof context;
    options.ctx_size_out = sizeof context;
    return bpf_prog_test_run_opts(plane.programs().classify, &options);
  }

  bool isMarked(std::uint32_t size) const {
    if (size == 0) return false;
    std::uint32_t mark = 0;
    EXPECT_EQ(size, sizeof mark);
    std::memcpy(&mark, result.data(), sizeof mark);
    EXPECT_EQ(mark, std::uint32_t{L2CP_PEER_MARK});
    return true;
  }

  xdp_md context{};
  bpf_test_run_opts options{};
  std::array<std::uint8_t, 4096> result{};
};

class Xdp : public testing::Test {
 protected:
  void SetUp() override {
    try {
      kernel = std::make_unique<Kernel>();
    } catch (const classifier::xdp::PlaneError& reason) {
      const std::string text = reason.what();
      // Without the right to load programs nothing can be tested. Anything else is a failure.
      if (text.find("capabilities") == std::string::npos) FAIL() << text;
      GTEST_SKIP() << text;
    }
  }

  std::unique_ptr<Kernel> kernel;
};

}  // namespace kernel_test
