#include "host/keptPrograms.h"

#include <fcntl.h>
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

namespace {

constexpr const char* fileSystem = "/sys/fs/bpf";
constexpr const char* keepingFolder = "/sys/fs/bpf/l2cpd";

bool isMounted() {
  constexpr auto bpfFileSystem = 0xcafe4a11;
  struct statfs found {};
  return statfs(fileSystem, &found) == 0 &&
         static_cast<std::uint32_t>(found.f_type) == bpfFileSystem;
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

}  // namespace

KeptPrograms::KeptPrograms(bool keeps) : keeps_(keeps) {
  if (!isMounted()) {
    if (!keeps) return;
    throw ConfigError(
        "programs cannot be kept: there is no BPF file system at /sys/fs/bpf; mount one with "
        "\"mount -t bpf bpf /sys/fs/bpf\"");
  }
  folder_ = keepingFolder;
  if (!keeps) return;
  if (const std::error_code error = makeUsable(folder_)) {
    throw ConfigError(unusable(folder_, error));
  }
}

std::string KeptPrograms::fileOf(std::uint32_t interface) const {
  return keeps_ ? fmt::format("{}/{}", folder_, interface) : std::string();
}

void KeptPrograms::removeOthers(const std::set<std::uint32_t>& interfaces) {
  if (folder_.empty()) return;
  std::set<std::string> ours;
  for (const std::uint32_t interface : interfaces) ours.insert(fileOf(interface));
  bool isAnyRemoved = false;
  for (const auto& file : contents(folder_)) {
    if (ours.contains(file)) continue;
    const int error = classifier::xdp::Attachment::removeKept(file);
    isAnyRemoved |= error == 0;
    if (error != 0) sayThatItStays(file, error);
  }
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
