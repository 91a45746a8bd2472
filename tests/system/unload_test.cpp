// The module's library in a process that does not link it: it can be loaded, used and unloaded, and
// loaded again.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <rpc/rpc.h>
#include <sys/select.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "host/bllManager.h"
#include "platform/CliConfig.h"
#include "tests/system/fixture.h"
#include "tests/system/wire.h"

namespace {

using wire::Bytes;
using wire::Call;

constexpr unsigned long program = 0x2000001d;
constexpr unsigned long version = 1;

BLLManager::Host& host() { return singleton<BLLManager>::instance().host(); }

std::size_t scriptedLines() {
  return singleton<CliConfig>::instance().runningConfig(Scripter::configAll).size();
}

/// Whether a file of this name is mapped anywhere.
bool isMapped(const std::string& name) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("/" + name) != std::string::npos) return true;
  }
  return false;
}

/// Lets the RPC library serve what has arrived until a reply is there.
std::string served(const wire::Socket& socket, const Bytes& call) {
  socket.send(call);
  const bool replied = support::eventually([&] {
    fd_set ready = svc_fdset;
    timeval timeout{.tv_sec = 0, .tv_usec = 1000};
    if (select(FD_SETSIZE, &ready, nullptr, nullptr, &timeout) > 0) svc_getreqset(&ready);
    return !socket.isSilent(std::chrono::milliseconds(0));
  });
  return replied ? socket.receive().value_or("closed") : "no reply";
}

// TCP is what is registered last.
bool isRegistered() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return pmap_getport(&address, program, version, IPPROTO_TCP) != 0;
}

class Unload : public WorldTest {
 protected:
  void TearDown() override {
    if (library_ != nullptr) dlclose(library_);
  }

  void load() {
    library_ = dlopen(L2CP_MODULE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library_, nullptr) << dlerror();
    ASSERT_TRUE(isMapped("libl2cp.so"));
  }

  // What a daemon has to do that unloads a module which has not been started.
  void unload() {
    singleton<CliConfig>::instance().removeScripter("L2CPScripter");
    ASSERT_EQ(dlclose(std::exchange(library_, nullptr)), 0);
  }

  void expectNothingLeft() {
    EXPECT_FALSE(isMapped("libl2cp.so"));
    EXPECT_EQ(host().find("l2cp"), nullptr);
    EXPECT_EQ(scriptedLines(), 0U);
    // Whoever still listened would do so in code that is gone.
    singleton<BLLManager>::instance().externalMessage.fire(
        std::string("l2cp_dump"), std::string(), static_cast<std::ostringstream*>(nullptr),
        std::string());
    EXPECT_EQ(host().startEntities(), "");
    host().stopEntities();
  }

 private:
  void* library_ = nullptr;
};

TEST_F(Unload, LeavesNothingOfAModuleThatWasNeverStarted) {
  for (int round = 0; round < 2; ++round) {
    load();
    EXPECT_NE(host().find("l2cp"), nullptr);
    EXPECT_EQ(scriptedLines(), 15U);
    unload();
    expectNothingLeft();
  }
}

TEST_F(Unload, LeavesNothingOfAModuleThatHasServed) {
  for (int round = 0; round < 2; ++round) {
    load();
    ASSERT_EQ(host().startEntities(), "");
    ASSERT_TRUE(support::eventually(isRegistered));
    singleton<BLLManager>::instance().externalMessage.fire(
        std::string("l2cp_debug"), std::string("1"), static_cast<std::ostringstream*>(nullptr),
        std::string());
    for (const char* transport : {"udp", "tcp"}) {
      const wire::Socket socket(transport);
      EXPECT_EQ(served(socket, Call{}.with()), wire::success());
      EXPECT_THAT(served(socket, Call{.procedure = 4}.with(Bytes().word(1))),
                  testing::HasSubstr("CDP"));
      EXPECT_EQ(served(socket, Call{.procedure = 20}.with(
                                   Bytes().words({0, 0}).text(transport).words({0, 0}))),
                wire::success(Bytes().word(0)));
    }
    host().stopEntities();
    // The module does not take its program back.
    svc_unregister(program, version);
    unload();
    expectNothingLeft();
  }
}

}  // namespace
