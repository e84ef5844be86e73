// Running many tests a few at a time, each with a time limit.
#ifndef TESTS_SUPPORT_BOARD_RUNNER_H
#define TESTS_SUPPORT_BOARD_RUNNER_H

#include <chrono>
#include <string>
#include <vector>

namespace board {

using Clock = std::chrono::steady_clock;

// A command that succeeds or fails; or one test of a GoogleTest program, whose command has the word
// "--gtest_filter=" with that test's name.
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
  std::string reason;  // of a failure: "exit status 3"; empty where GoogleTest alone tells
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

struct Manner {
  unsigned jobs = 1;      // processes at a time
  unsigned together = 1;  // tests of the same program in one process, at most
};

// Runs them in their order. What passes its limit is killed with all its process group and has
// failed. A command is skipped by its exit status 77.
//
// Tests of a GoogleTest program follow each other in one process, and are told apart by what it
// prints. One that ends its process has failed, and the rest of them go on in another; so has the
// last one when all passed but not the process. A process that runs none of its tests speaks for
// the first of them, by its exit status as a command, but that it cannot have passed.
void run_tests(const std::vector<Test>& tests, const Manner& manner, Listener& listener);

}  // namespace board

#endif
