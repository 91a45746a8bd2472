#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "l2cp/full_name.h"
#include "l2cp/l2cp.h"
#include "l2cp/mutexGuard.h"

namespace {

constexpr std::size_t fullNameSize = 200;

// The part of a selector's or action list's name that tells one definition of a protocol from
// another.
void writeDefinition(FullName& name, const L2CP::Protocol& proto) {
  name.text("/").text(L2CP::mac2str(proto.mac));
  name.text("/").hexadecimal<4>(proto.etherType).text("/").hexadecimal<2>(proto.subType);
}

// Use counts wrap: a daemon that runs for years may see that many uses.
std::int32_t wrappingSum(std::int32_t left, std::int32_t right) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(left) +
                                   static_cast<std::uint32_t>(right));
}

}  // namespace

char* L2CP::GetName(const char* name, char* shortName, int* useCount) {
  const MutexGuard guard(nameMutex);
  const TableName* used = useName(std::string_view(name));
  if (used != nullptr && useCount != nullptr) *useCount = (*used->place)->useCount;
  return writeShortName(used, shortName);
}

char* L2CP::getName(std::string_view name, char* shortName) {
  const MutexGuard guard(nameMutex);
  return writeShortName(useName(name), shortName);
}

char* L2CP::getName(RepeatedName& name, char* shortName) {
  const MutexGuard guard(nameMutex);
  return writeShortName(useName(name), shortName);
}

char* L2CP::writeShortName(const TableName* used, char* shortName) {
  if (used == nullptr) return nullptr;
  if (shortName != nullptr) used->shortName.copyTo(shortName);
  return shortName;
}

const L2CP::TableName* L2CP::useName(std::string_view name) {
  if (const auto known = nameIndex.find(name); known != nameIndex.end()) {
    NameEntry& entry = **known->second.place;
    entry.useCount = wrappingSum(entry.useCount, 1);
    return &known->second;
  }
  auto* entry = static_cast<NameEntry*>(std::malloc(name.size() + 8));
  if (entry == nullptr) return nullptr;
  entry->useCount = 1;
  *std::copy(name.begin(), name.end(), entry->name()) = '\0';
  try {
    nameTable.push_back(entry);
    const TableName added{std::prev(nameTable.end()), ShortName(entry)};
    return &nameIndex.emplace(entry->name(), added).first->second;
  } catch (const std::bad_alloc&) {
    if (!nameTable.empty() && nameTable.back() == entry) nameTable.pop_back();
    std::free(entry);
    return nullptr;
  }
}

const L2CP::TableName* L2CP::useName(RepeatedName& name) {
  if (name.known != nullptr && name.removals == nameRemovals) {
    NameEntry& entry = **name.known->place;
    entry.useCount = wrappingSum(entry.useCount, 1);
  } else {
    name.known = useName(name.text);
    name.removals = nameRemovals;
  }
  return name.known;
}

int L2CP::PutName(const char* name, int count) {
  const MutexGuard guard(nameMutex);
  const auto known = nameIndex.find(name);
  if (known == nameIndex.end()) return -1;
  NameEntry* entry = *known->second.place;
  entry->useCount = wrappingSum(entry->useCount, wrappingSum(~count, 1));
  const int left = entry->useCount;
  if (left > 0) return left;
  nameTable.erase(known->second.place);
  nameIndex.erase(known);
  ++nameRemovals;
  std::free(entry);
  return left;
}

char* L2CP::aclName(char* shortName, const std::string& protoName, unsigned int port,
                    unsigned short vid) {
  char fullName[fullNameSize];
  std::snprintf(fullName, sizeof(fullName), m_acl_mask, protoName.c_str(), port, vid);
  return getName(fullName, shortName);
}

char* L2CP::nameSelector(char* shortName, unsigned short vid, const Protocol& proto) {
  char fullName[fullNameSize];
  FullName name(fullName);
  name.text(proto.name.c_str()).text("/").decimal(vid);
  writeDefinition(name, proto);
  return getName(name.view(), shortName);
}

char* L2CP::nameActionList(char* shortName, unsigned int port, unsigned short vid,
                           const Protocol& proto) {
  char fullName[fullNameSize];
  FullName name(fullName);
  name.text(proto.name.c_str()).text("/").decimal(static_cast<int>(port));
  name.text("/").decimal(vid);
  writeDefinition(name, proto);
  return getName(name.view(), shortName);
}

const char* L2CP::mac2str(const unsigned char* mac, char* buffer) {
  constexpr std::string_view digits = "0123456789abcdef";
  static char shared[18];
  char* const text = buffer == nullptr ? shared : buffer;
  char* next = text;
  for (std::size_t byte = 0; byte < 6; ++byte) {
    if (byte != 0) *next++ = ':';
    *next++ = digits[mac[byte] >> 4U];
    *next++ = digits[mac[byte] & 0xfU];
  }
  *next = '\0';
  return text;
}

const char* L2CP::rule2str(Rule rule) {
  switch (rule) {
    case Rule::discard:
      return m_rule_discard;
    case Rule::peer:
      return m_rule_peer;
    case Rule::tunnel:
      return m_rule_tunnel;
  }
  return "unknown";
}

const char* L2CP::bool2yesno(bool value) { return value ? "yes" : "no"; }
