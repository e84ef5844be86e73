// The list of storage media of random machines, beside one that is worked out by other means.

#include <rkutils/storage.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "storage_fixture.h"
#include "support/rounds.h"

namespace {

namespace fs = std::filesystem;

class StorageModel : public StorageTest {
 protected:
  unsigned below(std::size_t limit) { return static_cast<unsigned>(random_() % limit); }

  template <std::size_t Count>
  std::string any(const std::array<const char*, Count>& choices) {
    return choices[below(Count)];
  }
  bool one_in(unsigned count) { return below(count) == 0; }

  // Links of all kinds, some of them longer than what is looked at.
  std::string link() {
    std::string text = "..";
    for (unsigned left = 1 + below(5); left > 0; --left) {
      text += any<14>({"/mtd", "/mmc_host", "/ata1", "/ata2", "/ata3", "/ata12", "/usb1", "/1-1",
                       "/1-1.2", "/2-1", "/devices", "/x", "/host0", "/usbmisc"});
      if (one_in(12)) text += "/" + std::string(below(250), 'x');
    }
    return text + any<3>({"/block", "/", ""});
  }

  std::string port_names() {
    std::string names;
    for (unsigned left = below(5); left > 0; --left) {
      if (one_in(6)) names += std::string(below(60), 'x') + "\n";
      names += any<7>({"1-1", "1-1:2", "2-1", "9-9", "usb1", " 1-1 ", ""});
      names += any<3>({"\n", "\n\n", " \n"});
    }
    return names;
  }

  std::string mounts() {
    std::string lines;
    for (unsigned left = below(12); left > 0; --left) {
      lines += any<4>({"/dev/", "/dev/", "/dev/", ""}) + any_name() + any<4>({" ", " ", " ", "  "});
      lines += any<6>({"/", "/tmp", "/overlay", "/missing", "/a\\040b", "/run"});
      if (one_in(5)) lines += "/" + std::string(below(100), 'f');
      lines += " tmpfs rw";
      if (one_in(4)) lines += std::string(below(300), 'o');
      lines += " 0 0\n";
    }
    return lines;
  }

  std::string any_name() {
    return any<16>({"mmcblk0p3", "mmcblk0p4", "mmcblk1p1", "mmcblk1p3", "mmcblk1p4", "mtdblock3",
                    "sda", "sda1", "sdb", "sdb1", "sdc", "sdd", "sdd1", "mmcblk0", "sda2",
                    "mtdblock2"});
  }

  void make_machine() {
    for (const fs::directory_entry& entry : fs::directory_iterator(kBlock))
      fs::remove(entry.path());
    for (unsigned left = 1 + below(10); left > 0; --left) {
      const std::string name = any_name();
      const fs::path path = fs::path(kBlock) / name;
      if (fs::symlink_status(path).type() != fs::file_type::not_found) continue;
      if (one_in(3)) {
        add_device(name, any<4>({kMmc1, kUsb, kAta2, kMtd}));
      } else {
        fs::create_symlink(link(), path);
      }
    }
    set_port(0, port_names());
    set_port(1, port_names());
    proc_.put("mounts", mounts());
  }

 private:
  std::mt19937 random_{1};
};

TEST_F(StorageModel, ListsTheSame) {
  for (const char* const disk : {"sda", "mmcblk0", "mtdblock3"}) add_disk(disk);
  std::size_t media = 0;
  std::size_t mounted = 0;
  for (int round = support::rounds(200); round > 0; --round) {
    make_machine();
    for (const std::uint32_t mask : {0U, 2U, 4U, 8U, 16U, 24U}) {
      ASSERT_EQ(listed(mask), expected(mask)) << "round " << round << " mask " << mask;
    }
    for (const Medium& medium : listed()) {
      ++media;
      if (medium.total != kAllBits) ++mounted;
    }
  }
  // The machines are not all without media.
  EXPECT_GT(media, 0U);
  if (support::stride() == 1) {
    EXPECT_GT(mounted, 20U);
  }
}

}  // namespace
