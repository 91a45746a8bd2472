#include "cli/words.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "cli/choice.h"
#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

std::string Words::take(std::string_view what) {
  if (empty()) throw UsageError(fmt::format("{} is missing", what));
  std::string word = std::move(words_.front());
  words_.pop_front();
  return word;
}

bool Words::takeIf(std::string_view keyword) {
  if (empty() || candidates(front(), {&keyword, 1}).empty()) return false;
  words_.pop_front();
  return true;
}

std::string_view Words::choose(std::span<const std::string_view> keywords) {
  const std::string all = alternatives(keywords);
  if (empty()) throw UsageError(fmt::format("{} is missing", all));
  const auto found = candidates(front(), keywords);
  if (found.empty()) {
    throw UsageError(fmt::format("{} stands where {} should{}", quotedText(front()), all,
                                 suggestion(front(), keywords)));
  }
  if (found.size() > 1) {
    throw UsageError(fmt::format("{} could be {}", quotedText(front()), alternatives(found)));
  }
  words_.pop_front();
  return found.front();
}

void Words::end() const {
  if (!empty()) throw UsageError(quotedText(front()) + " is one word too many");
}

std::string_view Keywords::take(Words& words) {
  const std::string_view keyword = words.choose(keywords_);
  if (std::find(taken_.begin(), taken_.end(), keyword) != taken_.end()) {
    throw UsageError(fmt::format("\"{}\" stands there twice", keyword));
  }
  taken_.push_back(keyword);
  return keyword;
}

}  // namespace cli
