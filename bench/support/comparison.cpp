#include "support/comparison.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include "support/private_router.h"

namespace bench {
namespace {

constexpr int kDefaultRounds = 15;
// A machine is noisy: a goal holds up to this much above it.
constexpr double kNoise = 1.15;

struct Comparison {
  std::string ours;
  std::string reference;
  double goal;
};

std::vector<Comparison>& comparisons() {
  static std::vector<Comparison> all;
  return all;
}

// The times of one benchmark, one for each round.
struct Times {
  std::vector<double> sorted;
  std::string unit;

  [[nodiscard]] double quantile(double share) const {
    return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1) + 0.5)];
  }
  [[nodiscard]] double median() const { return quantile(0.5); }
  // How far the middle half reaches, in percent of the median.
  [[nodiscard]] double spread() const { return 100 * (quantile(0.75) - quantile(0.25)) / median(); }
};

// Keeps the time of the run and prints nothing.
class Collector : public benchmark::BenchmarkReporter {
 public:
  explicit Collector(Times& times) : times_(times) {}

  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        continue;
      }
      times_.sorted.push_back(run.GetAdjustedRealTime());
      times_.unit = benchmark::GetTimeUnitString(run.time_unit);
    }
    std::sort(times_.sorted.begin(), times_.sorted.end());
  }

 private:
  Times& times_;
};

using Results = std::map<std::string, Times>;

// Each benchmark once in every round, so that a machine's slow minute strikes all of them. Google
// Benchmark has an option for it too, but its version in Debian 12 crashes with it now and then.
Results run_rounds(int rounds) {
  std::set<std::string> names;
  for (const Comparison& each : comparisons()) names.insert({each.ours, each.reference});
  Results results;
  for (int round = 1; round <= rounds; ++round) {
    std::fprintf(stderr, "\rround %d of %d ", round, rounds);
    for (const std::string& name : names) {
      Collector collector(results[name]);
      benchmark::RunSpecifiedBenchmarks(&collector, nullptr, "^" + name + "(/real_time)?$");
    }
  }
  std::fprintf(stderr, "\r                    \r");
  return results;
}

const char* verdict(double ratio, double goal) {
  if (ratio <= goal) return "reached";
  return ratio <= goal * kNoise ? "reached within noise" : "MISSED";
}

void print_figure(const std::string& name, const Times& times) {
  std::printf("%-36s %9.4g %-2s %5.1f%%   ", name.c_str(), times.median(), times.unit.c_str(),
              times.spread());
}

// False when a benchmark gave no figure.
bool print_comparisons(Results& results) {
  bool complete = true;
  std::printf("%-36s %12s %6s   %-36s %12s %6s   %6s %6s\n", "ours", "median", "spread",
              "reference", "median", "spread", "ratio", "goal");
  for (const Comparison& each : comparisons()) {
    const Times& ours = results[each.ours];
    const Times& reference = results[each.reference];
    if (ours.sorted.empty() || reference.sorted.empty()) {
      std::printf("%-36s no figure\n", each.ours.c_str());
      complete = false;
      continue;
    }
    const double ratio = ours.median() / reference.median();
    print_figure(each.ours, ours);
    print_figure(each.reference, reference);
    std::printf("%6.3f %6.3g  %s\n", ratio, each.goal, verdict(ratio, each.goal));
  }
  return complete;
}

}  // namespace

void compare(const std::string& ours, const std::string& reference, double goal) {
  comparisons().push_back({ours, reference, goal});
}

int run(int argc, char** argv) {
  support::enter_private_router(argv);
  constexpr std::string_view kRoundsOption = "--rounds=";
  int rounds = kDefaultRounds;
  std::vector<char*> arguments;
  for (char* argument : std::vector<char*>(argv, argv + argc)) {
    if (std::string_view(argument).substr(0, kRoundsOption.size()) == kRoundsOption) {
      rounds = std::atoi(argument + kRoundsOption.size());
    } else {
      arguments.push_back(argument);
    }
  }
  // Before the caller's own, which win.
  std::string short_rounds = "--benchmark_min_time=0.1";
  arguments.insert(arguments.begin() + 1, short_rounds.data());
  int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return EXIT_FAILURE;

  Results results = run_rounds(std::max(rounds, 1));
  return print_comparisons(results) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace bench
