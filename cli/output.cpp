#include "cli/output.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

namespace {

constexpr std::string_view columnGap = "  ";

std::string padding(std::string_view text, std::size_t width) {
  return fmt::format("{:{}}", "", width - std::min(width, characters(text)));
}

}  // namespace

void Output::text(std::string_view text) { stream_ << text; }

void Output::line(std::string_view text) { stream_ << text << '\n'; }

void Output::record(const std::vector<std::pair<std::string_view, std::string>>& fields) {
  std::size_t width = 0;
  for (const auto& [name, value] : fields) width = std::max(width, name.size());
  for (const auto& [name, value] : fields) {
    stream_ << name << padding(name, width) << columnGap << value << '\n';
  }
}

void Output::table(std::vector<Column> columns, const std::vector<Row>& rows) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    for (const Row& cells : rows) {
      columns[i].width = std::max(columns[i].width, characters(cells[i]));
    }
  }
  header(columns);
  for (const Row& cells : rows) row(columns, cells);
}

void Output::header(std::span<const Column> columns) {
  Row titles;
  for (const Column& column : columns) titles.emplace_back(column.title);
  row(columns, titles);
}

void Output::row(std::span<const Column> columns, const Row& cells) {
  std::string line;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Column& column = columns[i];
    const std::string fill = padding(cells[i], std::max(column.width, characters(column.title)));
    if (i != 0) line += columnGap;
    line += column.align == Column::Align::left ? cells[i] + fill : fill + cells[i];
  }
  line.erase(line.find_last_not_of(' ') + 1);
  stream_ << line << '\n';
}

void Output::flush() {
  stream_.flush();
  if (!stream_) throw LocalError("the output cannot be written");
}

}  // namespace cli
