// board-runner: runs the tests of a list on the board, as ctest does on the machine that builds.
//
//   board-runner LIST RESULTS [JOBS [TOGETHER]]
//
// LIST has a line for each test, of fields with a tab between them: its name, its time limit in
// seconds, its folder, and the words of its command. RESULTS becomes a JUnit file. JOBS processes
// run at a time, as many as there are processors if it is not given; each runs up to TOGETHER tests
// of one GoogleTest program that follow each other in the list, or else one.
//
// The exit status is 0 when every test passed or was skipped, 1 when one failed, 125 when there is
// nothing to run.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "support/board/report.h"
#include "support/board/runner.h"

namespace {

constexpr int kNothingToRun = 125;

int run(const std::string& list, const std::string& results, const board::Manner& manner) {
  const std::vector<board::Test> tests = board::read_list(list);
  if (tests.empty()) {
    std::fprintf(stderr, "board-runner: no test in %s\n", list.c_str());
    return kNothingToRun;
  }
  board::Report report(tests.size());
  board::run_tests(tests, manner, report);
  report.write_junit(results);
  return report.summarise() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 3 || argc > 5) {
    std::fputs("usage: board-runner LIST RESULTS [JOBS [TOGETHER]]\n", stderr);
    return kNothingToRun;
  }
  const auto number_at = [&](int index, unsigned otherwise) {
    if (index >= argc) return otherwise;
    return std::max(1U, static_cast<unsigned>(std::strtoul(argv[index], nullptr, 10)));
  };
  board::Manner manner;
  manner.jobs = number_at(3, std::max(1U, std::thread::hardware_concurrency()));
  manner.together = number_at(4, 1);
  return run(argv[1], argv[2], manner);
} catch (const std::exception& error) {
  std::fprintf(stderr, "board-runner: %s\n", error.what());
  return kNothingToRun;
}
