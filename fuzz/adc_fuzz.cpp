// The texts of the driver of analogue inputs.

#include <rkutils/adc.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "support/kernel_folder.h"
#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

constexpr double kDw4600Divider = 30.379;
constexpr double kDw41x0Divider = 28.561;

struct Reading {
  int result = -1;
  float value = 0;
};

// `scale` is NULL where there is none.
Reading reading_of(const std::string& raw, const std::string* scale) {
  constexpr std::size_t kSize = 128;
  const std::string raw_text = fuzz::small_file_text(raw, kSize);
  const std::string scale_text = scale != nullptr ? fuzz::small_file_text(*scale, kSize) : "1";
  const std::int32_t number = fuzz::number_of(raw_text);
  if (raw_text.empty() || scale_text.empty() || number < 0) return {};
  return {0, static_cast<float>(number) * static_cast<float>(std::atof(scale_text.c_str()))};
}

void check(int result, float value, const Reading& expected, double divider, const char* what) {
  expect_equal(result, expected.result, what);
  const auto divided = static_cast<float>(static_cast<double>(expected.value) * divider);
  expect((std::isnan(value) && std::isnan(divided)) || value == divided, what);
}

}  // namespace

// The raw value, and behind a file separator, 0x1c, the scale.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const support::KernelFolder sys("/sys");
  static fuzz::InputFile raw_file(sys, "bus/iio/devices/iio:device0/in_voltage0_raw");
  static fuzz::InputFile scale_file(sys, "bus/iio/devices/iio:device0/in_voltage_scale");
  Input input(data, size);
  const std::string raw = input.until('\x1c');
  const std::string scale = input.rest();
  raw_file.put(raw);
  scale_file.put(scale);

  const fuzz::NothingLeftOpen nothing_left_open;
  const Reading scaled = reading_of(raw, &scale);
  const Reading unscaled = reading_of(raw, nullptr);
  float value = 77;
  int result = adc_read(raw_file.path(), scale_file.path(), &value);
  check(result, value, scaled, 1, "an input");
  result = adc_read(raw_file.path(), nullptr, &value);
  check(result, value, unscaled, 1, "an input without a scale");
  result = dw4600_adc_read(raw_file.path(), &value);
  check(result, value, scaled, kDw4600Divider, "an input of one family");
  result = dw41x0_adc_read(raw_file.path(), &value);
  check(result, value, unscaled, kDw41x0Divider, "an input of another family");
  return 0;
}
