#include "host/portModes.h"

#include <algorithm>
#include <utility>
#include <variant>
#include <vector>

#include "classifier/xdp/netlink.h"
#include "host/log.h"

using classifier::xdp::Attachment;
using classifier::xdp::Mode;
using classifier::xdp::Problem;
using std::chrono::steady_clock;

namespace {

using namespace std::chrono_literals;

/// Without a port that refuses native mode, before it is tried again. A port that is made anew, as
/// with a container, is there again by then.
constexpr auto calmTime = 10s;
/// Between looks whether frames could not be marked.
constexpr auto marksTime = 1s;

bool receivesRedirected(std::uint32_t interface) {
  const auto features = classifier::xdp::xdpFeatures(interface);
  return features && features->receives;
}

}  // namespace

PortModes::PortModes(const Config& config, classifier::xdp::Plane& plane, KeptPrograms& kept,
                     LivePortsByNumber& ports,
                     std::function<void(LivePort&, const std::string&)> detach,
                     const LoopAlarm& look)
    : config_(config),
      plane_(plane),
      kept_(kept),
      ports_(ports),
      detach_(std::move(detach)),
      look_(look),
      marks_([this] { watchMarks(); }) {}

std::optional<Problem> PortModes::attach(LivePort& port) {
  port.refusedMtu.reset();
  port.cannotMark = false;
  plane_.takeUnmarked(port.number);
  const std::string file = kept_.fileOf(port.interface);
  Attachment::Options options{
      .mode = modeFor(port, file), .replacesOthers = config_.xdp.replace, .file = file};
  auto made = Attachment::make(plane_.programs(), port.interface, options);
  if (std::holds_alternative<Problem>(made) && options.mode == Mode::native &&
      config_.xdp.mode == "auto") {
    // Drivers have conditions of their own, such as the size of frames.
    options.mode = Mode::generic;
    made = Attachment::make(plane_.programs(), port.interface, options);
    port.refusedMtu = port.mtu;
  }
  if (auto* problem = std::get_if<Problem>(&made)) return std::move(*problem);
  port.attachment.emplace(std::get<Attachment>(std::move(made)));
  isGenericKept_ |= options.mode == Mode::generic && !port.refusedMtu && !isNativeLeft_ &&
                    bestMode(port) == Mode::native;
  return std::nullopt;
}

void PortModes::follow() {
  if (config_.xdp.mode == "auto") {
    returnToNative();
    retryNative();
    leaveNative();
  }
  watchMarks();
}

void PortModes::forgetRefusals() {
  for (auto& [number, port] : ports_) {
    if (port.refusedMtu) port.refusedMtu = 0;
  }
  refusing_.clear();
}

Mode PortModes::modeFor(const LivePort& port, const std::string& file) const {
  if (config_.xdp.mode == "native") return Mode::native;
  if (config_.xdp.mode == "generic" || isNativeLeft_) return Mode::generic;
  // A program changes without a break only in the mode that it is in.
  const auto kept = Attachment::keptMode(file, port.interface);
  return kept ? *kept : bestMode(port);
}

Mode PortModes::bestMode(const LivePort& port) {
  const auto features = classifier::xdp::xdpFeatures(port.interface);
  return features && features->native && !port.cannotMark ? Mode::native : Mode::generic;
}

// Some take redirected frames only after a program has been attached, so this can be known only
// then. Programs that were kept in generic mode are not tried for it: their frames would meet no
// rule meanwhile.
void PortModes::leaveNative() {
  if (isNativeLeft_) return;
  const bool isGenericKept = std::exchange(isGenericKept_, false);
  const auto isNative = [](const auto& element) { return element.second.isIn(Mode::native); };
  if (!isGenericKept && std::none_of(ports_.begin(), ports_.end(), isNative)) return;
  for (const auto& [number, port] : ports_) refuses(port);
  isNativeLeft_ = isGenericKept || !refusing_.empty();
  if (!refusing_.empty()) setAll(Mode::generic);
}

bool PortModes::refuses(const LivePort& port) {
  if (!port.attachment || receivesRedirected(port.interface)) return false;
  if (refusing_.empty()) {
    hostlog::information("xdp", "{} takes no frames that are redirected in native mode",
                         port.wanted.interface);
  }
  refusing_.emplace(port.interface, port.mtu);
  return true;
}

void PortModes::returnToNative() {
  if (!isNativeLeft_ || !isCalm()) return;
  tryNative();
  isNativeLeft_ = !refusing_.empty();
  if (!isNativeLeft_) hostlog::information("xdp", "native mode is used again");
  setAll(isNativeLeft_ ? Mode::generic : Mode::native);
}

// Whether no port has refused for some time. A driver that did may not do so with another MTU.
bool PortModes::isCalm() {
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
    look_.set(rest);
    return false;
  }
  calmSince_.reset();
  return true;
}

// First those of which only that can tell: the frames of all others meet their rules without a
// break if one refuses. What one takes may depend on another one's program, at the far end of its
// cable.
void PortModes::tryNative() {
  std::vector<LivePort*> doubtful;
  for (auto& [number, port] : ports_) {
    if (port.attachment && !receivesRedirected(port.interface)) doubtful.push_back(&port);
  }
  for (LivePort* port : doubtful) set(*port, bestMode(*port));
  for (const auto& [number, port] : ports_) refuses(port);
}

// A driver that has refused the program may take it with another MTU.
void PortModes::retryNative() {
  if (isNativeLeft_) return;
  for (auto& [number, port] : ports_) {
    if (!port.attachment || port.refusedMtu.value_or(port.mtu) == port.mtu) continue;
    set(port, bestMode(port));
  }
}

// What a driver has no room for shows in no other way.
void PortModes::watchMarks() {
  bool isAnyNative = false;
  for (auto& [number, port] : ports_) {
    if (!port.isIn(Mode::native)) continue;
    isAnyNative = true;
    if (plane_.takeUnmarked(number)) noteUnmarked(port);
  }
  if (isAnyNative) marks_.set(marksTime);
}

void PortModes::noteUnmarked(LivePort& port) {
  const bool isAuto = config_.xdp.mode == "auto";
  if (!std::exchange(port.cannotMark, true)) {
    hostlog::warning(
        "xdp",
        "port {}, {}: in native mode, its driver has no room for what keeps frames for "
        "the switch itself from the bridge{}",
        port.number, port.wanted.interface,
        isAuto ? "" : "; they are forwarded, which mode \"generic\" prevents");
  }
  if (!isAuto) return;
  set(port, Mode::generic);
  look_.set(1ns);
}

void PortModes::setAll(Mode wanted) {
  for (auto& [number, port] : ports_) {
    if (port.attachment) set(port, wanted == Mode::native ? bestMode(port) : wanted);
  }
}

void PortModes::set(LivePort& port, Mode mode) {
  if (port.isIn(mode)) return;
  port.refusedMtu.reset();
  plane_.takeUnmarked(port.number);
  Attachment::Options options{
      .mode = mode, .replacesOthers = config_.xdp.replace, .file = kept_.fileOf(port.interface)};
  auto problem = port.attachment->changeMode(plane_.programs(), port.interface, options);
  if (problem && mode == Mode::native) {
    port.refusedMtu = port.mtu;
    options.mode = Mode::generic;
    problem = port.attachment->changeMode(plane_.programs(), port.interface, options);
  }
  if (problem) {
    detach_(port, problem->text);
  } else {
    port.noteAttached();
  }
}
