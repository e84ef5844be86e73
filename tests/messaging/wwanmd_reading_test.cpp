// What the daemon's replies mean, and how long they are waited for: without any daemon.

#include <rkutils/messaging/wwanmd/exchange.h>
#include <rkutils/messaging/wwanmd/reply.h>

#include <climits>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "support/case_name.h"

namespace {

using rkutils::wwanmd::read_reply;
using rkutils::wwanmd::Reply;
using rkutils::wwanmd::seconds_to_wait;
using Kind = Reply::Kind;

using namespace std::string_view_literals;

struct ReplyCase {
  const char* name;
  std::string_view bytes;
  Kind kind;
  std::string_view text;
};

class ReadReply : public testing::TestWithParam<ReplyCase> {};

TEST_P(ReadReply, TellsTheWordAndTheTextAfterIt) {
  const auto [name, bytes, kind, text] = GetParam();
  const Reply reply = read_reply(bytes);
  EXPECT_EQ(reply.kind, kind);
  EXPECT_EQ(reply.text, text);
}

INSTANTIATE_TEST_SUITE_P(
    , ReadReply,
    testing::Values(ReplyCase{"Ok", "OK", Kind::kOk, ""},
                    ReplyCase{"OkAndText", "OK -71 dBm\n", Kind::kOk, " -71 dBm\n"},
                    ReplyCase{"OkAndALetter", "OKAY", Kind::kOk, "AY"},
                    ReplyCase{"OkAndNuls", "OK\0\0\n"sv, Kind::kOk, "\0\0\n"sv},
                    ReplyCase{"OkAndHighBytes", "OK\x80\xff", Kind::kOk, "\x80\xff"},
                    ReplyCase{"OkAndError", "OKERROR", Kind::kOk, "ERROR"},
                    ReplyCase{"SmallOk", "ok", Kind::kInvalid, ""},
                    ReplyCase{"SpaceBeforeOk", " OK", Kind::kInvalid, ""},
                    ReplyCase{"NulBeforeOk", "\0OK"sv, Kind::kInvalid, ""},
                    ReplyCase{"Error", "ERROR", Kind::kError, ""},
                    ReplyCase{"ErrorAndText", "ERROR no SIM", Kind::kError, " no SIM"},
                    ReplyCase{"ErrorAndNul", "ERROR\0x"sv, Kind::kError, "\0x"sv},
                    ReplyCase{"PartOfError", "ERRO", Kind::kInvalid, ""},
                    ReplyCase{"SmallError", "error", Kind::kInvalid, ""},
                    ReplyCase{"Busy", "BUSY", Kind::kBusy, ""},
                    ReplyCase{"BusyAndText", "BUSY dialling", Kind::kBusy, " dialling"},
                    ReplyCase{"PartOfBusy", "BUS", Kind::kInvalid, ""},
                    ReplyCase{"TwoLettersOfBusy", "BU", Kind::kInvalid, ""},
                    ReplyCase{"OneLetterOfOk", "O", Kind::kInvalid, ""},
                    ReplyCase{"OneNul", "\0"sv, Kind::kInvalid, ""},
                    ReplyCase{"Nothing", "", Kind::kInvalid, ""},
                    ReplyCase{"AnotherWord", "READY", Kind::kInvalid, ""}),
    support::CaseName{});

TEST(ReadLongReply, TellsTheTextOfTheLongestThatCanCome) {
  const std::string text(8191 - 2, 'x');
  const std::string bytes = "OK" + text;
  const Reply reply = read_reply(bytes);
  EXPECT_EQ(reply.kind, Kind::kOk);
  EXPECT_EQ(reply.text, text);
}

TEST(SecondsToWait, Are5To300) {
  EXPECT_EQ(seconds_to_wait(INT_MIN), 5);
  EXPECT_EQ(seconds_to_wait(-1), 5);
  EXPECT_EQ(seconds_to_wait(0), 5);
  EXPECT_EQ(seconds_to_wait(4), 5);
  EXPECT_EQ(seconds_to_wait(5), 5);
  EXPECT_EQ(seconds_to_wait(6), 6);
  EXPECT_EQ(seconds_to_wait(299), 299);
  EXPECT_EQ(seconds_to_wait(300), 300);
  EXPECT_EQ(seconds_to_wait(301), 300);
  EXPECT_EQ(seconds_to_wait(1000), 300);
  EXPECT_EQ(seconds_to_wait(INT_MAX), 300);
}

}  // namespace
