// The steps of an exchange with the daemon, on a connection that is open. None of them opens it.
#ifndef RKUTILS_MESSAGING_WWANMD_EXCHANGE_H
#define RKUTILS_MESSAGING_WWANMD_EXCHANGE_H

#include <rkutils/messaging/wwanmd/connection.h>
#include <rkutils/wwanmd.h>

namespace rkutils::wwanmd {

enum class Outcome {
  kDone,
  kInReset,  // the card is; the connection has been closed
  kFailed,   // counted in the connection's failures
  kBusy,     // the daemon still is; counted in the connection's busy count
};

// The seconds that are waited for a caller's `timeout`: 5 to 300.
[[nodiscard]] constexpr int seconds_to_wait(int timeout) noexcept {
  constexpr int kShortest = 5;
  constexpr int kLongest = 300;
  return timeout < kShortest ? kShortest : timeout > kLongest ? kLongest : timeout;
}

// Ends the command with a newline, if it has none, and then sleeps for what is left of the 300 ms
// that the daemon has to itself between two commands. False, logged, for a command whose length is
// negative or leaves no room for the newline and a NUL.
[[nodiscard]] bool begin_command(const wwanmd_connection& connection,
                                 wwanmd_buffer& command) noexcept;

// Throws away what came unasked, sends the command, and notes the time.
[[nodiscard]] Outcome send_command(wwanmd_connection& connection,
                                   const wwanmd_buffer& command) noexcept;

// Waits for the reply and stores its text in the buffer, whose timeout it goes by. SIGPIPE is at
// its default afterwards, except when the card is in reset: then it is ignored.
[[nodiscard]] Outcome receive_reply(wwanmd_connection& connection, wwanmd_buffer& buffer) noexcept;

// The pause before the next command counts from here.
void note_exchange(wwanmd_connection& connection) noexcept;

}  // namespace rkutils::wwanmd

#endif
