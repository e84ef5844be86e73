#include "command_fixture.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "support/open_descriptors.h"
#include "support/private_router.h"

namespace {

// Where the probe is to put its report.
std::string report_path;

// The signals that this thread blocks.
std::vector<int> blocked_signals() {
  sigset_t blocked;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  std::vector<int> numbers;
  for (int signal = 1; signal < NSIG; ++signal) {
    if (::sigismember(&blocked, signal) == 1) numbers.push_back(signal);
  }
  return numbers;
}

mode_t current_umask() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

Probe read_report() {
  Probe probe;
  std::ifstream report(report_path);
  for (std::string line; std::getline(report, line);) {
    const std::size_t blank = line.find(' ');
    const std::string word = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (word == "argument") {
      probe.arguments.push_back(rest);
    } else if (word == "descriptor") {
      const std::size_t end = rest.find(' ');
      probe.descriptors.emplace(std::stoi(rest), rest.substr(end + 1));
    } else {
      probe.facts.emplace(word, rest);
    }
  }
  return probe;
}

}  // namespace

std::vector<std::string> shared_segments() {
  std::vector<std::string> segments;
  std::ifstream table("/proc/sysvipc/shm");
  std::string line;
  std::getline(table, line);  // the heading
  while (std::getline(table, line)) segments.push_back(line);
  return segments;
}

CommandTest::CommandTest() {
  expect_probe();
  ::umask(027);
  std::filesystem::current_path("/tmp");
  descriptors_before_ = support::open_descriptors();
}

CommandTest::~CommandTest() { std::filesystem::remove(report_path); }

void CommandTest::TearDown() {
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  EXPECT_THAT(shared_segments(), testing::IsEmpty());
  EXPECT_EQ(std::filesystem::current_path(), "/tmp");
  EXPECT_EQ(current_umask(), 027U);
  EXPECT_THAT(blocked_signals(), testing::IsEmpty());
}

void CommandTest::expect_probe() {
  static int count = 0;
  std::filesystem::remove(report_path);
  report_path = "/tmp/command-probe." + std::to_string(++count);
  ::setenv("COMMAND_PROBE", report_path.c_str(), 1);
}

bool CommandTest::has_probed() { return std::filesystem::exists(report_path); }

Probe CommandTest::probe() {
  constexpr int kMostWaits = 10000;
  for (int waits = 0; !has_probed() && waits < kMostWaits; ++waits) ::usleep(1000);
  EXPECT_TRUE(has_probed());
  return read_report();
}

const std::string& CommandTest::probe_path() {
  static const std::string path = support::built_program("tests/processes/command-probe");
  return path;
}

int status_apart(const std::function<void()>& action) {
  const pid_t child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) {
    try {
      action();
    } catch (...) {
      ::_exit(kReturned + 1);
    }
    ::_exit(kReturned);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) != child) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return status;
}

support::LogLine err(std::string text) { return {LOG_ERR, std::move(text)}; }
support::LogLine info(std::string text) { return {LOG_INFO, std::move(text)}; }
support::LogLine debug(std::string text) { return {LOG_DEBUG, std::move(text)}; }
