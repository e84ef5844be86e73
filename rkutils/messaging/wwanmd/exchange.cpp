#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/sigpipe_window.h>
#include <rkutils/internal/wait_readable.h>
#include <rkutils/messaging/wwanmd/card.h>
#include <rkutils/messaging/wwanmd/exchange.h>
#include <rkutils/messaging/wwanmd/log.h>
#include <rkutils/messaging/wwanmd/reply.h>
#include <rkutils/text.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include <sys/socket.h>

namespace rkutils::wwanmd {
namespace {

constexpr int kCapacity = sizeof(wwanmd_buffer::data) - 1;  // without a NUL
constexpr std::int64_t kPauseUs = 300000;
constexpr int kAttempts = 21;
constexpr std::int64_t kMicrosecondsPerSecond = 1000000;

internal::Deadline deadline_of(const wwanmd_buffer& buffer) noexcept {
  constexpr int kMillisecondsPerSecond = 1000;
  return internal::Deadline(seconds_to_wait(buffer.timeout) * kMillisecondsPerSecond);
}

// Closes the connection to a card that is in reset.
bool leave_card_in_reset(wwanmd_connection& connection) noexcept {
  if (!is_in_reset(connection.card)) return false;
  debug("wwanmd%d is currently in reset", connection.card);
  disconnect(connection);
  return true;
}

// Whether errno says that the daemon has gone. The failure count is then brought to where the
// failure at hand makes the connection be opened anew at once.
bool note_stalled_daemon(wwanmd_connection& connection) noexcept {
  if (errno != EPIPE) return false;
  debug("faced stalled wwanmd%d", connection.card);
  connection.failures = kToleratedFailures;
  return true;
}

ssize_t receive(int socket, void* bytes, std::size_t size, int flags) noexcept {
  ssize_t received = 0;
  do {
    errno = 0;
    received = ::recv(socket, bytes, size, flags);
  } while (received < 0 && errno == EINTR);
  return received;
}

// A reply that came too late must not be taken for the next command's.
void flush(const wwanmd_connection& connection) noexcept {
  char stale[kCapacity];
  const ssize_t received = receive(connection.socket, stale, sizeof stale, MSG_DONTWAIT);
  if (received <= 0) return;
  debug("flushed %d bytes from wwanmd%d before sending", static_cast<int>(received),
        connection.card);
}

bool send_bytes(wwanmd_connection& connection, const wwanmd_buffer& command) noexcept {
  errno = 0;
  if (!internal::wait_writable(connection.socket, deadline_of(command))) {
    if (errno == ETIMEDOUT) debug("sending to wwanmd%d timed out", connection.card);
    if (!note_stalled_daemon(connection)) {
      debug("cannot send command to wwanmd%d", connection.card);
    }
    return false;
  }
  ssize_t sent = 0;
  do {
    errno = 0;
    sent = ::send(connection.socket, command.data, static_cast<std::size_t>(command.length), 0);
  } while (sent < 0 && errno == EINTR);
  if (sent == command.length) return true;
  debug("could not send %d bytes to wwanmd%d (%s)", command.length, connection.card,
        std::strerror(errno));
  note_stalled_daemon(connection);
  return false;
}

void store(std::string_view text, wwanmd_buffer& buffer) noexcept {
  std::memcpy(buffer.data, text.data(), text.size());
  buffer.length = static_cast<int>(text.size());
}

// Waits for what comes next and takes it. Empty, logged, when nothing does.
std::string_view take_bytes(wwanmd_connection& connection, const internal::Deadline& deadline,
                            char (&bytes)[kCapacity]) noexcept {
  errno = 0;
  if (!internal::wait_readable(connection.socket, deadline)) {
    if (errno == ETIMEDOUT) debug("recv from wwanmd%d timed out", connection.card);
    return {};
  }
  const ssize_t received = receive(connection.socket, bytes, sizeof bytes, 0);
  if (received <= 0) {
    debug("couldn't read from wwanmd%d (%s)", connection.card, std::strerror(errno));
    note_stalled_daemon(connection);
    return {};
  }
  return {bytes, static_cast<std::size_t>(received)};
}

// Whether the daemon, which has answered that it is busy, may be waited for once more.
bool may_wait_on(const wwanmd_connection& connection, const internal::Deadline& deadline,
                 int attempt) noexcept {
  const std::int64_t left_us = deadline.remaining_us();
  debug("wwanmd%d is busy, remaining timeout is %lu.%lus", connection.card,
        static_cast<unsigned long>(left_us / kMicrosecondsPerSecond),
        static_cast<unsigned long>(left_us % kMicrosecondsPerSecond));
  return attempt < kAttempts && left_us >= kMicrosecondsPerSecond;
}

// Receives until the daemon is no longer busy. The failure is not counted yet.
Outcome await_reply(wwanmd_connection& connection, wwanmd_buffer& buffer) noexcept {
  const internal::Deadline deadline = deadline_of(buffer);
  for (int attempt = 1;; ++attempt) {
    std::memset(buffer.data, 0, sizeof buffer.data);
    buffer.length = -1;

    char bytes[kCapacity];
    const std::string_view received = take_bytes(connection, deadline, bytes);
    if (received.empty()) return Outcome::kFailed;

    const auto [kind, text] = read_reply(received);
    switch (kind) {
      case Reply::Kind::kOk:
        store(text, buffer);
        connection.failures = 0;
        connection.busy_count = 0;
        return Outcome::kDone;
      case Reply::Kind::kError:
        store(text, buffer);
        return Outcome::kFailed;
      case Reply::Kind::kInvalid:
        debug("invalid response received from wwanmd%d", connection.card);
        return Outcome::kFailed;
      case Reply::Kind::kBusy:
        if (may_wait_on(connection, deadline, attempt)) break;
        store(text, buffer);
        debug("wwanmd%d is busy", connection.card);
        ++connection.busy_count;
        return Outcome::kBusy;
    }
  }
}

}  // namespace

bool begin_command(const wwanmd_connection& connection, wwanmd_buffer& command) noexcept {
  if (command.length < 0 || command.length >= kCapacity) {
    debug("buffer length exceeded");
    return false;
  }
  if (command.length == 0 || command.data[command.length - 1] != '\n') {
    command.data[command.length++] = '\n';
  }
  if ((connection.flags & kIntroduced) != 0) {
    const std::timespec now = internal::monotonic_now();
    internal::pause_us(kPauseUs - uselapsed(&connection.last_exchange, &now));
  }
  return true;
}

Outcome send_command(wwanmd_connection& connection, const wwanmd_buffer& command) noexcept {
  if (leave_card_in_reset(connection)) return Outcome::kInReset;
  bool sent = false;
  {
    const internal::SigpipeWindow sigpipe_ignored;
    flush(connection);
    sent = send_bytes(connection, command);
  }
  if (sent) {
    connection.failures = 0;
  } else {
    ++connection.failures;
    debug("sending to wwanmd%d failed (%d failures)", connection.card, connection.failures);
  }
  note_exchange(connection);
  return sent ? Outcome::kDone : Outcome::kFailed;
}

Outcome receive_reply(wwanmd_connection& connection, wwanmd_buffer& buffer) noexcept {
  Outcome outcome = Outcome::kInReset;
  {
    internal::SigpipeWindow sigpipe_ignored;
    if (leave_card_in_reset(connection)) {
      sigpipe_ignored.leave_ignored();
      return outcome;
    }
    outcome = await_reply(connection, buffer);
  }
  if (outcome == Outcome::kFailed) {
    ++connection.failures;
    debug("receiving from wwanmd%d failed (%d failures)", connection.card, connection.failures);
  }
  return outcome;
}

void note_exchange(wwanmd_connection& connection) noexcept {
  connection.last_exchange = internal::monotonic_now();
}

}  // namespace rkutils::wwanmd
