#include "cli/apply/state.h"

#include <algorithm>
#include <variant>

namespace cli {

namespace {

constexpr std::size_t longestProtocol = 30;
constexpr std::size_t longestProfile = 33;
constexpr std::size_t longestService = 65;

constexpr const char* done = "";
constexpr const char* noSuchProtocol = "there is no protocol of this name";
constexpr const char* noSuchProfile = "there is no profile of this name";
constexpr const char* wrongLength = "the name is empty or too long";
constexpr const char* inForce = "the profile is attached, and its rules cannot be changed";
constexpr const char* applied = "the service profile is applied on an interface";
constexpr const char* noSvid = "the VLAN profile has no S-VID on the interface";

bool isLong(const std::string& name, std::size_t longest) {
  return name.empty() || name.size() > longest;
}

// Takes commands for a state, as the daemon would.
class Taker {
 public:
  explicit Taker(State& state) : state_(state) {}

  const char* operator()(const script::Nothing& /*command*/) const { return done; }
  const char* operator()(const script::Exit& /*command*/) const { return done; }

  // ---- Protocols ----

  const char* operator()(const script::Protocol& command) const {
    if (command.name.size() > longestProtocol) return wrongLength;
    state_.protocols[command.name] = {command.mac, command.etherType, command.subType};
    return done;
  }
  const char* operator()(const script::NoProtocol& command) const {
    const auto hasRule = [&](const auto& profile) { return profile.second.contains(command.name); };
    if (std::any_of(state_.l2cpProfiles.begin(), state_.l2cpProfiles.end(), hasRule)) {
      return "rules of profiles refer to the protocol";
    }
    state_.protocols.erase(command.name);
    return done;
  }

  // ---- L2CP profiles ----

  const char* operator()(const script::L2cpProfile& command) const {
    if (command.name.size() > longestProfile) return wrongLength;
    state_.l2cpProfiles[command.name];
    return done;
  }
  const char* operator()(const script::NoL2cpProfile& command) const {
    if (!state_.l2cpProfiles.contains(command.name)) return noSuchProfile;
    if (state_.isAttached(command.name)) return "the profile is attached";
    const auto namesIt = [&](const auto& each) {
      return !command.name.empty() && each.second.l2cpProfile == command.name;
    };
    if (std::any_of(state_.services.begin(), state_.services.end(), namesIt)) {
      return "a service profile names the profile";
    }
    state_.l2cpProfiles.erase(command.name);
    return done;
  }
  const char* operator()(const script::Entry& command) const {
    const auto profile = state_.l2cpProfiles.find(command.profile);
    if (profile == state_.l2cpProfiles.end()) return noSuchProfile;
    if (!state_.protocols.contains(command.protocol)) return noSuchProtocol;
    const auto rule = profile->second.find(command.protocol);
    if (rule != profile->second.end() && rule->second == command.rule) return done;
    if (state_.isAttached(command.profile)) return inForce;
    profile->second[command.protocol] = command.rule;
    return done;
  }
  const char* operator()(const script::NoEntry& command) const {
    const auto profile = state_.l2cpProfiles.find(command.profile);
    if (profile == state_.l2cpProfiles.end()) return noSuchProfile;
    if (state_.isAttached(command.profile)) return inForce;
    return profile->second.erase(command.protocol) != 0
               ? done
               : "the profile has no rule for this protocol";
  }

  // ---- VLAN profiles ----

  const char* operator()(const script::VlanProfile& command) const {
    if (isLong(command.name, longestProfile)) return wrongLength;
    state_.vlanProfiles[command.name];
    return done;
  }
  const char* operator()(const script::NoVlanProfile& command) const {
    if (!state_.vlanProfiles.contains(command.name)) return noSuchProfile;
    const auto namesIt = [&](const auto& each) { return each.second.vlanProfile == command.name; };
    if (std::any_of(state_.services.begin(), state_.services.end(), namesIt)) {
      return "a service profile names the VLAN profile";
    }
    state_.vlanProfiles.erase(command.name);
    return done;
  }
  const char* operator()(const script::Svid& command) const {
    return setSvid(command.vlanProfile, command.interface, command.vid);
  }
  const char* operator()(const script::NoSvid& command) const {
    return setSvid(command.vlanProfile, command.interface, 0);
  }

  // ---- Service profiles ----

  const char* operator()(const script::ServiceProfile& command) const {
    if (isLong(command.name, longestService)) return wrongLength;
    state_.services[command.name];
    return done;
  }
  const char* operator()(const script::NoServiceProfile& command) const {
    if (!state_.services.contains(command.name)) return noSuchProfile;
    if (state_.isApplied(command.name)) return applied;
    state_.services.erase(command.name);
    return done;
  }
  const char* operator()(const script::ServiceVlanProfile& command) const {
    const std::string& name = command.vlanProfile;
    if (!name.empty() && !state_.vlanProfiles.contains(name)) {
      return "there is no VLAN profile of this name";
    }
    return setName(command.serviceProfile, &Service::vlanProfile, name);
  }
  const char* operator()(const script::ServiceL2cpProfile& command) const {
    if (command.l2cpProfile.size() > longestProfile) return wrongLength;
    return setName(command.serviceProfile, &Service::l2cpProfile, command.l2cpProfile);
  }

  // ---- Where they are in force ----

