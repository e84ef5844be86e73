// Small files read whole.

#include <rkutils/file.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/text.h>

#include <cstddef>
#include <cstring>

#include <unistd.h>

const int32_t READFILE_OPEN_FAILED = -1;
const int32_t READFILE_OUT_OF_MEMORY = -10;

namespace {

using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

constexpr std::size_t kReadfileSize = 1024;

// A text that a file's bytes are appended to, as a loop of fgets() into what room is left does it:
// a NUL hides the rest of its line, or as much of it as there is room for, and the text goes on
// with what follows that.
class FileText {
 public:
  FileText(char* buffer, std::size_t size) : buffer_(buffer), limit_(size - 1) {}

  // Where the next bytes of the file are to be put, and how many at most: all but the
  // buffer's last, which is for a NUL.
  [[nodiscard]] char* end() const { return buffer_ + length_; }
  [[nodiscard]] std::size_t room() const { return limit_ - length_; }

  // Takes `count` bytes that have been put there.
  void take(std::size_t count) {
    const char* bytes = end();
    if (hidden_left_ == 0 && std::memchr(bytes, '\0', count) == nullptr) {
      length_ += count;
    } else {
      for (std::size_t i = 0; i < count; ++i) take_byte(bytes[i]);
    }
  }

 private:
  void take_byte(char byte) {
    if (hidden_left_ == 0) {
      if (byte != '\0') {
        buffer_[length_++] = byte;
        return;
      }
      hidden_left_ = room();
    }
    hidden_left_ = byte == '\n' ? 0 : hidden_left_ - 1;
  }

  char* const buffer_;
  const std::size_t limit_;
  std::size_t length_ = 0;
  std::size_t hidden_left_ = 0;  // how many bytes a NUL hides still, unless the line ends before
};

void read_text(const char* path, char* buffer, std::size_t size) {
  // Whether the real user may read it, which opening does not ask in a set-user-id program.
  if (::access(path, R_OK) != 0) return;
  const UniqueFd file = rkutils::file::open_to_read(path);
  if (!file) return;
  FileText text(buffer, size);
  while (text.room() > 0) {
    const ssize_t count = rkutils::file::read_some(file.get(), text.end(), text.room());
    if (count <= 0) break;
    text.take(static_cast<std::size_t>(count));
  }
  *text.end() = '\0';
}

}  // namespace

char* readfile_r(const char* path, char* buffer, size_t size) {
  if (buffer == nullptr || size == 0) return buffer;
  *buffer = '\0';
  if (path == nullptr) return buffer;
  const PostponedCancellation postponed;
  read_text(path, buffer, size);
  const char* const text = stripwhite(buffer);
  if (text != buffer) std::memmove(buffer, text, std::strlen(text) + 1);
  return buffer;
}

char* readfile(const char* path) {
  static char contents[kReadfileSize];
  return readfile_r(path, contents, sizeof contents);
}
