// route_get_interface(): what it says to the kernel, and what it makes of the answers.

#include <rkutils/route.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <syslog.h>

#include "network/netlink_bytes.h"
#include "network/netlink_calls.h"
#include "network/route_lookup.h"
#include "support/allocation_faults.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"
#include "support/run_program.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

using namespace netlink_bytes;
using netlink_calls::Answer;
using netlink_calls::Option;
using netlink_calls::pointer_to;
using netlink_calls::Received;
using netlink_calls::Sent;
using netlink_calls::Witness;
using rkutils::internal::UniqueFd;
using route_lookup::found;
using route_lookup::look_up;
using route_lookup::not_found;
using route_lookup::Outcome;
using route_lookup::Target;
using support::CallArguments;
using support::FailingCall;
using support::LogLine;
using support::SystemCall;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned kLoopback = 1;  // its index, always

LogLine debug(const std::string& text) { return {LOG_DEBUG, text}; }

LogLine query_failed(int error) {
  return debug(std::string("rtq: netlink query failed: ") + std::strerror(error));
}

const LogLine kAsking = {LOG_DEBUG, "looking up route for 127.0.0.1"};
const LogLine kAnswered = {LOG_DEBUG, "127.0.0.1 goes to lo"};
const LogLine kNoInterface = {LOG_DEBUG, "rtq: no dest interface found"};

// A test leaves no message unread and no descriptor open.
class RouteGetInterface : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_);
  }

  // Looks 127.0.0.1 up while these calls fail.
  static Outcome look_up_with(const std::vector<FailingCall>& failing) {
    Outcome outcome = {};
    support::run_with_failing_calls(failing, [&] { outcome = look_up("127.0.0.1"); });
    return outcome;
  }

  // Looks 127.0.0.1 up where these datagrams are the answers.
  Outcome look_up_answered(const std::vector<Answer>& answers) {
    Outcome outcome = {};
    witness_.answer(answers, [&] { outcome = look_up("127.0.0.1"); });
    return outcome;
  }

  support::SyslogCollector log_;
  std::map<int, std::string> descriptors_ = support::open_descriptors();
  Witness witness_;
};

// A datagram of the kernel's with what is made for whoever asks.
Answer answer(std::function<std::string(const Asker&)> make) {
  return [make = std::move(make)](const Sent& sent) { return Received{make(sent.asker)}; };
}

Answer route_to(unsigned interface) {
  return answer([=](const Asker& asker) { return route(asker, output_interface(interface)); });
}

Answer failure(int error) {
  return [=](const Sent&) {
    Received received;
    received.error = error;
    return received;
  };
}

// ---- What the kernel gets ----

TEST_F(RouteGetInterface, AsksForAnIPv4AddressIn36Bytes) {
  const std::time_t before = std::time(nullptr);
  Outcome outcome = {};
  witness_.watch([&] { outcome = look_up("127.1.2.3"); });
  const std::time_t after = std::time(nullptr);
  EXPECT_EQ(outcome, found("lo"));
  ASSERT_EQ(witness_.sent.size(), 1U);
  const Sent& sent = witness_.sent[0];
  EXPECT_EQ(sent.bytes, u32(36) + u16(26) + u16(1) + u32(sent.asker.sequence) + u32(0) +
                            "\x02\x20" + zeros(10) + u16(8) + u16(1) + "\x7F\x01\x02\x03");
  // It counts from the time, and the first request has the next number.
  EXPECT_GE(sent.asker.sequence, static_cast<std::uint32_t>(before + 1));
  EXPECT_LE(sent.asker.sequence, static_cast<std::uint32_t>(after + 1));
  EXPECT_EQ(sent.address, u16(AF_NETLINK) + zeros(10));
  EXPECT_EQ(sent.flags, 0);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("looking up route for 127.1.2.3"), debug("127.1.2.3 goes to lo")));
}

