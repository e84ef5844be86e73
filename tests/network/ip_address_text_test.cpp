// The texts that IpAddress takes and writes, and the parts that they are read in.

#include <rkutils/ip_address.h>

#include <climits>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "near_quads.h"
#include "support/case_name.h"
#include "support/rounds.h"

namespace {

// What the C library takes for an address.
std::optional<std::uint32_t> quad(const std::string& text) {
  in_addr address;
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return ntohl(address.s_addr);
}

// A size as it is written, and as no other text is.
std::optional<unsigned> size_of(const std::string& text) {
  for (unsigned size = 0; size <= 32; ++size) {
    if (text == std::to_string(size)) return size;
  }
  return std::nullopt;
}

std::uint32_t mask_of_size(unsigned size) {
  std::uint32_t mask = 0;
  for (unsigned bit = 0; bit < size; ++bit) mask |= 0x80000000U >> bit;
  return mask;
}

bool is_mask(std::uint32_t number) {
  for (unsigned size = 0; size <= 32; ++size) {
    if (number == mask_of_size(size)) return true;
  }
  return false;
}

// ---- setIpAddrAsString() ----

// A text is given to an object that has an address and a mask, and to an empty one.
void expect_address(const std::string& text, std::optional<std::uint32_t> address,
                    std::optional<unsigned> size) {
  static const IpAddress kBefore("10.9.8.7/22");
  IpAddress expected = kBefore;
  if (address) expected.setV4IpAddrAsBinaryUInt32(*address);
  if (address && size) expected.setV4NetMaskAsBinaryUInt32(mask_of_size(*size));
  IpAddress taken = kBefore;
  IpAddress empty;
  const String given(text.c_str());
  const int result = taken.setIpAddrAsString(given);
  // Many texts come here: no more is said about one than that it is taken wrongly.
  if (result != (address ? 0 : -1) || taken != expected ||
      empty.setIpAddrAsString(given) != result || empty.isEmpty() != !address) {
    FAIL() << text;
  }
}

TEST(IpAddressText, TakesTheQuadsThatTheCLibraryTakes) {
  int taken = 0;
  near_quads::for_each([&taken](const std::string& text) {
    // Slashes have their own test.
    if (text.find('/') != std::string::npos) return;
    const auto address = quad(text);
    if (address) ++taken;
    ASSERT_NO_FATAL_FAILURE(expect_address(text, address, std::nullopt));
  });
  EXPECT_GT(taken, support::rounds(50000));
}

TEST(IpAddressText, TakesEverySizeAndNothingElseBehindASlash) {
  for (const std::string base :
       {"192.168.1.1/", "0.0.0.0/", "255.255.255.255/", "1.2.3/", "1.2.3.256/"}) {
    const auto address = quad(base.substr(0, base.size() - 1));
    const auto check = [&](const std::string& text) {
      if (HasFailure()) return;
      const auto size = size_of(text.substr(base.size()));
      expect_address(text, size ? address : std::nullopt, size);
    };
    near_quads::for_each_text("0123489/.- a", 3, check, base);
  }
}

TEST(IpAddressText, OfAnAddressAloneLeavesTheMask) {
  IpAddress address("10.9.8.7/22");
  EXPECT_EQ(address.setIpAddrAsString("192.168.1.1"), 0);
  EXPECT_EQ(address.getNetMaskSize(), 22U);
  EXPECT_EQ(address.setIpAddrAsString("192.168.1.1/0"), 0);
  EXPECT_EQ(address.getV4NetMaskAsBinaryUInt32(), 0U);
}

class RefusedAddress : public testing::TestWithParam<const char*> {};

TEST_P(RefusedAddress, ChangesNothing) {
  IpAddress address("10.9.8.7/22");
  EXPECT_EQ(address.setIpAddrAsString(GetParam()), -1);
  EXPECT_TRUE(address == IpAddress("10.9.8.7/22"));
}

INSTANTIATE_TEST_SUITE_P(Texts, RefusedAddress,
                         testing::Values("", "10.0.0.1/33", "256.1.1.1", "1.2.3", "01.2.3.4",
                                         "1.2.3.4.", ".1.2.3.4", "1.2.3.4.5", "1.2.3.04",
                                         "00.0.0.0", "1.2.3.4/", "1.2.3.4/024", "1.2.3.4/08",
                                         "1.2.3.4/240", "1.2.3.4/255.255.255.0", "1.2.3.4/24/",
                                         "1.2.3.4 /24", " 1.2.3.4", "1.2.3.4 ", "1.2.3.4\n",
                                         "1..3.4", "-1.2.3.4", "1.2.3.1000", "1,2,3,4", "::1",
                                         "1.2.3.4/-1"));

TEST(IpAddressText, EndsAtItsLengthNotAtANul) {
  String text("192.168.1.1");
  text.concat("\0", 1);
  IpAddress address;
  EXPECT_EQ(address.setIpAddrAsString(text), -1);
  EXPECT_TRUE(address.isEmpty());
  EXPECT_EQ(address.setNetMaskAsString(text), -1);
}

// ---- setNetMaskAsString() ----

TEST(IpAddressText, OfAMaskIsAQuadOfLeadingOnes) {
  constexpr unsigned long kBefore = 0xFFFFFC00UL;
  near_quads::for_each([](const std::string& text) {
    const auto mask = quad(text);
    const bool valid = mask && is_mask(*mask);
    IpAddress taken(0x0A090807UL, kBefore);
    if (taken.setNetMaskAsString(text.c_str()) != (valid ? 0 : -1) ||
        taken.getV4NetMaskAsBinaryUInt32() != (valid ? *mask : kBefore) ||
        taken.getV4IpAddrAsBinaryUInt32() != 0x0A090807UL) {
      FAIL() << text;
    }
  });
}

TEST(IpAddressText, OfAMaskHasNoSize) {
  for (const char* text : {"255.255.255.0/24", "24", "/24", "255.255.255.0/", "255.0.255.0",
                           "255.255.255.0 ", "255.255.255"}) {
    IpAddress address("10.9.8.7/22");
    EXPECT_EQ(address.setNetMaskAsString(text), -1) << text;
    EXPECT_TRUE(address == IpAddress("10.9.8.7/22")) << text;
    IpAddress empty;
    EXPECT_EQ(empty.setNetMaskAsString(text), -1) << text;
    EXPECT_TRUE(empty.isEmpty()) << text;
  }
}

// ---- Writing ----

TEST(IpAddressText, IsWrittenAsTheCLibraryDoesAndReadBack) {
  std::mt19937 random(1);
  String text;
  for (int i = 0; i < 100000; i += support::stride()) {
    const auto number = i < 1024 ? static_cast<std::uint32_t>(i % 256)
                                       << static_cast<unsigned>(i / 256 * 8)
                                 : static_cast<std::uint32_t>(random()) >> random() % 32;
    const auto size = static_cast<unsigned>(random() % 33);
    IpAddress address;
    address.setV4IpAddrAsBinaryUInt32(number);
    address.setNetMaskSize(size);
    const auto expected = [](std::uint32_t value) {
      const in_addr bytes = {htonl(value)};
      char written[INET_ADDRSTRLEN];
      return std::string(inet_ntop(AF_INET, &bytes, written, sizeof written));
    };
    ASSERT_EQ(address.getNetMaskAsString(text).c_str(), expected(mask_of_size(size)));
    ASSERT_EQ(address.getNetAddressAsString(text).c_str(), expected(number & mask_of_size(size)));
    ASSERT_EQ(address.getIpAddrAsString(text).c_str(), expected(number));
    const String with_size = text + "/" + String::stringOf(static_cast<unsigned long>(size));
    ASSERT_TRUE(IpAddress(with_size) == address) << with_size.c_str();
  }
}

// ---- Parts ----

struct Part {
  const char* name;
  const char* text;
  long position;
  bool taken;
  unsigned long value;
  long behind;
};

class Octet : public testing::TestWithParam<Part> {};

TEST_P(Octet, IsReadAtAPosition) {
  long position = GetParam().position;
  unsigned long value = 77;
  EXPECT_EQ(IpAddress::s_getV4IpAddrTokenOfString(GetParam().text, position, value),
            GetParam().taken);
  EXPECT_EQ(value, GetParam().value);
  EXPECT_EQ(position, GetParam().behind);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Octet,
    testing::Values(
        Part{"Zero", "0", 0, true, 0, 1}, Part{"ZeroAlone", "01", 0, true, 0, 1},
        Part{"OneDigit", "7.", 0, true, 7, 1}, Part{"TwoDigits", "10x", 0, true, 10, 2},
        Part{"ThreeDigits", "100", 0, true, 100, 3}, Part{"Largest", "255", 0, true, 255, 3},
        Part{"TooLarge", "256", 0, false, 256, 3}, Part{"NineHundred", "999.", 0, false, 999, 3},
        Part{"FourDigits", "2551", 0, true, 255, 3}, Part{"InTheMiddle", "1.23.4", 2, true, 23, 4},
        Part{"AtTheEnd", "1.23", 4, false, 0, 4}, Part{"BehindTheEnd", "1.23", 9, false, 0, 9},
        Part{"FarBehindTheEnd", "1.23", LONG_MAX, false, 0, LONG_MAX},
        Part{"BeforeTheText", "1.23", -1, false, 0, -1},
        Part{"FarBeforeTheText", "1.23", LONG_MIN, false, 0, LONG_MIN},
        Part{"Dot", ".1", 0, false, 0, 0}, Part{"Sign", "-1", 0, false, 0, 0},
        Part{"White", " 1", 0, false, 0, 0}, Part{"Letter", "a", 0, false, 0, 0},
        Part{"BeforeTheDigits", "/", 0, false, 0, 0}, Part{"BehindTheDigits", ":", 0, false, 0, 0},
        Part{"Empty", "", 0, false, 0, 0}),
    support::CaseName());

class MaskSize : public testing::TestWithParam<Part> {};

TEST_P(MaskSize, IsReadAtAPosition) {
  long position = GetParam().position;
  unsigned long value = 77;
  EXPECT_EQ(IpAddress::s_getV4NetMaskSizeOfString(GetParam().text, position, value),
            GetParam().taken);
  EXPECT_EQ(value, GetParam().value);
  EXPECT_EQ(position, GetParam().behind);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, MaskSize,
    testing::Values(Part{"Zero", "0", 0, true, 0, 1}, Part{"ZeroAlone", "08", 0, true, 0, 1},
                    Part{"OneDigit", "8", 0, true, 8, 1}, Part{"TwoDigits", "24", 0, true, 24, 2},
                    Part{"Largest", "32", 0, true, 32, 2}, Part{"TooLarge", "33", 0, false, 33, 2},
                    Part{"NinetyNine", "99", 0, false, 99, 2},
                    Part{"ThreeDigits", "240", 0, true, 24, 2},
                    Part{"BehindASlash", "1/30", 2, true, 30, 4},
                    Part{"AtTheEnd", "24", 2, false, 0, 2}, Part{"Letter", "x", 0, false, 0, 0},
                    Part{"Negative", "24", -2, false, 0, -2}),
    support::CaseName());

TEST(IpAddressText, HasCharactersAtPositions) {
  const String text("1.2");
  long position = 1;
  EXPECT_TRUE(IpAddress::s_getCharOfString(text, position, '.'));
  EXPECT_EQ(position, 2);
  EXPECT_FALSE(IpAddress::s_getCharOfString(text, position, '.'));
  EXPECT_EQ(position, 2);
  for (const long outside : {-1L, 3L, 4L, LONG_MIN, LONG_MAX}) {
    // Not even the NUL behind it.
    for (const char character : {'1', '2', '\0'}) {
      position = outside;
      EXPECT_FALSE(IpAddress::s_getCharOfString(text, position, character));
      EXPECT_EQ(position, outside);
    }
  }
}

TEST(IpAddressText, HasAnEnd) {
  const String text("1.2");
  for (const long position : {LONG_MIN, -1L, 0L, 2L}) {
    EXPECT_FALSE(IpAddress::s_getEndOfString(text, position)) << position;
  }
  for (const long position : {3L, 4L, LONG_MAX}) {
    EXPECT_TRUE(IpAddress::s_getEndOfString(text, position)) << position;
  }
  EXPECT_TRUE(IpAddress::s_getEndOfString(String(), 0));
  EXPECT_FALSE(IpAddress::s_getEndOfString(String(), -1));
}

}  // namespace
