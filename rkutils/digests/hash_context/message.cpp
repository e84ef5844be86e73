#include <rkutils/digests/hash_context/message.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace rkutils::digests {
namespace {

constexpr std::size_t kLengthSize = 8;  // of the message's length, in the last block
constexpr unsigned char kOne = 0x80;    // the bit that begins the padding

void add_bytes(BitCount& count, unsigned long length) {
  const auto low = static_cast<Word>(length << 3U);
  count[0] += low;
  if (count[0] < low) ++count[1];
  count[1] += static_cast<Word>(length >> 29U);
}

// Until there is room for the length and nothing else. Where the context's hash() never brings the
// message there, it gets no more zeros than a block has.
void pad_byte_by_byte(HashContext& context, const BitCount& count) {
  static constexpr unsigned char kBytes[] = {kOne, 0};
  context.hash(kBytes, 1);
  for (std::size_t zeros = 0; zeros < kBlockSize && count[0] % 512 != 448; ++zeros) {
    context.hash(kBytes + 1, 1);
  }
}

}  // namespace

void add_to_message(Word* state, BitCount& count, Buffer& buffer, const unsigned char* data,
                    unsigned long length, Transform* transform) {
  if (length == 0) return;  // and `data` is perhaps NULL
  const std::size_t waiting = buffered(count);
  add_bytes(count, length);
  if (waiting > 0) {
    const std::size_t fitting = std::min<std::size_t>(length, kBlockSize - waiting);
    std::memcpy(buffer + waiting, data, fitting);
    if (waiting + fitting < kBlockSize) return;
    transform(state, buffer, 1);
    data += fitting;
    length -= fitting;
  }
  if (length >= kBlockSize) transform(state, data, length / kBlockSize);
  const std::size_t rest = length % kBlockSize;
  std::memcpy(buffer, data + (length - rest), rest);
}

std::size_t padding_length(const BitCount& count) {
  const std::size_t room = kBlockSize - buffered(count);
  return (room > kLengthSize ? room : room + kBlockSize) - kLengthSize;
}

void end_message(HashContext& context, const BitCount& count, ByteOrder order, Pieces pieces) {
  const std::size_t padding = padding_length(count);
  unsigned char end[kBlockSize + kLengthSize] = {kOne};
  unsigned char* const length = end + padding;
  if (order == ByteOrder::kLowFirst) {
    store_low_first(count[0], length);
    store_low_first(count[1], length + sizeof(Word));
  } else {
    store_high_first(count[1], length);
    store_high_first(count[0], length + sizeof(Word));
  }
  if (pieces == Pieces::kOne) {
    context.hash(end, padding + kLengthSize);
    return;
  }
  if (pieces == Pieces::kTwo) {
    context.hash(end, padding);
  } else {
    pad_byte_by_byte(context, count);
  }
  context.hash(length, kLengthSize);
}

Word returned_length(unsigned long requested, unsigned long complete) {
  return static_cast<Word>(requested == 0 ? complete : std::min(requested, complete));
}

int test_context(HashContext& context, const unsigned char* expected, std::size_t length) {
  static constexpr unsigned char kMessage[] = {'a', 'b', 'c'};
  unsigned char digest[kBlockSize] = {};
  context.initialize(0);
  context.hash(kMessage, sizeof kMessage);
  const unsigned long complete = context.getCompleteHashLength();
  int result = -1;
  // A derived class that says that it has more does not have this digest.
  if (complete <= length) {
    context.getHash(digest);
    if (std::memcmp(digest, expected, complete) == 0) result = 0;
  }
  context.initialize(0);
  return result;
}

}  // namespace rkutils::digests
