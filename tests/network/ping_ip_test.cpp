// Pings with IP packets: the packet as it is on the wire, the answers that count, the time that is
// waited and told, and every failure. Without a gateway, that is the way.

#include <cerrno>
#include <ctime>
#include <thread>

#include "ping_fixture.h"
#include "support/failing_calls.h"
#include "support/interruption.h"
#include "support/network/hosts_file.h"
#include "support/network/marked_frames.h"
#include "support/small_stack.h"
#include "support/stopwatch.h"

namespace {

using namespace std::chrono_literals;
using support::Bytes;
using support::Echo;
using support::Frame;
using support::HostsFile;
using support::make_frame;
using support::reply_to;
using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAreArray;
using testing::SizeIs;

constexpr int kMinusOne = -1;  // what is below the smallest size

// A ping of the gateway, and what it says before the packet.
const Messages kBeginning = beginning("none", "0A010001, mask FFFFFF00, dest 0A010002, is_ptp 0");
const Messages kSent = kBeginning + ip_packet_sent(kGateway);
const Messages kSucceeded = {progress("ip ping to 10.1.0.2 succeeded")};
const Messages kNoReply = {progress("received no valid ip reply from 10.1.0.2")};

int ping(unsigned timeout_ms = 500, int size = kMinusOne, time_difference* took = nullptr,
         const std::uint32_t* mark = nullptr) {
  return __rawping("wan0", kGateway, nullptr, nullptr, nullptr, timeout_ms, size, took, mark);
}

class IpPing : public PingTest {
 protected:
  // Pings the gateway, which answers its request with these frames in the first sleep.
  int ping_answered_with(const std::function<std::vector<Bytes>(const Echo&)>& answer,
                         unsigned timeout_ms = 500, int size = kMinusOne,
                         time_difference* took = nullptr) {
    silence_gateway();
    PassingTime time;
    time.at_pause(1, [&] { send_from_gateway(answer(next_request())); });
    return ping(timeout_ms, size, took);
  }
};

// ---- The packet ----

void put16(Bytes& bytes, std::size_t at, std::uint16_t value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8U);
  bytes[at + 1] = static_cast<std::uint8_t>(value);
}

// The frame of a request of `size` bytes, whose identification the kernel has chosen.
Bytes request_frame(std::size_t size, int identifier, std::uint8_t sequence,
                    const Frame& identified) {
  constexpr std::size_t kIp = support::kIpOffset;
  constexpr std::size_t kIcmp = support::kIcmpOffset;
  Bytes frame = {2, 0,  0, 0, 1, 2,  2, 0, 0, 0,  1, 1, 8, 0, 0x45, 0, 0, 0, 0, 0,        0,
                 0, 64, 1, 0, 0, 10, 1, 0, 1, 10, 1, 0, 2, 8, 0,    0, 0, 0, 0, sequence, 0};
  frame.resize(kIp + size);
  put16(frame, kIp + 2, static_cast<std::uint16_t>(size));
  frame[kIp + 4] = identified.bytes[kIp + 4];
  frame[kIp + 5] = identified.bytes[kIp + 5];
  frame[kIcmp + 4] = static_cast<std::uint8_t>(identifier);
  frame[kIcmp + 5] = static_cast<std::uint8_t>(identifier >> 8);
  put16(frame, kIp + 10, support::checksum_by_definition(&frame[kIp], 20));
  put16(frame, kIcmp + 2, support::checksum_by_definition(&frame[kIcmp], size - 20));
  return frame;
}

TEST_F(IpPing, SendsPacketsOf48To1450Bytes) {
  struct Case {
    int size;
    std::size_t sent;
  };
  for (const Case each : {Case{-1, 48}, Case{0, 48}, Case{47, 48}, Case{48, 48}, Case{49, 49},
                          Case{84, 84}, Case{1450, 1450}, Case{1451, 1450}, Case{70000, 1450}}) {
    EXPECT_EQ(ping(kLong, each.size), 0);
    const Messages messages = log_.take();
    const int identifier = identifier_in(messages);
    const int size = static_cast<int>(each.sent);
    EXPECT_THAT(messages,
                ElementsAreArray(kBeginning + ip_packet_sent(kGateway, size) +
                                 ip_reply(1, identifier, 1, identifier, size) + kSucceeded));
    const Frame request = wire_.wait_for(support::is_echo_request);
    EXPECT_EQ(request.bytes, request_frame(each.sent, identifier, 1, request)) << each.size;
  }
}

TEST_F(IpPing, IsWhatRawpingDoesWithoutMore) {
  EXPECT_EQ(rawping("wan0", kGateway, nullptr, kLong), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages,
              ElementsAreArray(kSent + right_ip_reply(1, identifier_in(messages)) + kSucceeded));
}

