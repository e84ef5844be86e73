// The OEM file and the product's name.

#include <rkutils/internal/unique_file.h>
#include <rkutils/systeminfo.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/failing_calls.h"
#include "support/for_nobody.h"
#include "support/interruption.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "support/without_override.h"
#include "systeminfo_fixture.h"

namespace {

using namespace std::string_literals;

using rkutils::internal::UniqueFile;

// What a line holds at most, less the NUL.
constexpr std::size_t kLineLength = 1023;

using Oem = SysteminfoTest;

TEST_F(Oem, GivesTheValueOfTheKey) {
  put(kOemFile, "Vendor=abc\nProductType=  router 1 \n");
  EXPECT_STREQ(oem("Vendor"), "abc");
  EXPECT_STREQ(oem("ProductType"), "router 1 ");
}

TEST_F(Oem, ReadsALastLineWithoutANewline) {
  put(kOemFile, "Vendor=abc");
  EXPECT_STREQ(oem("Vendor"), "abc");
}

TEST_F(Oem, KeepsACarriageReturn) {
  put(kOemFile, "Vendor=abc\r\n");
  EXPECT_STREQ(oem("Vendor"), "abc\r");
}

TEST_F(Oem, GivesTheFirstOfOneKey) {
  put(kOemFile, "Vendor=abc\nVendor=def\n");
  EXPECT_STREQ(oem("Vendor"), "abc");
}

TEST_F(Oem, TakesNoKeyForALongerOne) {
  put(kOemFile, "ProductType=abc\n");
  EXPECT_STREQ(oem("Product"), "");
  EXPECT_STREQ(oem("ProductTypes"), "");
}

TEST_F(Oem, FindsTheEmptyKey) {
  put(kOemFile, "Vendor=abc\n=def\n");
  EXPECT_STREQ(oem(""), "def");
}

TEST_F(Oem, GoesOnBehindBlankLines) {
  put(kOemFile, "\n\n# comment\n   \nVendor=abc\n");
  EXPECT_STREQ(oem("Vendor"), "abc");
}

TEST_F(Oem, EndsReadingAtALineThatBeginsWithNul) {
  put(kOemFile, "A=1\n\0\nB=2\n"s);
  EXPECT_STREQ(oem("A"), "1");
  EXPECT_STREQ(oem("B"), "");
}

TEST_F(Oem, ReadsALineUpToANul) {
  put(kOemFile, "A=1\0x\nB\0=2\nC=3\n"s);
  EXPECT_STREQ(oem("A"), "1");
  EXPECT_STREQ(oem("B"), "");
  EXPECT_STREQ(oem("C"), "3");
}

TEST_F(Oem, GivesTheEmptyTextWithoutTheFile) { EXPECT_STREQ(oem("Vendor"), ""); }

TEST_F(Oem, GivesTheEmptyTextForAFolder) {
  std::filesystem::create_directories(kOemFile);
  EXPECT_STREQ(oem("Vendor"), "");
  EXPECT_STREQ(oem(""), "");
}

TEST_F(Oem, GivesTheEmptyTextForAFileThatIsNotReadable) {
  put(kOemFile, "Vendor=abc\n");
  ::chmod(kOemFile, 0200);
  support::run_without_override([] { EXPECT_STREQ(oem("Vendor"), ""); });
}

TEST_F(Oem, OpensTheFileForTheEffectiveUser) {
  put(kOemFile, "Vendor=abc\n");
  ::chmod(kOemFile, 0600);
  support::run_for_nobody([] { EXPECT_STREQ(oem("Vendor"), "abc"); });
}

TEST_F(Oem, EndsAtAFailingReadAndDropsTheLineThatItEnds) {
  put(kOemFile, "Vendor=abc\nModel=def");
  support::run_with_failing_calls({{support::SystemCall::kRead, EIO, 1}},
                                  [] { EXPECT_STREQ(oem("Model"), ""); });
  support::run_with_failing_calls({{support::SystemCall::kRead, EIO, 1}},
                                  [] { EXPECT_STREQ(oem("Vendor"), "abc"); });
  EXPECT_STREQ(oem("Model"), "def");
}

TEST_F(Oem, GivesTheEmptyTextWithoutADescriptor) {
  put(kOemFile, "Vendor=abc\n");
  const support::NoMoreDescriptors none;
  EXPECT_STREQ(oem("Vendor"), "");
}

TEST_F(Oem, GivesTheEmptyTextForNull) {
  put(kOemFile, "Vendor=abc\n=def\n");
  EXPECT_STREQ(oem(nullptr), "");
}

TEST_F(Oem, HasOneBufferForItsResults) {
  put(kOemFile, "Vendor=abc\nModel=def\nVendorName=ghi\n");
  const char* const buffer = oem(nullptr);
  EXPECT_EQ(oem("Vendor"), buffer + 7);
  EXPECT_STREQ(buffer, "Vendor=abc");
  EXPECT_EQ(oem("Model"), buffer + 6);
  EXPECT_STREQ(buffer, "Model=def");
  // A file that cannot be opened, and a NULL key, empty it.
  EXPECT_EQ(oem(nullptr), buffer);
  EXPECT_STREQ(buffer, "");
  EXPECT_STREQ(oem("Model"), "def");
  std::filesystem::remove(kOemFile);
  EXPECT_EQ(oem("Model"), buffer);
  EXPECT_STREQ(buffer, "");
}

TEST_F(Oem, HoldsTheLastLineWhereNothingIsFound) {
  put(kOemFile, "Vendor=abc\nModel=def\n");
  const char* const buffer = oem(nullptr);
  const char* const nothing = oem("Other");
  EXPECT_STREQ(nothing, "");
  EXPECT_STREQ(buffer, "Model=def");
  EXPECT_EQ(oem("Others"), nothing);  // a constant, not a place in the buffer
  EXPECT_TRUE(nothing < buffer || nothing >= buffer + kLineLength + 1);
  put(kOemFile, "Vendor=abc\n\n");
  EXPECT_EQ(oem("Other"), nothing);
  EXPECT_STREQ(buffer, "");
}

// Such a key changes with each line that is read. No use, but no harm either.
TEST_F(Oem, FindsNothingForAKeyInItsOwnBuffer) {
  put(kOemFile, "Alias=Vendor\nVendor=abc\n=nothing\n");
  EXPECT_STREQ(oem(oem("Alias")), "");
}

TEST_F(Oem, ReadsLinesOfEachLengthAroundThePieces) {
  for (std::size_t whole = 1; whole <= 3; ++whole) {
    for (std::size_t length = whole * kLineLength - 4; length <= whole * kLineLength + 4;
         ++length) {
      const std::string line = "A=" + std::string(length - 2, 'x');
      put(kOemFile, line + "\nB=1\n");
      EXPECT_EQ(oem("A"), line.substr(0, kLineLength).substr(2)) << length;
      EXPECT_STREQ(oem("B"), "1") << length;
    }
  }
}

TEST_F(Oem, TakesAPieceForALine) {
  const std::string filler(kLineLength, 'x');
  put(kOemFile, filler + "A=1\n");
  EXPECT_STREQ(oem("A"), "1");
}

TEST_F(Oem, TakesAKeyOfAnyLength) {
  for (const std::size_t length :
       {kLineLength - 2, kLineLength - 1, kLineLength, kLineLength + 1, std::size_t{100000}}) {
    const std::string key(length, 'k');
    put(kOemFile, key + "=value\n");
    const std::size_t room = kLineLength - std::min(length + 1, kLineLength);
    EXPECT_EQ(oem(key.c_str()), "value"s.substr(0, room)) << length;
  }
}

TEST_F(Oem, ReadsAHugeFile) {
  const auto huge = static_cast<std::size_t>(std::max(1 << 20, support::rounds(8 << 20)));
  put(kOemFile, std::string(huge, 'x') + std::string(huge / 8, '\n') + "A=1\n");
  EXPECT_STREQ(oem("A"), "1");
}

TEST_F(Oem, ReadsRandomFilesByTheRules) {
  int found = 0;
  for (const std::string& contents : random_files(support::rounds(2000))) {
    put(kOemFile, contents);
    for (const std::string& key : {""s, "a"s, "A"s, " "s, "\""s, "##"s, "=\t"s}) {
      std::string expected;
      for (const std::string& piece : pieces_of(contents, kLineLength + 1)) {
        if (piece.compare(0, key.size() + 1, key + "=") != 0) continue;
        const std::string value = piece.substr(key.size() + 1, piece.find('\n') - key.size() - 1);
        expected = value.substr(std::min(value.find_first_not_of(' '), value.size()));
        ++found;
        break;
      }
      ASSERT_EQ(oem(key.c_str()), expected) << testing::PrintToString(contents) << " " << key;
    }
  }
  EXPECT_GT(found, support::rounds(500));
}

TEST_F(Oem, WorksOnASmallStack) {
  put(kOemFile, "Vendor=abc\n");
  support::run_on_small_stack([] { EXPECT_STREQ(oem("Vendor"), "abc"); });
}

TEST_F(Oem, ReadsThoughCancelled) {
  put(kOemFile, "Vendor=abc\n");
  const char* vendor = nullptr;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { vendor = oem("Vendor"); }));
  EXPECT_STREQ(vendor, "abc");
}

