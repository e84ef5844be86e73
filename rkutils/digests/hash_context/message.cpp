#include <rkutils/digests/hash_context/message.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace rkutils::digests {
namespace {

constexpr std::size_t kLengthSize = 8;  // of the message's length, in the last block

void add_bytes(BitCount& count, unsigned long length) {
  const auto low = static_cast<Word>(length << 3U);
  count[0] += low;
  if (count[0] < low) ++count[1];
  count[1] += static_cast<Word>(length >> 29U);
}

// Until there is room for the length and nothing else. Where the context's hash() never brings the
// message there, it gets no more zeros than a block has.
void pad_byte_by_byte(HashContext& context, const BitCount& count) {
  context.hash(kPadding, 1);
  for (std::size_t zeros = 0; zeros < kBlockSize && count[0] % 512 != 448; ++zeros) {
    context.hash(kPadding + 1, 1);
  }
}

}  // namespace

const unsigned char kPadding[kBlockSize] = {0x80};

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
  transform(state, data, length / kBlockSize);
  const std::size_t rest = length % kBlockSize;
  std::memcpy(buffer, data + (length - rest), rest);
}

void write_bytes(const Word* words, ByteOrder order, unsigned char* out, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    const std::size_t byte = i % 4 ^ static_cast<unsigned>(order);
    out[i] = static_cast<unsigned char>(words[i / 4] >> 8 * byte);
  }
}

std::size_t padding_length(const BitCount& count) {
  const std::size_t room = kBlockSize - buffered(count);
  return (room > kLengthSize ? room : room + kBlockSize) - kLengthSize;
}

void end_message(HashContext& context, const BitCount& count, ByteOrder order, Padding padding) {
  const bool low_first = order == ByteOrder::kLowFirst;
  const Word length[2] = {count[low_first ? 0 : 1], count[low_first ? 1 : 0]};
  unsigned char bytes[kLengthSize];
  write_bytes(length, order, bytes, sizeof bytes);
  if (padding == Padding::kAtOnce) {
    context.hash(kPadding, padding_length(count));
  } else {
    pad_byte_by_byte(context, count);
  }
  context.hash(bytes, sizeof bytes);
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
