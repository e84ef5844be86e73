// Files with names of their own.

#include <rkutils/command.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/temporary_file.h>

#include <cstddef>
#include <cstring>

#include <unistd.h>

namespace {

using rkutils::internal::ErrnoRestorer;
using rkutils::internal::make_temporary_file;
using rkutils::internal::PostponedCancellation;

constexpr std::size_t kNameSize = 1024;

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

  if (make_temporary_file(name)) return name;
  const ErrnoRestorer keep_errno;
  ::unlink(name);
  return nullptr;
}
