// What the tests of started programs share: a program that tells how it finds itself, processes in
// which a start may go wrong, and a look at what is left behind.
#ifndef TESTS_PROCESSES_COMMAND_FIXTURE_H
#define TESTS_PROCESSES_COMMAND_FIXTURE_H

#include <rkutils/command.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/types.h>

#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

// What a started command-probe has found, by the words that begin its lines.
struct Probe {
  std::map<std::string, std::string> facts;
  std::vector<std::string> arguments;
  std::map<int, std::string> descriptors;

  [[nodiscard]] int number(const std::string& fact) const { return std::stoi(facts.at(fact)); }
};

// What its exit status is.
constexpr int kProbeStatus = 42;

// The segments of shared memory that there are, as /proc/sysvipc/shm shows them.
std::vector<std::string> shared_segments();

// Begins in the folder /tmp. At the end every message must have been taken from the log, and no
// descriptor or shared memory may be left, nor a folder, umask or signal mask changed.
class CommandTest : public testing::Test {
 protected:
  CommandTest();
  ~CommandTest() override;
  void TearDown() override;

  // Waits for the probe that was started, and returns its report.
  static Probe probe();
  // Whether it was started and has ended.
  static bool has_probed();
  // From now on another one is meant.
  static void expect_probe();

  static const std::string& probe_path();

  support::SyslogCollector log_;

 private:
  std::map<int, std::string> descriptors_before_;
};

// Calls `action` in a forked process, which may become another program, and returns its status as
// waitpid(2) gives it. When the action returns, the process exits with kReturned.
constexpr int kReturned = 111;
int status_apart(const std::function<void()>& action);

using support::finishes_though_cancelled;

// Messages in the log.
support::LogLine err(std::string text);
support::LogLine info(std::string text);
support::LogLine debug(std::string text);

#endif
