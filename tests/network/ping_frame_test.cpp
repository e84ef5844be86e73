// Pings with frames to a gateway: the frame as it is on the wire, past the routing table; the
// answers that count; the time that is waited and told; and every failure.

#include <cerrno>
#include <ctime>
#include <optional>

#include "ping_fixture.h"
#include "support/failing_calls.h"
#include "support/network/marked_frames.h"
#include "support/small_stack.h"

namespace {

using support::Bytes;
using support::Echo;
using support::Frame;
using support::make_frame;
using support::reply_to;
using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

// What is said before the frame.
const Messages kBeginning =
    beginning(kGateway, "0A010001, mask FFFFFF00, dest 0A020002, is_ptp 0") +
    Messages{progress("cannot ping 10.2.0.2 directly, must use gateway 10.1.0.2"),
             progress("discovered 02:00:00:00:01:02 for 10.1.0.2"),
             debug("rawping[wan0] => sending raw ping to 10.2.0.2")};
const Messages kSucceeded = {progress("raw ping to 10.2.0.2 succeeded")};
const Messages kNoReply = {progress("received no valid raw reply from 10.2.0.2")};

Messages sent(int identifier, int size = 48) {
  return kBeginning + frame_sent(kDistant, 1, identifier, size);
}

int ping(unsigned timeout_ms = 500, int size = -1, time_difference* took = nullptr,
         const std::uint32_t* mark = nullptr) {
  return __rawping("wan0", kDistant, kGateway, nullptr, nullptr, timeout_ms, size, took, mark);
}

using Answer = std::function<std::vector<Bytes>(const Echo& request)>;

// Pings the distant host through the gateway, whose hardware address is known.
class FramePing : public PingTestWithASecondInterface {
 protected:
  FramePing() { tell_gateway_mac(); }

  // The distant host says nothing; the gateway answers in the sleep of this number.
  int ping_answered_with(const Answer& answer, int pause = 1, unsigned timeout_ms = 500,
                         int size = -1, time_difference* took = nullptr) {
    hosts_.distant.answer_pings(false);
    PassingTime time;
    time.at_pause(pause, [&] { send_from_gateway(answer(next_request())); });
    return ping(timeout_ms, size, took);
  }
};

std::vector<Bytes> right_answer(const Echo& request) { return {make_frame(reply_to(request))}; }

// ---- The frame ----

void put16(Bytes& bytes, std::size_t at, std::size_t value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8U);
  bytes[at + 1] = static_cast<std::uint8_t>(value);
}

Bytes request_frame(std::size_t size, int identifier) {
  Bytes frame = {2, 0,  0, 0, 1, 2,  2, 0, 0, 0,  1, 1, 8, 0, 0x45, 0, 0, 0, 0, 0, 0x40,
                 0, 64, 1, 0, 0, 10, 1, 0, 1, 10, 2, 0, 2, 8, 0,    0, 0, 0, 0, 0, 1};
  frame.resize(size);
  put16(frame, 16, size - 14);
  put16(frame, 38, static_cast<std::size_t>(identifier));
  put16(frame, 24, support::checksum_by_definition(&frame[14], 20));
  put16(frame, 36, support::checksum_by_definition(&frame[34], size - 34));
  return frame;
}

TEST_F(FramePing, SendsFramesOf48To1450Bytes) {
  struct Case {
    int size;
    std::size_t sent;
  };
  for (const Case each : {Case{-1, 48}, Case{47, 48}, Case{48, 48}, Case{49, 49}, Case{98, 98},
                          Case{1450, 1450}, Case{1451, 1450}}) {
    EXPECT_EQ(ping(kLong, each.size), 0);
    const Messages messages = log_.take();
    const int identifier = identifier_in(messages);
    EXPECT_THAT(messages, ElementsAreArray(sent(identifier, static_cast<int>(each.sent)) +
                                           frame_reply(1, identifier, 1) + kSucceeded));
    const Frame request = wire_.wait_for(support::is_echo_request);
    EXPECT_TRUE(request.outgoing);
    EXPECT_EQ(request.bytes, request_frame(each.sent, identifier)) << each.size;
  }
}

