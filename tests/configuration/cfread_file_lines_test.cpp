// read_file_lines()

#include <rkutils/cfread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "cfread_fixture.h"
#include "support/allocation_faults.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using namespace std::string_literals;

using testing::ElementsAre;
using testing::IsEmpty;

class ReadFileLines : public CfreadTest {
 protected:
  ~ReadFileLines() override {
    list_node* link = nullptr;
    list_node* following = nullptr;
    list_for_each_safe (link, following, &list_) {
      file_line* const line = list_entry(link, file_line, links);
      list_del(link);
      std::free(line->text);
      std::free(line);
    }
  }

  int read(const std::string& path) { return read_file_lines(path.c_str(), &list_); }

  std::vector<std::string> texts() {
    std::vector<std::string> all;
    list_node* link = nullptr;
    list_for_each (link, &list_) all.emplace_back(list_entry(link, file_line, links)->text);
    return all;
  }

  list_node list_ = LIST_NODE_INIT(list_);
};

TEST_F(ReadFileLines, AppendsEachLineWithoutItsEnd) {
  EXPECT_EQ(read(file("a", "one\n\n two \r\n# three = 3\ninclude x\nlast")), 6);
  EXPECT_THAT(texts(), ElementsAre("one", "", " two ", "# three = 3", "include x", "last"));
}

TEST_F(ReadFileLines, AppendsBehindWhatIsThere) {
  EXPECT_EQ(read(file("a", "a\nb\n")), 2);
  EXPECT_EQ(read(file("b", "c\n")), 1);
  EXPECT_THAT(texts(), ElementsAre("a", "b", "c"));
}

TEST_F(ReadFileLines, EndsATextAtACarriageReturnOrANul) {
  EXPECT_EQ(read(file("a", "a\rb\nc\0d\n\0\n\r\n"s)), 4);
  EXPECT_THAT(texts(), ElementsAre("a", "c", "", ""));
}

TEST_F(ReadFileLines, KeepsHighBytesAndTabs) {
  EXPECT_EQ(read(file("a", "\t\xc3\xa4 \xff\n")), 1);
  EXPECT_THAT(texts(), ElementsAre("\t\xc3\xa4 \xff"));
}

TEST_F(ReadFileLines, CutsLongLinesBehindTheir1023rdByte) {
  const std::string x(1023, 'x');
  EXPECT_EQ(read(file("a", x.substr(1) + "\n" + x + "\n" + x + x + "y\n")), 6);
  EXPECT_THAT(texts(), ElementsAre(x.substr(1), x, "", x, x, "y"));
}

TEST_F(ReadFileLines, OfAnEmptyFileOrAFolderIs0) {
  EXPECT_EQ(read(file("a", "")), 0);
  EXPECT_EQ(read(folder_), 0);
  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(ReadFileLines, OfAMissingFileIsMinus1WithoutAMessage) {
  EXPECT_EQ(read(at("missing")), -1);
  EXPECT_EQ(read(""), -1);
  const std::string path = file("a", "a\n");
  {
    const support::NoMoreDescriptors no_more;
    EXPECT_EQ(read(path), -1);
  }
  EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(ReadFileLines, WithoutAPathOrAListIsMinus1) {
  EXPECT_EQ(read_file_lines(nullptr, &list_), -1);
  EXPECT_EQ(read_file_lines(file("a", "a\n").c_str(), nullptr), -1);
}

// Two allocations for each line, that of the element and that of its text.
TEST_F(ReadFileLines, WithoutMemoryIsMinus10AndKeepsTheLinesBefore) {
  const std::string path = file("a", "a\nb\nc\n");
  for (const unsigned long nth : {3U, 4U}) {
    {
      const support::FailingAllocation failing(nth);
      EXPECT_EQ(read(path), -10);
      EXPECT_TRUE(failing.happened());
    }
    EXPECT_THAT(log_.take(), ElementsAre(err("Zalloc failed, errno: "s + std::strerror(ENOMEM))));
  }
  EXPECT_THAT(texts(), ElementsAre("a", "a"));
}

TEST_F(ReadFileLines, ReadsTenThousandLines) {
  std::string text;
  for (int i = 0; i < 10000; ++i) text += "line " + std::to_string(i) + "\n";
  EXPECT_EQ(read(file("a", text)), 10000);
  const auto all = texts();
  ASSERT_EQ(all.size(), 10000U);
  for (std::size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], "line " + std::to_string(i));
}

TEST_F(ReadFileLines, WorksOnASmallStack) {
  const std::string path = file("a", std::string(100000, 'x'));
  support::run_on_small_stack([&] { EXPECT_EQ(read(path), 98); });
}

TEST_F(ReadFileLines, AreReadThoughCancelled) {
  const std::string path = file("a", "one\ntwo\n");
  int count = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { count = read(path); }));
  EXPECT_EQ(count, 2);
}

}  // namespace
