#include "host/livePorts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include "host/log.h"

using classifier::xdp::Attachment;
using classifier::xdp::Link;
using classifier::xdp::Mode;
using classifier::xdp::Outlet;
using classifier::xdp::Problem;
using classifier::xdp::Vlans;

namespace {

using std::chrono::steady_clock;
using namespace std::chrono_literals;

/// Before the kernel is asked again what it had no answer to.
constexpr auto patience = 1s;
/// Without a port that refuses native mode, before it is tried again. A port that is made anew, as
/// with a container, is there again by then.
constexpr auto calmTime = 10s;

constexpr const char* noInterface = "there is no such interface";

Vlans vlansOf(const Config::Port& port) {
  return {.native = port.nativeVlan, .tagged = port.vlans};
}

const Link* linkNamed(const std::string& name, const std::vector<Link>& links) {
  const auto found = std::find_if(links.begin(), links.end(),
                                  [&](const Link& candidate) { return candidate.name == name; });
  return found != links.end() ? &*found : nullptr;
}

const Link* linkNumbered(std::uint32_t number, const std::vector<Link>& links) {
  const auto found = std::find_if(links.begin(), links.end(), [&](const Link& candidate) {
    return candidate.number == number;
  });
  return found != links.end() ? &*found : nullptr;
}

// A bridge forwards spanning tree frames unless it takes part itself, and whatever it or the port
// is told to forward against the rule.
std::uint16_t forwardedGroups(const Link& link, const std::vector<Link>& links) {
  const Link* bridge = link.bridge != 0 ? linkNumbered(link.bridge, links) : nullptr;
  if (bridge == nullptr) return 0;
  const unsigned spanningTree = bridge->hasSpanningTree ? 0 : 1;
  return static_cast<std::uint16_t>(link.forwardedGroups | bridge->forwardedGroups | spanningTree);
}

// One that is down would have the kernel lose the frame for ports behind it, too.
std::optional<Outlet> outletOf(const Link& link) {
  if (!link.forwards) return std::nullopt;
  return Outlet{.bridge = link.bridge, .mtu = link.mtu};
}

std::string membersProblem(int error) {
  return fmt::format("tunnelled frames go where they went before: {}", std::strerror(-error));
}

bool receivesRedirected(std::uint32_t interface) {
  const auto features = classifier::xdp::xdpFeatures(interface);
  return features && features->receives;
}

Mode driversMode(std::uint32_t interface) {
  const auto features = classifier::xdp::xdpFeatures(interface);
  return features && features->native ? Mode::native : Mode::generic;
}

}  // namespace

LivePorts::LivePorts(classifier::Table& table, const Config& config)
    : table_(table),
      config_(config),
      kept_(config.xdp.keep),
      again_([this] { followLinks(); }),
      marks_([this] { watchMarks(); }) {
  for (const auto& [number, port] : config_.ports) {
    if (port.interface.empty()) continue;
    const std::string problem = addPort(number, port);
    if (!problem.empty()) throw ConfigError(problem);
  }
  table_.setDataPlane(&plane_);
}

LivePorts::~LivePorts() {
  table_.setDataPlane(nullptr);
  for (auto& [number, port] : ports_) {
    if (!port.attachment || !config_.xdp.keep) continue;
    port.attachment->keepIn(kept_.fileOf(port.interface));
    port.attachment->keep();
  }
}

// Removes the programs that an earlier daemon has kept on interfaces that are not ports any more.
void LivePorts::purge(const std::vector<Link>& links) {
  std::set<std::uint32_t> ours;
  for (const Link& link : links) {
    if (isPort(link)) ours.insert(link.number);
  }
  kept_.removeOthers(ours);
}

bool LivePorts::isPort(const Link& link) const {
  return std::any_of(ports_.begin(), ports_.end(), [&](const auto& element) {
    return element.second.wanted.interface == link.name;
  });
}

std::string LivePorts::addPort(std::uint32_t number, const Config::Port& wanted) {
  std::string problem = refusal(number, wanted);
  if (problem.empty()) {
    ports_.emplace(number, Port{.wanted = wanted});
    return {};
  }
  leftOut_.emplace(number, problem);
  return fmt::format("port {}: {}", number, problem);
}

std::string LivePorts::refusal(std::uint32_t number, const Config::Port& wanted) {
  const int error = plane_.addPort(number, vlansOf(wanted));
  if (error == -ENOSPC) {
    return fmt::format("the classifier \"xdp\" holds {} ports with an interface",
                       static_cast<int>(L2CP_PORTS));
  }
  if (error != 0) return std::strerror(-error);
  const int refused = table_.refresh(number);
  if (refused == 0) return {};
  plane_.removePort(number);
  return fmt::format("its rules do not fit the classifier \"xdp\": {}", std::strerror(-refused));
}

