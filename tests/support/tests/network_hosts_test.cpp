// Hosts beside the router, and the frames between them.

#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/network/capture.h"
#include "support/network/echo.h"
#include "support/network/echo_responder.h"
#include "support/network/frame_socket.h"
#include "support/network/host.h"
#include "support/network/hosts_file.h"
#include "support/network/link.h"
#include "support/network/surroundings.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/run_program.h"

namespace {

using rkutils::internal::Deadline;
using rkutils::internal::pause_us;
using rkutils::internal::UniqueFd;
using support::ArpEntry;
using support::Bytes;
using support::Capture;
using support::Echo;
using support::echo_in;
using support::EchoResponder;
using support::Frame;
using support::FrameSocket;
using support::Host;
using support::HostsFile;
using support::Link;
using support::Surroundings;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// The request of the tests: from the router to the gateway.
Echo example() {
  Echo echo;
  echo.hardware_source = "02:00:00:00:01:01";
  echo.hardware_destination = "02:00:00:00:01:02";
  echo.source = "10.1.0.1";
  echo.destination = "10.1.0.2";
  echo.identifier = 0x1234;
  echo.sequence = 0x5678;
  echo.payload = {'a', 'b', 'c'};
  return echo;
}

// Echo requests by a raw socket, as a ping program sends them.
class Pinger {
 public:
  Pinger() : socket_(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMP)) {
    if (!socket_) throw std::system_error(errno, std::generic_category(), "raw socket");
  }

  void send(const std::string& target, std::uint16_t sequence) const {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    ::inet_pton(AF_INET, target.c_str(), &address.sin_addr);
    icmphdr request = {};
    request.type = ICMP_ECHO;
    request.un.echo.sequence = htons(sequence);
    request.checksum = htons(support::checksum_by_definition(
        reinterpret_cast<const std::uint8_t*>(&request), sizeof request));
    if (::sendto(socket_.get(), &request, sizeof request, 0,
                 reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
      throw std::system_error(errno, std::generic_category(), "sendto");
    }
  }

  // Whether an echo reply with this sequence has come after so many milliseconds.
  [[nodiscard]] bool is_answered(std::uint16_t sequence, int timeout_ms) const {
    const Deadline deadline(timeout_ms);
    do {
      std::uint8_t packet[1500];
      while (::recv(socket_.get(), packet, sizeof packet, 0) >= 28) {
        const std::uint8_t* const icmp = packet + (packet[0] & 0x0fU) * std::size_t{4};
        if (icmp[0] == ICMP_ECHOREPLY && icmp[6] * 256 + icmp[7] == sequence) return true;
      }
      pause_us(1000);
    } while (deadline.remaining_ms() > 0);
    return false;
  }

 private:
  UniqueFd socket_;
};

constexpr int kSoon = 10000;  // milliseconds, for what comes
constexpr int kNever = 100;   // for what does not

bool pings(const std::string& target, int timeout_ms = kSoon) {
  const Pinger pinger;
  pinger.send(target, 1);
  return pinger.is_answered(1, timeout_ms);
}

TEST(Host, HasANetworkOfItsOwn) {
  const Host host;
  const Host other;
  host.ip("link add only-here type bridge");
  const auto index = [] { return ::if_nametoindex("only-here"); };
  EXPECT_NE(host.run(index), 0U);
  EXPECT_EQ(other.run(index), 0U);
  EXPECT_EQ(index(), 0U);
}

TEST(Host, HereIsWhereTheThreadIs) {
  const Host host;
  const Host here = Host::here();
  const Host there = host.run([] { return Host::here(); });
  there.ip("link add only-there type bridge");
  const auto index = [] { return ::if_nametoindex("only-there"); };
  EXPECT_NE(host.run(index), 0U);
  EXPECT_EQ(here.run(index), 0U);
}

TEST(Host, HasALoopbackThatAnswers) {
  EXPECT_TRUE(Host().run([] { return pings("127.0.0.1"); }));
  EXPECT_TRUE(pings("127.0.0.1"));
}

TEST(Host, BringsTheThreadBackAfterAnException) {
  const Host host;
  host.ip("link add only-here type bridge");
  EXPECT_THROW(host.run([] { throw std::logic_error("in the host"); }), std::logic_error);
  EXPECT_EQ(::if_nametoindex("only-here"), 0U);
}

TEST(Host, LeavesOtherThreadsWhereTheyAre) {
  const Host host;
  host.ip("link add only-here type bridge");
  host.run([] {
    EXPECT_NE(::if_nametoindex("only-here"), 0U);
    unsigned index = 1;
    // A new thread begins where its maker is; the main thread's file is another matter.
    std::thread([&] { index = ::if_nametoindex("only-here"); }).join();
    EXPECT_NE(index, 0U);
  });
  std::thread other([&] { host.run([] { pause_us(50000); }); });
  EXPECT_EQ(::if_nametoindex("only-here"), 0U);
  other.join();
}

TEST(Host, RunsCommandsInTheirOrderAndGivesWhatTheyPrint) {
  const Host host;
  EXPECT_EQ(host.ip("link add one type bridge\naddr add 10.9.0.1/24 dev one\nlink set one up"), "");
  EXPECT_THAT(host.ip("route show"), HasSubstr("10.9.0.0/24 dev one"));
}

TEST(Host, ThrowsWithWhatAFailingCommandSaysAndStopsThere) {
  const Host host;
  try {
    host.ip("link set missing up\nlink add later type bridge");
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("Cannot find device \"missing\""));
  }
  EXPECT_EQ(host.run([] { return ::if_nametoindex("later"); }), 0U);
}

