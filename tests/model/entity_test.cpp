// The entity and its model in lock step, in the real framework, on the recording classifier.
//
//     test_model_entity                                   the runs of the test suite
//     test_model_entity --seed=7 --length=2000 --runs=1   others
//     ... --print                                         shows each operation before it is run
//
// A difference is reported with the shortest sequence of operations found that makes one.

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/log.h"
#include "host/profiles.h"
#include "l2cp/l2cp.h"
#include "platform/CliConfig.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"
#include "tests/model/lockstep.h"
#include "tests/support/recording_classifier.h"
#include "tests/support/rpc_service.h"

namespace {

using model::Answer;
using model::Bytes;

servprofile& services() { return singleton<servprofile>::instance(); }
vlanprofile& vlans() { return singleton<vlanprofile>::instance(); }

std::string shown(const L2CP::Protocol& proto) {
  return model::ProtocolLine{proto.name,
                             proto.protect,
                             Bytes(proto.mac, proto.mac + 6),
                             Bytes(proto.macMask, proto.macMask + 6),
                             proto.etherType,
                             proto.subType,
                             proto.useCount}
      .text();
}

std::string shown(const L2CP::Profile& profile) {
  std::vector<std::string> protocols;
  for (const auto& [proto, rule] : profile.protocols) protocols.push_back(proto->name);
  std::sort(protocols.begin(), protocols.end());
  std::string text = model::ProfileLine{profile.name, profile.protect, profile.dynamic,
                                        profile.useCount, protocols}
                         .text();
  // A copy is applied nowhere.
  return profile.interfaces.empty() ? text : text + " applied";
}

L2CP::Rule rule(unsigned int number) { return static_cast<L2CP::Rule>(number); }

/// Fills an answer with lines, unless the operation refused and left the output alone.
template <class Output, class Line>
Answer listed(int code, const Output& output, const Line& line) {
  Answer answer{code};
  for (const auto& element : output) answer.lines.push_back(line(element));
  return answer;
}

/// The module through its entity.
class Entity : public model::System {
 public:
  Entity() {
    hostlog::setLevel(hostlog::Level::error);
    support::RpcService::instance().reset();
    classifier_.reset();
    emptyFramework();
    profiles::setModule(
        {[this](int intf, const std::string& name) {
           return entity_.profileApplyCheck(intf, name);
         },
         [this](int intf, const std::string& name) { return entity_.profileApply(intf, name); },
         [this](int intf, const std::string& name) { return entity_.profileUnApply(intf, name); }});
    if (!entity_.start()) throw std::runtime_error("the entity does not start");
  }
  ~Entity() override {
    entity_.stop();
    emptyFramework();
  }
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

  Answer protoAdd(const std::string& name, bool protect, const Bytes& mac, const Bytes& mask,
                  unsigned int etherType, unsigned int subType) override {
    return {entity_.protoAdd(name.c_str(), protect, mac.data(), mask.data(),
                             static_cast<unsigned short>(etherType),
                             static_cast<unsigned char>(subType))};
  }
  Answer protoDel(const std::string& name) override { return {entity_.protoDel(name.c_str())}; }
  Answer protoRen(const std::string& from, const std::string& to) override {
    return {entity_.protoRen(from.c_str(), to.c_str())};
  }
  Answer protoSetProtect(const std::string& name, bool protect) override {
    return {entity_.protoSetProtect(name.c_str(), protect)};
  }
  Answer protoSetMac(const std::string& name, const Bytes& mac) override {
    Bytes bytes = mac;
    return {entity_.protoSetMac(name.c_str(), bytes.data())};
  }
  Answer protoSetEtherType(const std::string& name, unsigned int type) override {
    return {entity_.protoSetEtherType(name.c_str(), static_cast<unsigned short>(type))};
  }
  Answer protoSetSubType(const std::string& name, unsigned int subType) override {
    return {entity_.protoSetSubType(name.c_str(), static_cast<unsigned char>(subType))};
  }
  Answer protoGet(unsigned int index) override {
    std::list<L2CP::Protocol> got(1);
    const int code = entity_.protoGet(index, got.front());
    if (code != 0) got.clear();
    return listed(code, got, [](const auto& proto) { return shown(proto); });
  }
  Answer protoGetAll() override {
    std::list<L2CP::Protocol> got;
    const int code = entity_.protoGetAll(got);
    return listed(code, got, [](const auto& proto) { return shown(proto); });
  }

