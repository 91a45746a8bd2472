#include "host/serviceManager.h"

#include <systemd/sd-daemon.h>

#include <chrono>

namespace serviceManager {

void ready(const std::string& status) { sd_notifyf(0, "READY=1\nSTATUS=%s", status.c_str()); }

// The service manager takes the READY=1 that ends the reload for its answer only if the reload
// began behind its request, and tells that by this time on CLOCK_MONOTONIC.
void reloading() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%llu\nSTATUS=Reading the configuration again",
             static_cast<unsigned long long>(microseconds));
}

void stopping() { sd_notify(0, "STOPPING=1\nSTATUS=Stopping"); }

}  // namespace serviceManager
