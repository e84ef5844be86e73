// The list of processes.

#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_dir.h>
#include <rkutils/process_control.h>
#include <rkutils/processes/table/process_file.h>
#include <rkutils/processes/table/process_text.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include <dirent.h>

using rkutils::internal::next_entry;
using rkutils::internal::open_directory;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueDir;
using rkutils::processes::join_arguments;
using rkutils::processes::kCommandLine;
using rkutils::processes::read_process_file;
using rkutils::processes::to_process_id;

namespace {

constexpr std::size_t kNameSize = 256;

bool begins_with(const ProcessEntry& entry, const char* beginning) {
  return beginning == nullptr ||
         std::strncmp(entry.getName(), beginning, std::strlen(beginning)) == 0;
}

// ---- Lists ----

ProcessEntry* last_of(ProcessEntry* entry) {
  while (entry != nullptr && entry->getNext() != nullptr) entry = entry->getNext();
  return entry;
}

// Returns how many there were.
int delete_invalid(ProcessEntry*& first) {
  int count = 0;
  ProcessEntry* before = nullptr;
  for (ProcessEntry* entry = first; entry != nullptr;) {
    ProcessEntry* const next = entry->getNext();
    if (entry->isValid()) {
      before = entry;
    } else {
      if (before != nullptr) {
        before->setNext(next);
      } else {
        first = next;
      }
      delete entry;
      ++count;
    }
    entry = next;
  }
  return count;
}

// The entries from `first` to `last`, asked for ids in about the order that they have: that of
// /proc, but for processes that have come after the ids began anew.
class Known {
 public:
  Known(ProcessEntry* first, const ProcessEntry* last)
      : first_(first), last_(last), likely_(first) {}

  // NULL where there is none.
  ProcessEntry* find(int pid) {
    ProcessEntry* entry = likely_;
    if (entry == nullptr) return nullptr;
    do {
      ProcessEntry* const next = entry == last_ ? first_ : entry->getNext();
      if (entry->getPid() == pid) {
        likely_ = next;
        return entry;
      }
      entry = next;
    } while (entry != likely_);
    return nullptr;
  }

 private:
  ProcessEntry* const first_;
  const ProcessEntry* const last_;
  ProcessEntry* likely_;  // where the next one is
};

// ---- Processes ----

// Its command line, or its id where it has none. Nothing when it is gone.
class Name {
 public:
  // `digits` are the name of its folder.
  static std::optional<Name> of(int pid, const char* digits) noexcept {
    Name name;
    const std::optional<std::size_t> length =
        read_process_file(pid, kCommandLine, name.text_, sizeof name.text_);
    if (!length) return std::nullopt;
    name.is_command_line_ = *length > 0;
    if (name.is_command_line_) {
      join_arguments(name.text_, *length);
    } else {
      constexpr int kMostDigits = kNameSize - sizeof "[]";
      std::snprintf(name.text_, sizeof name.text_, "[%.*s]", kMostDigits, digits);
    }
    return name;
  }

  [[nodiscard]] const char* get() const noexcept { return text_; }
  [[nodiscard]] bool is_command_line() const noexcept { return is_command_line_; }

 private:
  Name() = default;

  char text_[kNameSize];
  bool is_command_line_;
};

}  // namespace

ProcessControl::ProcessControl() : first_(nullptr), number_of_processes_(0) {}

ProcessControl::~ProcessControl() { ProcessControl::cleanup(); }

void ProcessControl::refresh(bool update) {
  if (update) {
    for (ProcessEntry* entry = first_; entry != nullptr; entry = entry->getNext()) {
      entry->setValid(false);
    }
  } else {
    cleanup();
  }
  const PostponedCancellation postponed;
  const UniqueDir processes = open_directory("/proc");
  if (!processes) return;

  ProcessEntry* last = last_of(first_);
  Known known(update ? first_ : nullptr, last);
  while (const dirent* const found = next_entry(processes.get())) {
    if (found->d_type != DT_DIR || !isNumeric(found->d_name)) continue;
    const std::optional<int> pid = to_process_id(found->d_name);
    if (!pid) continue;
    if (ProcessEntry* const entry = known.find(*pid)) {
      entry->setValid(true);
      continue;
    }
    const std::optional<Name> name = Name::of(*pid, found->d_name);
    if (!name) continue;
    auto* const entry = new ProcessEntry(*pid, name->get());
    if (last != nullptr) {
      last->setNext(entry);
    } else {
      first_ = entry;
    }
    last = entry;
    if (name->is_command_line()) ++number_of_processes_;
  }
  if (update) number_of_processes_ -= delete_invalid(first_);
}

ProcessEntry* ProcessControl::getNextProcessEntryByName(const char* name,
                                                        const ProcessEntry* after) const {
  ProcessEntry* entry = first_;
  if (after != nullptr) {
    while (entry != nullptr && entry != after) entry = entry->getNext();
    if (entry != nullptr) entry = entry->getNext();
  }
  while (entry != nullptr && !begins_with(*entry, name)) entry = entry->getNext();
  return entry;
}

int ProcessControl::getNumberOfProcessesByName(const char* name) const {
  int count = 0;
  for (const ProcessEntry* entry = first_; entry != nullptr; entry = entry->getNext()) {
    if (begins_with(*entry, name)) ++count;
  }
  return count;
}

ProcessEntry* ProcessControl::getProcessEntryByPid(int pid) {
  ProcessEntry* entry = first_;
  while (entry != nullptr && entry->getPid() != pid) entry = entry->getNext();
  return entry;
}

int ProcessControl::getNumberOfProcesses() const { return number_of_processes_; }

void ProcessControl::cleanup() {
  while (first_ != nullptr) delete std::exchange(first_, first_->getNext());
  number_of_processes_ = 0;
}

// A member, though it needs no object, since programs call it so.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
bool ProcessControl::isNumeric(const char* text) const {
  if (text == nullptr) return false;
  while (*text >= '0' && *text <= '9') ++text;
  return *text == '\0';
}
