#include "cli/output.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view columnGap = "  ";

// ---- For people ----

// Parameters of "select graphic rendition" (ECMA-48, 8.3.117).
std::string_view parameterOf(Style style) {
  switch (style) {
    case Style::plain:
      break;
    case Style::bold:
      return "1";
    case Style::red:
      return "31";
    case Style::green:
      return "32";
    case Style::yellow:
      return "33";
    case Style::cyan:
      return "36";
  }
  return "";
}

std::string padding(std::string_view text, std::size_t width) {
  return fmt::format("{:{}}", "", width - std::min(width, characters(text)));
}

std::string labelOf(std::string_view key) {
  std::string label(key);
  std::replace(label.begin(), label.end(), '_', '-');
  return label;
}

std::string titleOf(std::string_view key) {
  std::string title = labelOf(key);
  for (char& c : title) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return title;
}

// ---- For programs ----

struct ToJson {
  Json operator()(std::monostate /*nothing*/) const { return nullptr; }
  Json operator()(bool truth) const { return truth; }
  Json operator()(std::int64_t number) const { return number; }
  Json operator()(double number) const { return number; }
  Json operator()(const std::string& text) const { return text; }
  Json operator()(const std::vector<std::int64_t>& numbers) const { return numbers; }
};

Json objectOf(std::span<const Column> columns, const Row& row) {
  Json object = Json::object();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    object[std::string(columns[i].key)] = std::visit(ToJson{}, row[i].data);
  }
  return object;
}

Json arrayOf(const Table& things) {
  Json array = Json::array();
  for (const Row& row : things.rows) array.push_back(objectOf(things.columns, row));
  return array;
}

Json objectOf(const Table& thing, std::span<const Table> parts) {
  Json object = objectOf(thing.columns, thing.rows.front());
  for (const Table& part : parts) object[std::string(part.many)] = arrayOf(part);
  return object;
}

// With everything beyond ASCII escaped, so that a terminal cannot be harmed by it either.
std::string textOf(const Json& json, Format format, std::size_t depth = 0) {
  constexpr int indentation = 2;
  std::string text = json.dump(format == Format::prettyJson ? indentation : -1, ' ', true);
  const std::string lineEnd = '\n' + std::string(depth * indentation, ' ');
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += lineEnd.size()) {
    text.replace(at, 1, lineEnd);
  }
  return text;
}

}  // namespace

void Output::text(std::string_view text) { stream_ << text; }

void Output::line(std::string_view text) { stream_ << text << '\n'; }

void Output::list(const Table& things) {
  switch (format_) {
    case Format::table:
      return table(things);
    case Format::oneLine:
      for (const Row& row : things.rows) assignments(things, row, false);
      return;
    case Format::json:
    case Format::prettyJson:
      return line(textOf(arrayOf(things), format_));
  }
}

void Output::show(const Table& thing, std::span<const Table> parts) {
  if (isJson()) return line(textOf(objectOf(thing, parts), format_));
  withParts(thing, parts);
}

void Output::withParts(const Table& thing, std::span<const Table> parts) {
  if (format_ == Format::oneLine) {
    assignments(thing, thing.rows.front(), !parts.empty());
    for (const Table& part : parts) {
      for (const Row& row : part.rows) assignments(part, row, true);
    }
    return;
  }
  record(thing);
  for (const Table& part : parts) {
    line("");
    table(part);
  }
}

void Output::beginEach() {
  hasRows_ = false;
  if (isJson()) text("[");
}

void Output::each(const Table& thing, std::span<const Table> parts) {
  if (isJson()) {
    text(hasRows_ ? "," : "");
    text(format_ == Format::prettyJson ? "\n  " : "");
    text(textOf(objectOf(thing, parts), format_, 1));
  } else {
    if (hasRows_ && format_ == Format::table) line("");
    withParts(thing, parts);
  }
  hasRows_ = true;
}

void Output::endEach() {
  if (isJson()) line(hasRows_ && format_ == Format::prettyJson ? "\n]" : "]");
}

