#include "cli/apply/scriptFile.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

[[noreturn]] void cannotRead(const std::string& name, int error) {
  throw LocalError(fmt::format("{}: {}", name, std::strerror(error)));
}

script::Script read(std::istream& stream, const std::string& name) {
  errno = 0;
  script::Script script = script::parse(stream);
  if (stream.bad()) cannotRead(name, errno != 0 ? errno : EIO);
  return script;
}

// Past the standard library, to whose stream a failure is an end like any other: a script that has
// no lines is one that deletes everything.
script::Script readInput(const std::string& name) {
  std::stringstream text;
  std::array<char, 65536> bytes{};
  while (true) {
    const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) cannotRead(name, errno);
    if (count == 0) return script::parse(text);
    text.write(bytes.data(), count);
  }
}

}  // namespace

std::string ScriptFile::message(std::size_t line, std::string_view reason) const {
  return fmt::format("{}:{}: {}", name, line, reason);
}

ScriptFile takeScript(Words& words) {
  const std::string path = words.take("FILE");
  words.end();
  if (path == "-") return {"standard input", readInput("standard input")};
  const std::string name = safeText(path);
  std::ifstream stream(path, std::ios::binary);
  if (!stream) cannotRead(name, errno);
  return {name, read(stream, name)};
}

ScriptFile takeScriptOrInput(Words& words) {
  if (!words.empty() || isatty(STDIN_FILENO) == 1) return takeScript(words);
  Words input({"-"});
  return takeScript(input);
}

}  // namespace cli
