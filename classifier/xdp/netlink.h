#pragma once

/// What the kernel says over netlink about network interfaces.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace classifier::xdp {

/// An interface of this network namespace.
struct Link {
  std::uint32_t number = 0;
  std::string name = {};
  /// Of the largest frame, without its Ethernet header.
  std::uint32_t mtu = 0;
  /// The number of the bridge that it is a port of; 0 for none.
  std::uint32_t bridge = 0;
  /// Of a bridge's port: that it is up and forwards frames from and to the others.
  bool forwards = false;
  /// Of a bridge and of a bridge's port: the groups 01-80-C2-00-00-0x that are forwarded against
  /// the rule, bit x for each. Those that a provider bridge forwards are among the bridge's.
  std::uint16_t forwardedGroups = 0;
  /// Of a bridge: whether it takes part in the spanning tree protocol.
  bool hasSpanningTree = false;
};

/// The interface that a message is about; `contents` is what follows the message's header.
Link linkOf(std::span<const std::byte> contents);

/// All interfaces; empty when the kernel does not answer, or they change all the time.
std::vector<Link> links();

/// What a driver can do for XDP (NETDEV_XDP_ACT_...).
struct XdpFeatures {
  bool native = false;    ///< run programs, and redirect from there
  bool receives = false;  ///< send frames that are redirected to it from native mode
};

/// Nothing where the kernel cannot tell, as before Linux 6.3.
std::optional<XdpFeatures> xdpFeatures(std::uint32_t interface);

/// Whether the driver takes tags, 0x8100 or 0x88a8, from frames before the program sees them
/// (ethtool's rx-vlan-hw-parse and rx-vlan-stag-hw-parse).
bool hidesTags(const std::string& interface);

/// Sockets on which something arrives whenever interfaces change, and when what they can do for XDP
/// does. A negative error number if there is no such socket.
int watchLinks();
int watchXdpFeatures();

}  // namespace classifier::xdp
