// Another reader of the table that brctl prints, which takes all of it at once.
#ifndef TESTS_NETWORK_SIMPLE_BRIDGE_TABLE_H
#define TESTS_NETWORK_SIMPLE_BRIDGE_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace simple_bridge_table {

inline std::vector<std::string> columns_of(const std::string& line) {
  std::vector<std::string> columns = {""};
  for (const char character : line) {
    if (character == '\t') {
      columns.emplace_back();
    } else {
      columns.back() += character;
    }
  }
  std::vector<std::string> with_text;
  for (const std::string& column : columns) {
    if (!column.empty()) with_text.push_back(column);
  }
  return with_text;
}

inline std::string stripped(const std::string& text) {
  const char* const white = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(white);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(white) - begin + 1);
}

// What BridgeMembers makes of the lines, whatever room there is.
inline std::string simple_members(const std::vector<std::string>& lines,
                                  const std::string& bridge) {
  std::string members;
  bool found = false;
  for (const std::string& line : lines) {
    const std::vector<std::string> columns = columns_of(line);
    std::string member;
    if (line.compare(0, 7, "bridge ") == 0 || columns.empty()) continue;
    if (line[0] == '\t' || line[0] == ' ') {
      if (found) member = stripped(columns[0]);
    } else if (columns[0] == bridge) {
      found = true;
      if (columns.size() >= 4) member = stripped(columns[3]);
    }
    if (!member.empty()) members += member + " ";
  }
  return members;
}

}  // namespace simple_bridge_table

#endif
