#include <rkutils/configuration/configd_protocol.h>
#include <rkutils/memory.h>

#include <cstring>

namespace rkutils::configd {

std::size_t build_query(const char (&key)[sizeof(configd_query::key)],
                        char (&request)[kQueryRequestSize]) noexcept {
  // A key without its NUL is the caller's mistake; it is not read beyond its field.
  const std::size_t length = ::strnlen(key, sizeof key - 1);
  request[0] = '?';
  std::memcpy(request + 1, key, length);
  request[1 + length] = '\n';
  request[2 + length] = '\0';
  return length + 3;
}

bool read_value(char* reply, int length, char (&value)[sizeof(configd_query::value)]) noexcept {
  if (length <= 1) return false;
  reply[length - 2] = '\0';
  strlcpy(value, reply, sizeof value);
  return true;
}

bool AssignmentText::append(const configd_query& entry) noexcept {
  const std::size_t key_length = ::strnlen(entry.key, sizeof entry.key - 1);
  const std::size_t value_length = ::strnlen(entry.value, sizeof entry.value - 1);
  const std::size_t room = sizeof text_ - length_ - 1;
  if (key_length + value_length + 2 > room) return false;
  append_bytes(entry.key, key_length);
  append_bytes("=", 1);
  append_bytes(entry.value, value_length);
  append_bytes("\n", 2);  // and the text's NUL, which the next one overwrites
  --length_;
  return true;
}

void AssignmentText::append_bytes(const char* bytes, std::size_t count) noexcept {
  std::memcpy(text_ + length_, bytes, count);
  length_ += count;
}

}  // namespace rkutils::configd
