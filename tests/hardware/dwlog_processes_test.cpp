// Many processes that use the persistent log, and some that are killed at it.

#include <rkutils/export.h>
#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "dwlog_fixture.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/standard_output.h"
#include "support/stepped_process.h"
#include "support/stopwatch.h"

namespace {

// How long the medium takes for a file in this process.
useconds_t medium_delay_us = 0;

constexpr int kWriters = 10;
constexpr std::size_t kCapacity = 33;

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

// A process of its own, which ends with what `life` returns.
pid_t start(const std::function<int()>& life) {
  const pid_t process = ::fork();
  check(process >= 0, "fork");
  if (process == 0) ::_exit(life());
  return process;
}

int status_of(pid_t process, int options = 0) {
  int status = -1;
  while (::waitpid(process, &status, options) < 0) check(errno == EINTR, "waitpid");
  return status;
}

bool succeeds(pid_t process) { return status_of(process) == 0; }

// ---- Entries that tell who wrote them ----

// The longer texts take several writes, and would show where one is cut.
std::string text_of(int writer, int number) {
  return "writer " + std::to_string(writer) + " number " + std::to_string(number) + " " +
         std::string(static_cast<std::size_t>(50 + (writer * 37 + number * 11) % 400), 'x') + ".";
}

struct Entry {
  int writer = -1;
  int number = -1;
};

// The entries of the log's text; the test fails for a line that is not as it was written.
std::vector<Entry> entries_of(const std::string& text) {
  std::vector<Entry> entries;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    Entry entry;
    const int found =
        std::sscanf(line.c_str(), "%*d: %*s %*s writer %d number %d", &entry.writer, &entry.number);
    EXPECT_EQ(found, 2) << line;
    EXPECT_EQ(without_times(line),
              std::to_string(entry.writer) + ": TIME " + text_of(entry.writer, entry.number));
    entries.push_back(entry);
  }
  EXPECT_TRUE(text.empty() || text.back() == '\n') << text;
  return entries;
}

// Of each writer there is an unbroken row that ends with its newest, in this order.
void expect_nothing_lost(const std::vector<Entry>& entries) {
  std::map<int, int> last;
  for (const Entry& entry : entries) {
    const auto [place, is_newest] = last.emplace(entry.writer, entry.number);
    if (!is_newest) {
      EXPECT_EQ(entry.number, place->second - 1) << "of writer " << entry.writer;
      place->second = entry.number;
    }
  }
}

// Of each writer its newest.
std::map<int, int> newest_of(const std::vector<Entry>& entries) {
  std::map<int, int> newest;
  for (const Entry& entry : entries) newest.emplace(entry.writer, entry.number);
  return newest;
}

int add_entries(int writer, int first, int count) {
  for (int i = first; i < first + count; ++i) {
    if (dwlog(writer, text_of(writer, i).c_str()) != 0) return 1;
  }
  return 0;
}

// What reads the log as this library does, and as other programs do.
void look(std::size_t at_least) {
  EXPECT_GE(entries_of(contents_of(kLog)).size(), at_least);
  std::string buffer(40000, '#');
  EXPECT_EQ(dwlog_read(buffer.data(), buffer.size()), 0);
  EXPECT_GE(entries_of(buffer.substr(0, buffer.find('\0'))).size(), at_least);
}

class DwlogProcesses : public DwlogTest {};

TEST_F(DwlogProcesses, LoseAndTearNothing) {
  const int count = support::rounds(500);
  const std::string messages = support::standard_error_of([count] {
    ASSERT_EQ(add_entries(kWriters, 0, static_cast<int>(kCapacity)), 0);
    std::vector<pid_t> writers;
    writers.reserve(kWriters);
    for (int writer = 0; writer < kWriters; ++writer) {
      writers.push_back(start([writer, count] { return add_entries(writer, 0, count); }));
    }
    for (std::size_t ended = 0; ended < writers.size();) {
      look(kCapacity);
      expect_nothing_lost(entries_of(contents_of(kLog)));
      int status = 0;
      if (::waitpid(writers[ended], &status, WNOHANG) == 0) continue;
      EXPECT_EQ(status, 0);
      ++ended;
    }
  });
  EXPECT_EQ(messages, "");
  const std::vector<Entry> entries = entries_of(contents_of(kLog));
  EXPECT_EQ(entries.size(), kCapacity);
  expect_nothing_lost(entries);
  for (const auto& [writer, number] : newest_of(entries)) {
    EXPECT_EQ(number, count - 1) << "of writer " << writer;
  }
}

