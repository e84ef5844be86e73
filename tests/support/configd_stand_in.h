// A configuration daemon for tests, the demo and the benchmarks.
#ifndef TESTS_SUPPORT_CONFIGD_STAND_IN_H
#define TESTS_SUPPORT_CONFIGD_STAND_IN_H

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <sys/types.h>

#include "support/stand_in_process.h"

namespace support {

// A datagram as the daemon saw it.
struct Datagram {
  enum class Direction { kToDaemon, kFromDaemon };

  Direction direction;
  std::string client;  // path of the client's socket
  std::string bytes;

  friend std::ostream& operator<<(std::ostream& out, const Datagram& datagram);
};

// Runs the stand-in as a process of its own, from construction to destruction, on the daemon's real
// socket. The socket's folder goes with it. For a private router only.
class ConfigdStandIn {
 public:
  struct Setup {
    std::string initial_values;                      // a file to begin with; no values if empty
    std::string values = "/var/lib/configd/values";  // where they are kept
    std::string record = "/var/lib/configd/record";  // no such file if empty
    int record_socket = -1;                          // takes the record instead, a line a datagram
  };

  ConfigdStandIn() : ConfigdStandIn(Setup()) {}
  explicit ConfigdStandIn(Setup setup);
  ~ConfigdStandIn();
  ConfigdStandIn(const ConfigdStandIn&) = delete;
  ConfigdStandIn& operator=(const ConfigdStandIn&) = delete;

  // Ends the process, as a crash does: the socket's file stays.
  void kill() { process_.kill(); }
  // Starts it again, with the values that are in the file.
  void start();

  // Its process id.
  [[nodiscard]] pid_t process() const { return process_.id(); }

  // Gives it a command, of those in the stand-in's main.cpp, and waits until it is obeyed. Throws
  // std::runtime_error when it is refused.
  void command(const std::string& text) { process_.command(text); }

  void set_value(const std::string& key, const std::string& value) {
    command("value " + key + "=" + value);
  }

  // The configuration as it is on file.
  [[nodiscard]] std::map<std::string, std::string> saved_values() const;

  // Every datagram so far, both ways.
  [[nodiscard]] std::vector<Datagram> datagrams() const;
  // The requests among them.
  [[nodiscard]] std::vector<std::string> requests() const;

 private:
  Setup setup_;
  StandInProcess process_;
};

}  // namespace support

#endif
