#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "cli/answer.h"

namespace cli {

/// Something that is configured but has no effect, or not the one it seems to have.
struct Finding {
  std::string_view what;
  std::optional<std::uint32_t> port = std::nullopt;
  std::optional<std::uint16_t> vid = std::nullopt;
  std::string profile = {};
  std::string protocol = {};
  std::optional<std::uint32_t> entry = std::nullopt;
  std::string problem = {};
  std::string advice = {};
};

/// A name in a command line that whoever reads an advice may take over as it is.
std::string argumentText(std::string_view name);

/// For people, two lines each, and their number.
std::string textOf(std::span<const Finding> findings);
Table tableOf(std::span<const Finding> findings);

}  // namespace cli