// On a medium that takes its time, those who look for their turn now and then must find it, though
// others are back at once.
TEST_F(DwlogProcesses, WaitForNobodyWhoComesAgainAndAgain) {
  using Counts = std::array<std::atomic<int>, kWriters>;
  constexpr int kEntries = 30;
  void* const memory =
      ::mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  check(memory != MAP_FAILED, "mmap");
  Counts& added = *new (memory) Counts();

  const auto write = [&](std::size_t writer) {
    medium_delay_us = 2000;
    for (int i = 0; i < kEntries; ++i) {
      if (dwlog(static_cast<int>(writer), "text") == 0) ++added[writer];
    }
    const bool has_all = added[writer] == kEntries;
    const bool others_have_some =
        std::all_of(added.begin(), added.end(), [](int count) { return count > 0; });
    return has_all && others_have_some ? 0 : 1;
  };
  std::vector<pid_t> writers;
  writers.reserve(kWriters);
  for (std::size_t writer = 0; writer < kWriters; ++writer) {
    writers.push_back(start([&, writer] { return write(writer); }));
  }
  for (const pid_t process : writers) EXPECT_TRUE(succeeds(process));
  ::munmap(memory, sizeof(Counts));
}

TEST_F(DwlogProcesses, ClearInBetween) {
  const int count = support::rounds(200);
  ASSERT_EQ(dwlog_clear(), 0);  // there is a log from the first look on
  const std::string messages = support::standard_error_of([count] {
    std::vector<pid_t> processes;
    processes.reserve(5);
    for (int writer = 0; writer < 4; ++writer) {
      processes.push_back(start([writer, count] { return add_entries(writer, 0, count); }));
    }
    processes.push_back(start([count] {
      for (int i = 0; i < count; ++i) {
        if (dwlog_clear() != 0) return 1;
      }
      return 0;
    }));
    for (const pid_t process : processes) {
      look(0);
      EXPECT_TRUE(succeeds(process));
    }
  });
  EXPECT_EQ(messages, "");
  expect_nothing_lost(entries_of(contents_of(kLog)));
}

// ---- Killed ----

// Calls `dying` in a process that is killed at one of its stops after the other, while another one
// adds an entry, which may wait for it. Returns the number of stops.
int kill_everywhere(int (*dying)(), const std::function<void()>& prepare,
                    const std::function<void()>& expect) {
  for (int stop = 1;; ++stop) {
    SCOPED_TRACE("stop " + std::to_string(stop));
    prepare();
    support::SteppedProcess victim(dying);
    const bool killed = victim.go_on(stop);
    const pid_t waiting = start([] { return dwlog(2, "waiting") == 0 ? 0 : 1; });
    victim.kill();
    EXPECT_TRUE(succeeds(waiting));
    EXPECT_FALSE(exists(kTemporary));
    EXPECT_EQ(dwlog(3, "after"), 0);
    expect();
    if (!killed) return stop;
  }
}

class DwlogKilled : public DwlogProcesses {
 protected:
  static void prepare() { support::put(kLog, old_entries(40, 8)); }

  static std::string old() { return without_times(old_entries(40, 8)); }

  // The newest `count` lines.
  static std::string newest(const std::string& text, int count) {
    std::size_t end = 0;
    while (count-- > 0 && end < text.size()) end = text.find('\n', end) + 1;
    return text.substr(0, end);
  }
};

