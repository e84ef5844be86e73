// The messages to and from the kernel's routing service, as bytes.

#include <rkutils/network/route/messages.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "network/netlink_bytes.h"
#include "support/case_name.h"
#include "support/rounds.h"

namespace {

using namespace netlink_bytes;
using rkutils::network::Byte;
using rkutils::network::route::Bytes;
using rkutils::network::route::error_of;
using rkutils::network::route::find_answer;
using rkutils::network::route::make_link_request;
using rkutils::network::route::make_route_request;
using rkutils::network::route::Reading;
using rkutils::network::route::RouteMessage;
using rkutils::network::route::type_of;

using Kind = Reading::Kind;

// All of a record's bytes.
template <typename Record>
std::string all_of(const Record& record) {
  std::string bytes(sizeof record, '\0');
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

const Byte* as_bytes(const std::string& text) { return reinterpret_cast<const Byte*>(text.data()); }

// Bytes in memory that ends with them and begins `offset` bytes before.
class PlacedBytes {
 public:
  PlacedBytes(const std::string& bytes, std::size_t offset)
      : memory_(new Byte[offset + bytes.size()]), bytes_{memory_.get() + offset, bytes.size()} {
    std::memcpy(memory_.get() + offset, bytes.data(), bytes.size());
  }

  [[nodiscard]] Bytes get() const { return bytes_; }

 private:
  std::unique_ptr<Byte[]> memory_;
  Bytes bytes_;
};

// ---- Requests ----

RouteMessage filled_message() {
  RouteMessage message;
  std::memset(static_cast<void*>(&message), 0xA5, sizeof message);
  return message;
}

TEST(MakeRouteRequest, HasAnIPv4AddressIn36Bytes) {
  RouteMessage request = filled_message();
  const std::string address("\xC0\x00\x02\x11", 4);
  ASSERT_TRUE(make_route_request(AF_INET, as_bytes(address), 4, request));
  const std::string expected = u32(36) + u16(26) + u16(1) + u32(0) + u32(0) +  // header
                               "\x02\x20" + zeros(10) +                        // route
                               u16(8) + u16(1) + address;
  EXPECT_EQ(all_of(request), expected + zeros(1052 - 36));
}

TEST(MakeRouteRequest, HasAnIPv6AddressIn48Bytes) {
  RouteMessage request = filled_message();
  const std::string address = "\x20\x01\x0D\xB8" + zeros(11) + "\x01";
  ASSERT_TRUE(make_route_request(AF_INET6, as_bytes(address), 16, request));
  const std::string expected = u32(48) + u16(26) + u16(1) + u32(0) + u32(0) +  // header
                               "\x0A\x80" + zeros(10) +                        // route
                               u16(20) + u16(1) + address;
  EXPECT_EQ(all_of(request), expected + zeros(1052 - 48));
}

TEST(MakeRouteRequest, TakesAnAddressAtAnyPlace) {
  const std::string address = "\x20\x01\x0D\xB8" + zeros(11) + "\x01";
  for (std::size_t offset = 0; offset < 4; ++offset) {
    const PlacedBytes placed(address, offset);
    RouteMessage request = filled_message();
    ASSERT_TRUE(make_route_request(AF_INET6, placed.get().data, 16, request));
    EXPECT_EQ(all_of(request).substr(32, 16), address);
  }
}

TEST(MakeRouteRequest, AlignsWhatFollowsTheAddress) {
  RouteMessage request;
  const std::string address = "12345678";
  const std::map<std::size_t, std::uint32_t> totals = {{0, 32}, {1, 36}, {4, 36}, {5, 40}, {8, 40}};
  for (const auto& [length, total] : totals) {
    ASSERT_TRUE(make_route_request(AF_INET, as_bytes(address), length, request));
    EXPECT_EQ(request.header.nlmsg_len, total);
    EXPECT_EQ(number_at<std::uint16_t>(all_of(request), 28), length + 4);
  }
}

TEST(MakeRouteRequest, TakesAddressesThatFitIts1052Bytes) {
  const std::string address(1020, 'a');
  RouteMessage request;
  ASSERT_TRUE(make_route_request(AF_INET, as_bytes(address), 1020, request));
  EXPECT_EQ(request.header.nlmsg_len, 1052U);
  EXPECT_EQ(all_of(request).substr(32), address);
}

TEST(MakeRouteRequest, RefusesLongerOnesWithoutReadingThem) {
  RouteMessage request = filled_message();
  for (const std::size_t length :
       {std::size_t{1021}, std::size_t{1024}, std::size_t{65536}, SIZE_MAX - 7, SIZE_MAX}) {
    EXPECT_FALSE(make_route_request(AF_INET, nullptr, length, request)) << length;
    EXPECT_EQ(all_of(request), zeros(1052));
  }
}

TEST(MakeLinkRequest, AlwaysWritesBothFlags) {
  const auto bytes = [](bool exclude, bool backup) {
    return all_of(make_link_request(0x01020304, exclude, backup));
  };
  const auto expected = [](unsigned flags) {
    return u32(32) + u16(16) + u16(1) + u32(0) + u32(0) +  // header
           zeros(4) + u32(0x01020304) + u32(flags) + u32(0x180000);
  };
  EXPECT_EQ(bytes(false, false), expected(0));
  EXPECT_EQ(bytes(true, false), expected(0x80000));
  EXPECT_EQ(bytes(false, true), expected(0x100000));
  EXPECT_EQ(bytes(true, true), expected(0x180000));
}

// ---- Datagrams ----

constexpr Asker kMe = {4711, 99};
constexpr std::uint32_t kKernel = 0;

struct DatagramCase {
  const char* name;
  std::string bytes;
  Kind kind;
  std::string answer = {};
  std::uint32_t sender = kKernel;
  bool truncated = false;
};

std::ostream& operator<<(std::ostream& out, const DatagramCase& datagram) {
  return out << datagram.name;
}

class FindAnswer : public testing::TestWithParam<DatagramCase> {};

// Wherever the datagram lies in memory.
TEST_P(FindAnswer, ReadsTheDatagram) {
  for (std::size_t offset = 0; offset < 4; ++offset) {
    const PlacedBytes placed(GetParam().bytes, offset);
    const Reading reading = find_answer({placed.get(), GetParam().sender, GetParam().truncated},
                                        {kMe.port, kMe.sequence});
    EXPECT_EQ(reading.kind, GetParam().kind);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(reading.answer.data), reading.answer.size),
              GetParam().answer);
  }
}

