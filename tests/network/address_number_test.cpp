// convIPStr2IPUl() and convIPUL2IPStr().

#include <rkutils/address.h>

#include <cstdint>
#include <random>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "near_quads.h"
#include "support/case_name.h"
#include "support/rounds.h"

namespace {

constexpr std::uint32_t kBefore = 0xA5A5A5A5;

struct Reading {
  const char* name;
  const char* text;
  int result;
  std::uint32_t number;
};

class ConvIpStr : public testing::TestWithParam<Reading> {};

TEST_P(ConvIpStr, ReadsFourNumbers) {
  std::uint32_t number = kBefore;
  EXPECT_EQ(convIPStr2IPUl(GetParam().text, &number), GetParam().result);
  EXPECT_EQ(number, GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(Good, ConvIpStr,
                         testing::Values(Reading{"Ordinary", "1.2.3.4", 0, 16909060},
                                         Reading{"Zero", "0.0.0.0", 0, 0},
                                         Reading{"Largest", "255.255.255.255", 0, 0xFFFFFFFF},
                                         Reading{"EachInItsPlace", "192.168.17.5", 0, 0xC0A81105},
                                         Reading{"LeadingZeros", "001.002.03.0004", 0, 16909060},
                                         Reading{"NotOctal", "010.0.0.08", 0, 0x0A000008},
                                         Reading{"TextBehind", "1.2.3.4.5", 0, 16909060},
                                         Reading{"WordBehind", "1.2.3.4 and more", 0, 16909060},
                                         Reading{"WhiteBeforeEach", " 1. 2.\t3.\n4", 0, 16909060},
                                         Reading{"PlusSigns", "+1.+2.+3.+4", 0, 16909060}),
                         support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Overflowing, ConvIpStr,
    testing::Values(Reading{"IntoTheByteBefore", "1.2.3.260", 0, 16909060 - 4 + 260},
                    Reading{"OutOfTheFirst", "257.0.0.0", 0, 0x01000000},
                    Reading{"AllOfThem", "256.256.256.256", 0, 0x01010100},
                    Reading{"JustFits", "0.0.0.4294967295", 0, 0xFFFFFFFF},
                    Reading{"Wraps", "0.0.0.4294967296", 0, 0},
                    Reading{"WrapsToFive", "0.0.0.4294967301", 0, 5},
                    Reading{"SumWraps", "0.0.1.4294967295", 0, 255},
                    Reading{"Of63Bits", "0.0.0.9223372036854775809", 0, 1},
                    Reading{"Of64Bits", "0.0.0.18446744073709551614", 0, 0xFFFFFFFE},
                    Reading{"Of65Bits", "0.0.0.18446744073709551616", 0, 0xFFFFFFFF},
                    Reading{"OfManyBits", "0.0.0.99999999999999999999999999", 0, 0xFFFFFFFF},
                    Reading{"Of65BitsShifted", "0.0.18446744073709551616.0", 0, 0xFFFFFF00},
                    Reading{"Negative", "0.0.0.-1", 0, 0xFFFFFFFF},
                    Reading{"NegativeFirst", "-1.0.0.1", 0, 0xFF000001}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(Bad, ConvIpStr,
                         testing::Values(Reading{"Empty", "", -1, kBefore},
                                         Reading{"White", "  ", -1, kBefore},
                                         Reading{"ThreeNumbers", "1.2.3", -1, kBefore},
                                         Reading{"ThreeNumbersAndADot", "1.2.3.", -1, kBefore},
                                         Reading{"OneNumber", "16909060", -1, kBefore},
                                         Reading{"Word", "localhost", -1, kBefore},
                                         Reading{"WordAtTheEnd", "1.2.3.x", -1, kBefore},
                                         Reading{"WhiteBeforeADot", "1.2 .3.4", -1, kBefore},
                                         Reading{"Commas", "1,2,3,4", -1, kBefore},
                                         Reading{"LoneSign", "1.2.3.-", -1, kBefore},
                                         Reading{"Hexadecimal", "0x1.2.3.4", -1, kBefore}),
                         support::CaseName());

TEST(ConvIpStr2IpUl, RefusesNothing) {
  std::uint32_t number = kBefore;
  EXPECT_EQ(convIPStr2IPUl(nullptr, &number), -1);
  EXPECT_EQ(number, kBefore);
  EXPECT_EQ(convIPStr2IPUl("1.2.3.4", nullptr), -1);
  EXPECT_EQ(convIPStr2IPUl(nullptr, nullptr), -1);
}

TEST(ConvIpStr2IpUl, ReadsEveryTextThatTheCLibraryTakesForAnAddress) {
  near_quads::for_each([](const std::string& text) {
    in_addr address;
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) return;
    std::uint32_t number = kBefore;
    ASSERT_EQ(convIPStr2IPUl(text.c_str(), &number), 0) << text;
    ASSERT_EQ(number, ntohl(address.s_addr)) << text;
  });
}

TEST(ConvIpUl2IpStr, WritesWhatTheCLibraryDoes) {
  std::mt19937 random(1);
  for (int i = 0; i < 100000; i += support::stride()) {
    // Every byte in each place first, then numbers of all lengths.
    const auto number = i < 1024 ? static_cast<std::uint32_t>(i % 256)
                                       << static_cast<unsigned>(i / 256 * 8)
                                 : static_cast<std::uint32_t>(random()) >> random() % 32;
    const in_addr address = {htonl(number)};
    char expected[IPV4_TEXT_SIZE];
    // One byte behind the text must stay.
    char text[IPV4_TEXT_SIZE + 1];
    text[IPV4_TEXT_SIZE] = '#';
    ASSERT_EQ(convIPUL2IPStr(number, text), 0);
    ASSERT_STREQ(text, inet_ntop(AF_INET, &address, expected, sizeof expected));
    ASSERT_EQ(text[IPV4_TEXT_SIZE], '#');
  }
}

TEST(ConvIpUl2IpStr, WritesNothingToNothing) { EXPECT_EQ(convIPUL2IPStr(16909060, nullptr), 0); }

}  // namespace
