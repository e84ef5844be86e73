// Whole trees of files, read once more in a slow and simple way: with the C library's lines and a
// call for each file inside of the one that includes it.

#include <rkutils/cfread.h>
#include <rkutils/internal/unique_file.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "cfread_fixture.h"
#include "cfread_simple_line.h"
#include "support/rounds.h"

namespace {

using namespace std::string_literals;

using rkutils::cfread::LineKind;
using rkutils::internal::UniqueFile;

// What a callback is passed and what is logged.
struct Outcome {
  bool success = true;
  Passed passed = {};
  std::vector<support::LogLine> log = {};
};

class SimpleReader {
 public:
  // Every entry with the key `stop` ends its file, but where that is empty.
  SimpleReader(std::string stop, bool report_empty)
      : stop_(std::move(stop)), report_empty_(report_empty) {}

  Outcome read(const std::string& path) {
    outcome_.success = read_file(path);
    return outcome_;
  }

 private:
  bool read_file(const std::string& path) {
    const UniqueFile file(std::fopen(path.c_str(), "re"));
    if (file == nullptr) return fail("unable to open " + path);
    int number = 1;
    char text[1024];
    while (std::fgets(text, sizeof text, file.get()) != nullptr) {
      const SimpleLine line = read_simple_line(text);
      if (line.kind == LineKind::kInclude) {
        if (line.value.empty()) return fail("no include file given in " + path);
        const bool absolute = line.value[0] == '/';
        const std::string folder = std::filesystem::path(path).parent_path();
        if (!read_file(absolute ? line.value : folder + "/" + line.value)) return false;
        continue;  // and does not count
      }
      const std::string place = " in " + path + " at line " + std::to_string(number++);
      switch (line.kind) {
        case LineKind::kKeyTooLong:
          return fail("max. key length exceeded" + place);
        case LineKind::kValueTooLong:
          return fail("max. value length exceeded" + place);
        case LineKind::kUnterminated:
          return fail("non-terminated entry" + place);
        case LineKind::kEntry:
          if (!pass(line)) return true;
          break;
        default:
          break;
      }
    }
    return true;
  }

  // False where the entry ends its file.
  bool pass(const SimpleLine& line) {
    const bool empty = line.key.empty() || line.value.empty();
    if (empty && !report_empty_) return true;
    outcome_.passed.emplace_back(line.key, line.value);
    return line.key.empty() || line.key != stop_;
  }

  bool fail(const std::string& problem) {
    outcome_.log.push_back(err("cfread: " + problem));
    return false;
  }

  const std::string stop_;
  const bool report_empty_;
  Outcome outcome_;
};

constexpr char kStop[] = "stop";

int keep_until_stop(const char* key, const char* value, void* passed) {
  keep_all(key, value, passed);
  return key == std::string(kStop) ? 1 : 0;
}

class CfreadModel : public CfreadTest {
 protected:
  CfreadModel() { make_folders(at("folder")); }

  std::size_t pick(std::size_t below) { return static_cast<std::size_t>(random_() % below); }

  std::string pick_key() { return pick(30) == 0 ? kStop : "key" + std::to_string(pick(9)); }

  // Files are numbered, and the odd ones are in the folder.
  [[nodiscard]] std::string path_of(std::size_t number) const {
    return at((number % 2 == 0 ? "" : "folder/") + std::to_string(number));
  }

  // A directive for a file of a higher number, so that files have an end.
  std::string include_behind(std::size_t number) {
    const std::size_t other = number + 1 + pick(3);
    std::string name = path_of(other);
    if (number % 2 == other % 2) name = std::to_string(other);
    if (number % 2 < other % 2) name = "folder/" + std::to_string(other);
    return "include " + std::string(pick(3), ' ') + name + std::string(pick(3), '\t');
  }

  // Once in a while something is wrong with it, or with its end.
  std::string line_of(std::size_t number) {
    const std::string filler(254 + pick(pick(20) == 0 ? 3 : 2), 'f');
    const std::string long_filler(1000 + pick(30), '-');
    switch (pick(14)) {
      case 0:
      case 1:
        return include_behind(number);
      case 2:
        return "#" + long_filler + pick_key() + "=4";
      case 3:
        return "";
      case 4:
        return pick_key() + (pick(2) == 0 ? "=" : "");
      case 5:
        return filler + "=1";
      case 6:
        return pick_key() + "=" + filler;
      case 7:
        return "k\xc3\xa4y = \xe4 v\xff";
      case 8:
        return "#" + std::string(1000 + pick(30), ' ') + include_behind(number);
      case 9:
        return pick(20) == 0 ? "key=\0value"s : "# \0comment"s;
      default:
        return " " + pick_key() + " = " + std::to_string(pick(100));
    }
  }

  void write_files(std::size_t count) {
    for (std::size_t number = 0; number < count; ++number) {
      std::string text;
      for (std::size_t lines = pick(12); lines > 0; --lines) {
        text += line_of(number) + (pick(9) == 0 ? "\r\n" : "\n");
      }
      if (pick(9) == 0) text += line_of(number);
      put(path_of(number), text);
    }
  }

  void compare_callback(bool report_empty) {
    const std::string path = path_of(0);
    const Outcome expected = SimpleReader(kStop, report_empty).read(path);
    Passed passed;
    EXPECT_EQ(cfread_parse_with_callback(path.c_str(), keep_until_stop, &passed, report_empty),
              expected.success ? 0 : -1);
    EXPECT_EQ(passed, expected.passed);
    EXPECT_EQ(log_.take(), expected.log);
  }

  // True when there is a table.
  bool compare_table() {
    const Outcome expected = SimpleReader("", false).read(path_of(0));
    const Table table = open_table(path_of(0));
    EXPECT_EQ(table != nullptr, expected.success);
    EXPECT_EQ(log_.take(), expected.log);
    if (table == nullptr) return false;
    Entries entries;
    for (const auto& [key, value] : expected.passed) entries[key] = value;
    EXPECT_EQ(entries_of(*table), entries);
    EXPECT_EQ(static_cast<std::size_t>(table->count), entries.size());
    return true;
  }

 private:
  std::mt19937 random_{20260105};  // the same files each time
};

TEST_F(CfreadModel, ReadsRandomTreesOfFilesAsTheSimpleReaderDoes) {
  constexpr std::size_t kFiles = 6;
  int read = 0;
  const int rounds = std::max(100, support::rounds(1000));
  for (int round = 0; round < rounds; ++round) {
    write_files(kFiles);
    compare_callback(round % 2 == 0);
    if (compare_table()) ++read;
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
  // Both outcomes must have come up.
  EXPECT_GT(read, rounds / 10);
  EXPECT_LT(read, rounds - rounds / 10);
}

}  // namespace
