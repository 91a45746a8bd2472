#include "cli/commands/frameBatch.h"

#include <fmt/format.h>

#include <utility>
#include <variant>

#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/value.h"

namespace cli {

namespace {

// As XDR's variable-length opaque data: a length, and the bytes up to a multiple of four.
constexpr std::size_t encodedSize(std::size_t size) {
  constexpr std::size_t unit = 4;
  return unit + (size + unit - 1) / unit * unit;
}

// A request's frames as they are encoded.
constexpr std::size_t mostBytes = encodedSize(CONTROL_FRAME_MAX);

capture::Reader opened(const std::string& path) {
  auto result = capture::Reader::open(path);
  if (const auto* error = std::get_if<capture::Error>(&result)) {
    throw LocalError(safeText(error->text));
  }
  return std::get<capture::Reader>(std::move(result));
}

}  // namespace

bool FrameBatch::fits(const capture::Frame& frame) const {
  return frames_.size() < mostFrames_ && bytes_ + encodedSize(frame.bytes.size()) <= mostBytes;
}

void FrameBatch::add(const capture::Frame& frame) {
  if (frame.bytes.size() > CONTROL_FRAME_MAX) {
    throw LocalError(fmt::format("frame {} has {} bytes; {} is the most that can be sent",
                                 frame.number, frame.bytes.size(), CONTROL_FRAME_MAX));
  }
  frames_.push_back({.number = frame.number, .bytes = {frame.bytes.begin(), frame.bytes.end()}});
  bytes_ += encodedSize(frame.bytes.size());
}

void FrameBatch::clear() {
  frames_.clear();
  bytes_ = 0;
}

std::vector<control_frame> FrameBatch::wire() {
  std::vector<control_frame> wire;
  wire.reserve(frames_.size());
  for (Frame& frame : frames_) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): XDR's opaque bytes are chars
    auto* bytes = reinterpret_cast<char*>(frame.bytes.data());
    wire.push_back({static_cast<u_int>(frame.bytes.size()), bytes});
  }
  return wire;
}

void FrameBatch::expectOneForEach(std::size_t answers, const char* whatTheyAre) const {
  if (answers == frames_.size()) return;
  throw NotReached(fmt::format("l2cpd answered with {} {} for {} frames; is it of another release?",
                               answers, whatTheyAre, frames_.size()));
}

FrameFile::FrameFile(const std::string& path) : reader_(opened(path)), name_(safeText(path)) {}

void FrameFile::forBatches(std::size_t mostFrames, const std::function<void(FrameBatch&)>& send,
                           Notes* notes) {
  FrameBatch batch(mostFrames);
  Progress progress(notes);
  const auto sendBatch = [&] {
    if (batch.empty()) return;
    if (isStopRequested()) throw LocalError("interrupted");
    send(batch);
    progress.at(fmt::format("{}: frame {}{}", name_, batch.frames().back().number, share()));
    batch.clear();
  };
  while (const auto frame = reader_.next()) {
    if (!batch.fits(*frame)) sendBatch();
    batch.add(*frame);
  }
  sendBatch();
}

std::string FrameFile::share() const {
  const std::optional<double> read = reader_.share();
  return read ? fmt::format(", {:.0f} %", *read * 100) : "";
}

void FrameFile::expectWhole() const {
  if (reader_.error() != nullptr) throw LocalError(safeText(reader_.error()->text));
}

}  // namespace cli
