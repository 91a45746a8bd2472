#pragma once

/// The model as clients of the service see it: the numbers that each procedure makes of the
/// operations' results, and what it makes of its arguments.

#include <map>
#include <string>

#include "tests/model/model.h"

namespace model {

class WireModel : public System {
 public:
  Model& model() { return model_; }

  Answer protoAdd(const std::string& name, bool protect, const Bytes& mac, const Bytes& /*mask*/,
                  unsigned int etherType, unsigned int subType) override {
    // Whatever the client wants, the mask is all zero.
    return mapped(model_.protoAdd(name, protect, six(mac), six({}), etherType, subType),
                  {{-17, 2}, {-22, 8}});
  }
  Answer protoDel(const std::string& name) override {
    return mapped(model_.protoDel(name), {{-2, 3}, {-16, 4}});
  }
  Answer protoRen(const std::string& from, const std::string& to) override {
    return mapped(model_.protoRen(from, to), {{-2, 3}, {-16, 4}});
  }
  Answer protoSetProtect(const std::string& name, bool protect) override {
    return mapped(model_.protoSetProtect(name, protect), {{-2, 3}});
  }
  Answer protoSetMac(const std::string& name, const Bytes& mac) override {
    return mapped(model_.protoSetMac(name, six(mac)), {{-2, 3}});
  }
  Answer protoSetEtherType(const std::string& name, unsigned int type) override {
    return mapped(model_.protoSetEtherType(name, type), {{-2, 3}});
  }
  Answer protoSetSubType(const std::string& name, unsigned int subType) override {
    return mapped(model_.protoSetSubType(name, subType), {{-2, 3}});
  }
  Answer protoGet(unsigned int index) override { return mapped(model_.protoGet(index), {}); }
  Answer protoGetAll() override { return model_.protoGetAll(); }

  Answer profileAdd(const std::string& name, bool protect, bool dynamic) override {
    return mapped(model_.profileAdd(name, protect, dynamic), {{-17, 10}});
  }
  Answer profileDel(const std::string& name) override {
    return mapped(model_.profileDel(name), {{-1, 14}, {-2, 11}, {-16, 12}});
  }
  Answer profileRen(const std::string& from, const std::string& to) override {
    return mapped(model_.profileRen(from, to), {{-1, 14}, {-2, 11}, {-16, 12}, {-28, 10}});
  }
  Answer profileSetProtect(const std::string& name, bool protect) override {
    return mapped(model_.profileSetProtect(name, protect), {{-2, 11}});
  }
  Answer profileSetDynamic(const std::string& name, bool dynamic) override {
    return mapped(model_.profileSetDynamic(name, dynamic), {{-2, 11}});
  }
  Answer profileGet(unsigned int index) override {
    return mapped(model_.profileGet(index), {{-2, 11}});
  }
  Answer profileGetAll() override { return model_.profileGetAll(); }
  Answer profileStatus(const std::string& name) override {
    return mapped(model_.profileStatus(name), {{-1, 14}, {-2, 11}, {-16, 12}, {-28, 10}});
  }

  Answer profileProtoAdd(const std::string& profile, const std::string& protocol,
                         unsigned int rule) override {
    return mapped(model_.profileProtoAdd(profile, protocol, known(rule)),
                  {{-1, 14}, {-2, 11}, {-16, 12}, {-17, 4}, {-19, 3}});
  }
  Answer profileProtoSet(const std::string& profile, const std::string& protocol,
                         unsigned int rule) override {
    return mapped(model_.profileProtoSet(profile, protocol, known(rule)), entryCodes);
  }
  Answer profileProtoDel(const std::string& profile, const std::string& protocol) override {
    return mapped(model_.profileProtoDel(profile, protocol), entryCodes);
  }
  Answer profileProtoDelAll(const std::string& profile) override {
    return mapped(model_.profileProtoDelAll(profile), entryCodes);
  }
  Answer profileProtoGet(const std::string& profile, unsigned int index) override {
    return mapped(model_.profileProtoGet(profile, index), {{-2, 11}, {-22, 3}});
  }
  Answer profileGetProtocols(const std::string& profile) override {
    return mapped(model_.profileGetProtocols(profile), {{-2, 11}});
  }
  Answer entries(const std::string& profile) override {
    return mapped(model_.entries(profile), {{-2, 11}, {-22, 3}});
  }