TEST(Host, SetsParametersOfItsNetworkAlone) {
  const Host host;
  host.set("ipv4/ip_forward", "1");
  const auto value = [] {
    std::string text;
    std::ifstream("/proc/sys/net/ipv4/ip_forward") >> text;
    return text;
  };
  EXPECT_EQ(host.run(value), "1");
  EXPECT_EQ(value(), "0");
  EXPECT_THROW(host.set("ipv4/no_such_thing", "1"), std::runtime_error);
  EXPECT_THROW(host.set("ipv4/ip_forward", "many"), std::runtime_error);
}

TEST(Host, KnowsItsNeighbours) {
  const Surroundings surroundings;
  const Host& router = surroundings.router;
  EXPECT_THAT(router.arp_table(), IsEmpty());
  ASSERT_TRUE(pings("10.1.0.2"));
  std::vector<ArpEntry> table = router.arp_table();
  ASSERT_THAT(table, SizeIs(1));
  EXPECT_EQ(table[0].address, "10.1.0.2");
  EXPECT_EQ(table[0].hardware_type, "0x1");
  EXPECT_EQ(table[0].flags, "0x2");
  EXPECT_EQ(table[0].hardware_address, "02:00:00:00:01:02");
  EXPECT_EQ(table[0].mask, "*");
  EXPECT_EQ(table[0].device, "wan0");

  router.ip("neigh replace 10.1.0.2 lladdr 02:00:00:00:09:09 dev wan0 nud permanent");
  table = router.arp_table();
  ASSERT_THAT(table, SizeIs(1));
  EXPECT_EQ(table[0].flags, "0x6");
  EXPECT_EQ(table[0].hardware_address, "02:00:00:00:09:09");
  router.ip("neigh del 10.1.0.2 dev wan0");
  EXPECT_THAT(router.arp_table(), testing::Not(testing::Contains(testing::Field(
                                      &ArpEntry::hardware_address, "02:00:00:00:09:09"))));
}

TEST(Host, AnswersNoPingsWhenItIsNotTo) {
  const Surroundings surroundings;
  surroundings.gateway.answer_pings(false);
  EXPECT_FALSE(pings("10.1.0.2", kNever));
  EXPECT_THAT(surroundings.router.arp_table(), SizeIs(1));
  surroundings.gateway.answer_pings(true);
  EXPECT_TRUE(pings("10.1.0.2"));
}

TEST(Host, ResolvesNothingWithoutArp) {
  const Surroundings surroundings;
  surroundings.gateway.ip("link set eth0 arp off");
  EXPECT_FALSE(pings("10.1.0.2", kNever));
  const std::vector<ArpEntry> table = surroundings.router.arp_table();
  ASSERT_THAT(table, SizeIs(1));
  EXPECT_EQ(table[0].flags, "0x0");
}

TEST(Surroundings, ReachesTheDistantHostThroughTheGateway) {
  const Surroundings surroundings;
  Capture capture(surroundings.router, "wan0");
  ASSERT_TRUE(pings("10.2.0.2"));
  const Echo request = echo_in(capture.wait_for(support::is_echo_request));
  EXPECT_EQ(request.hardware_destination, "02:00:00:00:01:02");
  EXPECT_EQ(request.destination, "10.2.0.2");
  EXPECT_EQ(echo_in(capture.wait_for(support::is_echo_reply)).time_to_live, 63);
  EXPECT_TRUE(surroundings.distant.run([] { return pings("10.1.0.1"); }));
}

