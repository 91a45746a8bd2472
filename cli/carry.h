#pragma once

#include <string_view>

#include "cli/apply/state.h"
#include "cli/client.h"
#include "script/script.h"

namespace cli {

/// Carries out a command of the command language. Such commands say how something shall be: what is
/// so already is not refused. Modes have no meaning here, since every command has the names it
/// needs: the one that enters a mode makes the object if it is not there, the one that leaves it
/// does nothing.
///
/// Throws Refused if the daemon says no, with nothing changed, NotReached, and LocalError for a
/// name that no request can carry.
///
/// What is known of the daemon's protocols and profiles saves the requests that would find it out.
/// It may be out of date: that is refused, or found out after all.
void carry(const script::Command& command, Client& client, const State& known = {});

/// Whether a profile has the name of a copy that is being edited. The rules that it was copied with
/// do not count as uses of their protocols.
bool isEditingCopy(std::string_view profile);

}  // namespace cli
