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
    }
  }

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

// Each benchmark once in every round, so that a machine's slow minute strikes all of them. Google
// Benchmark has an option for it too, but its version in Debian 12 crashes with it now and then.
Results run_rounds(const Options& options) {
  std::vector<std::string> names;
  for (const Comparison& each : comparisons()) {
    for (const std::string& name : {each.ours, each.reference}) {
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
  }
  Results results;
  for (int round = 1; round <= options.rounds; ++round) {
    show_progress(round, options.rounds);
    for (const std::string& name : names) {
      Collector collector(results[name], options.callgrind);
      benchmark::RunSpecifiedBenchmarks(&collector, nullptr, pattern_of(name));
    }
  }
  show_progress(options.rounds + 1, options.rounds);
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

// How long a benchmark runs at least. Instructions vary with the first calls alone.
const char* shortest_time(const Options& options) {
  if (options.check) return "--benchmark_min_time=1e-9";
  return options.callgrind ? "--benchmark_min_time=0.02" : "--benchmark_min_time=0.1";
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

  const Results results = run_rounds(options);
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
