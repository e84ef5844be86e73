// The table of processes, with processes of the test's alone.

#include <rkutils/process_control.h>

#include <memory>
#include <optional>

#include <unistd.h>

#include "families.h"
#include "support/kernel_folder.h"

namespace faults {
namespace {

// Ids that the kernel does not give.
constexpr int kFirst = 5000001;
constexpr int kSecond = 5000002;

// Two processes; and this one's parent is a shell, whose parent is the first of them.
std::shared_ptr<void> invented_processes() {
  auto proc = std::make_shared<support::KernelFolder>("/proc");
  const auto add = [&](int id, const std::string& name, const std::string& command_line,
                       int parent) {
    const std::string folder = std::to_string(id);
    proc->put(folder + "/comm", name + "\n");
    proc->put(folder + "/cmdline", command_line);
    proc->put(folder + "/stat",
              folder + " (" + name + ") S " + std::to_string(parent) + " 0 0 0\n");
  };
  add(::getppid(), "sh", std::string("sh\0", 3), kFirst);
  add(kFirst, "watchdog", std::string("watchdog\0-t\0", 12), 1);
  add(kSecond, "ntpd", std::string("ntpd\0", 5), 1);
  return proc;
}

struct Caller {
  // The name, with the parent's id as a word.
  [[nodiscard]] std::string after() const {
    const std::string name = buffer;
    return '"' + (name == "pid" + std::to_string(::getppid()) ? "pid of the parent" : name) + '"';
  }

  char buffer[32] = "untouched";
};

struct Table {
  // How many there are, how many of them have a command line, and how many of them are valid.
  [[nodiscard]] std::string after() const {
    int count = 0;
    int valid = 0;
    ProcessEntry* entry = nullptr;
    while ((entry = processes.getNextProcessEntryByName(nullptr, entry)) != nullptr) {
      ++count;
      if (entry->isValid()) ++valid;
    }
    return std::to_string(count) + " processes, " +
           std::to_string(processes.getNumberOfProcesses()) + " counted, " + std::to_string(valid) +
           " valid";
  }

  ProcessControl processes;
};

struct Entry {
  [[nodiscard]] std::string after() const { return entry ? entry->getName() : "none"; }

  std::optional<ProcessEntry> entry;
};

struct FilledTable : Table {
  FilledTable() { processes.refresh(false); }
};

}  // namespace

Scenarios process_table() {
  Scenarios all = {
      scenario<Nothing>("pid_alive", [](Nothing&) { return pid_alive(kFirst); }),
      scenario<Nothing>("get_parent_pid", [](Nothing&) { return get_parent_pid(::getppid()); }),
      scenario<Nothing>("procname", [](Nothing&) { return procname(kFirst); }),
      scenario<Caller>("get_caller",
                       [](Caller& it) { return get_caller(it.buffer, sizeof it.buffer); }),
      scenario<Entry>("ProcessEntry::ProcessEntry",
                      [](Entry& it) {
                        it.entry.emplace(kFirst, "watchdog -t");
                        return Word{"made"};
                      }),
      scenario<Table>("ProcessControl::refresh",
                      [](Table& it) {
                        it.processes.refresh(false);
                        return Word{"done"};
                      }),
      scenario<FilledTable>("ProcessControl::refresh of a list",
                            [](FilledTable& it) {
                              it.processes.refresh(true);
                              return Word{"done"};
                            }),
  };
  for (Scenario& each : all) each.surroundings = invented_processes;
  return all;
}

}  // namespace faults