void LivePorts::removePort(std::uint32_t number) {
  const auto known = ports_.find(number);
  if (known == ports_.end()) return;
  detach(number, known->second, "it is no port any more");
  plane_.removePort(number);
  ports_.erase(known);
}

std::vector<std::string> LivePorts::followConfig() {
  std::vector<std::string> problems;
  std::vector<std::uint32_t> gone;
  for (auto& [number, port] : ports_) {
    const auto wanted = config_.ports.find(number);
    if (wanted == config_.ports.end() || wanted->second.interface != port.wanted.interface) {
      gone.push_back(number);
    } else if (wanted->second != port.wanted) {
      if (const int error = plane_.setVlans(number, vlansOf(wanted->second)); error != 0) {
        problems.push_back(fmt::format("port {}: its VLANs: {}", number, std::strerror(-error)));
      } else {
        port.wanted = wanted->second;
      }
    }
  }
  // What was refused because of the far end of a cable is not seen from here.
  for (auto& [number, port] : ports_) {
    if (port.refusedMtu) port.refusedMtu = 0;
  }
  leftOut_.clear();
  for (const std::uint32_t number : gone) removePort(number);
  for (const auto& [number, port] : config_.ports) {
    if (port.interface.empty() || ports_.contains(number)) continue;
    const std::string problem = addPort(number, port);
    if (!problem.empty()) problems.push_back(problem);
  }
  followLinks();
  if (membersError_ != 0) problems.push_back(membersProblem(membersError_));
  return problems;
}

void LivePorts::followLinks() {
  const std::vector<Link> links = classifier::xdp::links();
  // There is always loopback: the kernel has not answered.
  const bool isUnanswered = links.empty();
  if (!std::exchange(isUnanswered_, isUnanswered) && isUnanswered) {
    hostlog::warning("xdp",
                     "the kernel does not say which interfaces there are; it is asked again");
  }
  if (isUnanswered) {
    again_.set(patience);
    return;
  }
  // All of them first: interfaces may have exchanged their names.
  for (auto& [number, port] : ports_) {
    const Link* link = linkNamed(port.wanted.interface, links);
    if (port.interface != 0 && (link == nullptr || link->number != port.interface)) {
      detach(number, port, noInterface);
    } else if (port.attachment && !isAsPlaced(number, port)) {
      detach(number, port, "its programs have gone");
    }
  }
  purge(links);
  for (auto& [number, port] : ports_) place(number, port, links);
  // A program that takes the place of one that was kept is to find the rules of its port and the
  // way to all others from its first frame on.
  showMembers(links);
  for (auto& [number, port] : ports_) {
    if (port.interface == 0 || port.attachment) continue;
    attach(number, port);
  }
  returnToNativeMode();
  retryNativeMode();
  leaveNativeMode();
  for (auto& [number, port] : ports_) noteHiddenTags(number, port);
  showMembers(links);
  watchMarks();
}

// A port takes part in tunnels as long as it has its program or has not been refused one yet.
void LivePorts::showMembers(const std::vector<Link>& links) {
  std::vector<std::uint32_t> alone;
  for (auto& [number, port] : ports_) {
    const Link* link = port.problem.empty() ? linkNumbered(port.interface, links) : nullptr;
    plane_.setOutlet(number, link != nullptr ? outletOf(*link) : std::nullopt);
    const bool isAlone = link != nullptr && link->bridge == 0;
    if (!std::exchange(port.isAlone, isAlone) && isAlone) alone.push_back(number);
  }
  const int error = plane_.showMembers();
  if (error != 0 && error != membersError_) hostlog::warning("xdp", "{}", membersProblem(error));
  if (error != 0) again_.set(patience);
  membersError_ = error;
  for (const std::uint32_t number : alone) {
    hostlog::warning("xdp", "port {}, {}: is in no bridge: no frame is tunnelled from or to it",
                     number, ports_.at(number).wanted.interface);
  }
}

// Between two looks an interface may have been away, or another one may have taken its number and
// name; and others may take programs away.
bool LivePorts::isAsPlaced(std::uint32_t number, const Port& port) const {
  return plane_.hasStayed(number) && port.attachment->isOn(port.interface);
}

