#include "tests/support/world.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

// The RPC library's clients lose a few bytes with every look into the port mapper, and tests make
// many.
extern "C" const char* leakSuppressions() asm("__lsan_default_suppressions");
extern "C" const char* leakSuppressions() { return "leak:libtirpc.so\n"; }

namespace support {

namespace {

using Clock = std::chrono::steady_clock;

std::string reason(const std::string& what) { return what + ": " + std::strerror(errno); }

[[noreturn]] void unavailable(const std::string& what) { throw Unavailable(reason(what)); }

void write(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  if (!(file << text << std::flush)) unavailable(path);
}

// Root of a namespace of one's own may do there what root may.
void enterNamespaces() {
  if (unshare(CLONE_NEWNET | CLONE_NEWNS) == 0) return;
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) != 0) {
    unavailable("no private namespaces");
  }
  write("/proc/self/setgroups", "deny");
  write("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
  write("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

void mountOn(const char* target, const char* source, const char* type, unsigned long flags,
             const char* options = nullptr) {
  if (mount(source, target, type, flags, options) != 0) unavailable(std::string("mount ") + target);
}

// The devices that programs may count on, and room for the system log's socket.
void makeDevices() {
  mkdir("/run/dev", 0755);
  for (const char* name : {"null", "zero", "full", "random", "urandom"}) {
    const std::string path = std::string("/run/dev/") + name;
    Descriptor(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    mountOn(path.c_str(), (std::string("/dev/") + name).c_str(), nullptr, MS_BIND);
  }
  for (const char* name : {"fd", "stdin", "stdout", "stderr"}) {
    std::array<char, 256> target{};
    const std::string path = std::string("/dev/") + name;
    if (readlink(path.c_str(), target.data(), target.size() - 1) > 0 &&
        symlink(target.data(), (std::string("/run/dev/") + name).c_str()) != 0) {
      unavailable(path);
    }
  }
  mountOn("/dev", "/run/dev", nullptr, MS_BIND | MS_REC);
}

// The machine's own configuration of the daemon is as good as empty here.
void hideConfiguration() {
  if (access(L2CPD_CONFIG, F_OK) != 0) return;
  const std::string empty = World::file("l2cpd.toml.none", "");
  mountOn(L2CPD_CONFIG, empty.c_str(), nullptr, MS_BIND);
}

void raiseLoopback() {
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  if (ioctl(socket.get(), SIOCSIFFLAGS, &request) != 0) unavailable("loopback");
}

constexpr const char* forgivenLeaks = "/run/leaks";

// Tells leak sanitizers where `World::forgiveLeaksOf` writes.
void setLeakOptions() {
  std::string options = std::string("print_suppressions=0:suppressions=") + forgivenLeaks;
  if (const char* others = std::getenv("LSAN_OPTIONS"))
    options = std::string(others) + ":" + options;
  setenv("LSAN_OPTIONS", options.c_str(), 1);
}

sockaddr_un addressOf(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path);
  return address;
}

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the sockets interface asks for it
const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);  // NOLINT: see above
}

bool portMapperAnswers() {
  return run({"rpcinfo", "-T", "tcp", "127.0.0.1", "100000", "2"}).status == 0;
}

}  // namespace

bool eventually(const std::function<bool()>& happened) {
  const auto deadline = Clock::now() + patience;
  while (!happened()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// ---- Descriptors ----

Descriptor::~Descriptor() { close(); }

Descriptor::Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    close();
    number_ = std::exchange(other.number_, -1);
  }
  return *this;
}

void Descriptor::close() {
  if (number_ >= 0) ::close(std::exchange(number_, -1));
}

// ---- Lines ----

Lines::Lines(Descriptor descriptor, Kind kind)
    : descriptor_(std::move(descriptor)), kind_(kind), thread_([this] { gather(); }) {}

Lines::~Lines() { thread_.join(); }

void Lines::gather() {
  std::array<char, 65536> bytes;
  for (;;) {
    const ssize_t count = read(descriptor_.get(), bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    take({bytes.data(), static_cast<std::size_t>(count)});
  }
  const std::lock_guard lock(mutex_);
  if (!unfinished_.empty()) lines_.push_back(std::exchange(unfinished_, {}));
  ended_ = true;
  changed_.notify_all();
}

void Lines::take(std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  unfinished_ += bytes;
  if (kind_ == Kind::datagrams && unfinished_.back() != '\n') unfinished_ += '\n';
  for (auto end = unfinished_.find('\n'); end != std::string::npos; end = unfinished_.find('\n')) {
    lines_.push_back(unfinished_.substr(0, end));
    unfinished_.erase(0, end + 1);
  }
  changed_.notify_all();
}

std::vector<std::string> Lines::all() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

std::string Lines::text() const {
  std::string text;
  for (const std::string& line : all()) text += line + "\n";
  return text;
}

bool Lines::waitFor(std::string_view part) const {
  std::unique_lock lock(mutex_);
  const auto found = [&] {
    return std::any_of(lines_.begin(), lines_.end(), [&](const std::string& line) {
      return line.find(part) != std::string::npos;
    });
  };
  changed_.wait_for(lock, patience, [&] { return ended_ || found(); });
  return found();
}

bool Lines::waitForEnd() const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, patience, [&] { return ended_; });
}

