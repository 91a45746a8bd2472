#include "cli/apply/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <span>
#include <utility>
#include <variant>

#include "cli/apply/portPlan.h"

namespace cli {

namespace {

constexpr std::string_view unchangeable = "DEFAULT";

std::set<std::string> changedProtocols(const State& current, const State& wanted) {
  std::set<std::string> names;
  for (const auto& [name, definition] : current.protocols) {
    const auto other = wanted.protocols.find(name);
    if (other != wanted.protocols.end() && other->second != definition) names.insert(name);
  }
  return names;
}

bool haveSameProtocols(const Rules& one, const Rules& other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](const auto& left, const auto& right) { return left.first == right.first; });
}

class Planner {
 public:
  Planner(const State& current, const State& wanted, const std::set<std::uint32_t>& gaps)
      : current_(current), wanted_(wanted), gaps_(gaps), services_(current.services) {}

  Plan make() {
    findChanges();
    planPorts();
    for (const PortPlan& port : ports_) add(port.detaching);
    planProtocols();
    planVlanProfiles();
    planL2cpProfiles();
    deleteServices();
    planServices(true);
    deleteProfiles();
    planServices(false);
    for (const PortPlan& port : ports_) add(port.attaching);
    return std::move(plan_);
  }

 private:
  void add(script::Command command) { plan_.commands.push_back(std::move(command)); }
  void add(std::span<const script::Command> commands) {
    plan_.commands.insert(plan_.commands.end(), commands.begin(), commands.end());
  }

  // ---- What has to be out of force ----

  void findChanges() {
    for (const auto& [name, service] : current_.services) {
      const auto other = wanted_.services.find(name);
      const bool changes = other == wanted_.services.end() || other->second != service ||
                           svidsChange(service.vlanProfile);
      if (changes && current_.isApplied(name)) changes_.services.insert(name);
    }
    const std::set<std::string> protocols = changedProtocols(current_, wanted_);
    for (const auto& [name, rules] : current_.l2cpProfiles) {
      const auto other = wanted_.l2cpProfiles.find(name);
      if (other == wanted_.l2cpProfiles.end()) continue;
      // The module finds what it has put into the classifier by the protocols' definitions.
      const bool isRedefined = std::any_of(rules.begin(), rules.end(), [&](const auto& rule) {
        return protocols.contains(rule.first);
      });
      if (isRedefined) {
        changes_.profiles.insert(name);
      } else if (other->second != rules) {
        // One with the same protocols counts as unchanged, whatever their rules.
        const bool editable = !haveSameProtocols(rules, other->second) && canBeEdited(name);
        (editable ? changes_.edited : changes_.profiles).insert(name);
      }
    }
  }

  bool svidsChange(const std::string& vlanProfile) const {
    const auto one = current_.vlanProfiles.find(vlanProfile);
    const auto other = wanted_.vlanProfiles.find(vlanProfile);
    return one != current_.vlanProfiles.end() && other != wanted_.vlanProfiles.end() &&
           one->second != other->second;
  }

  // Whether the editing procedures can replace a profile wherever it is in force and stays so. They
  // take it off interfaces and apply it there again, which can put it behind what else is on the
  // port.
  bool canBeEdited(const std::string& profile) const {
    if (profile == unchangeable) return false;
    const auto unnamed = current_.services.find(std::string(unchangeable));
    if (unnamed != current_.services.end() && unnamed->second.l2cpProfile == profile) return false;
    for (const auto& [port, attachments] : current_.ports) {
      for (const Attachment& attachment : attachments) {
        if (attachment.profile == profile && wanted_.isAttached(attachment, port) &&
            !canBeReplaced(attachment, port)) {
          return false;
        }
      }
    }
    return appliesOnlyWhatIsAttached(profile);
  }

  bool canBeReplaced(const Attachment& attachment, std::uint32_t port) const {
    const auto meetsAnother = [&](const State& state) {
      const auto& all = state.ports.at(port);
      return std::any_of(all.begin(), all.end(), [&](const Attachment& other) {
        return other != attachment && canMeet(attachment, other);
      });
    };
    const auto before = applicationsOf(current_, attachment, port);
    const auto after = applicationsOf(wanted_, attachment, port);
    return before.size() == 1 && before == after && !changes_.services.contains(before.front()) &&
           !meetsAnother(current_) && !meetsAnother(wanted_);
  }

  bool appliesOnlyWhatIsAttached(const std::string& profile) const {
    for (const auto& [service, interfaces] : current_.applications) {
      if (current_.services.at(service).l2cpProfile != profile) continue;
      for (const std::int32_t interface : interfaces) {
        const Attachment attachment = current_.attachedBy(service, interface);
        if (!current_.isAttached(attachment, static_cast<std::uint32_t>(interface))) return false;
      }
    }
    return true;
  }

  void planPorts() {
    for (const std::uint32_t port : portsOf(current_, wanted_)) {
      ports_.push_back(planPort(current_, wanted_, port, changes_, gaps_.contains(port)));
      for (const Attachment& attachment : ports_.back().interrupted) {
        plan_.interruptions.push_back({port, attachment});
      }
      plan_.edited.merge(ports_.back().edited);
    }
  }

