#include "cli/words.h"

#include <fmt/format.h>

#include <utility>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

std::string Words::take(std::string_view what) {
  if (empty()) throw UsageError(fmt::format("{} is missing", what));
  std::string word = std::move(words_.front());
  words_.pop_front();
  return word;
}

bool Words::takeIf(std::string_view word) {
  if (empty() || words_.front() != word) return false;
  words_.pop_front();
  return true;
}

void Words::expect(std::string_view word) {
  if (!takeIf(word)) expectOneOf(quotedText(word));
}

void Words::expectOneOf(std::string_view choices) const {
  if (empty()) throw UsageError(fmt::format("{} is missing", choices));
  throw UsageError(fmt::format("{} stands where {} should", quotedText(front()), choices));
}

void Words::end() const {
  if (!empty()) throw UsageError(quotedText(front()) + " is one word too many");
}

}  // namespace cli
