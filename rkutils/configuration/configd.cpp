#include <rkutils/configd.h>
#include <rkutils/configuration/configd_protocol.h>
#include <rkutils/configuration/configd_queries.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/sigpipe_window.h>
#include <rkutils/internal/text_hash.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>
#include <rkutils/internal/wait_readable.h>
#include <rkutils/memory.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace configd = rkutils::configd;
namespace internal = rkutils::internal;

// Zero-filled memory that configd_open() completes and configd_close() frees.
struct configd_connection {
  int socket;             // -1 while closed
  char client_path[256];  // where the socket is bound; "" while closed
  char server_path[256];  // the daemon's socket; "" while closed
  int query_count;
  list_node queries;  // of QueuedQuery, in the order added
  int fetched;        // 1 once the queries have their values
  configd::QueryIndex index;
};
// Core dumps are read by this order.
static_assert(offsetof(configd_connection, socket) == 0);
static_assert(offsetof(configd_connection, client_path) == sizeof(int));
static_assert(offsetof(configd_connection, server_path) == sizeof(int) + 256);
static_assert(offsetof(configd_connection, query_count) == sizeof(int) + 512);
static_assert(offsetof(configd_connection, queries) > offsetof(configd_connection, query_count));
static_assert(offsetof(configd_connection, fetched) ==
              offsetof(configd_connection, queries) + sizeof(list_node));
static_assert(std::is_trivial_v<configd_connection>);
static_assert(std::is_standard_layout_v<configd::QueuedQuery>);

namespace {

using configd::QueuedQuery;

constexpr char kDirectory[] = "/var/run/configd";
constexpr int kReplyWaitMs = 10000;
constexpr int kMaxQueries = 512;
constexpr std::size_t kFormattedKeySize = 255;

// A key made from a format, cut to 254 characters.
class FormattedKey {
 public:
  RK_PRINTF(2, 0) FormattedKey(const char* format, va_list values) noexcept {
    valid_ = std::vsnprintf(text_, sizeof text_, format, values) >= 0;
    if (!valid_) text_[0] = '\0';
  }

  // False where the C library refused the format or a value.
  [[nodiscard]] bool valid() const noexcept { return valid_; }
  [[nodiscard]] const char* text() const noexcept { return text_; }

 private:
  char text_[kFormattedKeySize];
  bool valid_;
};

void set_paths(configd_connection* connection) {
  std::snprintf(connection->server_path, sizeof connection->server_path, "%s/daemon.sock",
                kDirectory);
  std::snprintf(connection->client_path, sizeof connection->client_path, "%s/client.%d.%p",
                kDirectory, static_cast<int>(::getpid()), static_cast<void*>(connection));
}

void remove_client_file(const configd_connection* connection) {
  if (::access(connection->client_path, R_OK) == 0) ::unlink(connection->client_path);
}

bool bind_to_client_path(const configd_connection* connection) {
  sockaddr_un address;
  return internal::make_unix_address(connection->client_path, address) &&
         ::bind(connection->socket, internal::as_sockaddr(address),
                internal::unix_address_length(address)) == 0;
}

// Drops the socket with what is queued on it, and makes a new one. It has the same path, so a reply
// that is still on its way reaches the new one. If there is none to be had, the next exchange fails
// to send and tries again.
void reset(configd_connection* connection) {
  __configd_close(connection);
  __configd_open(connection);
}

bool get_array(configd_connection* connection, configd_query* entries) {
  for (configd_query* entry = entries; entry->key[0] != '\0'; ++entry) {
    if (configd_prepare_get(connection, entry) != 0) return false;
  }
  return true;
}

bool get_queued(configd_connection* connection) {
  list_node* link = nullptr;
  list_for_each (link, &connection->queries) {
    if (configd_prepare_get(connection, &configd::queued_query(link)->query) != 0) return false;
  }
  return true;
}

// configd_set() without the reset that follows a failed exchange.
int exchange_assignments(configd_connection* connection, const configd_query* entries) {
  configd::AssignmentText request;
  bool fits = true;
  for (const configd_query* entry = entries; fits && entry->key[0] != '\0'; ++entry) {
    fits = request.append(*entry);
  }
  if (fits && request.length() == 0) return -1;

  const int length = static_cast<int>(request.length() + 1);
  if (!fits || configd_send(connection, request.text(), length) != length) {
    ::syslog(LOG_ERR, "unable to send query to configd");
    return -2;
  }
  char reply[configd::kExchangeSize];
  const int received = configd_recv(connection, reply, configd::kShortReplySize);
  if (received != length) {
    ::syslog(LOG_ERR, "no response from configd (%d != %d)", received, length);
    return -3;
  }
  if (std::strcmp(request.text(), reply) != 0) {
    ::syslog(LOG_ERR, "invalid response from configd");
    return -4;
  }
  return 0;
}

// configd_done() without the reset that follows a failed exchange.
int exchange_done(configd_connection* connection) {
  constexpr int kLength = sizeof configd::kDoneRequest;
  if (configd_send(connection, configd::kDoneRequest, kLength) != kLength) {
    ::syslog(LOG_ERR, "unable to send query to configd");
    return -2;
  }
  char reply[configd::kExchangeSize];
  reply[0] = '\0';  // what is compared and shown when nothing comes in time
  if (configd_recv(connection, reply, configd::kShortReplySize) == 0) {
    ::syslog(LOG_ERR, "no response from configd");
    return -3;
  }
  if (std::strcmp(reply, "Ready") == 0) return 0;
  if (std::strcmp(reply, "Busy") == 0) return 1;
  ::syslog(LOG_ERR, "invalid response <%s> from configd", reply);
  return -4;
}

}  // namespace

