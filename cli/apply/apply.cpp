#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "cli/apply/confirmation.h"
#include "cli/apply/daemonState.h"
#include "cli/apply/plan.h"
#include "cli/apply/planRun.h"
#include "cli/apply/scriptFile.h"
#include "cli/apply/stateDifference.h"
#include "cli/apply/unscripted.h"
#include "cli/carry.h"
#include "cli/command.h"
#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

// ---- What the file says ----

// Notes all mistakes but one, which is thrown.
[[noreturn]] void refuse(const ScriptFile& file, std::vector<script::Script::Mistake> mistakes,
                         Notes& notes) {
  const auto message = [&](const auto& mistake) {
    return file.message(mistake.line, mistake.reason);
  };
  std::sort(mistakes.begin(), mistakes.end(),
            [](const auto& one, const auto& other) { return one.line < other.line; });
  if (mistakes.size() == 1) throw LocalError(message(mistakes.front()) + "; nothing was done");
  for (const auto& mistake : mistakes) notes.note(message(mistake));
  throw LocalError(
      fmt::format("{}: {} lines are wrong; nothing was done", file.name, mistakes.size()));
}

// Why a script cannot say something about a profile that is no part of the configuration.
std::string refusalOf(const std::string& profile, const DaemonState& daemon) {
  if (isEditingCopy(profile)) return "profiles of such names are copies that are being edited";
  if (daemon.unscripted.contains(profile)) {
    return "the profile is dynamic, and so is no part of the configuration; make it static with "
           "\"l2cpctl profile set NAME dynamic off\" or choose another name";
  }
  return {};
}

std::string refusalOf(const script::Command& command, const DaemonState& daemon) {
  if (const auto* profile = std::get_if<script::L2cpProfile>(&command)) {
    return refusalOf(profile->name, daemon);
  }
  if (const auto* removal = std::get_if<script::NoL2cpProfile>(&command)) {
    return refusalOf(removal->name, daemon);
  }
  if (const auto* attach = std::get_if<script::Attach>(&command)) {
    return refusalOf(attach->profile, daemon);
  }
  const auto* detach = std::get_if<script::NoAttach>(&command);
  return detach == nullptr ? std::string() : refusalOf(detach->profile, daemon);
}

/// What the daemon's state is to become.
struct Target {
  State state;
  std::vector<UnscriptedApplication> lost;  ///< what would have to stay, but cannot
};

// The state that the file describes. Built-in protocols that it does not name stay as they are.
Target targetOf(const ScriptFile& file, const DaemonState& daemon, Notes& notes) {
  State state;
  for (const std::string& name : daemon.builtIn) {
    state.protocols.emplace(name, daemon.state.protocols.at(name));
  }
  // Service profiles that name them can be applied.
  for (const std::string& name : daemon.unscripted) state.l2cpProfiles[name];
  std::vector<script::Script::Mistake> mistakes = file.script.mistakes;
  for (const auto& [line, command] : file.script.statements) {
    const std::string outside = refusalOf(command, daemon);
    // Taken all the same, so that no other line is wrong because of this one.
    const std::string refusal = state.take(command);
    if (!outside.empty()) {
      mistakes.push_back({line, outside});
    } else if (!refusal.empty()) {
      mistakes.push_back({line, refusal});
    }
  }
  if (!mistakes.empty()) refuse(file, std::move(mistakes), notes);
  std::vector<UnscriptedApplication> lost = keepUnscripted(state, daemon);
  return {std::move(state), std::move(lost)};
}

// ---- What the module refuses ----

// Looks for what is sure to be refused, before the first request. Throws Refused.
class Check {
 public:
  Check(const DaemonState& daemon, const Target& target)
      : daemon_(daemon), wanted_(target.state), lost_(target.lost) {}

  void run() const {
    for (const std::string& name : daemon_.protectedProfiles) checkProtected(name);
    for (const auto& [name, definition] : daemon_.state.protocols) {
      if (!wanted_.protocols.contains(name)) checkUses(name);
    }
    if (!lost_.empty()) refuse(lost_.front());
  }

 private:
  void checkProtected(const std::string& name) const {
    const auto other = wanted_.l2cpProfiles.find(name);
    const bool stays = other != wanted_.l2cpProfiles.end();
    if (stays && other->second == daemon_.state.l2cpProfiles.at(name)) return;
    throw Refused(fmt::format(
        "PROFILE_PROTECTED: the file {} the profile {}, which is protected; switch that off first "
        "with \"l2cpctl profile set NAME protect off\"; nothing was done",
        stays ? "changes" : "deletes", quotedText(name)));
  }

