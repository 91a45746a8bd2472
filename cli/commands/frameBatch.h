#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "classifier/capture.h"
#include "cli/notes.h"
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

  /// Whether the frame fits beside those that are there.
  bool fits(const capture::Frame& frame) const;
  /// Throws LocalError for a frame that no request carries.
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

/// A capture whose frames go to the daemon.
class FrameFile {
 public:
  /// Throws LocalError if it cannot be read as a capture.
  explicit FrameFile(const std::string& path);

  /// Hands all frames to `send` in batches, and tells how far that has got unless `notes` is null.
  /// Throws LocalError for a frame that no request carries.
  void forBatches(std::size_t mostFrames, const std::function<void(FrameBatch&)>& send,
                  Notes* notes);

  /// Throws LocalError if the file turned out to be damaged behind the frames that were sent.
  void expectWhole() const;

 private:
  std::string share() const;

  capture::Reader reader_;
  std::string name_;
};

}  // namespace cli
