#pragma once

/// A world of its own for tests that run real programs: a network with nothing but loopback, an
/// empty /run and /var/lib, no configuration file of the daemon, a system log, a port mapper. Needs
/// root or user namespaces, and the programs rpcbind and l2cpd. Nothing in it is seen outside, so
/// that such tests may run side by side.

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace support {

/// How long anything that has to happen may take, on a slow machine under a sanitizer.
inline constexpr std::chrono::seconds patience{30};

/// A world cannot be made here; the text says why.
class Unavailable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Waits until `happened`, asking again and again. False when patience ends.
bool eventually(const std::function<bool()>& happened);

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;

  int get() const { return number_; }
  void close();

 private:
  int number_;
};

/// Gathers the lines that arrive on a descriptor, a pipe or a socket for datagrams.
class Lines {
 public:
  enum class Kind { stream, datagrams };

  Lines(Descriptor descriptor, Kind kind);
  /// Waits for the end of what arrives: the writers of a pipe must have gone.
  ~Lines();
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  std::vector<std::string> all() const;
  std::string text() const;
  /// Waits until a line contains `part`. False when patience or the stream ends without one.
  bool waitFor(std::string_view part) const;
  /// Waits for the end of the stream. False when patience ends before it.
  bool waitForEnd() const;
  bool ended() const;

 private:
  void gather();
  void take(std::string_view bytes);

  Descriptor descriptor_;
  Kind kind_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::string> lines_;
  std::string unfinished_;
  bool ended_ = false;
  std::thread thread_;
};

/// A program that was started and ends with this object at the latest, or with the test.
class Process {
 public:
  /// The program's path, or its name to be looked up in the system's folders, and its arguments.
  explicit Process(const std::vector<std::string>& command);
  /// Kills it if it still runs.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// What it writes to its standard output and standard error.
  const Lines& output() const { return *output_; }
  pid_t id() const { return id_; }
  void signal(int number) const;
  /// Waits for its end. The exit status, 128 plus the number of a signal that ended it, or -1 when
  /// patience ends first.
  int wait();

 private:
  pid_t id_ = -1;
  int status_ = -1;
  std::unique_ptr<Lines> output_;
};

/// Runs a program to its end. Returns its exit status and what it wrote.
struct Run {
  int status;
  std::string output;
};
Run run(const std::vector<std::string>& command);

class World {
 public:
  /// Takes the calling thread there, for good; each object is another world.
  World();
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// Returns when the port mapper answers.
  void startPortMapper();
  void stopPortMapper();
  /// It takes connections and answers nothing from now on.
  void freezePortMapper();
  void thawPortMapper();

  /// Starts l2cpd with these arguments and, unless told otherwise, returns when it is ready.
  Process& startDaemon(const std::vector<std::string>& arguments = {}, bool waitUntilReady = true);
  Process& daemon() { return *daemon_; }
  /// Stops the daemon with a signal. Returns its exit status.
  int stopDaemon(int signal);

  /// The path of l2cpd.
  static const char* daemonProgram();

  /// What programs write to the system log: "<30>Nov 21 02:23:10 l2cpd[7]: text".
  const Lines& systemLog() const { return *systemLog_; }

  /// Has a leak sanitizer pass over what this function allocates, in programs started from now on.
  static void forgiveLeaksOf(const std::string& function);

  /// A file of that name and contents in this world. Returns its path.
  static std::string file(const std::string& name, std::string_view contents);

  /// Makes the daemon's configuration file where an installation has it, L2CPD_CONFIG. To be called
  /// once. Throws Unavailable.
  static void installConfiguration(std::string_view contents);

 private:
  void openSystemLog();

  int systemLogSocket_ = -1;
  std::unique_ptr<Lines> systemLog_;
  std::unique_ptr<Process> portMapper_;
  std::unique_ptr<Process> daemon_;
};

}  // namespace support
