// Files and directories.

#include <rkutils/file.h>

#include <filesystem>
#include <string>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

using support::put;

// As literals: what acts must not allocate.
constexpr const char* kFolder = "/tmp/faults";
constexpr const char* kFile = "/tmp/faults/file";
constexpr const char* kCopy = "/tmp/faults/copy";
constexpr const char* kTop = "/tmp/faults/top";
constexpr const char* kFileInTree = "/tmp/faults/top/sub/file";

struct Files {
  [[nodiscard]] std::string after() const { return folder.contents(); }

  const Folder folder{kFolder};
  char buffer[64] = "";
};

constexpr auto kNoContents = [](const Files& /*files*/) { return std::string(); };

void put_file(Files& /*files*/) { put(kFile, "text\n"); }

void put_two_files(Files& /*files*/) {
  put(kFile, "text\n");
  put(kCopy, "old text\n");
}

// More than is copied by hand. Its text is not for the table.
void put_large_file(Files& /*files*/) { put(kFile, std::string(20000, 'x')); }

std::string size_of_copy(const Files& files) {
  const std::string all = files.folder.contents();
  return all.find("copy 644 \"" + std::string(20000, 'x') + '"') != std::string::npos
             ? "copied"
             : "not copied";
}

// One entry in each folder, so that no order of entries matters.
void put_tree(Files& /*files*/) { put(kFileInTree, "text\n"); }

void put_two_trees(Files& files) {
  put_tree(files);
  put("/tmp/faults/copy/sub/file", "old text\n");
}

// A file in the place of a folder.
void put_top_file(Files& /*files*/) { put(kTop, ""); }

void make_empty_folder(Files& /*files*/) { std::filesystem::create_directory(kTop); }

}  // namespace

Scenarios files() {
  return {
      scenario<Files>("copy_directory into another", put_two_trees,
                      [](Files& /*files*/) { return copy_directory(kTop, kCopy); }),
      scenario<Files>("copy_directory of an empty one", make_empty_folder,
                      [](Files& /*files*/) { return copy_directory(kTop, kCopy); }),
      scenario<Files>("copy_file", put_file,
                      [](Files& /*files*/) { return copy_file(kFile, kCopy); }),
      scenario<Files>("copy_file into a new folder", put_file,
                      [](Files& /*files*/) { return copy_file(kFile, "/tmp/faults/new/copy"); }),
      scenario<Files>(
          "copy_file of a large file", put_large_file,
          [](Files& /*files*/) { return copy_file(kFile, kCopy); }, size_of_copy),
      scenario<Files>("copy_file over another", put_two_files,
                      [](Files& /*files*/) { return copy_file(kFile, kCopy); }),
      scenario<Files>(
          "create_directory",
          [](Files& /*files*/) { return with_errno(create_directory("/tmp/faults/a/b")); }),
      scenario<Files>("create_directory in the place of a file", put_top_file,
                      [](Files& /*files*/) { return with_errno(create_directory(kTop)); }),
      scenario<Files>("delete_directory", put_tree,
                      [](Files& /*files*/) { return delete_directory(kTop); }),
      scenario<Files>("delete_directory_contents", put_tree,
                      [](Files& /*files*/) { return delete_directory_contents(kTop); }),
      scenario<Files>("delete_regular_file", put_file,
                      [](Files& /*files*/) { return with_errno(delete_regular_file(kFile)); }),
      scenario<Files>("dropfile", put_file, [](Files& /*files*/) { return dropfile(kFile); }),
      scenario<Files>(
          "empty_directory of an empty one", make_empty_folder,
          [](Files& /*files*/) { return empty_directory(kTop); }, kNoContents),
      scenario<Files>(
          "empty_directory of another", put_tree,
          [](Files& /*files*/) { return empty_directory(kTop); }, kNoContents),
      scenario<Files>(
          "readfile", put_file,
          [](Files& /*files*/) { return static_cast<const char*>(readfile(kFile)); }, kNoContents),
      scenario<Files>(
          "readfile_r", put_file,
          [](Files& files) {
            return static_cast<const char*>(readfile_r(kFile, files.buffer, sizeof files.buffer));
          },
          kNoContents),
      scenario<Files>("writefile", put_file,
                      [](Files& /*files*/) { return with_errno(writefile(kFile, "new")); }),
      scenario<Files>("writefile of nothing", put_file,
                      [](Files& /*files*/) { return writefile(kFile, ""); }),
  };
}

}  // namespace faults
