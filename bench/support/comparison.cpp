#include "support/comparison.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "support/private_router.h"

namespace bench {
namespace {

constexpr int kDefaultRounds = 15;
// A machine is noisy: a goal holds up to this much above it.
constexpr double kNoise = 1.15;
constexpr const char* kBytes = "bytes";

struct Comparison {
  std::string work;
  std::string ours;            // the name of its benchmark
  std::string reference;       // the same
  std::string reference_name;  // as printed
  double goal;
};

std::vector<Comparison>& comparisons() {
  static std::vector<Comparison> all;
  return all;
}

// The figures of one benchmark, one for each round: nanoseconds, or bytes.
struct Figures {
  std::vector<double> sorted;
  bool bytes = false;

  [[nodiscard]] double quantile(double share) const {
    return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1) + 0.5)];
  }
  [[nodiscard]] double median() const { return quantile(0.5); }
  // How far the middle half reaches, in percent of the median.
  [[nodiscard]] double spread() const { return 100 * (quantile(0.75) - quantile(0.25)) / median(); }
};

// Keeps the figure of the run and prints nothing.
class Collector : public benchmark::BenchmarkReporter {
 public:
  explicit Collector(Figures& figures) : figures_(figures) {}

  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        continue;
      }
      const auto bytes = run.counters.find(kBytes);
      figures_.bytes = bytes != run.counters.end();
      figures_.sorted.push_back(figures_.bytes ? bytes->second.value : nanoseconds(run));
    }
    std::sort(figures_.sorted.begin(), figures_.sorted.end());
  }

 private:
  static double nanoseconds(const Run& run) {
    constexpr double kPerSecond = 1e9;
    const bool real = run.run_name.time_type == "real_time";
    return (real ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) /
           benchmark::GetTimeUnitMultiplier(run.time_unit) * kPerSecond;
  }

  Figures& figures_;
};

using Results = std::map<std::string, Figures>;

// A pattern that matches the one benchmark of that name.
std::string pattern_of(const std::string& name) {
  std::string pattern = "^";
  for (const char character : name) {
    if (std::string_view(".[]()*+?{}|^$\\").find(character) != std::string_view::npos) {
      pattern += '\\';
    }
    pattern += character;
  }
  return pattern + "(/real_time)?$";
}

// Each benchmark once in every round, so that a machine's slow minute strikes all of them. Google
// Benchmark has an option for it too, but its version in Debian 12 crashes with it now and then.
Results run_rounds(int rounds) {
  std::vector<std::string> names;
  for (const Comparison& each : comparisons()) {
    for (const std::string& name : {each.ours, each.reference}) {
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
  }
  Results results;
  for (int round = 1; round <= rounds; ++round) {
    std::fprintf(stderr, "\rround %d of %d ", round, rounds);
    for (const std::string& name : names) {
      Collector collector(results[name]);
      benchmark::RunSpecifiedBenchmarks(&collector, nullptr, pattern_of(name));
    }
  }
  std::fprintf(stderr, "\r                    \r");
  return results;
}

void print_figure(const Figures& figures) {
  static constexpr std::pair<double, const char*> kUnits[] = {{1e9, "s"}, {1e6, "ms"}, {1e3, "us"}};
  double figure = figures.median();
  const char* unit = figures.bytes ? "B" : "ns";
  for (const auto& [size, name] : kUnits) {
    if (figures.bytes || figure < size) continue;
    figure /= size;
    unit = name;
    break;
  }
  std::printf("%9.4g %-2s %5.1f%%   ", figure, unit, figures.spread());
}

// False when a benchmark gave no figure.
bool print_comparisons(Results& results) {
  bool complete = true;
  std::printf("%-38s %12s %6s   %-38s %12s %6s   %6s %6s\n", "work", "ours", "spread", "against",
              "median", "spread", "ratio", "goal");
  for (const Comparison& each : comparisons()) {
    const Figures& ours = results[each.ours];
    const Figures& reference = results[each.reference];
    if (ours.sorted.empty() || reference.sorted.empty()) {
      std::printf("%-38s no figure\n", each.work.c_str());
      complete = false;
      continue;
    }
    const double ratio = ours.median() / reference.median();
    std::printf("%-38s ", each.work.c_str());
    print_figure(ours);
    std::printf("%-38s ", each.reference_name.c_str());
    print_figure(reference);
    std::printf("%6.3f %6.4g  %s\n", ratio, each.goal,
                ratio <= each.goal * kNoise ? "met" : "MISSED");
  }
  return complete;
}

// What follows `option` in an argument that begins with it.
std::optional<std::string> value_of(const char* argument, std::string_view option) {
  const std::string_view text = argument;
  if (text.substr(0, option.size()) != option) return std::nullopt;
  return std::string(text.substr(option.size()));
}

void keep_works_with(const std::string& text) {
  std::vector<Comparison>& all = comparisons();
  all.erase(std::remove_if(
                all.begin(), all.end(),
                [&](const Comparison& each) { return each.work.find(text) == std::string::npos; }),
            all.end());
}

std::string add(const std::string& name, const Body& body, Clock clock) {
  auto* const added = benchmark::RegisterBenchmark(name.c_str(), body);
  if (clock == Clock::kReal) added->UseRealTime();
  return name;
}

}  // namespace

void report_bytes(benchmark::State& state, double bytes) { state.counters[kBytes] = bytes; }

Reference peer(const std::string& name, double goal, Body body) {
  return {name, goal, std::move(body)};
}

Reference floor(const std::string& name, double goal, Body body) {
  return {"floor: " + name, goal, std::move(body)};
}

void compare(const std::string& work, const Body& ours, const std::vector<Reference>& references,
             Clock clock) {
  const std::string name = add(work, ours, clock);
  for (const Reference& each : references) {
    const std::string reference = add(work + " - " + each.name, each.body, clock);
    comparisons().push_back({work, name, reference, each.name, each.goal});
  }
}

int run(int argc, char** argv) {
  support::enter_private_router(argv);
  int rounds = kDefaultRounds;
  std::vector<char*> arguments;
  for (char* argument : std::vector<char*>(argv, argv + argc)) {
    if (const auto number = value_of(argument, "--rounds=")) {
      rounds = std::atoi(number->c_str());
    } else if (const auto text = value_of(argument, "--only=")) {
      keep_works_with(*text);
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
