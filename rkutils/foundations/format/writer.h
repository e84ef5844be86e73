// Last stage of the formatting engine: where the characters go.
//
// A writer takes runs of characters, and numbers that it may render or not. It counts them all, in
// 64 bits, so that no text that fits into memory makes the count wrap.
#ifndef RKUTILS_FOUNDATIONS_FORMAT_WRITER_H
#define RKUTILS_FOUNDATIONS_FORMAT_WRITER_H

#include <rkutils/foundations/text/digits.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rkutils::format {

// Writes the digits of `value` in base 8, 10 or 16 so that the last one lies before `end`.
inline void write_digits(char* end, std::uint64_t value, unsigned base, bool upper) noexcept {
  if (base == 10) {
    text::write_decimal(end, value);
  } else {
    text::write_power_of_two(end, value, base == 16 ? 4 : 3, upper);
  }
}

// Only counts.
class CountingWriter {
 public:
  void repeat(char /*character*/, std::uint64_t times) noexcept { count_ += times; }
  void text(const char* /*bytes*/, std::size_t length) noexcept { count_ += length; }
  void number(std::uint64_t /*value*/, unsigned /*base*/, bool /*upper*/,
              unsigned digits) noexcept {
    count_ += digits;
  }

  [[nodiscard]] std::uint64_t count() const noexcept { return count_; }
  [[nodiscard]] static constexpr bool full() noexcept { return false; }

 private:
  std::uint64_t count_ = 0;
};

// Stores the characters from `skip` on, as many as there is room for.
class WindowWriter {
 public:
  WindowWriter(char* buffer, std::size_t skip, std::size_t room) noexcept
      : next_(buffer), skip_(skip), room_(room) {}

  void repeat(char character, std::uint64_t times) noexcept {
    const Piece piece = visible(times);
    std::memset(next_, character, piece.length);
    advance(piece.length);
  }

  void text(const char* bytes, std::size_t length) noexcept {
    const Piece piece = visible(length);
    std::memcpy(next_, bytes + piece.offset, piece.length);
    advance(piece.length);
  }

  void number(std::uint64_t value, unsigned base, bool upper, unsigned digits) noexcept {
    constexpr std::size_t kLongest = 22;  // 64 bits in octal
    char rendered[kLongest];
    if (digits > 0 && !full()) write_digits(rendered + digits, value, base, upper);
    text(rendered, digits);
  }

  [[nodiscard]] std::uint64_t count() const noexcept { return count_; }
  [[nodiscard]] bool full() const noexcept { return room_ == 0; }

  // Where the NUL goes.
  [[nodiscard]] char* end() const noexcept { return next_; }

 private:
  // The part of a run that the window shows.
  struct Piece {
    std::size_t offset;
    std::size_t length;
  };

  // Counts a run of `length` characters.
  Piece visible(std::uint64_t length) noexcept {
    const std::uint64_t skipped =
        skip_ > count_ ? std::min<std::uint64_t>(skip_ - count_, length) : 0;
    count_ += length;
    return {static_cast<std::size_t>(skipped),
            static_cast<std::size_t>(std::min<std::uint64_t>(length - skipped, room_))};
  }

  void advance(std::size_t stored) noexcept {
    next_ += stored;
    room_ -= stored;
  }

  char* next_;
  const std::uint64_t skip_;
  std::size_t room_;
  std::uint64_t count_ = 0;
};

}  // namespace rkutils::format

#endif
