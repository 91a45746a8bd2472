#include "cli/shell/neighbours.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <span>

#include "cli/failure.h"
#include "cli/refusal.h"

namespace cli {

namespace {

using Protocols = std::set<std::string>;

/// What the classifier has for one attachment.
struct Group {
  script::Attach attach;
  Protocols protocols;
  bool isShared = false;
};

class Port {
 public:
  Port(std::uint32_t port, Client& client) : port_(port) {
    const auto result = client.control<control_entries_1>(port);
    for (const auto& entry : std::span(result->list.list_val, result->list.list_len)) {
      if (*entry.profile == '\0' || *entry.protocol == '\0') continue;
      group(entry.profile, entry.vid).protocols.insert(entry.protocol);
    }
    for (const auto& of : std::span(result->unplaced.unplaced_val, result->unplaced.unplaced_len)) {
      group(of.profile, of.vid).protocols.insert(of.protocol);
    }
  }

  Group& group(const std::string& profile, std::uint32_t vid) {
    const script::Attach attach{profile, port_, static_cast<std::uint16_t>(vid)};
    const auto found = std::find_if(groups_.begin(), groups_.end(),
                                    [&](const Group& each) { return each.attach == attach; });
    if (found != groups_.end()) return *found;
    return groups_.emplace_back(Group{attach, {}});
  }

  // What goes with one takes along what shares objects with that, and so on.
  void findShared(std::uint16_t vid, Protocols going) {
    for (bool more = true; more;) {
      more = false;
      for (Group& each : groups_) {
        if (each.isShared || each.attach.vid != vid || !meets(each.protocols, going)) continue;
        each.isShared = more = true;
        going.insert(each.protocols.begin(), each.protocols.end());
      }
    }
  }

  const std::vector<Group>& groups() const { return groups_; }

 private:
  static bool meets(const Protocols& some, const Protocols& others) {
    return std::any_of(some.begin(), some.end(),
                       [&](const std::string& each) { return others.contains(each); });
  }

  std::uint32_t port_;
  std::vector<Group> groups_;  ///< by the first entry
};

bool has(const std::vector<script::Attach>& attachments, const script::Attach& attach) {
  return std::find(attachments.begin(), attachments.end(), attach) != attachments.end();
}

std::vector<script::Attach> allOf(const Placement& placement) {
  std::vector<script::Attach> all = placement.direct;
  for (const auto& service : placement.services) {
    all.insert(all.end(), service.attached.begin(), service.attached.end());
  }
  return all;
}

// Nothing if it is in force as something that has no name any more: it cannot be attached again.
std::optional<Seat> seatOf(const Group& group, const Placement& placement) {
  const script::Attach& attach = group.attach;
  for (const auto& service : placement.services) {
    if (has(service.attached, attach)) return Seat{attach, service.name, group.isShared};
  }
  if (!has(placement.direct, attach)) return std::nullopt;
  return Seat{attach, "", group.isShared};
}

class Beside {
 public:
  Beside(const std::string& profile, const Placement& placement, Client& client)
      : profile_(profile), client_(client), placements_{{profile, placement}} {}

  Seats find(const Protocols& protocols) {
    std::map<std::uint32_t, std::set<std::uint16_t>> places;
    for (const script::Attach& attach : allOf(placements_.at(profile_))) {
      places[attach.port].insert(attach.vid);
    }
    Seats seats;
    for (const auto& [number, vids] : places) {
      Port port(number, client_);
      for (const std::uint16_t vid : vids) {
        port.group(profile_, vid).protocols.insert(protocols.begin(), protocols.end());
        port.findShared(vid, protocols);
      }
      add(port, seats);
    }
    return seats;
  }

 private:
  void add(const Port& port, Seats& seats) {
    Seats found;
    std::set<std::uint16_t> shared;
    for (const Group& group : port.groups()) {
      const bool own = group.attach.profile == profile_;
      if (!own && !group.isShared) continue;
      auto seat = seatOf(group, placement(group.attach.profile));
      if (!seat) continue;
      if (!own) shared.insert(seat->attach.vid);
      found.push_back(std::move(*seat));
    }
    for (Seat& seat : found) seat.isShared = shared.contains(seat.attach.vid);
    if (!shared.empty()) seats.insert(seats.end(), found.begin(), found.end());
  }

  const Placement& placement(const std::string& profile) {
    const auto found = placements_.find(profile);
    if (found != placements_.end()) return found->second;
    try {
      return placements_[profile] = placementOf(profile, client_);
    } catch (const Refused&) {
      return placements_[profile] = {};
    }
  }

  const std::string& profile_;
  Client& client_;
  std::map<std::string, Placement> placements_;
};

}  // namespace

Seats seatsBeside(const std::string& profile, const Placement& placement,
                  const std::set<std::string>& protocols, Client& client) {
  return Beside(profile, placement, client).find(protocols);
}

script::Command toTake(const Seat& seat) {
  const auto& [profile, port, vid] = seat.attach;
  if (seat.service.empty()) return script::NoAttach{profile, port, vid};
  return script::NoApply{seat.service, static_cast<std::int32_t>(port)};
}

script::Command toPutBack(const Seat& seat) {
  if (seat.service.empty()) return seat.attach;
  return script::Apply{seat.service, static_cast<std::int32_t>(seat.attach.port)};
}

}  // namespace cli
