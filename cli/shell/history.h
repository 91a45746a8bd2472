#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

/// The lines that were typed, in l2cpctl/history below XDG_STATE_HOME, which is ~/.local/state by
/// default. Only its owner can read it. Where it cannot be kept, there is none; nothing is said
/// about that.
class HistoryFile {
 public:
  /// Keeps about as many lines.
  explicit HistoryFile(std::size_t lines);

  /// The last lines, without those that would do more to a terminal than print.
  std::vector<std::string> load() const;
  /// One more line. Several programs may do so at the same time.
  void append(const std::string& line) const;

 private:
  void shorten(const std::vector<std::string>& lines) const;

  std::size_t most_;
  std::string path_;  ///< empty: nowhere
};

}  // namespace cli
