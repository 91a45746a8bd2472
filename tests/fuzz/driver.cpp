// Runs a fuzz target without libFuzzer:
//
//     fuzz_TARGET [--seconds=N] [--runs=N] [--seed=N] FOLDER   inputs made of the folder's files
//     fuzz_TARGET FILE...                                      these inputs, to reproduce a finding
//
// Inputs are made in a process of its own, in memory that outlives it: whatever it dies of, and if
// it hangs, the input that it was given is written to a file.

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t longestInput = 8192;
// Longer than any input takes, on a slow machine under a sanitizer.
constexpr auto patience = 20s;

void run(std::string_view input) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()),  // NOLINT: bytes
                         input.size());
}

std::string contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path.string() + " cannot be read");
  return {std::istreambuf_iterator<char>(file), {}};
}

// ---- Inputs ----

/// Makes inputs of others: moves, repeats and drops lines and words of all of them, and bytes.
class Mutator {
 public:
  Mutator(std::vector<std::string> seeds, std::uint64_t seed)
      : seeds_(std::move(seeds)), random_(seed) {
    for (const std::string& input : seeds_) {
      gather(input, "\n", lines_);
      gather(input, " \t\n", words_);
    }
  }

  std::string input() {
    std::string input = one(seeds_);
    for (std::size_t changes = below(8) * below(3); changes != 0; --changes) change(input);
    input.resize(std::min(input.size(), longestInput));
    return input;
  }

 private:
  static void gather(std::string_view input, const char* separators,
                     std::vector<std::string>& parts) {
    while (!input.empty()) {
      const std::size_t length = std::min(input.find_first_of(separators), input.size());
      if (length != 0) parts.emplace_back(input.substr(0, length));
      input.remove_prefix(std::min(length + 1, input.size()));
    }
  }

  std::size_t below(std::size_t end) {
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_);
  }
  const std::string& one(const std::vector<std::string>& parts) {
    return parts[below(parts.size())];
  }
  char byte() { return static_cast<char>(below(256)); }

  // Where a line of the input begins, or where the input ends.
  std::size_t lineBegin(const std::string& input) {
    const std::size_t end = input.find('\n', below(input.size() + 1));
    return end == std::string::npos ? input.size() : end + 1;
  }
  // Takes the line or word that begins there.
  static std::string take(std::string& input, std::size_t begin, const char* separators) {
    const std::size_t end = std::min(input.find_first_of(separators, begin), input.size());
    std::string part = input.substr(begin, end - begin);
    input.erase(begin, end - begin);
    return part;
  }

  void change(std::string& input) {
    const std::size_t place = below(input.size() + 1);
    switch (below(12)) {
      case 0:
        input.insert(place, 1, byte());
        break;
      case 1:
        if (place < input.size()) input[place] = byte();
        break;
      case 2:
        if (place < input.size()) input[place] ^= static_cast<char>(1U << below(8));
        break;
      case 3:
        input.erase(place, below(16));
        break;
      case 4:
        input.insert(place, input.substr(below(input.size() + 1), below(64)));
        break;
      case 5:
        input.insert(lineBegin(input), one(lines_) + "\n");
        break;
      case 6:
        input.insert(lineBegin(input), take(input, lineBegin(input), "\n") + "\n");
        break;
      case 7:
        take(input, lineBegin(input), "\n");
        break;
      case 8:
        take(input, place, " \t\n");
        input.insert(place, one(words_));
        break;
      case 9:
        input.insert(place, " " + one(words_) + " ");
        break;
      case 10:
        input.insert(place, one(odd_));
        break;
      default:
        input.insert(lineBegin(input), one(seeds_));
    }
  }

  std::vector<std::string> seeds_;
  std::vector<std::string> lines_;
  std::vector<std::string> words_;
  const std::vector<std::string> odd_ = {
      "0",  "-1",   "4095", "4096",    "65536", "2147483648", "4294967296", "99999999999999999999",
      "0x", "\"",   "\"\"", "\" ",     "\t",    "\r\n",       "\\n",        std::string(1, '\0'),
      "!",  "\x7f", "\xff", "\xc3\xa4"};
  std::mt19937_64 random_;
};

