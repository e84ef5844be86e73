// Adding to a full persistent log in memory, beside streams and bare calls.

#include <rkutils/dwlog.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hardware/rows.h"
#include "support/comparison.h"
#include "support/put_file.h"

namespace bench::hardware {
namespace {

using benchmark::State;

constexpr const char* kLog = "/var/log/dwlog";
constexpr const char* kTemporary = "/var/log/dwlog.tmp";
constexpr const char* kText = "link of the second modem is up again";
constexpr int kCode = 17;
constexpr int kKeptLines = 32;
constexpr mode_t kMode = 0664;

void fill_log(State& state) {
  support::put(kLog, "");
  for (int i = 0; i <= kKeptLines; ++i) {
    if (dwlog(kCode, kText) != 0) state.SkipWithError("not filled");
  }
}

std::array<char, 32> minute() {
  std::array<char, 32> text = {};
  const std::time_t now = std::time(nullptr);
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", std::localtime(&now));
  return text;
}

void add(State& state) {
  fill_log(state);
  for (auto _ : state) {
    if (dwlog(kCode, kText) != 0) state.SkipWithError("not added");
  }
}

void add_by_streams(State& state) {
  fill_log(state);
  for (auto _ : state) {
    {
      std::ofstream to(kTemporary);
      to << kCode << ": " << minute().data() << ' ' << kText << '\n';
      std::ifstream from(kLog);
      std::string line;
      for (int i = 0; i < kKeptLines && std::getline(from, line); ++i) to << line << '\n';
    }
    if (std::rename(kTemporary, kLog) != 0) state.SkipWithError("not renamed");
    ::chmod(kLog, kMode);
  }
}

// The length of so many lines.
std::size_t length_of(const char* text, std::size_t size, int lines) {
  const char* end = text;
  while (lines-- > 0) {
    const void* const line_feed =
        std::memchr(end, '\n', size - static_cast<std::size_t>(end - text));
    if (line_feed == nullptr) return size;
    end = static_cast<const char*>(line_feed) + 1;
  }
  return static_cast<std::size_t>(end - text);
}

bool rewrite_log() {
  char text[8192];
  const int head = std::snprintf(text, sizeof text, "%d: %s %s\n", kCode, minute().data(), kText);
  char* const old = text + head;
  const int to = ::open(kTemporary, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode);
  const int from = ::open(kLog, O_RDONLY | O_CLOEXEC);
  const ssize_t size = ::read(from, old, sizeof text - static_cast<std::size_t>(head));
  const std::size_t all =
      static_cast<std::size_t>(head) + length_of(old, static_cast<std::size_t>(size), kKeptLines);
  const bool written = ::write(to, text, all) == static_cast<ssize_t>(all);
  ::close(from);
  ::close(to);
  return written && std::rename(kTemporary, kLog) == 0 && ::chmod(kLog, kMode) == 0;
}

void add_by_calls(State& state) {
  fill_log(state);
  sembuf lock = {0, -1, 0};
  sembuf unlock = {0, 1, 0};
  for (auto _ : state) {
    const int set = ::semget(::ftok("/etc/fstab", 'E'), 1, IPC_CREAT | 0666);
    if (::semctl(set, 0, SETVAL, 1) != 0 || ::semop(set, &lock, 1) != 0 || !rewrite_log() ||
        ::semop(set, &unlock, 1) != 0) {
      state.SkipWithError("not added");
    }
  }
}

}  // namespace

void add_log_rows() {
  compare("dwlog, full log", add,
          {peer("fstream rewrite", 1.1, add_by_streams),
           floor("semaphore, one read, one write, rename", 1.4, add_by_calls)});
}

}  // namespace bench::hardware
