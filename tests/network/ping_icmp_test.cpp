// icmpping(): the packet, the answers that count, the time that is waited, and every failure.

#include <cerrno>
#include <thread>

#include "ping_fixture.h"
#include "support/failing_calls.h"
#include "support/interruption.h"
#include "support/network/hosts_file.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/stopwatch.h"
#include "support/without_privileges.h"

namespace {

using namespace std::chrono_literals;
using support::Bytes;
using support::Echo;
using support::Frame;
using support::HostsFile;
using support::make_frame;
using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Every request has these numbers.
constexpr std::uint16_t kIdentifier = 0;
constexpr std::uint16_t kSequence = 1;

support::LogLine transmitted(const std::string& target, const std::string& interface = "wan0") {
  return debug("icmpping: packet transmitted on " + interface + " for " + target +
               " (64 bytes, id 1, seq 0)");
}

support::LogLine received(int sequence, int identifier, const std::string& interface = "wan0") {
  return debug("icmpping: RECEIVED icmp reply on " + interface + " (seq " +
               std::to_string(sequence) + ", id " + std::to_string(identifier) +
               ", need seq 1, id 0)");
}

const support::LogLine kTooShort = err("icmpping: packet is too short");
const support::LogLine kNotAReply = err("icmpping: packet is not a reply");

Echo right_reply() { return gateway_reply(kIdentifier, kSequence); }

class IcmpPing : public PingTest {
 protected:
  // Pings the gateway, which answers with these frames during the first sleep.
  int ping_answered_with(const std::vector<Bytes>& frames) {
    silence_gateway();
    PassingTime time;
    time.at_pause(1, [&] { send_from_gateway(frames); });
    return icmpping("wan0", kGateway, 500);
  }
};

// ---- The packet ----

TEST_F(IcmpPing, SendsARequestOf64Bytes) {
  EXPECT_EQ(icmpping("wan0", kGateway, kLong), 0);
  const Frame request = wire_.wait_for(support::is_echo_request);
  EXPECT_TRUE(request.outgoing);
  Bytes expected = {8, 0, 0xF7, 0xFE, 0, 0, 0, 1};
  expected.resize(64);
  EXPECT_EQ(Bytes(request.bytes.begin() + support::kIcmpOffset, request.bytes.end()), expected);
  const Echo echo = echo_in(request);
  EXPECT_EQ(echo.source, kOwn);
  EXPECT_EQ(echo.destination, kGateway);
  EXPECT_THAT(echo.ip_options, IsEmpty());
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), received(1, 0)));
  EXPECT_THAT(wire_.frames(support::is_echo_request), SizeIs(1));
}

TEST_F(IcmpPing, SendsTheSameEachTime) {
  EXPECT_EQ(icmpping("wan0", kGateway, kLong), 0);
  EXPECT_EQ(icmpping("wan0", kGateway, kLong), 0);
  const Frame first = wire_.wait_for(support::is_echo_request);
  const Frame second = wire_.wait_for(support::is_echo_request);
  EXPECT_EQ(echo_in(second).identifier, kIdentifier);
  EXPECT_EQ(echo_in(second).sequence, kSequence);
  EXPECT_EQ(first.bytes.size(), second.bytes.size());
  EXPECT_THAT(log_.take(), SizeIs(4));
}

TEST_F(IcmpPing, ReachesHostsBehindAGateway) {
  EXPECT_EQ(icmpping("wan0", kDistant, kLong), 0);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kDistant), received(1, 0)));
}

TEST_F(IcmpPing, TakesNamesAndLogsTheirAddress) {
  const HostsFile names("10.1.0.2 gateway.example gw\n10.1.0.9 gw\n");
  EXPECT_EQ(icmpping("wan0", "gateway.example", kLong), 0);
  EXPECT_EQ(icmpping("wan0", "gw", kLong), 0);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), received(1, 0), transmitted(kGateway),
                                       received(1, 0)));
}

