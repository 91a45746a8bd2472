#include "host/lockFile.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <filesystem>

namespace {

template <class Error = LockError>
[[noreturn]] void fail(const std::string& path, int error) {
  throw Error(fmt::format("{}: {}", path, std::strerror(error)));
}

std::string heldMessage(int descriptor, const std::string& path) {
  std::array<char, 32> text{};
  const ssize_t size = pread(descriptor, text.data(), text.size(), 0);
  pid_t holder = 0;
  if (size > 0) std::from_chars(text.data(), text.data() + size, holder);
  // It has the lock before it has written its number, if it may write it at all.
  const bool isRunning = holder > 0 && (kill(holder, 0) == 0 || errno == EPERM);
  const std::string process = isRunning ? fmt::format(" (process {})", holder) : "";
  return fmt::format("another l2cpd is running{}, it holds {}", process, path);
}

}  // namespace

LockFile::LockFile(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) fail(folder, error.value());

  open(path);
  try {
    if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
      if (errno == EWOULDBLOCK) throw LockHeld(heldMessage(descriptor_, path));
      fail(path, errno);
    }
    if (isWritable_) writeHolder(path);
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

// The file of another user, or of a file system that has become read-only, can still be locked.
void LockFile::open(const std::string& path) {
  constexpr mode_t readableByAll = 0644;
  descriptor_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, readableByAll);
  if (descriptor_ >= 0) return;
  const int error = errno;
  if (error != EACCES && error != EPERM && error != EROFS) fail(path, error);
  isWritable_ = false;
  // A pipe would wait for a writer.
  descriptor_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor_ >= 0) return;
  if (errno == ENOENT) fail(path, error);
  fail<LockUnknown>(path, errno);
}

LockFile::~LockFile() { close(descriptor_); }

// The old number goes when the new one is there, so that the file is empty only when it is new.
void LockFile::writeHolder(const std::string& path) const {
  const std::string text = fmt::format("{}\n", getpid());
  const auto size = static_cast<ssize_t>(text.size());
  if (pwrite(descriptor_, text.data(), text.size(), 0) != size ||
      ftruncate(descriptor_, size) != 0) {
    fail(path, errno);
  }
}
