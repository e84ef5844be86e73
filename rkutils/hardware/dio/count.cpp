#include <rkutils/dio.h>
#include <rkutils/foundations/text/ascii.h>
#include <rkutils/hardware/dio/count.h>
#include <rkutils/hardware/dio/driver_file.h>
#include <rkutils/internal/assertion.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_dir.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace rkutils::dio {
namespace {

using internal::PostponedCancellation;

constexpr internal::Assertions check{"rkutils/dio"};

// The driver's folder as the beginning of an entry's path, with the slash that joins the two.
constexpr char kEntryFolder[] = "/sys/devices/halcyonix//";

// What was counted last. Threads that count at the same time overwrite each other's, and nothing
// depends on the order in which that is seen: as plain integers, but without a data race.
struct Counts {
  std::atomic<std::uint32_t> inputs{0};
  std::atomic<std::uint32_t> outputs{0};
};
Counts counts;

std::uint32_t last(const std::atomic<std::uint32_t>& count) noexcept {
  return count.load(std::memory_order_relaxed);
}

bool has_one_or_two_digits(const char* text) noexcept {
  if (!text::is_digit(text[0])) return false;
  return text[1] == '\0' || (text::is_digit(text[1]) && text[2] == '\0');
}

bool is_open_folder(const char* path) noexcept {
  struct stat status;
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode) && ::access(path, R_OK | X_OK) == 0;
}

// Adds to `count`. False, with errno, when the driver's folder cannot be listed to its end.
bool count_entries(const char* prefix, std::uint32_t& count) noexcept {
  const internal::UniqueDir folder = internal::open_directory(kDriverFolder);
  if (!folder) return false;
  const std::size_t length = std::strlen(prefix);
  while (const dirent* const entry = internal::next_entry(folder.get())) {
    if (dio_isDioDirent(entry, prefix, length)) ++count;
  }
  return errno == 0;
}

// Counts anew, and remembers it. Without a driver there is none; otherwise a failure is logged, and
// nothing changes.
bool recount(const char* prefix, std::atomic<std::uint32_t>& remembered) noexcept {
  std::uint32_t count = 0;
  if (!count_entries(prefix, count) && errno != ENOENT) {
    log_failed_call("scandir", kDriverFolder);
    return false;
  }
  remembered.store(count, std::memory_order_relaxed);
  return true;
}

void recount_all() noexcept {
  const PostponedCancellation postponed;
  if (recount(kInput, counts.inputs)) static_cast<void>(recount(kOutput, counts.outputs));
}

}  // namespace

bool dio_isDioDirent(const dirent* entry, const char* prefix, std::size_t prefix_length) noexcept {
  check(entry != nullptr, "entry != NULL");
  const char* const name = entry->d_name;
  if (std::strncmp(name, prefix, prefix_length) != 0) return false;
  if (!has_one_or_two_digits(name + prefix_length)) return false;
  char path[sizeof kEntryFolder + sizeof entry->d_name];
  ::stpcpy(::stpcpy(path, kEntryFolder), name);
  return is_open_folder(path);
}

}  // namespace rkutils::dio

using namespace rkutils::dio;

unsigned dio_count(uint32_t* count) {
  if (count == nullptr) return refuse_null();
  recount_all();
  *count = last(counts.inputs) + last(counts.outputs);
  return DIO_OK;
}

unsigned dio_roCount(uint32_t* count) {
  if (count == nullptr) return refuse_null();
  recount_all();
  *count = last(counts.inputs);
  return DIO_OK;
}

unsigned dio_rwCount(uint32_t* count) {
  if (count == nullptr) return refuse_null();
  recount_all();
  *count = last(counts.outputs);
  return DIO_OK;
}
