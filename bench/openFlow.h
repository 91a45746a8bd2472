#pragma once

/// Open vSwitch with its datapath in user space, started for this program alone, and as much of
/// OpenFlow 1.0 as tells it of flows.

#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/frame_builder.h"
#include "tests/support/world.h"

namespace bench {

/// Its processes are in a network of their own and have their files in a folder of their own, both
/// of which go with this object.
class OpenVSwitch {
 public:
  /// Takes the calling thread to the network. Throws what is missing.
  OpenVSwitch() {
    if (support::run({"ovs-vswitchd", "--version"}).status != 0) {
      throw std::runtime_error("Open vSwitch is not installed");
    }
    char folder[] = "/tmp/l2cp-bench.XXXXXX";
    if (unshare(CLONE_NEWNET) != 0 || mkdtemp(folder) == nullptr) {
      throw std::runtime_error("no network of its own");
    }
    folder_ = folder;
    try {
      start();
    } catch (...) {
      std::filesystem::remove_all(folder_);
      throw;
    }
  }
  ~OpenVSwitch() {
    // They tidy up when they are told to end.
    for (auto* process : {&switch_, &database_}) {
      (*process)->signal(SIGTERM);
      (*process)->wait();
    }
    std::filesystem::remove_all(folder_);
  }
  OpenVSwitch(const OpenVSwitch&) = delete;
  OpenVSwitch& operator=(const OpenVSwitch&) = delete;

  /// Where its bridge is spoken to.
  std::string socket() const { return folder_ + "/br0.mgmt"; }

 private:
  void start() {
    for (const char* name : {"OVS_RUNDIR", "OVS_LOGDIR", "OVS_DBDIR", "OVS_SYSCONFDIR"}) {
      setenv(name, folder_.c_str(), 1);
    }
    const std::string database = folder_ + "/conf.db";
    const std::string socket = folder_ + "/db.sock";
    check({"ovsdb-tool", "create", database, "/usr/share/openvswitch/vswitch.ovsschema"});
    database_ = std::make_unique<support::Process>(
        std::vector<std::string>{"ovsdb-server", database, "--remote=punix:" + socket});
    const bool isThere = support::eventually([&] { return access(socket.c_str(), F_OK) == 0; });
    if (!isThere) throw std::runtime_error("no ovsdb-server: " + database_->output().text());
    check({"ovs-vsctl", "--db=unix:" + socket, "--no-wait", "init"});
    switch_ = std::make_unique<support::Process>(
        std::vector<std::string>{"ovs-vswitchd", "unix:" + socket, "--disable-system"});
    check({"ovs-vsctl", "--db=unix:" + socket, "--timeout=20", "add-br", "br0", "--", "set",
           "bridge", "br0", "datapath_type=netdev", "fail_mode=secure"});
  }

  static void check(const std::vector<std::string>& command) {
    const support::Run result = support::run(command);
    if (result.status != 0) throw std::runtime_error(command[0] + ": " + result.output);
  }

  std::string folder_;
  std::unique_ptr<support::Process> database_;
  std::unique_ptr<support::Process> switch_;
};

/// Numbers of the protocol's own.
namespace openflow {
enum Type : std::uint8_t {
  hello = 0,
  error = 1,
  echoRequest = 2,
  echoReply = 3,
  flowMod = 14,
  barrierRequest = 18,
  barrierReply = 19,
};
enum Wildcard : std::uint32_t {
  inPort = 1U << 0,
  vlan = 1U << 1,
  destination = 1U << 3,
  etherType = 1U << 4,
  all = (1U << 22) - 1,
};
constexpr std::uint8_t version = 1;
constexpr std::size_t headerSize = 8;
constexpr std::size_t flowModSize = 72;
constexpr std::uint16_t noPort = 0xffff;
constexpr std::uint32_t noBuffer = 0xffffffff;
constexpr std::uint16_t add = 0;
constexpr std::uint16_t remove = 3;
}  // namespace openflow

/// Messages in the order in which they go out.
class OpenFlowMessages {
 public:
  OpenFlowMessages& plain(openflow::Type type) { return header(type, openflow::headerSize); }