  Answer profileAdd(const std::string& name, bool protect, bool dynamic) override {
    return {entity_.profileAdd(name.c_str(), protect, dynamic)};
  }
  Answer profileDel(const std::string& name) override { return {entity_.profileDel(name.c_str())}; }
  Answer profileRen(const std::string& from, const std::string& to) override {
    return {entity_.profileRen(from.c_str(), to.c_str())};
  }
  Answer profileSetProtect(const std::string& name, bool protect) override {
    return {entity_.profileSetProtect(name.c_str(), protect)};
  }
  Answer profileSetDynamic(const std::string& name, bool dynamic) override {
    return {entity_.profileSetDynamic(name.c_str(), dynamic)};
  }
  Answer profileGetByName(const std::string& name) override {
    std::list<L2CP::Profile> got(1);
    const int code = entity_.profileGet(name.c_str(), got.front());
    if (code != 0) got.clear();
    return listed(code, got, [](const auto& profile) { return shown(profile); });
  }
  Answer profileGet(unsigned int index) override {
    std::list<L2CP::Profile> got(1);
    const int code = entity_.profileGet(index, got.front());
    if (code != 0) got.clear();
    return listed(code, got, [](const auto& profile) { return shown(profile); });
  }
  Answer profileGetAll() override {
    std::list<L2CP::Profile> got;
    const int code = entity_.profileGetAll(got);
    return listed(code, got, [](const auto& profile) { return shown(profile); });
  }
  Answer profileStatus(const std::string& name) override {
    return {entity_.l2cpProfileStatus(name.c_str())};
  }

  Answer profileProtoAdd(const std::string& profile, const std::string& protocol,
                         unsigned int number) override {
    return {entity_.profileProtoAdd(profile.c_str(), protocol.c_str(), rule(number))};
  }
  Answer profileProtoSet(const std::string& profile, const std::string& protocol,
                         unsigned int number) override {
    return {entity_.profileProtoSet(profile.c_str(), protocol.c_str(), rule(number))};
  }
  Answer profileProtoDel(const std::string& profile, const std::string& protocol) override {
    return {entity_.profileProtoDel(profile.c_str(), protocol.c_str())};
  }
  Answer profileProtoDelAll(const std::string& profile) override {
    return {entity_.profileProtoDelAll(profile.c_str())};
  }
  Answer profileProtoGet(const std::string& profile, unsigned int index) override {
    std::map<std::string, L2CP::Rule> got;
    std::string name = "untouched";
    auto number = rule(42);
    const int code = entity_.profileProtoGet(profile.c_str(), index, name, number);
    if (code == 0 || name != "untouched" || number != rule(42)) got[name] = number;
    return listed(code, got, entryLine);
  }
  Answer profileGetProtocols(const std::string& profile) override {
    std::map<std::string, L2CP::Rule> got;
    const int code = entity_.profileGetProtocols(profile.c_str(), got);
    return listed(code, got, entryLine);
  }

  Answer profileCopy(const std::string& source, const std::string& destination) override {
    return {entity_.l2cpProfileCopy(source.c_str(), destination.c_str())};
  }
  Answer profileEdit(const std::string& name) override {
    const rpcl2cpProfEditResult result = entity_.l2cpProfileEdit(name.c_str());
    return {result.error, {result.name}};
  }
  Answer profileCompareContent(const std::string& first, const std::string& second) override {
    return {entity_.l2cpProfileCompareContent(first, second)};
  }
  Answer profileReplace(const std::string& target, const std::string& temporary) override {
    return {entity_.l2cpProfileReplace(target.c_str(), temporary.c_str())};
  }
  Answer profileOnExit(const std::string& target, const std::string& temporary) override {
    return {entity_.l2cpProfileOnExit(target.c_str(), temporary.c_str())};
  }
  Answer dynamicProfilesDeleteAll() override { return {entity_.l2cpDynamicProfilesDeleteAll()}; }

