#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include <sys/types.h>

namespace rkutils::file {

using internal::UniqueFd;

LineSource::LineSource(UniqueFd file, std::size_t piece_length) noexcept
    : file_(std::move(file)), piece_length_(piece_length) {
  *filled_ = '\0';
}

char* LineSource::next() noexcept {
  *unread_ = behind_piece_;
  std::size_t searched = 0;
  for (;;) {
    const std::size_t available =
        std::min(static_cast<std::size_t>(filled_ - unread_), piece_length_);
    const void* const line_feed = std::memchr(unread_ + searched, '\n', available - searched);
    if (line_feed != nullptr) {
      return hand_out(static_cast<std::size_t>(static_cast<const char*>(line_feed) - unread_) + 1);
    }
    if (available == piece_length_) return hand_out(piece_length_);
    searched = available;
    if (!fill()) return hand_out(static_cast<std::size_t>(filled_ - unread_));
  }
}

char* LineSource::next_line() noexcept {
  while (within_line_) {
    if (next() == nullptr) return nullptr;
  }
  return next();
}

// Reads more behind what is unread, which moves to the buffer's front.
bool LineSource::fill() noexcept {
  if (at_end_) return false;
  const auto kept = static_cast<std::size_t>(filled_ - unread_);
  std::memmove(buffer_, unread_, kept);
  unread_ = buffer_;
  filled_ = buffer_ + kept;
  const ssize_t count = read_some(file_.get(), filled_, kBufferSize - kept);
  at_end_ = count <= 0;
  // The part of a line that was read before a failure is no line.
  if (count < 0) filled_ = buffer_;
  if (count > 0) filled_ += count;
  *filled_ = '\0';
  return count > 0;
}

char* LineSource::hand_out(std::size_t length) noexcept {
  char* const piece = unread_;
  unread_ += length;
  within_line_ = length > 0 && unread_[-1] != '\n';
  behind_piece_ = *unread_;
  *unread_ = '\0';
  return length > 0 ? piece : nullptr;
}

}  // namespace rkutils::file