TEST_F(FramePing, IsWhatRawpingDoesToHostsOutside) {
  EXPECT_EQ(rawping("wan0", kDistant, kGateway, kLong), 0);
  const Messages messages = log_.take();
  const int identifier = identifier_in(messages);
  EXPECT_THAT(messages,
              ElementsAreArray(sent(identifier) + frame_reply(1, identifier, 1) + kSucceeded));
}

TEST_F(FramePing, GoesPastTheRoutesOfTheKernel) {
  support::Capture elsewhere(hosts_.router, "a-name-of-15-ch");
  hosts_.router.ip("route replace 10.2.0.0/24 via 10.3.0.2 dev a-name-of-15-ch");
  EXPECT_EQ(ping(), 0);
  hosts_.router.ip("route del 10.2.0.0/24\nroute add unreachable 10.2.0.0/24");
  EXPECT_EQ(ping(), 0);
  hosts_.router.ip("route del unreachable 10.2.0.0/24");
  EXPECT_EQ(next_request().hardware_destination, kGatewayMac);
  EXPECT_EQ(next_request().hardware_destination, kGatewayMac);
  EXPECT_THAT(elsewhere.frames(support::is_echo_request), IsEmpty());
  EXPECT_THAT(log_.take(), SizeIs(20));
}

TEST_F(FramePing, SendsFromTheSourceThatIsGiven) {
  const PassingTime time;
  EXPECT_EQ(__rawping("wan0", kDistant, kGateway, "10.1.0.77", "255.255.255.0", 500, -1, nullptr,
                      nullptr),
            -1);
  const Echo request = next_request();
  EXPECT_EQ(request.source, "10.1.0.77");
  EXPECT_EQ(request.hardware_source, kOwnMac);
  const Messages messages = log_.take();
  EXPECT_EQ(messages[0], progress("interface runs 10.1.0.77/255.255.255.0 (02:00:00:00:01:01)"));
  EXPECT_EQ(messages[1], debug("gateway 10.1.0.2 (source 0A01004D, mask FFFFFF00, dest 0A020002, "
                               "is_ptp 0)"));
}

TEST_F(FramePing, CarriesTheMark) {
  const support::MarkedFrames marked("wan0", 0x87654321);
  const std::uint32_t mark = 0x87654321;
  EXPECT_EQ(ping(kLong, -1, nullptr, &mark), 0);
  EXPECT_EQ(marked.count(), 1);
  EXPECT_EQ(ping(), 0);
  EXPECT_EQ(marked.count(), 0);
  EXPECT_THAT(log_.take(), SizeIs(20));
}

TEST_F(FramePing, HasNoMarkOf0UnlessItIsGiven) {
  const support::MarkedFrames unmarked("wan0", 0);
  const std::uint32_t mark = 0;
  EXPECT_EQ(ping(kLong, -1, nullptr, &mark), 0);
  EXPECT_GE(unmarked.count(), 1);
  EXPECT_THAT(log_.take(), SizeIs(10));
}

// ---- Answers ----