  Answer profileGetPorts(const std::string& name) override {
    std::list<std::pair<unsigned int, unsigned short>> got;
    const int code = entity_.profileGetPorts(name.c_str(), got);
    return listed(code, got,
                  [](const auto& place) { return model::placeLine(place.first, place.second); });
  }
  Answer profileGetAllForPort(unsigned int port) override {
    std::list<L2CP::Profile> got;
    const int code = entity_.profileGetAllForPort(port, got);
    return listed(code, got, [](const auto& profile) { return shown(profile); });
  }
  Answer profileGetServiceProfiles(const std::string& name) override {
    std::list<std::string> got;
    const int code = entity_.profileGetServiceProfiles(name.c_str(), got);
    return listed(code, got, [](const auto& service) { return service; });
  }
  Answer getL2cpProfilesPerServiceProfile(const std::string& name) override {
    std::map<std::string, std::string> got{{"cleared", "first"}};
    const int code = entity_.getL2cpProfilesPerServiceProfile(name, got);
    return listed(code, got, [&](const auto& element) {
      return element.second == name ? element.first : element.first + " of " + element.second;
    });
  }

  Answer portAttach(const std::string& profile, unsigned int port, unsigned int vid) override {
    return {entity_.portAttach(profile, port, static_cast<unsigned short>(vid))};
  }
  Answer portDetach(const std::string& profile, unsigned int port, unsigned int vid) override {
    return {entity_.portDetach(profile, port, static_cast<unsigned short>(vid))};
  }
  Answer portGet(unsigned int port, unsigned int index) override {
    std::map<unsigned short, std::string> got;
    unsigned short vid = 4242;
    std::string name = "untouched";
    const int code = entity_.portGet(port, index, vid, name);
    if (code == 0 || vid != 4242 || name != "untouched") got[vid] = name;
    return listed(code, got,
                  [](const auto& link) { return model::linkLine(link.first, link.second); });
  }
  Answer attachments() override {
    Answer all;
    for (const auto& [port, portVlans] : entity_.settings.ports) {
      for (const auto& [vid, attached] : portVlans) {
        for (const auto& [profile, positions] : attached) {
          all.lines.push_back(model::placeLine(port, vid) + " " + profile->name + " @" +
                              std::to_string(positions.size()));
        }
      }
    }
    return all;
  }
  Answer portEntries(unsigned int port) override {
    Answer all;
    const std::string number = std::to_string(static_cast<int>(port));
    for (const auto& [position, entry] : classifier_.entries) {
      const auto& [portText, kind, index] = position;
      if (portText != number) continue;
      all.lines.push_back(support::fullName(entry.selector) + " --> " +
                          support::fullName(entry.actionList));
    }
    // Positions follow the order of protocols in memory; the catch-all alone has one of its own.
    const auto catchAll = classifier_.entries.find({number, 1, 299});
    const auto end = all.lines.end() - (catchAll == classifier_.entries.end() ? 0 : 1);
    std::sort(all.lines.begin(), end);
    classifier_.take();
    return all;
  }

  Answer profileApplyCheck(int intf, const std::string& service) override {
    return {entity_.profileApplyCheck(intf, service)};
  }
  Answer profileApply(int intf, const std::string& service) override {
    return {entity_.profileApply(intf, service)};
  }
  Answer profileUnApply(int intf, const std::string& service) override {
    return {entity_.profileUnApply(intf, service)};
  }
  Answer profileIsApplied(const std::string& name) override {
    return {entity_.profileIsApplied(name) ? 1 : 0};
  }
  Answer profileAppliedIntfGet(const std::string& name) override {
    std::set<unsigned int> got{4242};
    const bool known = entity_.profileAppliedIntfGet(name, got);
    if (!known) got.erase(4242);
    return listed(known ? 1 : 0, got, [](unsigned int port) { return std::to_string(port); });
  }

