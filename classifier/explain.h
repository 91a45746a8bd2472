#pragma once

/// Why a frame meets the rule that it meets.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "classifier/frame.h"
#include "classifier/rule.h"

namespace classifier {

struct Explanation {
  Fate fate = Fate::untouched;
  /// The position among the rules of the one that the frame meets.
  std::optional<std::size_t> met;
  /// For each rule before that one, or for all if there is none: the position among its conditions
  /// of the first that does not hold.
  std::vector<std::size_t> misses;
};

/// Decides as `Table::classify` does for a port of these rules, one rule and condition after the
/// other, and changes no counter.
Explanation explain(const Rules& rules, const Fields& fields);

}  // namespace classifier
