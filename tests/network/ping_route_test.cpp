// Which way a ping takes, to which next hop, and what must be known of the interface and the
// gateway before.

#include <algorithm>
#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "ping_fixture.h"
#include "support/failing_calls.h"
#include "support/network/echo_responder.h"
#include "support/network/hosts_file.h"
#include "support/open_descriptors.h"
#include "support/without_privileges.h"

namespace {

using rkutils::internal::UniqueFd;
using support::Bytes;
using support::Echo;
using support::HostsFile;
using support::make_frame;
using support::reply_to;
using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kToDistant[] = "0A010001, mask FFFFFF00, dest 0A020002, is_ptp 0";
constexpr char kToGateway[] = "0A010001, mask FFFFFF00, dest 0A010002, is_ptp 0";

support::LogLine sending_ip_ping_to(const std::string& target) {
  return debug("rawping[wan0] => sending ip ping to " + target);
}

// An IP packet and its answer.
Messages ip_ping(const std::string& target, int identifier, int sequence = 1) {
  return ip_packet_sent(target) + right_ip_reply(sequence, identifier) +
         progress("ip ping to " + target + " succeeded");
}

// The distant host can only be pinged by way of the gateway.
Messages must_use(const std::string& gateway, const std::string& target = kDistant) {
  return beginning(gateway, kToDistant) +
         progress("cannot ping " + target + " directly, must use gateway " + gateway);
}

Messages asking_for(const std::string& gateway) {
  return {progress("can't resolve HW address for " + gateway + " -> send query"),
          progress("pinging " + gateway)};
}

const support::LogLine kDiscovered = progress("discovered 02:00:00:00:01:02 for 10.1.0.2");

Messages frame_ping(int identifier, int sequence = 1) {
  return Messages{debug("rawping[wan0] => sending raw ping to 10.2.0.2")} +
         frame_sent(kDistant, sequence, identifier) + frame_reply(sequence, identifier, sequence) +
         progress("raw ping to 10.2.0.2 succeeded");
}

class PingRoute : public PingTestWithASecondInterface {};

// ---- IP packets ----

TEST_F(PingRoute, ToAHostInTheNetworkIsDirectInSpiteOfAGateway) {
  tell_gateway_mac();
  EXPECT_EQ(rawping("wan0", kGateway, "10.1.0.3", kLong), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages,
              ElementsAreArray(beginning("10.1.0.3", kToGateway) + sending_ip_ping_to(kGateway) +
                               ip_ping(kGateway, identifier_in(messages))));
}

TEST_F(PingRoute, WithAnEmptyGatewayIsTheKernels) {
  EXPECT_EQ(rawping("wan0", kDistant, "", kLong), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(beginning("", kToDistant) + sending_ip_ping_to(kDistant) +
                                         ip_ping(kDistant, identifier_in(messages))));
}

TEST_F(PingRoute, WithoutAGatewayIsTheKernels) {
  EXPECT_EQ(rawping("wan0", kDistant, nullptr, kLong), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(beginning("none", kToDistant) +
                                         ip_ping(kDistant, identifier_in(messages))));
}

TEST_F(PingRoute, GoesByTheNetmaskThatIsGiven) {
  tell_gateway_mac();
  // With all in one network, and with nothing in it but the source.
  EXPECT_EQ(__rawping("wan0", kDistant, kGateway, kOwn, "0.0.0.0", kLong, -1, nullptr, nullptr), 0);
  Messages messages = log_.take();
  EXPECT_EQ(messages[1],
            debug("gateway 10.1.0.2 (source 0A010001, mask 00000000, dest 0A020002, is_ptp 0)"));
  EXPECT_EQ(messages[2], sending_ip_ping_to(kDistant));
  EXPECT_EQ(
      __rawping("wan0", kGateway, kGateway, kOwn, "255.255.255.255", kLong, -1, nullptr, nullptr),
      0);
  messages = log_.take();
  EXPECT_EQ(messages[2], progress("cannot ping 10.1.0.2 directly, must use gateway 10.1.0.2"));
  EXPECT_EQ(messages.back(), progress("raw ping to 10.1.0.2 succeeded"));
}

// ---- Interfaces without Ethernet's addresses ----

TEST_F(PingRoute, OfAnInterfaceWithoutArpIsDirect) {
  hosts_.router.ip("link set wan0 arp off");
  const support::EchoResponder responder(hosts_.gateway, "eth0",
                                         [](const Echo& request, const support::FrameSocket& wire) {
                                           Echo reply = reply_to(request);
                                           reply.hardware_destination = kOwnMac;
                                           wire.send(make_frame(reply));
                                         });
  EXPECT_EQ(rawping("wan0", kDistant, kGateway, kLong), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(beginning(kGateway,
                                                   "0A010001, mask FFFFFF00, dest 0A020002, "
                                                   "is_ptp 1") +
                                         sending_ip_ping_to(kDistant) +
                                         ip_ping(kDistant, identifier_in(messages))));
}

TEST_F(PingRoute, OfAPointToPointInterfaceIsDirect) {
  const UniqueFd tunnel(::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!tunnel) GTEST_SKIP() << "/dev/net/tun cannot be opened here";
  ifreq request = {};
  request.ifr_flags = IFF_TUN | IFF_NO_PI;
  ASSERT_EQ(::ioctl(tunnel.get(), TUNSETIFF, &request), 0);
  const std::string name = request.ifr_name;
  // Being point-to-point is to be its only reason.
  hosts_.router.ip("addr add 10.9.0.1/24 dev " + name + "\nlink set " + name + " up arp on");
  {
    PassingTime time;
    time.at_pause(1, [&] {
      Bytes packet;
      do {  // IPv6 may have sent something, too
        packet.assign(1500, 0);
        const ssize_t length = ::read(tunnel.get(), packet.data(), packet.size());
        ASSERT_GT(length, 0);
        packet.resize(static_cast<std::size_t>(length));
      } while (packet[0] != 0x45);
      ASSERT_EQ(packet.size(), 48U);
      std::swap_ranges(&packet[12], &packet[16], &packet[16]);
      packet[20] = 0;  // a reply, and the checksum that goes with it
      packet[22] = 0;
      packet[23] = 0;
      const std::uint16_t sum = support::checksum_by_definition(&packet[20], 28);
      packet[22] = static_cast<std::uint8_t>(sum >> 8U);
      packet[23] = static_cast<std::uint8_t>(sum);
      EXPECT_EQ(::write(tunnel.get(), packet.data(), packet.size()), 48);
    });
    EXPECT_EQ(rawping(name.c_str(), kDistant, "10.9.0.2", kLong), 0);
  }
  const Messages messages = log_.take();
  ASSERT_THAT(messages, SizeIs(8));
  EXPECT_EQ(messages[1],
            debug("gateway 10.9.0.2 (source 0A090001, mask FFFFFF00, dest 0A020002, is_ptp 1)"));
  EXPECT_EQ(messages[2], debug("rawping[" + name + "] => sending ip ping to 10.2.0.2"));
  EXPECT_EQ(messages.back(), progress("ip ping to 10.2.0.2 succeeded", name));
}

TEST_F(PingRoute, OfAnInterfaceThatIsNotKnownToBePointToPointIsAnyOther) {
  tell_gateway_mac();
  const std::vector<std::pair<support::FailingCall, const char*>> failures = {
      {{SystemCall::kSocket, EMFILE, 1, 1}, "unable to create socket"},
      // Four questions are asked before.
      {{SystemCall::kControl, EPERM, 4, 1}, "unable to get flags for wan0"},
  };
  for (const auto& [call, text] : failures) {
    run_with_failing_calls({call},
                           [] { EXPECT_EQ(rawping("wan0", kDistant, kGateway, kLong), 0); });
    const Messages messages = log_.take();
    ASSERT_THAT(messages, SizeIs(11));
    EXPECT_EQ(messages[1], err(text));
    EXPECT_EQ(messages[2], debug(std::string("gateway 10.1.0.2 (source ") + kToDistant + ")"));
  }
}

// ---- The gateway's hardware address ----

TEST_F(PingRoute, ToAGatewayThatIsKnownIsAFrame) {
  tell_gateway_mac();
  EXPECT_EQ(rawping("wan0", kDistant, kGateway, kLong), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(must_use(kGateway) + kDiscovered +
                                         frame_ping(identifier_in(messages))));
  EXPECT_THAT(wire_.frames(support::is_echo_request), SizeIs(1));
}

TEST_F(PingRoute, ToAGatewayThatIsNotKnownBeginsWithAPingOfIt) {
  ASSERT_THAT(hosts_.router.arp_table(), IsEmpty());
  EXPECT_EQ(rawping("wan0", kDistant, kGateway, kLong), 0);
  const Messages messages = log_.take();
  const int identifier = identifier_in(messages);
  EXPECT_THAT(messages, ElementsAreArray(must_use(kGateway) + asking_for(kGateway) +
                                         ip_ping(kGateway, identifier) + kDiscovered +
                                         frame_ping(identifier, 2)));
  const Echo packet = next_request();
  const Echo frame = next_request();
  EXPECT_EQ(packet.destination, kGateway);
  EXPECT_EQ(packet.identifier, swapped(static_cast<std::uint16_t>(identifier)));
  EXPECT_EQ(packet.sequence, 0x0100);
  EXPECT_EQ(frame.destination, kDistant);
  EXPECT_EQ(frame.identifier, identifier);
  EXPECT_EQ(frame.sequence, 2);
}

TEST_F(PingRoute, NeedsNoAnswerToThePingOfTheGateway) {
  silence_gateway();
  PassingTime time;
  EXPECT_EQ(rawping("wan0", kDistant, kGateway, kLong), 0);
  EXPECT_GE(time.take_steps(), 3);
  const Messages messages = log_.take();
  EXPECT_THAT(messages, ElementsAreArray(must_use(kGateway) + asking_for(kGateway) +
                                         ip_packet_sent(kGateway) +
                                         progress("received no valid ip reply from 10.1.0.2") +
                                         kDiscovered + frame_ping(identifier_in(messages), 2)));
}

// The gateway does not exist, so its entry stays incomplete.
TEST_F(PingRoute, ToAGatewayThatIsNotThereIsTheKernels) {
  const PassingTime time;
  EXPECT_EQ(rawping("wan0", kDistant, kNobody, 500), 0);
  const Messages messages = log_.take();
  EXPECT_THAT(
      messages,
      ElementsAreArray(must_use(kNobody) + asking_for(kNobody) + ip_packet_sent(kNobody) +
                       progress("received no valid ip reply from 10.1.0.9") +
                       err("rawping[wan0]: can't resolve HW address for 10.1.0.9") +
                       debug("rawping[wan0] => ARP lookup failed, sending ip ping to 10.2.0.2") +
                       ip_ping(kDistant, identifier_in(messages), 2)));
}

// It is the same socket: the gateway's reply that came too late is still in it.
TEST_F(PingRoute, KeepsTheSocketOfThePingOfTheGateway) {
  PassingTime time;
  time.at_pause(3, [&] {
    const std::string found = hosts_.router.ip("neigh show 10.1.0.9");
    EXPECT_THAT(found,
                testing::AnyOf(testing::HasSubstr("INCOMPLETE"), testing::HasSubstr("FAILED")));
    send_from_gateway({make_frame(gateway_reply(0x1122, 0x0100))});
  });
  EXPECT_EQ(rawping("wan0", kDistant, kNobody, 500), 0);
  const Messages messages = log_.take();
  const int identifier = identifier_in(messages);
  EXPECT_THAT(
      messages,
      ElementsAreArray(must_use(kNobody) + asking_for(kNobody) + ip_packet_sent(kNobody) +
                       progress("received no valid ip reply from 10.1.0.9") +
                       err("rawping[wan0]: can't resolve HW address for 10.1.0.9") +
                       debug("rawping[wan0] => ARP lookup failed, sending ip ping to 10.2.0.2") +
                       ip_packet_sent(kDistant) + ip_reply(1, 0x2211, 2, identifier) +
                       right_ip_reply(2, identifier) + progress("ip ping to 10.2.0.2 succeeded")));
}

// Only the text that was passed is looked up.
TEST_F(PingRoute, ToAGatewayWithANameIsTheKernels) {
  const HostsFile names("10.1.0.2 gw.example\n10.2.0.2 far.example\n");
  tell_gateway_mac();
  EXPECT_EQ(rawping("wan0", "far.example", "gw.example", kLong), 0);
  const Messages messages = log_.take();
  const int identifier = identifier_in(messages);
  EXPECT_THAT(
      messages,
      ElementsAreArray(must_use("gw.example", "far.example") + asking_for("gw.example") +
                       ip_packet_sent(kGateway) + right_ip_reply(1, identifier) +
                       progress("ip ping to gw.example succeeded") +
                       err("rawping[wan0]: can't resolve HW address for gw.example") +
                       debug("rawping[wan0] => ARP lookup failed, sending ip ping to far.example") +
                       ip_packet_sent(kDistant) + right_ip_reply(2, identifier) +
                       progress("ip ping to far.example succeeded")));
}

TEST_F(PingRoute, ToAGatewayWhoseNameIsGoneIsTheKernels) {
  std::optional<HostsFile> names("10.1.0.2 gw.example\n");
  // When the flags are asked for, the name was looked up once.
  const auto forget = [&] { names.reset(); };
  run_with_failing_calls({{SystemCall::kControl, EPERM, 4, 1, forget}},
                         [] { EXPECT_EQ(rawping("wan0", kDistant, "gw.example", kLong), 0); });
  const Messages messages = log_.take();
  Messages expected = must_use("gw.example");
  expected.insert(expected.begin() + 1, err("unable to get flags for wan0"));
  EXPECT_THAT(messages,
              ElementsAreArray(
                  expected + progress("can't resolve HW address for gw.example -> send query") +
                  progress("hostbyname for gw.example failed") +
                  debug("rawping[wan0] => ARP lookup failed, sending ip ping to 10.2.0.2") +
                  ip_ping(kDistant, identifier_in(messages))));
}

TEST_F(PingRoute, TakesAnEntryOfAnyInterface) {
  hosts_.router.ip(
      "neigh replace 10.1.0.2 lladdr 02:00:00:00:0a:0b dev a-name-of-15-ch nud permanent");
  const PassingTime time;
  EXPECT_EQ(rawping("wan0", kDistant, kGateway, 500), -1);
  EXPECT_EQ(next_request().hardware_destination, "02:00:00:00:0a:0b");
  const Messages messages = log_.take();
  EXPECT_EQ(messages[3], progress("discovered 02:00:00:00:0a:0b for 10.1.0.2"));
}

// ---- What must be known before ----

TEST_F(PingRoute, WantsAnInterfaceAndATarget) {
  for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(rawping(nothing, nothing, kGateway, 500), -1);
    EXPECT_EQ(rawping(nothing, kGateway, nullptr, 500), -1);
    EXPECT_EQ(rawping("wan0", nothing, nullptr, 500), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(err("rawping: no interface given"), err("rawping: no interface given"),
                            err("rawping: no target given")));
  }
}

