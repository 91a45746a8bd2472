#include "tests/model/operation.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <utility>

namespace model {

namespace {

/// Pools of arguments. What shall be drawn more often stands there more than once.
class Draw {
 public:
  Draw(std::mt19937_64& random, Way way, const Model& state)
      : random_(random), way_(way), state_(state) {}

  unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }
  bool oneIn(unsigned int count) { return below(count) == 0; }
  bool yes() { return oneIn(2); }

  template <class Value>
  Value of(const std::vector<Value>& pool) {
    return pool[below(static_cast<unsigned int>(pool.size()))];
  }

  std::string protocol() {
    if (oneIn(4)) return present(state_.protocolNames(), 30);
    return of<std::string>({"A", "A", "A", "B", "B", "B", "C", "LLDP", "LLDP", "xSTP", "OAM-CFM",
                            "", std::string(30, 'p'), std::string(31, 'q'), std::string(33, 'r')});
  }

  std::string profile() { return profile(way_ == Way::wire ? 33 : 200); }
  /// Where a name may be as long as it likes.
  std::string anyProfile() { return oneIn(8) ? std::string(40, 'u') : profile(200); }
  std::string temporary() {
    return of<std::string>({"temp_l2cp_prof_1", "temp_l2cp_prof_1", "temp_l2cp_prof_2"});
  }

  std::string service() {
    if (oneIn(4)) return present(state_.serviceNames(), 65);
    return of<std::string>({"gold", "gold", "gold", "silver", "silver", "DEFAULT", "",
                            std::string(65, 's'), std::string(66, 't')});
  }

  std::string vlanProfile() {
    return of<std::string>(
        {"V", "V", "V", "V", "W", "W", "", std::string(33, 'v'), std::string(34, 'w')});
  }

  unsigned int port() { return of<unsigned int>({0, 1, 1, 2, 3, 3, 0x80000003, 0xffffffff}); }
  unsigned int vid() { return of<unsigned int>({0, 100, 100, 100, 200, 4095, 65535}); }
  int intf() { return of<int>({1, 1, 1, 2, 2, 3, 0, -1}); }
  int svid() { return of<int>({100, 100, 100, 200, 1, 4094, 0, 4095, -1}); }
  unsigned int index() {
    return of<unsigned int>({0, 0, 0, 1, 1, 2, 3, 5, 13, 14, 15, 100, 0xffffffff});
  }
  unsigned int rule() { return of<unsigned int>({0, 1, 2, 0, 1, 2, 3, 0xffffffff}); }
  unsigned int etherType() { return of<unsigned int>({0x88cc, 0x8809, 0xffff, 0}); }
  unsigned int subType() { return of<unsigned int>({1, 3, 0xff, 0}); }
  unsigned int place() { return below(2); }
  Bytes mac() {
    Bytes mac{0x01, 0x80, 0xc2, 0x00, 0x00, of<unsigned char>({0x00, 0x0e, 0xff})};
    // The wire carries shorter ones as well.
    if (way_ == Way::wire && oneIn(8)) mac.resize(below(6));
    return mac;
  }
  Bytes mask() { return {0xff, 0xff, 0xff, 0xff, 0xff, of<unsigned char>({0xff, 0xf0})}; }

  /// A profile with port and VLAN: half of the time one that is attached there.
  Model::Attached attached() {
    auto all = state_.attached();
    if (way_ == Way::wire) {
      std::erase_if(all, [](const Model::Attached& one) { return one.profile.size() > 33; });
    }
    return !all.empty() && yes() ? of(all) : Model::Attached{profile(), port(), vid()};
  }

  /// A profile with a protocol: half of the time one that has an entry for it.
  std::pair<std::string, std::string> entry() {
    auto all = state_.members();
    if (way_ == Way::wire) {
      std::erase_if(all, [](const auto& one) { return one.first.size() > 33; });
    }
    return !all.empty() && yes() ? of(all) : std::pair(profile(), protocol());
  }

  /// A service profile with an interface: half of the time one that is applied there.
  std::pair<std::string, int> applied() {
    const auto all = state_.applied();
    return !all.empty() && yes() ? of(all) : std::pair(service(), intf());
  }

 private:
  std::string profile(std::size_t longest) {
    if (oneIn(3)) return present(state_.profileNames(), longest);
    if (longest > 33 && oneIn(16)) return std::string(40, 'u');
    return of<std::string>({"P", "P", "P", "P", "Q", "Q", "Q", "R", "R", "DEFAULT", "", temporary(),
                            temporary(), std::string(30, 'n'), std::string(33, 'm')});
  }

