// The procedures of the control service for what is in force: attachments, entries of ports, and
// how they decide about frames.

#include <array>
#include <deque>
#include <string>
#include <variant>
#include <vector>

#include "classifier/explain.h"
#include "classifier/table.h"
#include "host/control.h"
#include "host/objectNames.h"
#include "host/wireRule.h"
#include "host/wireText.h"
#include "l2cp/l2cp.h"
#include "platform/itbridge.h"

namespace {

constexpr std::size_t macSize = 6;

template <class Element>
u_int sizeOf(const std::vector<Element>& list) {
  return static_cast<u_int>(list.size());
}

/// Bytes that a reply points at.
class FieldStore {
 public:
  void clear() { fields_.clear(); }

  control_field add(std::uint64_t number, std::size_t size) {
    auto& bytes = fields_.emplace_back();
    for (std::size_t i = size; i-- != 0; number >>= 8U) bytes.at(i) = static_cast<char>(number);
    return {static_cast<u_int>(size), bytes.data()};
  }

 private:
  std::deque<std::array<char, macSize>> fields_;
};

/// A condition as it is sent, or what a frame has where one looks.
class WireCondition {
 public:
  explicit WireCondition(FieldStore& store) : store_(store) {}

  control_condition operator()(const classifier::VlanRange& range) const {
    control_condition wire{};
    wire.type = CONTROL_CONDITION_VLAN;
    wire.control_condition_u.vlan = {range.lowest, range.highest};
    return wire;
  }
  control_condition operator()(const classifier::DestinationMac& of) const {
    return masked(CONTROL_CONDITION_DESTINATION, of.mac, of.mask, macSize);
  }
  control_condition operator()(const classifier::EtherType& of) const {
    constexpr std::uint64_t wholeType = 0xffff;
    return masked(CONTROL_CONDITION_ETHER_TYPE, of.value, wholeType, 2);
  }
  control_condition operator()(const classifier::PayloadByte& of) const {
    return masked(CONTROL_CONDITION_PAYLOAD, of.value, of.mask, 1, of.offset);
  }

 private:
  control_condition masked(control_condition_type type, std::uint64_t value, std::uint64_t mask,
                           std::size_t size, std::uint32_t offset = 0) const {
    control_condition wire{};
    wire.type = type;
    wire.control_condition_u.bits = {store_.add(value, size), store_.add(mask, size), offset};
    return wire;
  }

  FieldStore& store_;
};

class FoundField {
 public:
  FoundField(FieldStore& store, const classifier::Fields& fields)
      : store_(store), fields_(fields) {}

  control_field operator()(const classifier::VlanRange& /*range*/) const {
    return fields_.vlan ? store_.add(*fields_.vlan, 2) : control_field{};
  }
  control_field operator()(const classifier::DestinationMac& /*of*/) const {
    return fields_.destination ? store_.add(*fields_.destination, macSize) : control_field{};
  }
  control_field operator()(const classifier::EtherType& /*of*/) const {
    return fields_.etherType ? store_.add(*fields_.etherType, 2) : control_field{};
  }
  control_field operator()(const classifier::PayloadByte& of) const {
    if (of.offset >= fields_.payload.size()) return {};
    return store_.add(fields_.payload[of.offset], 1);
  }

 private:
  FieldStore& store_;
  const classifier::Fields& fields_;
};

/// The entries of a port, and all that a reply about them points at.
class WireEntries {
 public:
  std::vector<control_entry>& of(std::uint32_t port, const classifier::Rules& rules) {
    fields_.clear();
    parts_.clear();
    wire_.clear();
    ObjectNames names(port);
    for (const auto& rule : rules) add(*rule, names);
    rest_ = names.rest();
    return wire_;
  }

  /// What the port's attachments have besides.
  std::vector<control_unplaced>& unplaced() {
    unplaced_.clear();
    for (const ObjectNames::Origin& origin : rest_) {
      unplaced_.push_back({wireText(origin.profile), wireText(origin.protocol), origin.vid});
    }
    return unplaced_;
  }

 private:
  // Names and not the rules that have them: what was deleted is not to be kept for an answer's
  // sake.
  struct Parts {
    classifier::Name selector;
    classifier::Name actionList;
    ObjectNames::Origin origin;
    std::vector<classifier::Name> names;
    std::vector<std::string> titles;
    std::vector<control_condition> conditions;
    std::vector<control_entry_counter> counters;
  };