// Calls with a source and a netmask; the time must stay as it was.
int ping_from(const char* source, const char* netmask, const char* gateway = nullptr,
              const char* target = kGateway) {
  time_difference took = {-7, -7};
  const int result = __rawping("wan0", target, gateway, source, netmask, 500, -1, &took, nullptr);
  EXPECT_EQ(took.seconds, -7);
  EXPECT_EQ(took.nanoseconds, -7);
  return result;
}

TEST_F(PingRoute, WantsSourceAndNetmaskOrNeither) {
  const support::LogLine no_source = err("rawping: no source given");
  const support::LogLine no_netmask = err("rawping: no netmask given");
  EXPECT_EQ(ping_from(kOwn, nullptr), -1);
  EXPECT_EQ(ping_from(kOwn, ""), -1);
  EXPECT_THAT(log_.take(), ElementsAre(no_netmask, no_netmask));
  EXPECT_EQ(ping_from(nullptr, "255.0.0.0"), -1);
  EXPECT_EQ(ping_from("", "255.0.0.0"), -1);
  EXPECT_EQ(ping_from("", ""), -1);
  EXPECT_EQ(ping_from("", nullptr), -1);
  EXPECT_EQ(ping_from(nullptr, ""), -1);
  EXPECT_THAT(log_.take(), ElementsAre(no_source, no_source, no_source, no_source, no_source));
}

