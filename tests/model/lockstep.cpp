#include "tests/model/lockstep.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <iostream>
#include <optional>
#include <string_view>
#include <vector>

namespace model {

namespace {

/// Operations between two comparisons of everything that there is to see.
constexpr std::size_t stretch = 50;

constexpr std::chrono::seconds timeToShorten{60};

std::optional<std::uint64_t> givenSeed;
std::optional<unsigned int> givenLength;
std::optional<unsigned int> givenRuns;
bool givenPrint = false;

using Sequence = std::vector<Operation>;

struct Step {
  Answer came;
  Answer expected;
};

/// A step whose answers differ, and how many operations of the sequence came before it or were it.
struct Difference {
  std::size_t operations;
  std::string text;
  Step step;
};

Step runOn(Bench& bench, const Operation& operation) {
  Step step;
  try {
    step.came = operation.run(bench.module());
  } catch (const std::exception& error) {
    step.came.lines = {error.what()};
  }
  bench.state().see(&step.came);
  step.expected = operation.run(bench.expected());
  bench.state().see(nullptr);
  return step;
}

std::optional<Difference> differenceOf(const Step& step, const Operation& operation,
                                       std::size_t number) {
  if (step.came == step.expected) return std::nullopt;
  return Difference{number, operation.text, step};
}

std::optional<Difference> compareEverything(Bench& bench, Way way, std::size_t number) {
  for (const Operation& operation : listings(way, bench.state())) {
    auto difference = differenceOf(runOn(bench, operation), operation, number);
    if (difference) return difference;
  }
  return std::nullopt;
}

std::optional<Difference> replay(const MakeBench& makeBench, Way way, const Sequence& sequence) {
  const auto bench = makeBench();
  bench->abandon();
  for (std::size_t i = 0; i < sequence.size(); ++i) {
    auto difference = differenceOf(runOn(*bench, sequence[i]), sequence[i], i + 1);
    if (difference) return difference;
  }
  return compareEverything(*bench, way, sequence.size());
}

/// Leaves out ever smaller pieces as long as module and model still differ in something.
Sequence shortened(const MakeBench& makeBench, Way way, Sequence sequence) {
  const auto end = std::chrono::steady_clock::now() + timeToShorten;
  for (std::size_t piece = std::max<std::size_t>(sequence.size() / 2, 1);;) {
    bool shorter = false;
    for (std::size_t begin = 0; begin < sequence.size();) {
      if (std::chrono::steady_clock::now() > end) return sequence;
      Sequence rest = sequence;
      const auto first = rest.begin() + static_cast<std::ptrdiff_t>(begin);
      rest.erase(first,
                 rest.begin() + static_cast<std::ptrdiff_t>(std::min(begin + piece, rest.size())));
      const auto difference = replay(makeBench, way, rest);
      if (difference) {
        rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(difference->operations), rest.end());
        sequence = std::move(rest);
        shorter = true;
      } else {
        begin += piece;
      }
    }
    if (piece == 1 && !shorter) return sequence;
    piece = std::max<std::size_t>(piece / 2, 1);
  }
}

std::string shown(const Difference& difference) {
  return fmt::format("{}\n    expected {}\n    came     {}\n", difference.text,
                     text(difference.step.expected), text(difference.step.came));
}

/// The operations with the answers that came, and the difference behind them.
std::string report(const MakeBench& makeBench, Way way, const Sequence& sequence) {
  const auto difference = replay(makeBench, way, sequence);
  if (!difference) return "  (it does not differ each time)\n";
  const auto bench = makeBench();
  bench->abandon();
  std::string lines;
  for (const Operation& operation : sequence) {
    const Step step = runOn(*bench, operation);
    if (step.came == step.expected) {
      lines += fmt::format("  {} -> {}\n", operation.text, text(step.came));
    }
  }
  return lines + "  " + shown(*difference);
}

std::optional<Difference> run(Bench& bench, Way way, std::uint64_t seed, const Options& options,
                              Sequence& sequence) {
  Source source(seed, way, bench.state());
  while (sequence.size() < options.length) {
    sequence.push_back(source.next());
    if (options.print) std::cout << sequence.back().text << std::flush;
    const Step step = runOn(bench, sequence.back());
    if (options.print) std::cout << " -> " << text(step.came) << std::endl;
    auto difference = differenceOf(step, sequence.back(), sequence.size());
    if (difference) return difference;
    if (sequence.size() % stretch == 0 || sequence.size() == options.length) {
      difference = compareEverything(bench, way, sequence.size());
      if (difference) return difference;
    }
  }
  return std::nullopt;
}

template <class Number>
bool takeNumber(std::string_view argument, std::string_view name, std::optional<Number>& value) {
  if (!argument.starts_with(name)) return false;
  argument.remove_prefix(name.size());
  Number number{};
  const char* const end = argument.data() + argument.size();
  const auto [stop, error] = std::from_chars(argument.data(), end, number);
  if (error != std::errc() || stop != end) return false;
  value = number;
  return true;
}

}  // namespace

Options options(const Options& defaults) {
  return {givenSeed.value_or(defaults.seed), givenLength.value_or(defaults.length),
          givenRuns.value_or(defaults.runs), givenPrint};
}

bool takeArguments(int count, const char* const* arguments) {
  for (int i = 1; i < count; ++i) {
    const std::string_view argument = arguments[i];
    if (argument == "--print") {
      givenPrint = true;
    } else if (!takeNumber(argument, "--seed=", givenSeed) &&
               !takeNumber(argument, "--length=", givenLength) &&
               !takeNumber(argument, "--runs=", givenRuns)) {
      std::cerr << "not understood: " << argument
                << " (there are --seed=N, --length=N, --runs=N, --print)\n";
      return false;
    }
  }
  return true;
}

std::string differences(const Options& options, Way way, const MakeBench& makeBench) {
  for (std::uint64_t seed = options.seed; seed < options.seed + options.runs; ++seed) {
    Sequence sequence;
    std::optional<Difference> difference;
    {
      const auto bench = makeBench();
      difference = run(*bench, way, seed, options, sequence);
    }
    if (!difference) continue;
    const Sequence shortest = shortened(makeBench, way, sequence);
    return fmt::format(
        "--seed={}: after {} operations\n  {}\nThe shortest sequence found, {} operations:\n{}",
        seed, difference->operations, shown(*difference), shortest.size(),
        report(makeBench, way, shortest));
  }
  return "";
}

}  // namespace model
