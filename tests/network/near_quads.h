// Texts that are IPv4 addresses or nearly so, of up to 15 characters.
#ifndef TESTS_NETWORK_NEAR_QUADS_H
#define TESTS_NETWORK_NEAR_QUADS_H

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/rounds.h"

namespace near_quads {

constexpr std::size_t kLongest = 15;

// Calls `visit` with every text of up to `length` of these characters behind the beginning; with those
// a stride apart where tests shall be short.
template <typename Visit>
void for_each_text(const std::string& characters, std::size_t length, Visit visit,
                   const std::string& begin = "") {
  const auto stride = static_cast<std::size_t>(support::stride());
  std::size_t count = 1;
  for (std::size_t size = 0; size <= length; ++size, count *= characters.size()) {
    for (std::size_t number = 0; number < count; number += stride) {
      std::string text = begin;
      std::size_t rest = number;
      for (std::size_t place = 0; place < size; ++place, rest /= characters.size()) {
        text += characters[rest % characters.size()];
      }
      visit(text);
    }
  }
}

// Calls `visit` with every text of so many of these parts with dots between them, likewise.
template <typename Visit>
void for_each_row(const std::vector<std::string>& parts, std::size_t size, Visit visit) {
  const auto stride = static_cast<std::size_t>(support::stride());
  std::size_t count = 1;
  for (std::size_t place = 0; place < size; ++place) count *= parts.size();
  for (std::size_t number = 0; number < count; number += stride) {
    std::string text;
    std::size_t rest = number;
    for (std::size_t place = 0; place < size; ++place, rest /= parts.size()) {
      if (place > 0) text += '.';
      text += parts[rest % parts.size()];
    }
    if (text.size() <= kLongest) visit(text);
  }
}

// Calls `visit` with some 700,000 texts, until a test fails; with fewer where tests shall be short.
template <typename Visit>
void for_each(Visit visit_always) {
  const auto visit = [&](const std::string& text) {
    if (!testing::Test::HasFailure()) visit_always(text);
  };
  // Every text of a few characters: the shortest quads have seven.
  for_each_text("025.", 9, visit);
  // Four numbers, good and bad ones of each kind.
  for_each_row({"",    "0",   "00",  "01",  "1",   "9",    "10", "25", "99", "100", "199", "249",
                "250", "255", "256", "299", "999", "1000", "a",  " 1", "1 ", "+1",  "-1",  "0x1"},
               4, visit);
  // Too few and too many.
  for (const std::size_t count : {1U, 2U, 3U, 5U, 6U}) {
    for_each_row({"", "0", "1", "25", "256"}, count, visit);
  }
  // Quads with one wrong character.
  std::mt19937 random(1);
  const auto below = [&random](unsigned bound) { return static_cast<unsigned>(random()) % bound; };
  for (int i = support::rounds(100000); i > 0; --i) {
    std::string text;
    for (int octet = 0; octet < 4; ++octet) {
      text += (octet == 0 ? "" : ".") + std::to_string(below(256) >> below(8));
    }
    visit(text);
    text[below(static_cast<unsigned>(text.size()))] = static_cast<char>(1 + below(255));
    visit(text);
  }
}

}  // namespace near_quads

#endif
