#include "host/log.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <string>

#include "platform/Log.h"

namespace {

std::atomic<hostlog::Level> limit = hostlog::Level::information;

std::string_view levelText(hostlog::Level level) {
  switch (level) {
    case hostlog::Level::error:
      return "error: ";
    case hostlog::Level::warning:
      return "warning: ";
    case hostlog::Level::information:
      return "";
    case hostlog::Level::debug:
      return "debug: ";
  }
  return "";
}

// Gathers what is written to the stream on each thread and hands whole lines to the sink.
class LineBuffer : public std::streambuf {
 public:
  static thread_local hostlog::Level level;

 protected:
  int_type overflow(int_type character) override {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(0);
    if (character == '\n') {
      if (hostlog::accepts(level)) hostlog::write(level, "module", line_);
      line_.clear();
    } else {
      line_.push_back(traits_type::to_char_type(character));
    }
    return character;
  }

 private:
  static thread_local std::string line_;
};

thread_local hostlog::Level LineBuffer::level = hostlog::Level::information;
thread_local std::string LineBuffer::line_;

LineBuffer& lineBuffer() {
  static LineBuffer buffer;
  return buffer;
}

}  // namespace

namespace hostlog {

void setLevel(Level level) { limit = level; }

bool accepts(Level level) { return level <= limit.load(); }

void write(Level level, std::string_view subsystem, std::string_view text) {
  const std::string line = fmt::format("l2cpd: {}{}: {}\n", levelText(level), subsystem, text);
  std::fputs(line.c_str(), stderr);
}

}  // namespace hostlog

Log::Log() : std::ostream(&lineBuffer()) {}

Log::~Log() = default;

Log& Log::setMsgLevel(int level) {
  const int bounded = level < 0 ? 0 : (level > 3 ? 3 : level);
  LineBuffer::level = static_cast<hostlog::Level>(bounded);
  return *this;
}

template <>
Log& singleton<Log>::instance() {
  static Log log;
  return log;
}
