#include <rkutils/foundations/file/path_text.h>

#include <cstring>

namespace rkutils::file {
namespace {

std::size_t without_slashes(const char* path, std::size_t length) {
  while (length > 0 && path[length - 1] == '/') --length;
  return length;
}

}  // namespace

std::size_t parent_length(const char* path, std::size_t length) noexcept {
  length = without_slashes(path, length);
  while (length > 0 && path[length - 1] != '/') --length;
  length = without_slashes(path, length);
  return length == 1 && path[0] == '.' ? 0 : length;
}

std::size_t length_without_slashes(const char* path) noexcept {
  const std::size_t length = std::strlen(path);
  const std::size_t shorter = without_slashes(path, length);
  return shorter > 0 ? shorter : length;
}

bool PathText::assign(const char* path, std::size_t length) noexcept {
  if (length >= sizeof text_) return false;
  std::memcpy(text_, path, length);
  text_[length] = '\0';
  length_ = length;
  return true;
}

bool PathText::go_to_parent() noexcept {
  const std::size_t shorter = parent_length(text_, length_);
  length_ = shorter > 0 ? shorter : 1;
  if (shorter == 0 && text_[0] != '/') text_[0] = '.';
  text_[length_] = '\0';
  return shorter > 0;
}

}  // namespace rkutils::file
