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

}  // namespace cli
