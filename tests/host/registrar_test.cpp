#include "host/registrar.h"

#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include "host/loopCall.h"

namespace {

using testing::ElementsAre;

int newSocket(int family, int type) { return socket(family, type | SOCK_CLOEXEC, 0); }

/// A socket that the loop serves, at a port of the system's choice.
class Transport {
 public:
  explicit Transport(int type) : descriptor_(newSocket(AF_INET, type)), call_(descriptor_, [] {}) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast): the sockets interface wants it
    EXPECT_EQ(bind(descriptor_, reinterpret_cast<sockaddr*>(&address_), sizeof(address_)), 0);
    socklen_t size = sizeof(address_);
    EXPECT_EQ(getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address_), &size), 0);
    // NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
  }

  in_port_t port() const { return ntohs(address_.sin_port); }

 private:
  int descriptor_;
  LoopCall call_;
  sockaddr_in address_{};
};

TEST(PortsOfTheProcess, AreThoseOfItsTransports) {
  const Transport udp(SOCK_DGRAM);
  const Transport tcp(SOCK_STREAM);
  const RpcPorts ports = RpcPorts::ofThisProcess();
  EXPECT_THAT(ports.udp, ElementsAre(udp.port()));
  EXPECT_THAT(ports.tcp, ElementsAre(tcp.port()));
}

TEST(PortsOfTheProcess, AreNotOfWhatElseTheLoopWatches) {
  const LoopCall call([] {});
  const LoopCall interfaces(newSocket(AF_NETLINK, SOCK_RAW), [] {});
  const LoopCall neighbour(newSocket(AF_UNIX, SOCK_STREAM), [] {});
  const RpcPorts ports = RpcPorts::ofThisProcess();
  EXPECT_THAT(ports.udp, testing::IsEmpty());
  EXPECT_THAT(ports.tcp, testing::IsEmpty());
}

}  // namespace