TEST(Surroundings, HasNoDefaultRoute) {
  const Surroundings surroundings;
  EXPECT_THROW(pings("10.3.0.1"), std::system_error);
}

TEST(Surroundings, HasRoutesOfIpv6) {
  const Surroundings surroundings;
  EXPECT_THAT(surroundings.router.ip("route get fd00:2::2"),
              HasSubstr("via fd00:1::2 dev wan0 src fd00:1::1"));
}

// Each test finds what the first one found.
TEST(Surroundings, LeavesNothingBehind) {
  constexpr char kAll[] = "addr show\nroute show table all\nrule show\nneigh show";
  const auto descriptors = support::open_descriptors();
  const std::string before = Host::here().ip(kAll);
  for (int i = 0; i < support::rounds(5) + 1; ++i) {
    const Surroundings surroundings;
    EXPECT_TRUE(pings("10.2.0.2"));
  }
  EXPECT_EQ(Host::here().ip(kAll), before);
  EXPECT_EQ(support::open_descriptors(), descriptors);
}

TEST(Link, MayBeGoneBeforeItsEnd) {
  const Surroundings surroundings;
  surroundings.router.ip("link del wan0");
  EXPECT_EQ(::if_nametoindex("wan0"), 0U);
}

TEST(Link, LeavesNothingWhenItCannotBeMade) {
  const Host router = Host::here();
  const Host neighbour;
  const auto make = [&](const std::string& far_address) {
    const Link link({router, "wan0", "02:00:00:00:01:01", {"10.1.0.1/24"}},
                    {neighbour, "eth0", "02:00:00:00:01:02", {far_address}});
    return pings("10.1.0.2");
  };
  EXPECT_THROW(make("10.1.0.300/24"), std::runtime_error);
  EXPECT_EQ(::if_nametoindex("wan0"), 0U);
  EXPECT_TRUE(make("10.1.0.2/24"));
}

TEST(Link, CarriesNothingThatNobodySent) {
  const Surroundings surroundings;
  Capture capture(surroundings.router, "wan0");
  pause_us(50000);
  const auto is_ipv4_or_arp = [](const Frame& frame) {
    return frame.bytes[12] == 8 && (frame.bytes[13] == 0 || frame.bytes[13] == 6);
  };
  EXPECT_THAT(capture.frames(is_ipv4_or_arp), IsEmpty());
}

