#pragma once

/// The program that stands behind the packet sockets of an interface, and before a bridge.

#include <cstdint>
#include <string>
#include <variant>

#include "classifier/xdp/hold.h"

namespace classifier::xdp {

/// Ends with this object, and with the process, however that ends, where the kernel can do that
/// (from Linux 6.6 on). Before, it stays after a process that has no time to end: it does nothing
/// without marked frames, and the next one on the interface takes its place.
class Filter {
 public:
  /// Or a negative error number. One that `file` has kept there gives way to this program, without
  /// a frame in between that meets none; empty for none.
  static std::variant<Filter, int> make(int program, std::uint32_t interface,
                                        const std::string& file);
  /// Removes what stays without a link.
  static void removeUnlinked(std::uint32_t interface);

  ~Filter();
  Filter(Filter&& other) noexcept;
  Filter& operator=(Filter&& other) noexcept;
  Filter(const Filter&) = delete;
  Filter& operator=(const Filter&) = delete;

  bool isOn(std::uint32_t interface) const;
  /// Has a file keep it when this object ends. 0 or a negative error number.
  int keepIn(const std::string& file);
  void leave();

 private:
  Filter() = default;

  Hold link_;
  /// The interface on which it is without a link; 0 for none.
  std::uint32_t unlinked_ = 0;
};

}  // namespace classifier::xdp
