#pragma once

/// What a data plane beside the software one has to offer the request side.

#include <cstdint>

#include "classifier/rule.h"

namespace classifier {

/// Decides about the frames of some ports where they arrive. Operations may be called from any
/// thread, and must not call the table that they are called by.
class DataPlane {
 public:
  DataPlane() = default;
  virtual ~DataPlane() = default;
  DataPlane(const DataPlane&) = delete;
  DataPlane& operator=(const DataPlane&) = delete;

  /// Whether the plane decides about the frames of the port.
  virtual bool has(std::uint32_t port) const = 0;

  /// Puts the rules in place of all that the port had, which it has: each frame meets either those
  /// or these. Gives counters that have none their share in the plane. Returns 0 or, with the old
  /// rules in force, a negative error number:
  ///   EINVAL  a condition that the plane cannot test
  ///   ENOSPC  more entries or counters than the plane holds
  /// Rules of which some are left out never fail.
  virtual int replace(std::uint32_t port, const Rules& rules) = 0;
};

}  // namespace classifier