  Answer keepSettings(unsigned int place) override {
    kept_[place] = entity_.settings;
    return {0};
  }
  Answer applySettings(unsigned int place) override {
    return {entity_.applySettings("bridge", kept_[place])};
  }
  Answer applyDefaultSettings() override { return {entity_.applyDefaultSettings() ? 1 : 0}; }
  Answer scriptDynamicProfiles(bool on) override {
    singleton<CliConfig>::instance().setScriptingDynamicProfilesMode(on);
    return {0};
  }

  Answer serviceProfiles() override {
    Answer all;
    for (const auto& [name, info] : services().servProfiles) {
      std::vector<int> interfaces;
      for (const auto& [intf, names] : profiles::applied()) {
        if (std::count(names.begin(), names.end(), name) != 0) interfaces.push_back(intf);
      }
      all.lines.push_back(model::serviceLine(name, info.vlanProfile, info.l2cpProfile, interfaces));
    }
    return all;
  }
  Answer serviceProfileAdd(const std::string& name) override {
    return {profiles::addServiceProfile(name)};
  }
  Answer serviceProfileDelete(const std::string& name) override {
    return {profiles::deleteServiceProfile(name)};
  }
  Answer serviceProfileSetVlan(const std::string& name, const std::string& vlanProfile) override {
    return {profiles::setVlanProfile(name, vlanProfile)};
  }
  Answer serviceProfileSetL2cp(const std::string& name, const std::string& l2cpProfile) override {
    return {services().servProfileL2cpProfile(name, l2cpProfile)};
  }
  Answer serviceProfileAttach(const std::string& name, int intf) override {
    return {services().servProfileAttach(name, intf)};
  }
  Answer serviceProfileDetach(const std::string& name, int intf) override {
    return {services().servProfileDetach(name, intf)};
  }

  Answer vlanProfiles() override {
    Answer all;
    for (const auto& [name, info] : vlans().vlanProfiles) {
      all.lines.push_back(model::vlanLine(name, info.svids));
    }
    return all;
  }
  Answer vlanProfileAdd(const std::string& name) override {
    return {profiles::addVlanProfile(name)};
  }
  Answer vlanProfileDelete(const std::string& name) override {
    return {profiles::deleteVlanProfile(name)};
  }
  Answer vlanProfileSetSvid(const std::string& name, int intf, int svid) override {
    return {profiles::setSvid(name, intf, svid)};
  }
  Answer plantSvid(const std::string& name, int intf, int svid) override {
    const auto found = vlans().vlanProfiles.find(name);
    if (found == vlans().vlanProfiles.end()) return {-2};
    found->second.svids[intf] = svid;
    return {0};
  }

 private:
  static std::string entryLine(const std::pair<const std::string, L2CP::Rule>& entry) {
    return model::entryLine(entry.first, static_cast<unsigned int>(entry.second));
  }

  /// The framework's tables belong to the process: the next entity shall find nothing in them.
  static void emptyFramework() {
    profiles::setModule({});
    const auto applied = profiles::applied();
    for (const auto& [intf, names] : applied) {
      for (const std::string& name : names) services().servProfileDetach(name, intf);
    }
    services().servProfiles.clear();
    vlans().vlanProfiles.clear();
    singleton<CliConfig>::instance().setScriptingDynamicProfilesMode(false);
  }

  support::RecordingClassifier& classifier_ = support::RecordingClassifier::instance();
  L2CP entity_;
  L2CP::Settings kept_[2];
};

class EntityBench : public model::Bench {
 public:
  model::System& module() override { return entity_; }
  model::System& expected() override { return model_; }
  model::Model& state() override { return model_; }

 private:
  Entity entity_;
  /// A refused edit shows the name of the last success in the process.
  model::Model model_{model::Model::Shown::entity,
                      entity_.profileEdit("no such profile").lines.front()};
};

TEST(Entity, DoesWhatItsModelDoes) {
  const model::Options options = model::options({.seed = 1, .length = 3000, .runs = 20});
  const std::string report = model::differences(options, model::Way::entity,
                                                [] { return std::make_unique<EntityBench>(); });
  EXPECT_TRUE(report.empty()) << report;
}

}  // namespace
