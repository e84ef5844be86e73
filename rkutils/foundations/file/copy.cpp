// Copying files and trees.

#include <rkutils/file.h>
#include <rkutils/foundations/file/contents.h>
#include <rkutils/foundations/file/path_text.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/foundations/file/tree.h>
#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using rkutils::file::copy_file_at;
using rkutils::file::DirectoryChain;
using rkutils::file::EntryNames;
using rkutils::file::is_same_file;
using rkutils::file::open_at;
using rkutils::file::PathText;
using rkutils::internal::UniqueFd;

// Hexadecimal, where one expects octal: deliberately kept. It is the mode that a directory has for
// the moment until it gets its final one.
constexpr mode_t kCreationMode = 0x755;
constexpr mode_t kFinalMode = 0755;

constexpr int kListed = O_RDONLY | O_DIRECTORY;
constexpr int kPassed = O_PATH | O_DIRECTORY;

bool is_directory(const char* path) {
  struct stat status;
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Whether the directory is `top` or one of those in it, asked of the directories above it, so that
// no link hides the answer. Where they cannot be asked it is no.
bool is_directory_within(const char* path, const struct stat& top) {
  UniqueFd directory = open_at(AT_FDCWD, path, kPassed);
  struct stat status = {};
  if (!directory || ::fstat(directory.get(), &status) != 0) return false;
  for (;;) {
    if (is_same_file(status, top)) return true;
    directory = open_at(directory.get(), "..", kPassed);
    struct stat above;
    if (!directory || ::fstat(directory.get(), &above) != 0) return false;
    if (is_same_file(above, status)) return false;  // the root is its own parent
    status = above;
  }
}

// Whether copying `source` to `destination` would be copying it onto or into itself: the
// destination, or what is there on the way to it, is the source or lies in it.
bool is_copy_into_itself(const char* source, PathText destination) {
  struct stat from;
  if (::stat(source, &from) != 0) return false;
  for (;;) {
    struct stat to;
    if (::stat(destination.get(), &to) == 0) {
      if (is_same_file(from, to)) return true;
      if (S_ISDIR(to.st_mode)) {
        return S_ISDIR(from.st_mode) && is_directory_within(destination.get(), from);
      }
    }
    if (!destination.go_to_parent() && !is_directory(destination.get())) return false;
  }
}

// Makes `path` a directory where it is none, whatever was there.
void provide_directory(const char* path) {
  if (is_directory(path)) return;
  ::unlink(path);
  create_directory(path);
}

// Opens a directory of the destination, creating it where it is missing.
UniqueFd provide_directory_at(int directory, const char* name, int flags) {
  if (::mkdirat(directory, name, kCreationMode) != 0) {
    return errno == EEXIST ? open_at(directory, name, kPassed | flags) : UniqueFd();
  }
  UniqueFd created = open_at(directory, name, kListed | O_NOFOLLOW);
  if (created && ::fchmod(created.get(), kFinalMode) != 0) created.reset();
  return created;
}

// A tree being copied into another, entry by entry.
class TreeCopy {
 public:
  TreeCopy(UniqueFd source, std::size_t source_length, UniqueFd destination,
           std::size_t destination_length)
      : sources_(std::move(source), source_length),
        destinations_(std::move(destination), destination_length) {
    ::fstat(destinations_.current(), &destination_);
  }

  // False at the first entry that cannot be copied.
  bool run() {
    if (!names_.enter(sources_.current())) return false;
    for (;;) {
      const char* name = names_.next();
      if (name != nullptr) {
        if (!copy_entry(name)) return false;
      } else {
        if (sources_.at_top()) return true;
        names_.leave();
        if (!sources_.leave() || !destinations_.leave()) return false;
      }
    }
  }

 private:
  bool copy_entry(const char* name) {
    const std::size_t length = std::strlen(name);
    if (!sources_.fits(length) || !destinations_.fits(length)) return false;
    struct stat status;
    if (::fstatat(sources_.current(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if (S_ISDIR(status.st_mode)) {
      // Mounts can show the destination inside the source.
      return !is_same_file(status, destination_) && enter(name, length);
    }
    return copy_file_at(sources_.current(), name, destinations_.current(), name, O_NOFOLLOW);
  }

  bool enter(const char* name, std::size_t length) {
    UniqueFd destination = provide_directory_at(destinations_.current(), name, O_NOFOLLOW);
    if (!destination) return false;
    UniqueFd source = open_at(sources_.current(), name, kListed | O_NOFOLLOW);
    if (!source || !names_.enter(source.get())) return false;
    destinations_.enter(std::move(destination), length);
    sources_.enter(std::move(source), length);
    return true;
  }

  DirectoryChain sources_;
  DirectoryChain destinations_;
  EntryNames names_;
  struct stat destination_ = {};
};

}  // namespace

int copy_file(const char* source, const char* destination) {
  if (source == nullptr || destination == nullptr) return -1;
  if (*source == '\0' || *destination == '\0') return -1;
  PathText folder;
  if (!folder.assign(destination, std::strlen(destination))) {
    errno = ENAMETOOLONG;
    return -1;
  }
  if (is_copy_into_itself(source, folder)) return -1;
  folder.go_to_parent();
  provide_directory(folder.get());
  return copy_file_at(AT_FDCWD, source, AT_FDCWD, destination, 0) ? 0 : -1;
}

int copy_directory(const char* source, const char* destination) {
  if (source == nullptr || destination == nullptr) return -1;
  PathText path;
  if (!path.assign(destination, std::strlen(destination))) {
    errno = ENAMETOOLONG;
    return -1;
  }
  if (*destination == '\0' || is_copy_into_itself(source, path)) return -1;
  UniqueFd to = provide_directory_at(AT_FDCWD, destination, 0);
  if (!to) return -1;
  UniqueFd from = open_at(AT_FDCWD, source, kListed);
  if (!from) return -1;
  try {
    return TreeCopy(std::move(from), std::strlen(source), std::move(to), path.length()).run() ? 0
                                                                                              : -1;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}
