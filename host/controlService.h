#pragma once

#include "host/livePorts.h"
#include "host/settings.h"

/// The daemon's own RPC service, host/control.x.

/// What the service answers from, and reloads. To be called before the service is registered; the
/// settings have to live as long as it is served, and so have the ports that the kernel decides
/// about, null for none.
void configureControlService(Settings& settings, const LivePorts* livePorts = nullptr);

/// Start function of the thread that runs the RPC loop: registers the service, limits what
/// clients of all services may leave unread, and says that the daemon is ready.
void* controlServiceStart(void* interruptionHook);