  std::string present(std::vector<std::string> names, std::size_t longest) {
    std::erase_if(names, [&](const std::string& name) { return name.size() > longest; });
    return names.empty() ? "P" : of(names);
  }

  std::mt19937_64& random_;
  Way way_;
  const Model& state_;
};

enum class Ways { both, entityAlone };

struct Choice {
  unsigned int weight;
  Ways ways;
  Operation (*draw)(Draw& draw);
};

const Choice choices[] = {
    {6, Ways::both,
     [](Draw& draw) {
       return Operation{"protoAdd", &System::protoAdd, draw.protocol(),  draw.yes(),
                        draw.mac(), draw.mask(),       draw.etherType(), draw.subType()};
     }},
    {4, Ways::both,
     [](Draw& draw) {
       return Operation{"protoDel", &System::protoDel, draw.protocol()};
     }},
    {3, Ways::both,
     [](Draw& draw) {
       return Operation{"protoRen", &System::protoRen, draw.protocol(), draw.protocol()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"protoSetProtect", &System::protoSetProtect, draw.protocol(), draw.yes()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"protoSetMac", &System::protoSetMac, draw.protocol(), draw.mac()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"protoSetEtherType", &System::protoSetEtherType, draw.protocol(),
                        draw.etherType()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"protoSetSubType", &System::protoSetSubType, draw.protocol(),
                        draw.subType()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"protoGet", &System::protoGet, draw.index()};
     }},
    {1, Ways::both,
     [](Draw&) {
       return Operation{"protoGetAll", &System::protoGetAll};
     }},

    {8, Ways::both,
     [](Draw& draw) {
       const bool protect = draw.oneIn(4);
       const bool dynamic = draw.oneIn(4);
       return Operation{"profileAdd", &System::profileAdd, draw.profile(), protect, dynamic};
     }},
    {4, Ways::both,
     [](Draw& draw) {
       return Operation{"profileDel", &System::profileDel, draw.profile()};
     }},
    {3, Ways::both,
     [](Draw& draw) {
       return Operation{"profileRen", &System::profileRen, draw.profile(), draw.profile()};
     }},
    {3, Ways::both,
     [](Draw& draw) {
       const bool on = draw.oneIn(3);
       return Operation{"profileSetProtect", &System::profileSetProtect, draw.profile(), on};
     }},
    {2, Ways::both,
     [](Draw& draw) {
       const bool on = draw.oneIn(3);
       return Operation{"profileSetDynamic", &System::profileSetDynamic, draw.profile(), on};
     }},
    {1, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"profileGet", &System::profileGetByName, draw.profile()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"profileGet", &System::profileGet, draw.index()};
     }},
    {1, Ways::both,
     [](Draw&) {
       return Operation{"profileGetAll", &System::profileGetAll};
     }},
    {2, Ways::both,
     [](Draw& draw) {
       return Operation{"l2cpProfileStatus", &System::profileStatus, draw.anyProfile()};
     }},

    {16, Ways::both,
     [](Draw& draw) {
       return Operation{"profileProtoAdd", &System::profileProtoAdd, draw.profile(),
                        draw.protocol(), draw.rule()};
     }},
    {6, Ways::both,
     [](Draw& draw) {
       const auto [profile, protocol] = draw.entry();
       return Operation{"profileProtoSet", &System::profileProtoSet, profile, protocol,
                        draw.rule()};
     }},
    {6, Ways::both,
     [](Draw& draw) {
       const auto [profile, protocol] = draw.entry();
       return Operation{"profileProtoDel", &System::profileProtoDel, profile, protocol};
     }},
    {2, Ways::both,
     [](Draw& draw) {
       return Operation{"profileProtoDelAll", &System::profileProtoDelAll, draw.profile()};
     }},
    {3, Ways::both,
     [](Draw& draw) {
       return Operation{"profileProtoGet", &System::profileProtoGet, draw.profile(), draw.index()};
     }},
    {2, Ways::both,
     [](Draw& draw) {
       return Operation{"profileGetProtocols", &System::profileGetProtocols, draw.profile()};
     }},

    {3, Ways::both,
     [](Draw& draw) {
       return Operation{"l2cpProfileCopy", &System::profileCopy, draw.anyProfile(),
                        draw.anyProfile()};
     }},
    {6, Ways::both,
     [](Draw& draw) {
       return Operation{"l2cpProfileEdit", &System::profileEdit, draw.anyProfile()};
     }},
    {2, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"l2cpProfileCompareContent", &System::profileCompareContent, draw.profile(),
                        draw.profile()};
     }},
    {2, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"l2cpProfileReplace", &System::profileReplace, draw.profile(),
                        draw.yes() ? draw.temporary() : draw.profile()};
     }},
    {6, Ways::both,
     [](Draw& draw) {
       return Operation{"l2cpProfileOnExit", &System::profileOnExit, draw.anyProfile(),
                        draw.oneIn(4) ? draw.anyProfile() : draw.temporary()};
     }},
    {1, Ways::entityAlone,
     [](Draw&) {
       return Operation{"l2cpDynamicProfilesDeleteAll", &System::dynamicProfilesDeleteAll};
     }},

    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"profileGetPorts", &System::profileGetPorts, draw.profile()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"profileGetAllForPort", &System::profileGetAllForPort,
                        draw.attached().port};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"profileGetServiceProfiles", &System::profileGetServiceProfiles,
                        draw.profile()};
     }},
    {1, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"getL2cpProfilesPerServiceProfile",
                        &System::getL2cpProfilesPerServiceProfile, draw.profile()};
     }},

    {8, Ways::both,
     [](Draw& draw) {
       if (draw.oneIn(8)) {
         const Model::Attached at = draw.attached();
         return Operation{"portAttach", &System::portAttach, at.profile, at.port, at.vid};
       }
       return Operation{"portAttach", &System::portAttach, draw.profile(), draw.port(), draw.vid()};
     }},
    {10, Ways::both,
     [](Draw& draw) {
       const Model::Attached at = draw.attached();
       return Operation{"portDetach", &System::portDetach, at.profile, at.port, at.vid};
     }},
    {2, Ways::both,
     [](Draw& draw) {
       return Operation{"portGet", &System::portGet, draw.attached().port, draw.index()};
     }},

    {1, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"profileApplyCheck", &System::profileApplyCheck, draw.intf(),
                        draw.service()};
     }},
    {4, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"profileApply", &System::profileApply, draw.intf(), draw.service()};
     }},
    {4, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"profileUnApply", &System::profileUnApply, draw.intf(), draw.service()};
     }},
    {1, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"profileIsApplied", &System::profileIsApplied, draw.profile()};
     }},
    {1, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"profileAppliedIntfGet", &System::profileAppliedIntfGet, draw.profile()};
     }},

    {2, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"keepSettings", &System::keepSettings, draw.place()};
     }},
    {2, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"applySettings", &System::applySettings, draw.place()};
     }},
    {1, Ways::both,
     [](Draw&) {
       return Operation{"applyDefaultSettings", &System::applyDefaultSettings};
     }},
    {1, Ways::entityAlone,
     [](Draw& draw) {
       const bool on = draw.oneIn(3);
       return Operation{"scriptDynamicProfiles", &System::scriptDynamicProfiles, on};
     }},

    {3, Ways::both,
     [](Draw& draw) {
       return Operation{"serviceProfileAdd", &System::serviceProfileAdd, draw.service()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"serviceProfileDelete", &System::serviceProfileDelete, draw.service()};
     }},
    {5, Ways::both,
     [](Draw& draw) {
       return Operation{"serviceProfileSetVlan", &System::serviceProfileSetVlan, draw.service(),
                        draw.vlanProfile()};
     }},
    {8, Ways::both,
     [](Draw& draw) {
       return Operation{"serviceProfileSetL2cp", &System::serviceProfileSetL2cp, draw.service(),
                        draw.anyProfile()};
     }},
    {8, Ways::both,
     [](Draw& draw) {
       return Operation{"serviceProfileAttach", &System::serviceProfileAttach, draw.service(),
                        draw.intf()};
     }},
    {5, Ways::both,
     [](Draw& draw) {
       const auto [service, intf] = draw.applied();
       return Operation{"serviceProfileDetach", &System::serviceProfileDetach, service, intf};
     }},
    {2, Ways::both,
     [](Draw& draw) {
       return Operation{"vlanProfileAdd", &System::vlanProfileAdd, draw.vlanProfile()};
     }},
    {1, Ways::both,
     [](Draw& draw) {
       return Operation{"vlanProfileDelete", &System::vlanProfileDelete, draw.vlanProfile()};
     }},
    {6, Ways::both,
     [](Draw& draw) {
       return Operation{"vlanProfileSetSvid", &System::vlanProfileSetSvid, draw.vlanProfile(),
                        draw.intf(), draw.svid()};
     }},
    {2, Ways::entityAlone,
     [](Draw& draw) {
       return Operation{"plantSvid", &System::plantSvid, draw.vlanProfile(), draw.intf(),
                        draw.svid()};
     }},
};

