#include <rkutils/config_reader.h>
#include <rkutils/configuration/indexed_key.h>
#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/hash_table.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/text.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

using rkutils::configuration::indexed_key;
using rkutils::internal::PostponedCancellation;

namespace {

// Longer lines arrive in several pieces.
constexpr std::size_t kPieceLength = 1022;

// ---- The settings: a table whose values are Strings of its owner's ----

struct SettingsDeleter {
  void operator()(INStringHashTable* table) const noexcept {
    table->passAllPointers([](void* value) { delete static_cast<String*>(value); });
    delete table;
  }
};
using Settings = std::unique_ptr<INStringHashTable, SettingsDeleter>;

// NULL where there is none, or no table.
String const* find(INStringHashTable const* table, char const* key) noexcept {
  void* value = nullptr;
  if (table == nullptr || !table->getValueFromKey(key, &value)) return nullptr;
  return static_cast<String const*>(value);
}

// Looks before anything is made for the value: a duplicate needs no memory.
bool is_new(INStringHashTable const& table, char const* key, char const* value) noexcept {
  if (find(&table, key) == nullptr) return true;
  const PostponedCancellation postponed;
  std::printf("cfg: Ignoring duplicate tag:%s=%s\n", key, value);
  return false;
}

void insert(INStringHashTable& table, char const* key, String const& value) {
  auto stored = std::make_unique<String>(value);
  table.addEntry(key, stored.get());
  static_cast<void>(stored.release());  // the table's from now on
}

// ---- Reading a file ----

// By value and not by kind, whatever the locale: UTF-8 is made of bytes above.
constexpr auto is_blank = [](char byte) { return static_cast<unsigned char>(byte) <= ' '; };

// The two functions change a text from `begin` to before `end`, write a NUL behind it, at `end` at
// most, and return where it begins.

// A blank at the front goes and takes the place of the first byte, so that the byte behind it stays
// whatever it is: there are files with keys that begin with a blank.
char* strip_key(char* begin, char* end) noexcept {
  if (begin != end && is_blank(*begin)) ++begin;
  if (begin != end) end = std::remove_if(begin + 1, end, is_blank);
  *end = '\0';
  return begin;
}

char* strip_value(char* begin, char* end) noexcept {
  while (begin != end && is_blank(*begin)) ++begin;
  while (begin != end && is_blank(end[-1])) --end;
  *end = '\0';
  return begin;
}

void read_line(INStringHashTable& table, char* line) {
  if (*line == '#') return;
  char* const equals = std::strchr(line, '=');
  if (equals == nullptr) return;
  char* const behind = equals + 1;
  char* const end = behind + std::strlen(behind);
  char const* const key = strip_key(line, equals);
  char const* const value = strip_value(behind, end);
  if (is_new(table, key, value)) insert(table, key, value);
}

// False when the file cannot be opened.
bool read_file(INStringHashTable& table, String const& path) {
  rkutils::internal::UniqueFd file = rkutils::file::open_to_read(path.c_str());
  if (!file) return false;
  rkutils::file::LineSource lines(std::move(file), kPieceLength);
  while (char* const line = lines.next()) read_line(table, line);
  return true;
}

void report_unopened(String const& path) {
  std::printf("cfg: Error in config file %s, line %ld:\n", path.c_str(), 0L);
  std::printf("cfg:   %s\n", "");
}

// ---- Values as numbers ----

// The words come first: valueOf32() makes numbers of them too.
long to_number(String const& value) noexcept {
  if (value.equalsIgnoreCase("on")) return 1;
  if (value.equalsIgnoreCase("off")) return 0;
  return valueOf32(value.c_str());
}

}  // namespace

ConfigReader::ConfigReader() : table_(nullptr) {}

ConfigReader::~ConfigReader() { ConfigReader::cleanup(); }

bool ConfigReader::initialize(String const& path, unsigned long size) {
  const PostponedCancellation postponed;
  const String own_path = path;  // it may be one of the values that go now
  cleanup();
  ConfigReader::cleanup();  // a derived class's own may not have called it

  Settings settings(new INStringHashTable(size));
  const bool opened = read_file(*settings, own_path);
  if (!opened) report_unopened(own_path);
  table_ = settings.release();
  return opened;
}

void ConfigReader::cleanup() { const Settings dropped(std::exchange(table_, nullptr)); }

String const& ConfigReader::getValue(String const& key, String const& def) const {
  String const* const value = find(table_, key.c_str());
  return value != nullptr ? *value : def;
}

long ConfigReader::getValueAsInt(String const& key, long def) const {
  String const* const value = find(table_, key.c_str());
  return value != nullptr ? to_number(*value) : def;
}

String const& ConfigReader::getIndexedValue(String const& key, unsigned long index,
                                            String const& def) const {
  const std::optional<String> made = indexed_key(key, index);
  return made ? ConfigReader::getValue(*made, def) : def;
}

long ConfigReader::getIndexedValueAsInt(String const& key, unsigned long index, long def) const {
  const std::optional<String> made = indexed_key(key, index);
  return made ? ConfigReader::getValueAsInt(*made, def) : def;
}

bool ConfigReader::add(String const& key, String const& value) {
  if (table_ == nullptr || !is_new(*table_, key.c_str(), value.c_str())) return false;
  insert(*table_, key.c_str(), value);
  return true;
}

// The interface has these two as members, and their arguments not const.
// NOLINTBEGIN(readability-non-const-parameter)

int ConfigReader::strcpystrip(char* dst, int dstSize, char* src, int n) {
  if (dst == nullptr || src == nullptr || n < 0 || n >= dstSize) return 0;
  const char* const begin = src + std::strspn(src, " ");
  auto length = static_cast<std::size_t>(n);
  if (::strnlen(begin, length) < length) return 0;
  while (length > 0 && begin[length - 1] == ' ') --length;
  std::memmove(dst, begin, length);
  dst[length] = '\0';
  return 1;
}

int ConfigReader::indexof(char* str, char c) {
  if (str == nullptr || c == '\0') return -1;
  const char* const found = std::strchr(str, c);
  return found != nullptr ? static_cast<int>(found - str) : -1;
}

// NOLINTEND(readability-non-const-parameter)
