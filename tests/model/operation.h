#pragma once

/// Operations with their arguments, drawn at random.

#include <cstdint>
#include <deque>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "tests/model/model.h"
#include "tests/model/system.h"

namespace model {

/// One operation with its arguments. Made with braces, so that arguments are drawn in their order.
struct Operation {
  template <class... Parameters, class... Arguments>
  Operation(const char* name, Answer (System::*call)(Parameters...), Arguments... arguments)
      : text(fmt::format("{}({})", name,
                         fmt::join(std::vector<std::string>{shown(arguments)...}, ", "))),
        run([=](System& system) { return (system.*call)(arguments...); }) {}

  std::string text;
  std::function<Answer(System&)> run;

 private:
  static std::string shown(const std::string& text) { return '"' + text + '"'; }
  static std::string shown(bool value) { return yesNo(value); }
  static std::string shown(unsigned int number) { return std::to_string(number); }
  static std::string shown(int number) { return std::to_string(number); }
  static std::string shown(const Bytes& bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ":"));
  }
};

/// The ways to the module differ in what they offer and in how long names can be.
enum class Way { entity, wire };

/// Draws operations. Arguments come from small pools, and often from what there is, so that
/// operations meet. For a while at a time some operations are drawn more often than others, or not
/// at all: some states are only reached while what undoes them keeps still. What chance would
/// hardly put together comes as a story of several operations, from which one or the other is left
/// out.
class Source {
 public:
  Source(std::uint64_t seed, Way way, const Model& state);

  Operation next();

 private:
  void drawWeights();

  std::mt19937_64 random_;
  Way way_;
  const Model& state_;
  unsigned int drawn_ = 0;
  std::vector<unsigned int> weights_;
  std::deque<Operation> story_;
};

/// Everything that the public interface shows, for the names and ports that there may be.
std::vector<Operation> listings(Way way, const Model& state);

}  // namespace model
