#include "classifier/table.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace classifier {

struct Table::Selector {
  /// Room for one condition of each type, so that the usual selector grows once.
  explicit Selector(std::string_view selectorName) : name(selectorName) { conditions.reserve(4); }

  const Name name;
  std::vector<Condition> conditions;
};

struct Table::Action {
  std::uint32_t index;
  std::uint32_t type;
  /// The counter and its increment, of counter changes alone.
  std::shared_ptr<Counter> counter;
  std::int32_t increment;
};

struct Table::ActionList {
  /// Room for the usual list: four counter changes and two actions for the fate.
  explicit ActionList(std::string_view listName) : name(listName) { actions.reserve(6); }

  const Name name;
  /// By ascending index.
  std::vector<Action> actions;
};

struct Table::Entry {
  /// The kind above the index.
  std::uint64_t place;
  std::shared_ptr<Selector> selector;
  std::shared_ptr<ActionList> actionList;

  static std::uint64_t placeOf(std::uint32_t kind, std::uint32_t index) {
    return std::uint64_t{kind} << 32 | index;
  }
  std::uint32_t kind() const { return static_cast<std::uint32_t>(place >> 32); }
  std::uint32_t index() const { return static_cast<std::uint32_t>(place); }
};

struct Table::Port {
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
  std::size_t count(std::uint32_t kind) const {
    const auto last = std::ranges::upper_bound(entries, kind, {}, &Entry::kind);
    return static_cast<std::size_t>(last -
                                    std::ranges::lower_bound(entries, kind, {}, &Entry::kind));
  }
};

