#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cli/command.h"
#include "cli/commands/rates.h"
#include "cli/daemonRun.h"
#include "cli/failure.h"
#include "cli/interruption.h"
#include "cli/place.h"
#include "cli/refusal.h"
#include "cli/value.h"

namespace cli {

namespace {

using Clock = RateMeter::Clock;
using Kind = RateMeter::Kind;

// What is to be watched, and how often.
struct Wish {
  std::optional<std::uint32_t> port;
  std::optional<std::uint16_t> vid;
  std::chrono::seconds interval{1};
  std::uint32_t count = 0;  ///< 0: without end
};

enum class DaemonState : std::uint8_t { running, restarted, unreachable };

struct Place {
  std::uint32_t number;
  std::string name;  ///< of a port
  std::optional<Counters> counters;
  Rates rates;
};

// What one refresh shows.
struct Refresh {
  std::string time;
  DaemonState daemon = DaemonState::running;
  std::string reason;
  std::vector<Place> ports;
  std::vector<Place> vlans;
};

// ---- Reading ----

class Reader {
 public:
  Reader(Context& context, const Wish& wish) : context_(context), wish_(wish) {}

  // Throws NotReached if there never was an answer.
  Refresh read() {
    Refresh refresh;
    refresh.time = timeText(std::time(nullptr));
    const auto begin = Clock::now();
    if (attempt(refresh)) return refresh;
    // The connection may have been to a daemon that has another one in its place by now. But one
    // that does not answer is not waited for twice.
    if (Clock::now() - begin < context_.options.server.timeout && attempt(refresh)) return refresh;
    refresh.daemon = DaemonState::unreachable;
    refresh.ports.clear();
    refresh.vlans.clear();
    return refresh;
  }

 private:
  bool attempt(Refresh& refresh) {
    try {
      fill(refresh);
      refresh.reason.clear();
      return true;
    } catch (const NotReached& error) {
      if (!run_) throw;
      refresh.reason = error.what();
      reconnect();
      return false;
    }
  }

  void reconnect() {
    Server server = context_.options.server;
    server.wait = std::chrono::seconds(0);
    context_.client = Client(server);
  }

  void fill(Refresh& refresh) {
    refresh.ports.clear();
    refresh.vlans.clear();
    const auto asked = Clock::now();
    const auto status = context_.client.control<control_status_1>();
    const DaemonRun run(*status, asked, Clock::now());
    std::map<std::uint32_t, std::string> names;
    for (const control_port& port : std::span(status->ports.ports_val, status->ports.ports_len)) {
      names.emplace(port.number, port.name);
    }
    if (run_ && run.isRestartOf(*run_)) {
      meter_.forget();
      wasRestarted_ = true;
    }
    run_ = run;

    const auto [ports, vids] = places();
    for (const std::uint32_t port : ports) {
      const auto counters = context_.client.module<rpc_l2cp_port_stat_1>(port);
      refresh.ports.push_back(place(Kind::port, port, *counters));
      refresh.ports.back().name = names[port];
    }
    for (const std::uint16_t vid : vids) {
      const auto counters = context_.client.module<rpc_l2cp_vlan_stat_1>(vid);
      refresh.vlans.push_back(place(Kind::vlan, vid, *counters));
    }
    refresh.daemon =
        std::exchange(wasRestarted_, false) ? DaemonState::restarted : DaemonState::running;
  }

  std::pair<std::set<std::uint32_t>, std::set<std::uint16_t>> places() {
    if (wish_.port) return {{*wish_.port}, {}};
    if (wish_.vid) return {{}, {*wish_.vid}};
    std::set<std::uint32_t> ports;
    std::set<std::uint16_t> vids;
    const auto attachments = context_.client.control<control_attachments_1>();
    for (const auto& at : std::span(attachments->list.list_val, attachments->list.list_len)) {
      ports.insert(at.port);
      vids.insert(static_cast<std::uint16_t>(at.vid));
    }
    return {ports, vids};
  }

