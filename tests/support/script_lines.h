#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace support {

/// What a script says: without comments, and the rules of each profile in one order, since that of
/// the module is another one in every process.
inline std::vector<std::string> said(std::vector<std::string> lines) {
  std::erase_if(lines, [](const std::string& line) {
    return line.empty() || line.starts_with('!') || line.starts_with(" !");
  });
  for (auto begin = lines.begin(); begin != lines.end();) {
    const auto isRule = [](const std::string& line) { return line.starts_with(" protocol"); };
    begin = std::find_if(begin, lines.end(), isRule);
    const auto end = std::find_if_not(begin, lines.end(), isRule);
    std::sort(begin, end);
    begin = end;
  }
  return lines;
}

}  // namespace support
