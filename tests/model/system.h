#pragma once

/// What the module, reached in one way or another, and the model of it have in common: the
/// operations that the registries feel, and their answers as text.

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace model {

using Bytes = std::vector<unsigned char>;

/// What an operation answered: its result code, and line by line what it handed out.
struct Answer {
  int code = 0;
  std::vector<std::string> lines = {};

  bool operator==(const Answer&) const = default;
};

inline std::string text(const Answer& answer) {
  std::string result = std::to_string(answer.code);
  for (const std::string& line : answer.lines) result += " {" + line + "}";
  return result;
}

inline std::string yesNo(bool value) { return value ? "yes" : "no"; }

/// Lines of answers.
struct ProtocolLine {
  std::string name;
  bool protect;
  Bytes mac;
  std::optional<Bytes> mask;  ///< not shown by every way to the module
  unsigned int etherType;
  unsigned int subType;
  unsigned int useCount;

  std::string text() const {
    return fmt::format("\"{}\" protect={} mac={:02x} mask={} type={:04x} subtype={:02x} uses={}",
                       name, yesNo(protect), fmt::join(mac, ":"),
                       mask ? fmt::format("{:02x}", fmt::join(*mask, ":")) : "?", etherType,
                       subType, useCount);
  }
};

struct ProfileLine {
  std::string name;
  bool protect;
  bool dynamic;
  unsigned int useCount;
  std::optional<std::vector<std::string>> protocols;  ///< not shown by every way to the module

  std::string text() const {
    return fmt::format("\"{}\" protect={} dynamic={} uses={} of={}", name, yesNo(protect),
                       yesNo(dynamic), useCount,
                       protocols ? fmt::format("{}", fmt::join(*protocols, ",")) : "?");
  }
};

inline std::string entryLine(const std::string& protocol, unsigned int rule) {
  return fmt::format("\"{}\"={}", protocol, rule);
}

inline std::string placeLine(unsigned int port, unsigned int vid) {
  return fmt::format("{}/{}", port, vid);
}

inline std::string linkLine(unsigned int vid, const std::string& profile) {
  return fmt::format("{} \"{}\"", vid, profile);
}

/// A service profile and the interfaces where it is applied.
inline std::string serviceLine(const std::string& name, const std::string& vlanProfile,
                               const std::string& l2cpProfile, const std::vector<int>& interfaces) {
  return fmt::format("\"{}\" vlan=\"{}\" l2cp=\"{}\" on={}", name, vlanProfile, l2cpProfile,
                     fmt::join(interfaces, ","));
}

/// A VLAN profile with its S-VIDs by interface.
template <class Svids>
std::string vlanLine(const std::string& name, const Svids& svids) {
  std::string line = '"' + name + '"';
  for (const auto& [intf, svid] : svids) line += fmt::format(" {}:{}", intf, svid);
  return line;
}

/// The operations. They bear the module's names; those of the daemon itself begin with `service`
/// and `vlan`. A way to the module that lacks an operation leaves it out.
class System {
 public:
  virtual ~System() = default;

  virtual Answer protoAdd(const std::string& name, bool protect, const Bytes& mac,
                          const Bytes& mask, unsigned int etherType, unsigned int subType) = 0;
  virtual Answer protoDel(const std::string& name) = 0;
  virtual Answer protoRen(const std::string& from, const std::string& to) = 0;
  virtual Answer protoSetProtect(const std::string& name, bool protect) = 0;
  virtual Answer protoSetMac(const std::string& name, const Bytes& mac) = 0;
  virtual Answer protoSetEtherType(const std::string& name, unsigned int type) = 0;
  virtual Answer protoSetSubType(const std::string& name, unsigned int subType) = 0;
  virtual Answer protoGet(unsigned int index) = 0;
  virtual Answer protoGetAll() = 0;

  virtual Answer profileAdd(const std::string& name, bool protect, bool dynamic) = 0;
  virtual Answer profileDel(const std::string& name) = 0;
  virtual Answer profileRen(const std::string& from, const std::string& to) = 0;
  virtual Answer profileSetProtect(const std::string& name, bool protect) = 0;
  virtual Answer profileSetDynamic(const std::string& name, bool dynamic) = 0;
  virtual Answer profileGetByName(const std::string& /*name*/) { return missing(); }
  virtual Answer profileGet(unsigned int index) = 0;
  virtual Answer profileGetAll() = 0;
  virtual Answer profileStatus(const std::string& name) = 0;

  virtual Answer profileProtoAdd(const std::string& profile, const std::string& protocol,
                                 unsigned int rule) = 0;
  virtual Answer profileProtoSet(const std::string& profile, const std::string& protocol,
                                 unsigned int rule) = 0;
  virtual Answer profileProtoDel(const std::string& profile, const std::string& protocol) = 0;
  virtual Answer profileProtoDelAll(const std::string& profile) = 0;
  virtual Answer profileProtoGet(const std::string& profile, unsigned int index) = 0;
  virtual Answer profileGetProtocols(const std::string& profile) = 0;
  /// `profileProtoGet` for 0, 1, 2 and so on until it refuses.
  virtual Answer entries(const std::string& profile) {
    return walk([&](unsigned int index) { return profileProtoGet(profile, index); });
  }

  virtual Answer profileCopy(const std::string& source, const std::string& destination) = 0;
  virtual Answer profileEdit(const std::string& name) = 0;
  virtual Answer profileCompareContent(const std::string& /*first*/,
                                       const std::string& /*second*/) {
    return missing();
  }
  virtual Answer profileReplace(const std::string& /*target*/, const std::string& /*temporary*/) {
    return missing();
  }
  virtual Answer profileOnExit(const std::string& target, const std::string& temporary) = 0;
  virtual Answer dynamicProfilesDeleteAll() { return missing(); }

  virtual Answer profileGetPorts(const std::string& name) = 0;
  virtual Answer profileGetAllForPort(unsigned int port) = 0;
  virtual Answer profileGetServiceProfiles(const std::string& name) = 0;
  virtual Answer getL2cpProfilesPerServiceProfile(const std::string& /*name*/) { return missing(); }

  virtual Answer portAttach(const std::string& profile, unsigned int port, unsigned int vid) = 0;
  virtual Answer portDetach(const std::string& profile, unsigned int port, unsigned int vid) = 0;
  virtual Answer portGet(unsigned int port, unsigned int index) = 0;
  /// `portGet` for 0, 1, 2 and so on until it refuses.
  virtual Answer links(unsigned int port) {
    return walk([&](unsigned int index) { return portGet(port, index); });
  }
  /// All attachments, with how many positions each has on its list.
  virtual Answer attachments() { return missing(); }
  /// What the classifier holds for the port: pairs of full names, sorted.
  virtual Answer portEntries(unsigned int /*port*/) { return missing(); }

  virtual Answer profileApplyCheck(int /*intf*/, const std::string& /*service*/) {
    return missing();
  }
  virtual Answer profileApply(int /*intf*/, const std::string& /*service*/) { return missing(); }
  virtual Answer profileUnApply(int /*intf*/, const std::string& /*service*/) { return missing(); }
  virtual Answer profileIsApplied(const std::string& /*name*/) { return missing(); }
  virtual Answer profileAppliedIntfGet(const std::string& /*name*/) { return missing(); }

  /// Keeps a copy of the settings, in one of two places that hold the defaults at first.
  virtual Answer keepSettings(unsigned int /*place*/) { return missing(); }
  virtual Answer applySettings(unsigned int /*place*/) { return missing(); }
  virtual Answer applyDefaultSettings() = 0;
  virtual Answer scriptDynamicProfiles(bool /*on*/) { return missing(); }

  virtual Answer serviceProfiles() = 0;
  virtual Answer serviceProfileAdd(const std::string& name) = 0;
  virtual Answer serviceProfileDelete(const std::string& name) = 0;
  virtual Answer serviceProfileSetVlan(const std::string& name, const std::string& vlanProfile) = 0;
  virtual Answer serviceProfileSetL2cp(const std::string& name, const std::string& l2cpProfile) = 0;
  virtual Answer serviceProfileAttach(const std::string& name, int intf) = 0;
  virtual Answer serviceProfileDetach(const std::string& name, int intf) = 0;

  virtual Answer vlanProfiles() = 0;
  virtual Answer vlanProfileAdd(const std::string& name) = 0;
  virtual Answer vlanProfileDelete(const std::string& name) = 0;
  virtual Answer vlanProfileSetSvid(const std::string& name, int intf, int svid) = 0;
  /// Any number, put into the table of VLAN profiles behind the daemon's back.
  virtual Answer plantSvid(const std::string& /*name*/, int /*intf*/, int /*svid*/) {
    return missing();
  }

 protected:
  /// Lines of all positions, and the code of the refusal that ended the walk.
  template <class Get>
  static Answer walk(const Get& get) {
    Answer all;
    for (unsigned int index = 0;; ++index) {
      Answer one = get(index);
      all.code = one.code;
      all.lines.insert(all.lines.end(), one.lines.begin(), one.lines.end());
      if (one.code != 0) return all;
    }
  }

 private:
  [[noreturn]] static Answer missing() { throw std::logic_error("no such operation on this way"); }
};

}  // namespace model
