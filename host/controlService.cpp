#include "host/controlService.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "classifier/table.h"
#include "host/bllManager.h"
#include "host/control.h"
#include "host/log.h"
#include "host/profileChanges.h"
#include "host/replies.h"
#include "host/scriptText.h"
#include "host/startup.h"
#include "host/version.h"
#include "host/wireRule.h"
#include "host/wireText.h"
#include "platform/CliConfig.h"
#include "platform/itbridge.h"
#include "rpc/rte/BLL/core/rpcProxy.h"

// The dispatch routine that rpcgen makes of the interface file.
extern "C" void control_program_1(struct svc_req* request, SVCXPRT* transport);

namespace {

// What replies point at. A reply is sent before the next request is taken, so one of each is
// enough.
struct Service {
  Settings* settings = nullptr;
  const LivePorts* livePorts = nullptr;
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();

  std::string answer;
  char* answerText = nullptr;
  std::vector<classifier::Verdict> verdicts;
  std::vector<std::vector<control_counter>> counters;
  std::vector<control_verdict> wireVerdicts;
  std::vector<std::string> lines;
  std::vector<char*> wireLines;
  std::vector<std::string> entityNames;
  std::vector<control_entity> entities;
  std::vector<control_port> ports;
  std::vector<LivePorts::State> liveStates;
  std::vector<control_live_port> livePortList;
};

Service& service() {
  static Service instance;
  return instance;
}

BLLManager::Host& manager() { return singleton<BLLManager>::instance().host(); }

control_text* answer(const std::string& text) {
  Service& state = service();
  state.answer = text.substr(0, CONTROL_TEXT_MAX);
  state.answerText = state.answer.data();
  return &state.answerText;
}

control_verdict wireVerdict(const classifier::Verdict& verdict,
                            std::vector<control_counter>& counters) {
  control_verdict result{};
  result.fate = wireFate(verdict.fate);
  result.met = verdict.entry != nullptr;
  result.selector = wireText("");
  result.action_list = wireText("");
  if (!verdict.entry) return result;

  const classifier::Rule& entry = *verdict.entry;
  result.kind = entry.kind;
  result.index = entry.index;
  result.selector = wireName(entry.selector);
  result.action_list = wireName(entry.actionList);
  for (const classifier::CounterChange& change : entry.counterChanges) {
    counters.push_back({wireName(change.counter->name), change.increment});
  }
  result.counters = {static_cast<u_int>(counters.size()), counters.data()};
  return result;
}

}  // namespace

void configureControlService(Settings& settings, const LivePorts* livePorts) {
  service().settings = &settings;
  service().livePorts = livePorts;
  service().begin = std::chrono::steady_clock::now();
}

void* controlServiceStart(void* /*interruptionHook*/) {
  rpcProxyRegisterSvc(CONTROL_PROGRAM, CONTROL_VERSION, control_program_1);
  limitUnreadReplies();
  hostlog::information("daemon", "ready");
  return nullptr;
}

control_text* control_message_1_svc(control_text command, control_text argument,
                                    svc_req* /*request*/) {
  std::ostringstream output;
  singleton<BLLManager>::instance().externalMessage.fire(
      std::string(command), std::string(argument), &output, std::string("control"));
  return answer(output.str());
}

control_feed_result* control_feed_1_svc(u_int port, control_frames frames, svc_req* /*request*/) {
  static control_feed_result result;
  Service& state = service();
  const std::size_t count = frames.control_frames_len;
  classifier::Table& table = classifier::tableOf(singleton<itbridge>::instance().bridgeNameGet());
  state.verdicts.clear();
  state.counters.assign(count, {});
  state.wireVerdicts.clear();
  for (std::size_t i = 0; i < count; ++i) {
    const control_frame& frame = frames.control_frames_val[i];
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): XDR's opaque bytes are chars
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(frame.control_frame_val);
    state.verdicts.push_back(table.classify(port, {bytes, frame.control_frame_len}));
    state.wireVerdicts.push_back(wireVerdict(state.verdicts.back(), state.counters[i]));
  }
  result.error = CONTROL_OK;
  result.verdicts = {static_cast<u_int>(count), state.wireVerdicts.data()};
  return &result;
}

