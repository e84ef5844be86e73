// What the tests of the process table share: processes to be found, and entries of /proc that the
// kernel would not make.
#ifndef TESTS_PROCESSES_PROCESS_FIXTURE_H
#define TESTS_PROCESSES_PROCESS_FIXTURE_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/types.h>

#include "support/kernel_folder.h"
#include "support/syslog_collector.h"

// A process that sleeps until the object ends.
class Sleeper {
 public:
  // One with these arguments, the first of which is its name.
  explicit Sleeper(std::vector<std::string> arguments);
  ~Sleeper() { remove(); }
  Sleeper(Sleeper&& other) noexcept;
  Sleeper& operator=(Sleeper&&) = delete;
  Sleeper(const Sleeper&) = delete;
  Sleeper& operator=(const Sleeper&) = delete;

  [[nodiscard]] pid_t id() const { return id_; }

  // Ends it, and does not wait for it: it has no command line from then on, but is there.
  void end() const;
  // Ends it, if it is there still, and lets it be forgotten.
  void remove();

 private:
  pid_t id_;
};

// Processes that there are none of, as folders over /proc. What the kernel has there are links
// meanwhile, and no folders.
class InventedProcesses {
 public:
  // Ids that the kernel does not give.
  static constexpr int kFirst = 5000001;

  InventedProcesses() : proc_("/proc") {}

  // With this command line, NULs and all.
  void add(int id, const std::string& command_line) const { add(std::to_string(id), command_line); }
  void add(const std::string& folder, const std::string& command_line) const;
  void remove(int id) const;

  [[nodiscard]] const support::KernelFolder& folder() const { return proc_; }

 private:
  const support::KernelFolder proc_;
};

// The ids of the processes, in the order in which /proc lists them.
std::vector<int> listed_processes();

// The whole command line of a process, NULs and all; nothing where there is no such process.
std::optional<std::string> command_line_of(int id);

// What follows is done in a process that has this name to the kernel.
void be_named(const std::string& name);

// Calls `action` in a process that is the last of a chain, under others with these names, the first
// of which is a child of this one. Returns what it returned.
std::string called_below(std::vector<std::string> names,
                         const std::function<std::string()>& action);

// At the end no message may be in the log, and no descriptor may be left.
class ProcessTest : public testing::Test {
 protected:
  ProcessTest();
  void TearDown() override;

 private:
  support::SyslogCollector log_;
  std::map<int, std::string> descriptors_before_;
};

#endif
