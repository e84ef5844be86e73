// IPv4 addresses as texts of four numbers.
#ifndef RKUTILS_NETWORK_DOTTED_QUAD_H
#define RKUTILS_NETWORK_DOTTED_QUAD_H

#include <rkutils/foundations/text/ascii.h>

#include <cstdint>

namespace rkutils::network {

// How a number may look: its digits at most, and its value.
struct NumberForm {
  int digits;
  std::uint32_t largest;
};

inline constexpr NumberForm kOctet = {3, 255};
inline constexpr NumberForm kMaskSize = {2, 32};

// A text that is read from its front, and how far.
class TextReader {
 public:
  constexpr TextReader(const char* text, long length, long position) noexcept
      : text_(text), length_(length), position_(position) {}

  [[nodiscard]] constexpr long position() const noexcept { return position_; }
  [[nodiscard]] constexpr bool at_end() const noexcept { return position_ >= length_; }

  // Takes this character if it is next.
  constexpr bool take(char character) noexcept {
    if (!has_next() || text_[position_] != character) return false;
    ++position_;
    return true;
  }

  // Takes a number: "0", or digits that begin with another one. Stores it, 0 where there is none.
  // True if it is there and not too large.
  constexpr bool take_number(NumberForm form, std::uint32_t& number) noexcept {
    number = 0;
    if (take('0')) return true;
    const long begin = position_;
    while (position_ - begin < form.digits && has_next() && text::is_digit(text_[position_])) {
      number = number * 10 + static_cast<std::uint32_t>(text_[position_] - '0');
      ++position_;
    }
    return position_ > begin && number <= form.largest;
  }

  // Takes four octets with dots between them. `address` is only good when it is true.
  constexpr bool take_dotted_quad(std::uint32_t& address) noexcept {
    if (!take_number(kOctet, address)) return false;
    for (int i = 1; i < 4; ++i) {
      std::uint32_t octet = 0;
      if (!take('.') || !take_number(kOctet, octet)) return false;
      address = address << 8U | octet;
    }
    return true;
  }

 private:
  [[nodiscard]] constexpr bool has_next() const noexcept {
    return position_ >= 0 && position_ < length_;
  }

  const char* text_;
  long length_;
  long position_;
};

// What write_dotted_quad() writes at most.
inline constexpr int kDottedQuadSize = 16;

// Writes the octets of `address`, the most significant one first, and a NUL.
inline void write_dotted_quad(std::uint32_t address, char* out) noexcept {
  for (int shift = 24; shift >= 0; shift -= 8) {
    const std::uint32_t octet = address >> static_cast<unsigned>(shift) & 0xFFU;
    if (octet >= 100) *out++ = static_cast<char>('0' + octet / 100);
    if (octet >= 10) *out++ = static_cast<char>('0' + octet / 10 % 10);
    *out++ = static_cast<char>('0' + octet % 10);
    *out++ = shift == 0 ? '\0' : '.';
  }
}

}  // namespace rkutils::network

#endif
