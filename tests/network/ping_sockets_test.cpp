// The sockets of pings: which ones there are, in which order they are made ready, where they send
// to, and when they are closed.

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <ostream>
#include <utility>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "ping_fixture.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"
#include "support/though_cancelled.h"

namespace {

using support::CallArguments;
using support::FailingCall;
using support::pointer_to;
using support::SystemCall;
using testing::ElementsAre;
using testing::SizeIs;

std::string text_of_bytes(const void* bytes, std::size_t size) {
  return std::string(static_cast<const char*>(bytes), size);
}

template <typename Value>
std::string as_bytes(const Value& value) {
  return text_of_bytes(&value, sizeof value);
}

// What a program asks the kernel to do with its sockets, but for those of the log.
struct Step {
  SystemCall call;
  int numbers[3];     // a socket's family, type and protocol; an option's level and name
  std::string bytes;  // an option's value, or an address

  friend bool operator==(const Step& a, const Step& b) {
    return a.call == b.call && std::equal(std::begin(a.numbers), std::end(a.numbers), b.numbers) &&
           a.bytes == b.bytes;
  }
  friend std::ostream& operator<<(std::ostream& out, const Step& step) {
    return out << "call " << static_cast<int>(step.call) << ": " << step.numbers[0] << ", "
               << step.numbers[1] << ", " << step.numbers[2] << ", "
               << testing::PrintToString(step.bytes);
  }
};

Step open_socket(int family, int type, int protocol) {
  return {SystemCall::kSocket, {family, type | SOCK_CLOEXEC, protocol}, ""};
}
template <typename Value>
Step set(int level, int name, const Value& value) {
  return {SystemCall::kSetSocketOption, {level, name, 0}, as_bytes(value)};
}
template <typename Address>
Step send_to(const Address& address) {
  return {SystemCall::kSend, {0, 0, 0}, as_bytes(address)};
}

// A filter is not compared: its address differs.
const Step kSetFilter = {SystemCall::kSetSocketOption, {SOL_SOCKET, SO_ATTACH_FILTER, 0}, "filter"};
const Step kIncludeHeader = set(IPPROTO_IP, IP_HDRINCL, 1);
const Step kOpenQuery = open_socket(AF_INET, SOCK_PACKET, 0);
const Step kOpenIcmp = open_socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);

// All 32 bytes of the buffer.
Step bind_to_wan0() {
  return {SystemCall::kSetSocketOption,
          {SOL_SOCKET, SO_BINDTODEVICE, 0},
          "wan0" + std::string(28, '\0')};
}

Step send_to_host(const char* host) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  ::inet_pton(AF_INET, host, &address.sin_addr);
  return send_to(address);
}

FailingCall watched(SystemCall call, std::function<void(const CallArguments&)> see) {
  FailingCall result = {call, 0};
  result.decide = [see = std::move(see)](const CallArguments& arguments) {
    see(arguments);
    return std::optional<std::int64_t>();
  };
  return result;
}

std::vector<Step> steps_of(const std::function<void()>& action) {
  std::vector<Step> steps;
  const auto number = [](std::uint64_t argument) { return static_cast<int>(argument); };
  const auto bytes = [](std::uint64_t pointer, std::uint64_t size) {
    return text_of_bytes(pointer_to<const void>(pointer), static_cast<std::size_t>(size));
  };
  const auto see_socket = [&](const CallArguments& is) {
    if (number(is[0]) == AF_UNIX) return;
    steps.push_back({SystemCall::kSocket, {number(is[0]), number(is[1]), number(is[2])}, ""});
  };
  const auto see_option = [&](const CallArguments& is) {
    const bool is_filter = number(is[2]) == SO_ATTACH_FILTER;
    steps.push_back({SystemCall::kSetSocketOption,
                     {number(is[1]), number(is[2]), 0},
                     is_filter ? "filter" : bytes(is[3], is[4])});
  };
  const auto see_bind = [&](const CallArguments& is) {
    steps.push_back({SystemCall::kBind, {0, 0, 0}, bytes(is[1], is[2])});
  };
  const auto see_send = [&](const CallArguments& is) {
    if (is[4] == 0) return;
    steps.push_back({SystemCall::kSend, {number(is[3]), 0, 0}, bytes(is[4], is[5])});
  };
  support::run_with_failing_calls(
      {watched(SystemCall::kSocket, see_socket), watched(SystemCall::kSetSocketOption, see_option),
       watched(SystemCall::kBind, see_bind), watched(SystemCall::kSend, see_send)},
      action);
  return steps;
}

