#include "cli/daemonRun.h"

namespace cli {

// The daemon tells whole seconds, of a moment between question and answer.
DaemonRun::DaemonRun(const control_status& status, Clock::time_point asked,
                     Clock::time_point answered)
    : process_(status.pid),
      notBefore_(asked - std::chrono::seconds(status.uptime) - std::chrono::seconds(1)),
      notAfter_(answered - std::chrono::seconds(status.uptime)) {}

bool DaemonRun::isRestartOf(const DaemonRun& earlier) const {
  return process_ != earlier.process_ || notBefore_ > earlier.notAfter_;
}

}  // namespace cli
