// The echo client with real packets.

#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/ping_client.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "support/failing_calls.h"
#include "support/member_type.h"
#include "support/network/capture.h"
#include "support/network/echo.h"
#include "support/network/echo_responder.h"
#include "support/network/frame_socket.h"
#include "support/network/hosts_file.h"
#include "support/network/surroundings.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"
#include "support/virtual_slot.h"
#include "support/without_privileges.h"

namespace {

using rkutils::internal::Deadline;
using rkutils::internal::pause_us;
using support::Bytes;
using support::Capture;
using support::Echo;
using support::echo_in;
using support::EchoResponder;
using support::Frame;
using support::FrameSocket;
using support::HostsFile;
using support::is_echo_request;
using support::kIs;
using support::make_frame;
using support::reply_to;
using support::run_with_failing_calls;
using support::Surroundings;
using support::SystemCall;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned kReplied = 0;
constexpr unsigned kNothing = 2;
constexpr unsigned kFailed = 3;

// ---- What the class is ----

static_assert(kIs<&PingClient::sendSimplePing, int (PingClient::*)(String const&, String const&)>);
static_assert(kIs<&PingClient::checkPingResponse, unsigned (PingClient::*)()>);
static_assert(kIs<&PingClient::cleanup, void (PingClient::*)()>);
static_assert(kIs<&PingClient::checksum, int (PingClient::*)(unsigned short*, int) const>);
static_assert(!std::is_copy_constructible_v<PingClient> && !std::is_copy_assignable_v<PingClient>);
static_assert(std::has_virtual_destructor_v<PingClient>);
static_assert(sizeof(PingClient) == sizeof(void*) + 8, "the table, the socket, the two numbers");

// The members behind the table of virtual ones.
struct Members {
  std::int32_t socket;
  std::uint16_t identifier;
  std::uint16_t sequence;
};

Members members_of(const PingClient& client) {
  Members members = {};
  std::memcpy(&members, reinterpret_cast<const char*>(&client) + sizeof(void*), sizeof members);
  return members;
}

TEST(PingClientClass, HasItsVirtualMembersBehindTheDestructorsTwo) {
  EXPECT_THAT(std::vector({support::virtual_slot(&PingClient::sendSimplePing),
                           support::virtual_slot(&PingClient::checkPingResponse),
                           support::virtual_slot(&PingClient::cleanup),
                           support::virtual_slot(&PingClient::checksum)}),
              ElementsAre(2U, 3U, 4U, 5U));
}

TEST(PingClientClass, DrawsItsIdentifierAndThenItsSequence) {
  std::srand(1);
  const auto identifier = static_cast<std::uint16_t>(std::rand());
  const auto sequence = static_cast<std::uint16_t>(std::rand());
  const int next = std::rand();
  std::srand(1);
  const PingClient client;
  EXPECT_EQ(members_of(client).identifier, identifier);
  EXPECT_EQ(members_of(client).sequence, sequence);
  EXPECT_EQ(std::rand(), next);
  EXPECT_NE(identifier, sequence);
}

TEST(PingClientClass, HasNoSocketAtFirst) {
  const auto descriptors = support::open_descriptors();
  PingClient client;
  EXPECT_EQ(members_of(client).socket, -1);
  EXPECT_EQ(client.checkPingResponse(), kFailed);
  client.cleanup();
  EXPECT_EQ(members_of(client).socket, -1);
  EXPECT_EQ(support::open_descriptors(), descriptors);
}

// ---- With a network ----

// A test logs nothing.
class PingClientTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_THAT(log_.take(), IsEmpty()); }

  // What checkPingResponse() gives in the end, asked until it is something other than 2.
  static unsigned check(PingClient& client) {
    const Deadline deadline(10000);
    unsigned result = kNothing;
    while ((result = client.checkPingResponse()) == kNothing && deadline.remaining_ms() > 0) {
      pause_us(1000);
    }
    return result;
  }

  // Looks once, when all that is under way has come.
  static unsigned check_later(PingClient& client) {
    pause_us(50000);
    return client.checkPingResponse();
  }

  // Pings the gateway, which answers with these.
  using Answers = std::function<std::vector<Bytes>(const Echo& request)>;
  unsigned check_answers(const Answers& answers) {
    const Bytes last = {2, 0, 0, 0, 1, 1, 2, 0, 0, 0, 1, 2, 0x88, 0xb5};  // the others have come
    const EchoResponder responder(net_.gateway, "eth0",
                                  [&](const Echo& request, const FrameSocket& wire) {
                                    for (const Bytes& frame : answers(request)) wire.send(frame);
                                    wire.send(last);
                                  });
    PingClient client;
    EXPECT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
    capture_.wait_for([&](const Frame& frame) { return frame.bytes == last; });
    return check_later(client);
  }

  std::vector<Frame> requests() { return capture_.frames(is_echo_request); }

  support::SyslogCollector log_;
  const Surroundings net_;
  Capture capture_{net_.router, "wan0"};
};

