#include <fmt/format.h>

#include <span>

#include "cli/command.h"
#include "cli/failure.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

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
  for (std::string_view rest = *answer; !rest.empty();) {
    const std::size_t length = rest.find('\n');
    context.output.line(safeText(rest.substr(0, length)));
    rest.remove_prefix(length == std::string_view::npos ? rest.size() : length + 1);
  }
}

void status(Context& context) {
  context.words.end();
  const auto status = context.client.control<control_status_1>();
  context.output.record({{"release", safeText(status->release)},
                         {"bridge", safeText(status->bridge)},
                         {"classifier", safeText(status->classifier)},
                         {"process", std::to_string(status->pid)},
                         {"uptime", durationText(status->uptime)}});

  std::vector<Row> entities;
  for (const control_entity& entity :
       std::span(status->entities.entities_val, status->entities.entities_len)) {
    entities.push_back({nameText(entity.name), entity.running != FALSE ? "running" : "stopped"});
  }
  context.output.line("");
  context.output.table({{"ENTITY"}, {"STATE"}}, entities);

  std::vector<Row> ports;
  for (const control_port& port : std::span(status->ports.ports_val, status->ports.ports_len)) {
    ports.push_back({std::to_string(port.number), nameText(port.name)});
  }
  context.output.line("");
  context.output.table({{"PORT", Column::Align::right}, {"NAME"}}, ports);
}

void runningConfig(Context& context) {
  control_config_mode mode = CONTROL_CONFIG_DIFFERENCES;
  if (context.words.takeIf("all")) {
    mode = CONTROL_CONFIG_ALL;
  } else if (context.words.takeIf("dynamic")) {
    mode = CONTROL_CONFIG_DYNAMIC;
  } else if (!context.words.empty()) {
    context.words.expectOneOf(R"("all" or "dynamic")");
  }
  context.words.end();
  const auto config = context.client.control<control_running_config_1>(mode);
  accept(config->error);
  for (const char* line : std::span(config->lines.lines_val, config->lines.lines_len)) {
    context.output.line(safeText(line));
  }
}

void defaults(Context& context) {
  context.words.end();
  accept(context.client.control<control_apply_defaults_1>());
}

constexpr Command commands[] = {
    {"daemon status", "", "Shows the daemon, its entities and its names for ports.", "",
     "l2cpctl daemon status", status},
    {"daemon running-config", "[all|dynamic]", "Shows the running configuration as command lines.",
     "Without a word, what differs from the defaults; with \"all\", everything; with\n"
     "\"dynamic\", the dynamic profiles alone.",
     "l2cpctl daemon running-config all", runningConfig},
    {"daemon defaults", "", "Removes attachments, unprotected profiles and added protocols.", "",
     "l2cpctl daemon defaults", defaults},
    {"daemon message", "COMMAND [ARGUMENT]", "Sends an operator's command and shows the answer.",
     "Commands of the module, which answers in the daemon's system log:\n"
     "l2cp_debug 1|0  switches its trace on or off\n"
     "l2cp_dump       writes down the names of its objects in the classifier\n"
     "A command that nobody knows is not an error and has no answer.",
     "l2cpctl daemon message l2cp_debug 1", message}};

}  // namespace

constinit const Noun daemonNoun{"daemon", "The daemon: state, configuration, messages", commands};

}  // namespace cli