TEST_F(FramePing, PassesOverWhatIsNotTheAnswer) {
  const auto answer = [](const Echo& request) {
    const Echo right = reply_to(request);
    Bytes of_41_bytes = make_frame(right);
    of_41_bytes.resize(41);
    Echo for_others = right;
    for_others.hardware_destination = "02:00:00:00:01:0a";
    Echo from_others = right;
    from_others.hardware_source = "02:00:00:0b:01:02";
    Echo with_options = right;
    with_options.ip_options = Bytes(4, 1);
    Echo other_sequence = right;
    other_sequence.sequence = 256;
    return std::vector<Bytes>{of_41_bytes,
                              make_frame(for_others),
                              make_frame(from_others),
                              make_frame(with_options),
                              make_frame(other_sequence),
                              make_frame(right)};
  };
  EXPECT_EQ(ping_answered_with(answer), 0);
  const Messages messages = log_.take();
  const int identifier = identifier_in(messages);
  const support::LogLine received = frame_reply(1, identifier, 1).front();
  ASSERT_THAT(messages, SizeIs(7 + 1 + 2 + 2 + 2 + 2 + 2 + 1));
  EXPECT_EQ(messages[7], progress("packet is too short (41 bytes, need 42 bytes)"));
  EXPECT_EQ(messages[8], received);
  EXPECT_EQ(messages[9], progress("not for us (02:00:00:00:01:0a != 02:00:00:00:01:01)"));
  EXPECT_EQ(messages[10], received);
  EXPECT_EQ(messages[11], progress("not from target (02:00:00:0b:01:02 != 02:00:00:00:01:02)"));
  // Numbers are taken from where they are without options: here the type, code and checksum.
  EXPECT_THAT(messages[12].text, testing::StartsWith("rawping[wan0]: received packet (seq "));
  EXPECT_EQ(messages[13], progress("not an ICMP REPLY message"));
  EXPECT_THAT(Messages(messages.begin() + 14, messages.end()),
              ElementsAreArray(frame_reply(256, identifier, 1) + frame_reply(1, identifier, 1) +
                               kSucceeded));
}

// They do not even reach the socket.
TEST_F(FramePing, DoesNotSeeWhatTheFilterDrops) {
  const auto answer = [](const Echo& request) {
    Echo other_identifier = reply_to(request);
    ++other_identifier.identifier;
    Echo echo_request = reply_to(request);
    echo_request.type = support::kEchoRequest;
    echo_request.destination = kNobody;  // so that the router does not answer it
    Bytes of_other_protocol = make_frame(reply_to(request));
    of_other_protocol[23] = 17;
    Bytes fragment = make_frame(reply_to(request));
    fragment[21] = 1;
    Bytes of_other_type = make_frame(reply_to(request));
    of_other_type[13] = 6;
    return std::vector<Bytes>{make_frame(other_identifier), make_frame(echo_request),
                              of_other_protocol, fragment, of_other_type};
  };
  EXPECT_EQ(ping_answered_with(answer), -1);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(sent(identifier_in(messages)) + kNoReply));
}

TEST_F(FramePing, ReceivesThroughItsInterfaceAlone) {
  hosts_.distant.answer_pings(false);
  const support::FrameSocket other(neighbour_, "eth0");
  support::Capture capture(hosts_.router, "a-name-of-15-ch");
  PassingTime time;
  time.at_pause(1, [&] {
    other.send(make_frame(reply_to(next_request())));
    capture.wait_for(support::is_echo_reply);
  });
  EXPECT_EQ(ping(), -1);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(sent(identifier_in(messages)) + kNoReply));
}

TEST_F(FramePing, TakesTheAnswerFromAnyAddressBehindTheGateway) {
  const auto answer = [](const Echo& request) {
    Echo reply = reply_to(request);
    reply.source = "198.51.100.1";
    reply.destination = "198.51.100.2";
    return std::vector<Bytes>{make_frame(reply)};
  };
  EXPECT_EQ(ping_answered_with(answer), 0);
  EXPECT_THAT(log_.take(), SizeIs(10));
}

TEST_F(FramePing, EndsWithThe1024thFrame) {
  hosts_.distant.answer_pings(false);
  Echo request;
  std::vector<Bytes> others;
  PassingTime time;
  time.at_pause(1, [&] {
    request = next_request();
    Echo other = reply_to(request);
    other.sequence = 9;
    others.assign(128, make_frame(other));
    send_from_gateway(others);
  });
  for (int i = 2; i <= 8; ++i) {
    time.at_pause(i, [&] { send_from_gateway(others); });
  }
  time.at_pause(9, [&] { send_from_gateway(right_answer(request)); });
  EXPECT_EQ(ping(10000), -1);
  EXPECT_EQ(time.take_steps(), 8);
  const Messages messages = log_.take();
  ASSERT_THAT(messages, SizeIs(7 + 2 * 1024 + 1));
  EXPECT_EQ(messages.back(), kNoReply.back());
}