TEST(HostsFile, IsForItsTimeAlone) {
  const auto text = [] {
    std::ifstream file("/etc/hosts");
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  {
    const HostsFile names("10.1.0.2 a-name-of-ours\n");
    EXPECT_EQ(text(), "10.1.0.2 a-name-of-ours\n");
  }
  EXPECT_THAT(text(), testing::Not(HasSubstr("a-name-of-ours")));
  EXPECT_THAT(support::run_program({"mount"}).output, testing::Not(HasSubstr("/etc/hosts")));
}

TEST(Capture, SeesWhatGoesOutAndWhatComesIn) {
  const Surroundings surroundings;
  Capture near(surroundings.router, "wan0");
  Capture far(surroundings.gateway, "eth0");
  ASSERT_TRUE(pings("10.1.0.2"));

  const Frame sent = near.wait_for(support::is_echo_request);
  const Frame taken = far.wait_for(support::is_echo_request);
  EXPECT_TRUE(sent.outgoing);
  EXPECT_FALSE(taken.outgoing);
  EXPECT_EQ(sent.bytes, taken.bytes);
  EXPECT_EQ(sent.bytes.size(), support::kIcmpOffset + 8);
  const Frame answered = far.wait_for(support::is_echo_reply);
  const Frame received = near.wait_for(support::is_echo_reply);
  EXPECT_TRUE(answered.outgoing);
  EXPECT_FALSE(received.outgoing);
  EXPECT_EQ(answered.bytes, received.bytes);
}

// The kernel stamps nothing while no socket wants it, and begins a little late.
TEST(Capture, StampsTheVeryFirstFrame) {
  const Surroundings surroundings;
  for (int i = 0; i < support::rounds(50); ++i) {
    Capture capture(surroundings.router, "wan0");
    FrameSocket(surroundings.router, "wan0").send(support::make_frame(example()));
    std::timespec sent = {};
    ::clock_gettime(CLOCK_REALTIME, &sent);
    pause_us(10000);
    const std::timespec time = capture.wait_for(support::is_echo_request).time;
    EXPECT_LE(time.tv_sec * 1000000000LL + time.tv_nsec, sent.tv_sec * 1000000000LL + sent.tv_nsec);
  }
}

TEST(Capture, StampsFramesWithTheirTime) {
  const Surroundings surroundings;
  ASSERT_TRUE(pings("10.1.0.2"));
  Capture capture(surroundings.router, "wan0");
  const auto as_us = [](const std::timespec& time) {
    return std::int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
  };
  const auto now_us = [&] {
    std::timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return as_us(now);
  };
  const std::int64_t before = now_us();
  ASSERT_TRUE(pings("10.1.0.2"));
  const std::int64_t after = now_us();
  pause_us(20000);  // the stamp is not of when a frame is fetched
  const std::int64_t request = as_us(capture.wait_for(support::is_echo_request).time);
  const std::int64_t reply = as_us(capture.wait_for(support::is_echo_reply).time);
  EXPECT_LE(before, request);
  EXPECT_LE(request, reply);
  EXPECT_LE(reply, after);
}

TEST(Capture, KeepsTheFramesInTheirOrder) {
  const Surroundings surroundings;
  Capture capture(surroundings.router, "wan0");
  const Pinger pinger;
  constexpr std::uint16_t kCount = 100;
  pinger.send("10.1.0.2", 1);
  ASSERT_TRUE(pinger.is_answered(1, kSoon));  // the hardware address is known from here on
  for (std::uint16_t i = 2; i <= kCount; ++i) pinger.send("10.1.0.2", i);
  for (std::uint16_t i = 1; i <= kCount; ++i) {
    EXPECT_EQ(echo_in(capture.wait_for(support::is_echo_request)).sequence, i);
  }
  EXPECT_THAT(capture.frames(support::is_echo_request), SizeIs(kCount));
}

TEST(Capture, ThrowsWhenNothingComes) {
  const Surroundings surroundings;
  Capture capture(surroundings.router, "wan0");
  EXPECT_THROW(capture.wait_for(support::is_echo_request, kNever), std::runtime_error);
  EXPECT_THROW(Capture(surroundings.router, "eth0"), std::system_error);
}

TEST(Capture, OutlivesAnInterfaceThatIsDownForAWhile) {
  const Surroundings surroundings;
  Capture capture(surroundings.router, "wan0");
  surroundings.router.ip("link set wan0 down\nlink set wan0 up");
  EXPECT_THAT(capture.frames(support::is_echo_request), IsEmpty());
}

TEST(FrameSocket, SendsBytesAsTheyAre) {
  const Surroundings surroundings;
  Capture near(surroundings.router, "wan0");
  const FrameSocket far(surroundings.gateway, "eth0");
  const Bytes frame = {2, 0, 0, 0, 1, 1, 9, 9, 9, 9, 9, 9, 0x88, 0xb5, 1, 2, 3};
  far.send(frame);
  const Frame received =
      near.wait_for([](const Frame& each) { return each.bytes[12] == 0x88; }, kSoon);
  EXPECT_EQ(received.bytes, frame);
  EXPECT_FALSE(received.outgoing);
  EXPECT_THROW(far.send({1}), std::system_error);
}

TEST(Echo, IsReadAsItWasMade) {
  Echo echo = example();
  echo.time_to_live = 7;
  echo.code = 3;
  echo.type = 11;
  echo.ip_options = {1, 1, 1, 0};
  const std::optional<Echo> read = support::read_echo(support::make_frame(echo));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->hardware_source, echo.hardware_source);
  EXPECT_EQ(read->hardware_destination, echo.hardware_destination);
  EXPECT_EQ(read->source, echo.source);
  EXPECT_EQ(read->destination, echo.destination);
  EXPECT_EQ(read->time_to_live, 7);
  EXPECT_EQ(read->ip_options, echo.ip_options);
  EXPECT_EQ(read->type, 11);
  EXPECT_EQ(read->code, 3);
  EXPECT_EQ(read->identifier, 0x1234);
  EXPECT_EQ(read->sequence, 0x5678);
  EXPECT_EQ(read->payload, echo.payload);
}