const std::string kAnswer = route(kMe, output_interface(3));
const std::string kOther = message(kNewRoute, {kMe.port, kMe.sequence - 1}, "12345678");
// With three bytes that align the next.
const std::string kOdd = message(kNewRoute, {kMe.port, kMe.sequence + 1}, "x");

std::string of_length(std::size_t length, const std::string& body = "body") {
  return message_of_length(length, kNewRoute, kMe, body);
}

const DatagramCase kDatagrams[] = {
    {"Answer", kAnswer, Kind::kAnswer, kAnswer},
    {"HeaderAlone", message(kDone, kMe), Kind::kAnswer, message(kDone, kMe)},
    {"AnyType", message(0xFFFF, kMe, "1234"), Kind::kAnswer, message(0xFFFF, kMe, "1234")},
    {"AnswerOfOddLength", message(kNewRoute, kMe, "x"), Kind::kAnswer,
     message(kNewRoute, kMe, "x")},
    {"AnswerAndMore", kAnswer + "x", Kind::kAnswer, kAnswer},
    {"FirstOfTwo", kAnswer + route(kMe, ""), Kind::kAnswer, kAnswer},
    {"AnswerOfATruncatedDatagram", kAnswer, Kind::kAnswer, kAnswer, kKernel, true},
    {"Empty", "", Kind::kNoAnswer},
    {"OtherSequence", kOther, Kind::kNoAnswer},
    {"OtherPort", route({kMe.port + 1, kMe.sequence}, ""), Kind::kNoAnswer},
    {"OtherSender", kAnswer, Kind::kNoAnswer, "", 4711},
    {"BehindOthers", kOther + kOther + kAnswer, Kind::kAnswer, kAnswer},
    {"BehindAlignment", padded(kOdd) + kAnswer, Kind::kAnswer, kAnswer},
    {"NotWithoutAlignment", kOdd + kAnswer, Kind::kMalformed},
    {"OthersAlone", kOther + padded(kOdd) + kOther, Kind::kNoAnswer},
    {"LastOneNotAligned", kOther + kOdd, Kind::kNoAnswer},
    {"LastOneHalfAligned", kOther + kOdd + zeros(1), Kind::kNoAnswer},
    {"OneByteLeft", kOther + "x", Kind::kMalformed},
    {"FifteenBytesLeft", kOther + zeros(15), Kind::kMalformed},
    {"SixteenZerosLeft", kOther + zeros(16), Kind::kMalformed},
    {"LeftBehindAlignment", padded(kOdd) + "x", Kind::kMalformed},
    {"LessThanAHeader", kAnswer.substr(0, 15), Kind::kMalformed},
    {"LeftOfATruncatedDatagram", kOther + "x", Kind::kNoAnswer, "", kKernel, true},
    {"LessThanAHeaderTruncated", kAnswer.substr(0, 15), Kind::kNoAnswer, "", kKernel, true},
    {"CutMessage", kAnswer.substr(0, kAnswer.size() - 1), Kind::kMalformed},
    {"CutMessageTruncated", kAnswer.substr(0, kAnswer.size() - 1), Kind::kMalformed, "", kKernel,
     true},
    {"CutMessageOfAnother", kAnswer.substr(0, kAnswer.size() - 1), Kind::kMalformed, "", 4711},
    {"CutMessageBehindTheAnswer", kAnswer + kOther.substr(0, 20), Kind::kAnswer, kAnswer},
    {"AnswerBehindAMalformedOne", message_of_length(15, kNewRoute, {1, 2}, "") + kAnswer,
     Kind::kMalformed},
    {"LengthZero", of_length(0), Kind::kMalformed},
    {"LengthOne", of_length(1), Kind::kMalformed},
    {"LengthFifteen", of_length(15), Kind::kMalformed},
    {"LengthSixteen", of_length(16), Kind::kAnswer, of_length(16, "")},
    {"LengthWithin", of_length(18), Kind::kAnswer, of_length(18, "bo")},
    {"LengthOneBeyond", of_length(21), Kind::kMalformed},
    {"LengthThatRoundsToZero", of_length(0xFFFFFFFF), Kind::kMalformed},
    {"LengthThatIsNegative", of_length(0x80000000), Kind::kMalformed},
    {"LengthThatWouldGoBack", kOther + of_length(0xFFFFFFE8), Kind::kMalformed},
};

