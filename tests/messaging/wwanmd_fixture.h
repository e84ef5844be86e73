// What the tests of the modem daemon's client share: a daemon to talk to, the log, and a look at
// what is left behind.
#ifndef TESTS_MESSAGING_WWANMD_FIXTURE_H
#define TESTS_MESSAGING_WWANMD_FIXTURE_H

#include <rkutils/wwanmd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include "support/open_descriptors.h"
#include "support/stopwatch.h"
#include "support/syslog_collector.h"
#include "support/wwanmd_stand_in.h"

using namespace std::chrono_literals;

constexpr char kName[] = "tester";
constexpr char kInit[] = "init tester\n";

// What a busy machine may add.
constexpr std::chrono::milliseconds kSlack = 1500ms;

struct FreeConnection {
  void operator()(wwanmd_connection* connection) const { wwanmd_free(connection); }
};
using Connection = std::unique_ptr<wwanmd_connection, FreeConnection>;

// A connection as it lies in memory, which is part of what programs' core dumps are read by.
struct ConnectionRecord {
  int card;
  char application_name[16];
  int socket;
  int flags;
  int failures;
  int busy_count;
  std::timespec last_exchange;
};
inline ConnectionRecord& record_of(const Connection& connection) {
  return *static_cast<ConnectionRecord*>(static_cast<void*>(connection.get()));
}

// A command of these bytes.
wwanmd_buffer command(std::string_view text, int timeout = 0);

// The bytes that a buffer holds, all those after them being zero.
MATCHER_P(Holds, bytes, "") {
  const std::string_view expected = bytes;
  const std::string_view data(arg.data, sizeof arg.data);
  return arg.length == static_cast<int>(expected.size()) &&
         data.substr(0, expected.size()) == expected &&
         data.find_first_not_of('\0', expected.size()) == std::string_view::npos;
}

// Nothing was received into it, or nothing that is a reply.
MATCHER(HoldsNothing, "") {
  const std::string_view data(arg.data, sizeof arg.data);
  return arg.length == -1 && data.find_first_not_of('\0') == std::string_view::npos;
}

// A message in the log.
support::LogLine err(std::string text);
support::LogLine debug(std::string text);

// The C library's text for an error.
std::string text_of(int error);

// What SIGPIPE does now.
void (*sigpipe_disposition())(int);

// Creates and removes the files by which the daemon marks a card.
class Marker {
 public:
  Marker(int card, const std::string& name);
  ~Marker() { remove(); }
  Marker(const Marker&) = delete;
  Marker& operator=(const Marker&) = delete;

  void remove();

 private:
  std::string path_;
};

// Starts with the daemon of card 0 running. At the end every message must have been taken from the
// log, and no descriptor may be left.
class WwanmdTest : public testing::Test {
 protected:
  WwanmdTest();
  void TearDown() override;

  // An open connection; the test fails when there is none. The daemon has taken its name.
  Connection connect(int card = 0);

  support::SyslogCollector log_;
  std::unique_ptr<support::WwanmdStandIn> daemon_;

 private:
  std::map<int, std::string> descriptors_before_;
};

// Expects that the daemon answers on this connection, as it does after every failure.
void expect_exchange_succeeds(const Connection& connection);

#endif
