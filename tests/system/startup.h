#pragma once

/// A daemon with a startup script, and restarting it.

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/script_lines.h"
#include "tests/system/control.h"
#include "tests/system/fixture.h"
#include "tests/system/service.h"

class StartupTest : public WorldTest {
 protected:
  using Lines = std::vector<std::string>;

  void TearDown() override {
    service_.reset();
    control_.reset();
    if (isRunning_) {
      EXPECT_EQ(world().stopDaemon(SIGTERM), 0) << world().daemon().output().text();
    }
  }

  /// Starts the daemon and connects to it.
  void start() {
    world().startDaemon(arguments());
    isRunning_ = true;
    connect();
  }
  void connect() {
    service_ = std::make_unique<client::Service>("tcp");
    control_ = std::make_unique<client::Control>("tcp");
  }
  /// Takes no time for an orderly end, so that nothing can be saved by it.
  void restart() {
    kill();
    start();
  }
  void kill() {
    world().stopDaemon(SIGKILL);
    isRunning_ = false;
  }

  const client::Service& service() { return *service_; }
  const client::Control& control() { return *control_; }

  void save() { EXPECT_EQ(control().save(), std::pair(CONTROL_OK, std::string(path))); }

  Lines running() { return control().runningConfig(CONTROL_CONFIG_DIFFERENCES); }

  /// What the daemon said about its startup script.
  Lines startupMessages() {
    Lines messages;
    for (const std::string& line : world().daemon().output().all()) {
      const auto begin = line.find("startup: ");
      if (line.starts_with("l2cpd: ") && begin != std::string::npos) {
        messages.push_back(line.substr(begin));
      }
    }
    return messages;
  }

  static Lines fileLines(const std::string& file) {
    Lines lines;
    std::ifstream stream(file, std::ios::binary);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }

  static std::vector<std::string> arguments() {
    return {"--config", support::World::file("l2cpd.toml", "startup = \"" + std::string(path) +
                                                               "\"\nlock = \"/run/l2cpd.lock\"\n")};
  }

  static constexpr const char* path = "/run/startup.l2cp";

 private:
  std::unique_ptr<client::Service> service_;
  std::unique_ptr<client::Control> control_;
  bool isRunning_ = false;
};