// ---- sendSimplePing() ----

class PingClientSend : public PingClientTest {
 protected:
  // The next request on the wire.
  Echo next() { return echo_in(capture_.wait_for(is_echo_request)); }
};

Bytes join(std::initializer_list<Bytes> parts) {
  Bytes whole;
  for (const Bytes& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

TEST_F(PingClientSend, SendsTheRequestByteForByte) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  const Frame frame = capture_.wait_for(is_echo_request);
  EXPECT_TRUE(frame.outgoing);
  const Members members = members_of(client);
  const auto high = [](unsigned number) { return static_cast<std::uint8_t>(number >> 8U); };
  const auto low = [](unsigned number) { return static_cast<std::uint8_t>(number); };
  const Bytes ethernet = {2, 0, 0, 0, 1, 2, 2, 0, 0, 0, 1, 1, 8, 0};  // to the gateway; IPv4
  const Bytes ip = {0x45, 0, 0, 28, 0, 0, 0, 0, 128, 1, 0, 0};
  const Bytes source = {10, 1, 0, 1};
  const Bytes target = {10, 1, 0, 2};
  const Bytes icmp = {8, 0, 0, 0};
  const Bytes numbers = {high(members.identifier), low(members.identifier), high(members.sequence),
                         low(members.sequence)};
  Bytes expected = join({ethernet, ip, source, target, icmp, numbers});
  ASSERT_THAT(frame.bytes, SizeIs(expected.size()));
  // The kernel's own: identification and header checksum.
  for (const std::size_t i : {18U, 19U, 24U, 25U}) expected[i] = frame.bytes[i];
  const unsigned checksum = support::checksum_by_definition(expected.data() + 34, 8);
  expected[36] = high(checksum);
  expected[37] = low(checksum);
  EXPECT_EQ(frame.bytes, expected);
  EXPECT_EQ(support::checksum_by_definition(frame.bytes.data() + 14, 20), 0);
  EXPECT_EQ(support::checksum_by_definition(frame.bytes.data() + 34, 8), 0);
}

TEST_F(PingClientSend, CountsItsRequests) {
  std::srand(2);
  PingClient client;
  const Members before = members_of(client);
  for (std::uint16_t i = 1; i <= 3; ++i) {
    ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
    const Echo request = next();
    EXPECT_EQ(request.identifier, before.identifier);
    EXPECT_EQ(request.sequence, static_cast<std::uint16_t>(before.sequence + i));
  }
  EXPECT_THAT(requests(), SizeIs(3));
}

TEST_F(PingClientSend, CountsFrom65535To0) {
  constexpr std::uint16_t kLast = 0xffff;
  std::srand(1);
  int draws = 1;
  while (static_cast<std::uint16_t>(std::rand()) != kLast || draws < 2) ++draws;
  std::srand(1);
  for (int i = 0; i < draws - 2; ++i) std::rand();
  PingClient client;
  ASSERT_EQ(members_of(client).sequence, kLast);
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  EXPECT_EQ(next().sequence, 0);
  EXPECT_EQ(check(client), kReplied);
}

TEST_F(PingClientSend, BearsTheSourceThatIsGiven) {
  PingClient client;
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"10.1.0.1", "10.1.0.1"},          {"192.0.2.77", "192.0.2.77"},
      {"", "255.255.255.255"},           {"router", "255.255.255.255"},
      {"10.1.0.256", "255.255.255.255"}, {"0.0.0.0", "10.1.0.1"},  // the kernel fills in its own
  };
  for (const auto& [source, expected] : cases) {
    ASSERT_EQ(client.sendSimplePing("10.1.0.2", source), 0) << source;
    const Echo request = next();
    EXPECT_EQ(request.source, expected) << source;
    EXPECT_EQ(request.destination, "10.1.0.2");
  }
}