using Story = std::vector<Operation>;

void empty(Story& story, const std::string& profile) {
  story.push_back(Operation{"profileAdd", &System::profileAdd, profile, false, false});
  story.push_back(Operation{"profileSetProtect", &System::profileSetProtect, profile, false});
  story.push_back(Operation{"profileProtoDelAll", &System::profileProtoDelAll, profile});
}

/// Two profiles with protocols that differ in one thing or in nothing.
Story twins(Draw& draw) {
  const std::string first = draw.profile();
  const std::string second = draw.profile();
  std::string name = "A";
  bool protect = draw.yes();
  Bytes mac = draw.mac();
  Bytes mask = draw.mask();
  unsigned int etherType = draw.etherType();
  unsigned int subType = draw.subType();

  Story story;
  empty(story, first);
  empty(story, second);
  const auto addTwin = [&](const std::string& profile) {
    story.push_back(
        Operation{"protoAdd", &System::protoAdd, name, protect, mac, mask, etherType, subType});
    story.push_back(
        Operation{"profileProtoAdd", &System::profileProtoAdd, profile, name, draw.rule()});
  };
  const auto dismiss = [&] {
    story.push_back(Operation{"protoAdd", &System::protoAdd, std::string("C"), false, draw.mac(),
                              draw.mask(), draw.etherType(), draw.subType()});
    story.push_back(Operation{"protoRen", &System::protoRen, name, std::string("C")});
  };
  // Protocols of the name that are there already leave the catalogue, though not their profiles.
  dismiss();
  addTwin(first);
  switch (draw.below(8)) {
    case 0:
      protect = !protect;
      break;
    case 1:
      mac = draw.mac();
      break;
    case 2:
      mask = draw.mask();
      break;
    case 3:
      etherType = draw.etherType();
      break;
    case 4:
      subType = draw.subType();
      break;
    case 5:
      name = std::string("B");
      break;
    default:
      break;
  }
  dismiss();
  addTwin(second);
  if (draw.yes()) {
    story.push_back(
        Operation{"profileProtoAdd", &System::profileProtoAdd, draw.profile(), name, draw.rule()});
  }
  story.push_back(Operation{"l2cpProfileOnExit", &System::profileOnExit, first, second});
  return story;
}

