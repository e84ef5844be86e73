#include "support/comparison.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "support/figures.h"
#include "support/instructions.h"
#include "support/private_router.h"
#include "support/report.h"

namespace bench {
namespace {

constexpr int kGoalMissed = 2;  // the exit status
constexpr const char* kBytes = "bytes";

struct Comparison {
  std::string work;
  std::string ours;       // the name of its benchmark
  std::string reference;  // the same
  Reference::Kind kind;
  std::string against;
  double goal;
  Clock clock;
};

std::vector<Comparison>& comparisons() {
  static std::vector<Comparison> all;
  return all;
}

// All, by their names.
std::map<std::string, benchmark::internal::Benchmark*>& benchmarks() {
  static std::map<std::string, benchmark::internal::Benchmark*> all;
  return all;
}

struct Options {
  int rounds = 15;
  std::optional<std::string> only;
  std::optional<std::string> json;
  bool check = false;
  bool callgrind = false;
  std::vector<char*> others;
};

// Keeps the figure of the run and prints nothing.
class Collector : public benchmark::BenchmarkReporter {
 public:
  Collector(Figures& figures, bool instructions) : figures_(figures), instructions_(instructions) {}

  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const auto bytes = run.counters.find(kBytes);
      if (run.error_occurred) {
        fail(run, run.error_message);
      } else if (bytes != run.counters.end()) {
        figures_.add(bytes->second.value, Unit::kBytes);
      } else if (instructions_) {
        add_instructions(run);
      } else {
        figures_.add(nanoseconds(run), Unit::kNanoseconds);
      }
      iterations_ = run.iterations;
    }
  }

  // Of the loop in the last run.
  [[nodiscard]] benchmark::IterationCount iterations() const { return iterations_; }

 private:
  void fail(const Run& run, const std::string& reason) {
    std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), reason.c_str());
    figures_.fail();
  }

  void add_instructions(const Run& run) {
    const auto counts = take_counts();
    if (!counts) return fail(run, "not counted");
    const auto iterations = static_cast<double>(run.iterations);
    figures_.add(counts->instructions / iterations, Unit::kInstructions);
    figures_.add_system_calls(counts->system_calls / iterations);
  }

  static double nanoseconds(const Run& run) {
    constexpr double kPerSecond = 1e9;
    const bool real = run.run_name.time_type == "real_time";
    return (real ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) /
           benchmark::GetTimeUnitMultiplier(run.time_unit) * kPerSecond;
  }

  Figures& figures_;
  bool instructions_;
  benchmark::IterationCount iterations_ = 1;
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
  return pattern + "(/iterations:[0-9]+)?(/real_time)?$";
}

// On a terminal: how far we are.
void show_progress(int round, int rounds) {
  static const bool terminal = ::isatty(STDERR_FILENO) == 1;
  if (!terminal) return;
  if (round > rounds) {
    std::fprintf(stderr, "\r                    \r");
  } else {
    std::fprintf(stderr, "\rround %d of %d ", round, rounds);
  }
}

// The names of the benchmarks of all rows, each once, in the order of the rows.
std::vector<std::string> names() {
  std::vector<std::string> all;
  for (const Comparison& each : comparisons()) {
    for (const std::string& name : {each.ours, each.reference}) {
      if (std::find(all.begin(), all.end(), name) == all.end()) all.push_back(name);
    }
  }
  return all;
}

// Runs a benchmark and adds its figure. Returns how often its loop was run for that.
benchmark::IterationCount run_once(const std::string& name, Figures& figures, bool instructions) {
  Collector collector(figures, instructions);
  benchmark::RunSpecifiedBenchmarks(&collector, nullptr, pattern_of(name));
  return collector.iterations();
}

// Each benchmark once in every round, so that a machine's slow minute strikes all of them. Google
// Benchmark has an option for it too, but its version in Debian 12 crashes with it now and then.
// The first round finds how many iterations take long enough, which it does by trying; the others
// take as many.
Results run_rounds(const Options& options) {
  Results results;
  for (int round = 1; round <= options.rounds; ++round) {
    show_progress(round, options.rounds);
    for (const std::string& name : names()) {
      const auto iterations = run_once(name, results[name], false);
      if (round == 1) benchmarks().at(name)->Iterations(iterations);
    }
  }
  show_progress(options.rounds + 1, options.rounds);
  return results;
}

// As often as instructions say, not time, so that each run of the program counts the same. The
// first call comes once before, since it does what only first calls do.
Figures count_instructions(const std::string& name) {
  constexpr double kEnough = 1e7;
  constexpr double kWithSystemCalls = 10;  // which may start programs and copy large files
  constexpr double kMost = 10000;
  const auto run = [&](double iterations) {
    Figures figures;
    benchmarks().at(name)->Iterations(static_cast<benchmark::IterationCount>(iterations));
    run_once(name, figures, true);
    return figures;
  };
  Figures figures = run(1);
  for (const double limit : {kWithSystemCalls, kMost}) {
    if (!figures.usable() || figures.unit() != Unit::kInstructions) break;
    if (limit == kMost && figures.system_calls() >= 0.5) break;
    const double iterations = std::clamp(kEnough / figures.median(), 1.0, limit);
    if (iterations >= 2) figures = run(iterations);
  }
  return figures;
}

