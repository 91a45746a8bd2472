#include "host/daemon.h"

#include <rpc/rpc.h>
#include <rpc/rpc_com.h>
#include <sys/resource.h>
#include <sys/select.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <future>
#include <initializer_list>
#include <list>
#include <optional>
#include <sstream>
#include <string>

#include "classifier/table.h"
#include "host/bllManager.h"
#include "host/bridge.h"
#include "host/control.h"
#include "host/controlService.h"
#include "host/hostScripter.h"
#include "host/keptPrograms.h"
#include "host/livePorts.h"
#include "host/lockFile.h"
#include "host/log.h"
#include "host/loopCall.h"
#include "host/module.h"
#include "host/registrar.h"
#include "host/serviceManager.h"
#include "host/settings.h"
#include "host/startup.h"
#include "host/version.h"
#include "platform/CliConfig.h"
#include "rpc/l2cp.h"
#include "rpc/rte/BLL/core/rpcProxy.h"

namespace {

using namespace std::chrono_literals;

// The thread on which the module registers its program with the port mapper.
constexpr const char* moduleThread = "L2CP_mng";
// The RPC loop and the port mapper need next to nothing, or together they get this.
constexpr auto stopTimeout = 1800ms;
// How long a port mapper may take before the daemon says what it is waiting for.
constexpr auto registrationPatience = 2s;
// Largest request record. Setting one also keeps a client that sends half a record from holding up
// all others. It has to fit the buffer that the RPC library begins with: for a larger record it
// makes room and then, until all of it has come, tries to read it and does nothing else.
constexpr int maxRequestRecord = CONTROL_REQUEST_MAX;

constexpr RpcProgram programs[] = {{L2CP_PROGRAM, L2CP_VERSION},
                                   {CONTROL_PROGRAM, CONTROL_VERSION}};

class Daemon {
 public:
  explicit Daemon(const DaemonOptions& options) : settings_(options.configFile) {}

  int run() {
    // Blocked here and so in every thread: they are waited for below.
    const sigset_t stopSignals = signalSet({SIGTERM, SIGINT});
    const sigset_t signals = signalSet({SIGTERM, SIGINT, SIGHUP});
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A client that goes away while its reply is written must not take the daemon with it.
    std::signal(SIGPIPE, SIG_IGN);

    limitDescriptors();
    takeLock();
    makeStartupFolder();
    configure();
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
    restore();
    // Not before the tables are complete.
    if (livePorts_) livePorts_->followLinks();

    // The RPC library keeps one set of transports for the process and does not guard it: no loop
    // until the module has registered its own.
    awaitRegistration(stopSignals, [] { return host().waitForThread(moduleThread, 100ms); });
    const LoopCall reload([this] { settings_.reload(); });
    const LoopCall wakeUp([] {});
    const std::list<LoopCall> watches = watchInterfaces();
    std::future<RpcPorts> ports = served().get_future();
    RPCProxy loop(serve, "BLLManager_mng");
    loop.start();
    awaitRegistration(stopSignals,
                      [&] { return ports.wait_for(100ms) == std::future_status::ready; });
    Registrar registrar(programs, ports.get());
    serviceManager::ready(servingStatus);

    int received = 0;
    while (sigwait(&signals, &received) == 0 && received == SIGHUP) reload.request();
    hostlog::information("daemon", "stopping on {}", received == SIGTERM ? "SIGTERM" : "SIGINT");
    serviceManager::stopping();
    const auto deadline = std::chrono::steady_clock::now() + stopTimeout;
    registrar.beginStop();
    stopLoop(loop, wakeUp);
    // Before the entities take their rules away: programs that are kept go on with them.
    livePorts_.reset();
    host().stopEntities();
    if (!registrar.waitStopped(deadline)) {
      leave("the port mapper does not answer; the programs stay registered");
    }
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

  static sigset_t signalSet(std::initializer_list<int> numbers) {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : numbers) sigaddset(&set, number);
    return set;
  }

  static BLLManager::Host& host() { return singleton<BLLManager>::instance().host(); }

  // Files at places that the configuration names have to be usable, or the daemon does not run;
  // those at the places of its own choice need not be: they may be read-only. A lock that another
  // process has, or may have, is respected at either. Throws LockError and ConfigError.
  void takeLock() {
    const Config& config = settings_.config();
    if (config.lock.empty()) {
      hostlog::warning("daemon", "no lock: XDG_RUNTIME_DIR names no folder for it");
      return;
    }
    try {
      lock_.emplace(config.lock);
    } catch (const LockHeld&) {
      throw;
    } catch (const LockUnknown&) {
      throw;
    } catch (const LockError& problem) {
      if (config.isLockChosen) throw;
      hostlog::warning("daemon", "no lock: {}", problem.what());
    }
  }
  void makeStartupFolder() {
    const Config& config = settings_.config();
    if (config.startup.empty()) return;
    const std::filesystem::path folder = std::filesystem::path(config.startup).parent_path();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!error) return;
    const std::string problem = fmt::format("{}: {}", folder.string(), error.message());
    if (config.isStartupChosen) throw ConfigError(problem);
    hostlog::warning("daemon", "no folder for the startup script: {}", problem);
  }

