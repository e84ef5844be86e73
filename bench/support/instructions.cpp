#include "support/instructions.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

// The functions of Google Benchmark, and those that are called in their places.
#define BENCH_WRAPPED(name, symbol)                          \
  void real_##name(benchmark::State*) asm("__real_" symbol); \
  void wrapped_##name(benchmark::State*) asm("__wrap_" symbol)

BENCH_WRAPPED(start, "_ZN9benchmark5State16StartKeepRunningEv");
BENCH_WRAPPED(finish, "_ZN9benchmark5State17FinishKeepRunningEv");
BENCH_WRAPPED(pause, "_ZN9benchmark5State11PauseTimingEv");
BENCH_WRAPPED(resume, "_ZN9benchmark5State12ResumeTimingEv");

namespace {

constexpr const char* kOutput = "/tmp/callgrind.out";

bool counting = false;
int dumps = 0;

void count(bool on) {
  if (on != counting) CALLGRIND_TOGGLE_COLLECT;
  counting = on;
}

}  // namespace

void wrapped_start(benchmark::State* state) {
  count(false);  // a loop that was left has not finished
  real_start(state);
  CALLGRIND_ZERO_STATS;
  count(true);
}

void wrapped_finish(benchmark::State* state) {
  count(false);
  CALLGRIND_DUMP_STATS;
  ++dumps;
  real_finish(state);
}

void wrapped_pause(benchmark::State* state) {
  count(false);
  real_pause(state);
}

void wrapped_resume(benchmark::State* state) {
  real_resume(state);
  count(true);
}

namespace bench {

void enter_callgrind(char** argv) {
  if (RUNNING_ON_VALGRIND != 0) return;
  std::vector<std::string> words = {"valgrind",
                                    "--quiet",
                                    "--tool=callgrind",
                                    "--collect-atstart=no",
                                    "--collect-systime=yes",
                                    std::string("--callgrind-out-file=") + kOutput};
  for (; *argv != nullptr; ++argv) words.emplace_back(*argv);

  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  ::execvp(arguments[0], arguments.data());
  std::perror(arguments[0]);
  std::exit(EXIT_FAILURE);
}

std::optional<Counts> take_counts() {
  const std::string path = std::string(kOutput) + "." + std::to_string(dumps);
  std::ifstream file(path);
  std::optional<Counts> counts;
  for (std::string line; std::getline(file, line);) {
    Counts sums = {};
    if (std::sscanf(line.c_str(), "summary: %lf %lf", &sums.instructions, &sums.system_calls) > 0) {
      counts = sums;
    }
  }
  ::unlink(path.c_str());
  return counts;
}

}  // namespace bench
