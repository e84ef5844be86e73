#include "file_fixture.h"

#include <rkutils/internal/unique_fd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/open_descriptors.h"

namespace {

using rkutils::internal::UniqueFd;

void check(bool done, const std::string& step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

std::string octal(mode_t mode) {
  char text[16];
  std::snprintf(text, sizeof text, "%o", mode & 07777U);
  return text;
}

std::string description_of(const std::string& path) {
  struct stat status;
  check(::lstat(path.c_str(), &status) == 0, "lstat " + path);
  const std::string mode = octal(status.st_mode);
  if (S_ISDIR(status.st_mode)) return "dir " + mode;
  if (S_ISFIFO(status.st_mode)) return "fifo " + mode;
  if (S_ISLNK(status.st_mode)) return "link " + std::filesystem::read_symlink(path).string();
  return "file " + mode + " " + contents_of(path);
}

}  // namespace

Tree tree_of(const std::string& folder) {
  Tree tree;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const std::string path = entry.path();
    tree.emplace(path.substr(folder.size() + 1), description_of(path));
  }
  return tree;
}

FileTest::FileTest() {
  ::umask(022);
  std::filesystem::remove_all(folder_);
  make_folders(folder_);
  descriptors_before_ = support::open_descriptors();
}

FileTest::~FileTest() {
  ::umask(022);
  std::filesystem::current_path("/");
  std::filesystem::remove_all(folder_);
}

void FileTest::TearDown() {
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
}

TinyDisk::TinyDisk(std::string folder) : folder_(std::move(folder)) {
  const std::string options = "mode=0755,size=" + std::to_string(kSize);
  check(::mount("tmpfs", folder_.c_str(), "tmpfs", 0, options.c_str()) == 0, "mount " + folder_);
}

TinyDisk::~TinyDisk() { ::umount2(folder_.c_str(), MNT_DETACH); }

void TinyDisk::make_read_only() {
  check(::mount(nullptr, folder_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0,
        "remount " + folder_);
}

std::string contents_of(const std::string& path) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  check(static_cast<bool>(file), "open " + path);
  std::array<char, 4096> piece;
  std::string text;
  ssize_t length = 0;
  while ((length = ::read(file.get(), piece.data(), piece.size())) > 0) {
    text.append(piece.data(), static_cast<std::size_t>(length));
  }
  check(length == 0, "read " + path);
  return text;
}

bool exists(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

mode_t mode_of(const std::string& path) {
  struct stat status;
  check(::lstat(path.c_str(), &status) == 0, "lstat " + path);
  return status.st_mode & 07777U;
}

void make_folders(const std::string& path) { std::filesystem::create_directories(path); }

void make_link(const std::string& target, const std::string& path) {
  check(::symlink(target.c_str(), path.c_str()) == 0, "symlink " + path);
}

void make_fifo(const std::string& path) {
  check(::mkfifo(path.c_str(), 0644) == 0, "mkfifo " + path);
}

void exchange_paths(const std::string& one, const std::string& other) {
  // Not every C library has renameat2() and its constants.
  constexpr unsigned kRenameExchange = 2;
  ::syscall(SYS_renameat2, AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), kRenameExchange);
}

std::string path_of_length(const std::string& folder, std::size_t length) {
  constexpr std::size_t kNameLength = 200;
  std::string path = folder;
  while (path.size() + 1 + kNameLength + 3 <= length) path += "/" + std::string(kNameLength, 'd');
  // What is left may be a little more than one name's length.
  if (length - path.size() > kNameLength + 1) path += "/" + std::string(kNameLength / 2, 'd');
  path += "/";
  return path + std::string(length - path.size(), 'e');
}
