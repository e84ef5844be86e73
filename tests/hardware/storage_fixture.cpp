#include "storage_fixture.h"

#include <cerrno>
#include <system_error>

#include <sys/mount.h>

namespace fs = std::filesystem;

Mount::Mount(const std::string& source, const std::string& folder) : folder_(folder) {
  fs::create_directories(folder_);
  if (::mount(source.c_str(), folder_.c_str(), "tmpfs", 0, "size=1m") != 0) {
    throw std::system_error(errno, std::generic_category(), "mount on " + folder_);
  }
}

Mount::~Mount() {
  ::umount2(folder_.c_str(), MNT_DETACH);
  std::error_code ignored;
  fs::remove(folder_, ignored);
}

StorageTest::StorageTest() {
  sys_.make_folder("class/block");
  sys_.make_folder("devices");
  for (const fs::directory_entry& entry : fs::directory_iterator(kBlock)) fs::remove(entry.path());
  proc_.put("mounts", "");
  descriptors_before_ = support::open_descriptors();
}

StorageTest::~StorageTest() {
  for (const std::string& disk : disks_) fs::remove(disk);
}

void StorageTest::TearDown() {
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(support::open_descriptors(), descriptors_before_);
}

void StorageTest::add_device(const std::string& name, const std::string& place) {
  const std::string folder = "devices/" + place + "/" + name;
  fs::create_directories("/sys/" + folder);
  add_link(name, "../../" + folder);
}

void StorageTest::add_disk(const std::string& name) {
  support::put(disks_.emplace_back("/dev/" + name), "");
}

void StorageTest::add_link(const std::string& name, const std::string& text) {
  fs::create_symlink(text, fs::path(kBlock) / name);
}
