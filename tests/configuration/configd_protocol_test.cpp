// The texts of the protocol, built and read without a socket.

#include <rkutils/configuration/configd_protocol.h>
#include <rkutils/memory.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

using rkutils::configd::AssignmentText;
using rkutils::configd::build_query;
using rkutils::configd::kQueryRequestSize;
using rkutils::configd::read_value;

configd_query entry(const char* key, const char* value) {
  configd_query one = {};
  strlcpy(one.key, key, sizeof one.key);
  strlcpy(one.value, value, sizeof one.value);
  return one;
}

TEST(BuildQuery, IsMarkKeyNewlineNul) {
  char request[kQueryRequestSize];
  const std::size_t length = build_query(entry("a.b", "").key, request);
  EXPECT_EQ(std::string(request, length), std::string("?a.b\n\0", 6));
}

TEST(BuildQuery, FillsTheRequestWithTheLongestKey) {
  char request[kQueryRequestSize];
  const std::string key(255, 'k');
  EXPECT_EQ(build_query(entry(key.c_str(), "").key, request), key.size() + 3);
  EXPECT_EQ(sizeof request, key.size() + 3);
}

TEST(ReadValue, NeedsTwoBytes) {
  char reply[] = "v";
  configd_query one = entry("k", "before");
  for (const int length : {-1, 0, 1}) EXPECT_FALSE(read_value(reply, length, one.value));
  EXPECT_STREQ(one.value, "before");
}

TEST(ReadValue, DropsTheLastTwoBytes) {
  char reply[] = "value\n";
  configd_query one = entry("k", "before");
  EXPECT_TRUE(read_value(reply, sizeof reply, one.value));
  EXPECT_STREQ(one.value, "value");
}

TEST(AssignmentText, JoinsLines) {
  AssignmentText text;
  EXPECT_EQ(text.length(), 0U);
  EXPECT_TRUE(text.append(entry("a", "1")));
  EXPECT_TRUE(text.append(entry("b", "")));
  EXPECT_STREQ(text.text(), "a=1\nb=\n");
  EXPECT_EQ(text.length(), std::strlen(text.text()));
}

TEST(AssignmentText, Holds16382Characters) {
  AssignmentText text;
  const std::string value(1022, 'v');
  for (int i = 0; i < 15; ++i) ASSERT_TRUE(text.append(entry("k", value.c_str())));
  const std::string rest(16382 - 15 * 1025 - 3, 'w');
  EXPECT_FALSE(text.append(entry("k", (rest + "w").c_str())));
  EXPECT_TRUE(text.append(entry("k", rest.c_str())));
  EXPECT_EQ(text.length(), 16382U);
  EXPECT_EQ(std::strlen(text.text()), 16382U);
  EXPECT_FALSE(text.append(entry("", "")));
}

}  // namespace
