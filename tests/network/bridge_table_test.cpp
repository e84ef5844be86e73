// The table that brctl prints, beside a reader of it that takes all of it at once.

#include <rkutils/network/interface/bridge_table.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/rounds.h"

namespace {

using rkutils::network::BridgeMembers;

// ---- The other reader

std::vector<std::string> columns_of(const std::string& line) {
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

std::string stripped(const std::string& text) {
  const char* const white = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(white);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(white) - begin + 1);
}

std::string simple_members(const std::vector<std::string>& lines, const std::string& bridge) {
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

// ---- The comparison

std::size_t below(std::mt19937& random, std::size_t limit) { return random() % limit; }

std::string random_line(std::mt19937& random) {
  static const std::vector<std::string> kPieces = {
      "br0", "br1", "bridge ", "eth0", "e", "no", "\t", "\t", "\t", "\t\t", " ", "\r", ""};
  std::string line;
  if (below(random, 3) == 0) line = "br0\t";
  for (std::size_t pieces = below(random, 9); pieces > 0; --pieces) {
    line += kPieces[below(random, kPieces.size())];
  }
  return line;
}

TEST(BridgeTableModel, IsReadAsByAnother) {
  std::mt19937 random(20260101);
  std::size_t members = 0;
  for (int round = support::rounds(10000); round > 0; --round) {
    std::vector<std::string> lines;
    for (std::size_t count = below(random, 7); count > 0; --count) {
      lines.push_back(random_line(random));
    }
    const std::string expected = simple_members(lines, "br0");
    const std::size_t size = 1 + below(random, 40);
    std::string out(size + 1, '#');
    BridgeMembers reader("br0", out.data(), size);
    for (std::string line : lines) {
      if (below(random, 2) == 0) line += '\n';
      reader.take_line(line.data());
    }
    const std::string kept = expected.substr(0, size - 1);
    ASSERT_EQ(out.substr(0, kept.size() + 1), kept + '\0') << testing::PrintToString(lines);
    ASSERT_EQ(out.back(), '#');
    ASSERT_EQ(reader.length(), static_cast<int>(kept.size()));
    members += expected.size();
  }
  EXPECT_GT(members, 0U);
}

}  // namespace
