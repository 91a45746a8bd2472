#include "host/objectNames.h"

#include <fmt/format.h>

#include <algorithm>

#include "l2cp/l2cp.h"
#include "platform/acl_ioctl.h"

namespace {

L2CP& module() { return singleton<L2CP>::instance(); }

/// The short name of a full one that the module has in its table, else nothing. The table is left
/// as it was: asking is a use, which is given back, and with it a name that was not there before.
std::string shortName(const std::string& full) {
  char text[ACL_NAME_SIZE] = {};
  int uses = 0;
  if (module().GetName(full.c_str(), text, &uses) == nullptr) return {};
  // Uses wrap. Below zero, to give one back would be to take the name away.
  if (uses > 0) module().PutName(full.c_str(), 1);
  return uses == 1 ? "" : text;
}

/// A counter's name: the masks are a word, what it counts, and the rule.
std::string counterTitle(std::string_view mask, std::string_view of, const char* rule) {
  return fmt::format("{}{}{}", mask.substr(0, mask.find('%')), of, rule);
}

/// The numbers of names are printed with "%d".
std::string numberText(std::uint32_t number) {
  return std::to_string(static_cast<std::int32_t>(number));
}

std::string actionListTitle(std::uint32_t port, std::uint16_t vid, const L2CP::Protocol& proto) {
  return fmt::format("{}/{}/{}/{}/{:04x}/{:02x}", proto.name, numberText(port), vid,
                     L2CP::mac2str(proto.mac), proto.etherType, proto.subType);
}

bool changes(const classifier::Rule& entry, std::string_view counter) {
  return !counter.empty() &&
         std::ranges::any_of(entry.counterChanges, [&](const classifier::CounterChange& change) {
           return change.counter->name.view() == counter;
         });
}

}  // namespace

ObjectNames::ObjectNames(std::uint32_t port) {
  const auto& ports = module().settings.ports;
  const auto attachments = ports.find(port);
  if (attachments == ports.end()) return;
  for (const auto& [vid, profiles] : attachments->second) {
    for (const auto& [profile, positions] : profiles) {
      for (const auto& [proto, rule] : profile->protocols) {
        const char* const suffix = L2CP::rule2str(rule);
        counter(counterTitle(L2CP::m_counter_port_mask, numberText(port), suffix));
        candidates_.push_back(
            {{profile->name, proto->name, vid},
             shortName(actionListTitle(port, vid, *proto)),
             counter(counterTitle(L2CP::m_counter_vlan_mask, numberText(vid), suffix)),
             counter(counterTitle(L2CP::m_counter_profile_mask, profile->name, suffix)),
             counter(counterTitle(L2CP::m_counter_proto_mask, proto->name, suffix))});
      }
    }
  }
}

std::string ObjectNames::counter(const std::string& title) {
  // Entries change counters whose full names fit where their short ones go. Others are not theirs.
  if (title.size() >= ACL_NAME_SIZE) return {};
  std::string name = shortName(title);
  if (!name.empty()) titles_.emplace(name, title);
  return name;
}

ObjectNames::Origin ObjectNames::originOf(const classifier::Rule& entry) {
  std::vector<Candidate*> found;
  const auto collect = [&](const auto& fits) {
    for (Candidate& candidate : candidates_) {
      if (!candidate.taken && fits(candidate)) found.push_back(&candidate);
    }
  };
  collect([&](const Candidate& of) { return entry.actionList.view() == of.actionList; });
  if (found.empty()) {
    // The name of the action list tells the protocol's definition, which has changed since.
    collect([&](const Candidate& of) {
      return changes(entry, of.protocolCounter) && changes(entry, of.vlanCounter);
    });
  }
  if (found.empty()) return {};
  const auto counting = std::ranges::find_if(
      found, [&](const Candidate* of) { return changes(entry, of->profileCounter); });
  Candidate& taken = counting == found.end() ? *found.front() : **counting;
  taken.taken = true;
  Origin origin = taken.origin;
  // Which of several it is makes no difference but for the name.
  if (counting == found.end() && found.size() > 1) origin.profile.clear();
  return origin;
}

std::vector<ObjectNames::Origin> ObjectNames::rest() const {
  std::vector<Origin> origins;
  for (const Candidate& candidate : candidates_) {
    if (!candidate.taken) origins.push_back(candidate.origin);
  }
  return origins;
}

std::string ObjectNames::titleOf(std::string_view counter) const {
  const auto title = titles_.find(counter);
  return title == titles_.end() ? "" : title->second;
}
