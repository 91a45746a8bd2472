#pragma once

#include <csignal>

#include <chrono>
#include <string_view>

#include "cli/notes.h"

namespace cli {

/// Whether what was done shall stay. While an object of this class lives, SIGHUP, SIGINT and
/// SIGTERM do not end the program: they answer no, also before the question.
class Confirmation {
 public:
  /// Throws LocalError if the system has nothing to wait for signals with.
  Confirmation();
  ~Confirmation();
  Confirmation(const Confirmation&) = delete;
  Confirmation& operator=(const Confirmation&) = delete;

  /// Waits for a line on standard input. Returns an empty text if one came, else why none did.
  std::string_view wait(std::chrono::seconds time, Notes& notes);

 private:
  sigset_t before_{};
  int signals_ = -1;
};

}  // namespace cli
