// Pings: a gateway, and a host behind it.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/ping.h>
#include <rkutils/ping_client.h>

#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <system_error>

#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include "families.h"
#include "support/network/surroundings.h"
#include "support/stopped_clock.h"

namespace faults {
namespace {

constexpr const char* kGateway = "10.1.0.2";
constexpr const char* kDistant = "10.2.0.2";
constexpr unsigned kTimeoutMs = 500;

// Hosts that know each other's hardware addresses, so that an answer is there when a request has
// been sent: nothing need be waited for.
std::shared_ptr<void> acquainted_hosts() {
  auto hosts = std::make_shared<support::Surroundings>();
  hosts->router.ip("neigh replace 10.1.0.2 lladdr 02:00:00:00:01:02 dev wan0 nud permanent");
  hosts->gateway.ip(
      "neigh replace 10.1.0.1 lladdr 02:00:00:00:01:01 dev eth0 nud permanent\n"
      "neigh replace 10.2.0.2 lladdr 02:00:00:00:02:02 dev eth1 nud permanent");
  hosts->distant.ip("neigh replace 10.2.0.1 lladdr 02:00:00:00:02:01 dev eth0 nud permanent");
  return hosts;
}

Scenario among_hosts(Scenario of) {
  of.surroundings = acquainted_hosts;
  return of;
}

// Gives what is on its way some time, with calls that are not watched.
void wait_a_moment() {
  constexpr int kMoment = 50;
  const auto now_ms = [] {
    std::timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
  };
  for (const long long begin = now_ms(); now_ms() - begin < kMoment;) ::sched_yield();
}

// What is slept is slept at once.
struct Pinging {
  Pinging() {
    clock.at_pauses([](int) { wait_a_moment(); });
  }

  static std::string after() { return {}; }

  support::StoppedClock clock;
};

// All that comes in on a socket of its own.
class Witness {
 public:
  Witness() : socket_(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP)) {
    if (!socket_) throw std::system_error(errno, std::generic_category(), "socket");
  }

  void wait_for_packet() const {
    constexpr int kLongest = 10000;
    pollfd ready = {socket_.get(), POLLIN, 0};
    if (::poll(&ready, 1, kLongest) != 1) throw std::runtime_error("no packet has come");
    wait_a_moment();  // for the other sockets
  }

 private:
  const rkutils::internal::UniqueFd socket_;
};

// A client that has asked nobody yet.
struct Client {
  // What is found out on looking for the reply, and what is on looking again.
  [[nodiscard]] std::string after() {
    if (sent) witness.wait_for_packet();
    switch (client.checkPingResponse()) {
      case 0:
        return "a reply";
      case 2:
        return "no reply";
      default:
        return "no socket";
    }
  }

  int send() {
    const int result = client.sendSimplePing(target, source);
    sent = result == 0;
    return result;
  }

  const Witness witness;
  const String target = kGateway;
  const String source = "10.1.0.1";
  PingClient client;
  bool sent = false;
};

// One whose reply is there.
struct AskedClient : Client {
  AskedClient() {
    if (send() != 0) throw std::runtime_error("not sent");
    witness.wait_for_packet();
    sent = false;
  }
};

}  // namespace

Scenarios pings() {
  return {
      among_hosts(without_progress(scenario<Pinging>(
          "icmpping", [](Pinging&) { return icmpping("wan0", kGateway, kTimeoutMs); }))),
      among_hosts(without_progress(scenario<Pinging>(
          "rawping", [](Pinging&) { return rawping("wan0", kGateway, nullptr, kTimeoutMs); }))),
      among_hosts(without_progress(scenario<Pinging>("__rawping with a mark through a gateway",
                                                     [](Pinging&) {
                                                       const uint32_t mark = 7;
                                                       return __rawping(
                                                           "wan0", kDistant, kGateway, nullptr,
                                                           nullptr, kTimeoutMs, -1, nullptr, &mark);
                                                     }))),
      among_hosts(
          scenario<Client>("PingClient::sendSimplePing", [](Client& it) { return it.send(); })),
      among_hosts(scenario<AskedClient>("PingClient::sendSimplePing once more",
                                        [](AskedClient& it) { return it.send(); })),
      among_hosts(scenario<AskedClient>(
          "PingClient::checkPingResponse",
          [](AskedClient& it) { return static_cast<int>(it.client.checkPingResponse()); })),
      among_hosts(scenario<AskedClient>("PingClient::cleanup",
                                        [](AskedClient& it) {
                                          it.client.cleanup();
                                          return Word{"done"};
                                        })),
  };
}

}  // namespace faults
