// route_get_interface() beside `ip route get`, in a table of many routes.

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <syslog.h>

#include "network/route_lookup.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/run_program.h"
#include "support/syslog_collector.h"

namespace {

using route_lookup::found;
using route_lookup::look_up;
using route_lookup::not_found;
using route_lookup::Outcome;
using testing::ElementsAre;

// Runs lines of a shell, all of which must succeed.
std::string shell(const std::string& lines) {
  support::put("/tmp/lines.sh", "set -e\n" + lines);
  const auto [output, status] = support::run_program({"sh", "/tmp/lines.sh"});
  if (status != 0) throw std::runtime_error(lines + output);
  return output;
}

// Networks of one family that lie within each other, and addresses in them.
class Networks {
 public:
  explicit Networks(int family) : family_(family) {}

  // Another network each time, as "10.1.2.0/24".
  std::string next_network() {
    for (;;) {
      const int shortest = family_ == AF_INET ? 9 : 33;
      const int length = shortest + below(bits() - shortest + 1);
      std::vector<unsigned char> bytes = random_bytes();
      for (int bit = length; bit < bits(); ++bit) {
        bytes[static_cast<std::size_t>(bit / 8)] &=
            static_cast<unsigned char>(~(0x80U >> static_cast<unsigned>(bit % 8)));
      }
      std::string network = text_of(bytes) + "/" + std::to_string(length);
      if (taken_.insert(network).second) {
        networks_.push_back({bytes, length});
        return network;
      }
    }
  }

  // Of every network the first address and a random one; and some addresses that are anywhere.
  std::vector<std::string> addresses() {
    std::vector<std::string> result;
    for (const auto& [first, length] : networks_) {
      std::vector<unsigned char> within = random_bytes();
      for (int bit = 0; bit < length; ++bit) {
        const auto index = static_cast<std::size_t>(bit / 8);
        const unsigned mask = 0x80U >> static_cast<unsigned>(bit % 8);
        within[index] = static_cast<unsigned char>((within[index] & ~mask) | (first[index] & mask));
      }
      result.push_back(text_of(first));
      result.push_back(text_of(within));
    }
    for (int i = 0; i < 20; ++i) result.push_back(text_of(random_bytes()));
    return result;
  }

 private:
  struct Network {
    std::vector<unsigned char> first;
    int length;
  };

  int below(int count) { return static_cast<int>(random_() % static_cast<unsigned>(count)); }

  [[nodiscard]] int bits() const { return family_ == AF_INET ? 32 : 128; }

  // In 10.0.0.0/8 or 2001:db8::/32. Bytes in front are often alike, so that networks meet.
  std::vector<unsigned char> random_bytes() {
    std::vector<unsigned char> bytes = {10};
    if (family_ == AF_INET6) bytes = {0x20, 0x01, 0x0D, 0xB8};
    while (bytes.size() < static_cast<std::size_t>(bits() / 8)) {
      bytes.push_back(static_cast<unsigned char>(below(below(2) == 0 ? 8 : 256)));
    }
    return bytes;
  }

  [[nodiscard]] std::string text_of(const std::vector<unsigned char>& bytes) const {
    char text[INET6_ADDRSTRLEN];
    return ::inet_ntop(family_, bytes.data(), text, sizeof text);
  }

