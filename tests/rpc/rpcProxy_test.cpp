// The thread class, the RPC loop that two of its names own, and the registration of a program.
//
// What they call of the system and of the RPC library is replaced for the whole test program: it
// does the real thing unless a test wants it to fail, but for the port mapper, which is left alone.

#include "rpc/rte/BLL/core/rpcProxy.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/bllManager.h"
#include "rpc/server.h"

// The module's dispatch routine.
extern "C" void l2cp_program_1(struct svc_req* request, SVCXPRT* transport);

namespace {

/// What is called, in its order, and what of it is to fail.
struct System {
  std::vector<std::string> calls;
  std::string failing;  ///< as it stands in `calls`, up to a blank
  int error = EMFILE;
  std::vector<int> sockets;
  std::vector<SVCXPRT*> transports;
  RpcDispatch dispatch = nullptr;
  std::vector<RpcDispatch> dispatches;

  bool fails(const std::string& step, const std::string& details = "") {
    calls.push_back(step + details);
    if (step != failing) return false;
    errno = error;
    return true;
  }

  // Set before a loop starts.
  std::function<int(int, fd_set*, fd_set*, fd_set*, timeval*)> select;
  // Told of a thread that registers itself, on that thread. Set before one starts.
  std::function<void(const std::string&)> registration;
};

System& system_() {
  static System system;
  return system;
}

template <class Function>
Function real(Function, const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));  // NOLINT: as dlsym asks for it
}

const char* kindOf(int socket) {
  int type = 0;
  socklen_t size = sizeof(type);
  getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size);
  return type == SOCK_DGRAM ? "UDP" : "TCP";
}

}  // namespace

// ---- Replacements ----

extern "C" {

bool_t pmap_unset(u_long program, u_long version) {
  system_().calls.push_back("unset " + std::to_string(program) + " " + std::to_string(version));
  return TRUE;
}

int socket(int domain, int type, int protocol) noexcept {
  const bool isOurs = domain == AF_INET && (type == SOCK_DGRAM || type == SOCK_STREAM);
  if (isOurs && system_().fails(type == SOCK_DGRAM ? "UDP-socket" : "TCP-socket",
                                " " + std::to_string(protocol))) {
    return -1;
  }
  const int descriptor = real(&socket, "socket")(domain, type, protocol);
  if (isOurs) system_().sockets.push_back(descriptor);
  return descriptor;
}

int bind(int socket, const sockaddr* address, socklen_t size) noexcept {
  const auto* inet = reinterpret_cast<const sockaddr_in*>(address);  // NOLINT: it is one
  char details[64];
  std::snprintf(details, sizeof(details), " %08x:%u", ntohl(inet->sin_addr.s_addr),
                ntohs(inet->sin_port));
  if (system_().fails(std::string(kindOf(socket)) + "-bind", details)) return -1;
  return real(&bind, "bind")(socket, address, size);
}

int listen(int socket, int backlog) noexcept {
  if (system_().fails("TCP-listen", " " + std::to_string(backlog))) return -1;
  return real(&listen, "listen")(socket, backlog);
}

SVCXPRT* svcudp_create(int socket) {
  if (system_().fails("UDP-create")) return nullptr;
  system_().transports.push_back(real(&svcudp_create, "svcudp_create")(socket));
  return system_().transports.back();
}

SVCXPRT* svctcp_create(int socket, u_int sendSize, u_int receiveSize) {
  if (system_().fails("TCP-create",
                      " " + std::to_string(sendSize) + " " + std::to_string(receiveSize))) {
    return nullptr;
  }
  system_().transports.push_back(
      real(&svctcp_create, "svctcp_create")(socket, sendSize, receiveSize));
  return system_().transports.back();
}

bool_t svc_register(SVCXPRT* transport, u_long program, u_long version, RpcDispatch dispatch,
                    int protocol) {
  const std::string step = protocol == IPPROTO_UDP ? "UDP-register" : "TCP-register";
  if (system_().fails(step, " " + std::to_string(program) + " " + std::to_string(version))) {
    return FALSE;
  }
  system_().dispatch = dispatch;
  system_().dispatches.push_back(dispatch);
  // Without a protocol the port mapper is not told.
  return real(&svc_register, "svc_register")(transport, program, version, dispatch, 0);
}

void svc_unregister(u_long program, u_long version) {
  system_().calls.push_back("unregister " + std::to_string(program) + " " +
                            std::to_string(version));
  real(&svc_unregister, "svc_unregister")(program, version);
}

int select(int count, fd_set* reading, fd_set* writing, fd_set* failing, timeval* timeout) {
  if (system_().select) return system_().select(count, reading, writing, failing, timeout);
  return real(&select, "select")(count, reading, writing, failing, timeout);
}

}  // extern "C"

