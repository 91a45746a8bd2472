#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "l2cp/full_name.h"
#include "l2cp/l2cp.h"
#include "l2cp/mutexGuard.h"

namespace {

constexpr std::size_t fullNameSize = 200;
constexpr std::size_t shortNameSize = 40;
constexpr std::string_view shortNamePrefix = "l2cp:0x";

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

// "l2cp:%p": an attachment asks for a hundred short names, so this does without printf.
void writeShortName(char* shortName, const void* entry) {
  char* end = std::copy(shortNamePrefix.begin(), shortNamePrefix.end(), shortName);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the address is the name
  const auto address = reinterpret_cast<std::uintptr_t>(entry);
  *std::to_chars(end, shortName + shortNameSize - 1, address, 16).ptr = '\0';
}

}  // namespace

char* L2CP::GetName(const char* name, char* shortName, int* useCount) {
  NameEntry* entry = nullptr;
  int uses = 0;
  {
    const MutexGuard guard(nameMutex);
    const std::string_view fullName(name);
    if (const auto known = nameIndex.find(fullName); known != nameIndex.end()) {
      entry = *known->second;
      entry->useCount = wrappingSum(entry->useCount, 1);
    } else {
      entry = static_cast<NameEntry*>(std::malloc(fullName.size() + 8));
      if (entry == nullptr) return nullptr;
      entry->useCount = 1;
      std::memcpy(entry->name(), name, fullName.size() + 1);
      try {
        nameTable.push_back(entry);
        nameIndex.emplace(entry->name(), std::prev(nameTable.end()));
      } catch (const std::bad_alloc&) {
        if (!nameTable.empty() && nameTable.back() == entry) nameTable.pop_back();
        std::free(entry);
        return nullptr;
      }
    }
    uses = entry->useCount;
  }
  if (useCount != nullptr) *useCount = uses;
  // Entries are not freed during operation, so the address can be read without the lock.
  if (shortName != nullptr) writeShortName(shortName, entry);
  return shortName;
}

int L2CP::PutName(const char* name, int count) {
  const MutexGuard guard(nameMutex);
  const auto known = nameIndex.find(name);
  if (known == nameIndex.end()) return -1;
  NameEntry* entry = *known->second;
  entry->useCount = wrappingSum(entry->useCount, wrappingSum(~count, 1));
  const int left = entry->useCount;
  if (left > 0) return left;
  nameTable.erase(known->second);
  nameIndex.erase(known);
  std::free(entry);
  return left;
}

char* L2CP::aclName(char* shortName, const std::string& protoName, unsigned int port,
                    unsigned short vid) {
  char fullName[fullNameSize];
  std::snprintf(fullName, sizeof(fullName), m_acl_mask, protoName.c_str(), port, vid);
  return GetName(fullName, shortName, nullptr);
}

char* L2CP::nameSelector(char* shortName, unsigned short vid, const Protocol& proto) {
  char fullName[fullNameSize];
  FullName name(fullName);
  name.text(proto.name.c_str()).text("/").decimal(vid);
  writeDefinition(name, proto);
  return GetName(fullName, shortName, nullptr);
}

char* L2CP::nameActionList(char* shortName, unsigned int port, unsigned short vid,
                           const Protocol& proto) {
  char fullName[fullNameSize];
  FullName name(fullName);
  name.text(proto.name.c_str()).text("/").decimal(static_cast<int>(port));
  name.text("/").decimal(vid);
  writeDefinition(name, proto);
  return GetName(fullName, shortName, nullptr);
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
