#pragma once

/// The rules of a port as the XDP program reads them. Nothing here needs the kernel.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "classifier/rule.h"
#include "classifier/xdp/layout.h"

namespace classifier::xdp {

/// The place of a counter among those of the program, made if it has none; nothing when there is
/// none left.
using PlaceOf = std::function<std::optional<std::uint32_t>(Counter&)>;

/// A table and the number of its entries, without the one behind the last.
struct PackedTable {
  std::uint32_t count = 0;
  l2cp_table table = {};

  /// A rule that is in the table, and the place behind its entries.
  struct Packed {
    std::weak_ptr<const Rule> rule;
    std::uint32_t end;
  };
  /// Rules mostly come and go one by one: those that come first as they did the last time stay.
  std::vector<Packed> rules = {};
};

/// Writes the rules into the table. Every condition is expressed in bits of the key, so that an
/// entry is one comparison: several conditions on one field become one, rules that no frame can
/// satisfy take no place, and a VLAN range takes a place for each of the aligned blocks of 2^n ids
/// that it is made of, at most 22. Nor do rules take a place that stand last and do nothing.
///
/// Returns 0 or, with the table left in disorder, -EINVAL for a condition on another payload byte
/// than the first, -ENOSPC for more places or counters than there are.
int pack(const Rules& rules, PackedTable& packed, const PlaceOf& placeOf);

}  // namespace classifier::xdp
