// How a message becomes blocks: which memory they are taken from, and how it is counted.

#include <rkutils/digests/hash_context/message.h>
#include <rkutils/digests/hash_context/transforms.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <sys/mman.h>

namespace {

using rkutils::digests::kBlockSize;
using rkutils::digests::padding_length;
using rkutils::digests::returned_length;
using testing::ElementsAre;
using testing::Eq;
using testing::FieldsAre;

struct Blocks {
  const unsigned char* at;
  std::size_t count;
};

std::vector<Blocks>& transformed() {
  static std::vector<Blocks> calls;
  return calls;
}

// Looks at no block, but remembers where they are.
void record(std::uint32_t* /*state*/, const unsigned char* blocks, std::size_t count) {
  if (count > 0) transformed().push_back({blocks, count});
}

class Message : public testing::Test {
 protected:
  Message() { transformed().clear(); }

  void add(const unsigned char* from, unsigned long length) {
    rkutils::digests::add_to_message(nullptr, count, buffer, from, length, record);
  }

  std::uint32_t count[2] = {};
  unsigned char buffer[kBlockSize] = {};
  const std::array<unsigned char, 300> data = {'d', 'a', 't', 'a'};
};

TEST_F(Message, HandsBlocksOverWhereTheyAre) {
  add(data.data(), 3 * kBlockSize);
  EXPECT_THAT(transformed(), ElementsAre(FieldsAre(Eq(data.data()), 3)));
  EXPECT_EQ(buffer[0], 0);
}

TEST_F(Message, KeepsARestAndFillsItUp) {
  add(data.data(), kBlockSize + 4);
  EXPECT_THAT(transformed(), ElementsAre(FieldsAre(Eq(data.data()), 1)));
  transformed().clear();
  add(data.data(), kBlockSize - 5);
  EXPECT_TRUE(transformed().empty());
  add(data.data(), 1 + 2 * kBlockSize + 7);
  EXPECT_THAT(transformed(),
              ElementsAre(FieldsAre(Eq(buffer), 1), FieldsAre(Eq(data.data() + 1), 2)));
  EXPECT_EQ(rkutils::digests::buffered(count), 7U);
}

TEST_F(Message, TransformsAFilledBufferAlone) {
  add(data.data(), 1);
  add(data.data(), kBlockSize - 1);
  EXPECT_THAT(transformed(), ElementsAre(FieldsAre(Eq(buffer), 1)));
  EXPECT_EQ(rkutils::digests::buffered(count), 0U);
}

// Memory that takes addresses and nothing else.
class Reserved {
 public:
  explicit Reserved(std::size_t size)
      : size_(size),
        memory_(
            ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
  ~Reserved() { ::munmap(memory_, size_); }
  Reserved(const Reserved&) = delete;
  Reserved& operator=(const Reserved&) = delete;

  [[nodiscard]] bool is_there() const { return memory_ != MAP_FAILED; }
  [[nodiscard]] const unsigned char* data() const {
    return static_cast<const unsigned char*>(memory_);
  }

 private:
  std::size_t size_;
  void* memory_;
};

TEST_F(Message, CountsCallsWithMoreBitsThanAWordHas) {
  constexpr unsigned long kHalfGigabyte = 1UL << 29U;
  const Reserved memory(kHalfGigabyte + 2 * kBlockSize);
  ASSERT_TRUE(memory.is_there());
  add(memory.data(), kHalfGigabyte - kBlockSize);
  EXPECT_THAT(count, ElementsAre(0U - 8 * 64, 0));
  add(memory.data(), kHalfGigabyte);
  EXPECT_THAT(count, ElementsAre(0U - 8 * 64, 1));
  add(memory.data(), kHalfGigabyte + 2 * kBlockSize);
  EXPECT_THAT(count, ElementsAre(8 * 64, 3));
  EXPECT_THAT(transformed(), ElementsAre(FieldsAre(Eq(memory.data()), (kHalfGigabyte >> 6U) - 1),
                                         FieldsAre(Eq(memory.data()), kHalfGigabyte >> 6U),
                                         FieldsAre(Eq(memory.data()), (kHalfGigabyte >> 6U) + 2)));
}

TEST(PaddingLength, LeavesEightBytesOfABlock) {
  for (std::uint32_t length = 0; length < 2 * kBlockSize; ++length) {
    const std::uint32_t count[2] = {8 * length, 7};
    const std::size_t padding = padding_length(count);
    EXPECT_EQ((length + padding) % kBlockSize, kBlockSize - 8) << length;
    EXPECT_GE(padding, 1U) << length;
    EXPECT_LE(padding, kBlockSize) << length;
  }
}

// The words of a digest are all there is, whatever is asked for.
TEST(WriteBytes, WritesTheFirstOnesInEitherOrder) {
  using rkutils::digests::store_high_first;
  using rkutils::digests::store_low_first;
  using rkutils::digests::write_bytes;
  const std::uint32_t words[2] = {0x11223344, 0x55667788};
  for (std::size_t length = 0; length <= 9; ++length) {
    unsigned char low_first[9] = {};
    unsigned char high_first[9] = {};
    write_bytes<store_low_first>(words, low_first, length);
    write_bytes<store_high_first>(words, high_first, length);
    const unsigned char low[] = {0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55, 0};
    const unsigned char high[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0};
    for (std::size_t i = 0; i < 9; ++i) {
      EXPECT_EQ(low_first[i], i < length ? low[i] : 0) << i << " of " << length;
      EXPECT_EQ(high_first[i], i < length ? high[i] : 0) << i << " of " << length;
    }
  }
}

TEST(ReturnedLength, IsAllForNothingAndForTooMany) {
  EXPECT_EQ(returned_length(0, 16), 16U);
  EXPECT_EQ(returned_length(1, 16), 1U);
  EXPECT_EQ(returned_length(16, 16), 16U);
  EXPECT_EQ(returned_length(17, 16), 16U);
}

}  // namespace
