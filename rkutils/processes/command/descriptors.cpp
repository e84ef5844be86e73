#include <rkutils/internal/unique_fd.h>
#include <rkutils/processes/command/descriptors.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace rkutils::processes {
namespace {

using internal::UniqueFd;

// Descriptors from `first` up to, and without, `end`.
struct Range {
  int first;
  int end;

  [[nodiscard]] bool holds(int descriptor) const noexcept {
    return descriptor >= first && descriptor < end;
  }
};

// In one call, with kernels of 5.9 and above.
bool close_at_once(Range range) noexcept {
#ifdef SYS_close_range
  constexpr long kNumber = SYS_close_range;
#else
  constexpr long kNumber = 436;  // on all machines
#endif
  return ::syscall(kNumber, static_cast<unsigned>(range.first),
                   static_cast<unsigned>(range.end - 1), 0U) == 0;
}

// A portion of a folder's list, as the kernel gives it: readdir() would allocate memory.
class Portion {
 public:
  // False at the end of the list, and when it cannot be read: `failed` tells.
  bool read(int folder, bool& failed) noexcept {
    const long count = ::syscall(SYS_getdents64, folder, bytes_, sizeof bytes_);
    failed = count < 0;
    end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    at_ = 0;
    return count > 0;
  }

  // The next name, or NULL.
  const char* next() noexcept {
    if (at_ == end_) return nullptr;
    const char* const entry = bytes_ + at_;
    std::uint16_t length = 0;
    std::memcpy(&length, entry + kLengthOffset, sizeof length);
    at_ += length;
    return entry + kNameOffset;
  }

 private:
  // Behind a number and a position of 8 bytes each come the entry's length, its type and its name.
  static constexpr std::size_t kLengthOffset = 16;
  static constexpr std::size_t kNameOffset = kLengthOffset + 2 + 1;

  std::size_t at_ = 0;
  std::size_t end_ = 0;
  alignas(std::uint64_t) char bytes_[2048];
};

// Those that the kernel lists, which are few. False when there is no list.
bool close_listed(Range range) noexcept {
  ::close(range.first);  // it is among them; the list may need its place
  const UniqueFd folder(::open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return false;
  Portion names;
  bool failed = false;
  while (names.read(folder.get(), failed)) {
    while (const char* const name = names.next()) {
      const int descriptor = std::atoi(name);
      if (*name != '.' && range.holds(descriptor) && descriptor != folder.get()) {
        ::close(descriptor);
      }
    }
  }
  return !failed;
}

void close_one_by_one(Range range) noexcept {
  for (int descriptor = range.end - 1; descriptor >= range.first; --descriptor) {
    ::close(descriptor);
  }
}

}  // namespace

void close_descriptors(int first) noexcept {
  const Range range = {first, ::getdtablesize()};
  if (range.first >= range.end) return;
  if (close_at_once(range) || close_listed(range)) return;
  close_one_by_one(range);
}

}  // namespace rkutils::processes
