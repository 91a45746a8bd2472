#pragma once

/// Synopses, read as the grammar that they are: which words can follow others on a command line.
///
///     NAME mac MAC|any [ethertype N] [subtype N] [protect]
///     NAME {protect on|off | dynamic on|off}
///
/// Words in capitals stand for any word, others for themselves or any beginning. "[]" may be left
/// out, and several in a row may stand in any order. "{}" only groups. "|" parts choices: single
/// words without blanks around it, all that is between brackets with blanks. "..." repeats the word
/// before it.

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// What can stand at some place.
struct Expected {
  std::string word;  ///< a keyword, or what the argument is called
  bool argument = false;
  bool operator==(const Expected&) const = default;
};

class Synopsis {
 public:
  /// Throws std::invalid_argument for a text that is no synopsis.
  explicit Synopsis(std::string_view text);
  Synopsis(Synopsis&&) noexcept;
  Synopsis& operator=(Synopsis&&) noexcept;
  ~Synopsis();

  /// Nothing fits more words than that.
  static constexpr std::size_t mostWords = 100;

  /// What can follow these words, in the order in which the synopsis has it. Nothing behind words
  /// that do not fit.
  std::vector<Expected> after(std::span<const std::string> words) const;

  /// Whether these words are all of it.
  bool isWhole(std::span<const std::string> words) const;

  struct Node;

 private:
  std::unique_ptr<Node> root_;
};

}  // namespace cli
