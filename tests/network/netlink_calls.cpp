#include "network/netlink_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

namespace netlink_calls {
namespace {

using support::CallArguments;
using support::FailingCall;
using support::SystemCall;

std::string copy(const void* bytes, std::size_t size) {
  return std::string(static_cast<const char*>(bytes), size);
}

FailingCall decided(SystemCall call,
                    std::function<std::optional<std::int64_t>(const CallArguments&)> decide) {
  FailingCall result = {call, 0};
  result.decide = std::move(decide);
  return result;
}

bool is_netlink(int socket) {
  int family = 0;
  socklen_t length = sizeof family;
  return ::getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &family, &length) == 0 && family == AF_NETLINK;
}

std::uint32_t port_of(int socket) {
  sockaddr_nl address = {};
  socklen_t length = sizeof address;
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return address.nl_pid;
}

}  // namespace

void Witness::watch(const std::function<void()>& action, std::vector<FailingCall> others) {
  std::vector<FailingCall> calls = std::move(others);
  for (FailingCall& call : watching_calls()) {
    const bool taken = std::any_of(calls.begin(), calls.end(), [&](const FailingCall& other) {
      return other.call == call.call;
    });
    if (!taken) calls.push_back(std::move(call));
  }
  support::run_with_failing_calls(calls, action);
}

void Witness::answer(const std::vector<Answer>& answers, const std::function<void()>& action) {
  stands_in_ = true;
  answers_ = answers;
  next_ = 0;
  watch(action);
}

std::vector<FailingCall> Witness::watching_calls() {
  std::vector<FailingCall> calls;
  calls.push_back(decided(SystemCall::kSocket, [this](const CallArguments& arguments) {
    const auto value = [&](std::size_t i) { return static_cast<int>(arguments[i]); };
    if (value(0) == AF_NETLINK) sockets.push_back({value(0), value(1), value(2)});
    return std::optional<std::int64_t>();
  }));
  calls.push_back(decided(SystemCall::kSetSocketOption, [this](const CallArguments& arguments) {
    if (is_netlink(static_cast<int>(arguments[0]))) {
      options.push_back({static_cast<int>(arguments[1]), static_cast<int>(arguments[2]),
                         *pointer_to<const int>(arguments[3])});
    }
    return std::optional<std::int64_t>();
  }));
  calls.push_back(decided(SystemCall::kBind, [this](const CallArguments& arguments) {
    if (is_netlink(static_cast<int>(arguments[0]))) {
      bound.push_back(
          copy(pointer_to<const void>(arguments[1]), static_cast<std::size_t>(arguments[2])));
    }
    return std::optional<std::int64_t>();
  }));
  calls.push_back(decided(SystemCall::kSendMessage, [this](const CallArguments& arguments) {
    see_message(arguments);
    return stands_in_ ? std::optional<std::int64_t>(sent.back().bytes.size())
                      : std::optional<std::int64_t>();
  }));
  calls.push_back(decided(SystemCall::kReceiveMessage, [this](const CallArguments& arguments) {
    receive_sizes.push_back(pointer_to<const msghdr>(arguments[1])->msg_iov->iov_len);
    receive_flags.push_back(static_cast<int>(arguments[2]));
    return stands_in_ ? std::optional<std::int64_t>(receive(arguments))
                      : std::optional<std::int64_t>();
  }));
  return calls;
}

void Witness::see_message(const CallArguments& arguments) {
  const auto* const message = pointer_to<const msghdr>(arguments[1]);
  std::string bytes;
  for (std::size_t i = 0; i < static_cast<std::size_t>(message->msg_iovlen); ++i) {
    bytes += copy(message->msg_iov[i].iov_base, message->msg_iov[i].iov_len);
  }
  const std::uint32_t port = port_of(static_cast<int>(arguments[0]));
  sent.push_back({bytes,
                  copy(message->msg_name, message->msg_namelen),
                  static_cast<int>(arguments[2]),
                  {port, netlink_bytes::number_at<std::uint32_t>(bytes, 8)}});
  if (before_sending) std::exchange(before_sending, nullptr)(sent.back());
}

std::int64_t Witness::receive(const CallArguments& arguments) {
  if (next_ == answers_.size()) return -EPIPE;
  const Received received = answers_[next_++](sent.back());
  if (received.error != 0) return -received.error;

  auto* const message = pointer_to<msghdr>(arguments[1]);
  const std::size_t size = std::min(received.bytes.size(), message->msg_iov->iov_len);
  std::memcpy(message->msg_iov->iov_base, received.bytes.data(), size);
  sockaddr_nl sender = {};
  sender.nl_family = AF_NETLINK;
  sender.nl_pid = received.sender;
  std::memcpy(message->msg_name, &sender,
              std::min<std::size_t>(sizeof sender, message->msg_namelen));
  message->msg_namelen = received.address_length;
  message->msg_flags = received.flags | (size < received.bytes.size() ? MSG_TRUNC : 0);
  return static_cast<std::int64_t>(size);
}

}  // namespace netlink_calls
