#pragma once

/// Where tunnelled frames go: the kernel's maps of interfaces.

#include <cstdint>
#include <map>
#include <set>
#include <tuple>
#include <vector>

namespace classifier::xdp {

/// An interface that tunnelled frames leave through.
struct Member {
  std::uint32_t interface;
  /// Tells it from another one that had the number before. The kernel takes interfaces that end out
  /// of its maps.
  std::uint64_t arrival;

  bool operator==(const Member&) const = default;
  bool operator<(const Member& other) const {
    return std::tie(interface, arrival) < std::tie(other.interface, other.arrival);
  }
};

/// Those of one VLAN, in the order in which the kernel serves them.
using Members = std::vector<Member>;

/// Many VLANs have the same members, and share a map. A map never changes: other members have one
/// at another place, so that each frame meets these or those.
class Memberships {
 public:
  /// `descriptor` is that of the program's map of memberships, which has so many places.
  Memberships(int descriptor, std::uint32_t places);

  /// Has a map for each of them. Interfaces that have vanished are left out. 0, -ENOSPC, or what
  /// the kernel says; then those that were there still are.
  int add(const std::set<Members>& wanted);
  /// Of one that was added. No members have no place: 0.
  std::uint16_t placeOf(const Members& members) const;
  /// Lets go of all others. From now on no frame is to find them but for those under way.
  void keepOnly(const std::set<Members>& wanted);

 private:
  void reuseRetired();

  const int descriptor_;
  std::map<Members, std::uint16_t> places_;
  std::vector<std::uint16_t> free_;
  /// Given back since the kernel has waited last. A frame may still be under way to them.
  std::vector<std::uint16_t> retired_;
};

}  // namespace classifier::xdp
