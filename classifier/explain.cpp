#include "classifier/explain.h"

#include <algorithm>

namespace classifier {

Explanation explain(const Rules& rules, const Fields& fields) {
  Explanation result;
  for (std::size_t position = 0; position < rules.size(); ++position) {
    const auto& conditions = rules[position]->conditions;
    const auto failing = std::ranges::find_if_not(
        conditions, [&](const Condition& condition) { return holds(condition, fields); });
    if (failing == conditions.end()) {
      result.fate = rules[position]->fate;
      result.met = position;
      break;
    }
    result.misses.push_back(static_cast<std::size_t>(failing - conditions.begin()));
  }
  return result;
}

}  // namespace classifier
