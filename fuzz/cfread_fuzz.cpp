// Configuration files that include each other: read into a table, and with a callback.

#include <rkutils/cfread.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

#include "support/open_descriptors.h"
#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using support::LogLine;

// So many files may be open at once: one that includes itself soon cannot be opened.
constexpr std::size_t kMostOpen = 6;
// So many are opened in all: each of several includes in a file that includes itself opens as many again.
constexpr int kMostOpened = 40;
constexpr std::size_t kPieceLength = 1023;
constexpr std::size_t kLongest = 255;
constexpr char kMainFile[] = "/tmp/cfread/main.conf";

struct Entry {
  std::string key;
  std::string value;
};

// ---- A reader that does in C++ what the header says

// What a line says, or why it is none.
struct Line {
  std::string key;
  std::string value;
  const char* problem = nullptr;
};

bool is_dropped(char byte) { return static_cast<unsigned char>(byte) >= 128; }

Line entry_of(std::string_view text) {
  Line line;
  const std::size_t end = std::min(text.find_first_of("\n\r"), text.size());
  const bool terminated = end < text.size();
  text = text.substr(0, end);
  const std::size_t equals = std::min(text.find('='), text.size());
  for (const char byte : text.substr(0, equals)) {
    if (is_dropped(byte)) continue;
    if (line.key.size() == kLongest) return {"", "", "max. key length exceeded"};
    if (byte != ' ') line.key += byte;
  }
  for (const char byte : text.substr(std::min(equals + 1, text.size()))) {
    if (is_dropped(byte) || (byte == ' ' && line.value.empty())) continue;
    if (line.value.size() == kLongest) return {"", "", "max. value length exceeded"};
    line.value += byte;
  }
  if (!terminated) line.problem = "non-terminated entry";
  return line;
}

// Nothing where the file cannot be opened.
std::optional<std::string> contents_of(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  if (S_ISDIR(status.st_mode)) return "";
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string folder_of(const std::string& path) {
  const std::size_t end = path.find_last_not_of('/', path.rfind('/'));
  return end == std::string::npos ? "/" : path.substr(0, end + 1);
}

class Model {
 public:
  Model(bool callback, bool report_empty) : callback_(callback), report_empty_(report_empty) {}

  // False where reading fails.
  bool read(const std::string& path, bool fits) {
    const std::optional<std::string> contents =
        fits && depth_ < kMostOpen ? contents_of(path) : std::nullopt;
    if (++opened_ > kMostOpened) return false;
    if (!contents) return fail("cfread: unable to open " + path);
    ++depth_;
    const bool read_all = read_lines(path, *contents);
    --depth_;
    return read_all;
  }

  // It has given up.
  [[nodiscard]] bool takes_too_long() const { return opened_ > kMostOpened; }

  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  [[nodiscard]] const std::vector<LogLine>& messages() const { return messages_; }

 private:
  bool read_lines(const std::string& path, std::string_view contents) {
    int number = 1;
    for (const std::string& text : fuzz::pieces_of(contents, kPieceLength)) {
      if (text.substr(0, kInclude.size()) == kInclude) {
        if (!include(path, text.substr(kInclude.size()))) return false;
        continue;
      }
      if (text.empty() || text[0] != '#') {
        const Line line = entry_of(text);
        if (line.problem != nullptr) {
          return fail(std::string("cfread: ") + line.problem + " in " + path + " at line " +
                      std::to_string(number));
        }
        if (!take(line)) return true;
      }
      ++number;
    }
    return true;
  }

  bool include(const std::string& path, const std::string& behind_word) {
    constexpr std::size_t kLongestPath = 511;
    constexpr std::string_view kWhite = " \t\r\n";
    const std::string name = fuzz::stripped(behind_word, kWhite);
    if (name.empty()) return fail("cfread: no include file given in " + path);
    // A name at the end of a full piece may go on in the next one.
    const bool whole = behind_word.size() != kPieceLength - kInclude.size() ||
                       behind_word.find_last_not_of(kWhite) + 1 != behind_word.size();
    if (name[0] == '/') return read(name, whole && name.size() <= kLongestPath);
    const std::string joined = folder_of(path) + "/" + name;
    return read(joined, whole && joined.size() < kLongestPath);
  }

  // False where the callback ends the file.
  bool take(const Line& line) {
    const bool complete = !line.key.empty() && !line.value.empty();
    if (!complete && !(callback_ && report_empty_)) return true;
    entries_.push_back({line.key, line.value});
    return !callback_ || line.key[0] != 'E';
  }

  bool fail(const std::string& message) {
    messages_.push_back({LOG_ERR, message});
    return false;
  }

  static constexpr std::string_view kInclude = "include ";

  const bool callback_;
  const bool report_empty_;
  std::size_t depth_ = 0;
  int opened_ = 0;
  std::vector<Entry> entries_;
  std::vector<LogLine> messages_;
};

// The number that an entry keeps beside its value.
long number_of(std::string_view value) {
  if (value == "true") return 1;
  if (value == "false") return 0;
  const bool negative = value.substr(0, 1) == "-";
  const bool sign = negative || value.substr(0, 1) == "+";
  const std::string_view digits = value.substr(sign ? 1 : 0);
  if (digits.find_first_not_of("0123456789") != std::string_view::npos || value.empty()) return -1;
  const std::size_t first = std::min(digits.find_first_not_of('0'), digits.size());
  if (digits.size() - first > 10) return -1;
  const long long magnitude = std::atoll(std::string(digits).c_str());
  if (magnitude >= INT32_MAX + (negative ? 1LL : 0LL)) return -1;
  return static_cast<long>(negative ? -magnitude : magnitude);
}

// ---- The two beside each other

struct CloseTable {
  void operator()(cfread_table* table) const { cfread_close(table); }
};
using UniqueTable = std::unique_ptr<cfread_table, CloseTable>;

// Keys in the order in which they first came, each with its last value.
std::vector<Entry> without_duplicates(const std::vector<Entry>& entries) {
  std::vector<Entry> kept;
  for (const Entry& entry : entries) {
    const auto known = std::find_if(kept.begin(), kept.end(),
                                    [&](const Entry& other) { return other.key == entry.key; });
    if (known == kept.end()) {
      kept.push_back(entry);
    } else {
      known->value = entry.value;
    }
  }
  return kept;
}

void check_table(cfread_table* table, const std::vector<Entry>& entries) {
  expect_equal(static_cast<std::size_t>(table->count), entries.size(), "the table's count");
  expect(table->size % 64 == 0 && table->size >= table->count, "the table has slots");
  expect_equal(std::string(table->filename), std::string(kMainFile), "the table's file");
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const cfread_entry* const entry = cfread_find_entry(table, entries[i].key.c_str());
    expect(entry != nullptr && table->entries[i] == entry, "an entry has the slot of its turn");
    expect_equal(entry->index, i, "its number");
    expect_equal(std::string(entry->key), entries[i].key, "its key");
    expect_equal(std::string(entry->value), entries[i].value, "its value");
    expect_equal(entry->int_value, number_of(entries[i].value), "its value as a number");
  }
  expect(cfread_find_entry(table, "no such key, since it has blanks") == nullptr, "no other key");
}

