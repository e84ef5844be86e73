#include "support/configd/daemon.h"

#include <rkutils/internal/unix_address.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/wire_text.h"

namespace stand_in {
namespace {

constexpr char kSocketPath[] = "/var/run/configd/daemon.sock";
constexpr std::size_t kLongestDatagram = 65536;

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

// Removes `suffix` from the end; false where there is none.
bool drop_suffix(std::string_view& text, std::string_view suffix) {
  if (text.size() < suffix.size() || text.substr(text.size() - suffix.size()) != suffix) {
    return false;
  }
  text.remove_suffix(suffix.size());
  return true;
}

}  // namespace

Daemon::Daemon(const Options& options)
    : values_(options.values),
      record_(options.record),
      control_(options.control),
      buffer_(kLongestDatagram) {
  open_socket();
}

void Daemon::run() {
  for (;;) {
    std::array<pollfd, 2> entries = {
        {{control_.descriptor(), POLLIN, 0}, {socket_.get(), POLLIN, 0}}};
    if (::poll(entries.data(), entries.size(), -1) < 0) {
      if (errno == EINTR) continue;
      fail("poll");
    }
    // Requests first: they came before the command that follows them.
    if (entries[1].revents != 0) serve_request();
    if (entries[0].revents == 0 || entries[1].revents != 0) continue;
    if (!control_.serve([this](const auto& verb, const auto& rest) { obey(verb, rest); })) return;
  }
}

void Daemon::open_socket() {
  ::unlink(kSocketPath);
  socket_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address;
  if (!socket_ || !rkutils::internal::make_unix_address(kSocketPath, address) ||
      ::bind(socket_.get(), rkutils::internal::as_sockaddr(address), sizeof address) != 0) {
    fail(kSocketPath);
  }
}

void Daemon::close_socket() {
  socket_.reset();
  ::unlink(kSocketPath);
}

void Daemon::serve_request() {
  sockaddr_un client = {};
  socklen_t length = sizeof client;
  const ssize_t received = ::recvfrom(socket_.get(), buffer_.data(), buffer_.size(), 0,
                                      static_cast<sockaddr*>(static_cast<void*>(&client)), &length);
  if (received < 0) return;
  const std::string_view request(buffer_.data(), static_cast<std::size_t>(received));
  record("recv", client.sun_path, request);

  std::optional<std::string> reply = answer(request);
  if (const std::optional<Fault> fault = faults_.next()) {
    reply = spoil(reply.value_or(""), *fault);
  }
  if (!reply) return;
  record("send", client.sun_path, *reply);
  ::sendto(socket_.get(), reply->data(), reply->size(), 0, rkutils::internal::as_sockaddr(client),
           length);
}

std::optional<std::string> Daemon::answer(std::string_view request) {
  if (request == "Done\n") return "Ready";
  if (!drop_suffix(request, std::string_view("\n\0", 2))) return std::nullopt;
  if (!request.empty() && request.front() == '?') {
    return values_.get(std::string(request.substr(1))) + std::string("\n\0", 2);
  }
  return assign(request);
}

std::optional<std::string> Daemon::assign(std::string_view text) {
  const std::string echo = std::string(text) + std::string("\n\0", 2);
  std::vector<std::pair<std::string, std::string>> changes;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    changes.emplace_back(line.substr(0, equals), line.substr(equals + 1));
  }
  for (const auto& [key, value] : changes) values_.set(key, value);
  values_.save();
  return echo;
}

void Daemon::obey(const std::string& verb, const std::string& rest) {
  if (verb == "fault") {
    faults_.queue(rest);
  } else if (verb == "value") {
    const std::size_t equals = rest.find('=');
    values_.set(rest.substr(0, equals), rest.substr(equals + 1));
  } else if (verb == "gone") {
    close_socket();
  } else if (verb == "back") {
    open_socket();
  } else {
    throw std::invalid_argument("no such command: " + verb);
  }
}

void Daemon::record(std::string_view direction, std::string_view peer, std::string_view bytes) {
  record_.write(std::string(direction) + " " + std::string(peer) + " " + support::quote(bytes));
}

}  // namespace stand_in
