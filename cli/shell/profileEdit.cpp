#include "cli/shell/profileEdit.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <variant>

#include "cli/carry.h"
#include "cli/failure.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

// Service profiles of this name are passed over when the module replaces a profile.
constexpr std::string_view passedOver = "DEFAULT";

std::string lineOf(const script::Command& command) {
  std::string line = script::text(command);
  line.erase(0, line.find_first_not_of(' '));
  if (const auto* const service = std::get_if<script::ServiceL2cpProfile>(&command)) {
    line = script::text(script::ServiceProfile{service->serviceProfile}) + ", " + line;
  }
  return safeText(line);
}

Rules rulesOf(std::string profile, Client& client) {
  const auto entries = client.module<rpc_l2cp_profile_proto_get_all_1>(wireText(profile));
  accept(entries->error);
  Rules rules;
  for (const auto& entry : std::span(entries->list.list_val, entries->list.list_len)) {
    rules.emplace(entry.proto_name, static_cast<script::Rule>(entry.rule));
  }
  return rules;
}

std::string placesText(const std::vector<script::Attach>& attachments) {
  std::string text;
  for (const script::Attach& attach : attachments) {
    text += fmt::format("{}port {}", text.empty() ? "" : ", ", attach.port);
    if (attach.vid != script::wholePort) text += fmt::format(" vlan {}", attach.vid);
  }
  return text;
}

// Those of which both have rules, but other ones.
std::string protocolsOf(const Rules& before, const Rules& after) {
  std::string protocols;
  for (const auto& [protocol, rule] : after) {
    if (before.at(protocol) == rule) continue;
    protocols += (protocols.empty() ? "" : ", ") + nameText(protocol);
  }
  return protocols;
}

const Placement::Service* passedOverService(const Placement& placement) {
  const auto found = std::find_if(placement.services.begin(), placement.services.end(),
                                  [](const auto& service) { return service.name == passedOver; });
  return found == placement.services.end() ? nullptr : &*found;
}

std::set<std::string> protocolsOfBoth(const Rules& before, const Rules& after) {
  std::set<std::string> protocols;
  for (const Rules* rules : {&before, &after}) {
    for (const auto& [protocol, rule] : *rules) protocols.insert(protocol);
  }
  return protocols;
}

}  // namespace

// ---- Beginning ----

bool ProfileEdit::open() {
  daemon_ = askDaemon();
  if (!exists(profile_)) {
    cli::carry(script::L2cpProfile{profile_}, client_);
    dialogue_.say(fmt::format("Profile {} is new.", nameText(profile_)));
    open_ = true;
    return true;
  }
  if (!agreeToRemove(lookAround({}))) {
    dialogue_.say(fmt::format("Profile {} is not opened.", nameText(profile_)));
    return false;
  }
  makeCopy();
  return true;
}

bool ProfileEdit::exists(std::string name) const {
  const rpc_l2cp_error status = client_.module<rpc_l2cp_profile_status_1>(wireText(name));
  return status != RPC_L2CP_ERR_PROFILE_NOT_FOUND;
}

ProfileEdit::Target ProfileEdit::look() const {
  const auto all = client_.module<rpc_l2cp_profile_get_all_1>();
  accept(all->error);
  const std::span profiles(all->list.list_val, all->list.list_len);
  const auto found = std::find_if(profiles.begin(), profiles.end(),
                                  [&](const auto& each) { return each.name == profile_; });
  if (found == profiles.end()) accept(RPC_L2CP_ERR_PROFILE_NOT_FOUND);
  return {found->protect != FALSE,    found->dynamic != FALSE,        found->use_count != 0,
          rulesOf(profile_, client_), placementOf(profile_, client_), {}};
}

// Also at what stands beside it, before and when its rules become those.
ProfileEdit::Target ProfileEdit::lookAround(const Rules& after) const {
  Target target = look();
  target.seats =
      seatsBeside(profile_, target.placement, protocolsOfBoth(target.rules, after), client_);
  return target;
}