  void checkUses(const std::string& protocol) const {
    std::uint32_t rules = 0;
    for (const auto& [name, profile] : daemon_.state.l2cpProfiles) {
      if (isEditingCopy(name) || !profile.contains(protocol)) continue;
      if (daemon_.unscripted.contains(name)) refuse(protocol, name);
      ++rules;
    }
    const std::uint32_t uses = daemon_.uses.at(protocol);
    if (uses == rules) return;
    // Below zero, it wraps.
    const auto counted = static_cast<std::int32_t>(uses);
    throw Refused(fmt::format(
        "PROTO_IN_USE: the file deletes the protocol {}, whose use count is {}, while the profiles "
        "of the running configuration have {} rules for it: {}; let the file keep the protocol, or "
        "have l2cpd count anew by \"l2cpctl running-config save\" and a restart; nothing was done",
        quotedText(protocol), counted, rules,
        counted < static_cast<std::int64_t>(rules)
            ? "the rules that a profile is copied with are not counted, but are taken off the "
              "count when they go"
            : "rules of profiles that were deleted with them are counted, and so are those added "
              "to copies that are being edited"));
  }

  [[noreturn]] static void refuse(const std::string& protocol, const std::string& profile) {
    throw Refused(fmt::format(
        "PROTO_IN_USE: the file deletes the protocol {}, for which the dynamic profile {} has a "
        "rule; let the file keep the protocol; nothing was done",
        quotedText(protocol), quotedText(profile)));
  }

  [[noreturn]] static void refuse(const UnscriptedApplication& lost) {
    throw Refused(fmt::format(
        "IN_USE: the file deletes the service profile {} or has it attach something else, while "
        "the {} {} is in force through it on interface {}; take it off there first with "
        "\"l2cpctl service-profile detach NAME interface NUMBER\"; nothing was done",
        quotedText(lost.service), isEditingCopy(lost.profile) ? "edited copy" : "dynamic profile",
        quotedText(lost.profile), lost.interface));
  }

  const DaemonState& daemon_;
  const State& wanted_;
  const std::vector<UnscriptedApplication>& lost_;
};

// A request can make a protocol of the same name, but not one with the mask of a built-in one.
void checkCanBeUndone(const DaemonState& daemon, const State& wanted) {
  for (const std::string& name : daemon.builtIn) {
    if (wanted.protocols.contains(name)) continue;
    throw Refused(fmt::format(
        "the file deletes the built-in protocol {}, which could not be undone; apply that without "
        "--confirm; nothing was done",
        quotedText(name)));
  }
}

// ---- Answers ----

constexpr Field<Reattachment> interruptionFields[] = {
    {{"port", Align::right}, [](const Reattachment& of) { return numberValue(of.port); }},
    {{"vlan", Align::right}, [](const Reattachment& of) { return vlanValue(of.attachment.vid); }},
    {{"profile"}, [](const Reattachment& of) { return nameValue(of.attachment.profile); }}};
constexpr Kind<Reattachment> interruptionKind{"interruption", "interruptions", interruptionFields};

void showSummary(const Plan& plan, Output& output) {
  const Table summary{"summary",
                      "summaries",
                      {{"commands"}},
                      {{numberValue(static_cast<std::int64_t>(plan.commands.size()))}}};
  const Table interruptions = tableOf(interruptionKind, plan.interruptions);
  output.show(summary, {&interruptions, 1});
}

// ---- Commands ----

void undo(const DaemonState& before, Client& client, Notes& notes) {
  const DaemonState now = daemonState(client);
  const State wanted = stateToReturnTo(before, now);
  perform(planFor(now.state, wanted, now.portsWithGaps), now.state, client, notes);
  // No line of a script says this, and a protocol that was made again lacks it.
  for (std::string name : before.protectedProtocols) {
    if (now.protectedProtocols.contains(name)) continue;
    accept(client.module<rpc_l2cp_proto_set_protect_1>(wireText(name), TRUE));
  }
}

