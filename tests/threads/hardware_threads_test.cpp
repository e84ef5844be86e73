// Inputs, outputs, media and the log, used by several threads at once.

#include <rkutils/adc.h>
#include <rkutils/dio.h>
#include <rkutils/dwlog.h>
#include <rkutils/storage.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>

#include "support/at_once.h"
#include "support/kernel_folder.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/time_zone.h"

namespace {

using support::at_once;

constexpr int kThreads = 4;

TEST(ThreadsWithAnalogInputs, ReadTheirOwn) {
  for (int i = 0; i < kThreads; ++i) {
    support::put("/tmp/raw" + std::to_string(i), std::to_string(100 + i) + "\n");
  }
  support::put("/tmp/scale", "0.5\n");
  at_once(kThreads, [](int thread) {
    const std::string path = "/tmp/raw" + std::to_string(thread);
    for (int round = support::rounds(500); round > 0; --round) {
      float value = 0;
      ASSERT_EQ(adc_read(path.c_str(), "/tmp/scale", &value), 0);
      ASSERT_EQ(value, 50 + 0.5F * static_cast<float>(thread));
      ASSERT_EQ(dw41x0_adc_read(path.c_str(), &value), 0);
      ASSERT_GT(value, 2800);
      ASSERT_EQ(dw4600_adc_supported(), 0);
    }
  });
}

// With two inputs and an output.
class ThreadsWithInputsAndOutputs : public testing::Test {
 protected:
  ThreadsWithInputsAndOutputs() {
    sys_.put("devices/halcyonix/din1/value", "1\n");
    sys_.put("devices/halcyonix/din2/value", "0\n");
    sys_.put("devices/halcyonix/dout1/value", "0\n");
  }

 private:
  support::KernelFolder sys_{"/sys"};
};

// The counts are the process's, and each thread counts them anew.
TEST_F(ThreadsWithInputsAndOutputs, CountAndReadThem) {
  at_once(kThreads, [](int) {
    for (int round = support::rounds(200); round > 0; --round) {
      std::uint32_t count = 0;
      ASSERT_EQ(dio_count(&count), 0U);
      ASSERT_EQ(count, 3U);
      ASSERT_EQ(dio_roCount(&count), 0U);
      ASSERT_EQ(count, 2U);
      unsigned char value = 7;
      ASSERT_EQ(dio_roValue(1, &value), 0U);
      ASSERT_EQ(value, 1);
      DioStatusAll status = {};
      ASSERT_EQ(dio_getStatus(&status), 0U);
      ASSERT_EQ(dio_getInValueFromStatus(&status.in, 1), 1);
      ASSERT_EQ(dio_getInValueFromStatus(&status.in, 2), 0);
    }
  });
}

TEST_F(ThreadsWithInputsAndOutputs, WriteThem) {
  at_once(kThreads, [](int) {
    for (int round = support::rounds(200); round > 0; --round) {
      ASSERT_EQ(dio_setValue(1, round % 2), 0U);
    }
  });
}

TEST(ThreadsWithMedia, ListThem) {
  const support::KernelFolder sys("/sys");
  const support::KernelFolder proc("/proc");
  sys.make_folder("class/block");
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/block")) {
    std::filesystem::remove(entry);
  }
  sys.make_folder("devices/ehci/usb1/1-1/1-1:1.0/host2/block/sdb");
  std::filesystem::create_symlink("../../devices/ehci/usb1/1-1/1-1:1.0/host2/block/sdb",
                                  "/sys/class/block/sdb");
  at_once(kThreads, [](int) {
    for (int round = support::rounds(100); round > 0; --round) {
      StorageList* const list = old_get_storage(0);
      ASSERT_NE(list, nullptr);
      ASSERT_EQ(list->count, 1U);
      const StorageEntry* const entry = old_get_storage_device(list, STORAGE_TYPE_EXTERNAL, 0);
      ASSERT_NE(entry, nullptr);
      ASSERT_STREQ(entry->device, "sdb");
      old_free_storage(list);
      std::free(list);
    }
  });
}

TEST(ThreadsWithTheLog, WriteAndReadIt) {
  const support::TimeZone zone("UTC0");
  dwlog_clear();
  at_once(kThreads, [](int thread) {
    std::array<char, 65536> text;
    for (int i = 0; i < 8; ++i) {
      ASSERT_EQ(dwlog(thread, "entry"), 0);
      ASSERT_GE(dwlog_read(text.data(), text.size()), 0);
      ASSERT_NE(std::string(text.data()).find(std::to_string(thread) + ": "), std::string::npos);
    }
  });
  dwlog_clear();
}

}  // namespace
