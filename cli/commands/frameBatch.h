#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "classifier/capture.h"
#include "host/control.h"

namespace cli {

/// Frames on their way to the daemon: as many as a request can carry.
class FrameBatch {
 public:
  struct Frame {
    std::uint64_t number;
    std::vector<std::uint8_t> bytes;
  };

  explicit FrameBatch(std::size_t mostFrames) : mostFrames_(mostFrames) {}

  /// Whether the frame fits beside those that are there. One fits always. Throws LocalError for a
  /// frame that no request carries.
  bool fits(const capture::Frame& frame) const;
  void add(const capture::Frame& frame);
  void clear();

  bool empty() const { return frames_.empty(); }
  const std::vector<Frame>& frames() const { return frames_; }
  /// As the stubs take them, good until the batch changes.
  std::vector<control_frame> wire();

  /// Throws NotReached if the daemon's answer is not one for each frame.
  void expectOneForEach(std::size_t answers, const char* whatTheyAre) const;

 private:
  std::size_t mostFrames_;
  std::vector<Frame> frames_;
  std::size_t bytes_ = 0;
};

}  // namespace cli
