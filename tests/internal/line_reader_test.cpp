#include <rkutils/internal/line_reader.h>
#include <rkutils/internal/unique_file.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using rkutils::internal::LineReader;
using rkutils::internal::UniqueFile;
using testing::ElementsAre;
using testing::IsEmpty;

UniqueFile file_with(const std::string& text) {
  UniqueFile file(std::tmpfile());
  std::fwrite(text.data(), 1, text.size(), file.get());
  std::rewind(file.get());
  return file;
}

template <std::size_t kSize>
std::vector<std::string> pieces_of(const std::string& text) {
  const UniqueFile file = file_with(text);
  char buffer[kSize];
  LineReader lines(file.get(), buffer, sizeof buffer);
  std::vector<std::string> pieces;
  while (lines.next()) pieces.emplace_back(buffer);
  return pieces;
}

TEST(LineReader, ReadsLinesWithTheirNewlines) {
  EXPECT_THAT(pieces_of<16>("one\n\ntwo\n"), ElementsAre("one\n", "\n", "two\n"));
}

TEST(LineReader, ReadsALastLineWithoutNewline) {
  EXPECT_THAT(pieces_of<16>("one\ntwo"), ElementsAre("one\n", "two"));
}

TEST(LineReader, ReadsNothingFromAnEmptyFile) { EXPECT_THAT(pieces_of<16>(""), IsEmpty()); }

TEST(LineReader, CutsALongLineIntoPiecesOfSizeMinus1) {
  EXPECT_THAT(pieces_of<4>("abcdefgh\nx\n"), ElementsAre("abc", "def", "gh\n", "x\n"));
}

TEST(LineReader, LeavesTheNewlineToThePieceAfterAFullOne) {
  EXPECT_THAT(pieces_of<4>("abc\nx\n"), ElementsAre("abc", "\n", "x\n"));
}

TEST(LineReader, EndsAPiecesTextAtANul) {
  EXPECT_THAT(pieces_of<16>(std::string("ab\0cd\nx\n", 8)), ElementsAre("ab", "x\n"));
}

TEST(LineReader, TellsWhetherALineHasEnded) {
  const UniqueFile file = file_with("ab\nabcdef\nx");
  char buffer[5];
  LineReader lines(file.get(), buffer, sizeof buffer);
  EXPECT_FALSE(lines.ended());
  std::vector<bool> ended;
  while (lines.next()) ended.push_back(lines.ended());
  EXPECT_THAT(ended, ElementsAre(true, false, true, false));
}

TEST(LineReader, ChompsOneNewline) {
  const UniqueFile file = file_with("ab\nx");
  char buffer[8];
  LineReader lines(file.get(), buffer, sizeof buffer);
  lines.chomp();
  EXPECT_STREQ(buffer, "");
  ASSERT_TRUE(lines.next());
  lines.chomp();
  EXPECT_STREQ(buffer, "ab");
  lines.chomp();
  EXPECT_STREQ(buffer, "ab");
  ASSERT_TRUE(lines.next());
  lines.chomp();
  EXPECT_STREQ(buffer, "x");
}

TEST(LineReader, EmptiesTheBufferAtTheEnd) {
  const UniqueFile file = file_with("ab\n");
  char buffer[8];
  LineReader lines(file.get(), buffer, sizeof buffer);
  ASSERT_TRUE(lines.next());
  EXPECT_FALSE(lines.next());
  EXPECT_STREQ(buffer, "");
}

TEST(LineReader, TakesAFolderForAnEmptyFile) {
  const UniqueFile folder(std::fopen("/tmp", "re"));
  ASSERT_NE(folder, nullptr);
  char buffer[8];
  LineReader lines(folder.get(), buffer, sizeof buffer);
  EXPECT_FALSE(lines.next());
}

}  // namespace
