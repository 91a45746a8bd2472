#pragma once

#include <ostream>

#include "platform/singleton.h"

/// The daemon's own log, a stream: what is written to it goes out line by line at the message level
/// set last. Levels: 0 error, 1 warning, 2 information, 3 debug.
class Log : public std::ostream, public singleton<Log> {
 public:
  Log();
  ~Log() override;

  /// Sets the level of the messages that follow on the calling thread.
  Log& setMsgLevel(int level);
};

template <>
Log& singleton<Log>::instance();
