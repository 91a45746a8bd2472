#include "host/livePorts.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <utility>

#include "host/log.h"

using classifier::xdp::Link;
using classifier::xdp::Outlet;
using classifier::xdp::Vlans;

namespace {

using namespace std::chrono_literals;

/// Before the kernel is asked again what it had no answer to.
constexpr auto patience = 1s;

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

}  // namespace

LivePorts::LivePorts(classifier::Table& table, const Config& config)
    : table_(table),
      config_(config),
      kept_(config.xdp.keep),
      again_([this] { followLinks(); }),
      modes_(
          config, plane_, kept_, ports_,
          [this](LivePort& port, const std::string& reason) { detach(port, reason); }, again_) {
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
    ports_.emplace(number, LivePort{.number = number, .wanted = wanted});
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
  detach(known->second, "it is no port any more");
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
  modes_.forgetRefusals();
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
  if (links.empty()) {
    if (!std::exchange(isUnanswered_, true)) {
      hostlog::warning("xdp",
                       "the kernel does not say which interfaces there are; it is asked again");
    }
    again_.set(patience);
    return;
  }
  isUnanswered_ = false;
  // All of them first: interfaces may have exchanged their names.
  for (auto& [number, port] : ports_) {
    const Link* link = linkNamed(port.wanted.interface, links);
    if (port.interface != 0 && (link == nullptr || link->number != port.interface)) {
      detach(port, noInterface);
    } else if (port.attachment && !isAsPlaced(port)) {
      detach(port, "its programs have gone");
    }
  }
  purge(links);
  for (auto& [number, port] : ports_) place(port, links);
  // A program that takes the place of one that was kept is to find the rules of its port and the
  // way to all others from its first frame on.
  showMembers(links);
  for (auto& [number, port] : ports_) {
    if (port.interface != 0 && !port.attachment) attach(port);
  }
  modes_.follow();
  for (auto& [number, port] : ports_) port.noteHiddenTags();
  showMembers(links);
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
bool LivePorts::isAsPlaced(const LivePort& port) const {
  return plane_.hasStayed(port.number) && port.attachment->isOn(port.interface);
}

void LivePorts::place(LivePort& port, const std::vector<Link>& links) {
  const Link* link = linkNamed(port.wanted.interface, links);
  if (link == nullptr) {
    detach(port, noInterface);
    return;
  }
  plane_.setForwardedGroups(port.number, forwardedGroups(*link, links));
  port.mtu = link->mtu;
  if (port.attachment) {
    port.attachment->keepIn(kept_.fileOf(port.interface));
    port.noteKeeping();
    return;
  }
  if (const int error = plane_.setInterface(port.number, link->number); error != 0) {
    // Numbers are that far apart only where very many interfaces have come and gone.
    detach(port, error == -ENOSPC
                     ? "the number of its interface falls together with another port's; "
                       "make the interface anew"
                     : std::strerror(-error));
    return;
  }
  port.interface = link->number;
}

void LivePorts::attach(LivePort& port) {
  if (const auto problem = modes_.attach(port)) {
    detach(port, problem->text);
    return;
  }
  port.problem.clear();
  port.noteAttached();
}

// Frames of the port are left to the bridge.
void LivePorts::detach(LivePort& port, const std::string& reason) {
  port.attachment.reset();
  port.notedMode.reset();
  plane_.setInterface(port.number, 0);
  port.interface = 0;
  if (port.problem == reason) return;
  port.problem = reason;
  hostlog::warning("xdp", "port {}, {}: {}", port.number, port.wanted.interface, reason);
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
