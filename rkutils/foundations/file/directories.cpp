// Creating directories, and looking whether one is empty.

#include <rkutils/file.h>
#include <rkutils/foundations/file/path_text.h>
#include <rkutils/internal/unique_dir.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <dirent.h>
#include <sys/stat.h>

namespace {

using rkutils::file::PathText;
using rkutils::internal::UniqueDir;

constexpr std::size_t kMostLevels = 10;  // the path and nine of its ancestors

// Hexadecimal, where one expects octal: deliberately kept. It is the mode that a directory has for
// the moment until it gets its final one.
constexpr mode_t kCreationMode = 0x755;
constexpr mode_t kFinalMode = 0555;

bool create_level(const char* path) {
  struct stat status;
  if (::lstat(path, &status) == 0) {
    if (S_ISDIR(status.st_mode)) return true;
    std::remove(path);
  }
  if (::mkdir(path, kCreationMode) != 0) return false;
  static_cast<void>(::chmod(path, kFinalMode));
  return true;
}

}  // namespace

int create_directory(const char* path) {
  if (path == nullptr || *path == '\0') return -1;
  const std::size_t length = std::strlen(path);
  if (length >= rkutils::file::kPathSize) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::size_t lengths[kMostLevels] = {length};
  std::size_t count = 1;
  while (count < kMostLevels) {
    const std::size_t shorter = rkutils::file::parent_length(path, lengths[count - 1]);
    if (shorter == 0) break;
    lengths[count++] = shorter;
  }
  PathText level;
  while (count > 0) {
    if (!level.assign(path, lengths[--count]) || !create_level(level.get())) return -1;
  }
  return 0;
}

int empty_directory(const char* path) {
  if (path == nullptr || *path == '\0') return -1;
  const UniqueDir stream(::opendir(path));
  if (!stream) return 1;
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return 0;
  }
  return 1;
}
