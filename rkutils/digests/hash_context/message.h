// What the digests have in common: how a message becomes blocks, how it is counted, and how it
// ends.
#ifndef RKUTILS_DIGESTS_HASH_CONTEXT_MESSAGE_H
#define RKUTILS_DIGESTS_HASH_CONTEXT_MESSAGE_H

#include <rkutils/digests/hash_context/transforms.h>
#include <rkutils/digests/hash_context/words.h>
#include <rkutils/hash_context.h>

#include <cstddef>

namespace rkutils::digests {

// The length of a message in bits, low word first.
using BitCount = Word[2];

// The bytes behind the message's last whole block.
using Buffer = unsigned char[kBlockSize];

// How many bytes wait in the buffer: less than a block.
inline std::size_t buffered(const BitCount& count) { return count[0] / 8 % kBlockSize; }

// Adds bytes to a message: counts them, and hands whole blocks to the transform, straight from
// `data` unless a part of the block waits in the buffer.
void add_to_message(Word* state, BitCount& count, Buffer& buffer, const unsigned char* data,
                    unsigned long length, Transform* transform);

// How a digest writes words as bytes: the number is that of the byte that comes first.
enum class ByteOrder : unsigned { kLowFirst = 0, kHighFirst = 3 };

// Writes the first `length` bytes of the words.
void write_bytes(const Word* words, ByteOrder order, unsigned char* out, std::size_t length);

// A byte 0x80 and zeros.
extern const unsigned char kPadding[kBlockSize];

// How many bytes of kPadding leave 8 bytes of a block: at least one.
std::size_t padding_length(const BitCount& count);

enum class Padding { kAtOnce, kByteByByte };

// Ends the message of a context, whose count this is: pads it through the context's hash(), and
// puts the length behind it that it had before.
void end_message(HashContext& context, const BitCount& count, ByteOrder order, Padding padding);

// The returned length for a request: all for 0 and for too many.
Word returned_length(unsigned long requested, unsigned long complete);

// The same as a result of HashContext::test(): whether the context makes this digest of "abc". It
// is initialized with its complete length afterwards.
int test_context(HashContext& context, const unsigned char* expected, std::size_t length);

}  // namespace rkutils::digests

#endif
