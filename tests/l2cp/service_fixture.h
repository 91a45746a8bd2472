#pragma once

/// A profile in use through service profiles. Programs that include this link what
/// entity_fixture.h needs, and service_calls.

#include <functional>
#include <string>
#include <vector>

#include "tests/l2cp/entity_fixture.h"
#include "tests/support/service_calls.h"
#include "tests/support/services.h"

/// A started entity behind the daemon's service profiles, connected as in the daemon.
class ServedEntityTest : public StartedEntityTest {
 protected:
  void SetUp() override {
    StartedEntityTest::SetUp();
    connect();
    calls.reset();
  }

  void TearDown() override {
    services.reset();
    StartedEntityTest::TearDown();
  }

  /// As the daemon does.
  void connect() {
    profiles::setModule({.applyCheck = std::bind_front(&L2CP::profileApplyCheck, &entity),
                         .apply = std::bind_front(&L2CP::profileApply, &entity),
                         .unApply = std::bind_front(&L2CP::profileUnApply, &entity)});
  }

  void addProfile(const char* name, const std::vector<std::string>& protocols = {},
                  L2CP::Rule rule = L2CP::Rule::peer) {
    ASSERT_EQ(entity.profileAdd(name, false, false), 0);
    for (const std::string& proto : protocols) {
      ASSERT_EQ(entity.profileProtoAdd(name, proto.c_str(), rule), 0);
    }
  }

  /// Profile P of LLDP and Q of LACP-LAMP. Service profiles bronze (applied nowhere), gold (on 3
  /// and 5) and silver (on 5) name P; steel (on 3) names Q.
  void putIntoService() {
    addProfile("P", {"LLDP"});
    addProfile("Q", {"LACP-LAMP"});
    services.addVlan("v1", {{3, 100}, {5, 100}});
    services.addVlan("v2", {{5, 200}});
    services.addVlan("v3", {{3, 300}});
    services.add("bronze", "P");
    services.add("silver", "P", "v2");
    services.add("gold", "P", "v1");
    services.add("steel", "Q", "v3");
    services.apply("steel", 3);
    services.apply("silver", 5);
    services.apply("gold", 5);
    services.apply("gold", 3);
    forget();
  }

  /// Forgets requests, calls and log lines up to now.
  void forget() {
    classifier.take();
    calls.reset();
    log.reset();
  }

  /// The profiles, where they are attached, and the service profiles.
  Lines shown() {
    Lines lines = text(entity.settings);
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("protocol "); });
    return lines + services.lines();
  }

  /// The same in short: "P:3[LLDP] T:0[] | 3/100=P | bronze=P gold=P@3@5".
  std::string summary() {
    std::vector<std::string> registry;
    for (const auto& [name, profile] : entity.settings.profiles) {
      std::vector<std::string> entries;
      for (const auto& [proto, rule] : profile->protocols) entries.push_back(proto->name);
      std::sort(entries.begin(), entries.end());
      registry.push_back(
          fmt::format("{}:{}[{}]", name, profile->useCount, fmt::join(entries, " ")));
    }
    std::vector<std::string> places;
    for (const auto& [port, vlans] : entity.settings.ports) {
      for (const auto& [vid, attached] : vlans) {
        for (const auto& [profile, positions] : attached) {
          places.push_back(fmt::format("{}/{}={}", port, vid, profile->name));
        }
      }
    }
    std::vector<std::string> named;
    for (const auto& [name, info] : services.table().servProfiles) {
      named.push_back(name + "=" + info.l2cpProfile);
      for (const auto& [intf, names] : profiles::applied()) {
        const bool isThere = std::find(names.begin(), names.end(), name) != names.end();
        if (isThere) named.back() += fmt::format("@{}", intf);
      }
    }
    return fmt::format("{} | {} | {}", fmt::join(registry, " "), fmt::join(places, " "),
                       fmt::join(named, " "));
  }

  bool exists(const std::string& name) { return entity.settings.profiles.contains(name); }

  support::ServiceCalls& calls = support::ServiceCalls::instance();
  support::Services services;
};