configd_connection* configd_open(void) {
  const internal::PostponedCancellation postponed;
  auto* connection = static_cast<configd_connection*>(zalloc(sizeof(configd_connection)));
  if (connection == nullptr) {
    ::syslog(LOG_ERR, "no mem for configd connection");
    return nullptr;
  }
  list_init(&connection->queries);
  connection->socket = -1;
  if (__configd_open(connection) != 0) {
    configd_close(connection);
    return nullptr;
  }
  return connection;
}

void configd_close(configd_connection* connection) {
  if (connection == nullptr) return;
  if (connection->socket != -1) __configd_close(connection);
  configd_clear(connection);
  std::free(connection);
}

int __configd_open(configd_connection* connection) {
  if (connection == nullptr) return -1;
  const internal::PostponedCancellation postponed;
  if (connection->socket != -1) __configd_close(connection);

  internal::UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) {
    ::syslog(LOG_ERR, "cannot open socket to configd");
    return -1;
  }
  connection->socket = socket.release();
  set_paths(connection);
  remove_client_file(connection);
  if (!bind_to_client_path(connection)) {
    ::syslog(LOG_ERR, "cannot bind to configd");
    __configd_close(connection);
    return -1;
  }
  ::chmod(connection->client_path, S_IRWXU | S_IRWXG | S_IRWXO);
  return 0;
}

void __configd_close(configd_connection* connection) {
  if (connection == nullptr) return;
  const internal::PostponedCancellation postponed;
  // Programs depend on descriptor 1 staying open, hence the odd number. Closing -1 only fails.
  if (connection->socket != 1) ::close(connection->socket);
  connection->socket = -1;
  if (connection->client_path[0] != '\0') remove_client_file(connection);
  connection->client_path[0] = '\0';
  connection->server_path[0] = '\0';
}

int configd_send(configd_connection* connection, const void* buffer, int length) {
  if (connection == nullptr || connection->socket < 0 || buffer == nullptr || length < 1) return -1;
  const internal::PostponedCancellation postponed;

  sockaddr_un server;
  if (!internal::make_unix_address(connection->server_path, server)) return -1;
  ssize_t sent = 0;
  do {
    sent = ::sendto(connection->socket, buffer, static_cast<std::size_t>(length), 0,
                    internal::as_sockaddr(server), sizeof server);
  } while (sent < 0 && errno == EINTR);
  return static_cast<int>(sent);
}

