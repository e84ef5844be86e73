#include "support/wire_text.h"

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace support {
namespace {

constexpr std::array<std::pair<char, char>, 6> kShort = {
    {{'\n', 'n'}, {'\t', 't'}, {'\r', 'r'}, {'\0', '0'}, {'"', '"'}, {'\\', '\\'}}};
constexpr std::string_view kHexDigits = "0123456789abcdef";

std::string quoted_byte(char byte) {
  for (const auto& [plain, letter] : kShort) {
    if (byte == plain) return {'\\', letter};
  }
  const auto value = static_cast<unsigned char>(byte);
  if (value >= 0x20 && value < 0x7f) return {byte};
  return {'\\', 'x', kHexDigits[value / 16U], kHexDigits[value % 16U]};
}

[[noreturn]] void refuse(std::string_view text) {
  throw std::invalid_argument("not a quoted text: " + std::string(text));
}

}  // namespace

std::string quote(std::string_view bytes) {
  std::string text = "\"";
  for (const char byte : bytes) text += quoted_byte(byte);
  return text + "\"";
}

std::string unquote(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') refuse(text);
  const std::string_view inside = text.substr(1, text.size() - 2);
  std::string bytes;
  for (std::size_t at = 0; at < inside.size(); ++at) {
    if (inside[at] != '\\') {
      bytes += inside[at];
      continue;
    }
    if (++at == inside.size()) refuse(text);
    bool known = false;
    for (const auto& [plain, letter] : kShort) {
      if (inside[at] != letter) continue;
      bytes += plain;
      known = true;
    }
    if (known) continue;
    if (inside[at] != 'x' || at + 2 >= inside.size()) refuse(text);
    const std::size_t high = kHexDigits.find(inside[at + 1]);
    const std::size_t low = kHexDigits.find(inside[at + 2]);
    if (high == std::string_view::npos || low == std::string_view::npos) refuse(text);
    bytes += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return bytes;
}

std::string read_quoted(std::istream& text) {
  std::string quoted;
  char byte = '\0';
  if (text >> std::ws && text.get(byte)) quoted += byte;
  if (byte != '"') refuse(quoted);
  while (text.get(byte)) {
    quoted += byte;
    if (byte == '"') return unquote(quoted);
    if (byte == '\\' && text.get(byte)) quoted += byte;
  }
  refuse(quoted);
}

}  // namespace support
