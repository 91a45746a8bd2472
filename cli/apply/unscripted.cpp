#include "cli/apply/unscripted.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>

#include "cli/apply/portPlan.h"

namespace cli {

namespace {

using Attachments = std::vector<Attachment>;

/// Puts attachments in among others, none of which changes its place for that.
class Merger {
 public:
  Merger(const Attachments& current, Attachments& wanted) : wanted_(wanted) {
    for (const Attachment& attachment : current) {
      positions_.emplace(attachment, positions_.size());
    }
  }

  // In front of the first that it stands in front of now, and as far ahead there as those allow
  // that it stands behind.
  void insert(const Attachment& attachment) {
    const std::size_t position = positions_.at(attachment);
    const auto comesLater = [&](const Attachment& other) {
      const auto known = positions_.find(other);
      return known != positions_.end() && known->second > position;
    };
    const auto comesEarlier = [&](const Attachment& other) {
      const auto known = positions_.find(other);
      return known != positions_.end() && known->second < position;
    };
    const auto end = std::find_if(wanted_.begin(), wanted_.end(), comesLater);
    const auto earlier =
        std::find_if(std::make_reverse_iterator(end), wanted_.rend(), comesEarlier);
    wanted_.insert(earlier.base(), attachment);
  }

 private:
  Attachments& wanted_;
  std::map<Attachment, std::size_t> positions_;
};

class Keeper {
 public:
  Keeper(State& wanted, const DaemonState& daemon)
      : wanted_(wanted), current_(daemon.state), unscripted_(daemon.unscripted) {}

  std::vector<UnscriptedApplication> keep() {
    for (const std::string& name : unscripted_) {
      wanted_.l2cpProfiles[name] = current_.l2cpProfiles.at(name);
    }
    keepApplications();
    for (const auto& [port, attachments] : current_.ports) keepAttachments(port, attachments);
    return std::move(lost_);
  }

 private:
  void keepApplications() {
    for (const auto& [service, interfaces] : current_.applications) {
      if (!unscripted_.contains(current_.services.at(service).l2cpProfile)) continue;
      for (const std::int32_t interface : interfaces) {
        const Attachment attachment = current_.attachedBy(service, interface);
        if (wanted_.attachedBy(service, interface) == attachment) {
          wanted_.applications[service].insert(interface);
        } else {
          lost_.push_back({service, interface, attachment.profile});
        }
      }
    }
  }

  void keepAttachments(std::uint32_t port, const Attachments& attachments) {
    Attachments missing;
    std::copy_if(attachments.begin(), attachments.end(), std::back_inserter(missing),
                 [&](const Attachment& attachment) {
                   return stays(attachment, port) && !wanted_.isAttached(attachment, port);
                 });
    if (missing.empty()) return;
    Merger merger(attachments, wanted_.ports[port]);
    for (const Attachment& attachment : missing) merger.insert(attachment);
  }

  bool stays(const Attachment& attachment, std::uint32_t port) const {
    if (!unscripted_.contains(attachment.profile)) return false;
    const auto services = applicationsOf(current_, attachment, port);
    return services.empty() ||
           std::any_of(services.begin(), services.end(), [&](const std::string& service) {
             return wanted_.isApplied(service, static_cast<std::int32_t>(port));
           });
  }

  State& wanted_;
  const State& current_;
  const std::set<std::string>& unscripted_;
  std::vector<UnscriptedApplication> lost_;
};

void forget(State& state, const std::string& profile) {
  state.l2cpProfiles.erase(profile);
  for (auto& [port, attachments] : state.ports) {
    std::erase_if(attachments, [&](const Attachment& each) { return each.profile == profile; });
  }
  std::erase_if(state.ports, [](const auto& port) { return port.second.empty(); });
  std::erase_if(state.applications, [&](const auto& application) {
    return state.services.at(application.first).l2cpProfile == profile;
  });
}

}  // namespace

std::vector<UnscriptedApplication> keepUnscripted(State& wanted, const DaemonState& daemon) {
  return Keeper(wanted, daemon).keep();
}

State stateToReturnTo(const DaemonState& before, const DaemonState& now) {
  State state = before.state;
  for (const std::string& name : before.unscripted) {
    if (!now.state.l2cpProfiles.contains(name)) forget(state, name);
  }
  keepUnscripted(state, now);
  return state;
}

}  // namespace cli
