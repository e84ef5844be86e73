// The list of five hundred processes, made anew and brought up to date.

#include <rkutils/process_control.h>

#include <array>
#include <cctype>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <libproc2/pids.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "processes/rows.h"
#include "support/comparison.h"

namespace bench::processes {
namespace {

using benchmark::State;

constexpr int kMany = 500;

// Processes to be found, beside the few that the router has.
class Crowd {
 public:
  Crowd() {
    for (int i = 0; i < kMany; ++i) {
      const pid_t id = ::fork();
      if (id == 0) {
        for (;;) ::pause();
      }
      if (id > 0) ids_.push_back(id);
    }
  }
  ~Crowd() {
    for (const pid_t id : ids_) ::kill(id, SIGKILL);
    for (const pid_t id : ids_) ::waitpid(id, nullptr, 0);
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

  // Whether so many may be it.
  [[nodiscard]] bool is(std::size_t count) const { return count > kMany && count < kMany + 20; }

 private:
  std::vector<pid_t> ids_;
};

void check(State& state, const Crowd& crowd, std::size_t count) {
  if (!crowd.is(count)) state.SkipWithError("not all processes");
}

// ---- As we do it ----

void refresh_anew(State& state) {
  const Crowd crowd;
  ProcessControl processes;
  for (auto _ : state) processes.refresh(false);
  check(state, crowd, static_cast<std::size_t>(processes.getNumberOfProcesses()));
}

void refresh_in_place(State& state) {
  const Crowd crowd;
  ProcessControl processes;
  processes.refresh(false);
  for (auto _ : state) processes.refresh(true);
  check(state, crowd, static_cast<std::size_t>(processes.getNumberOfProcesses()));
}

// ---- As a developer would do it otherwise ----

using Named = std::pair<int, std::string>;

std::string command_line(const std::string& folder) {
  std::array<char, 256> bytes = {};
  std::FILE* const file = std::fopen(("/proc/" + folder + "/cmdline").c_str(), "re");
  if (file == nullptr) return {};
  const std::size_t length = std::fread(bytes.data(), 1, bytes.size() - 1, file);
  std::fclose(file);
  for (std::size_t i = 0; i + 1 < length; ++i) {
    if (bytes[i] == '\0') bytes[i] = ' ';
  }
  return bytes.data();
}

void list_with_stdio(State& state) {
  const Crowd crowd;
  std::vector<Named> processes;
  for (auto _ : state) {
    processes.clear();
    DIR* const proc = ::opendir("/proc");
    while (const dirent* const entry = ::readdir(proc)) {
      if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) == 0) continue;
      processes.emplace_back(std::atoi(entry->d_name), command_line(entry->d_name));
    }
    ::closedir(proc);
  }
  check(state, crowd, processes.size());
}

void list_with_libproc2(State& state) {
  const Crowd crowd;
  std::array<pids_item, 2> items = {PIDS_ID_PID, PIDS_CMDLINE};
  pids_info* info = nullptr;
  if (::procps_pids_new(&info, items.data(), static_cast<int>(items.size())) < 0) {
    return state.SkipWithError("no libproc2");
  }
  int count = 0;
  for (auto _ : state) {
    const pids_fetch* const found = ::procps_pids_reap(info, PIDS_FETCH_TASKS_ONLY);
    count = found == nullptr ? 0 : found->counts->total;
  }
  check(state, crowd, static_cast<std::size_t>(count));
  ::procps_pids_unref(&info);
}

// ---- With the least that it takes ----

// Reads the folder, calls `use` with each name that begins with a digit, and returns how many there
// are.
template <typename Use>
std::size_t read_folder(const Use& use) {
  constexpr std::size_t kSize = 32768;  // as the C library's
  alignas(dirent64) static std::array<char, kSize> buffer;
  std::size_t count = 0;
  const int proc = ::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (;;) {
    const long length = ::syscall(SYS_getdents64, proc, buffer.data(), buffer.size());
    if (length <= 0) break;
    for (long place = 0; place < length;) {
      const auto* const entry = reinterpret_cast<const dirent64*>(buffer.data() + place);
      place += entry->d_reclen;
      if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
      use(static_cast<const char*>(entry->d_name));
      ++count;
    }
  }
  ::close(proc);
  return count;
}

void list_by_calls(State& state) {
  const Crowd crowd;
  std::size_t count = 0;
  for (auto _ : state) {
    count = read_folder([](const char* name) {
      std::array<char, 32> path;
      std::snprintf(path.data(), path.size(), "/proc/%s/cmdline", name);
      std::array<char, 256> bytes;
      const int file = ::open(path.data(), O_RDONLY | O_CLOEXEC);
      const ssize_t length = ::read(file, bytes.data(), bytes.size() - 1);
      benchmark::DoNotOptimize(length);
      ::close(file);
    });
  }
  check(state, crowd, count);
}

void list_folder(State& state) {
  const Crowd crowd;
  std::size_t count = 0;
  for (auto _ : state)
    count = read_folder([](const char* name) { benchmark::DoNotOptimize(name); });
  check(state, crowd, count);
}

}  // namespace

void add_table_rows() {
  compare("ProcessControl::refresh(false), 500 processes", refresh_anew,
          {peer("opendir and stdio", 0.75, list_with_stdio),
           peer("libproc2", 0.75, list_with_libproc2), floor("bare calls", 1.2, list_by_calls)});
  compare(
      "ProcessControl::refresh(true), nothing changed", refresh_in_place,
      {peer("libproc2", 0.1, list_with_libproc2), floor("bare directory read", 1.7, list_folder)});
}

}  // namespace bench::processes