TEST_F(PingRoute, LeavesOneSocketOpenForAnInvalidSourceOrNetmask) {
  struct Case {
    const char* source;
    const char* netmask;
    const char* message;
  };
  for (const Case& each : {Case{"10.1.0.256", "255.0.0.0", "invalid source '10.1.0.256'"},
                           Case{"here", "there", "invalid source 'here'"},
                           Case{" 10.1.0.1", "255.0.0.0", "invalid source ' 10.1.0.1'"},
                           Case{kOwn, "24", "invalid netmask '24'"},
                           Case{kOwn, "255.255.255", "invalid netmask '255.255.255'"}}) {
    const auto before = support::open_descriptors();
    EXPECT_EQ(ping_from(each.source, each.netmask), -1);
    EXPECT_THAT(log_.take(), ElementsAre(err(std::string("rawping[wan0]: ") + each.message)));
    auto after = support::open_descriptors();
    ASSERT_EQ(after.size(), before.size() + 1);
    for (const auto& [descriptor, target] : before) after.erase(descriptor);
    EXPECT_THAT(after.begin()->second, testing::StartsWith("socket:"));
    // For programs that it starts it is closed.
    EXPECT_EQ(::fcntl(after.begin()->first, F_GETFD), FD_CLOEXEC);
    ::close(after.begin()->first);
  }
}

