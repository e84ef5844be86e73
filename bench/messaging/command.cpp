// Commands beside posix_spawn() and popen(), what closing descriptors takes, and words beside
// wordexp().

#include <rkutils/command.h>
#include <rkutils/internal/unique_dir.h>
#include <rkutils/processes/command/descriptors.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wordexp.h>

#include "messaging/rows.h"
#include "support/comparison.h"

namespace bench::messaging {
namespace {

using benchmark::State;
using rkutils::internal::UniqueDir;

// ---- Running a command ----

// What a daemon of some size has in memory, for a fork would copy its tables.
void be_a_large_program() {
  static std::vector<char> memory;
  if (memory.empty()) memory.assign(std::size_t{64} * 1024 * 1024, 'x');
  benchmark::DoNotOptimize(memory.data());
}

std::array<char*, 4> shell_arguments() {
  static char shell[] = "/bin/sh";
  static char option[] = "-c";
  static char command[] = "true";
  return {shell, option, command, nullptr};
}

bool succeeds(pid_t child) {
  int status = -1;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

void run_true(State& state) {
  be_a_large_program();
  for (auto _ : state) {
    if (run_command("true", 0) != 0) state.SkipWithError("failed");
  }
}

void spawn_true(State& state) {
  be_a_large_program();
  for (auto _ : state) {
    const auto arguments = shell_arguments();
    pid_t child = -1;
    if (::posix_spawn(&child, "/bin/sh", nullptr, nullptr, arguments.data(), environ) != 0 ||
        !succeeds(child)) {
      state.SkipWithError("failed");
    }
  }
}

void run_true_least(State& state) {
  be_a_large_program();
  for (auto _ : state) {
    const auto arguments = shell_arguments();
    const pid_t child = ::vfork();
    if (child == 0) {
      ::execv("/bin/sh", arguments.data());
      ::_exit(1);
    }
    if (child < 0 || !succeeds(child)) state.SkipWithError("failed");
  }
}

void eval_true(State& state) {
  be_a_large_program();
  for (auto _ : state) {
    char buffer[256];
    if (eval_command("true", buffer, sizeof buffer) != 0) state.SkipWithError("failed");
    benchmark::DoNotOptimize(buffer);
  }
}

void popen_true(State& state) {
  be_a_large_program();
  for (auto _ : state) {
    char buffer[256] = "";
    std::FILE* const pipe = ::popen("true", "r");
    if (pipe == nullptr) return state.SkipWithError("no pipe");
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) benchmark::DoNotOptimize(buffer);
    if (::pclose(pipe) != 0) state.SkipWithError("failed");
  }
}

// ---- Closing descriptors ----

// As many as a daemon has, from this number up.
constexpr int kDescriptors = 10;
constexpr int kFirst = 500;

void open_descriptors() {
  for (int i = 0; i < kDescriptors; ++i) ::fcntl(STDERR_FILENO, F_DUPFD, kFirst + i);
}

// Allows so many open files, or as many as we may.
void set_limit(rlim_t limit) {
  rlimit limits = {};
  ::getrlimit(RLIMIT_NOFILE, &limits);
  const rlimit raised = {limit, std::max(limit, limits.rlim_max)};
  if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) return;
  limits.rlim_cur = std::min(limit, limits.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limits);
}

// Opens some, closes them and what else may be there, and checks that it did.
template <typename Close>
void measure_closing(State& state, rlim_t limit, Close close_all) {
  rlimit before = {};
  ::getrlimit(RLIMIT_NOFILE, &before);
  set_limit(limit);
  for (auto _ : state) {
    open_descriptors();
    close_all();
  }
  if (::fcntl(kFirst, F_GETFD) >= 0) state.SkipWithError("not closed");
  ::setrlimit(RLIMIT_NOFILE, &before);
}

constexpr rlim_t kHighLimit = 1048576;
constexpr rlim_t kLowLimit = 1024;

void close_all() { rkutils::processes::close_descriptors(kFirst); }

void close_listed() {
  const UniqueDir folder(::opendir("/proc/self/fd"));
  while (const dirent* const entry = ::readdir(folder.get())) {
    const int descriptor = std::atoi(entry->d_name);
    if (descriptor >= kFirst && descriptor != ::dirfd(folder.get())) ::close(descriptor);
  }
}

void close_with_high_limit(State& state) { measure_closing(state, kHighLimit, close_all); }
void close_with_low_limit(State& state) { measure_closing(state, kLowLimit, close_all); }
void close_by_walking(State& state) { measure_closing(state, kHighLimit, close_listed); }

// ---- Splitting a line ----

constexpr const char* kLine =
    "ip route replace default via 192.0.2.1 dev wwan0 metric '10 20' table main";
constexpr int kWords = 12;

void split_line(State& state) {
  for (auto _ : state) {
    char** words = nullptr;
    int count = 0;
    if (makeargv(kLine, &words, &count) != 0 || count != kWords) state.SkipWithError("not split");
    benchmark::DoNotOptimize(words);
    freeargv(words);
  }
}

void expand_words(State& state) {
  for (auto _ : state) {
    wordexp_t words;
    if (::wordexp(kLine, &words, WRDE_NOCMD) != 0 || words.we_wordc != kWords) {
      state.SkipWithError("not split");
    }
    benchmark::DoNotOptimize(words);
    ::wordfree(&words);
  }
}

}  // namespace

void add_command_rows() {
  compare(
      "run_command(\"true\")", run_true,
      {peer("posix_spawn", 1.1, spawn_true), floor("vfork, execv, waitpid", 1.2, run_true_least)},
      Clock::kReal);
  compare("closing 10 descriptors, high limit", close_with_high_limit,
          {peer("walking /proc/self/fd", 0.5, close_by_walking),
           floor("the same with a limit of 1024", 1.1, close_with_low_limit)});
  compare("eval_command(\"true\")", eval_true, {peer("popen, fgets", 1.05, popen_true)},
          Clock::kReal);
  compare("makeargv, 12 words", split_line, {peer("wordexp", 0.6, expand_words)});
}

}  // namespace bench::messaging
