// The hardware as the kernel and the device files tell it.

#include <rkutils/foundations/text/decimal.h>
#include <rkutils/systeminfo.h>

#include <cstdint>

#include <unistd.h>

namespace {

constexpr char kHardwareTypeFile[] = "/proc/sysinfo/dwhw";
constexpr char kExtensionVariantFile[] = "/proc/sysinfo/bd/1/prod_variant";
constexpr char kSimDevice[] = "/dev/sim";

// This type has PoE, with this variant of its extension board.
constexpr int kTypeThatMayHavePoe = 18;
constexpr int kVariantWithPoe = 0;

// What files that cannot be read, and empty ones, give.
constexpr std::int32_t kUnknown = -1;

std::int32_t read_number(const char* path) {
  const char* const text = readfile(path);
  return *text == '\0' ? kUnknown : rkutils::text::read_decimal(text);
}

}  // namespace

int dwhw(void) {
  static std::int32_t type = kUnknown;
  if (type == kUnknown) type = read_number(kHardwareTypeFile);
  return type;
}

int get_extension_variant(void) { return read_number(kExtensionVariantFile); }

int has_poe(void) {
  return dwhw() == kTypeThatMayHavePoe && get_extension_variant() == kVariantWithPoe ? 1 : 0;
}

int has_sim_holder(void) { return ::access(kSimDevice, R_OK) == 0 ? 1 : 0; }