TEST_F(Oem, ReadsToTheKeyThroughSignals) {
  std::filesystem::create_directory("/etc/oem");
  ASSERT_EQ(::mkfifo(kOemFile, 0600), 0);
  const support::Interruption interruption;
  std::string vendor;
  std::thread reader([&] { vendor = oem("Vendor"); });
  support::Interruption::send(reader);  // while it opens
  UniqueFile writer(std::fopen(kOemFile, "we"));
  std::fputs("Model=def\nVen", writer.get());
  std::fflush(writer.get());
  support::Interruption::send(reader);  // while it reads
  std::fputs("dor=abc\n", writer.get());
  writer.reset();
  reader.join();
  EXPECT_EQ(vendor, "abc");
}

TEST_F(Oem, LeavesNoDescriptorToPrograms) {
  std::filesystem::create_directory("/etc/oem");
  ASSERT_EQ(::mkfifo(kOemFile, 0600), 0);
  std::string vendor;
  std::thread reader([&] { vendor = oem("Vendor"); });
  UniqueFile writer(std::fopen(kOemFile, "we"));
  const int descriptor = wait_for_descriptor(kOemFile, ::fileno(writer.get()));
  EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  std::fputs("Vendor=abc\n", writer.get());
  writer.reset();
  reader.join();
  EXPECT_EQ(vendor, "abc");
}

