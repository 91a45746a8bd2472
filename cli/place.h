#pragma once

#include <cstdint>
#include <string>

#include "cli/client.h"
#include "cli/words.h"

namespace cli {

/// The number of a port: a number, or a name from the daemon's configuration, which is
/// asked for only then. A name that is written as a number is never looked for. Throws LocalError
/// for a name that the configuration does not have.
std::uint32_t portNumber(const std::string& port, Client& client);

/// The same for an interface, whose numbers are those of ports up to 2147483647.
std::int32_t interfaceNumber(const std::string& interface, Client& client);

/// Takes VID, from 0 to 4095, or "all" for 4095.
std::uint16_t takeVlan(Words& words);
/// The same, but any number that a request carries: other clients may have attached something
/// there.
std::uint16_t takeAnyVlan(Words& words);

/// Takes N, a position in a list, from 0.
std::uint32_t takePosition(Words& words);

}  // namespace cli
