#pragma once

/// The client's command lines, carried out in the test's own process, and what they show.

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "cli/program.h"

namespace cli {

using CommandLine = std::vector<std::string>;

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

inline Outcome outcome(const CommandLine& line, const Surroundings& surroundings = {}) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = cli::run(line, out, err, surroundings);
  return {status, out.str(), err.str()};
}

// Expects that the command is carried out and returns what it shows.
inline std::string shown(const CommandLine& line) {
  const auto [status, out, err] = outcome(line);
  EXPECT_EQ(status, 0) << err;
  EXPECT_EQ(err, "");
  return out;
}

// Expects that the command is refused and returns why.
inline std::string refused(const CommandLine& line) {
  const auto [status, out, err] = outcome(line);
  EXPECT_EQ(status, 2) << out << err;
  EXPECT_EQ(out, "");
  return err;
}

// Expects that the daemon is not reached and returns what is said about it.
inline std::string notReached(const CommandLine& line) {
  const auto [status, out, err] = outcome(line);
  EXPECT_EQ(status, 3) << out << err;
  EXPECT_EQ(out, "");
  return err;
}

// The commands that are expected to be carried out without a word.
inline void does(std::initializer_list<CommandLine> lines) {
  for (const CommandLine& line : lines) EXPECT_EQ(shown(line), "");
}

inline std::string frames(const char* file) { return std::string(FRAMES_FOLDER "/") + file; }

/// A capture written number by number.
class CaptureFile {
 public:
  CaptureFile() { u32(0xa1b2c3d4).u32(0x00040002).u32(0).u32(0).u32(262144).u32(1); }

  CaptureFile& frame(std::size_t size, char filler) {
    const auto length = static_cast<std::uint32_t>(size);
    u32(0).u32(0).u32(length).u32(length);
    bytes_.append(size, filler);
    return *this;
  }

  const std::string& bytes() const { return bytes_; }

 private:
  CaptureFile& u32(std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) bytes_ += static_cast<char>(value >> shift & 0xff);
    return *this;
  }

  std::string bytes_;
};

}  // namespace cli
