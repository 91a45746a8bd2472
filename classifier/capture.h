#pragma once

/// Capture files, read frame by frame.

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>

struct pcap;

namespace capture {

/// Why a capture cannot be read, in one line that names the file.
struct Error {
  std::string text;
};

struct Frame {
  /// Counted from 1.
  std::uint64_t number;
  /// As far as the frame was recorded. Valid until the next frame is read.
  std::span<const std::uint8_t> bytes;
};

/// Reads a pcap or pcapng file of Ethernet frames from its beginning to its end.
///
///     auto opened = capture::Reader::open(path);
///     if (const auto* error = std::get_if<capture::Error>(&opened)) return report(error->text);
///     auto& reader = std::get<capture::Reader>(opened);
///     while (const auto frame = reader.next()) use(frame->bytes);
///     if (reader.error()) report(reader.error()->text);
class Reader {
 public:
  /// Fails when the file is missing or unreadable, is not a capture, or was not recorded on
  /// Ethernet.
  static std::variant<Reader, Error> open(const std::string& path);

  /// The next frame; nothing at the end of the file or where it turns out to be damaged.
  std::optional<Frame> next();

  /// Why `next` stopped before the end of the file: null when it did not.
  const Error* error() const { return error_ ? &*error_ : nullptr; }

  /// How much of the file has been read, from 0 to 1: nothing of what has no size, such as a pipe.
  std::optional<double> share() const;

 private:
  struct Close {
    void operator()(pcap* file) const;
  };
  using File = std::unique_ptr<pcap, Close>;

  Reader(std::string path, File file) : path_(std::move(path)), file_(std::move(file)) {}

  std::string path_;
  File file_;
  std::uint64_t frames_ = 0;
  std::optional<Error> error_;
};

}  // namespace capture
