// What the tests of pings share: hosts to ping, the log, time that passes at once, and a look at
// what is left behind.
#ifndef TESTS_NETWORK_PING_FIXTURE_H
#define TESTS_NETWORK_PING_FIXTURE_H

#include <rkutils/ping.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/network/capture.h"
#include "support/network/echo.h"
#include "support/network/frame_socket.h"
#include "support/network/link.h"
#include "support/network/surroundings.h"
#include "support/stopped_clock.h"
#include "support/syslog_collector.h"

// The surroundings' addresses.
constexpr char kOwn[] = "10.1.0.1";
constexpr char kGateway[] = "10.1.0.2";
constexpr char kDistant[] = "10.2.0.2";
constexpr char kOwnMac[] = "02:00:00:00:01:01";
constexpr char kGatewayMac[] = "02:00:00:00:01:02";

// One that nobody has, in the network of the interface.
constexpr char kNobody[] = "10.1.0.9";

// Milliseconds for an answer that comes, however busy the machine is.
constexpr unsigned kLong = 10000;

// A message in the log.
support::LogLine err(std::string text);
support::LogLine debug(std::string text);

// The C library's text for an error.
std::string text_of(int error);

// A number of two bytes in the other order.
constexpr std::uint16_t swapped(std::uint16_t number) {
  return static_cast<std::uint16_t>(number << 8U | number >> 8U);
}

// Looks of so long at what has come, from when on there is nothing.
constexpr std::int64_t kStepUs = 300000;

// While it lives, this thread's sleeps by the monotonic clock are over at once by that clock, and in
// truth after a moment in which what is on the wire arrives.
class PassingTime {
 public:
  PassingTime();

  // What is done at the beginning of the `number`th sleep from the construction on.
  void at_pause(int number, std::function<void()> action);

  // The sleeps until now, in steps: each must be one.
  int take_steps();

 private:
  support::StoppedClock clock_;
  std::map<int, std::function<void()>> actions_;
};

// Starts with hosts that answer. At the end every message must have been taken from the log, and no
// descriptor may be left.
class PingTest : public testing::Test {
 protected:
  PingTest();
  void TearDown() override;

  // For descriptors that a test's own hosts take.
  void expect_these_descriptors();

  // The gateway's kernel answers no pings any more.
  void silence_gateway() const { hosts_.gateway.answer_pings(false); }

  // Has the gateway's end of the wire send frames, and returns when the router has got them.
  void send_from_gateway(const std::vector<support::Bytes>& frames);

  // The next request on the wire of those that the router sends.
  support::Echo next_request();

  // Gives the gateway's hardware address to the router's kernel.
  void tell_gateway_mac() const;

  const support::Surroundings hosts_;
  support::SyslogCollector log_;
  support::Capture wire_{hosts_.router, "wan0"};

 private:
  const support::FrameSocket far_end_{hosts_.gateway, "eth0"};
  std::map<int, std::string> descriptors_before_;
};

// A test with another host, at another interface of the router.
class PingTestWithASecondInterface : public PingTest {
 protected:
  PingTestWithASecondInterface() { expect_these_descriptors(); }

  const support::Host neighbour_;
  const support::Link lan_{{hosts_.router, "a-name-of-15-ch", "02:00:00:00:03:01", {"10.3.0.1/24"}},
                           {neighbour_, "eth0", "02:00:00:00:03:02", {"10.3.0.2/24"}}};
};

// ---- rawping() ----

// What it logs at LOG_DEBUG, of wan0 if no other interface is named, and of each packet.
support::LogLine progress(const std::string& text, const std::string& interface = "wan0");

// Messages that follow each other.
using Messages = std::vector<support::LogLine>;
Messages operator+(Messages first, const Messages& second);
Messages operator+(Messages first, const support::LogLine& second);

// The two with which each call begins, the second from its "source" on without the parenthesis.
Messages beginning(const std::string& gateway, const std::string& route);

// Of an IP packet that is sent.
Messages ip_packet_sent(const std::string& target, int size = 48);

// Of an IP packet that comes and is a reply.
Messages ip_reply(int sequence, int identifier, int needed_sequence, int needed_identifier,
                  int size = 48);
inline Messages right_ip_reply(int sequence, int identifier) {
  return ip_reply(sequence, identifier, sequence, identifier);
}

// Of a frame that is sent.
Messages frame_sent(const std::string& target, int sequence, int identifier, int size = 48);

// Of a frame that comes and is a reply.
Messages frame_reply(int sequence, int identifier, int needed_sequence);

// The identifier of the first request in these messages, which say what replies must have, or, of a
// frame, what it was sent with. -1 if there is none.
int identifier_in(const Messages& messages);

// A reply from the gateway to the router.
support::Echo gateway_reply(std::uint16_t identifier, std::uint16_t sequence,
                            std::size_t payload_size = 56);

#endif
