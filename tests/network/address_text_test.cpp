// addr2str(), str2addr4(), str2addr6(), str2addr() and readaddress().

#include <rkutils/address.h>
#include <rkutils/file.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <unistd.h>

#include "address_record.h"
#include "near_quads.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"

namespace {

using testing::IsEmpty;

std::string text_of(const Record& record) {
  char text[ADDRESS_TEXT_SIZE];
  return addr2str(text, record) == text ? text : "(none)";
}

// ---- addr2str() ----

TEST(Addr2Str, WritesWhatTheCLibraryDoes) {
  std::mt19937 random(1);
  for (int i = support::rounds(20000); i > 0; --i) {
    Record v4 = ipv4("0.0.0.0");
    Record v6 = ipv6("::");
    const auto number = static_cast<std::uint32_t>(random());
    std::memcpy(v4.bytes() + kIpv4Offset, &number, sizeof number);
    // Many zeros, so that many have runs of them.
    for (std::size_t at = kIpv6Offset; at < kIpv6End; at += 2) {
      const auto group = static_cast<std::uint16_t>(random() % 2 == 0 ? 0 : random());
      std::memcpy(v6.bytes() + at, &group, sizeof group);
    }
    char expected[ADDRESS_TEXT_SIZE];
    ASSERT_EQ(text_of(v4), inet_ntop(AF_INET, v4.bytes() + kIpv4Offset, expected, sizeof expected));
    ASSERT_EQ(text_of(v6),
              inet_ntop(AF_INET6, v6.bytes() + kIpv6Offset, expected, sizeof expected));
    // And back.
    Record read(kIpv6End);
    ASSERT_EQ(str2addr(text_of(v6).c_str(), read), 0);
    ASSERT_EQ(addr_differs(read, v6), 0) << expected;
  }
}

TEST(Addr2Str, WritesTheLongestTexts) {
  char text[IPV4_TEXT_SIZE];
  EXPECT_EQ(addr2str(text, ipv4("255.255.255.255")), text);
  EXPECT_STREQ(text, "255.255.255.255");
  const char* const longest = "2001:1db8:1001:1002:1003:1004:1005:1006";
  EXPECT_EQ(text_of(ipv6(longest)), longest);
  EXPECT_EQ(text_of(ipv6("::ffff:192.100.200.255")), "::ffff:192.100.200.255");
}

TEST(Addr2Str, WritesNothingForOtherFamilies) {
  for (const int family : {AF_UNSPEC, AF_UNIX, AF_PACKET, 0x0200, 0x0A00}) {
    char text[ADDRESS_TEXT_SIZE] = "before";
    EXPECT_EQ(addr2str(text, Record(family, kFamilySize)), text);
    EXPECT_STREQ(text, "");
  }
}

TEST(Addr2Str, FailsForNothing) {
  char text[ADDRESS_TEXT_SIZE] = "before";
  EXPECT_EQ(addr2str(text, nullptr), nullptr);
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(addr2str(nullptr, ipv4("192.0.2.17")), nullptr);
  EXPECT_EQ(addr2str(nullptr, nullptr), nullptr);
}

// ---- str2addr4() and its siblings ----

// What becomes of a record: the family is set, the address only on success, nothing else.
void expect_parsed(int result, const Record& record, int family, const std::string& text) {
  unsigned char expected[sizeof(sockaddr_storage)];
  std::memset(expected, kUntouched, sizeof expected);
  const auto value = static_cast<sa_family_t>(family);
  std::memcpy(expected, &value, sizeof value);
  const std::size_t offset = family == AF_INET ? kIpv4Offset : kIpv6Offset;
  in6_addr address;
  const bool valid = inet_pton(family, text.c_str(), &address) == 1;
  if (valid) std::memcpy(expected + offset, &address, family == AF_INET ? 4 : sizeof address);
  if (result != (valid ? 0 : -1) || std::memcmp(record.bytes(), expected, record.size()) != 0) {
    FAIL() << text;
  }
}

TEST(Str2Addr4, TakesWhatTheCLibraryTakes) {
  Record record(kIpv4End);
  near_quads::for_each([&record](const std::string& text) {
    std::memset(record.bytes(), kUntouched, record.size());
    const int result = str2addr4(text.c_str(), record);
    ASSERT_NO_FATAL_FAILURE(expect_parsed(result, record, AF_INET, text));
  });
}

TEST(Str2Addr4, RefusesIpv6) {
  for (const char* text : {"::1", "fe80::1", "::ffff:192.0.2.1"}) {
    Record record(kIpv6End);
    const int result = str2addr4(text, record);
    EXPECT_EQ(result, -1);
    expect_parsed(result, record, AF_INET, text);
  }
}

TEST(Str2Addr6, TakesWhatTheCLibraryTakes) {
  std::mt19937 random(1);
  const std::string characters = "0123456789abcdefABCDEF:::::.g %/";
  for (int i = support::rounds(100000); i > 0; --i) {
    char text[ADDRESS_TEXT_SIZE];
    unsigned char address[16];
    for (unsigned char& byte : address) {
      byte = static_cast<unsigned char>(random() % 2 == 0 ? 0 : random());
    }
    std::string changed = inet_ntop(AF_INET6, address, text, sizeof text);
    if (i % 4 != 0) changed[random() % changed.size()] = characters[random() % characters.size()];
    if (i % 4 == 2) changed.erase(random() % changed.size(), 1);
    Record record(kIpv6End);
    const int result = str2addr6(changed.c_str(), record);
    ASSERT_NO_FATAL_FAILURE(expect_parsed(result, record, AF_INET6, changed));
  }
}

TEST(Str2Addr6, RefusesOtherTexts) {
  for (const char* text : {"", ":", "1.2.3.4", ":::", "1::2::3", "fe80::1%eth0", "::1/64", " ::1",
                           "::1 ", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "::12345", "::g"}) {
    Record record(kIpv6End);
    const int result = str2addr6(text, record);
    EXPECT_EQ(result, -1) << text;
    expect_parsed(result, record, AF_INET6, text);
  }
}

TEST(Str2Addr, TakesAColonForIpv6) {
  for (const char* text : {"fe80::1", "::", ":", "1.2.3.4:80", "::1.2.3.4", ":1.2.3.4"}) {
    Record record(sizeof(sockaddr_storage));
    const int result = str2addr(text, record);
    ASSERT_NO_FATAL_FAILURE(expect_parsed(result, record, AF_INET6, text));
  }
  for (const char* text : {"10.0.0.1", "10.0.0.256", "", "fe80", "localhost"}) {
    Record record(kIpv4End);
    const int result = str2addr(text, record);
    ASSERT_NO_FATAL_FAILURE(expect_parsed(result, record, AF_INET, text));
  }
}

TEST(Str2Addr, TellsTheFamilyAlsoOfWhatItRefuses) {
  Record record(kIpv6End);
  EXPECT_EQ(str2addr("fe80::1", record), 0);
  EXPECT_EQ(record.family(), AF_INET6);
  EXPECT_EQ(str2addr("10.0.0.1", record), 0);
  EXPECT_EQ(record.family(), AF_INET);
  EXPECT_EQ(text_of(record), "10.0.0.1");
  EXPECT_EQ(str2addr("fe80::1::", record), -1);
  EXPECT_EQ(record.family(), AF_INET6);
  EXPECT_EQ(str2addr("10.0.0.256", record), -1);
  EXPECT_EQ(record.family(), AF_INET);
}

TEST(Str2Addr, RefusesNothing) {
  Record record(kIpv6End);
  const std::string before = record.contents();
  EXPECT_EQ(str2addr(nullptr, record), -1);
  EXPECT_EQ(record.contents(), before);
  EXPECT_EQ(str2addr("10.0.0.1", nullptr), -1);
  EXPECT_EQ(str2addr("fe80::1", nullptr), -1);
  EXPECT_EQ(str2addr(nullptr, nullptr), -1);
}

TEST(Str2Addr4, RefusesNothingButSetsTheFamily) {
  Record record(kIpv4End);
  EXPECT_EQ(str2addr4(nullptr, record), -1);
  EXPECT_EQ(record.contents(), Record(AF_INET, kIpv4End).contents());
  EXPECT_EQ(str2addr4("10.0.0.1", nullptr), -1);
  EXPECT_EQ(str2addr4(nullptr, nullptr), -1);
}

TEST(Str2Addr6, RefusesNothingButSetsTheFamily) {
  Record record(kIpv6End);
  EXPECT_EQ(str2addr6(nullptr, record), -1);
  EXPECT_EQ(record.contents(), Record(AF_INET6, kIpv6End).contents());
  EXPECT_EQ(str2addr6("::1", nullptr), -1);
  EXPECT_EQ(str2addr6(nullptr, nullptr), -1);
}

// ---- readaddress() ----

// No message may be logged, and no descriptor left open.
class Readaddress : public testing::Test {
 protected:
  Readaddress() { support::put(kFile, ""); }
  ~Readaddress() override { ::unlink(kFile); }