TEST_F(IpPing, ReachesHostsBehindAGatewayByTheRoutesOfTheKernel) {
  EXPECT_EQ(rawping("wan0", kDistant, nullptr, kLong), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(
                            beginning("none", "0A010001, mask FFFFFF00, dest 0A020002, is_ptp 0") +
                            ip_packet_sent(kDistant) + right_ip_reply(1, identifier_in(messages)) +
                            Messages{progress("ip ping to 10.2.0.2 succeeded")}));
}

TEST_F(IpPing, LogsAHostAsItWasPassedButForItsPackets) {
  const HostsFile names("10.1.0.2 gw.example\n");
  EXPECT_EQ(rawping("wan0", "gw.example", nullptr, kLong), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(kSent + right_ip_reply(1, identifier_in(messages)) +
                                         Messages{progress("ip ping to gw.example succeeded")}));

  silence_gateway();
  const PassingTime time;
  EXPECT_EQ(rawping("wan0", "gw.example", nullptr, 500), -1);
  EXPECT_THAT(
      log_.take(),
      ElementsAreArray(kSent + Messages{progress("received no valid ip reply from gw.example")}));
}

TEST_F(IpPing, OfTheRouterItselfTakesTheAnswerAndNotTheRequest) {
  EXPECT_EQ(rawping("lo", "127.0.0.1", nullptr, kLong), 0);
  const Messages messages = log_.take();
  ASSERT_THAT(messages, SizeIs(9));
  EXPECT_EQ(messages[0], progress("interface runs 127.0.0.1/255.0.0.0 (00:00:00:00:00:00)", "lo"));
  EXPECT_EQ(messages[4], progress("received ip packet (48 bytes)\n", "lo"));
  EXPECT_EQ(messages[5], progress("not an ICMP REPLY message", "lo"));
  EXPECT_EQ(messages[6], progress("received ip packet (48 bytes)\n", "lo"));
  EXPECT_EQ(messages[8], progress("ip ping to 127.0.0.1 succeeded", "lo"));
}

TEST_F(IpPing, SendsFromTheSourceThatIsGiven) {
  PassingTime time;
  EXPECT_EQ(
      __rawping("wan0", kGateway, nullptr, "10.1.0.77", "255.255.0.0", 500, -1, nullptr, nullptr),
      -1);
  EXPECT_EQ(next_request().source, "10.1.0.77");
  EXPECT_THAT(log_.take(),
              ElementsAreArray(
                  Messages{progress("interface runs 10.1.0.77/255.255.0.0 (02:00:00:00:01:01)"),
                           debug("gateway none (source 0A01004D, mask FFFF0000, dest 0A010002, "
                                 "is_ptp 0)")} +
                  ip_packet_sent(kGateway) + kNoReply));
}

TEST_F(IpPing, HasNoMark) {
  support::MarkedFrames marked("wan0", 77);
  const std::uint32_t mark = 77;
  EXPECT_EQ(ping(kLong, -1, nullptr, &mark), 0);
  EXPECT_EQ(marked.count(), 0);
  EXPECT_THAT(log_.take(), SizeIs(7));
}

// ---- Answers ----

TEST_F(IpPing, TakesTheAnswerFromAnyHost) {
  const auto answer = [](const Echo& request) {
    Echo reply = reply_to(request);
    reply.source = kNobody;
    return std::vector<Bytes>{make_frame(reply)};
  };
  EXPECT_EQ(ping_answered_with(answer), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages,
              ElementsAreArray(kSent + right_ip_reply(1, identifier_in(messages)) + kSucceeded));
}

TEST_F(IpPing, PassesOverWhatIsNotTheAnswer) {
  const auto answer = [](const Echo& request) {
    const Echo right = reply_to(request);
    Echo of_47_bytes = right;
    of_47_bytes.payload.resize(19);
    Echo other_identifier = right;
    other_identifier.identifier ^= 0x0100U;
    Echo other_sequence = right;
    other_sequence.sequence = 1;  // in the network's order
    Echo echo_request = right;
    echo_request.type = support::kEchoRequest;
    Echo with_options = right;
    with_options.ip_options = Bytes(4, 1);
    return std::vector<Bytes>{make_frame(of_47_bytes),    make_frame(other_identifier),
                              make_frame(other_sequence), make_frame(echo_request),
                              make_frame(with_options),   make_frame(right)};
  };
  EXPECT_EQ(ping_answered_with(answer, kLong, 100), 0);
  const Messages messages = log_.take();
  const int identifier = identifier_in(messages);
  const auto received = [](int size) {
    return progress("received ip packet (" + std::to_string(size) + " bytes)\n");
  };
  const support::LogLine no_reply = progress("not an ICMP REPLY message");
  EXPECT_THAT(messages,
              ElementsAreArray(kBeginning + ip_packet_sent(kGateway, 100) +
                               Messages{received(47),
                                        progress("packet is too short (47 bytes, need 48 bytes)")} +
                               ip_reply(1, identifier ^ 1, 1, identifier, 100) +
                               ip_reply(256, identifier, 1, identifier, 100) +
                               Messages{received(100), no_reply, received(100), no_reply} +
                               ip_reply(1, identifier, 1, identifier, 100) + kSucceeded));
}