namespace {

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

Table::Table() { create(selectors_, everyFrame); }

Table::~Table() = default;

int Table::request(std::uint32_t code, void* record) noexcept {
  try {
    switch (code) {
      case ACL_ADD_SELECTOR:
        return answer(record, &Table::addSelector);
      case ACL_DEL_SELECTOR:
        return answer(record, &Table::deleteSelector);
      case ACL_ADD_CONDITION:
        return answer(record, &Table::addCondition);
      case ACL_ADD_ACTION_LIST:
        return answer(record, &Table::addActionList);
      case ACL_DEL_ACTION_LIST:
        return answer(record, &Table::deleteActionList);
      case ACL_ADD_ACTION:
        return answer(record, &Table::addAction);
      case ACL_ADD_PORT_ENTRY:
        return answer(record, &Table::addPortEntry);
      case ACL_DEL_PORT_ENTRY:
        return answer(record, &Table::deletePortEntry);
      case ACL_GET_PORT_ENTRY:
        return answer(record, &Table::getPortEntry);
      case ACL_ADD_COUNTER:
        return answer(record, &Table::addCounter);
      case ACL_DEL_COUNTER:
        return answer(record, &Table::deleteCounter);
      case ACL_GET_COUNTER:
        return answer(record, &Table::getCounter);
      default:
        return -ENOTTY;
    }
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

template <class Record>
int Table::answer(void* record, int (Table::*handler)(Record&)) {
  if (record == nullptr) return -EFAULT;
  const std::lock_guard lock(mutex_);
  return (this->*handler)(*static_cast<Record*>(record));
}

template <class Object>
int Table::create(Registry<Object>& registry, std::string_view name) {
  if (name.empty()) return -EINVAL;
  if (registry.contains(name)) return -EEXIST;
  if (registry.size() >= maxObjects) return -ENOSPC;
  registry.add(std::make_shared<Object>(name));
  return 0;
}

template <class Object>
int Table::create(Registry<Object>& registry, const char (&field)[ACL_NAME_SIZE]) {
  const auto name = nameIn(field);
  return name ? create(registry, *name) : -EINVAL;
}

template <class Object>
int Table::remove(Registry<Object>& registry, const char (&field)[ACL_NAME_SIZE]) {
  const auto name = nameIn(field);
  if (!name) return -EINVAL;
  return registry.remove(*name) ? 0 : -ENOENT;
}

int Table::addSelector(const acl_ioctl_selector& record) { return create(selectors_, record.name); }

int Table::deleteSelector(const acl_ioctl_selector& record) {
  return nameIn(record.name) == everyFrame ? -EINVAL : remove(selectors_, record.name);
}

int Table::addCondition(const acl_ioctl_selector& record) {
  const auto [selectorError, found] = selectors_.find(record.name);
  if (selectorError == -EINVAL) return -EINVAL;
  if (found != nullptr && (*found)->name.view() == everyFrame) return -EINVAL;
  const auto [error, condition] = parseCondition(record);
  if (error != 0) return error;
  if (selectorError != 0) return selectorError;

  const auto& selector = *found;
  if (selector->conditions.size() >= maxConditions) return -ENOSPC;
  selector->conditions.push_back(condition);
  if (selector.use_count() == 1) return 0;
  return followAll(&Entry::selector, selector, [&] { selector->conditions.pop_back(); });
}

int Table::addActionList(const acl_ioctl_action& record) {
  return create(actionLists_, record.actionList);
}

int Table::deleteActionList(const acl_ioctl_action& record) {
  return remove(actionLists_, record.actionList);
}

int Table::addAction(const acl_ioctl_action& record) {
  const bool counts = record.type == ACL_ACTION_COUNTER_CHANGE;
  const auto [listError, found] = actionLists_.find(record.actionList);
  const auto [counterError, counter] =
      counts ? counters_.find(record.counter) : Registry<Counter>::Lookup{};
  if (listError == -EINVAL || counterError == -EINVAL || !isActionType(record.type)) return -EINVAL;
  if (listError != 0 || counterError != 0) return -ENOENT;

  Action action{.index = record.index, .type = record.type, .counter = nullptr, .increment = 0};
  if (counts) {
    action.counter = *counter;
    action.increment = record.increment;
  }

  const auto& list = *found;
  const auto place = std::ranges::lower_bound(list->actions, action.index, {}, &Action::index);
  if (place != list->actions.end() && place->index == action.index) return -EEXIST;
  if (list->actions.size() >= maxActions) return -ENOSPC;
  const auto added = list->actions.insert(place, std::move(action));
  if (list.use_count() == 1) return 0;
  return followAll(&Entry::actionList, list, [&] { list->actions.erase(added); });
}

int Table::addPortEntry(const acl_ioctl_port_entry& record) {
  const auto number = portOf(record.port);
  const auto [selectorError, selector] = selectors_.find(record.selector);
  const auto [listError, list] = actionLists_.find(record.actionList);
  if (!number || selectorError == -EINVAL || listError == -EINVAL) return -EINVAL;
  if (selectorError != 0 || listError != 0) return -ENOENT;

  const std::uint64_t place = Entry::placeOf(record.kind, record.index);
  if (const auto known = ports_.find(*number); known != ports_.end()) {
    Port& port = known->second;
    if (port.find(place) != port.entries.end()) return -EEXIST;
    if (port.count(record.kind) >= maxEntries) return -ENOSPC;
    if (port.entries.size() >= maxPortEntries) return -ENOSPC;
  }
  if (entries_ >= maxObjects) return -ENOSPC;

  Port& port = ports_[*number];
  const auto entry = port.entries.insert(port.from(place), Entry{place, *selector, *list});
  if (const int error = follow(*number, port); error != 0) {
    port.entries.erase(entry);
    if (port.entries.empty()) forget(*number);
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

int Table::addCounter(const acl_ioctl_counter& record) { return create(counters_, record.name); }

int Table::deleteCounter(const acl_ioctl_counter& record) { return remove(counters_, record.name); }

int Table::getCounter(acl_ioctl_counter& record) {
  const auto [error, counter] = counters_.find(record.name);
  if (error == 0) record.value = (*counter)->total();
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
    if (action.counter) counterChanges.push_back({action.counter, action.increment});
  }
  const bool catchAll = entry.selector->name.view() == everyFrame;
  const Fate fate = drop                ? Fate::discard
                    : noL2cp            ? Fate::tunnel
                    : hide && !catchAll ? Fate::peer
                                        : Fate::untouched;
  return std::make_shared<const Rule>(Rule{.kind = entry.kind(),
                                           .index = entry.index(),
                                           .selector = entry.selector->name,
                                           .actionList = entry.actionList->name,
                                           .conditions = entry.selector->conditions,
                                           .fate = fate,
                                           .counterChanges = std::move(counterChanges)});
}

Rules Table::rulesOf(const Port& port) {
  Rules rules;
  rules.reserve(port.entries.size());
  for (const Entry& entry : port.entries) rules.push_back(ruleOf(entry));
  // The entries come by ascending kind, which is to decide between equal indices.
  std::ranges::stable_sort(rules, {}, [](const auto& rule) { return rule->index; });
  return rules;
}

Rules Table::rules(std::uint32_t port) const {
  const std::lock_guard lock(mutex_);
  const auto known = ports_.find(port);
  return known == ports_.end() ? Rules() : rulesOf(known->second);
}

void Table::forget(std::uint32_t port) {
  lastPort_ = nullptr;
  ports_.erase(port);
}

void Table::setDataPlane(DataPlane* plane) {
  const std::lock_guard lock(mutex_);
  plane_ = plane;
}

int Table::refresh(std::uint32_t port) {
  const std::lock_guard lock(mutex_);
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

template <class Object, class Undo>
int Table::followAll(std::shared_ptr<Object> Entry::*part, const std::shared_ptr<Object>& object,
                     Undo undo) {
  ++objectsRevision_;
  if (plane_ == nullptr) return 0;
  std::vector<std::uint32_t> followed;
  int error = 0;
  for (const auto& [number, port] : ports_) {
    if (std::ranges::find(port.entries, object, part) == port.entries.end()) continue;
    error = follow(number, port);
    if (error != 0) break;
    followed.push_back(number);
  }
  if (error == 0) return 0;
  undo();
  for (const std::uint32_t number : followed) follow(number, ports_.at(number));
  return error;
}

Verdict Table::classify(std::uint32_t port, std::span<const std::uint8_t> frame) {
  const std::lock_guard lock(mutex_);
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
