#include <rkutils/foundations/file/path_text.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/foundations/file/tree.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace rkutils::file {
namespace {

using internal::next_entry;
using internal::UniqueDir;
using internal::UniqueFd;

// How many directories are open at most. On the way further down the last but two is closed, and
// opened again through the ".." of the one below when the walk comes back. The one above the last
// stays open, because the last may be one that can be read but not searched.
constexpr std::size_t kHeldLevels = 32;

}  // namespace

DirectoryChain::DirectoryChain(UniqueFd top, std::size_t path_length) {
  push(std::move(top), path_length);
}

void DirectoryChain::push(UniqueFd directory, std::size_t path_length) {
  struct stat status = {};
  ::fstat(directory.get(), &status);
  levels_.push_back({std::move(directory), status.st_dev, status.st_ino, path_length});
}

void DirectoryChain::enter(UniqueFd child, std::size_t name_length) {
  push(std::move(child), levels_.back().path_length + 1 + name_length);
  if (levels_.size() > kHeldLevels) levels_[levels_.size() - 3].directory.reset();
}

bool DirectoryChain::leave() {
  const UniqueFd left = std::move(levels_.back().directory);
  levels_.pop_back();
  Level& level = levels_.back();
  if (level.directory) return true;
  UniqueFd above = open_at(left.get(), "..", O_PATH | O_DIRECTORY);
  struct stat status;
  if (!above || ::fstat(above.get(), &status) != 0) return false;
  if (status.st_dev != level.device || status.st_ino != level.inode) return false;
  level.directory = std::move(above);
  return true;
}

bool DirectoryChain::fits(std::size_t name_length) const {
  return levels_.back().path_length + 1 + name_length < kPathSize;
}

UniqueDir open_stream(int directory) noexcept {
  UniqueFd own(::fcntl(directory, F_DUPFD_CLOEXEC, 0));
  if (!own) return nullptr;
  UniqueDir stream(::fdopendir(own.get()));
  if (stream) static_cast<void>(own.release());
  return stream;
}

bool EntryNames::enter(UniqueDir listing) {
  const std::size_t begin = text_.size();
  if (!listing || !read(listing.get())) {
    text_.resize(begin);
    return false;
  }
  levels_.push_back({begin, begin, begin});
  return true;
}

bool EntryNames::read(DIR* listing) {
  while (const dirent* const entry = next_entry(listing)) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    text_.append(name);
    text_.push_back('\0');
  }
  return errno == 0;
}

void EntryNames::leave() {
  text_.resize(levels_.back().begin);
  levels_.pop_back();
}

const char* EntryNames::next() {
  Level& level = levels_.back();
  if (level.next == text_.size()) return nullptr;
  level.current = level.next;
  level.next += std::strlen(current()) + 1;
  return current();
}

const char* EntryNames::current() const { return text_.c_str() + levels_.back().current; }

}  // namespace rkutils::file
