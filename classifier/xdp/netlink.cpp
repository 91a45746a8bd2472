#include "classifier/xdp/netlink.h"

#include <arpa/inet.h>
#include <linux/ethtool_netlink.h>
#include <linux/genetlink.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <set>
#include <span>

namespace classifier::xdp {

namespace {

// linux/netdev.h, which is younger than the headers that this has to build with.
constexpr const char* netdevFamily = "netdev";
constexpr const char* netdevGroup = "mgmt";
constexpr std::uint8_t netdevGetDevice = 1;
constexpr std::uint16_t netdevInterface = 1;
constexpr std::uint16_t netdevXdpFeatures = 3;
constexpr std::uint64_t runsPrograms = 1 << 0;
constexpr std::uint64_t redirects = 1 << 1;
constexpr std::uint64_t sendsRedirected = 1 << 2;

using Bytes = std::span<const std::byte>;

/// Messages and attributes begin at multiples of this.
constexpr std::size_t aligned(std::size_t size) {
  constexpr std::size_t alignment = 4;
  return (size + alignment - 1) / alignment * alignment;
}

/// The value at the beginning of the bytes, zero when they are too few.
template <class Value>
Value valueOf(Bytes bytes) {
  Value value{};
  if (bytes.size() >= sizeof value) std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

std::string textOf(Bytes bytes) {
  const auto* text = reinterpret_cast<const char*>(bytes.data());
  return {text, strnlen(text, bytes.size())};
}

/// Calls `use` with type and contents of each attribute.
template <class Use>
void forEachAttribute(Bytes bytes, Use use) {
  while (bytes.size() >= sizeof(nlattr)) {
    const auto head = valueOf<nlattr>(bytes);
    if (head.nla_len < sizeof head || head.nla_len > bytes.size()) return;
    use(static_cast<std::uint16_t>(head.nla_type & NLA_TYPE_MASK),
        bytes.subspan(sizeof head, head.nla_len - sizeof head));
    bytes = bytes.subspan(std::min(aligned(head.nla_len), bytes.size()));
  }
}

class Socket {
 public:
  explicit Socket(int protocol) : number_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol)) {}
  ~Socket() {
    if (number_ >= 0) close(number_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  /// Sends the message and calls `use` with the contents of each one that answers it. False when
  /// the kernel refuses, and when something changed while it answered, so that its answer may lack
  /// something.
  bool ask(Bytes message, const std::function<void(Bytes)>& use) const {
    if (send(number_, message.data(), message.size(), 0) < 0) return false;
    std::vector<std::byte> buffer(65536);
    bool isWhole = true;
    for (;;) {
      const ssize_t size = recv(number_, buffer.data(), buffer.size(), 0);
      if (size <= 0) return false;
      Bytes rest(buffer.data(), static_cast<std::size_t>(size));
      while (rest.size() >= sizeof(nlmsghdr)) {
        const auto head = valueOf<nlmsghdr>(rest);
        if (head.nlmsg_len < sizeof head || head.nlmsg_len > rest.size()) return false;
        const Bytes contents = rest.subspan(sizeof head, head.nlmsg_len - sizeof head);
        isWhole &= (head.nlmsg_flags & NLM_F_DUMP_INTR) == 0;
        if (head.nlmsg_type == NLMSG_DONE) return isWhole;
        if (head.nlmsg_type == NLMSG_ERROR) return valueOf<int>(contents) == 0;
        use(contents);
        if ((head.nlmsg_flags & NLM_F_MULTI) == 0) return true;
        rest = rest.subspan(std::min(aligned(head.nlmsg_len), rest.size()));
      }
    }
  }

 private:
  int number_;
};

/// With what fills it up to where the next one begins.
std::vector<std::byte> attribute(std::uint16_t type, Bytes contents) {
  const nlattr head{.nla_len = static_cast<std::uint16_t>(sizeof head + contents.size()),
                    .nla_type = type};
  std::vector<std::byte> bytes(sizeof head + aligned(contents.size()));
  std::memcpy(bytes.data(), &head, sizeof head);
  std::ranges::copy(contents, bytes.begin() + sizeof head);
  return bytes;
}

/// A message of one fixed part and attributes.
template <class Fixed>
std::vector<std::byte> message(std::uint16_t type, std::uint16_t flags, const Fixed& fixed,
                               Bytes attributes = {}) {
  std::vector<std::byte> bytes(sizeof(nlmsghdr) + aligned(sizeof fixed) + attributes.size());
  const nlmsghdr head{.nlmsg_len = static_cast<std::uint32_t>(bytes.size()),
                      .nlmsg_type = type,
                      .nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags),
                      .nlmsg_seq = 1,
                      .nlmsg_pid = 0};
  std::memcpy(bytes.data(), &head, sizeof head);
  std::memcpy(&bytes[sizeof head], &fixed, sizeof fixed);
  std::ranges::copy(attributes, bytes.end() - static_cast<std::ptrdiff_t>(attributes.size()));
  return bytes;
}

/// With the zero behind it, as the kernel wants texts.
Bytes bytesOf(const char* text) { return std::as_bytes(std::span(text, std::strlen(text) + 1)); }

// ---- Interfaces ----

/// What a bridge with tags 0x88a8 forwards against the rule for one with 0x8100, but for its own
/// group address.
constexpr unsigned providerBridgeGroups = 0xb801;

void readBridge(Link& link, Bytes data) {
  std::array<std::uint8_t, ETH_ALEN> ownGroup{};
  bool filtersVlans = false;
  std::uint16_t tag = 0;
  forEachAttribute(data, [&](std::uint16_t type, Bytes contents) {
    if (type == IFLA_BR_GROUP_FWD_MASK) link.forwardedGroups = valueOf<std::uint16_t>(contents);
    if (type == IFLA_BR_STP_STATE) link.hasSpanningTree = valueOf<std::uint32_t>(contents) != 0;
    if (type == IFLA_BR_GROUP_ADDR) ownGroup = valueOf<decltype(ownGroup)>(contents);
    if (type == IFLA_BR_VLAN_FILTERING) filtersVlans = valueOf<std::uint8_t>(contents) != 0;
    if (type == IFLA_BR_VLAN_PROTOCOL) tag = ntohs(valueOf<std::uint16_t>(contents));
  });
  if (!filtersVlans || tag != ETH_P_8021AD) return;
  const unsigned others = providerBridgeGroups & ~(1U << (ownGroup.back() & 0x0fU));
  link.forwardedGroups = static_cast<std::uint16_t>(link.forwardedGroups | others);
}

void readBridgePort(Link& link, Bytes data) {
  forEachAttribute(data, [&](std::uint16_t type, Bytes contents) {
    if (type == IFLA_BRPORT_GROUP_FWD_MASK) link.forwardedGroups = valueOf<std::uint16_t>(contents);
    if (type == IFLA_BRPORT_STATE) {
      link.forwards = valueOf<std::uint8_t>(contents) == BR_STATE_FORWARDING;
    }
  });
}

/// Whether the interface is a bridge's port.
bool readInfo(Link& link, Bytes info) {
  std::string kind;
  std::string masterKind;
  forEachAttribute(info, [&](std::uint16_t type, Bytes contents) {
    // The kinds come before the data.
    if (type == IFLA_INFO_KIND) kind = textOf(contents);
    if (type == IFLA_INFO_SLAVE_KIND) masterKind = textOf(contents);
    if (type == IFLA_INFO_DATA && kind == "bridge") readBridge(link, contents);
    if (type == IFLA_INFO_SLAVE_DATA && masterKind == "bridge") readBridgePort(link, contents);
  });
  return masterKind == "bridge";
}

// ---- What XDP can do ----

struct Family {
  std::uint16_t number = 0;
  /// Of the group that hears of changes.
  std::uint32_t group = 0;
};

void readGroup(Family& family, Bytes group) {
  std::string name;
  std::uint32_t number = 0;
  forEachAttribute(group, [&](std::uint16_t type, Bytes contents) {
    if (type == CTRL_ATTR_MCAST_GRP_NAME) name = textOf(contents);
    if (type == CTRL_ATTR_MCAST_GRP_ID) number = valueOf<std::uint32_t>(contents);
  });
  if (name == netdevGroup) family.group = number;
}

/// Those of a message of a generic family.
Bytes attributesOf(Bytes contents) {
  return contents.subspan(std::min(sizeof(genlmsghdr), contents.size()));
}

Family readFamily(Bytes contents) {
  Family family;
  forEachAttribute(attributesOf(contents), [&](std::uint16_t type, Bytes value) {
    if (type == CTRL_ATTR_FAMILY_ID) family.number = valueOf<std::uint16_t>(value);
    if (type != CTRL_ATTR_MCAST_GROUPS) return;
    forEachAttribute(value, [&](std::uint16_t, Bytes group) { readGroup(family, group); });
  });
  return family;
}

std::optional<Family> familyNamed(const char* name, const Socket& socket) {
  const genlmsghdr fixed{.cmd = CTRL_CMD_GETFAMILY, .version = 1, .reserved = 0};
  Family family;
  const bool isKnown =
      socket.ask(message(GENL_ID_CTRL, 0, fixed, attribute(CTRL_ATTR_FAMILY_NAME, bytesOf(name))),
                 [&](Bytes contents) { family = readFamily(contents); });
  return isKnown && family.number != 0 ? std::optional(family) : std::nullopt;
}

// ---- What else a driver does ----

/// The names of a set's members.
void readNames(Bytes set, std::set<std::string>& names) {
  forEachAttribute(set, [&](std::uint16_t type, Bytes bits) {
    if (type != ETHTOOL_A_BITSET_BITS) return;
    forEachAttribute(bits, [&](std::uint16_t, Bytes bit) {
      forEachAttribute(bit, [&](std::uint16_t part, Bytes value) {
        if (part == ETHTOOL_A_BITSET_BIT_NAME) names.insert(textOf(value));
      });
    });
  });
}

/// What is on, by ethtool's names.
std::set<std::string> features(const std::string& interface) {
  const Socket socket(NETLINK_GENERIC);
  const auto family = familyNamed(ETHTOOL_GENL_NAME, socket);
  if (!family) return {};
  const genlmsghdr fixed{
      .cmd = ETHTOOL_MSG_FEATURES_GET, .version = ETHTOOL_GENL_VERSION, .reserved = 0};
  const auto name = attribute(ETHTOOL_A_HEADER_DEV_NAME, bytesOf(interface.c_str()));
  std::set<std::string> names;
  socket.ask(
      message(family->number, 0, fixed, attribute(ETHTOOL_A_FEATURES_HEADER | NLA_F_NESTED, name)),
      [&](Bytes contents) {
        forEachAttribute(attributesOf(contents), [&](std::uint16_t type, Bytes value) {
          if (type == ETHTOOL_A_FEATURES_ACTIVE) readNames(value, names);
        });
      });
  return names;
}

int watch(int protocol, std::uint32_t group) {
  const int number = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol);
  if (number < 0) return -errno;
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  if (bind(number, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      setsockopt(number, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) == 0) {
    return number;
  }
  const int error = errno;
  close(number);
  return -error;
}

}  // namespace

Link linkOf(std::span<const std::byte> contents) {
  Link link{.number = static_cast<std::uint32_t>(valueOf<ifinfomsg>(contents).ifi_index)};
  std::uint32_t master = 0;
  bool isBridgePort = false;
  forEachAttribute(contents.subspan(std::min(sizeof(ifinfomsg), contents.size())),
                   [&](std::uint16_t type, Bytes value) {
                     if (type == IFLA_IFNAME) link.name = textOf(value);
                     if (type == IFLA_MTU) link.mtu = valueOf<std::uint32_t>(value);
                     if (type == IFLA_MASTER) master = valueOf<std::uint32_t>(value);
                     if (type == IFLA_LINKINFO) isBridgePort = readInfo(link, value);
                   });
  if (isBridgePort) link.bridge = master;
  return link;
}

std::vector<Link> links() {
  constexpr int attempts = 5;
  const auto question = message(RTM_GETLINK, NLM_F_DUMP, ifinfomsg{});
  for (int i = 0; i < attempts; ++i) {
    std::vector<Link> all;
    const auto add = [&](Bytes contents) { all.push_back(linkOf(contents)); };
    if (Socket(NETLINK_ROUTE).ask(question, add)) return all;
  }
  return {};
}

std::optional<XdpFeatures> xdpFeatures(std::uint32_t interface) {
  const Socket socket(NETLINK_GENERIC);
  const auto family = familyNamed(netdevFamily, socket);
  if (!family) return std::nullopt;
  const genlmsghdr fixed{.cmd = netdevGetDevice, .version = 1, .reserved = 0};
  std::optional<std::uint64_t> bits;
  const auto read = [&](Bytes contents) {
    forEachAttribute(attributesOf(contents), [&](std::uint16_t type, Bytes value) {
      if (type == netdevXdpFeatures) bits = valueOf<std::uint64_t>(value);
    });
  };
  const auto wanted = attribute(netdevInterface, std::as_bytes(std::span(&interface, 1)));
  if (!socket.ask(message(family->number, 0, fixed, wanted), read) || !bits) {
    return std::nullopt;
  }
  return XdpFeatures{.native = (*bits & runsPrograms) != 0 && (*bits & redirects) != 0,
                     .receives = (*bits & sendsRedirected) != 0};
}

bool hidesTags(const std::string& interface) {
  const auto on = features(interface);
  return on.contains("rx-vlan-hw-parse") || on.contains("rx-vlan-stag-hw-parse");
}

int watchLinks() { return watch(NETLINK_ROUTE, RTNLGRP_LINK); }

int watchXdpFeatures() {
  const auto family = familyNamed(netdevFamily, Socket(NETLINK_GENERIC));
  return family ? watch(NETLINK_GENERIC, family->group) : -ENOENT;
}

}  // namespace classifier::xdp
