// Programs that do next to nothing: one that links the library, beside one that links only the
// libraries that it needs.

#include <rkutils/internal/unique_fd.h>

#include <array>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "start/rows.h"
#include "support/comparison.h"
#include "support/private_router.h"
#include "support/run_program.h"

namespace bench::start {
namespace {

using benchmark::State;
using rkutils::internal::UniqueFd;

// Puts the library into the loader's index of libraries, where a machine in service has it. False
// when that fails.
bool index_libraries() {
  static const bool done = support::run_program({"/sbin/ldconfig"}).status == 0;
  return done;
}

// A program started with an argument or without, and the standard streams that are given.
class Program {
 public:
  Program(std::string path, bool stays, const posix_spawn_file_actions_t* streams) {
    std::array<char, 5> word = {"stay"};
    const std::array<char*, 3> arguments = {path.data(), stays ? word.data() : nullptr, nullptr};
    if (::posix_spawn(&id_, path.c_str(), streams, nullptr, arguments.data(), environ) != 0) {
      id_ = -1;
    }
  }

  [[nodiscard]] pid_t id() const { return id_; }

  // Waits for its end.
  [[nodiscard]] bool succeeds() const {
    int status = -1;
    return ::waitpid(id_, &status, 0) == id_ && status == 0;
  }

 private:
  pid_t id_ = -1;
};

void start_and_end(State& state, const std::string& path) {
  if (!index_libraries()) return state.SkipWithError("no index");
  for (auto _ : state) {
    if (!Program(path, false, nullptr).succeeds()) state.SkipWithError("failed");
  }
}

// In bytes; 0 when that cannot be read.
double dirty_memory(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
  for (std::string word; file >> word;) {
    if (word != "Private_Dirty:") continue;
    double kibibytes = 0;
    file >> kibibytes;
    return kibibytes * 1024;
  }
  return 0;
}

void memory_of_a_process(State& state, const std::string& path) {
  if (!index_libraries()) return state.SkipWithError("no index");
  for (auto _ : state) {
    std::array<int, 2> to = {-1, -1};
    std::array<int, 2> from = {-1, -1};
    if (::pipe2(to.data(), O_CLOEXEC) != 0 || ::pipe2(from.data(), O_CLOEXEC) != 0) {
      return state.SkipWithError("no pipes");
    }
    UniqueFd input(to[0]);
    UniqueFd input_end(to[1]);
    UniqueFd output(from[0]);
    UniqueFd output_end(from[1]);
    posix_spawn_file_actions_t streams;
    ::posix_spawn_file_actions_init(&streams);
    ::posix_spawn_file_actions_adddup2(&streams, input.get(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&streams, output_end.get(), STDOUT_FILENO);
    const Program program(path, true, &streams);
    ::posix_spawn_file_actions_destroy(&streams);
    output_end.reset();
    char byte = 0;
    const bool runs = ::read(output.get(), &byte, 1) == 1;
    const double memory = dirty_memory(program.id());
    input_end.reset();
    if (!program.succeeds() || !runs || memory == 0) state.SkipWithError("failed");
    report_bytes(state, memory);
  }
}

Body with(const char* program, void (*body)(State&, const std::string&)) {
  return [=](State& state) { body(state, support::built_program(program)); };
}

}  // namespace

void add_start_rows() {
  constexpr const char* kOurs = "bench/start-ours";
  constexpr const char* kFloor = "bench/start-floor";
  constexpr const char* kAlone = "linked to libzmq and libevent alone";
  compare("start and end of a program", with(kOurs, start_and_end),
          {floor(kAlone, 1.05, with(kFloor, start_and_end))}, Clock::kReal);
  compare("dirty memory of a program", with(kOurs, memory_of_a_process),
          {floor(kAlone, 1.1, with(kFloor, memory_of_a_process))}, Clock::kReal);
}

}  // namespace bench::start
