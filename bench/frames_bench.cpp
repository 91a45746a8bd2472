// Frames that the last of 99 entries is about, classified and counted where they arrive on a
// virtual cable: by the XDP program, by a chain of the kernel's packet filter, and thrown away by a
// program that does nothing else. To be run by bench/run as root; makes a network namespace of its
// own.

#include <net/if.h>
#include <sched.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "bench/nftables.h"
#include "bench/ratio.h"
#include "bench/sender.h"
#include "bench/switch.h"

namespace {

using bench::Nanoseconds;
using classifier::xdp::Attachment;
using classifier::xdp::Mode;
using classifier::xdp::Programs;
using support::Bytes;

constexpr int rounds = 21;
constexpr std::uint32_t framesPerRound = 1000 * bench::batch;

// Frames that are sent into "c" arrive on "p".
void makeCable() {
  if (unshare(CLONE_NEWNET) != 0 ||
      std::system(  // NOLINT(cert-env33-c): a benchmark's own words
          "ip link add p type veth peer name c && ip link set p up && ip link set c up") != 0) {
    throw std::runtime_error("no cable can be made here");
  }
}

// ---- What meets the frames ----

/// On "p".
Attachment attach(const Programs& programs, Mode mode) {
  auto made = Attachment::make(programs, if_nametoindex("p"), {.mode = mode});
  if (const auto* problem = std::get_if<classifier::xdp::Problem>(&made)) {
    throw std::runtime_error(problem->text);
  }
  return std::get<Attachment>(std::move(made));
}

/// The rules of a switch's port as a chain.
class Chain {
 public:
  Chain() {
    nft_.run("add table netdev l2cp\n" + bench::addCounters("netdev l2cp", "c") +
             "add chain netdev l2cp p { type filter hook ingress device p priority 0 ; }\n" +
             bench::addRules("netdev l2cp p", "drop"));
  }

  std::uint64_t counted() {
    constexpr std::string_view word = "packets ";
    const std::string text = nft_.run("list counter netdev l2cp c3");
    const auto at = text.find(word);
    return at == std::string::npos ? 0 : std::stoull(text.substr(at + word.size()));
  }

 private:
  bench::Nftables nft_;
};

/// The frames arrive on port 1 of a switch, whose rules the chain has, too; its turn comes when no
/// program has dropped them.
class Receiver {
 public:
  Receiver() {
    switch_.addPort(1);
    switch_.plane.setInterface(1, if_nametoindex("p"));
    switch_.addEntries("1", bench::entries);
  }

  template <class Sender>
  Nanoseconds classified(Mode mode, const Sender& send) {
    const Attachment attachment = attach(switch_.plane.programs(), mode);
    const std::uint64_t before = *switch_.request.counter("c3");
    const Nanoseconds cost = send(frame_, framesPerRound);
    check(*switch_.request.counter("c3") - before);
    return cost;
  }

  template <class Sender>
  Nanoseconds filtered(const Sender& send) {
    const std::uint64_t before = chain_.counted();
    const Nanoseconds cost = send(frame_, framesPerRound);
    check(chain_.counted() - before);
    return cost;
  }

  template <class Sender>
  Nanoseconds dropped(Mode mode, const Sender& send) {
    const Attachment attachment =
        attach({.classify = drop_, .keep = switch_.plane.programs().keep}, mode);
    return send(frame_, framesPerRound);
  }

 private:
  static void check(std::uint64_t counted) {
    if (counted != framesPerRound) throw std::runtime_error("frames are lost");
  }

  // Without tags: the kernel takes them out of frames that it has made only once.
  bench::Switch switch_{bench::wholePort};
  Chain chain_;
  int drop_ = bench::dropProgram();
  Bytes frame_ = bench::controlFrame(bench::entries - 1, bench::wholePort);
};

template <class Sender>
void compare(Receiver& receiver, const char* what, Mode mode, double goal, const Sender& send) {
  const auto classified = [&] { return receiver.classified(mode, send); };
  bench::compare(what, "a netdev chain of 99 rules", bench::atLeast(goal), rounds, classified,
                 [&] { return receiver.filtered(send); });
  bench::compare(what, "a program that drops", bench::atLeast(0.85), rounds, classified,
                 [&] { return receiver.dropped(mode, send); });
}

void run() {
  makeCable();
  Receiver receiver;
  compare(receiver, "last of 99 entries, generic mode, from a socket", Mode::generic, 3.5,
          bench::Socket("c"));
  // Offloads that change how the frames above travel.
  bench::gatherFrames("p");
  compare(receiver, "last of 99 entries, native mode, live frames", Mode::native, 8,
          bench::Driver("c"));
}

}  // namespace

int main() { return bench::runOrSkip(run); }