void Output::lines(std::span<const std::string> lines) {
  if (isJson()) {
    Json array = Json::array();
    for (const std::string& each : lines) array.push_back(unicodeText(each));
    return line(textOf({{"lines", array}}, format_));
  }
  for (const std::string& each : lines) {
    line(format_ == Format::oneLine ? "line=" + shellText(each) : safeText(each));
  }
}

void Output::script(std::span<const std::string> lines) {
  if (format_ != Format::table || sink_ != Sink::file) return this->lines(lines);
  for (const std::string& each : lines) line(each);
}

void Output::begin(const Table& things) {
  hasRows_ = false;
  switch (format_) {
    case Format::table:
      return header(things.columns);
    case Format::oneLine:
      return;
    case Format::json:
      return text(fmt::format("{{\"{}\":[", things.many));
    case Format::prettyJson:
      return text(fmt::format("{{\n  \"{}\": [", things.many));
  }
}

void Output::row(const Table& things, const Row& row) {
  constexpr std::size_t depth = 2;
  switch (format_) {
    case Format::table:
      cells(things.columns, row);
      break;
    case Format::oneLine:
      assignments(things, row, true);
      break;
    case Format::json:
    case Format::prettyJson:
      text(hasRows_ ? "," : "");
      text(format_ == Format::prettyJson ? "\n    " : "");
      text(textOf(objectOf(things.columns, row), format_, depth));
  }
  hasRows_ = true;
}

void Output::end(const Table& thing) {
  const Row& row = thing.rows.front();
  switch (format_) {
    case Format::table:
      line("");
      return record(thing);
    case Format::oneLine:
      return assignments(thing, row, true);
    case Format::json:
      return line(
          fmt::format("],\"{}\":{}}}", thing.one, textOf(objectOf(thing.columns, row), format_)));
    case Format::prettyJson:
      return line(fmt::format("{}],\n  \"{}\": {}\n}}", hasRows_ ? "\n  " : "", thing.one,
                              textOf(objectOf(thing.columns, row), format_, 1)));
  }
}

void Output::record(const Table& thing) {
  std::size_t width = 0;
  for (const Column& column : thing.columns) width = std::max(width, column.key.size());
  for (std::size_t i = 0; i < thing.columns.size(); ++i) {
    const std::string label = labelOf(thing.columns[i].key);
    const Value& value = thing.rows.front()[i];
    stream_ << painted(label, Style::bold) << padding(label, width) << columnGap
            << painted(value.text, value.style) << '\n';
  }
}

void Output::table(Table things) {
  for (std::size_t i = 0; i < things.columns.size(); ++i) {
    Column& column = things.columns[i];
    for (const Row& row : things.rows) {
      column.width = std::max(column.width, characters(row[i].text));
    }
  }
  header(things.columns);
  for (const Row& row : things.rows) cells(things.columns, row);
}

void Output::header(std::span<const Column> columns) {
  Row titles;
  for (const Column& column : columns)
    titles.push_back(wordValue(titleOf(column.key), Style::bold));
  cells(columns, titles);
}

void Output::cells(std::span<const Column> columns, const Row& row) {
  std::string line;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Column& column = columns[i];
    const std::string fill = padding(row[i].text, std::max(column.width, characters(column.key)));
    const std::string cell = painted(row[i].text, row[i].style);
    if (i != 0) line += columnGap;
    line += column.align == Align::left ? cell + fill : fill + cell;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  stream_ << line << '\n';
}

void Output::assignments(const Table& things, const Row& row, bool kindToo) {
  std::string line = kindToo ? fmt::format("kind={}", things.one) : "";
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (!line.empty()) line += ' ';
    line += fmt::format("{}={}", things.columns[i].key, shellText(row[i].word));
  }
  stream_ << line << '\n';
}

std::string Output::painted(std::string_view text, Style style) const {
  if (!colours_ || style == Style::plain) return std::string(text);
  return fmt::format("\x1b[{}m{}\x1b[0m", parameterOf(style), text);
}

void Output::flush() {
  stream_.flush();
  if (!stream_) throw LocalError("the output cannot be written");
}

}  // namespace cli
