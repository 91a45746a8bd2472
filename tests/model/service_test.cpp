// The service and its model in lock step: the daemon as a process, over real sockets, in a network
// of its own.
//
//     test_model_service                                  the runs of the test suite
//     test_model_service --seed=7 --length=500 --runs=1   others, for each transport
//     ... --print                                         shows each operation before it is run
//
// A difference is reported with the shortest sequence of operations found that makes one; each
// attempt to shorten it starts a daemon.

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/model/lockstep.h"
#include "tests/model/wire_model.h"
#include "tests/system/control.h"
#include "tests/system/fixture.h"
#include "tests/system/service.h"

namespace {

using model::Answer;
using model::Bytes;

// An element of a list carries no error of its own.
std::string shown(const client::Proto& proto) {
  return model::ProtocolLine{proto.name,      proto.protect, proto.mac,     std::nullopt,
                             proto.etherType, proto.subType, proto.useCount}
             .text() +
         (proto.error == RPC_L2CP_OK ? "" : " with an error");
}

std::string shown(const client::Profile& profile) {
  return model::ProfileLine{profile.name, profile.protect, profile.dynamic, profile.useCount,
                            std::nullopt}
             .text() +
         (profile.error == RPC_L2CP_OK ? "" : " with an error");
}

std::string shown(const client::Entry& entry) {
  return model::entryLine(entry.protoName, static_cast<unsigned int>(entry.rule)) +
         (entry.error == RPC_L2CP_OK ? "" : " with an error");
}

std::string shown(const client::Place& place) { return model::placeLine(place.port, place.vid); }

std::string shown(const client::Link& link) { return model::linkLine(link.vid, link.profileName); }

std::string shown(const std::string& name) { return name; }

template <class Element>
Answer answer(const client::List<Element>& got) {
  Answer result{got.error};
  for (const Element& element : got.list) result.lines.push_back(shown(element));
  return result;
}

/// What was got by position. Beside an error there has to be nothing.
template <class Element>
Answer answer(Element got) {
  Answer result{std::exchange(got.error, RPC_L2CP_OK)};
  if (result.code == 0 || !(got == Element())) result.lines = {shown(got)};
  return result;
}

/// The module through its service, and the daemon through its own.
class Service : public model::System {
 public:
  explicit Service(const char* transport) : service_(transport), control_(transport) {}

  Answer protoAdd(const std::string& name, bool protect, const Bytes& mac, const Bytes& /*mask*/,
                  unsigned int etherType, unsigned int subType) override {
    // Use count and error are ignored.
    return {service_.protoAdd({.protect = protect,
                               .name = name,
                               .mac = mac,
                               .etherType = static_cast<std::uint16_t>(etherType),
                               .subType = static_cast<std::uint8_t>(subType),
                               .useCount = 7,
                               .error = RPC_L2CP_ERR_FAILED})};
  }
  Answer protoDel(const std::string& name) override { return {service_.protoDel(name)}; }
  Answer protoRen(const std::string& from, const std::string& to) override {
    return {service_.protoRen(from, to)};
  }
  Answer protoSetProtect(const std::string& name, bool protect) override {
    return {service_.protoSetProtect(name, protect)};
  }
  Answer protoSetMac(const std::string& name, const Bytes& mac) override {
    return {service_.protoSetMac(name, mac)};
  }
  Answer protoSetEtherType(const std::string& name, unsigned int type) override {
    return {service_.protoSetEtherType(name, static_cast<std::uint16_t>(type))};
  }
  Answer protoSetSubType(const std::string& name, unsigned int subType) override {
    return {service_.protoSetSubType(name, static_cast<std::uint8_t>(subType))};
  }
  Answer protoGet(unsigned int index) override { return answer(service_.protoGet(index)); }
  Answer protoGetAll() override { return answer(service_.protoGetAll()); }

  Answer profileAdd(const std::string& name, bool protect, bool dynamic) override {
    return {service_.profileAdd({.dynamic = dynamic,
                                 .protect = protect,
                                 .name = name,
                                 .useCount = 7,
                                 .error = RPC_L2CP_ERR_FAILED})};
  }
  Answer profileDel(const std::string& name) override { return {service_.profileDel(name)}; }
  Answer profileRen(const std::string& from, const std::string& to) override {
    return {service_.profileRen(from, to)};
  }
  Answer profileSetProtect(const std::string& name, bool protect) override {
    return {service_.profileSetProtect(name, protect)};
  }
  Answer profileSetDynamic(const std::string& name, bool dynamic) override {
    return {service_.profileSetDynamic(name, dynamic)};
  }
  Answer profileGet(unsigned int index) override { return answer(service_.profileGet(index)); }
  Answer profileGetAll() override { return answer(service_.profileGetAll()); }
  Answer profileStatus(const std::string& name) override { return {service_.profileStatus(name)}; }

