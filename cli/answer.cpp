#include "cli/answer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "cli/value.h"

namespace cli {

Value nothing(std::string_view text, std::string_view word) {
  return {std::monostate{}, std::string(text), std::string(word)};
}

Value nameValue(std::string_view name) {
  return {unicodeText(name), nameText(name), std::string(name)};
}

Value nameOrNothing(std::string_view name) {
  return name.empty() ? nothing("-", "") : nameValue(name);
}

Value textValue(std::string_view text) {
  return {unicodeText(text), safeText(text), std::string(text)};
}

Value wordValue(std::string_view word, Style style) {
  return {std::string(word), std::string(word), std::string(word), style};
}

Value truthValue(bool truth) {
  const std::string text(yesNo(truth));
  return {truth, text, text};
}

Value numberValue(std::int64_t number) {
  const std::string text = std::to_string(number);
  return {number, text, text};
}

Value fractionValue(double number) {
  constexpr double hundred = 100;
  const double rounded = std::round(number * hundred) / hundred;
  const std::string text = fmt::format("{:.2f}", rounded);
  return {rounded, text, text};
}

Value numbersValue(std::vector<std::int64_t> numbers) {
  const std::string text = numbers.empty() ? "-" : fmt::format("{}", fmt::join(numbers, ", "));
  const std::string word = fmt::format("{}", fmt::join(numbers, " "));
  return {std::move(numbers), text, word};
}

Value durationValue(std::uint32_t seconds) {
  return {std::int64_t{seconds}, durationText(seconds), std::to_string(seconds)};
}

Value sinceValue(std::time_t time) {
  const std::string text = timeText(time);
  return {text, "since " + text, text};
}

Value macValue(const rpc_l2cp_mac_t& mac) {
  Mac bytes{};
  std::copy_n(mac.rpc_l2cp_mac_t_val, std::min<std::size_t>(mac.rpc_l2cp_mac_t_len, bytes.size()),
              bytes.begin());
  const std::string text = macText(bytes);
  if (bytes == Mac{}) return nothing(text, text);
  return wordValue(text, Style::yellow);
}

Value etherTypeValue(std::uint16_t etherType) {
  const std::string text = etherTypeText(etherType);
  if (etherType == noEtherType) return nothing(text, text);
  return {std::int64_t{etherType}, text, text};
}

Value subTypeValue(std::uint8_t subType) {
  const std::string text = subTypeText(subType);
  if (subType == noSubType) return nothing(text, text);
  return {std::int64_t{subType}, text, text};
}

Value vlanValue(std::uint16_t vid) {
  const std::string text = vlanText(vid);
  return vid == wholePort ? nothing(text, text) : numberValue(vid);
}

Value ruleValue(rpc_l2cp_rule rule) {
  switch (rule) {
    case RPC_L2CP_RULE_DISCARD:
      return wordValue(ruleText(rule), Style::red);
    case RPC_L2CP_RULE_PEER:
      return wordValue(ruleText(rule), Style::cyan);
    case RPC_L2CP_RULE_TUNNEL:
      return wordValue(ruleText(rule), Style::green);
    case RPC_L2CP_RULE_LOWEST:
    case RPC_L2CP_RULE_HIGHEST:
      break;
  }
  return wordValue(ruleText(rule));
}

}  // namespace cli
