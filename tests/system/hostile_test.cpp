// Clients that mean harm or have gone mad: what they do costs nobody else more than a short wait,
// and when they are gone the daemon holds neither descriptors nor memory for them.

#include <dirent.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/system/control.h"
#include "tests/system/fixture.h"
#include "tests/system/service.h"
#include "tests/system/wire.h"

namespace {

using wire::Bytes;
using wire::Call;

using Clock = std::chrono::steady_clock;

/// What another client has to put up with, whatever is going on.
constexpr std::chrono::seconds bearable{10};

constexpr std::uint32_t controlProgram = CONTROL_PROGRAM;

// Sanitizers keep freed memory back, and look for leaks themselves.
#ifdef L2CP_SANITIZED
constexpr bool memoryTells = false;
#else
constexpr bool memoryTells = true;
#endif

// ---- Somebody else ----

/// A well-meaning client that calls over both transports all the time.
class Bystander {
 public:
  /// Returns once both transports have served it.
  Bystander() {
    std::future<void> begun = begun_.get_future();
    thread_ = std::thread([this] { run(); });
    begun.get();
  }
  ~Bystander() { finish(); }
  Bystander(const Bystander&) = delete;
  Bystander& operator=(const Bystander&) = delete;

  void finish() {
    leaving_ = true;
    if (thread_.joinable()) thread_.join();
  }

  // Of what it met, once it has finished.
  const std::string& failure() const { return failure_; }
  std::chrono::milliseconds longestWait() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(longest_);
  }
  std::size_t rounds() const { return rounds_; }

 private:
  void run() {
    try {
      const client::Connection udp("udp", L2CP_PROGRAM, L2CP_VERSION);
      const client::Connection tcp("tcp", L2CP_PROGRAM, L2CP_VERSION);
      // Datagrams get lost in a flood.
      timeval retry{.tv_sec = 0, .tv_usec = 100'000};
      clnt_control(udp.handle(), CLSET_RETRY_TIMEOUT, reinterpret_cast<char*>(&retry));  // NOLINT
      call(udp);
      call(tcp);
      begun_.set_value();
      longest_ = {};
      do {
        call(udp);
        call(tcp);
        ++rounds_;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      } while (!leaving_ && failure_.empty());
    } catch (const std::exception& problem) {
      failure_ = problem.what();
      begun_.set_value();
    }
  }

  void call(const client::Connection& connection) {
    unsigned int index = 0;
    rpc_l2cp_proto proto{};
    const auto begin = Clock::now();
    const clnt_stat status = clnt_call(connection.handle(), RPC_L2CP_PROTO_GET, as(xdr_u_int),
                                       &index, as(xdr_rpc_l2cp_proto), &proto,
                                       (timeval{.tv_sec = bearable.count(), .tv_usec = 0}));
    longest_ = std::max(longest_, Clock::now() - begin);
    xdr_free(as(xdr_rpc_l2cp_proto), &proto);
    if (status != RPC_SUCCESS && failure_.empty()) {
      failure_ = clnt_sperror(connection.handle(), "a bystander's call");
    }
  }

  template <class Filter>
  static xdrproc_t as(Filter filter) {
    return reinterpret_cast<xdrproc_t>(filter);  // NOLINT: as rpcgen does
  }

  std::atomic<bool> leaving_ = false;
  std::promise<void> begun_;
  std::string failure_;
  Clock::duration longest_{};
  std::size_t rounds_ = 0;
  std::thread thread_;
};

// ---- What the daemon holds ----

class Hostile : public DaemonTest {
 protected:
  // What was decoded of the module's arguments before they failed is not freed.
  void prepare() override { support::World::forgiveLeaksOf("xdr_string"); }

  void SetUp() override {
    DaemonTest::SetUp();
    // The descriptor for the system log is there to stay.
    if (!IsSkipped()) client::Control("udp").message("l2cp_dump", "");
  }

  std::string path(const char* name) {
    return "/proc/" + std::to_string(world().daemon().id()) + "/" + name;
  }

