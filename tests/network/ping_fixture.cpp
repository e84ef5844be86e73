#include "ping_fixture.h"

#include <chrono>
#include <cstring>
#include <regex>
#include <thread>
#include <utility>

#include <syslog.h>

#include "support/open_descriptors.h"

using testing::IsEmpty;

namespace {

// For what is on the wire.
constexpr std::chrono::milliseconds kMoment(15);

}  // namespace

support::LogLine err(std::string text) { return {LOG_ERR, std::move(text)}; }

support::LogLine debug(std::string text) { return {LOG_DEBUG, std::move(text)}; }

std::string text_of(int error) { return std::strerror(error); }

PassingTime::PassingTime() {
  clock_.at_pauses([this](int number) {
    const auto action = actions_.find(number);
    if (action != actions_.end()) action->second();
    std::this_thread::sleep_for(kMoment);
  });
}

void PassingTime::at_pause(int number, std::function<void()> action) {
  actions_[number] = std::move(action);
}

int PassingTime::take_steps() {
  const auto pauses = clock_.take_pauses_us();
  EXPECT_THAT(pauses, testing::Each(kStepUs));
  return static_cast<int>(pauses.size());
}

PingTest::PingTest() { expect_these_descriptors(); }

void PingTest::TearDown() {
  EXPECT_THAT(log_.take(), IsEmpty()) << "messages that the test did not expect";
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
}

void PingTest::expect_these_descriptors() { descriptors_before_ = support::open_descriptors(); }

void PingTest::send_from_gateway(const std::vector<support::Bytes>& frames) {
  for (const support::Bytes& frame : frames) {
    far_end_.send(frame);
    wire_.wait_for([&](const support::Frame& each) { return each.bytes == frame; });
  }
}

support::Echo PingTest::next_request() {
  return echo_in(wire_.wait_for([](const support::Frame& frame) {
    return frame.outgoing && support::is_echo_request(frame);
  }));
}

void PingTest::tell_gateway_mac() const {
  hosts_.router.ip("neigh replace 10.1.0.2 lladdr 02:00:00:00:01:02 dev wan0 nud reachable");
}

support::LogLine progress(const std::string& text, const std::string& interface) {
  return debug("rawping[" + interface + "]: " + text);
}

Messages operator+(Messages first, const Messages& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Messages operator+(Messages first, const support::LogLine& second) {
  first.push_back(second);
  return first;
}

Messages beginning(const std::string& gateway, const std::string& route) {
  return {progress("interface runs 10.1.0.1/255.255.255.0 (02:00:00:00:01:01)"),
          debug("gateway " + gateway + " (source " + route + ")")};
}

Messages ip_packet_sent(const std::string& target, int size) {
  return {
      progress("generated ip echo packet for " + target),
      progress("ip packet transmitted for " + target + " (" + std::to_string(size) + " bytes)")};
}

namespace {

std::string numbers(int sequence, int identifier, int needed_sequence, int needed_identifier) {
  return "(seq " + std::to_string(sequence) + ", id " + std::to_string(identifier) + ", need seq " +
         std::to_string(needed_sequence) + ", id " + std::to_string(needed_identifier) + ")";
}

}  // namespace

Messages ip_reply(int sequence, int identifier, int needed_sequence, int needed_identifier,
                  int size) {
  return {progress("received ip packet (" + std::to_string(size) + " bytes)\n"),
          progress("RECEIVED ip reply " +
                   numbers(sequence, identifier, needed_sequence, needed_identifier))};
}

Messages frame_sent(const std::string& target, int sequence, int identifier, int size) {
  return {
      progress("generated raw echo packet for " + target + " (id " + std::to_string(identifier) +
               ", seq " + std::to_string(sequence) + ")"),
      progress("raw packet transmitted for " + target + " (" + std::to_string(size) + " bytes)")};
}

Messages frame_reply(int sequence, int identifier, int needed_sequence) {
  const std::string all = numbers(sequence, identifier, needed_sequence, identifier);
  return {progress("received packet " + all), progress("RECEIVED raw reply " + all)};
}

int identifier_in(const Messages& messages) {
  const std::regex pattern("need seq [0-9]+, id ([0-9]+)|packet for [0-9.]+ \\(id ([0-9]+)");
  for (const support::LogLine& line : messages) {
    std::smatch found;
    if (!std::regex_search(line.text, found, pattern)) continue;
    return std::stoi(found[1].matched ? found[1].str() : found[2].str());
  }
  return -1;
}

support::Echo gateway_reply(std::uint16_t identifier, std::uint16_t sequence,
                            std::size_t payload_size) {
  support::Echo reply;
  reply.hardware_source = kGatewayMac;
  reply.hardware_destination = kOwnMac;
  reply.source = kGateway;
  reply.destination = kOwn;
  reply.type = support::kEchoReply;
  reply.identifier = identifier;
  reply.sequence = sequence;
  reply.payload = support::Bytes(payload_size);
  return reply;
}
