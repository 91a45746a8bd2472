#pragma once

#include <string_view>

namespace cli {

/// Somebody who reads what a command tells on its way, and whom it can ask.
class Dialogue {
 public:
  Dialogue() = default;
  Dialogue(const Dialogue&) = delete;
  Dialogue& operator=(const Dialogue&) = delete;
  virtual ~Dialogue() = default;

  /// Shows a line, which is safe to show.
  virtual void say(std::string_view line) = 0;
  /// Asks a question. Whatever is not a yes is a no, and so is nobody there any more.
  virtual bool agree(std::string_view question) = 0;
};

}  // namespace cli