class PingSockets : public PingTest {
 protected:
  // How many descriptors a call of a ping without an answer has beside the others while it waits.
  int held_by(const std::function<void()>& ping) {
    silence_gateway();
    hosts_.distant.answer_pings(false);
    const auto before = support::open_descriptors().size();
    std::size_t meanwhile = 0;
    {
      PassingTime time;
      time.at_pause(1, [&] { meanwhile = support::open_descriptors().size(); });
      ping();
    }
    log_.take();
    return static_cast<int>(meanwhile) - static_cast<int>(before);
  }
};

TEST_F(PingSockets, OfIcmppingIsBoundToTheDevice) {
  EXPECT_THAT(steps_of([] { EXPECT_EQ(icmpping("wan0", kGateway, kLong), 0); }),
              ElementsAre(kOpenIcmp, bind_to_wan0(), send_to_host(kGateway)));
  EXPECT_THAT(log_.take(), SizeIs(2));
}

TEST_F(PingSockets, OfAnIpPacketTakesHeadersBeforeAndAfterItIsBound) {
  const std::uint32_t mark = 9;  // which it does not get
  const auto ping = [&] {
    EXPECT_EQ(__rawping("wan0", kDistant, nullptr, nullptr, nullptr, kLong, -1, nullptr, &mark), 0);
  };
  EXPECT_THAT(steps_of(ping), ElementsAre(kOpenQuery, kOpenIcmp, kIncludeHeader, bind_to_wan0(),
                                          kIncludeHeader, send_to_host(kDistant)));
  EXPECT_THAT(log_.take(), SizeIs(7));
}

TEST_F(PingSockets, OfAFrameIsFilteredMarkedAndBound) {
  tell_gateway_mac();
  const std::uint32_t mark = 0x87654321;
  const auto ping = [&] {
    EXPECT_EQ(__rawping("wan0", kDistant, kGateway, nullptr, nullptr, kLong, -1, nullptr, &mark),
              0);
  };
  sockaddr_ll interface = {};
  interface.sll_family = AF_PACKET;
  interface.sll_protocol = 0;
  interface.sll_ifindex = static_cast<int>(::if_nametoindex("wan0"));
  sockaddr_ll next_hop = interface;
  next_hop.sll_hatype = 1;
  next_hop.sll_pkttype = 3;
  next_hop.sll_halen = 6;
  const std::array<std::uint8_t, 6> gateway_mac = {2, 0, 0, 0, 1, 2};
  std::copy(gateway_mac.begin(), gateway_mac.end(), next_hop.sll_addr);
  EXPECT_THAT(steps_of(ping), ElementsAre(kOpenQuery, open_socket(AF_INET, SOCK_DGRAM, 0),
                                          open_socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL)),
                                          kSetFilter, set(SOL_SOCKET, SO_MARK, mark),
                                          Step{SystemCall::kBind, {0, 0, 0}, as_bytes(interface)},
                                          send_to(next_hop)));
  EXPECT_THAT(log_.take(), SizeIs(10));
}

TEST_F(PingSockets, ThatAskedAboutTheInterfaceAreClosedBeforeThePing) {
  tell_gateway_mac();
  EXPECT_EQ(held_by([] { icmpping("wan0", kGateway, 500); }), 1);
  EXPECT_EQ(held_by([] { rawping("wan0", kGateway, kGateway, 500); }), 1);
  EXPECT_EQ(held_by([] { rawping("wan0", kDistant, kGateway, 500); }), 1);
}

TEST_F(PingSockets, AreClosedByACancelledThread) {
  tell_gateway_mac();
  for (const char* target : {kGateway, kDistant}) {
    int icmp = 1;
    int raw = 1;
    EXPECT_TRUE(support::finishes_though_cancelled([&] { icmp = icmpping("wan0", target, 500); }));
    EXPECT_TRUE(
        support::finishes_though_cancelled([&] { raw = rawping("wan0", target, kGateway, 500); }));
    EXPECT_EQ(icmp, 0) << target;
    EXPECT_EQ(raw, 0) << target;
  }
  EXPECT_THAT(log_.take(), SizeIs(2 + 8 + 2 + 10));
}

}  // namespace
