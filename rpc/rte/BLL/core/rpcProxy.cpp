#include "rpc/rte/BLL/core/rpcProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <boost/bind.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/BLLManager.h"

namespace {

constexpr const char* sourcePath = "rte/BLL/core/rpcProxy";
constexpr int listenBacklog = 128;

// The threads that own the process-wide RPC loop; the second one is another module's.
constexpr const char* loopThreadNames[] = {"BLLManager_mng", "dhcpra_fun"};

sockaddr_in loopbackWithAnyPort() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool bindToLoopback(int socket) {
  const sockaddr_in address = loopbackWithAnyPort();
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the sockets interface asks for it
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

void registerUdp(unsigned long program, unsigned long version, RpcDispatch dispatch) {
  const int socket = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (socket < 0) {
    const int error = errno;
    std::fprintf(stderr,
                 "%s:%d Cannot create UDP socket for RPC service 0x%08lx/%lu, version %lu "
                 "(%d - %s).\n",
                 sourcePath, __LINE__, program, program, version, error, std::strerror(error));
    return;
  }
  if (!bindToLoopback(socket)) {
    const int error = errno;
    std::fprintf(stderr,
                 "%s:%d Cannot bind UDP socket for RPC service 0x%08lx/%lu, version %lu "
                 "(%d - %s).\n",
                 sourcePath, __LINE__, program, program, version, error, std::strerror(error));
    return;
  }
  SVCXPRT* transport = svcudp_create(socket);
  if (transport == nullptr) {
    std::fprintf(stderr, "%s:%d Cannot create UDP RPC service 0x%08lx/%lu, version %lu.\n",
                 sourcePath, __LINE__, program, program, version);
    return;
  }
  if (!svc_register(transport, program, version, dispatch, IPPROTO_UDP)) {
    std::fprintf(stderr, "%s:%d Cannot register UDP RPC service 0x%08lx/%lu, version %lu.\n",
                 sourcePath, __LINE__, program, program, version);
  }
}

void registerTcp(unsigned long program, unsigned long version, RpcDispatch dispatch) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (socket < 0) {
    const int error = errno;
    std::fprintf(stderr,
                 "%s:%d Cannot create TCP socket for RPC service 0x%08lx/%lu, version %lu "
                 "(%d - %s).\n",
                 sourcePath, __LINE__, program, program, version, error, std::strerror(error));
    return;
  }
  if (!bindToLoopback(socket)) {
    const int error = errno;
    std::fprintf(stderr,
                 "%s:%d Cannot bind TCP socket for RPC service 0x%08lx/%lu, version %lu "
                 "(%d - %s).\n",
                 sourcePath, __LINE__, program, program, version, error, std::strerror(error));
    return;
  }
  if (listen(socket, listenBacklog) != 0) {
    const int error = errno;
    std::fprintf(stderr,
                 "%s:%d Cannot set TCP socket for RPC service 0x%08lx/%lu, version %lu to listen "
                 "mode (%d - %s).\n",
                 sourcePath, __LINE__, program, program, version, error, std::strerror(error));
    return;
  }
  SVCXPRT* transport = svctcp_create(socket, 0, 0);
  if (transport == nullptr) {
    std::fprintf(stderr, "%s:%d Cannot create TCP RPC service 0x%08lx/%lu, version %lu.\n",
                 sourcePath, __LINE__, program, program, version);
    return;
  }
  if (!svc_register(transport, program, version, dispatch, IPPROTO_TCP)) {
    std::fprintf(stderr, "%s:%d Cannot register TCP RPC service 0x%08lx/%lu, version %lu.\n",
                 sourcePath, __LINE__, program, program, version);
  }
}

bool ownsRpcLoop(const std::string& name) {
  return std::ranges::any_of(loopThreadNames, [&name](const char* owner) { return name == owner; });
}

// Serves every transport of the process until the thread is interrupted or `select` fails.
void runRpcLoop(const std::string& name) {
  std::fprintf(stderr, "[%d] %s: Starting main RPC loop - custom made.\n", getpid(), name.c_str());
  try {
    for (;;) {
      fd_set ready = svc_fdset;
      timeval timeout{.tv_sec = 1, .tv_usec = 0};
      const int count = select(FD_SETSIZE, &ready, nullptr, nullptr, &timeout);
      if (count == -1) {
        const int error = errno;
        if (error == EINTR) continue;
        std::fprintf(stderr, "[%d] %s: RPC main loop stopping (%d - %s).\n", getpid(), name.c_str(),
                     error, std::strerror(error));
        return;
      }
      if (count > 0) svc_getreqset(&ready);
      boost::this_thread::interruption_point();
    }
  } catch (const boost::thread_interrupted&) {
    std::fprintf(stderr, "[%d] %s: RPC main loop stopping.\n", getpid(), name.c_str());
  }
}

}  // namespace

void rpcProxyRegisterSvc(unsigned long program, unsigned long version, RpcDispatch dispatch) {
  pmap_unset(program, version);
  registerUdp(program, version, dispatch);
  registerTcp(program, version, dispatch);
}

bool checkInterrupt() {
  try {
    boost::this_thread::interruption_point();
    return false;
  } catch (const boost::thread_interrupted&) {
    return true;
  }
}

RPCProxy::RPCProxy(StartFunction startFunction, std::string name)
    : interruptionHook_(checkInterrupt), startFunction_(startFunction), name_(std::move(name)) {}

RPCProxy::~RPCProxy() noexcept(false) { stop(false); }

bool RPCProxy::start() {
  if (thread_.joinable()) return false;
  thread_ = boost::thread(boost::bind(&RPCProxy::threadFunction, this));
  return true;
}

bool RPCProxy::stop(bool onlyAsk) {
  if (thread_.joinable()) thread_.interrupt();
  if (onlyAsk) return isStopped();
  if (thread_.joinable()) thread_.join();
  return true;
}

bool RPCProxy::isStopped() {
  if (!thread_.joinable()) return true;
  const boost::posix_time::ptime deadline =
      boost::posix_time::microsec_clock::universal_time() + boost::posix_time::milliseconds(100);
  return thread_.timed_join(deadline);
}

void RPCProxy::threadFunction() {
  const std::string name = name_;
  singleton<BLLManager>::instance().registerThread(name);
  // A start function may outlive the proxy only by failing to destroy it on this very thread, so
  // nothing of the proxy is read once it has been called.
  startFunction_(&interruptionHook_);
  if (ownsRpcLoop(name)) runRpcLoop(name);
}
