#include "host/scriptText.h"

#include <variant>

#include "script/script.h"

namespace {

std::string enteringCommand(const CliMode& mode) {
  switch (mode.id()) {
    case scriptingProductDefs::CLI_MODE_L2CP_PROFILE:
      return script::text(script::L2cpProfile{l2cpProfileOf(mode)});
    case scriptingProductDefs::CLI_MODE_VLAN_PROFILE:
      return "vlan-profile " + mode.name();
    case scriptingProductDefs::CLI_MODE_SERVICE_PROFILE:
      return "service-profile " + mode.name();
    case scriptingProductDefs::CLI_MODE_CONF:
      break;
  }
  return {};
}

class Writer {
 public:
  void write(const CliCommand& command) {
    if (command.mode() != current_) {
      leave();
      current_ = command.mode();
      entered_ = !isInner() || add(enteringCommand(*current_));
    }
    if (!entered_ || (isInner() && command.text().empty())) return;
    add(isInner() ? " " + command.text() : command.text());
  }

  std::vector<std::string> finish() {
    leave();
    return std::move(lines_);
  }

 private:
  bool isInner() const { return current_ != nullptr && current_->parent() != nullptr; }

  void leave() {
    if (isInner() && entered_) add("exit");
  }

  bool add(const std::string& line) {
    try {
      // The reader does not look into comments, which may hold any name.
      const bool isComment = std::holds_alternative<script::Nothing>(reader_.read(line));
      lines_.push_back(isComment ? script::comment(line) : line);
      return true;
    } catch (const script::Problem& problem) {
      lines_.push_back(script::leftOut(problem.what(), line));
      return false;
    }
  }

  std::vector<std::string> lines_;
  script::Reader reader_;
  const CliMode* current_ = nullptr;
  bool entered_ = true;
};

}  // namespace

std::string l2cpProfileOf(const CliMode& mode) {
  const std::string& name = mode.name();
  const bool quoted = name.find(' ') != std::string::npos;
  return quoted ? name.substr(1, name.size() - 2) : name;
}

std::vector<std::string> scriptText(const std::list<CliCommand>& commands) {
  Writer writer;
  for (const CliCommand& command : commands) writer.write(command);
  return writer.finish();
}
