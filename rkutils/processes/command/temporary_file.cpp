// Files with names of their own.

#include <rkutils/command.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace {

using rkutils::internal::ErrnoRestorer;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

constexpr std::size_t kNameSize = 1024;

// mkostemp(3), tried again while a signal interrupts it.
UniqueFd make_file(char* name, std::size_t length) noexcept {
  constexpr std::string_view kPlaces = "XXXXXX";
  for (;;) {
    UniqueFd file(::mkostemp(name, O_CLOEXEC));
    if (file || errno != EINTR) return file;
    // Which have been filled in.
    kPlaces.copy(name + length - kPlaces.size(), kPlaces.size());
  }
}

}  // namespace

char* create_tmpfile(const char* name_template) {
  static char name[kNameSize];
  if (name_template == nullptr || *name_template == '\0') return nullptr;
  const std::size_t length = std::strlen(name_template);
  if (length >= sizeof name) return nullptr;
  const PostponedCancellation postponed;
  // An earlier result as a template is the empty one from here on.
  std::memset(name, 0, sizeof name);
  std::memmove(name, name_template, length + 1);

  if (make_file(name, length)) return name;
  const ErrnoRestorer keep_errno;
  ::unlink(name);
  return nullptr;
}