TEST_F(RouteGetInterface, AsksForAnIPv6AddressIn48Bytes) {
  Outcome outcome = {};
  witness_.watch([&] { outcome = look_up("::1"); });
  EXPECT_EQ(outcome, found("lo"));
  ASSERT_EQ(witness_.sent.size(), 1U);
  const Sent& sent = witness_.sent[0];
  EXPECT_EQ(sent.bytes, u32(48) + u16(26) + u16(1) + u32(sent.asker.sequence) + u32(0) +
                            "\x0A\x80" + zeros(10) + u16(20) + u16(1) + zeros(15) + "\x01");
  EXPECT_THAT(log_.take(), ElementsAre(debug("looking up route for ::1"), debug("::1 goes to lo")));
}

TEST_F(RouteGetInterface, AsksOverASocketOfItsOwn) {
  witness_.watch([] { EXPECT_EQ(look_up("127.0.0.1"), found("lo")); });
  EXPECT_THAT(witness_.sockets,
              ElementsAre(std::array<int, 3>{AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE}));
  EXPECT_THAT(witness_.options, ElementsAre(Option{SOL_SOCKET, SO_SNDBUF, 32768},
                                            Option{SOL_SOCKET, SO_RCVBUF, 1048576}));
  EXPECT_THAT(witness_.bound, ElementsAre(u16(AF_NETLINK) + zeros(10)));
  EXPECT_THAT(witness_.receive_sizes, ElementsAre(16384U));
  EXPECT_THAT(witness_.receive_flags, ElementsAre(0));
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

TEST_F(RouteGetInterface, LogsTheAddressAsTheCLibraryWritesIt) {
  const std::string longest = "2001:db8:1111:2222:3333:4444:5555:6666";
  look_up(longest);
  EXPECT_THAT(log_.take(), ElementsAre(debug("looking up route for " + longest), testing::_));
  look_up("2001:0DB8:0:0::1");
  EXPECT_THAT(log_.take(), ElementsAre(debug("looking up route for 2001:db8::1"), testing::_));
}

// ---- What the caller gives ----

TEST_F(RouteGetInterface, IsMinus1ForNullAndLogsNothing) {
  Target target("127.0.0.1");
  char interface[IF_NAMESIZE] = "";
  EXPECT_EQ(route_get_interface(nullptr, interface), -1);
  EXPECT_EQ(route_get_interface(target.get(), nullptr), -1);
  EXPECT_EQ(route_get_interface(nullptr, nullptr), -1);
  target.info().ai_addr = nullptr;
  EXPECT_EQ(look_up(target.get()), not_found());
}

TEST_F(RouteGetInterface, IsMinus1ForOtherFamiliesAndLogsNothing) {
  for (const int family : {AF_UNSPEC, AF_UNIX, AF_PACKET, -1, 1, 3, 9, 11, 2 + 65536}) {
    Target target("::1");
    target.info().ai_family = family;
    witness_.watch([&] { EXPECT_EQ(look_up(target.get()), not_found()) << family; });
  }
  EXPECT_THAT(witness_.sockets, IsEmpty());
}

TEST_F(RouteGetInterface, TakesRecordsAtAnyPlaceInMemory) {
  for (std::size_t offset = 1; offset < 4; ++offset) {
    EXPECT_EQ(look_up(Target("127.0.0.1", offset).get()), found("lo"));
    EXPECT_EQ(look_up(Target("::1", offset).get()), found("lo"));
  }
  EXPECT_THAT(log_.take(), testing::SizeIs(12));
}

TEST_F(RouteGetInterface, TakesWhatTheResolverGives) {
  addrinfo* addresses = nullptr;
  ASSERT_EQ(::getaddrinfo("127.0.0.1", nullptr, nullptr, &addresses), 0);
  EXPECT_EQ(look_up(addresses), found("lo"));
  ::freeaddrinfo(addresses);
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

TEST_F(RouteGetInterface, WritesTheLongestName) {
  const std::string name = "uplink-0123456x";
  ASSERT_EQ(name.size(), IF_NAMESIZE - 1U);
  ASSERT_EQ(support::run_program({"ip", "link", "add", name, "type", "bridge"}).status, 0);
  const unsigned index = ::if_nametoindex(name.c_str());
  EXPECT_EQ(look_up_answered({route_to(index)}), found(name));
  EXPECT_EQ(support::run_program({"ip", "link", "del", name}).status, 0);
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, debug("127.0.0.1 goes to " + name)));
}

