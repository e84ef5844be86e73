#include <rkutils/memstream.h>

#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>

#include <gtest/gtest.h>

#include "support/case_name.h"

namespace {

static_assert(offsetof(mem_stream, buf) == 0);
static_assert(offsetof(mem_stream, buf_size) == sizeof(char*));

using namespace std::string_literals;

// A stream over a buffer of a given size that is full of '#'.
class Buffer {
 public:
  explicit Buffer(std::size_t size) : bytes_(size, '#'), stream_{bytes_.data(), size} {}

  mem_stream* stream() { return &stream_; }
  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  [[nodiscard]] std::size_t left() const { return stream_.buf_size; }
  // Where the next character goes, counted from the start.
  [[nodiscard]] std::ptrdiff_t position() const { return stream_.buf - bytes_.data(); }

 private:
  std::string bytes_;
  mem_stream stream_;
};

TEST(MemStream, FillsABufferStepByStep) {
  Buffer buffer(10);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "hello"), 0);
  EXPECT_EQ(buffer.left(), 5U);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "abcd"), 0);
  EXPECT_EQ(buffer.left(), 1U);
  EXPECT_FALSE(mem_stream_free_space_left(buffer.stream()));
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "x"), 1);
  EXPECT_EQ(buffer.bytes(), "helloabcd\0"s);
  EXPECT_EQ(mem_stream_get_num_chars_written(buffer.stream(), 10), 9U);
  EXPECT_EQ(mem_stream_get_num_bytes_written(buffer.stream(), 10, buffer.bytes().data()), 10U);
}

TEST(MemStreamPuts, LeavesTheStreamOnTheNul) {
  Buffer buffer(8);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "abc"), 0);
  EXPECT_EQ(buffer.bytes(), "abc\0####"s);
  EXPECT_EQ(buffer.position(), 3);
  EXPECT_EQ(buffer.left(), 5U);
}

TEST(MemStreamPuts, TakesATextThatJustFits) {
  Buffer buffer(4);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "abc"), 0);
  EXPECT_EQ(buffer.bytes(), "abc\0"s);
  EXPECT_EQ(buffer.left(), 1U);
}

TEST(MemStreamPuts, CutsATextThatIsOneTooLong) {
  Buffer buffer(4);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "abcd"), 1);
  EXPECT_EQ(buffer.bytes(), "abc\0"s);
  EXPECT_EQ(buffer.position(), 3);
  EXPECT_EQ(buffer.left(), 1U);
}

TEST(MemStreamPuts, OfNothingFitsIntoAFullStream) {
  Buffer buffer(1);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), ""), 0);
  EXPECT_EQ(buffer.bytes(), "\0"s);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "a"), 1);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), ""), 0);
  EXPECT_EQ(buffer.left(), 1U);
}

TEST(MemStreamPuts, WithoutABytesRoomWritesNothing) {
  Buffer buffer(4);
  buffer.stream()->buf_size = 0;
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "abc"), 1);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), ""), 1);
  EXPECT_EQ(buffer.bytes(), "####");
  EXPECT_EQ(buffer.position(), 0);
  EXPECT_EQ(buffer.left(), 0U);
}

TEST(MemStreamPrintf, AppendsFormattedText) {
  Buffer buffer(16);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%d-%s", 42, "ab"), 0);
  EXPECT_EQ(buffer.position(), 5);
  EXPECT_EQ(buffer.left(), 11U);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%c", '!'), 0);
  EXPECT_EQ(buffer.bytes(), "42-ab!\0#########"s);
}

TEST(MemStreamPrintf, TakesATextThatJustFits) {
  Buffer buffer(4);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%s", "abc"), 0);
  EXPECT_EQ(buffer.bytes(), "abc\0"s);
  EXPECT_EQ(buffer.left(), 1U);
}

TEST(MemStreamPrintf, CutsATextThatIsTooLong) {
  Buffer buffer(8);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%s", "abcdefghijkl"), 1);
  EXPECT_EQ(buffer.bytes(), "abcdefg\0"s);
  EXPECT_EQ(buffer.position(), 7);
  EXPECT_EQ(buffer.left(), 1U);
}

