#include <csignal>
#include <iostream>

#include "cli/program.h"

int main(int argc, char** argv) {
  // A daemon or a reader of the output that goes away is told about, not died of.
  std::signal(SIGPIPE, SIG_IGN);
  return cli::run({argv + 1, argv + argc}, std::cout, std::cerr);
}
