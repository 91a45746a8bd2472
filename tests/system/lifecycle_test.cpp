// The module started and stopped over and over, with the real transports and a port mapper. What it
// registers is never taken back: every start makes two more transports, until the process has no
// descriptors left.

#include <gmock/gmock.h>
#include <rpc/pmap_clnt.h>
#include <sys/resource.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "host/bllManager.h"
#include "platform/BLEntity.h"
#include "rpc/rte/BLL/core/rpcProxy.h"
#include "tests/system/fixture.h"
#include "tests/system/wire.h"

namespace {

using wire::Bytes;
using wire::Call;

class Lifecycle : public WorldTest {
 protected:
  void SetUp() override {
    WorldTest::SetUp();
    if (IsSkipped()) return;
    limitDescriptors(FD_SETSIZE);
  }

  static void limitDescriptors(rlim_t number) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = number;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  }

  static BLEntity& module() { return *singleton<BLLManager>::instance().host().find("l2cp"); }

  static in_port_t tcpPort() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return pmap_getport(&address, 0x2000001d, 1, IPPROTO_TCP);
  }

  // TCP is what is registered last.
  static bool isRegisteredAnew(in_port_t& port) {
    const in_port_t before = port;
    return support::eventually([&] {
      port = tcpPort();
      return port != 0 && port != before;
    });
  }

  static void expectServed(const wire::Socket& socket) {
    EXPECT_EQ(socket.call(Call{}.with()), wire::success());
    EXPECT_THAT(socket.call(Call{.procedure = 4}.with(Bytes().word(1))), testing::HasSubstr("CDP"));
  }
};

void* nothing(void* /*interruptionHook*/) { return nullptr; }

TEST_F(Lifecycle, ServesOverTheTransportsOfEveryOneOfFourHundredStarts) {
  in_port_t port = 0;
  ASSERT_TRUE(module().start());
  ASSERT_TRUE(isRegisteredAnew(port));
  RPCProxy loop(nothing, "BLLManager_mng");
  ASSERT_TRUE(loop.start());
  // The loop looks for new transports when something arrives.
  const wire::Socket first("udp");
  for (int round = 0; round < 400; ++round) {
    SCOPED_TRACE(round);
    if (round != 0) {
      ASSERT_TRUE(module().start());
      ASSERT_TRUE(isRegisteredAnew(port));
    }
    ASSERT_EQ(first.call(Call{}.with()), wire::success());
    for (const char* transport : {"udp", "tcp"}) expectServed(wire::Socket(transport));
    ASSERT_TRUE(module().stop());
    if (HasFailure()) break;
  }
  EXPECT_TRUE(loop.stop(false));
}

TEST_F(Lifecycle, SaysWhatIsTrueWhenDescriptorsRunOut) {
  testing::internal::CaptureStderr();
  in_port_t port = 0;
  ASSERT_TRUE(module().start());
  ASSERT_TRUE(isRegisteredAnew(port));
  RPCProxy loop(nothing, "BLLManager_mng");
  ASSERT_TRUE(loop.start());
  const wire::Socket first("udp");
  const wire::Socket firstStream("tcp");
  expectServed(firstStream);
  int started = 1;
  for (int round = 1; round < 1000; ++round) {
    module().stop();
    if (module().start()) ++started;
  }
  module().stop();
  // Sanitizers need descriptors to tell what is at an address.
  limitDescriptors(FD_SETSIZE + 64);
  // The transports of the beginning still serve.
  expectServed(first);
  expectServed(firstStream);
  EXPECT_TRUE(loop.stop(false));

  EXPECT_EQ(started, 1000);
  const std::string service = " RPC service 0x2000001d/536870941, version 1";
  const std::string outOfDescriptors = service + R"( \(24 - Too many open files\)\.)";
  const std::regex noSocket("rte/BLL/core/rpcProxy:[0-9]+ Cannot create (UDP|TCP) socket for" +
                            outOfDescriptors);
  // Where the last descriptor is a transport's socket, and nothing is left to make it serve.
  const std::regex noService("rte/BLL/core/rpcProxy:[0-9]+ Cannot (create|register) (UDP|TCP)" +
                             service + R"(\.)");
  std::vector<std::string> transports;
  int atTheEdge = 0;
  std::istringstream said(testing::internal::GetCapturedStderr());
  for (std::string line; std::getline(said, line);) {
    std::smatch match;
    if (line.find("BLLManager_mng: ") != std::string::npos) continue;
    if (std::regex_match(line, match, noSocket)) {
      transports.push_back(match[1]);
    } else {
      EXPECT_TRUE(std::regex_match(line, noService)) << line;
      ++atTheEdge;
    }
  }
  // From some start on, both transports of each.
  EXPECT_GT(transports.size(), 900U);
  EXPECT_LE(atTheEdge, 1);
  for (std::size_t i = 1; i < transports.size(); ++i) {
    ASSERT_NE(transports[i], transports[i - 1]) << i;
  }
}

}  // namespace
