#include "classifier/xdp/plane.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <linux/capability.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <bitset>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "classifier/xdp/counters.h"
#include "classifier/xdp/pack.h"
#include "classifier/xdp/presence.h"
#include "classifier/xdp/program.skel.h"

namespace classifier::xdp {

namespace {

constexpr int lowestVlan = 1;
constexpr int highestVlan = 4094;

using VlanSet = std::bitset<L2CP_VLANS>;
/// In the map of memberships, by VLAN.
using Places = std::array<std::uint16_t, L2CP_VLANS>;

/// What the library has to say while a program is loaded. At other times its errors are answers.
std::optional<std::string>& libraryTexts() {
  static thread_local std::optional<std::string> texts;
  return texts;
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the library's interface
int keepText(libbpf_print_level level, const char* format, va_list arguments) {
  if (level == LIBBPF_DEBUG || !libraryTexts()) return 0;
  va_list again;
  va_copy(again, arguments);
  const int size = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (size <= 0) return size;
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  *libraryTexts() += text;
  return size;
}

/// Without one of these rights the kernel takes the program for one that compares addresses, which
/// it refuses as it does what is wrong.
bool mayCompareAddresses() {
  __user_cap_header_struct head{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> rights{};
  if (syscall(SYS_capget, &head, rights.data()) != 0) return true;
  const auto has = [&](unsigned right) {
    return (rights[CAP_TO_INDEX(right)].effective & CAP_TO_MASK(right)) != 0;
  };
  return has(CAP_PERFMON) || has(CAP_SYS_ADMIN);
}

[[noreturn]] void fail(const char* what, int error) {
  std::string text = std::string(what) + ": " + std::strerror(error);
  const std::string said = libraryTexts().value_or("");
  libraryTexts().reset();
  const bool isRefused = said.find("BEGIN PROG LOAD LOG") != std::string::npos;
  if (error == EPERM || (error == EACCES && !(isRefused && mayCompareAddresses()))) {
    text +=
        "; loading XDP programs needs root, or the capabilities CAP_BPF, CAP_NET_ADMIN and "
        "CAP_PERFMON";
  } else if (isRefused) {
    text +=
        "; the kernel does not accept it: Linux before 5.14 cannot, and with a later one that is a "
        "fault to report, with all of what follows; until then, the configuration file can have "
        "the classifier \"software\"";
  } else if (error == ENOSYS || error == EINVAL || error == EOPNOTSUPP) {
    text +=
        "; that needs Linux 5.14 or later with support for XDP; without, the configuration file "
        "can have the classifier \"software\"";
  }
  text += '\n' + said;
  while (text.ends_with('\n')) text.pop_back();
  throw PlaneError(text);
}

/// The values of a map that can be mapped, in the process's own memory.
template <class Value>
std::shared_ptr<Value[]> mapped(const bpf_map* map, std::size_t count) {
  static_assert(sizeof(Value) % sizeof(std::uint64_t) == 0, "values stand side by side");
  const std::size_t size = sizeof(Value) * count;
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, bpf_map__fd(map), 0);
  if (memory == MAP_FAILED) fail("the program's maps cannot be mapped", errno);
  return {static_cast<Value*>(memory), [size](Value* values) { munmap(values, size); }};
}

bool isValid(const Vlans& vlans) {
  const auto isVlan = [](int id) { return id >= lowestVlan && id <= highestVlan; };
  return isVlan(vlans.native) && std::ranges::all_of(vlans.tagged, isVlan);
}

VlanSet setOf(const Vlans& vlans) {
  VlanSet all;
  // That is every id that a tag can have but 0, which is none.
  if (vlans.tagged.empty()) all.set().reset(0);
  all.set(static_cast<std::size_t>(vlans.native));
  for (const int id : vlans.tagged) all.set(static_cast<std::size_t>(id));
  return all;
}

}  // namespace

struct Plane::Port {
  std::uint32_t place;
  VlanSet vlans = {};
  std::uint16_t nativeVlan = 0;
  std::uint32_t interface = 0;
  std::uint64_t arrival = 0;
  std::optional<Outlet> outlet = {};

  bool isOutlet() const { return outlet && interface != 0; }
};

struct Plane::Maps {
  Maps(const l2cp_program& program, std::size_t processors)
      : ports(mapped<l2cp_port>(program.maps.ports, L2CP_PORTS)),
        interfaces(mapped<l2cp_interface>(program.maps.interfaces, L2CP_INTERFACES)),
        memberships(bpf_map__fd(program.maps.memberships), L2CP_MEMBERSHIPS),
        freePlaces(L2CP_PORTS) {
    if (presence.error() != 0) fail("a map of interfaces cannot be made", -presence.error());
    const auto values = mapped<l2cp_counters>(program.maps.counters, processors);
    counters = std::make_shared<Counters>(std::span(values.get(), processors), values);
    for (std::uint32_t place = 0; place < L2CP_PORTS; ++place) {
      freePlaces[L2CP_PORTS - 1 - place] = place;
    }
  }

