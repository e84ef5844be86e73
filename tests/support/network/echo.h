// ICMP messages in Ethernet frames: reading and forging them.
#ifndef TESTS_SUPPORT_NETWORK_ECHO_H
#define TESTS_SUPPORT_NETWORK_ECHO_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "support/network/frame_socket.h"

namespace support {

// Where things are in a frame without IP options.
inline constexpr std::size_t kIpOffset = 14;
inline constexpr std::size_t kIcmpOffset = 34;

inline constexpr std::uint8_t kEchoReply = 0;
inline constexpr std::uint8_t kEchoRequest = 8;

// An echo request or reply, or another ICMP message of IPv4. Numbers are as on the wire, where the
// most significant byte comes first.
struct Echo {
  std::string hardware_source;  // "02:00:00:00:01:01"
  std::string hardware_destination;
  std::string source;  // "10.1.0.1"
  std::string destination;
  std::uint8_t time_to_live = 64;
  Bytes ip_options = {};  // a multiple of four bytes
  std::uint8_t type = kEchoRequest;
  std::uint8_t code = 0;
  std::uint16_t identifier = 0;
  std::uint16_t sequence = 0;
  Bytes payload = {};  // what follows the sequence
};

// What a frame holds; nothing when it is none of ICMP. Checksums are not looked at.
std::optional<Echo> read_echo(const Bytes& frame);

// The same for one that is known to hold it; throws std::runtime_error otherwise.
Echo echo_in(const Frame& frame);

// True for a frame with an ICMP message of this type.
bool has_icmp_type(const Frame& frame, std::uint8_t type);
inline bool is_echo_request(const Frame& frame) { return has_icmp_type(frame, kEchoRequest); }
inline bool is_echo_reply(const Frame& frame) { return has_icmp_type(frame, kEchoReply); }

// The frame of it, with right checksums.
Bytes make_frame(const Echo& echo);

// What the one that is asked answers: the same with its addresses exchanged, as an echo reply.
Echo reply_to(const Echo& request);

// The Internet checksum of RFC 1071, reckoned word by word as it is written there, to compare
// others' with. The most significant byte comes first in a packet. A last odd byte counts as the
// first of a word with zero.
std::uint16_t checksum_by_definition(const std::uint8_t* data, std::size_t length);

}  // namespace support

#endif
