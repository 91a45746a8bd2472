#pragma once

#include <list>
#include <string>
#include <vector>

#include "platform/CliCommand.h"

/// Command lines as an operator would type them: the lines of a mode follow the command that enters
/// it, indented by one blank, and "exit" leaves it. A command without text in a mode stands for the
/// mode alone. What does not read back as a command, because of a name that no quotation can hold,
/// is left out and a comment stands in its place: a script is safe to replay line by line.
///
/// Comments have no control characters, whatever names they show.
std::vector<std::string> scriptText(const std::list<CliCommand>& commands);

/// The L2CP profile whose mode this is. The module quotes a name that has blanks and no other one.
std::string l2cpProfileOf(const CliMode& mode);
