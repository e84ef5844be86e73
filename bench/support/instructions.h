// Counting the instructions of benchmarks, with valgrind's tool callgrind.
//
// Only what stands in a benchmark's loop is counted, without what it does between PauseTiming() and
// ResumeTiming(): the linker directs the calls by which the loop begins, pauses and ends to
// functions of ours, which tell callgrind. Other threads, other processes and the kernel are not
// counted. System calls are counted from the loop's beginning to its end, also where it pauses.
// valgrind shows programs an older processor than the machine's: libraries that choose
// their code by the processor choose other code than when time is measured. An instruction that
// repeats itself, as large blocks are cleared and copied with, counts as often as it does.
#ifndef BENCH_SUPPORT_INSTRUCTIONS_H
#define BENCH_SUPPORT_INSTRUCTIONS_H

#include <optional>

namespace bench {

// Starts this program again under callgrind, with the same arguments; returns only when it runs
// there already.
void enter_callgrind(char** argv);

struct Counts {
  double instructions;
  double system_calls;
};

// What the last loop took in all; nothing when callgrind does not say.
std::optional<Counts> take_counts();

}  // namespace bench

#endif
