#include <rkutils/dio.h>
#include <rkutils/hardware/dio/driver_file.h>
#include <rkutils/hardware/dio/value.h>
#include <rkutils/internal/assertion.h>
#include <rkutils/internal/postponed_cancellation.h>

#include <cerrno>

#include <fcntl.h>

namespace rkutils::dio {
namespace {

using internal::PostponedCancellation;

constexpr internal::Assertions check{"rkutils/dio"};
constexpr char kFileName[] = "value";

unsigned read_digit(int file, const DriverPath& path, unsigned char& on) noexcept {
  char digit;
  errno = 0;
  if (file::read_some(file, &digit, 1) != 1) {
    log_failed_transfer("read from", path.c_str());
    return DIO_ERR_IO;
  }
  if (digit != '0' && digit != '1') {
    log_lexical_error(path.c_str());
    return DIO_ERR_LEXICAL;
  }
  on = digit == '1' ? 1 : 0;
  return DIO_OK;
}

unsigned read_value(const char* direction, std::uint32_t number, unsigned char* value) noexcept {
  if (value == nullptr) return refuse_null();
  const PostponedCancellation postponed;
  if (!is_in_range(number)) return DIO_ERR_RANGE;
  return dio_value(DriverPath(direction, number, kFileName), value);
}

}  // namespace

unsigned dio_value(const DriverPath& path, unsigned char* on) noexcept {
  check(on != nullptr, "on != NULL");
  return use_file(path, O_RDONLY, [&](int file) { return read_digit(file, path, *on); });
}

}  // namespace rkutils::dio

using namespace rkutils::dio;

unsigned dio_roValue(uint32_t number, unsigned char* value) {
  return read_value(kInput, number, value);
}

unsigned dio_rwValue(uint32_t number, unsigned char* value) {
  return read_value(kOutput, number, value);
}

unsigned dio_setValue(uint32_t number, int value) {
  const PostponedCancellation postponed;
  if (!is_in_range(number)) return DIO_ERR_RANGE;
  const DriverPath path(kOutput, number, kFileName);
  return use_file(path, O_WRONLY, [&](int file) -> unsigned {
    return write_at_once(file, path, value != 0 ? "1" : "0") == 1 ? DIO_OK : DIO_ERR_IO;
  });
}
