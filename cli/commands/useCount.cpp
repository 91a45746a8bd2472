#include "cli/commands/useCount.h"

#include <fmt/format.h>

#include <string>

#include "cli/value.h"

namespace cli {

namespace {

/// Behind "save".
constexpr const char* restart =
    "with \"l2cpctl running-config save\" and restart l2cpd: counts begin anew.";

std::string rulesText(std::int64_t count) {
  return fmt::format("{} rule{}", count, count == 1 ? "" : "s");
}

Finding stuck(const char* name, std::int64_t count) {
  const std::string why =
      count > 0 ? fmt::format(
                      "{} of profiles that are gone, so that it cannot be deleted though no "
                      "profile names it",
                      rulesText(count))
                : fmt::format(
                      "{}, so that it cannot be deleted though no profile names it: those "
                      "that a copy of a profile was made with do not count, but are taken "
                      "off when they are deleted",
                      rulesText(count));
  return {.what = "stuck-protocol",
          .protocol = name,
          .problem = fmt::format("{} counts {}", nameText(name), why),
          .advice = fmt::format(
              "Save {} Or put another protocol in its place with \"l2cpctl protocol rename OTHER "
              "{}\"{}",
              restart, argumentText(name),
              count > 0 ? "; delete profiles only after \"l2cpctl profile rule clear\"." : ".")};
}

Finding low(const char* name, std::int64_t count, std::int64_t uses) {
  return {.what = "low-count",
          .protocol = name,
          .problem = fmt::format(
              "{} is in {}, but counts {}: those that a copy of a profile was made with do not "
              "count, nor those of a protocol that had this name before; it {} the last is gone",
              nameText(name), rulesText(uses), count,
              count < 0 ? "cannot be deleted when" : "can be deleted before"),
          .advice = fmt::format("Delete copies with \"l2cpctl profile delete\" alone: \"l2cpctl "
                                "profile rule clear\" and \"l2cpctl load\" take off what was not "
                                "counted. Or save {}",
                                restart)};
}

}  // namespace

std::optional<Finding> aboutCount(const rpc_l2cp_proto& protocol, std::int64_t uses,
                                  bool isEdited) {
  // What is taken off without having been counted brings it below 0.
  const std::int64_t count = static_cast<std::int32_t>(protocol.use_count);
  if (uses == 0 && count != 0) return stuck(protocol.name, count);
  if (count < uses && !isEdited) return low(protocol.name, count, uses);
  return std::nullopt;
}

}  // namespace cli
