#include <rkutils/text.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "foundations/number_rules.h"
#include "support/rounds.h"

namespace {

using namespace std::string_literals;

constexpr int kBases[] = {2, 8, 10, 16};

std::vector<std::uint32_t> interesting_values() {
  std::vector<std::uint32_t> values = {0, 1, 9, 10, 99, 100, 0x7fffffff, 0x80000000, 0xffffffff};
  for (unsigned bit = 0; bit < 32; ++bit) {
    for (const std::uint32_t near : {0xffffffffU, 0U, 1U}) values.push_back((1U << bit) + near);
  }
  for (std::uint32_t power = 1; power <= 1000000000 / 10; power *= 10) {
    for (const std::uint32_t near : {0xffffffffU, 0U, 1U}) values.push_back(power * 10 + near);
  }
  std::mt19937 random(1);
  for (int i = support::rounds(100000); i > 0; --i)
    values.push_back(static_cast<std::uint32_t>(random()) >> (random() % 32));
  return values;
}

TEST(I32toa, WritesEachBaseWithItsSuffix) {
  char buffer[34];
  EXPECT_STREQ(i32toa(255, buffer, 16), "FFh");
  EXPECT_STREQ(i32toa(5, buffer, 2), "101b");
  EXPECT_STREQ(i32toa(8, buffer, 8), "10o");
  EXPECT_STREQ(i32toa(-42, buffer, 10), "-42");
  EXPECT_STREQ(i32toa(INT32_MIN, buffer, 10), "-2147483648");
  EXPECT_STREQ(i32toa(-1, buffer, 2), "11111111111111111111111111111111b");
}

TEST(I32toa, ReturnsItsBuffer) {
  char buffer[34];
  EXPECT_EQ(i32toa(1, buffer, 10), buffer);
  EXPECT_EQ(i16toa(1, buffer, 16), buffer);
  EXPECT_EQ(u_i32toa(1, buffer, 8), buffer);
  EXPECT_EQ(u_i16toa(1, buffer, 2), buffer);
}

TEST(I32toa, RefusesOtherBasesAndNullAndWritesNothing) {
  char buffer[34] = "kept";
  for (const int base : {-10, 0, 1, 3, 7, 9, 11, 15, 17, 36}) {
    EXPECT_EQ(i32toa(1, buffer, base), nullptr);
    EXPECT_EQ(u_i32toa(1, buffer, base), nullptr);
    EXPECT_EQ(i16toa(1, buffer, base), nullptr);
    EXPECT_EQ(u_i16toa(1, buffer, base), nullptr);
  }
  EXPECT_EQ(i32toa(-1, buffer, 8), nullptr);
  EXPECT_EQ(i32toa(-1, buffer, 16), nullptr);
  EXPECT_EQ(i32toa(INT32_MIN, buffer, 16), nullptr);
  EXPECT_STREQ(buffer, "kept");
  for (const int base : kBases) {
    EXPECT_EQ(i32toa(1, nullptr, base), nullptr);
    EXPECT_EQ(u_i32toa(1, nullptr, base), nullptr);
    EXPECT_EQ(i16toa(1, nullptr, base), nullptr);
    EXPECT_EQ(u_i16toa(1, nullptr, base), nullptr);
  }
}

TEST(I32toa, WritesEdgesAndSamplesInEachBase) {
  char buffer[34];
  for (const std::uint32_t value : interesting_values()) {
    for (const int base : kBases) {
      ASSERT_EQ(u_i32toa(value, buffer, base), by_rules(value, base));
      const auto number = static_cast<std::int32_t>(value);
      if (number >= 0) {
        ASSERT_EQ(i32toa(number, buffer, base), by_rules(value, base));
      }
    }
    ASSERT_EQ(i32toa(static_cast<std::int32_t>(value), buffer, 10),
              std::to_string(static_cast<std::int32_t>(value)));
  }
}

TEST(I16toa, WritesEveryValueInEachBase) {
  char buffer[34];
  const auto stride = static_cast<std::uint32_t>(support::stride());
  for (std::uint32_t value = 0; value <= 0xffff; value += stride) {
    const auto number = static_cast<std::int16_t>(value);
    for (const int base : kBases) {
      ASSERT_EQ(u_i16toa(static_cast<std::uint16_t>(value), buffer, base), by_rules(value, base));
      // Below zero, the 16-bit two's complement.
      ASSERT_EQ(i16toa(number, buffer, base),
                base == 10 ? std::to_string(number) : by_rules(value, base));
    }
  }
}

TEST(ValueOf, ReadsBackEvery16BitValueInEachBase) {
  char buffer[34];
  for (std::uint32_t value = 0; value <= 0xffff; ++value) {
    for (const int base : kBases) {
      ASSERT_EQ(u_valueOf16(u_i16toa(static_cast<std::uint16_t>(value), buffer, base)), value);
      const auto number = static_cast<std::int16_t>(value);
      ASSERT_EQ(valueOf16(i16toa(number, buffer, base)), number);
    }
  }
}

TEST(ValueOf, ReadsBackEdgesAndSamplesInEachBase) {
  char buffer[34];
  for (const std::uint32_t value : interesting_values()) {
    for (const int base : kBases) {
      ASSERT_EQ(u_valueOf32(u_i32toa(value, buffer, base)), value);
    }
    const auto number = static_cast<std::int32_t>(value);
    ASSERT_EQ(valueOf32(i32toa(number, buffer, 10)), number);
  }
}

struct Reading {
  const char* text;
  std::int32_t value;
};

class ValueOf32 : public testing::TestWithParam<Reading> {};

TEST_P(ValueOf32, Reads) { EXPECT_EQ(valueOf32(GetParam().text), GetParam().value); }

INSTANTIATE_TEST_SUITE_P(
    Texts, ValueOf32,
    testing::Values(Reading{nullptr, 0}, Reading{"", 0}, Reading{"1Fh", 31}, Reading{"1fx", 31},
                    Reading{"ffx", 255}, Reading{"101b", 5}, Reading{"17o", 15},
                    Reading{"-12", -12}, Reading{"10d", 10},  // an unknown suffix is dropped
                    Reading{"1f", 1},                         // so is this one
                    Reading{"-", 0}, Reading{"-h", 0}, Reading{"h", 0},
                    Reading{"--5", -(-3 * 10 + 5)},  // the second sign is a digit of -3
                    Reading{"+5", ('+' - '0') * 10 + 5}, Reading{" 5", (' ' - '0') * 10 + 5},
                    Reading{"1F", 1 * 10 + ('F' - '0')},  // upper case is no suffix
                    Reading{"4294967296", 0}, Reading{"4294967295", -1},
                    Reading{"2147483648", INT32_MIN}, Reading{"-2147483648", INT32_MIN},
                    Reading{"100000000h", 0}, Reading{"-1h", -1}));

TEST(ValueOf32, LooksAt33Characters) {
  const std::string ones(32, '1');
  EXPECT_EQ(u_valueOf32((ones + "b").c_str()), 0xffffffffU);
  // The 34th character, a suffix, is not seen: all is decimal.
  EXPECT_EQ(u_valueOf32(("0" + ones + "b").c_str()), value_by_rules("0" + ones, false));
  // The sign is one of the 33.
  EXPECT_EQ(valueOf32(("-" + ones + "b").c_str()),
            static_cast<std::int32_t>(value_by_rules("-" + ones, true)));
}

TEST(UValueOf32, HasNoSign) { EXPECT_EQ(u_valueOf32("-12"), 0U - 3 * 100 + 12); }

TEST(ValueOf, ReadsAnyBytesByTheRules) {
  std::mt19937 random(2);
  for (int i = support::rounds(200000); i > 0; --i) {
    std::string text;
    for (std::size_t length = random() % 40; length > 0; --length) {
      const char likely[] = "0123456789abcdefhoxABCDEF-";
      text += random() % 8 == 0 ? static_cast<char>(1 + random() % 255)
                                : likely[random() % (sizeof likely - 1)];
    }
    ASSERT_EQ(static_cast<std::uint32_t>(valueOf32(text.c_str())), value_by_rules(text, true))
        << text;
    ASSERT_EQ(u_valueOf32(text.c_str()), value_by_rules(text, false)) << text;
    ASSERT_EQ(valueOf16(text.c_str()), static_cast<std::int16_t>(value_by_rules(text, true)));
    ASSERT_EQ(u_valueOf16(text.c_str()), static_cast<std::uint16_t>(value_by_rules(text, false)));
  }
}

TEST(ValidValueOf32, AcceptsExactlyWhatItWouldWrite) {
  int ok = 7;
  EXPECT_EQ(validValueOf32(&ok, "7"), 7);
  EXPECT_EQ(ok, 0);
  for (const char* text : {"-2147483648", "2147483647", "0", "-1"}) {
    EXPECT_EQ(validValueOf32(&ok, text), std::atol(text));
    EXPECT_EQ(ok, 0) << text;
  }
  for (const char* text :
       {"007", "", "+7", " 7", "7 ", "7h", "-0", "2147483648", "0x7", "7d", "-"}) {
    ok = 7;
    EXPECT_EQ(validValueOf32(&ok, text), valueOf32(text));
    EXPECT_EQ(ok, -1) << text;
  }
}

TEST(ValidValueOf, TakesNull) {
  int ok = 7;
  EXPECT_EQ(validValueOf32(&ok, nullptr), 0);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  EXPECT_EQ(u_validValueOf32(&ok, nullptr), 0U);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  EXPECT_EQ(validValueOf16(&ok, nullptr), 0);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  EXPECT_EQ(u_validValueOf16(&ok, nullptr), 0U);
  EXPECT_EQ(ok, -1);
  EXPECT_EQ(validValueOf32(nullptr, "7"), 7);
  EXPECT_EQ(u_validValueOf32(nullptr, "7"), 7U);
  EXPECT_EQ(validValueOf16(nullptr, "7"), 7);
  EXPECT_EQ(u_validValueOf16(nullptr, "7"), 7U);
}

TEST(ValidValueOf, HoldsEachTypesRange) {
  int ok = 7;
  EXPECT_EQ(u_validValueOf32(&ok, "4294967295"), 4294967295U);
  EXPECT_EQ(ok, 0);
  u_validValueOf32(&ok, "4294967296");
  EXPECT_EQ(ok, -1);
  u_validValueOf32(&ok, "-1");
  EXPECT_EQ(ok, -1);
  EXPECT_EQ(validValueOf16(&ok, "-32768"), -32768);
  EXPECT_EQ(ok, 0);
  EXPECT_EQ(validValueOf16(&ok, "32768"), -32768);
  EXPECT_EQ(ok, -1);
  EXPECT_EQ(u_validValueOf16(&ok, "65535"), 65535U);
  EXPECT_EQ(ok, 0);
  EXPECT_EQ(u_validValueOf16(&ok, "65536"), 0U);
  EXPECT_EQ(ok, -1);
}

TEST(ValidRangeValueOf, IncludesItsBounds) {
  const auto check32 = [](const char* text) {
    int ok = 7;
    validRangeValueOf32(&ok, text, -5, 10);
    return ok;
  };
  for (const char* text : {"-5", "0", "10"}) EXPECT_EQ(check32(text), 0) << text;
  for (const char* text : {"-6", "11", "07", "", "4294967296"})
    EXPECT_EQ(check32(text), -1) << text;
  int ok = 7;
  u_validRangeValueOf32(&ok, "4000000000", 3000000000U, 4000000000U);
  EXPECT_EQ(ok, 0);
  u_validRangeValueOf32(&ok, "4000000001", 3000000000U, 4000000000U);
  EXPECT_EQ(ok, -1);
  u_validRangeValueOf32(&ok, "2999999999", 3000000000U, 4000000000U);
  EXPECT_EQ(ok, -1);
  validRangeValueOf16(&ok, "-300", -300, 300);
  EXPECT_EQ(ok, 0);
  validRangeValueOf16(&ok, "301", -300, 300);
  EXPECT_EQ(ok, -1);
  validRangeValueOf16(&ok, "-301", -300, 300);
  EXPECT_EQ(ok, -1);
  u_validRangeValueOf16(&ok, "65535", 1, 65535);
  EXPECT_EQ(ok, 0);
  u_validRangeValueOf16(&ok, "0", 1, 65535);
  EXPECT_EQ(ok, -1);
  u_validRangeValueOf16(&ok, "65536", 0, 65535);
  EXPECT_EQ(ok, -1);
}

TEST(ValidRangeValueOf, RefusesWhatIsInRangeButNotValid) {
  int ok = 7;
  validRangeValueOf32(&ok, "007", 0, 10);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  u_validRangeValueOf32(&ok, "007", 0, 10);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  validRangeValueOf16(&ok, "007", 0, 10);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  u_validRangeValueOf16(&ok, "007", 0, 10);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  // These are read as 1.
  validRangeValueOf32(&ok, "4294967297", 0, 10);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  u_validRangeValueOf32(&ok, "4294967297", 0, 10);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  validRangeValueOf16(&ok, "65537", 0, 10);
  EXPECT_EQ(std::exchange(ok, 7), -1);
  u_validRangeValueOf16(&ok, "65537", 0, 10);
  EXPECT_EQ(ok, -1);
}

TEST(ValidRangeValueOf, WithoutAPlaceForItsAnswerDoesNothing) {
  validRangeValueOf32(nullptr, "1", 0, 1);
  u_validRangeValueOf32(nullptr, "1", 0, 1);
  validRangeValueOf16(nullptr, "1", 0, 1);
  u_validRangeValueOf16(nullptr, "1", 0, 1);
}

TEST(NextHigherPowerOf2, RoundsUp) {
  EXPECT_EQ(nextHigherPowerOf2(0), 1U);
  EXPECT_EQ(nextHigherPowerOf2(1), 1U);
  EXPECT_EQ(nextHigherPowerOf2(5), 8U);
  EXPECT_EQ(nextHigherPowerOf2(64), 64U);
  for (unsigned bit = 1; bit < 32; ++bit) {
    const std::uint32_t power = 1U << bit;
    EXPECT_EQ(nextHigherPowerOf2(power), power);
    EXPECT_EQ(nextHigherPowerOf2(power - 1), bit == 1 ? 1U : power);
    EXPECT_EQ(nextHigherPowerOf2(power + 1), bit == 31 ? 0U : power * 2);
  }
  EXPECT_EQ(nextHigherPowerOf2(UINT32_MAX), 0U);
}

TEST(BinToHexLut, HasTheDigitsOfEveryByte) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    char expected[3];
    std::snprintf(expected, sizeof expected, "%02x", byte);
    EXPECT_STREQ(binToHexLut[byte], expected);
  }
  static_assert(sizeof binToHexLut == 768);
}

