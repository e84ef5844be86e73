// The lines of the files that describe the device, taken apart.
#ifndef RKUTILS_CONFIGURATION_SYSTEMINFO_LINES_H
#define RKUTILS_CONFIGURATION_SYSTEMINFO_LINES_H

#include <optional>

namespace rkutils::sysinfo {

// A variable of the image; the texts lie in its line.
struct Variable {
  const char* name;
  const char* value;
};

// The variable of a line "name=value". The value keeps the line's newline, unless it is in double
// quotes. Comments have none, nor have lines without "=" or without anything behind it. Changes the
// line.
[[nodiscard]] std::optional<Variable> parse_variable(char* line) noexcept;

// The value in a line "key=value", without its leading spaces; nullptr for a line of another key.
[[nodiscard]] const char* find_oem_value(const char* line, const char* key) noexcept;

}  // namespace rkutils::sysinfo

#endif
