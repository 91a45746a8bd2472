#include "cli/commands/finding.h"

#include <fmt/format.h>

#include "cli/commands/entry.h"
#include "cli/value.h"

namespace cli {

namespace {

Value numberOrNothing(const std::optional<std::uint32_t>& number) {
  return number ? numberValue(*number) : nothing("-", "");
}

constexpr Field<Finding> findingFields[] = {
    {{"finding"}, [](const Finding& of) { return wordValue(of.what); }},
    {{"port"}, [](const Finding& of) { return numberOrNothing(of.port); }},
    {{"vlan"}, [](const Finding& of) { return of.vid ? vlanValue(*of.vid) : nothing("-", ""); }},
    {{"profile"}, [](const Finding& of) { return nameOrNothing(of.profile); }},
    {{"protocol"}, [](const Finding& of) { return nameOrNothing(of.protocol); }},
    {{"entry"}, [](const Finding& of) { return numberOrNothing(of.entry); }},
    {{"problem"}, [](const Finding& of) { return wordValue(of.problem); }},
    {{"advice"}, [](const Finding& of) { return wordValue(of.advice); }}};
constexpr Kind<Finding> findingKind{"finding", "findings", findingFields};

}  // namespace

std::string argumentText(std::string_view name) {
  return (name.starts_with('-') ? "-- " : "") + shellText(name);
}

std::string textOf(std::span<const Finding> findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += fmt::format("{}: {}\n    {}\n", finding.what, finding.problem, finding.advice);
  }
  if (!text.empty()) text += '\n';
  return text + fmt::format("{} finding{}\n", findings.size(), findings.size() == 1 ? "" : "s");
}

Table tableOf(std::span<const Finding> findings) { return tableOf(findingKind, findings); }

}  // namespace cli
