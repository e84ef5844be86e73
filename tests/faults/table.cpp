#include "table.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "scenario.h"
#include "support/private_router.h"

namespace faults {
namespace {

#ifdef __GLIBC__
constexpr std::string_view kThisLibrary = "glibc";
#else
constexpr std::string_view kThisLibrary = "musl";
#endif

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(' ');
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::vector<std::string> columns_of(const std::string& line) {
  std::vector<std::string> columns;
  std::istringstream in(line);
  for (std::string column; std::getline(in, column, '|');) columns.push_back(trimmed(column));
  return columns;
}

Position position_of(const std::string& text) {
  constexpr std::string_view kLast = "last";
  if (text == kLast) return -1;
  const bool from_end = text.compare(0, kLast.size() + 1, "last-") == 0;
  const std::string digits = from_end ? text.substr(kLast.size() + 1) : text;
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
    throw std::runtime_error("no position: " + text);
  }
  return from_end ? -1 - std::stoi(digits) : std::stoi(digits);
}

void read_nth(Row& row) {
  if (row.nth == "all" || row.nth == "none" || row.nth == "-") return;
  const std::string range = row.nth == "each" ? "1..last" : row.nth;
  const std::size_t dots = range.find("..");
  row.first = position_of(range.substr(0, dots));
  row.last = dots == std::string::npos ? row.first : position_of(range.substr(dots + 2));
}

Row row_of(const std::string& line) {
  constexpr std::size_t kColumns = 5;
  const std::vector<std::string> columns = columns_of(line);
  if (columns.size() != kColumns) throw std::runtime_error("not five columns");
  Row row;
  row.scenario = columns[0];
  const std::size_t at = columns[1].find('@');
  row.call = columns[1].substr(0, at);
  if (at != std::string::npos) row.c_library = columns[1].substr(at + 1);
  if (!row.call.empty() && row.call.back() == '?') {
    row.call.pop_back();
    row.optional = true;
  }
  row.nth = columns[2];
  read_nth(row);
  std::istringstream errors(columns[3]);
  for (std::string name; errors >> name;) {
    if (name == "-") continue;
    static_cast<void>(error_named(name));
    row.errors.push_back(name);
  }
  row.outcome = columns[4];
  return row;
}

void replace_all(std::string& text, std::string_view what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
}

unsigned resolved(Position position, unsigned count) {
  if (position >= 0) return static_cast<unsigned>(position);
  const auto back = static_cast<unsigned>(-1 - position);
  return back < count ? count - back : 0;
}

}  // namespace

bool Row::is_for(unsigned number, unsigned count) const {
  return first != 0 && number >= resolved(first, count) && number <= resolved(last, count);
}

std::vector<Row> read_table(const std::string& name) {
  const std::string path = support::source_file("tests/faults/cases/" + name + ".txt");
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  std::vector<Row> rows;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.empty() || line.front() == '#') continue;
    try {
      rows.push_back(row_of(line));
    } catch (const std::exception& problem) {
      throw std::runtime_error(path + ":" + std::to_string(number) + ": " + problem.what());
    }
    rows.back().line = number;
  }
  return rows;
}

std::vector<Row> read_table_for_this_library(const std::string& name) {
  std::vector<Row> rows = read_table(name);
  rows.erase(std::remove_if(rows.begin(), rows.end(),
                            [](const Row& row) {
                              return !row.c_library.empty() && row.c_library != kThisLibrary;
                            }),
             rows.end());
  return rows;
}

std::string with_error(const std::string& outcome, int error) {
  std::string text = outcome;
  replace_all(text, "%name", name_of_error(error));
  replace_all(text, "%number", std::to_string(error));
  replace_all(text, "%text", std::strerror(error));
  return text;
}

}  // namespace faults
