// The configuration daemon's client: the batch that is fetched, with the same daemon beside the
// bare exchange of its datagrams and with another daemon beside sd-bus; and the list of queries.

#include <rkutils/configd.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>
#include <rkutils/list.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include "configuration/rows.h"
#include "support/comparison.h"
#include "support/configd_stand_in.h"

namespace bench::configuration {
namespace {

using benchmark::State;
using rkutils::internal::UniqueFd;

constexpr int kKeys = 512;

// One daemon for all benchmarks, with a value for each key and no record.
support::ConfigdStandIn& daemon() {
  static std::unique_ptr<support::ConfigdStandIn> one = [] {
    auto stand_in = std::make_unique<support::ConfigdStandIn>(
        support::ConfigdStandIn::Setup{"", "/var/lib/configd/values", "", -1});
    for (int i = 0; i < kKeys; ++i) stand_in->set_value(key(i), value(i));
    return stand_in;
  }();
  return *one;
}

struct CloseConnection {
  void operator()(configd_connection* connection) const { configd_close(connection); }
};
using Connection = std::unique_ptr<configd_connection, CloseConnection>;

// ---- Fetching a batch ----

// Where this process and a daemon run, for as long as the object lives. With both on one core the
// figures hold the work alone; on two they hold the waking of the other core too, which takes
// longer than all else.
class Cores {
 public:
  Cores(bool one, pid_t daemon) : daemon_(daemon) {
    ::sched_getaffinity(0, sizeof all_, &all_);
    std::vector<std::size_t> cores;
    for (std::size_t core = 0; core < CPU_SETSIZE; ++core) {
      if (CPU_ISSET(core, &all_)) cores.push_back(core);
    }
    place(0, only(cores.front()));
    place(daemon_, only(one ? cores.front() : cores.back()));
  }
  ~Cores() {
    place(0, all_);
    place(daemon_, all_);
  }
  Cores(const Cores&) = delete;
  Cores& operator=(const Cores&) = delete;

 private:
  static cpu_set_t only(std::size_t core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    return cores;
  }
  static void place(pid_t process, const cpu_set_t& cores) {
    ::sched_setaffinity(process, sizeof cores, &cores);
  }

  const pid_t daemon_;
  cpu_set_t all_;
};

void add_queries(configd_connection* connection) {
  for (int i = 0; i < kKeys; ++i) configd_add_query(connection, "interface.%d.address", i);
}

void fetch(State& state, bool one_core) {
  const Cores cores(one_core, daemon().process());
  const Connection connection(configd_open());
  for (auto _ : state) {
    state.PauseTiming();
    configd_clear(connection.get());
    add_queries(connection.get());
    state.ResumeTiming();
    if (*configd_fetch(connection.get(), "interface.0.address") == '\0') {
      state.SkipWithError("no value");
    }
  }
}

// A client with nothing but the system calls.
class BareClient {
 public:
  BareClient() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const std::string path = "/var/run/configd/bare." + std::to_string(::getpid());
    ::unlink(path.c_str());
    sockaddr_un address;
    bound_ = rkutils::internal::make_unix_address(path.c_str(), address) &&
             ::bind(socket_.get(), rkutils::internal::as_sockaddr(address),
                    rkutils::internal::unix_address_length(address)) == 0 &&
             rkutils::internal::make_unix_address("/var/run/configd/daemon.sock", server_);
    for (int i = 0; i < kKeys; ++i) requests_.push_back("?" + key(i) + std::string("\n\0", 2));
  }

  // Sends, waits and receives once for each key. False when a reply is missing.
  bool exchange_all() {
    if (!bound_) return false;
    for (const std::string& request : requests_) {
      ::sendto(socket_.get(), request.data(), request.size(), 0,
               rkutils::internal::as_sockaddr(server_), sizeof server_);
      fd_set readable;
      FD_ZERO(&readable);
      FD_SET(socket_.get(), &readable);
      timeval wait = {10, 0};
      if (::select(socket_.get() + 1, &readable, nullptr, nullptr, &wait) <= 0) return false;
      std::array<char, 16384> reply;
      if (::recvfrom(socket_.get(), reply.data(), reply.size(), 0, nullptr, nullptr) < 2) {
        return false;
      }
      benchmark::DoNotOptimize(reply);
    }
    return true;
  }