void BLLManager::registerThread(const std::string& name) {
  if (system_().registration) system_().registration(name);
  void (*const registerIt)(BLLManager*, const std::string&) = nullptr;
  real(registerIt,
       "_ZN10BLLManager14registerThreadERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE")(
      this, name);
}

namespace {

constexpr std::chrono::seconds patience{30};

class StandardError {
 public:
  StandardError() { testing::internal::CaptureStderr(); }
  std::string text() { return testing::internal::GetCapturedStderr(); }
};

/// Leaves nothing registered and no descriptor open.
class SystemTest : public testing::Test {
 protected:
  void TearDown() override {
    System& system = system_();
    system.select = nullptr;
    system.registration = nullptr;
    for (SVCXPRT* transport : system.transports) {
      std::erase(system.sockets, transport->xp_fd);
      svc_destroy(transport);
    }
    for (const int descriptor : system.sockets) close(descriptor);
    system = {};
  }
};

// ---- Registration ----

constexpr unsigned long program = 0x20000042;
constexpr unsigned long version = 7;

bool_t nothing(XDR* /*stream*/, ...) { return TRUE; }

void dispatchNothing(svc_req* /*request*/, SVCXPRT* transport) {
  svc_sendreply(transport, nothing, nullptr);
}

const std::vector<std::string> unsetCall{"unset 536870978 7"};
const std::vector<std::string> udpCalls{"UDP-socket 17", "UDP-bind 7f000001:0", "UDP-create",
                                        "UDP-register 536870978 7"};
const std::vector<std::string> tcpCalls{"TCP-socket 6", "TCP-bind 7f000001:0", "TCP-listen 128",
                                        "TCP-create 0 0", "TCP-register 536870978 7"};

std::vector<std::string> joined(std::vector<std::string> left,
                                const std::vector<std::string>& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class Registration : public SystemTest {};

TEST_F(Registration, GoesFromThePortMapperOverUdpToTcp) {
  StandardError output;
  rpcProxyRegisterSvc(program, version, dispatchNothing);
  EXPECT_EQ(output.text(), "");
  EXPECT_EQ(system_().calls, joined(unsetCall, joined(udpCalls, tcpCalls)));
  EXPECT_EQ(system_().dispatch, &dispatchNothing);
}

TEST_F(Registration, SecondOneDropsTheEntriesOfTheFirstAtThePortMapper) {
  StandardError output;
  rpcProxyRegisterSvc(program, version, dispatchNothing);
  rpcProxyRegisterSvc(program, version, dispatchNothing);
  EXPECT_EQ(output.text(), "");
  const std::vector<std::string> once = joined(unsetCall, joined(udpCalls, tcpCalls));
  EXPECT_EQ(system_().calls, joined(once, once));
}

struct Failure {
  const char* step;
  const char* message;  ///< behind the place
  bool hasError;
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.step; }

class FailedRegistration : public SystemTest, public testing::WithParamInterface<Failure> {};

constexpr Failure failures[] = {
    {"UDP-socket", "Cannot create UDP socket for RPC service 0x20000042/536870978, version 7",
     true},
    {"UDP-bind", "Cannot bind UDP socket for RPC service 0x20000042/536870978, version 7", true},
    {"UDP-create", "Cannot create UDP RPC service 0x20000042/536870978, version 7", false},
    {"UDP-register", "Cannot register UDP RPC service 0x20000042/536870978, version 7", false},
    {"TCP-socket", "Cannot create TCP socket for RPC service 0x20000042/536870978, version 7",
     true},
    {"TCP-bind", "Cannot bind TCP socket for RPC service 0x20000042/536870978, version 7", true},
    {"TCP-listen",
     "Cannot set TCP socket for RPC service 0x20000042/536870978, version 7 to listen mode", true},
    {"TCP-create", "Cannot create TCP RPC service 0x20000042/536870978, version 7", false},
    {"TCP-register", "Cannot register TCP RPC service 0x20000042/536870978, version 7", false},
};

INSTANTIATE_TEST_SUITE_P(At, FailedRegistration, testing::ValuesIn(failures),
                         [](const auto& failure) {
                           std::string name = failure.param.step;
                           std::erase(name, '-');
                           return name;
                         });

TEST_P(FailedRegistration, SaysSoOnceAndEndsTheWorkOnThatTransportAlone) {
  system_().failing = GetParam().step;
  StandardError output;
  rpcProxyRegisterSvc(program, version, dispatchNothing);

  std::string message = output.text();
  const std::string place = "rte/BLL/core/rpcProxy:";
  ASSERT_EQ(message.substr(0, place.size()), place);
  const auto lineEnd = message.find_first_not_of("0123456789", place.size());
  ASSERT_GT(lineEnd, place.size());
  EXPECT_EQ(message.substr(lineEnd),
            std::string(" ") + GetParam().message +
                (GetParam().hasError ? " (24 - Too many open files).\n" : ".\n"));

  std::vector<std::string> expected = unsetCall;
  for (const auto* calls : {&udpCalls, &tcpCalls}) {
    for (const std::string& call : *calls) {
      expected.push_back(call);
      if (call.starts_with(GetParam().step)) break;
    }
  }
  EXPECT_EQ(system_().calls, expected);
}

TEST_P(FailedRegistration, LeavesWhatWasMadeOpen) {
  system_().failing = GetParam().step;
  StandardError output;
  rpcProxyRegisterSvc(program, version, dispatchNothing);
  output.text();
  for (const int descriptor : system_().sockets) EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(Registration, MessageCarriesTheErrorOfItsStep) {
  system_().failing = "TCP-listen";
  system_().error = EADDRINUSE;
  StandardError output;
  rpcProxyRegisterSvc(program, version, dispatchNothing);
  EXPECT_THAT(output.text(), testing::EndsWith(" (98 - Address already in use).\n"));
}

TEST_F(Registration, SmallNumbersAreFilledUpInHexadecimal) {
  system_().failing = "UDP-socket";
  StandardError output;
  rpcProxyRegisterSvc(0x77, 12, dispatchNothing);
  EXPECT_THAT(output.text(), testing::HasSubstr("RPC service 0x00000077/119, version 12 ("));
}

TEST_F(Registration, ModulesStartFunctionRegistersItsProgramAndReturnsNull) {
  EXPECT_EQ(rpcL2CPStart(nullptr), nullptr);
  EXPECT_EQ(system_().calls.front(), "unset 536870941 1");
  EXPECT_EQ(system_().calls.back(), "TCP-register 536870941 1");
  EXPECT_EQ(system_().dispatches, std::vector<RpcDispatch>(2, &l2cp_program_1));
}

// ---- Threads ----

/// What the start function of the running test does with its argument, and how often it did.
std::function<void(void*)> startBody;
std::atomic<int> starts;

void* start(void* hook) {
  ++starts;
  if (startBody) startBody(hook);
  return nullptr;
}

/// Holds a thread until it is let go. Waiting is no interruption point.
class Gate {
 public:
  void wait() { opened_.wait(); }
  void open() { opening_.set_value(); }

 private:
  std::promise<void> opening_;
  std::shared_future<void> opened_ = opening_.get_future().share();
};

class Proxy : public SystemTest {
 protected:
  void SetUp() override {
    startBody = nullptr;
    starts = 0;
  }

  static bool waitForEnd(const std::string& name) {
    return singleton<BLLManager>::instance().host().waitForThread(name, patience);
  }
};

bool (*hookOf(void* argument))() { return *static_cast<bool (**)()>(argument); }

TEST_F(Proxy, StartFunctionRunsOnAThreadOfItsOwnWithTheInterruptionHook) {
  std::promise<std::pair<boost::thread::id, void*>> called;
  startBody = [&](void* argument) { called.set_value({boost::this_thread::get_id(), argument}); };
  RPCProxy proxy(start, "thread");
  EXPECT_TRUE(proxy.start());
  const auto [thread, argument] = called.get_future().get();
  EXPECT_NE(thread, boost::this_thread::get_id());
  EXPECT_EQ(hookOf(argument), &checkInterrupt);
  EXPECT_TRUE(proxy.stop(false));
}

TEST_F(Proxy, ThreadIsKnownToTheManagerUnderItsName) {
  RPCProxy proxy(start, "somebody's thread");
  proxy.start();
  EXPECT_TRUE(waitForEnd("somebody's thread"));
}

TEST_F(Proxy, ThreadRegistersItselfBeforeTheStartFunctionRuns) {
  using Step = std::pair<std::string, boost::thread::id>;
  std::vector<Step> steps;
  const auto record = [&](const std::string& step) {
    steps.emplace_back(step, boost::this_thread::get_id());
  };
  system_().registration = record;
  startBody = [&](void*) { record("start function"); };
  RPCProxy proxy(start, "thread");
  proxy.start();
  EXPECT_TRUE(proxy.stop(false));
  ASSERT_EQ(steps.size(), 2U);
  EXPECT_EQ(steps[0].first, "thread");
  EXPECT_EQ(steps[1].first, "start function");
  EXPECT_EQ(steps[0].second, steps[1].second);
}

TEST_F(Proxy, StartWhileTheThreadRunsIsRefused) {
  Gate gate;
  startBody = [&](void*) { gate.wait(); };
  RPCProxy proxy(start, "thread");
  EXPECT_TRUE(proxy.start());
  EXPECT_FALSE(proxy.start());
  gate.open();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_EQ(starts, 1);
}

TEST_F(Proxy, StartIsRefusedUntilTheEndOfTheThreadHasBeenTaken) {
  RPCProxy proxy(start, "ending");
  proxy.start();
  ASSERT_TRUE(waitForEnd("ending"));
  EXPECT_FALSE(proxy.start());
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_TRUE(proxy.start());
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_EQ(starts, 2);
}

TEST_F(Proxy, NeverStartedIsStopped) {
  RPCProxy proxy(start, "thread");
  EXPECT_TRUE(proxy.isStopped());
  EXPECT_TRUE(proxy.stop(true));
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_EQ(starts, 0);
}

/// How long the question takes, and its answer.
std::pair<std::chrono::steady_clock::duration, bool> askIfStopped(RPCProxy& proxy) {
  const auto begin = std::chrono::steady_clock::now();
  const bool stopped = proxy.isStopped();
  return {std::chrono::steady_clock::now() - begin, stopped};
}

// An end of the wait on a clock of its own may come a little early.
constexpr std::chrono::milliseconds almostTheWait{90};

TEST_F(Proxy, QuestionIfARunningThreadHasStoppedWaitsATenthOfASecond) {
  Gate gate;
  startBody = [&](void*) { gate.wait(); };
  RPCProxy proxy(start, "thread");
  proxy.start();
  const auto [duration, stopped] = askIfStopped(proxy);
  gate.open();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_FALSE(stopped);
  EXPECT_GE(duration, almostTheWait);
  EXPECT_LT(duration, std::chrono::seconds(5));
}

TEST_F(Proxy, QuestionIfAProxyThatWasNeverStartedHasStoppedIsAnsweredAtOnce) {
  RPCProxy proxy(start, "thread");
  const auto [duration, stopped] = askIfStopped(proxy);
  EXPECT_TRUE(stopped);
  EXPECT_LT(duration, almostTheWait);
}

TEST_F(Proxy, StopLeavesWhatTheStartFunctionRegistered) {
  startBody = [](void*) { rpcProxyRegisterSvc(program, version, dispatchNothing); };
  {
    RPCProxy proxy(start, "thread");
    proxy.start();
    EXPECT_TRUE(proxy.stop(false));
  }
  EXPECT_EQ(system_().calls, joined(unsetCall, joined(udpCalls, tcpCalls)));
  for (const int descriptor : system_().sockets) EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(Proxy, StopThatOnlyAsksReturnsFalseWhileTheThreadGoesOn) {
  Gate gate;
  startBody = [&](void*) { gate.wait(); };
  RPCProxy proxy(start, "thread");
  proxy.start();
  EXPECT_FALSE(proxy.isStopped());
  EXPECT_FALSE(proxy.stop(true));
  EXPECT_FALSE(proxy.start());
  gate.open();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_TRUE(proxy.isStopped());
}

TEST_F(Proxy, StopThatOnlyAsksReturnsTrueOnceTheThreadHasEnded) {
  RPCProxy proxy(start, "ended");
  proxy.start();
  ASSERT_TRUE(waitForEnd("ended"));
  bool stopped = proxy.stop(true);
  while (!stopped) stopped = proxy.stop(true);
  EXPECT_TRUE(proxy.start());
  EXPECT_TRUE(proxy.stop(false));
}

TEST_F(Proxy, StopReturnsOnlyAfterTheEndOfTheThread) {
  std::atomic<bool> ended = false;
  startBody = [&](void* argument) {
    while (!hookOf(argument)()) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    ended = true;
  };
  RPCProxy proxy(start, "thread");
  proxy.start();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_TRUE(ended);
}

TEST_F(Proxy, DestructorStopsTheThread) {
  std::atomic<bool> ended = false;
  startBody = [&](void* argument) {
    while (!hookOf(argument)()) std::this_thread::yield();
    ended = true;
  };
  auto proxy = std::make_unique<RPCProxy>(start, "thread");
  proxy->start();
  proxy.reset();
  EXPECT_TRUE(ended);
}

void expectSelfJoin(const std::function<void()>& call) {
  try {
    call();
    ADD_FAILURE() << "no error";
  } catch (const boost::thread_resource_error& error) {
    EXPECT_THAT(error.what(), testing::StartsWith("boost thread: trying joining itself"));
    EXPECT_EQ(error.native_error(), 35);
  }
}

TEST_F(Proxy, StopOnItsOwnThreadIsAnError) {
  Gate started;
  std::promise<void> tried;
  RPCProxy proxy(start, "thread");
  startBody = [&](void*) {
    started.wait();
    expectSelfJoin([&] { proxy.stop(false); });
    tried.set_value();
  };
  proxy.start();
  started.open();
  tried.get_future().get();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_EQ(starts, 1);
}

TEST_F(Proxy, DestructionOnItsOwnThreadIsAnError) {
  std::promise<void> destroyed;
  Gate gate;
  auto* proxy = new RPCProxy(start, "self-destroyed");  // NOLINT: its thread is to delete it
  startBody = [&](void*) {
    gate.wait();
    expectSelfJoin([&] { delete proxy; });  // NOLINT: see above
    destroyed.set_value();
  };
  proxy->start();
  gate.open();
  destroyed.get_future().get();
  EXPECT_TRUE(waitForEnd("self-destroyed"));
}

TEST_F(Proxy, InterruptionIsSeenByTheHookAlone) {
  std::vector<bool> seen;
  Gate running;
  Gate asked;
  startBody = [&](void*) {
    seen.push_back(checkInterrupt());
    running.open();
    asked.wait();
    seen.push_back(checkInterrupt());
    seen.push_back(checkInterrupt());
  };
  RPCProxy proxy(start, "thread");
  proxy.start();
  running.wait();
  EXPECT_FALSE(proxy.stop(true));
  asked.open();
  EXPECT_TRUE(proxy.stop(false));
  // Once it has been seen, a request is done with.
  EXPECT_EQ(seen, (std::vector<bool>{false, true, false}));
}

TEST(CheckInterrupt, IsFalseOnAThreadThatNobodyInterrupts) { EXPECT_FALSE(checkInterrupt()); }

// The member of a proxy that stands at that offset.
template <class Member>
const Member& member(const RPCProxy& proxy, std::size_t offset) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&proxy);  // NOLINT: is looked into
  return *reinterpret_cast<const Member*>(bytes + offset);             // NOLINT
}

TEST_F(Proxy, HoldsThreadHookStartFunctionAndNameInThisOrder) {
  RPCProxy proxy(start, "thread");
  const std::size_t hook = sizeof(boost::thread);
  const std::size_t startFunction = hook + sizeof(void*);
  const std::size_t name = startFunction + sizeof(void*);
  ASSERT_EQ(sizeof(RPCProxy), name + sizeof(std::string));
  ASSERT_EQ(member<bool (*)()>(proxy, hook), &checkInterrupt);
  ASSERT_EQ(member<RPCProxy::StartFunction>(proxy, startFunction), &start);
  EXPECT_EQ(member<std::string>(proxy, name), "thread");
  EXPECT_FALSE(member<boost::thread>(proxy, 0).joinable());
  ASSERT_TRUE(proxy.start());
  EXPECT_TRUE(member<boost::thread>(proxy, 0).joinable());
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_FALSE(member<boost::thread>(proxy, 0).joinable());
}

TEST(RpcProxyType, IsNeitherCopiedNorAssigned) {
  static_assert(!std::is_copy_constructible_v<RPCProxy>);
  static_assert(!std::is_move_constructible_v<RPCProxy>);
  static_assert(!std::is_copy_assignable_v<RPCProxy>);
  static_assert(!std::is_move_assignable_v<RPCProxy>);
}

// ---- Loop ----

class Loop : public Proxy {
 protected:
  static std::string prefix(const std::string& name) {
    return "[" + std::to_string(getpid()) + "] " + name + ": ";
  }
};

TEST_F(Loop, OtherNamesEndAfterTheirStartFunction) {
  for (const char* name : {"L2CP_mng", "", "BLLManager_mng2", "bllmanager_mng", "dhcpra_fun "}) {
    StandardError output;
    RPCProxy proxy(start, name);
    proxy.start();
    ASSERT_TRUE(waitForEnd(name));
    EXPECT_TRUE(proxy.stop(false));
    EXPECT_EQ(output.text(), "") << name;
  }
}

class LoopOwner : public Loop, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Named, LoopOwner, testing::Values("BLLManager_mng", "dhcpra_fun"),
                         [](const auto& name) { return std::string(name.param); });

TEST_P(LoopOwner, SaysThatTheLoopStartsAndStops) {
  std::promise<void> looping;
  system_().select = [&, first = true](int, fd_set*, fd_set*, fd_set*, timeval*) mutable {
    if (first) looping.set_value();
    first = false;
    return 0;
  };
  StandardError output;
  RPCProxy proxy(start, GetParam());
  proxy.start();
  looping.get_future().get();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_EQ(output.text(), prefix(GetParam()) + "Starting main RPC loop - custom made.\n" +
                               prefix(GetParam()) + "RPC main loop stopping.\n");
  EXPECT_EQ(starts, 1);
}

TEST_F(Loop, StartsBehindTheStartFunction) {
  int selectsBefore = -1;
  std::atomic<int> selects = 0;
  startBody = [&](void*) { selectsBefore = selects; };
  std::promise<void> looping;
  system_().select = [&](int, fd_set*, fd_set*, fd_set*, timeval*) {
    if (++selects == 1) looping.set_value();
    return 0;
  };
  StandardError output;
  RPCProxy proxy(start, "BLLManager_mng");
  proxy.start();
  looping.get_future().get();
  proxy.stop(false);
  output.text();
  EXPECT_EQ(selectsBefore, 0);
}

TEST_F(Loop, FailureOfSelectEndsItWithTheReason) {
  system_().select = [](int, fd_set*, fd_set*, fd_set*, timeval*) {
    errno = EBADF;
    return -1;
  };
  StandardError output;
  RPCProxy proxy(start, "BLLManager_mng");
  proxy.start();
  EXPECT_TRUE(waitForEnd("BLLManager_mng"));
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_EQ(output.text(), prefix("BLLManager_mng") + "Starting main RPC loop - custom made.\n" +
                               prefix("BLLManager_mng") +
                               "RPC main loop stopping (9 - Bad file descriptor).\n");
}

TEST_F(Loop, InterruptedSelectIsCalledAgainWithAFreshSecondAndAFreshSet) {
  struct Call {
    int count;
    bool others;
    timeval timeout;
    bool sameSet;
  };
  std::vector<Call> calls;
  system_().select = [&](int count, fd_set* reading, fd_set* writing, fd_set* failing,
                         timeval* timeout) {
    calls.push_back({count, writing != nullptr || failing != nullptr, *timeout,
                     std::memcmp(reading, &svc_fdset, sizeof(fd_set)) == 0});
    std::memset(reading, 0xff, sizeof(fd_set));
    *timeout = {};
    errno = calls.size() < 4 ? EINTR : EINVAL;
    return -1;
  };
  StandardError output;
  RPCProxy proxy(start, "BLLManager_mng");
  proxy.start();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_THAT(output.text(),
              testing::EndsWith("RPC main loop stopping (22 - Invalid argument).\n"));
  ASSERT_EQ(calls.size(), 4U);
  for (const Call& call : calls) {
    EXPECT_EQ(call.count, 1024);
    EXPECT_FALSE(call.others);
    EXPECT_EQ(call.timeout.tv_sec, 1);
    EXPECT_EQ(call.timeout.tv_usec, 0);
    EXPECT_TRUE(call.sameSet);
  }
}

TEST_F(Loop, TimeoutIsAPointWhereItCanBeStopped) {
  std::atomic<int> timeouts = 0;
  std::promise<void> several;
  system_().select = [&](int, fd_set*, fd_set*, fd_set*, timeval*) {
    if (++timeouts == 3) several.set_value();
    return 0;
  };
  StandardError output;
  RPCProxy proxy(start, "BLLManager_mng");
  proxy.start();
  several.get_future().get();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_THAT(output.text(), testing::EndsWith(": RPC main loop stopping.\n"));
}

TEST_F(Loop, StopIsNoticedThoughRequestsKeepComing) {
  std::atomic<int> passes = 0;
  std::promise<void> several;
  system_().select = [&](int, fd_set* reading, fd_set*, fd_set*, timeval*) {
    if (++passes == 3) several.set_value();
    FD_ZERO(reading);
    return 1;
  };
  StandardError output;
  RPCProxy proxy(start, "BLLManager_mng");
  proxy.start();
  several.get_future().get();
  EXPECT_TRUE(proxy.stop(false));
  EXPECT_THAT(output.text(), testing::EndsWith(": RPC main loop stopping.\n"));
}

// Calls procedure 0 of the test's program over a transport that was registered.
clnt_stat ping(const SVCXPRT* transport) {
  const std::vector<int> serverSockets = system_().sockets;
  sockaddr_in address{};
  socklen_t size = sizeof(address);
  auto* generic = reinterpret_cast<sockaddr*>(&address);  // NOLINT: as C asks for it
  getsockname(transport->xp_fd, generic, &size);
  int socket = RPC_ANYSOCK;
  const bool isStream = std::strcmp(kindOf(transport->xp_fd), "TCP") == 0;
  CLIENT* client = isStream ? clnttcp_create(&address, program, version, &socket, 0, 0)
                            : clntudp_create(&address, program, version,
                                             timeval{.tv_sec = 5, .tv_usec = 0}, &socket);
  if (client == nullptr) return rpc_createerr.cf_stat;
  const clnt_stat result = clnt_call(client, 0, nothing, nullptr, nothing, nullptr,
                                     (timeval{.tv_sec = 30, .tv_usec = 0}));
  clnt_destroy(client);
  system_().sockets = serverSockets;
  return result;
}

TEST_F(Loop, ServesRegisteredProgramsOverBothTransports) {
  startBody = [](void*) { rpcProxyRegisterSvc(program, version, dispatchNothing); };
  std::promise<void> looping;
  system_().select = [&, first = true](int count, fd_set* reading, fd_set* writing, fd_set* failing,
                                       timeval* timeout) mutable {
    if (first) looping.set_value();
    first = false;
    return real(&select, "select")(count, reading, writing, failing, timeout);
  };
  StandardError output;
  RPCProxy proxy(start, "BLLManager_mng");
  proxy.start();
  looping.get_future().get();
  const std::vector<SVCXPRT*> transports = system_().transports;
  ASSERT_EQ(transports.size(), 2U);
  for (int round = 0; round < 3; ++round) {
    for (const SVCXPRT* transport : transports) EXPECT_EQ(ping(transport), RPC_SUCCESS);
  }
  EXPECT_TRUE(proxy.stop(false));
  output.text();
}

}  // namespace