// The request itself comes in there, too.
TEST_F(IcmpPing, OfTheRouterItselfTakesTheAnswerAndNotTheRequest) {
  EXPECT_EQ(icmpping("lo", "127.0.0.1", kLong), 0);
  EXPECT_THAT(log_.take(),
              ElementsAre(transmitted("127.0.0.1", "lo"), kNotAReply, received(1, 0, "lo")));
}

// ---- The interface ----

using IcmpPingWithASecondInterface = PingTestWithASecondInterface;

TEST_F(IcmpPingWithASecondInterface, SendsThroughTheOneThatIsNamed) {
  PassingTime time;
  EXPECT_EQ(icmpping("wan0", "10.3.0.2", 500), -1);
  EXPECT_THAT(wire_.frames(support::is_echo_request), IsEmpty());
  EXPECT_THAT(log_.take(), ElementsAre(transmitted("10.3.0.2")));
}

TEST_F(IcmpPingWithASecondInterface, ReceivesThroughTheOneThatIsNamed) {
  silence_gateway();
  const support::FrameSocket other(neighbour_, "eth0");
  support::Capture capture(hosts_.router, "a-name-of-15-ch");
  Echo reply = right_reply();
  reply.hardware_destination = "02:00:00:00:03:01";
  PassingTime time;
  time.at_pause(1, [&] {
    other.send(make_frame(reply));
    capture.wait_for(support::is_echo_reply);
  });
  EXPECT_EQ(icmpping("wan0", kGateway, 500), -1);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway)));
}

TEST_F(IcmpPingWithASecondInterface, CutsNamesAfter15Characters) {
  EXPECT_EQ(icmpping("a-name-of-15-characters", "10.3.0.2", kLong), 0);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted("10.3.0.2", "a-name-of-15-characters"),
                                       received(1, 0, "a-name-of-15-characters")));
}

// ---- Answers ----

TEST_F(IcmpPing, TakesTheAnswerFromAnyHost) {
  Echo reply = right_reply();
  reply.source = kNobody;
  reply.hardware_source = "02:00:00:00:09:09";
  EXPECT_EQ(ping_answered_with({make_frame(reply)}), 0);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), received(1, 0)));
}

TEST_F(IcmpPing, FindsTheAnswerBehindIpOptions) {
  Echo reply = right_reply();
  reply.ip_options = Bytes(40, 1);
  EXPECT_EQ(ping_answered_with({make_frame(reply)}), 0);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), received(1, 0)));
}

TEST_F(IcmpPing, TakesPacketsOf76BytesAndMore) {
  Echo reply = gateway_reply(kIdentifier, kSequence, 47);
  const Bytes of_75_bytes = make_frame(reply);
  reply.payload.resize(48);
  const Bytes of_76_bytes = make_frame(reply);
  EXPECT_EQ(ping_answered_with({of_75_bytes, of_76_bytes}), 0);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), kTooShort, received(1, 0)));
}

TEST_F(IcmpPing, TakesPacketsLongerThanItsBuffer) {
  EXPECT_EQ(ping_answered_with({make_frame(gateway_reply(kIdentifier, kSequence, 1472))}), 0);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), received(1, 0)));
}

TEST_F(IcmpPing, PassesOverWhatIsNotTheAnswer) {
  Echo unreachable = right_reply();
  unreachable.type = 3;
  Echo request = right_reply();
  request.type = support::kEchoRequest;
  const std::vector<Bytes> frames = {make_frame(gateway_reply(kIdentifier, 2)),
                                     make_frame(gateway_reply(256, kSequence)),
                                     make_frame(gateway_reply(0xFFFF, 0xFFFE)),
                                     make_frame(unreachable),
                                     make_frame(gateway_reply(1, 0)),
                                     make_frame(request),
                                     make_frame(gateway_reply(kIdentifier, 1, 30)),
                                     make_frame(right_reply())};
  EXPECT_EQ(ping_answered_with(frames), 0);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), received(2, 0), received(1, 256),
                                       received(65534, 65535), kNotAReply, received(0, 1),
                                       kNotAReply, kTooShort, received(1, 0)));
}

