// Lines of the kernel's table of hardware addresses.

#include <rkutils/network/ping/arp_table.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using fuzz::Text;
using rkutils::ping::MacAddress;

bool is_white(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// The words of a line, of which those of more than 255 characters are several.
std::vector<std::string> words_of(std::string_view line) {
  std::vector<std::string> words;
  bool inside = false;
  for (const char byte : line) {
    if (is_white(byte)) {
      inside = false;
    } else if (inside && words.back().size() < 255) {
      words.back() += byte;
    } else {
      words.emplace_back(1, byte);
      inside = true;
    }
  }
  return words;
}

bool is_hex(char byte) {
  return std::string_view("0123456789abcdefABCDEF").find(byte) != std::string_view::npos;
}

// Six numbers of one or two digits with colons between them, whatever follows. `plain` becomes false for
// what the C library may read or not: signs and the prefix of hexadecimal numbers.
std::optional<MacAddress> mac_of(const std::string& word, bool& plain) {
  MacAddress mac = {};
  std::size_t at = 0;
  for (std::size_t part = 0; part < mac.size(); ++part) {
    if (part > 0 && (at >= word.size() || word[at++] != ':')) return std::nullopt;
    std::string digits;
    while (digits.size() < 2 && at < word.size() && is_hex(word[at])) digits += word[at++];
    const bool sign = digits.empty() && at < word.size() && (word[at] == '+' || word[at] == '-');
    const bool prefix = digits == "0" && at < word.size() && (word[at] == 'x' || word[at] == 'X');
    if (sign || prefix) plain = false;
    if (digits.empty()) return std::nullopt;
    mac[part] = static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16));
  }
  return mac;
}

void check(const Text& line, const Text& address) {
  const auto found = rkutils::ping::read_arp_line(line.c_str(), address.c_str());
  const std::string begin = std::string(address.view()) + " ";
  const std::vector<std::string> words = words_of(line.view());
  const bool fits = line.view().substr(0, begin.size()) == begin && words.size() >= 4 &&
                    (std::strtoul(words[2].c_str(), nullptr, 0) & 2U) != 0;
  bool plain = true;
  const auto expected = fits ? mac_of(words[3], plain) : std::nullopt;
  if (!plain) return;
  expect_equal(found.has_value(), expected.has_value(), "whether there is a hardware address");
  if (found) expect(*found == *expected, "the hardware address");
}

}  // namespace

// An address, and in the next line a line of the table. The line is also read for the address that it
// begins with.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Text address(input.until('\n'));
  const Text line(input.rest());
  check(line, address);
  check(line, Text(line.view().substr(0, line.view().find(' '))));
  return 0;
}
