#pragma once

#include "host/config.h"

/// The daemon's own RPC service, host/control.x.

/// What the service answers from. To be called once, before the service is registered.
void configureControlService(const Config& config);

/// Start function of the thread that runs the RPC loop: registers the service, limits what
/// clients of all services may leave unread, and says that the daemon is ready.
void* controlServiceStart(void* interruptionHook);
