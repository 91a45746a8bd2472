#pragma once

/// Catches what the test program writes to the system log. Linking it replaces `syslog` and
/// `vsyslog` for the whole program.

#include <functional>
#include <string>
#include <vector>

namespace support {

struct LogLine {
  int priority;
  std::string format;
  std::string text;
};

class SyslogCapture {
 public:
  static SyslogCapture& instance();

  std::vector<LogLine> lines;
  /// Called for every line once it is captured; may throw.
  std::function<void(const LogLine&)> onLine;

  void reset() {
    lines.clear();
    onLine = nullptr;
  }
  /// The texts of trace lines (LOG_DEBUG) without "l2cp:<line> " in front, which each of them has
  /// to begin with: "protoDel(protoName=\"A\")", or "  OK." for a sub-step.
  std::vector<std::string> traces() const;
  /// The formats of trace lines, as they were written.
  std::vector<std::string> traceFormats() const;
};

}  // namespace support
