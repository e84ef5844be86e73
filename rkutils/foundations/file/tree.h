// Walking a tree of directories by descriptor.
//
// A walk never resolves a path from the top again, so it stays in the tree, whatever becomes of the
// tree meanwhile. Its state is on the heap and its descriptors are bounded: neither the stack nor
// the descriptor limit bounds the depth.
#ifndef RKUTILS_FOUNDATIONS_FILE_TREE_H
#define RKUTILS_FOUNDATIONS_FILE_TREE_H

#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>

#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

namespace rkutils::file {

// The directories from the top of a tree down to the one that is being walked. Members throw
// std::bad_alloc.
class DirectoryChain {
 public:
  // `top` was opened at a path of this length.
  DirectoryChain(internal::UniqueFd top, std::size_t path_length);

  // Goes down into a directory that was opened in the current one under a name of this length.
  void enter(internal::UniqueFd child, std::size_t name_length);

  // Goes back up; not from the top. False when the directory above is not the one it was, because
  // the tree was moved, or cannot be reached any more: the walk is over then.
  [[nodiscard]] bool leave();

  [[nodiscard]] int current() const { return levels_.back().directory.get(); }
  [[nodiscard]] bool at_top() const { return levels_.size() == 1; }

  // Whether the path of an entry with this name, from the top's path down, is one that fits.
  [[nodiscard]] bool fits(std::size_t name_length) const;

 private:
  struct Level {
    internal::UniqueFd directory;
    dev_t device;
    ino_t inode;
    std::size_t path_length;
  };

  void push(internal::UniqueFd directory, std::size_t path_length);

  std::vector<Level> levels_;
};

// A stream of the entries of a directory that was opened for reading; the descriptor stays the
// caller's. NULL when there is no other descriptor or no memory for it.
[[nodiscard]] internal::UniqueDir open_stream(int directory) noexcept;

// The names of the entries in the directories of a chain. Each directory is read when it is
// entered, so the walk may change it. Members throw std::bad_alloc.
class EntryNames {
 public:
  // Reads the names in a directory, "." and ".." left out. False when there is no stream or it
  // fails; nothing is entered then.
  [[nodiscard]] bool enter(internal::UniqueDir listing);

  // Forgets the names of the directory entered last.
  void leave();

  // The next name in the directory entered last; NULL after the last one. Valid until the next call
  // of enter().
  [[nodiscard]] const char* next();

  // The name that next() gave last in that directory.
  [[nodiscard]] const char* current() const;

 private:
  struct Level {
    std::size_t begin;    // of its names in text_
    std::size_t current;  // the one that next() gave last
    std::size_t next;
  };

  [[nodiscard]] bool read(DIR* listing);

  std::string text_;  // the names, each with its NUL; those of the directory entered last are last
  std::vector<Level> levels_;
};

}  // namespace rkutils::file

#endif
