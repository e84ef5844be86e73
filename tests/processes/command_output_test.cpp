#include <rkutils/processes/command/output.h>

#include <climits>
#include <string>

#include <gmock/gmock.h>

namespace {

using rkutils::processes::Output;

TEST(Output, BeginsEmpty) {
  char buffer[] = "text";
  const Output output(buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(output.length(), 0);
}

TEST(Output, LeavesOneByteUnusedBesideTheNul) {
  char buffer[] = "########";
  Output output(buffer, 6);
  output.append("abcdef");
  EXPECT_EQ(std::string(buffer, sizeof buffer - 1), std::string("abcd\0###", 8));
  EXPECT_EQ(output.length(), 6);
}

TEST(Output, AppendsUpToThat) {
  char buffer[] = "########";
  Output output(buffer, 6);
  output.append("ab");
  output.append("");
  output.append("cd");
  EXPECT_EQ(std::string(buffer, sizeof buffer - 1), std::string("abcd\0###", 8));
  output.append("e");  // length and room are the same from here on
  output.append("fgh");
  EXPECT_EQ(std::string(buffer, sizeof buffer - 1), std::string("abcd\0###", 8));
  EXPECT_EQ(output.length(), 8);
}

TEST(Output, DropsAllThatFollowsACut) {
  char buffer[] = "########";
  Output output(buffer, 4);
  output.append("abcdefghijkl");
  output.append("m");
  EXPECT_EQ(std::string(buffer, sizeof buffer - 1), std::string("ab\0#####", 8));
  EXPECT_EQ(output.length(), 13);
}

TEST(Output, KeepsNothingInOneByteOrTwo) {
  for (const std::size_t size : {1U, 2U}) {
    char buffer[] = "####";
    Output output(buffer, size);
    output.append("abc");
    output.append("d");
    EXPECT_EQ(std::string(buffer, sizeof buffer - 1), std::string("\0###", 4));
    EXPECT_EQ(output.length(), 4);
  }
}

TEST(Output, CountsNoFurtherThanAnIntReaches) {
  char buffer[4];
  Output output(buffer, sizeof buffer);
  const std::string megabyte(1048576, 'x');
  for (int i = 0; i < 2047; ++i) output.append(megabyte.c_str());
  output.append(megabyte.c_str() + 1);
  EXPECT_EQ(output.length(), INT_MAX);
  output.append("y");
  EXPECT_EQ(output.length(), INT_MAX);
  output.append(megabyte.c_str());
  EXPECT_EQ(output.length(), INT_MAX);
  EXPECT_STREQ(buffer, "xx");
}

}  // namespace
