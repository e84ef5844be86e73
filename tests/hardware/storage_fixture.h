// What the tests of the storage list share: a machine with the block devices of the test alone.
#ifndef TESTS_HARDWARE_STORAGE_FIXTURE_H
#define TESTS_HARDWARE_STORAGE_FIXTURE_H

#include <rkutils/storage.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "storage_media.h"
#include "support/kernel_folder.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/syslog_collector.h"

// Something mounted, until the object's end: a file system in memory of 1 MiB, whose name in the
// list of mounts is the source. The folder is made and removed.
class Mount {
 public:
  Mount(const std::string& source, const std::string& folder);
  ~Mount();
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;

  static constexpr std::uint64_t kBytes = std::uint64_t{1024} * 1024;

 private:
  const std::string folder_;
};

// Nothing is mounted, nothing has a name on a USB port, and the hardware type is not known. At the
// end nothing may have been logged, and no descriptor may be left open.
class StorageTest : public testing::Test {
 protected:
  StorageTest();
  ~StorageTest() override;
  void TearDown() override;

  // A block device with its folder in this one below that of the devices, and with the link that
  // leads to it.
  void add_device(const std::string& name, const std::string& place);

  // A link with this text, wherever it leads.
  static void add_link(const std::string& name, const std::string& text);

  // The media as the test's machine has them, worked out by other means.
  static std::vector<Medium> expected(std::uint32_t mask = 0) {
    return expected_media(mask, -1, opened_size);
  }

  // A whole disk that can be opened, but does not tell its size.
  void add_disk(const std::string& name);

  void set_port(int port, const std::string& names) {
    proc_.put("sysinfo/usbport" + std::to_string(port) + "/usbName", names);
  }

  static constexpr char kBlock[] = "/sys/class/block";

  // Where block devices hang.
  static constexpr char kMmc0[] = "soc/mmc_host/mmc0/mmc0:0001/block/mmcblk0";
  static constexpr char kMmc1[] = "soc/mmc_host/mmc1/mmc1:aaaa/block/mmcblk1";
  static constexpr char kMtd[] = "spi0/mtd/mtd3";
  static constexpr char kAta1[] = "sata/ata1/host0/target0:0:0/0:0:0:0/block";
  static constexpr char kAta2[] = "sata/ata2/host1/target1:0:0/1:0:0:0/block";
  static constexpr char kUsb[] = "ehci/usb1/1-1/1-1.2/1-1.2:1.0/host2/block";

  const support::KernelFolder sys_{"/sys"};
  const support::KernelFolder proc_{"/proc"};

 private:
  support::SyslogCollector log_;
  std::vector<std::string> disks_;
  std::map<int, std::string> descriptors_before_;
};

#endif
