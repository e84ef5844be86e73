// readfile() and readfile_r().

#include <rkutils/file.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "file_fixture.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/though_cancelled.h"

namespace {

using namespace std::string_literals;

static_assert(sizeof READFILE_OPEN_FAILED == 4);

TEST(ReadfileCodes, HaveTheirValues) {
  EXPECT_EQ(READFILE_OPEN_FAILED, -1);
  EXPECT_EQ(READFILE_OUT_OF_MEMORY, -10);
}

struct Reading {
  const char* name;
  std::string file;
  std::size_t size;
  std::string expected;
};

class ReadfileRText : public FileTest, public testing::WithParamInterface<Reading> {};

TEST_P(ReadfileRText, IsTheFilesWithoutWhiteSpaceAround) {
  put(at("one"), GetParam().file);
  // Two bytes beyond the buffer must stay.
  std::string buffer(GetParam().size + 2, '#');
  EXPECT_EQ(readfile_r(at("one").c_str(), buffer.data(), GetParam().size), buffer.data());
  EXPECT_EQ(buffer.c_str(), GetParam().expected);
  EXPECT_EQ(buffer.substr(GetParam().size), "##");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ReadfileRText,
    testing::Values(Reading{"OneLine", "abc\n", 16, "abc"}, Reading{"NoNewline", "abc", 16, "abc"},
                    Reading{"TwoLines", "abc\ndef\n", 16, "abc\ndef"}, Reading{"Empty", "", 16, ""},
                    Reading{"WhiteOnly", " \t\r\n \n", 16, ""},
                    Reading{"WhiteAround", "\n\t abc def\r\n\r\n", 32, "abc def"},
                    Reading{"OtherWhiteStays", "\v abc\f", 16, "\v abc\f"},
                    Reading{"HighBytes", "\xe4\xff\n", 16, "\xe4\xff"},
                    Reading{"JustFits", "abcdefg", 8, "abcdefg"},
                    Reading{"Cut", "abcdefgh", 8, "abcdefg"},
                    Reading{"CutAtTheNewline", "abcdefg\nh", 8, "abcdefg"},
                    Reading{"CutThenStripped", "  abcdefgh", 8, "abcde"},
                    Reading{"CutInTheSecondLine", "abc\ndefgh\n", 8, "abc\ndef"},
                    Reading{"SizeOne", "abc", 1, ""}, Reading{"SizeTwo", "abc", 2, "a"}),
    support::CaseName());

// What fgets() into the rest of the buffer does, whose text ends at a NUL, where the next goes on.
INSTANTIATE_TEST_SUITE_P(
    Nuls, ReadfileRText,
    testing::Values(Reading{"AtTheEnd", "abc\0"s, 16, "abc"},
                    Reading{"AtTheBeginning", "\0abc\ndef\n"s, 16, "def"},
                    Reading{"HidesTheLine", "ab\0cd\nef\n"s, 32, "abef"},
                    Reading{"InALaterLine", "ab\ncd\0x\nef"s, 32, "ab\ncdef"},
                    Reading{"Many", "a\0\0\nb\0\nc\0"s, 32, "abc"},
                    Reading{"MakeRoom", "ab\0\ncdefghij"s, 8, "abcdefg"},
                    // Five bytes of room are left after "ab", so a piece of them is hidden.
                    Reading{"OfALongLine", "ab\0xxxxyyyyyyyy"s, 8, "abyyyyy"},
                    Reading{"AsTheLastByteOfAPiece", "abcdef\0xyz"s, 8, "abcdefx"}),
    support::CaseName());

using ReadfileR = FileTest;

// The same text from a loop of the C library's fgets().
std::string text_by_fgets(const std::string& path, std::size_t size) {
  std::string buffer(size, '\0');
  std::FILE* file = std::fopen(path.c_str(), "re");
  std::size_t length = 0;
  while (length < size - 1 &&
         std::fgets(buffer.data() + length, static_cast<int>(size - length), file) != nullptr) {
    length += std::string(buffer.data() + length).size();
  }
  std::fclose(file);
  buffer.resize(length);
  const std::size_t begin = std::min(buffer.find_first_not_of(" \t\r\n"), buffer.size());
  return buffer.substr(begin, buffer.find_last_not_of(" \t\r\n") + 1 - begin);
}

TEST_F(ReadfileR, AgreesWithFgetsOnEveryShortFile) {
  const std::string alphabet = "ab\0\n"s;
  constexpr int kFiles = 1024;  // each of five characters is one of four
  for (int number = 0; number < kFiles; number += support::stride()) {
    std::string file;
    for (int i = 0, rest = number; i < 5; ++i, rest /= 4) {
      file += alphabet[static_cast<std::size_t>(rest % 4)];
    }
    file += "c\nd";
    put(at("one"), file);
    for (const std::size_t size : {2U, 4U, 5U, 16U}) {
      std::string buffer(size, '#');
      ASSERT_EQ(readfile_r(at("one").c_str(), buffer.data(), size), text_by_fgets(at("one"), size))
          << number << " size " << size;
    }
  }
}

TEST_F(ReadfileR, LeavesABufferOfNoSizeAlone) {
  put(at("one"), "abc");
  char byte = '#';
  EXPECT_EQ(readfile_r(at("one").c_str(), &byte, 0), &byte);
  EXPECT_EQ(byte, '#');
  EXPECT_EQ(readfile_r(at("one").c_str(), nullptr, 16), nullptr);
}

TEST_F(ReadfileR, GivesTheEmptyTextWhereNothingCanBeRead) {
  make_folders(at("folder"));
  make_link("nowhere", at("dangling"));
  for (const std::string& path :
       {at("missing"), at("folder"), at("dangling"), ""s, path_of_length(folder_, 4096)}) {
    char buffer[16] = "before";
    EXPECT_STREQ(readfile_r(path.c_str(), buffer, sizeof buffer), "") << path;
  }
  char buffer[16] = "before";
  EXPECT_STREQ(readfile_r(nullptr, buffer, sizeof buffer), "");
}

TEST_F(ReadfileR, GivesTheEmptyTextForAnUnreadableFile) {
  put(at("one"), "abc");
  ::chmod(at("one").c_str(), 0200);
  char buffer[16] = "before";
  run_without_override([&] { readfile_r(at("one").c_str(), buffer, sizeof buffer); });
  EXPECT_STREQ(buffer, "");
}

TEST_F(ReadfileR, AsksForTheRealUser) {
  put(at("one"), "abc");
  ::chmod(at("one").c_str(), 0600);
  char buffer[16] = "before";
  run_for_nobody([&] { readfile_r(at("one").c_str(), buffer, sizeof buffer); });
  EXPECT_STREQ(buffer, "");
}

TEST_F(ReadfileR, WithoutADescriptorGivesTheEmptyText) {
  put(at("one"), "abc");
  const std::string path = at("one");
  char buffer[16] = "before";
  const support::NoMoreDescriptors none;
  EXPECT_STREQ(readfile_r(path.c_str(), buffer, sizeof buffer), "");
}

TEST_F(ReadfileR, KeepsWhatWasReadBeforeAFailure) {
  put(at("one"), "abc\ndef\n");
  char buffer[16] = "before all that";
  support::run_with_failing_calls({{support::SystemCall::kRead, EIO, 1}},
                                  [&] { readfile_r(at("one").c_str(), buffer, sizeof buffer); });
  EXPECT_STREQ(buffer, "abc\ndef");
}

TEST_F(ReadfileR, GivesTheEmptyTextWhenTheFirstReadFails) {
  put(at("one"), "abc");
  char buffer[16] = "before";
  support::run_with_failing_calls({{support::SystemCall::kRead, EIO}},
                                  [&] { readfile_r(at("one").c_str(), buffer, sizeof buffer); });
  EXPECT_STREQ(buffer, "");
}

TEST_F(ReadfileR, WorksOnSeveralThreadsAtOnce) {
  std::array<std::thread, 4> threads;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    const std::string text(1000 + i, static_cast<char>('a' + i));
    const std::string path = at(std::to_string(i));
    put(path, text);
    threads[i] = std::thread([text, path] {
      std::string buffer(2000, '#');
      for (int round = 0; round < 500; ++round) {
        ASSERT_EQ(readfile_r(path.c_str(), buffer.data(), buffer.size()), text);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(ReadfileR, FollowsALink) {
  put(at("one"), "abc\n");
  make_link("one", at("link"));
  char buffer[16];
  EXPECT_STREQ(readfile_r(at("link").c_str(), buffer, sizeof buffer), "abc");
}

TEST_F(ReadfileR, TakesAPathOf4095Bytes) {
  const std::string path = path_of_length(folder_, 4095);
  make_folders(path.substr(0, path.rfind('/')));
  ASSERT_EQ(writefile(path.c_str(), "abc"), 0);
  char buffer[16];
  EXPECT_STREQ(readfile_r(path.c_str(), buffer, sizeof buffer), "abc");
}

TEST_F(ReadfileR, ReadsFilesThatTheKernelMakesUp) {
  char buffer[4096];
  EXPECT_STREQ(readfile_r("/proc/sys/kernel/ostype", buffer, sizeof buffer), "Linux");
  const std::string filesystems = readfile_r("/proc/filesystems", buffer, sizeof buffer);
  EXPECT_EQ("nodev\t" + filesystems.substr(6) + "\n", contents_of("/proc/filesystems"));
}

TEST_F(ReadfileR, ReadsAFifoToItsEndThroughSignals) {
  make_fifo(at("fifo"));
  const Interruption interruption;
  char buffer[32] = "";
  std::thread reader([&] { readfile_r(at("fifo").c_str(), buffer, sizeof buffer); });
  Interruption::send(reader);  // while it opens
  std::FILE* fifo = std::fopen(at("fifo").c_str(), "we");
  std::fputs("abc\n", fifo);
  std::fflush(fifo);
  Interruption::send(reader);  // while it reads
  std::fputs("def\n", fifo);
  std::fclose(fifo);
  reader.join();
  EXPECT_STREQ(buffer, "abc\ndef");
}

TEST_F(ReadfileR, ReadsThoughCancelled) {
  put(at("one"), "abc\n");
  char buffer[16] = "before";
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { readfile_r(at("one").c_str(), buffer, sizeof buffer); }));
  EXPECT_STREQ(buffer, "abc");
}

using Readfile = FileTest;

TEST_F(Readfile, ReadsIntoOneBufferOf1024Bytes) {
  put(at("short"), "abc\n");
  put(at("long"), std::string(1023, 'x') + "y");
  char* const first = readfile(at("short").c_str());
  EXPECT_STREQ(first, "abc");
  EXPECT_EQ(readfile(at("long").c_str()), first);
  EXPECT_EQ(first, std::string(1023, 'x'));
}

TEST_F(Readfile, HasOneBufferForAllThreads) {
  put(at("one"), "abc");
  const char* elsewhere = nullptr;
  std::thread([&] { elsewhere = readfile(at("one").c_str()); }).join();
  EXPECT_EQ(elsewhere, readfile(nullptr));
}

TEST_F(Readfile, ReadsThoughCancelled) {
  put(at("one"), "abc\n");
  const char* text = nullptr;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { text = readfile(at("one").c_str()); }));
  EXPECT_STREQ(text, "abc");
}

TEST_F(Readfile, IsNeverNull) {
  put(at("one"), "abc");
  EXPECT_STREQ(readfile(at("one").c_str()), "abc");
  EXPECT_STREQ(readfile(at("missing").c_str()), "");
  EXPECT_STREQ(readfile(at("one").c_str()), "abc");
  EXPECT_STREQ(readfile(nullptr), "");
}

}  // namespace
