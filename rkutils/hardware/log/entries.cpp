#include <rkutils/hardware/log/entries.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace rkutils::log {

const char* EntryHead::render(int code, std::time_t time) noexcept {
  ::tzset();  // glibc's localtime_r() does not notice that the zone has changed
  std::tm fields = {};
  if (::localtime_r(&time, &fields) == nullptr) return "localtime";
  char minute[kTimeSize];
  if (std::strftime(minute, sizeof minute, "%Y-%m-%d %H:%M", &fields) == 0) return "strftime";
  length_ = static_cast<std::size_t>(std::snprintf(text_, sizeof text_, "%d: %s ", code, minute));
  return nullptr;
}

std::string_view text_of(const char* piece) noexcept {
  std::string_view text = piece;
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  return text;
}

CutLines::CutLines(char* buffer, std::size_t size) noexcept : end_(buffer), room_(size - 2) {
  std::memset(buffer, '\0', size);
}

void CutLines::add(std::string_view line) noexcept {
  append(line);
  append("\n");
}

void CutLines::append(std::string_view text) noexcept {
  const std::size_t length = std::min(text.size(), room_);
  std::memcpy(end_, text.data(), length);
  end_ += length;
  room_ -= length;
}

}  // namespace rkutils::log
