#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/answer.h"
#include "cli/notes.h"

namespace cli {

enum class Format : std::uint8_t {
  table,       ///< for people
  oneLine,     ///< for the shell: a line of key=value for each thing
  json,        ///< for programs: a line
  prettyJson,  ///< the same, indented
};

/// What a stream of the program goes to.
enum class Sink : std::uint8_t {
  file,           ///< or a pipe: what is read back need not be safe for a terminal
  plainTerminal,  ///< knows no colours and is not drawn on
  terminal,
};

/// Everything that the program tells goes through here. A command gives one answer, with one of the
/// operations below, and leaves its form to them.
class Output {
 public:
  Output(std::ostream& stream, Format format, bool colours, Sink sink = Sink::plainTerminal,
         Notes notes = {})
      : stream_(stream), format_(format), colours_(colours), sink_(sink), notes_(notes) {}

  Notes& notes() { return notes_; }
  /// For progress beside answers that are given one by one: null where those go to a terminal, and
  /// tell as much there.
  Notes* notesBesideAnswers() { return sink_ == Sink::file ? &notes_ : nullptr; }

  /// Any number of things: in JSON an array of objects.
  void list(const Table& things);

  /// The single thing of a table, and what it has several of: in JSON an object, with an array for
  /// each part under its key. With parts, every line for the shell begins with the kind of the
  /// thing.
  void show(const Table& thing, std::span<const Table> parts = {});

  /// Things one by one, each as `show` with its parts has it: in JSON an array of objects.
  void beginEach();
  void each(const Table& thing, std::span<const Table> parts);
  void endEach();

  /// Text in lines: in JSON an object with an array of them.
  void lines(std::span<const std::string> lines);

  /// The same for lines of the command language, which can be read back from a file.
  void script(std::span<const std::string> lines);

  /// Things that are not known together, and then a single one: in JSON an object with an array and
  /// an object. Columns keep their given widths. The rows of the table itself are not looked at.
  void begin(const Table& things);
  void row(const Table& things, const Row& row);
  void end(const Table& thing);

  /// What is no answer, such as help, as it is in every format. The caller makes it safe.
  void text(std::string_view text);
  void line(std::string_view text);

  /// Writes out what is held back. Throws LocalError if that or any earlier writing failed.
  void flush();

  Format format() const { return format_; }
  bool colours() const { return colours_; }
  Sink sink() const { return sink_; }

 private:
  bool isJson() const { return format_ == Format::json || format_ == Format::prettyJson; }
  void record(const Table& thing);
  void withParts(const Table& thing, std::span<const Table> parts);
  void table(Table things);
  void header(std::span<const Column> columns);
  void cells(std::span<const Column> columns, const Row& row);
  void assignments(const Table& things, const Row& row, bool kindToo);
  std::string painted(std::string_view text, Style style) const;

  std::ostream& stream_;
  Format format_;
  bool colours_;
  Sink sink_;
  Notes notes_;
  bool hasRows_ = false;
};

}  // namespace cli
