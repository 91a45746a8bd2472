#pragma once

#include <cstddef>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cli {

/// A column of a table: its title and the least width of its cells.
struct Column {
  enum class Align { left, right };

  std::string_view title;
  Align align = Align::left;
  std::size_t width = 0;
};

using Row = std::vector<std::string>;

/// Everything that the program tells goes through here. Texts are taken as they are: whoever shows
/// a text that came over the wire makes it safe first.
class Output {
 public:
  explicit Output(std::ostream& stream) : stream_(stream) {}

  /// Text as it is, without a line end of its own.
  void text(std::string_view text);
  void line(std::string_view text);

  /// Names and values, one below the other.
  void record(const std::vector<std::pair<std::string_view, std::string>>& fields);

  /// A header line and the rows, every column as wide as its widest cell.
  void table(std::vector<Column> columns, const std::vector<Row>& rows);

  /// The parts of a table whose rows are not known together: columns keep their given widths.
  void header(std::span<const Column> columns);
  void row(std::span<const Column> columns, const Row& cells);

  /// Writes out what is held back. Throws LocalError if that or any earlier writing failed.
  void flush();

 private:
  std::ostream& stream_;
};

}  // namespace cli
