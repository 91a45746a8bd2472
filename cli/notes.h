#pragma once

#include <chrono>
#include <ostream>
#include <string_view>

namespace cli {

/// What the program tells beside its answers, for people to read while it works.
class Notes {
 public:
  /// On standard error, without progress.
  Notes();
  /// Progress is for terminals alone.
  Notes(std::ostream& stream, bool terminal) : stream_(&stream), terminal_(terminal) {}

  /// A line that stays.
  void note(std::string_view text);

  /// How far long work has got, in a line that the next one takes the place of. Work that is done
  /// soon shows none.
  void progress(std::string_view text);
  /// The same at once, for what changes seldom.
  void show(std::string_view text);
  /// Takes the line away.
  void endProgress();

 private:
  using Clock = std::chrono::steady_clock;

  std::ostream* stream_;
  bool terminal_ = false;
  bool isShown_ = false;
  Clock::time_point next_ = Clock::time_point::max();
};

/// How far work has got. What is shown of it goes with this object.
class Progress {
 public:
  /// Null for work that shows none.
  explicit Progress(Notes* notes) : notes_(notes) {}
  ~Progress() {
    if (notes_ != nullptr) notes_->endProgress();
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void at(std::string_view text) {
    if (notes_ != nullptr) notes_->progress(text);
  }

 private:
  Notes* notes_;
};

}  // namespace cli