  const char* operator()(const script::Attach& command) const {
    const Attachment attachment{command.profile, command.vid};
    if (!state_.l2cpProfiles.contains(command.profile)) return noSuchProfile;
    if (!state_.isAttached(attachment, command.port)) {
      state_.ports[command.port].push_back(attachment);
    }
    return done;
  }
  const char* operator()(const script::NoAttach& command) const {
    return detach({command.profile, command.vid}, command.port);
  }
  const char* operator()(const script::Apply& command) const {
    const auto service = state_.services.find(command.serviceProfile);
    if (service == state_.services.end()) return noSuchProfile;
    if (state_.isApplied(command.serviceProfile, command.interface)) return done;
    const Attachment attachment = state_.attachedBy(command.serviceProfile, command.interface);
    if (!attachment.profile.empty()) {
      const auto port = static_cast<std::uint32_t>(command.interface);
      if (!state_.vlanProfiles.contains(service->second.vlanProfile)) {
        return "the service profile has no VLAN profile";
      }
      if (attachment.vid == 0) return noSvid;
      if (!state_.l2cpProfiles.contains(attachment.profile)) return noSuchProfile;
      if (state_.isAttached(attachment, port)) return "its L2CP profile is attached there already";
      state_.ports[port].push_back(attachment);
    }
    state_.applications[command.serviceProfile].insert(command.interface);
    return done;
  }
  const char* operator()(const script::NoApply& command) const {
    if (!state_.isApplied(command.serviceProfile, command.interface)) {
      return "the service profile is not applied there";
    }
    const Attachment attachment = state_.attachedBy(command.serviceProfile, command.interface);
    if (!attachment.profile.empty()) {
      const char* const refusal = detach(attachment, static_cast<std::uint32_t>(command.interface));
      if (*refusal != '\0') return refusal;
    }
    auto& interfaces = state_.applications[command.serviceProfile];
    interfaces.erase(command.interface);
    if (interfaces.empty()) state_.applications.erase(command.serviceProfile);
    return done;
  }

 private:
  const char* setSvid(const std::string& vlanProfile, std::int32_t interface,
                      std::uint16_t vid) const {
    const auto profile = state_.vlanProfiles.find(vlanProfile);
    if (profile == state_.vlanProfiles.end()) return noSuchProfile;
    const auto svid = profile->second.find(interface);
    if (vid == (svid == profile->second.end() ? 0 : svid->second)) return done;
    const auto isInForce = [&](const auto& each) {
      return each.second.vlanProfile == vlanProfile && state_.isApplied(each.first);
    };
    if (std::any_of(state_.services.begin(), state_.services.end(), isInForce)) {
      return "a service profile that names the VLAN profile is applied on an interface";
    }
    if (vid == 0) {
      profile->second.erase(svid);
    } else {
      profile->second[interface] = vid;
    }
    return done;
  }

  const char* setName(const std::string& service, std::string Service::*field,
                      const std::string& name) const {
    const auto found = state_.services.find(service);
    if (found == state_.services.end()) return noSuchProfile;
    if (found->second.*field == name) return done;
    if (state_.isApplied(service)) return applied;
    found->second.*field = name;
    return done;
  }

  const char* detach(const Attachment& attachment, std::uint32_t port) const {
    if (!state_.isAttached(attachment, port)) return "the profile is not attached there";
    std::erase(state_.ports[port], attachment);
    if (state_.ports[port].empty()) state_.ports.erase(port);
    return done;
  }

  State& state_;
};

}  // namespace

std::string State::take(const script::Command& command) {
  return std::visit(Taker(*this), command);
}

bool State::isApplied(std::string_view service) const {
  return applications.contains(std::string(service));
}

bool State::isApplied(std::string_view service, std::int32_t interface) const {
  const auto found = applications.find(std::string(service));
  return found != applications.end() && found->second.contains(interface);
}

bool State::isAttached(std::string_view profile) const {
  return std::any_of(ports.begin(), ports.end(), [&](const auto& port) {
    return std::any_of(port.second.begin(), port.second.end(),
                       [&](const Attachment& each) { return each.profile == profile; });
  });
}

bool State::isAttached(const Attachment& attachment, std::uint32_t port) const {
  const auto found = ports.find(port);
  return found != ports.end() &&
         std::find(found->second.begin(), found->second.end(), attachment) != found->second.end();
}

Attachment State::attachedBy(std::string_view service, std::int32_t interface) const {
  const auto found = services.find(std::string(service));
  if (found == services.end()) return {{}, 0};
  Attachment attachment{found->second.l2cpProfile, 0};
  const auto vlan = vlanProfiles.find(found->second.vlanProfile);
  if (vlan == vlanProfiles.end()) return attachment;
  const auto svid = vlan->second.find(interface);
  if (svid != vlan->second.end()) attachment.vid = svid->second;
  return attachment;
}

std::set<std::uint32_t> portsOf(const State& one, const State& other) {
  std::set<std::uint32_t> numbers;
  for (const State* state : {&one, &other}) {
    for (const auto& [port, attachments] : state->ports) numbers.insert(port);
    for (const auto& [service, interfaces] : state->applications) {
      numbers.insert(interfaces.begin(), interfaces.end());
    }
  }
  return numbers;
}

bool canMeet(const Attachment& one, const Attachment& other) {
  // The classifier takes no VLAN id above the one for whole ports, and goes without that condition.
  const auto holdsForAll = [](const Attachment& each) { return each.vid >= script::wholePort; };
  return one.vid == other.vid || holdsForAll(one) || holdsForAll(other);
}

}  // namespace cli