TEST(ConvBinToHex, WritesTheBytesInTheirOrderInMemory) {
  std::string out(12, '#');
  std::uint32_t value = 0;
  std::memcpy(&value, "\x12\x34\xab\xcd", 4);
  convBinToHex(value, out.data());
  EXPECT_EQ(out, "0x1234abcd\0#"s);
}

// Words of the bytes 0, 1, 2 and so on, in a buffer of `size`.
std::string dump(std::uint32_t byte_count, std::uint32_t bytes_per_line, std::uint32_t size) {
  std::vector<unsigned char> data(std::size_t{byte_count + 3} / 4 * 4);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i);
  std::string out(size, '#');
  dataChunk2String(data.data(), out.data(), byte_count, bytes_per_line);
  EXPECT_LT(std::strlen(out.c_str()), size);
  out.resize(std::strlen(out.c_str()));
  return out;
}

std::string dump(std::uint32_t byte_count, std::uint32_t bytes_per_line) {
  const std::uint32_t size = nbrOfChars_forDataChunk2String(byte_count, bytes_per_line);
  return dump(byte_count, bytes_per_line, size);
}

TEST(DataChunk2String, WritesWordsInLines) {
  EXPECT_EQ(dump(16, 8),
            "0x00010203 0x04050607 \n"
            "0x08090a0b 0x0c0d0e0f \n\n");
  EXPECT_EQ(dump(12, 8),
            "0x00010203 0x04050607 \n"
            "0x08090a0b \n");
  EXPECT_EQ(dump(4, 4), "0x00010203 \n\n");
}

