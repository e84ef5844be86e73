// One process of a list.

#include <rkutils/process_control.h>

#include <cstddef>
#include <cstring>

ProcessEntry::ProcessEntry(int pid, const char* name)
    : pid_(pid), name_(nullptr), next_(nullptr), valid_(true) {
  if (name == nullptr) name = "";
  const std::size_t size = std::strlen(name) + 1;
  name_ = new char[size];
  std::memcpy(name_, name, size);
}

ProcessEntry::~ProcessEntry() { delete[] name_; }

int ProcessEntry::getPid() const { return pid_; }

const char* ProcessEntry::getName() const { return name_; }

ProcessEntry* ProcessEntry::getNext() const { return next_; }

void ProcessEntry::setNext(ProcessEntry* next) { next_ = next; }

void ProcessEntry::setValid(bool valid) { valid_ = valid; }

// Programs call it as it is declared, not const.
// NOLINTNEXTLINE(readability-make-member-function-const)
bool ProcessEntry::isValid() { return valid_; }
