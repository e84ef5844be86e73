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
  enum class Kind { kPeer, kFloor };

  Kind kind;
  std::string name;
  double goal;
  Body body;
};

// What a developer would use otherwise.
Reference peer(const std::string& name, double goal, Body body);

// The same work done with the least that it takes.
Reference floor(const std::string& name, double goal, Body body);

enum class Clock {
  kProcessor,  // the time of the calling thread alone, in which other programs of a busy machine do
               // not count
  kReal,       // for work in which other processes take part
};

// Registers a row of the table: a kind of work as we do it and as the references do.
void compare(const std::string& work, const Body& ours, const std::vector<Reference>& references,
             Clock clock = Clock::kProcessor);

// Runs the benchmarks of all rows on a private router, each once in every round, ours and its
// references one after the other, and prints a table of the medians. Returns the program's exit
// status: 0 when all goals are reached, 2 when one is missed, 1 when a benchmark fails. Arguments:
//
//   --rounds=N     the number of rounds, 15 otherwise
//   --only=TEXT    only the rows whose names contain the text
//   --json=FILE    also writes the figures there
//   --check        does each work once and forgets the figures: 0 when each row has some
//   --callgrind    counts instructions instead, which another program's work does not change, and
//                  holds them against nothing
//
// The others are Google Benchmark's.
int run(int argc, char** argv);

}  // namespace bench

#endif
