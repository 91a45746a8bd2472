#include "tests/support/syslog_capture.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <regex>

namespace support {

SyslogCapture& SyslogCapture::instance() {
  static SyslogCapture capture;
  return capture;
}

std::vector<std::string> SyslogCapture::traces() const {
  static const std::regex begin("^l2cp:[0-9]+ ");
  std::vector<std::string> texts;
  for (const LogLine& line : lines) {
    if (line.priority != LOG_DEBUG) continue;
    std::smatch match;
    const bool begins = std::regex_search(line.text, match, begin);
    texts.push_back(begins ? line.text.substr(match.str().size()) : "no place: " + line.text);
  }
  return texts;
}

std::vector<std::string> SyslogCapture::traceFormats() const {
  std::vector<std::string> formats;
  for (const LogLine& line : lines) {
    if (line.priority == LOG_DEBUG) formats.push_back(line.format);
  }
  return formats;
}

}  // namespace support

extern "C" void vsyslog(int priority, const char* format, va_list arguments) {
  char text[4096];
  std::vsnprintf(text, sizeof(text), format, arguments);
  auto& capture = support::SyslogCapture::instance();
  capture.lines.push_back({priority, format, text});
  if (capture.onLine) capture.onLine(capture.lines.back());
}

extern "C" void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsyslog(priority, format, arguments);
  va_end(arguments);
}
