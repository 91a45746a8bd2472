#pragma once

/// An entity started on the recording classifier. What it sends is compared as lines of text that
/// show every byte of the records:
///
///     ADD_SELECTOR <LLDP/100/01:80:c2:00:00:0e/ffff/ff>
///     ADD_CONDITION <LLDP/100/01:80:c2:00:00:0e/ffff/ff> #0 vlan 100..100
///     ADD_ACTION <LLDP/3/100/01:80:c2:00:00:0e/ffff/ff> #5 drop <l2cpProtoLLDPdiscard> +1
///     ADD_PORT_ENTRY 3 kind 1 @299 "true" --> <l2cp:hide>
///
/// Names in angle brackets went out as short names of the entity's table, names in quotes as they
/// stand. Offsets are written here once more rather than taken from the records' declarations.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "l2cp/l2cp.h"
#include "tests/l2cp/name_table.h"
#include "tests/support/recording_classifier.h"
#include "tests/support/syslog_capture.h"

/// Takes a record apart field by field. Bytes that were not taken and are not zero are the rest.
class RecordFields {
 public:
  RecordFields(std::vector<unsigned char> bytes, const NameTable& names)
      : bytes_(std::move(bytes)), names_(names) {}

  template <class Number>
  Number number(std::size_t offset) {
    Number value{};
    std::memcpy(&value, &bytes_.at(offset), sizeof(value));
    std::fill_n(at(offset), sizeof(value), static_cast<unsigned char>(0));
    return value;
  }
  std::uint32_t word(std::size_t offset) { return number<std::uint32_t>(offset); }

  std::string text(std::size_t offset, std::size_t size) {
    const auto end = std::find(at(offset), at(offset + size), static_cast<unsigned char>(0));
    if (end == at(offset + size)) return "(no end)";
    std::string result(at(offset), end);
    std::fill(at(offset), end, static_cast<unsigned char>(0));
    return result;
  }

  /// A name, with what stands behind its NUL in the field.
  std::string name(std::size_t offset) {
    constexpr std::size_t size = 40;
    std::string result = names_.shown(text(offset, size));
    const std::string behind(at(offset), at(offset + size));
    const std::size_t last = behind.find_last_not_of('\0');
    if (last != std::string::npos) {
      const std::size_t first = behind.find_first_not_of('\0');
      result += "+\"" + behind.substr(first, last + 1 - first) + '"';
      std::fill(at(offset), at(offset + size), static_cast<unsigned char>(0));
    }
    return result;
  }

  std::string mac(std::size_t offset) {
    std::string result = L2CP::mac2str(&bytes_.at(offset));
    std::fill_n(at(offset), 6, static_cast<unsigned char>(0));
    return result;
  }

  bool hasRest() const {
    return std::any_of(bytes_.begin(), bytes_.end(), [](unsigned char byte) { return byte != 0; });
  }

  std::string rest() const {
    std::string result;
    for (std::size_t offset = 0; offset < bytes_.size(); ++offset) {
      if (bytes_[offset] != 0) {
        result += " [" + std::to_string(offset) + "]=" + std::to_string(bytes_[offset]);
      }
    }
    return result;
  }

 private:
  std::vector<unsigned char>::iterator at(std::size_t offset) {
    return bytes_.begin() + static_cast<std::ptrdiff_t>(offset);
  }

  std::vector<unsigned char> bytes_;
  const NameTable& names_;
};

inline std::string conditionText(const support::Request& request, RecordFields& record) {
  const auto byteText = [](std::optional<unsigned char> byte) {
    return byte ? std::to_string(*byte) : std::string("nothing");
  };
  const auto hex = [](unsigned int number) {
    char text[8];
    std::snprintf(text, sizeof(text), "0x%04x", number);
    return std::string(text);
  };
  std::string text = " #" + std::to_string(record.word(40));
  switch (const std::uint32_t type = record.word(44)) {
    case 11: {
      const auto lowest = record.number<std::uint16_t>(52);
      const auto highest = record.number<std::uint16_t>(54);
      return text + " vlan " + std::to_string(lowest) + ".." + std::to_string(highest);
    }
    case 4: {
      const std::string mac = record.mac(52);
      return text + " mac " + mac + '/' + record.mac(58);
    }
    case 5:
      return text + " type " + hex(record.number<std::uint16_t>(52));
    case 6: {
      text += " payload @" + std::to_string(record.word(52));
      text += " length " + std::to_string(record.word(56));
      record.number<std::uint64_t>(60);
      record.number<std::uint64_t>(68);
      return text + " mask " + byteText(request.payloadMask) + " value " +
             byteText(request.payloadValue);
    }
    default:
      return text + " condition " + std::to_string(type);
  }
}

