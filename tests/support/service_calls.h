#pragma once

/// What the module asks of the daemon's service profiles. Linking it replaces these operations of
/// `servprofile` for the whole test program: each call is recorded, and unless it is refused, goes
/// on to the daemon's own operation. The log alone is only recorded.

#include <cstddef>
#include <string>
#include <tuple>
#include <vector>

namespace support {

class ServiceCalls {
 public:
  static ServiceCalls& instance();

  /// Forgets everything: calls, messages, refusals.
  void reset();

  /// In their order, with their arguments: "servProfileDetach(\"gold\", 3)". Lists are written
  /// "[bronze gold]".
  std::vector<std::string> calls;
  /// The calls since the last call of this.
  std::vector<std::string> take();

  /// Has the call with that position in `calls`, from 0, return `result` without being carried out.
  /// Only for calls whose result is used.
  void refuseAt(std::size_t position, int result);

  /// What the log was told: level, function, module, unit, type and name of the object, detail, two
  /// numbers. The line has to be a positive number.
  using LogMessage = std::tuple<int, std::string, std::string, int, std::string, std::string,
                                std::string, int, int>;
  std::vector<LogMessage> logMessages;

  /// Records a call. The result to return instead of carrying it out, or 0.
  int record(std::string call);

 private:
  std::size_t refusedPosition_ = 0;
  int refusal_ = 0;
};

}  // namespace support