  Place place(Kind kind, std::uint32_t number, const rpc_l2cp_counters& from) {
    Place place{.number = number, .name = {}, .counters = std::nullopt, .rates = {}};
    if (from.error == RPC_L2CP_ERR_NO_COUNTERS) return place;
    accept(from.error);
    place.counters = {from.discard, from.peer, from.tunnel};
    place.rates = meter_.read({kind, number}, *place.counters, Clock::now());
    return place;
  }

  Context& context_;
  const Wish& wish_;
  RateMeter meter_;
  std::optional<DaemonRun> run_;  ///< if it was ever reached
  bool wasRestarted_ = false;     ///< which has not been told yet
};

// ---- Showing ----

Value rateValue(const std::optional<double>& rate) {
  return rate ? fractionValue(*rate) : nothing("-", "");
}

Value countValue(const Place& of, std::uint32_t Counters::*counter) {
  return of.counters ? numberValue((*of.counters).*counter) : nothing("-", "");
}

Value totalValue(const Place& of) {
  if (!of.counters) return nothing("-", "");
  const auto& [discard, peer, tunnel] = *of.counters;
  return numberValue(discard + peer + tunnel);
}

constexpr Field<Place> portFields[] = {
    {{"port", Align::right}, [](const Place& of) { return numberValue(of.number); }},
    {{"name"}, [](const Place& of) { return nameOrNothing(of.name); }}};
constexpr Field<Place> vlanFields[] = {{{"vlan", Align::right}, [](const Place& of) {
                                          return vlanValue(static_cast<std::uint16_t>(of.number));
                                        }}};
constexpr Field<Place> counterFields[] = {
    {{"discard", Align::right}, [](const Place& of) { return countValue(of, &Counters::discard); }},
    {{"peer", Align::right}, [](const Place& of) { return countValue(of, &Counters::peer); }},
    {{"tunnel", Align::right}, [](const Place& of) { return countValue(of, &Counters::tunnel); }},
    {{"total", Align::right}, &totalValue},
    {{"discard_rate", Align::right}, [](const Place& of) { return rateValue(of.rates.discard); }},
    {{"peer_rate", Align::right}, [](const Place& of) { return rateValue(of.rates.peer); }},
    {{"tunnel_rate", Align::right}, [](const Place& of) { return rateValue(of.rates.tunnel); }},
    {{"total_rate", Align::right}, [](const Place& of) { return rateValue(of.rates.total()); }}};

Table placeTable(std::string_view one, std::string_view many,
                 std::span<const Field<Place>> whichFields, const std::vector<Place>& places) {
  std::vector<Field<Place>> fields(whichFields.begin(), whichFields.end());
  fields.insert(fields.end(), std::begin(counterFields), std::end(counterFields));
  return tableOf(cli::Kind<Place>{one, many, fields}, places);
}

std::string_view wordOf(DaemonState state) {
  switch (state) {
    case DaemonState::running:
      return "running";
    case DaemonState::restarted:
      return "restarted";
    case DaemonState::unreachable:
      break;
  }
  return "unreachable";
}

Table refreshThing(const Refresh& refresh) {
  return {"refresh",
          "refreshes",
          {{"time"}, {"daemon"}, {"reason"}},
          {{wordValue(refresh.time), wordValue(wordOf(refresh.daemon)),
            refresh.reason.empty() ? nothing("-", "") : textValue(refresh.reason)}}};
}

std::string headLine(const Refresh& refresh) {
  switch (refresh.daemon) {
    case DaemonState::running:
      return refresh.time;
    case DaemonState::restarted:
      return refresh.time + "  l2cpd was restarted, its counters begin anew";
    case DaemonState::unreachable:
      break;
  }
  return fmt::format("{}  {}", refresh.time, refresh.reason);
}

// The lines of a block on a screen: from its upper left corner, not wrapped, as many as fit, and
// nothing else (control sequences of ECMA-48 and DEC private modes, as every terminal has them).
std::string drawn(const std::string& block, bool first) {
  constexpr std::size_t usualRows = 24;
  winsize window{};
  const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_row > 1;
  const std::size_t rows = known ? window.ws_row : usualRows;
  std::string screen = first ? "\x1b[2J" : "";
  screen += "\x1b[H\x1b[?7l";
  std::istringstream lines(block);
  std::size_t row = 1;
  for (std::string line; row < rows && std::getline(lines, line); ++row) {
    screen += line + "\x1b[K\n";
  }
  return screen + "\x1b[?7h\x1b[J";
}

class Display {
 public:
  explicit Display(Output& output) : output_(output) {}

