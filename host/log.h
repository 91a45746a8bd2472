#pragma once

#include <fmt/core.h>

#include <string_view>

/// The daemon's log: one sink for the framework, the module and the daemon itself. A line goes to
/// the system log as "warning: rpc: text", with that priority and the facility "daemon", and to
/// standard error as "l2cpd: warning: rpc: text". May be called from any thread.
namespace hostlog {

enum class Level : int { error = 0, warning = 1, information = 2, debug = 3 };

/// Until this is called, lines go to standard error alone; then to the system log, and to standard
/// error as well unless that is the journal, where every line would stand twice. To be called while
/// there is one thread.
void openSystemLog();

/// Messages above `level` are dropped. Starts at `information`.
void setLevel(Level level);
bool accepts(Level level);

void write(Level level, std::string_view subsystem, std::string_view text);

template <class... Arguments>
void log(Level level, std::string_view subsystem, fmt::format_string<Arguments...> format,
         Arguments&&... arguments) {
  if (!accepts(level)) return;
  write(level, subsystem, fmt::format(format, std::forward<Arguments>(arguments)...));
}

template <class... Arguments>
void error(std::string_view subsystem, fmt::format_string<Arguments...> format,
           Arguments&&... arguments) {
  log(Level::error, subsystem, format, std::forward<Arguments>(arguments)...);
}

template <class... Arguments>
void warning(std::string_view subsystem, fmt::format_string<Arguments...> format,
             Arguments&&... arguments) {
  log(Level::warning, subsystem, format, std::forward<Arguments>(arguments)...);
}

template <class... Arguments>
void information(std::string_view subsystem, fmt::format_string<Arguments...> format,
                 Arguments&&... arguments) {
  log(Level::information, subsystem, format, std::forward<Arguments>(arguments)...);
}

}  // namespace hostlog