TEST_F(Oem, HasOneBufferForAllThreads) {
  put(kOemFile, "Vendor=abc\n");
  const char* elsewhere = nullptr;
  std::thread([&] { elsewhere = oem("Vendor"); }).join();
  EXPECT_EQ(elsewhere, oem("Vendor"));
}

using GetProduct = HardwareTest;

TEST_F(GetProduct, IsTheBoardsName) {
  proc_.put(kProductName, "4600\n");
  EXPECT_STREQ(get_product(), "DW4600");
}

TEST_F(GetProduct, IsThePrefixAloneWithoutABoardsName) {
  EXPECT_STREQ(get_product(), "DW");
  proc_.put(kProductName, " \n");
  EXPECT_STREQ(get_product(), "DW");
  proc_.make_folder(kProductName);
  EXPECT_STREQ(get_product(), "DW");
}

TEST_F(GetProduct, KeepsLinesInTheBoardsName) {
  proc_.put(kProductName, " 46\n00 \n\n");
  EXPECT_STREQ(get_product(), "DW46\n00");
}

TEST_F(GetProduct, CutsTheBoardsNameTo126CharactersInAll) {
  for (const std::size_t length : {123U, 124U, 125U, 126U, 127U, 1023U, 100000U}) {
    const std::string board(length, 'x');
    proc_.put(kProductName, board);
    EXPECT_EQ(get_product(), ("DW" + board).substr(0, 126)) << length;
  }
}

TEST_F(GetProduct, IsTheOemFilesForTheBoard) {
  proc_.put(kProductName, "4600\n");
  put(kOemFile, "ProductType=any\nProductType.DW46=other\nProductType.DW4600= Gate 1\n");
  EXPECT_STREQ(get_product(), "Gate 1");
}

TEST_F(GetProduct, IsTheOemFilesForAllBoardsOtherwise) {
  proc_.put(kProductName, "4600\n");
  put(kOemFile, "ProductType.DW46=other\nProductType=any\n");
  EXPECT_STREQ(get_product(), "any");
  put(kOemFile, "ProductType=any\nProductType.DW4600=  \n");
  EXPECT_STREQ(get_product(), "any");
}

TEST_F(GetProduct, IsLookedUpWithoutABoardsName) {
  put(kOemFile, "ProductType=any\nProductType.DW=nameless\n");
  EXPECT_STREQ(get_product(), "nameless");
}

TEST_F(GetProduct, IsEmptyWhereTheOemFileNamesNone) {
  proc_.put(kProductName, "4600\n");
  put(kOemFile, "Vendor=abc\n");
  EXPECT_STREQ(get_product(), "");
  put(kOemFile, "ProductType=\nProductType.DW4600=\n");
  EXPECT_STREQ(get_product(), "");
  put(kOemFile, "");
  EXPECT_STREQ(get_product(), "");
}

TEST_F(GetProduct, IsEmptyWhereTheOemFileIsAFolder) {
  proc_.put(kProductName, "4600\n");
  std::filesystem::create_directories(kOemFile);
  EXPECT_STREQ(get_product(), "");
}

