#pragma once

/// Whether the daemon took the entity when the library was loaded. An entity that it did not take
/// refuses to start.
bool l2cpIsRegistered();