  std::size_t descriptors() {
    std::size_t count = 0;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path("fd").c_str()), &closedir);
    while (folder && readdir(folder.get()) != nullptr) ++count;
    return count;
  }

  // Proportional share of the memory that is mapped, in bytes.
  long memory() {
    std::ifstream rollup(path("smaps_rollup"));
    for (std::string word; rollup >> word;) {
      long kilobytes = 0;
      // Its own alone: its share of the libraries grows when other daemons of this machine end.
      if (word == "Pss_Anon:" && rollup >> kilobytes) return kilobytes * 1024;
    }
    ADD_FAILURE() << "no figure";
    return 0;
  }

  /// Lets an attack pass three times. Each time another client is served in between, and the
  /// daemon's descriptors are back in the end. What the RPC library, the allocator and the
  /// registries keep is there after the second time: the third takes no more memory than `growth`
  /// bytes.
  void withstand(const std::function<void()>& attack, long growth = 256 << 10) {
    const std::size_t descriptorsBefore = descriptors();
    std::chrono::milliseconds longest{0};
    long memoryBefore = 0;
    for (int round = 0; round < 3; ++round) {
      memoryBefore = memory();
      Bystander bystander;
      attack();
      bystander.finish();
      EXPECT_EQ(bystander.failure(), "");
      EXPECT_GT(bystander.rounds(), 0U);
      longest = std::max(longest, bystander.longestWait());
      EXPECT_TRUE(support::eventually([&] { return descriptors() == descriptorsBefore; }))
          << descriptors() << " instead of " << descriptorsBefore;
    }
    const long grown = memory() - memoryBefore;
    RecordProperty("longest_wait_ms", static_cast<int>(longest.count()));
    RecordProperty("third_round_bytes", std::to_string(grown));
    std::printf("longest wait of a bystander: %ld ms; third round: %ld bytes\n",
                static_cast<long>(longest.count()), grown);
    EXPECT_LT(longest, bearable);
    if (memoryTells) {
      EXPECT_LE(grown, growth);
    }
  }
};

std::string record(const Bytes& call) { return wire::Socket::fragment(call.str(), true).str(); }

constexpr std::uint32_t protoGetAll = 5;

/// That the daemon has seen everybody who connected before.
void expectAccepted() { EXPECT_EQ(wire::Socket("tcp").call(Call{}.with()), wire::success()); }

// ---- Idle and slow clients ----

TEST_F(Hostile, ConnectionsThatSayNothing) {
  withstand([] {
    std::vector<wire::Socket> silent;
    for (int i = 0; i < 200; ++i) silent.emplace_back("tcp");
    expectAccepted();
  });
}

TEST_F(Hostile, ConnectionsWithHalfARecord) {
  const std::string whole = record(Call{.procedure = protoGetAll}.with());
  withstand([&] {
    std::vector<wire::Socket> halves;
    for (std::size_t size = 1; size < whole.size(); ++size) {
      for (int i = 0; i < 3; ++i) halves.emplace_back("tcp").sendRaw(whole.substr(0, size));
    }
    expectAccepted();
  });
}

// The RPC library must not make room for a record: while it waits for the rest of such a one it
// does nothing else.
TEST_F(Hostile, PromisesOfLargeRecordsThatNeverCome) {
  withstand([] {
    std::vector<wire::Socket> promises;
    for (const std::uint32_t size : {9000U, 65535U, 65536U, 65537U, 1U << 20, 0x7fffffffU}) {
      for (int i = 0; i < 20; ++i) {
        promises.emplace_back("tcp").sendRaw(Bytes().word(0x80000000U | size).raw("more").str());
      }
    }
    expectAccepted();
  });
}

