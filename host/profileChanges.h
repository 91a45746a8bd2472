#pragma once

#include <string>
#include <vector>

#include "host/config.h"

/// Brings the daemon's VLAN profiles and service profiles from what `current` says to what `wanted`
/// says, and `current` along. What is equal in both is left alone, whatever clients have done to
/// it. What cannot change now, because a service profile is applied on an interface, stays in
/// `current` as it is, so that the next call tries again. Returns a line for each of these. For the
/// thread of the RPC loop.
std::vector<std::string> changeProfiles(Config& current, const Config& wanted);

/// What clients have taken away from the profiles of the configuration file, as lines of the
/// command language: a script is carried out on top of the file's profiles, and has to say what it
/// does not find among them. For the thread of the RPC loop.
std::vector<std::string> removalLines(const Config& file);