INSTANTIATE_TEST_SUITE_P(Datagrams, FindAnswer, testing::ValuesIn(kDatagrams), support::CaseName());

// The same, told in another way: where messages begin, by the lengths that stand there.
Kind kind_of(const std::string& bytes, std::uint32_t sender, bool truncated) {
  std::size_t begin = 0;
  while (begin < bytes.size()) {
    if (bytes.size() - begin < 16) return truncated ? Kind::kNoAnswer : Kind::kMalformed;
    const std::size_t length = number_at<std::uint32_t>(bytes, begin);
    if (length < 16 || bytes.size() - begin < length) return Kind::kMalformed;
    const bool for_me = number_at<std::uint32_t>(bytes, begin + 8) == kMe.sequence &&
                        number_at<std::uint32_t>(bytes, begin + 12) == kMe.port;
    if (for_me && sender == kKernel) return Kind::kAnswer;
    begin += length + (4 - length % 4) % 4;
  }
  return Kind::kNoAnswer;
}

TEST(FindAnswerRandomly, AgreesAboutDamagedDatagrams) {
  std::mt19937 random(5);
  const auto below = [&](std::size_t count) { return static_cast<unsigned>(random() % count); };
  std::map<Kind, int> found;
  for (int i = 0; i < support::rounds(20000); ++i) {
    std::string bytes;
    for (unsigned messages = below(4); messages > 0; --messages) {
      const Asker asker = {kMe.port + (below(3) == 0 ? 1 : 0), kMe.sequence + below(2)};
      bytes += padded(message(below(40), asker, std::string(below(12), 'x')));
    }
    if (!bytes.empty()) {
      for (unsigned damages = below(3); damages > 0; --damages) {
        bytes[below(bytes.size())] = static_cast<char>(below(40));
      }
      bytes.resize(bytes.size() - below(std::min<std::size_t>(bytes.size(), 8)));
    }
    const std::uint32_t sender = below(4) == 0 ? 4711 : kKernel;
    const bool truncated = below(2) == 0;
    const PlacedBytes placed(bytes, below(4));
    const Kind kind = find_answer({placed.get(), sender, truncated}, {kMe.port, kMe.sequence}).kind;
    ASSERT_EQ(kind, kind_of(bytes, sender, truncated)) << testing::PrintToString(bytes);
    ++found[kind];
  }
  EXPECT_EQ(found.size(), 3U);
}