Results count_all_instructions() {
  Results results;
  for (const std::string& name : names()) results[name] = count_instructions(name);
  return results;
}

std::vector<Row> rows_of(const Results& results) {
  std::vector<Row> rows;
  for (const Comparison& each : comparisons()) {
    rows.push_back({each.work, each.clock, each.kind, each.against, each.goal,
                    &results.at(each.ours), &results.at(each.reference)});
  }
  return rows;
}

// What follows `option` in an argument that begins with it.
std::optional<std::string> value_of(std::string_view argument, std::string_view option) {
  if (argument.substr(0, option.size()) != option) return std::nullopt;
  return std::string(argument.substr(option.size()));
}

Options parse(const std::vector<char*>& arguments) {
  Options options;
  for (char* const argument : arguments) {
    if (const auto number = value_of(argument, "--rounds=")) {
      options.rounds = std::max(std::atoi(number->c_str()), 1);
    } else if (const auto text = value_of(argument, "--only=")) {
      options.only = text;
    } else if (const auto path = value_of(argument, "--json=")) {
      options.json = path;
    } else if (argument == std::string_view("--check")) {
      options.check = true;
    } else if (argument == std::string_view("--callgrind")) {
      options.callgrind = true;
    } else {
      options.others.push_back(argument);
    }
  }
  if (options.check || options.callgrind) options.rounds = 1;
  return options;
}

// How long a benchmark runs at least.
const char* shortest_time(const Options& options) {
  return options.check ? "--benchmark_min_time=1e-9" : "--benchmark_min_time=0.1";
}

// False when the library knows one of the arguments no better than we do.
bool initialize_library(const Options& options) {
  std::vector<char*> arguments = options.others;
  // Before the caller's own, which win.
  std::string time = shortest_time(options);
  arguments.insert(arguments.begin() + 1, time.data());
  int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  benchmark::Initialize(&count, arguments.data());
  return !benchmark::ReportUnrecognizedArguments(count, arguments.data());
}

void keep_works_with(const std::string& text) {
  std::vector<Comparison>& all = comparisons();
  all.erase(std::remove_if(
                all.begin(), all.end(),
                [&](const Comparison& each) { return each.work.find(text) == std::string::npos; }),
            all.end());
}

void print(const std::vector<Row>& rows, const Options& options) {
  if (options.callgrind) return print_counts(rows);
  if (!options.check) return print_table(rows);
  for (const Row& row : rows) {
    std::printf("%s, beside %s: %s\n", row.work.c_str(), row.against.c_str(),
                row.usable() ? "done" : "no figure");
  }
}

std::string add(const std::string& name, const Body& body, Clock clock) {
  auto* const added = benchmark::RegisterBenchmark(name.c_str(), body);
  if (clock == Clock::kReal) added->UseRealTime();
  benchmarks()[name] = added;
  return name;
}

}  // namespace

void report_bytes(benchmark::State& state, double bytes) { state.counters[kBytes] = bytes; }

Reference peer(const std::string& name, double goal, Body body) {
  return {Reference::Kind::kPeer, name, goal, std::move(body)};
}

Reference floor(const std::string& name, double goal, Body body) {
  return {Reference::Kind::kFloor, name, goal, std::move(body)};
}

void compare(const std::string& work, const Body& ours, const std::vector<Reference>& references,
             Clock clock) {
  const std::string name = add(work, ours, clock);
  for (const Reference& each : references) {
    const std::string reference = add(work + " - " + each.name, each.body, clock);
    comparisons().push_back({work, name, reference, each.kind, each.name, each.goal, clock});
  }
}

int run(int argc, char** argv) {
  const Options options = parse(std::vector<char*>(argv, argv + argc));
  support::enter_private_router(argv);
  if (options.callgrind) enter_callgrind(argv);
  if (!initialize_library(options)) return EXIT_FAILURE;
  if (options.only) keep_works_with(*options.only);
  if (comparisons().empty()) {
    std::fprintf(stderr, "no row's name contains that text\n");
    return EXIT_FAILURE;
  }

  const Results results = options.callgrind ? count_all_instructions() : run_rounds(options);
  const std::vector<Row> rows = rows_of(results);
  print(rows, options);
  if (options.json && !write_json(rows, options.rounds, *options.json)) {
    std::perror(options.json->c_str());
    return EXIT_FAILURE;
  }
  const auto each = [&](auto holds) { return std::all_of(rows.begin(), rows.end(), holds); };
  if (!each([](const Row& row) { return row.usable(); })) return EXIT_FAILURE;
  if (options.check || options.callgrind) return EXIT_SUCCESS;
  return each([](const Row& row) { return row.met(); }) ? EXIT_SUCCESS : kGoalMissed;
}

}  // namespace bench
