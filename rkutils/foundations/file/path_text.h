// Paths as text.
#ifndef RKUTILS_FOUNDATIONS_FILE_PATH_TEXT_H
#define RKUTILS_FOUNDATIONS_FILE_PATH_TEXT_H

#include <cstddef>

namespace rkutils::file {

// The most that a path may take, its NUL included; the kernel takes no more either.
constexpr std::size_t kPathSize = 4096;

// The length of the path's parent, as dirname(3) has it, which is the path's own beginning: 3 for
// "a/b/c", "a/b/c/" and "a/b//c". 0 where that is "." or "/", which are always there.
[[nodiscard]] std::size_t parent_length(const char* path, std::size_t length) noexcept;

// A path of its own, to be shortened. Paths that do not fit are refused, never cut.
class PathText {
 public:
  PathText() = default;

  // Copies the path as it ends now. A copy of our own also keeps functions that take one by value from
  // having all of its room among their arguments: in a function that passes more than 2 KiB of them, the
  // board's compiler loses its way to the handlers of exceptions.
  PathText(const PathText& other) noexcept { static_cast<void>(assign(other.text_)); }
  PathText& operator=(const PathText&) = delete;

  // Holds `path`. False when it does not fit, with errno ENAMETOOLONG; nothing has changed then.
  [[nodiscard]] bool assign(const char* path) noexcept;

  // Becomes its own parent. False when that is "." or "/": it becomes this one.
  bool go_to_parent() noexcept;

  // Leaves out the slashes that end it; "/" stays.
  void drop_slashes() noexcept;

  // Ends after `length` bytes, at a slash of the path that assign() took, or is whole again.
  void end_at(std::size_t length) noexcept;

  // Becomes the path that the link at it holds, as read from where the link is. False when there is
  // no link, or the new path does not fit; nothing has changed then.
  [[nodiscard]] bool follow_link() noexcept;

  // Whether its last name is "..".
  [[nodiscard]] bool ends_in_dot_dot() const noexcept;

  [[nodiscard]] const char* get() const noexcept { return text_; }
  [[nodiscard]] std::size_t length() const noexcept { return length_; }

 private:
  char text_[kPathSize] = "";
  std::size_t length_ = 0;
};

}  // namespace rkutils::file

#endif