TEST_F(PingRoute, WantsHostsWithAnAddress) {
  EXPECT_EQ(ping_from(nullptr, nullptr, kGateway, "missing.example"), -1);
  EXPECT_EQ(ping_from(nullptr, nullptr, "missing.example"), -1);
  EXPECT_EQ(ping_from(nullptr, nullptr, "10.1.0.256", kDistant), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("rawping[wan0]: invalid target 'missing.example'"),
                                       err("rawping[wan0]: invalid gateway 'missing.example'"),
                                       err("rawping[wan0]: invalid gateway '10.1.0.256'")));
}

// What is wrong first is told: the target, the interface, the source, the gateway, the hardware
// address.
TEST_F(PingRoute, LooksAtWhatItNeedsInOneOrder) {
  const support::FailingCall no_socket = {SystemCall::kSocket, EMFILE};
  const support::FailingCall no_index = {SystemCall::kControl, EPERM, 0, 1};
  const support::FailingCall no_hardware_address = {SystemCall::kControl, EPERM, 3, 1};
  const auto logged = [this](const support::FailingCall& failing, const char* target,
                             const char* source, const char* gateway) {
    run_with_failing_calls({failing},
                           [&] { EXPECT_EQ(ping_from(source, source, gateway, target), -1); });
    return log_.take();
  };
  EXPECT_THAT(logged(no_socket, "10.1.0.256", "here", "10.1.0.256"),
              ElementsAre(err("rawping[wan0]: invalid target '10.1.0.256'")));
  EXPECT_THAT(
      logged(no_index, kGateway, "here", "10.1.0.256"),
      ElementsAre(err("rawping[wan0]: can't get interface index (" + text_of(EPERM) + ")")));
  EXPECT_THAT(logged(no_hardware_address, kGateway, nullptr, "10.1.0.256"),
              ElementsAre(err("rawping[wan0]: invalid gateway '10.1.0.256'")));
}

