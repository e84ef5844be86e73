// A modem daemon for tests and the demo.
#ifndef TESTS_SUPPORT_WWANMD_STAND_IN_H
#define TESTS_SUPPORT_WWANMD_STAND_IN_H

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include "support/stand_in_process.h"

namespace support {

// What happened on a connection, as the daemon saw it.
struct WwanmdEvent {
  std::string kind;                            // as main.cpp of the stand-in says: "recv" and so on
  std::chrono::steady_clock::time_point time;  // when
  int connection;                              // counted from 1
  std::string bytes;

  friend std::ostream& operator<<(std::ostream& out, const WwanmdEvent& event);
};

// Runs the stand-in for a card as a process of its own, from construction to destruction, on the
// daemon's real socket. The socket's folder goes with it. For a private router only.
class WwanmdStandIn {
 public:
  explicit WwanmdStandIn(int card);
  // Records to a socket, a line a datagram.
  WwanmdStandIn(int card, int record_socket);
  ~WwanmdStandIn();
  WwanmdStandIn(const WwanmdStandIn&) = delete;
  WwanmdStandIn& operator=(const WwanmdStandIn&) = delete;

  // Ends the process, as a crash does: the socket's file stays.
  void kill() { process_.kill(); }
  // Starts it again.
  void start();

  // Its process id.
  [[nodiscard]] pid_t process() const { return process_.id(); }

  // Gives it a command, of those in the stand-in's main.cpp, and waits until it is obeyed. Throws
  // std::runtime_error when it is refused.
  void command(const std::string& text) { process_.command(text); }

  // Everything so far.
  [[nodiscard]] std::vector<WwanmdEvent> events();
  // The events of a kind.
  [[nodiscard]] std::vector<WwanmdEvent> events(const std::string& kind);
  // What it was sent since the last call, of all connections; NULs, newlines and all.
  std::vector<std::string> take_received();

 private:
  int card_;
  std::string folder_;
  std::string record_;  // empty where it goes to the socket
  int record_socket_ = -1;
  std::size_t taken_ = 0;
  StandInProcess process_;
};

}  // namespace support

#endif
