#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/commands/entry.h"
#include "cli/commands/frame.h"
#include "cli/commands/frameBatch.h"
#include "cli/failure.h"
#include "cli/place.h"
#include "cli/value.h"

namespace cli {

namespace {

using Entries = std::span<const control_entry>;

// How far down a port's entries a frame came.
struct Path {
  Entries entries;
  std::span<const control_miss> misses;

  const control_entry* met() const {
    return misses.size() < entries.size() ? &entries[misses.size()] : nullptr;
  }
};

Path pathOf(const control_explain_result& result, const control_explanation& explanation) {
  const Path path{{result.entries.entries_val, result.entries.entries_len},
                  {explanation.misses.misses_val, explanation.misses.misses_len}};
  bool fits = path.misses.size() <= path.entries.size();
  for (std::size_t i = 0; fits && i < path.misses.size(); ++i) {
    fits = path.misses[i].condition < path.entries[i].conditions.conditions_len;
  }
  if (!fits) {
    throw NotReached("l2cpd answered with more than its entries have; is it of another release?");
  }
  return path;
}

Table frameThing(const FrameBatch::Frame& frame, control_fate fate, const Path& path) {
  const FrameText text = frameText(frame.bytes);
  const auto field = [](const std::string& of) {
    return of == "-" ? nothing(of, "") : wordValue(of);
  };
  const control_entry* met = path.met();
  const auto ofMet = [met](Value (*value)(const control_entry&)) {
    return met == nullptr ? nothing("-", "") : value(*met);
  };
  return {"frame",
          "frames",
          {{"frame"},
           {"length"},
           {"destination"},
           {"vlan"},
           {"type"},
           {"fate"},
           {"entry"},
           {"profile"},
           {"protocol"}},
          {{numberValue(static_cast<std::int64_t>(frame.number)),
            numberValue(static_cast<std::int64_t>(frame.bytes.size())), field(text.destination),
            text.vlan ? numberValue(*text.vlan) : nothing("-", ""), field(text.type),
            fateValue(fate), met == nullptr ? nothing("-", "") : numberValue(met->index),
            ofMet(&profileValue), ofMet(&protocolValue)}}};
}

// The entries on the frame's way, and what it did at each.
Table entryTable(const Path& path) {
  Table table{"entry",
              "entries",
              {{"entry", Align::right},
               {"profile"},
               {"protocol"},
               {"vlan", Align::right},
               {"fate"},
               {"result"},
               {"condition"},
               {"expected"},
               {"found"}},
              {}};
  const auto add = [&table](const control_entry& entry, Value result, Value condition,
                            Value expected, Value found) {
    table.rows.push_back({numberValue(entry.index), profileValue(entry), protocolValue(entry),
                          attachedVlanValue(entry), fateValue(entry.fate), std::move(result),
                          std::move(condition), std::move(expected), std::move(found)});
  };
  for (std::size_t i = 0; i < path.misses.size(); ++i) {
    const control_entry& entry = path.entries[i];
    const control_miss& miss = path.misses[i];
    const control_condition& condition = entry.conditions.conditions_val[miss.condition];
    add(entry, wordValue("missed"), wordValue(conditionName(condition)),
        wordValue(expectedText(condition)), foundValue(condition, miss.found));
  }
  const Value none = nothing("-", "");
  if (const control_entry* met = path.met()) {
    add(*met, wordValue("met", Style::bold), none, none, none);
  }
  return table;
}

Value counterNameValue(const CounterName& name, const control_entry_counter& counter) {
  if (name.kind.empty()) return nameValue(counter.name);
  const bool all = name.kind == "vlan" && name.name == std::to_string(wholePort);
  return all ? wordValue(vlanText(wholePort)) : nameValue(name.name);
}

Table counterTable(const Path& path) {
  Table table{
      "counter", "counters", {{"counter"}, {"name"}, {"rule"}, {"increment", Align::right}}, {}};
  const control_entry* met = path.met();
  if (met == nullptr) return table;
  for (const auto& counter : std::span(met->counters.counters_val, met->counters.counters_len)) {
    const CounterName name = counterName(counter.title);
    const bool known = !name.kind.empty();
    table.rows.push_back(
        {known ? wordValue(name.kind) : nothing("-", ""), counterNameValue(name, counter),
         known ? wordValue(name.rule) : nothing("-", ""), numberValue(counter.increment)});
  }
  return table;
}

void explainBatch(FrameBatch& batch, std::uint32_t port, Context& context) {
  std::vector<control_frame> wire = batch.wire();
  const auto result = context.client.control<control_explain_1>(
      port, control_explained_frames{static_cast<u_int>(wire.size()), wire.data()});
  const std::span explanations(result->explanations.explanations_val,
                               result->explanations.explanations_len);
  batch.expectOneForEach(explanations.size(), "explanations");
  for (std::size_t i = 0; i < explanations.size(); ++i) {
    const Path path = pathOf(*result, explanations[i]);
    const Table parts[] = {entryTable(path), counterTable(path)};
    context.output.each(frameThing(batch.frames()[i], explanations[i].fate, path), parts);
  }
  context.output.flush();
}

void explainFrame(Context& context, const std::string& portWord) {
  std::string digits = context.words.take("DIGITS");
  while (!context.words.empty()) digits += ' ' + context.words.take("DIGITS");
  const std::vector<std::uint8_t> bytes = parseFrame(digits);
  const std::uint32_t port = portNumber(portWord, context.client);
  FrameBatch batch(1);
  batch.add({.number = 1, .bytes = bytes});
  context.output.beginEach();
  explainBatch(batch, port, context);
  context.output.endEach();
}

void explainCapture(Context& context, const std::string& portWord) {
  const std::string path = context.words.take("FILE");
  context.words.end();
  FrameFile file(path);
  const std::uint32_t port = portNumber(portWord, context.client);
  context.output.beginEach();
  file.forBatches(
      CONTROL_EXPLAINED_MAX, [&](FrameBatch& batch) { explainBatch(batch, port, context); },
      context.output.notesBesideAnswers());
  context.output.endEach();
  file.expectWhole();
}

void explain(Context& context) {
  const std::string portWord = context.words.take("PORT");
  if (context.words.size() > 1 && context.words.takeIf("hex")) {
    explainFrame(context, portWord);
  } else {
    explainCapture(context, portWord);
  }
}

constexpr Command commands[] = {
    {"explain", "PORT {FILE | hex DIGITS}",
     "Tells what would become of frames that arrive on a port, and why.",
     "FILE is a pcap or pcapng capture of Ethernet frames; DIGITS is one frame in hexadecimal, "
     "from "
     "its\n"
     "destination address on. The daemon's classifier decides, but no counter moves. For each "
     "frame "
     "are\n"
     "shown its fate; the entries of the port down to the one that it meets, with the profile and\n"
     "protocol they were made for, and of those before it the first condition that fails, what it\n"
     "expects and what the frame has there; and the counters that the frame would move.",
     "l2cpctl explain 3 lldp.pcap", explain}};

}  // namespace

constinit const Noun explainNoun{"explain", "Why frames meet the fate that they meet", commands};

}  // namespace cli
