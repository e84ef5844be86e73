// A ping of the router itself beside a program that pings, and beside the calls that it takes.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/ping.h>

#include <array>
#include <cstdint>
#include <cstring>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "network/rows.h"
#include "support/comparison.h"
#include "support/syslog_collector.h"

namespace bench::network {
namespace {

using benchmark::State;
using rkutils::internal::UniqueFd;

constexpr char kHost[] = "127.0.0.1";
constexpr unsigned kTimeoutMs = 1000;

// Takes what is logged, as the router's log does: without it a message costs nothing.
void have_a_log() { static support::SyslogCollector log; }

void ping(State& state) {
  have_a_log();
  for (auto _ : state) {
    if (icmpping("lo", kHost, kTimeoutMs) != 0) state.SkipWithError("no answer");
  }
}

// ---- The program ----

void run_fping(State& state) {
  std::array<char, 6> program = {"fping"};
  std::array<char, 4> once = {"-c1"};
  std::array<char, 3> quiet = {"-q"};
  std::array<char, sizeof kHost> host;
  std::memcpy(host.data(), kHost, sizeof kHost);
  const std::array<char*, 5> arguments = {program.data(), once.data(), quiet.data(), host.data(),
                                          nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  for (auto _ : state) {
    pid_t child = -1;
    int status = -1;
    if (::posix_spawnp(&child, program.data(), &actions, nullptr, arguments.data(), environ) != 0 ||
        ::waitpid(child, &status, 0) != child || status != 0) {
      state.SkipWithError("no answer");
    }
  }
  ::posix_spawn_file_actions_destroy(&actions);
}

// ---- The calls ----

constexpr std::size_t kIpHeader = 20;

// Receives until there is an echo reply: the first packet is the request itself.
bool receive_reply(int socket) {
  std::array<std::uint8_t, 1450> packet;
  for (int i = 0; i < 2; ++i) {
    if (::recv(socket, packet.data(), packet.size(), MSG_DONTWAIT) <= 0) return false;
    ::syslog(LOG_DEBUG, "received on %s (seq %d, id %d, need seq %d, id %d)", "lo", 1, 0, 1, 0);
    if (packet[kIpHeader] == 0) return true;
  }
  return false;
}

bool ping_least() {
  // The checksum is that of the constant bytes.
  static constexpr std::array<std::uint8_t, 64> kRequest = {8, 0, 0xF7, 0xFE, 0, 0, 0, 1};
  static constexpr std::array<char, 32> kDevice = {"lo"};
  sockaddr_in host = {};
  host.sin_family = AF_INET;
  host.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const UniqueFd socket(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
  if (::setsockopt(socket.get(), SOL_SOCKET, SO_BINDTODEVICE, kDevice.data(), kDevice.size()) !=
          0 ||
      ::sendto(socket.get(), kRequest.data(), kRequest.size(), 0,
               reinterpret_cast<const sockaddr*>(&host), sizeof host) < 0) {
    return false;
  }
  ::syslog(LOG_DEBUG, "transmitted on %s for %s (%d bytes, id %d, seq %d)", "lo", kHost, 64, 1, 0);
  return receive_reply(socket.get());
}

void ping_with_calls(State& state) {
  have_a_log();
  for (auto _ : state) {
    if (!ping_least()) state.SkipWithError("no answer");
  }
}

}  // namespace

void add_ping_rows() {
  compare("icmpping of a host on loopback", ping,
          {peer("fping -c1", 0.03, run_fping),
           floor("socket, bind, send, receive, three log calls", 1.2, ping_with_calls)},
          Clock::kReal);
}

}  // namespace bench::network
