// What /proc tells of processes.

#include <rkutils/process_control.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "support/kernel_folder.h"
#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

// A process with the files that are read.
class Process {
 public:
  Process(const support::KernelFolder& proc, int id)
      : id_(id),
        command_line_(proc, std::to_string(id) + "/cmdline"),
        status_(proc, std::to_string(id) + "/stat"),
        name_(proc, std::to_string(id) + "/comm") {}

  void put(const std::string& command_line, const std::string& status, const std::string& name) {
    command_line_.put(command_line);
    status_.put(status);
    name_.put(name);
    command_line_text_ = command_line;
    status_text_ = status;
    name_text_ = name;
  }

  [[nodiscard]] int id() const { return id_; }

  // What a list calls it.
  [[nodiscard]] std::string listed_name() const {
    constexpr std::size_t kLongest = 255;
    std::string name = command_line_text_.substr(0, kLongest);
    if (name.empty()) return "[" + std::to_string(id_) + "]";
    std::replace(name.begin(), name.end(), '\0', ' ');
    if (name.back() == ' ') name.pop_back();
    return name;
  }

  [[nodiscard]] bool has_command_line() const { return !command_line_text_.empty(); }

  // Its first argument.
  [[nodiscard]] std::string argument() const {
    constexpr std::size_t kLongest = 255;
    const std::string name = fuzz::text_of(command_line_text_.substr(0, kLongest));
    return name.substr(0, 2) == "sh" ? name.substr(2) : name;
  }

  [[nodiscard]] int parent() const {
    constexpr std::size_t kLongest = 254;
    constexpr std::size_t kWord = 3;
    std::string text = fuzz::text_of(status_text_.substr(0, kLongest));
    text = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
    std::vector<std::string> words(1);
    for (const char byte : text) {
      if (byte != ' ') words.back() += byte;
      if (byte == ' ' && !words.back().empty()) words.emplace_back();
    }
    if (words.size() <= kWord || words[kWord].empty()) return -1;
    const long long number = std::strtoll(words[kWord].c_str(), nullptr, 10);
    return static_cast<int>(std::clamp<long long>(number, INT_MIN, INT_MAX));
  }

  [[nodiscard]] std::string short_name() const {
    constexpr std::size_t kLongest = 127;
    return fuzz::stripped(fuzz::text_of(name_text_.substr(0, kLongest)), " \t\r\n");
  }

 private:
  const int id_;
  fuzz::InputFile command_line_;
  fuzz::InputFile status_;
  fuzz::InputFile name_;
  std::string command_line_text_;
  std::string status_text_;
  std::string name_text_;
};

// A /proc with the parent of this program and two more.
class Processes {
 public:
  Processes() : proc_("/proc") {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      if (std::strspn(entry.path().filename().c_str(), "0123456789") > 0) {
        std::filesystem::remove(entry.path());
      }
    }
    for (const int id : {static_cast<int>(::getppid()), 4242, 4243}) all_.emplace_back(proc_, id);
  }

  std::vector<Process>& all() { return all_; }

  [[nodiscard]] const Process* find(int id) const {
    const auto found = std::find_if(all_.begin(), all_.end(),
                                    [id](const Process& process) { return process.id() == id; });
    return found == all_.end() ? nullptr : &*found;
  }

  // Whose name get_caller() gives; nothing where it gives none.
  [[nodiscard]] std::optional<std::string> caller() const {
    constexpr int kGenerations = 3;
    const Process* process = &all_[0];
    for (int i = 0; i < kGenerations && process != nullptr; ++i) {
      const std::string name = process->short_name();
      if (!name.empty() && name != "sh") return name;
      const int parent = process->parent();
      if (parent < 2) return "pid" + std::to_string(process->id());
      process = find(parent);
    }
    return std::nullopt;
  }

 private:
  const support::KernelFolder proc_;
  std::vector<Process> all_;
};

void put_input(Input& input, Processes& processes) {
  for (Process& process : processes.all()) {
    std::string command_line = input.until('\n');
    std::replace(command_line.begin(), command_line.end(), '|', '\0');
    const std::string status = input.until('\x1c');
    process.put(command_line, status, input.until('\x1c'));
  }
}

void check_single(const Processes& processes, const Process& process) {
  expect_equal(pid_alive(process.id()), 1, "whether it is alive");
  expect_equal(get_parent_pid(process.id()), process.parent(), "its parent");
  expect_equal(std::string(procname(process.id())), process.argument(), "its first argument");
  const bool has_parent = processes.find(process.parent()) != nullptr;
  expect_equal(pid_alive(process.parent()), has_parent ? 1 : 0, "whether its parent is alive");
}

void check_caller(const Processes& processes, std::size_t size) {
  std::vector<char> buffer(size, '?');
  buffer.shrink_to_fit();
  const std::optional<std::string> caller = size < 2 ? std::nullopt : processes.caller();
  expect_equal(get_caller(buffer.data(), size), caller ? 0 : -1, "the result about the caller");
  std::string expected = caller.value_or("").substr(0, size == 0 ? 0 : size - 1);
  expected.resize(size, size < 2 ? '?' : '\0');
  expect_equal(std::string(buffer.begin(), buffer.end()), expected, "the caller");
}

void check_list(ProcessControl& list, const std::map<int, std::string>& names,
                const std::string& beginning) {
  int begin_so = 0;
  for (const auto& [id, name] : names) {
    const ProcessEntry* const entry = list.getProcessEntryByPid(id);
    expect(entry != nullptr, "a process is listed");
    expect_equal(std::string(entry->getName()), name, "its name");
    if (name.substr(0, beginning.size()) == beginning) ++begin_so;
  }
  expect_equal(list.getNumberOfProcessesByName(nullptr), static_cast<int>(names.size()),
               "the number of entries");
  expect_equal(list.getNumberOfProcessesByName(beginning.c_str()), begin_so,
               "the number of those whose names begin so");
  const ProcessEntry* entry = nullptr;
  while ((entry = list.getNextProcessEntryByName(beginning.c_str(), entry)) != nullptr) --begin_so;
  expect_equal(begin_so, 0, "the number of those not found");
}

}  // namespace

// For each of three processes its arguments, with "|" for their ends and a newline behind them, and then
// its status and its name, each with a file separator, 0x1c, behind it. Then the size of a buffer, and how
// names are to begin.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Processes processes;
  Input input(data, size);
  put_input(input, processes);
  const std::size_t buffer_size = input.below(130);
  const std::string beginning = fuzz::text_of(input.rest());

  const fuzz::NothingLeftOpen nothing_left_open;
  std::map<int, std::string> names;
  int with_command_line = 0;
  for (const Process& process : processes.all()) {
    check_single(processes, process);
    names.emplace(process.id(), process.listed_name());
    if (process.has_command_line()) ++with_command_line;
  }
  check_caller(processes, buffer_size);
  ProcessControl list;
  list.refresh(false);
  check_list(list, names, beginning);
  expect_equal(list.getNumberOfProcesses(), with_command_line, "the number of processes");
  for (Process& process : processes.all()) process.put("another", "", "");
  list.refresh(true);  // which leaves names as they are
  check_list(list, names, beginning);
  return 0;
}