TEST_F(DwlogKilled, AtAnyPointOfAnAddition) {
  bool was_old = false;
  bool was_new = false;
  const std::string messages = support::standard_error_of([&] {
    const int stops = kill_everywhere(
        [] { return dwlog(4, "dying"); }, prepare,
        [&] {
          const std::string text = log_text();
          const std::string with_others = "3: TIME after\n2: TIME waiting\n";
          const bool is_old = text == newest(with_others + old(), kCapacity);
          // The other one may have come first.
          const bool is_new =
              text == newest(with_others + "4: TIME dying\n" + old(), kCapacity) ||
              text == newest("3: TIME after\n4: TIME dying\n2: TIME waiting\n" + old(), kCapacity);
          EXPECT_TRUE(is_old || is_new) << text;
          was_old = was_old || is_old;
          was_new = was_new || is_new;
        });
    EXPECT_GT(stops, 20);
  });
  EXPECT_EQ(messages, "");
  EXPECT_TRUE(was_old && was_new);
}

TEST_F(DwlogKilled, AtAnyPointOfClearing) {
  const std::string messages = support::standard_error_of([] {
    kill_everywhere(dwlog_clear, prepare, [] {
      const std::string with_others = "3: TIME after\n2: TIME waiting\n";
      EXPECT_THAT(log_text(), testing::AnyOf(newest(with_others + old(), kCapacity), with_others,
                                             "3: TIME after\n"));
    });
  });
  EXPECT_EQ(messages, "");
}

TEST_F(DwlogKilled, AtAnyPointOfReading) {
  const std::string messages = support::standard_error_of([] {
    kill_everywhere(
        [] {
          static char buffer[5000];
          return dwlog_read(buffer, sizeof buffer);
        },
        prepare,
        [] {
          EXPECT_EQ(log_text(), newest("3: TIME after\n2: TIME waiting\n" + old(), kCapacity));
        });
  });
  EXPECT_EQ(messages, "");
}

// With nobody else there, so that it is seen what the dead has left: to the byte.
class DwlogKilledAlone : public DwlogKilled {
 protected:
  // Calls `dying` in a process that is killed at one of its stops after the other, each time with
  // what `prepare` makes, and looks at what is left; then adds an entry, which must not have to wait
  // for the dead.
  static void kill_everywhere(int (*dying)(), const std::function<void()>& prepare,
                              const std::function<void()>& expect) {
    constexpr int kNoWaitMs = 5000;  // its turn would be waited for twice as long
    bool killed = true;
    for (int stop = 0; killed; ++stop) {
      SCOPED_TRACE("stop " + std::to_string(stop));
      std::filesystem::remove_all(kFolder);
      std::filesystem::create_directory(kFolder);
      remove_log_set();
      prepare();
      support::SteppedProcess victim(dying);
      killed = victim.go_on(stop);
      victim.kill();
      expect();
      EXPECT_THAT(files(), testing::IsSubsetOf({"dwlog", "dwlog.tmp"}));
      EXPECT_TRUE(is_turn_free());
      const std::string before = exists(kLog) ? contents_of(kLog) : "";
      const support::Stopwatch stopwatch;
      EXPECT_EQ(dwlog(3, "after"), 0);
      EXPECT_LT(stopwatch.elapsed().count(), kNoWaitMs);
      EXPECT_EQ(without_times(first_line()), "3: TIME after\n");
      EXPECT_EQ(rest(), newest(before, kCapacity - 1));
      EXPECT_THAT(files(), testing::ElementsAre("dwlog"));
      EXPECT_EQ(mode_of(kLog), 0664U);
      EXPECT_EQ(log_value(), 1);
    }
  }

  static std::string first_line() { return newest(contents_of(kLog), 1); }
  static std::string rest() { return contents_of(kLog).substr(first_line().size()); }

 private:
  static std::vector<std::string> files() {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(kFolder)) {
      names.push_back(file.path().filename());
    }
    return names;
  }

  static bool is_turn_free() {
    const rkutils::internal::UniqueFd folder(::open(kFolder, O_RDONLY | O_CLOEXEC));
    return ::flock(folder.get(), LOCK_EX | LOCK_NB) == 0;
  }
};

