#include <rkutils/dio.h>
#include <rkutils/hardware/dio/driver_file.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_file.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include <fcntl.h>

namespace {

using namespace rkutils::dio;
using rkutils::internal::ErrnoRestorer;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;
using rkutils::internal::UniqueFile;

constexpr char kQuestion[] = "-1";

DriverPath path_of(uint32_t number) { return DriverPath(kInput, number, "frequency"); }

UniqueFile open_stream(const DriverPath& path) {
  UniqueFd file = rkutils::file::open_to_read(path.c_str());
  if (!file) return nullptr;
  UniqueFile stream(::fdopen(file.get(), "r"));
  if (stream) static_cast<void>(file.release());
  return stream;
}

// The number of fields that were read; EOF when there was nothing to read, or that failed.
int scan(std::FILE* stream, DioFrequency& frequency) {
  for (;;) {
    errno = 0;
    const int fields =
        std::fscanf(stream, "%ld %ld %lu", &frequency.first, &frequency.second, &frequency.value);
    if (std::ferror(stream) == 0 || errno != EINTR) return fields;
    std::rewind(stream);  // a signal came in between: once more from the beginning
  }
}

unsigned read_frequency(std::FILE* stream, const DriverPath& path, DioFrequency& frequency) {
  const int fields = scan(stream, frequency);
  if (fields < 0) {
    log_failed_call("fscanf", path.c_str());
    return DIO_ERR_IO;
  }
  if (fields < 3) {
    log_lexical_error(path.c_str());
    return DIO_ERR_LEXICAL;
  }
  frequency.value = static_cast<std::uint32_t>(frequency.value);
  return frequency.first == 0 && frequency.second == 0 ? DIO_ERR_INACTIVE : DIO_OK;
}

void close_stream(UniqueFile stream, const DriverPath& path) {
  const ErrnoRestorer keep_errno;
  if (std::fclose(stream.release()) != 0) log_failed_call("fclose", path.c_str());
}

unsigned ask_whether_active(int file, const DriverPath& path, unsigned char& active) {
  const ssize_t written = write_at_once(file, path, kQuestion);
  if (written >= 0 && written != static_cast<ssize_t>(sizeof kQuestion - 1)) return DIO_ERR_IO;
  if (written < 0 && errno != EEXIST) return DIO_ERR_INACTIVE;
  active = static_cast<unsigned char>(written < 0 ? 1 : 0);
  return DIO_OK;
}

unsigned switch_measurement(int file, const DriverPath& path, bool on) {
  const ssize_t written = write_at_once(file, path, on ? "1" : "0");
  if (written == 1) return DIO_OK;
  if (written < 0 && on && errno == EEXIST) return DIO_ERR_ACTIVE;
  if (written < 0 && !on && errno == ENOENT) return DIO_ERR_INACTIVE;
  return DIO_ERR_IO;
}

}  // namespace

unsigned dio_frequency(uint32_t number, DioFrequency* frequency) {
  if (frequency == nullptr) return refuse_null();
  const PostponedCancellation postponed;
  if (!is_in_range(number)) return DIO_ERR_RANGE;
  const DriverPath path = path_of(number);
  UniqueFile stream = open_stream(path);
  if (!stream) return fail_to_open("fopen", path.c_str());
  const unsigned result = read_frequency(stream.get(), path, *frequency);
  close_stream(std::move(stream), path);
  return result;
}

unsigned dio_frequencyActive(uint32_t number, unsigned char* active) {
  if (active == nullptr) return refuse_null();
  const PostponedCancellation postponed;
  if (!is_in_range(number)) return DIO_ERR_RANGE;
  const DriverPath path = path_of(number);
  return use_file(path, O_WRONLY,
                  [&](int file) { return ask_whether_active(file, path, *active); });
}

unsigned dio_setFrequencyActive(uint32_t number, int on) {
  const PostponedCancellation postponed;
  if (!is_in_range(number)) return DIO_ERR_RANGE;
  const DriverPath path = path_of(number);
  return use_file(path, O_WRONLY,
                  [&](int file) { return switch_measurement(file, path, on != 0); });
}
