#include "wwanmd_fixture.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include <syslog.h>

#include "support/put_file.h"

using testing::IsEmpty;

wwanmd_buffer command(std::string_view text, int timeout) {
  wwanmd_buffer buffer = {};
  std::copy(text.begin(), text.end(), buffer.data);
  buffer.length = static_cast<int>(text.size());
  buffer.timeout = timeout;
  return buffer;
}

support::LogLine err(std::string text) { return {LOG_ERR, std::move(text)}; }

support::LogLine debug(std::string text) { return {LOG_DEBUG, std::move(text)}; }

std::string text_of(int error) { return std::strerror(error); }

void (*sigpipe_disposition())(int) {
  struct sigaction action = {};
  ::sigaction(SIGPIPE, nullptr, &action);
  return action.sa_handler;
}

Marker::Marker(int card, const std::string& name)
    : path_("/tmp/status/wwanmd/card" + std::to_string(card) + "/" + name) {
  support::put(path_, "");
}

void Marker::remove() { std::filesystem::remove(path_); }

WwanmdTest::WwanmdTest() : descriptors_before_(support::open_descriptors()) {
  daemon_ = std::make_unique<support::WwanmdStandIn>(0);
}

void WwanmdTest::TearDown() {
  EXPECT_THAT(log_.take(), IsEmpty()) << "messages that the test did not expect";
  daemon_.reset();
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  std::signal(SIGPIPE, SIG_DFL);
}

Connection WwanmdTest::connect(int card) {
  Connection connection(wwanmd_init(card, kName));
  EXPECT_NE(connection, nullptr);
  if (card == 0) daemon_->take_received();
  return connection;
}

void expect_exchange_succeeds(const Connection& connection) {
  wwanmd_buffer buffer = command("still there?");
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), 0);
  EXPECT_THAT(buffer, Holds(""));
}
