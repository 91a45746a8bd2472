#include "cli/apply/scriptFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/value.h"

namespace cli {

namespace {

[[noreturn]] void cannotRead(const std::string& name, int error) {
  throw LocalError(fmt::format("{}: {}", name, std::strerror(error)));
}

[[noreturn]] void interrupted() { throw LocalError("interrupted; nothing was done"); }

// Past the standard library, to whose streams a failure is an end like any other: a script that has
// no lines is one that deletes everything. For the same reason, an end that comes with a signal is
// none.
script::Script read(int descriptor, const std::string& name) {
  std::stringstream text;
  std::array<char, 65536> bytes{};
  while (true) {
    if (!waitForInput(descriptor)) interrupted();
    const ssize_t count = ::read(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) cannotRead(name, errno);
    if (count == 0) break;
    text.write(bytes.data(), count);
  }
  if (isStopRequested()) interrupted();
  return script::parse(text);
}

/// A file that is open for reading.
class File {
 public:
  File(const std::string& path, const std::string& name)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ >= 0) return;
    const int error = errno;
    if (error == EINTR && isStopRequested()) interrupted();
    cannotRead(name, error);
  }
  ~File() { ::close(descriptor_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

}  // namespace

std::string ScriptFile::message(std::size_t line, std::string_view reason) const {
  return fmt::format("{}:{}: {}", name, line, reason);
}

ScriptFile takeScript(Words& words) {
  const std::string path = words.take("FILE");
  words.end();
  if (path == "-") return {"standard input", read(STDIN_FILENO, "standard input")};
  const std::string name = safeText(path);
  const File file(path, name);
  return {name, read(file.descriptor(), name)};
}

ScriptFile takeScriptOrInput(Words& words) {
  if (!words.empty() || isatty(STDIN_FILENO) == 1) return takeScript(words);
  Words input({"-"});
  return takeScript(input);
}

}  // namespace cli
