#include "host/daemon.h"

#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <rpc/rpc_com.h>
#include <sys/resource.h>
#include <sys/select.h>

#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "host/bllManager.h"
#include "host/bridge.h"
#include "host/config.h"
#include "host/control.h"
#include "host/controlService.h"
#include "host/log.h"
#include "host/module.h"
#include "host/version.h"
#include "rpc/l2cp.h"
#include "rpc/rte/BLL/core/rpcProxy.h"

namespace {

using namespace std::chrono_literals;

// The thread on which the module registers its program with the port mapper.
constexpr const char* moduleThread = "L2CP_mng";
constexpr auto unregistrationTimeout = 1s;
// Largest request record. Setting one also keeps a client that sends half a record from holding up
// all others. It has to fit the buffer that the RPC library begins with: for a larger record it
// makes room and then, until all of it has come, tries to read it and does nothing else.
constexpr int maxRequestRecord = CONTROL_REQUEST_MAX;

struct Program {
  unsigned long number;
  unsigned long version;
};
constexpr Program programs[] = {{L2CP_PROGRAM, L2CP_VERSION}, {CONTROL_PROGRAM, CONTROL_VERSION}};

class Daemon {
 public:
  explicit Daemon(const DaemonOptions& options) : options_(options) {}

  int run() {
    // Blocked here and so in every thread: they are waited for below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    // A client that goes away while its reply is written must not take the daemon with it.
    std::signal(SIGPIPE, SIG_IGN);

    limitDescriptors();
    if (!configure()) return EXIT_FAILURE;
    connectModule();
    int maxRecord = maxRequestRecord;
    if (rpc_control(RPC_SVC_CONNMAXREC_SET, &maxRecord) == 0) {
      hostlog::error("rpc", "cannot limit the size of requests");
      return EXIT_FAILURE;
    }
    const std::string problem = host().startEntities();
    if (!problem.empty()) {
      hostlog::error("daemon", "{}", problem);
      host().stopEntities();
      return EXIT_FAILURE;
    }

    // The RPC library keeps one set of transports for the process and does not guard it: no loop
    // until the module has registered its own.
    while (!host().waitForThread(moduleThread, 100ms)) {
      const timespec now{};
      if (sigtimedwait(&stopSignals, nullptr, &now) >= 0) abandonRegistration();
    }
    RPCProxy loop(controlServiceStart, "BLLManager_mng");
    loop.start();

    int received = 0;
    sigwait(&stopSignals, &received);
    hostlog::information("daemon", "stopping on {}", received == SIGTERM ? "SIGTERM" : "SIGINT");
    loop.stop(false);
    host().stopEntities();
    unregisterPrograms();
    hostlog::information("daemon", "stopped");
    return EXIT_SUCCESS;
  }

 private:
  // The RPC loop watches the descriptors that `select` can. With the limit there, the RPC library
  // closes the connections that are idle longest before it runs out of descriptors; without it,
  // connections beyond would never be served.
  static void limitDescriptors() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur <= FD_SETSIZE) return;
    limit.rlim_cur = FD_SETSIZE;
    setrlimit(RLIMIT_NOFILE, &limit);
  }

  static BLLManager::Host& host() { return singleton<BLLManager>::instance().host(); }

  bool configure() {
    Config config;
    try {
      if (!options_.configFile.empty()) config = readConfig(options_.configFile);
    } catch (const ConfigError& problem) {
      hostlog::error("config", "{}", problem.what());
      return false;
    }
    setBridgeName(config.bridge);
    configureControlService(config);
    hostlog::information("daemon", "l2cpd {}, bridge {}", hostVersion, config.bridge);
    return true;
  }

  // A port mapper that does not answer holds the module's thread up for minutes, and `stop` would
  // wait for it. There are no clients yet that could lose anything.
  [[noreturn]] static void abandonRegistration() {
    hostlog::warning("rpc", "stopped while waiting for the port mapper");
    std::quick_exit(EXIT_SUCCESS);
  }

  // Tells the port mapper that nobody serves the programs any more, so that clients are told at
  // once. A port mapper that does not answer cannot hold the daemon up.
  static void unregisterPrograms() {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    std::thread([done] {
      for (const Program& program : programs) pmap_unset(program.number, program.version);
      done->set_value();
    }).detach();
    if (finished.wait_for(unregistrationTimeout) != std::future_status::ready) {
      hostlog::warning("rpc", "the port mapper does not answer; the programs stay registered");
      std::quick_exit(EXIT_SUCCESS);
    }
  }

  const DaemonOptions& options_;
};

}  // namespace

int runDaemon(const DaemonOptions& options) { return Daemon(options).run(); }