int configd_recv(configd_connection* connection, void* buffer, int size) {
  if (connection == nullptr || connection->socket < 0 || buffer == nullptr || size <= 0) return -1;
  const internal::PostponedCancellation postponed;

  const internal::SigpipeWindow sigpipe_ignored;
  if (!internal::wait_readable(connection->socket, kReplyWaitMs)) return -1;

  const auto capacity = static_cast<std::size_t>(size);
  std::memset(buffer, 0, capacity);  // and so what is received ends with a NUL
  ssize_t received = 0;
  do {
    received = ::recvfrom(connection->socket, buffer, capacity - 1, 0, nullptr, nullptr);
  } while (received < 0 && errno == EINTR);
  return static_cast<int>(received);
}

int configd_prepare_get(configd_connection* connection, configd_query* entry) {
  if (connection == nullptr || entry == nullptr) return -1;
  const internal::PostponedCancellation postponed;

  char request[configd::kQueryRequestSize];
  const int length = static_cast<int>(configd::build_query(entry->key, request));
  if (configd_send(connection, request, length) != length) {
    ::syslog(LOG_ERR, "unable to send query to configd");
    return -1;
  }
  char reply[configd::kExchangeSize];
  const int received = configd_recv(connection, reply, sizeof reply);
  if (!configd::read_value(reply, received, entry->value)) {
    ::syslog(LOG_ERR, "no response from configd (len %d)", received);
    return -1;
  }
  return 0;
}

int configd_get(configd_connection* connection, configd_query* entries) {
  if (connection == nullptr) return -1;
  const bool complete =
      entries != nullptr ? get_array(connection, entries) : get_queued(connection);
  if (complete) return 0;
  reset(connection);
  return -1;
}

int configd_set(configd_connection* connection, const configd_query* entries) {
  if (connection == nullptr || entries == nullptr) return -1;
  const internal::PostponedCancellation postponed;
  const int result = exchange_assignments(connection, entries);
  if (result < -1) reset(connection);
  return result;
}

int configd_done(configd_connection* connection) {
  if (connection == nullptr) return -1;
  const internal::PostponedCancellation postponed;
  const int result = exchange_done(connection);
  if (result < 0) reset(connection);
  return result;
}

int configd_add_query(configd_connection* connection, const char* format, ...) {
  if (connection == nullptr || format == nullptr) return -1;
  va_list values;
  va_start(values, format);
  const FormattedKey key(format, values);
  va_end(values);
  if (!key.valid()) return -1;

  const std::uint32_t hash = internal::hash_text(key.text());
  if (connection->index.find(key.text(), hash) != nullptr) return 0;
  if (connection->query_count >= kMaxQueries) return -1;

  auto* queued = static_cast<QueuedQuery*>(zalloc(sizeof(QueuedQuery)));
  if (queued == nullptr) return -1;
  strlcpy(queued->query.key, key.text(), sizeof queued->query.key);
  queued->hash = hash;
  list_add_tail(&queued->query.links, &connection->queries);
  connection->index.insert(queued);
  ++connection->query_count;
  return 0;
}

const char* configd_fetch(configd_connection* connection, const char* format, ...) {
  if (connection == nullptr || format == nullptr) return "";
  if (connection->fetched == 0) {
    const internal::PostponedCancellation postponed;
    if (configd_get(connection, nullptr) != 0) {
      ::syslog(LOG_ERR, "configd_get failed");
      return "";
    }
    connection->fetched = 1;
  }

  va_list values;
  va_start(values, format);
  const FormattedKey key(format, values);
  va_end(values);
  const QueuedQuery* queued = nullptr;
  if (key.valid()) queued = connection->index.find(key.text(), internal::hash_text(key.text()));
  if (queued == nullptr) {
    const internal::PostponedCancellation postponed;
    ::syslog(LOG_DEBUG, "key '%s' not found", key.text());
    return "";
  }
  return queued->query.value;
}

void configd_clear(configd_connection* connection) {
  if (connection == nullptr) return;
  list_node* link = nullptr;
  list_node* following = nullptr;
  list_for_each_safe (link, following, &connection->queries) {
    list_del(link);
    std::free(configd::queued_query(link));
    --connection->query_count;
  }
  connection->index.clear();
  connection->fetched = 0;
}