  /// The generation of the port changes when the table is complete, and the next one is not begun
  /// before that can be seen.
  void put(std::uint32_t place) {
    l2cp_port& port = ports[place];
    const std::atomic_ref<__u32> generation(port.generation);
    const __u32 next = generation.load(std::memory_order_relaxed) + 1;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    l2cp_table& table = port.tables[next % 2];
    std::ranges::copy(packed.table.any, table.any);
    std::ranges::copy(packed.table.block, table.block);
    std::copy_n(packed.table.match, packed.count + 1, table.match);
    std::copy_n(packed.table.outcome, packed.count + 1, table.outcome);
    generation.store(next, std::memory_order_release);
  }

  void putInterface(std::uint32_t number, const l2cp_interface& value) {
    auto* word = reinterpret_cast<std::uint64_t*>(&interfaces[number % L2CP_INTERFACES]);
    std::atomic_ref(*word).store(std::bit_cast<std::uint64_t>(value), std::memory_order_release);
  }

  /// Untagged frames find members all the time: those of the new native VLAN are there before it,
  /// and those of the old one until then.
  void putMemberships(std::uint32_t place, std::uint16_t nativeVlan, const Places& places) {
    putMemberships(place, places, [](std::uint16_t members) { return members != 0; });
    const std::atomic_ref shown(ports[place].nativeVlan);
    shown.store(nativeVlan, std::memory_order_release);
    putMemberships(place, places, [](std::uint16_t members) { return members == 0; });
  }

  template <class Wanted>
  void putMemberships(std::uint32_t place, const Places& places, Wanted wanted) {
    for (std::size_t vlan = 0; vlan < places.size(); ++vlan) {
      if (!wanted(places[vlan])) continue;
      const std::atomic_ref shown(ports[place].memberships[vlan]);
      shown.store(places[vlan], std::memory_order_release);
    }
  }

