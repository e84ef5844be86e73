// What a program and the kernel say to each other over netlink sockets.
#ifndef TESTS_NETWORK_NETLINK_CALLS_H
#define TESTS_NETWORK_NETLINK_CALLS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <linux/netlink.h>
#include <sys/socket.h>

#include "network/netlink_bytes.h"
#include "support/failing_calls.h"

namespace netlink_calls {

struct Sent {
  std::string bytes;
  std::string address;  // where to, as in memory
  int flags;
  netlink_bytes::Asker asker;  // the sender's port id, and the sequence number of the first message
};

struct Received {
  std::string bytes;
  int flags = 0;             // MSG_TRUNC
  std::uint32_t sender = 0;  // its port id
  socklen_t address_length = sizeof(sockaddr_nl);
  int error = 0;  // if there is one, it is all that is received
};

using support::pointer_to;

// A datagram that answers a request.
using Answer = std::function<Received(const Sent&)>;

struct Option {
  int level;
  int name;
  int value;

  friend bool operator==(const Option& a, const Option& b) {
    return a.level == b.level && a.name == b.name && a.value == b.value;
  }
};

// The netlink calls of an action. Those of other sockets do not count.
class Witness {
 public:
  // Runs the action on a thread of its own, and keeps what it says to the kernel.
  void watch(const std::function<void()>& action, std::vector<support::FailingCall> others = {});

  // The same in the place of the kernel's routing service: requests end here, and these answers are
  // received. When there are none left, receiving fails with EPIPE.
  void answer(const std::vector<Answer>& answers, const std::function<void()>& action);

  // What happens when the first request has been seen, before the kernel gets it.
  std::function<void(const Sent&)> before_sending;

  std::vector<std::array<int, 3>> sockets;  // with which arguments
  std::vector<Option> options;
  std::vector<std::string> bound;  // to which addresses
  std::vector<Sent> sent;
  std::vector<std::size_t> receive_sizes;  // of the buffers
  std::vector<int> receive_flags;

 private:
  std::vector<support::FailingCall> watching_calls();
  void see_message(const support::CallArguments& arguments);
  std::int64_t receive(const support::CallArguments& arguments);

  bool stands_in_ = false;
  std::vector<Answer> answers_;
  std::size_t next_ = 0;
};

}  // namespace netlink_calls

#endif
