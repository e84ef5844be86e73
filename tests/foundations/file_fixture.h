// What the tests of the file utilities share: a folder to work in, trees to compare, disks that are
// full, and a look at what is left behind.
#ifndef TESTS_FOUNDATIONS_FILE_FIXTURE_H
#define TESTS_FOUNDATIONS_FILE_FIXTURE_H

#include <cstddef>
#include <map>
#include <string>

#include <gmock/gmock.h>
#include <sys/types.h>

#include "support/for_nobody.h"
#include "support/interruption.h"
#include "support/put_file.h"
#include "support/syslog_collector.h"
#include "support/without_override.h"

// Each entry below a folder by its path from there, with what it is: "dir 755", "file 644 text",
// "link target", "fifo 644". Links are not followed.
using Tree = std::map<std::string, std::string>;
Tree tree_of(const std::string& folder);

// Starts with an empty folder and umask 022. At the end every message must have been taken from the
// log, and no descriptor may be left open.
class FileTest : public testing::Test {
 protected:
  FileTest();
  ~FileTest() override;
  void TearDown() override;

  // A path in the test's folder.
  [[nodiscard]] std::string at(const std::string& name) const { return folder_ + "/" + name; }
  // All that is in the folder.
  [[nodiscard]] Tree tree() const { return tree_of(folder_); }

  const std::string folder_ = "/tmp/file-test";
  support::SyslogCollector log_;

 private:
  std::map<int, std::string> descriptors_before_;
};

// A small disk (tmpfs) mounted on a folder, which must exist.
class TinyDisk {
 public:
  explicit TinyDisk(std::string folder);
  ~TinyDisk();
  TinyDisk(const TinyDisk&) = delete;
  TinyDisk& operator=(const TinyDisk&) = delete;

  void make_read_only();
  // What it holds at most.
  static constexpr std::size_t kSize = std::size_t{64} * 1024;

 private:
  std::string folder_;
};

std::string contents_of(const std::string& path);
bool exists(const std::string& path);  // a link that leads nowhere does
mode_t mode_of(const std::string& path);
void make_folders(const std::string& path);
void make_link(const std::string& target, const std::string& path);
void make_fifo(const std::string& path);
// Lets two paths change places in one step. It is nothing worth failing for when one is gone.
void exchange_paths(const std::string& one, const std::string& other);

// A path of this length in an existing folder, of names of at most 200 bytes. The last name has at
// least two.
std::string path_of_length(const std::string& folder, std::size_t length);

using support::Interruption;
using support::put;
using support::run_for_nobody;
using support::run_without_override;

#endif
