#pragma once

/// The command language: what running configurations are written in, what the daemon replays when
/// it starts, and what operators type. A line is a command; how lines read depends on the mode that
/// an earlier one has entered.
///
///     l2protocol "NAME" mac MAC|any [ethertype 0xHHHH [subtype 0xHH]]
///     l2cp-profile NAME
///      protocol "NAME" rule discard|peer|tunnel
///     exit
///     vlan-profile NAME
///      interface NUMBER svid VID
///     exit
///     service-profile NAME
///      vlan-profile NAME
///      l2cp-profile NAME
///     exit
///     attach NAME port NUMBER [vlan VID]
///     apply NAME interface NUMBER
///
/// "no" and the beginning of a command, up to what identifies its object, undo it. Blanks separate
/// words; a name that has some is quoted. A quoted name ends at the quotation mark that a blank or
/// the end of the line follows, so that most names with quotation marks within can be written, but
/// not all. Lines that begin with "!" and empty lines say nothing. Control characters are refused.

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace script {

using Mac = std::array<std::uint8_t, 6>;

inline constexpr std::uint16_t noEtherType = 0xffff;
inline constexpr std::uint8_t noSubType = 0xff;
inline constexpr std::uint16_t wholePort = 4095;

/// The numbers are those of the wire.
enum class Rule : std::uint8_t { discard = 0, peer = 1, tunnel = 2 };

// ---- Commands ----

/// A line that says nothing.
struct Nothing {
  bool operator==(const Nothing&) const = default;
};
/// Leaves a mode.
struct Exit {
  bool operator==(const Exit&) const = default;
};

/// Makes a protocol or changes one. All zeros stand for any address.
struct Protocol {
  std::string name;
  Mac mac{};
  std::uint16_t etherType = noEtherType;
  std::uint8_t subType = noSubType;
  bool operator==(const Protocol&) const = default;
};
struct NoProtocol {
  std::string name;
  bool operator==(const NoProtocol&) const = default;
};

/// Makes the profile if it is not there, and enters its mode.
struct L2cpProfile {
  std::string name;
  bool operator==(const L2cpProfile&) const = default;
};
struct NoL2cpProfile {
  std::string name;
  bool operator==(const NoL2cpProfile&) const = default;
};
struct Entry {
  std::string profile;
  std::string protocol;
  Rule rule = Rule::discard;
  bool operator==(const Entry&) const = default;
};
struct NoEntry {
  std::string profile;
  std::string protocol;
  bool operator==(const NoEntry&) const = default;
};

struct VlanProfile {
  std::string name;
  bool operator==(const VlanProfile&) const = default;
};
struct NoVlanProfile {
  std::string name;
  bool operator==(const NoVlanProfile&) const = default;
};
struct Svid {
  std::string vlanProfile;
  std::int32_t interface = 0;
  std::uint16_t vid = 1;  ///< 1 to 4094
  bool operator==(const Svid&) const = default;
};
struct NoSvid {
  std::string vlanProfile;
  std::int32_t interface = 0;
  bool operator==(const NoSvid&) const = default;
};

struct ServiceProfile {
  std::string name;
  bool operator==(const ServiceProfile&) const = default;
};
struct NoServiceProfile {
  std::string name;
  bool operator==(const NoServiceProfile&) const = default;
};
/// The VLAN profile of a service profile; an empty name for none.
struct ServiceVlanProfile {
  std::string serviceProfile;
  std::string vlanProfile;
  bool operator==(const ServiceVlanProfile&) const = default;
};
/// The L2CP profile of a service profile; an empty name for none.
struct ServiceL2cpProfile {
  std::string serviceProfile;
  std::string l2cpProfile;
  bool operator==(const ServiceL2cpProfile&) const = default;
};

struct Attach {
  std::string profile;
  std::uint32_t port = 0;
  std::uint16_t vid = wholePort;
  bool operator==(const Attach&) const = default;
};
struct NoAttach {
  std::string profile;
  std::uint32_t port = 0;
  std::uint16_t vid = wholePort;
  bool operator==(const NoAttach&) const = default;
};
struct Apply {
  std::string serviceProfile;
  std::int32_t interface = 0;
  bool operator==(const Apply&) const = default;
};
struct NoApply {
  std::string serviceProfile;
  std::int32_t interface = 0;
  bool operator==(const NoApply&) const = default;
};

using Command =
    std::variant<Nothing, Exit, Protocol, NoProtocol, L2cpProfile, NoL2cpProfile, Entry, NoEntry,
                 VlanProfile, NoVlanProfile, Svid, NoSvid, ServiceProfile, NoServiceProfile,
                 ServiceVlanProfile, ServiceL2cpProfile, Attach, NoAttach, Apply, NoApply>;

// ---- Reading and writing ----

/// Why a line is no command. The text does not repeat the line and is safe to show.
class Problem : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Mode { configuration, l2cpProfile, vlanProfile, serviceProfile };

/// Understands line after line. Throws Problem for a line that it does not take; the mode is then
/// what it was before. One object reads one script.
class Reader {
 public:
  Command read(std::string_view line);

  Mode mode() const { return mode_; }
  /// The object whose mode this is; empty at configuration level.
  const std::string& name() const { return name_; }

 private:
  Mode mode_ = Mode::configuration;
  std::string name_;
};

/// Whether a command enters a mode.
bool entersMode(const Command& command);

/// A whole script: its commands, without those that say nothing, and what is no command. Commands
/// in a mode that such a line was to enter are left out and counted.
struct Script {
  struct Statement {
    std::size_t line;  ///< from 1
    Command command;
  };
  struct Mistake {
    std::size_t line;
    std::string reason;
  };
  std::vector<Statement> statements;
  std::vector<Mistake> mistakes;
  std::size_t leftOut = 0;
};

/// Reads to the end. What the stream says about reading is the caller's to look at.
Script parse(std::istream& lines);

/// A name as commands write it: in quotation marks if it has blanks or could be taken for something
/// else.
std::string nameText(std::string_view name);

/// Whether commands can write a name so that it reads back. They cannot if it has a quotation mark
/// before a blank and has to be quoted, or a control character.
bool isWritable(std::string_view name);

/// The words of a line. Throws Problem for a control character or a quotation without end.
std::vector<std::string> split(std::string_view line);

/// A comment's text, with control characters as \xNN.
std::string comment(std::string_view text);

/// The comment that stands in the place of a line that cannot be written.
std::string leftOut(std::string_view reason, std::string_view line);

/// The line of a command, indented by one blank in a mode. Reading it back in that mode gives the
/// command again, unless a name in it cannot be written.
std::string text(const Command& command);

/// Writes command after command so that nothing else can be read, whatever their names hold: in the
/// place of a line that does not read back as its command, and of those in a mode that such a line
/// was to enter, stands a comment.
class LineWriter {
 public:
  std::string line(const Command& command);

 private:
  std::string problemOf(const Command& command, const std::string& line);

  Reader reader_;
  bool skipping_ = false;  ///< in a mode that was not entered
};

}  // namespace script
