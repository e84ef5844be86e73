// Creating directories, and looking whether one is empty.

#include <rkutils/file.h>
#include <rkutils/foundations/file/path_text.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_dir.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

using rkutils::file::PathText;
using rkutils::internal::next_entry;
using rkutils::internal::open_directory;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueDir;

constexpr std::size_t kMostLevels = 10;  // the path and nine of its ancestors
constexpr mode_t kFinalMode = 0555;

bool create_level(PathText& path) {
  struct stat status;
  if (::lstat(path.get(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) return true;
    std::remove(path.get());
  }
  if (::mkdir(path.get(), rkutils::file::kCreationMode) != 0) return false;
  path.drop_slashes();  // with one at its end, a link would be followed
  static_cast<void>(rkutils::file::set_directory_mode(AT_FDCWD, path.get(), kFinalMode));
  return true;
}

}  // namespace

int create_directory(const char* path) {
  if (path == nullptr || *path == '\0') return -1;
  const PostponedCancellation postponed;
  PathText level;
  if (!level.assign(path)) return -1;
  std::size_t lengths[kMostLevels] = {level.length()};
  std::size_t count = 1;
  while (count < kMostLevels) {
    const std::size_t shorter = rkutils::file::parent_length(path, lengths[count - 1]);
    if (shorter == 0) break;
    lengths[count++] = shorter;
  }
  while (count > 0) {
    level.end_at(lengths[--count]);
    if (!create_level(level)) return -1;
  }
  return 0;
}

int empty_directory(const char* path) {
  if (path == nullptr || *path == '\0') return -1;
  const PostponedCancellation postponed;
  const UniqueDir stream = open_directory(path);
  if (!stream) return 1;
  while (const dirent* const entry = next_entry(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return 0;
  }
  // Callers delete on 1, so what cannot be listed to its end is not called empty.
  return errno == 0 ? 1 : 0;
}
