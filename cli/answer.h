#pragma once

/// What commands answer: things of some kind, whose fields are described once for every format in
/// which they can be shown.

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "rpc/l2cp.h"

namespace cli {

// ---- Values ----

/// How a terminal that can do it shows a text.
enum class Style : std::uint8_t { plain, bold, red, green, yellow, cyan };

/// A value, for people and for programs.
struct Value {
  using Data = std::variant<std::monostate, bool, std::int64_t, double, std::string,
                            std::vector<std::int64_t>>;

  Data data;         ///< in JSON; text in UTF-8
  std::string text;  ///< in a table; safe to show
  std::string word;  ///< in a line for the shell, before it is quoted
  Style style = Style::plain;
};

/// What is not there. JSON has null for it.
Value nothing(std::string_view text, std::string_view word);
Value nameValue(std::string_view name);
/// A name, or nothing where it is empty.
Value nameOrNothing(std::string_view name);
/// Any text from the daemon.
Value textValue(std::string_view text);
/// A word of the program's own, or a sentence in which texts from outside are made safe already.
Value wordValue(std::string_view word, Style style = Style::plain);
Value truthValue(bool truth);
Value numberValue(std::int64_t number);
/// Rounded to hundredths.
Value fractionValue(double number);
Value numbersValue(std::vector<std::int64_t> numbers);
Value durationValue(std::uint32_t seconds);
/// When something began that goes on.
Value sinceValue(std::time_t time);
/// Nothing for any address, for what is not matched, for the whole port.
Value macValue(const rpc_l2cp_mac_t& mac);
Value etherTypeValue(std::uint16_t etherType);
Value subTypeValue(std::uint8_t subType);
Value vlanValue(std::uint16_t vid);
Value ruleValue(rpc_l2cp_rule rule);

// ---- Tables ----

enum class Align : std::uint8_t { left, right };

struct Column {
  /// Lower-case words with "_" between them: the key in JSON and the variable in the shell. People
  /// see it with "-", in capitals above a column.
  std::string_view key;
  Align align = Align::left;
  std::size_t width = 0;  ///< at least
};

using Row = std::vector<Value>;

/// Things of one kind, a row for each.
struct Table {
  std::string_view one;   ///< what one of them is called, as in a key
  std::string_view many;  ///< and several
  std::vector<Column> columns;
  std::vector<Row> rows;
};

// ---- Kinds of things ----

template <class Thing>
struct Field {
  Column column;
  Value (*value)(const Thing&);
};

/// What there is to show of things of one kind.
template <class Thing>
struct Kind {
  std::string_view one;
  std::string_view many;
  std::span<const Field<Thing>> fields;
};

template <class Thing>
Row rowOf(const Kind<Thing>& kind, const Thing& thing) {
  Row row;
  for (const Field<Thing>& field : kind.fields) row.push_back(field.value(thing));
  return row;
}

template <class Thing>
Table tableOf(const Kind<Thing>& kind, std::type_identity_t<std::span<const Thing>> things) {
  Table table{kind.one, kind.many, {}, {}};
  for (const Field<Thing>& field : kind.fields) table.columns.push_back(field.column);
  for (const Thing& thing : things) table.rows.push_back(rowOf(kind, thing));
  return table;
}

template <class Thing>
Table tableOf(const Kind<Thing>& kind, const std::type_identity_t<Thing>& thing) {
  return tableOf(kind, std::span(&thing, 1));
}

}  // namespace cli
