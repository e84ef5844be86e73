// cfread_parse_with_callback()

#include <rkutils/cfread.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <pthread.h>

#include "cfread_fixture.h"
#include "support/allocation_faults.h"
#include "support/though_cancelled.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class CfreadCallback : public CfreadTest {
 protected:
  // What is passed, and that all goes well.
  static Passed passed_of(const std::string& path, bool report_empty) {
    Passed passed;
    EXPECT_EQ(cfread_parse_with_callback(path.c_str(), keep_all, &passed, report_empty), 0);
    return passed;
  }
};

TEST_F(CfreadCallback, GetsTheEntriesInOrderAndEachTime) {
  put(at("b.conf"), "b=2\n");
  const std::string path =
      file("a.conf", "# comment\na=1\ninclude b.conf\n  my key =  some value = x \na=1\n");
  EXPECT_THAT(passed_of(path, false),
              ElementsAre(Pair("a", "1"), Pair("b", "2"), Pair("mykey", "some value = x "),
                          Pair("a", "1")));
}

constexpr char kEmptyOnes[] = "\nkey\nkey=\n=value\n=\n  \n\r\n# no\n\xff=\xff\na=1\n";

TEST_F(CfreadCallback, GetsNoEmptyOnes) {
  EXPECT_THAT(passed_of(file("a.conf", kEmptyOnes), false), ElementsAre(Pair("a", "1")));
}

TEST_F(CfreadCallback, GetsEmptyOnesAndBlankLinesWhereAskedFor) {
  EXPECT_THAT(passed_of(file("a.conf", kEmptyOnes), true),
              ElementsAre(Pair("", ""), Pair("key", ""), Pair("key", ""), Pair("", "value"),
                          Pair("", ""), Pair("", ""), Pair("", ""), Pair("", ""), Pair("a", "1")));
}

TEST_F(CfreadCallback, GetsNothingFromAnEmptyFileOrAFolder) {
  EXPECT_THAT(passed_of(file("a.conf", ""), true), IsEmpty());
  EXPECT_THAT(passed_of(folder_, true), IsEmpty());
}

// Keeps all, and ends the file at the given key.
struct Stopper {
  std::string key;
  int result;
  Passed passed = {};
};

int stop_at_key(const char* key, const char* value, void* userdata) {
  auto* const stopper = static_cast<Stopper*>(userdata);
  stopper->passed.emplace_back(key, value);
  return key == stopper->key ? stopper->result : 0;
}

TEST_F(CfreadCallback, EndsTheFileWithAnyOtherResultThan0) {
  const std::string path = file("a.conf", "a=1\nb=2\nc=3\nbad");
  for (const int result : {1, -1, 1000}) {
    Stopper stopper = {"b", result};
    EXPECT_EQ(cfread_parse_with_callback(path.c_str(), stop_at_key, &stopper, false), 0);
    EXPECT_THAT(stopper.passed, ElementsAre(Pair("a", "1"), Pair("b", "2")));
  }
}

TEST_F(CfreadCallback, EndsOnlyTheFileThatTheEntryIsFrom) {
  put(at("b.conf"), "b=1\nb=2\nbad");
  const std::string path = file("a.conf", "a=1\ninclude b.conf\na=2\n");
  Stopper stopper = {"b", 1};
  EXPECT_EQ(cfread_parse_with_callback(path.c_str(), stop_at_key, &stopper, false), 0);
  EXPECT_THAT(stopper.passed, ElementsAre(Pair("a", "1"), Pair("b", "1"), Pair("a", "2")));
}

TEST_F(CfreadCallback, EndsTheIncludingFileBehindAnInclude) {
  put(at("b.conf"), "b=1\n");
  const std::string path = file("a.conf", "include b.conf\na=1\na=2\n");
  Stopper stopper = {"a", 1};
  EXPECT_EQ(cfread_parse_with_callback(path.c_str(), stop_at_key, &stopper, false), 0);
  EXPECT_THAT(stopper.passed, ElementsAre(Pair("b", "1"), Pair("a", "1")));
}

TEST_F(CfreadCallback, EndsTheFileAtABlankLineToo) {
  const std::string path = file("a.conf", "a=1\n\nb=2\n");
  Stopper stopper = {"", 1};
  EXPECT_EQ(cfread_parse_with_callback(path.c_str(), stop_at_key, &stopper, true), 0);
  EXPECT_THAT(stopper.passed, ElementsAre(Pair("a", "1"), Pair("", "")));
}

