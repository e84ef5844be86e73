// What the tests of the configuration file reader share.
#ifndef TESTS_CONFIGURATION_CFREAD_FIXTURE_H
#define TESTS_CONFIGURATION_CFREAD_FIXTURE_H

#include <rkutils/cfread.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundations/file_fixture.h"
#include "support/syslog_collector.h"

struct CloseTable {
  void operator()(cfread_table* table) const { cfread_close(table); }
};
using Table = std::unique_ptr<cfread_table, CloseTable>;

Table open_table(const std::string& path);

using Entries = std::map<std::string, std::string>;

// The keys and values in the slots.
Entries entries_of(const cfread_table& table);

// What a callback got, in order.
using Passed = std::vector<std::pair<std::string, std::string>>;

// A callback that keeps all in a Passed and goes on.
int keep_all(const char* key, const char* value, void* passed);

// Messages in the log.
support::LogLine err(std::string text);
support::LogLine emergency(std::string text);

// Calls `action` in a child process. Returns the child's exit status, or kDidNotExit where the
// action returned.
constexpr int kDidNotExit = 77;
int exit_status_of(const std::function<void()>& action);

// Works in a folder of its own. At the end every message must have been taken from the log, and no
// descriptor may be open that was not open before.
class CfreadTest : public FileTest {
 protected:
  // Writes a file and returns its path.
  [[nodiscard]] std::string file(const std::string& name, const std::string& text) const;
};

#endif
