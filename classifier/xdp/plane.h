#pragma once

/// The kernel as a data plane: the XDP program decides about frames where they arrive.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "classifier/dataPlane.h"
#include "classifier/xdp/attachment.h"
#include "classifier/xdp/layout.h"
#include "classifier/xdp/members.h"

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

/// A port from which tunnelled frames leave.
struct Outlet {
  /// The bridge that they stay in.
  std::uint32_t bridge = 0;
  /// Larger ones do not leave here.
  std::uint32_t mtu = 0;

  bool operator==(const Outlet&) const = default;
};

class Plane : public DataPlane {
 public:
  /// Loads the program into the kernel; it goes with this object. Throws PlaneError.
  Plane();
  ~Plane() override;

  bool has(std::uint32_t port) const override;
  int replace(std::uint32_t port, const Rules& rules) override;

  /// Makes the plane have the port, without rules and interface. 0, -EEXIST, -EINVAL for VLANs that
  /// are none, or -ENOSPC with L2CP_PORTS ports.
  int addPort(std::uint32_t port, const Vlans& vlans);
  /// What the port does not have any more is treated as if the program were not there. 0 or
  /// -ENOENT.
  int removePort(std::uint32_t port);
  /// Whether a frame for the machine itself, since this was asked last, could not be kept from the
  /// bridge: in native mode, some drivers have no room for the mark that does it.
  bool takeUnmarked(std::uint32_t port);
  /// 0, -ENOENT or -EINVAL. Tunnelled frames follow with `showMembers`.
  int setVlans(std::uint32_t port, const Vlans& vlans);

  /// Has frames that arrive on the interface of this number meet the rules of the port; 0 for none.
  /// 0, -ENOENT, or -ENOSPC if the number's place is taken by another interface. Tunnelled frames
  /// follow with `showMembers`.
  int setInterface(std::uint32_t port, std::uint32_t interface);

  /// Has tunnelled frames of the other ports of its bridge leave through the port's interface, and
  /// those that arrive there leave through them; with nothing, they go nowhere. 0 or -ENOENT. They
  /// follow with `showMembers`.
  int setOutlet(std::uint32_t port, const std::optional<Outlet>& outlet);

  /// Has tunnelled frames go where interfaces, outlets and VLANs are now. 0 or what the kernel
  /// says; then they go where they went before.
  int showMembers();

  /// Whether the interface has been there ever since it was set. Another one may have its number
  /// now, or it may have been away: tunnelled frames do not leave there before it is set again.
  bool hasStayed(std::uint32_t port) const;

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
  void putVlans(Port& port, const Vlans& vlans);
  /// Of each VLAN, in the order of their ids.
  std::map<std::uint32_t, std::vector<Members>> membersByBridge() const;

  mutable std::mutex mutex_;
  std::unique_ptr<l2cp_program, Close> program_;
  std::unique_ptr<Maps> maps_;
  std::unordered_map<std::uint32_t, Port> ports_;
  /// Of interfaces.
  std::uint64_t arrivals_ = 0;
  bool areMembersShown_ = true;
};

}  // namespace classifier::xdp