  /// Drops frames of the VLAN to that address with that EtherType.
  OpenFlowMessages& addFlow(std::uint16_t port, std::uint16_t vlan, const support::Mac& destination,
                            std::uint16_t type, std::uint16_t priority) {
    using openflow::Wildcard;
    header(openflow::flowMod, openflow::flowModSize);
    word32(Wildcard::all &
           ~(Wildcard::inPort | Wildcard::vlan | Wildcard::destination | Wildcard::etherType));
    word16(port).zeros(sizeof(support::Mac));
    bytes_.insert(bytes_.end(), destination.begin(), destination.end());
    word16(vlan).zeros(2).word16(type).zeros(16);
    return change(openflow::add, priority);
  }

  OpenFlowMessages& removeFlows() {
    header(openflow::flowMod, openflow::flowModSize);
    word32(openflow::Wildcard::all).zeros(36);
    return change(openflow::remove, 0);
  }

  const support::Bytes& bytes() const { return bytes_; }

 private:
  OpenFlowMessages& header(openflow::Type type, std::size_t size) {
    bytes_.push_back(openflow::version);
    bytes_.push_back(type);
    return word16(static_cast<std::uint16_t>(size)).zeros(4);
  }
  OpenFlowMessages& change(std::uint16_t command, std::uint16_t priority) {
    zeros(8).word16(command).zeros(4).word16(priority);
    return word32(openflow::noBuffer).word16(openflow::noPort).zeros(2);
  }
  OpenFlowMessages& word16(std::uint16_t value) {
    bytes_.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes_.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  OpenFlowMessages& word32(std::uint32_t value) {
    return word16(static_cast<std::uint16_t>(value >> 16))
        .word16(static_cast<std::uint16_t>(value));
  }
  OpenFlowMessages& zeros(std::size_t count) {
    bytes_.resize(bytes_.size() + count);
    return *this;
  }

  support::Bytes bytes_;
};

class OpenFlowConnection {
 public:
  explicit OpenFlowConnection(const std::string& path)
      : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const bool isConnected = support::eventually([&] {
      return connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
             0;
    });
    if (!isConnected) throw std::runtime_error("the switch is not reached");
    send(OpenFlowMessages().plain(openflow::hello));
  }

  void send(const OpenFlowMessages& messages) const {
    const support::Bytes& bytes = messages.bytes();
    if (::send(socket_.get(), bytes.data(), bytes.size(), 0) !=
        static_cast<ssize_t>(bytes.size())) {
      throw std::runtime_error("the switch takes no messages");
    }
  }

  /// Waits for the answer to the barrier that was sent last.
  void waitForBarrier() {
    for (;;) {
      switch (next()) {
        case openflow::barrierReply:
          return;
        case openflow::echoRequest:
          send(OpenFlowMessages().plain(openflow::echoReply));
          break;
        case openflow::error:
          throw std::runtime_error("the switch refuses a message");
        default:
          break;
      }
    }
  }

 private:
  // The type of the next message.
  std::uint8_t next() {
    while (received_ < openflow::headerSize || received_ < size()) receive();
    const std::uint8_t type = buffer_[1];
    const std::size_t length = size();
    std::memmove(buffer_.data(), buffer_.data() + length, received_ - length);
    received_ -= length;
    return type;
  }
  std::size_t size() const { return static_cast<std::size_t>(buffer_[2] << 8 | buffer_[3]); }
  void receive() {
    const ssize_t size =
        recv(socket_.get(), buffer_.data() + received_, buffer_.size() - received_, 0);
    if (size <= 0) throw std::runtime_error("the switch has gone");
    received_ += static_cast<std::size_t>(size);
  }

  support::Descriptor socket_;
  support::Bytes buffer_ = support::Bytes(1 << 17);
  std::size_t received_ = 0;
};

}  // namespace bench
