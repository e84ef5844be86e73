// Deleting trees.

#include <rkutils/file.h>
#include <rkutils/foundations/file/path_text.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/foundations/file/tree.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>

#include <cstddef>
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
using rkutils::file::kListed;
using rkutils::file::open_at;
using rkutils::file::open_stream;
using rkutils::file::PathText;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueDir;
using rkutils::internal::UniqueFd;

// Deletes all that is in a directory. What cannot be deleted is left, without further notice; a
// directory with an entry that cannot even be examined is left as it is by then.
class Deletion {
 public:
  Deletion(UniqueFd top, std::size_t path_length) : directories_(std::move(top), path_length) {}

  // `listing` is a stream of the top. False when the top itself has such an entry or cannot be
  // listed, or the way back to it is lost.
  bool run(UniqueDir listing) {
    if (!names_.enter(std::move(listing))) return false;
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
    UniqueFd child = open_at(directories_.current(), name, kListed | O_NOFOLLOW);
    if (!child || !names_.enter(open_stream(child.get()))) {
      remove_directory(names_.current());  // `name` may have moved in memory
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

// A directory of which no stream can be opened, if only for lack of a descriptor, is passed over as
// one that cannot be opened at all.
bool delete_contents(UniqueFd directory, std::size_t path_length) {
  UniqueDir listing = directory ? open_stream(directory.get()) : nullptr;
  if (!listing) return true;
  try {
    return Deletion(std::move(directory), path_length).run(std::move(listing));
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool is_directory_or_link(const char* path) {
  struct stat status;
  return ::lstat(path, &status) == 0 && (S_ISDIR(status.st_mode) || S_ISLNK(status.st_mode));
}

}  // namespace

int delete_directory(const char* path) {
  if (path == nullptr || *path == '\0') return -1;
  const PostponedCancellation postponed;
  PathText top;
  if (!top.assign(path)) return 0;
  top.drop_slashes();  // with one at its end, a link would be followed
  if (!delete_contents(open_at(AT_FDCWD, top.get(), kListed | O_NOFOLLOW), top.length())) return -1;
  // A file is not found with a slash at its end, and has to stay then.
  std::remove(is_directory_or_link(top.get()) ? top.get() : path);
  return 0;
}

int delete_directory_contents(const char* path) {
  if (path == nullptr) return 0;
  const PostponedCancellation postponed;
  return delete_contents(open_at(AT_FDCWD, path, kListed), std::strlen(path)) ? 0 : -1;
}
