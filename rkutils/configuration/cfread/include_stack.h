// The files that are being read: the one given, and those that it includes, inside each other.
#ifndef RKUTILS_CONFIGURATION_CFREAD_INCLUDE_STACK_H
#define RKUTILS_CONFIGURATION_CFREAD_INCLUDE_STACK_H

#include <rkutils/foundations/file/line_source.h>
#include <rkutils/internal/unique_fd.h>

#include <cstddef>
#include <memory>

namespace rkutils::cfread {

// Room for a path and its NUL.
inline constexpr std::size_t kPathSize = 512;

struct OpenFile {
  OpenFile(internal::UniqueFd file, const char* its_path) noexcept;

  file::LineSource lines;
  unsigned line_number = 1;
  char path[kPathSize];
  std::unique_ptr<OpenFile> including;  // the file that includes this one, if any
};

// The innermost file is on top. Neither reading nor closing nests calls, so that a stack of some
// kilobytes serves as many files as there are descriptors.
class IncludeStack {
 public:
  IncludeStack() noexcept = default;
  ~IncludeStack();
  IncludeStack(const IncludeStack&) = delete;
  IncludeStack& operator=(const IncludeStack&) = delete;

  // Opens a file, to be read from its first line. False when it cannot be opened, or there is no
  // memory for it. The path must fit in kPathSize.
  [[nodiscard]] bool push(const char* path) noexcept;

  // Closes the file on top.
  void pop() noexcept;

  // Closes all files.
  void close_all() noexcept;

  // NULL when all are closed.
  [[nodiscard]] OpenFile* top() const noexcept { return top_.get(); }

 private:
  std::unique_ptr<OpenFile> top_;
};

}  // namespace rkutils::cfread

#endif