TEST_F(PingRoute, WantsAnInterfaceThatIsThere) {
  EXPECT_EQ(rawping("wan7", kGateway, nullptr, 500), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("rawping[wan7]: can't get interface index (" +
                                           text_of(ENODEV) + ")")));
}

TEST_F(PingRoute, CutsNamesOfInterfacesAfter15Characters) {
  EXPECT_EQ(rawping("a-name-of-15-characters", "10.3.0.2", nullptr, kLong), 0);
  const Messages messages = log_.take();
  ASSERT_THAT(messages, SizeIs(7));
  EXPECT_EQ(messages[0], progress("interface runs 10.3.0.1/255.255.255.0 (02:00:00:00:03:01)",
                                  "a-name-of-15-characters"));
}

TEST_F(PingRoute, WantsAnInterfaceWithAnAddressUnlessOneIsGiven) {
  hosts_.router.ip("addr flush dev wan0");
  EXPECT_EQ(ping_from(nullptr, nullptr), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("rawping[wan0]: can't get interface address (" +
                                           text_of(EADDRNOTAVAIL) + ")")));
  // Nobody answers for the source then.
  hosts_.gateway.ip("neigh replace 10.1.0.1 lladdr 02:00:00:00:01:01 dev eth0 nud permanent");
  tell_gateway_mac();
  EXPECT_EQ(
      __rawping("wan0", kDistant, kGateway, kOwn, "255.255.255.0", kLong, -1, nullptr, nullptr), 0);
  EXPECT_EQ(log_.take().back(), progress("raw ping to 10.2.0.2 succeeded"));
}

