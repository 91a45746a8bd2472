#include "host/startup.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include "host/profiles.h"
#include "host/scriptRunner.h"
#include "l2cp/l2cp.h"
#include "script/script.h"

namespace {

std::string failure(const char* action, const std::string& path) {
  return fmt::format("cannot {} {}: {}", action, path, std::strerror(errno));
}

class File {
 public:
  File(const std::string& path, int flags) : number_(open(path.c_str(), flags | O_CLOEXEC, 0640)) {}
  ~File() {
    if (number_ >= 0) ::close(number_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  bool isOpen() const { return number_ >= 0; }
  bool write(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t count = ::write(number_, bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }
  // Nothing if it cannot be read to its end.
  std::optional<std::string> read() const {
    std::string bytes;
    std::array<char, 16384> part{};
    for (;;) {
      const ssize_t count = ::read(number_, part.data(), part.size());
      if (count == 0) return bytes;
      if (count > 0) {
        bytes.append(part.data(), static_cast<std::size_t>(count));
      } else if (errno != EINTR) {
        return std::nullopt;
      }
    }
  }
  bool sync() const { return fsync(number_) == 0; }
  bool close() { return ::close(std::exchange(number_, -1)) == 0; }

 private:
  int number_;
};

std::string folderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

// A whole file of that name that has reached the disk, or what failed; then there is no such file.
std::string writeWhole(const std::string& path, const std::string& contents) {
  File file(path, O_WRONLY | O_CREAT | O_TRUNC);
  if (!file.isOpen()) return failure("create", path);
  if (!file.write(contents) || !file.sync() || !file.close()) {
    std::string problem = failure("write", path);
    unlink(path.c_str());
    return problem;
  }
  return {};
}

std::string copy(const std::string& path, const std::string& target) {
  const File file(path, O_RDONLY);
  const auto contents = file.isOpen() ? file.read() : std::nullopt;
  return contents ? writeWhole(target, *contents) : failure("keep the previous", path);
}

// Whether a file of this kind or owner cannot have a second name, or no file of this file system.
bool isLinkRefusal(int error) {
  return error == EPERM || error == EOPNOTSUPP || error == EMLINK || error == ENOSYS;
}

// Gives the script a second name, which stays when the first one goes to its successor; a copy has
// the name where there can be no second one.
std::string keepPrevious(const std::string& path) {
  const std::string old = path + ".old";
  const std::string second = old + ".new";
  unlink(second.c_str());
  if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) return {};
  std::string problem;
  if (link(path.c_str(), second.c_str()) != 0) {
    problem = isLinkRefusal(errno) ? copy(path, second) : failure("keep the previous", path);
  }
  if (problem.empty() && rename(second.c_str(), old.c_str()) != 0) {
    problem = failure("rename", second);
  }
  // Also after success: two names of one file are not renamed.
  unlink(second.c_str());
  return problem;
}

// A script is read and replaced as a whole, which no device, pipe or folder can be.
bool isSomethingElse(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

// The factory configuration, also of protocols that are built in: those the module leaves as they
// are, and protocols whose use by a profile it has not forgotten.
void restoreDefaults() {
  L2CP& module = singleton<L2CP>::instance();
  profiles::clear();
  module.applyDefaultSettings();
  module.settings.protocols = L2CP::Settings().protocols;
}

}  // namespace

namespace startup {

std::string save(const std::string& path, const std::vector<std::string>& lines) {
  std::string contents;
  for (const std::string& line : lines) contents += line + "\n";
  if (isSomethingElse(path)) return fmt::format("{} is not a regular file", path);
  const std::string fresh = path + ".new";
  std::string problem = writeWhole(fresh, contents);
  if (problem.empty()) problem = keepPrevious(path);
  if (problem.empty() && rename(fresh.c_str(), path.c_str()) != 0) {
    problem = failure("rename", fresh);
  }
  if (!problem.empty()) {
    unlink(fresh.c_str());
    return problem;
  }
  const File folder(folderOf(path), O_RDONLY | O_DIRECTORY);
  return folder.isOpen() && folder.sync() ? "" : failure("sync the folder of", path);
}

Replay replay(const std::string& path, Strictness strictness) {
  Replay result;
  if (isSomethingElse(path)) {
    result.problems.push_back(fmt::format("{}: is not a regular file", path));
    return result;
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    if (errno != ENOENT) {
      result.problems.push_back(fmt::format("{}: {}", path, std::strerror(errno)));
    }
    return result;
  }
  const script::Script script = script::parse(file);
  for (const auto& [line, reason] : script.mistakes) {
    result.problems.push_back(fmt::format("{}:{}: {}", path, line, reason));
  }
  if (file.bad()) result.problems.push_back(fmt::format("{}: cannot be read", path));
  const bool strict = strictness == Strictness::nothing;
  if (strict && !result.problems.empty()) return result;
  // In a mode whose object could not be made.
  bool skipping = false;
  for (const auto& [line, command] : script.statements) {
    if (std::holds_alternative<script::Exit>(command)) {
      skipping = false;
      continue;
    }
    if (skipping) continue;
    const std::string refusal = runCommand(command);
    if (refusal.empty()) {
      ++result.commands;
      continue;
    }
    result.problems.push_back(fmt::format("{}:{}: {}", path, line, refusal));
    skipping = script::entersMode(command);
    if (strict) {
      restoreDefaults();
      result.commands = 0;
      result.isUndone = true;
      return result;
    }
  }
  return result;
}

}  // namespace startup
