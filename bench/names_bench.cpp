// What attaching a profile costs when the table of names is large. To be run by bench/run.

#include <cstdio>
#include <string>

#include "bench/ratio.h"
#include "l2cp/l2cp.h"

namespace {

constexpr int rounds = 31;
constexpr int attachmentsPerRound = 50;

// An entity with a table of `names` names and a profile of all built-in protocols.
class Attachments {
 public:
  Attachments(unsigned int port, int names) : port_(port) {
    for (int i = 0; i < names; ++i) {
      entity_.GetName(("a name that nobody asks for, number " + std::to_string(i)).c_str(), nullptr,
                      nullptr);
    }
    entity_.profileAdd("all", false, false);
    for (const auto& [name, proto] : entity_.settings.protocols) {
      entity_.profileProtoAdd("all", name.c_str(), L2CP::Rule::discard);
    }
  }
  ~Attachments() { entity_.stop(); }
  Attachments(const Attachments&) = delete;
  Attachments& operator=(const Attachments&) = delete;

  bool start() { return entity_.start(); }
  void stop() { entity_.stop(); }

  bench::Nanoseconds attach() {
    bench::Nanoseconds total = 0;
    for (int i = 0; i < attachmentsPerRound; ++i) {
      const bench::Stopwatch watch;
      entity_.portAttach("all", port_, 100);
      total += watch.read();
      entity_.portDetach("all", port_, 100);
    }
    return total / attachmentsPerRound;
  }

 private:
  unsigned int port_;
  L2CP entity_;
};

}  // namespace

int main() {
  Attachments few(1, 1'000);
  Attachments many(2, 100'000);
  if (!few.start() || !many.start()) {
    std::fputs("the entity does not start\n", stderr);
    return 1;
  }
  bench::compare(
      "attach 14 protocols, 100,000 names", "the same, 1,000 names", bench::atMost(1.2), rounds,
      [&] { return many.attach(); }, [&] { return few.attach(); });
}
