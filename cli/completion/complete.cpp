#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/completion/completion.h"
#include "cli/completion/names.h"
#include "cli/failure.h"
#include "cli/program.h"

namespace cli {

namespace {

// The server that the line asks for, as far as it does.
Server serverOf(const std::vector<std::string>& options, const Options& defaults) {
  Options all = defaults;
  try {
    takeOptions(options, all);
  } catch (const UsageError&) {
    return defaults.server;
  }
  return all.server;
}

void complete(Context& context) {
  std::vector<std::string> words;
  while (!context.words.empty()) words.push_back(context.words.take("WORD"));
  std::string beginning;
  if (!words.empty()) {
    beginning = std::move(words.back());
    words.pop_back();
  }
  Client client(withoutPatience(serverOf(partsOf(words).options, context.options)));
  LiveNames names(client);
  Table table{"suggestion", "suggestions", {{"word"}, {"meaning"}}, {}};
  for (const Suggestion& each : suggestCommands(words, beginning, names)) {
    table.rows.push_back({nameOrNothing(each.word), textValue(each.meaning)});
  }
  context.output.list(table);
}

constexpr Command commands[] = {
    {"complete", "[WORD ...]", "Lists what the last word of a command line can be.",
     "That word may be the beginning of one, or empty. A MEANING alone, as synopses have it, "
     "stands\n"
     "for what there is no list of. A daemon that is not reached has no names. Shells\n"
     "ask this when TAB is pressed; they put \"--\" in front of the first WORD.",
     "l2cpctl complete -- profile sh", complete}};

}  // namespace

constinit const Noun completeNoun{"complete", "What a word can be, for completion by shells",
                                  commands};

}  // namespace cli
