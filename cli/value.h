#pragma once

/// Values as they are written on the command line and shown on the screen.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "rpc/l2cp.h"

namespace cli {

/// Bytes of the longest name of a protocol or a profile that a request can carry.
inline constexpr std::size_t longestName = 33;

/// What requests mean by "not matched".
inline constexpr std::uint16_t noEtherType = 0xffff;
inline constexpr std::uint8_t noSubType = 0xff;

/// What requests mean by "the whole port".
inline constexpr std::uint16_t wholePort = 4095;

using Mac = std::array<std::uint8_t, 6>;

// ---- From text ----
// `what` names the value in the UsageError that each of these throws for a text it does not take.

/// Whether the text is written as a number is: decimal digits, or 0x and hexadecimal digits.
bool isNumber(std::string_view text);

/// A number from `lowest` to `highest`.
std::uint32_t parseNumber(std::string_view text, std::string_view what, std::uint32_t lowest,
                          std::uint32_t highest);

/// aa:bb:cc:dd:ee:ff, aa-bb-cc-dd-ee-ff or aabb.ccdd.eeff in digits of either case, or "any", which
/// is the address of zeros.
Mac parseMac(std::string_view text);

/// A number, or "none" for the marker of what is not matched. The marker's own number is refused:
/// whoever writes it means to match it.
std::uint16_t parseEtherType(std::string_view text);
std::uint8_t parseSubType(std::string_view text);

/// A name of something that is there: up to `longest` bytes, whichever they are. Scripts and other
/// clients give names that this one would not give.
std::string parseName(std::string_view text, std::string_view what,
                      std::size_t longest = longestName);
/// A name that is to be given: not empty, and one that scripts can write, or it would not be saved.
std::string parseNewName(std::string_view text, std::string_view what,
                         std::size_t longest = longestName);

// ---- To text ----

/// The text with everything that could do more to a terminal than print as "\xNN", one for each
/// byte: control characters, marks that change the direction of writing, and bytes that are not
/// UTF-8.
std::string safeText(std::string_view text);

/// The same in quotation marks, within which those and backslashes are preceded by a backslash.
std::string quotedText(std::string_view text);

/// A name as it is shown: safe, and quoted if it is empty, has blanks, quotation marks or
/// backslashes, or is a lone "-", which stands for what is not there.
std::string nameText(std::string_view name);

/// The text as Unicode, with every byte that is not UTF-8 as "\xNN".
std::string unicodeText(std::string_view text);

/// The bytes as a word that a shell reads back: as they are, in '...', or in $'...' with every byte
/// that safeText would escape as three octal digits.
std::string shellText(std::string_view bytes);

/// "any" for zeros, else "01:80:c2:00:00:02".
std::string macText(const Mac& mac);
/// "none", or "0x88cc" and "0x01".
std::string etherTypeText(std::uint16_t etherType);
std::string subTypeText(std::uint8_t subType);
std::string ruleText(rpc_l2cp_rule rule);
/// "all" for the whole port.
std::string vlanText(std::uint16_t vid);
std::string_view yesNo(bool value);
/// "3 d 04:05:06", without the days if there are none.
std::string durationText(std::uint32_t seconds);
/// "2026-11-22T01:30:00Z"
std::string timeText(std::time_t time);

/// Characters of a valid UTF-8 text, for lining up columns.
std::size_t characters(std::string_view text);

}  // namespace cli
