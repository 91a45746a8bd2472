#pragma once

/// Requests and replies byte by byte (RFC 5531), for what no generated client sends.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/support/world.h"
#include "tests/support/xdr_bytes.h"

namespace wire {

using Bytes = support::XdrBytes;
using support::readable;

/// A call's header; its transaction id is 0x12345678.
struct Call {
  std::uint32_t procedure = 0;
  std::uint32_t program = 0x2000001d;
  std::uint32_t version = 1;
  std::uint32_t rpcVersion = 2;

  Bytes with(const Bytes& arguments = {}) const {
    Bytes bytes;
    bytes.words({0x12345678, 0, rpcVersion, program, version, procedure, 0, 0, 0, 0});
    return bytes.raw(arguments.str());
  }
};

/// What the whole reply to a call of that id should be.
inline std::string accepted(std::uint32_t status, const Bytes& result = {}) {
  return Bytes().words({0x12345678, 1, 0, 0, 0, status}).raw(result.str()).str();
}
inline std::string success(const Bytes& result = {}) { return accepted(0, result); }
inline std::string programUnavailable() { return accepted(1); }
inline std::string versionMismatch(std::uint32_t lowest, std::uint32_t highest) {
  return accepted(2, Bytes().words({lowest, highest}));
}
inline std::string procedureUnavailable() { return accepted(3); }
inline std::string garbageArguments() { return accepted(4); }

/// A socket to the daemon without an RPC library behind it.
class Socket {
 public:
  /// `transport` is "udp" or "tcp".
  explicit Socket(std::string_view transport, unsigned long program = 0x2000001d)
      : isStream_(transport == "tcp"),
        descriptor_(::socket(AF_INET, (isStream_ ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port =
        htons(pmap_getport(&address, program, 1, isStream_ ? IPPROTO_TCP : IPPROTO_UDP));
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);  // NOLINT: as C asks for it
    if (connect(descriptor_.get(), generic, sizeof(address)) != 0) {
      throw std::runtime_error("no connection to the daemon");
    }
  }

  int descriptor() const { return descriptor_.get(); }

  /// False when the daemon has closed.
  bool sendRaw(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }

  /// One record, over TCP in one fragment.
  void send(const Bytes& record) const {
    sendRaw(isStream_ ? fragment(record.str(), true).str() : record.str());
  }

  static Bytes fragment(std::string_view bytes, bool last) {
    const auto size = static_cast<std::uint32_t>(bytes.size());
    return Bytes().word(size | (last ? 0x80000000U : 0U)).raw(bytes);
  }

  /// The next record, or nothing when the daemon closes or patience ends.
  std::optional<std::string> receive() const {
    if (!isStream_) {
      if (!readable(support::patience)) return std::nullopt;
      std::array<char, 65536> bytes;
      const ssize_t count = recv(descriptor_.get(), bytes.data(), bytes.size(), 0);
      if (count < 0) return std::nullopt;
      return std::string(bytes.data(), static_cast<std::size_t>(count));
    }
    std::string record;
    for (bool last = false; !last;) {
      const auto header = exactly(4);
      if (!header) return std::nullopt;
      std::uint32_t word = 0;
      for (const char byte : *header) word = word << 8 | static_cast<unsigned char>(byte);
      last = (word & 0x80000000U) != 0;
      const auto part = exactly(word & 0x7fffffffU);
      if (!part) return std::nullopt;
      record += *part;
    }
    return record;
  }

  std::string call(const Bytes& record) const {
    send(record);
    return receive().value_or("no reply");
  }

  /// Whether nothing arrives for a while.
  bool isSilent(std::chrono::milliseconds time) const { return !readable(time); }

  /// Waits until the daemon closes the connection, dropping what it still sends.
  bool isClosed() const {
    std::array<char, 4096> bytes;
    for (;;) {
      if (!readable(support::patience)) return false;
      if (recv(descriptor_.get(), bytes.data(), bytes.size(), 0) <= 0) return true;
    }
  }

 private:
  bool readable(std::chrono::milliseconds timeout) const {
    pollfd wanted{.fd = descriptor_.get(), .events = POLLIN, .revents = 0};
    return poll(&wanted, 1, static_cast<int>(timeout.count())) == 1;
  }

  std::optional<std::string> exactly(std::size_t size) const {
    std::string bytes(size, '\0');
    std::size_t got = 0;
    while (got < size) {
      if (!readable(support::patience)) return std::nullopt;
      const ssize_t count = recv(descriptor_.get(), bytes.data() + got, size - got, 0);
      if (count <= 0) return std::nullopt;
      got += static_cast<std::size_t>(count);
    }
    return bytes;
  }

  bool isStream_;
  support::Descriptor descriptor_;
};

}  // namespace wire
