// Analogue inputs.

#include <rkutils/adc.h>
#include <rkutils/file.h>
#include <rkutils/foundations/text/decimal.h>
#include <rkutils/internal/postponed_cancellation.h>

#include <cstdint>
#include <cstdlib>

#include <unistd.h>

namespace {

constexpr char kFirstInput[] = "/sys/bus/iio/devices/iio:device0/in_voltage0_raw";
constexpr char kScale[] = "/sys/bus/iio/devices/iio:device0/in_voltage_scale";

// What the hardware divides the voltage by before it is converted.
constexpr double kDw4600Divider = 30.379;
constexpr double kDw41x0Divider = 28.561;

// What a file of the driver's says.
class Reading {
 public:
  explicit Reading(const char* path) { readfile_r(path, text_, sizeof text_); }

  [[nodiscard]] bool is_empty() const { return *text_ == '\0'; }
  [[nodiscard]] const char* text() const { return text_; }

 private:
  char text_[128];
};

int read_divided(const char* raw_path, const char* scale_path, double divider, float* out) {
  const int result = adc_read(raw_path, scale_path, out);
  if (out != nullptr) *out = static_cast<float>(static_cast<double>(*out) * divider);
  return result;
}

}  // namespace

int adc_read(const char* raw_path, const char* scale_path, float* out) {
  if (out == nullptr) return -1;
  *out = 0;
  const rkutils::internal::PostponedCancellation postponed;
  const Reading raw(raw_path);
  if (raw.is_empty()) return -1;
  const std::int32_t value = rkutils::text::read_decimal(raw.text());
  if (value < 0) return -1;
  float factor = 1;
  if (scale_path != nullptr) {
    const Reading scale(scale_path);
    if (scale.is_empty()) return -1;
    factor = static_cast<float>(std::atof(scale.text()));
  }
  *out = static_cast<float>(value) * factor;
  return 0;
}

int dw4600_adc_supported(void) { return ::access(kFirstInput, R_OK) == 0 ? 1 : 0; }

int dw4600_adc_read(const char* raw_path, float* out) {
  return read_divided(raw_path, kScale, kDw4600Divider, out);
}

int dw41x0_adc_read(const char* raw_path, float* out) {
  return read_divided(raw_path, nullptr, kDw41x0Divider, out);
}
