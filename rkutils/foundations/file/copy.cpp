// Copying files and trees.

#include <rkutils/file.h>
#include <rkutils/foundations/file/contents.h>
#include <rkutils/foundations/file/path_text.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/foundations/file/tree.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <cstddef>
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
using rkutils::file::kListed;
using rkutils::file::kPassed;
using rkutils::file::open_at;
using rkutils::file::open_stream;
using rkutils::file::PathText;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

constexpr mode_t kFinalMode = 0755;

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
  struct stat to;
  // A link that leads nowhere yet leads to where the destination is going to be.
  constexpr int kMostLinks = 40;  // as in the kernel
  for (int links = 0; links < kMostLinks; ++links) {
    if (::stat(destination.get(), &to) == 0 || !destination.follow_link()) break;
  }
  for (;;) {
    if (::stat(destination.get(), &to) == 0) {
      if (is_same_file(from, to)) return true;
      if (S_ISDIR(to.st_mode)) {
        return S_ISDIR(from.st_mode) && is_directory_within(destination.get(), from);
      }
    }
    if (!destination.go_to_parent() && !is_directory(destination.get())) return false;
  }
}

// Whether the path goes up again, by "..", from something that create_directory() would make a
// directory. Where it leads from there cannot be seen before: back to the source, maybe.
bool goes_up_from_new_level(PathText folder) {
  bool goes_up = false;
  do {
    struct stat status;
    const bool stays = ::lstat(folder.get(), &status) == 0 && S_ISDIR(status.st_mode);
    if (goes_up && !stays) return true;
    goes_up = goes_up || folder.ends_in_dot_dot();
  } while (folder.go_to_parent());
  return false;
}

// Makes `folder` a directory where it is none, whatever was there. False, with nothing changed,
// where that might do away with the source of the copy. Other failures show later, in opening.
bool provide_directory(const PathText& folder) {
  if (is_directory(folder.get())) return true;
  if (goes_up_from_new_level(folder)) return false;
  ::unlink(folder.get());
  static_cast<void>(create_directory(folder.get()));
  return true;
}

// Opens a directory of the destination, creating it where it is missing.
UniqueFd provide_directory_at(int directory, const char* name, int flags) {
  if (::mkdirat(directory, name, rkutils::file::kCreationMode) != 0) {
    return errno == EEXIST ? open_at(directory, name, kPassed | flags) : UniqueFd();
  }
  if (!rkutils::file::set_directory_mode(directory, name, kFinalMode)) return {};
  return open_at(directory, name, kPassed | O_NOFOLLOW);
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
    if (!names_.enter(open_stream(sources_.current()))) return false;
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
    if (!source || !names_.enter(open_stream(source.get()))) return false;
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
  const PostponedCancellation postponed;
  PathText folder;
  if (!folder.assign(destination) || is_copy_into_itself(source, folder)) return -1;
  folder.go_to_parent();
  if (!provide_directory(folder)) return -1;
  return copy_file_at(AT_FDCWD, source, AT_FDCWD, destination, 0) ? 0 : -1;
}

int copy_directory(const char* source, const char* destination) {
  if (source == nullptr || destination == nullptr || *destination == '\0') return -1;
  const PostponedCancellation postponed;
  PathText path;
  if (!path.assign(destination) || is_copy_into_itself(source, path)) return -1;
  const std::size_t length = path.length();
  path.drop_slashes();  // with one at its end, a link would be followed
  UniqueFd to = provide_directory_at(AT_FDCWD, path.get(), 0);
  if (!to) return -1;
  UniqueFd from = open_at(AT_FDCWD, source, kListed);
  if (!from) return -1;
  try {
    return TreeCopy(std::move(from), std::strlen(source), std::move(to), length).run() ? 0 : -1;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}