TEST_F(IpPing, CutsAnswersAtItsSize) {
  const auto answer = [](const Echo& request) {
    Echo reply = reply_to(request);
    reply.payload.resize(500);
    return std::vector<Bytes>{make_frame(reply)};
  };
  EXPECT_EQ(ping_answered_with(answer), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages,
              ElementsAreArray(kSent + right_ip_reply(1, identifier_in(messages)) + kSucceeded));
}

TEST_F(IpPing, EndsWithThe1024thPacket) {
  silence_gateway();
  Echo request;
  const std::vector<Bytes> others(128, make_frame(gateway_reply(0, 7)));
  PassingTime time;
  time.at_pause(1, [&] {
    request = next_request();
    send_from_gateway(others);
  });
  for (int i = 2; i <= 8; ++i) {
    time.at_pause(i, [&] { send_from_gateway(others); });
  }
  time.at_pause(9, [&] { send_from_gateway({make_frame(reply_to(request))}); });
  EXPECT_EQ(ping(10000), -1);
  EXPECT_EQ(time.take_steps(), 8);
  const Messages messages = log_.take();
  ASSERT_THAT(messages, SizeIs(4 + 2 * 1024 + 1));
  EXPECT_EQ(messages.back(), kNoReply.back());
}

// ---- Time ----

TEST_F(IpPing, WaitsInStepsUntilTheTimeIsUp) {
  struct Case {
    unsigned timeout_ms;
    int steps;
  };
  silence_gateway();
  for (const Case each : {Case{0, 3}, Case{600, 3}, Case{601, 4}, Case{10201, 35}}) {
    PassingTime time;
    EXPECT_EQ(ping(each.timeout_ms), -1);
    EXPECT_EQ(time.take_steps(), each.steps) << each.timeout_ms;
    EXPECT_THAT(log_.take(), ElementsAreArray(kSent + kNoReply));
  }
}

TEST_F(IpPing, DoesNotSeeAnAnswerThatComesInTheLastStep) {
  silence_gateway();
  PassingTime time;
  time.at_pause(3, [&] { send_from_gateway({make_frame(reply_to(next_request()))}); });
  EXPECT_EQ(ping(), -1);
  EXPECT_THAT(log_.take(), ElementsAreArray(kSent + kNoReply));
}

TEST_F(IpPing, WaitsInRealTimeThroughSignals) {
  silence_gateway();
  const support::Interruption interruption;
  std::thread pinging([] {
    const support::Stopwatch watch;
    EXPECT_EQ(ping(0), -1);
    EXPECT_GE(watch.elapsed(), 900ms);
    std::this_thread::sleep_for(1s);  // for the signals that come late
  });
  for (int i = 0; i < 4; ++i) support::Interruption::send(pinging);
  pinging.join();
  EXPECT_THAT(log_.take(), ElementsAreArray(kSent + kNoReply));
}

// ---- The time that it took ----

