// Texts, lists, tables and files of several threads at once.

#include <rkutils/file.h>
#include <rkutils/hash_table.h>
#include <rkutils/list.h>
#include <rkutils/memory.h>
#include <rkutils/memstream.h>
#include <rkutils/string.h>
#include <rkutils/text.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <gmock/gmock.h>

#include "../foundations/file_fixture.h"
#include "support/at_once.h"
#include "support/in_child.h"
#include "support/rounds.h"
#include "support/time_zone.h"

namespace {

using support::at_once;

constexpr int kThreads = 4;

// Calls `action` again and again on each of the threads, with the thread's number and the round's.
template <typename Action>
void again_and_again(int rounds, Action action) {
  at_once(kThreads, [&](int thread) {
    for (int round = support::rounds(rounds); round > 0; --round) action(thread, round);
  });
}

// ---- Texts ----

TEST(ThreadsWithTexts, FormatTheirOwn) {
  again_and_again(2000, [](int thread, int round) {
    std::array<char, 64> text;
    const std::string expected = std::to_string(thread) + ":" + std::to_string(round) + "|00ff";
    ASSERT_EQ(strlenf("%d:%d|%04x", thread, round, 255U), static_cast<int>(expected.size()));
    ASSERT_EQ(snxprintf(text.data(), 0, text.size(), "%d:%d|%04x", thread, round, 255U),
              static_cast<int>(expected.size()));
    ASSERT_EQ(text.data(), expected);
  });
}

TEST(ThreadsWithTexts, ReadAndWriteTheirOwnNumbers) {
  again_and_again(2000, [](int thread, int round) {
    std::array<char, 40> text;
    const int number = (thread - 2) * round;
    i32toa(number, text.data(), 10);
    ASSERT_EQ(text.data(), std::to_string(number));
    ASSERT_EQ(valueOf32(text.data()), number);
    int ok = 1;
    ASSERT_EQ(validValueOf32(&ok, text.data()), number);
    ASSERT_EQ(ok, 0);
    convBinToHex(static_cast<std::uint32_t>(thread), text.data());
    ASSERT_EQ(std::strlen(text.data()), 10U);
    ASSERT_EQ(nextHigherPowerOf2(static_cast<std::uint32_t>(thread) + 5U), 8U);
  });
}

TEST(ThreadsWithTexts, ChangeAndCompareTheirOwn) {
  again_and_again(2000, [](int thread, int) {
    const std::string name = "Name" + std::to_string(thread);
    std::array<char, 16> text;
    ASSERT_EQ(strlcpy(text.data(), name.c_str(), text.size()), name.size());
    ASSERT_EQ(stricmp(strtolower(text.data()), name.c_str()), 0);
    ASSERT_EQ(text[0], 'n');
    reverse(text.data());
    ASSERT_EQ(text[4], 'n');
    ASSERT_STREQ(escape("\t", 1, text.data(), text.size()), "\\t");
  });
}

TEST(ThreadsWithTexts, ReadTimes) {
  const support::TimeZone zone("UTC0");
  const std::time_t expected = timeparse("2025-11-21 09:05:59");
  again_and_again(500, [expected](int, int round) {
    ASSERT_EQ(timeparse("2025-11-21 09:05:59"), expected);
    const std::timespec from = {1, 5};
    const std::timespec to = {round, 5};
    ASSERT_EQ(diffts(&from, &to).seconds, round - 1);
    ASSERT_EQ(uselapsed(&from, &to), (round - 1) * INT64_C(1000000));
    ASSERT_GE(jiffy(), 0);
  });
}

// ---- Strings ----

// They all begin and end as the one empty text.
TEST(ThreadsWithStrings, ShareTheEmptyText) {
  again_and_again(2000, [](int thread, int round) {
    String text;
    const String copy(text);
    const String empty = String::EMPTY();
    ASSERT_EQ(copy.length(), 0);
    text.concatf("%d:%d", thread, round);
    ASSERT_EQ(text.c_str(), std::to_string(thread) + ":" + std::to_string(round));
    text = empty;
    text += 'x';
    ASSERT_STREQ(text.c_str(), "x");
    text = String();
    ASSERT_STREQ(text.c_str(), "");
    ASSERT_STREQ(empty.c_str(), "");
  });
  EXPECT_EQ(String::EMPTY().length(), 0);
}

TEST(ThreadsWithStrings, MayBeTheFirstToAskForTheEmptyText) {
  const std::string seen = support::in_child([] {
    std::array<const String*, kThreads> texts = {};
    at_once(kThreads, [&texts](int thread) {
      texts.at(static_cast<std::size_t>(thread)) = &String::EMPTY();
    });
    for (const String* const text : texts) {
      if (text != texts[0] || *text != "") return "another";
    }
    return "the same";
  });
  EXPECT_EQ(seen, "the same");
}

// ---- Memory, lists and tables ----

TEST(ThreadsWithMemory, GetTheirOwn) {
  again_and_again(2000, [](int thread, int) {
    auto* const bytes = static_cast<unsigned char*>(zalloc(32));
    ASSERT_NE(bytes, nullptr);
    ASSERT_EQ(bytes[31], 0);
    std::memset(bytes, thread + 1, 32);
    std::free(bytes);
  });
}

TEST(ThreadsWithMemory, WriteStreamsOfTheirOwn) {
  again_and_again(2000, [](int thread, int round) {
    std::array<char, 32> text;
    mem_stream stream = {text.data(), text.size()};
    ASSERT_EQ(mem_stream_printf(&stream, "%d/", thread), 0);
    ASSERT_EQ(mem_stream_puts(&stream, std::to_string(round).c_str()), 0);
    ASSERT_EQ(text.data(), std::to_string(thread) + "/" + std::to_string(round));
  });
}

TEST(ThreadsWithLists, KeepTheirOwn) {
  again_and_again(2000, [](int, int) {
    list_node head = LIST_NODE_INIT(head);
    std::array<list_node, 3> nodes;
    for (list_node& node : nodes) list_add_tail(&node, &head);
    ASSERT_EQ(head.next, nodes.data());
    for (list_node& node : nodes) list_del(&node);
    ASSERT_TRUE(list_empty(&head));
  });
}

TEST(ThreadsWithTables, AskOneThatDoesNotChange) {
  std::array<int, 100> values = {};
  INStringHashTable names(16);
  INUInt32HashTable numbers(16);
  for (std::size_t i = 0; i < values.size(); ++i) {
    names.addEntry(("key" + std::to_string(i)).c_str(), &values[i]);
    numbers.addEntry(static_cast<unsigned long>(i), &values[i]);
  }
  const unsigned long longest = numbers.getLongestChain();
  again_and_again(2000, [&](int thread, int round) {
    const auto i = static_cast<std::size_t>(thread + round) % values.size();
    void* value = nullptr;
    ASSERT_TRUE(names.getValueFromKey(("key" + std::to_string(i)).c_str(), &value));
    ASSERT_EQ(value, &values[i]);
    ASSERT_TRUE(numbers.getValueFromKey(static_cast<unsigned long>(i), &value));
    ASSERT_EQ(value, &values[i]);
    ASSERT_EQ(names.getNumberOfKeys(), values.size());
    ASSERT_EQ(numbers.getLongestChain(), longest);
  });
}

// ---- Files ----

using ThreadsWithFiles = FileTest;

TEST_F(ThreadsWithFiles, ReadAndWriteTheirOwn) {
  again_and_again(100, [this](int thread, int round) {
    const std::string folder = at(std::to_string(thread));
    const std::string from = folder + "/one";
    const std::string to = folder + "/two";
    const std::string text = std::to_string(thread) + " " + std::to_string(round);
    ASSERT_EQ(create_directory(folder.c_str()), 0);
    ASSERT_EQ(writefile(from.c_str(), text.c_str()), 0);
    ASSERT_EQ(copy_file(from.c_str(), to.c_str()), 0);
    std::array<char, 64> read;
    ASSERT_EQ(readfile_r(to.c_str(), read.data(), read.size()), text);
    ASSERT_EQ(delete_regular_file(from.c_str()), 0);
    ASSERT_EQ(dropfile(to.c_str()), 0);
    ASSERT_EQ(empty_directory(folder.c_str()), 1);
  });
}

TEST_F(ThreadsWithFiles, CopyOneTreeIntoTheirOwn) {
  put(at("tree/a/one"), "1");
  put(at("tree/b/two"), "2");
  again_and_again(50, [this](int thread, int) {
    const std::string copy = at("copy" + std::to_string(thread));
    ASSERT_EQ(copy_directory(at("tree").c_str(), copy.c_str()), 0);
    std::array<char, 8> read;
    ASSERT_STREQ(readfile_r((copy + "/b/two").c_str(), read.data(), read.size()), "2");
    ASSERT_EQ(delete_directory(copy.c_str()), 0);
  });
}

}  // namespace