  void configure() {
    const std::string& bridge = settings_.config().bridge;
    setBridgeName(bridge);
    connectModule();
    settings_.setUp();
    if (settings_.config().classifier == "xdp") {
      livePorts_.emplace(classifier::tableOf(bridge), settings_.config());
      settings_.onPorts([this] { return livePorts_->followConfig(); });
    } else {
      KeptPrograms(false).removeOthers({});
    }
    configureControlService(settings_, livePorts_ ? &*livePorts_ : nullptr);
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the framework takes it over
    singleton<CliConfig>::instance().addScripter(new HostScripter);
    hostlog::information("daemon", "l2cpd {}, bridge {}", hostVersion, bridge);
  }

  // What the kernel has to tell of interfaces has its turn in the loop.
  std::list<LoopCall> watchInterfaces() {
    std::list<LoopCall> watches;
    if (!livePorts_) return watches;
    for (const int descriptor :
         {classifier::xdp::watchLinks(), classifier::xdp::watchXdpFeatures()}) {
      if (descriptor >= 0) watches.emplace_back(descriptor, [this] { livePorts_->followLinks(); });
    }
    // For what has happened before anybody watched.
    livePorts_->followLinks();
    return watches;
  }

  // Carries out the script that was saved last.
  void restore() {
    const Config& config = settings_.config();
    const std::string& path = config.startup;
    if (path.empty()) return;
    const auto strictness =
        config.strictStartup ? startup::Strictness::nothing : startup::Strictness::skipLines;
    const auto [commands, problems, isUndone] = startup::replay(path, strictness);
    if (isUndone) settings_.setUp();
    for (const std::string& line : problems) hostlog::warning("startup", "{}", line);
    if (commands == 0 && problems.empty()) return;
    hostlog::information("startup", "{}: {} commands, {} problems", path, commands,
                         problems.size());
  }

  // A port mapper that does not answer holds those who register up for minutes, and stopping them
  // would wait for it. There are no clients yet that could lose anything. `ended` waits for a while
  // and says whether they are through.
  template <class Ended>
  static void awaitRegistration(const sigset_t& stopSignals, Ended ended) {
    const auto begin = std::chrono::steady_clock::now();
    bool said = false;
    while (!ended()) {
      if (!said && std::chrono::steady_clock::now() - begin > registrationPatience) {
        hostlog::warning("rpc", "waiting for the port mapper; nobody is served before it answers");
        said = true;
      }
      const timespec now{};
      if (sigtimedwait(&stopSignals, nullptr, &now) >= 0) {
        serviceManager::stopping();
        leave("stopped while waiting for the port mapper");
      }
    }
  }

  // Kept when the daemon's own program is registered and the loop is about to begin.
  static std::promise<RpcPorts>& served() {
    static std::promise<RpcPorts> instance;
    return instance;
  }

  static void* serve(void* interruptionHook) {
    controlServiceStart(interruptionHook);
    served().set_value(RpcPorts::ofThisProcess());
    return nullptr;
  }

  // The loop would look only every second whether it is to stop.
  static void stopLoop(RPCProxy& loop, const LoopCall& wakeUp) {
    loop.stop(true);
    wakeUp.request();
    loop.stop(false);
  }

  // Ends the process while one of its threads is held up by the port mapper.
  [[noreturn]] static void leave(const char* reason) {
    hostlog::warning("rpc", "{}", reason);
    std::quick_exit(EXIT_SUCCESS);
  }

  Settings settings_;
  std::optional<LockFile> lock_;
  std::optional<LivePorts> livePorts_;
};

}  // namespace

int runDaemon(const DaemonOptions& options) {
  try {
    return Daemon(options).run();
  } catch (const ConfigError& problem) {
    hostlog::error("config", "{}", problem.what());
  } catch (const LockError& problem) {
    hostlog::error("daemon", "{}", problem.what());
  } catch (const classifier::xdp::PlaneError& problem) {
    std::istringstream lines(problem.what());
    for (std::string line; std::getline(lines, line);) hostlog::error("xdp", "{}", line);
  }
  return EXIT_FAILURE;
}
