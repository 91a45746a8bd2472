#pragma once

/// The kernel as a data plane: the XDP program decides about frames where they arrive.

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "classifier/dataPlane.h"
#include "classifier/xdp/attachment.h"
#include "classifier/xdp/layout.h"

struct l2cp_program;

namespace classifier::xdp {

/// Why the program cannot be used. The text can have many lines: what the kernel says of a program
/// that it refuses is in it.
class PlaneError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The VLANs that a port is in.
struct Vlans {
  /// Of frames without a tag and with VLAN id 0; 1 to 4094.
  int native = 1;
  /// Of frames with a tag, besides the native one. Empty: every VLAN.
  std::set<int> tagged = {};

  bool operator==(const Vlans&) const = default;
};

class Plane : public DataPlane {
 public:
  /// Loads the program into the kernel; it goes with this object. Throws PlaneError.
  Plane();
  ~Plane() override;

  bool has(std::uint32_t port) const override;
  int replace(std::uint32_t port, const Rules& rules) override;

  /// Makes the plane have the port, without rules and interface. 0, -EEXIST, -EINVAL for VLANs that
  /// are none, -ENOSPC with L2CP_PORTS ports, or what the kernel says.
  int addPort(std::uint32_t port, const Vlans& vlans);
  /// What the port does not have any more is treated as if the program were not there. 0 or
  /// -ENOENT.
  int removePort(std::uint32_t port);
  /// 0, -ENOENT, -EINVAL, or what the kernel says.
  int setVlans(std::uint32_t port, const Vlans& vlans);

  /// Has frames that arrive on the interface of this number meet the rules of the port, and those
  /// that are tunnelled leave there; 0 for none. 0, -ENOENT, -ENOSPC if the number's place is taken
  /// by another interface, or what the kernel says.
  int setInterface(std::uint32_t port, std::uint32_t interface);

  /// The groups 01-80-C2-00-00-0x, bit x for each, that the bridge above the port forwards and of
  /// which frames for the machine itself have to be ended. 0 or -ENOENT.
  int setForwardedGroups(std::uint32_t port, std::uint16_t groups);

  /// To be attached to interfaces.
  Programs programs() const;

 private:
  struct Maps;
  struct Port;
  struct Close {
    void operator()(l2cp_program* program) const;
  };

  Port* find(std::uint32_t port);
  void forget(std::uint32_t port);
  void writeVlans(const Port& port);
  int followMembers();

  mutable std::mutex mutex_;
  std::unique_ptr<l2cp_program, Close> program_;
  std::unique_ptr<Maps> maps_;
  std::unordered_map<std::uint32_t, Port> ports_;
};

}  // namespace classifier::xdp
