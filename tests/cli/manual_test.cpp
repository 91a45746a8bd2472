// The manual page and the commands' help tell of the same commands.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/help.h"
#include "cli/program.h"

namespace cli {
namespace {

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// The text of a line of mdoc(7) as synopses have it: arguments in capitals.
std::string plain(const std::string& line) {
  std::istringstream words(line);
  std::string text;
  std::string atEnd;
  bool isArgument = false;
  bool joined = true;
  for (std::string word; words >> word;) {
    if (word == "Cm" || word == "Fl" || word == "Ar") {
      isArgument = word == "Ar";
      if (word != "Fl") continue;
      word = "-";
    } else if (word == "Ns") {
      joined = true;
      continue;
    } else if (word == "Op" || word == "Oo" || word == "Brq") {
      if (word != "Oo") atEnd += word == "Op" ? ']' : '}';
      text += joined ? "" : " ";
      text += word == "Brq" ? '{' : '[';
      joined = true;
      continue;
    } else if (word == "Oc") {
      text += ']';
      continue;
    }
    text += joined ? "" : " ";
    text += isArgument ? upper(word) : word;
    joined = word == "-";
  }
  return text + atEnd;
}

struct Entry {
  std::string text;
  std::string example;
};

// What begins with ".It Cm", and the first example after it.
std::vector<Entry> manual() {
  constexpr std::string_view item = ".It Cm ";
  constexpr std::string_view example = ".Dl ";
  std::vector<Entry> entries;
  std::ifstream file(MANUAL_PAGE);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(item)) {
      entries.push_back({plain(line.substr(item.size())), {}});
    } else if (line.starts_with(example) && !entries.empty() && entries.back().example.empty()) {
      entries.back().example = line.substr(example.size());
    }
  }
  return entries;
}

TEST(Manual, HasEveryCommandWithItsSynopsisAndNoOther) {
  std::set<std::string> commands;
  for (const Command* command : commandsWith("")) commands.insert(synopsis(*command));
  std::set<std::string> entries;
  for (const Entry& entry : manual()) entries.insert(entry.text);
  EXPECT_EQ(entries, commands);
}

TEST(Manual, HasTheExampleOfEveryCommand) {
  std::map<std::string, std::string> examples;
  for (const Entry& entry : manual()) examples[entry.text] = entry.example;
  for (const Command* command : commandsWith("")) {
    EXPECT_EQ(examples[synopsis(*command)], command->example);
  }
}

TEST(Manual, HasEveryOptionAndNoOther) {
  constexpr std::string_view item = ".It Fl ";
  std::set<std::string> described;
  std::ifstream file(MANUAL_PAGE);
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(item)) continue;
    std::istringstream words(line.substr(item.size()));
    std::string text;
    for (std::string word; words >> word;) {
      if (word == "Ar") {
        words >> word;
        text += " " + upper(word);
      } else if (word != ",") {
        text += (text.empty() ? "-" : ",-") + word;
      }
    }
    described.insert(text);
  }
  std::set<std::string> options;
  for (const OptionName& option : optionNames()) {
    std::string text;
    for (const std::string& name : option.names) text += (text.empty() ? "" : ",") + name;
    options.insert(option.value.empty() ? text : text + " " + option.value);
  }
  EXPECT_EQ(described, options);
}

}  // namespace
}  // namespace cli