  Answer profileCopy(const std::string& source, const std::string& destination) override {
    // A missing source is told apart from an existing destination here, and comes first.
    const bool noSource = !model_.hasProfile(source);
    return mapped(model_.profileCopy(source, destination), {{-1, noSource ? 3 : 1}});
  }
  Answer profileEdit(const std::string& name) override { return model_.profileEdit(name); }
  Answer profileOnExit(const std::string& target, const std::string& temporary) override {
    return model_.profileOnExit(target, temporary);
  }

  Answer profileGetPorts(const std::string& name) override {
    return mapped(model_.profileGetPorts(name), {{-2, 11}});
  }
  Answer profileGetAllForPort(unsigned int port) override {
    return mapped(model_.profileGetAllForPort(port), {{-2, 0}});
  }
  Answer profileGetServiceProfiles(const std::string& name) override {
    return mapped(model_.profileGetServiceProfiles(name), {{-2, 11}});
  }

  Answer portAttach(const std::string& profile, unsigned int port, unsigned int vid) override {
    return mapped(model_.portAttach(profile, port, vid), {{-2, 11}});
  }
  Answer portDetach(const std::string& profile, unsigned int port, unsigned int vid) override {
    return mapped(model_.portDetach(profile, port, vid), {{-2, 11}, {-9, 13}, {-19, 3}, {-20, 16}});
  }
  Answer portGet(unsigned int port, unsigned int index) override {
    return mapped(model_.portGet(port, index), {{-2, 11}, {-22, 15}});
  }
  Answer links(unsigned int port) override {
    return mapped(model_.links(port), {{-2, 11}, {-22, 15}});
  }

  Answer applyDefaultSettings() override { return model_.applyDefaultSettings(); }

  // The daemon's own procedures hand on what its operations return.
  Answer serviceProfiles() override { return model_.serviceProfiles(); }
  Answer serviceProfileAdd(const std::string& name) override {
    return model_.serviceProfileAdd(name);
  }
  Answer serviceProfileDelete(const std::string& name) override {
    return model_.serviceProfileDelete(name);
  }
  Answer serviceProfileSetVlan(const std::string& name, const std::string& vlanProfile) override {
    return model_.serviceProfileSetVlan(name, vlanProfile);
  }
  Answer serviceProfileSetL2cp(const std::string& name, const std::string& l2cpProfile) override {
    return model_.serviceProfileSetL2cp(name, l2cpProfile);
  }
  Answer serviceProfileAttach(const std::string& name, int intf) override {
    return model_.serviceProfileAttach(name, intf);
  }
  Answer serviceProfileDetach(const std::string& name, int intf) override {
    return model_.serviceProfileDetach(name, intf);
  }
  Answer vlanProfiles() override { return model_.vlanProfiles(); }
  Answer vlanProfileAdd(const std::string& name) override { return model_.vlanProfileAdd(name); }
  Answer vlanProfileDelete(const std::string& name) override {
    return model_.vlanProfileDelete(name);
  }
  Answer vlanProfileSetSvid(const std::string& name, int intf, int svid) override {
    return model_.vlanProfileSetSvid(name, intf, svid);
  }

 private:
  using Codes = std::map<int, int>;

  /// Codes that a procedure does not name become 1.
  static Answer mapped(Answer answer, const Codes& codes) {
    const auto found = codes.find(answer.code);
    if (found != codes.end()) {
      answer.code = found->second;
    } else if (answer.code != 0) {
      answer.code = 1;
    }
    return answer;
  }

  static Bytes six(Bytes mac) {
    mac.resize(6);
    return mac;
  }
  static unsigned int known(unsigned int rule) { return rule == 1 || rule == 2 ? rule : 0; }

  static inline const Codes entryCodes{{-1, 14}, {-2, 11}, {-16, 12}, {-19, 3}, {-22, 5}};

  Model model_{Model::Shown::wire};
};

}  // namespace model