TEST_F(IcmpPing, EndsWithThe1024thPacket) {
  silence_gateway();
  constexpr int kBatch = 128;
  const std::vector<Bytes> others(kBatch, make_frame(gateway_reply(kIdentifier, 7)));
  std::vector<Bytes> others_and_answer = others;
  for (const bool in_time : {true, false}) {
    // The answer is the last packet that is read, or the first that is not.
    others_and_answer.assign(kBatch + 1, others.front());
    others_and_answer[in_time ? kBatch - 1 : kBatch] = make_frame(right_reply());
    PassingTime time;
    for (int i = 1; i <= 7; ++i) {
      time.at_pause(i, [&] { send_from_gateway(others); });
    }
    time.at_pause(8, [&] { send_from_gateway(others_and_answer); });
    EXPECT_EQ(icmpping("wan0", kGateway, 10000), in_time ? 0 : -1);
    EXPECT_EQ(time.take_steps(), 8);
    const auto lines = log_.take();
    ASSERT_THAT(lines, SizeIs(1 + 1024));
    EXPECT_EQ(lines[1], received(7, 0));
    EXPECT_EQ(lines.back(), in_time ? received(1, 0) : received(7, 0));
  }
}

// ---- Time ----

TEST_F(IcmpPing, WaitsInStepsUntilTheTimeIsUp) {
  struct Case {
    unsigned timeout_ms;
    int steps;
  };
  silence_gateway();
  for (const Case each : {Case{0, 3}, Case{500, 3}, Case{600, 3}, Case{601, 4}, Case{900, 4},
                          Case{901, 5}, Case{10201, 35}}) {
    PassingTime time;
    EXPECT_EQ(icmpping("wan0", kGateway, each.timeout_ms), -1);
    EXPECT_EQ(time.take_steps(), each.steps) << each.timeout_ms;
    EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway)));
  }
}

TEST_F(IcmpPing, TakesAnAnswerThatComesBeforeTheLastStep) {
  silence_gateway();
  PassingTime time;
  time.at_pause(2, [&] { send_from_gateway({make_frame(right_reply())}); });
  EXPECT_EQ(icmpping("wan0", kGateway, kLong), 0);
  EXPECT_EQ(time.take_steps(), 2);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), received(1, 0)));
}

TEST_F(IcmpPing, DoesNotSeeAnAnswerThatComesInTheLastStep) {
  silence_gateway();
  PassingTime time;
  time.at_pause(3, [&] { send_from_gateway({make_frame(right_reply())}); });
  EXPECT_EQ(icmpping("wan0", kGateway, 500), -1);
  EXPECT_EQ(time.take_steps(), 3);
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway)));
}

TEST_F(IcmpPing, WaitsInRealTimeThroughSignals) {
  silence_gateway();
  const support::Interruption interruption;
  std::thread pinging([] {
    const support::Stopwatch watch;
    EXPECT_EQ(icmpping("wan0", kGateway, 0), -1);
    EXPECT_GE(watch.elapsed(), 900ms);
    std::this_thread::sleep_for(1s);  // for the signals that come late
  });
  for (int i = 0; i < 4; ++i) support::Interruption::send(pinging);
  pinging.join();
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway)));
}

// ---- Failures ----

TEST_F(IcmpPing, WantsATargetAndAnInterface) {
  for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(icmpping("wan0", nothing, 500), -1);
    EXPECT_EQ(icmpping(nothing, nothing, 500), -1);
    EXPECT_EQ(icmpping(nothing, kGateway, 500), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(err("icmpping: no target given"), err("icmpping: no target given"),
                            err("icmpping: no interface given")));
  }
  EXPECT_THAT(wire_.frames(support::is_echo_request), IsEmpty());
}