void LivePorts::place(std::uint32_t number, Port& port, const std::vector<Link>& links) {
  const Link* link = linkNamed(port.wanted.interface, links);
  if (link == nullptr) {
    detach(number, port, noInterface);
    return;
  }
  plane_.setForwardedGroups(number, forwardedGroups(*link, links));
  port.mtu = link->mtu;
  if (port.attachment) {
    port.attachment->keepIn(kept_.fileOf(port.interface));
    noteKeeping(number, port);
    return;
  }
  if (const int error = plane_.setInterface(number, link->number); error != 0) {
    // Numbers are that far apart only where very many interfaces have come and gone.
    detach(number, port,
           error == -ENOSPC ? "the number of its interface falls together with another port's; "
                              "make the interface anew"
                            : std::strerror(-error));
    return;
  }
  port.interface = link->number;
}

void LivePorts::attach(std::uint32_t number, Port& port) {
  const std::string file = kept_.fileOf(port.interface);
  Attachment::Options options{
      .mode = modeFor(port.interface, file), .replacesOthers = config_.xdp.replace, .file = file};
  port.refusedMtu.reset();
  port.cannotMark = false;
  auto made = Attachment::make(plane_.programs(), port.interface, options);
  if (std::holds_alternative<Problem>(made) && options.mode == Mode::native &&
      config_.xdp.mode == "auto") {
    // Drivers have conditions of their own, such as the size of frames.
    options.mode = Mode::generic;
    made = Attachment::make(plane_.programs(), port.interface, options);
    port.refusedMtu = port.mtu;
  }
  if (const auto* problem = std::get_if<Problem>(&made)) {
    detach(number, port, problem->text);
    return;
  }
  port.attachment.emplace(std::get<Attachment>(std::move(made)));
  isGenericKept_ |= options.mode == Mode::generic && !port.refusedMtu && !isNativeModeLeft_ &&
                    bestMode(port) == Mode::native;
  port.problem.clear();
  noteAttached(number, port);
}

void LivePorts::noteAttached(std::uint32_t number, Port& port) {
  hostlog::information("xdp", "port {}, {}: attached in {} mode", number, port.wanted.interface,
                       text(port.attachment->mode()));
  noteKeeping(number, port);
}

void LivePorts::noteKeeping(std::uint32_t number, Port& port) {
  const std::string& problem = port.attachment->keepingProblem();
  if (problem != port.keepingProblem && !problem.empty()) {
    hostlog::warning("xdp", "port {}, {}: its program ends with the daemon: {}", number,
                     port.wanted.interface, problem);
  }
  port.keepingProblem = problem;
}

// The note comes once for each interface and mode.
void LivePorts::noteHiddenTags(std::uint32_t number, Port& port) {
  const auto mode = port.attachment ? std::optional(port.attachment->mode()) : std::nullopt;
  if (std::exchange(port.notedMode, mode) == mode || !mode) return;
  if (!classifier::xdp::hidesTags(port.wanted.interface)) return;
  hostlog::information(
      "xdp",
      "port {}, {}: takes tags from frames where it can, and frames that arrive so count as "
      "untagged{}; see l2cpd.toml(5)",
      number, port.wanted.interface,
      mode == Mode::native ? " and are tunnelled without their tag" : "");
}

// Frames of the port are left to the bridge.
void LivePorts::detach(std::uint32_t number, Port& port, const std::string& reason) {
  port.attachment.reset();
  plane_.setInterface(number, 0);
  port.interface = 0;
  if (port.problem == reason) return;
  port.problem = reason;
  hostlog::warning("xdp", "port {}, {}: {}", number, port.wanted.interface, reason);
}

Mode LivePorts::modeFor(std::uint32_t interface, const std::string& file) const {
  if (config_.xdp.mode == "native") return Mode::native;
  if (config_.xdp.mode == "generic" || isNativeModeLeft_) return Mode::generic;
  // A program changes without a break only in the mode that it is in.
  if (const auto kept = Attachment::keptMode(file, interface)) return *kept;
  return driversMode(interface);
}

// A frame that is redirected from native mode to an interface that does not take it is lost without
// a word. Some take it only after a program has been attached, so this can be known only then.
void LivePorts::leaveNativeMode() {
  if (config_.xdp.mode != "auto" || isNativeModeLeft_) return;
  const bool isGenericKept = std::exchange(isGenericKept_, false);
  const auto isNative = [](const auto& element) {
    return element.second.attachment && element.second.attachment->mode() == Mode::native;
  };
  if (!isGenericKept && std::none_of(ports_.begin(), ports_.end(), isNative)) return;
  for (const auto& [number, port] : ports_) refuses(port);
  isNativeModeLeft_ = isGenericKept || !refusing_.empty();
  if (!refusing_.empty()) setModes(Mode::generic);
}

// A driver that has refused the program may take it with another MTU.
void LivePorts::retryNativeMode() {
  if (config_.xdp.mode != "auto" || isNativeModeLeft_) return;
  for (auto& [number, port] : ports_) {
    if (!port.attachment || port.refusedMtu.value_or(port.mtu) == port.mtu) continue;
    port.refusedMtu.reset();
    setMode(number, port, Mode::native);
  }
}

