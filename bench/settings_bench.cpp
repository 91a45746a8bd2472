// What it costs to find that a large configuration needs no change. To be run by bench/run.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/ratio.h"
#include "l2cp/l2cp.h"

namespace {

constexpr int rounds = 31;
constexpr int protocols = 500;
constexpr int profiles = 500;
constexpr int entriesPerProfile = 14;
constexpr unsigned int ports = 64;
constexpr unsigned int attachmentsPerPort = 7;

void fill(L2CP& entity) {
  const auto protoName = [](int number) { return "protocol " + std::to_string(number); };
  const auto profileName = [](int number) { return "profile " + std::to_string(number); };
  for (int i = 0; i < protocols; ++i) {
    const unsigned char mac[] = {
        0x01, 0x80, 0xc2, 0, static_cast<unsigned char>(i >> 8), static_cast<unsigned char>(i)};
    entity.protoAdd(protoName(i).c_str(), false, mac, L2CP::m_allMac, L2CP::m_noEtherType,
                    L2CP::m_noSubType);
  }
  for (int i = 0; i < profiles; ++i) {
    entity.profileAdd(profileName(i).c_str(), false, false);
    for (int entry = 0; entry < entriesPerProfile; ++entry) {
      entity.profileProtoAdd(profileName(i).c_str(), protoName((i + entry) % protocols).c_str(),
                             L2CP::Rule::tunnel);
    }
  }
  for (unsigned int port = 0; port < ports; ++port) {
    for (unsigned int i = 0; i < attachmentsPerPort; ++i) {
      const int profile = static_cast<int>(port * attachmentsPerPort + i) % profiles;
      entity.portAttach(profileName(profile), port, static_cast<unsigned short>(100 + i));
    }
  }
}

}  // namespace

int main() {
  L2CP entity;
  if (!entity.start()) {
    std::fputs("the entity does not start\n", stderr);
    return 1;
  }
  fill(entity);
  const L2CP::Settings same = entity.settings;
  bench::compare(
      "apply an equal configuration", "copying it twice", bench::atMost(3), rounds,
      [&] {
        const bench::Stopwatch watch;
        if (entity.applySettings("br0", same) != 0) std::abort();
        return watch.read();
      },
      [&] {
        const bench::Stopwatch watch;
        const L2CP::Settings first = entity.settings;
        const L2CP::Settings second = first;
        if (second.ports.size() != ports) std::abort();
        return watch.read();
      });
  entity.stop();
}
