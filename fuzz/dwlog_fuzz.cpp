// A persistent log that somebody else has written, read and added to.

#include <rkutils/dwlog.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "support/put_file.h"
#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

constexpr char kLog[] = "/var/log/dwlog";
constexpr std::size_t kPieceLength = 1023;
constexpr std::size_t kKeptLines = 32;

// Its lines, or pieces of long ones, without their line feeds.
std::vector<std::string> lines_of(std::string_view contents) {
  std::vector<std::string> lines = fuzz::pieces_of(contents, kPieceLength);
  for (std::string& line : lines) {
    if (!line.empty() && line.back() == '\n') line.pop_back();
  }
  return lines;
}

void check_read(const std::string& contents, std::size_t size) {
  std::string expected;
  for (const std::string& line : lines_of(contents)) expected.append(line).append("\n");
  expected.resize(std::min(expected.size(), size - 2));
  expected.resize(size);
  std::string buffer(size, '?');
  buffer.shrink_to_fit();
  expect_equal(dwlog_read(buffer.data(), size), 0, "the result of reading");
  expect_equal(buffer, expected, "the log");
}

void check_addition(const std::string& contents, int code, const fuzz::Text& message) {
  const bool empty = message.length() == 0;
  expect_equal(dwlog(code, message.c_str()), empty ? -1 : 0, "the result of adding");
  std::ifstream file(kLog, std::ios::binary);
  std::string log(std::istreambuf_iterator<char>(file), {});
  if (empty) return expect_equal(log, contents, "the log as it was");

  std::string expected = std::string(message.view()) + "\n";
  const std::vector<std::string> lines = lines_of(contents);
  for (std::size_t i = 0; i < std::min(lines.size(), kKeptLines); ++i) {
    if (!lines[i].empty()) expected.append(lines[i]).append("\n");
  }
  const std::string begin = std::to_string(code) + ": ";
  constexpr std::size_t kTimeLength = sizeof "2026-03-01 12:34 " - 1;
  expect_equal(log.substr(0, begin.size()), begin, "what an entry begins with");
  expect_equal(log.substr(std::min(begin.size() + kTimeLength, log.size())), expected,
               "the log with its new entry");
}

}  // namespace

// The size of a buffer, the code and the message of an entry, and the log.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kSmallest = 257;
  static const bool has_key = [] {
    support::put("/etc/fstab", "");
    return true;
  }();
  expect(has_key, "the semaphore's file is there");
  Input input(data, size);
  const std::size_t buffer_size = kSmallest + input.below(4096);
  const int code = input.number<std::int32_t>();
  const fuzz::Text message(input.until('\n'));
  const std::string contents = input.rest();
  support::put(kLog, contents);
  const fuzz::NothingLeftOpen nothing_left_open;
  check_read(contents, buffer_size);
  check_addition(contents, code, message);
  return 0;
}