TEST_F(Hostile, BytesThatTrickle) {
  const std::string whole = record(Call{.procedure = 0}.with());
  withstand([&] {
    std::vector<wire::Socket> sockets;
    for (int i = 0; i < 20; ++i) sockets.emplace_back("tcp");
    for (const char byte : whole) {
      for (const wire::Socket& socket : sockets) socket.sendRaw({&byte, 1});
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    for (const wire::Socket& socket : sockets) EXPECT_EQ(socket.receive(), wire::success());
  });
}

TEST_F(Hostile, MoreConnectionsThanDescriptors) {
  withstand(
      [] {
        std::vector<wire::Socket> sockets;
        for (int i = 1; i <= 1100; ++i) {
          sockets.emplace_back("tcp");
          // Not faster than they are accepted; and the newest are among those that are kept.
          if (i % 50 == 0) {
            ASSERT_EQ(sockets.back().call(Call{}.with()), wire::success());
          }
        }
      },
      2 << 20);
}

// So many that even the second or two for which the RPC library would try to write to each are too
// much for others.
constexpr int lazyClients = memoryTells ? 8 : 4;

TEST_F(Hostile, ClientsThatNeverReadTheirReplies) {
  // Replies of some thirty thousand bytes.
  const client::Service service("udp");
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(service.protoAdd({.name = "protocol" + std::to_string(i)}), RPC_L2CP_OK);
  }
  std::string calls;
  for (int i = 0; i < 300; ++i) calls += record(Call{.procedure = protoGetAll}.with());
  withstand(
      [&] {
        std::vector<wire::Socket> sockets;
        for (int i = 0; i < lazyClients; ++i) {
          const wire::Socket& lazy = sockets.emplace_back("tcp");
          const int small = 1024;
          setsockopt(lazy.descriptor(), SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
          lazy.sendRaw(calls);
        }
        // The daemon gives them up.
        for (const wire::Socket& lazy : sockets) EXPECT_TRUE(lazy.isClosed());
      },
      2 << 20);
}

// ---- Floods ----

TEST_F(Hostile, FloodOfDatagrams) {
  const std::string call = Call{.procedure = protoGetAll}.with().str();
  withstand([&] {
    std::vector<wire::Socket> sockets;
    for (int i = 0; i < 4; ++i) sockets.emplace_back("udp");
    for (int i = 0; i < 20000; ++i) sockets[static_cast<std::size_t>(i) % 4].sendRaw(call);
  });
}

TEST_F(Hostile, FloodOfRecords) {
  std::string calls;
  for (int i = 0; i < 100; ++i) calls += record(Call{.procedure = protoGetAll}.with());
  withstand([&] {
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
      clients.emplace_back([&] {
        const wire::Socket socket("tcp");
        for (int burst = 0; burst < 10; ++burst) {
          socket.sendRaw(calls);
          for (int reply = 0; reply < 100; ++reply) ASSERT_TRUE(socket.receive());
        }
      });
    }
    for (std::thread& client : clients) client.join();
  });
}

TEST_F(Hostile, FloodOfConnections) {
  const std::string call = record(Call{.procedure = protoGetAll}.with());
  withstand([&] {
    for (int i = 0; i < 2000; ++i) wire::Socket("tcp").sendRaw(call);
  });
}

// ---- Nonsense ----

std::string randomBytes(std::mt19937& random, std::size_t size) {
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
  return bytes;
}

class HostileTransport : public Hostile, public testing::WithParamInterface<const char*> {};
FOR_BOTH_TRANSPORTS(HostileTransport);

TEST_P(HostileTransport, RandomBytes) {
  withstand([] {
    std::mt19937 random(7);
    for (int i = 0; i < 1000; ++i) {
      wire::Socket(GetParam()).sendRaw(randomBytes(random, random() % 3000));
    }
  });
}