  int family_;
  std::mt19937 random_{11};
  std::set<std::string> taken_;
  std::vector<Network> networks_;
};

// What `ip` is called with for a family, in front of its other words. With its path: a shell may
// have a small one of its own.
std::string ip(int family) { return family == AF_INET ? "/usr/sbin/ip -4 " : "/usr/sbin/ip -6 "; }

// A router with four interfaces, with routes of all kinds and with rules.
class RoutesOfTheKernel : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    shell(
        "ip link add type veth\n"
        "ip link set veth0 name wan0\n"
        "ip link set veth1 name wan1\n"
        "ip link add type veth\n"
        "ip link set veth0 name lan0\n"
        "ip link set veth1 name lan1\n"
        "for link in wan0 wan1 lan0 lan1; do ip link set $link up; done\n"
        "ip addr add 192.0.2.1/24 dev wan0\n"
        "ip addr add 198.51.100.1/24 dev wan1\n"
        "ip addr add 203.0.113.1/24 dev lan0\n"
        "ip -6 addr add 2001:db8:ffff::1/64 dev wan0\n"
        "ip -6 addr add 2001:db8:fffe::1/64 dev lan0\n");
  }

  static void add_routes(Networks& networks, int family) {
    constexpr int kRoutes = 200;
    const std::string one = family == AF_INET ? "192.0.2.9" : "2001:db8:ffff::9";  // by wan0
    const std::string two = family == AF_INET ? "198.51.100.9" : "2001:db8:fffe::9";
    const std::string ways[] = {
        "dev wan0", "dev wan1",   "dev lan0",   "dev lan1",
        "dev lo",   "via " + one, "via " + two, "nexthop via " + one + " nexthop via " + two};
    const std::string kinds[] = {"unreachable", "blackhole", "prohibit", "throw"};
    std::mt19937 random(7);
    std::ostringstream lines;
    for (int i = 0; i < kRoutes; ++i) {
      const std::string network = networks.next_network();
      lines << "route add ";
      if (random() % 4 == 0) {
        lines << kinds[random() % 4] << " " << network << "\n";
      } else {
        lines << network << " " << ways[random() % 8] << "\n";
      }
    }
    support::put("/tmp/routes", lines.str());
    shell(ip(family) + "-batch /tmp/routes\n");
    const std::string table = shell(ip(family) + "-o route show\n");
    EXPECT_GE(std::count(table.begin(), table.end(), '\n'), kRoutes);
  }

  // Asks `ip` about each of the addresses; "" where it knows no way.
  static std::vector<std::string> interfaces_by_ip(int family,
                                                   const std::vector<std::string>& addresses) {
    std::ostringstream lines;
    for (const std::string& address : addresses) lines << "route get " << address << "\n";
    support::put("/tmp/addresses", lines.str());
    // Goes on where there is none, and tells the number of the line.
    std::istringstream answers(
        shell(ip(family) + "-o -force -batch /tmp/addresses 2> /tmp/complaints || true\n"));
    std::istringstream complaints(shell("cat /tmp/complaints\n"));
    const std::string complaint = "Command failed /tmp/addresses:";
    std::set<std::size_t> failed;
    for (std::string line; std::getline(complaints, line);) {
      if (line.find(complaint) == 0) failed.insert(std::stoul(line.substr(complaint.size())));
    }
    std::vector<std::string> interfaces;
    for (std::string line; std::getline(answers, line);) {
      while (failed.count(interfaces.size() + 1) != 0) interfaces.emplace_back();
      const std::size_t word = line.find(" dev ");
      if (word == std::string::npos) continue;
      const std::size_t name = word + 5;
      interfaces.push_back(line.substr(name, line.find(' ', name) - name));
    }
    while (failed.count(interfaces.size() + 1) != 0) interfaces.emplace_back();
    return interfaces;
  }

  // Asks the library and `ip` alike; returns how many of the addresses have a way.
  static int compare(int family, const std::vector<std::string>& addresses) {
    const std::vector<std::string> expected = interfaces_by_ip(family, addresses);
    EXPECT_EQ(expected.size(), addresses.size());
    if (expected.size() != addresses.size()) return -1;
    int ways = 0;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
      EXPECT_EQ(look_up(addresses[i]), expected[i].empty() ? not_found() : found(expected[i]))
          << addresses[i];
      ways += expected[i].empty() ? 0 : 1;
    }
    return ways;
  }

  support::SyslogCollector log_;
};

TEST_F(RoutesOfTheKernel, AreThoseThatIpTellsForIPv4) {
  Networks networks(AF_INET);
  add_routes(networks, AF_INET);
  shell(
      "ip rule add to 10.4.0.0/14 table 100\n"
      "ip route add 10.4.0.0/15 dev lan1 table 100\n"
      "ip route add unreachable 10.4.4.0/24 table 100\n"
      "ip rule add to 10.65.0.0/16 type unreachable\n"
      "ip rule add to 10.66.0.0/16 type blackhole\n"
      "ip rule add to 10.67.0.0/16 type prohibit\n"
      "ip rule add fwmark 1 table 101\n"
      "ip rule add from 192.0.2.1 table 101\n"
      "ip route add default dev lan1 table 101\n");
  const std::vector<std::string> addresses = networks.addresses();
  const auto count = static_cast<int>(addresses.size());
  const int ways = compare(AF_INET, addresses);
  // Many have one and many have none, or the table would show nothing.
  EXPECT_GT(ways, count / 4);
  EXPECT_LT(ways, count * 9 / 10);
  const std::vector<std::string> by_rules = {"10.4.1.1",  "10.4.4.1",  "10.5.1.1",
                                             "10.65.1.1", "10.66.1.1", "10.67.1.1"};
  EXPECT_EQ(look_up(by_rules[0]), found("lan1"));
  EXPECT_EQ(look_up(by_rules[1]), not_found());
  EXPECT_EQ(compare(AF_INET, by_rules), 2);
}

TEST_F(RoutesOfTheKernel, AreThoseThatIpTellsForIPv6) {
  Networks networks(AF_INET6);
  add_routes(networks, AF_INET6);
  shell(
      "ip -6 rule add to 2001:db8:400::/40 table 100\n"
      "ip -6 route add 2001:db8:400::/41 dev lan1 table 100\n"
      "ip -6 route add unreachable 2001:db8:404::/48 table 100\n"
      "ip -6 rule add to 2001:db8:6500::/40 type unreachable\n"
      "ip -6 rule add to 2001:db8:6600::/40 type blackhole\n"
      "ip -6 rule add to 2001:db8:6700::/40 type prohibit\n"
      "ip -6 rule add fwmark 1 table 101\n"
      "ip -6 rule add from 2001:db8:ffff::1 table 101\n"
      "ip -6 route add default dev lan1 table 101\n");
  const std::vector<std::string> addresses = networks.addresses();
  const auto count = static_cast<int>(addresses.size());
  const int ways = compare(AF_INET6, addresses);
  EXPECT_GT(ways, count / 4);
  EXPECT_LT(ways, count * 9 / 10);
  const std::vector<std::string> by_rules = {"2001:db8:401::1",  "2001:db8:404::1",
                                             "2001:db8:402::1",  "2001:db8:6501::1",
                                             "2001:db8:6601::1", "2001:db8:6701::1"};
  EXPECT_EQ(look_up(by_rules[0]), found("lan1"));
  EXPECT_EQ(look_up(by_rules[1]), not_found());
  EXPECT_EQ(compare(AF_INET6, by_rules), 2);
}

