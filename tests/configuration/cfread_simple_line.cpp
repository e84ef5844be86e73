#include "cfread_simple_line.h"

using rkutils::cfread::LineKind;

bool operator==(const SimpleLine& a, const SimpleLine& b) {
  return a.kind == b.kind && a.key == b.key && a.value == b.value;
}

std::ostream& operator<<(std::ostream& out, const SimpleLine& line) {
  return out << "kind " << static_cast<int>(line.kind) << " key '" << line.key << "' value '"
             << line.value << "'";
}

SimpleLine read_simple_line(const std::string& text) {
  if (text.rfind("include ", 0) == 0) {
    const std::string rest = text.substr(8);
    const std::size_t first = rest.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {LineKind::kInclude};
    const std::size_t last = rest.find_last_not_of(" \t\r\n");
    return {LineKind::kInclude, "", rest.substr(first, last - first + 1)};
  }
  if (!text.empty() && text[0] == '#') return {LineKind::kComment};
  std::string key;
  std::string value;
  bool in_value = false;
  for (const char byte : text) {
    if (byte == '\n' || byte == '\r') return {LineKind::kEntry, key, value};
    if ((static_cast<unsigned>(byte) & 0x80U) != 0) continue;
    if (!in_value && byte == '=') {
      in_value = true;
    } else if (!in_value) {
      if (key.size() >= 255) return {LineKind::kKeyTooLong};
      if (byte != ' ') key += byte;
    } else if (byte != ' ' || !value.empty()) {
      if (value.size() >= 255) return {LineKind::kValueTooLong};
      value += byte;
    }
  }
  return {LineKind::kUnterminated};
}
