#pragma once

#include "cli/apply/plan.h"
#include "cli/apply/state.h"
#include "cli/client.h"
#include "cli/notes.h"

namespace cli {

/// Carries out a plan that was made for this state of the daemon. Throws BatchFailure at the first
/// command that is refused, with status 4 if others were carried out before. A profile that was
/// being edited then is as it was, and in force where it was; the text says what could not be put
/// back.
void perform(const Plan& plan, const State& current, Client& client, Notes& notes);

}  // namespace cli