void check_open(fuzz::Log& log) {
  Model model(false, false);
  const bool expected = model.read(kMainFile, true);
  if (model.takes_too_long()) return;
  UniqueTable table;
  {
    const support::NoMoreDescriptors few(kMostOpen);
    table.reset(cfread_open(kMainFile));
  }
  log.expect_lines(model.messages());
  expect_equal(table != nullptr, expected, "whether there is a table");
  if (table != nullptr) check_table(table.get(), without_duplicates(model.entries()));
}

int take_entry(const char* key, const char* value, void* entries) {
  static_cast<std::vector<Entry>*>(entries)->push_back({key, value});
  return key[0] == 'E' ? 1 : 0;
}

void check_callback(fuzz::Log& log, bool report_empty) {
  Model model(true, report_empty);
  const int expected = model.read(kMainFile, true) ? 0 : -1;
  if (model.takes_too_long()) return;
  std::vector<Entry> entries;
  int result = 0;
  {
    const support::NoMoreDescriptors few(kMostOpen);
    result = cfread_parse_with_callback(kMainFile, take_entry, &entries, report_empty);
  }
  log.expect_lines(model.messages());
  expect_equal(result, expected, "the result with a callback");
  expect_equal(entries.size(), model.entries().size(), "the number of entries passed");
  for (std::size_t i = 0; i < entries.size(); ++i) {
    expect_equal(entries[i].key, model.entries()[i].key, "a key passed");
    expect_equal(entries[i].value, model.entries()[i].value, "a value passed");
  }
}

// Devices and what the kernel tells are not for comparing: they differ each time, or wait.
bool names_the_kernel(std::string_view contents) {
  const auto has = [contents](const char* part) {
    return contents.find(part) != std::string_view::npos;
  };
  return has("dev") || has("proc") || has("sys") || has("run");
}

}  // namespace

// Four files with a file separator, 0x1c, between them. A key that begins with "E" makes the callback end
// its file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr char kFileSeparator = '\x1c';
  static fuzz::Log log;
  static fuzz::InputFile files[] = {fuzz::InputFile(kMainFile), fuzz::InputFile("/tmp/cfread/a"),
                                    fuzz::InputFile("/tmp/cfread/b c"),
                                    fuzz::InputFile("/tmp/cfread/sub/d")};
  Input input(data, size);
  for (fuzz::InputFile& file : files) {
    const std::string contents = input.until(kFileSeparator);
    if (names_the_kernel(contents)) return 0;
    file.put(contents);
  }
  const fuzz::NothingLeftOpen nothing_left_open;
  check_open(log);
  check_callback(log, size % 2 != 0);  // some inputs with empty entries, some without
  return 0;
}