TEST_F(RoutesOfTheKernel, AreThoseThatIpTellsForAddressesWithAMeaning) {
  compare(AF_INET, {"127.0.0.1", "127.255.255.255", "192.0.2.0", "192.0.2.1", "192.0.2.2",
                    "192.0.2.255", "198.51.100.1", "198.51.100.77", "203.0.113.254", "224.0.0.1",
                    "239.1.2.3", "255.255.255.255", "0.0.0.0", "169.254.1.1", "1.1.1.1"});
  compare(AF_INET6, {"::1", "::", "2001:db8:ffff::1", "2001:db8:ffff::2", "2001:db8:fffe::1",
                     "::ffff:192.0.2.1", "::192.0.2.1", "fe80::1", "ff02::1", "ff0e::1",
                     "2001:db8:ffff:1::1", "3fff::1"});
}

struct Refusal {
  std::string address;
  int error;
};

TEST_F(RoutesOfTheKernel, TellWhyThereIsNone) {
  shell(
      "ip route add unreachable 172.16.1.0/24\n"
      "ip route add blackhole 172.16.2.0/24\n"
      "ip route add prohibit 172.16.3.0/24\n"
      "ip route add throw 172.16.4.0/24\n"
      "ip -6 route add unreachable 3fff:1::/32\n"
      "ip -6 route add blackhole 3fff:2::/32\n"
      "ip -6 route add prohibit 3fff:3::/32\n");
  const std::vector<Refusal> refusals = {
      {"172.16.1.1", EHOSTUNREACH}, {"172.16.2.1", EINVAL},      {"172.16.3.1", EACCES},
      {"172.16.4.1", ENETUNREACH},  {"172.17.0.1", ENETUNREACH}, {"3fff:1::1", EHOSTUNREACH},
      {"3fff:2::1", EINVAL},        {"3fff:3::1", EACCES},       {"3fff:4::1", ENETUNREACH},
  };
  for (const auto& [address, error] : refusals) {
    log_.take();
    const Outcome outcome = look_up(address);
    EXPECT_EQ(outcome, not_found());
    EXPECT_EQ(outcome.error, error) << address;
    EXPECT_THAT(log_.take(),
                ElementsAre(support::LogLine{LOG_DEBUG, "looking up route for " + address},
                            support::LogLine{LOG_DEBUG, std::string("rtq: netlink query failed: ") +
                                                            std::strerror(error)}));
  }
}

TEST_F(RoutesOfTheKernel, AreThoseOfTheMoment) {
  EXPECT_EQ(look_up("172.31.0.1"), not_found());
  shell("ip route add 172.31.0.0/24 dev wan1\n");
  EXPECT_EQ(look_up("172.31.0.1"), found("wan1"));
  shell("ip route replace 172.31.0.0/24 dev lan0\n");
  EXPECT_EQ(look_up("172.31.0.1"), found("lan0"));
  shell("ip link set lan0 down\nip link set lan0 name lan2\nip link set lan2 up\n");
  EXPECT_EQ(look_up("203.0.113.9"), found("lan2"));
  shell("ip link set lan2 down\nip link set lan2 name lan0\nip link set lan0 up\n");
  EXPECT_EQ(look_up("172.31.0.1"), not_found());
}

// Every thread has its own address to ask for.
TEST_F(RoutesOfTheKernel, AreFoundBySeveralThreadsAtOnce) {
  constexpr int kThreads = 8;
  const std::vector<std::pair<std::string, Outcome>> cases = {
      {"192.0.2.77", found("wan0")}, {"198.51.100.77", found("wan1")},
      {"127.0.0.1", found("lo")},    {"172.18.0.1", not_found()},
      {"203.0.113.1", found("lo")},  {"2001:db8:ffff::77", found("wan0")},
      {"224.0.0.1", not_found()},    {"::1", found("lo")},
  };
  const int rounds = support::rounds(500);
  std::vector<int> right(kThreads);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < rounds; ++round) {
        const auto& [address, expected] = cases[i];
        if (look_up(address) == expected) ++right[i];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(right, testing::Each(rounds));
  std::map<std::string, int> lines;
  for (const support::LogLine& line : log_.take()) ++lines[line.text];
  for (const auto& [address, expected] : cases) {
    EXPECT_EQ(lines["looking up route for " + address], rounds);
    const int answers = lines[address + " goes to " + expected.interface];
    EXPECT_EQ(answers, expected.result == 0 ? rounds : 0);
  }
}

}  // namespace
