#include "host/keptPrograms.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "classifier/xdp/attachment.h"
#include "host/config.h"
#include "host/log.h"

using classifier::xdp::Attachment;

namespace {

constexpr const char* fileSystem = "/sys/fs/bpf";
constexpr const char* keepingFolder = "/sys/fs/bpf/l2cpd";

bool isMounted() {
  constexpr auto bpfFileSystem = 0xcafe4a11;
  struct statfs found {};
  return statfs(fileSystem, &found) == 0 &&
         static_cast<std::uint32_t>(found.f_type) == bpfFileSystem;
}

/// Its number, as lsns(8) shows it; empty if that is not known.
std::string networkNamespace() {
  struct stat found {};
  if (stat("/proc/self/ns/net", &found) != 0) return {};
  return std::to_string(found.st_ino);
}

std::string unusable(const std::string& folder, const std::error_code& error) {
  std::string text = fmt::format("programs cannot be kept: {}: {}", folder, error.message());
  if (error == std::errc::permission_denied || error == std::errc::read_only_file_system) {
    // The file system is often mounted for root alone.
    text += fmt::format("; have root run \"chmod a+x {}\" and \"install -d -m 0700 -o {} {}\"",
                        fileSystem, geteuid(), folder);
  }
  return text;
}

std::error_code makeUsable(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directory(folder, error);
  if (!error && faccessat(AT_FDCWD, folder.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0) {
    error.assign(errno, std::generic_category());
  }
  return error;
}

/// None if the folder is not there, or not for this user to look into.
std::vector<std::filesystem::path> contents(const std::string& folder) {
  std::vector<std::filesystem::path> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    found.push_back(entry.path());
  }
  return found;
}

/// Whether it, or one above it, is not for this user to look into.
bool isHidden(const std::string& folder) {
  return faccessat(AT_FDCWD, folder.c_str(), R_OK | X_OK, AT_EACCESS) != 0 && errno == EACCES;
}

}  // namespace

KeptPrograms::KeptPrograms(bool keeps) : keeps_(keeps) {
  if (!isMounted()) {
    if (!keeps) return;
    throw ConfigError(
        "programs cannot be kept: there is no BPF file system at /sys/fs/bpf; mount one with "
        "\"mount -t bpf bpf /sys/fs/bpf\"");
  }
  const std::string space = networkNamespace();
  if (!space.empty()) folder_ = fmt::format("{}/{}", keepingFolder, space);
  removeLeftOvers();
  if (!keeps) {
    if (!lock()) folder_.clear();
    if (isHidden(folder_)) {
      hostlog::information("xdp",
                           "this user may not see whether an earlier daemon has kept programs on "
                           "interfaces; if so, have root run \"rm -r {}\"",
                           folder_);
    }
    return;
  }
  if (space.empty()) throw ConfigError("programs cannot be kept: /proc is not mounted");
  for (const std::string& folder : {std::string(keepingFolder), folder_}) {
    if (const std::error_code error = makeUsable(folder)) {
      throw ConfigError(unusable(folder, error));
    }
  }
  if (!lock()) {
    throw ConfigError(fmt::format(
        "programs cannot be kept: another daemon that runs keeps its own in {}", folder_));
  }
}

KeptPrograms::~KeptPrograms() {
  if (lock_ >= 0) close(lock_);
}

// False if another process has the folder. One that is not there, or not for this user, is
// nobody's.
bool KeptPrograms::lock() {
  if (lock_ >= 0) close(lock_);
  lock_ = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return lock_ < 0 || flock(lock_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

std::string KeptPrograms::fileOf(std::uint32_t interface) {
  if (keeps_ && !holdsFolder()) makeFolderAgain();
  return keeps_ ? nameOf(interface) : std::string();
}

bool KeptPrograms::holdsFolder() const {
  struct stat held {};
  struct stat there {};
  return lock_ >= 0 && fstat(lock_, &held) == 0 && stat(folder_.c_str(), &there) == 0 &&
         held.st_ino == there.st_ino;
}

void KeptPrograms::makeFolderAgain() {
  // Making a file there tells of errors.
  std::error_code ignored;
  std::filesystem::create_directories(folder_, ignored);
  if (lock()) return;
  hostlog::warning("xdp", "programs end with the daemon: another one keeps its own in {} now",
                   folder_);
  keeps_ = false;
  folder_.clear();
}

std::string KeptPrograms::nameOf(std::uint32_t interface) const {
  return fmt::format("{}/{}", folder_, interface);
}

// A namespace that has gone cannot do it itself.
void KeptPrograms::removeLeftOvers() const {
  for (const auto& folder : contents(keepingFolder)) {
    if (folder == folder_) continue;
    for (const auto& file : contents(folder)) {
      if (Attachment::keepsNothing(file)) Attachment::removeKept(file);
    }
    // Not if anything is in it.
    rmdir(folder.c_str());
  }
}

void KeptPrograms::removeOthers(const std::set<std::uint32_t>& interfaces) {
  if (keeps_ && !holdsFolder()) makeFolderAgain();
  if (!holdsFolder()) return;
  std::set<std::string> ours;
  for (const std::uint32_t interface : interfaces) {
    if (!keeps_) break;
    ours.insert(nameOf(interface));
    ours.insert(Attachment::filterFile(nameOf(interface)));
  }
  bool isAnyRemoved = false;
  for (const auto& file : contents(folder_)) {
    if (ours.contains(file)) continue;
    const int error = Attachment::removeKept(file);
    isAnyRemoved |= error == 0;
    if (error != 0) sayThatItStays(file, error);
  }
  if (!keeps_) rmdir(folder_.c_str());
  if (isAnyRemoved) {
    hostlog::information("xdp",
                         "programs that an earlier daemon has kept on interfaces are removed");
  }
}

void KeptPrograms::sayThatItStays(const std::string& file, int error) {
  if (std::exchange(isSaid_, true)) return;
  hostlog::warning("xdp",
                   "programs that an earlier daemon has kept stay on interfaces: {}: {}; have root "
                   "run \"rm -r {}\"",
                   file, std::strerror(-error), folder_);
}
