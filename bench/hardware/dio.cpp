// Digital inputs and outputs, as files in memory, beside bare calls.

#include <rkutils/dio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hardware/rows.h"
#include "support/comparison.h"
#include "support/kernel_folder.h"

namespace bench::hardware {
namespace {

using benchmark::State;

constexpr char kDriver[] = "/sys/devices/halcyonix/";
constexpr int kCount = 96;
constexpr std::array<const char*, 2> kDirections = {"din", "dout"};

// The driver's folder: that many inputs and outputs, of which every third is 1.
class DriverFolder {
 public:
  DriverFolder() {
    for (const char* direction : kDirections) {
      for (int i = 1; i <= kCount; ++i) {
        sys_.put("devices/halcyonix/" + (direction + std::to_string(i)) + "/value",
                 i % 3 == 0 ? "1" : "0");
      }
    }
  }

  static bool is(const DioStatus& status) {
    return status.count == kCount && status.bits[0] == 0x24 && status.bits[11] == 0x92;
  }

 private:
  support::KernelFolder sys_{"/sys"};
};

void get_status(State& state) {
  const DriverFolder driver;
  DioStatusAll all = {};
  for (auto _ : state) {
    if (dio_getStatus(&all) != DIO_OK) state.SkipWithError("not read");
  }
  if (!DriverFolder::is(all.in) || !DriverFolder::is(all.out)) state.SkipWithError("other values");
}

// The names, all known beforehand.
struct Paths {
  Paths() {
    for (const char* direction : kDirections) {
      for (int i = 1; i <= kCount; ++i) {
        const std::string name = direction + std::to_string(i);
        folders.push_back(std::string(kDriver) + "/" + name);
        values.push_back(kDriver + name + "/value");
      }
    }
  }

  std::vector<std::string> folders;
  std::vector<std::string> values;
};

// Lists the folder, and looks whether those of a direction are folders that may be entered.
int count(const Paths& paths, std::size_t direction) {
  DIR* const folder = ::opendir(kDriver);
  int entries = 0;
  while (::readdir(folder) != nullptr) ++entries;
  ::closedir(folder);
  int found = 0;
  for (int i = 0; i < kCount && entries >= 2 * kCount; ++i) {
    struct stat status;
    const char* const path =
        paths.folders[direction * kCount + static_cast<std::size_t>(i)].c_str();
    if (::stat(path, &status) != 0 || !S_ISDIR(status.st_mode)) break;
    if (::access(path, R_OK | X_OK) == 0) ++found;
  }
  return found;
}

// Counts both directions, as it is done for each of them, and reads the values of one.
bool read(const Paths& paths, std::size_t direction, DioStatus& status) {
  if (count(paths, 0) + count(paths, 1) != 2 * kCount) return false;
  status.count = kCount;
  for (std::size_t i = 0; i < kCount; ++i) {
    const int file = ::open(paths.values[direction * kCount + i].c_str(), O_RDONLY | O_CLOEXEC);
    char digit = 0;
    const bool done = ::read(file, &digit, 1) == 1;
    ::close(file);
    if (!done) return false;
    const unsigned mask = 1U << i % 8;
    unsigned char& byte = status.bits[i / 8];
    byte = static_cast<unsigned char>(digit == '1' ? byte | mask : byte & ~mask);
  }
  return true;
}

void get_by_calls(State& state) {
  const DriverFolder driver;
  const Paths paths;
  DioStatusAll all = {};
  for (auto _ : state) {
    if (!read(paths, 0, all.in) || !read(paths, 1, all.out)) state.SkipWithError("not read");
  }
  if (!DriverFolder::is(all.in) || !DriverFolder::is(all.out)) state.SkipWithError("other values");
}

}  // namespace

void add_dio_rows() {
  compare("dio_getStatus, 96 inputs and outputs", get_status,
          {floor("readdir, stat, access, open, read, close", 1.1, get_by_calls)});
}

}  // namespace bench::hardware
