#include "cli/commands/frameBatch.h"

#include <fmt/format.h>

#include "cli/failure.h"

namespace cli {

namespace {

// As XDR's variable-length opaque data: a length, and the bytes up to a multiple of four.
constexpr std::size_t encodedSize(std::size_t size) {
  constexpr std::size_t unit = 4;
  return unit + (size + unit - 1) / unit * unit;
}

// A request's frames as they are encoded.
constexpr std::size_t mostBytes = encodedSize(CONTROL_FRAME_MAX);

}  // namespace

bool FrameBatch::fits(const capture::Frame& frame) const {
  if (frame.bytes.size() > CONTROL_FRAME_MAX) {
    throw LocalError(fmt::format("frame {} has {} bytes; {} is the most that can be sent",
                                 frame.number, frame.bytes.size(), CONTROL_FRAME_MAX));
  }
  return frames_.size() < mostFrames_ && bytes_ + encodedSize(frame.bytes.size()) <= mostBytes;
}

void FrameBatch::add(const capture::Frame& frame) {
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

}  // namespace cli
