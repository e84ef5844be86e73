#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>
#include <rkutils/messaging/wwanmd/card.h>
#include <rkutils/messaging/wwanmd/connection.h>
#include <rkutils/messaging/wwanmd/exchange.h>
#include <rkutils/messaging/wwanmd/log.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>

namespace rkutils::wwanmd {
namespace {

bool connect_to_server(int socket, int card) noexcept {
  sockaddr_un address;
  if (!internal::make_unix_address(server_path(card).text, address)) return false;
  int result = 0;
  do {
    result =
        ::connect(socket, internal::as_sockaddr(address), internal::unix_address_length(address));
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

internal::UniqueFd open_socket(int card) noexcept {
  internal::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) {
    debug("can't open socket to wwanmd%d (%s)", card, std::strerror(errno));
    return socket;
  }
  if (!connect_to_server(socket.get(), card)) {
    debug("can't bind to wwanmd%d (%s)", card, std::strerror(errno));
    socket.reset();
    return socket;
  }
  // Only now: connecting waits for a daemon whose queue is full.
  ::fcntl(socket.get(), F_SETFL, ::fcntl(socket.get(), F_GETFL) | O_NONBLOCK);
  return socket;
}

// Tells the daemon who connects; it serves nobody before.
bool introduce(wwanmd_connection& connection) noexcept {
  wwanmd_buffer command = {};
  command.length = std::snprintf(command.data, sizeof command.data, "%s %s", "init",
                                 connection.application_name);
  errno = 0;
  if (begin_command(connection, command) && send_command(connection, command) == Outcome::kDone) {
    if (receive_reply(connection, command) == Outcome::kDone) {
      connection.flags |= kIntroduced;
      return true;
    }
    debug("command failed");
  }
  debug("cannot initialize wwanmd%d (%s)", connection.card, std::strerror(errno));
  return false;
}

}  // namespace

bool connect(wwanmd_connection& connection) noexcept {
  internal::UniqueFd socket = open_socket(connection.card);
  if (!socket) return false;
  connection.socket = socket.release();
  if (introduce(connection)) return true;
  disconnect(connection);
  return false;
}

void disconnect(wwanmd_connection& connection) noexcept {
  const internal::UniqueFd socket(std::exchange(connection.socket, -1));
}

}  // namespace rkutils::wwanmd
