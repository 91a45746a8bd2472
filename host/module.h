#pragma once

/// Lets the daemon's service profiles call the module when they are applied on interfaces.
void connectModule();