// Whether service profiles that the module takes care of keep the profile in force, also when
// what is in the way is taken away.
bool ProfileEdit::isServed(const Target& target) const {
  const auto isTaken = [&](const std::string& service, std::int32_t interface) {
    return std::any_of(target.seats.begin(), target.seats.end(), [&](const Seat& seat) {
      return seat.isShared && seat.attach.profile == profile_ && seat.service == service &&
             seat.attach.port == static_cast<std::uint32_t>(interface);
    });
  };
  const auto& services = target.placement.services;
  return std::any_of(services.begin(), services.end(), [&](const auto& service) {
    return service.name != passedOver &&
           !std::all_of(service.interfaces.begin(), service.interfaces.end(),
                        [&](std::int32_t each) { return isTaken(service.name, each); });
  });
}

void ProfileEdit::makeCopy() {
  const auto edit = client_.module<rpc_l2cp_profile_edit_1>(wireText(profile_));
  accept(edit->error,
         {{RPC_L2CP_ERR_FAILED, errorAdvice(RPC_L2CP_ERR_PROFILE_NOT_FOUND)},
          {RPC_L2CP_EDIT_FAILED, "no name is free for the copy; delete copies that nobody needs"}});
  copy_ = static_cast<const char*>(edit->name);
  open_ = true;
  before_ = rulesOf(copy_, client_);
}

std::vector<std::string> ProfileEdit::inTheWay(const Target& target) const {
  const Placement& placement = target.placement;
  std::vector<std::string> inTheWay;
  if (target.protect) inTheWay.emplace_back("it is protected");
  if (target.dynamic && !target.protect && target.inForce) {
    inTheWay.emplace_back("it is dynamic, and becoming so again will protect it");
  }
  if (!placement.direct.empty()) {
    inTheWay.push_back("it is attached directly: " + placesText(placement.direct));
  }
  if (passedOverService(placement) != nullptr) {
    inTheWay.push_back(fmt::format("the service profile {} names it", passedOver));
  }
  if (!placement.lost.empty()) {
    inTheWay.push_back("a service profile misses where somebody detached it: " +
                       placesText(placement.lost));
  }
  std::map<std::string, std::vector<script::Attach>> neighbours;
  for (const Seat& seat : target.seats) {
    if (seat.attach.profile != profile_) neighbours[seat.attach.profile].push_back(seat.attach);
  }
  for (const auto& [name, attachments] : neighbours) {
    inTheWay.push_back(fmt::format("{} is attached beside it, with protocols in common: {}",
                                   nameText(name), placesText(attachments)));
  }
  return inTheWay;
}

bool ProfileEdit::agreeToRemove(const Target& target) {
  std::vector<std::string> inTheWay = this->inTheWay(target);
  const auto isKnown = [&](const std::string& each) {
    return std::find(agreed_.begin(), agreed_.end(), each) != agreed_.end();
  };
  if (std::all_of(inTheWay.begin(), inTheWay.end(), isKnown)) return true;
  dialogue_.say(fmt::format("Profile {} cannot be replaced as it is:", nameText(profile_)));
  for (const std::string& each : inTheWay) dialogue_.say("  " + each);
  dialogue_.say(
      "On \"exit\" this can be taken out of the way, the edited copy put in the profile's place,\n"
      "and all put back. What is attached directly or beside it is out of force in between.");
  if (!dialogue_.agree("Edit it that way?")) return false;
  agreed_ = std::move(inTheWay);
  return true;
}

// ---- While it goes on ----

DaemonRun ProfileEdit::askDaemon() {
  const auto asked = DaemonRun::Clock::now();
  const auto status = client_.control<control_status_1>();
  return {*status, asked, DaemonRun::Clock::now()};
}

void ProfileEdit::checkDaemon() {
  if (!askDaemon().isRestartOf(*daemon_)) return;
  open_ = false;
  throw LocalError(
      fmt::format("the daemon was restarted meanwhile: what was changed in profile {} is lost",
                  nameText(profile_)));
}

Rules ProfileEdit::rules() const { return rulesOf(copy_.empty() ? profile_ : copy_, client_); }

void ProfileEdit::carry(script::Command command) {
  checkDaemon();
  const std::string& name = copy_.empty() ? profile_ : copy_;
  if (auto* const entry = std::get_if<script::Entry>(&command)) entry->profile = name;
  if (auto* const entry = std::get_if<script::NoEntry>(&command)) entry->profile = name;
  try {
    cli::carry(command, client_);
  } catch (const Refused&) {
    if (exists(name)) throw;
    open_ = false;
    throw LocalError(fmt::format("somebody deleted {}: what was changed in profile {} is lost",
                                 nameText(name), nameText(profile_)));
  }
}