control_error* control_apply_defaults_1_svc(svc_req* /*request*/) {
  static control_error result;
  BLEntity* module = manager().find("l2cp");
  result = module != nullptr && module->applyDefaultSettings() ? CONTROL_OK : CONTROL_ERR_FAILED;
  return &result;
}

control_config_result* control_running_config_1_svc(control_config_mode mode,
                                                    svc_req* /*request*/) {
  static control_config_result result;
  result = {};
  if (mode != CONTROL_CONFIG_DIFFERENCES && mode != CONTROL_CONFIG_ALL &&
      mode != CONTROL_CONFIG_DYNAMIC) {
    result.error = CONTROL_ERR_INVALID;
    return &result;
  }
  const BLLManager::sharedLock_t lock;
  if (!lock) {
    result.error = CONTROL_ERR_FAILED;
    return &result;
  }
  Service& state = service();
  state.lines = scriptText(
      singleton<CliConfig>::instance().runningConfig(static_cast<Scripter::ConfigMode>(mode)));
  state.wireLines.clear();
  for (const std::string& line : state.lines) state.wireLines.push_back(wireText(line));
  result.lines = {static_cast<u_int>(state.wireLines.size()), state.wireLines.data()};
  return &result;
}

control_save_result* control_save_1_svc(svc_req* /*request*/) {
  static control_save_result result;
  Service& state = service();
  const std::string& path = state.settings->config().startup;
  const BLLManager::sharedLock_t lock;
  if (path.empty()) {
    state.answer = "the configuration names no startup script";
  } else if (!lock) {
    state.answer = "the configuration is locked";
  } else {
    manager().saveEntities();
    std::vector<std::string> lines = removalLines(state.settings->config());
    const auto running =
        scriptText(singleton<CliConfig>::instance().runningConfig(Scripter::configDifferences));
    lines.insert(lines.end(), running.begin(), running.end());
    state.answer = startup::save(path, lines);
  }
  result.error = state.answer.empty() ? CONTROL_OK : CONTROL_ERR_FAILED;
  if (state.answer.empty()) state.answer = path;
  result.text = state.answer.data();
  return &result;
}

control_status* control_status_1_svc(svc_req* /*request*/) {
  static control_status result;
  Service& state = service();
  const Config& config = state.settings->config();
  state.entityNames.clear();
  state.entities.clear();
  state.ports.clear();
  const auto entities = manager().entities();
  state.entityNames.reserve(entities.size());
  for (const auto& entity : entities) {
    state.entityNames.push_back(entity.name);
    state.entities.push_back({wireText(state.entityNames.back()), entity.running});
  }
  for (const auto& [number, port] : config.ports) {
    state.ports.push_back({number, wireText(port.name)});
  }
  result.release = wireText(hostVersion);
  result.bridge = wireText(singleton<itbridge>::instance().bridgeNameGet());
  result.classifier = wireText(config.classifier);
  result.pid = static_cast<u_int>(getpid());
  result.uptime = static_cast<u_int>(std::chrono::duration_cast<std::chrono::seconds>(
                                         std::chrono::steady_clock::now() - state.begin)
                                         .count());
  result.entities = {static_cast<u_int>(state.entities.size()), state.entities.data()};
  result.ports = {static_cast<u_int>(state.ports.size()), state.ports.data()};
  return &result;
}

control_text* control_reload_1_svc(svc_req* /*request*/) {
  return answer(service().settings->reload());
}

control_live_ports* control_live_ports_1_svc(svc_req* /*request*/) {
  static control_live_ports result;
  Service& state = service();
  state.livePortList.clear();
  state.liveStates.clear();
  if (state.livePorts != nullptr) state.liveStates = state.livePorts->states();
  for (const LivePorts::State& port : state.liveStates) {
    state.livePortList.push_back({port.number, wireText(port.interface), wireText(port.state)});
  }
  result.list = {static_cast<u_int>(state.livePortList.size()), state.livePortList.data()};
  return &result;
}
