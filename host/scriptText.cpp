#include "host/scriptText.h"

namespace {

std::string enteringCommand(const CliMode& mode) {
  switch (mode.id()) {
    case scriptingProductDefs::CLI_MODE_L2CP_PROFILE:
      return "l2cp-profile " + mode.name();
    case scriptingProductDefs::CLI_MODE_CONF:
      break;
  }
  return {};
}

}  // namespace

std::vector<std::string> scriptText(const std::list<CliCommand>& commands) {
  std::vector<std::string> lines;
  const CliMode* current = nullptr;
  const auto isInner = [](const CliMode* mode) {
    return mode != nullptr && mode->parent() != nullptr;
  };
  for (const CliCommand& command : commands) {
    if (command.mode() != current) {
      if (isInner(current)) lines.emplace_back("exit");
      if (isInner(command.mode())) lines.push_back(enteringCommand(*command.mode()));
      current = command.mode();
    }
    lines.push_back(isInner(current) ? " " + command.text() : command.text());
  }
  if (isInner(current)) lines.emplace_back("exit");
  return lines;
}
