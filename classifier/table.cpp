#include "classifier/table.h"

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace classifier {

struct Table::Selector : Registered<Selector> {
  using Registered::Registered;

  /// Room for one condition of each type.
  boost::container::small_vector<Condition, 4> conditions;
};

struct Table::NamedCounter : Registered<NamedCounter> {
  explicit NamedCounter(const Name& counterName)
      : Registered(counterName), counter(std::make_shared<Counter>(counterName)) {}

  /// What rules share.
  const std::shared_ptr<Counter> counter;
};

struct Table::Action {
  std::uint32_t index;
  std::uint32_t type;
  /// The counter and its increment, of counter changes alone.
  boost::intrusive_ptr<NamedCounter> counter;
  std::int32_t increment;
};

struct Table::ActionList : Registered<ActionList> {
  using Registered::Registered;

  /// By ascending index. Room for the usual list: four counter changes and two actions for the
  /// fate.
  boost::container::small_vector<Action, 6> actions;
};

struct Table::Entry {
  /// The kind above the index.
  std::uint64_t place;
  boost::intrusive_ptr<Selector> selector;
  boost::intrusive_ptr<ActionList> actionList;
  /// Made when it is first asked for, of the objects as they were at that revision.
  mutable std::shared_ptr<const Rule> rule = {};
  mutable std::uint64_t ruleRevision = 0;

  static std::uint64_t placeOf(std::uint32_t kind, std::uint32_t index) {
    return std::uint64_t{kind} << 32 | index;
  }
  std::uint32_t kind() const { return static_cast<std::uint32_t>(place >> 32); }
  std::uint32_t index() const { return static_cast<std::uint32_t>(place); }
};

struct Table::Port {
  /// Room for the usual profile and the catch-all.
  Port() { entries.reserve(16); }

  /// By ascending place.
  std::vector<Entry> entries;

  /// Made from the entries when a frame arrives; null after they changed.
  std::unique_ptr<const Matcher> matcher;
  /// The objects that the matcher knows.
  std::uint64_t matcherRevision = 0;

  std::vector<Entry>::iterator find(std::uint64_t place) {
    // Indices are mostly taken in a row. Then an entry stands as far from the first one as its
    // index does, and a caller that asks for one after the other need not wait for a search.
    if (entries.empty()) return entries.end();
    const std::uint64_t distance = place - entries.front().place;
    if (distance < entries.size() && entries[distance].place == place) {
      return entries.begin() + static_cast<std::ptrdiff_t>(distance);
    }
    const auto found = from(place);
    return found != entries.end() && found->place == place ? found : entries.end();
  }
  /// The entry at that place or, when there is none, the first one behind it.
  std::vector<Entry>::iterator from(std::uint64_t place) {
    return std::ranges::lower_bound(entries, place, {}, &Entry::place);
  }
  bool isFull(std::uint32_t kind) const {
    if (entries.size() < maxEntries) return false;
    const auto first = std::ranges::lower_bound(entries, kind, {}, &Entry::kind);
    const auto last = std::ranges::upper_bound(entries, kind, {}, &Entry::kind);
    return last - first >= std::ptrdiff_t{maxEntries} || entries.size() >= maxPortEntries;
  }
};

namespace {

bool isEveryFrame(const Name& name) { return name == Name(Table::everyFrame); }

template <class Handler>
struct RecordOfHandler;
template <class Record>
struct RecordOfHandler<int (Table::*)(Record&)> {
  using Type = Record;
};
template <class Handler>
using RecordOf = typename RecordOfHandler<Handler>::Type;

std::optional<std::uint32_t> portOf(const char (&field)[ACL_PORT_SIZE]) {
  const char* end = field + strnlen(field, sizeof(field));
  if (end == std::end(field)) return std::nullopt;
  std::int64_t number = 0;
  const auto [stop, error] = std::from_chars(field, end, number);
  if (error != std::errc() || stop != end || number < std::numeric_limits<std::int32_t>::min() ||
      number > std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(number);
}

std::uint64_t macOf(const std::uint8_t (&bytes)[6]) {
  std::uint64_t mac = 0;
  for (const std::uint8_t byte : bytes) mac = mac << 8 | byte;
  return mac;
}

/// Records carry addresses as numbers.
std::uint8_t byteAt(std::uint64_t address) {
  return *reinterpret_cast<const std::uint8_t*>(address);  // NOLINT(performance-no-int-to-ptr)
}

struct ParsedCondition {
  /// 0 or a negative error number; only then is there no condition.
  int error;
  Condition condition;
};

ParsedCondition parseCondition(const acl_ioctl_selector& record) {
  const auto& data = record.conditionData;
  switch (record.conditionType) {
    case ACL_CONDITION_DESTINATION_MAC:
      return {0, DestinationMac{.mac = macOf(data.destinationMac.mac),
                                .mask = macOf(data.destinationMac.mask)}};
    case ACL_CONDITION_ETHER_TYPE:
      return {0, EtherType{data.etherType.etherType}};
    case ACL_CONDITION_PAYLOAD: {
      const acl_condition_payload payload = data.payload;
      if (payload.length != 1) return {-EINVAL, {}};
      if (payload.mask == 0 || payload.value == 0) return {-EFAULT, {}};
      return {0, PayloadByte{.offset = payload.offset,
                             .mask = byteAt(payload.mask),
                             .value = byteAt(payload.value)}};
    }
    case ACL_CONDITION_VLAN: {
      const acl_condition_vlan vlan = data.vlan;
      if (vlan.lowest > vlan.highest || vlan.highest > VlanRange::wholePort) return {-EINVAL, {}};
      return {0, VlanRange{.lowest = vlan.lowest, .highest = vlan.highest}};
    }
    default:
      return {-EINVAL, {}};
  }
}

bool isActionType(std::uint32_t type) {
  return type == ACL_ACTION_DROP || type == ACL_ACTION_HIDE || type == ACL_ACTION_NO_L2CP ||
         type == ACL_ACTION_COUNTER_CHANGE;
}

}  // namespace

Table::Table() : selectors_(maxObjects), actionLists_(maxObjects), counters_(maxObjects) {
  selectors_.create(Name(everyFrame));
}

Table::~Table() = default;

int Table::request(std::uint32_t code, void* record) noexcept {
  const Handler handler = handlerOf(code);
  if (handler == nullptr) return -ENOTTY;
  if (record == nullptr) return -EFAULT;
  try {
    const std::lock_guard lock(lock_);
    return handler(*this, record);
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

Table::Handler Table::handlerOf(std::uint32_t code) {
  switch (code) {
    case ACL_ADD_SELECTOR:
      return call<&Table::addSelector>;
    case ACL_DEL_SELECTOR:
      return call<&Table::deleteSelector>;
    case ACL_ADD_CONDITION:
      return call<&Table::addCondition>;
    case ACL_ADD_ACTION_LIST:
      return call<&Table::addActionList>;
    case ACL_DEL_ACTION_LIST:
      return call<&Table::deleteActionList>;
    case ACL_ADD_ACTION:
      return call<&Table::addAction>;
    case ACL_ADD_PORT_ENTRY:
      return call<&Table::addPortEntry>;
    case ACL_DEL_PORT_ENTRY:
      return call<&Table::deletePortEntry>;
    case ACL_GET_PORT_ENTRY:
      return call<&Table::getPortEntry>;
    case ACL_ADD_COUNTER:
      return call<&Table::addCounter>;
    case ACL_DEL_COUNTER:
      return call<&Table::deleteCounter>;
    case ACL_GET_COUNTER:
      return call<&Table::getCounter>;
    default:
      return nullptr;
  }
}

template <auto handler>
int Table::call(Table& table, void* record) {
  return (table.*handler)(*static_cast<RecordOf<decltype(handler)>*>(record));
}

int Table::addSelector(const acl_ioctl_selector& record) { return selectors_.create(record.name); }

int Table::deleteSelector(const acl_ioctl_selector& record) {
  const auto name = Name::in(record.name);
  return name && isEveryFrame(*name) ? -EINVAL : selectors_.remove(record.name);
}

int Table::addCondition(const acl_ioctl_selector& record) {
  const auto [selectorError, found] = selectors_.find(record.name);
  if (selectorError == -EINVAL) return -EINVAL;
  if (found != nullptr && isEveryFrame(found->name)) return -EINVAL;
  const auto [error, condition] = parseCondition(record);
  if (error != 0) return error;
  if (selectorError != 0) return selectorError;

  if (found->conditions.size() >= maxConditions) return -ENOSPC;
  const auto add = [&conditions = found->conditions, &added = condition] {
    conditions.push_back(added);
  };
  if (found->use_count() > 1) {
    return changeUsed(&Entry::selector, *found, add,
                      [&conditions = found->conditions] { conditions.pop_back(); });
  }
  add();
  return 0;
}

int Table::addActionList(const acl_ioctl_action& record) {
  return actionLists_.create(record.actionList);
}

int Table::deleteActionList(const acl_ioctl_action& record) {
  return actionLists_.remove(record.actionList);
}

int Table::addAction(const acl_ioctl_action& record) {
  const bool counts = record.type == ACL_ACTION_COUNTER_CHANGE;
  const auto [listError, found] = actionLists_.find(record.actionList);
  const auto [counterError, counter] =
      counts ? counters_.find(record.counter) : Registry<NamedCounter>::Lookup{};
  if (listError == -EINVAL || counterError == -EINVAL || !isActionType(record.type)) return -EINVAL;
  if (listError != 0 || counterError != 0) return -ENOENT;

  Action action{.index = record.index, .type = record.type, .counter = nullptr, .increment = 0};
  if (counts) {
    action.counter = counter;
    action.increment = record.increment;
  }

  auto& actions = found->actions;
  // Callers mostly add them in order.
  const bool isLast = actions.empty() || actions.back().index < action.index;
  const auto place =
      isLast ? actions.end() : std::ranges::lower_bound(actions, action.index, {}, &Action::index);
  if (!isLast && place->index == action.index) return -EEXIST;
  if (actions.size() >= maxActions) return -ENOSPC;
  const auto position = place - actions.begin();
  const auto add = [&] { actions.insert(actions.begin() + position, std::move(action)); };
  if (found->use_count() > 1) {
    return changeUsed(&Entry::actionList, *found, add,
                      [&] { actions.erase(actions.begin() + position); });
  }
  add();
  return 0;
}

int Table::addPortEntry(const acl_ioctl_port_entry& record) {
  Ports::value_type* known = nullptr;
  const int portError = findPort(record.port, known);
  const auto [selectorError, selector] = selectors_.find(record.selector);
  const auto [listError, list] = actionLists_.find(record.actionList);
  if (portError == -EINVAL || selectorError == -EINVAL || listError == -EINVAL) return -EINVAL;
  if (selectorError != 0 || listError != 0) return -ENOENT;

  const std::uint64_t place = Entry::placeOf(record.kind, record.index);
  if (known != nullptr) {
    Port& port = known->second;
    if (port.find(place) != port.entries.end()) return -EEXIST;
    if (port.isFull(record.kind)) return -ENOSPC;
  }
  if (entries_ >= maxObjects) return -ENOSPC;

  const std::uint32_t number = known != nullptr ? known->first : portOf(record.port).value();
  Port& port = known != nullptr ? known->second : ports_[number];
  const auto entry = port.entries.insert(port.from(place), Entry{place, selector, list});
  if (const int error = follow(number, port); error != 0) {
    port.entries.erase(entry);
    if (port.entries.empty()) forget(number);
    return error;
  }
  port.matcher.reset();
  ++entries_;
  return 0;
}

int Table::findPort(const char (&field)[ACL_PORT_SIZE], Ports::value_type*& port) {
  if (lastPort_ == nullptr || std::memcmp(field, lastPortField_, sizeof(field)) != 0) {
    const auto number = portOf(field);
    if (!number) return -EINVAL;
    const auto found = ports_.find(*number);
    if (found == ports_.end()) return -ENOENT;
    std::memcpy(lastPortField_, field, sizeof(field));
    lastPort_ = &*found;
  }
  port = lastPort_;
  return 0;
}

int Table::deletePortEntry(const acl_ioctl_port_entry& record) {
  Ports::value_type* known = nullptr;
  if (const int error = findPort(record.port, known); error != 0) return error;
  Port& port = known->second;
  const auto entry = port.find(Entry::placeOf(record.kind, record.index));
  if (entry == port.entries.end()) return -ENOENT;

  Entry removed = std::move(*entry);
  const auto behind = port.entries.erase(entry);
  if (const int error = follow(known->first, port); error != 0) {
    port.entries.insert(behind, std::move(removed));
    return error;
  }
  port.matcher.reset();
  --entries_;
  if (port.entries.empty()) forget(known->first);
  return 0;
}

int Table::getPortEntry(acl_ioctl_port_entry& record) {
  Ports::value_type* known = nullptr;
  if (const int error = findPort(record.port, known); error != 0) return error;
  Port& port = known->second;
  const auto entry = port.find(Entry::placeOf(record.kind, record.index));
  if (entry == port.entries.end()) return -ENOENT;

  entry->selector->name.copyTo(record.selector);
  entry->actionList->name.copyTo(record.actionList);
  return 0;
}

int Table::addCounter(const acl_ioctl_counter& record) { return counters_.create(record.name); }

int Table::deleteCounter(const acl_ioctl_counter& record) { return counters_.remove(record.name); }

int Table::getCounter(acl_ioctl_counter& record) {
  const auto [error, counter] = counters_.find(record.name);
  if (error == 0) record.value = counter->counter->total();
  return error;
}

std::shared_ptr<const Rule> Table::ruleOf(const Entry& entry) {
  std::vector<CounterChange> counterChanges;
  bool drop = false;
  bool noL2cp = false;
  bool hide = false;
  for (const Action& action : entry.actionList->actions) {
    drop |= action.type == ACL_ACTION_DROP;
    noL2cp |= action.type == ACL_ACTION_NO_L2CP;
    hide |= action.type == ACL_ACTION_HIDE;
    if (action.counter) counterChanges.push_back({action.counter->counter, action.increment});
  }
  const bool catchAll = isEveryFrame(entry.selector->name);
  const Fate fate = drop                ? Fate::discard
                    : noL2cp            ? Fate::tunnel
                    : hide && !catchAll ? Fate::peer
                                        : Fate::untouched;
  const auto& conditions = entry.selector->conditions;
  return std::make_shared<const Rule>(Rule{.kind = entry.kind(),
                                           .index = entry.index(),
                                           .selector = entry.selector->name,
                                           .actionList = entry.actionList->name,
                                           .conditions = {conditions.begin(), conditions.end()},
                                           .fate = fate,
                                           .counterChanges = std::move(counterChanges)});
}

Rules Table::rulesOf(const Port& port) const {
  Rules rules;
  rules.reserve(port.entries.size());
  for (const Entry& entry : port.entries) {
    if (!entry.rule || entry.ruleRevision != objectsRevision_) {
      entry.rule = ruleOf(entry);
      entry.ruleRevision = objectsRevision_;
    }
    rules.push_back(entry.rule);
  }
  // The entries come by ascending kind, which is to decide between equal indices.
  const auto index = [](const auto& rule) { return rule->index; };
  if (!std::ranges::is_sorted(rules, {}, index)) std::ranges::stable_sort(rules, {}, index);
  return rules;
}

Rules Table::rules(std::uint32_t port) const {
  const std::lock_guard lock(lock_);
  const auto known = ports_.find(port);
  return known == ports_.end() ? Rules() : rulesOf(known->second);
}

void Table::forget(std::uint32_t port) {
  lastPort_ = nullptr;
  ports_.erase(port);
}

void Table::setDataPlane(DataPlane* plane) {
  const std::lock_guard lock(lock_);
  plane_ = plane;
}

int Table::refresh(std::uint32_t port) {
  const std::lock_guard lock(lock_);
  const auto known = ports_.find(port);
  return known == ports_.end() ? 0 : follow(port, known->second);
}

int Table::follow(std::uint32_t number, const Port& port) {
  if (plane_ == nullptr || !plane_->has(number)) return 0;
  try {
    return plane_->replace(number, rulesOf(port));
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

template <class Object, class Change, class Undo>
int Table::changeUsed(boost::intrusive_ptr<Object> Entry::*part, const Object& object,
                      Change change, Undo undo) {
  std::vector<std::pair<std::uint32_t, Rules>> before;
  if (plane_ != nullptr) {
    for (const auto& [number, port] : ports_) {
      const bool uses = std::ranges::any_of(
          port.entries, [&](const Entry& entry) { return (entry.*part).get() == &object; });
      if (uses && plane_->has(number)) before.emplace_back(number, rulesOf(port));
    }
  }
  change();
  ++objectsRevision_;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const std::uint32_t number = before[i].first;
    const int error = follow(number, ports_.at(number));
    if (error == 0) continue;
    undo();
    ++objectsRevision_;
    while (i-- > 0) plane_->replace(before[i].first, before[i].second);
    return error;
  }
  return 0;
}

Verdict Table::classify(std::uint32_t port, std::span<const std::uint8_t> frame) {
  const std::lock_guard lock(lock_);
  const auto known = ports_.find(port);
  if (known == ports_.end()) return {};
  auto& [entries, matcher, matcherRevision] = known->second;
  if (!matcher || matcherRevision != objectsRevision_) {
    matcher = std::make_unique<const Matcher>(rulesOf(known->second));
    matcherRevision = objectsRevision_;
  }

  const auto* rule = matcher->match(frame);
  if (rule == nullptr) return {};
  for (const CounterChange& change : (*rule)->counterChanges) {
    change.counter->value += static_cast<std::uint64_t>(std::int64_t{change.increment});
  }
  return {(*rule)->fate, *rule};
}

Table& tableOf(std::string_view bridge) {
  // Never destroyed: the objects of a process that is ending still send requests.
  static auto& tables = *new std::map<std::string, Table, std::less<>>();
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  const auto known = tables.find(bridge);
  return known != tables.end() ? known->second
                               : tables.try_emplace(std::string(bridge)).first->second;
}

}  // namespace classifier
