#include <fmt/format.h>

#include <ctime>
#include <span>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/commands/livePorts.h"
#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t length = text.find('\n');
    lines.emplace_back(text.substr(0, length));
    text.remove_prefix(length == std::string_view::npos ? text.size() : length + 1);
  }
  return lines;
}

std::string messageText(std::string text, std::string_view what) {
  if (text.size() <= CONTROL_TEXT_MAX) return text;
  throw UsageError(
      fmt::format("{} is {} bytes long; {} is the most", what, text.size(), CONTROL_TEXT_MAX));
}

void message(Context& context) {
  std::string command = messageText(context.words.take("COMMAND"), "the command");
  if (command.empty()) throw UsageError("the command is empty");
  std::string argument;
  if (!context.words.empty()) {
    argument = messageText(context.words.take("ARGUMENT"), "the argument");
  }
  context.words.end();
  const auto answer =
      context.client.control<control_message_1>(wireText(command), wireText(argument));
  context.output.lines(linesOf(*answer));
}

void reload(Context& context) {
  context.words.end();
  const auto problems = context.client.control<control_reload_1>();
  if (**problems == '\0') return;
  std::string text = "FAILED";
  for (const std::string& line : linesOf(*problems)) text += "; " + safeText(line);
  throw Refused(text);
}

using Status = control_status;
constexpr Field<Status> statusFields[] = {
    {{"release"}, [](const Status& of) { return textValue(of.release); }},
    {{"bridge"}, [](const Status& of) { return textValue(of.bridge); }},
    {{"classifier"}, [](const Status& of) { return textValue(of.classifier); }},
    {{"process"}, [](const Status& of) { return numberValue(of.pid); }},
    {{"uptime"}, [](const Status& of) { return durationValue(of.uptime); }},
    // The classifier's counters are new in every process.
    {{"counting"}, [](const Status& of) {
       return sinceValue(std::time(nullptr) - static_cast<std::time_t>(of.uptime));
     }}};
constexpr Kind<Status> statusKind{"daemon", "daemons", statusFields};

constexpr Field<control_entity> entityFields[] = {
    {{"entity"}, [](const control_entity& of) { return nameValue(of.name); }},
    {{"state"}, [](const control_entity& of) {
       return of.running != FALSE ? wordValue("running", Style::green)
                                  : wordValue("stopped", Style::red);
     }}};
constexpr Kind<control_entity> entityKind{"entity", "entities", entityFields};

constexpr Field<control_port> portFields[] = {
    {{"port", Align::right}, [](const control_port& of) { return numberValue(of.number); }},
    {{"name"}, [](const control_port& of) { return nameValue(of.name); }}};
constexpr Kind<control_port> portKind{"port", "ports", portFields};

// A port's place: how the kernel decides about its frames, or why it does not.
constexpr Field<control_live_port> liveFields[] = {
    {{"port", Align::right}, [](const control_live_port& of) { return numberValue(of.number); }},
    {{"interface"}, [](const control_live_port& of) { return nameValue(of.interface); }},
    {{"frames"}, [](const control_live_port& of) {
       Value value = textValue(of.state);
       value.style = isLive(value.text) ? Style::green : Style::red;
       return value;
     }}};
constexpr Kind<control_live_port> liveKind{"interface", "interfaces", liveFields};

void status(Context& context) {
  context.words.end();
  const auto status = context.client.control<control_status_1>();
  const auto live = context.client.control<control_live_ports_1>();
  const Table parts[] = {
      tableOf(entityKind, std::span(status->entities.entities_val, status->entities.entities_len)),
      tableOf(portKind, std::span(status->ports.ports_val, status->ports.ports_len)),
      tableOf(liveKind, std::span(live->list.list_val, live->list.list_len))};
  // Other classifiers have no interfaces to tell of, which people need not see.
  const bool all = context.output.format() != Format::table || live->list.list_len > 0;
  context.output.show(tableOf(statusKind, *status),
                      std::span(parts).first(std::size(parts) - (all ? 0 : 1)));
}

constexpr Command commands[] = {
    {"daemon status", "", "Shows the daemon, its entities, its ports and their interfaces.", "",
     "l2cpctl daemon status", status},
    {"daemon message", "COMMAND [ARGUMENT]", "Sends an operator's command and shows the answer.",
     "Commands of the module, which answers in the daemon's system log:\n"
     "l2cp_debug 1|0  switches its trace on or off\n"
     "l2cp_dump       writes down the names of its objects in the classifier\n"
     "A command that nobody knows is not an error and has no answer.",
     "l2cpctl daemon message l2cp_debug 1", message},
    {"daemon reload", "", "Has the daemon read its configuration file again, as SIGHUP does.",
     "A file that cannot be used changes nothing. What cannot change now is told; the rest of the\n"
     "file is then in force.",
     "l2cpctl daemon reload", reload}};

}  // namespace

constinit const Noun daemonNoun{"daemon", "The daemon: state, messages", commands};

}  // namespace cli
