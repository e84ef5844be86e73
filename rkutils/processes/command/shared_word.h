// The word of shared memory in which a detached program's id comes back.
#ifndef RKUTILS_PROCESSES_COMMAND_SHARED_WORD_H
#define RKUTILS_PROCESSES_COMMAND_SHARED_WORD_H

#include <cstdint>

namespace rkutils::processes {

// A number that this process shares with its children. There is one at a time for all processes
// that work in the same folder, which therefore start detached programs one after the other.
class SharedWord {
 public:
  SharedWord() noexcept = default;
  ~SharedWord();
  SharedWord(const SharedWord&) = delete;
  SharedWord& operator=(const SharedWord&) = delete;

  // Creates it. While another process has it, tries for a second, with a message each time; then
  // once more if nobody can have it any longer, because its creator was killed. False, after
  // messages, when it cannot be had; nothing is left of it then.
  [[nodiscard]] bool create() noexcept;

  // Lets the next process have it; the number stays.
  void remove() noexcept;

  // Keeps it from processes that are forked from now on.
  void keep_from_children() noexcept;

  [[nodiscard]] std::int32_t get() const noexcept { return *word_; }
  void set(std::int32_t value) noexcept { *word_ = value; }

 private:
  bool attach() noexcept;

  static constexpr int kNone = -1;
  int segment_ = kNone;
  std::int32_t* word_ = nullptr;
};

}  // namespace rkutils::processes

#endif
