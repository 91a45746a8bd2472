#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>
#include <optional>
#include <utility>

#include "script/script.h"

namespace script {

namespace {

constexpr std::string_view blanks = " \t";

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20 && c != '\t') || byte == 0x7f;
}

// The words of a line, taken from the front.
class Words {
 public:
  explicit Words(std::string_view line) : words_(split(line)) {}

  bool empty() const { return next_ == words_.size(); }
  std::size_t count() const { return words_.size(); }

  bool takeIf(std::string_view word) {
    if (empty() || words_[next_] != word) return false;
    ++next_;
    return true;
  }

  const std::string& take(std::string_view what) {
    if (empty()) throw Problem(fmt::format("{} is missing", what));
    return words_[next_++];
  }

  void expect(std::string_view word) {
    if (!takeIf(word)) throw Problem(fmt::format("\"{}\" is missing", word));
  }

  void end() const {
    if (!empty()) throw Problem("there are words too many");
  }

 private:
  std::vector<std::string> words_;
  std::size_t next_ = 0;
};

std::uint32_t number(const std::string& word, std::string_view what, std::uint32_t lowest,
                     std::uint32_t highest) {
  const bool hexadecimal = word.starts_with("0x") || word.starts_with("0X");
  const char* const begin = word.data() + (hexadecimal ? 2 : 0);
  const char* const end = word.data() + word.size();
  std::uint32_t value = 0;
  const auto [stop, error] = std::from_chars(begin, end, value, hexadecimal ? 16 : 10);
  if (error != std::errc() || stop != end || value < lowest || value > highest) {
    throw Problem(fmt::format("{} is not a number from {} to {}", what, lowest, highest));
  }
  return value;
}

std::uint32_t port(Words& words) {
  return number(words.take("the port"), "the port", 0, std::numeric_limits<std::uint32_t>::max());
}

std::int32_t interface(Words& words) {
  constexpr auto highest = static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());
  return static_cast<std::int32_t>(
      number(words.take("the interface"), "the interface", 0, highest));
}

std::uint16_t vid(Words& words, std::uint16_t lowest, std::uint16_t highest) {
  return static_cast<std::uint16_t>(
      number(words.take("the VLAN id"), "the VLAN id", lowest, highest));
}

std::uint16_t vlan(Words& words) {
  return words.takeIf("vlan") ? vid(words, 0, std::numeric_limits<std::uint16_t>::max())
                              : wholePort;
}

Mac mac(const std::string& word) {
  if (word == "any") return {};
  constexpr const char* what = "the MAC is not \"any\" or six bytes like 01:80:c2:00:00:0e";
  constexpr std::size_t length = 17;
  Mac bytes{};
  if (word.size() != length) throw Problem(what);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* const begin = word.data() + 3 * i;
    const auto [stop, error] = std::from_chars(begin, begin + 2, bytes[i], 16);
    if (error != std::errc() || stop != begin + 2) throw Problem(what);
    if (i != 0 && word[3 * i - 1] != ':') throw Problem(what);
  }
  return bytes;
}

Rule rule(const std::string& word) {
  if (word == "discard") return Rule::discard;
  if (word == "peer") return Rule::peer;
  if (word == "tunnel") return Rule::tunnel;
  throw Problem("the rule is not \"discard\", \"peer\" or \"tunnel\"");
}

Protocol protocol(Words& words) {
  Protocol command;
  command.name = words.take("the protocol's name");
  words.expect("mac");
  command.mac = mac(words.take("the MAC"));
  if (words.takeIf("ethertype")) {
    command.etherType = static_cast<std::uint16_t>(
        number(words.take("the EtherType"), "the EtherType", 0, noEtherType));
    if (words.takeIf("subtype")) {
      command.subType =
          static_cast<std::uint8_t>(number(words.take("the subtype"), "the subtype", 0, noSubType));
    }
  }
  return command;
}

template <class Attachment>
Attachment attachment(Words& words) {
  Attachment command;
  command.profile = words.take("the profile's name");
  words.expect("port");
  command.port = port(words);
  command.vid = vlan(words);
  return command;
}

template <class Application>
Application application(Words& words) {
  Application command;
  command.serviceProfile = words.take("the service profile's name");
  words.expect("interface");
  command.interface = interface(words);
  return command;
}

[[noreturn]] void unknown(bool undo, std::string_view choices) {
  throw Problem(fmt::format("{}expected one of {}", undo ? "behind \"no\": " : "", choices));
}

