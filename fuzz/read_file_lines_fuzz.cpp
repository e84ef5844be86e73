// Files read as lists of lines, and small ones as one text.

#include <rkutils/cfread.h>
#include <rkutils/file.h>
#include <rkutils/list.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

// Takes the lines out of the list, and frees them.
std::vector<std::string> take_lines(list_node& list) {
  std::vector<std::string> texts;
  list_node* node = nullptr;
  list_node* following = nullptr;
  list_for_each_safe (node, following, &list) {
    file_line* const line = list_entry(node, file_line, links);
    list_del(node);
    texts.emplace_back(line->text);
    std::free(line->text);
    std::free(line);
  }
  return texts;
}

void check_lines(const char* path, std::string_view contents) {
  constexpr std::size_t kPieceLength = 1023;
  list_node list;
  list_init(&list);
  const int count = read_file_lines(path, &list);
  const std::vector<std::string> lines = take_lines(list);
  std::vector<std::string> expected = fuzz::pieces_of(contents, kPieceLength);
  for (std::string& line : expected) line.erase(std::min(line.find_first_of("\r\n"), line.size()));
  expect_equal(static_cast<std::size_t>(count), expected.size(), "the number of lines");
  expect_equal(lines.size(), expected.size(), "the length of the list");
  for (std::size_t i = 0; i < lines.size(); ++i) expect_equal(lines[i], expected[i], "a line");
}

void check_text(const char* path, std::string_view contents, std::size_t size) {
  std::vector<char> buffer(size, '?');
  buffer.shrink_to_fit();
  expect(readfile_r(path, buffer.data(), size) == buffer.data(), "the buffer is the result");
  if (size > 0) {
    expect_equal(std::string(buffer.data()), fuzz::small_file_text(contents, size), "the text");
  }
}

}  // namespace

// The size of a buffer, and the file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::InputFile file("/tmp/lines/file");
  Input input(data, size);
  const std::size_t buffer_size = input.below(2048);
  const std::string contents = input.rest();
  file.put(contents);
  const fuzz::NothingLeftOpen nothing_left_open;
  check_lines(file.path(), contents);
  check_text(file.path(), contents, buffer_size);
  expect_equal(std::string(readfile(file.path())), fuzz::small_file_text(contents, 1024),
               "the text in the library's buffer");
  return 0;
}
