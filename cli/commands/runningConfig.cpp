#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command.h"
#include "cli/failure.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

void show(Context& context) {
  control_config_mode mode = CONTROL_CONFIG_DIFFERENCES;
  if (!context.words.empty()) {
    mode = context.words.choose({"all", "dynamic"}) == "all" ? CONTROL_CONFIG_ALL
                                                             : CONTROL_CONFIG_DYNAMIC;
  }
  context.words.end();
  const auto config = context.client.control<control_running_config_1>(mode);
  accept(config->error);
  const std::span lines(config->lines.lines_val, config->lines.lines_len);
  context.output.script(std::vector<std::string>(lines.begin(), lines.end()));
}

// What cannot be written stands in the script as a comment.
void noteWhatIsLeftOut(Context& context) {
  constexpr std::string_view leftOut = "! left out";
  constexpr std::size_t mark = 2;
  const auto config = context.client.control<control_running_config_1>(CONTROL_CONFIG_DIFFERENCES);
  for (const std::string_view line : std::span(config->lines.lines_val, config->lines.lines_len)) {
    const std::size_t begin = line.find_first_not_of(' ');
    if (begin == std::string_view::npos || !line.substr(begin).starts_with(leftOut)) continue;
    context.output.notes().note(safeText(line.substr(begin + mark)));
  }
}

void save(Context& context) {
  context.words.end();
  const auto saved = context.client.control<control_save_1>();
  if (saved->error == CONTROL_ERR_FAILED) {
    throw Refused("FAILED: " + safeText(saved->text) +
                  "; \"startup\" in l2cpd.toml(5) tells the daemon where to save");
  }
  accept(saved->error);
  context.output.show({"script", "scripts", {{"saved"}}, {{nameValue(saved->text)}}});
  context.output.flush();
  noteWhatIsLeftOut(context);
}

void defaults(Context& context) {
  context.words.end();
  accept(context.client.control<control_apply_defaults_1>());
}

constexpr Command commands[] = {
    {"running-config show", "[all|dynamic]", "Shows the running configuration as command lines.",
     "Without a word, what differs from the defaults; with \"all\", everything; with\n"
     "\"dynamic\", the dynamic profiles alone.",
     "l2cpctl running-config show all", show},
    {"running-config save", "", "Saves it as the script that the daemon replays when it starts.",
     "The file's name is shown. What was saved before is kept beside it, as NAME.old. Standard\n"
     "error tells which names and attachments no script can make; what the language has no words\n"
     "for, see l2cp-script(5), is left out without a word.",
     "l2cpctl running-config save", save},
    {"running-config defaults", "",
     "Removes attachments, unprotected profiles and added protocols.",
     "Built-in protocols that are missing are added. Protected profiles stay, and so do changes "
     "of\n"
     "built-in protocols.",
     "l2cpctl running-config defaults", defaults},
};

}  // namespace

constinit const Noun runningConfigNoun{"running-config", "The running configuration: show, save",
                                       commands};

}  // namespace cli