  void show(const Refresh& refresh) {
    const bool table = output_.format() == Format::table;
    const Table places[] = {placeTable("port", "ports", portFields, refresh.ports),
                            placeTable("vlan", "vlans", vlanFields, refresh.vlans)};
    std::ostringstream block;
    Output inside(block, output_.format(), output_.colours());
    if (table) {
      inside.line(headLine(refresh));
      for (const Table& part : places) {
        if (part.rows.empty()) continue;
        inside.line("");
        inside.list(part);
      }
    } else {
      inside.show(refreshThing(refresh), places);
    }
    if (table && output_.sink() == Sink::terminal) {
      output_.text(drawn(block.str(), first_));
    } else {
      output_.text(table && !first_ ? "\n" : "");
      output_.text(block.str());
    }
    first_ = false;
    output_.flush();
  }

 private:
  Output& output_;
  bool first_ = true;
};

// ---- The command ----

Wish takeWish(Context& context) {
  constexpr std::uint32_t longestInterval = 3600;
  Wish wish;
  Words& words = context.words;
  std::optional<std::string> port;
  Keywords keywords{"port", "vlan", "interval", "count"};
  while (!words.empty()) {
    const std::string_view keyword = keywords.take(words);
    if (keyword == "port") {
      port = words.take("PORT");
    } else if (keyword == "vlan") {
      wish.vid = takeVlan(words);
    } else if (keyword == "interval") {
      wish.interval =
          std::chrono::seconds(parseNumber(words.take("SECONDS"), "interval", 1, longestInterval));
    } else {
      wish.count =
          parseNumber(words.take("N"), "count", 1, std::numeric_limits<std::uint32_t>::max());
    }
  }
  if (port && wish.vid) throw UsageError("either a port or a VLAN can be watched, or all of them");
  if (port) wish.port = portNumber(*port, context.client);
  return wish;
}

void watch(Context& context) {
  const Wish wish = takeWish(context);
  const Interruption interruption;
  Reader reader(context, wish);
  Display display(context.output);
  auto next = Clock::now();
  for (std::uint32_t shown = 0;;) {
    try {
      display.show(reader.read());
    } catch (const LocalError&) {
      // Whoever has seen enough need not be told that there is more.
      if (Interruption::outputClosed()) return;
      throw;
    }
    if (++shown == wish.count) return;
    next = std::max(next + wish.interval, Clock::now());
    if (interruption.waitUntil(next) != Interruption::Reason::time) return;
  }
}

constexpr Command commands[] = {
    {"watch", "[port PORT | vlan VID] [interval SECONDS] [count N]",
     "Shows counters and rates again and again.",
     "Without \"port\" or \"vlan\", of all ports and VLANs to which something is attached. Rates\n"
     "are frames in a second since the refresh before; there is none for a counter that has begun\n"
     "anew. Refreshes are SECONDS apart, 1 to 3600, 1 if nothing is said. It ends after N of\n"
     "them, with SIGHUP, SIGINT or SIGTERM, or when nobody reads its output. When the daemon\n"
     "goes away, it says so and goes on. With -j, every refresh is one line of JSON.",
     "l2cpctl watch port 3 interval 5", watch}};

}  // namespace

constinit const Noun watchNoun{"watch", "Counters and rates, refreshed", commands};

}  // namespace cli
