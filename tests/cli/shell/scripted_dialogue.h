#pragma once

#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "cli/shell/dialogue.h"

namespace cli {

/// Somebody whose answers are known beforehand: no when they run out.
class ScriptedDialogue : public Dialogue {
 public:
  void say(std::string_view line) override { told += std::string(line) + '\n'; }
  bool agree(std::string_view question) override {
    told += std::string(question) + '\n';
    if (whenAsked) whenAsked();
    if (answers.empty()) return false;
    const bool answer = answers.front();
    answers.pop_front();
    return answer;
  }

  std::string told;
  std::deque<bool> answers;
  std::function<void()> whenAsked;  ///< what happens meanwhile
};

}  // namespace cli
