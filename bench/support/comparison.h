// Benchmarks side by side: our figure, another one of the same run, and the ratio that is to be
// reached.
#ifndef BENCH_SUPPORT_COMPARISON_H
#define BENCH_SUPPORT_COMPARISON_H

#include <string>

namespace bench {

// Registers that the median time of benchmark `ours` is to be at most `goal` times that of
// `reference`. Names are as registered with Google Benchmark, without its suffix "/real_time".
void compare(const std::string& ours, const std::string& reference, double goal);

// Runs the benchmarks of all comparisons on a private router, each once in every round, and prints
// a table of the medians. "--rounds=N" among the arguments sets the number of rounds; the others
// are Google Benchmark's. Returns the program's exit status, which does not tell whether goals were
// reached.
int run(int argc, char** argv);

}  // namespace bench

#endif