TEST(Echo, HasTheBytesOfTheStandards) {
  const Bytes expected = {2,    0,  0,    0,    1,    2,    2,    0,    0,   0,   1,
                          1,    8,  0,  // Ethernet
                          0x45, 0,  0,    31,   0,    0,    0,    0,    64,  1,   0x66,
                          0xda, 10, 1,    0,    1,    10,   1,    0,    2,               // RFC 791
                          8,    0,  0xca, 0xf0, 0x12, 0x34, 0x56, 0x78, 'a', 'b', 'c'};  // RFC 792
  EXPECT_EQ(support::make_frame(example()), expected);
}

TEST(Echo, IsNothingInOtherFrames) {
  const Bytes frame = support::make_frame(example());
  for (std::size_t size = 0; size < frame.size(); ++size) {
    EXPECT_FALSE(support::read_echo(Bytes(frame.begin(), frame.begin() + static_cast<int>(size))));
  }
  for (const std::size_t offset : {12U, 14U, 23U}) {
    Bytes other = frame;
    other[offset] ^= 0x11U;
    EXPECT_FALSE(support::read_echo(other)) << offset;
  }
  EXPECT_TRUE(support::read_echo(frame));
}

TEST(Echo, HasAChecksumThatTheKernelTakes) {
  const Surroundings surroundings;
  Capture capture(surroundings.gateway, "eth0");
  FrameSocket(surroundings.router, "wan0").send(support::make_frame(example()));
  const Echo reply = echo_in(capture.wait_for(support::is_echo_reply));
  EXPECT_EQ(reply.identifier, 0x1234);
  EXPECT_EQ(reply.payload, example().payload);
}

TEST(ChecksumByDefinition, IsThatOfTheExample) {
  // RFC 1071, section 3: the sum of these is 0xddf2.
  const Bytes data = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
  EXPECT_EQ(support::checksum_by_definition(data.data(), 8), 0x220d);
  EXPECT_EQ(support::checksum_by_definition(data.data(), 7), 0x2304);
  EXPECT_EQ(support::checksum_by_definition(data.data(), 0), 0xffff);
}

TEST(EchoResponder, AnswersInPlaceOfTheKernel) {
  const Surroundings surroundings;
  Capture capture(surroundings.router, "wan0");
  {
    const EchoResponder responder(surroundings.gateway, "eth0",
                                  [](const Echo& request, const FrameSocket& wire) {
                                    Echo reply = support::reply_to(request);
                                    reply.time_to_live = 9;
                                    wire.send(support::make_frame(reply));
                                  });
    EXPECT_TRUE(pings("10.1.0.2"));
    EXPECT_EQ(responder.requests(), 1);
  }
  EXPECT_EQ(echo_in(capture.wait_for(support::is_echo_reply)).time_to_live, 9);
  EXPECT_THAT(capture.frames(support::is_echo_reply), SizeIs(1));
  EXPECT_TRUE(pings("10.1.0.2"));
}

TEST(EchoResponder, MayBeSilentLateOrWrong) {
  const Surroundings surroundings;
  const Pinger pinger;
  const EchoResponder responder(surroundings.gateway, "eth0",
                                [](const Echo& request, const FrameSocket& wire) {
                                  if (request.sequence == 1) return;
                                  Echo reply = support::reply_to(request);
                                  if (request.sequence == 2) pause_us(200000);
                                  if (request.sequence == 3) reply.sequence = 30;
                                  wire.send(support::make_frame(reply));
                                });
  pinger.send("10.1.0.2", 1);
  EXPECT_FALSE(pinger.is_answered(1, kNever));
  pinger.send("10.1.0.2", 2);
  EXPECT_FALSE(pinger.is_answered(2, kNever));
  EXPECT_TRUE(pinger.is_answered(2, kSoon));
  pinger.send("10.1.0.2", 3);
  EXPECT_TRUE(pinger.is_answered(30, kSoon));
}

TEST(EchoResponder, SeesRequestsToOthersOnTheirWay) {
  const Surroundings surroundings;
  surroundings.distant.answer_pings(false);
  const EchoResponder responder(surroundings.gateway, "eth0",
                                [](const Echo& request, const FrameSocket& wire) {
                                  wire.send(support::make_frame(support::reply_to(request)));
                                });
  EXPECT_TRUE(pings("10.2.0.2"));
}

}  // namespace