// ---- Time ----

TEST_F(FramePing, WaitsInStepsUntilTheTimeIsUp) {
  struct Case {
    unsigned timeout_ms;
    int steps;
  };
  hosts_.distant.answer_pings(false);
  for (const Case each : {Case{0, 3}, Case{600, 3}, Case{601, 4}, Case{10201, 35}}) {
    PassingTime time;
    EXPECT_EQ(ping(each.timeout_ms), -1);
    EXPECT_EQ(time.take_steps(), each.steps) << each.timeout_ms;
    const Messages messages = log_.take();
    EXPECT_THAT(messages, ElementsAreArray(sent(identifier_in(messages)) + kNoReply));
  }
}

TEST_F(FramePing, TellsTheTimeByTheMonotonicClock) {
  time_difference took = {-7, -7};
  EXPECT_EQ(ping_answered_with(right_answer, 2, kLong, -1, &took), 0);
  EXPECT_EQ(took.seconds, 0);
  EXPECT_EQ(took.nanoseconds, 600000000);
  EXPECT_THAT(log_.take(), SizeIs(10));
}

TEST_F(FramePing, TellsTheTimeOfTheFrameThatCameLastWithoutAnAnswer) {
  time_difference took = {-7, -7};
  const auto answer = [](const Echo& request) {
    Echo reply = reply_to(request);
    reply.sequence = 2;
    return std::vector<Bytes>{make_frame(reply)};
  };
  EXPECT_EQ(ping_answered_with(answer, 4, 1000, -1, &took), -1);
  EXPECT_EQ(took.seconds, 1);
  EXPECT_EQ(took.nanoseconds, 200000000);
  EXPECT_THAT(log_.take(), SizeIs(10));
}

std::int64_t nanoseconds(const time_difference& time) {
  return std::int64_t{time.seconds} * 1000000000 + time.nanoseconds;
}

TEST_F(FramePing, TellsTheTimeBetweenTheFrames) {
  time_difference took = {-7, -7};
  EXPECT_EQ(ping(kLong, -1, &took), 0);
  const Frame request = wire_.wait_for(support::is_echo_request);
  const Frame reply = wire_.wait_for(support::is_echo_reply);
  EXPECT_GE(nanoseconds(took), nanoseconds(diffts(&request.time, &reply.time)));
  EXPECT_LT(nanoseconds(took), 5000000000);
  EXPECT_THAT(log_.take(), SizeIs(10));
}

TEST_F(FramePing, TellsTheTimeOfSendingBelowZeroIfNothingCame) {
  hosts_.distant.answer_pings(false);
  time_difference took = {-7, -7};
  const support::StoppedClock clock;
  const std::timespec sent_at = clock.now();
  const std::timespec never = {};
  EXPECT_EQ(ping(500, -1, &took), -1);
  EXPECT_EQ(nanoseconds(took), nanoseconds(diffts(&sent_at, &never)));
  EXPECT_THAT(log_.take(), SizeIs(8));
}

// What came last was the gateway's answer to the IP packet, by the time of day.
TEST_F(FramePing, TellsNothingOfUseWithoutAnAnswerAfterAPingOfTheGateway) {
  hosts_.router.ip("neigh flush dev wan0");
  hosts_.distant.answer_pings(false);
  const auto now = [](clockid_t clock) {
    std::timespec time = {};
    ::clock_gettime(clock, &time);
    return time;
  };
  time_difference took = {-7, -7};
  const PassingTime time;
  const std::timespec monotonic_before = now(CLOCK_MONOTONIC);
  const std::timespec before = now(CLOCK_REALTIME);
  EXPECT_EQ(ping(500, -1, &took), -1);
  const std::timespec after = now(CLOCK_REALTIME);
  const std::timespec monotonic_after = now(CLOCK_MONOTONIC);
  EXPECT_GE(nanoseconds(took), nanoseconds(diffts(&monotonic_after, &before)));
  EXPECT_LE(nanoseconds(took), nanoseconds(diffts(&monotonic_before, &after)));
  const Messages messages = log_.take();
  EXPECT_EQ(messages.back(), kNoReply.back());
}

