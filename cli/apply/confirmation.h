#pragma once

#include <csignal>

#include <chrono>
#include <string_view>

#include "cli/notes.h"

namespace cli {

/// Whether what was done shall stay. While an object of this class lives, SIGHUP, SIGINT, SIGQUIT
/// and SIGTERM do not end the program: they answer no, also before the question, and whoever
/// handled them before hears of them in the end. Nothing stops it but SIGSTOP: what is to be undone
/// in time cannot wait.
class Confirmation {
 public:
  /// Throws LocalError if the system has nothing to wait for signals with.
  Confirmation();
  ~Confirmation();
  Confirmation(const Confirmation&) = delete;
  Confirmation& operator=(const Confirmation&) = delete;

  /// Waits for a line on standard input. Returns an empty text if it is empty or says yes, else why
  /// that is no confirmation.
  std::string_view wait(std::chrono::seconds time, Notes& notes);

 private:
  /// Takes the signals that have come. True if one of them answers no.
  bool takeSignals();

  sigset_t before_{};
  sigset_t ending_{};  ///< those that have come and answer no
  int signals_ = -1;
};

}  // namespace cli
