#pragma once

#include <csignal>

#include <chrono>

namespace cli {

/// While there is one of these, SIGINT and SIGTERM do not end the program: they end its waiting.
class Interruption {
 public:
  using Clock = std::chrono::steady_clock;

  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  enum class Reason {
    time,         ///< it has come
    signal,       ///< one of the two has arrived, also before
    closedOutput  ///< nobody reads the standard output any more
  };
  Reason waitUntil(Clock::time_point time) const;

  /// Whether nobody reads the standard output any more.
  static bool outputClosed();

 private:
  struct sigaction oldInterrupt_ {};
  struct sigaction oldTerminate_ {};
  sigset_t oldMask_{};
};

/// While there is one of these, SIGHUP, SIGINT and SIGTERM wait: for work that must not end
/// half-way.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

 private:
  sigset_t before_{};
};

// ---- In a program that goes on after signals ----

/// Has the command that runs end before its next step. For signal handlers.
void requestStop();
/// Before a command.
void forgetStopRequest();
bool isStopRequested();

}  // namespace cli
