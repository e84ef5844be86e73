// Files and trees, on the private router's memory file system.

#include <rkutils/file.h>
#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundations/rows.h"
#include "support/comparison.h"

namespace bench::foundations {
namespace {

using benchmark::State;
using rkutils::internal::UniqueDir;
using rkutils::internal::UniqueFd;

constexpr const char* kTree = "/tmp/tree";
constexpr const char* kTreeCopy = "/tmp/tree.copy";
constexpr const char* kLargeFile = "/tmp/large";
constexpr const char* kLargeCopy = "/tmp/large.copy";
constexpr const char* kLineFile = "/tmp/line";

// 2,000 small files in 20 directories.
void make_tree() {
  if (std::filesystem::exists(kTree)) return;
  constexpr std::size_t kDirectories = 20;
  constexpr std::size_t kFiles = 100;
  for (std::size_t d = 0; d < kDirectories; ++d) {
    const std::string directory = std::string(kTree) + "/directory" + std::to_string(d);
    std::filesystem::create_directories(directory);
    for (std::size_t f = 0; f < kFiles; ++f) {
      std::ofstream(directory + "/file" + std::to_string(f)) << std::string(10 + 10 * f, 'x');
    }
  }
}

void make_large_file() {
  if (std::filesystem::exists(kLargeFile)) return;
  constexpr int kMebibytes = 256;
  const std::string mebibyte(std::size_t{1024} * 1024, 'x');
  std::ofstream file(kLargeFile);
  for (int i = 0; i < kMebibytes; ++i) file << mebibyte;
}

// Times `work`; `prepare` comes before each time and does not count.
template <typename Prepare, typename Work>
void measure(State& state, Prepare prepare, Work work) {
  for (auto _ : state) {
    state.PauseTiming();
    prepare();
    state.ResumeTiming();
    if (!work()) state.SkipWithError("failed");
  }
}

UniqueFd open_at(int directory, const char* name, int flags) {
  return UniqueFd(::openat(directory, name, flags | O_CLOEXEC, 0666));
}

// Calls `visit` with each name in a directory but "." and "..". False when that fails or `visit`
// does.
template <typename Visit>
bool for_each_name(int directory, Visit visit) {
  const int own = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const UniqueDir stream(::fdopendir(own));
  if (!stream) return false;
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != ".." && !visit(entry->d_name)) return false;
  }
  return true;
}

// ---- Copying a tree ----