/// A valid call of every procedure.
std::vector<std::string> validCalls() {
  const auto word = [](std::uint32_t value) { return Bytes().word(value); };
  const auto text = [](std::string_view value) { return Bytes().text(value); };
  const auto texts = [](std::string_view first, std::string_view second) {
    return Bytes().text(first).text(second);
  };
  const Bytes proto = Bytes().word(0).text("own").words({6, 1, 2, 3, 4, 5, 6, 0x88b5, 7, 0, 0});
  const Bytes profile = Bytes().words({0, 0}).text("P").words({0, 0});
  const std::vector<std::pair<std::uint32_t, Bytes>> module = {
      {0, {}},
      {1, proto},
      {2, text("own")},
      {3, texts("own", "other")},
      {4, word(3)},
      {5, {}},
      {6, text("own").word(1)},
      {7, text("own").words({6, 9, 8, 7, 6, 5, 4})},
      {8, text("own").word(0x8809)},
      {9, text("own").word(3)},
      {10, text("LLDP")},
      {20, profile},
      {21, text("P")},
      {22, texts("P", "Q")},
      {23, word(0)},
      {24, {}},
      {25, text("P")},
      {26, text("P").word(1)},
      {27, text("P").word(0)},
      {28, text("P")},
      {29, text("P")},
      {40, texts("P", "LLDP").word(2)},
      {41, texts("P", "LLDP")},
      {42, text("P").word(0)},
      {43, text("P")},
      {44, texts("P", "LLDP").word(1)},
      {60, text("P").words({3, 100})},
      {61, text("P").words({3, 100})},
      {62, Bytes().words({3, 0})},
      {63, word(3)},
      {90, word(3)},
      {91, word(100)},
      {100, text("P")},
      {101, texts("P", "copy")},
      {102, texts("P", "copy")},
      {103, text("P")},
      {104, text("P")},
  };
  using namespace std::string_view_literals;
  constexpr std::string_view frame =
      "\x01\x80\xc2\x00\x00\x0e\x02\x00\x00\x00\x00\x01\x88\xcc lldp"sv;
  const std::vector<std::pair<std::uint32_t, Bytes>> control = {
      {0, {}},
      {1, texts("nobody knows", "this")},
      {2, Bytes().words({3, 2}).text(frame).text(frame)},
      {3, {}},
      {4, word(1)},
      {5, {}},
      {10, {}},
      {11, text("S")},
      {12, text("S")},
      {13, texts("S", "V")},
      {14, texts("S", "P")},
      {15, text("S").word(3)},
      {16, text("S").word(3)},
      {20, {}},
      {21, text("V")},
      {22, text("V")},
      {23, text("V").words({3, 100})},
      {30, {}},
      {31, word(3)},
      {32, Bytes().words({3, 2}).text(frame).text(frame)},
  };
  std::vector<std::string> calls;
  for (const auto& [procedure, arguments] : module) {
    calls.push_back(Call{.procedure = procedure}.with(arguments).str());
  }
  for (const auto& [procedure, arguments] : control) {
    calls.push_back(Call{.procedure = procedure, .program = controlProgram}.with(arguments).str());
  }
  return calls;
}

/// Calls that began as valid ones, the same for the same seed.
class Mutations {
 public:
  explicit Mutations(unsigned int seed) : random_(seed) {}

  std::string next() {
    std::string call = any();
    for (std::size_t changes = 1 + below(3); changes != 0; --changes) change(call);
    return call;
  }

 private:
  std::size_t below(std::size_t end) { return end == 0 ? 0 : random_() % end; }
  const std::string& any() { return calls_[below(calls_.size())]; }

  void change(std::string& call) {
    // Most of it behind the header, which only says which procedure is meant.
    const std::size_t header = std::min<std::size_t>(below(8) == 0 ? 0 : 40, call.size());
    const std::size_t place = header + below(call.size() - header);
    switch (below(6)) {
      case 0:
        if (place < call.size()) call[place] = static_cast<char>(call[place] ^ (1 << below(8)));
        break;
      case 1:
        call.resize(place);
        break;
      case 2:
        call += randomBytes(random_, below(200));
        break;
      case 3:
        call.insert(place, call.substr(below(call.size()), below(100)));
        break;
      case 4:
        call = call.substr(0, place) + any().substr(std::min<std::size_t>(40, place));
        break;
      default:
        putNumber(call, place & ~std::size_t{3});
        break;
    }
  }

  // A number at which something ends or begins.
  void putNumber(std::string& call, std::size_t place) {
    constexpr std::uint32_t numbers[] = {
        0,    1,    5,    6,     7,     33,    34,       255,        1024,       1025,      4095,
        4096, 9000, 9001, 65535, 65536, 65537, 1U << 20, 0x7fffffff, 0x80000000, 0xffffffff};
    if (place + 4 > call.size()) return;
    call.replace(place, 4, Bytes().word(numbers[below(std::size(numbers))]).str());
  }

  const std::vector<std::string> calls_ = validCalls();
  std::mt19937 random_;
};

