#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "cli/program.h"

namespace {

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

cli::Sink sinkOf(int stream) {
  if (isatty(stream) != 1) return cli::Sink::file;
  return variable("TERM") == "dumb" ? cli::Sink::plainTerminal : cli::Sink::terminal;
}

// Other files must not get the numbers of standard streams that are closed: what is written to
// these would go there. Reading and writing them goes on to fail.
void keepStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) != -1) continue;
    if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) != stream) std::abort();
  }
}

}  // namespace

int main(int argc, char** argv) {
  keepStandardStreams();
  // A daemon or a reader of the output that goes away is told about, not died of.
  std::signal(SIGPIPE, SIG_IGN);
  const cli::Surroundings surroundings{
      .answers = sinkOf(STDOUT_FILENO),
      .messages = sinkOf(STDERR_FILENO),
      .plainWanted = !variable("NO_COLOR").empty(),
      .interactive = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1};
  return cli::run({argv + 1, argv + argc}, std::cout, std::cerr, surroundings);
}
