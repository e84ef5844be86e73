// The files that tell what device this is.

#include <rkutils/systeminfo.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/kernel_folder.h"
#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect_equal;
using fuzz::Input;

constexpr std::size_t kMostVariables = 256;

using Variables = std::vector<std::pair<std::string, std::string>>;

// Nothing where there are too many.
std::optional<Variables> variables_in(std::string_view contents) {
  constexpr std::size_t kPieceLength = 1022;
  Variables variables;
  for (const std::string& piece : fuzz::pieces_of(contents, kPieceLength)) {
    if (piece.empty()) break;
    const std::string line = piece.substr(std::min(piece.find_first_not_of(' '), piece.size()));
    const std::size_t equals = line.find('=');
    if (line[0] == '#' || equals == std::string::npos || equals + 1 == line.size()) continue;
    std::string value = line.substr(equals + 1);
    if (value[0] == '"') {
      value.erase(0, 1);
      value.erase(std::min(value.find_first_of("\"\n"), value.size()));
    }
    if (variables.size() == kMostVariables) return std::nullopt;
    variables.emplace_back(line.substr(0, equals), value);
  }
  return variables;
}

struct FreeInformation {
  void operator()(systeminfo* information) const { systeminfo_free(information); }
};

void check_variables(std::string_view contents) {
  const std::unique_ptr<systeminfo, FreeInformation> information(systeminfo_init());
  const std::optional<Variables> expected = variables_in(contents);
  expect_equal(information != nullptr, expected.has_value(), "whether there is a table");
  if (!expected) return;
  for (const auto& variable : *expected) {
    const std::string& name = variable.first;
    const auto first = std::find_if(expected->begin(), expected->end(),
                                    [&](const auto& other) { return other.first == name; });
    const std::string& value = first->second;
    expect_equal(std::string(systeminfo_getvar(information.get(), name.c_str())), value, "a value");
    expect_equal(systeminfo_getint(information.get(), name.c_str()),
                 value.empty() ? -1 : fuzz::number_of(value), "it as a number");
  }
  expect_equal(std::string(systeminfo_getvar(information.get(), "no\nname")), std::string(),
               "another value");
  expect_equal(systeminfo_getint(information.get(), "no\nname"), -1, "it as a number");
}

// The value of a key in the file of who sells the device.
std::string oem_value(std::string_view contents, const std::string& key) {
  constexpr std::size_t kPieceLength = 1023;
  for (const std::string& piece : fuzz::pieces_of(contents, kPieceLength)) {
    if (piece.empty()) break;
    const std::string line = piece.substr(0, piece.find('\n'));
    if (line.substr(0, key.size() + 1) != key + "=") continue;
    const std::string value = line.substr(key.size() + 1);
    return value.substr(std::min(value.find_first_not_of(' '), value.size()));
  }
  return "";
}

void check_product(std::string_view contents, std::string_view board_name, const std::string& key) {
  constexpr std::size_t kLongestKey = 30;
  constexpr std::size_t kLongestProduct = 127;
  expect_equal(std::string(oem(key.c_str())), oem_value(contents, key), "a value");

  const std::string board = fuzz::small_file_text(board_name, 1024);
  std::string product = oem_value(contents, ("ProductType.DW" + board).substr(0, kLongestKey));
  if (product.empty()) product = oem_value(contents, "ProductType");
  expect_equal(std::string(get_product()), product.substr(0, kLongestProduct), "the product");
}

void check_variant(std::string_view contents) {
  const std::string text = fuzz::small_file_text(contents, 1024);
  const int expected = text.empty() ? -1 : fuzz::number_of(text);
  expect_equal(get_extension_variant(), expected, "the extension board's variant");
  expect_equal(has_poe(), expected == 0 ? 1 : 0, "whether it has PoE");
}

}  // namespace

// A key, the main board's name and the extension board's variant each in a line of their own; then the
// image's variables, and behind a file separator, 0x1c, the file of who sells the device.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const support::KernelFolder proc("/proc");
  static fuzz::InputFile hardware_type(proc, "sysinfo/dwhw");
  static fuzz::InputFile board_name(proc, "sysinfo/bd/0/prod_name");
  static fuzz::InputFile variant(proc, "sysinfo/bd/1/prod_variant");
  static fuzz::InputFile variables("/etc/default/system-info");
  static fuzz::InputFile oem_file("/etc/oem/oem.conf");
  hardware_type.put("18\n");  // remembered from the first input on

  Input input(data, size);
  const std::string key = fuzz::text_of(input.until('\n'));
  const std::string board = input.until('\n');
  const std::string variant_text = input.until('\n');
  const std::string variable_lines = input.until('\x1c');
  const std::string oem_lines = input.rest();
  board_name.put(board);
  variant.put(variant_text);
  variables.put(variable_lines);
  oem_file.put(oem_lines);

  const fuzz::NothingLeftOpen nothing_left_open;
  check_variables(variable_lines);
  check_product(oem_lines, board, key);
  check_variant(variant_text);
  expect_equal(dwhw(), 18, "the hardware type");
  return 0;
}
