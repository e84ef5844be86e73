// Running many commands a few at a time, each with a time limit.
#ifndef TESTS_SUPPORT_BOARD_RUNNER_H
#define TESTS_SUPPORT_BOARD_RUNNER_H

#include <chrono>
#include <string>
#include <vector>

namespace board {

using Clock = std::chrono::steady_clock;

struct Test {
  std::string name;
  std::chrono::seconds limit;
  std::string folder;
  std::vector<std::string> command;
};

enum class Outcome { kPassed, kFailed, kSkipped };

struct Result {
  std::string name;
  Outcome outcome;
  std::string reason;  // of a failure: "exit status 3"
  std::string output;
  double seconds;
};

// Hears of what happens while it happens.
class Listener {
 public:
  virtual ~Listener() = default;
  virtual void ended(const Result& result) = 0;
  // For some time nothing has ended, and these still run.
  virtual void waiting_for(const std::vector<std::string>& names) = 0;
};

// Reads a list of tests; throws std::runtime_error where it is not one.
std::vector<Test> read_list(const std::string& path);

// Runs them, `jobs` at a time, in their order. What passes its limit is killed with all its process
// group and has failed. A test is skipped when it says so as GoogleTest does, or by its exit status
// 77.
void run_tests(const std::vector<Test>& tests, unsigned jobs, Listener& listener);

}  // namespace board

#endif
