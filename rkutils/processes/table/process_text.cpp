#include <rkutils/processes/table/process_text.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace rkutils::processes {

std::optional<int> to_process_id(const char* digits) noexcept {
  const long long id = std::strtoll(digits, nullptr, 10);
  if (id > INT_MAX) return std::nullopt;
  return static_cast<int>(id);
}

void join_arguments(char* command_line, std::size_t length) noexcept {
  std::replace(command_line, command_line + length, '\0', ' ');
  if (command_line[length - 1] == ' ') --length;
  command_line[length] = '\0';
}

std::optional<int> parent_in(char* status) noexcept {
  constexpr int kWordsBefore = 3;
  // The newline stays: it can be the fourth word by itself, behind a blank.
  char* const newline = std::strchr(status, '\n');
  if (newline != nullptr) newline[1] = '\0';

  char* rest = nullptr;
  const char* word = ::strtok_r(status, " ", &rest);
  for (int i = 0; i < kWordsBefore && word != nullptr; ++i) word = ::strtok_r(nullptr, " ", &rest);
  if (word == nullptr) return std::nullopt;
  const long number = std::strtol(word, nullptr, 10);
  return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

}  // namespace rkutils::processes
