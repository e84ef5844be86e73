#include "support/standard_output.h"

#include <rkutils/internal/scope_guard.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unique_file.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace support {
namespace {

using rkutils::internal::ScopeGuard;
using rkutils::internal::UniqueFd;
using rkutils::internal::UniqueFile;

void check(bool works, const char* what) {
  if (!works) throw std::system_error(errno, std::generic_category(), what);
}

std::string contents_of(std::FILE* file) {
  std::string contents;
  std::array<char, 4096> part;
  std::rewind(file);
  for (std::size_t count = 1; count > 0;) {
    count = std::fread(part.data(), 1, part.size(), file);
    contents.append(part.data(), count);
  }
  return contents;
}

// What `action` writes to a standard stream, which is `number` as a descriptor.
std::string output_of(std::FILE* stream, int number, const std::function<void()>& action) {
  const UniqueFile file(std::tmpfile());
  check(file != nullptr, "tmpfile");
  std::fflush(stream);
  const UniqueFd terminal(::fcntl(number, F_DUPFD_CLOEXEC, 0));
  check(static_cast<bool>(terminal), "fcntl");
  check(::dup2(::fileno(file.get()), number) == number, "dup2");
  {
    const ScopeGuard give_back([&] {
      std::fflush(stream);
      ::dup2(terminal.get(), number);
    });
    action();
  }
  return contents_of(file.get());
}

}  // namespace

std::string standard_output_of(const std::function<void()>& action) {
  return output_of(stdout, STDOUT_FILENO, action);
}

std::string standard_error_of(const std::function<void()>& action) {
  return output_of(stderr, STDERR_FILENO, action);
}

}  // namespace support
