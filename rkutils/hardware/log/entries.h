// Entries of the log as bytes.
#ifndef RKUTILS_HARDWARE_LOG_ENTRIES_H
#define RKUTILS_HARDWARE_LOG_ENTRIES_H

#include <cstddef>
#include <ctime>
#include <string_view>

namespace rkutils::log {

// Lines are taken from the log in pieces of at most so many bytes, line feed included.
constexpr std::size_t kPieceLength = 1023;

// How many of the old lines stay behind a new one.
constexpr int kKeptLines = 32;

// What an entry has before its text: "7: 2026-03-01 12:34 ", in local time.
class EntryHead {
 public:
  // NULL, or the name of the function of the C library that failed; errno tells why.
  [[nodiscard]] const char* render(int code, std::time_t time) noexcept;

  [[nodiscard]] std::string_view text() const noexcept { return {text_, length_}; }

 private:
  static constexpr std::size_t kTimeSize = 32;

  char text_[sizeof "-2147483648: " + kTimeSize] = "";
  std::size_t length_ = 0;
};

// A line's text, or a piece of one's: without the line feed at its end.
[[nodiscard]] std::string_view text_of(const char* piece) noexcept;

// Hands the newest lines to `add`, each with its line feed. `lines.next()` gives them, or pieces of
// long ones, and then NULL. Empty ones are left out, but count. False as soon as `add` gives false.
template <typename Lines, typename Add>
bool keep_newest(Lines& lines, Add add) {
  for (int count = 0; count < kKeptLines; ++count) {
    const char* const piece = lines.next();
    if (piece == nullptr) return true;
    const std::string_view text = text_of(piece);
    if (!text.empty() && !(add(text) && add("\n"))) return false;
  }
  return true;
}

// Lines in a buffer, cut at two characters less than its size.
class CutLines {
 public:
  // Fills the buffer with NULs. Its size is at least 2.
  CutLines(char* buffer, std::size_t size) noexcept;

  // Appends a line with a line feed, or as much of both as there is room for.
  void add(std::string_view line) noexcept;

  [[nodiscard]] bool is_full() const noexcept { return room_ == 0; }

 private:
  void append(std::string_view text) noexcept;

  char* end_;
  std::size_t room_;
};

}  // namespace rkutils::log

#endif
