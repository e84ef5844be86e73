// The configuration files of the machine that the tests run on, which were not written for this
// reader: every line is understood as the rules say, or reported.

#include <rkutils/cfread.h>
#include <rkutils/internal/unique_file.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "cfread_fixture.h"
#include "cfread_simple_line.h"

namespace {

using rkutils::cfread::LineKind;
using rkutils::internal::UniqueFile;

// What reading one file gives.
struct Outcome {
  int result = 0;
  Passed passed = {};
  std::vector<support::LogLine> log = {};
};

const char* problem_of(LineKind kind) {
  switch (kind) {
    case LineKind::kKeyTooLong:
      return "max. key length exceeded";
    case LineKind::kValueTooLong:
      return "max. value length exceeded";
    default:
      return "non-terminated entry";
  }
}

// A file whose includes, if it has any, lead nowhere.
Outcome read_simply(const std::string& path) {
  const UniqueFile file(std::fopen(path.c_str(), "re"));
  Outcome outcome;
  char text[1024];
  for (int number = 1; std::fgets(text, sizeof text, file.get()) != nullptr; ++number) {
    const SimpleLine line = read_simple_line(text);
    switch (line.kind) {
      case LineKind::kComment:
        continue;
      case LineKind::kEntry:
        outcome.passed.emplace_back(line.key, line.value);
        continue;
      case LineKind::kInclude: {
        const std::string folder = std::filesystem::path(path).parent_path();
        const bool absolute = line.value[0] == '/';
        outcome.log.push_back(
            err("cfread: unable to open " + (absolute ? "" : folder + "/") + line.value));
        break;
      }
      default:
        outcome.log.push_back(err("cfread: " + std::string(problem_of(line.kind)) + " in " + path +
                                  " at line " + std::to_string(number)));
    }
    outcome.result = -1;
    break;
  }
  return outcome;
}

// Those in a folder that hold nothing secret.
std::vector<std::string> public_files_in(const std::string& folder) {
  using std::filesystem::perms;
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const bool for_all = (entry.status(error).permissions() & perms::others_read) != perms::none;
    if (entry.is_regular_file(error) && for_all) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

class CfreadSystemFiles : public CfreadTest {
 protected:
  // Copies a file and compares what the two readers make of it. True when it is read to its end.
  bool compare(const std::string& original) {
    const std::string copy = file("copy", contents_of(original));
    const Outcome expected = read_simply(copy);
    Passed passed;
    EXPECT_EQ(cfread_parse_with_callback(copy.c_str(), keep_all, &passed, true), expected.result);
    EXPECT_EQ(passed, expected.passed) << original;
    EXPECT_EQ(log_.take(), expected.log) << original;
    EXPECT_EQ(open_table(copy) != nullptr, expected.result == 0) << original;
    EXPECT_EQ(log_.take(), expected.log) << original;
    return expected.result == 0;
  }
};

TEST_F(CfreadSystemFiles, AreUnderstoodOrReported) {
  std::vector<std::string> files = public_files_in("/etc");
  for (const std::string& path : public_files_in("/etc/default")) files.push_back(path);
  int read = 0;
  for (const std::string& path : files) {
    if (compare(path)) ++read;
  }
  RecordProperty("files", static_cast<int>(files.size()));
  RecordProperty("read", read);
  EXPECT_GT(read, 5);
}

TEST_F(CfreadSystemFiles, TellTheSystemsName) {
  EXPECT_TRUE(compare("/etc/os-release"));
  const Table table = open_table("/etc/os-release");
  ASSERT_NE(table, nullptr);
  // Nothing is unquoted.
  const cfread_entry* const name = cfread_find_entry(table.get(), "PRETTY_NAME");
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(name->value[0], '"');
}

}  // namespace
