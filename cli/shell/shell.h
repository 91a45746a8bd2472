#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/client.h"
#include "cli/command.h"
#include "cli/completion/completion.h"
#include "cli/program.h"
#include "cli/shell/dialogue.h"
#include "cli/shell/profileEdit.h"
#include "script/script.h"

namespace cli {

/// How a line that is being written can be completed: `text` stands for all from `from` on.
struct Completed {
  std::size_t from = 0;
  std::string text;
  Suggestions choices;
};

/// What somebody works with who sits before a terminal, line by line: commands as on the command
/// line and, from configuration level on, the command language with its modes. Knows nothing of
/// terminals. What goes wrong is told, and never ends it.
class Shell {
 public:
  /// The options hold for every line that does not say otherwise. All else outlives this object.
  Shell(const Options& options, const Surroundings& surroundings, std::ostream& out,
        std::ostream& err, Dialogue& dialogue);

  std::string prompt() const;
  void take(std::string_view line);
  /// Gives up the mode, or else the level.
  void interrupt();
  /// The end of all lines: gives up what is going on.
  void leave();
  bool isOver() const { return over_; }
  bool isConfiguring() const { return configuring_; }

  /// For a line up to the cursor.
  Completed complete(std::string_view line);
  /// Lines about what can stand there.
  std::vector<std::string> help(std::string_view line);

 private:
  using LineWords = std::vector<std::string>;

  void report(const std::function<void()>& something);
  void command(LineWords words);
  void atTop(LineWords words);
  void inConfiguration(LineWords words);
  void onItsOwn(std::string_view word);
  void configure(const LineWords& words);
  void enterProfile(const std::string& name);
  void exitMode();
  void abort();
  void leaveMode();
  void run(const LineWords& words);
  void showWhere(const LineWords& words);
  void numberPorts(LineWords& words);
  std::span<const LineForm> forms() const;
  Suggestions suggest(LineWords words, std::string_view beginning);
  bool isWhole(LineWords words) const;

  Options options_;
  Surroundings surroundings_;
  std::ostream& out_;
  std::ostream& err_;
  Dialogue& dialogue_;
  Client client_;
  Client quickClient_;
  LiveNames names_;
  script::Reader reader_;
  std::optional<ProfileEdit> edit_;
  Place place_;
  bool configuring_ = false;
  bool over_ = false;
};

}  // namespace cli
