#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// A line that is being written, up to the cursor.
struct LineStart {
  std::vector<std::string> words;  ///< before the last
  std::string beginning;           ///< of the last, without its quotation mark
  std::size_t from = 0;            ///< where that stands in the line
  bool quoted = false;             ///< it is within a quotation that goes on
};
LineStart startOf(std::string_view line);

}  // namespace cli
