#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

/// Compares two costs within one run. Both are measured in turn, round by round, so that a machine
/// whose speed drifts slows both, and the median of the rounds' ratios is the result.
namespace bench {

using Nanoseconds = double;

class Stopwatch {
 public:
  Nanoseconds read() const {
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin_)
        .count();
  }

 private:
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// For a program's main: what cannot be measured here is said, and is no failure.
inline int runOrSkip(void (*run)()) {
  try {
    run();
  } catch (const std::exception& problem) {
    std::printf("skipped: %s\n", problem.what());
  }
  return 0;
}

/// What a ratio is held against, in the reader's head: nothing here fails.
struct Goal {
  enum class Kind { none, atLeast, atMost } kind;
  double ratio;
};
inline Goal noGoal() { return {Goal::Kind::none, 0}; }
inline Goal atLeast(double ratio) { return {Goal::Kind::atLeast, ratio}; }
inline Goal atMost(double ratio) { return {Goal::Kind::atMost, ratio}; }

/// Adds a line to the file that L2CP_FIGURES names, for bench/report: the program, what was
/// measured against what, both costs, the result, the kind of its goal and the goal.
inline void note(const std::string& what, const std::string& with, Nanoseconds cost,
                 Nanoseconds baselineCost, double result, const char* kind, double goal) {
  const char* name = std::getenv("L2CP_FIGURES");
  if (name == nullptr) return;
  std::ofstream(name, std::ios::app)
      << program_invocation_short_name << '\t' << what << '\t' << with << '\t' << cost << '\t'
      << baselineCost << '\t' << result << '\t' << kind << '\t' << goal << '\n';
}

inline const char* text(Goal::Kind kind) {
  switch (kind) {
    case Goal::Kind::none:
      return "none";
    case Goal::Kind::atLeast:
      return "least";
    case Goal::Kind::atMost:
      return "most";
  }
  return "";
}

/// `measure` and `baseline` return the cost of one unit in nanoseconds, averaged over as many as
/// they like; each is called once a round, after one round that does not count. A goal of at most
/// compares costs, everything else compares rates.
template <class Measure, class Baseline>
void compare(const std::string& what, const std::string& with, Goal goal, int rounds,
             Measure measure, Baseline baseline) {
  std::vector<double> costs;
  std::vector<double> baselineCosts;
  std::vector<double> ratios;
  for (int round = 0; round <= rounds; ++round) {
    const Nanoseconds baselineCost = baseline();
    const Nanoseconds cost = measure();
    if (round == 0) continue;
    costs.push_back(cost);
    baselineCosts.push_back(baselineCost);
    ratios.push_back(goal.kind == Goal::Kind::atMost ? cost / baselineCost : baselineCost / cost);
  }
  const double ratio = median(ratios);
  note(what, with, median(costs), median(baselineCosts), ratio, text(goal.kind), goal.ratio);
  std::printf("%-46s %10.0f ns | %-30s %10.0f ns | %5.2f", what.c_str(), median(costs),
              with.c_str(), median(baselineCosts), ratio);
  if (goal.kind == Goal::Kind::atLeast) {
    std::printf("  at least %.2f%s", goal.ratio, ratio >= goal.ratio ? "" : "  MISSED");
  } else if (goal.kind == Goal::Kind::atMost) {
    std::printf("  at most %.2f%s", goal.ratio, ratio <= goal.ratio ? "" : "  MISSED");
  }
  std::printf("\n");
  std::fflush(stdout);
}

/// The same for costs of which the difference counts; a goal of 0 ns is none.
template <class Measure, class Baseline>
void surplus(const std::string& what, const std::string& with, Nanoseconds goal, int rounds,
             Measure measure, Baseline baseline) {
  std::vector<double> costs;
  std::vector<double> baselineCosts;
  std::vector<double> differences;
  for (int round = 0; round <= rounds; ++round) {
    const Nanoseconds baselineCost = baseline();
    const Nanoseconds cost = measure();
    if (round == 0) continue;
    costs.push_back(cost);
    baselineCosts.push_back(baselineCost);
    differences.push_back(cost - baselineCost);
  }
  const double difference = median(differences);
  note(what, with, median(costs), median(baselineCosts), difference,
       goal > 0 ? "surplus" : "difference", goal);
  std::printf("%-46s %10.1f ns | %-30s %+10.1f ns |", what.c_str(), median(costs), with.c_str(),
              difference);
  if (goal > 0) std::printf("  at most %+.0f%s", goal, difference <= goal ? "" : "  MISSED");
  std::printf("\n");
  std::fflush(stdout);
}

}  // namespace bench
