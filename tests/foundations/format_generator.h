// Formats for which the formatting engine and the C library are to agree, with the values that they take.
//
// The two differ on purpose in a few places, which are left out:
//   - a null string with a precision below six: glibc prints nothing, the engine cuts "(null)"
//   - a null pointer: glibc prints "(nil)", the engine "0x0"
//   - %p with a sign flag, for which C has no meaning: glibc prints a sign
//   - %lc and %ls: the engine knows no wide characters and takes them for %c and %s
#ifndef TESTS_FOUNDATIONS_FORMAT_GENERATOR_H
#define TESTS_FOUNDATIONS_FORMAT_GENERATOR_H

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "support/choices.h"

namespace format_generator {

// What a conversion takes.
using Value = std::variant<int, long, long long, const char*, void*>;

// A random format of the subset with the values it takes.
struct Format {
  std::string text;
  std::vector<Value> values;
};

class Generator {
 public:
  explicit Generator(support::Choices choices) : below_(std::move(choices)) {}

  // Of at most three values, widths and precisions given as "*" included.
  Format next() {
    Format format;
    do {
      if (one_in(2)) format.text += literal();
      add_conversion(format);
    } while (format.values.size() < 3 && one_in(2));
    if (one_in(2)) format.text += literal();
    return format;
  }

  std::size_t below(std::size_t bound) { return below_(bound); }

 private:
  bool one_in(std::size_t odds) { return below(odds) == 0; }

  std::string literal() {
    static const char* const kTexts[] = {"a", "key=", "%%", " ", "100%%,", "\n", "0"};
    return kTexts[below(std::size(kTexts))];
  }

  void add_conversion(Format& format) {
    const char kind = "diuoxXcsp"[below(9)];
    std::size_t room = 3 - format.values.size() - 1;
    std::string flags;
    const char* const allowed = kind == 'p' ? "-" : kind == 'c' || kind == 's' ? "-+ #" : "-+ #0";
    while (one_in(2)) flags += allowed[below(std::strlen(allowed))];
    format.text += "%" + flags;
    if (one_in(3) && room > 0) {
      format.text += '*';
      format.values.emplace_back(static_cast<int>(below(41)) - 20);
      --room;
    } else if (one_in(2)) {
      format.text += std::to_string(1 + below(25));
    }
    add_precision(format, kind, room);
    add_value(format, kind);
  }

  void add_precision(Format& format, char kind, std::size_t room) {
    if (kind == 'p' || !one_in(2)) return;
    format.text += '.';
    if (one_in(3) && room > 0) {
      format.text += '*';
      format.values.emplace_back(static_cast<int>(below(30)) - 8);
    } else if (!one_in(4)) {
      format.text += std::to_string(below(22));
    }
  }

  void add_value(Format& format, char kind) {
    static const char* const kTexts[] = {"", "a", "hello", "some longer text, with a comma"};
    if (kind == 's') {
      format.values.emplace_back(kTexts[below(std::size(kTexts))]);
    } else if (kind == 'p') {
      format.values.emplace_back(
          reinterpret_cast<void*>(static_cast<std::uintptr_t>(1 + number() % INT_MAX)));
    } else if (kind == 'c') {
      format.values.emplace_back(static_cast<int>(1 + below(255)));
    } else {
      static const char* const kLengths[] = {"", "h", "hh", "l", "ll"};
      const std::size_t length = below(std::size(kLengths));
      format.text += kLengths[length];
      if (length < 3) format.values.emplace_back(static_cast<int>(number()));
      if (length == 3) format.values.emplace_back(static_cast<long>(number()));
      if (length == 4) format.values.emplace_back(static_cast<long long>(number()));
    }
    format.text += kind;
  }

  // Numbers of every size, and the edges.
  std::uint64_t number() {
    static const std::uint64_t kEdges[] = {0,         1,         9,
                                           10,        0x7f,      0x80,
                                           0xff,      0x7fff,    0x8000,
                                           0xffff,    INT_MAX,   std::uint64_t{INT_MAX} + 1,
                                           UINT_MAX,  INT64_MAX, std::uint64_t{INT64_MAX} + 1,
                                           UINT64_MAX};
    if (one_in(4)) return kEdges[below(std::size(kEdges))];
    std::uint64_t number = 0;
    for (int i = 0; i < 4; ++i) number = number << 16U | below(65536);
    return number >> below(64);
  }

  support::Choices below_;
};

// Calls `action` with the format's values as separate arguments.
template <typename Action>
void with_values(const Format& format, Action action) {
  const auto call = [&](auto... values) { action(format.text.c_str(), values...); };
  switch (format.values.size()) {
    case 1:
      std::visit(call, format.values[0]);
      break;
    case 2:
      std::visit(call, format.values[0], format.values[1]);
      break;
    default:
      std::visit(call, format.values[0], format.values[1], format.values[2]);
      break;
  }
}

}  // namespace format_generator

#endif
