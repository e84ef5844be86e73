// What targets with the option ROUTER have in common: files whose contents are the input, what the library
// logs, and descriptors that it has left open.
#ifndef FUZZ_SURROUNDINGS_H
#define FUZZ_SURROUNDINGS_H

#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "support/kernel_folder.h"
#include "support/put_file.h"
#include "support/syslog_collector.h"
#include "target.h"

namespace fuzz {

// ---- Files

// A file that gets other contents with each input, much faster than one that is made anew. It lies in
// memory, as all that is writable in a private router.
class InputFile {
 public:
  // Makes it, and the folders on its way.
  explicit InputFile(std::string path) : path_(std::move(path)) {
    support::put(path_, "");
    file_.reset(::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    expect(static_cast<bool>(file_), "a file for the input can be opened");
  }

  // The same in /proc or /sys, in the place of the kernel's file.
  InputFile(const support::KernelFolder& folder, const std::string& name)
      : InputFile((folder.put(name, ""), folder.at(name))) {}

  void put(std::string_view contents) {
    const auto size = static_cast<ssize_t>(contents.size());
    expect(::pwrite(file_.get(), contents.data(), contents.size(), 0) == size &&
               ::ftruncate(file_.get(), static_cast<off_t>(size)) == 0,
           "a file takes the input");
  }

  [[nodiscard]] const char* path() const { return path_.c_str(); }

 private:
  std::string path_;
  rkutils::internal::UniqueFd file_;
};

// How models read a file: the bytes at its front that fgets() takes for a buffer of one byte more.
inline std::string_view piece_of(std::string_view contents, std::size_t longest) {
  const std::size_t line_feed = contents.substr(0, longest).find('\n');
  return contents.substr(0, line_feed == std::string_view::npos ? longest : line_feed + 1);
}

// A C program sees a text up to its first NUL.
inline std::string text_of(std::string_view bytes) {
  return std::string(bytes.substr(0, bytes.find('\0')));
}

// The texts that a loop of fgets() gives.
inline std::vector<std::string> pieces_of(std::string_view contents, std::size_t longest) {
  std::vector<std::string> texts;
  while (!contents.empty()) {
    const std::string_view piece = piece_of(contents, longest);
    texts.push_back(text_of(piece));
    contents.remove_prefix(piece.size());
  }
  return texts;
}

// Without the characters of `set` at both ends.
inline std::string stripped(std::string_view text, std::string_view set) {
  const std::size_t begin = text.find_first_not_of(set);
  if (begin == std::string_view::npos) return "";
  return std::string(text.substr(begin, text.find_last_not_of(set) + 1 - begin));
}

// What readfile_r() makes of a file in a buffer of `size` bytes.
inline std::string small_file_text(std::string_view contents, std::size_t size) {
  std::string text;
  while (!contents.empty() && text.size() + 1 < size) {
    const std::string_view piece = piece_of(contents, size - 1 - text.size());
    text += text_of(piece);
    contents.remove_prefix(piece.size());
  }
  return stripped(text, " \t\r\n");
}

// The number that a text begins with, as atoi() reads it where numbers wrap in 32 bits.
inline std::int32_t number_of(std::string_view text) {
  std::size_t at = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
  const bool negative = at < text.size() && text[at] == '-';
  if (negative || (at < text.size() && text[at] == '+')) ++at;
  std::uint32_t number = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    number = number * 10 + static_cast<std::uint32_t>(text[at] - '0');
  }
  return static_cast<std::int32_t>(negative ? 0 - number : number);
}

// ---- Descriptors

// Expects that what is opened meanwhile is closed at its end.
class NothingLeftOpen {
 public:
  NothingLeftOpen() : before_(open_descriptors()) {}
  ~NothingLeftOpen() { expect_equal(open_descriptors(), before_, "which descriptors are open"); }
  NothingLeftOpen(const NothingLeftOpen&) = delete;
  NothingLeftOpen& operator=(const NothingLeftOpen&) = delete;

 private:
  // A bit for each of the lowest numbers, of which new descriptors get theirs. A single call tells.
  static std::uint64_t open_descriptors() {
    constexpr int kLookedAt = 64;
    std::array<pollfd, kLookedAt> entries = {};
    for (int i = 0; i < kLookedAt; ++i) entries[static_cast<std::size_t>(i)].fd = i;
    expect(::poll(entries.data(), entries.size(), 0) >= 0, "descriptors can be looked at");
    std::uint64_t open = 0;
    for (const pollfd& entry : entries)
      open = open << 1U | ((entry.revents & POLLNVAL) != 0 ? 0U : 1U);
    return open;
  }

  const std::uint64_t before_;
};

// ---- Messages

// The receiving end of the log, without a thread: nobody waits for one. The kernel queues ten messages,
// so that they have to be taken before there are more.
class Log {
 public:
  Log() : socket_(support::open_log_socket()), buffer_(65536) {
    ::openlog(nullptr, LOG_NDELAY, LOG_USER);  // its descriptor is no input's
  }

  // The messages since the last call.
  std::vector<support::LogLine> take() {
    std::vector<support::LogLine> lines;
    for (;;) {
      const ssize_t length = ::recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
      if (length < 0) return lines;
      lines.push_back(support::parse_log_line({buffer_.data(), static_cast<std::size_t>(length)}));
    }
  }

  // Expects that these have been logged since the last call.
  void expect_lines(const std::vector<support::LogLine>& expected) {
    const std::vector<support::LogLine> lines = take();
    if (lines == expected) return;
    fail("logged is" + shown_lines(lines) + ", not" + shown_lines(expected));
  }

 private:
  static std::string shown_lines(const std::vector<support::LogLine>& lines) {
    if (lines.empty()) return " nothing";
    std::string text;
    for (const support::LogLine& line : lines) {
      text += " " + std::string(support::level_name(line.level)) + " " + shown(line.text);
    }
    return text;
  }

  rkutils::internal::UniqueFd socket_;
  std::vector<char> buffer_;
};

}  // namespace fuzz

#endif
