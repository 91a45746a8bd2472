#pragma once

#include "host/control.h"

namespace cli {

/// Whether every frame that satisfies all conditions of one entry satisfies all of another.
bool covers(const control_entry& other, const control_entry& entry);

}  // namespace cli
