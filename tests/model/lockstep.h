#pragma once

/// Runs the module and the model in lock step over random operations, and where they differ looks
/// for a short sequence that still makes them differ.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "tests/model/model.h"
#include "tests/model/operation.h"
#include "tests/model/system.h"

namespace model {

/// A fresh module and a model of it.
class Bench {
 public:
  virtual ~Bench() = default;

  /// Nobody looks at how the module ends: make it short.
  virtual void abandon() {}

  virtual System& module() = 0;
  /// What answers as the module has to.
  virtual System& expected() = 0;
  /// The model itself, in it or the same.
  virtual Model& state() = 0;
};

using MakeBench = std::function<std::unique_ptr<Bench>()>;

/// How many runs of how many operations. The seeds count up from `seed`.
struct Options {
  std::uint64_t seed = 1;
  unsigned int length = 0;
  unsigned int runs = 0;
  /// Shows every operation before it is run: for runs that end the process.
  bool print = false;
};

/// `defaults`, changed by the program's own arguments --seed=N, --length=N, --runs=N and --print.
Options options(const Options& defaults);
/// Takes those arguments. False, with a word on standard error, if there are others.
bool takeArguments(int count, const char* const* arguments);

/// The runs. Empty if module and model agreed, else a report for a person to read.
std::string differences(const Options& options, Way way, const MakeBench& makeBench);

}  // namespace model
