#pragma once

#include <chrono>
#include <cstdint>

#include "host/control.h"

namespace cli {

/// One run of the daemon, as an answer of it tells: the number of its process, which another one
/// can come to have, and for how long it has been running.
class DaemonRun {
 public:
  using Clock = std::chrono::steady_clock;

  /// The times just before it was asked and when the answer was there.
  DaemonRun(const control_status& status, Clock::time_point asked, Clock::time_point answered);

  /// Whether this later answer is certainly of another run. Of runs with one number that began
  /// within about two seconds, nobody can tell.
  bool isRestartOf(const DaemonRun& earlier) const;

 private:
  std::uint32_t process_;
  Clock::time_point notBefore_;  ///< of its beginning
  Clock::time_point notAfter_;
};

}  // namespace cli
