#include <rkutils/configuration/systeminfo/lines.h>

#include <cstddef>
#include <cstring>

namespace rkutils::sysinfo {

std::optional<Variable> parse_variable(char* line) noexcept {
  char* const name = line + std::strspn(line, " ");
  if (*name == '#') return std::nullopt;
  char* const equals = std::strchr(name, '=');
  if (equals == nullptr || equals[1] == '\0') return std::nullopt;
  *equals = '\0';
  char* value = equals + 1;
  if (*value == '"') {
    ++value;
    value[std::strcspn(value, "\"\n")] = '\0';
  }
  return Variable{name, value};
}

const char* find_oem_value(const char* line, const char* key) noexcept {
  const std::size_t length = std::strlen(key);
  if (std::strncmp(line, key, length) != 0 || line[length] != '=') return nullptr;
  const char* const value = line + length + 1;
  return value + std::strspn(value, " ");
}

}  // namespace rkutils::sysinfo