// ---- Errors ----

struct ErrorCase {
  const char* name;
  std::string message;
  int error;
};

class ErrorOf : public testing::TestWithParam<ErrorCase> {};

TEST_P(ErrorOf, ReadsTheMessage) {
  for (std::size_t offset = 0; offset < 4; ++offset) {
    const PlacedBytes placed(GetParam().message, offset);
    EXPECT_EQ(type_of(placed.get()), kError);
    EXPECT_EQ(error_of(placed.get()), GetParam().error);
  }
}

const ErrorCase kErrors[] = {
    {"Unreachable", error(kMe, -ENETUNREACH), ENETUNREACH},
    {"WithThePayloadOfTheRequest", error(kMe, -EINVAL) + zeros(40), EINVAL},
    {"Acknowledgement", error(kMe, 0), 0},
    {"Positive", error(kMe, 5), -5},
    {"Least", error(kMe, INT_MIN), INT_MIN},
    {"Nothing", message(kError, kMe), 0},
    {"CodeAlone", message(kError, kMe, number(-EINVAL)), 0},
    {"OneByteShort", message(kError, kMe, number(-EINVAL) + zeros(15)), 0},
    {"JustLongEnough", message(kError, kMe, number(-EINVAL) + zeros(16)), EINVAL},
};

INSTANTIATE_TEST_SUITE_P(Messages, ErrorOf, testing::ValuesIn(kErrors), support::CaseName());

// ---- Routes ----

struct RouteCase {
  const char* name;
  std::string attributes;
  unsigned interface;  // 0: none
};

// What is in memory behind them would be an output interface.
RouteMessage route_with(const std::string& attributes, std::size_t length) {
  RouteMessage message = filled_message();
  const std::string lure = output_interface(666);
  std::string bytes = route(kMe, attributes);
  while (bytes.size() < sizeof message) bytes += lure;
  std::memcpy(&message, bytes.data(), sizeof message);
  message.header.nlmsg_len = static_cast<std::uint32_t>(length);
  return message;
}

class OutputInterface : public testing::TestWithParam<RouteCase> {};

TEST_P(OutputInterface, IsThatOfTheRoute) {
  const std::string& attributes = GetParam().attributes;
  const RouteMessage message = route_with(attributes, kRouteSize + attributes.size());
  EXPECT_EQ(rkutils::network::route::output_interface(message), GetParam().interface);
}

const std::string kTable = attribute(15, u32(254));
const std::string kIndex = u32(3);

