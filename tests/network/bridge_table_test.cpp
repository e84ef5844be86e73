// The table that brctl prints, beside a reader of it that takes all of it at once.

#include <rkutils/network/interface/bridge_table.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "network/simple_bridge_table.h"
#include "support/rounds.h"

namespace {

using rkutils::network::BridgeMembers;
using simple_bridge_table::simple_members;

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