TEST_F(RouteGetInterface, NeedsNoMoreStackThanAThreadHas) {
  support::run_on_small_stack([] { EXPECT_EQ(look_up("127.0.0.1"), found("lo")); });
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

TEST_F(RouteGetInterface, IsDoneBeforeItsThreadIsCancelled) {
  Outcome outcome = {};
  EXPECT_TRUE(support::finishes_though_cancelled([&] { outcome = look_up("127.0.0.1"); }));
  EXPECT_EQ(outcome, found("lo"));
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

// ---- Steps that fail ----

TEST_F(RouteGetInterface, IsMinus1WithoutMemory) {
  const Target target("127.0.0.1");
  char interface[IF_NAMESIZE] = "kept";
  int result = 0;
  {
    const support::FailingAllocation failing(1);
    result = route_get_interface(target.get(), interface);
    EXPECT_TRUE(failing.happened());
  }
  EXPECT_EQ(result, -1);
  EXPECT_STREQ(interface, "kept");
  EXPECT_THAT(log_.take(), ElementsAre(debug("rtq: no mem for request")));
}

TEST_F(RouteGetInterface, FreesWhatItAllocates) {
  const Target target("127.0.0.1");
  const Target unreachable("192.0.2.1");
  char interface[IF_NAMESIZE] = "";
  // The C library keeps what it makes at its first message.
  EXPECT_EQ(route_get_interface(target.get(), interface), 0);
  log_.take();
  const long before = support::unfreed_count();
  EXPECT_EQ(route_get_interface(target.get(), interface), 0);
  EXPECT_EQ(route_get_interface(unreachable.get(), interface), -1);
  EXPECT_EQ(support::unfreed_count(), before);
  EXPECT_THAT(log_.take(), testing::SizeIs(4));
}

TEST_F(RouteGetInterface, IsMinus1WithoutADescriptorForTheSocket) {
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(look_up("127.0.0.1"), not_found());
  }
  EXPECT_THAT(log_.take(), ElementsAre(debug("rtq: unable to open netlink socket")));
}

TEST_F(RouteGetInterface, IsMinus1WithoutADescriptorForTheName) {
  {
    const support::NoMoreDescriptors none(1);
    EXPECT_EQ(look_up("127.0.0.1"), not_found());
  }
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kNoInterface));
}

TEST_F(RouteGetInterface, IsMinus1WhenTheSocketCannotBeMadeReady) {
  const std::vector<std::pair<FailingCall, std::string>> cases = {
      {{SystemCall::kSocket, EACCES}, "rtq: unable to open netlink socket"},
      {{SystemCall::kSetSocketOption, ENOBUFS, 0, 1}, "rtq: unable to set buffer size"},
      {{SystemCall::kSetSocketOption, ENOBUFS, 1, 1}, "rtq: unable to set buffer size"},
      {{SystemCall::kBind, EADDRINUSE}, "rtq: unable to bind netlink socket"},
      {{SystemCall::kGetSocketName, ENOBUFS}, "rtq: invalid netlink socket"},
  };
  for (const auto& [failing, text] : cases) {
    EXPECT_EQ(look_up_with({failing}), not_found());
    EXPECT_THAT(log_.take(), ElementsAre(debug(text)));
  }
}

// Where all the steps from one on would fail, that one is told about.
TEST_F(RouteGetInterface, TakesItsStepsInOrder) {
  const std::vector<std::pair<SystemCall, LogLine>> steps = {
      {SystemCall::kSocket, debug("rtq: unable to open netlink socket")},
      {SystemCall::kSetSocketOption, debug("rtq: unable to set buffer size")},
      {SystemCall::kBind, debug("rtq: unable to bind netlink socket")},
      {SystemCall::kGetSocketName, debug("rtq: invalid netlink socket")},
      {SystemCall::kSendMessage, debug("rtq: unable to query netlink")},
      {SystemCall::kReceiveMessage, query_failed(EIO)},
  };
  for (std::size_t first = 0; first < steps.size(); ++first) {
    std::vector<FailingCall> failing;
    for (std::size_t i = first; i < steps.size(); ++i) failing.push_back({steps[i].first, EIO});
    EXPECT_EQ(look_up_with(failing), not_found());
    const std::vector<LogLine> lines = log_.take();
    ASSERT_THAT(lines, testing::Not(IsEmpty()));
    EXPECT_EQ(lines.back(), steps[first].second);
    EXPECT_EQ(lines.size(), first < 4 ? 1U : 2U);
  }
}