bool LivePorts::refuses(const Port& port) {
  if (!port.attachment || receivesRedirected(port.interface)) return false;
  if (refusing_.empty()) {
    hostlog::information("xdp", "{} takes no frames that are redirected in native mode",
                         port.wanted.interface);
  }
  refusing_.emplace(port.interface, port.mtu);
  return true;
}

void LivePorts::returnToNativeMode() {
  if (!isNativeModeLeft_ || !isCalm()) return;
  tryNativeMode();
  isNativeModeLeft_ = !refusing_.empty();
  if (!isNativeModeLeft_) {
    hostlog::information("xdp", "all ports that took no frames in native mode do or have gone");
  }
  setModes(isNativeModeLeft_ ? Mode::generic : Mode::native);
}

// Whether no port has refused for some time. A driver that did may not do so with another MTU.
bool LivePorts::isCalm() {
  std::map<std::uint32_t, std::uint32_t> attached;
  for (const auto& [number, port] : ports_) {
    if (port.attachment) attached.emplace(port.interface, port.mtu);
  }
  std::erase_if(refusing_, [&](const auto& refusing) {
    const auto found = attached.find(refusing.first);
    return found == attached.end() || *found != refusing || receivesRedirected(refusing.first);
  });
  if (!refusing_.empty()) {
    calmSince_.reset();
    return false;
  }
  if (!calmSince_) calmSince_ = steady_clock::now();
  const auto rest = *calmSince_ + calmTime - steady_clock::now();
  if (rest > 0s) {
    again_.set(rest);
    return false;
  }
  calmSince_.reset();
  return true;
}

// One by one, those first of which only that can tell: the frames of all others meet their rules
// without a break if one refuses.
void LivePorts::tryNativeMode() {
  for (auto& [number, port] : ports_) {
    if (!port.attachment || receivesRedirected(port.interface)) continue;
    setMode(number, port, bestMode(port));
    if (refuses(port)) return;
  }
}

// What a driver has no room for shows in no other way.
void LivePorts::watchMarks() {
  bool isAnyNative = false;
  for (auto& [number, port] : ports_) {
    if (!port.attachment || port.attachment->mode() != Mode::native) continue;
    if (plane_.takeUnmarked(number)) noteUnmarked(number, port);
    isAnyNative = true;
  }
  if (isAnyNative) marks_.set(patience);
}

void LivePorts::noteUnmarked(std::uint32_t number, Port& port) {
  const bool isAuto = config_.xdp.mode == "auto";
  if (!std::exchange(port.cannotMark, true)) {
    hostlog::warning(
        "xdp",
        "port {}, {}: in native mode, its driver has no room for what keeps frames for "
        "the switch itself from the bridge{}",
        number, port.wanted.interface,
        isAuto ? "" : "; they are forwarded, which mode \"generic\" prevents");
  }
  if (isAuto) setMode(number, port, Mode::generic);
}

Mode LivePorts::bestMode(const Port& port) {
  return port.cannotMark ? Mode::generic : driversMode(port.interface);
}

void LivePorts::setModes(Mode wanted) {
  for (auto& [number, port] : ports_) {
    if (!port.attachment) continue;
    setMode(number, port, wanted == Mode::native ? bestMode(port) : wanted);
  }
}

void LivePorts::setMode(std::uint32_t number, Port& port, Mode mode) {
  if (port.attachment->mode() == mode) return;
  Attachment::Options options{
      .mode = mode, .replacesOthers = config_.xdp.replace, .file = kept_.fileOf(port.interface)};
  auto problem = port.attachment->changeMode(plane_.programs(), port.interface, options);
  if (problem && mode == Mode::native) {
    port.refusedMtu = port.mtu;
    options.mode = Mode::generic;
    problem = port.attachment->changeMode(plane_.programs(), port.interface, options);
  }
  if (problem) {
    detach(number, port, problem->text);
  } else {
    noteAttached(number, port);
  }
}

std::vector<LivePorts::State> LivePorts::states() const {
  std::map<std::uint32_t, State> all;
  for (const auto& [number, port] : ports_) {
    all.emplace(number, State{number, port.wanted.interface,
                              port.attachment ? text(port.attachment->mode()) : port.problem});
  }
  for (const auto& [number, problem] : leftOut_) {
    all.emplace(number, State{number, config_.ports.at(number).interface, problem});
  }
  std::vector<State> inOrder;
  inOrder.reserve(all.size());
  for (auto& [number, state] : all) inOrder.push_back(std::move(state));
  return inOrder;
}
