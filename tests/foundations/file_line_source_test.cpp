// The lines of a file, as fgets() gives them.

#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/unique_file.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include "file_fixture.h"
#include "support/rounds.h"

namespace {

using namespace std::string_literals;

using rkutils::file::LineSource;
using rkutils::file::open_to_read;
using rkutils::internal::UniqueFd;
using rkutils::internal::UniqueFile;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> pieces_of(const std::string& path, std::size_t length = 1023) {
  LineSource lines(open_to_read(path.c_str()), length);
  std::vector<std::string> pieces;
  while (char* const piece = lines.next()) {
    pieces.emplace_back(piece);
    // What a reader does to a piece must not reach the next one.
    std::fill(piece, piece + pieces.back().size(), '\n');
  }
  return pieces;
}

std::vector<std::string> lines_of(const std::string& path, std::size_t length = 1023) {
  LineSource lines(open_to_read(path.c_str()), length);
  std::vector<std::string> first_pieces;
  while (char* const piece = lines.next_line()) {
    first_pieces.emplace_back(piece);
    std::fill(piece, piece + first_pieces.back().size(), '\n');
  }
  return first_pieces;
}

std::vector<std::string> fgets_of(const std::string& path, std::size_t length = 1023) {
  const UniqueFile file(std::fopen(path.c_str(), "re"));
  std::vector<std::string> pieces;
  std::vector<char> piece(length + 1);
  while (std::fgets(piece.data(), static_cast<int>(piece.size()), file.get()) != nullptr) {
    pieces.emplace_back(piece.data());
  }
  return pieces;
}

using LineSourceTest = FileTest;

TEST_F(LineSourceTest, ReadsLinesWithTheirLineFeeds) {
  put(at("a"), "one\n\ntwo\r\nthree");
  EXPECT_THAT(pieces_of(at("a")), ElementsAre("one\n", "\n", "two\r\n", "three"));
}

TEST_F(LineSourceTest, ReadsNothingFromAnEmptyFileOrAFolder) {
  put(at("a"), "");
  EXPECT_THAT(pieces_of(at("a")), IsEmpty());
  EXPECT_THAT(pieces_of(folder_), IsEmpty());
}

TEST_F(LineSourceTest, IsAtItsEndForGood) {
  put(at("a"), "one");
  LineSource lines(open_to_read(at("a").c_str()), 1023);
  EXPECT_STREQ(lines.next(), "one");
  EXPECT_EQ(lines.next(), nullptr);
  put(at("a"), "one\ntwo");
  EXPECT_EQ(lines.next(), nullptr);
}

TEST_F(LineSourceTest, EndsAPiecesTextAtANulAndGoesOnWithTheNextLine) {
  put(at("a"), "ab\0cd\nef\n\0\n\0"s);
  EXPECT_THAT(pieces_of(at("a")), ElementsAre("ab", "ef\n", "", ""));
}

TEST_F(LineSourceTest, CutsLongLinesBehindAPiecesLastByte) {
  for (const std::size_t length :
       {std::size_t{2}, std::size_t{1022}, std::size_t{1023}, LineSource::kMaxPieceLength}) {
    const std::string long_line(length, 'x');
    const std::string shorter_line = long_line.substr(1) + "\n";
    std::string text = long_line;
    text.append("y\n").append(shorter_line).append(long_line).append("\n");
    put(at("a"), text);
    EXPECT_THAT(pieces_of(at("a"), length),
                ElementsAre(long_line, "y\n", shorter_line, long_line, "\n"));
  }
}

TEST_F(LineSourceTest, GivesSingleBytesAsPieces) {
  put(at("a"), "ab\nc");
  EXPECT_THAT(pieces_of(at("a"), 1), ElementsAre("a", "b", "\n", "c"));
}

TEST_F(LineSourceTest, GivesWhatFgetsGivesForLinesOfEveryLengthAnywhereInItsBuffer) {
  int number = 0;
  for (const std::size_t before : {0U, 1U, 1000U, 3070U, 4090U}) {
    for (std::size_t length = 0; length < 2080; ++length) {
      if (length == 30 || length == 1060) length += 960;
      if (number++ % support::stride() != 0) continue;
      put(at("a"), std::string(before, '\n') + std::string(length, 'x') + "\nlast");
      ASSERT_EQ(pieces_of(at("a")), fgets_of(at("a"))) << before << " and " << length;
    }
  }
}

TEST_F(LineSourceTest, GivesWhatFgetsGivesForRandomBytes) {
  std::mt19937 random(20260102);
  const int rounds = support::rounds(200);
  for (int round = 0; round < rounds; ++round) {
    std::string bytes(random() % 20000, '\0');
    // Line feeds are frequent in some files and rare in others.
    const auto span = 2 + random() % 1500;
    for (char& byte : bytes) {
      const auto number = random() % span;
      byte = number == 0 ? '\n' : static_cast<char>(number);
    }
    put(at("a"), bytes);
    const std::size_t length = 1 + random() % LineSource::kMaxPieceLength;
    ASSERT_EQ(pieces_of(at("a"), length), fgets_of(at("a"), length)) << "round " << round;
  }
}

// ---- Lines without the rest of long ones

TEST_F(LineSourceTest, LeavesOutTheRestOfALongLine) {
  put(at("a"), "abc\nabcd\nabcde\nabcdefghijkl\n\nabcdefgh");
  EXPECT_THAT(lines_of(at("a"), 4), ElementsAre("abc\n", "abcd", "abcd", "abcd", "\n", "abcd"));
  EXPECT_THAT(lines_of(at("a"), 1), ElementsAre("a", "a", "a", "a", "\n", "a"));
  put(at("a"), "");
  EXPECT_THAT(lines_of(at("a"), 4), IsEmpty());
}

TEST_F(LineSourceTest, ANulHidesNoLineFeed) {
  put(at("a"), "a\0b\nc\0defgh\n\0ijkl\nm\n"s);
  EXPECT_THAT(lines_of(at("a"), 4), ElementsAre("a", "c", "", "m\n"));
}

TEST_F(LineSourceTest, LeavesOutTheRestOfAPieceToo) {
  put(at("a"), "abcdefgh\nij\n");
  LineSource lines(open_to_read(at("a").c_str()), 2);
  EXPECT_STREQ(lines.next(), "ab");
  EXPECT_STREQ(lines.next(), "cd");
  EXPECT_STREQ(lines.next_line(), "ij");
  EXPECT_STREQ(lines.next(), "\n");
  EXPECT_EQ(lines.next_line(), nullptr);
  EXPECT_EQ(lines.next_line(), nullptr);
}

TEST_F(LineSourceTest, GivesTheBeginningsOfRandomLines) {
  std::mt19937 random(20260103);
  const int rounds = support::rounds(200);
  for (int round = 0; round < rounds; ++round) {
    std::string bytes(random() % 20000, '\0');
    const auto span = 2 + random() % 1500;
    for (char& byte : bytes) {
      const auto number = random() % span;
      byte = number == 0 ? '\n' : static_cast<char>(number);
    }
    put(at("a"), bytes);
    const std::size_t length = 1 + random() % LineSource::kMaxPieceLength;
    std::vector<std::string> expected;
    for (std::size_t begin = 0; begin < bytes.size();) {
      const std::size_t end = std::min(bytes.find('\n', begin), bytes.size() - 1) + 1;
      expected.emplace_back(bytes.substr(begin, std::min(end - begin, length)).c_str());
      begin = end;
    }
    ASSERT_EQ(lines_of(at("a"), length), expected) << "round " << round;
  }
}

// ---- Other files

TEST_F(LineSourceTest, JoinsWhatAFifoGivesInParts) {
  make_fifo(at("fifo"));
  std::thread writer([&] {
    const UniqueFd fifo(::open(at("fifo").c_str(), O_WRONLY | O_CLOEXEC));
    for (const char* part : {"on", "e\ntw", "o", "\nthree"}) {
      EXPECT_GT(::write(fifo.get(), part, std::strlen(part)), 0);
      ::usleep(20000);
    }
  });
  EXPECT_THAT(pieces_of(at("fifo")), ElementsAre("one\n", "two\n", "three"));
  writer.join();
}

TEST_F(LineSourceTest, ReadsOnThroughSignals) {
  make_fifo(at("fifo"));
  const Interruption interruption;
  std::vector<std::string> pieces;
  std::thread reader([&] { pieces = pieces_of(at("fifo")); });
  Interruption::send(reader);  // while it opens
  UniqueFd fifo(::open(at("fifo").c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(::write(fifo.get(), "one\ntw", 6), 6);
  Interruption::send(reader);  // while it reads
  EXPECT_EQ(::write(fifo.get(), "o\n", 2), 2);
  Interruption::send(reader);
  fifo.reset();
  reader.join();
  EXPECT_THAT(pieces, ElementsAre("one\n", "two\n"));
}

// A socket gives what it has, and then fails because its other end was closed with bytes unread.
TEST_F(LineSourceTest, DropsThePartOfALineThatWasReadBeforeAFailure) {
  int ends[2] = {};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  UniqueFd near_end(ends[0]);
  UniqueFd far_end(ends[1]);
  ASSERT_EQ(::write(near_end.get(), "x", 1), 1);
  ASSERT_EQ(::write(far_end.get(), "one\ntw", 6), 6);
  far_end.reset();
  LineSource lines(std::move(near_end), 1023);
  EXPECT_STREQ(lines.next(), "one\n");
  EXPECT_EQ(lines.next(), nullptr);
  EXPECT_EQ(lines.next(), nullptr);
}

TEST_F(LineSourceTest, OpensCloseOnExec) {
  put(at("a"), "");
  const UniqueFd file = open_to_read(at("a").c_str());
  ASSERT_TRUE(file);
  EXPECT_EQ(::fcntl(file.get(), F_GETFD), FD_CLOEXEC);
}

}  // namespace
