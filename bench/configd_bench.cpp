// The batched fetch of 512 keys beside the bare exchange of the same datagrams with the same
// daemon.

#include <rkutils/configd.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/comparison.h"
#include "support/configd_stand_in.h"

namespace {

using rkutils::internal::UniqueFd;

constexpr int kKeys = 512;

std::string key(int number) { return "interface." + std::to_string(number) + ".address"; }

// One daemon for all benchmarks, with a value for each key and no record.
support::ConfigdStandIn& daemon() {
  static std::unique_ptr<support::ConfigdStandIn> one = [] {
    auto stand_in = std::make_unique<support::ConfigdStandIn>(
        support::ConfigdStandIn::Setup{"", "/var/lib/configd/values", "", -1});
    for (int i = 0; i < kKeys; ++i) {
      stand_in->set_value(key(i), "192.0.2." + std::to_string(i % 256));
    }
    return stand_in;
  }();
  return *one;
}

struct CloseConnection {
  void operator()(configd_connection* connection) const { configd_close(connection); }
};

// Where client and daemon run, for as long as a benchmark does. With both on one core the figures
// hold the work alone; on two they hold the waking of the other core too, which takes longer than
// all else.
class Cores {
 public:
  explicit Cores(bool one) {
    ::sched_getaffinity(0, sizeof all_, &all_);
    if (!one) return;
    cpu_set_t first;
    CPU_ZERO(&first);
    for (std::size_t core = 0; core < CPU_SETSIZE && CPU_COUNT(&first) == 0; ++core) {
      if (CPU_ISSET(core, &all_)) CPU_SET(core, &first);
    }
    apply(first);
  }
  ~Cores() { apply(all_); }
  Cores(const Cores&) = delete;
  Cores& operator=(const Cores&) = delete;

 private:
  static void apply(const cpu_set_t& cores) {
    ::sched_setaffinity(0, sizeof cores, &cores);
    ::sched_setaffinity(daemon().process(), sizeof cores, &cores);
  }

  cpu_set_t all_;
};

void fetch_512_keys(benchmark::State& state, bool one_core) {
  const Cores cores(one_core);
  const std::unique_ptr<configd_connection, CloseConnection> connection(configd_open());
  for (auto _ : state) {
    state.PauseTiming();
    configd_clear(connection.get());
    for (int i = 0; i < kKeys; ++i) configd_add_query(connection.get(), "interface.%d.address", i);
    state.ResumeTiming();
    if (*configd_fetch(connection.get(), "interface.0.address") == '\0') {
      state.SkipWithError("no value");
    }
  }
}
BENCHMARK_CAPTURE(fetch_512_keys, two_cores, false)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(fetch_512_keys, one_core, true)->Unit(benchmark::kMillisecond)->UseRealTime();

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

void bare_exchange_512_keys(benchmark::State& state, bool one_core) {
  const Cores cores(one_core);
  BareClient client;
  for (auto _ : state) {
    // Where the other benchmark prepares its batch.
    state.PauseTiming();
    state.ResumeTiming();
    if (!client.exchange_all()) state.SkipWithError("no reply");
  }
}
BENCHMARK_CAPTURE(bare_exchange_512_keys, two_cores, false)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(bare_exchange_512_keys, one_core, true)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  bench::compare("fetch_512_keys/two_cores", "bare_exchange_512_keys/two_cores", 1.15);
  bench::compare("fetch_512_keys/one_core", "bare_exchange_512_keys/one_core", 1.4);
  return bench::run(argc, argv);
}
