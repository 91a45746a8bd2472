#pragma once

/// What a port entry means, free of the records it was requested with. The request side (table.h)
/// makes rules; a data plane decides about frames with them.

#include <cstdint>
#include <memory>
#include <variant>
#include <vector>

#include "classifier/name.h"

namespace classifier {

/// The id of the outer tag lies within both ends. The range wholePort..wholePort holds for every
/// frame, tagged or not.
struct VlanRange {
  static constexpr std::uint16_t wholePort = 4095;

  std::uint16_t lowest;
  std::uint16_t highest;

  bool everyFrame() const { return lowest == wholePort && highest == wholePort; }
};

/// (destination & mask) == (mac & mask). Both hold six bytes in 48 bits, the first byte uppermost.
struct DestinationMac {
  std::uint64_t mac;
  std::uint64_t mask;
};

struct EtherType {
  std::uint16_t value;
};

/// (byte & mask) == (value & mask) for the byte `offset` bytes into the payload.
struct PayloadByte {
  std::uint32_t offset;
  std::uint8_t mask;
  std::uint8_t value;
};

using Condition = std::variant<VlanRange, DestinationMac, EtherType, PayloadByte>;

/// What becomes of a frame.
enum class Fate {
  untouched,  ///< the bridge's normal treatment
  discard,    ///< thrown away
  peer,       ///< handed to the local control plane, not forwarded
  tunnel,     ///< forwarded like any multicast, kept from the local control plane
};

/// The name of the enumerator. Text of static storage.
const char* text(Fate fate);

/// A counter that action lists change. It lives as long as anything holds it, also after its name
/// was deleted.
struct Counter {
  explicit Counter(const Name& counterName) : name(counterName) {}

  const Name name;
  /// Guarded by the lock of the table that made the counter.
  std::uint64_t value = 0;
};

struct CounterChange {
  std::shared_ptr<Counter> counter;
  /// Added modulo 2^64.
  std::int32_t increment;
};

/// One port entry: where it stands, what a frame must satisfy, and what follows. A rule does not
/// change; when the objects behind it do, another rule takes its place.
struct Rule {
  std::uint32_t kind;
  std::uint32_t index;
  Name selector;
  Name actionList;
  /// All of them must hold. Empty: every frame.
  std::vector<Condition> conditions;
  Fate fate;
  /// In the order of the actions.
  std::vector<CounterChange> counterChanges;
};

/// The rules of a port in the order in which a frame meets them. The first one whose conditions all
/// hold decides.
using Rules = std::vector<std::shared_ptr<const Rule>>;

}  // namespace classifier
