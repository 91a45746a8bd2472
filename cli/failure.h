#pragma once

#include <stdexcept>
#include <string>

namespace cli {

/// What the program ends with. 4 stands for a batch of which something was carried out, but not
/// all. 5 is for what was looked for and is there. 1 stands for everything that is wrong on this
/// side: the command line, what it names, an output that cannot be written.
enum class ExitStatus {
  done = 0,
  usage = 1,
  refused = 2,
  notReached = 3,
  partly = 4,
  found = 5,
};

/// Why a command did not do what it was asked to, in one line that is safe to show on a terminal.
class Failure : public std::runtime_error {
 public:
  ExitStatus status() const { return status_; }

 protected:
  Failure(ExitStatus status, const std::string& text) : std::runtime_error(text), status_(status) {}

 private:
  ExitStatus status_;
};

/// A command line that cannot be carried out. The program points to the command's help after it.
class UsageError : public Failure {
 public:
  explicit UsageError(const std::string& text) : Failure(ExitStatus::usage, text) {}
};

/// A right command line that cannot be carried out for a reason on this side: a file or stream that
/// cannot be used, a port of a name that nobody has.
class LocalError : public Failure {
 public:
  explicit LocalError(const std::string& text) : Failure(ExitStatus::usage, text) {}
};

/// The daemon was asked and said no.
class Refused : public Failure {
 public:
  explicit Refused(const std::string& text) : Failure(ExitStatus::refused, text) {}
};

/// The daemon could not be asked, or did not answer.
class NotReached : public Failure {
 public:
  explicit NotReached(const std::string& text) : Failure(ExitStatus::notReached, text) {}
};

/// A batch ended before its end, or left something out.
class BatchFailure : public Failure {
 public:
  BatchFailure(ExitStatus status, const std::string& text) : Failure(status, text) {}
};

/// A command that looked for faults has found some, and has shown them.
class Found : public Failure {
 public:
  explicit Found(const std::string& text) : Failure(ExitStatus::found, text) {}
};

}  // namespace cli
