#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/commands/frame.h"
#include "cli/commands/frameBatch.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

// Rows are shown as they come, so that widths are given.
const Table frameTable{"frame",
                       "frames",
                       {{"frame", Align::right, 6},
                        {"length", Align::right},
                        {"destination", Align::left, 17},
                        {"vlan", Align::right},
                        {"type", Align::left, 16},
                        {"fate", Align::left, 9},
                        {"entry", Align::right}},
                       {}};

// What a frame is too short to have is a dash.
Value fieldValue(const std::string& text) {
  return text == "-" ? nothing(text, "") : wordValue(text);
}

struct FateTotal {
  control_fate fate;
  std::string_view name;
  Style style;
  std::int64_t frames = 0;
};

class Feed {
 public:
  Feed(Context& context, std::uint32_t port) : context_(context), port_(port) {}

  // Sends frames and shows what became of them.
  void send(FrameBatch& batch) {
    std::vector<control_frame> wire = batch.wire();
    const auto result = context_.client.control<control_feed_1>(
        port_, control_frames{static_cast<u_int>(wire.size()), wire.data()});
    accept(result->error);
    const std::span verdicts(result->verdicts.verdicts_val, result->verdicts.verdicts_len);
    batch.expectOneForEach(verdicts.size(), "verdicts");
    for (std::size_t i = 0; i < verdicts.size(); ++i) show(batch.frames()[i], verdicts[i]);
    context_.output.flush();
  }

  void begin() {
    if (!quietly()) context_.output.begin(frameTable);
  }

  void end() {
    Table summary{"summary", "summaries", {}, {{}}};
    std::int64_t total = 0;
    for (const FateTotal& fate : totals_) {
      summary.columns.push_back({fate.name});
      summary.rows.front().push_back(numberValue(fate.frames));
      total += fate.frames;
    }
    summary.columns.push_back({"total"});
    summary.rows.front().push_back(numberValue(total));
    if (quietly()) {
      context_.output.show(summary);
    } else {
      context_.output.end(summary);
    }
  }

 private:
  FateTotal& totalOf(control_fate fate) {
    for (FateTotal& total : totals_) {
      if (total.fate == fate) return total;
    }
    throw NotReached(
        fmt::format("l2cpd answered with fate {}, which is unknown here; is it of another release?",
                    static_cast<int>(fate)));
  }

  void show(const FrameBatch::Frame& frame, const control_verdict& verdict) {
    FateTotal& total = totalOf(verdict.fate);
    ++total.frames;
    if (quietly()) return;
    const FrameText text = frameText(frame.bytes);
    context_.output.row(
        frameTable,
        {numberValue(static_cast<std::int64_t>(frame.number)),
         numberValue(static_cast<std::int64_t>(frame.bytes.size())), fieldValue(text.destination),
         text.vlan ? numberValue(*text.vlan) : nothing("-", ""), fieldValue(text.type),
         wordValue(total.name, total.style),
         verdict.met != FALSE ? numberValue(verdict.index) : nothing("-", "")});
  }

  bool quietly() const { return context_.options.quiet; }

  Context& context_;
  std::uint32_t port_;
  std::array<FateTotal, 4> totals_{{{CONTROL_FATE_DISCARD, "discard", Style::red},
                                    {CONTROL_FATE_PEER, "peer", Style::cyan},
                                    {CONTROL_FATE_TUNNEL, "tunnel", Style::green},
                                    {CONTROL_FATE_UNTOUCHED, "untouched", Style::plain}}};
};

void feed(Context& context) {
  const std::string portWord = context.words.take("PORT");
  const std::string path = context.words.take("FILE");
  context.words.end();
  FrameFile file(path);
  Output& output = context.output;
  Feed frames(context, portNumber(portWord, context.client));
  frames.begin();
  file.forBatches(
      CONTROL_FRAMES_MAX, [&](FrameBatch& batch) { frames.send(batch); },
      context.options.quiet ? &output.notes() : output.notesBesideAnswers());
  frames.end();
  file.expectWhole();
}

constexpr Command commands[] = {
    {"feed", "PORT FILE [-q]", "Lets the frames of a capture arrive on a port.",
     "FILE is a pcap or pcapng capture of Ethernet frames. Each is classified by the daemon and\n"
     "moves its counters as a frame from the wire would. Shown are its number and recorded length, "
     "its\n"
     "destination, outer VLAN id and type, what became of it, and the position of the entry that\n"
     "it met on the port (299 is the catch-all); at the end the frames of each fate:\n"
     "discard    the frame goes nowhere\n"
     "peer       it is handed to the switch itself and not forwarded\n"
     "tunnel     it is forwarded in its VLAN and not handed to the switch\n"
     "untouched  no rule is about it: the bridge's normal treatment\n"
     "With -q, only the summary is shown.",
     "l2cpctl feed 3 lldp.pcap", feed, true}};

}  // namespace

constinit const Noun feedNoun{"feed", "Let captured frames arrive on a port", commands};

}  // namespace cli
