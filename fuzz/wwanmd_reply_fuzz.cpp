// A modem daemon that answers what it likes, when it likes, to all that its client asks.

#include <rkutils/export.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>
#include <rkutils/wwanmd.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/put_file.h"
#include "support/stopped_clock.h"
#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using rkutils::internal::UniqueFd;

constexpr int kCard = 0;
constexpr char kApplication[] = "fuzz";
constexpr char kIntroduction[] = "init fuzz\n";
constexpr char kReset[] = "/tmp/status/wwanmd/card0/reset";
constexpr char kSuspended[] = "/tmp/status/wwanmd/card0/suspended";
constexpr std::size_t kLongestReply = 8191;

bool exists(const char* path) { return ::access(path, F_OK) == 0; }

void set_marker(const char* path, bool there) {
  if (there) {
    support::put(path, "");
  } else {
    ::unlink(path);
  }
}

UniqueFd open_listening_socket() {
  std::filesystem::create_directories("/var/run/wwanmd0");
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address;
  expect(rkutils::internal::make_unix_address("/var/run/wwanmd0/server", address) &&
             ::bind(socket.get(), rkutils::internal::as_sockaddr(address), sizeof address) == 0 &&
             ::listen(socket.get(), 64) == 0,
         "the daemon has its socket");
  return socket;
}

// Does its next step whenever the client waits for it, on the client's own thread.
class Daemon {
 public:
  Daemon(int listening, Input& input, support::StoppedClock& clock)
      : listening_(listening), input_(input), clock_(clock) {
    current = this;
    clock_.at_pauses([this](int) {
      if (!exists(kReset)) return;
      was_in_reset_ = true;
      if (input_.empty() || input_.flag()) set_marker(kReset, false);
    });
  }

  ~Daemon() {
    current = nullptr;
    accept_all();
    set_marker(kReset, false);
    set_marker(kSuspended, false);
  }

  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  // Stands for poll(2).
  int wait(pollfd* entry, int timeout_ms) {
    if ((entry->events & POLLIN) != 0) {
      ++waits_;
      act();
    }
    const std::timespec none = {};
    const int ready = ::ppoll(entry, 1, &none, nullptr);
    if (ready == 0) clock_.advance_us(std::int64_t{timeout_ms} * 1000);
    note_next(entry->fd);
    return ready;
  }

  // What the client gets when it receives, as it was when it waited last.
  [[nodiscard]] std::string_view next() const { return next_; }

  // How often the client has connected.
  int connections() {
    accept_all();
    return connections_;
  }

  // All that the client has sent since it connected last.
  std::string_view received() {
    take_commands();
    return received_;
  }

  // How often the client has waited for a reply since the last call.
  int take_waits() { return std::exchange(waits_, 0); }

  // Whether the client has waited for a card in reset since the last call.
  bool take_reset() { return std::exchange(was_in_reset_, false); }

  static Daemon* current;

