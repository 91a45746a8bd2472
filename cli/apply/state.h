#pragma once

/// A daemon's configuration as a value: what the command language can say about it.

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "script/script.h"

namespace cli {

/// Which frames are a protocol's.
struct Definition {
  script::Mac mac{};
  std::uint16_t etherType = script::noEtherType;
  std::uint8_t subType = script::noSubType;
  /// A subtype without an EtherType is not matched, and no line can say it.
  bool operator==(const Definition& other) const {
    return mac == other.mac && etherType == other.etherType &&
           (etherType == script::noEtherType || subType == other.subType);
  }
};

/// What a service profile names; empty for none.
struct Service {
  std::string vlanProfile;
  std::string l2cpProfile;
  bool operator==(const Service&) const = default;
};

/// An L2CP profile in force on some VLAN of a port.
struct Attachment {
  std::string profile;
  std::uint16_t vid = script::wholePort;
  bool operator==(const Attachment&) const = default;
  bool operator<(const Attachment& other) const {
    return std::tie(profile, vid) < std::tie(other.profile, other.vid);
  }
};

using Rules = std::map<std::string, script::Rule>;                   ///< by protocol
using Svids = std::map<std::int32_t, std::uint16_t>;                 ///< by interface
using Applications = std::map<std::string, std::set<std::int32_t>>;  ///< by service profile

/// Names and numbers are in order, but for the attachments of a port: those stand in the order in
/// which frames meet them.
struct State {
  std::map<std::string, Definition> protocols;
  std::map<std::string, Rules> l2cpProfiles;
  std::map<std::string, Svids> vlanProfiles;
  std::map<std::string, Service> services;
  std::map<std::uint32_t, std::vector<Attachment>> ports;  ///< only those with attachments
  Applications applications;                               ///< only those with interfaces

  /// What a command makes of this. Returns why the daemon would refuse it, in which case nothing
  /// has changed; else nothing. A protocol that is not there may be deleted again, so that a script
  /// that deletes a built-in one says the same however often it is applied.
  std::string take(const script::Command& command);

  bool isApplied(std::string_view service) const;
  bool isApplied(std::string_view service, std::int32_t interface) const;
  bool isAttached(std::string_view profile) const;
  bool isAttached(const Attachment& attachment, std::uint32_t port) const;

  /// What applying a service profile on an interface attaches there. Nothing is attached if the
  /// profile's name is empty; 0 stands for no S-VID.
  Attachment attachedBy(std::string_view service, std::int32_t interface) const;
};

/// The numbers of all ports and interfaces on which something is in force in one of the two.
std::set<std::uint32_t> portsOf(const State& one, const State& other);

/// Whether both can hold for the same frame, so that their order decides.
bool canMeet(const Attachment& one, const Attachment& other);

}  // namespace cli