// The kernel's choice, where none is made: the reply comes.
TEST_F(PingClientSend, IsAnsweredWithoutASourceOfItsOwn) {
  for (const char* target : {"10.1.0.2", "10.2.0.2"}) {
    PingClient client;
    ASSERT_EQ(client.sendSimplePing(target, "0.0.0.0"), 0);
    EXPECT_EQ(next().source, "10.1.0.1");
    EXPECT_EQ(check(client), kReplied) << target;
  }
}

TEST_F(PingClientSend, ReadsTheSourceAsTheCLibraryDoes) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "192.0x2.77"), 0);
  EXPECT_EQ(next().source, "192.2.0.77");
}

TEST_F(PingClientSend, LeavesTheWayToTheKernel) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.2.0.2", "10.1.0.1"), 0);
  const Echo request = next();
  EXPECT_EQ(request.hardware_destination, "02:00:00:00:01:02");
  EXPECT_EQ(request.destination, "10.2.0.2");
  EXPECT_EQ(check(client), kReplied);
}

TEST_F(PingClientSend, TakesTheFirstAddressOfAName) {
  const HostsFile names("10.1.0.2 gateway.example gateway\n10.2.0.2 gateway\n");
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("gateway", "10.1.0.1"), 0);
  EXPECT_EQ(next().destination, "10.1.0.2");
  EXPECT_EQ(check(client), kReplied);
}

TEST_F(PingClientSend, ReadsTextsUpToTheirFirstNul) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing(String("10.1.0.2\0junk", 0, 13), String("10.1.0.1\0x", 0, 10)),
            0);
  EXPECT_EQ(next().source, "10.1.0.1");
}

TEST_F(PingClientSend, OpensARawSocketThatNoProgramInherits) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  const int socket = members_of(client).socket;
  const auto option = [&](int name) {
    int value = -1;
    socklen_t size = sizeof value;
    ::getsockopt(socket, SOL_SOCKET, name, &value, &size);
    return value;
  };
  EXPECT_EQ(option(SO_TYPE), SOCK_RAW);
  EXPECT_EQ(option(SO_PROTOCOL), IPPROTO_ICMP);
  EXPECT_EQ(option(SO_DOMAIN), AF_INET);
  EXPECT_EQ(::fcntl(socket, F_GETFD), FD_CLOEXEC);
}

TEST_F(PingClientSend, ClosesTheSocketOfTheRequestBefore) {
  const auto descriptors = support::open_descriptors();
  PingClient client;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
    EXPECT_THAT(support::open_descriptors(), SizeIs(descriptors.size() + 1));
  }
  client.cleanup();
  EXPECT_EQ(support::open_descriptors(), descriptors);
}

TEST_F(PingClientSend, KeepsItsSocketWhenTheTargetIsUnknown) {
  const HostsFile names("10.1.0.2 gateway\n");
  const std::string too_long(64, 'x');  // for a part of a name, so that no server is asked
  PingClient client;
  for (const std::string& target :
       {too_long, too_long + ".example", std::string(), std::string("fd00:1::2")}) {
    const Members before = members_of(client);
    EXPECT_EQ(client.sendSimplePing(target.c_str(), "10.1.0.1"), 1) << target;
    EXPECT_EQ(client.checkPingResponse(), kNothing);
    EXPECT_EQ(members_of(client).sequence, static_cast<std::uint16_t>(before.sequence + 1));
  }
  EXPECT_THAT(requests(), IsEmpty());
  client.cleanup();
  EXPECT_EQ(client.checkPingResponse(), kFailed);
}

TEST_F(PingClientSend, KeepsItsSocketWhenTheKernelDoesNotSend) {
  PingClient client;
  for (const char* target : {"10.3.0.1", "10.1.0.255", "255.255.255.255"}) {
    EXPECT_EQ(client.sendSimplePing(target, "10.1.0.1"), 1) << target;
    EXPECT_EQ(client.checkPingResponse(), kNothing) << target;
  }
  EXPECT_THAT(requests(), IsEmpty());
}

