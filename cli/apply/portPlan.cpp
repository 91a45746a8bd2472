#include "cli/apply/portPlan.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <map>

namespace cli {

namespace {

using Attachments = std::vector<Attachment>;

using Positions = std::map<Attachment, std::size_t>;

Positions positionsOf(const Attachments& attachments) {
  Positions positions;
  for (const Attachment& attachment : attachments) positions.emplace(attachment, positions.size());
  return positions;
}

Attachments attachmentsOf(const State& state, std::uint32_t port) {
  const auto found = state.ports.find(port);
  return found == state.ports.end() ? Attachments() : found->second;
}

// Service profiles that are applied on the interface of the port's number.
std::set<std::string> appliedOn(const State& state, std::uint32_t port) {
  std::set<std::string> names;
  if (port > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) return names;
  for (const auto& [service, interfaces] : state.applications) {
    if (interfaces.contains(static_cast<std::int32_t>(port))) names.insert(service);
  }
  return names;
}

class Planner {
 public:
  Planner(const State& current, const State& wanted, std::uint32_t port, const Changes& changes,
          bool hasGaps)
      : current_(current),
        wanted_(wanted),
        port_(port),
        interface_(static_cast<std::int32_t>(port)),
        changes_(changes),
        hasGaps_(hasGaps),
        before_(attachmentsOf(current, port)),
        after_(attachmentsOf(wanted, port)),
        was_(positionsOf(before_)),
        is_(positionsOf(after_)) {}

  PortPlan make() {
    findApplications();
    findKept();
    while (dropOutOfOrder()) {
    }
    detach();
    attach();
    for (const Attachment& attachment : before_) {
      if (!is_.contains(attachment)) continue;
      const bool isEdited = changes_.edited.contains(attachment.profile);
      if (isEdited || !isKept(attachment)) plan_.interrupted.push_back(attachment);
      if (isEdited && isKept(attachment)) plan_.edited.insert(attachment.profile);
    }
    return std::move(plan_);
  }

 private:
  Attachment attachedBefore(const std::string& service) const {
    return current_.attachedBy(service, interface_);
  }
  Attachment attachedAfter(const std::string& service) const {
    return wanted_.attachedBy(service, interface_);
  }

  void findApplications() {
    const std::set<std::string> before = appliedOn(current_, port_);
    const std::set<std::string> after = appliedOn(wanted_, port_);
    for (const std::string& service : before) {
      if (!after.contains(service) || changes_.services.contains(service)) ending_.insert(service);
    }
    for (const std::string& service : after) {
      if (!before.contains(service) || changes_.services.contains(service)) {
        beginning_.insert(service);
      }
    }
  }

  // ---- What stays ----

  void findKept() {
    std::set<Attachment> touched;
    for (const std::string& service : ending_) touched.insert(attachedBefore(service));
    for (const std::string& service : beginning_) touched.insert(attachedAfter(service));
    for (const Attachment& attachment : before_) {
      if (is_.contains(attachment) && !touched.contains(attachment) &&
          !changes_.profiles.contains(attachment.profile)) {
        kept_.insert(attachment);
      }
    }
  }

  bool isKept(const Attachment& attachment) const { return kept_.contains(attachment); }

  // What is attached goes to the first free positions. Everything from here on can come to stand
  // behind it.
  std::size_t firstHole() const {
    if (hasGaps_) return 0;
    const auto leavesRoom = [&](const Attachment& attachment) {
      return !isKept(attachment) || changes_.edited.contains(attachment.profile);
    };
    const auto found = std::find_if(before_.begin(), before_.end(), leavesRoom);
    return static_cast<std::size_t>(found - before_.begin());
  }

  bool hasRules(const std::string& profile) const {
    const auto found = wanted_.l2cpProfiles.find(profile);
    return found == wanted_.l2cpProfiles.end() || !found->second.empty();
  }

  // Whether there are frames for which the order of both decides.
  bool compete(const Attachment& one, const Attachment& other) const {
    return one != other && canMeet(one, other) && hasRules(one.profile) && hasRules(other.profile);
  }

  // Of what is new to the port it is certain only that it comes behind what is before the first
  // hole: one may be too small for it.
  bool isOutOfOrder(const Attachment& kept, std::size_t hole) const {
    const std::size_t was = was_.at(kept);
    const std::size_t is = is_.at(kept);
    return std::any_of(after_.begin(), after_.end(), [&](const Attachment& other) {
      if (!compete(kept, other)) return false;
      const bool shallBeFirst = is < is_.at(other);
      if (isKept(other)) return shallBeFirst != (was < was_.at(other));
      return !shallBeFirst || was >= hole;
    });
  }