// getsockname() gives this.
FailingCall with_local_address(sa_family_t family, socklen_t length) {
  FailingCall call = {SystemCall::kGetSocketName, 0};
  call.decide = [=](const CallArguments& arguments) {
    auto* const address = pointer_to<sockaddr_nl>(arguments[1]);
    address->nl_family = family;
    address->nl_pid = 4711;
    *pointer_to<socklen_t>(arguments[2]) = length;
    return std::optional<std::int64_t>(0);
  };
  return call;
}

TEST_F(RouteGetInterface, IsMinus1WhenTheSocketsAddressIsNoNetlinkAddress) {
  for (const FailingCall& call :
       {with_local_address(AF_INET, 12), with_local_address(AF_NETLINK, 11),
        with_local_address(AF_NETLINK, 13), with_local_address(AF_NETLINK, 0)}) {
    EXPECT_EQ(look_up_with({call}), not_found());
    EXPECT_THAT(log_.take(), ElementsAre(debug("rtq: invalid netlink socket")));
  }
}

TEST_F(RouteGetInterface, GoesByThePortIdThatIsReadBack) {
  witness_.watch([] { EXPECT_EQ(look_up("127.0.0.1"), not_found()); },
                 {with_local_address(AF_NETLINK, 12), {SystemCall::kReceiveMessage, EIO, 1}});
  // The kernel's answer is for another port id, so that the next one is waited for.
  EXPECT_EQ(witness_.sent.size(), 1U);
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(EIO)));
}

TEST_F(RouteGetInterface, IsMinus1WhenTheRequestCannotBeSent) {
  EXPECT_EQ(look_up_with({{SystemCall::kSendMessage, ENOBUFS}}), not_found());
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, debug("rtq: unable to query netlink")));
}

TEST_F(RouteGetInterface, SendsAgainWhenASignalInterruptsIt) {
  EXPECT_EQ(look_up_with({{SystemCall::kSendMessage, EINTR, 0, 3}}), found("lo"));
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

TEST_F(RouteGetInterface, ReceivesAgainWhenItIsInterruptedOrWouldBlock) {
  for (const int error : {EINTR, EAGAIN}) {
    EXPECT_EQ(look_up_with({{SystemCall::kReceiveMessage, error, 0, 3}}), found("lo"));
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
  }
}

TEST_F(RouteGetInterface, IsMinus1WhenNothingCanBeReceived) {
  for (const int error : {ENOBUFS, ECONNREFUSED, 0}) {
    const Outcome outcome = look_up_with({{SystemCall::kReceiveMessage, error}});
    EXPECT_EQ(outcome, not_found());
    EXPECT_EQ(outcome.error, error);
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(error)));
  }
}

TEST_F(RouteGetInterface, IsMinus1WhenTheSendersAddressIsNoNetlinkAddress) {
  for (const socklen_t length : {0U, 2U, 8U, 11U}) {
    const Outcome outcome = look_up_answered({[=](const Sent& sent) {
      Received received{route(sent.asker, output_interface(kLoopback))};
      received.address_length = length;
      return received;
    }});
    EXPECT_EQ(outcome, not_found());
    EXPECT_EQ(outcome.error, 0);
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(0)));
  }
}

// ---- Answers ----