// ---- Running ----

struct Options {
  std::uint64_t seconds = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t runs = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t seed = 1;
  std::vector<std::filesystem::path> paths;
};

Options parse(const std::vector<std::string_view>& arguments) {
  Options options;
  const auto number = [](std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
      throw std::runtime_error(std::string(text) + " is no number");
    }
    return value;
  };
  for (const std::string_view argument : arguments) {
    const auto value = argument.substr(std::min(argument.find('=') + 1, argument.size()));
    if (argument.starts_with("--seconds=")) {
      options.seconds = number(value);
    } else if (argument.starts_with("--runs=")) {
      options.runs = number(value);
    } else if (argument.starts_with("--seed=")) {
      options.seed = number(value);
    } else if (argument.starts_with("--")) {
      throw std::runtime_error(std::string(argument) + " is no option");
    } else {
      options.paths.emplace_back(argument);
    }
  }
  if (options.paths.empty()) {
    throw std::runtime_error("usage: [--seconds=N] [--runs=N] [--seed=N] FOLDER, or FILE...");
  }
  return options;
}

/// What the process that runs inputs leaves behind.
struct Shared {
  std::atomic<std::uint64_t> runs = 0;
  std::size_t size = 0;
  char input[longestInput] = {};
};

void runInputs(Shared& shared, Mutator& mutator, const Options& options) {
  const auto end = Clock::now() + std::chrono::seconds(options.seconds);
  while (shared.runs < options.runs && Clock::now() < end) {
    const std::string input = mutator.input();
    shared.size = input.copy(shared.input, longestInput);
    run({shared.input, shared.size});
    ++shared.runs;
  }
}

// Waits for the process. What it ended with if that is a finding.
std::optional<std::string> watch(pid_t child, const Shared& shared) {
  std::uint64_t runs = 0;
  auto progress = Clock::now();
  for (;;) {
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child) {
      if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
      if (WEXITSTATUS(status) == 0) return std::nullopt;
      return "exit status " + std::to_string(WEXITSTATUS(status));
    }
    const auto now = Clock::now();
    if (shared.runs != runs) {
      runs = shared.runs;
      progress = now;
    }
    if (now - progress > patience) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      return "no end";
    }
    std::this_thread::sleep_for(10ms);
  }
}

int fuzz(const std::string& program, const Options& options) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(options.paths.front())) {
    files.push_back(entry.path());
  }
  // The folder's own order is another one on every machine.
  std::sort(files.begin(), files.end());
  std::vector<std::string> seeds;
  for (const auto& file : files) seeds.push_back(contents(file));
  Mutator mutator(std::move(seeds), options.seed);

  void* const memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
  Shared& shared = *new (memory) Shared;
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    runInputs(shared, mutator, options);
    std::exit(EXIT_SUCCESS);
  }
  const auto finding = watch(child, shared);
  std::cout << shared.runs << " runs, seed " << options.seed << '\n';
  if (!finding) return EXIT_SUCCESS;

  const std::string file = std::filesystem::absolute(
      std::filesystem::path(program).filename().string() + "." + std::to_string(options.seed) +
      "." + std::to_string(shared.runs) + ".finding");
  std::ofstream(file, std::ios::binary)
      .write(shared.input, static_cast<std::streamsize>(shared.size));
  std::cout << "finding: " << *finding << "; reproduce it with\n  " << program << ' ' << file
            << '\n';
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = parse({argv + 1, argv + argc});
    if (std::filesystem::is_directory(options.paths.front())) return fuzz(argv[0], options);
    for (const auto& path : options.paths) run(contents(path));
    return EXIT_SUCCESS;
  } catch (const std::exception& problem) {
    std::cerr << argv[0] << ": " << problem.what() << '\n';
    return EXIT_FAILURE;
  }
}