TEST(MemStreamPrintf, CutsATextThatIsOneTooLong) {
  Buffer buffer(4);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%s", "abcd"), 1);
  EXPECT_EQ(buffer.bytes(), "abc\0"s);
  EXPECT_EQ(buffer.left(), 1U);
}

TEST(MemStreamPrintf, AfterACutWritesNothingMore) {
  Buffer buffer(4);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%s", "abcdef"), 1);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%d", 7), 1);
  EXPECT_EQ(mem_stream_puts(buffer.stream(), "x"), 1);
  EXPECT_FALSE(mem_stream_free_space_left(buffer.stream()));
  EXPECT_EQ(buffer.bytes(), "abc\0"s);
  EXPECT_EQ(buffer.position(), 3);
  EXPECT_EQ(buffer.left(), 1U);
}

TEST(MemStreamPrintf, OfNothingFitsIntoAFullStream) {
  Buffer buffer(1);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%s", ""), 0);
  EXPECT_EQ(buffer.bytes(), "\0"s);
  EXPECT_EQ(buffer.left(), 1U);
}

TEST(MemStreamPrintf, WithoutABytesRoomWritesNothing) {
  Buffer buffer(4);
  buffer.stream()->buf_size = 0;
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%d", 1), 1);
  EXPECT_EQ(mem_stream_printf(buffer.stream(), "%s", ""), 1);
  EXPECT_EQ(buffer.bytes(), "####");
  EXPECT_EQ(buffer.left(), 0U);
}

// musl refuses sizes beyond INT_MAX, glibc does not; a caller may well mean "large enough".
TEST(MemStreamPrintf, TakesSizesBeyondTheFormattersBound) {
  for (const std::size_t size : {std::size_t{INT_MAX} + 1, SIZE_MAX}) {
    Buffer buffer(8);
    buffer.stream()->buf_size = size;
    EXPECT_EQ(mem_stream_printf(buffer.stream(), "%s", "abc"), 0);
    EXPECT_EQ(buffer.bytes(), "abc\0####"s);
    EXPECT_EQ(buffer.left(), size - 3);
  }
}

TEST(MemStreamFreeSpaceLeft, NeedsRoomForACharacterAndTheNul) {
  char byte = '#';
  mem_stream stream = {&byte, 0};
  EXPECT_FALSE(mem_stream_free_space_left(&stream));
  stream.buf_size = 1;
  EXPECT_FALSE(mem_stream_free_space_left(&stream));
  stream.buf_size = 2;
  EXPECT_TRUE(mem_stream_free_space_left(&stream));
}

TEST(MemStreamGetNumCharsWritten, CountsFromTheFullSize) {
  Buffer buffer(10);
  EXPECT_EQ(mem_stream_get_num_chars_written(buffer.stream(), 10), 0U);
  mem_stream_puts(buffer.stream(), "abc");
  EXPECT_EQ(mem_stream_get_num_chars_written(buffer.stream(), 10), 3U);
}

TEST(MemStreamGetNumBytesWritten, CountsTheNulUnlessThereIsNoBuffer) {
  Buffer buffer(10);
  EXPECT_EQ(mem_stream_get_num_bytes_written(buffer.stream(), 10, buffer.bytes().data()), 1U);
  mem_stream_puts(buffer.stream(), "abc");
  EXPECT_EQ(mem_stream_get_num_bytes_written(buffer.stream(), 10, buffer.bytes().data()), 4U);
  EXPECT_EQ(mem_stream_get_num_bytes_written(buffer.stream(), 10, nullptr), 0U);
}

// Each misuse with the condition that it breaks first, and the function named in the report.
struct Misuse {
  const char* name;
  void (*call)();
  const char* condition;
  const char* function;
};

mem_stream no_buffer = {nullptr, 0};
char some_bytes[4];
mem_stream some_stream = {some_bytes, sizeof some_bytes};
mem_stream full_stream = {some_bytes, 0};

class MemStreamDeathTest : public testing::TestWithParam<Misuse> {};