// ---- Failures ----

struct Failure {
  support::FailingCall call;
  const char* text;
  bool is_sent;
};

TEST_F(FramePing, FailsWhenASystemCallDoes) {
  const std::vector<Failure> failures = {
      // Sockets before it are for questions about the interface.
      {{SystemCall::kSocket, EMFILE, 2, 1}, "unable to open socket", false},
      {{SystemCall::kSetSocketOption, ENOMEM, 0, 1}, "unable to set filter", false},
      {{SystemCall::kSetSocketOption, EPERM, 1, 1}, "unable to set mark", false},
      {{SystemCall::kBind, ENODEV, 0, 1}, "unable to bind socket", false},
      // The messages before it are sent, too.
      {{SystemCall::kSend, ENOBUFS, 6, 1}, "cannot send 48 bytes to 10.2.0.2", false},
      {{SystemCall::kSend, 0, 6, 1}, "cannot send 48 bytes to 10.2.0.2", false},
      {{SystemCall::kReceive, ENETDOWN, 0, 1}, "unable to receive reply", true},
  };
  for (const Failure& failure : failures) {
    const std::uint32_t mark = 1;
    run_with_failing_calls({failure.call}, [&] { EXPECT_EQ(ping(500, -1, nullptr, &mark), -1); });
    const Messages messages = log_.take();
    Messages expected = sent(identifier_in(messages));
    if (!failure.is_sent) expected.pop_back();
    expected.push_back(err(std::string("rawping[wan0]: ") + failure.text + " (" +
                           text_of(failure.call.error) + ")"));
    EXPECT_THAT(messages, ElementsAreArray(expected)) << failure.text;
  }
}

TEST_F(FramePing, TellsNoTimeIfNothingWasSent) {
  time_difference took = {-7, -7};
  run_with_failing_calls({{SystemCall::kBind, ENODEV}},
                         [&] { EXPECT_EQ(ping(500, -1, &took), -1); });
  EXPECT_EQ(nanoseconds(took), 0);
  EXPECT_THAT(log_.take(), SizeIs(7));
}

// The gateway's address stays in the table, of another interface.
TEST_F(FramePing, FailsOnAnInterfaceThatIsDown) {
  hosts_.router.ip(
      "neigh replace 10.1.0.2 lladdr 02:00:00:00:01:02 dev a-name-of-15-ch nud permanent\n"
      "link set wan0 down");
  EXPECT_EQ(ping(), -1);
  const Messages messages = log_.take();
  Messages expected = sent(identifier_in(messages));
  expected.back() =
      err("rawping[wan0]: cannot send 48 bytes to 10.2.0.2 (" + text_of(ENETDOWN) + ")");
  EXPECT_THAT(messages, ElementsAreArray(expected));
}

TEST_F(FramePing, FailsWhenTheInterfaceGoesDownMeanwhile) {
  hosts_.distant.answer_pings(false);
  PassingTime time;
  time.at_pause(2, [&] { hosts_.router.ip("link set wan0 down"); });
  EXPECT_EQ(ping(), -1);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(sent(identifier_in(messages)) +
                                         Messages{err("rawping[wan0]: unable to receive reply (" +
                                                      text_of(ENETDOWN) + ")")}));
}

TEST_F(FramePing, GoesOnAfterSignals) {
  run_with_failing_calls({{SystemCall::kSend, EINTR, 6, 2}, {SystemCall::kReceive, EINTR, 0, 3}},
                         [] { EXPECT_EQ(ping(), 0); });
  EXPECT_THAT(log_.take(), SizeIs(10));
}

TEST_F(FramePing, NeedsLittleStack) {
  support::run_on_small_stack([] { EXPECT_EQ(ping(kLong, 1450), 0); });
  EXPECT_THAT(log_.take(), SizeIs(10));
}

}  // namespace
