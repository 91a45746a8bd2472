#include "cli/shell/history.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "cli/value.h"

namespace cli {

namespace {

constexpr mode_t ownersFolder = 0700;
constexpr mode_t ownersFile = 0600;

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// A relative path there is to be ignored, as the XDG Base Directory rules have it.
std::string stateFolder() {
  std::string state = variable("XDG_STATE_HOME");
  if (state.starts_with('/')) return state;
  const std::string home = variable("HOME");
  return home.starts_with('/') ? home + "/.local/state" : "";
}

// False if there is none and none can be made.
bool makeFolders(const std::filesystem::path& folder) {
  std::filesystem::path made;
  for (const auto& part : folder) {
    made /= part;
    ::mkdir(made.c_str(), ownersFolder);
  }
  std::error_code error;
  return std::filesystem::is_directory(folder, error);
}

bool writeAll(const std::string& path, int flags, std::string_view text) {
  const int file =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | flags, ownersFile);
  if (file < 0) return false;
  const bool whole = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return ::close(file) == 0 && whole;
}

}  // namespace

HistoryFile::HistoryFile(std::size_t lines) : most_(lines) {
  const std::string folder = stateFolder();
  if (folder.empty() || !makeFolders(folder + "/l2cpctl")) return;
  path_ = folder + "/l2cpctl/history";
}

std::vector<std::string> HistoryFile::load() const {
  std::vector<std::string> lines;
  std::error_code error;
  if (path_.empty() || !std::filesystem::is_regular_file(path_, error)) return lines;
  std::ifstream file(path_);
  std::size_t all = 0;
  for (std::string line; std::getline(file, line); ++all) {
    if (safeText(line) == line) lines.push_back(line);
  }
  if (lines.size() > most_)
    lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most_));
  if (all > 2 * most_) shorten(lines);
  return lines;
}

void HistoryFile::append(const std::string& line) const {
  if (!path_.empty() && safeText(line) == line) writeAll(path_, O_APPEND, line + '\n');
}

void HistoryFile::shorten(const std::vector<std::string>& lines) const {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  const std::string fresh = path_ + ".new";
  if (writeAll(fresh, O_TRUNC, text)) ::rename(fresh.c_str(), path_.c_str());
}

}  // namespace cli