TEST(DataChunk2String, RoundsUpToWholeWords) {
  EXPECT_EQ(dump(1, 8), "0x00010203 \n");
  EXPECT_EQ(dump(5, 8), "0x00010203 0x04050607 \n\n");
}

TEST(DataChunk2String, OfNothingIsALineFeed) { EXPECT_EQ(dump(0, 8), "\n"); }

TEST(DataChunk2String, WithoutALineLengthIsOneLine) {
  EXPECT_EQ(dump(12, 0), "0x00010203 0x04050607 0x08090a0b \n");
  EXPECT_EQ(dump(0, 0), "\n");
}

TEST(DataChunk2String, EndsALineOnlyAfterAWordThatEndsThere) {
  EXPECT_EQ(dump(16, 6), "0x00010203 0x04050607 0x08090a0b \n0x0c0d0e0f \n");
  EXPECT_EQ(dump(8, 2), "0x00010203 \n0x04050607 \n\n");
}

TEST(DataChunk2String, NeedsNoAlignment) {
  alignas(4) const unsigned char data[8] = {0, 1, 2, 3, 4, 5, 6, 7};
  char out[16];
  dataChunk2String(data + 1, out, 4, 4);
  EXPECT_STREQ(out, "0x01020304 \n\n");
}

// The text by its rules, spelled out.
std::string dump_by_rules(std::uint32_t byte_count, std::uint32_t bytes_per_line) {
  std::string text;
  for (std::uint32_t at = 0; at < byte_count; at += 4) {
    text += "0x";
    for (std::uint32_t byte = at; byte < at + 4; ++byte) text += binToHexLut[byte];
    text += ' ';
    if (bytes_per_line != 0 && (at + 4) % bytes_per_line == 0) text += '\n';
  }
  return text + '\n';
}

