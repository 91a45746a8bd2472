#include "cli/notes.h"

#include <iostream>

namespace cli {

Notes::Notes() : stream_(&std::cerr) {}

void Notes::note(std::string_view text) {
  endProgress();
  *stream_ << "l2cpctl: " << text << std::endl;
}

void Notes::progress(std::string_view text) {
  using namespace std::chrono_literals;
  constexpr auto patience = 500ms;
  constexpr auto interval = 100ms;
  if (!terminal_) return;
  const Clock::time_point now = Clock::now();
  if (next_ == Clock::time_point::max()) next_ = now + patience;
  if (now < next_) return;
  next_ = now + interval;
  show(text);
}

void Notes::show(std::string_view text) {
  if (!terminal_) return;
  // In one row, which is all that is taken away later: what is too long for it does not wrap.
  *stream_ << "\x1b[?7l\r\x1b[K" << text << "\x1b[?7h" << std::flush;
  isShown_ = true;
}

void Notes::endProgress() {
  next_ = Clock::time_point::max();
  if (!isShown_) return;
  *stream_ << "\r\x1b[K" << std::flush;
  isShown_ = false;
}

}  // namespace cli
