#pragma once

/// Ports of the XDP data plane with as many entries as fit, and what programs are measured against.

#include <bpf/bpf.h>
#include <linux/bpf.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "classifier/table.h"
#include "classifier/xdp/plane.h"
#include "platform/acl_ioctl.h"
#include "tests/classifier/requests.h"
#include "tests/support/frame_builder.h"

namespace bench {

/// How many entries a port has, besides the catch-all.
constexpr int entries = 99;

constexpr support::Mac station = {0x02, 0, 0, 0, 0, 1};
/// In place of a VLAN: whatever tag frames have.
constexpr std::uint16_t wholePort = classifier::VlanRange::wholePort;
constexpr std::uint16_t etherType = 0x88cc;

inline support::Mac group(int number) {
  return {0x01,
          0x80,
          0xc2,
          0,
          static_cast<std::uint8_t>(number >> 8),
          static_cast<std::uint8_t>(number)};
}

/// Each of 128 numbers once.
constexpr int disordered(int number) { return number * 37 % 128; }

/// What entry `number` of a switch's port is about, without a tag for the whole port.
inline support::Bytes controlFrame(int number, std::uint16_t vlan) {
  support::FrameBuilder frame;
  frame.ethernet(group(number), station);
  if (vlan != wholePort) frame.tag(0x8100, vlan);
  return frame.etherType(etherType).padTo(64).bytes();
}

/// Each entry discards frames of the VLAN to a group address of its own and changes four counters,
/// c0 to c3.
class Switch {
 public:
  explicit Switch(std::uint16_t vlan, std::uint32_t action = ACL_ACTION_DROP)
      : vlan_(vlan), action_(action) {
    table.setDataPlane(&plane);
    for (int i = 0; i < 4; ++i) request.addCounter("c" + std::to_string(i));
  }

  void addPort(std::uint32_t port) {
    if (plane.addPort(port, {}) != 0) std::fputs("a port is refused\n", stderr);
  }
  void addEntries(const char* port, int count) {
    for (int i = 0; i < count; ++i) addEntry(port, i, i);
  }
  /// Neighbours have no more in common than all.
  void addEntriesInDisorder(const char* port) {
    for (int i = 0; i < entries; ++i) addEntry(port, i, disordered(i));
  }
  void addEntry(const char* port, int i, int number) {
    const std::string name = std::string(port) + ":" + std::to_string(i);
    request.addSelector(name);
    request.addVlan(name, vlan_, vlan_);
    request.addDestination(name, group(number));
    request.addEtherType(name, etherType);
    request.addActionList(name);
    for (unsigned c = 0; c < 4; ++c) request.addCounterChange(name, c, "c" + std::to_string(c));
    request.addAction(name, 9, action_);
    if (request.addEntry(port, 1, static_cast<std::uint32_t>(200 + i), name, name) != 0) {
      std::fputs("an entry is refused\n", stderr);
    }
  }
  void deleteEntry(const char* port, int i) {
    const std::string name = std::string(port) + ":" + std::to_string(i);
    request.deleteEntry(port, 1, static_cast<std::uint32_t>(200 + i));
    request.deleteSelector(name);
    request.deleteActionList(name);
  }

  classifier::xdp::Plane plane;
  classifier::Table table;
  Requests request{table};

 private:
  const std::uint16_t vlan_;
  const std::uint32_t action_;
};

template <std::size_t size>
int load(const std::array<bpf_insn, size>& program) {
  return bpf_prog_load(BPF_PROG_TYPE_XDP, "bench", "BSD", program.data(), program.size(), nullptr);
}

constexpr bpf_insn setRegister(std::uint8_t number, int value) {
  return {.code = BPF_ALU64 | BPF_MOV | BPF_K,
          .dst_reg = static_cast<std::uint8_t>(number & 0xf),
          .src_reg = 0,
          .off = 0,
          .imm = value};
}
constexpr bpf_insn call(int function) {
  return {.code = BPF_JMP | BPF_CALL, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = function};
}
constexpr bpf_insn leave() {
  return {.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0};
}

/// A program that only drops. A negative number where programs cannot be loaded.
inline int dropProgram() { return load(std::array{setRegister(0, XDP_DROP), leave()}); }

/// One that only sends to an interface.
inline int sendProgram(std::uint32_t interface) {
  return load(std::array{setRegister(1, static_cast<int>(interface)), setRegister(2, 0),
                         call(BPF_FUNC_redirect), leave()});
}

}  // namespace bench