TEST_F(GetProduct, PassesOverAnOemFileThatIsNotReadable) {
  proc_.put(kProductName, "4600\n");
  put(kOemFile, "ProductType=any\n");
  ::chmod(kOemFile, 0200);
  support::run_without_override([] { EXPECT_STREQ(get_product(), "DW4600"); });
}

TEST_F(GetProduct, AsksForTheRealUser) {
  proc_.put(kProductName, "4600\n");
  put(kOemFile, "ProductType=any\n");
  ::chmod(kOemFile, 0600);
  support::run_for_nobody([] { EXPECT_STREQ(get_product(), "DW4600"); });
  ::chmod(kOemFile, 0644);
  support::run_for_nobody([] { EXPECT_STREQ(get_product(), "any"); });
}

TEST_F(GetProduct, HasOneBufferForAllThreads) {
  const char* elsewhere = nullptr;
  std::thread([&] { elsewhere = get_product(); }).join();
  EXPECT_EQ(elsewhere, get_product());
}

TEST_F(GetProduct, CutsTheKeyTo30Characters) {
  const std::string name = "0123456789abcdef";  // 14 characters come before it
  put(kOemFile,
      "ProductType.DW0123456789abcdefg=longer\nProductType.DW0123456789abcde=shorter\n"
      "ProductType.DW0123456789abcdef=cut\n");
  for (const std::string& board : {name, name + "g", name + std::string(1000, 'x')}) {
    proc_.put(kProductName, board);
    EXPECT_STREQ(get_product(), "cut") << board;
  }
  proc_.put(kProductName, name.substr(0, 15));
  EXPECT_STREQ(get_product(), "shorter");
}

TEST_F(GetProduct, CutsTheOemFilesNameTo127Characters) {
  for (const std::size_t length : {126U, 127U, 128U, 900U}) {
    put(kOemFile, "ProductType=" + std::string(length, 'x') + "\n");
    EXPECT_EQ(get_product(), std::string(std::min<std::size_t>(length, 127), 'x')) << length;
  }
}

TEST_F(GetProduct, ClearsItsBufferOf128Bytes) {
  put(kOemFile, "ProductType=" + std::string(500, 'x') + "\n");
  char* const product = get_product();
  EXPECT_EQ(std::string(product, 128), std::string(127, 'x') + '\0');
  put(kOemFile, "ProductType=y\n");
  EXPECT_EQ(get_product(), product);
  EXPECT_EQ(std::string(product, 128), "y" + std::string(127, '\0'));
}

TEST_F(GetProduct, OverwritesTheResultsOfReadfileAndOem) {
  proc_.put(kProductName, "4600\n");
  put(kOemFile, "Vendor=abc\nProductType=any\n");
  const char* const text = readfile("/proc/sys/kernel/ostype");
  const char* const line = oem(nullptr);
  EXPECT_STREQ(oem("Vendor"), "abc");
  EXPECT_STREQ(get_product(), "any");
  EXPECT_STREQ(text, "4600");
  EXPECT_STREQ(line, "ProductType=any");
}

TEST_F(GetProduct, LeavesOemsResultAloneWithoutAnOemFile) {
  put(kOemFile, "Vendor=abc\n");
  const char* const vendor = oem("Vendor");
  std::filesystem::remove(kOemFile);
  EXPECT_STREQ(get_product(), "DW");
  EXPECT_STREQ(vendor, "abc");
}

TEST_F(GetProduct, TakesRandomBytes) {
  int found = 0;
  for (const std::string& contents : random_files(support::rounds(300))) {
    proc_.put(kProductName, contents);
    const std::string board = readfile(proc_.at(kProductName).c_str());
    ASSERT_EQ(get_product(), "DW" + board);
    // No line can have a key of several lines.
    const std::string name = board.substr(0, 16);
    const bool fits = name.find('\n') == std::string::npos;
    put(kOemFile, "ProductType.DW" + name + "=found\n");
    ASSERT_EQ(get_product(), fits ? "found"s : ""s) << testing::PrintToString(contents);
    found += fits ? 1 : 0;
    std::filesystem::remove(kOemFile);
  }
  EXPECT_GT(found, support::rounds(30));
}

TEST_F(GetProduct, WorksOnASmallStack) {
  put(kOemFile, "ProductType=any\n");
  support::run_on_small_stack([] { EXPECT_STREQ(get_product(), "any"); });
}

TEST_F(GetProduct, ReadsThoughCancelled) {
  put(kOemFile, "ProductType=any\n");
  const char* product = nullptr;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { product = get_product(); }));
  EXPECT_STREQ(product, "any");
}

}  // namespace