TEST_F(DwlogKilledAlone, LeavesTheOldLogOrTheNewOne) {
  const std::string old = old_entries(40, 8);
  bool is_new = false;
  int outcomes = 0;
  kill_everywhere([] { return dwlog(4, "dying"); },
                  [&] {
                    support::put(kLog, old);
                    // What an earlier one has left, who was killed as well.
                    support::put(kTemporary, "half of a l");
                  },
                  [&] {
                    const bool was_new = is_new;
                    is_new = contents_of(kLog) != old;
                    if (is_new) {
                      EXPECT_EQ(without_times(first_line()), "4: TIME dying\n");
                      EXPECT_EQ(rest(), newest(old, kCapacity - 1));
                      EXPECT_EQ(mode_of(kLog), 0664U);
                    }
                    EXPECT_TRUE(is_new || !was_new)
                        << "there is one moment at which it is replaced";
                    outcomes |= is_new ? 2 : 1;
                  });
  EXPECT_EQ(outcomes, 3);
}

TEST_F(DwlogKilledAlone, LeavesNoLogOrTheFirstEntry) {
  int outcomes = 0;
  kill_everywhere([] { return dwlog(4, "dying"); }, [] {},
                  [&] {
                    const bool is_there = exists(kLog);
                    if (is_there) {
                      EXPECT_EQ(log_text(), "4: TIME dying\n");
                    }
                    outcomes |= is_there ? 2 : 1;
                  });
  EXPECT_EQ(outcomes, 3);
}

TEST_F(DwlogKilledAlone, LeavesTheOldLogOrAnEmptyOne) {
  const std::string old = old_entries(40, 8);
  int outcomes = 0;
  kill_everywhere(
      dwlog_clear, [&] { support::put(kLog, old); },
      [&] {
        const std::string text = contents_of(kLog);
        EXPECT_THAT(text, testing::AnyOf(old, ""));
        outcomes |= text == old ? 1 : 2;
      });
  EXPECT_EQ(outcomes, 3);
}

TEST_F(DwlogKilledAlone, LeavesTheLogThatItReads) {
  const std::string old = old_entries(40, 8);
  kill_everywhere(
      [] {
        static char buffer[5000];
        return dwlog_read(buffer, sizeof buffer);
      },
      [&] { support::put(kLog, old); }, [&] { EXPECT_EQ(contents_of(kLog), old); });
}

// Ten at work, of which one after the other is killed and goes on where it was.
TEST_F(DwlogKilled, AmongOthers) {
  const int kills = support::rounds(300);
  const std::string messages = support::standard_error_of([kills] {
    ASSERT_EQ(add_entries(kWriters, 0, static_cast<int>(kCapacity)), 0);
    const auto write_on = [](int writer) { return add_entries(writer, 0, 1000000); };
    std::vector<pid_t> writers;
    writers.reserve(kWriters);
    for (int writer = 0; writer < kWriters; ++writer) {
      writers.push_back(start([=] { return write_on(writer); }));
    }
    std::minstd_rand random(4711);
    for (int i = 0; i < kills; ++i) {
      const auto writer = static_cast<int>(random() % kWriters);
      pid_t& process = writers[static_cast<std::size_t>(writer)];
      ::usleep(static_cast<useconds_t>(random() % 2000));
      ::kill(process, SIGKILL);
      EXPECT_EQ(WTERMSIG(status_of(process)), SIGKILL);
      look(kCapacity);
      process = start([=] { return write_on(writer); });
    }
    for (const pid_t process : writers) {
      ::kill(process, SIGKILL);
      status_of(process);
    }
    EXPECT_EQ(add_entries(kWriters, 1, 1), 0);
  });
  EXPECT_EQ(messages, "");
  EXPECT_EQ(entries_of(contents_of(kLog)).size(), kCapacity);
}

}  // namespace

// Stands before the C library's.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" RK_API int fsync(int file) {
  if (medium_delay_us > 0) ::usleep(medium_delay_us);
  return static_cast<int>(::syscall(SYS_fsync, file));
}