TEST_P(MemStreamDeathTest, ReportsTheConditionTheSourceAndTheFunction) {
  const std::string condition = GetParam().condition;
  EXPECT_EXIT(GetParam().call(), testing::KilledBySignal(SIGABRT), condition);
  // What both C libraries print around the source and the function.
  EXPECT_DEATH(GetParam().call(), "rkutils/memstream:");
  EXPECT_DEATH(GetParam().call(), ": " + std::string(GetParam().function) + ": ");
}

// Without the attribute by which a compiler checks the format.
int (*const unchecked_printf)(mem_stream*, const char*, ...) = mem_stream_printf;

// The pointers are volatile so that no compiler knows them at the call.
mem_stream* volatile null_stream = nullptr;
const char* volatile null_text = nullptr;

INSTANTIATE_TEST_SUITE_P(
    Of, MemStreamDeathTest,
    testing::Values(
        Misuse{"FreeSpaceOfNull", [] { mem_stream_free_space_left(null_stream); }, "stream != NULL",
               "mem_stream_free_space_left"},
        Misuse{"CharsOfNull", [] { mem_stream_get_num_chars_written(null_stream, 1); },
               "stream != NULL", "mem_stream_get_num_chars_written"},
        Misuse{"CharsOfASmallerBuffer",
               [] { mem_stream_get_num_chars_written(&some_stream, sizeof some_bytes - 1); },
               "orig_buf_size >= stream->buf_size", "mem_stream_get_num_chars_written"},
        Misuse{"BytesOfNull", [] { mem_stream_get_num_bytes_written(null_stream, 1, nullptr); },
               "stream != NULL", "mem_stream_get_num_bytes_written"},
        Misuse{"BytesOfASmallerBuffer",
               [] { mem_stream_get_num_bytes_written(&some_stream, 0, nullptr); },
               "orig_buf_size >= stream->buf_size", "mem_stream_get_num_bytes_written"},
        Misuse{"PrintfToNull", [] { mem_stream_printf(null_stream, "x%d", 1); }, "stream != NULL",
               "mem_stream_printf"},
        Misuse{"PrintfToNoBuffer", [] { mem_stream_printf(&no_buffer, "x%d", 1); },
               "stream->buf != NULL", "mem_stream_printf"},
        Misuse{"PrintfOfNoFormat", [] { unchecked_printf(&some_stream, null_text); },
               "format != NULL", "mem_stream_printf"},
        Misuse{"PrintfOfWhatCannotBeConverted",
               [] { mem_stream_printf(&some_stream, "%lc", static_cast<wint_t>(0x7fffffff)); },
               "num_chars >= 0", "mem_stream_printf"},
        // Checked in this order, and before the size.
        Misuse{"PrintfOfNoFormatToAFullStream", [] { unchecked_printf(&full_stream, null_text); },
               "format != NULL", "mem_stream_printf"},
        Misuse{"PrintfOfNoFormatToNoBuffer", [] { unchecked_printf(&no_buffer, null_text); },
               "stream->buf != NULL", "mem_stream_printf"},
        Misuse{"PutsOfNoTextToAFullStream", [] { mem_stream_puts(&full_stream, null_text); },
               "str != NULL", "mem_stream_puts"},
        Misuse{"PutsOfNoTextToNoBuffer", [] { mem_stream_puts(&no_buffer, null_text); },
               "stream->buf != NULL", "mem_stream_puts"},
        // A value that is stored into the stream itself leaves it without room.
        Misuse{"PrintfThatTakesTheRoom",
               [] { unchecked_printf(&some_stream, "abc%zn", &some_stream.buf_size); },
               "stream->buf_size >= 1", "mem_stream_printf"},
        Misuse{"PutsToNull", [] { mem_stream_puts(null_stream, "x"); }, "stream != NULL",
               "mem_stream_puts"},
        Misuse{"PutsToNoBuffer", [] { mem_stream_puts(&no_buffer, "x"); }, "stream->buf != NULL",
               "mem_stream_puts"},
        Misuse{"PutsOfNoText", [] { mem_stream_puts(&some_stream, null_text); }, "str != NULL",
               "mem_stream_puts"}),
    support::CaseName());

}  // namespace
