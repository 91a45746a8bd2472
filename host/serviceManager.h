#pragma once

#include <string>

/// What the service manager that started the daemon is told: sd_notify(3) messages to the socket
/// that NOTIFY_SOCKET names. Without one, nothing happens.
namespace serviceManager {

/// Requests are served, or served again behind `reloading`. The status is one line for people.
void ready(const std::string& status);
void reloading();
void stopping();

}  // namespace serviceManager
