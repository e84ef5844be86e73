// Numbers with a radix suffix once more, the slow way.
#ifndef TESTS_FOUNDATIONS_NUMBER_RULES_H
#define TESTS_FOUNDATIONS_NUMBER_RULES_H

#include <cstdint>
#include <string>

// A number by the rules.
inline std::string by_rules(std::uint32_t value, int base) {
  std::string text;
  do {
    text.insert(text.begin(), "0123456789ABCDEF"[value % static_cast<unsigned>(base)]);
    value /= static_cast<unsigned>(base);
  } while (value != 0);
  switch (base) {
    case 2:
      return text + "b";
    case 8:
      return text + "o";
    case 16:
      return text + "h";
    default:
      return text;
  }
}

// The value of a text by the rules.
inline std::uint32_t value_by_rules(std::string text, bool with_sign) {
  text = text.substr(0, 33);
  bool negative = false;
  if (with_sign && !text.empty() && text[0] == '-') {
    negative = true;
    text.erase(0, 1);
  }
  std::uint32_t base = 10;
  if (!text.empty() && text.back() >= 'a' && text.back() <= 'z') {
    const char suffix = text.back();
    text.pop_back();
    if (suffix == 'b') base = 2;
    if (suffix == 'o') base = 8;
    if (suffix == 'h' || suffix == 'x') base = 16;
  }
  std::uint32_t value = 0;
  for (const char character : text) {
    std::uint32_t digit = static_cast<unsigned char>(character) - std::uint32_t{'0'};
    if (base == 16 && character >= 'a' && character <= 'f') {
      digit = static_cast<std::uint32_t>(character - 'a' + 10);
    }
    if (base == 16 && character >= 'A' && character <= 'F') {
      digit = static_cast<std::uint32_t>(character - 'A' + 10);
    }
    value = value * base + digit;
  }
  return negative ? 0 - value : value;
}

#endif
