#pragma once

/// Where tunnelled frames of a VLAN go: the kernel's maps of the interfaces that are in it.

#include <cstdint>
#include <map>
#include <set>

namespace classifier::xdp {

/// Interfaces by VLAN. Those under `otherVlans` are in the VLANs that are not there, too.
using Membership = std::map<std::uint32_t, std::set<std::uint32_t>>;
inline constexpr std::uint32_t otherVlans = 0;

class Members {
 public:
  /// `descriptor` is that of the program's map of VLANs.
  explicit Members(int descriptor) : descriptor_(descriptor) {}

  /// Makes the maps show the membership. Each VLAN changes at once. Interfaces that have vanished
  /// are left out. 0 or what the kernel says, with some VLANs as they were; calling again goes on.
  int show(const Membership& wanted);

 private:
  const int descriptor_;
  Membership shown_;
};

}  // namespace classifier::xdp