// Undoes what was done and tells why.
[[noreturn]] void giveUp(ExitStatus status, std::string_view why, const DaemonState& before,
                         Context& context) {
  try {
    undo(before, context.client, context.output.notes());
  } catch (const Failure& failure) {
    throw BatchFailure(ExitStatus::partly,
                       fmt::format("{}; undoing it failed: {}", why, failure.what()));
  }
  throw BatchFailure(status, fmt::format("{}; the configuration is as it was before", why));
}

void applyWithConfirmation(const Plan& plan, const DaemonState& before, Context& context) {
  Notes& notes = context.output.notes();
  const std::chrono::seconds time = context.options.confirm;
  Confirmation confirmation;
  try {
    perform(plan, before.state, context.client, notes);
  } catch (const BatchFailure& failure) {
    if (failure.status() != ExitStatus::partly) throw;
    giveUp(ExitStatus::refused, failure.what(), before, context);
  }
  notes.note(
      fmt::format("{} commands were carried out; they are undone unless Enter comes within "
                  "{} s",
                  plan.commands.size(), time.count()));
  const std::string_view refusal = confirmation.wait(time, notes);
  notes.endProgress();
  if (!refusal.empty()) giveUp(ExitStatus::partly, refusal, before, context);
}

void apply(Context& context) {
  const Options& options = context.options;
  const bool confirms = options.confirm.count() != 0;
  if (confirms && options.dryRun) throw UsageError("--dry-run leaves nothing to --confirm");
  if (confirms && !context.words.empty() && context.words.front() == "-") {
    throw UsageError("--confirm wants standard input for the confirmation; name a file");
  }
  const ScriptFile file = takeScript(context.words);
  const DaemonState daemon = daemonState(context.client);
  const Target target = targetOf(file, daemon, context.output.notes());
  Check(daemon, target).run();
  if (confirms) checkCanBeUndone(daemon, target.state);
  const Plan plan = planFor(daemon.state, target.state, daemon.portsWithGaps);
  if (options.dryRun) return context.output.script(textOf(plan));
  const HeldSignals held;
  try {
    if (confirms && !plan.commands.empty()) {
      applyWithConfirmation(plan, daemon, context);
    } else {
      perform(plan, daemon.state, context.client, context.output.notes());
    }
  } catch (const Failure&) {
    held.answer();
    throw;
  }
  // What was done is told before a signal ends the program.
  showSummary(plan, context.output);
  context.output.flush();
}

void diff(Context& context) {
  const ScriptFile file = takeScript(context.words);
  const DaemonState daemon = daemonState(context.client);
  const Target target = targetOf(file, daemon, context.output.notes());
  context.output.script(linesBetween(daemon.state, target.state));
}

constexpr Command diffCommands[] = {
    {"diff", "FILE", "Shows what a script would change if it were applied.",
     "Lines of the script that the running configuration lacks have \"+\" in front, those that it "
     "has\n"
     "too many \"-\"; a line with a blank tells in which mode others stand. Nothing is shown, and "
     "the\n"
     "JSON array is empty, if nothing would change. The status is 0 in both cases.\n"
     "FILE \"-\" is standard input.",
     "l2cpctl diff site.l2cp", diff}};

constexpr Command applyCommands[] = {
    {"apply", "FILE [--dry-run] [--confirm SECONDS]",
     "Makes the running configuration what a script says, and no more than that.",
     "What the script does not make is deleted, but for built-in protocols; dynamic profiles and\n"
     "copies that are being edited stay, and stay in force. A line that is wrong, or something\n"
     "that the module is sure to refuse, changes nothing. FILE \"-\" is standard input.\n"
     "What is in force and stays so is left alone where that can be; shown are the number of\n"
     "commands and the attachments that were interrupted. SIGHUP, SIGINT, SIGQUIT and "
     "SIGTERM\n"
     "wait for the end.\n"
     "--dry-run  shows the commands instead of carrying them out\n"
     "--confirm  undoes everything unless Enter comes on standard input within that time; its "
     "end,\n"
     "           another line than y or yes, and SIGHUP, SIGINT, SIGQUIT and SIGTERM undo it as\n"
     "           well, and the status is 4",
     "l2cpctl apply site.l2cp --confirm 60", apply}};

}  // namespace

constinit const Noun diffNoun{"diff", "What a script would change", diffCommands};
constinit const Noun applyNoun{"apply", "Make the configuration what a script says", applyCommands};

}  // namespace cli
