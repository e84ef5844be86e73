// The functions for plain texts, beside std::string.

#include <rkutils/text.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using fuzz::Text;

std::string stripped(const std::string& text, const std::string& set) {
  const std::size_t begin = text.find_first_not_of(set);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(set) - begin + 1);
}

void check_stripping(const Text& text, const Text& set) {
  const std::string whole(text.view());
  const std::string characters(set.view());
  const char* const skipped = skipchars(text.c_str(), set.c_str());
  const std::size_t begin = std::min(whole.find_first_not_of(characters), whole.size());
  expect_equal(skipped - text.c_str(), static_cast<std::ptrdiff_t>(begin),
               "the characters skipped");
  Text by_set(text.view());
  expect_equal(std::string(stripchars(by_set.data(), set.c_str())), stripped(whole, characters),
               "the text without the set");
  Text by_white(text.view());
  expect_equal(std::string(stripwhite(by_white.data())), stripped(whole, " \t\r\n"),
               "the text without white space");
}

void check_classes(const Text& text) {
  const std::string_view all = text.view();
  expect_equal(is_number(text.c_str()),
               all.find_first_not_of("0123456789+-") == std::string_view::npos,
               "whether it is a number");
  expect_equal(
      e164Number(text.c_str()),
      all.find_first_not_of("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ*#?") == std::string_view::npos
          ? 0
          : -1,
      "whether it can be dialled");
}

char fold(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}
char raise(char byte) {
  return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 'a' + 'A') : byte;
}

void check_case_and_order(const Text& a, const Text& b, std::size_t count) {
  std::string lower(a.view());
  std::transform(lower.begin(), lower.end(), lower.begin(), fold);
  std::string upper(a.view());
  std::transform(upper.begin(), upper.end(), upper.begin(), raise);
  std::string backwards(a.view().rbegin(), a.view().rend());
  Text changed(a.view());
  expect_equal(std::string(strtolower(changed.data())), lower, "the lower case");
  expect_equal(std::string(strtoupper(changed.data())), upper, "the upper case");
  Text reversed(a.view());
  reverse(reversed.data());
  expect_equal(std::string(reversed.c_str()), backwards, "the text backwards");

  std::string other(b.view());
  std::transform(other.begin(), other.end(), other.begin(), fold);
  const auto sign = [](int number) { return number < 0 ? -1 : number > 0 ? 1 : 0; };
  expect_equal(stricmp(a.c_str(), b.c_str()), sign(lower.compare(other)), "the order");
  expect_equal(stricmp(b.c_str(), a.c_str()), sign(other.compare(lower)),
               "the order the other way");
  expect_equal(strnicmp(a.c_str(), b.c_str(), count),
               sign(lower.substr(0, count).compare(other.substr(0, count))),
               "the order of the beginnings");
}

// What escape() makes of a byte.
std::string escaped(char byte) {
  switch (byte) {
    case '\t':
      return "\\t";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    default:
      break;
  }
  const auto code = static_cast<unsigned char>(byte);
  if (code < 32) return {'^', static_cast<char>(code + 64)};
  return {byte};
}

// Bytes that may have no NUL, and be more or less than are to be read.
void check_escaping(const std::string& bytes, std::size_t count, std::size_t size) {
  std::vector<char> source(bytes.begin(), bytes.end());
  if (count > source.size()) source.push_back('\0');
  source.shrink_to_fit();
  std::string expected;
  for (std::size_t i = 0; i < count && i < source.size() && source[i] != '\0'; ++i) {
    if (size < 2 || expected.size() >= size - 2) break;
    expected += escaped(source[i]);
  }
  std::vector<char> out(size, '#');
  expect(escape(source.data(), count, out.data(), size) == out.data(), "its own buffer");
  if (size > 0) expect_equal(std::string(out.data()), expected, "the escaped text");
}

// Text and tag are not longer than what strformat() holds.
void check_attribute(const Text& text, const Text& tag) {
  const std::string all(text.view());
  const std::string opening = "<" + std::string(tag.view()) + ">";
  const std::size_t begin = all.find(opening);
  std::string expected;
  bool found = tag.length() > 0 && begin != std::string::npos;
  if (found) {
    const std::string behind = all.substr(begin + opening.size()).substr(0, 1023);
    const std::size_t end = behind.find("</" + std::string(tag.view()) + ">");
    found = end != std::string::npos;
    if (found) expected = behind.substr(0, end);
  }
  const char* const value = xml_readattr(text.c_str(), tag.c_str());
  expect_equal(value != nullptr, found, "whether there is an attribute");
  if (value != nullptr) expect_equal(std::string(value), expected, "the attribute");
}

}  // namespace

// Two sizes; a set of characters, a tag or another text; and in the next line a text.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t count = input.byte();
  const std::size_t room = input.byte();
  const Text set(input.until('\n'));
  const std::string bytes = input.rest();
  const Text text(bytes);
  check_stripping(text, set);
  check_classes(text);
  check_case_and_order(text, set, count);
  check_escaping(bytes, count, room);
  check_attribute(text, set);
  return 0;
}