// Before the kernel writes its own fields.
TEST_F(PingClientSend, HandsTheKernelTheRequestByteForByte) {
  struct Send {
    std::array<std::uint8_t, 28> request;
    sockaddr_in target;
    std::uint64_t size;
    std::uint64_t flags;
    std::uint64_t target_size;
  };
  Send seen = {};
  const auto see = [&](const support::CallArguments& arguments) -> std::optional<std::int64_t> {
    const auto* const request = reinterpret_cast<const void*>(std::uintptr_t(arguments[1]));
    const auto* const target = reinterpret_cast<const void*>(std::uintptr_t(arguments[4]));
    std::memcpy(seen.request.data(), request, seen.request.size());
    std::memcpy(&seen.target, target, sizeof seen.target);
    seen.size = arguments[2];
    seen.flags = arguments[3];
    seen.target_size = arguments[5];
    return {};
  };
  PingClient client;
  run_with_failing_calls({{SystemCall::kSend, 0, 0, 0, {}, see}},
                         [&] { EXPECT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0); });
  const Members members = members_of(client);
  EXPECT_THAT(seen.request,
              ElementsAre(0x45, 0, 0, 28, 0, 0, 0, 0, 128, 1, 0x26, 0xdd, 10, 1, 0, 1, 10, 1, 0, 2,
                          8, 0, _, _, members.identifier >> 8U, members.identifier & 0xffU,
                          members.sequence >> 8U, members.sequence & 0xffU));
  EXPECT_EQ(support::checksum_by_definition(seen.request.data(), 20), 0);
  EXPECT_EQ(support::checksum_by_definition(seen.request.data() + 20, 8), 0);
  EXPECT_EQ(seen.size, 28U);
  EXPECT_EQ(seen.flags, 0U);
  EXPECT_EQ(seen.target_size, sizeof(sockaddr_in));
  EXPECT_EQ(seen.target.sin_family, AF_INET);
  EXPECT_EQ(seen.target.sin_port, 0);
  EXPECT_EQ(seen.target.sin_addr.s_addr, ::inet_addr("10.1.0.2"));
}

TEST_F(PingClientSend, FailsWhenNotAllWasSent) {
  PingClient client;
  for (const std::int64_t sent : {0, 27, -ENOBUFS}) {
    const auto send = [&](const support::CallArguments& /*arguments*/) { return sent; };
    run_with_failing_calls({{SystemCall::kSend, 0, 0, 0, {}, send}}, [&] {
      EXPECT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 1) << sent;
    });
    EXPECT_EQ(client.checkPingResponse(), kNothing);
  }
}

TEST_F(PingClientSend, SendsAgainWhenASignalInterruptsIt) {
  int tries = 0;
  const auto interrupt = [&](const support::CallArguments& /*arguments*/) {
    return ++tries < 4 ? std::optional<std::int64_t>(-EINTR) : std::nullopt;
  };
  PingClient client;
  run_with_failing_calls({{SystemCall::kSend, 0, 0, 0, {}, interrupt}},
                         [&] { EXPECT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0); });
  EXPECT_EQ(tries, 4);
  EXPECT_EQ(check(client), kReplied);
  EXPECT_THAT(requests(), SizeIs(1));
}

TEST_F(PingClientSend, KeepsItsSocketWhenThatTakesNoHeaders) {
  PingClient client;
  run_with_failing_calls({{SystemCall::kSetSocketOption, EPERM}},
                         [&] { EXPECT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 1); });
  EXPECT_THAT(requests(), IsEmpty());
  EXPECT_EQ(client.checkPingResponse(), kNothing);
}

TEST_F(PingClientSend, IsWithoutASocketWhereItMayHaveNone) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  support::run_without_privileges(
      [&] { EXPECT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 1); });
  EXPECT_EQ(members_of(client).socket, -1);
  EXPECT_EQ(client.checkPingResponse(), kFailed);
  {
    const support::NoMoreDescriptors none_left;
    EXPECT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 1);
    EXPECT_EQ(client.checkPingResponse(), kFailed);
  }
  EXPECT_THAT(requests(), SizeIs(1));
  EXPECT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  EXPECT_EQ(check(client), kReplied);
}

TEST_F(PingClientSend, WorksOnASmallStack) {
  const HostsFile names("10.1.0.2 gateway\n");
  support::run_on_small_stack([] {
    PingClient client;
    EXPECT_EQ(client.sendSimplePing("gateway", "10.1.0.1"), 0);
    EXPECT_EQ(check(client), kReplied);
  });
}