 private:
  UniqueFd socket_;
  sockaddr_un server_ = {};
  bool bound_;
  std::vector<std::string> requests_;
};

void fetch_bare(State& state, bool one_core) {
  const Cores cores(one_core, daemon().process());
  BareClient client;
  for (auto _ : state) {
    // Where the other benchmark prepares its batch.
    state.PauseTiming();
    state.ResumeTiming();
    if (!client.exchange_all()) state.SkipWithError("no reply");
  }
}

// A bus of two ends without a broker: a daemon with the same values, which is a child process, and
// its client.
class DirectBus {
 public:
  DirectBus() {
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
    UniqueFd ours(ends[0]);
    UniqueFd daemons(ends[1]);
    daemon_ = ::fork();
    if (daemon_ == 0) serve(daemons.release());
    bus_ = start(ours.release(), false);
  }
  ~DirectBus() {
    sd_bus_close_unref(bus_);
    if (daemon_ <= 0) return;
    ::kill(daemon_, SIGKILL);
    ::waitpid(daemon_, nullptr, 0);
  }
  DirectBus(const DirectBus&) = delete;
  DirectBus& operator=(const DirectBus&) = delete;

  // The process id of the daemon.
  [[nodiscard]] pid_t daemon() const { return daemon_; }

  // Asks for one value. False when that fails.
  bool get(const std::string& name, std::string& value) {
    sd_bus_message* reply = nullptr;
    const char* text = nullptr;
    const bool done = sd_bus_call_method(bus_, nullptr, kPath, kInterface, kGet, nullptr, &reply,
                                         "s", name.c_str()) >= 0 &&
                      sd_bus_message_read(reply, "s", &text) >= 0;
    if (done) value = text;
    sd_bus_message_unref(reply);
    return done;
  }

 private:
  using Values = std::unordered_map<std::string, std::string>;
  static constexpr char kPath[] = "/configuration";
  static constexpr char kInterface[] = "example.Configuration";
  static constexpr char kGet[] = "Get";

  // The bus takes the descriptor.
  static sd_bus* start(int descriptor, bool server) {
    sd_bus* bus = nullptr;
    sd_id128_t id = {};
    sd_id128_randomize(&id);
    if (sd_bus_new(&bus) < 0 || sd_bus_set_fd(bus, descriptor, descriptor) < 0 ||
        (server && sd_bus_set_server(bus, 1, id) < 0) || sd_bus_start(bus) < 0) {
      return sd_bus_unref(bus);
    }
    return bus;
  }

  static int answer(sd_bus_message* request, void* values, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    if (sd_bus_message_is_method_call(request, kInterface, kGet) <= 0) return 0;
    if (sd_bus_message_read(request, "s", &name) < 0) return 0;
    const auto found = static_cast<const Values*>(values)->find(name);
    const bool known = found != static_cast<const Values*>(values)->end();
    return sd_bus_reply_method_return(request, "s", known ? found->second.c_str() : "");
  }

  // In the child, until it is killed.
  [[noreturn]] static void serve(int descriptor) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    Values values;
    for (int i = 0; i < kKeys; ++i) values[key(i)] = value(i);
    sd_bus* const bus = start(descriptor, true);
    if (bus == nullptr || sd_bus_add_object(bus, nullptr, kPath, answer, &values) < 0) {
      ::_exit(EXIT_FAILURE);
    }
    for (int done = 0; done >= 0;) {
      done = sd_bus_process(bus, nullptr);
      if (done == 0) done = sd_bus_wait(bus, UINT64_MAX);
    }
    ::_exit(EXIT_FAILURE);
  }

  pid_t daemon_ = -1;
  sd_bus* bus_ = nullptr;
};

void fetch_from_bus(State& state, bool one_core) {
  DirectBus bus;
  const Cores cores(one_core, bus.daemon());
  std::vector<std::string> keys;
  keys.reserve(kKeys);
  for (int i = 0; i < kKeys; ++i) keys.push_back(key(i));
  std::vector<std::string> values(kKeys);
  for (auto _ : state) {
    state.PauseTiming();
    state.ResumeTiming();
    for (std::size_t i = 0; i < kKeys; ++i) {
      if (!bus.get(keys[i], values[i])) state.SkipWithError("no reply");
    }
    if (values.back() != value(kKeys - 1)) state.SkipWithError("no value");
  }
}

// ---- The list of queries ----

// The key of a number, formatted as the library does.
class FormattedKey {
 public:
  explicit FormattedKey(int number) {
    std::snprintf(text_, sizeof text_, "interface.%d.address", number);
  }
  [[nodiscard]] const char* text() const { return text_; }

 private:
  char text_[255];
};

