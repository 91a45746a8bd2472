#pragma once

/// Tells interfaces that have stayed from those that were replaced, or away, meanwhile.

#include <cstdint>

namespace classifier::xdp {

/// The kernel takes an interface that ends, or leaves the network namespace, out of its maps of
/// interfaces. A later one may have the same number, and the same one may come back.
class Presence {
 public:
  Presence();
  ~Presence();
  Presence(const Presence&) = delete;
  Presence& operator=(const Presence&) = delete;

  /// 0, or a negative error number why presence cannot be told.
  int error() const { return map_ < 0 ? map_ : 0; }
  void add(std::uint32_t interface);
  void remove(std::uint32_t interface);
  /// Whether it has been there ever since it was added.
  bool has(std::uint32_t interface) const;

 private:
  const int map_;
};

}  // namespace classifier::xdp
