#include "support/wwanmd/daemon.h"

#include <rkutils/internal/unix_address.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/wire_text.h"

namespace stand_in {
namespace {

using namespace std::chrono_literals;
using rkutils::internal::UniqueFd;

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

// What has been sent on a stream must be fetched before more is, or both would come as one.
void wait_until_fetched(int socket) {
  constexpr int kRounds = 30000;
  for (int round = 0; round < kRounds; ++round) {
    int unread = 0;
    if (::ioctl(socket, SIOCOUTQ, &unread) != 0 || unread == 0) return;
    std::this_thread::sleep_for(1ms);
  }
}

}  // namespace

ModemDaemon::ModemDaemon(const ModemOptions& options)
    : path_("/var/run/wwanmd" + std::to_string(options.card) + "/server"),
      record_(options.record),
      control_(options.control),
      buffer_(65536) {
  open_socket();
}

void ModemDaemon::run() {
  for (;;) {
    std::vector<pollfd> entries = {{control_.descriptor(), POLLIN, 0},
                                   {listener_.get(), POLLIN, 0}};
    for (const Client& client : clients_) {
      entries.push_back({deaf_ ? -1 : client.socket.get(), POLLIN, 0});
    }
    if (::poll(entries.data(), entries.size(), -1) < 0) {
      if (errno == EINTR) continue;
      fail("poll");
    }
    // Applications first: what they did came before the command that follows.
    bool was_busy = false;
    for (std::size_t i = 0; i < clients_.size(); ++i) {
      if (entries[2 + i].revents == 0) continue;
      was_busy = true;
      serve_client(clients_[i]);
    }
    forget_closed_clients();
    if (entries[1].revents != 0) {
      was_busy = true;
      accept_client();
    }
    if (was_busy || entries[0].revents == 0) continue;
    if (!control_.serve([this](const auto& word, const auto& rest) { obey(word, rest); })) return;
  }
}

void ModemDaemon::open_socket() {
  ::unlink(path_.c_str());
  listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address;
  constexpr int kQueue = 8;
  if (!listener_ || !rkutils::internal::make_unix_address(path_.c_str(), address) ||
      ::bind(listener_.get(), rkutils::internal::as_sockaddr(address), sizeof address) != 0 ||
      ::listen(listener_.get(), kQueue) != 0) {
    fail(path_);
  }
}

void ModemDaemon::close_socket() {
  listener_.reset();
  ::unlink(path_.c_str());
}

void ModemDaemon::accept_client() {
  UniqueFd socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket) return;
  Client client = {++connections_, std::move(socket), {}};
  record("open", client, "");
  if (const std::optional<Plan> greeting = greetings_.next()) carry_out(client, *greeting, "");
  if (client.socket) clients_.push_back(std::move(client));
}

void ModemDaemon::serve_client(Client& client) {
  const ssize_t received = ::recv(client.socket.get(), buffer_.data(), buffer_.size(), 0);
  if (received <= 0) {
    record("gone", client, "");
    client.socket.reset();
    return;
  }
  const std::string_view bytes(buffer_.data(), static_cast<std::size_t>(received));
  record("recv", client, bytes);
  client.line += bytes;
  std::size_t end = 0;
  while (client.socket && (end = client.line.find('\n')) != std::string::npos) {
    const std::string line = client.line.substr(0, end);
    client.line.erase(0, end + 1);
    serve_line(client, line);
  }
}

void ModemDaemon::serve_line(Client& client, const std::string& line) {
  const auto found = answers_.find(line);
  const std::string answer = found == answers_.end() ? "OK" : found->second;
  const Plan usual = {{Step::Kind::kAnswer, 0, {}}};
  carry_out(client, plans_.next().value_or(usual), answer);
}

void ModemDaemon::carry_out(Client& client, const Plan& plan, const std::string& answer) {
  for (const Step& step : plan) {
    switch (step.kind) {
      case Step::Kind::kAnswer:
        send(client, answer);
        break;
      case Step::Kind::kSend:
        send(client, step.bytes);
        break;
      case Step::Kind::kWait:
        std::this_thread::sleep_for(std::chrono::milliseconds(step.number));
        break;
      case Step::Kind::kClose:
        close_client(client);
        return;
    }
  }
}

void ModemDaemon::send(const Client& client, std::string_view bytes) {
  wait_until_fetched(client.socket.get());
  record("send", client, bytes);
  ::send(client.socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void ModemDaemon::close_client(Client& client) {
  record("close", client, "");
  client.socket.reset();
}

void ModemDaemon::forget_closed_clients() {
  clients_.erase(std::remove_if(clients_.begin(), clients_.end(),
                                [](const Client& client) { return !client.socket; }),
                 clients_.end());
}

void ModemDaemon::obey(const std::string& word, const std::string& rest) {
  std::istringstream words(rest);
  if (word == "plan") {
    plans_.queue(rest);
  } else if (word == "greet") {
    greetings_.queue(rest);
  } else if (word == "now") {
    const Plan plan = parse_plan(rest);
    for (Client& client : clients_) carry_out(client, plan, "OK");
    forget_closed_clients();
  } else if (word == "answer") {
    const std::string command = support::read_quoted(words);
    answers_[command] = support::read_quoted(words);
  } else if (word == "deaf") {
    deaf_ = true;
  } else if (word == "gone") {
    close_socket();
  } else if (word == "back") {
    open_socket();
  } else if (word != "sync") {
    throw std::invalid_argument("no such command: " + word);
  }
}

void ModemDaemon::record(const char* event, const Client& client, std::string_view bytes) {
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now().time_since_epoch());
  record_.write(std::string(event) + " " + std::to_string(now.count()) + " " +
                std::to_string(client.number) + " " + support::quote(bytes));
}

}  // namespace stand_in
