// Command lines split into words, beside the rules a character at a time; and words joined to lines.

#include <rkutils/command.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;

constexpr std::size_t kSlots = 255;

struct VectorFreer {
  void operator()(char** vector) const { freeargv(vector); }
};
using Vector = std::unique_ptr<char*[], VectorFreer>;

// False for a line that is refused.
bool split(std::string_view line, std::vector<std::string>& words) {
  bool inside = false;
  char quote = '\0';
  for (const char byte : line) {
    const bool blank = byte == ' ' || byte == '\t' || byte == '\n';
    if (quote != '\0') {
      if (byte == quote) {
        quote = '\0';
      } else {
        words.back() += byte;
      }
    } else if (inside) {
      inside = !blank;
      if (inside) words.back() += byte;
    } else if (byte == '\'' || byte == '"') {
      quote = byte;
      words.emplace_back();
    } else if (!blank) {
      inside = true;
      words.emplace_back(1, byte);
    }
  }
  return quote == '\0' && words.size() <= kSlots;
}

// Splits a line and compares. The words come back.
std::vector<std::string> check(const fuzz::Text& line) {
  char* untouched = nullptr;
  char** vector = &untouched;
  int count = -77;
  std::vector<std::string> expected;
  const bool fits = split(line.view(), expected);
  expect_equal(makeargv(line.c_str(), &vector, &count), fits ? 0 : -1, "the result");
  if (!fits) {
    expect(vector == &untouched && count == -77, "a refused line stores nothing");
    return {};
  }
  const Vector owner(vector);
  expect_equal(count, static_cast<int>(expected.size()), "the number of words");
  for (std::size_t i = 0; i < kSlots; ++i) {
    if (i >= expected.size()) {
      expect(vector[i] == nullptr, "unused slots are NULL");
      continue;
    }
    expect_equal(std::string(vector[i]), expected[i], "a word");
    // All of it is there, and zero behind the word.
    const std::string zeros(line.length() + 1 - expected[i].size(), '\0');
    expect(std::memcmp(vector[i] + expected[i].size(), zeros.data(), zeros.size()) == 0,
           "zeros behind a word");
  }
  return expected;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const fuzz::Text line(input.rest());
  const std::vector<std::string> words = check(line);
  // A line in which each word is in quotes has the same words. One with both quotes cannot be in any.
  std::string joined;
  for (const std::string& word : words) {
    const bool has_single = word.find('\'') != std::string::npos;
    if (has_single && word.find('"') != std::string::npos) return 0;
    const char quote = has_single ? '"' : '\'';
    joined += quote + word + quote;
  }
  expect(check(fuzz::Text(joined)) == words, "the words of the joined line are the same");
  return 0;
}