// ---- Ending ----

bool ProfileEdit::commit() {
  checkDaemon();
  if (copy_.empty()) {
    open_ = false;
    return true;
  }
  const std::string shown = nameText(profile_);
  if (!exists(profile_)) {
    throw LocalError(
        fmt::format("there is no profile {} any more; \"do profile copy {} {}\" makes "
                    "it of the copy, \"abort\" deletes that",
                    shown, copy_, shown));
  }
  const Rules after = rules();
  const Target target = lookAround(after);
  if (after == before_ || after == target.rules) {
    deleteCopy();
    dialogue_.say(fmt::format("Profile {} is unchanged.", shown));
    return true;
  }
  if (target.rules != before_ &&
      !dialogue_.agree(
          fmt::format("Somebody changed profile {} meanwhile. Replace it all the same?", shown))) {
    return false;
  }
  if (!agreeToRemove(target)) return false;
  const bool staysDynamic = target.dynamic && !target.protect;
  if (isServed(target) && !staysDynamic && sameProtocols(target.rules, after) &&
      !agreeToTwoCycles(target.rules, after)) {
    return false;
  }
  replace(target, after);
  dialogue_.say(fmt::format("Profile {} is replaced.", shown));
  return true;
}

bool ProfileEdit::agreeToTwoCycles(const Rules& before, const Rules& after) {
  dialogue_.say(fmt::format(
      "Only rules differ, not protocols. The module takes that for no change and would discard "
      "it.\n"
      "What works is to replace the profile twice: without the rules for {}, then with\n"
      "the new ones. In between the profile has none for them.",
      protocolsOf(before, after)));
  return dialogue_.agree("Replace it twice?");
}

void ProfileEdit::replace(const Target& target, const Rules& after) {
  const bool onlyRules = sameProtocols(target.rules, after);
  const bool staysDynamic = target.dynamic && !target.protect;
  const bool served = isServed(target);
  try {
    takeAway(target);
    if (!served && (onlyRules || staysDynamic)) {
      setInPlace(target.rules, after);
    } else if (onlyRules && !staysDynamic) {
      inTwoCycles(target.rules, after);
    } else {
      exitCycle();
    }
  } catch (const Failure&) {
    putBack(target);
    throw;
  }
  putBack(target);
}

void ProfileEdit::takeAway(const Target& target) {
  const Placement& placement = target.placement;
  for (const script::Attach& attach : placement.lost) cli::carry(attach, client_);
  takeNeighbours(target);
  for (const auto& [profile, port, vid] : placement.direct) {
    cli::carry(script::NoAttach{profile, port, vid}, client_);
  }
  if (const auto* const service = passedOverService(placement)) {
    for (const std::int32_t interface : service->interfaces) {
      cli::carry(script::NoApply{service->name, interface}, client_);
    }
    cli::carry(script::ServiceL2cpProfile{service->name, ""}, client_);
  }
  if (target.protect) {
    accept(client_.module<rpc_l2cp_profile_set_protect_1>(wireText(profile_), FALSE));
  }
}

// And its own attachments among them, so that all can come back in their order.
void ProfileEdit::takeNeighbours(const Target& target) {
  neighbours_.clear();
  for (const Seat& seat : target.seats) {
    const bool own = seat.attach.profile == profile_;
    if (!seat.isShared || (own && (seat.service.empty() || seat.service == passedOver))) continue;
    cli::carry(toTake(seat), client_);
    if (!own) neighbours_.push_back(toPutBack(seat));
  }
}

std::vector<script::Command> ProfileEdit::inOrder(std::vector<script::Command> commands,
                                                  const Target& target) const {
  commands.insert(commands.end(), neighbours_.begin(), neighbours_.end());
  const auto place = [&](const script::Command& command) {
    const auto found = std::find_if(target.seats.begin(), target.seats.end(),
                                    [&](const Seat& seat) { return toPutBack(seat) == command; });
    return found == target.seats.end() ? -1 : found - target.seats.begin();
  };
  std::stable_sort(commands.begin(), commands.end(),
                   [&](const auto& one, const auto& other) { return place(one) < place(other); });
  return commands;
}