bool Lines::ended() const {
  const std::lock_guard lock(mutex_);
  return ended_;
}

// ---- Processes ----

Process::Process(const std::vector<std::string>& command) {
  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) throw std::runtime_error(reason("pipe"));
  Descriptor reading(pipe[0]);
  const Descriptor writing(pipe[1]);

  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);

  const pid_t parent = getpid();
  id_ = fork();
  if (id_ < 0) throw std::runtime_error(reason("fork"));
  if (id_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    dup2(writing.get(), STDOUT_FILENO);
    dup2(writing.get(), STDERR_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  output_ = std::make_unique<Lines>(std::move(reading), Lines::Kind::stream);
}

Process::~Process() {
  if (status_ != -1) return;
  signal(SIGKILL);
  wait();
}

void Process::signal(int number) const { kill(id_, number); }

int Process::wait() {
  if (status_ != -1) return status_;
  const Descriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, id_, 0)));
  pollfd ended{.fd = descriptor.get(), .events = POLLIN, .revents = 0};
  if (poll(&ended, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) != 1) {
    return -1;
  }
  int status = 0;
  waitpid(id_, &status, 0);
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  output_->waitForEnd();
  return status_;
}

Run run(const std::vector<std::string>& command) {
  Process process(command);
  const int status = process.wait();
  return {status, process.output().text()};
}

// ---- World ----

World::World() {
  // Where the port mapper is, also for users.
  setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
  enterNamespaces();
  // What is mounted from here on stays here.
  mountOn("/", "none", nullptr, MS_REC | MS_PRIVATE);
  mountOn("/run", "none", "tmpfs", 0);
  mountOn("/var/lib", "none", "tmpfs", 0);
  makeDevices();
  hideConfiguration();
  raiseLoopback();
  openSystemLog();
  setLeakOptions();
  // The RPC library loses a few bytes whenever it talks to the port mapper.
  forgiveLeaksOf("__rpc_uaddr2taddr_af");
}

World::~World() {
  daemon_.reset();
  portMapper_.reset();
  // Ends the log's thread: nothing can write to it any more.
  shutdown(systemLogSocket_, SHUT_RDWR);
}

void World::openSystemLog() {
  Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = addressOf("/dev/log");
  if (bind(socket.get(), generic(address), sizeof(address)) != 0) unavailable("/dev/log");
  systemLogSocket_ = socket.get();
  systemLog_ = std::make_unique<Lines>(std::move(socket), Lines::Kind::datagrams);
}

void World::startPortMapper() {
  portMapper_ = std::make_unique<Process>(std::vector<std::string>{"rpcbind", "-f"});
  const Lines& output = portMapper_->output();
  // It ends if it cannot give up root's rights, as in a namespace that knows no other user.
  if (!eventually([&] { return output.ended() || portMapperAnswers(); }) || output.ended()) {
    throw Unavailable("no port mapper: " + output.text() + systemLog_->text());
  }
}

void World::stopPortMapper() { portMapper_.reset(); }

void World::freezePortMapper() { portMapper_->signal(SIGSTOP); }
void World::thawPortMapper() { portMapper_->signal(SIGCONT); }

Process& World::startDaemon(const std::vector<std::string>& arguments, bool waitUntilReady) {
  std::vector<std::string> command{daemonProgram()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  daemon_ = std::make_unique<Process>(command);
  if (waitUntilReady && !daemon_->output().waitFor("l2cpd: daemon: ready")) {
    throw std::runtime_error("the daemon does not get ready:\n" + daemon_->output().text());
  }
  return *daemon_;
}

int World::stopDaemon(int signal) {
  daemon_->signal(signal);
  return daemon_->wait();
}

const char* World::daemonProgram() { return L2CPD_PROGRAM; }

void World::forgiveLeaksOf(const std::string& function) {
  std::ofstream(forgivenLeaks, std::ios::app) << "leak:" << function << "\n";
}

std::string World::file(const std::string& name, std::string_view contents) {
  const std::string path = "/run/" + name;
  std::ofstream(path, std::ios::binary) << contents;
  return path;
}

void World::installConfiguration(std::string_view contents) {
  const std::string folder = std::filesystem::path(L2CPD_CONFIG).parent_path();
  for (const char* part : {"/run/configuration", "/run/configuration.work"}) mkdir(part, 0755);
  const std::string layers =
      "lowerdir=" + folder + ",upperdir=/run/configuration,workdir=/run/configuration.work";
  mountOn(folder.c_str(), "none", "overlay", 0, layers.c_str());
  unlink(L2CPD_CONFIG);
  std::ofstream(L2CPD_CONFIG, std::ios::binary) << contents;
}

}  // namespace support