  // The classifier's objects for a protocol are those of its VLAN on the port. Of two profiles that
  // have a rule for it there, the later one uses what was made for the first, which goes with it.
  bool losesObjects(const Attachment& kept) const {
    return std::any_of(before_.begin(), before_.end(), [&](const Attachment& other) {
      return other.vid == kept.vid && !isKept(other) && shareProtocol(kept.profile, other.profile);
    });
  }

  bool shareProtocol(const std::string& one, const std::string& other) const {
    const auto rules = current_.l2cpProfiles.find(one);
    const auto others = current_.l2cpProfiles.find(other);
    const auto end = current_.l2cpProfiles.end();
    if (rules == end || others == end) return true;
    return std::any_of(rules->second.begin(), rules->second.end(),
                       [&](const auto& rule) { return others->second.contains(rule.first); });
  }

  bool dropOutOfOrder() {
    const std::size_t hole = firstHole();
    std::vector<Attachment> dropped;
    std::copy_if(
        kept_.begin(), kept_.end(), std::back_inserter(dropped),
        [&](const Attachment& kept) { return isOutOfOrder(kept, hole) || losesObjects(kept); });
    for (const Attachment& attachment : dropped) kept_.erase(attachment);
    return !dropped.empty();
  }

  // ---- Commands ----

  void detach() {
    for (const Attachment& attachment : before_) {
      if (isKept(attachment)) continue;
      const auto services = applicationsOf(current_, attachment, port_);
      const auto ending = std::find_if(services.begin(), services.end(), [&](const auto& service) {
        return ending_.contains(service);
      });
      if (ending != services.end()) {
        end(*ending);
      } else if (services.empty() || !is_.contains(attachment)) {
        plan_.detaching.emplace_back(script::NoAttach{attachment.profile, port_, attachment.vid});
      } else {
        beginning_.insert(services.back());
        end(services.back());
      }
    }
    while (!ending_.empty()) {
      const std::string service = *ending_.begin();
      const Attachment attachment = attachedBefore(service);
      // A service profile whose attachment was taken away wants it back to be taken off.
      if (!attachment.profile.empty()) {
        plan_.detaching.emplace_back(script::Attach{attachment.profile, port_, attachment.vid});
      }
      end(service);
    }
  }

  void end(const std::string& service) {
    plan_.detaching.emplace_back(script::NoApply{service, interface_});
    ending_.erase(std::string(service));
  }

  void attach() {
    // Those whose attachments are taken away again, or made by another one, and those without any.
    std::set<std::string> last;
    for (const Attachment& attachment : after_) {
      const auto services = applicationsOf(wanted_, attachment, port_);
      const auto found = std::find_if(services.rbegin(), services.rend(), [&](const auto& service) {
        return beginning_.contains(service);
      });
      if (found != services.rend()) last.insert(*found);
    }
    for (const std::string& service : beginning_) {
      if (last.contains(service)) continue;
      const Attachment attachment = attachedAfter(service);
      plan_.attaching.emplace_back(script::Apply{service, interface_});
      if (!attachment.profile.empty()) {
        plan_.attaching.emplace_back(script::NoAttach{attachment.profile, port_, attachment.vid});
      }
    }
    for (const Attachment& attachment : after_) {
      if (isKept(attachment)) continue;
      const auto services = applicationsOf(wanted_, attachment, port_);
      const auto found = std::find_if(services.begin(), services.end(),
                                      [&](const auto& service) { return last.contains(service); });
      if (found != services.end()) {
        plan_.attaching.emplace_back(script::Apply{*found, interface_});
      } else {
        plan_.attaching.emplace_back(script::Attach{attachment.profile, port_, attachment.vid});
      }
    }
  }

  const State& current_;
  const State& wanted_;
  std::uint32_t port_;
  std::int32_t interface_;
  const Changes& changes_;
  bool hasGaps_;
  Attachments before_;
  Attachments after_;
  Positions was_;
  Positions is_;
  std::set<Attachment> kept_;
  std::set<std::string> ending_;
  std::set<std::string> beginning_;
  PortPlan plan_;
};

}  // namespace

PortPlan planPort(const State& current, const State& wanted, std::uint32_t port,
                  const Changes& changes, bool hasGaps) {
  return Planner(current, wanted, port, changes, hasGaps).make();
}

std::vector<std::string> applicationsOf(const State& state, const Attachment& attachment,
                                        std::uint32_t port) {
  std::vector<std::string> names;
  for (const std::string& service : appliedOn(state, port)) {
    const Attachment attached = state.attachedBy(service, static_cast<std::int32_t>(port));
    if (!attached.profile.empty() && attached == attachment) names.push_back(service);
  }
  return names;
}

}  // namespace cli
