#include "cli/apply/scriptFile.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

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

}  // namespace

std::string ScriptFile::message(std::size_t line, std::string_view reason) const {
  return fmt::format("{}:{}: {}", name, line, reason);
}

ScriptFile takeScript(Words& words) {
  const std::string path = words.take("FILE");
  words.end();
  if (path == "-") return {"standard input", read(std::cin, "standard input")};
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