bool copy_small_file(int source_directory, int destination_directory, const char* name) {
  const UniqueFd source = open_at(source_directory, name, O_RDONLY);
  const UniqueFd destination =
      open_at(destination_directory, name, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
  if (!source || !destination) return false;
  std::array<char, std::size_t{16} * 1024> chunk;
  ssize_t count = 0;
  while ((count = ::read(source.get(), chunk.data(), chunk.size())) > 0) {
    if (::write(destination.get(), chunk.data(), static_cast<std::size_t>(count)) != count) {
      return false;
    }
  }
  return count == 0;
}

bool copy_tree(int source, int destination) {
  return for_each_name(source, [&](const char* name) {
    struct stat status;
    if (::fstatat(source, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if (!S_ISDIR(status.st_mode)) return copy_small_file(source, destination, name);
    if (::mkdirat(destination, name, 0755) != 0) return false;
    const UniqueFd from = open_at(source, name, O_RDONLY | O_DIRECTORY);
    const UniqueFd to = open_at(destination, name, O_RDONLY | O_DIRECTORY);
    return copy_tree(from.get(), to.get());
  });
}

void forget_tree_copy() {
  make_tree();
  std::filesystem::remove_all(kTreeCopy);
}

void add_copy_of_tree() {
  compare("copy 2,000 small files",
          [](State& state) {
            measure(state, forget_tree_copy, [] { return copy_directory(kTree, kTreeCopy) == 0; });
          },
          {peer("std::filesystem::copy", 0.85,
                [](State& state) {
                  measure(state, forget_tree_copy, [] {
                    std::error_code error;
                    std::filesystem::copy(kTree, kTreeCopy,
                                          std::filesystem::copy_options::recursive, error);
                    return !error;
                  });
                }),
           floor("bare calls", 1.25, [](State& state) {
             measure(state, forget_tree_copy, [] {
               if (::mkdir(kTreeCopy, 0755) != 0) return false;
               const UniqueFd source = open_at(AT_FDCWD, kTree, O_RDONLY | O_DIRECTORY);
               const UniqueFd destination = open_at(AT_FDCWD, kTreeCopy, O_RDONLY | O_DIRECTORY);
               return copy_tree(source.get(), destination.get());
             });
           })});
}

// ---- Copying a large file ----

void forget_large_copy() {
  make_large_file();
  ::unlink(kLargeCopy);
}

void add_copy_of_large_file() {
  compare(
      "copy 256 MiB",
      [](State& state) {
        measure(state, forget_large_copy, [] { return copy_file(kLargeFile, kLargeCopy) == 0; });
      },
      {peer("std::filesystem::copy_file", 1.05,
            [](State& state) {
              measure(state, forget_large_copy, [] {
                std::error_code error;
                return std::filesystem::copy_file(kLargeFile, kLargeCopy, error);
              });
            }),
       floor("copy_file_range", 1.1, [](State& state) {
         measure(state, forget_large_copy, [] {
           constexpr std::size_t kPortion = std::size_t{1} << 30;
           const UniqueFd source = open_at(AT_FDCWD, kLargeFile, O_RDONLY);
           const UniqueFd destination = open_at(AT_FDCWD, kLargeCopy, O_WRONLY | O_CREAT | O_TRUNC);
           ssize_t count = 0;
           while ((count = ::copy_file_range(source.get(), nullptr, destination.get(), nullptr,
                                             kPortion, 0)) > 0) {
           }
           return count == 0;
         });
       })});
}

// ---- Deleting a tree ----

bool delete_tree(int directory) {
  return for_each_name(directory, [&](const char* name) {
    struct stat status;
    if (::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if (!S_ISDIR(status.st_mode)) return ::unlinkat(directory, name, 0) == 0;
    const UniqueFd child = open_at(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    return delete_tree(child.get()) && ::unlinkat(directory, name, AT_REMOVEDIR) == 0;
  });
}

void make_tree_copy() {
  forget_tree_copy();
  std::filesystem::copy(kTree, kTreeCopy, std::filesystem::copy_options::recursive);
}

bool is_gone() { return ::access(kTreeCopy, F_OK) != 0; }

void add_deletion_of_tree() {
  compare("delete that tree",
          [](State& state) {
            measure(state, make_tree_copy,
                    [] { return delete_directory(kTreeCopy) == 0 && is_gone(); });
          },
          {peer("std::filesystem::remove_all", 1.25,
                [](State& state) {
                  measure(state, make_tree_copy, [] {
                    std::error_code error;
                    std::filesystem::remove_all(kTreeCopy, error);
                    return !error && is_gone();
                  });
                }),
           floor("bare calls", 1.35, [](State& state) {
             measure(state, make_tree_copy, [] {
               const UniqueFd top = open_at(AT_FDCWD, kTreeCopy, O_RDONLY | O_DIRECTORY);
               return delete_tree(top.get()) && ::rmdir(kTreeCopy) == 0 && is_gone();
             });
           })});
}

// ---- Reading a line ----

constexpr std::string_view kLine = "192.0.2.17\n";

void make_line_file() { std::ofstream(kLineFile) << kLine; }

void add_readfile() {
  compare("readfile_r of one line",
          [](State& state) {
            make_line_file();
            std::array<char, 1024> text;
            for (auto _ : state) {
              if (*readfile_r(kLineFile, text.data(), text.size()) != '1')
                state.SkipWithError("empty");
            }
          },
          {peer("g_file_get_contents", 1.0,
                [](State& state) {
                  make_line_file();
                  for (auto _ : state) {
                    gchar* text = nullptr;
                    gsize length = 0;
                    if (g_file_get_contents(kLineFile, &text, &length, nullptr) == FALSE ||
                        *text != '1') {
                      state.SkipWithError("empty");
                    }
                    g_free(text);
                  }
                }),
           floor("access, open, read, close", 1.05, [](State& state) {
             make_line_file();
             std::array<char, 1024> text;
             for (auto _ : state) {
               if (::access(kLineFile, R_OK) != 0) state.SkipWithError("not there");
               const int file = ::open(kLineFile, O_RDONLY | O_CLOEXEC);
               const ssize_t count = ::read(file, text.data(), text.size());
               ::close(file);
               if (count != static_cast<ssize_t>(kLine.size())) state.SkipWithError("empty");
               text[kLine.size() - 1] = '\0';
               benchmark::DoNotOptimize(text.data());
             }
           })});
}

}  // namespace

void add_file_rows() {
  add_copy_of_tree();
  add_copy_of_large_file();
  add_deletion_of_tree();
  add_readfile();
}

}  // namespace bench::foundations
