#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The words of a command line, taken from the front one by one.
class Words {
 public:
  explicit Words(const std::vector<std::string>& words) : words_(words.begin(), words.end()) {}

  bool empty() const { return words_.empty(); }
  /// Only if there is one.
  const std::string& front() const { return words_.front(); }

  /// The next word. Throws UsageError, which says that `what` is missing, at the end.
  std::string take(std::string_view what);

  /// Takes the next word if it is this one.
  bool takeIf(std::string_view word);

  /// Takes the next word, which has to be this one. Throws UsageError for any other.
  void expect(std::string_view word);

  /// Throws UsageError, which says that one of `choices` should come next.
  [[noreturn]] void expectOneOf(std::string_view choices) const;

  /// Throws UsageError if there are words left.
  void end() const;

 private:
  std::deque<std::string> words_;
};

}  // namespace cli
