// The connection to a card's daemon.
#ifndef RKUTILS_MESSAGING_WWANMD_CONNECTION_H
#define RKUTILS_MESSAGING_WWANMD_CONNECTION_H

#include <rkutils/wwanmd.h>

#include <cstddef>
#include <ctime>
#include <type_traits>

// Zero-filled memory that wwanmd_init() completes and wwanmd_free() frees.
struct wwanmd_connection {
  int card;
  char application_name[16];    // NUL-terminated
  int socket;                   // -1 while closed
  int flags;                    // kIntroduced
  int failures;                 // in a row, of sending or receiving
  int busy_count;               // exchanges in a row that ended with the daemon still busy
  std::timespec last_exchange;  // monotonic: the end of the last sending, or the connecting
};
// Core dumps are read by this order.
static_assert(offsetof(wwanmd_connection, card) == 0);
static_assert(offsetof(wwanmd_connection, application_name) == 4);
static_assert(offsetof(wwanmd_connection, socket) == 20);
static_assert(offsetof(wwanmd_connection, flags) == 24);
static_assert(offsetof(wwanmd_connection, failures) == 28);
static_assert(offsetof(wwanmd_connection, busy_count) == 32);
// On the router, where a time has eight bytes and their alignment, too.
static_assert(alignof(std::timespec) != 8 || (offsetof(wwanmd_connection, last_exchange) == 40 &&
                                              sizeof(wwanmd_connection) == 56));
static_assert(std::is_trivial_v<wwanmd_connection>);

namespace rkutils::wwanmd {

// A flag: the daemon has once taken the application's name. Stays.
inline constexpr int kIntroduced = 1;

// What may go wrong in a row before the connection is opened anew.
inline constexpr int kToleratedFailures = 3;
inline constexpr int kToleratedBusyCount = 16;

// Connects to the daemon of the connection's card and introduces the application. False, logged and
// with the connection closed, when either fails. The connection must be closed. A failing
// introduction never opens the connection anew: this is what keeps a misbehaving daemon from
// nesting calls.
[[nodiscard]] bool connect(wwanmd_connection& connection) noexcept;

// Closes the socket if it is open.
void disconnect(wwanmd_connection& connection) noexcept;

}  // namespace rkutils::wwanmd

#endif
