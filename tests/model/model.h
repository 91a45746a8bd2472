#pragma once

/// The registries once more, as simply as can be: what every operation does to them and answers.
/// Shares no code with the module.
///
/// Profiles keep their entries, and VLANs their profiles, in the order in which the objects lie in
/// memory, which nobody can know from outside. Where an answer depends on that order (which entry
/// is at a position, which of several rules of the same protocol name is shown, whether copies of
/// the same protocols are equal), the model is shown the answer that came and goes along with it if
/// some order explains it. It does not remember the orders, so that two such answers need not agree
/// with each other.

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/model/system.h"

namespace model {

class Model : public System {
 public:
  /// What answers show: over the wire, names are cut, and masks and entries of listed objects are
  /// not there.
  enum class Shown { entity, wire };

  /// `lastTemporary`: the name that the process's last successful `profileEdit` answered.
  explicit Model(Shown shown, std::string lastTemporary = "");

  /// The answer that came, before the operation is asked of the model; null to forget it.
  void see(const Answer* answer) { seen_ = answer; }

  // What there is, for whoever makes up operations.
  std::vector<std::string> protocolNames() const;
  std::vector<std::string> profileNames() const;
  std::vector<std::string> serviceNames() const;
  struct Attached {
    std::string profile;
    unsigned int port;
    unsigned int vid;
  };
  std::vector<Attached> attached() const;
  /// Profiles and the names of their protocols.
  std::vector<std::pair<std::string, std::string>> members() const;
  /// Service profiles and where they are applied.
  std::vector<std::pair<std::string, int>> applied() const;
  bool hasProtocol(const std::string& name) const { return live_.protocols.contains(name); }
  bool hasProfile(const std::string& name) const { return live_.profiles.contains(name); }

  Answer protoAdd(const std::string& name, bool protect, const Bytes& mac, const Bytes& mask,
                  unsigned int etherType, unsigned int subType) override;
  Answer protoDel(const std::string& name) override;
  Answer protoRen(const std::string& from, const std::string& to) override;
  Answer protoSetProtect(const std::string& name, bool protect) override;
  Answer protoSetMac(const std::string& name, const Bytes& mac) override;
  Answer protoSetEtherType(const std::string& name, unsigned int type) override;
  Answer protoSetSubType(const std::string& name, unsigned int subType) override;
  Answer protoGet(unsigned int index) override;
  Answer protoGetAll() override;

  Answer profileAdd(const std::string& name, bool protect, bool dynamic) override;
  Answer profileDel(const std::string& name) override;
  Answer profileRen(const std::string& from, const std::string& to) override;
  Answer profileSetProtect(const std::string& name, bool protect) override;
  Answer profileSetDynamic(const std::string& name, bool dynamic) override;
  Answer profileGetByName(const std::string& name) override;
  Answer profileGet(unsigned int index) override;
  Answer profileGetAll() override;
  Answer profileStatus(const std::string& name) override;

  Answer profileProtoAdd(const std::string& profile, const std::string& protocol,
                         unsigned int rule) override;
  Answer profileProtoSet(const std::string& profile, const std::string& protocol,
                         unsigned int rule) override;
  Answer profileProtoDel(const std::string& profile, const std::string& protocol) override;
  Answer profileProtoDelAll(const std::string& profile) override;
  Answer profileProtoGet(const std::string& profile, unsigned int index) override;
  Answer profileGetProtocols(const std::string& profile) override;
  Answer entries(const std::string& profile) override;

  Answer profileCopy(const std::string& source, const std::string& destination) override;
  Answer profileEdit(const std::string& name) override;
  Answer profileCompareContent(const std::string& first, const std::string& second) override;
  Answer profileReplace(const std::string& target, const std::string& temporary) override;
  Answer profileOnExit(const std::string& target, const std::string& temporary) override;
  Answer dynamicProfilesDeleteAll() override;

  Answer profileGetPorts(const std::string& name) override;
  Answer profileGetAllForPort(unsigned int port) override;
  Answer profileGetServiceProfiles(const std::string& name) override;
  Answer getL2cpProfilesPerServiceProfile(const std::string& name) override;

  Answer portAttach(const std::string& profile, unsigned int port, unsigned int vid) override;
  Answer portDetach(const std::string& profile, unsigned int port, unsigned int vid) override;
  Answer portGet(unsigned int port, unsigned int index) override;
  Answer links(unsigned int port) override;
  Answer attachments() override;
  Answer portEntries(unsigned int port) override;

  Answer profileApplyCheck(int intf, const std::string& service) override;
  Answer profileApply(int intf, const std::string& service) override;
  Answer profileUnApply(int intf, const std::string& service) override;
  Answer profileIsApplied(const std::string& name) override;
  Answer profileAppliedIntfGet(const std::string& name) override;

