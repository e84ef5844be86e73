#include <rkutils/foundations/text/prefix.h>
#include <rkutils/network/interface/bridge_table.h>
#include <rkutils/text.h>

#include <algorithm>
#include <climits>
#include <cstring>

namespace rkutils::network {
namespace {

constexpr char kHeading[] = "bridge ";
constexpr char kTab[] = "\t";

// Behind the bridge's name: its id, whether it has the spanning tree protocol, an interface.
constexpr int kColumnsToMember = 3;

bool is_blank(char character) { return character == ' ' || character == '\t'; }

// Takes the next column off the line; those without text are none. NULL behind the last.
char* take_column(char*& line) {
  char* const column = line + std::strspn(line, kTab);
  if (*column == '\0') return nullptr;
  line = column + std::strcspn(column, kTab);
  if (*line != '\0') *line++ = '\0';
  return column;
}

}  // namespace

BridgeMembers::BridgeMembers(const char* bridge, char* out, std::size_t size) noexcept
    : bridge_(bridge), out_(out), room_(std::min(size - 1, std::size_t{INT_MAX})) {
  *out_ = '\0';
}

void BridgeMembers::take_line(char* line) noexcept {
  line[std::strcspn(line, "\n")] = '\0';
  if (text::begins_with(line, kHeading)) return;
  if (is_blank(*line)) {
    if (found_) append(take_column(line));
    return;
  }
  const char* const name = take_column(line);
  if (name == nullptr || std::strcmp(name, bridge_) != 0) return;
  found_ = true;
  char* member = nullptr;
  for (int i = 0; i < kColumnsToMember; ++i) member = take_column(line);
  append(member);
}

void BridgeMembers::append(char* member) noexcept {
  if (member == nullptr) return;
  const char* const name = stripwhite(member);
  if (*name == '\0') return;
  write(name);
  write(" ");
}

void BridgeMembers::write(const char* text) noexcept {
  const std::size_t written = std::min(std::strlen(text), room_ - length_);
  std::memcpy(out_ + length_, text, written);
  length_ += written;
  out_[length_] = '\0';
}

}  // namespace rkutils::network
