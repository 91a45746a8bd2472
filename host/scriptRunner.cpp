#include "host/scriptRunner.h"

#include <fmt/core.h>

#include <cerrno>
#include <variant>

#include "host/profiles.h"
#include "l2cp/l2cp.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"

namespace {

constexpr int notAttachedOnVlan = 20;
constexpr int noSvidToApply = 99;
constexpr int noSvidToUnApply = 64;

L2CP& module() { return singleton<L2CP>::instance(); }
servprofile& services() { return singleton<servprofile>::instance(); }
vlanprofile& vlans() { return singleton<vlanprofile>::instance(); }

std::string reason(int answer) {
  switch (-answer) {
    case 0:
      return {};
    case EPERM:
      return "the profile is protected";
    case ENOENT:
      return "there is no profile or protocol of this name";
    case EBADF:
      return "it is not attached or applied there";
    case EBUSY:
      return "it is in use";
    case EEXIST:
      return "it exists already";
    case ENODEV:
      return "there is no such protocol or VLAN profile, or nothing is attached to the port";
    case EINVAL:
      return "a name is empty or too long, or a number is out of range, or the profile has no such "
             "entry";
    case notAttachedOnVlan:
      return "nothing is attached to the port on this VLAN";
    case noSvidToApply:
    case noSvidToUnApply:
      return "the VLAN profile has no S-VID on the interface";
    default:
      return fmt::format("the answer was {}", answer);
  }
}

// What is so already needs no change.
int unless(int already, int answer) { return answer == already ? 0 : answer; }

script::Rule scriptRule(L2CP::Rule rule) { return static_cast<script::Rule>(rule); }

struct Runner {
  int operator()(const script::Nothing& /*command*/) const { return 0; }
  int operator()(const script::Exit& /*command*/) const { return 0; }

  int operator()(const script::Protocol& command) const {
    const char* const name = command.name.c_str();
    if (module().settings.protocols.contains(command.name)) {
      script::Mac mac = command.mac;
      module().protoSetMac(name, mac.data());
      module().protoSetEtherType(name, command.etherType);
      return module().protoSetSubType(name, command.subType);
    }
    return module().protoAdd(name, false, command.mac.data(), L2CP::m_anyMac, command.etherType,
                             command.subType);
  }
  int operator()(const script::NoProtocol& command) const {
    return module().protoDel(command.name.c_str());
  }

  int operator()(const script::L2cpProfile& command) const {
    return unless(-EEXIST, module().profileAdd(command.name.c_str(), false, false));
  }
  int operator()(const script::NoL2cpProfile& command) const {
    return module().profileDel(command.name.c_str());
  }
  int operator()(const script::Entry& command) const {
    const char* const profile = command.profile.c_str();
    const char* const protocol = command.protocol.c_str();
    const auto rule = static_cast<L2CP::Rule>(command.rule);
    std::map<std::string, L2CP::Rule> entries;
    const int found = module().profileGetProtocols(profile, entries);
    if (found != 0) return found;
    const auto entry = entries.find(command.protocol);
    if (entry == entries.end()) return module().profileProtoAdd(profile, protocol, rule);
    if (scriptRule(entry->second) == command.rule) return 0;
    return module().profileProtoSet(profile, protocol, rule);
  }
  int operator()(const script::NoEntry& command) const {
    return module().profileProtoDel(command.profile.c_str(), command.protocol.c_str());
  }

  int operator()(const script::VlanProfile& command) const {
    return unless(-EEXIST, profiles::addVlanProfile(command.name));
  }
  int operator()(const script::NoVlanProfile& command) const {
    return unless(-ENOENT, profiles::deleteVlanProfile(command.name));
  }
  int operator()(const script::Svid& command) const {
    const auto profile = vlans().vlanProfiles.find(command.vlanProfile);
    if (profile == vlans().vlanProfiles.end()) return -ENOENT;
    if (vlans().vlanProfileSvidGet(command.interface, profile->second.id) == command.vid) return 0;
    return profiles::setSvid(command.vlanProfile, command.interface, command.vid);
  }
  int operator()(const script::NoSvid& command) const {
    return profiles::setSvid(command.vlanProfile, command.interface, 0);
  }

  int operator()(const script::ServiceProfile& command) const {
    return unless(-EEXIST, profiles::addServiceProfile(command.name));
  }
  int operator()(const script::NoServiceProfile& command) const {
    return unless(-ENOENT, profiles::deleteServiceProfile(command.name));
  }
  int operator()(const script::ServiceVlanProfile& command) const {
    const auto profile = services().servProfiles.find(command.serviceProfile);
    if (profile == services().servProfiles.end()) return -ENOENT;
    if (profile->second.vlanProfile == command.vlanProfile) return 0;
    return profiles::setVlanProfile(command.serviceProfile, command.vlanProfile);
  }
  int operator()(const script::ServiceL2cpProfile& command) const {
    const auto profile = services().servProfiles.find(command.serviceProfile);
    if (profile == services().servProfiles.end()) return -ENOENT;
    if (profile->second.l2cpProfile == command.l2cpProfile) return 0;
    return services().servProfileL2cpProfile(command.serviceProfile, command.l2cpProfile);
  }

  int operator()(const script::Attach& command) const {
    return unless(-EBUSY, module().portAttach(command.profile, command.port, command.vid));
  }
  int operator()(const script::NoAttach& command) const {
    return module().portDetach(command.profile, command.port, command.vid);
  }
  int operator()(const script::Apply& command) const {
    return unless(-EEXIST, services().servProfileAttach(command.serviceProfile, command.interface));
  }
  int operator()(const script::NoApply& command) const {
    return services().servProfileDetach(command.serviceProfile, command.interface);
  }
};

}  // namespace

std::string runCommand(const script::Command& command) {
  return reason(std::visit(Runner{}, command));
}
