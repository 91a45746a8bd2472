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

  Fate fate(const Bytes& frame) {
    // The facility hands over a copy, and bytes behind its end are there to be read by mistake.
    xdp_md context{};
    context.data_end = static_cast<std::uint32_t>(frame.size());
    context.ingress_ifindex = interface;
    bpf_test_run_opts run{};
    run.sz = sizeof run;
    run.data_in = frame.data();
    run.data_out = result.data();
    run.data_size_in = static_cast<std::uint32_t>(frame.size());
    run.data_size_out = static_cast<std::uint32_t>(result.size());
    run.ctx_in = &context;
    run.ctx_out = &context;
    run.ctx_size_in = sizeof context;
    run.ctx_size_out = sizeof context;
    const int error = bpf_prog_test_run_opts(plane.programs().classify, &run);
    EXPECT_EQ(error, 0);
    // What stands before the frame is handed out, too.
    const std::uint32_t before = context.data - context.data_meta;
    EXPECT_EQ(run.data_size_out, before + frame.size());
    EXPECT_TRUE(std::equal(frame.begin(), frame.end(), result.begin() + before))
        << "the frame was changed";
    switch (run.retval) {
      case XDP_PASS:
        return isMarked(before) ? Fate::peer : Fate::untouched;
      case XDP_DROP:
        return Fate::discard;
      case XDP_REDIRECT:
        return Fate::tunnel;
    }
    ADD_FAILURE() << "the program answered " << run.retval;
    return Fate::untouched;
  }

  classifier::xdp::Plane plane;
  classifier::Table table;
  Requests request{table};

 private:
  bool isMarked(std::uint32_t size) const {
    if (size == 0) return false;
    std::uint32_t mark = 0;
    EXPECT_EQ(size, sizeof mark);
    std::memcpy(&mark, result.data(), sizeof mark);
    EXPECT_EQ(mark, std::uint32_t{L2CP_PEER_MARK});
    return true;
  }

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