TEST(DataChunk2String, EndsLinesOfEveryLength) {
  int number = 0;
  for (std::uint32_t byte_count = 0; byte_count <= 128; ++byte_count) {
    for (std::uint32_t per_line = 0; per_line <= 130; ++per_line) {
      if (number++ % support::stride() != 0) continue;
      ASSERT_EQ(dump(byte_count, per_line), dump_by_rules(byte_count, per_line))
          << byte_count << ' ' << per_line;
    }
  }
  for (const std::uint32_t per_line : {UINT32_MAX, UINT32_MAX - 3, 0x80000000U}) {
    // One line, whose buffer need not have the room of the longer ones that are asked for.
    const std::uint32_t size = nbrOfChars_forDataChunk2String(64, 0);
    EXPECT_EQ(dump(64, per_line, size), dump_by_rules(64, 0));
  }
}

TEST(NbrOfCharsForDataChunk2String, WithoutALineLengthIsForOneLine) {
  EXPECT_EQ(nbrOfChars_forDataChunk2String(12, 0), 11U * 3 + 2 + 1);
}

TEST(NbrOfCharsForDataChunk2String, FollowsItsFormula) {
  EXPECT_EQ(nbrOfChars_forDataChunk2String(16, 8), 49U);
  EXPECT_EQ(nbrOfChars_forDataChunk2String(17, 8), 3U * 24 + 1);
  EXPECT_EQ(nbrOfChars_forDataChunk2String(4, 4), 14U);
  EXPECT_EQ(nbrOfChars_forDataChunk2String(100, 32), 4U * (88 + 2) + 1);
  EXPECT_EQ(nbrOfChars_forDataChunk2String(8, 7), 2U * (11 + 2) + 1) << "whole words of a line";
}

TEST(NbrOfCharsForDataChunk2String, IsAlwaysEnough) {
  for (std::uint32_t byte_count = 0; byte_count < 100; ++byte_count) {
    for (std::uint32_t per_line = 0; per_line < 40; ++per_line) dump(byte_count, per_line);
  }
}

TEST(NbrOfCharsForDataChunk2String, DoesNotWrap) {
  EXPECT_EQ(nbrOfChars_forDataChunk2String(UINT32_MAX, 4), UINT32_MAX);
  EXPECT_EQ(nbrOfChars_forDataChunk2String(UINT32_MAX, 1), UINT32_MAX);
  EXPECT_EQ(nbrOfChars_forDataChunk2String(UINT32_MAX, 0), UINT32_MAX);
}

}  // namespace
