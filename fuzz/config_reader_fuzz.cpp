// Files of settings.

#include <rkutils/config_reader.h>
#include <rkutils/string.h>
#include <rkutils/text.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "support/standard_output.h"
#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

bool is_blank(char byte) { return static_cast<unsigned char>(byte) <= ' '; }

// Of two blanks or more at its front a key keeps the second one.
std::string key_of(std::string_view text) {
  if (!text.empty() && is_blank(text[0])) text.remove_prefix(1);
  std::string key(text.substr(0, 1));
  for (const char byte : text.substr(key.size())) {
    if (!is_blank(byte)) key += byte;
  }
  return key;
}

std::string value_of(std::string_view text) {
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
  return std::string(text);
}

struct Settings {
  std::map<std::string, std::string> values;
  std::string printed;  // about those that are there twice
};

Settings settings_in(std::string_view contents) {
  constexpr std::size_t kPieceLength = 1022;
  Settings settings;
  for (const std::string& text : fuzz::pieces_of(contents, kPieceLength)) {
    const std::size_t equals = text.find('=');
    if (text[0] == '#' || equals == std::string::npos) continue;
    const std::string key = key_of(std::string_view(text).substr(0, equals));
    const std::string value = value_of(std::string_view(text).substr(equals + 1));
    if (settings.values.emplace(key, value).second) continue;
    settings.printed.append("cfg: Ignoring duplicate tag:").append(key).append("=");
    settings.printed.append(value).append("\n");
  }
  return settings;
}

std::string lower_case(std::string text) {
  for (char& byte : text) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
  }
  return text;
}

long number_of(const std::string& value) {
  const std::string word = lower_case(value);
  if (word == "on") return 1;
  if (word == "off") return 0;
  return valueOf32(value.c_str());
}

void check_values(const ConfigReader& reader, const Settings& settings) {
  const String none = "none";
  constexpr long kNone = -4711;
  for (const auto& [key, value] : settings.values) {
    const String& found = reader.getValue(key.c_str(), none);
    expect_equal(std::string(found.c_str()), value, "a value");
    expect_equal(static_cast<std::size_t>(found.length()), value.size(), "its length");
    expect_equal(reader.getValueAsInt(key.c_str(), kNone), number_of(value), "it as a number");
  }
  for (unsigned long index = 0; index < 4; ++index) {
    const auto expected = settings.values.find("k" + std::to_string(index));
    const bool found = expected != settings.values.end();
    expect_equal(std::string(reader.getIndexedValue("k%lu", index, none).c_str()),
                 found ? expected->second : "none", "a value of an index");
    expect_equal(reader.getIndexedValueAsInt("k%lu", index, kNone),
                 found ? number_of(expected->second) : kNone, "it as a number");
  }
}

}  // namespace

// How many settings are expected, and the file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::InputFile file("/tmp/config-reader/file");
  Input input(data, size);
  const unsigned long expected_number = input.byte();
  const std::string contents = input.rest();
  file.put(contents);
  const Settings settings = settings_in(contents);
  const fuzz::NothingLeftOpen nothing_left_open;
  ConfigReader reader;
  bool opened = false;
  const auto read = [&] { opened = reader.initialize(file.path(), expected_number); };
  expect_equal(support::standard_output_of(read), settings.printed, "what is printed");
  expect(opened, "the file is read");
  check_values(reader, settings);
  return 0;
}