/// A profile that is edited or renamed while service profiles hold it in force.
Story editingInForce(Draw& draw) {
  const std::string profile = draw.profile();
  const std::string service = draw.service();
  const std::string vlan = draw.vlanProfile();
  const int intf = draw.intf();

  Story story;
  empty(story, profile);
  story.push_back(Operation{"profileProtoAdd", &System::profileProtoAdd, profile, draw.protocol(),
                            draw.rule()});
  story.push_back(Operation{"vlanProfileAdd", &System::vlanProfileAdd, vlan});
  story.push_back(
      Operation{"vlanProfileSetSvid", &System::vlanProfileSetSvid, vlan, intf, draw.svid()});
  story.push_back(Operation{"serviceProfileAdd", &System::serviceProfileAdd, service});
  story.push_back(
      Operation{"serviceProfileSetVlan", &System::serviceProfileSetVlan, service, vlan});
  story.push_back(
      Operation{"serviceProfileSetL2cp", &System::serviceProfileSetL2cp, service, profile});
  story.push_back(Operation{"serviceProfileAttach", &System::serviceProfileAttach, service, intf});
  if (draw.oneIn(4)) {
    story.push_back(Operation{"profileRen", &System::profileRen, profile, draw.profile()});
    return story;
  }
  const std::string copy = draw.temporary();
  story.push_back(Operation{"profileDel", &System::profileDel, copy});
  story.push_back(Operation{"l2cpProfileEdit", &System::profileEdit, profile});
  story.push_back(
      Operation{"profileProtoAdd", &System::profileProtoAdd, copy, draw.protocol(), draw.rule()});
  story.push_back(Operation{"l2cpProfileOnExit", &System::profileOnExit, profile, copy});
  return story;
}