Command inConfiguration(Words& words) {
  const bool undo = words.takeIf("no");
  if (words.takeIf("l2protocol")) {
    if (!undo) return protocol(words);
    return NoProtocol{words.take("the protocol's name")};
  }
  const auto named = [&](auto make, auto undone) -> Command {
    using Make = decltype(make);
    using Undone = decltype(undone);
    std::string name = words.take("the profile's name");
    if (undo) return Undone{std::move(name)};
    return Make{std::move(name)};
  };
  if (words.takeIf("l2cp-profile")) return named(L2cpProfile{}, NoL2cpProfile{});
  if (words.takeIf("vlan-profile")) return named(VlanProfile{}, NoVlanProfile{});
  if (words.takeIf("service-profile")) return named(ServiceProfile{}, NoServiceProfile{});
  if (words.takeIf("attach")) {
    if (undo) return attachment<NoAttach>(words);
    return attachment<Attach>(words);
  }
  if (words.takeIf("apply")) {
    if (undo) return application<NoApply>(words);
    return application<Apply>(words);
  }
  unknown(undo, "l2protocol, l2cp-profile, vlan-profile, service-profile, attach, apply");
}

Command inL2cpProfile(Words& words, const std::string& profile) {
  const bool undo = words.takeIf("no");
  if (!words.takeIf("protocol")) unknown(undo, "protocol, exit");
  std::string name = words.take("the protocol's name");
  if (undo) return NoEntry{profile, std::move(name)};
  words.expect("rule");
  return Entry{profile, std::move(name), rule(words.take("the rule"))};
}

Command inVlanProfile(Words& words, const std::string& profile) {
  constexpr std::uint16_t lowestVid = 1;
  constexpr std::uint16_t highestVid = 4094;
  const bool undo = words.takeIf("no");
  if (!words.takeIf("interface")) unknown(undo, "interface, exit");
  const std::int32_t where = interface(words);
  if (undo) return NoSvid{profile, where};
  words.expect("svid");
  return Svid{profile, where, vid(words, lowestVid, highestVid)};
}

Command inServiceProfile(Words& words, const std::string& profile) {
  const bool undo = words.takeIf("no");
  const auto other = [&] { return undo ? std::string() : words.take("the profile's name"); };
  if (words.takeIf("vlan-profile")) return ServiceVlanProfile{profile, other()};
  if (words.takeIf("l2cp-profile")) return ServiceL2cpProfile{profile, other()};
  unknown(undo, "vlan-profile, l2cp-profile, exit");
}

}  // namespace

std::vector<std::string> split(std::string_view line) {
  if (std::any_of(line.begin(), line.end(), isControl)) {
    throw Problem("there is a control character in the line");
  }
  std::vector<std::string> words;
  for (;;) {
    const std::size_t begin = line.find_first_not_of(blanks);
    if (begin == std::string_view::npos) return words;
    line.remove_prefix(begin);
    if (line.front() != '"') {
      const std::size_t length = std::min(line.find_first_of(blanks), line.size());
      words.emplace_back(line.substr(0, length));
      line.remove_prefix(length);
      continue;
    }
    line.remove_prefix(1);
    std::size_t length = line.find('"');
    while (length != std::string_view::npos && length + 1 < line.size() &&
           blanks.find(line[length + 1]) == std::string_view::npos) {
      length = line.find('"', length + 1);
    }
    if (length == std::string_view::npos) throw Problem("a quotation does not end");
    words.emplace_back(line.substr(0, length));
    line.remove_prefix(length + 1);
  }
}

Command Reader::read(std::string_view line) {
  const std::size_t begin = line.find_first_not_of(blanks);
  if (begin != std::string_view::npos && line[begin] == '!') return Nothing{};
  Words words(line);
  if (words.empty()) return Nothing{};
  if (mode_ != Mode::configuration && words.takeIf("exit")) {
    words.end();
    mode_ = Mode::configuration;
    name_.clear();
    return Exit{};
  }

  Command command;
  switch (mode_) {
    case Mode::configuration:
      command = inConfiguration(words);
      break;
    case Mode::l2cpProfile:
      command = inL2cpProfile(words, name_);
      break;
    case Mode::vlanProfile:
      command = inVlanProfile(words, name_);
      break;
    case Mode::serviceProfile:
      command = inServiceProfile(words, name_);
      break;
  }
  words.end();

  const auto enter = [&](Mode mode, const std::string& name) {
    mode_ = mode;
    name_ = name;
  };
  if (const auto* profile = std::get_if<L2cpProfile>(&command)) {
    enter(Mode::l2cpProfile, profile->name);
  } else if (const auto* vlanProfile = std::get_if<VlanProfile>(&command)) {
    enter(Mode::vlanProfile, vlanProfile->name);
  } else if (const auto* serviceProfile = std::get_if<ServiceProfile>(&command)) {
    enter(Mode::serviceProfile, serviceProfile->name);
  }
  return command;
}

}  // namespace script