 private:
  void accept_all() {
    for (;;) {
      UniqueFd client(::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (!client) return;
      client_ = std::move(client);
      ++connections_;
      received_.clear();
      sent_.clear();
    }
  }

  void take_commands() {
    accept_all();
    char bytes[8192];
    ssize_t count = 0;
    while (client_ && (count = ::recv(client_.get(), bytes, sizeof bytes, 0)) > 0) {
      received_.append(bytes, static_cast<std::size_t>(count));
    }
    const std::size_t compared = std::min(received_.size(), sizeof kIntroduction - 1);
    expect_equal(received_.substr(0, compared), std::string(kIntroduction, compared),
                 "what the client sends first");
  }

  void act() {
    take_commands();
    if (input_.empty()) return send("OK");
    static const char* const kWords[] = {"OK", "ERROR", "BUSY", ""};
    const std::size_t action = input_.below(12);
    if (action < 8) {
      std::string reply = kWords[action % 4] + input_.some_bytes();
      if (action >= 6) reply.append(input_.below(20000), 'r');
      send(reply);
    } else if (action == 8) {
      client_.reset();
    } else if (action == 9) {
      clock_.advance_us(input_.number<std::uint16_t>() * std::int64_t{1000});
      send("BUSY");
    } else if (action == 10) {
      set_marker(kReset, !exists(kReset));
      send("OK");
    }
    // Or it stays silent.
  }

  void send(const std::string& bytes) {
    if (!client_) return;
    const ssize_t count = ::send(client_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count > 0) sent_.append(bytes, 0, static_cast<std::size_t>(count));
  }

  void note_next(int socket) {
    int pending = 0;
    if (::ioctl(socket, FIONREAD, &pending) != 0) pending = 0;
    next_ = sent_.substr(sent_.size() - std::min(static_cast<std::size_t>(pending), sent_.size()),
                         kLongestReply);
  }

  const int listening_;
  Input& input_;
  support::StoppedClock& clock_;
  UniqueFd client_;
  int connections_ = 0;
  int waits_ = 0;
  bool was_in_reset_ = false;
  std::string received_;
  std::string sent_;
  std::string next_;
};

Daemon* Daemon::current = nullptr;

// ---- The client

struct FreeConnection {
  void operator()(wwanmd_connection* connection) const { wwanmd_free(connection); }
};
using UniqueConnection = std::unique_ptr<wwanmd_connection, FreeConnection>;

struct Client {
  Input& input;
  Daemon& daemon;
  wwanmd_connection* connection;
};

std::unique_ptr<wwanmd_buffer> command_from(Input& input) {
  auto command = std::make_unique<wwanmd_buffer>();
  const std::string text = input.some_bytes();
  std::copy(text.begin(), text.end(), command->data);
  command->length = static_cast<int>(text.size());
  if (input.below(8) == 0) command->length = static_cast<int>(input.below(8300)) - 50;
  command->timeout = static_cast<int>(input.below(512)) - 10;
  return command;
}

// The text in a buffer is what follows the first word of what the client got.
void check_text(const wwanmd_buffer& buffer, std::string_view text) {
  expect_equal(buffer.length, static_cast<int>(text.size()), "the length of a reply");
  expect_equal(std::string_view(buffer.data, text.size()), text, "its text");
}

void check_reply(const Client& client, const wwanmd_buffer& buffer, int result) {
  const std::string_view reply = client.daemon.next();
  const auto begins_with = [reply](std::string_view word) {
    return reply.substr(0, word.size()) == word;
  };
  if (begins_with("OK")) {
    expect_equal(result, 0, "the result of OK");
    check_text(buffer, reply.substr(2));
  } else if (begins_with("ERROR")) {
    expect_equal(result, -1, "the result of ERROR");
    check_text(buffer, reply.substr(5));
  } else if (begins_with("BUSY")) {
    expect_equal(result, -1, "the result of BUSY");
    check_text(buffer, reply.substr(4));
  } else {
    expect_equal(result, -1, "the result of any other word, or none");
    expect_equal(buffer.length, -1, "the length of no reply");
  }
  const char* const end = buffer.data + sizeof buffer.data;
  expect(std::all_of(buffer.data + std::max(buffer.length, 0), end,
                     [](char byte) { return byte == '\0'; }),
         "all behind the text is zero");
}

int receive(const Client& client) {
  constexpr int kMostWaits = 21;
  const auto buffer = command_from(client.input);
  const int connections = client.daemon.connections();
  client.daemon.take_reset();
  client.daemon.take_waits();
  const int result = wwanmd_recv(client.connection, buffer.get());
  // Otherwise it was the reply to an introduction that came last.
  if (client.daemon.connections() != connections || client.daemon.take_reset()) return result;
  check_reply(client, *buffer, result);
  expect(client.daemon.take_waits() <= kMostWaits, "the daemon is not busy more often");
  return result;
}

int send(const Client& client) {
  const auto buffer = command_from(client.input);
  const int result = wwanmd_send(client.connection, buffer.get());
  if (result != 0) return result;
  expect(buffer->length >= 1 && buffer->data[buffer->length - 1] == '\n', "a command is a line");
  const std::string_view received = client.daemon.received();
  const std::string_view command(buffer->data, static_cast<std::size_t>(buffer->length));
  expect(received.size() >= command.size() &&
             received.substr(received.size() - command.size()) == command,
         "the daemon has got the command");
  return result;
}

int command(const Client& client) {
  const auto buffer = command_from(client.input);
  const int result = wwanmd_command(client.connection, buffer.get());
  if (result == 0) check_reply(client, *buffer, result);
  expect(result == 0 || result == -1, "a command succeeds or fails");
  return result;
}

int open(const Client& client) { return wwanmd_open(client.connection); }

int close(const Client& client) {
  wwanmd_close(client.connection);
  return 0;
}

int look(const Client& client) {
  const int in_reset = wwanmd_in_reset(kCard);
  expect(in_reset == 0 || in_reset == 1, "a card is in reset or not");
  set_marker(kSuspended, client.input.flag());
  expect_equal(wwanmd_is_suspended(kCard), exists(kSuspended) ? 1 : 0, "whether it is suspended");
  return 0;
}

std::int64_t seconds_of(const support::StoppedClock& clock) { return clock.now().tv_sec; }

// Two waits of 300 seconds, and what opening takes, three times.
constexpr std::int64_t kMostSeconds = 700;

}  // namespace

// Stands before the C library's.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" RK_API int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  if (Daemon::current != nullptr && count == 1) return Daemon::current->wait(entries, timeout_ms);
  const std::timespec timeout = {timeout_ms / 1000, timeout_ms % 1000 * 1000000L};
  return ::ppoll(entries, count, timeout_ms < 0 ? nullptr : &timeout, nullptr);
}

// What the client does, with its arguments, and what the daemon does each time that the client waits.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const UniqueFd listening = open_listening_socket();
  const fuzz::NothingLeftOpen nothing_left_open;
  Input input(data, size);
  support::StoppedClock clock;
  Daemon daemon(listening.get(), input, clock);
  const UniqueConnection connection(wwanmd_init(kCard, kApplication));
  if (connection == nullptr) return 0;
  const Client client = {input, daemon, connection.get()};
  using Function = int(const Client&);
  static Function* const kFunctions[] = {command, receive, send, open, close, look};
  constexpr int kMostCalls = 12;
  for (int i = 0; i < kMostCalls && !input.empty(); ++i) {
    const std::int64_t begin = seconds_of(clock);
    const int result = kFunctions[input.below(std::size(kFunctions))](client);
    expect(result == 0 || result == -1 || result == -11, "the result is one of the three");
    expect(seconds_of(clock) - begin <= kMostSeconds, "the client has not waited for too long");
  }
  return 0;
}
