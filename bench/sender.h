#pragma once

/// Senders of many frames at little cost. Each returns what a frame takes until the kernel is done
/// with it. Counts are multiples of `batch`.

#include <linux/ethtool.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "bench/ratio.h"
#include "bench/switch.h"
#include "tests/support/world.h"

namespace bench {

/// As many as a driver hands to the kernel at once.
constexpr std::uint32_t batch = 64;

// ---- Senders: each sends a round's frames and returns what one costs, as far as it is processed
// ----

/// From a driver: the kernel makes the frames, and a program sends them.
class Driver {
 public:
  explicit Driver(const char* interface) : program_(sendProgram(if_nametoindex(interface))) {
    if (program_ < 0) throw std::runtime_error("programs cannot be loaded here");
  }

  Nanoseconds operator()(const support::Bytes& frame, std::uint32_t count) const {
    bpf_test_run_opts options{};
    options.sz = sizeof options;
    options.data_in = frame.data();
    options.data_size_in = static_cast<std::uint32_t>(frame.size());
    options.repeat = static_cast<int>(count);
    options.flags = BPF_F_TEST_XDP_LIVE_FRAMES;
    options.batch_size = batch;
    if (bpf_prog_test_run_opts(program_, &options) != 0) {
      throw std::runtime_error("the kernel makes no frames");
    }
    // The call itself waits for grace periods before and after.
    return options.duration;
  }

 private:
  int program_;
};

/// From a program, past the queues.
class Socket {
 public:
  explicit Socket(const char* interface) : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    const int on = 1;
    if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        setsockopt(socket_.get(), SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on) != 0) {
      throw std::runtime_error("no packet socket");
    }
  }

  Nanoseconds operator()(const support::Bytes& frame, std::uint32_t count) const {
    iovec part{.iov_base = const_cast<std::uint8_t*>(frame.data()), .iov_len = frame.size()};
    std::array<mmsghdr, batch> messages{};
    for (mmsghdr& message : messages) {
      message.msg_hdr.msg_iov = &part;
      message.msg_hdr.msg_iovlen = 1;
    }
    const Stopwatch watch;
    for (std::uint32_t sent = 0; sent < count; sent += batch) {
      if (sendmmsg(socket_.get(), messages.data(), batch, 0) != batch) {
        throw std::runtime_error("frames are not sent");
      }
    }
    return watch.read() / count;
  }

 private:
  support::Descriptor socket_;
};

/// Has the driver take frames of other drivers also when it runs no program.
inline void gatherFrames(const char* interface) {
  const support::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ethtool_value value{.cmd = ETHTOOL_SGRO, .data = 1};
  ifreq request{};
  std::strcpy(request.ifr_name, interface);
  request.ifr_data = reinterpret_cast<char*>(&value);
  if (ioctl(socket.get(), SIOCETHTOOL, &request) != 0) throw std::runtime_error("no GRO");
}

}  // namespace bench
