// What the tests of digital inputs and outputs share: a driver, the log, and a look at what is left
// behind.
#ifndef TESTS_HARDWARE_DIO_FIXTURE_H
#define TESTS_HARDWARE_DIO_FIXTURE_H

#include <rkutils/dio.h>

#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/dio_stand_in.h"
#include "support/failing_calls.h"
#include "support/kernel_folder.h"
#include "support/open_descriptors.h"
#include "support/syslog_collector.h"

constexpr char kDriver[] = "/sys/devices/halcyonix/";

// Messages of the log, `error` being the cause.
support::LogLine failed(const std::string& call, const std::string& path, int error);
support::LogLine not_read(const std::string& path, int error);
support::LogLine not_written(const std::string& path, int error);
support::LogLine lexical_error(const std::string& path);
support::LogLine out_of_range(const std::string& number);

// What a counting function stores; the test fails where the function does.
uint32_t counted(unsigned (*count)(uint32_t*));
uint32_t inputs();
uint32_t outputs();

// The operations that go with using a file: it is opened, something is done to it, it is closed.
std::vector<support::DioOperation> use_of(const std::string& path, const std::string& access,
                                          const std::vector<support::DioOperation>& operations);

// The report of a failed assertion, as either C library writes it.
testing::Matcher<const std::string&> assertion(const std::string& condition,
                                               const std::string& source,
                                               const std::string& function);

// Finds messages and descriptors that are left behind.
class DioLogTest : public testing::Test {
 protected:
  void TearDown() override;

  support::SyslogCollector log_;

 private:
  std::map<int, std::string> descriptors_before_ = support::open_descriptors();
};

// With ordinary folders and files in the driver's place.
class DioFolderTest : public DioLogTest {
 protected:
  // A folder, or a file, of the driver's.
  void make_folder(const std::string& name) { sys_.make_folder("devices/halcyonix/" + name); }
  void put(const std::string& name, const std::string& text) {
    sys_.put("devices/halcyonix/" + name, text);
  }

  support::KernelFolder sys_{"/sys"};
};

// With a log that takes no message, and leaves its own errno behind. Also ordinary folders and
// files.
class DioBrokenLogTest : public testing::Test {
 protected:
  // What errno is after `action`, in which these calls fail besides.
  static int error_after(const std::function<void()>& action,
                         std::vector<support::FailingCall> calls = {});
  void put(const std::string& name, const std::string& text) {
    sys_.put("devices/halcyonix/" + name, text);
  }
  void make_folder(const std::string& name) { sys_.make_folder("devices/halcyonix/" + name); }

  support::KernelFolder sys_{"/sys"};

 private:
  support::SyslogCollector log_;
};

// With the stand-in for the driver: three inputs and two outputs. Skipped where it is refused.
class DioTest : public DioLogTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Only after SetUp(): not in a test that is skipped.
  support::DioStandIn& driver() { return *driver_; }

 private:
  std::optional<support::DioStandIn> driver_;
};

#endif
