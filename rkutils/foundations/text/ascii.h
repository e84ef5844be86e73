// Kinds of ASCII characters, whatever the locale.
#ifndef RKUTILS_FOUNDATIONS_TEXT_ASCII_H
#define RKUTILS_FOUNDATIONS_TEXT_ASCII_H

namespace rkutils::text {

constexpr bool is_digit(char character) noexcept { return character >= '0' && character <= '9'; }

// What the C library calls white space where no locale is set: blank, \t, \n, \v, \f and \r.
constexpr bool is_white(char character) noexcept {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

constexpr bool is_upper(char character) noexcept { return character >= 'A' && character <= 'Z'; }

constexpr bool is_lower(char character) noexcept { return character >= 'a' && character <= 'z'; }

constexpr char to_lower(char character) noexcept {
  return is_upper(character) ? static_cast<char>(character - 'A' + 'a') : character;
}

constexpr char to_upper(char character) noexcept {
  return is_lower(character) ? static_cast<char>(character - 'a' + 'A') : character;
}

// The value of a digit in bases up to 16; 16 for other characters.
constexpr unsigned hex_value(char character) noexcept {
  if (is_digit(character)) return static_cast<unsigned>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<unsigned>(character - 'a' + 10);
  if (character >= 'A' && character <= 'F') return static_cast<unsigned>(character - 'A' + 10);
  return 16;
}

}  // namespace rkutils::text

#endif
