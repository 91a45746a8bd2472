#include "cli/apply/planRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "cli/carry.h"
#include "cli/failure.h"
#include "cli/refusal.h"
#include "cli/shell/placement.h"
#include "cli/value.h"

namespace cli {

namespace {

std::string lineText(const script::Command& command) {
  std::string line = script::text(command);
  if (line.starts_with(' ')) line.erase(0, 1);
  return "\"" + safeText(line) + "\"";
}

// With the service profile whose mode the line belongs to.
std::string placeText(const script::Command& command) {
  const auto* const service = std::get_if<script::ServiceL2cpProfile>(&command);
  if (service == nullptr) return lineText(command);
  return lineText(command) + " in the service profile " + quotedText(service->serviceProfile);
}

/// A profile in force that is changed by way of a copy.
class EditingCycle {
 public:
  EditingCycle(std::string profile, const Rules& rules, Client& client)
      : client_(client), profile_(std::move(profile)), rules_(rules) {
    const auto edit = client_.module<rpc_l2cp_profile_edit_1>(wireText(profile_));
    accept(edit->error);
    copy_ = static_cast<const char*>(edit->name);
    known_.l2cpProfiles[copy_] = rules_;
  }

  const std::string& profile() const { return profile_; }

  void take(script::Command command) {
    std::optional<script::Command> undo;
    if (auto* entry = std::get_if<script::Entry>(&command)) {
      entry->profile = copy_;
      if (!rules_.contains(entry->protocol)) undo = script::NoEntry{copy_, entry->protocol};
    } else if (auto* removal = std::get_if<script::NoEntry>(&command)) {
      removal->profile = copy_;
      undo = script::Entry{copy_, removal->protocol, rules_.at(removal->protocol)};
    }
    carry(command, client_, known_);
    if (undo) undo_.push_back(*undo);
  }

  void commit() {
    accept(client_.module<rpc_l2cp_profile_on_exit_1>(wireText(profile_), wireText(copy_)),
           {{RPC_L2CP_EDIT_FAILED,
             "the edited copy could not take the profile's place; \"l2cpctl profile show\" tells "
             "whether somebody has attached or protected the profile"}});
  }

  /// Puts the profile in force again where it was, after a replacement that failed half-way.
  /// Returns what is to be said about that.
  std::string putBack(const Placement& before) {
    std::vector<script::Command> commands;
    try {
      commands = toRestore(profile_, before, placementOf(profile_, client_));
    } catch (const Failure& failure) {
      return fmt::format("; where the profile is in force now is not known: {}", failure.what());
    }
    std::string lost;
    for (const script::Command& command : commands) {
      try {
        carry(command, client_);
      } catch (const Failure& failure) {
        lost += fmt::format("; not put back: {}: {}", placeText(command), failure.what());
      }
    }
    return lost.empty() ? "; the profile is in force where it was" : lost;
  }

  /// As far as the daemon can be reached and does it. The protocols' use counts are to be again
  /// what they were, hence every change is taken back before the copy goes.
  void discard() noexcept {
    try {
      for (const script::Command& command : undo_) carry(command, client_);
      carry(script::NoL2cpProfile{copy_}, client_);
    } catch (const Failure&) {
      // What led here is told.
    }
  }

 private:
  Client& client_;
  std::string profile_;
  const Rules& rules_;
  std::string copy_;
  State known_;
  std::vector<script::Command> undo_;
};

class Run {
 public:
  Run(const Plan& plan, const State& current, Client& client, Notes& notes)
      : plan_(plan), current_(current), client_(client), progress_(&notes) {}

  void run() {
    for (const script::Command& command : plan_.commands) {
      try {
        carryOne(command);
      } catch (const Failure& failure) {
        fail(command, failure);
      }
      ++carried_;
      progress_.at(fmt::format("command {} of {}", carried_, plan_.commands.size()));
    }
  }

 private:
  void carryOne(const script::Command& command) {
    const auto* const profile = std::get_if<script::L2cpProfile>(&command);
    if (profile != nullptr && plan_.edited.contains(profile->name)) {
      cycle_.emplace(profile->name, current_.l2cpProfiles.at(profile->name), client_);
    } else if (!cycle_) {
      if (!isThere(command)) carry(command, client_, current_);
    } else if (std::holds_alternative<script::Exit>(command)) {
      cycle_->commit();
      cycle_.reset();
    } else {
      cycle_->take(command);
    }
  }

  // Whether a command enters the mode of an object that need not be made.
  bool isThere(const script::Command& command) {
    if (const auto* profile = std::get_if<script::L2cpProfile>(&command)) {
      return current_.l2cpProfiles.contains(profile->name);
    }
    if (const auto* vlanProfile = std::get_if<script::VlanProfile>(&command)) {
      return current_.vlanProfiles.contains(vlanProfile->name);
    }
    const auto* service = std::get_if<script::ServiceProfile>(&command);
    return service != nullptr &&
           (current_.services.contains(service->name) || !made_.insert(service->name).second);
  }

  [[noreturn]] void fail(const script::Command& command, const Failure& failure) {
    std::string broughtBack;
    if (cycle_) {
      if (std::holds_alternative<script::Exit>(command)) {
        broughtBack = cycle_->putBack(placementOfEdited());
      }
      cycle_->discard();
    }
    throw BatchFailure(
        carried_ == 0 ? failure.status() : ExitStatus::partly,
        fmt::format("{}: {}{}; {} of {} commands were carried out", lineText(command),
                    failure.what(), broughtBack, carried_, plan_.commands.size()));
  }

  // Through what service profiles the profile that is being edited was in force until then.
  Placement placementOfEdited() const {
    State state = current_;
    const auto& commands = plan_.commands;
    std::for_each_n(commands.begin(), carried_, [&](const auto& command) { state.take(command); });
    Placement placement;
    for (const auto& [name, service] : state.services) {
      if (service.l2cpProfile != cycle_->profile()) continue;
      Placement::Service& place = placement.services.emplace_back();
      place.name = name;
      if (!state.isApplied(name)) continue;
      const auto& interfaces = state.applications.at(name);
      place.interfaces.assign(interfaces.begin(), interfaces.end());
    }
    return placement;
  }

  const Plan& plan_;
  const State& current_;
  Client& client_;
  Progress progress_;
  std::optional<EditingCycle> cycle_;
  std::set<std::string> made_;  ///< service profiles
  std::size_t carried_ = 0;
};

}  // namespace

void perform(const Plan& plan, const State& current, Client& client, Notes& notes) {
  Run(plan, current, client, notes).run();
}

}  // namespace cli
