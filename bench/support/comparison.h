// Benchmarks side by side: our figure, others of the same run, and the ratios that are to be
// reached.
//
//     bench::compare("copy of a String", copy_string,
//                    {bench::peer("g_ref_string_acquire", 0.3, copy_ref_string),
//                     bench::floor("a plain counter", 2, copy_counter)});
#ifndef BENCH_SUPPORT_COMPARISON_H
#define BENCH_SUPPORT_COMPARISON_H

#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

// A benchmark's function. Its figure is the time that it takes, or the bytes that it reports.
using Body = std::function<void(benchmark::State&)>;

// Makes `bytes` the figure of a benchmark.
void report_bytes(benchmark::State& state, double bytes);

// What a figure of ours is held against: ours is to be at most `goal` times its.
struct Reference {
  std::string name;
  double goal;
  Body body;
};

// What a developer would use otherwise.
Reference peer(const std::string& name, double goal, Body body);

// The same work done with the least that it takes.
Reference floor(const std::string& name, double goal, Body body);

enum class Clock {
  kProcessor,  // the time of this process alone, in which other programs of a busy machine do not
               // count
  kReal,       // for work in which other processes take part
};

// Registers a row of the table: a kind of work as we do it and as the references do.
void compare(const std::string& work, const Body& ours, const std::vector<Reference>& references,
             Clock clock = Clock::kProcessor);

// Runs the benchmarks of all rows on a private router, each once in every round, ours and its
// references one after the other, and prints a table of the medians. Among the arguments
// "--rounds=N" sets the number of rounds, and "--only=TEXT" leaves the rows whose names contain the
// text; the others are Google Benchmark's. Returns the program's exit status, which does not tell
// whether goals were reached.
int run(int argc, char** argv);

}  // namespace bench

#endif
