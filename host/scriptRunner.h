#pragma once

#include <string>

#include "script/script.h"

/// Carries out a command of the command language on the module and the daemon's profiles. Commands
/// say how things shall be: what is so already is not refused. Returns an empty text, or why it was
/// refused. For the thread of the RPC loop, or before there is one.
///
/// A protocol is made as over RPC: unprotected, and with the mask under which any address matches.
/// Profiles are made unprotected and not dynamic.
std::string runCommand(const script::Command& command);
