#pragma once

#include <string>

/// Names the switch's bridge. To be called before any entity is started; "br0" until then.
void setBridgeName(const std::string& name);