// Says what it cannot put back, and goes on.
void ProfileEdit::putBack(const Target& target) {
  std::vector<script::Command> commands;
  try {
    commands =
        inOrder(toRestore(profile_, target.placement, placementOf(profile_, client_)), target);
    setFlags(target);
  } catch (const Failure& failure) {
    dialogue_.say(
        fmt::format("How profile {} is now is not known: {}", nameText(profile_), failure.what()));
    commands = inOrder(toRestore(profile_, target.placement, {}), target);
    if (!commands.empty()) dialogue_.say("It was in force through:");
    for (const script::Command& command : commands) dialogue_.say("  " + lineOf(command));
    return;
  }
  for (const script::Command& command : commands) {
    try {
      cli::carry(command, client_);
    } catch (const Failure& failure) {
      dialogue_.say(fmt::format("Not put back: \"{}\": {}", lineOf(command), failure.what()));
    }
  }
}

void ProfileEdit::setFlags(const Target& target) {
  const Target now = look();
  if (target.dynamic && !now.dynamic) {
    accept(client_.module<rpc_l2cp_profile_set_dynamic_1>(wireText(profile_), TRUE));
  } else if (target.protect && !now.protect) {
    accept(client_.module<rpc_l2cp_profile_set_protect_1>(wireText(profile_), TRUE));
  }
}

void ProfileEdit::setInPlace(const Rules& before, const Rules& after) {
  bool partly = false;
  try {
    for (const script::Command& command : changes(profile_, before, after)) {
      cli::carry(command, client_);
      partly = true;
    }
  } catch (const Failure&) {
    if (partly) dialogue_.say(fmt::format("Profile {} is changed in part.", nameText(profile_)));
    throw;
  }
  deleteCopy();
}

void ProfileEdit::carryAll(const std::vector<script::Command>& commands) {
  for (const script::Command& command : commands) cli::carry(command, client_);
}

void ProfileEdit::inTwoCycles(const Rules& before, const Rules& after) {
  Rules others = after;
  std::erase_if(others, [&](const auto& each) { return before.at(each.first) != each.second; });
  carryAll(changes(copy_, after, others));
  try {
    exitCycle();
  } catch (const Refused&) {
    if (open_) carryAll(changes(copy_, others, after));
    throw;
  }
  try {
    makeCopy();
    carryAll(changes(copy_, others, after));
    exitCycle();
  } catch (const Failure&) {
    dialogue_.say(fmt::format("Profile {} is now without the rules for {}.", nameText(profile_),
                              protocolsOf(before, after)));
    throw;
  }
}

void ProfileEdit::exitCycle() {
  const rpc_l2cp_error result =
      client_.module<rpc_l2cp_profile_on_exit_1>(wireText(profile_), wireText(copy_));
  open_ = result != RPC_L2CP_OK && exists(copy_);
  accept(result, {{RPC_L2CP_EDIT_FAILED,
                   "the copy could not take the profile's place, or only part-way; look at both "
                   "with \"l2cpctl profile show\""}});
}

// What was added to the copy and taken from it was counted as use of the protocols, but deleting it
// is not.
void ProfileEdit::deleteCopy() {
  if (exists(copy_)) {
    for (const script::Command& command : changes(copy_, rules(), before_)) {
      try {
        cli::carry(command, client_);
      } catch (const Refused&) {
        // The protocol was deleted meanwhile, and with it what counts its uses.
      }
    }
    accept(client_.module<rpc_l2cp_profile_del_1>(wireText(copy_)));
  }
  open_ = false;
}

void ProfileEdit::discard() {
  const std::string shown = nameText(profile_);
  try {
    checkDaemon();
    if (copy_.empty()) {
      cli::carry(script::NoL2cpProfile{profile_}, client_);
      open_ = false;
      return dialogue_.say(fmt::format("Profile {}, which was new, is deleted again.", shown));
    }
    const bool changed = !exists(copy_) || rules() != before_;
    deleteCopy();
    dialogue_.say(changed ? fmt::format("What was changed in profile {} is discarded.", shown)
                          : fmt::format("Profile {} is unchanged.", shown));
  } catch (const NotReached& failure) {
    throw NotReached(
        fmt::format("{}; {} may be left behind", failure.what(),
                    copy_.empty() ? "the new profile " + shown : "the copy " + nameText(copy_)));
  }
}

}  // namespace cli
