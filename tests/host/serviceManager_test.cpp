#include "host/serviceManager.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

/// A service manager that listens at a path, or behind an "@" at an abstract name.
class Manager : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const std::string name = GetParam() + std::to_string(getpid());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const bool isAbstract = name.front() == '@';
    if (isAbstract) address.sun_path[0] = '\0';
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the sockets interface wants it
    ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0);
    if (!isAbstract) path_ = name;
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }
  void TearDown() override {
    unsetenv("NOTIFY_SOCKET");
    close(socket_);
    if (!path_.empty()) unlink(path_.c_str());
  }

  /// The next message, or nothing.
  std::string heard() const {
    std::array<char, 1024> bytes{};
    const ssize_t size = recv(socket_, bytes.data(), bytes.size(), 0);
    return size > 0 ? std::string(bytes.data(), static_cast<std::size_t>(size)) : "";
  }

 private:
  int socket_ = -1;
  std::string path_;
};

INSTANTIATE_TEST_SUITE_P(At, Manager, testing::Values("@l2cpd-test-", "/tmp/l2cpd-test-"),
                         [](const auto& name) {
                           return *name.param == '@' ? "AnAbstractName" : "APath";
                         });

TEST_P(Manager, IsToldThatRequestsAreServed) {
  serviceManager::ready("Serving 100 % of requests");
  EXPECT_EQ(heard(), "READY=1\nSTATUS=Serving 100 % of requests");
  EXPECT_EQ(heard(), "");
}

TEST_P(Manager, IsToldOfTheEnd) {
  serviceManager::stopping();
  EXPECT_EQ(heard(), "STOPPING=1\nSTATUS=Stopping");
}

std::uint64_t microseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
}

TEST_P(Manager, IsToldWhenAReloadBegins) {
  const std::uint64_t before = microseconds();
  serviceManager::reloading();
  const std::uint64_t after = microseconds();
  const std::string message = heard();
  const std::string begin = "RELOADING=1\nMONOTONIC_USEC=";
  ASSERT_THAT(message, testing::StartsWith(begin));
  EXPECT_THAT(message, testing::EndsWith("\nSTATUS=Reading the configuration again"));
  const std::uint64_t time = std::stoull(message.substr(begin.size()));
  EXPECT_GE(time, before);
  EXPECT_LE(time, after);
}

TEST(NoManager, IsToldNothing) {
  unsetenv("NOTIFY_SOCKET");
  serviceManager::ready("status");
  serviceManager::reloading();
  serviceManager::stopping();
}

}  // namespace
