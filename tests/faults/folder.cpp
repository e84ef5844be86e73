#include "folder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "scenario.h"

namespace faults {
namespace {

namespace fs = std::filesystem;

std::string octal(fs::perms mode) {
  std::string digits;
  for (unsigned left = static_cast<unsigned>(mode); left != 0; left /= 8) {
    digits.insert(digits.begin(), static_cast<char>('0' + left % 8));
  }
  return digits;
}

std::string text_in(const fs::path& path) {
  std::ifstream file(path);
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return text_of(text.c_str());
}

std::string description_of(const fs::directory_entry& entry) {
  const fs::file_status status = entry.symlink_status();
  const std::string mode = " " + octal(status.permissions());
  switch (status.type()) {
    case fs::file_type::symlink:
      return " -> " + fs::read_symlink(entry.path()).string();
    case fs::file_type::directory:
      return "/" + mode;
    case fs::file_type::regular:
      return mode + " " + text_in(entry.path());
    case fs::file_type::fifo:
      return " fifo" + mode;
    default:
      return " of another kind";
  }
}

}  // namespace

Folder::Folder(std::string path) : path_(std::move(path)) {
  ::umask(022);
  fs::remove_all(path_);
  fs::create_directories(path_);
}

Folder::~Folder() { fs::remove_all(path_); }

std::string Folder::contents() const {
  std::vector<std::string> entries;
  for (const auto& entry : fs::recursive_directory_iterator(path_)) {
    entries.push_back(entry.path().string().substr(path_.size() + 1) + description_of(entry));
  }
  std::sort(entries.begin(), entries.end());
  std::string text;
  for (const std::string& entry : entries) text += (text.empty() ? "" : ", ") + entry;
  return text.empty() ? "empty" : text;
}

}  // namespace faults