TEST_F(RouteGetInterface, FindsTheInterfaceInAnAnswer) {
  EXPECT_EQ(look_up_answered({route_to(kLoopback)}), found("lo"));
  EXPECT_EQ(witness_.receive_sizes.size(), 1U);
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

TEST_F(RouteGetInterface, ReceivesUntilAnAnswerIsThere) {
  const auto other = [](const Asker& asker) {
    return route({asker.port, asker.sequence - 1}, output_interface(kLoopback)) +
           route({asker.port + 1, asker.sequence}, output_interface(kLoopback));
  };
  const Answer from_a_program = [](const Sent& sent) {
    Received received{route(sent.asker, output_interface(666))};
    received.sender = sent.asker.port;
    return received;
  };
  const Answer truncated = [=](const Sent& sent) {
    Received received{other(sent.asker) + "left"};
    received.flags = MSG_TRUNC;
    return received;
  };
  EXPECT_EQ(look_up_answered({answer(other), from_a_program, truncated, route_to(kLoopback)}),
            found("lo"));
  EXPECT_EQ(witness_.receive_sizes.size(), 4U);
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

TEST_F(RouteGetInterface, WaitsForAnswersWithoutLimit) {
  std::vector<Answer> answers(100, answer([](const Asker& asker) {
                                return message(kDone, {asker.port, 0});
                              }));
  answers.push_back(failure(EINTR));
  answers.push_back(route_to(kLoopback));
  EXPECT_EQ(look_up_answered(answers), found("lo"));
  EXPECT_EQ(witness_.sent.size(), 1U);
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

TEST_F(RouteGetInterface, FindsTheAnswerBetweenOthers) {
  EXPECT_EQ(look_up_answered({answer([](const Asker& asker) {
              return route({asker.port, 1}, output_interface(666)) +
                     route(asker, output_interface(kLoopback)) +
                     route(asker, output_interface(666));
            })}),
            found("lo"));
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

TEST_F(RouteGetInterface, IsMinus1ForAMalformedDatagram) {
  const std::vector<std::function<std::string(const Asker&)>> datagrams = {
      [](const Asker&) { return std::string("x"); },
      [](const Asker& asker) { return route(asker, output_interface(kLoopback)).substr(0, 15); },
      [](const Asker& asker) { return message_of_length(15, kNewRoute, asker, zeros(20)); },
      [](const Asker& asker) { return message_of_length(37, kNewRoute, asker, zeros(20)); },
      [](const Asker& asker) { return message_of_length(0xFFFFFFF0, kNewRoute, asker, ""); },
      [](const Asker& asker) {
        return message(kNewRoute, {asker.port, 1}) + "left";
      },
  };
  for (const auto& datagram : datagrams) {
    const Outcome outcome = look_up_answered({answer(datagram), route_to(kLoopback)});
    EXPECT_EQ(outcome, not_found());
    EXPECT_EQ(outcome.error, 0);
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(0)));
  }
}

// Whatever errno was, before the call or in it.
TEST_F(RouteGetInterface, TellsNoOldReasonForAMalformedDatagram) {
  EXPECT_EQ(look_up_answered({failure(EINTR), answer([](const Asker&) { return "x"; })}),
            not_found());
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(0)));
}

TEST_F(RouteGetInterface, TellsTheKernelsError) {
  for (const int code : {ENETUNREACH, EHOSTUNREACH, EINVAL, EACCES, EPERM}) {
    const Outcome outcome =
        look_up_answered({answer([=](const Asker& asker) { return error(asker, -code); })});
    EXPECT_EQ(outcome, not_found());
    EXPECT_EQ(outcome.error, code);
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(code)));
  }
}

TEST_F(RouteGetInterface, IsMinus1ForAnAcknowledgementToo) {
  const Outcome outcome = look_up_answered(
      {answer([](const Asker& asker) { return error(asker, 0); }), route_to(kLoopback)});
  EXPECT_EQ(outcome, not_found());
  EXPECT_EQ(outcome.error, 0);
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(0)));
}

TEST_F(RouteGetInterface, IsMinus1ForAnErrorThatIsTooShortToTellAny) {
  for (const std::size_t size : {0U, 4U, 19U}) {
    const Outcome outcome = look_up_answered({answer([=](const Asker& asker) {
      return message(kError, asker, (number(-ENETUNREACH) + zeros(16)).substr(0, size));
    })});
    EXPECT_EQ(outcome, not_found());
    EXPECT_EQ(outcome.error, 0);
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(0)));
  }
}

TEST_F(RouteGetInterface, TakesNoOtherKindOfMessageForARoute) {
  for (const unsigned type : {0U, 1U, kDone, 16U, 23U, 25U, 26U, 24U + 256U}) {
    EXPECT_EQ(look_up_answered({answer([=](const Asker& asker) {
                return message(type, asker, zeros(12) + output_interface(kLoopback));
              })}),
              not_found());
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, debug("rtq: no route received")));
  }
}