class Mutated : public Hostile {
 protected:
  void prepare() override {
    Hostile::prepare();
    support::World::forgiveLeaksOf("xdr_array");
    // The library makes room for whatever length a text announces, which costs nothing unless a
    // sanitizer fills it.
    for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS"}) {
      const char* others = std::getenv(name);
      const std::string options = "allocator_may_return_null=1:max_allocation_size_mb=64";
      setenv(name, (others == nullptr ? options : others + (":" + options)).c_str(), 1);
    }
  }
};

// Three times; fewer where each takes many times as long.
constexpr int mutationCount = memoryTells ? 4000 : 1000;

// What is left of the arguments that fail, and what the registries took in that is new.
constexpr long mutationGrowth = 2 << 20;

TEST_F(Mutated, RecordsAreAnsweredOrRefused) {
  std::size_t answered = 0;
  withstand(
      [&] {
        Mutations mutations(1);
        auto socket = std::make_unique<wire::Socket>("tcp");
        for (int i = 0; i < mutationCount; ++i) {
          const std::string call = mutations.next();
          socket->send(Bytes().raw(call));
          // Every record is answered, or the connection is closed.
          if (socket->receive()) {
            ++answered;
          } else {
            ASSERT_TRUE(socket->isClosed()) << wire::readable(call);
            socket = std::make_unique<wire::Socket>("tcp");
          }
        }
      },
      mutationGrowth);
  EXPECT_GT(answered, mutationCount);
}

TEST_F(Mutated, DatagramsDoNoHarm) {
  withstand(
      [] {
        Mutations mutations(2);
        const wire::Socket socket("udp");
        const wire::Socket other("udp");
        for (int i = 0; i < mutationCount; ++i) {
          socket.sendRaw(mutations.next());
          // Not faster than they are looked at.
          if (i % 20 == 0) {
            ASSERT_EQ(other.call(Call{}.with()), wire::success());
          }
        }
      },
      mutationGrowth);
}

// ---- Arguments that fail ----

class Malformed : public Hostile {
 protected:
  /// Bytes that the daemon keeps for each of many requests whose arguments fail.
  double kept(const Bytes& call, int count) {
    const std::string bytes = record(call);
    const wire::Socket socket("tcp");
    const auto send = [&](int requests) {
      for (int i = 0; i < requests; i += 50) {
        std::string burst;
        for (int j = 0; j < 50; ++j) burst += bytes;
        socket.sendRaw(burst);
        for (int j = 0; j < 50; ++j) {
          ASSERT_EQ(socket.receive(), wire::garbageArguments());
        }
      }
    };
    send(200);
    const long before = memory();
    send(count);
    const double each = static_cast<double>(memory() - before) / count;
    RecordProperty("bytes_per_request", std::to_string(each));
    std::printf("%zu bytes sent, %.1f bytes kept per request\n", bytes.size(), each);
    return each;
  }
};

TEST_F(Malformed, NameBeforeABadMacIsKept) {
  const Bytes call =
      Call{.procedure = 1}.with(Bytes().word(0).text(std::string(33, 'n')).word(7).raw("1234"));
  const double each = kept(call, 20000);
  if (memoryTells) {
    EXPECT_LT(each, 200);
  }
}

TEST_F(Malformed, LongestNameBeforeABadOneIsKept) {
  const Bytes call =
      Call{.procedure = 101}.with(Bytes().text(std::string(8900, 'n')).word(0xffffffff));
  const double each = kept(call, 1000);
  if (memoryTells) {
    EXPECT_LT(each, 2 * 8900);
  }
}

TEST_F(Malformed, NothingIsKeptOfTheDaemonsOwnArguments) {
  const Bytes names = Call{.procedure = 13, .program = controlProgram}.with(
      Bytes().text(std::string(255, 'n')).word(256));
  const Bytes frames = Call{.procedure = 2, .program = controlProgram}.with(
      Bytes().words({3, 1024}).text(std::string(64, 'f')).word(0xffffffff));
  const Bytes explained = Call{.procedure = 32, .program = controlProgram}.with(
      Bytes().words({3, 64}).text(std::string(64, 'f')).word(0xffffffff));
  for (const Bytes& call : {names, frames, explained}) {
    // Enough of them for pages that are touched for the first time to go unnoticed.
    const double each = kept(call, 10'000);
    if (memoryTells) {
      EXPECT_LT(each, 32);
    }
  }
}

}  // namespace
