#pragma once

/// What the tests of the running configuration have in common: the process's module and profiles,
/// in a state that no other test sees. Programs that include this link recording_classifier and
/// rpc_service.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/profiles.h"
#include "host/scriptRunner.h"
#include "host/startup.h"
#include "l2cp/l2cp.h"
#include "platform/servprofile.h"
#include "platform/vlanprofile.h"
#include "script/script.h"
#include "tests/support/host_state.h"

using Lines = std::vector<std::string>;

/// A folder that goes with its contents.
class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "l2cpXXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for the test");
    path_ = name;
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string file(const std::string& name) const { return (path_ / name).string(); }
  std::string write(const std::string& name, std::string_view contents) const {
    std::ofstream(file(name), std::ios::binary) << contents;
    return file(name);
  }
  std::string read(const std::string& name) const {
    std::ifstream stream(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  /// In alphabetical order.
  Lines names() const {
    Lines names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::filesystem::path path_;
};

class RestoreTest : public testing::Test {
 protected:
  RestoreTest() {
    static std::once_flag once;
    std::call_once(once, support::connectHost);
    support::startFresh();
  }
  ~RestoreTest() override { support::startFresh(); }

  static Lines running(Scripter::ConfigMode mode = Scripter::configDifferences) {
    return support::runningConfig(mode);
  }

  /// The running configuration without what every one has.
  static Lines written() {
    Lines lines = running();
    std::erase(lines, "");
    return lines;
  }

  /// Starts afresh and replays the running configuration: what is wrong with it.
  Lines restart() {
    // Saving would wait for the disk.
    const std::string path =
        folder.write("restart.l2cp", fmt::format("{}\n", fmt::join(running(), "\n")));
    support::startFresh();
    return startup::replay(path, startup::Strictness::skipLines).problems;
  }

  /// Carries out a script line by line; all of them have to succeed.
  static void run(const Lines& lines) {
    script::Reader reader;
    for (const std::string& line : lines) EXPECT_EQ(runCommand(reader.read(line)), "") << line;
  }

  /// Each attachment in the order of the port's entries: "P vlan 100".
  Lines attachments(unsigned int port) {
    std::map<unsigned int, std::string> byPosition;
    for (const auto& [vid, attached] : entity.settings.ports[port]) {
      for (const auto& [profile, positions] : attached) {
        byPosition[positions.back()] = profile->name + " vlan " + std::to_string(vid);
      }
    }
    Lines lines;
    for (const auto& [position, line] : byPosition) lines.push_back(line);
    return lines;
  }

  static servprofile& services() { return singleton<servprofile>::instance(); }

  Folder folder;
  L2CP& entity = singleton<L2CP>::instance();
};
