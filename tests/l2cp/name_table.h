#pragma once

/// What an entity's table of names holds, read from its "l2cp_dump" listing, which counts no uses.
/// Programs that include this link `syslog_capture`.

#include <syslog.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "l2cp/l2cp.h"
#include "tests/support/syslog_capture.h"

class NameTable {
 public:
  explicit NameTable(L2CP& entity) {
    auto& captured = support::SyslogCapture::instance().lines;
    const auto before = static_cast<std::ptrdiff_t>(captured.size());
    entity.externalMessage("l2cp_dump", "", nullptr);
    for (auto line = captured.begin() + before; line != captured.end(); ++line) {
      EXPECT_EQ(line->priority, LOG_INFO) << line->text;
      add(line->text);
    }
    captured.erase(captured.begin() + before, captured.end());
  }

  /// The listing as it was written, with "l2cp:*" for the short names.
  const std::vector<std::string>& listing() const { return listing_; }

  /// How often the name was used; 0 if the table does not have it.
  int uses(const std::string& fullName) const {
    const auto found = std::ranges::find(names_, fullName, &Name::fullName);
    return found == names_.end() ? 0 : found->uses;
  }

  /// "<full name>" for a short name of this table, any other text in quotes.
  std::string shown(const std::string& name) const {
    const auto found = std::ranges::find(names_, name, &Name::shortName);
    return found == names_.end() ? '"' + name + '"' : '<' + found->fullName + '>';
  }

  /// The text with "<full name>" in place of every short name of this table.
  std::string resolved(const std::string& text) const {
    static const std::regex shortName("l2cp:0x[0-9a-f]+");
    std::string result;
    auto rest = text.cbegin();
    for (std::smatch match; std::regex_search(rest, text.cend(), match, shortName);) {
      result.append(rest, match[0].first).append(shown(match.str()));
      rest = match[0].second;
    }
    return result.append(rest, text.cend());
  }

 private:
  struct Name {
    int uses;
    std::string shortName;
    std::string fullName;
  };

  void add(const std::string& line) {
    static const std::regex entry(" *(-?[0-9]+) +[0-9]+ (l2cp:0x[0-9a-f]+) (.*)");
    std::smatch match;
    if (!std::regex_match(line, match, entry)) {
      listing_.push_back(line);
      return;
    }
    names_.push_back({std::stoi(match.str(1)), match.str(2), match.str(3)});
    listing_.push_back(std::regex_replace(line, std::regex(match.str(2)), "l2cp:*"));
  }

  std::vector<std::string> listing_;
  std::vector<Name> names_;
};

/// The traces (without their place) that `operation` writes, with names resolved. Switches the
/// trace on for its duration.
template <class Operation>
std::vector<std::string> tracesOf(L2CP& entity, const Operation& operation) {
  auto& capture = support::SyslogCapture::instance();
  capture.reset();
  entity.externalMessage("l2cp_debug", "1", nullptr);
  operation();
  entity.externalMessage("l2cp_debug", "0", nullptr);
  const NameTable names(entity);
  std::vector<std::string> traces = capture.traces();
  for (std::string& trace : traces) trace = names.resolved(trace);
  return traces;
}
