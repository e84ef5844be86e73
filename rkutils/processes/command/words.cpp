#include <rkutils/processes/command/words.h>

#include <cstddef>
#include <cstring>

namespace rkutils::processes {
namespace {

bool is_blank(char byte) noexcept { return byte == ' ' || byte == '\t' || byte == '\n'; }

}  // namespace

CommandWords::Found CommandWords::next() noexcept {
  while (is_blank(*rest_)) ++rest_;
  if (*rest_ == '\0') return Found::kEnd;
  if (*rest_ == '\'' || *rest_ == '"') return take_quoted();
  const char* const begin = rest_;
  while (*rest_ != '\0' && !is_blank(*rest_)) ++rest_;
  word_ = std::string_view(begin, static_cast<std::size_t>(rest_ - begin));
  return Found::kWord;
}

CommandWords::Found CommandWords::take_quoted() noexcept {
  const char* const begin = rest_ + 1;
  const char* const end = std::strchr(begin, *rest_);
  if (end == nullptr) return Found::kUnclosedQuote;
  word_ = std::string_view(begin, static_cast<std::size_t>(end - begin));
  rest_ = end + 1;
  return Found::kWord;
}

}  // namespace rkutils::processes