// ---- checkPingResponse() ----

using PingClientCheck = PingClientTest;

TEST_F(PingClientCheck, FindsTheReplyOnce) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  EXPECT_EQ(check(client), kReplied);
  EXPECT_EQ(check_later(client), kNothing);
}

TEST_F(PingClientCheck, FindsNothingWhereNobodyAnswers) {
  net_.gateway.answer_pings(false);
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  EXPECT_EQ(check_later(client), kNothing);
  EXPECT_EQ(client.checkPingResponse(), kNothing);
  EXPECT_THAT(requests(), SizeIs(1));
}

TEST_F(PingClientCheck, FindsTheReplyWhenItComes) {
  const EchoResponder late(net_.gateway, "eth0", [](const Echo& request, const FrameSocket& wire) {
    pause_us(300000);
    wire.send(make_frame(reply_to(request)));
  });
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  EXPECT_EQ(client.checkPingResponse(), kNothing);
  EXPECT_EQ(check_later(client), kNothing);
  EXPECT_EQ(check(client), kReplied);
}

// Each of them comes before the reply, and one call looks at both.
TEST_F(PingClientCheck, SkipsWhatIsNoReply) {
  struct Case {
    const char* name;
    std::function<void(Echo&)> change;
  };
  const std::vector<Case> cases = {
      {"old sequence", [](Echo& echo) { --echo.sequence; }},
      {"later sequence", [](Echo& echo) { ++echo.sequence; }},
      {"other identifier", [](Echo& echo) { echo.identifier ^= 0x100U; }},
      {"numbers exchanged", [](Echo& echo) { std::swap(echo.identifier, echo.sequence); }},
  };
  for (const Case& each : cases) {
    const auto other = [&](const Echo& request) {
      Echo echo = reply_to(request);
      each.change(echo);
      return make_frame(echo);
    };
    EXPECT_EQ(
        check_answers([&](const Echo& request) { return std::vector<Bytes>{other(request)}; }),
        kNothing)
        << each.name;
    EXPECT_EQ(check_answers([&](const Echo& request) {
                return std::vector<Bytes>{other(request), make_frame(reply_to(request))};
              }),
              kReplied)
        << each.name;
  }
}

TEST_F(PingClientCheck, TakesWhateverHasTheNumbers) {
  struct Case {
    const char* name;
    std::function<void(Echo&)> change;
  };
  const std::vector<Case> cases = {
      {"a reply", [](Echo&) {}},
      {"of another host", [](Echo& echo) { echo.source = "10.1.0.77"; }},
      {"of another type", [](Echo& echo) { echo.type = 42; }},
      {"with a code", [](Echo& echo) { echo.code = 1; }},
      {"with data", [](Echo& echo) { echo.payload.assign(56, 7); }},
      {"longer than what is read of it", [](Echo& echo) { echo.payload.assign(1400, 7); }},
      {"with the shortest IP options", [](Echo& echo) { echo.ip_options.assign(4, 1); }},
      {"with the longest IP options", [](Echo& echo) { echo.ip_options.assign(40, 1); }},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(check_answers([&](const Echo& request) {
                Echo echo = reply_to(request);
                each.change(echo);
                return std::vector<Bytes>{make_frame(echo)};
              }),
              kReplied)
        << each.name;
  }
}

// The frame with an ICMP message that is cut.
Bytes cut(const Bytes& frame, std::size_t icmp_size) {
  Bytes bytes = frame;
  bytes.resize(support::kIcmpOffset + icmp_size);
  std::uint8_t* const ip = bytes.data() + support::kIpOffset;
  ip[3] = static_cast<std::uint8_t>(20 + icmp_size);
  ip[10] = ip[11] = 0;
  const unsigned checksum = support::checksum_by_definition(ip, 20);
  ip[10] = static_cast<std::uint8_t>(checksum >> 8U);
  ip[11] = static_cast<std::uint8_t>(checksum);
  return bytes;
}

TEST_F(PingClientCheck, SkipsWhatIsTooShort) {
  EXPECT_EQ(check_answers([](const Echo& request) {
              std::vector<Bytes> answers;
              for (std::size_t size = 0; size < 8; ++size) {
                answers.push_back(cut(make_frame(reply_to(request)), size));
              }
              return answers;
            }),
            kNothing);
  EXPECT_EQ(check_answers([](const Echo& request) {
              return std::vector<Bytes>{cut(make_frame(reply_to(request)), 8)};
            }),
            kReplied);
}