// What is left of the request behind it does not count.
TEST_F(RouteGetInterface, TakesNoRouteThatIsTooShort) {
  for (const std::size_t size : {16U, 20U, 27U}) {
    EXPECT_EQ(look_up_answered({answer([=](const Asker& asker) {
                return message(kNewRoute, asker, zeros(size - kHeaderSize));
              })}),
              not_found());
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, debug("rtq: invalid answer")));
  }
}

TEST_F(RouteGetInterface, IsMinus1ForARouteWithoutAnInterface) {
  const std::vector<std::string> routes = {
      "",
      attribute(15, u32(254)),
      attribute(kOutputInterface, ""),
      attribute(kOutputInterface, "\x01"),
      output_interface(0),
      output_interface(666),
      output_interface(0xFFFFFFFF),
      output_interface(666) + output_interface(kLoopback),
      attribute_of_length(3, 7, "") + output_interface(kLoopback),
  };
  for (const std::string& attributes : routes) {
    EXPECT_EQ(
        look_up_answered({answer([&](const Asker& asker) { return route(asker, attributes); })}),
        not_found());
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, kNoInterface));
  }
}

// Of an answer only so many bytes are kept as a request may have.
TEST_F(RouteGetInterface, Reads1052BytesOfALongerAnswer) {
  const auto look_up_behind = [&](std::size_t size, std::size_t filler) {
    return look_up_answered({answer([=](const Asker& asker) {
      const std::string attributes = attribute(7, zeros(filler - 4)) + output_interface(kLoopback);
      return route(asker, attributes + zeros(size - kRouteSize - attributes.size()));
    })});
  };
  for (const std::size_t size : {1052U, 1053U, 2000U, 16384U}) {
    EXPECT_EQ(look_up_behind(size, 1016), found("lo")) << size;
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
  }
  for (const std::size_t size : {1056U, 2000U, 16384U}) {
    EXPECT_EQ(look_up_behind(size, 1020), not_found()) << size;
    EXPECT_THAT(log_.take(), ElementsAre(kAsking, kNoInterface));
    EXPECT_EQ(look_up_behind(size + 4, 1024), not_found()) << size;
    log_.take();
  }
}

TEST_F(RouteGetInterface, TakesAMessageThatIsCutForAMalformedOne) {
  EXPECT_EQ(look_up_answered({answer([](const Asker& asker) {
              return route(asker, output_interface(kLoopback) + zeros(16384));
            })}),
            not_found());
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, query_failed(0)));
}

// ---- Other programs that send to the socket ----

// Real datagrams, which are there before the kernel's answer is.
TEST_F(RouteGetInterface, IsNotMisledByDatagramsOfOtherPrograms) {
  int forged = 0;
  witness_.before_sending = [&](const Sent& sent) {
    const UniqueFd program(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    const std::vector<std::string> datagrams = {
        route(sent.asker, output_interface(666)),
        error(sent.asker, -ENETUNREACH),
        route({sent.asker.port, 1}, output_interface(666)),
        message(kDone, sent.asker),
        message(kNewRoute, {1, 2}, zeros(12000)),
        // What is too long is cut, here in the second header.
        message(kNewRoute, {1, 2}, zeros(16376 - kHeaderSize)) + message(kNewRoute, {1, 2}),
    };
    for (const std::string& datagram : datagrams) {
      sockaddr_nl address = {};
      address.nl_family = AF_NETLINK;
      address.nl_pid = sent.asker.port;
      if (::sendto(program.get(), datagram.data(), datagram.size(), 0,
                   reinterpret_cast<const sockaddr*>(&address),
                   sizeof address) == static_cast<ssize_t>(datagram.size())) {
        ++forged;
      }
    }
  };
  witness_.watch([] { EXPECT_EQ(look_up("127.0.0.1"), found("lo")); });
  EXPECT_EQ(forged, 6);
  EXPECT_EQ(witness_.receive_sizes.size(), 7U);
  EXPECT_THAT(log_.take(), ElementsAre(kAsking, kAnswered));
}

}  // namespace