TEST_F(CfreadCallback, CountsTheLinesBehindAnEndedInclude) {
  put(at("b.conf"), "b=1\n\n\nb=2\n");
  const std::string path = file("a.conf", "a=1\ninclude b.conf\na=2\nbad");
  Stopper stopper = {"b", 1};
  EXPECT_EQ(cfread_parse_with_callback(path.c_str(), stop_at_key, &stopper, false), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("cfread: non-terminated entry in " + path + " at line 3")));
}

TEST_F(CfreadCallback, HasWhatCameBeforeAFailure) {
  const std::string path = file("a.conf", "a=1\nb=2\nbad");
  Passed passed;
  EXPECT_EQ(cfread_parse_with_callback(path.c_str(), keep_all, &passed, false), -1);
  EXPECT_THAT(passed, ElementsAre(Pair("a", "1"), Pair("b", "2")));
  EXPECT_THAT(log_.take(),
              ElementsAre(err("cfread: non-terminated entry in " + path + " at line 3")));
}

TEST_F(CfreadCallback, FailsAsOpeningATableDoes) {
  Passed passed;
  EXPECT_EQ(cfread_parse_with_callback(nullptr, keep_all, &passed, false), -1);
  EXPECT_EQ(cfread_parse_with_callback("", keep_all, &passed, false), -1);
  EXPECT_EQ(cfread_parse_with_callback(at("missing").c_str(), keep_all, &passed, false), -1);
  EXPECT_EQ(
      cfread_parse_with_callback(file("a.conf", "include \n").c_str(), keep_all, &passed, false),
      -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("cfread: no config file given"), err("cfread: no config file given"),
                          err("cfread: unable to open " + at("missing")),
                          err("cfread: no include file given in " + at("a.conf"))));
  EXPECT_THAT(passed, IsEmpty());
}

TEST_F(CfreadCallback, MissingIsMinus1WithoutAMessage) {
  EXPECT_EQ(cfread_parse_with_callback(file("a.conf", "a=1\n").c_str(), nullptr, nullptr, true),
            -1);
  EXPECT_EQ(cfread_parse_with_callback(nullptr, nullptr, nullptr, true), -1);
}

int count_calls(const char* /*key*/, const char* /*value*/, void* userdata) {
  ++*static_cast<int*>(userdata);
  return 0;
}

TEST_F(CfreadCallback, NeedsMemoryForTheOpenFileAlone) {
  std::string text;
  for (int i = 0; i < 1000; ++i) text += "key" + std::to_string(i) + "=value\n";
  const std::string path = file("a.conf", text);
  int calls = 0;
  const unsigned long before = support::allocation_count();
  EXPECT_EQ(cfread_parse_with_callback(path.c_str(), count_calls, &calls, false), 0);
  EXPECT_EQ(support::allocation_count() - before, 1U);
  EXPECT_EQ(calls, 1000);
}

int parse_again(const char* /*key*/, const char* value, void* userdata) {
  return cfread_parse_with_callback(value, keep_all, userdata, false);
}

TEST_F(CfreadCallback, MayReadOtherFiles) {
  const std::string other = file("b.conf", "b=2\n");
  const std::string path = file("a.conf", "file=" + other + "\nfile=" + other + "\n");
  Passed passed;
  EXPECT_EQ(cfread_parse_with_callback(path.c_str(), parse_again, &passed, false), 0);
  EXPECT_THAT(passed, ElementsAre(Pair("b", "2"), Pair("b", "2")));
}

// What the callback does is done too.
TEST_F(CfreadCallback, IsCalledToTheEndThoughCancelled) {
  const std::string path = file("a.conf", "a=1\nb=2\n");
  const auto keep_at_cancellation_point = [](const char* key, const char* value, void* passed) {
    ::pthread_testcancel();
    return keep_all(key, value, passed);
  };
  Passed passed;
  int result = -1;
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    result = cfread_parse_with_callback(path.c_str(), keep_at_cancellation_point, &passed, false);
  }));
  EXPECT_EQ(result, 0);
  EXPECT_THAT(passed, ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

}  // namespace