std::timespec time_of_day() {
  std::timespec now = {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

std::int64_t nanoseconds(const time_difference& time) {
  return std::int64_t{time.seconds} * 1000000000 + time.nanoseconds;
}

std::int64_t between(const std::timespec& a, const std::timespec& b) {
  return nanoseconds(diffts(&a, &b));
}

TEST_F(IpPing, TellsTheTimeBetweenThePackets) {
  time_difference took = {-7, -7};
  const std::timespec before = time_of_day();
  EXPECT_EQ(ping(kLong, -1, &took), 0);
  const std::timespec after = time_of_day();
  const Frame request = wire_.wait_for(support::is_echo_request);
  const Frame reply = wire_.wait_for(support::is_echo_reply);
  EXPECT_GE(nanoseconds(took), between(request.time, reply.time));
  EXPECT_LE(nanoseconds(took), between(before, after));
  EXPECT_THAT(log_.take(), SizeIs(7));
}

// The time of the packet that came last, though it was not the answer.
TEST_F(IpPing, TellsTheTimeOfThePacketThatCameLastWithoutAnAnswer) {
  time_difference took = {-7, -7};
  const auto answer = [](const Echo& request) {
    Echo reply = reply_to(request);
    reply.sequence = 0;
    return std::vector<Bytes>{make_frame(reply)};
  };
  const std::timespec before = time_of_day();
  EXPECT_EQ(ping_answered_with(answer, 500, -1, &took), -1);
  const std::timespec after = time_of_day();
  EXPECT_GT(nanoseconds(took), 0);
  EXPECT_LT(nanoseconds(took), between(before, after));
  EXPECT_THAT(log_.take(), SizeIs(4 + 2 + 1));
}

TEST_F(IpPing, TellsTheTimeOfSendingBelowZeroIfNothingCame) {
  silence_gateway();
  time_difference took = {-7, -7};
  const PassingTime time;
  const std::timespec before = time_of_day();
  EXPECT_EQ(ping(500, -1, &took), -1);
  const std::timespec after = time_of_day();
  EXPECT_THAT(-std::int64_t{took.seconds} - 1,
              testing::AllOf(testing::Ge(before.tv_sec - 1), testing::Le(after.tv_sec)));
  EXPECT_GE(-nanoseconds(took), before.tv_sec * 1000000000LL + before.tv_nsec);
  EXPECT_LE(-nanoseconds(took), after.tv_sec * 1000000000LL + after.tv_nsec);
  EXPECT_THAT(log_.take(), ElementsAreArray(kSent + kNoReply));
}

TEST_F(IpPing, TellsNoTimeIfNothingWasSent) {
  time_difference took = {-7, -7};
  // The first socket is for questions about the interface.
  run_with_failing_calls({{SystemCall::kSocket, EMFILE, 1}},
                         [&] { EXPECT_EQ(ping(500, -1, &took), -1); });
  EXPECT_EQ(nanoseconds(took), 0);
  EXPECT_THAT(log_.take(),
              ElementsAreArray(kBeginning + Messages{progress("generated ip echo packet for "
                                                              "10.1.0.2"),
                                                     err("rawping[wan0]: unable to open socket (" +
                                                         text_of(EMFILE) + ")")}));
}

// ---- Failures ----

// A failing call, and what is logged then.
struct Failure {
  support::FailingCall call;
  Messages messages;
};

TEST_F(IpPing, FailsWhenASystemCallDoes) {
  const Messages generated =
      kBeginning + Messages{progress("generated ip echo packet for 10.1.0.2")};
  const auto fails = [](const std::string& text, int error) {
    return Messages{err("rawping[wan0]: " + text + " (" + text_of(error) + ")")};
  };
  const std::vector<Failure> failures = {
      // Options of the socket are set in this order: header included, device, header included.
      {{SystemCall::kSetSocketOption, EPERM, 0, 1}, generated},
      {{SystemCall::kSetSocketOption, EPERM, 1, 1},
       generated + fails("can't bind to device", EPERM)},
      {{SystemCall::kSetSocketOption, EPERM, 2, 1},
       generated + fails("can't configure socket", EPERM)},
      // The messages before it are sent, too.
      {{SystemCall::kSend, ENOBUFS, 3, 1},
       generated + fails("unable to send 48 bytes to 10.1.0.2", ENOBUFS)},
      {{SystemCall::kSend, 0, 3, 1}, generated + fails("unable to send 48 bytes to 10.1.0.2", 0)},
      {{SystemCall::kReceive, ENETDOWN, 0, 1}, kSent + fails("unable to receive reply", ENETDOWN)},
  };
  for (const Failure& failure : failures) {
    run_with_failing_calls({failure.call}, [] { EXPECT_EQ(ping(), -1); });
    EXPECT_THAT(log_.take(), ElementsAreArray(failure.messages));
  }
}

TEST_F(IpPing, FailsOnAnInterfaceThatIsDown) {
  hosts_.router.ip("link set wan0 down");
  EXPECT_EQ(ping(), -1);
  EXPECT_THAT(log_.take(),
              ElementsAreArray(kBeginning +
                               Messages{progress("generated ip echo packet for 10.1.0.2"),
                                        err("rawping[wan0]: unable to send 48 bytes to 10.1.0.2 (" +
                                            text_of(ENETUNREACH) + ")")}));
}

TEST_F(IpPing, GoesOnAfterSignals) {
  run_with_failing_calls({{SystemCall::kSend, EINTR, 3, 2}, {SystemCall::kReceive, EINTR, 0, 3}},
                         [] { EXPECT_EQ(ping(), 0); });
  EXPECT_THAT(log_.take(), SizeIs(7));
}

TEST_F(IpPing, NeedsLittleStack) {
  support::run_on_small_stack([] { EXPECT_EQ(ping(kLong, 1450), 0); });
  EXPECT_THAT(log_.take(), SizeIs(7));
}

}  // namespace