  Answer profileProtoAdd(const std::string& profile, const std::string& protocol,
                         unsigned int rule) override {
    return {service_.entryAdd(profile, protocol, static_cast<rpc_l2cp_rule>(rule))};
  }
  Answer profileProtoSet(const std::string& profile, const std::string& protocol,
                         unsigned int rule) override {
    return {service_.entrySet(profile, protocol, static_cast<rpc_l2cp_rule>(rule))};
  }
  Answer profileProtoDel(const std::string& profile, const std::string& protocol) override {
    return {service_.entryDel(profile, protocol)};
  }
  Answer profileProtoDelAll(const std::string& profile) override {
    return {service_.entryDelAll(profile)};
  }
  Answer profileProtoGet(const std::string& profile, unsigned int index) override {
    return answer(service_.entryGet(profile, index));
  }
  Answer profileGetProtocols(const std::string& profile) override {
    return answer(service_.entryGetAll(profile));
  }

  Answer profileCopy(const std::string& source, const std::string& destination) override {
    return {service_.profileCopy(source, destination)};
  }
  Answer profileEdit(const std::string& name) override {
    const client::Edit edit = service_.profileEdit(name);
    return {edit.error, {edit.name}};
  }
  Answer profileOnExit(const std::string& target, const std::string& temporary) override {
    return {service_.profileOnExit(target, temporary)};
  }

  Answer profileGetPorts(const std::string& name) override {
    return answer(service_.profileGetPorts(name));
  }
  Answer profileGetAllForPort(unsigned int port) override {
    return answer(service_.linkGetAll(port));
  }
  Answer profileGetServiceProfiles(const std::string& name) override {
    return answer(service_.profileGetUse(name));
  }

  Answer portAttach(const std::string& profile, unsigned int port, unsigned int vid) override {
    return {service_.attach(profile, port, static_cast<std::uint16_t>(vid))};
  }
  Answer portDetach(const std::string& profile, unsigned int port, unsigned int vid) override {
    return {service_.detach(profile, port, static_cast<std::uint16_t>(vid))};
  }
  Answer portGet(unsigned int port, unsigned int index) override {
    return answer(service_.linkGet(port, index));
  }

  Answer applyDefaultSettings() override {
    return {control_.applyDefaults() == CONTROL_OK ? 1 : 0};
  }

  Answer serviceProfiles() override {
    Answer all;
    for (const client::ServiceProfile& profile : control_.serviceProfiles()) {
      all.lines.push_back(model::serviceLine(profile.name, profile.vlanProfile, profile.l2cpProfile,
                                             profile.interfaces));
    }
    return all;
  }
  Answer serviceProfileAdd(const std::string& name) override {
    return {control_.serviceProfileAdd(name)};
  }
  Answer serviceProfileDelete(const std::string& name) override {
    return {control_.serviceProfileDelete(name)};
  }
  Answer serviceProfileSetVlan(const std::string& name, const std::string& vlanProfile) override {
    return {control_.serviceProfileSetVlan(name, vlanProfile)};
  }
  Answer serviceProfileSetL2cp(const std::string& name, const std::string& l2cpProfile) override {
    return {control_.serviceProfileSetL2cp(name, l2cpProfile)};
  }
  Answer serviceProfileAttach(const std::string& name, int intf) override {
    return {control_.serviceProfileAttach(name, intf)};
  }
  Answer serviceProfileDetach(const std::string& name, int intf) override {
    return {control_.serviceProfileDetach(name, intf)};
  }

  Answer vlanProfiles() override {
    Answer all;
    for (const auto& [name, svids] : control_.vlanProfiles()) {
      all.lines.push_back(model::vlanLine(name, svids));
    }
    return all;
  }
  Answer vlanProfileAdd(const std::string& name) override {
    return {control_.vlanProfileAdd(name)};
  }
  Answer vlanProfileDelete(const std::string& name) override {
    return {control_.vlanProfileDelete(name)};
  }
  Answer vlanProfileSetSvid(const std::string& name, int intf, int svid) override {
    return {control_.vlanProfileSetSvid(name, intf, svid)};
  }

 private:
  client::Service service_;
  client::Control control_;
};

class ServiceBench : public model::Bench {
 public:
  ServiceBench(support::World& world, const char* transport) : world_(world) {
    world_.startDaemon();
    service_ = std::make_unique<Service>(transport);
  }
  ~ServiceBench() override {
    service_.reset();
    if (abandoned_) {
      world_.stopDaemon(SIGKILL);
      return;
    }
    EXPECT_EQ(world_.stopDaemon(SIGTERM), 0) << world_.daemon().output().text();
  }
  ServiceBench(const ServiceBench&) = delete;
  ServiceBench& operator=(const ServiceBench&) = delete;

  void abandon() override { abandoned_ = true; }
  model::System& module() override { return *service_; }
  model::System& expected() override { return model_; }
  model::Model& state() override { return model_.model(); }

 private:
  support::World& world_;
  std::unique_ptr<Service> service_;
  model::WireModel model_;
  bool abandoned_ = false;
};

class Model : public WorldTest, public testing::WithParamInterface<const char*> {};

FOR_BOTH_TRANSPORTS(Model);

TEST_P(Model, DoesWhatTheServiceDoes) {
  const model::Options options = model::options({.seed = 1, .length = 2000, .runs = 1});
  const std::string report = model::differences(options, model::Way::wire, [this] {
    return std::make_unique<ServiceBench>(world(), GetParam());
  });
  EXPECT_TRUE(report.empty()) << report;
}

}  // namespace
