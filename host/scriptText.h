#pragma once

#include <list>
#include <string>
#include <vector>

#include "platform/CliCommand.h"

/// Command lines as an operator would type them: the lines of a profile's mode follow the command
/// that enters it, indented by one blank, and "exit" leaves it.
std::vector<std::string> scriptText(const std::list<CliCommand>& commands);
