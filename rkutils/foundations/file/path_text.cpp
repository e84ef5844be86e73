#include <rkutils/foundations/file/path_text.h>

#include <cerrno>
#include <cstring>

#include <unistd.h>

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

bool PathText::assign(const char* path) noexcept {
  const std::size_t length = std::strlen(path);
  if (length >= sizeof text_) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(text_, path, length + 1);
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

void PathText::drop_slashes() noexcept {
  const std::size_t shorter = without_slashes(text_, length_);
  if (shorter == 0) return;
  length_ = shorter;
  text_[length_] = '\0';
}

void PathText::end_at(std::size_t length) noexcept {
  text_[length_] = '/';
  length_ = length;
  text_[length_] = '\0';
}

bool PathText::follow_link() noexcept {
  char target[kPathSize];
  const ssize_t count = ::readlink(text_, target, sizeof target);
  if (count <= 0) return false;
  const auto length = static_cast<std::size_t>(count);
  std::size_t folder = target[0] == '/' ? 0 : length_;
  while (folder > 0 && text_[folder - 1] != '/') --folder;
  if (folder + length >= sizeof text_) return false;
  std::memcpy(text_ + folder, target, length);
  length_ = folder + length;
  text_[length_] = '\0';
  return true;
}

bool PathText::ends_in_dot_dot() const noexcept {
  if (length_ < 2 || std::strcmp(text_ + length_ - 2, "..") != 0) return false;
  return length_ == 2 || text_[length_ - 3] == '/';
}

}  // namespace rkutils::file