inline std::string actionText(RecordFields& record) {
  std::string text = " #" + std::to_string(record.word(40));
  switch (const std::uint32_t type = record.word(44)) {
    case 0:
      text += " drop ";
      break;
    case 10:
      text += " hide ";
      break;
    case 24:
      text += " no-l2cp ";
      break;
    case 28:
      text += " count ";
      break;
    default:
      text += " action " + std::to_string(type) + ' ';
      break;
  }
  text += record.name(48);
  return text + " +" + std::to_string(record.number<std::int32_t>(88));
}

/// A request as one line, see above.
inline std::string line(const support::Request& request, const NameTable& names) {
  std::string text = support::requestName(request.code);
  if (request.nullRecord) return text + " null";
  RecordFields record(request.bytes, names);
  const std::string_view kind = support::requestName(request.code);
  if (kind.ends_with("PORT_ENTRY")) {
    text += ' ' + record.text(0, 20);
    text += " kind " + std::to_string(record.word(20));
    text += " @" + std::to_string(record.word(24));
    text += ' ' + record.name(40);
    text += " --> " + record.name(80);
  } else {
    const bool isCondition = kind.ends_with("CONDITION");
    const bool isAction = kind.ends_with("ACTION");
    const bool isSelector = kind.ends_with("SELECTOR");
    text += ' ' + record.name(0);
    // A selector record may carry its last condition when the selector is deleted.
    if (isCondition || (isSelector && record.hasRest())) text += conditionText(request, record);
    if (isAction) text += actionText(record);
  }
  return text + record.rest();
}

using Lines = std::vector<std::string>;

inline Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class KernelTest : public testing::Test {
 protected:
  using Rule = L2CP::Rule;

  void SetUp() override {
    classifier.reset();
    support::SyslogCapture::instance().reset();
    ASSERT_TRUE(entity.start());
    classifier.take();
  }

  void TearDown() override {
    classifier.refusal = nullptr;
    entity.stop();
  }

  /// The requests since the last call.
  Lines sent() {
    const NameTable names(entity);
    Lines lines;
    for (const support::Request& request : classifier.take()) lines.push_back(line(request, names));
    return lines;
  }

  template <class Operation>
  Lines traced(const Operation& operation) {
    return tracesOf(entity, operation);
  }

  int uses(const std::string& fullName) { return NameTable(entity).uses(fullName); }

  /// The protocols in the order in which a profile keeps its entries.
  std::vector<std::string> byAddress(std::vector<std::string> protocols) {
    std::ranges::sort(protocols, std::less<>(), [this](const auto& name) {
      return entity.settings.protocols.at(name).pointer().get();
    });
    return protocols;
  }

  void addProtocol(const char* name, std::vector<unsigned char> mac,
                   std::vector<unsigned char> mask, unsigned short etherType,
                   unsigned char subType) {
    ASSERT_EQ(entity.protoAdd(name, false, mac.data(), mask.data(), etherType, subType), 0);
  }

  void addProfile(const char* name,
                  const std::vector<std::pair<const char*, L2CP::Rule>>& entries) {
    ASSERT_EQ(entity.profileAdd(name, false, false), 0);
    for (const auto& [proto, rule] : entries) {
      ASSERT_EQ(entity.profileProtoAdd(name, proto, rule), 0) << proto;
    }
  }

  static acl_ioctl_port_entry portEntry(const std::string& port, std::uint32_t kind,
                                        std::uint32_t index, const std::string& selector,
                                        const std::string& actionList) {
    acl_ioctl_port_entry entry{};
    port.copy(entry.port, sizeof(entry.port) - 1);
    entry.kind = kind;
    entry.index = index;
    selector.copy(entry.selector, sizeof(entry.selector) - 1);
    actionList.copy(entry.actionList, sizeof(entry.actionList) - 1);
    return entry;
  }

  /// Puts an entry into the classifier behind the entity's back.
  void install(const std::string& port, std::uint32_t kind, std::uint32_t index,
               const std::string& selector, const std::string& actionList) {
    classifier.entries[{port, kind, index}] = portEntry(port, kind, index, selector, actionList);
  }

  bool holds(const std::string& port, std::uint32_t kind, std::uint32_t index) const {
    return classifier.entries.contains({port, kind, index});
  }

  support::RecordingClassifier& classifier = support::RecordingClassifier::instance();
  L2CP entity;
};
