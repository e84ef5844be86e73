// board-runner: runs the tests of a list on the board, as ctest does on the machine that builds.
//
//   board-runner LIST RESULTS [JOBS]
//
// LIST has a line for each test, of fields with a tab between them: its name, its time limit in
// seconds, its folder, and the words of its command. RESULTS becomes a JUnit file. Without JOBS as
// many tests run at a time as there are processors.
//
// The exit status is 0 when every test passed or was skipped, 1 when one failed, 125 when there is
// nothing to run.

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

int run(const std::string& list, const std::string& results, unsigned jobs) {
  const std::vector<board::Test> tests = board::read_list(list);
  if (tests.empty()) {
    std::fprintf(stderr, "board-runner: no test in %s\n", list.c_str());
    return kNothingToRun;
  }
  board::Report report(tests.size());
  board::run_tests(tests, jobs, report);
  report.write_junit(results);
  return report.summarise() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 3 || argc > 4) {
    std::fputs("usage: board-runner LIST RESULTS [JOBS]\n", stderr);
    return kNothingToRun;
  }
  const unsigned processors = std::thread::hardware_concurrency();
  const unsigned jobs =
      argc == 4 ? static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)) : processors;
  return run(argv[1], argv[2], jobs > 0 ? jobs : 1);
} catch (const std::exception& error) {
  std::fprintf(stderr, "board-runner: %s\n", error.what());
  return kNothingToRun;
}
