// Addresses, routes, interfaces and pings of several threads at once.

#include <rkutils/address.h>
#include <rkutils/interface.h>
#include <rkutils/ip_address.h>
#include <rkutils/ping.h>
#include <rkutils/ping_client.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <netinet/in.h>

#include "network/route_lookup.h"
#include "support/at_once.h"
#include "support/network/surroundings.h"
#include "support/rounds.h"
#include "support/syslog_collector.h"

namespace {

using support::at_once;

constexpr int kThreads = 4;

TEST(ThreadsWithAddresses, ConvertTheirOwn) {
  at_once(kThreads, [](int thread) {
    const std::string text = "192.0.2." + std::to_string(thread);
    for (int round = support::rounds(2000); round > 0; --round) {
      sockaddr_in record = {};
      auto* const address = reinterpret_cast<sockaddr*>(&record);
      ASSERT_EQ(str2addr(text.c_str(), address), 0);
      std::array<char, NETWORK_TEXT_SIZE> words;
      ASSERT_EQ(addr2str(words.data(), address), text);
      sockaddr_in other = {};
      auto* const mask = reinterpret_cast<sockaddr*>(&other);
      ASSERT_EQ(cidr2netmask(24, mask, AF_INET), 0);
      ASSERT_EQ(netmask2cidr(mask), 24);
      ASSERT_STREQ(net2cidr(words.data(), address, mask), "192.0.2.0/24");
      ASSERT_EQ(addr_differs(address, mask), 1);
      std::uint32_t number = 0;
      ASSERT_EQ(convIPStr2IPUl(text.c_str(), &number), 0);
      ASSERT_EQ(convIPUL2IPStr(number, words.data()), 0);
      ASSERT_EQ(words.data(), text);
    }
  });
}

TEST(ThreadsWithAddresses, ShareOneThatDoesNotChange) {
  const IpAddress network("192.0.2.0", "255.255.255.0");
  at_once(kThreads, [&network](int thread) {
    for (int round = support::rounds(2000); round > 0; --round) {
      String text;
      ASSERT_STREQ(network.getIpAddrAsString(text).c_str(), "192.0.2.0");
      ASSERT_EQ(network.getNetMaskSize(), 24U);
      ASSERT_TRUE(network.isNetType());
      const IpAddress host(("192.0.2." + std::to_string(thread)).c_str(), "255.255.255.255");
      ASSERT_TRUE(network.contains(host));
      ASSERT_TRUE(IpAddress::EMPTY().isEmpty());
    }
  });
}

TEST(ThreadsWithInterfaces, AskAboutThem) {
  at_once(kThreads, [](int) {
    const IpInterfaceStatus status;
    for (int round = support::rounds(500); round > 0; --round) {
      ASSERT_EQ(status.isInterfaceAvailable("lo"), 1);
      ASSERT_EQ(status.isInterfaceUp("lo"), 1);
      ASSERT_EQ(status.getIpV4Address("lo"), 0x7F000001U);
      ASSERT_EQ(status.haveNetworkConnectivity(), 0);
      ASSERT_EQ(wanlink_is_up(), 0);
      ASSERT_EQ(card2family("gtm1"), 0x10001);
    }
  });
}

TEST(ThreadsWithRoutes, LookThemUp) {
  const support::SyslogCollector log;
  at_once(kThreads, [](int thread) {
    const std::string address = "127.0.0." + std::to_string(thread + 1);
    for (int round = support::rounds(200); round > 0; --round) {
      ASSERT_EQ(route_lookup::look_up(address), route_lookup::found("lo"));
      ASSERT_EQ(ip_utils_set_multipath_flags("lo", 0, 0), 0);
    }
  });
}

TEST(ThreadsWithPings, PingAtOnce) {
  const support::SyslogCollector log;
  const support::Surroundings hosts;
  at_once(kThreads, [](int thread) {
    const char* const target = thread % 2 == 0 ? "10.1.0.2" : "10.2.0.2";
    EXPECT_EQ(rawping("wan0", target, thread < 2 ? "10.1.0.2" : nullptr, 5000), 0) << thread;
    EXPECT_EQ(icmpping("wan0", target, 5000), 0) << thread;
  });
}

// Making one draws from rand(), which is for one thread at a time.
TEST(ThreadsWithPings, HaveClientsOfTheirOwn) {
  const support::Surroundings hosts;
  std::array<std::unique_ptr<PingClient>, kThreads> clients;
  for (auto& client : clients) client = std::make_unique<PingClient>();
  at_once(kThreads, [&clients](int thread) {
    PingClient& client = *clients.at(static_cast<std::size_t>(thread));
    ASSERT_EQ(client.sendSimplePing("10.1.0.2", "0.0.0.0"), 0);
    static_cast<void>(client.checkPingResponse());
    client.cleanup();
  });
}

}  // namespace
