#pragma once

/// What the tests of the entity's registries have in common. Programs that include this link
/// recording_classifier, syslog_capture and rpc_service.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/thread.hpp>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "l2cp/l2cp.h"
#include "tests/l2cp/kernel_fixture.h"
#include "tests/l2cp/name_table.h"
#include "tests/support/recording_classifier.h"
#include "tests/support/rpc_service.h"
#include "tests/support/syslog_capture.h"

inline constexpr unsigned char someMac[6] = {0x01, 0x80, 0xc2, 0x00, 0xab, 0xcd};
inline constexpr unsigned char otherMac[6] = {0x01, 0x00, 0x5e, 0x00, 0x00, 0xfb};
inline constexpr unsigned char someMask[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xf0};

/// Longer than any name that the catalogue takes.
inline const std::string overlongName(31, 'n');

/// The table of names as an operator is shown it, without the frame: "  2   9 l2cp:* l2cp:hide".
inline Lines nameLines(L2CP& entity) {
  Lines lines = NameTable(entity).listing();
  lines.erase(lines.begin(), lines.begin() + 2);
  lines.pop_back();
  return lines;
}

inline std::string text(const L2CP::Protocol& proto) {
  char mac[18];
  char mask[18];
  return fmt::format("\"{}\" protect={} {}/{} {:04x} {:02x} uses={}", proto.name,
                     L2CP::bool2yesno(proto.protect), L2CP::mac2str(proto.mac, mac),
                     L2CP::mac2str(proto.macMask, mask), proto.etherType, proto.subType,
                     proto.useCount);
}

inline std::string text(const L2CP::Profile& profile) {
  std::string text = fmt::format("\"{}\" protect={} dynamic={} uses={}", profile.name,
                                 L2CP::bool2yesno(profile.protect),
                                 L2CP::bool2yesno(profile.dynamic), profile.useCount);
  for (const unsigned int port : profile.interfaces) text += fmt::format(" on {}", port);
  // By name, so that where the protocols happen to lie in memory does not show.
  std::map<std::string, unsigned int> entries;
  for (const auto& [proto, rule] : profile.protocols) {
    entries[proto->name] = static_cast<unsigned int>(rule);
  }
  for (const auto& [name, rule] : entries) text += fmt::format(" {}={}", name, rule);
  return text;
}

/// Everything that settings hold, a line for each object.
inline Lines text(const L2CP::Settings& settings) {
  Lines lines;
  for (const auto& [key, proto] : settings.protocols) {
    lines.push_back(fmt::format("protocol {}: {}", key, text(*proto)));
  }
  for (const auto& [key, profile] : settings.profiles) {
    lines.push_back(fmt::format("profile {}: {}", key, text(*profile)));
  }
  for (const auto& [port, vlans] : settings.ports) {
    for (const auto& [vid, attached] : vlans) {
      std::vector<std::string> names;
      for (const auto& [profile, positions] : attached) {
        names.push_back(fmt::format(" {} @{}", profile->name, fmt::join(positions, ",")));
      }
      std::sort(names.begin(), names.end());
      lines.push_back(fmt::format("port {} vlan {}:{}", port, vid, fmt::join(names, "")));
    }
  }
  return lines;
}

inline std::size_t openDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

/// For the service's thread: waits until it is asked to end.
inline void waitForInterruption() {
  try {
    boost::this_thread::sleep(boost::posix_time::hours(1));
  } catch (const boost::thread_interrupted&) {
  }
}

/// An entity that has not been started.
class EntityTest : public testing::Test {
 protected:
  EntityTest() {
    classifier.reset();
    log.reset();
    service.reset();
  }

  /// The requests since the last call.
  Lines sent() {
    const NameTable names(entity);
    Lines lines;
    for (const support::Request& request : classifier.take()) lines.push_back(line(request, names));
    return lines;
  }

  void trace(bool on) { entity.externalMessage("l2cp_debug", on ? "1" : "0", nullptr); }

  L2CP::Protocol& protocol(const std::string& name) { return *entity.settings.protocols.at(name); }
  L2CP::Profile& profile(const std::string& name) { return *entity.settings.profiles.at(name); }

  /// A call, and the one line that it has to trace.
  struct TraceRow {
    std::string format;
    std::string text;
    std::function<void()> call;
  };

  void expectTraces(const std::vector<TraceRow>& rows) {
    trace(true);
    for (const TraceRow& row : rows) {
      log.reset();
      row.call();
      EXPECT_THAT(log.traceFormats(), testing::ElementsAre(row.format));
      EXPECT_THAT(log.traces(), testing::ElementsAre(row.text));
    }
    trace(false);
  }

  support::RecordingClassifier& classifier = support::RecordingClassifier::instance();
  support::SyslogCapture& log = support::SyslogCapture::instance();
  support::RpcService& service = support::RpcService::instance();
  L2CP entity;
};

/// An entity that has been started, with the requests for that forgotten.
class StartedEntityTest : public EntityTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(entity.start());
    classifier.take();
  }
  void TearDown() override { entity.stop(); }
};
