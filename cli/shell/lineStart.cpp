#include "cli/shell/lineStart.h"

#include <algorithm>

namespace cli {

namespace {

constexpr std::string_view blanks = " \t";

// The quotation mark that ends the quotation at the beginning of the text: the first one that a
// blank or the end follows.
std::size_t endOfQuotation(std::string_view text) {
  std::size_t end = text.find('"', 1);
  while (end != std::string_view::npos && end + 1 < text.size() &&
         blanks.find(text[end + 1]) == std::string_view::npos) {
    end = text.find('"', end + 1);
  }
  return end;
}

}  // namespace

LineStart startOf(std::string_view line) {
  LineStart start;
  for (std::size_t at = 0;;) {
    start.from = std::min(line.find_first_not_of(blanks, at), line.size());
    const std::string_view rest = line.substr(start.from);
    if (rest.empty()) return start;
    const std::size_t quotation = rest.front() == '"' ? 1 : 0;
    const std::size_t end = quotation != 0 ? endOfQuotation(rest) : rest.find_first_of(blanks);
    std::string word(rest.substr(quotation, end - quotation));
    const bool ends = end == std::string_view::npos;
    if (ends || end + quotation == rest.size()) {
      start.beginning = std::move(word);
      start.quoted = ends && quotation != 0;
      return start;
    }
    start.words.push_back(std::move(word));
    at = start.from + end + quotation;
  }
}

}  // namespace cli