// One exchange, which does not count, puts the handle into the state after a fetch, where keys are
// found without asking the daemon. It costs one key of the batch its memory.
void find_queries(State& state) {
  daemon();
  const Connection connection(configd_open());
  for (auto _ : state) {
    state.PauseTiming();
    configd_clear(connection.get());
    configd_add_query(connection.get(), "interface.0.address");
    const bool fetched = *configd_fetch(connection.get(), "interface.0.address") != '\0';
    state.ResumeTiming();
    add_queries(connection.get());
    for (int i = 0; i < kKeys; ++i) {
      benchmark::DoNotOptimize(configd_fetch(connection.get(), "interface.%d.address", i));
    }
    if (!fetched) state.SkipWithError("no value");
  }
}

void find_queries_unordered(State& state) {
  std::unordered_map<std::string, std::string> map;
  for (auto _ : state) {
    state.PauseTiming();
    map.clear();
    state.ResumeTiming();
    for (int i = 0; i < kKeys; ++i) map.try_emplace(FormattedKey(i).text());
    for (int i = 0; i < kKeys; ++i) {
      const auto found = map.find(FormattedKey(i).text());
      benchmark::DoNotOptimize(found != map.end() ? found->second.c_str() : nullptr);
    }
  }
}

// The least: zero-filled records in a list, and an index by key.
class LeastQueries {
 public:
  LeastQueries() = default;
  ~LeastQueries() { clear(); }
  LeastQueries(const LeastQueries&) = delete;
  LeastQueries& operator=(const LeastQueries&) = delete;

  void add(const char* key) {
    const std::uint32_t hash = hash_of(key);
    if (find(key, hash) != nullptr) return;
    auto* const record = static_cast<Record*>(std::calloc(1, sizeof(Record)));
    std::memcpy(record->query.key, key, std::strlen(key) + 1);
    record->hash = hash;
    list_add_tail(&record->query.links, &list_);
    record->next_of_bucket = buckets_[hash % kBuckets];
    buckets_[hash % kBuckets] = record;
  }

  [[nodiscard]] const char* value_of(const char* key) const {
    const Record* const record = find(key, hash_of(key));
    return record != nullptr ? record->query.value : nullptr;
  }

  void clear() {
    list_node* link = nullptr;
    list_node* following = nullptr;
    list_for_each_safe (link, following, &list_) {
      list_del(link);
      std::free(list_entry(link, Record, query.links));
    }
    std::memset(buckets_, 0, sizeof buckets_);
  }

 private:
  static constexpr std::size_t kBuckets = 256;
  struct Record {
    configd_query query;
    std::uint32_t hash;
    Record* next_of_bucket;
  };

  static std::uint32_t hash_of(const char* text) {
    std::uint32_t hash = 2166136261U;
    for (; *text != '\0'; ++text) hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619U;
    return hash;
  }

  [[nodiscard]] const Record* find(const char* key, std::uint32_t hash) const {
    const Record* record = buckets_[hash % kBuckets];
    while (record != nullptr &&
           (record->hash != hash || std::strcmp(record->query.key, key) != 0)) {
      record = record->next_of_bucket;
    }
    return record;
  }

  list_node list_ = LIST_NODE_INIT(list_);
  Record* buckets_[kBuckets] = {};
};

void find_queries_least(State& state) {
  LeastQueries queries;
  for (auto _ : state) {
    state.PauseTiming();
    queries.clear();
    state.ResumeTiming();
    for (int i = 0; i < kKeys; ++i) queries.add(FormattedKey(i).text());
    for (int i = 0; i < kKeys; ++i) {
      benchmark::DoNotOptimize(queries.value_of(FormattedKey(i).text()));
    }
  }
}

Body on(bool one_core, void (*body)(State&, bool)) {
  return [=](State& state) { body(state, one_core); };
}

}  // namespace

void add_configd_rows() {
  constexpr double kGoalBesideBus = 0.7;
  compare("fetch of 512 keys, two cores", on(false, fetch),
          {peer("sd-bus, direct", kGoalBesideBus, on(false, fetch_from_bus)),
           floor("bare exchange", 1.15, on(false, fetch_bare))},
          Clock::kReal);
  compare("fetch of 512 keys, one core", on(true, fetch),
          {peer("sd-bus, direct", kGoalBesideBus, on(true, fetch_from_bus)),
           floor("bare exchange", 1.4, on(true, fetch_bare))},
          Clock::kReal);
  compare("add 512 queries and find each", find_queries,
          {peer("std::unordered_map", 2.4, find_queries_unordered),
           floor("list and index", 1.2, find_queries_least)});
}

}  // namespace bench::configuration
