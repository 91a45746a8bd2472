#pragma once

#include <deque>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The words of a command line, taken from the front one by one. Keywords may be abbreviated to
/// any beginning that only one of those that can stand there has.
class Words {
 public:
  explicit Words(const std::vector<std::string>& words) : words_(words.begin(), words.end()) {}

  bool empty() const { return words_.empty(); }
  std::size_t size() const { return words_.size(); }
  /// Only if there is one.
  const std::string& front() const { return words_.front(); }

  /// The next word. Throws UsageError, which says that `what` is missing, at the end.
  std::string take(std::string_view what);

  /// Takes the next word if it is this keyword.
  bool takeIf(std::string_view keyword);

  /// Takes the next word, which has to be this keyword. Throws UsageError for any other.
  void expect(std::string_view keyword) { choose({keyword}); }

  /// Takes the next word, which has to be one of these keywords, and returns which one. Throws
  /// UsageError for any other and for one that could be several.
  std::string_view choose(std::span<const std::string_view> keywords);
  std::string_view choose(std::initializer_list<std::string_view> keywords) {
    return choose(std::span(keywords.begin(), keywords.end()));
  }

  /// Throws UsageError if there are words left.
  void end() const;

 private:
  std::deque<std::string> words_;
};

/// Keywords that may each stand once, in any order.
class Keywords {
 public:
  explicit Keywords(std::initializer_list<std::string_view> keywords) : keywords_(keywords) {}

  /// Takes one. Throws UsageError like Words::choose, and for one that was taken before.
  std::string_view take(Words& words);

 private:
  std::vector<std::string_view> keywords_;
  std::vector<std::string_view> taken_;
};

}  // namespace cli
