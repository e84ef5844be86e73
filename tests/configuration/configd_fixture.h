// What the tests of the configuration client share: a daemon to talk to, the log, and a look at
// what is left behind.
#ifndef TESTS_CONFIGURATION_CONFIGD_FIXTURE_H
#define TESTS_CONFIGURATION_CONFIGD_FIXTURE_H

#include <rkutils/configd.h>

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <sys/types.h>

#include "support/configd_stand_in.h"
#include "support/open_descriptors.h"
#include "support/syslog_collector.h"

struct CloseConnection {
  void operator()(configd_connection* connection) const { configd_close(connection); }
};
using Connection = std::unique_ptr<configd_connection, CloseConnection>;

// The bytes of a literal, NULs included, without the one that ends it.
template <std::size_t kSize>
std::string bytes(const char (&literal)[kSize]) {
  return std::string(literal, kSize - 1);
}

// An entry with this key and value, each cut to its field.
configd_query entry(const std::string& key, const std::string& value = {});

// The same for each pair, and the empty key that ends an array.
std::vector<configd_query> entries(
    std::initializer_list<std::pair<std::string, std::string>> keys_and_values);

// A request for one key, as the daemon gets it.
std::string query_of(const std::string& key);

// A message in the log.
support::LogLine err(std::string text);
support::LogLine debug(std::string text);

// Starts with the daemon running. At the end every message must have been taken from the log, and
// no descriptor or socket file of the client may be left.
class ConfigdTest : public testing::Test {
 protected:
  ConfigdTest();
  void TearDown() override;

  // An open connection; the test fails when there is none.
  Connection connect();

  // The client sockets in the daemon's folder.
  static std::vector<std::string> client_files();
  // The only one of them.
  static std::string client_file();
  // Tells a re-created socket from the one before.
  static ino_t client_socket_id();

  support::SyslogCollector log_;
  std::unique_ptr<support::ConfigdStandIn> daemon_;

 private:
  std::map<int, std::string> descriptors_before_;
};

// Expects that the daemon answers on this connection, as it does after every failure.
void expect_exchange_succeeds(configd_connection* connection);

#endif
