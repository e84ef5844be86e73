// What is kept of a command's output.
#ifndef RKUTILS_PROCESSES_COMMAND_OUTPUT_H
#define RKUTILS_PROCESSES_COMMAND_OUTPUT_H

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rkutils::processes {

// Text appended piece by piece to a buffer, where it is cut, and counted beyond that. One byte of
// the buffer besides the NUL's stays unused, which callers know: it holds size - 2 characters.
class Output {
 public:
  // `size` is 1 at least.
  Output(char* buffer, std::size_t size) noexcept : buffer_(buffer), room_(size - 1) {
    *buffer = '\0';
  }

  void append(const char* text) noexcept {
    const std::size_t length = std::strlen(text);
    if (length_ < room_) {
      const std::size_t kept = std::min(length, room_ - length_ - 1);
      std::memcpy(buffer_ + length_, text, kept);
      buffer_[length_ + kept] = '\0';
    }
    length_ += std::min(length, SIZE_MAX - length_);
  }

  // Of all that was appended, what the buffer has no room for as well; INT_MAX when it is more.
  [[nodiscard]] int length() const noexcept {
    return static_cast<int>(std::min(length_, static_cast<std::size_t>(INT_MAX)));
  }

 private:
  char* const buffer_;
  const std::size_t room_;  // with the NUL
  std::size_t length_ = 0;
};

}  // namespace rkutils::processes

#endif
