#include "cli/value.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>

#include "cli/failure.h"
#include "script/script.h"

namespace cli {

namespace {

bool isDecimalDigit(char c) { return c >= '0' && c <= '9'; }

bool isHexDigit(char c) {
  return isDecimalDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool startsHexNumber(std::string_view text) {
  return text.starts_with("0x") || text.starts_with("0X");
}

// ---- UTF-8 (RFC 3629) ----

bool isContinuation(unsigned char byte) { return (byte & 0xc0U) == 0x80; }

// A code point and the bytes that it takes; no bytes where the text is not UTF-8.
struct CodePoint {
  char32_t value = 0;
  std::size_t size = 0;
};

CodePoint firstCodePoint(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  struct Form {
    unsigned char mask, lead;
    char32_t smallest;
  };
  constexpr Form forms[] = {
      {0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}};
  std::size_t size = 0;
  for (const Form& form : forms) {
    ++size;
    if ((byte(0) & form.mask) != form.lead) continue;
    if (text.size() < size) return {};
    auto value = static_cast<char32_t>(byte(0) & static_cast<unsigned char>(~form.mask));
    for (std::size_t i = 1; i < size; ++i) {
      if (!isContinuation(byte(i))) return {};
      value = value << 6 | (byte(i) & 0x3fU);
    }
    const bool surrogate = value >= 0xd800 && value <= 0xdfff;
    if (value < form.smallest || value > 0x10ffff || surrogate) return {};
    return {value, size};
  }
  return {};
}

bool isControl(char32_t c) { return c < 0x20 || (c >= 0x7f && c <= 0x9f); }

// What makes a terminal show a text other than in the order of its characters, or end a line.
bool isLayout(char32_t c) {
  return c == 0x061c || c == 0x200e || c == 0x200f || (c >= 0x2028 && c <= 0x202e) ||
         (c >= 0x2066 && c <= 0x2069) || c == 0xfeff;
}

std::string escaped(std::string_view text, std::string_view alsoEscaped) {
  std::string result;
  while (!text.empty()) {
    const auto [value, size] = firstCodePoint(text);
    const std::string_view bytes = text.substr(0, std::max<std::size_t>(size, 1));
    text.remove_prefix(bytes.size());
    if (size == 0 || isControl(value) || isLayout(value)) {
      for (const char c : bytes) result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
      continue;
    }
    if (alsoEscaped.find(bytes) != std::string_view::npos) result += '\\';
    result += bytes;
  }
  return result;
}

// What would be taken for a byte that is not text.
bool startsEscape(std::string_view text) {
  return text.size() >= 4 && text.starts_with("\\x") && isHexDigit(text[2]) && isHexDigit(text[3]);
}

std::uint32_t parseMarked(std::string_view text, std::string_view what, std::uint32_t marker) {
  if (text == "none") return marker;
  try {
    return parseNumber(text, what, 0, marker - 1);
  } catch (const UsageError& error) {
    throw UsageError(fmt::format("{}, nor \"none\"", error.what()));
  }
}

}  // namespace

bool isNumber(std::string_view text) {
  if (startsHexNumber(text)) {
    text.remove_prefix(2);
    return !text.empty() && std::all_of(text.begin(), text.end(), isHexDigit);
  }
  return !text.empty() && std::all_of(text.begin(), text.end(), isDecimalDigit);
}

std::uint32_t parseNumber(std::string_view text, std::string_view what, std::uint32_t lowest,
                          std::uint32_t highest) {
  std::uint64_t value = 0;
  bool taken = isNumber(text);
  if (taken) {
    const bool hex = startsHexNumber(text);
    const std::string_view digits = text.substr(hex ? 2 : 0);
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
    taken = error == std::errc{} && value >= lowest && value <= highest;
  }
  if (!taken) {
    throw UsageError(
        fmt::format("{}: {} is no number from {} to {}", what, quotedText(text), lowest, highest));
  }
  return static_cast<std::uint32_t>(value);
}

Mac parseMac(std::string_view text) {
  if (text == "any") return {};
  struct Form {
    char separator;
    std::size_t digits;  // between separators
  };
  constexpr Form forms[] = {{':', 2}, {'-', 2}, {'.', 4}};
  for (const auto& [separator, digits] : forms) {
    std::string hex;
    bool fits = true;
    for (std::size_t i = 0; i < text.size() && fits; ++i) {
      const bool separates = i % (digits + 1) == digits;
      fits = separates ? text[i] == separator : isHexDigit(text[i]);
      if (!separates) hex += text[i];
    }
    Mac mac{};
    if (!fits || hex.size() != 2 * mac.size() || text.back() == separator) continue;
    for (std::size_t i = 0; i < mac.size(); ++i) {
      std::from_chars(&hex[2 * i], &hex[2 * i] + 2, mac[i], 16);
    }
    return mac;
  }
  throw UsageError(
      fmt::format("mac: {} is no address; write aa:bb:cc:dd:ee:ff, aa-bb-cc-dd-ee-ff, "
                  "aabb.ccdd.eeff or \"any\"",
                  quotedText(text)));
}

std::uint16_t parseEtherType(std::string_view text) {
  return static_cast<std::uint16_t>(parseMarked(text, "ethertype", noEtherType));
}

std::uint8_t parseSubType(std::string_view text) {
  return static_cast<std::uint8_t>(parseMarked(text, "subtype", noSubType));
}

std::string parseName(std::string_view text, std::string_view what, std::size_t longest) {
  if (text.size() > longest) {
    throw UsageError(fmt::format("{} {} is {} bytes long; {} is the most there can be", what,
                                 quotedText(text), text.size(), longest));
  }
  return std::string(text);
}

std::string parseNewName(std::string_view text, std::string_view what, std::size_t longest) {
  std::string name = parseName(text, what, longest);
  if (name.empty()) throw UsageError(fmt::format("{} is empty", what));
  if (script::isWritable(name)) return name;
  // Quotation marks alone are in the way only in front of a blank.
  std::erase(name, '"');
  throw UsageError(fmt::format(
      "{} {} has a {}, and could not be saved", what, quotedText(text),
      script::isWritable(name) ? "quotation mark in front of a blank" : "control character"));
}

std::string safeText(std::string_view text) { return escaped(text, ""); }

std::string quotedText(std::string_view text) { return '"' + escaped(text, "\"\\") + '"'; }

std::string unicodeText(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t size = firstCodePoint(text).size;
    if (size == 0 || startsEscape(text)) {
      result += fmt::format("\\x{:02x}", static_cast<unsigned char>(text.front()));
    } else {
      result += text.substr(0, size);
    }
    text.remove_prefix(std::max<std::size_t>(size, 1));
  }
  return result;
}

std::string shellText(std::string_view bytes) {
  constexpr std::string_view plain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@%+=:,./-";
  if (!bytes.empty() && bytes.find_first_not_of(plain) == std::string_view::npos) {
    return std::string(bytes);
  }
  std::string quoted;
  std::string escapes;
  bool harmless = true;
  while (!bytes.empty()) {
    const auto [value, size] = firstCodePoint(bytes);
    const std::string_view first = bytes.substr(0, std::max<std::size_t>(size, 1));
    bytes.remove_prefix(first.size());
    if (size == 0 || isControl(value) || isLayout(value)) {
      harmless = false;
      for (const char c : first) escapes += fmt::format("\\{:03o}", static_cast<unsigned char>(c));
      continue;
    }
    quoted += first == "'" ? R"('\'')" : first;
    if (first == "'" || first == "\\") escapes += '\\';
    escapes += first;
  }
  return harmless ? '\'' + quoted + '\'' : "$'" + escapes + '\'';
}

std::string nameText(std::string_view name) {
  const bool plain =
      !name.empty() && name != "-" && name.find_first_of(" \"\\") == std::string_view::npos;
  return plain ? safeText(name) : quotedText(name);
}

std::string macText(const Mac& mac) {
  if (mac == Mac{}) return "any";
  return fmt::format("{:02x}", fmt::join(mac, ":"));
}

std::string etherTypeText(std::uint16_t etherType) {
  return etherType == noEtherType ? "none" : fmt::format("0x{:04x}", etherType);
}

std::string subTypeText(std::uint8_t subType) {
  return subType == noSubType ? "none" : fmt::format("0x{:02x}", subType);
}

std::string ruleText(rpc_l2cp_rule rule) {
  switch (rule) {
    case RPC_L2CP_RULE_DISCARD:
      return "discard";
    case RPC_L2CP_RULE_PEER:
      return "peer";
    case RPC_L2CP_RULE_TUNNEL:
      return "tunnel";
    case RPC_L2CP_RULE_LOWEST:
    case RPC_L2CP_RULE_HIGHEST:
      break;
  }
  return fmt::format("rule {}", static_cast<int>(rule));
}

std::string vlanText(std::uint16_t vid) {
  return vid == wholePort ? "all" : fmt::format("{}", vid);
}

std::string_view yesNo(bool value) { return value ? "yes" : "no"; }

std::string timeText(std::time_t time) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(time));
}

std::string durationText(std::uint32_t seconds) {
  constexpr std::uint32_t minute = 60;
  constexpr std::uint32_t hour = 60 * minute;
  constexpr std::uint32_t day = 24 * hour;
  const std::string time = fmt::format("{:02}:{:02}:{:02}", seconds % day / hour,
                                       seconds % hour / minute, seconds % minute);
  return seconds < day ? time : fmt::format("{} d {}", seconds / day, time);
}

std::size_t characters(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return !isContinuation(static_cast<unsigned char>(c));
  }));
}

}  // namespace cli