  Answer keepSettings(unsigned int place) override;
  Answer applySettings(unsigned int place) override;
  Answer applyDefaultSettings() override;
  Answer scriptDynamicProfiles(bool on) override;

  Answer serviceProfiles() override;
  Answer serviceProfileAdd(const std::string& name) override;
  Answer serviceProfileDelete(const std::string& name) override;
  Answer serviceProfileSetVlan(const std::string& name, const std::string& vlanProfile) override;
  Answer serviceProfileSetL2cp(const std::string& name, const std::string& l2cpProfile) override;
  Answer serviceProfileAttach(const std::string& name, int intf) override;
  Answer serviceProfileDetach(const std::string& name, int intf) override;

  Answer vlanProfiles() override;
  Answer vlanProfileAdd(const std::string& name) override;
  Answer vlanProfileDelete(const std::string& name) override;
  Answer vlanProfileSetSvid(const std::string& name, int intf, int svid) override;
  Answer plantSvid(const std::string& name, int intf, int svid) override;

 private:
  struct Protocol {
    std::string name;
    bool protect = false;
    Bytes mac;
    Bytes mask;
    unsigned int etherType = 0;
    unsigned int subType = 0;
    std::uint32_t useCount = 0;
  };

  /// The rule is one of these: more than one where a profile was made again from a copy that had
  /// several entries of the same protocol name, and only the first in memory counted.
  using Rules = std::set<unsigned int>;

  struct Profile {
    std::string name;
    bool protect = false;
    bool dynamic = false;
    std::uint32_t useCount = 0;
    std::map<std::shared_ptr<Protocol>, Rules> entries;
    std::set<unsigned int> interfaces;

    void setProtect(bool on);
    void setDynamic(bool on);
  };

  using Attachments = std::vector<std::shared_ptr<Profile>>;
  using Vlans = std::map<unsigned int, Attachments>;

  struct Settings {
    std::map<std::string, std::shared_ptr<Protocol>> protocols;
    std::map<std::string, std::shared_ptr<Profile>> profiles;
    std::map<unsigned int, Vlans> ports;
  };

  struct ServiceProfile {
    /// Its own record of its name; empty if it came into being by being asked for.
    std::string name;
    std::string vlanProfile;
    std::string l2cpProfile;
  };

  /// Port entries from 200 on, by full names, and the catch-all behind them.
  struct Entries {
    std::multiset<std::pair<std::string, std::string>> list;
    bool catchAll = false;
  };

  /// Service profiles that use an L2CP profile, as they are before it is replaced.
  struct Use {
    std::vector<std::string> services;
    std::map<int, std::list<std::string>> applied;
  };

  static Settings defaults();
  static Settings copy(const Settings& settings);

  // What answers show.
  std::string shownName(const std::string& name) const;
  std::string shown(const Protocol& protocol) const;
  std::string shown(const Profile& profile) const;
  Answer shownLinks(unsigned int port) const;
  /// Adds lines whose order among themselves is that of memory.
  void addInAnyOrder(Answer& answer, std::vector<std::string> lines) const;
  /// The candidate that was seen as an answer's line; if none was, the first.
  const std::string& any(const std::vector<std::string>& candidates) const;

  Protocol* protocol(const std::string& name);
  Profile* profile(const std::string& name);
  std::shared_ptr<Profile> insertIfAbsent(const std::string& name);
  int whyUnchangeable(const Profile& profile) const;
  /// `codeIfSame`: the answer that shows that the module takes the contents for the same.
  bool sameContent(const std::string& first, const std::string& second, int codeIfSame);
  Use useOf(const std::string& profile);
  bool takeOff(const Use& use);
  bool putOn(const Use& use, const std::string& profile);

  void detach(const std::shared_ptr<Profile>& profile, unsigned int port, unsigned int vid);
  void apply(const Settings& wanted);
  void addEntry(unsigned int port, std::pair<std::string, std::string> names);
  void removeEntry(unsigned int port, const std::pair<std::string, std::string>& names);

  /// The S-VID of a service profile on an interface, and 0; or why there is none.
  std::pair<int, int> svidOf(int intf, const ServiceProfile& service, int codeIfNone) const;
  bool isApplied(const std::string& service) const;

  Shown shown_;
  const Answer* seen_ = nullptr;
  Settings live_ = defaults();
  std::array<Settings, 2> kept_ = {defaults(), defaults()};
  std::string lastTemporary_;
  bool scripting_ = false;

  std::map<std::string, ServiceProfile> services_;
  std::map<std::string, std::map<int, int>> vlans_;
  std::map<int, std::list<std::string>> applied_;

  std::map<unsigned int, Entries> classifier_;
  /// By twice the port number plus 1.
  std::map<std::uint32_t, unsigned int> entryCounts_;
  /// A port had more entries than there are positions: what the classifier holds is not followed
  /// any further.
  bool crowded_ = false;
};

}  // namespace model