/// A profile that is renamed although it is attached directly, and another one of its name.
Story leftBehind(Draw& draw) {
  const std::string profile = draw.profile();
  const unsigned int port = draw.port();
  const unsigned int vid = draw.vid();
  const auto attach = [&](unsigned int onVid) {
    return Operation{"portAttach", &System::portAttach, profile, port, onVid};
  };

  Story story;
  story.push_back(Operation{"profileAdd", &System::profileAdd, profile, draw.yes(), draw.yes()});
  story.push_back(attach(vid));
  story.push_back(Operation{"profileRen", &System::profileRen, profile, draw.profile()});
  story.push_back(Operation{"profileAdd", &System::profileAdd, profile, draw.yes(), draw.yes()});
  story.push_back(attach(vid));
  story.push_back(attach(draw.vid()));
  story.push_back(Operation{"profileGetAllForPort", &System::profileGetAllForPort, port});
  if (draw.yes()) {
    story.push_back(Operation{"portDetach", &System::portDetach, profile, port, vid});
  }
  return story;
}

Story (*const stories[])(Draw& draw) = {twins, editingInForce, leftBehind};

}  // namespace

Source::Source(std::uint64_t seed, Way way, const Model& state)
    : random_(seed), way_(way), state_(state) {}

void Source::drawWeights() {
  constexpr unsigned int factors[] = {0, 1, 2, 2, 4};
  weights_.clear();
  for (const Choice& choice : choices) {
    const bool offered = way_ == Way::entity || choice.ways == Ways::both;
    weights_.push_back(offered ? choice.weight * factors[random_() % std::size(factors)] : 0);
  }
  weights_.front() += choices[0].weight;  // so that there is always one
}

Operation Source::next() {
  constexpr unsigned int whileAtATime = 200;
  Draw draw(random_, way_, state_);
  if (drawn_++ % whileAtATime == 0) drawWeights();
  if (story_.empty() && draw.oneIn(60)) {
    for (Operation& operation : stories[draw.below(std::size(stories))](draw)) {
      if (!draw.oneIn(20)) story_.push_back(std::move(operation));
    }
  }
  if (!story_.empty() && !draw.oneIn(8)) {
    Operation operation = std::move(story_.front());
    story_.pop_front();
    return operation;
  }
  auto point = draw.below(std::accumulate(weights_.begin(), weights_.end(), 0U));
  std::size_t chosen = 0;
  while (point >= weights_[chosen]) point -= weights_[chosen++];
  return choices[chosen].draw(draw);
}

std::vector<Operation> listings(Way way, const Model& state) {
  std::vector<Operation> all{
      Operation{"protoGetAll", &System::protoGetAll},
      Operation{"profileGetAll", &System::profileGetAll},
      Operation{"serviceProfiles", &System::serviceProfiles},
      Operation{"vlanProfiles", &System::vlanProfiles},
  };
  std::vector<std::string> names = state.profileNames();
  names.emplace_back("no such profile");
  for (const std::string& name : names) {
    if (way == Way::wire && name.size() > 33) continue;
    all.push_back(Operation{"profileGetProtocols", &System::profileGetProtocols, name});
    all.push_back(Operation{"all profileProtoGet", &System::entries, name});
    all.push_back(Operation{"profileGetPorts", &System::profileGetPorts, name});
    all.push_back(Operation{"profileGetServiceProfiles", &System::profileGetServiceProfiles, name});
    if (way == Way::wire) continue;
    all.push_back(Operation{"profileIsApplied", &System::profileIsApplied, name});
    all.push_back(Operation{"profileAppliedIntfGet", &System::profileAppliedIntfGet, name});
    all.push_back(Operation{"getL2cpProfilesPerServiceProfile",
                            &System::getL2cpProfilesPerServiceProfile, name});
  }
  // Every port that operations name.
  for (const unsigned int port : {0U, 1U, 2U, 3U, 0x80000003U, 0xffffffffU}) {
    all.push_back(Operation{"all portGet", &System::links, port});
    all.push_back(Operation{"profileGetAllForPort", &System::profileGetAllForPort, port});
    if (way == Way::entity) {
      all.push_back(Operation{"port entries", &System::portEntries, port});
    }
  }
  if (way == Way::entity) all.push_back(Operation{"attachments", &System::attachments});
  return all;
}

}  // namespace model
