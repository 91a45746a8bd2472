#pragma once

/// The classifier's requests as one-liners. Every operation returns what `Table::request` returns.

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "classifier/table.h"
#include "platform/acl_ioctl.h"

class Requests {
 public:
  using Mac = std::array<std::uint8_t, 6>;

  explicit Requests(classifier::Table& table) : table_(table) {}

  /// Copies `text` into a zeroed field; one as long as the field leaves no room for the NUL.
  template <std::size_t size>
  static void fill(char (&field)[size], std::string_view text) {
    std::copy_n(text.begin(), std::min(size, text.size()), field);
  }

  static acl_ioctl_selector selector(std::string_view name, std::uint32_t conditionType = 0) {
    acl_ioctl_selector record{};
    fill(record.name, name);
    record.conditionType = conditionType;
    return record;
  }

  static acl_ioctl_action action(std::string_view list) {
    acl_ioctl_action record{};
    fill(record.actionList, list);
    return record;
  }

  static acl_ioctl_port_entry entry(std::string_view port, std::uint32_t kind, std::uint32_t index,
                                    std::string_view selector = "", std::string_view list = "") {
    acl_ioctl_port_entry record{};
    fill(record.port, port);
    record.kind = kind;
    record.index = index;
    fill(record.selector, selector);
    fill(record.actionList, list);
    return record;
  }

  static acl_ioctl_counter counterRecord(std::string_view name) {
    acl_ioctl_counter record{};
    fill(record.name, name);
    return record;
  }

  int addSelector(std::string_view name) { return send(ACL_ADD_SELECTOR, selector(name)); }
  int deleteSelector(std::string_view name) { return send(ACL_DEL_SELECTOR, selector(name)); }

  int addVlan(std::string_view name, std::uint16_t lowest, std::uint16_t highest) {
    auto record = selector(name, ACL_CONDITION_VLAN);
    record.conditionData.vlan = {.lowest = lowest, .highest = highest};
    return send(ACL_ADD_CONDITION, record);
  }

  int addDestination(std::string_view name, const Mac& mac,
                     const Mac& mask = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff}) {
    auto record = selector(name, ACL_CONDITION_DESTINATION_MAC);
    std::ranges::copy(mac, record.conditionData.destinationMac.mac);
    std::ranges::copy(mask, record.conditionData.destinationMac.mask);
    return send(ACL_ADD_CONDITION, record);
  }

  int addEtherType(std::string_view name, std::uint16_t etherType) {
    auto record = selector(name, ACL_CONDITION_ETHER_TYPE);
    record.conditionData.etherType.etherType = etherType;
    return send(ACL_ADD_CONDITION, record);
  }

  int addPayload(std::string_view name, std::uint32_t offset, std::uint8_t mask, std::uint8_t value,
                 std::uint32_t length = 1) {
    auto record = selector(name, ACL_CONDITION_PAYLOAD);
    record.conditionData.payload = {.offset = offset,
                                    .length = length,
                                    .mask = reinterpret_cast<std::uintptr_t>(&mask),
                                    .value = reinterpret_cast<std::uintptr_t>(&value)};
    return send(ACL_ADD_CONDITION, record);
  }

  int addActionList(std::string_view name) { return send(ACL_ADD_ACTION_LIST, action(name)); }
  int deleteActionList(std::string_view name) { return send(ACL_DEL_ACTION_LIST, action(name)); }

  int addAction(std::string_view list, std::uint32_t index, std::uint32_t type) {
    auto record = action(list);
    record.index = index;
    record.type = type;
    return send(ACL_ADD_ACTION, record);
  }

  int addCounterChange(std::string_view list, std::uint32_t index, std::string_view counter,
                       std::int32_t increment = 1) {
    auto record = action(list);
    record.index = index;
    record.type = ACL_ACTION_COUNTER_CHANGE;
    fill(record.counter, counter);
    record.increment = increment;
    return send(ACL_ADD_ACTION, record);
  }

  int addEntry(std::string_view port, std::uint32_t kind, std::uint32_t index,
               std::string_view selector, std::string_view list) {
    return send(ACL_ADD_PORT_ENTRY, entry(port, kind, index, selector, list));
  }
  int deleteEntry(std::string_view port, std::uint32_t kind, std::uint32_t index) {
    return send(ACL_DEL_PORT_ENTRY, entry(port, kind, index));
  }
  int getEntry(std::string_view port, std::uint32_t kind, std::uint32_t index) {
    return send(ACL_GET_PORT_ENTRY, entry(port, kind, index));
  }

  int addCounter(std::string_view name) { return send(ACL_ADD_COUNTER, counterRecord(name)); }
  int deleteCounter(std::string_view name) { return send(ACL_DEL_COUNTER, counterRecord(name)); }

  /// Nothing when the request fails.
  std::optional<std::uint64_t> counter(std::string_view name) {
    auto record = counterRecord(name);
    if (table_.request(ACL_GET_COUNTER, &record) != 0) return std::nullopt;
    return record.value;
  }

  template <class Record>
  int send(std::uint32_t code, Record record) {
    return table_.request(code, &record);
  }

 private:
  classifier::Table& table_;
};
