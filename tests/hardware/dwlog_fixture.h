// What the tests of the persistent log share: its file, its semaphore, and a look at what is left
// behind.
#ifndef TESTS_HARDWARE_DWLOG_FIXTURE_H
#define TESTS_HARDWARE_DWLOG_FIXTURE_H

#include <rkutils/dwlog.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/types.h>

#include "support/failing_calls.h"
#include "support/syslog_collector.h"

constexpr const char* kFolder = "/var/log";
constexpr const char* kLog = "/var/log/dwlog";
constexpr const char* kTemporary = "/var/log/dwlog.tmp";
constexpr const char* kKeyFile = "/etc/fstab";

// ---- The file ----

// What is in a file; the test fails where it cannot be read.
std::string contents_of(const std::string& path);

// The log, with TIME in the place of each time that begins with the year of now.
std::string log_text();
std::string without_times(const std::string& text);

// The log's mode, without its type.
mode_t mode_of(const std::string& path);

bool exists(const std::string& path);

// Lines "FIRST", "FIRST - 1" ... down to "LAST", as entries of the code 1 from another time.
std::string old_entries(int first, int last);

// ---- The semaphore ----

// The set, or -1.
int log_set();
int log_value();
void remove_log_set();

// ---- Calling ----

struct Result {
  int value;
  std::string messages;  // on standard error

  bool operator==(const Result& other) const {
    return value == other.value && messages == other.messages;
  }
};
void PrintTo(const Result& result, std::ostream* stream);

Result result_of(const std::function<int()>& call);

// The same with system calls that fail.
Result result_though(const std::vector<support::FailingCall>& calls,
                     const std::function<int()>& call);

// What perror(3) writes.
std::string message(const std::string& what, int error);

// The result of a call that fails with this message alone.
Result failure(const std::string& what, int error);

constexpr int kDone = 0;
const Result kSilent = {kDone, ""};

// Begins with an empty folder and without a semaphore. At the end nothing may be in the log of the
// system, no descriptor may be left, and no temporary file.
class DwlogTest : public testing::Test {
 protected:
  DwlogTest();
  ~DwlogTest() override;
  void TearDown() override;

 private:
  support::SyslogCollector log_;
  std::map<int, std::string> descriptors_before_;
};

#endif
