// What the tests of the system information share: the files that tell what the device is.
#ifndef TESTS_CONFIGURATION_SYSTEMINFO_FIXTURE_H
#define TESTS_CONFIGURATION_SYSTEMINFO_FIXTURE_H

#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/kernel_folder.h"
#include "support/put_file.h"
#include "support/syslog_collector.h"

// Starts on a device that has none of the files. At the end nothing may have been logged, and no
// descriptor may be left open.
class SysteminfoTest : public testing::Test {
 protected:
  SysteminfoTest();
  ~SysteminfoTest() override;
  void TearDown() override;

  static constexpr char kVariables[] = "/etc/default/system-info";
  static constexpr char kOemFile[] = "/etc/oem/oem.conf";

 private:
  support::SyslogCollector log_;
  std::map<int, std::string> descriptors_before_;
};

// With a /proc that takes the files of the kernel's that tell of the hardware.
class HardwareTest : public SysteminfoTest {
 protected:
  static constexpr char kType[] = "sysinfo/dwhw";
  static constexpr char kProductName[] = "sysinfo/bd/0/prod_name";
  static constexpr char kVariant[] = "sysinfo/bd/1/prod_variant";

  const support::KernelFolder proc_{"/proc"};
};

using support::put;

// The descriptor of this process on `path`, but for `other`. Waits until there is one; -1 when
// there is none after ten seconds.
int wait_for_descriptor(const std::string& path, int other);

// The texts that fgets() gives of a file's contents with a buffer of `size` bytes, up to one that
// is empty: worked out from its description, for comparison.
std::vector<std::string> pieces_of(const std::string& contents, std::size_t size);

// Files of random bytes, rich in those that mean something in lines of assignments; the same in
// each run.
std::vector<std::string> random_files(int count);

#endif