TEST_F(IcmpPing, FailsForHostsWithoutAnAddress) {
  const HostsFile names("fd00:1::2 only-ipv6\n");
  for (const char* target : {"missing.example", "only-ipv6", "fd00:1::2"}) {
    EXPECT_EQ(icmpping("wan0", target, 500), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(err(std::string("icmpping[wan0]: invalid target '") + target + "'")));
  }
}

TEST_F(IcmpPing, FailsForAnUnknownInterface) {
  EXPECT_EQ(icmpping("wan7", kGateway, 500), -1);
  EXPECT_EQ(icmpping("%s%n", kGateway, 500), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("icmpping: can't bind to wan7 (" + text_of(ENODEV) + ")"),
                          err("icmpping: can't bind to %s%n (" + text_of(ENODEV) + ")")));
}

TEST_F(IcmpPing, FailsOnAnInterfaceThatIsDown) {
  hosts_.router.ip("link set wan0 down");
  EXPECT_EQ(icmpping("wan0", kGateway, 500), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("icmpping: packet transmission failed (" +
                                           text_of(ENETUNREACH) + ")")));
}

TEST_F(IcmpPing, FailsWithoutPrivileges) {
  support::run_without_privileges([] { EXPECT_EQ(icmpping("wan0", kGateway, 500), -1); });
  EXPECT_THAT(log_.take(),
              ElementsAre(err("icmpping: unable to open socket (" + text_of(EPERM) + ")")));
}

TEST_F(IcmpPing, LooksForTheTargetFirst) {
  run_with_failing_calls({{SystemCall::kSocket, EMFILE}},
                         [] { EXPECT_EQ(icmpping("wan7", "10.1.0.256", 500), -1); });
  EXPECT_THAT(log_.take(), ElementsAre(err("icmpping[wan7]: invalid target '10.1.0.256'")));
}

TEST_F(IcmpPing, FailsWithoutDescriptors) {
  run_with_failing_calls({{SystemCall::kSocket, EMFILE}},
                         [] { EXPECT_EQ(icmpping("wan0", kGateway, 500), -1); });
  EXPECT_THAT(log_.take(),
              ElementsAre(err("icmpping: unable to open socket (" + text_of(EMFILE) + ")")));
}

TEST_F(IcmpPing, FailsWhenLessIsSent) {
  run_with_failing_calls({{SystemCall::kSend, 0, 0, 1}},
                         [] { EXPECT_EQ(icmpping("wan0", kGateway, 500), -1); });
  EXPECT_THAT(log_.take(),
              ElementsAre(err("icmpping: packet transmission failed (" + text_of(0) + ")")));
}

TEST_F(IcmpPing, FailsWhenReceivingDoes) {
  run_with_failing_calls({{SystemCall::kReceive, ENETDOWN}},
                         [] { EXPECT_EQ(icmpping("wan0", kGateway, 500), -1); });
  EXPECT_THAT(log_.take(),
              ElementsAre(transmitted(kGateway), err("icmpping: unable to receive reply on wan0 (" +
                                                     text_of(ENETDOWN) + ")")));
}

TEST_F(IcmpPing, GoesOnAfterSignals) {
  run_with_failing_calls({{SystemCall::kSend, EINTR, 0, 2}, {SystemCall::kReceive, EINTR, 0, 3}},
                         [] { EXPECT_EQ(icmpping("wan0", kGateway, kLong), 0); });
  EXPECT_THAT(log_.take(), ElementsAre(transmitted(kGateway), received(1, 0)));
}

TEST_F(IcmpPing, NeedsLittleStack) {
  support::run_on_small_stack([] { EXPECT_EQ(icmpping("lo", "127.0.0.1", kLong), 0); });
  EXPECT_THAT(log_.take(), SizeIs(3));
}

}  // namespace
