// The folders and values that the driver of digital inputs and outputs shows.

#include <rkutils/dio.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "support/kernel_folder.h"
#include "support/put_file.h"
#include "surroundings.h"
#include "target.h"

namespace {

namespace fs = std::filesystem;

using fuzz::expect_equal;
using fuzz::Input;

constexpr char kDriver[] = "/sys/devices/halcyonix";

bool is_file_name(const std::string& name) {
  return !name.empty() && name.size() <= 255 && name != "." && name != ".." &&
         name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

bool is_one(const std::string& name, const std::string& prefix) {
  if (name.substr(0, prefix.size()) != prefix) return false;
  const std::string number = name.substr(prefix.size());
  return (number.size() == 1 || number.size() == 2) &&
         number.find_first_not_of("0123456789") == std::string::npos;
}

// A driver with some folders of the input's names, each with a value.
class Driver {
 public:
  Driver() { sys_.make_folder("devices/halcyonix"); }

  void put_input(Input& input) const {
    constexpr int kMost = 6;
    for (int i = 0; i < kMost && !input.empty(); ++i) {
      const std::string name = input.until('=');
      const std::string value = input.until('\n');
      if (is_file_name(name)) support::put(std::string(kDriver) + "/" + name + "/value", value);
    }
  }

  static void clear() {
    for (const auto& entry : fs::directory_iterator(kDriver)) fs::remove_all(entry.path());
  }

  [[nodiscard]] static std::uint32_t count(const std::string& prefix) {
    std::uint32_t count = 0;
    for (const auto& entry : fs::directory_iterator(kDriver)) {
      if (is_one(entry.path().filename(), prefix)) ++count;
    }
    return count;
  }

  // The contents of a value's file; nothing where there is none.
  [[nodiscard]] static std::optional<std::string> contents(const std::string& prefix,
                                                           std::uint32_t number) {
    const std::string path = kDriver + ("/" + prefix) + std::to_string(number) + "/value";
    if (!fs::exists(path)) return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

 private:
  const support::KernelFolder sys_{"/sys"};
};

unsigned result_of(const std::optional<std::string>& contents) {
  if (!contents) return DIO_ERR_NOENT;
  if (contents->empty()) return DIO_ERR_IO;
  return (*contents)[0] == '0' || (*contents)[0] == '1' ? DIO_OK : DIO_ERR_LEXICAL;
}

void check_value(const std::string& prefix, std::uint32_t number,
                 unsigned (*read)(std::uint32_t, unsigned char*)) {
  const std::optional<std::string> contents = Driver::contents(prefix, number);
  const unsigned expected = result_of(contents);
  unsigned char value = 77;
  expect_equal(read(number, &value), expected, "the result of reading a value");
  const int on = expected == DIO_OK ? (*contents)[0] - '0' : 77;
  expect_equal(int{value}, on, "a value");
}

void check_status(const std::string& prefix, unsigned (*read)(DioStatus*),
                  int (*get)(const DioStatus*, std::uint32_t)) {
  DioStatus status = {};
  unsigned expected = DIO_OK;
  const std::uint32_t count = Driver::count(prefix);
  std::uint32_t good = 0;
  while (expected == DIO_OK && good < count) {
    expected = result_of(Driver::contents(prefix, good + 1));
    if (expected == DIO_OK) ++good;
  }
  expect_equal(read(&status), expected, "the result of reading all");
  expect_equal(status.count, count, "how many there are");
  for (std::uint32_t number = 1; number <= good; ++number) {
    const int on = (*Driver::contents(prefix, number))[0] - '0';
    expect_equal(get(&status, number), on, "a value of all");
  }
}

void check_counts() {
  std::uint32_t count = 77;
  expect_equal(dio_roCount(&count), unsigned{DIO_OK}, "the result of counting inputs");
  expect_equal(count, Driver::count("din"), "the number of inputs");
  expect_equal(dio_rwCount(&count), unsigned{DIO_OK}, "the result of counting outputs");
  expect_equal(count, Driver::count("dout"), "the number of outputs");
}

}  // namespace

// Names of folders, each with what its value's file holds behind "=", in the rest of the line.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Driver driver;
  Input input(data, size);
  driver.put_input(input);
  {
    const fuzz::NothingLeftOpen nothing_left_open;
    check_counts();
    for (std::uint32_t number = 1; number <= 3; ++number) {
      check_value("din", number, dio_roValue);
      check_value("dout", number, dio_rwValue);
    }
    check_status("din", dio_getStatusIn, dio_getInValueFromStatus);
    check_status("dout", dio_getStatusOut, dio_getOutValueFromStatus);
  }
  Driver::clear();
  return 0;
}
