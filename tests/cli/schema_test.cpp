// What the manual page says of the keys of JSON texts, against those texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/command_line.h"
#include "tests/cli/live_daemon.h"
#include "tests/system/fixture.h"

namespace cli {
namespace {

using Json = nlohmann::ordered_json;
using Names = std::vector<std::string>;

struct Key {
  std::string name;
  Names parts;         ///< keys of the objects in it
  bool isTold = true;  ///< whether those are all its keys
};

Names split(const std::string& list) {
  Names names;
  std::istringstream words(list);
  for (std::string word; words >> word;) {
    if (word.back() == ',') word.pop_back();
    names.push_back(word);
  }
  return names;
}

// "name   string", or "some, more: numbers".
Names keysOf(const std::string& line) {
  const std::size_t blank = line.find(' ');
  const bool isList = blank != std::string::npos && line[blank - 1] == ',';
  return isList ? split(line.substr(0, line.find(':'))) : Names{line.substr(0, blank)};
}

// The table of the manual page, by command.
class Schema {
 public:
  Schema() {
    std::ifstream page(MANUAL_PAGE);
    std::string line;
    while (std::getline(page, line) && line != "These are the keys:") continue;
    std::getline(page, line);
    while (std::getline(page, line) && line != ".Ed") take(line);
  }

  const std::map<std::string, std::vector<Key>>& all() const { return keys_; }

 private:
  void take(const std::string& line) {
    switch (line.find_first_not_of(' ')) {
      case 0:
        return begin(line);
      case 2:
        return addKeys(line.substr(2));
      case 4:
        return addParts(line.substr(4));
      default:
        return;
    }
  }

  // "protocol list, protocol show", "profile show, besides", "explain: array of objects".
  void begin(const std::string& line) {
    commands_.clear();
    std::istringstream names(line.substr(0, line.find(':')));
    for (std::string name; std::getline(names >> std::ws, name, ',');) {
      if (name != "besides") commands_.push_back(name);
    }
  }

  // One key can be for one of the commands alone: "port   number (port statistics)".
  void addKeys(const std::string& line) {
    const bool isForOne = line.ends_with(')');
    for (const std::string& command : commands_) {
      if (isForOne && !line.ends_with("(" + command + ")")) continue;
      for (const std::string& name : keysOf(line)) keys_[command].push_back({name, {}});
    }
  }

  void addParts(const std::string& line) {
    for (const std::string& command : commands_) {
      Key& key = keys_[command].back();
      if (line == "and the same") {
        key.isTold = false;
      } else {
        for (const std::string& name : keysOf(line)) key.parts.push_back(name);
      }
    }
  }

  Names commands_;
  std::map<std::string, std::vector<Key>> keys_;
};

Names namesIn(const Json& object) {
  Names names;
  for (const auto& [name, value] : object.items()) names.push_back(name);
  return names;
}

class Answers : public DaemonTest {
 protected:
  std::vector<std::string> arguments() override {
    return {"-c", support::World::file("l2cpd.toml", "[[port]]\nnumber = 1\nname = \"uplink\"\n")};
  }

  void SetUp() override {
    DaemonTest::SetUp();
    if (IsSkipped()) return;
    does({{"profile", "add", "p"},
          {"profile", "rule", "add", "p", "LLDP", "tunnel"},
          {"attach", "p", "port", "1"},
          {"profile", "add", "empty"},
          {"attach", "empty", "port", "2"},
          {"vlan-profile", "add", "v"},
          {"vlan-profile", "set", "v", "interface", "3", "svid", "100"},
          {"service-profile", "add", "s"},
          {"service-profile", "set", "s", "vlan-profile", "v"},
          {"service-profile", "set", "s", "l2cp-profile", "p"},
          {"service-profile", "attach", "s", "interface", "3"}});
  }

  // What the command needs to have an answer.
  static CommandLine behindName(const std::string& command) {
    static const std::string script = support::World::file(
        "script", "l2cp-profile p\nprotocol LLDP rule peer\nexit\nattach p port 1\n");
    static const std::map<std::string, CommandLine> all{{"protocol show", {"LLDP"}},
                                                        {"profile show", {"p"}},
                                                        {"profile rule list", {"p"}},
                                                        {"profile rule show", {"p", "LLDP"}},
                                                        {"profile status", {"p"}},
                                                        {"profile edit", {"p"}},
                                                        {"profile ports", {"p"}},
                                                        {"profile uses", {"p"}},
                                                        {"port profiles", {"1"}},
                                                        {"port show", {"1"}},
                                                        {"port statistics", {"1"}},
                                                        {"vlan statistics", {"100"}},
                                                        {"feed", {"1", frames("lldp.pcap")}},
                                                        {"explain", {"1", frames("lldp.pcap")}},
                                                        {"watch", {"count", "1"}},
                                                        {"service-profile show", {"s"}},
                                                        {"vlan-profile show", {"v"}},
                                                        {"daemon message", {"l2cp_debug", "0"}},
                                                        {"diff", {script}},
                                                        {"apply --dry-run", {script}},
                                                        {"apply", {script}},
                                                        {"complete", {"pro"}}};
    const auto found = all.find(command);
    return found == all.end() ? CommandLine() : found->second;
  }

  static CommandLine lineOf(const std::string& command) {
    CommandLine line = split(command);
    for (const std::string& word : behindName(command)) line.push_back(word);
    return line;
  }

  static Names emptyIn(const std::string& command) {
    return command == "daemon status" ? Names{"interfaces"} : Names{};
  }
};

Json answer(CommandLine line) {
  line.insert(line.begin(), "-j");
  const std::string text = outcome(line).out;
  return Json::parse(text, nullptr, false);
}

// What a key holds can only be compared if there is something in it; of these that need not be.
void compare(const Json& answer, const std::vector<Key>& keys, const Names& empty = {}) {
  const Json& object = answer.is_array() && !answer.empty() ? answer.front() : answer;
  ASSERT_TRUE(object.is_object()) << answer;
  Names names;
  for (const Key& key : keys) names.push_back(key.name);
  ASSERT_EQ(namesIn(object), names);
  for (const auto& [name, parts, isTold] : keys) {
    if (parts.empty() || !isTold) continue;
    const Json& value = object[name];
    if (value.empty() && std::find(empty.begin(), empty.end(), name) != empty.end()) continue;
    ASSERT_FALSE(value.empty()) << name;
    EXPECT_EQ(namesIn(value.is_array() ? value.front() : value), parts) << name;
  }
}

TEST_F(Answers, InJsonHaveTheKeysThatTheManualPageTells) {
  const Schema schema;
  EXPECT_GE(schema.all().size(), 30U);
  for (const auto& [command, keys] : schema.all()) {
    // Of the first, the page only says that it is a part of another one.
    if (command == "feed -q" || command == "apply") continue;
    SCOPED_TRACE(command);
    compare(answer(lineOf(command)), keys, emptyIn(command));
  }
  // Last, as it leaves the others less to answer with.
  compare(answer(lineOf("apply")), schema.all().at("apply"));
}

TEST_F(LiveDaemon, AnswersInJsonWithTheKeysThatTheManualPageTells) {
  compare(answer({"daemon", "status"}), Schema().all().at("daemon status"));
}

}  // namespace
}  // namespace cli