TEST_F(PingRoute, FailsWhenTheInterfaceDoesNotAnswer) {
  const std::vector<std::pair<unsigned, const char*>> questions = {
      {0, "index"}, {1, "address"}, {2, "netmask"}, {3, "hwaddr"}};
  for (const auto& [done, what] : questions) {
    run_with_failing_calls({{SystemCall::kControl, EPERM, done, 1}},
                           [] { EXPECT_EQ(ping_from(nullptr, nullptr), -1); });
    EXPECT_THAT(log_.take(), ElementsAre(err(std::string("rawping[wan0]: can't get interface ") +
                                             what + " (" + text_of(EPERM) + ")")));
  }
  // Neither address nor netmask is asked for.
  run_with_failing_calls({{SystemCall::kControl, EPERM, 1, 1}},
                         [] { EXPECT_EQ(ping_from(kOwn, "255.0.0.0"), -1); });
  EXPECT_THAT(log_.take(), ElementsAre(err("rawping[wan0]: can't get interface hwaddr (" +
                                           text_of(EPERM) + ")")));
}

TEST_F(PingRoute, FailsWithoutPrivileges) {
  support::run_without_privileges([] { EXPECT_EQ(ping_from(nullptr, nullptr), -1); });
  EXPECT_THAT(log_.take(),
              ElementsAre(err("rawping[wan0]: unable to create socket (" + text_of(EPERM) + ")")));
}

TEST_F(PingRoute, FailsWithoutDescriptors) {
  run_with_failing_calls({{SystemCall::kSocket, EMFILE}},
                         [] { EXPECT_EQ(ping_from(nullptr, nullptr), -1); });
  EXPECT_THAT(log_.take(),
              ElementsAre(err("rawping[wan0]: unable to create socket (" + text_of(EMFILE) + ")")));
}

}  // namespace
