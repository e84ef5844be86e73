// The texts exchanged with the configuration daemon: building requests and reading replies, without
// any socket.
#ifndef RKUTILS_CONFIGURATION_CONFIGD_PROTOCOL_H
#define RKUTILS_CONFIGURATION_CONFIGD_PROTOCOL_H

#include <rkutils/configd.h>

#include <cstddef>

namespace rkutils::configd {

// Room for any request, and for any reply and a NUL.
inline constexpr std::size_t kExchangeSize = 16384;
// Replies to assignments and to the end of changes are received into one byte less.
inline constexpr std::size_t kShortReplySize = kExchangeSize - 1;

// "?", a key of up to 255 characters, a newline and a NUL.
inline constexpr std::size_t kQueryRequestSize = sizeof(configd_query::key) + 2;

// Writes the request for the value of `key` and returns its length in bytes, the NUL's included.
std::size_t build_query(const char (&key)[sizeof(configd_query::key)],
                        char (&request)[kQueryRequestSize]) noexcept;

// Stores the value of a reply of `length` bytes, cut to fit, and returns true; false, with `value`
// untouched, for a reply too short to hold the newline and the NUL that end a value. Changes the
// reply.
[[nodiscard]] bool read_value(char* reply, int length,
                              char (&value)[sizeof(configd_query::value)]) noexcept;

// A batch of assignments as the daemon reads it, "key=value\n" for each.
class AssignmentText {
 public:
  // Appends one assignment. False when it does not fit; the text is then of no use.
  [[nodiscard]] bool append(const configd_query& entry) noexcept;

  // Characters so far.
  [[nodiscard]] std::size_t length() const noexcept { return length_; }

  // The NUL-terminated text, to be sent with its NUL.
  [[nodiscard]] const char* text() const noexcept { return text_; }

 private:
  void append_bytes(const char* bytes, std::size_t count) noexcept;

  std::size_t length_ = 0;
  char text_[kShortReplySize];  // written by append() only
};

// The end of changes. Sent as these five bytes without a NUL, unlike the other requests: the daemon
// tells it by its length.
inline constexpr char kDoneRequest[] = {'D', 'o', 'n', 'e', '\n'};

}  // namespace rkutils::configd

#endif
