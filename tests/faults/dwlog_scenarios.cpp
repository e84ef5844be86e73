// The persistent log.

#include <rkutils/dwlog.h>
#include <rkutils/internal/unique_fd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

using rkutils::internal::UniqueFd;

constexpr const char* kLog = "/var/log/dwlog";
constexpr const char* kTemporary = "/var/log/dwlog.tmp";
constexpr const char* kKeyFile = "/etc/fstab";

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

// Standard error, until the object's end.
class StandardError {
 public:
  StandardError() : file_(std::tmpfile()), previous_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
    check(file_ != nullptr && previous_, "a file for standard error");
    check(::dup2(::fileno(file_), STDERR_FILENO) == STDERR_FILENO, "dup2");
  }
  ~StandardError() {
    ::dup2(previous_.get(), STDERR_FILENO);
    std::fclose(file_);
  }
  StandardError(const StandardError&) = delete;
  StandardError& operator=(const StandardError&) = delete;

  // Its lines, each with a semicolon before it.
  [[nodiscard]] std::string lines() const {
    std::rewind(file_);
    std::string text;
    std::array<char, 256> line;
    while (std::fgets(line.data(), line.size(), file_) != nullptr) {
      text += "; " + std::string(line.data());
      text.pop_back();  // the line feed
    }
    return text;
  }

 private:
  std::FILE* const file_;
  const UniqueFd previous_;
};

int log_set() { return ::semget(::ftok(kKeyFile, 'E'), 0, 0); }
void remove_log_set() { ::semctl(log_set(), 0, IPC_RMID); }

// A log with one entry, and no semaphore yet.
struct Log {
  Log() {
    if (!std::filesystem::exists(kKeyFile)) support::put(kKeyFile, "");
    support::put(kLog, "1: 1999-12-31 23:59 old\n");
    check(::chmod(kLog, 0664) == 0, kLog);
    remove_log_set();
  }
  ~Log() { remove_log_set(); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  // How many entries there are, the mode where it is another than the documented one, and what was
  // reported.
  [[nodiscard]] std::string after() const {
    std::ifstream log(kLog);
    int entries = 0;
    for (std::string line; std::getline(log, line);) ++entries;
    struct stat status = {};
    check(::stat(kLog, &status) == 0, kLog);
    std::string text = std::to_string(entries) + (entries == 1 ? " entry" : " entries");
    if (std::filesystem::exists(kTemporary)) text += ", a temporary file";
    if ((status.st_mode & 07777U) != 0664) text += " of another mode";
    return text + standard_error.lines();
  }

  const Folder folder{"/var/log"};
  const StandardError standard_error;
};

// With the semaphore.
struct UsedLog : Log {
  UsedLog() { check(::semget(::ftok(kKeyFile, 'E'), 1, IPC_CREAT | 0666) >= 0, "semget"); }
};

struct ReadLog : UsedLog {
  [[nodiscard]] std::string after() const {
    return text_of(buffer.data()) + standard_error.lines();
  }

  std::array<char, 512> buffer = {"untouched"};
};

// A zone that is not looked up in files.
Scenario without_time_zone(Scenario of) {
  of.surroundings = [] {
    ::setenv("TZ", "UTC0", 1);
    return std::shared_ptr<void>();
  };
  return of;
}

}  // namespace

Scenarios persistent_log() {
  return {
      without_time_zone(scenario<UsedLog>("dwlog", [](UsedLog&) { return dwlog(7, "new"); })),
      without_time_zone(
          scenario<Log>("dwlog with a new semaphore", [](Log&) { return dwlog(7, "new"); })),
      scenario<UsedLog>("dwlog_clear", [](UsedLog&) { return dwlog_clear(); }),
      scenario<ReadLog>("dwlog_read",
                        [](ReadLog& it) { return dwlog_read(it.buffer.data(), it.buffer.size()); }),
  };
}

}  // namespace faults
