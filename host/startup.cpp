#include "host/startup.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

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

// Gives the script a second name, which stays when the first one goes to its successor.
std::string keepPrevious(const std::string& path) {
  const std::string old = path + ".old";
  const std::string link = old + ".new";
  unlink(link.c_str());
  if (::link(path.c_str(), link.c_str()) != 0) {
    return errno == ENOENT ? "" : failure("keep the previous", path);
  }
  if (rename(link.c_str(), old.c_str()) != 0) return failure("rename", link);
  // Two names of one file are not renamed.
  unlink(link.c_str());
  return {};
}

struct Statement {
  std::size_t line;
  script::Command command;
};

struct Script {
  std::vector<Statement> statements;
  std::vector<std::string> problems;
};

Script parse(const std::string& path, std::istream& file) {
  Script script;
  script::Reader reader;
  // After a mode that could not be entered, up to its exit.
  bool skipping = false;
  std::string line;
  for (std::size_t number = 1; std::getline(file, line); ++number) {
    const bool indented = !line.empty() && line.front() == ' ';
    if (skipping && (indented || line == "exit")) {
      skipping = indented;
      continue;
    }
    skipping = false;
    try {
      script.statements.push_back({number, reader.read(line)});
    } catch (const script::Problem& problem) {
      script.problems.push_back(fmt::format("{}:{}: {}", path, number, problem.what()));
      skipping = reader.mode() == script::Mode::configuration;
    }
  }
  if (file.bad()) script.problems.push_back(fmt::format("{}: cannot be read", path));
  return script;
}

}  // namespace

namespace startup {

std::string save(const std::string& path, const std::vector<std::string>& lines) {
  std::string contents;
  for (const std::string& line : lines) contents += line + "\n";
  const std::string fresh = path + ".new";
  std::string problem = writeWhole(fresh, contents);
  if (problem.empty()) problem = keepPrevious(path);
  if (!problem.empty()) {
    unlink(fresh.c_str());
    return problem;
  }
  if (rename(fresh.c_str(), path.c_str()) != 0) return failure("rename", fresh);
  const File folder(folderOf(path), O_RDONLY | O_DIRECTORY);
  return folder.isOpen() && folder.sync() ? "" : failure("sync the folder of", path);
}

Replay replay(const std::string& path, Strictness strictness) {
  Replay result;
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    result.problems.push_back(fmt::format("{}: is a directory", path));
    return result;
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    if (errno != ENOENT) {
      result.problems.push_back(fmt::format("{}: {}", path, std::strerror(errno)));
    }
    return result;
  }
  Script script = parse(path, file);
  result.problems = std::move(script.problems);
  const bool strict = strictness == Strictness::nothing;
  if (strict && !result.problems.empty()) return result;
  for (const auto& [line, command] : script.statements) {
    const std::string refusal = runCommand(command);
    if (refusal.empty()) {
      ++result.commands;
      continue;
    }
    result.problems.push_back(fmt::format("{}:{}: {}", path, line, refusal));
    if (strict) {
      profiles::clear();
      singleton<L2CP>::instance().applyDefaultSettings();
      result.commands = 0;
      return result;
    }
  }
  return result;
}

}  // namespace startup
