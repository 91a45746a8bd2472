#pragma once

/// Frames on real interfaces: what is sent there, and what arrives.

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

#include "tests/support/frame_builder.h"
#include "tests/support/world.h"

namespace support {

/// Sees every frame that arrives on an interface, tags included, from when it is made.
class PacketSocket {
 public:
  explicit PacketSocket(const std::string& interface)
      : descriptor_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL))) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    const int on = 1;
    const int buffer = 256 << 20;
    setsockopt(descriptor_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer);
    if (address.sll_ifindex == 0 ||
        bind(descriptor_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        setsockopt(descriptor_.get(), SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0) {
      throw std::runtime_error("no packet socket on " + interface);
    }
    // What arrived on other interfaces before.
    std::array<char, 64> rest{};
    while (recv(descriptor_.get(), rest.data(), rest.size(), MSG_DONTWAIT) > 0) continue;
  }

  void send(const Bytes& frame) const {
    if (::send(descriptor_.get(), frame.data(), frame.size(), 0) !=
        static_cast<ssize_t>(frame.size())) {
      throw std::runtime_error("a frame is not sent");
    }
  }

  /// The next frame that arrives; nothing when none does in time.
  std::optional<Bytes> next(std::chrono::milliseconds timeout = patience) const {
    for (;;) {
      pollfd ready{.fd = descriptor_.get(), .events = POLLIN, .revents = 0};
      if (poll(&ready, 1, static_cast<int>(timeout.count())) != 1) return std::nullopt;
      if (auto frame = receive()) return frame;
    }
  }

 private:
  /// Nothing for a frame that leaves.
  std::optional<Bytes> receive() const {
    Bytes frame(65536);
    sockaddr_ll address{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> control{};
    iovec part{.iov_base = frame.data(), .iov_len = frame.size()};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = recvmsg(descriptor_.get(), &message, 0);
    if (size < 0 || address.sll_pkttype == PACKET_OUTGOING) return std::nullopt;
    frame.resize(static_cast<std::size_t>(size));
    const cmsghdr* head = CMSG_FIRSTHDR(&message);
    if (head != nullptr && head->cmsg_type == PACKET_AUXDATA) restoreTag(frame, head);
    return frame;
  }

  /// The kernel keeps the outer tag beside the frame.
  static void restoreTag(Bytes& frame, const cmsghdr* head) {
    tpacket_auxdata data{};
    std::memcpy(&data, CMSG_DATA(head), sizeof data);
    if ((data.tp_status & TP_STATUS_VLAN_VALID) == 0) return;
    const auto high = [](unsigned word) { return static_cast<std::uint8_t>(word >> 8); };
    const auto low = [](unsigned word) { return static_cast<std::uint8_t>(word); };
    const std::array<std::uint8_t, 4> tag = {high(data.tp_vlan_tpid), low(data.tp_vlan_tpid),
                                             high(data.tp_vlan_tci), low(data.tp_vlan_tci)};
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
  }

  Descriptor descriptor_;
};

}  // namespace support