  // ---- What it is made of ----

  void planProtocols() {
    for (const auto& [name, definition] : wanted_.protocols) {
      const auto other = current_.protocols.find(name);
      if (other != current_.protocols.end() && other->second == definition) continue;
      add(script::Protocol{name, definition.mac, definition.etherType, definition.subType});
    }
  }

  void planVlanProfiles() {
    for (const auto& [name, svids] : wanted_.vlanProfiles) {
      const auto other = current_.vlanProfiles.find(name);
      const bool isNew = other == current_.vlanProfiles.end();
      if (!isNew && other->second == svids) continue;
      add(script::VlanProfile{name});
      const Svids before = isNew ? Svids() : other->second;
      for (const auto& [interface, vid] : before) {
        if (!svids.contains(interface)) add(script::NoSvid{name, interface});
      }
      for (const auto& [interface, vid] : svids) {
        const auto same = before.find(interface);
        if (same == before.end() || same->second != vid) add(script::Svid{name, interface, vid});
      }
      add(script::Exit{});
    }
  }

  void planL2cpProfiles() {
    for (const auto& [name, rules] : wanted_.l2cpProfiles) {
      const auto other = current_.l2cpProfiles.find(name);
      const bool isNew = other == current_.l2cpProfiles.end();
      if (!isNew && other->second == rules) continue;
      add(script::L2cpProfile{name});
      const Rules before = isNew ? Rules() : other->second;
      for (const auto& [protocol, rule] : before) {
        if (!rules.contains(protocol)) add(script::NoEntry{name, protocol});
      }
      for (const auto& [protocol, rule] : rules) {
        const auto same = before.find(protocol);
        if (same == before.end() || same->second != rule) add(script::Entry{name, protocol, rule});
      }
      add(script::Exit{});
    }
  }

  void deleteServices() {
    for (const auto& [name, service] : current_.services) {
      if (wanted_.services.contains(name)) continue;
      add(script::NoServiceProfile{name});
      services_.erase(name);
    }
  }

  // A profile can be deleted while nothing names it, and named while it is not there.
  void planServices(bool beforeDeletion) {
    for (const auto& [name, service] : wanted_.services) {
      const auto known = services_.find(name);
      const bool isNew = known == services_.end();
      const Service before = isNew ? Service() : known->second;
      Service after = service;
      if (beforeDeletion && isDeleted(service.l2cpProfile)) after.l2cpProfile.clear();
      if (!isNew && before == after) continue;
      add(script::ServiceProfile{name});
      if (before.vlanProfile != after.vlanProfile) {
        add(script::ServiceVlanProfile{name, after.vlanProfile});
      }
      if (before.l2cpProfile != after.l2cpProfile) {
        add(script::ServiceL2cpProfile{name, after.l2cpProfile});
      }
      add(script::Exit{});
      services_[name] = after;
    }
  }

  bool isDeleted(const std::string& profile) const {
    return current_.l2cpProfiles.contains(profile) && !wanted_.l2cpProfiles.contains(profile);
  }

  void deleteProfiles() {
    for (const auto& [name, svids] : current_.vlanProfiles) {
      if (!wanted_.vlanProfiles.contains(name)) add(script::NoVlanProfile{name});
    }
    for (const auto& [name, rules] : current_.l2cpProfiles) {
      if (isDeleted(name)) add(script::NoL2cpProfile{name});
    }
    for (const auto& [name, definition] : current_.protocols) {
      if (!wanted_.protocols.contains(name)) add(script::NoProtocol{name});
    }
  }

  const State& current_;
  const State& wanted_;
  const std::set<std::uint32_t>& gaps_;
  Changes changes_;
  std::vector<PortPlan> ports_;
  std::map<std::string, Service> services_;
  Plan plan_;
};

// ---- Text ----

std::string interruptionText(const Reattachment& interruption) {
  const auto& [port, attachment] = interruption;
  const std::string place = script::text(script::Attach{attachment.profile, port, attachment.vid});
  return script::comment("! interrupted: " + place.substr(place.find(' ') + 1));
}

}  // namespace

Plan planFor(const State& current, const State& wanted,
             const std::set<std::uint32_t>& portsWithGaps) {
  return Planner(current, wanted, portsWithGaps).make();
}

std::vector<std::string> textOf(const Plan& plan) {
  std::vector<std::string> lines;
  script::LineWriter writer;
  for (const script::Command& command : plan.commands) {
    const auto* const profile = std::get_if<script::L2cpProfile>(&command);
    if (profile != nullptr && plan.edited.contains(profile->name)) {
      lines.emplace_back("! in force, edited as a copy that takes its place at \"exit\":");
    }
    lines.push_back(writer.line(command));
  }
  for (const Reattachment& interruption : plan.interruptions) {
    lines.push_back(interruptionText(interruption));
  }
  return lines;
}

}  // namespace cli