// The numbers are in there, of the request that it is about.
TEST_F(PingClientCheck, SkipsErrorMessages) {
  net_.gateway.ip("route add unreachable 10.2.0.77");
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.2.0.77", "10.1.0.1"), 0);
  constexpr std::uint8_t kUnreachable = 3;
  capture_.wait_for([](const Frame& frame) { return support::has_icmp_type(frame, kUnreachable); });
  EXPECT_EQ(check_later(client), kNothing);
}

TEST_F(PingClientCheck, SkipsTheReplyToTheRequestBefore) {
  std::optional<Echo> first;
  const EchoResponder one_behind(net_.gateway, "eth0",
                                 [&](const Echo& request, const FrameSocket& wire) {
                                   if (first) wire.send(make_frame(reply_to(*first)));
                                   first = request;
                                 });
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  capture_.wait_for(support::is_echo_reply);
  EXPECT_EQ(check_later(client), kNothing);
}

// Nobody answers here: it is the request that comes back.
TEST_F(PingClientCheck, TakesARequestToItsOwnHostForTheReply) {
  net_.router.answer_pings(false);
  for (const char* target : {"127.0.0.1", "10.1.0.1"}) {
    Capture loopback(net_.router, "lo");
    PingClient client;
    EXPECT_EQ(client.sendSimplePing(target, target), 0);
    EXPECT_EQ(check(client), kReplied) << target;
    EXPECT_EQ(check_later(client), kNothing) << target;
    EXPECT_THAT(loopback.frames(is_echo_request), SizeIs(2));  // going and coming
    EXPECT_THAT(loopback.frames(support::is_echo_reply), IsEmpty());
  }
  net_.router.answer_pings(true);
}

TEST_F(PingClientCheck, TakesEachClientsRepliesApart) {
  PingClient first;
  PingClient second;
  ASSERT_EQ(first.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  EXPECT_EQ(second.sendSimplePing("10.3.0.1", "10.1.0.1"), 1);
  EXPECT_EQ(check(first), kReplied);
  EXPECT_EQ(check_later(second), kNothing);
}

TEST_F(PingClientCheck, FailsWhenReceivingDoes) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  for (const int error : {EINTR, EIO, ENOMEM}) {
    run_with_failing_calls({{SystemCall::kReceive, error}},
                           [&] { EXPECT_EQ(client.checkPingResponse(), kFailed) << error; });
  }
  run_with_failing_calls({{SystemCall::kReceive, EAGAIN}},
                         [&] { EXPECT_EQ(client.checkPingResponse(), kNothing); });
  EXPECT_EQ(check(client), kReplied);
}

TEST_F(PingClientCheck, ReceivesUpTo256BytesWithoutWaiting) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> sizes_and_flags;
  const auto see = [&](const support::CallArguments& arguments) -> std::optional<std::int64_t> {
    sizes_and_flags.emplace_back(arguments[2], arguments[3]);
    return {};
  };
  net_.gateway.answer_pings(false);
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  run_with_failing_calls({{SystemCall::kReceive, 0, 0, 0, {}, see}},
                         [&] { EXPECT_EQ(client.checkPingResponse(), kNothing); });
  EXPECT_THAT(sizes_and_flags, ElementsAre(testing::Pair(256U, unsigned{MSG_DONTWAIT})));
}

TEST_F(PingClientCheck, SkipsWhatIsEmpty) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  capture_.wait_for(support::is_echo_reply);
  pause_us(50000);
  run_with_failing_calls({{SystemCall::kReceive, 0, 0, 3}},
                         [&] { EXPECT_EQ(client.checkPingResponse(), kReplied); });
}

TEST_F(PingClientCheck, FailsAfterACleanup) {
  PingClient client;
  ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
  client.cleanup();
  EXPECT_EQ(client.checkPingResponse(), kFailed);
  client.cleanup();
  EXPECT_EQ(client.checkPingResponse(), kFailed);
}