  const std::shared_ptr<l2cp_port[]> ports;
  const std::shared_ptr<l2cp_interface[]> interfaces;
  std::shared_ptr<Counters> counters;
  Memberships memberships;
  Presence presence;
  /// The lowest one last.
  std::vector<std::uint32_t> freePlaces;
  PackedTable packed;
};

void Plane::Close::operator()(l2cp_program* program) const { l2cp_program::destroy(program); }

Plane::Plane() {
  libraryTexts().emplace();
  libbpf_set_print(keepText);
  const int processors = libbpf_num_possible_cpus();
  if (processors < 0) fail("the number of processors is not known", -processors);
  program_.reset(l2cp_program::open());
  if (!program_) fail("the XDP program cannot be read", errno);
  bpf_map__set_max_entries(program_->maps.counters, static_cast<std::uint32_t>(processors));
  if (const int error = l2cp_program::load(program_.get()); error != 0) {
    fail("the XDP program cannot be loaded", -error);
  }
  maps_ = std::make_unique<Maps>(*program_, static_cast<std::size_t>(processors));
  libraryTexts().reset();
}

Plane::~Plane() = default;

Programs Plane::programs() const {
  return {.classify = bpf_program__fd(program_->progs.l2cp_classify),
          .keep = bpf_program__fd(program_->progs.l2cp_keep)};
}

bool Plane::has(std::uint32_t port) const {
  const std::lock_guard lock(mutex_);
  return ports_.contains(port);
}

Plane::Port* Plane::find(std::uint32_t port) {
  const auto known = ports_.find(port);
  return known != ports_.end() ? &known->second : nullptr;
}

int Plane::replace(std::uint32_t port, const Rules& rules) {
  const std::lock_guard lock(mutex_);
  const Port* known = find(port);
  if (known == nullptr) return -ENOENT;
  const int error =
      pack(rules, maps_->packed, [&](Counter& c) { return maps_->counters->placeOf(c); });
  if (error == 0) maps_->put(known->place);
  return error;
}

int Plane::addPort(std::uint32_t port, const Vlans& vlans) {
  const std::lock_guard lock(mutex_);
  if (ports_.contains(port)) return -EEXIST;
  if (!isValid(vlans)) return -EINVAL;
  if (maps_->freePlaces.empty()) return -ENOSPC;
  Port& added = ports_.emplace(port, Port{.place = maps_->freePlaces.back()}).first->second;
  maps_->freePlaces.pop_back();
  pack({}, maps_->packed, {});
  maps_->put(added.place);
  std::atomic_ref(maps_->ports[added.place].unmarked).store(0, std::memory_order_relaxed);
  putVlans(added, vlans);
  return 0;
}

int Plane::removePort(std::uint32_t port) {
  if (const int error = setInterface(port, 0); error != 0) return error;
  const std::lock_guard lock(mutex_);
  const auto known = ports_.find(port);
  maps_->putMemberships(known->second.place, known->second.nativeVlan, Places());
  maps_->freePlaces.push_back(known->second.place);
  ports_.erase(known);
  return 0;
}

int Plane::setVlans(std::uint32_t port, const Vlans& vlans) {
  const std::lock_guard lock(mutex_);
  Port* known = find(port);
  if (known == nullptr) return -ENOENT;
  if (!isValid(vlans)) return -EINVAL;
  putVlans(*known, vlans);
  return 0;
}

int Plane::setInterface(std::uint32_t port, std::uint32_t interface) {
  const std::lock_guard lock(mutex_);
  Port* known = find(port);
  if (known == nullptr) return -ENOENT;
  if (known->interface == interface) return 0;
  if (interface != 0) {
    const auto isThere = [&](const auto& element) {
      return element.second.interface != 0 &&
             element.second.interface % L2CP_INTERFACES == interface % L2CP_INTERFACES;
    };
    if (std::ranges::any_of(ports_, isThere)) return -ENOSPC;
  }
  if (known->interface != 0) {
    maps_->putInterface(known->interface, {});
    maps_->presence.remove(known->interface);
  }
  known->interface = interface;
  known->arrival = ++arrivals_;
  if (interface != 0) {
    maps_->presence.add(interface);
    maps_->putInterface(interface, {interface, known->place});
  }
  areMembersShown_ = false;
  return 0;
}

int Plane::setOutlet(std::uint32_t port, const std::optional<Outlet>& outlet) {
  const std::lock_guard lock(mutex_);
  Port* known = find(port);
  if (known == nullptr) return -ENOENT;
  if (known->outlet == outlet) return 0;
  known->outlet = outlet;
  areMembersShown_ = false;
  return 0;
}

bool Plane::hasStayed(std::uint32_t port) const {
  const std::lock_guard lock(mutex_);
  const auto known = ports_.find(port);
  return known != ports_.end() && maps_->presence.has(known->second.interface);
}

bool Plane::takeUnmarked(std::uint32_t port) {
  const std::lock_guard lock(mutex_);
  const Port* known = find(port);
  if (known == nullptr) return false;
  const std::atomic_ref unmarked(maps_->ports[known->place].unmarked);
  return unmarked.exchange(0, std::memory_order_relaxed) != 0;
}

int Plane::setForwardedGroups(std::uint32_t port, std::uint16_t groups) {
  const std::lock_guard lock(mutex_);
  const Port* known = find(port);
  if (known == nullptr) return -ENOENT;
  const std::atomic_ref shown(maps_->ports[known->place].forwardedGroups);
  shown.store(groups, std::memory_order_relaxed);
  return 0;
}

void Plane::putVlans(Port& port, const Vlans& vlans) {
  port.nativeVlan = static_cast<std::uint16_t>(vlans.native);
  port.vlans = setOf(vlans);
  areMembersShown_ = false;
}

// In generic mode the kernel gives up at the first interface that the frame is too large for. So
// there is none behind it that could take the frame.
std::map<std::uint32_t, std::vector<Members>> Plane::membersByBridge() const {
  std::vector<const Port*> outlets;
  for (const auto& [number, port] : ports_) {
    if (port.isOutlet()) outlets.push_back(&port);
  }
  std::ranges::sort(outlets, {}, [](const Port* port) {
    return std::pair(std::numeric_limits<std::uint32_t>::max() - port->outlet->mtu,
                     port->interface);
  });
  std::map<std::uint32_t, std::vector<Members>> all;
  for (const Port* port : outlets) {
    std::vector<Members>& byVlan = all[port->outlet->bridge];
    byVlan.resize(L2CP_VLANS);
    for (std::size_t vlan = 0; vlan < L2CP_VLANS; ++vlan) {
      if (port->vlans[vlan]) byVlan[vlan].push_back({port->interface, port->arrival});
    }
  }
  return all;
}

int Plane::showMembers() {
  const std::lock_guard lock(mutex_);
  if (areMembersShown_) return 0;
  const auto members = membersByBridge();
  std::set<Members> wanted;
  for (const auto& [bridge, byVlan] : members) wanted.insert(byVlan.begin(), byVlan.end());
  if (const int error = maps_->memberships.add(wanted); error != 0) return error;

  std::map<std::uint32_t, Places> places;
  for (const auto& [bridge, byVlan] : members) {
    std::ranges::transform(byVlan, places[bridge].begin(), [&](const Members& ofVlan) {
      return maps_->memberships.placeOf(ofVlan);
    });
  }
  for (const auto& [number, port] : ports_) {
    Places own = port.isOutlet() ? places.at(port.outlet->bridge) : Places();
    for (std::size_t vlan = 0; vlan < own.size(); ++vlan) {
      if (!port.vlans[vlan]) own[vlan] = 0;
    }
    maps_->putMemberships(port.place, port.nativeVlan, own);
  }
  maps_->memberships.keepOnly(wanted);
  areMembersShown_ = true;
  return 0;
}

}  // namespace classifier::xdp
