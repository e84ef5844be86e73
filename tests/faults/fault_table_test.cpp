// The table of injected faults itself: its order, and how many cases it has.

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>

#include "fault.h"
#include "support/private_router.h"
#include "table.h"

namespace faults {
namespace {

// How many there are at least. It only grows.
constexpr std::size_t kCases = 1000;

struct File {
  std::string name;
  std::vector<Row> rows;
};

std::vector<File> all_files() {
  std::vector<File> files;
  for (const auto& entry :
       std::filesystem::directory_iterator(support::source_file("tests/faults/cases"))) {
    const std::string name = entry.path().stem();
    files.push_back({name, read_table(name)});
  }
  return files;
}

std::string where(const File& file, const Row& row) {
  return file.name + ".txt:" + std::to_string(row.line);
}

bool is_call(const Row& row) { return row.call != kNone && row.call != kMemory; }

// "configd_get" of "configd_get of two keys".
std::string function_of(const Row& row) { return row.scenario.substr(0, row.scenario.find(' ')); }

TEST(FaultTable, IsInOrder) {
  for (const File& file : all_files()) {
    std::tuple<std::string, bool, std::string> last;
    for (const Row& row : file.rows) {
      const std::tuple now(row.scenario, row.call != kNone, row.call);
      EXPECT_LE(last, now) << where(file, row);
      last = now;
    }
  }
}

TEST(FaultTable, NamesCallsAndCLibrariesThatThereAre) {
  for (const File& file : all_files()) {
    for (const Row& row : file.rows) {
      if (is_call(row)) {
        EXPECT_NO_THROW(kind_named(row.call)) << where(file, row);
      }
      EXPECT_THAT(row.c_library, testing::AnyOf("", "glibc", "musl")) << where(file, row);
      EXPECT_FALSE(row.outcome.empty()) << where(file, row);
    }
  }
}

// Two lines about one fault would leave open which is right.
TEST(FaultTable, HasOneLineForAFault) {
  constexpr unsigned kCount = 100;  // more calls than any scenario makes
  for (const File& file : all_files()) {
    for (const Row& row : file.rows) {
      for (const Row& other : file.rows) {
        if (row.line >= other.line || row.scenario != other.scenario || row.call != other.call ||
            row.call == kMemory) {
          continue;
        }
        const bool same_library =
            row.c_library.empty() || other.c_library.empty() || row.c_library == other.c_library;
        bool same_calls = row.nth == "all" && other.nth == "all";
        for (unsigned nth = 1; nth <= kCount; ++nth) {
          same_calls = same_calls || (row.is_for(nth, kCount) && other.is_for(nth, kCount));
        }
        std::vector<std::string> both;
        for (const std::string& error : row.errors) {
          if (std::count(other.errors.begin(), other.errors.end(), error) != 0) {
            both.push_back(error);
          }
        }
        EXPECT_FALSE(same_library && same_calls && !both.empty())
            << where(file, row) << " and " << other.line;
      }
    }
  }
}

TEST(FaultTable, TriesEachCallWithSeveralErrors) {
  for (const File& file : all_files()) {
    std::map<std::pair<std::string, std::string>, std::set<std::string>> errors;
    for (const Row& row : file.rows) {
      // Nothing else than a signal can happen to who sleeps, or waits for a child that is there.
      if (!is_call(row) || row.is_excuse()) continue;
      if (row.call == "nanosleep" || row.call == "waitpid") continue;
      errors[{row.scenario, row.call}].insert(row.errors.begin(), row.errors.end());
    }
    for (const auto& [of, names] : errors) {
      EXPECT_GE(names.size(), 2U) << file.name << ": " << of.first << ", " << of.second;
    }
  }
}

TEST(FaultTable, HasManyCases) {
  std::set<std::tuple<std::string, std::string, std::string>> cases;
  std::set<std::string> functions;
  for (const File& file : all_files()) {
    for (const Row& row : file.rows) {
      functions.insert(function_of(row));
      if (!is_call(row)) continue;
      for (const std::string& error : row.errors) {
        cases.insert({function_of(row), row.call, error});
      }
    }
  }
  std::cout << cases.size() << " distinct cases of function, call and errno, of "
            << functions.size() << " functions\n";
  EXPECT_GE(cases.size(), kCases);
}

}  // namespace
}  // namespace faults
