// A kernel that answers what it likes to questions about a route.

#include <rkutils/export.h>
#include <rkutils/route.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

template <typename Record>
void append(std::string& bytes, const Record& record) {
  bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
}

// Answers from the input, in the place of the kernel's.
class Kernel {
 public:
  explicit Kernel(Input& input) : input_(input) { current = this; }
  ~Kernel() { current = nullptr; }
  Kernel(const Kernel&) = delete;
  Kernel& operator=(const Kernel&) = delete;

  // Stands for sendmsg(2).
  ssize_t take(int socket, const msghdr& request) {
    expect(request.msg_iovlen == 1 && request.msg_iov->iov_len >= sizeof question_,
           "a question has a header");
    std::memcpy(&question_, request.msg_iov->iov_base, sizeof question_);
    expect_equal(question_.nlmsg_len, request.msg_iov->iov_len, "the length of a question");
    expect_equal(question_.nlmsg_type, std::uint16_t{RTM_GETROUTE}, "its type");
    sockaddr_nl asker = {};
    socklen_t length = sizeof asker;
    expect(::getsockname(socket, reinterpret_cast<sockaddr*>(&asker), &length) == 0,
           "who asks has an address");
    question_.nlmsg_pid = asker.nl_pid;
    return static_cast<ssize_t>(request.msg_iov->iov_len);
  }

  // Stands for recvmsg(2).
  ssize_t answer(msghdr& answer) {
    expect(!ended_, "nothing is waited for behind the end");
    const std::size_t kind = input_.empty() ? 0 : input_.below(16);
    if (kind == 1) return fail(input_.flag() ? EAGAIN : EINTR);
    ended_ = kind == 0 || kind == 2;
    if (ended_) return kind == 0 ? fail(ENOBUFS) : 0;
    std::string datagram;
    do {
      add_message(datagram);
    } while (!input_.empty() && input_.flag());
    if (kind == 3) datagram += input_.some_bytes();
    if (kind == 4) datagram.append(input_.below(20000), '\0');

    sockaddr_nl sender = {};
    sender.nl_family = AF_NETLINK;
    if (kind == 5) sender.nl_pid = input_.byte();
    std::memcpy(answer.msg_name, &sender, std::min<std::size_t>(answer.msg_namelen, sizeof sender));
    answer.msg_namelen = kind == 6 ? input_.byte() : sizeof sender;
    const std::size_t size = std::min(datagram.size(), answer.msg_iov->iov_len);
    std::memcpy(answer.msg_iov->iov_base, datagram.data(), size);
    answer.msg_flags = size < datagram.size() ? MSG_TRUNC : 0;
    return static_cast<ssize_t>(size);
  }

  static Kernel* current;

 private:
  static ssize_t fail(int error) {
    errno = error;
    return -1;
  }

  void add_message(std::string& datagram) {
    datagram.resize(NLMSG_ALIGN(datagram.size()));
    nlmsghdr header = question_;
    if (input_.below(8) == 0) header.nlmsg_seq -= input_.byte();
    if (input_.below(8) == 0) header.nlmsg_pid += input_.byte();
    const std::string payload = payload_of(header);
    header.nlmsg_len = static_cast<std::uint32_t>(sizeof header + payload.size());
    if (input_.below(8) == 0) header.nlmsg_len = input_.number<std::uint32_t>();
    append(datagram, header);
    datagram += payload;
  }

  // Sets the type, too.
  std::string payload_of(nlmsghdr& header) {
    std::string payload;
    const std::size_t kind = input_.below(4);
    header.nlmsg_type = RTM_NEWROUTE;
    if (kind == 0) {
      header.nlmsg_type = NLMSG_ERROR;
      nlmsgerr error = {};
      error.error = -static_cast<int>(input_.below(140));
      error.msg = question_;
      append(payload, error);
      if (input_.flag()) payload.resize(input_.below(sizeof error));
    } else if (kind == 1) {
      header.nlmsg_type = input_.number<std::uint16_t>();
      payload = input_.some_bytes();
    } else {
      append(payload, rtmsg());
      while (!input_.empty() && input_.flag()) add_attribute(payload);
    }
    return payload;
  }

  void add_attribute(std::string& payload) {
    payload.resize(RTA_ALIGN(payload.size()));
    std::string value = input_.bytes(input_.below(24));
    rtattr header = {};
    header.rta_type = input_.flag() ? std::uint16_t{RTA_OIF} : input_.byte();
    if (input_.flag()) {
      value.clear();
      append(value, std::uint32_t{input_.byte()});
    }
    header.rta_len = static_cast<unsigned short>(sizeof header + value.size());
    if (input_.below(8) == 0) header.rta_len = input_.number<std::uint16_t>();
    append(payload, header);
    payload += value;
  }

  Input& input_;
  nlmsghdr question_ = {};
  bool ended_ = false;
};

Kernel* Kernel::current = nullptr;

bool is_interface(const std::string& name) {
  return name.size() < IF_NAMESIZE && ::if_nametoindex(name.c_str()) != 0;
}

void look_up(addrinfo& address) {
  std::string buffer(IF_NAMESIZE, '?');
  buffer.shrink_to_fit();
  const int result = route_get_interface(&address, buffer.data());
  expect(result == 0 || result == -1, "a query succeeds or fails");
  if (result == 0) {
    expect(is_interface(fuzz::text_of(buffer)), "the result is an interface");
  } else {
    expect_equal(buffer, std::string(IF_NAMESIZE, '?'), "the buffer of a failed query");
  }
}

}  // namespace

// These stand before the C library's.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

RK_API ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  if (Kernel::current != nullptr) return Kernel::current->take(socket, *message);
  return ::syscall(SYS_sendmsg, socket, message, flags);
}

RK_API ssize_t recvmsg(int socket, msghdr* message, int flags) {
  if (Kernel::current != nullptr) return Kernel::current->answer(*message);
  return ::syscall(SYS_recvmsg, socket, message, flags);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

// The family and the address that are asked for; then what comes each time that an answer is waited for.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::NothingLeftOpen nothing_left_open;
  Input input(data, size);
  Kernel kernel(input);
  sockaddr_in6 record6 = {};
  sockaddr_in record = {};
  addrinfo address = {};
  address.ai_family = input.flag() ? AF_INET6 : AF_INET;
  const bool is_long = address.ai_family == AF_INET6;
  const std::string bytes =
      input.bytes(is_long ? sizeof record6.sin6_addr : sizeof record.sin_addr);
  std::memcpy(is_long ? static_cast<void*>(&record6.sin6_addr) : &record.sin_addr, bytes.data(),
              bytes.size());
  address.ai_addr =
      is_long ? reinterpret_cast<sockaddr*>(&record6) : reinterpret_cast<sockaddr*>(&record);
  look_up(address);
  return 0;
}
