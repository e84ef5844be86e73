// Messages of the kernel's routing service (rtnetlink(7)): requests made, answers read. Bytes alone;
// who sends and receives them is elsewhere.
#ifndef RKUTILS_NETWORK_ROUTE_MESSAGES_H
#define RKUTILS_NETWORK_ROUTE_MESSAGES_H

#include <rkutils/network/address_record.h>

#include <cstddef>
#include <cstdint>

#include <linux/rtnetlink.h>

namespace rkutils::network::route {

// A question about a route; then the answer to it, which takes its place.
struct RouteMessage {
  nlmsghdr header;
  rtmsg route;
  Byte attributes[1024];
};
static_assert(sizeof(RouteMessage) == 1052);
static_assert(offsetof(RouteMessage, route) == 16 && offsetof(RouteMessage, attributes) == 28);

// Asks which way an address is reached, of AF_INET or AF_INET6 and `length` bytes in network order.
// The sequence number stays 0. False, with nothing in it to be sent, when the address is too long.
[[nodiscard]] bool make_route_request(int family, const Byte* address, std::size_t length,
                                      RouteMessage& request) noexcept;

struct LinkRequest {
  nlmsghdr header;
  ifinfomsg link;
};
static_assert(sizeof(LinkRequest) == 32);

// Sets or clears both multipath flags of an interface, and leaves its other flags as they are.
[[nodiscard]] LinkRequest make_link_request(unsigned index, bool exclude, bool backup) noexcept;

// Bytes of someone else's.
struct Bytes {
  const Byte* data;
  std::size_t size;
};

struct Datagram {
  Bytes bytes;
  std::uint32_t sender;  // its port id, which is 0 for the kernel
  bool truncated;        // there was more of it than the buffer could take
};

// Who has asked what: an answer repeats both.
struct Question {
  std::uint32_t port;
  std::uint32_t sequence;
};

struct Reading {
  enum class Kind {
    kAnswer,
    kNoAnswer,   // messages for others, or of others than the kernel
    kMalformed,  // lengths that do not add up
  };

  Kind kind;
  Bytes answer;  // the whole message; at least a header
};

// Finds the first answer to the question in a datagram. What comes after it is not looked at.
[[nodiscard]] Reading find_answer(const Datagram& datagram, const Question& question) noexcept;

// The type of a message that has a header.
[[nodiscard]] unsigned type_of(Bytes message) noexcept;

// The errno value that a message of the type NLMSG_ERROR tells; 0 if it is an acknowledgement, or too
// short to tell any.
[[nodiscard]] int error_of(Bytes message) noexcept;

// The index of the interface that a route leads to; 0, which none has, when it names none. The route
// must be as long as its fixed part at least; what does not fit in the message does not count.
[[nodiscard]] unsigned output_interface(const RouteMessage& route) noexcept;

}  // namespace rkutils::network::route

#endif
