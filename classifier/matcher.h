#pragma once

/// The software data plane: the rules of a port, compiled so that the cost of a decision grows with
/// the number of different condition shapes instead of the number of rules.

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "classifier/frame.h"
#include "classifier/rule.h"

namespace classifier {

/// Finds, of a list of rules, the first one whose conditions all hold for a frame.
///
/// A frame is packed into one key, and so are those conditions of a rule that compare bits of that
/// key: destination, exact VLAN, EtherType and payload byte 0. Rules that compare the same bits
/// form a group, in which one look into a hash table finds the rules that agree with the frame on
/// all of them. Conditions that do not fit the key are tested one by one, but only for those rules.
class Matcher {
 public:
  explicit Matcher(Rules rules);

  /// The first rule that holds for the frame, or null. Valid as long as the matcher.
  const std::shared_ptr<const Rule>* match(std::span<const std::uint8_t> frame) const;

 private:
  /// Fields at fixed places, each with a bit that says that it is there. An absent field is zero.
  struct Key {
    std::uint64_t destination = 0;
    std::uint64_t rest = 0;

    bool operator==(const Key&) const = default;
    Key operator&(const Key& mask) const {
      return {destination & mask.destination, rest & mask.rest};
    }
  };

  /// The position of a rule in the list. Chains of positions ascend and end with `none`.
  using Position = std::uint32_t;
  static constexpr Position none = UINT32_MAX;

  struct Pattern;
  static Key keyOf(const Fields& fields);

  /// Rules with the same mask, found by the key's bits under that mask.
  class Group {
   public:
    Group(const Key& mask, Position best) : mask_(mask), best_(best) {}

    const Key& mask() const { return mask_; }
    /// The first rule of the group.
    Position best() const { return best_; }

    void reserve(std::size_t rules);
    /// Where the chain of rules with that key starts: `none` when there is none.
    Position& chain(const Key& maskedKey);
    Position find(const Key& key) const;

   private:
    struct Slot {
      Key key;
      Position first = none;
    };

    std::size_t slotOf(const Key& maskedKey) const;

    Key mask_;
    Position best_;
    unsigned shift_ = 0;
    /// At least half of them stay empty, so that every probe ends.
    std::vector<Slot> slots_;
  };

  /// What is left to know about a rule once its key agrees with the frame's.
  struct Candidate {
    std::vector<Condition> unpacked;
    Position next = none;
  };

  Rules rules_;
  std::vector<Candidate> candidates_;
  /// In the order of their first rules.
  std::vector<Group> groups_;
};

}  // namespace classifier