  void add(const classifier::Rule& rule, ObjectNames& names) {
    Parts& parts = parts_.emplace_back(
        Parts{rule.selector, rule.actionList, names.originOf(rule), {}, {}, {}, {}});
    for (const classifier::Condition& condition : rule.conditions) {
      parts.conditions.push_back(std::visit(WireCondition(fields_), condition));
    }
    for (const classifier::CounterChange& change : rule.counterChanges) {
      parts.names.push_back(change.counter->name);
      parts.titles.push_back(names.titleOf(change.counter->name.view()));
    }
    for (std::size_t i = 0; i < parts.names.size(); ++i) {
      parts.counters.push_back(
          {wireName(parts.names[i]), wireText(parts.titles[i]), rule.counterChanges[i].increment});
    }

    control_entry entry{};
    entry.kind = rule.kind;
    entry.index = rule.index;
    entry.selector = wireName(parts.selector);
    entry.action_list = wireName(parts.actionList);
    entry.catch_all = rule.selector.view() == classifier::Table::everyFrame;
    entry.profile = wireText(parts.origin.profile);
    entry.protocol = wireText(parts.origin.protocol);
    entry.vid = parts.origin.vid;
    entry.conditions = {sizeOf(parts.conditions), parts.conditions.data()};
    entry.fate = wireFate(rule.fate);
    entry.counters = {sizeOf(parts.counters), parts.counters.data()};
    wire_.push_back(entry);
  }

  FieldStore fields_;
  std::deque<Parts> parts_;
  std::vector<control_entry> wire_;
  std::vector<ObjectNames::Origin> rest_;
  std::vector<control_unplaced> unplaced_;
};

WireEntries& wireEntries() {
  static WireEntries entries;
  return entries;
}

classifier::Rules rulesOf(std::uint32_t port) {
  return classifier::tableOf(singleton<itbridge>::instance().bridgeNameGet()).rules(port);
}

}  // namespace

control_attachments* control_attachments_1_svc(svc_req* /*request*/) {
  static control_attachments result;
  static std::vector<control_attachment> list;
  list.clear();
  const L2CP::Settings& settings = singleton<L2CP>::instance().settings;
  for (const auto& [port, vlans] : settings.ports) {
    for (const auto& [vid, profiles] : vlans) {
      for (const auto& [profile, positions] : profiles) {
        const auto named = settings.profiles.find(profile->name);
        const bool listed = named != settings.profiles.end() && &*named->second == &*profile;
        list.push_back({port, vid, wireText(profile->name), listed ? TRUE : FALSE});
      }
    }
  }
  result.list = {sizeOf(list), list.data()};
  return &result;
}

control_entries* control_entries_1_svc(u_int port, svc_req* /*request*/) {
  static control_entries result;
  auto& entries = wireEntries().of(port, rulesOf(port));
  result.list = {sizeOf(entries), entries.data()};
  auto& unplaced = wireEntries().unplaced();
  result.unplaced = {sizeOf(unplaced), unplaced.data()};
  return &result;
}

control_explain_result* control_explain_1_svc(u_int port, control_explained_frames frames,
                                              svc_req* /*request*/) {
  static control_explain_result result;
  static std::vector<control_explanation> explanations;
  static std::vector<std::vector<control_miss>> misses;
  static FieldStore found;
  explanations.clear();
  misses.assign(frames.control_explained_frames_len, {});
  found.clear();

  const classifier::Rules rules = rulesOf(port);
  for (std::size_t i = 0; i < misses.size(); ++i) {
    const control_frame& frame = frames.control_explained_frames_val[i];
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): XDR's opaque bytes are chars
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(frame.control_frame_val);
    const classifier::Fields fields = classifier::fieldsOf({bytes, frame.control_frame_len});
    const classifier::Explanation explanation = classifier::explain(rules, fields);
    for (std::size_t position = 0; position < explanation.misses.size(); ++position) {
      const std::size_t condition = explanation.misses[position];
      misses[i].push_back(
          {static_cast<u_int>(condition),
           std::visit(FoundField(found, fields), rules[position]->conditions[condition])});
    }
    explanations.push_back({wireFate(explanation.fate), {sizeOf(misses[i]), misses[i].data()}});
  }
  auto& entries = wireEntries().of(port, rules);
  result.entries = {sizeOf(entries), entries.data()};
  result.explanations = {sizeOf(explanations), explanations.data()};
  return &result;
}
