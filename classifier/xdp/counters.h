#pragma once

/// The counters of the XDP program: for each processor the same places, of which a counter has one.

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "classifier/rule.h"
#include "classifier/xdp/layout.h"

namespace classifier::xdp {

/// A counter's place, which is free again when this ends.
class Share;

/// May be used from any thread.
class Counters : public std::enable_shared_from_this<Counters> {
 public:
  /// One array for each processor. `keepAlive` is held as long as they are used.
  Counters(std::span<l2cp_counters> processors, std::shared_ptr<const void> keepAlive);

  /// The place of a counter, made if it has none; nothing when all are taken.
  std::optional<std::uint32_t> placeOf(Counter& counter);

 private:
  friend class Share;

  std::optional<std::uint32_t> take();
  void give(std::uint32_t place);
  bool recycle();
  std::uint64_t sum(std::uint32_t place) const;
  void clear(std::uint32_t place);

  const std::span<l2cp_counters> processors_;
  const std::shared_ptr<const void> keepAlive_;
  std::mutex mutex_;
  /// From here on no place has been taken yet. The first one is nobody's.
  std::uint32_t fresh_ = 1;
  std::vector<std::uint32_t> free_;
  /// Given back. A frame that met them just then may still be about to change them.
  std::vector<std::uint32_t> retired_;
};

}  // namespace classifier::xdp
