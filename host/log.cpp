#include "host/log.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
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

int priority(hostlog::Level level) {
  switch (level) {
    case hostlog::Level::error:
      return LOG_ERR;
    case hostlog::Level::warning:
      return LOG_WARNING;
    case hostlog::Level::information:
      return LOG_INFO;
    case hostlog::Level::debug:
      return LOG_DEBUG;
  }
  return LOG_INFO;
}

struct Sinks {
  bool systemLog = false;
  bool standardError = true;
};

Sinks& sinks() {
  static Sinks instance;
  return instance;
}

// The service manager names the journal's stream by device and inode. The variable alone says
// nothing: terminals inherit it, too.
bool isStandardErrorTheJournal() {
  const char* journal = std::getenv("JOURNAL_STREAM");
  struct stat stream {};
  return journal != nullptr && fstat(STDERR_FILENO, &stream) == 0 &&
         fmt::format("{}:{}", stream.st_dev, stream.st_ino) == journal;
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

// Lines of the module, which do not name their facility, stay in the one of user programs.
void openSystemLog() {
  openlog("l2cpd", LOG_PID, LOG_USER);
  sinks() = {.systemLog = true, .standardError = !isStandardErrorTheJournal()};
}

void setLevel(Level level) { limit = level; }

bool accepts(Level level) { return level <= limit.load(); }

void write(Level level, std::string_view subsystem, std::string_view text) {
  const std::string line = fmt::format("{}{}: {}", levelText(level), subsystem, text);
  if (sinks().systemLog) syslog(LOG_DAEMON | priority(level), "%s", line.c_str());
  if (sinks().standardError) std::fputs(fmt::format("l2cpd: {}\n", line).c_str(), stderr);
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
