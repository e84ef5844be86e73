#include "configd_fixture.h"

#include <rkutils/memory.h>

#include <filesystem>

#include <sys/stat.h>
#include <syslog.h>

using testing::IsEmpty;
using testing::SizeIs;

configd_query entry(const std::string& key, const std::string& value) {
  configd_query one = {};
  strlcpy(one.key, key.c_str(), sizeof one.key);
  strlcpy(one.value, value.c_str(), sizeof one.value);
  return one;
}

std::vector<configd_query> entries(
    std::initializer_list<std::pair<std::string, std::string>> keys_and_values) {
  std::vector<configd_query> array;
  for (const auto& [key, value] : keys_and_values) array.push_back(entry(key, value));
  array.push_back(entry(""));
  return array;
}

std::string query_of(const std::string& key) { return "?" + key + bytes("\n\0"); }

support::LogLine err(std::string text) { return {LOG_ERR, std::move(text)}; }

support::LogLine debug(std::string text) { return {LOG_DEBUG, std::move(text)}; }

ConfigdTest::ConfigdTest() : descriptors_before_(support::open_descriptors()) {
  daemon_ = std::make_unique<support::ConfigdStandIn>();
}

void ConfigdTest::TearDown() {
  EXPECT_THAT(log_.take(), IsEmpty()) << "messages that the test did not expect";
  EXPECT_THAT(client_files(), IsEmpty());
  daemon_.reset();
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
}

Connection ConfigdTest::connect() {
  Connection connection(configd_open());
  EXPECT_NE(connection, nullptr);
  return connection;
}

std::vector<std::string> ConfigdTest::client_files() {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& file : std::filesystem::directory_iterator("/var/run/configd", error)) {
    if (file.path().filename() != "daemon.sock") files.push_back(file.path());
  }
  return files;
}

std::string ConfigdTest::client_file() {
  const std::vector<std::string> files = client_files();
  EXPECT_THAT(files, SizeIs(1));
  return files.empty() ? "" : files.front();
}

ino_t ConfigdTest::client_socket_id() {
  struct stat status = {};
  EXPECT_EQ(::stat(client_file().c_str(), &status), 0);
  return status.st_ino;
}

void expect_exchange_succeeds(configd_connection* connection) {
  auto array = entries({{"lan.address", ""}});
  EXPECT_EQ(configd_get(connection, array.data()), 0);
}
