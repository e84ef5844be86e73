// Deleting trees.

#include <rkutils/file.h>
#include <rkutils/foundations/file/path_text.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/foundations/file/tree.h>
#include <rkutils/internal/unique_fd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using rkutils::file::DirectoryChain;
using rkutils::file::EntryNames;
using rkutils::file::open_at;
using rkutils::file::PathText;
using rkutils::internal::UniqueFd;

constexpr int kDirectory = O_RDONLY | O_DIRECTORY;

// Deletes all that is in a directory. What cannot be deleted is left, without further notice; a
// directory with an entry that cannot even be examined is left as it is by then.
class Deletion {
 public:
  Deletion(UniqueFd top, std::size_t path_length) : directories_(std::move(top), path_length) {}

  // False when the top itself has such an entry or cannot be read, or the way back to it is lost.
  bool run() {
    if (!names_.enter(directories_.current())) return false;
    for (;;) {
      const char* name = names_.next();
      if (name != nullptr && delete_entry(name)) continue;
      const bool done = name == nullptr;
      if (directories_.at_top()) return done;
      names_.leave();
      if (!directories_.leave()) return false;
      if (done) remove_directory(names_.current());
    }
  }

 private:
  // False when the entry cannot be examined. Goes down into a directory.
  bool delete_entry(const char* name) {
    const std::size_t length = std::strlen(name);
    struct stat status;
    if (!directories_.fits(length) ||
        ::fstatat(directories_.current(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return false;
    }
    if (!S_ISDIR(status.st_mode)) {
      static_cast<void>(::unlinkat(directories_.current(), name, 0));
      return true;
    }
    UniqueFd child = open_at(directories_.current(), name, kDirectory | O_NOFOLLOW);
    if (!child || !names_.enter(child.get())) {
      remove_directory(names_.current());
      return true;
    }
    directories_.enter(std::move(child), length);
    return true;
  }

  void remove_directory(const char* name) {
    static_cast<void>(::unlinkat(directories_.current(), name, AT_REMOVEDIR));
  }

  DirectoryChain directories_;
  EntryNames names_;
};

bool delete_contents(UniqueFd directory, std::size_t path_length) {
  try {
    return Deletion(std::move(directory), path_length).run();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

int delete_directory(const char* path) {
  if (path == nullptr || *path == '\0') return -1;
  // With a slash at its end, a link would be followed.
  PathText top;
  if (!top.assign(path, rkutils::file::length_without_slashes(path))) return 0;
  UniqueFd directory = open_at(AT_FDCWD, top.get(), kDirectory | O_NOFOLLOW);
  if (directory && !delete_contents(std::move(directory), top.length())) return -1;
  std::remove(top.get());
  return 0;
}

int delete_directory_contents(const char* path) {
  if (path == nullptr) return 0;
  UniqueFd directory = open_at(AT_FDCWD, path, kDirectory);
  if (!directory) return 0;
  return delete_contents(std::move(directory), std::strlen(path)) ? 0 : -1;
}
