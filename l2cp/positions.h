#pragma once

#include "l2cp/full_name.h"
#include "platform/acl_ioctl.h"

/// Positions of a port's entries: protocols from the first to the last, behind them the catch-all.
inline constexpr unsigned int firstPosition = 200;
inline constexpr unsigned int lastPosition = 298;
inline constexpr unsigned int hidePosition = 299;

/// The kind of every protocol's entry.
inline constexpr unsigned int protocolKind = 1;

/// Writes the port number as the kernel reads it, at most 11 characters. Numbers from 2^31 on print
/// as negative ones.
inline void setPort(acl_ioctl_port_entry& entry, unsigned int port) {
  FullName(entry.port).decimal(static_cast<int>(port));
}
