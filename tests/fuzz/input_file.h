#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// A file in memory, for what reads files.
class InputFile {
 public:
  InputFile() : number_(memfd_create("input", MFD_CLOEXEC)) {
    if (number_ < 0) std::abort();
  }
  ~InputFile() { close(number_); }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  void write(std::string_view contents) const {
    if (ftruncate(number_, 0) != 0 || pwrite(number_, contents.data(), contents.size(), 0) !=
                                          static_cast<ssize_t>(contents.size())) {
      std::abort();
    }
  }
  std::string path() const { return "/proc/self/fd/" + std::to_string(number_); }

 private:
  int number_;
};

/// Ends the process with what is not as it has to be.
inline void require(bool holds, const char* what, std::string_view about = {}) {
  if (holds) return;
  std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(about.size()), about.data());
  std::abort();
}
