// Text and formatting on a thread with the target's small stack, with the largest of everything.

#include <rkutils/string.h>
#include <rkutils/text.h>

#include <cstdint>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/small_stack.h"

namespace {

constexpr std::size_t kLarge = std::size_t{1} << 20U;

TEST(TextOnASmallStack, FormatsIntoItsBuffers) {
  const std::string large(kLarge, 'x');
  support::run_on_small_stack([&] {
    EXPECT_EQ(std::strlen(strformat("%s %*d", large.c_str(), 100000, 1)), 2047U);
    EXPECT_STREQ(strformat("<%s>", strformat("%d", 1)), "<1>");
    const std::string attribute(1019, 'x');
    EXPECT_EQ(xml_readattr(("<b>" + attribute + "</b>" + large).c_str(), "b"), attribute);
    EXPECT_EQ(xml_readattr("<b>1</b>", large.c_str()), nullptr);
    EXPECT_STREQ(format_size(std::numeric_limits<std::int64_t>::max()), "8388608 TB");
    EXPECT_STREQ(format_rate(std::numeric_limits<std::int64_t>::min()), "-67108864.0 Tbit/s");
  });
}

TEST(TextOnASmallStack, ReadsAndWritesTimes) {
  support::run_on_small_stack([] {
    const std::time_t time = timeparse("2025-11-21 09:05:59");
    EXPECT_STREQ(timeformat(&time), "2025-11-21 09:05:59") << "the router's zone is UTC";
    EXPECT_EQ(validateTimeString("2025-11-21T09:05:59"), 0);
    EXPECT_GT(jiffy(), 0);
    mkid();
  });
}

TEST(TextOnASmallStack, WorksOnLargeTexts) {
  std::string large = std::string(kLarge, 'X') + " \n";
  std::string escaped(2 * kLarge, '#');
  support::run_on_small_stack([&] {
    EXPECT_EQ(std::strlen(stripwhite(large.data())), kLarge);
    strtolower(large.data());
    reverse(large.data());
    EXPECT_EQ(stricmp(large.c_str(), std::string(kLarge, 'X').c_str()), 0);
    escape(large.c_str(), kLarge, escaped.data(), escaped.size());
    EXPECT_EQ(std::strlen(escaped.c_str()), kLarge);
    EXPECT_EQ(valueOf32(large.c_str()), u_valueOf32(std::string(33, 'x').c_str()));
    const std::vector<char> data(kLarge);
    std::vector<char> dump(nbrOfChars_forDataChunk2String(kLarge, 16));
    dataChunk2String(data.data(), dump.data(), kLarge, 16);
    EXPECT_EQ(std::strlen(dump.data()), kLarge / 4 * 11 + kLarge / 16 + 1);
  });
}

TEST(FormatEngineOnASmallStack, MeasuresAndWritesLargeTexts) {
  const std::string large(kLarge, 'x');
  std::string buffer(3 * kLarge, '#');
  const int size = static_cast<int>(kLarge);
  support::run_on_small_stack([&] {
    EXPECT_EQ(strlenf("%s%*d%.*x", large.c_str(), size, 1, size, 2U), 3 * size);
    EXPECT_EQ(
        snxprintf(buffer.data(), 1, buffer.size(), "%s%*d%.*x", large.c_str(), size, 1, size, 2U),
        3 * size - 1);
    EXPECT_EQ(std::strlen(buffer.c_str()), 3 * kLarge - 1);
  });
}

TEST(StringOnASmallStack, FormatsLargeTexts) {
  const std::string large(kLarge, 'x');
  const int size = static_cast<int>(kLarge);
  support::run_on_small_stack([&] {
    String text;
    text.format("%s", large.c_str()).concatf("%.*d", size, 1);
    EXPECT_EQ(text.length(), 2 * size);
    text.insert(size, text).toUpperCase().replace('0', '1').trim();
    EXPECT_EQ(text.length(), 4 * size);
    EXPECT_EQ(text.indexOfIgnoreCase(String("x1")), 2 * size - 1);
    EXPECT_EQ(text.lastIndexOf(String("X1")), 2 * size - 1);
  });
}

}  // namespace
