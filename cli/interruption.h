#pragma once

#include <csignal>

#include <array>
#include <chrono>

namespace cli {

/// Those that end a program unless it does something about them.
inline constexpr std::array endingSignals{SIGHUP, SIGINT, SIGQUIT, SIGTERM};

/// While there is one of these, SIGHUP, SIGINT and SIGTERM do not end the program, unless they were
/// ignored anyway: they end its waiting. There is one at a time. Whoever handled them before hears
/// of them in the end.
class Interruption {
 public:
  using Clock = std::chrono::steady_clock;

  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  enum class Reason {
    time,         ///< it has come
    signal,       ///< one of them has arrived, also before
    closedOutput  ///< nobody reads the standard output any more
  };
  Reason waitUntil(Clock::time_point time) const;

  /// Whether nobody reads the standard output any more.
  static bool outputClosed();

 private:
  static constexpr std::array numbers{SIGHUP, SIGINT, SIGTERM};
  std::array<struct sigaction, numbers.size()> before_{};
  sigset_t taken_{};  ///< of these numbers, those that were not ignored
  sigset_t oldMask_{};
};

bool isIgnored(int signal);

/// Has whoever handles these signals hear of them once more, now that somebody has answered them.
/// To the program itself, where nobody handles them, they do nothing more.
void passOn(const sigset_t& signals);

/// While there is one of these, `endingSignals` wait: for work that must not
/// end half-way.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  /// Those that have come need not end the program any more: it ends for another reason.
  void answer() const;

 private:
  sigset_t held_{};
  sigset_t before_{};
};

// ---- In a program that goes on after signals ----

/// Has the command that runs end before its next step. For signal handlers.
void requestStop();
/// Before a command.
void forgetStopRequest();
/// Also true where an Interruption has a signal wait.
bool isStopRequested();
/// Waits for input there, or for its end. False if a stop is requested instead.
bool waitForInput(int descriptor);

}  // namespace cli
