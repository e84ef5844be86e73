#include <rkutils/foundations/file/contents.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rkutils::file {
namespace {

using internal::UniqueFd;

// What a file has at most for read and write to be the quicker way, and their buffer.
constexpr std::size_t kChunk = std::size_t{16} * 1024;
// What the kernel is asked to copy at once; it takes no more than 2 GiB.
constexpr std::size_t kPortion = std::size_t{1} << 30;

ssize_t by_range(int source, int destination) {
  return ::copy_file_range(source, nullptr, destination, nullptr, kPortion, 0);
}

ssize_t by_sendfile(int source, int destination) {
  return ::sendfile(destination, source, nullptr, kPortion);
}

// Lets the kernel copy from where both descriptors stand. True when it came to the end; otherwise
// another way has to go on from there.
bool copy_in_kernel(int source, int destination, ssize_t (*copy)(int, int)) {
  bool any = false;
  for (;;) {
    const ssize_t count = copy(source, destination);
    // Files that the kernel makes up as they are read may have no end here but be read all the
    // same.
    if (count == 0) return any;
    if (count < 0 && errno != EINTR) return false;
    any = any || count > 0;
  }
}

bool make_empty(int descriptor, const struct stat& status) {
  if (status.st_size == 0) return true;  // as FIFOs and devices say, which cannot be cut
  while (::ftruncate(descriptor, 0) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

void copy_by_hand(int source, int destination) {
  char chunk[kChunk];
  for (;;) {
    const ssize_t count = read_some(source, chunk, sizeof chunk);
    if (count <= 0) return;
    if (!write_all(destination, chunk, static_cast<std::size_t>(count))) return;
  }
}

void copy_contents(int source, off_t size, int destination) {
  if (size > static_cast<off_t>(kChunk)) {
    if (copy_in_kernel(source, destination, by_range)) return;
    if (copy_in_kernel(source, destination, by_sendfile)) return;
  }
  copy_by_hand(source, destination);
}

}  // namespace

bool copy_file_at(int source_directory, const char* source_name, int destination_directory,
                  const char* destination_name, int destination_flags) {
  const UniqueFd source = open_at(source_directory, source_name, O_RDONLY);
  if (!source) return false;
  // Emptied later, not by opening: that would empty the source if it is the same file.
  const UniqueFd destination =
      open_at(destination_directory, destination_name, O_WRONLY | O_CREAT | destination_flags);
  if (!destination) return false;
  struct stat from;
  struct stat to;
  if (::fstat(source.get(), &from) != 0 || ::fstat(destination.get(), &to) != 0) return false;
  if (is_same_file(from, to)) return false;
  if (!make_empty(destination.get(), to)) return false;
  copy_contents(source.get(), from.st_size, destination.get());
  return true;
}

}  // namespace rkutils::file