const RouteCase kRoutes[] = {
    {"None", "", 0},
    {"Alone", output_interface(3), 3},
    {"BehindOthers", kTable + attribute(1, "1234567890123456") + output_interface(3), 3},
    {"BeforeOthers", output_interface(3) + kTable, 3},
    {"OthersAlone", kTable + kTable, 0},
    {"FirstOfTwo", output_interface(3) + output_interface(4), 3},
    {"BehindAnEmptyOne", attribute(7, "") + output_interface(3), 3},
    {"BehindAnUnevenOne", attribute(7, "12345") + output_interface(3), 3},
    {"OfAllBits", output_interface(0xFEDCBA98), 0xFEDCBA98},
    {"OfMoreBytes", attribute(kOutputInterface, kIndex + "more"), 3},
    {"Empty", attribute(kOutputInterface, ""), 0},
    {"OfThreeBytes", attribute(kOutputInterface, kIndex.substr(0, 3)), 0},
    {"ShortOneHidesALongerOne", attribute(kOutputInterface, "\x03") + output_interface(4), 0},
    {"TypesAbove", attribute(30, kIndex) + attribute(34, kIndex) + attribute(0xFFFF, kIndex), 0},
    {"TypeThatEndsAlike", attribute(0x104, kIndex) + attribute(0x4004, kIndex), 0},
    {"BehindLengthZero", attribute_of_length(0, 7, "") + output_interface(3), 0},
    {"BehindLengthThree", attribute_of_length(3, 7, "") + output_interface(3), 0},
    {"BehindTooLongAnOne", attribute_of_length(13, 7, "") + output_interface(3), 0},
    {"BehindTheLongestOne", attribute_of_length(0xFFFF, 7, "") + output_interface(3), 0},
    {"InAnother", attribute_of_length(12, 7, "") + output_interface(3), 0},
    {"WhoseLengthIsThree", attribute_of_length(3, kOutputInterface, kIndex), 0},
    {"WhoseLengthIsTooLong", attribute_of_length(9, kOutputInterface, kIndex), 0},
    {"CutInItsHeader", output_interface(3).substr(0, 3), 0},
    {"CutInItsPayload", output_interface(3).substr(0, 7), 0},
    {"BehindTheEndOfALastOne", attribute_of_length(5, 7, "x"), 0},
};

INSTANTIATE_TEST_SUITE_P(Routes, OutputInterface, testing::ValuesIn(kRoutes), support::CaseName());

TEST(OutputInterfaceOfALongRoute, IsReadUpToTheEndOfTheMessage) {
  const std::string filler = attribute(7, zeros(1024 - 8 - 4));
  ASSERT_EQ(filler.size(), 1016U);
  for (const std::size_t length :
       {std::size_t{1052}, std::size_t{1053}, std::size_t{16384}, std::size_t{0xFFFFFFFF}}) {
    const RouteMessage message = route_with(filler + output_interface(3), length);
    EXPECT_EQ(rkutils::network::route::output_interface(message), 3U);
  }
}

TEST(OutputInterfaceOfALongRoute, IsNotReadBehindIt) {
  const std::string filler = attribute(7, zeros(1024 - 8 - 4));
  for (const std::size_t missing : {1U, 4U, 5U, 8U}) {
    const RouteMessage message =
        route_with(filler + output_interface(3).substr(0, 8 - missing), 1052 - missing);
    EXPECT_EQ(rkutils::network::route::output_interface(message), 0U) << missing;
  }
  // One that begins inside and ends outside.
  const std::string crossing = attribute(7, zeros(1020 - 4)) + attribute_of_length(8, 4, "");
  const RouteMessage message = route_with(crossing, 16384);
  EXPECT_EQ(rkutils::network::route::output_interface(message), 0U);
}

TEST(OutputInterfaceOfALongRoute, IsNotReadBehindItsOwnLength) {
  const RouteMessage message = route_with(output_interface(3), kRouteSize);
  EXPECT_EQ(rkutils::network::route::output_interface(message), 0U);
}

}  // namespace