// Otherwise the process would end where that unwinds the stack.
TEST_F(PingClientTest, EndsItsCallsBeforeItsThreadIsCancelled) {
  const auto descriptors = support::open_descriptors();
  PingClient client;
  int sent = 1;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { sent = client.sendSimplePing("10.1.0.2", "10.1.0.1"); }));
  EXPECT_EQ(sent, 0);
  capture_.wait_for(support::is_echo_reply);
  pause_us(50000);
  unsigned found = kNothing;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { found = client.checkPingResponse(); }));
  EXPECT_EQ(found, kReplied);
  EXPECT_TRUE(support::finishes_though_cancelled([&] { client.cleanup(); }));
  EXPECT_EQ(support::open_descriptors(), descriptors);
}

// ---- cleanup() and the destructor ----

using PingClientCleanup = PingClientTest;

TEST_F(PingClientCleanup, IsDoneByTheDestructor) {
  const auto descriptors = support::open_descriptors();
  {
    PingClient client;
    ASSERT_EQ(client.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
    EXPECT_NE(support::open_descriptors(), descriptors);
  }
  EXPECT_EQ(support::open_descriptors(), descriptors);
  std::unique_ptr<PingClient> client = std::make_unique<PingClient>();
  EXPECT_EQ(client->sendSimplePing("10.3.0.1", "10.1.0.1"), 1);
  client.reset();
  EXPECT_EQ(support::open_descriptors(), descriptors);
}

// Notes what is called.
class Watched : public PingClient {
 public:
  explicit Watched(std::string& calls) : calls_(calls) {}

  void cleanup() override {
    // The sequence tells that this is the first step.
    calls_ += "cleanup " + std::to_string(members_of(*this).sequence - first_) + "\n";
    PingClient::cleanup();
  }
  int checksum(unsigned short* /*data*/, int /*length*/) const override {
    calls_ += "checksum\n";
    return 0;
  }

 private:
  std::string& calls_;
  const int first_ = members_of(*this).sequence;
};

TEST_F(PingClientCleanup, IsCalledThroughTheTableBeforeEachRequest) {
  std::string calls;
  std::srand(3);
  {
    Watched client(calls);
    PingClient& base = client;
    EXPECT_EQ(base.sendSimplePing("10.1.0.2", "10.1.0.1"), 0);
    EXPECT_EQ(calls, "cleanup 0\n");
    EXPECT_EQ(check(client), kReplied);  // with its right checksums
    EXPECT_EQ(base.sendSimplePing("10.3.0.1", "10.1.0.1"), 1);
  }
  EXPECT_EQ(calls, "cleanup 0\ncleanup 1\n");
}

// ---- checksum() ----

// Of bytes at any address.
int checksum(std::uint8_t* data, std::size_t length) {
  const PingClient client;
  void* const address = data;
  return client.checksum(static_cast<unsigned short*>(address), static_cast<int>(length));
}

TEST(PingClientChecksum, IsThatOfTheExampleInRfc1071) {
  std::uint8_t data[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
  EXPECT_EQ(checksum(data, sizeof data), htons(0x220d));
}

TEST(PingClientChecksum, TakesALastOddByteAsTheFirstOfAWord) {
  std::uint8_t data[] = {0x12, 0x34, 0x56, 0xff};
  EXPECT_EQ(checksum(data, 3), htons(0x97cb));
  EXPECT_EQ(checksum(data, 1), htons(0xedff));
}

TEST(PingClientChecksum, OfNothingIsAllOnes) {
  const PingClient client;
  EXPECT_EQ(client.checksum(nullptr, 0), 0xffff);
  EXPECT_EQ(client.checksum(nullptr, -1), 0xffff);
}

TEST(PingClientChecksum, AgreesWithTheDefinition) {
  std::mt19937 random(1);
  std::vector<std::uint8_t> data(1500 + 3);
  for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random());
  for (std::size_t length = 0; length <= 1500; length += length < 64 ? 1 : 111) {
    for (std::size_t offset = 0; offset < 4; ++offset) {
      EXPECT_EQ(checksum(data.data() + offset, length),
                htons(support::checksum_by_definition(data.data() + offset, length)))
          << length << " bytes";
    }
  }
}

TEST(PingClientChecksum, Is16BitsAfterManyCarries) {
  std::vector<std::uint8_t> data(65536, 0xff);
  EXPECT_EQ(checksum(data.data(), data.size()), 0);
  data.back() = 0xfe;
  EXPECT_EQ(checksum(data.data(), data.size()), htons(1));
}

}  // namespace
