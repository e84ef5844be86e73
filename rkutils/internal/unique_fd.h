// Owner of a file descriptor.
#ifndef RKUTILS_INTERNAL_UNIQUE_FD_H
#define RKUTILS_INTERNAL_UNIQUE_FD_H

namespace rkutils::internal {

// Move-only. There is no conversion from or to int, so that neither a raw descriptor becomes owned
// nor an owned one leaks out unseen. Closing keeps errno, so that a failure's cause survives the
// clean-up.
class UniqueFd {
 public:
  UniqueFd() noexcept = default;
  explicit UniqueFd(int descriptor) noexcept : descriptor_(descriptor) {}
  UniqueFd(UniqueFd&& other) noexcept : descriptor_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  [[nodiscard]] int get() const noexcept { return descriptor_; }
  explicit operator bool() const noexcept { return descriptor_ >= 0; }

  // Gives the descriptor up without closing it.
  [[nodiscard]] int release() noexcept {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor;
  }

  // Closes what is owned and owns `descriptor` instead. Not repeated on EINTR: Linux has closed the
  // descriptor by then, and a second close could hit one that another thread has just opened.
  void reset(int descriptor = -1) noexcept;

 private:
  int descriptor_ = -1;
};

}  // namespace rkutils::internal

#endif