  void TearDown() override {
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  }

  int read(const std::string& text, Record& record) {
    support::put(kFile, text);
    return readaddress(kFile, record);
  }

  static constexpr const char* kFile = "/tmp/address";
  // What is zeroed before a file is read.
  static constexpr std::size_t kZeroed = 16;

 private:
  support::SyslogCollector log_;
  decltype(support::open_descriptors()) descriptors_before_ = support::open_descriptors();
};

// A record of zeros with a family, and behind the zeroed bytes as it was.
Record zeroed(int family, std::size_t size) {
  Record record(size);
  std::memset(record.bytes(), 0, 16);
  const auto value = static_cast<sa_family_t>(family);
  std::memcpy(record.bytes(), &value, sizeof value);
  return record;
}

TEST_F(Readaddress, ReadsAnIpv4Address) {
  for (const char* text : {"192.0.2.17", "192.0.2.17\n", " \t192.0.2.17 \r\n\n"}) {
    Record record(kZeroed);
    EXPECT_EQ(read(text, record), 0);
    EXPECT_EQ(text_of(record), "192.0.2.17");
    Record expected = zeroed(AF_INET, kZeroed);
    std::memcpy(expected.bytes() + kIpv4Offset, ipv4("192.0.2.17").bytes() + kIpv4Offset, 4);
    EXPECT_EQ(record.contents(), expected.contents());
  }
}

TEST_F(Readaddress, ReadsAnIpv6Address) {
  Record record(sizeof(sockaddr_in6));
  EXPECT_EQ(read("2001:db8::1:2\n", record), 0);
  EXPECT_EQ(text_of(record), "2001:db8::1:2");
  Record expected = zeroed(AF_INET6, sizeof(sockaddr_in6));
  std::memcpy(expected.bytes() + kIpv6Offset, ipv6("2001:db8::1:2").bytes() + kIpv6Offset, 16);
  EXPECT_EQ(record.contents(), expected.contents());
}

TEST_F(Readaddress, RefusesOtherTextsAndTellsTheFamily) {
  for (const char* text : {"192.0.2.256", "192.0.2.17 x", "192.0.2.17\n192.0.2.18\n", "none"}) {
    Record record(sizeof(sockaddr_in6));
    EXPECT_EQ(read(text, record), -1) << text;
    EXPECT_EQ(record.contents(), zeroed(AF_INET, sizeof(sockaddr_in6)).contents());
  }
  Record record(sizeof(sockaddr_in6));
  EXPECT_EQ(read("fe80::1%eth0\n", record), -1);
  EXPECT_EQ(record.contents(), zeroed(AF_INET6, sizeof(sockaddr_in6)).contents());
}

TEST_F(Readaddress, OfAnEmptyOrMissingFileFails) {
  for (const char* text : {"", "\n", " \t\r\n"}) {
    Record record(sizeof(sockaddr_in6));
    EXPECT_EQ(read(text, record), -1);
    EXPECT_EQ(record.contents(), zeroed(AF_UNSPEC, sizeof(sockaddr_in6)).contents());
  }
  for (const char* path : {"/tmp/missing", "/tmp", ""}) {
    Record record(sizeof(sockaddr_in6));
    EXPECT_EQ(readaddress(path, record), -1);
    EXPECT_EQ(record.contents(), zeroed(AF_UNSPEC, sizeof(sockaddr_in6)).contents());
  }
}

TEST_F(Readaddress, SeesTheFirst1023CharactersOfAFile) {
  const std::string address = "192.0.2.17";
  Record record(kZeroed);
  EXPECT_EQ(read(std::string(1023 - address.size(), ' ') + address + "0", record), 0);
  EXPECT_EQ(text_of(record), address);
  EXPECT_EQ(read(std::string(1023, ' ') + address, record), -1);
}

TEST_F(Readaddress, RefusesNothing) {
  Record record(kZeroed);
  const std::string before = record.contents();
  EXPECT_EQ(readaddress(nullptr, record), -1);
  EXPECT_EQ(record.contents(), before);
  EXPECT_EQ(readaddress(kFile, nullptr), -1);
  EXPECT_EQ(readaddress(nullptr, nullptr), -1);
}

TEST_F(Readaddress, OverwritesWhatReadfileReturned) {
  support::put(kFile, "first");
  const char* const result = readfile(kFile);
  ASSERT_STREQ(result, "first");
  Record record(kZeroed);
  EXPECT_EQ(read("192.0.2.17\n", record), 0);
  EXPECT_STREQ(result, "192.0.2.17");
  // But not when there is nothing to read.
  EXPECT_EQ(readaddress(kFile, nullptr), -1);
  EXPECT_STREQ(result, "192.0.2.17");
}

TEST_F(Readaddress, WorksOnASmallStack) {
  support::run_on_small_stack([this] {
    Record record(sizeof(sockaddr_in6));
    EXPECT_EQ(read("2001:db8::1", record), 0);
    Record mask(kIpv6End);
    EXPECT_EQ(cidr2netmask(32, mask, AF_INET6), 0);
    char text[NETWORK_TEXT_SIZE];
    EXPECT_STREQ(net2cidr(text, record, mask), "2001:db8::/32");
    EXPECT_STREQ(net2str(text, record, mask), "2001:db8::1/ffff:ffff::");
    std::uint32_t number = 0;
    EXPECT_EQ(convIPStr2IPUl("192.0.2.1", &number), 0);
  });
}

}  // namespace
