// What the digests have in common: how a message becomes blocks, how it is counted, and how it
// ends.
#ifndef RKUTILS_DIGESTS_HASH_CONTEXT_MESSAGE_H
#define RKUTILS_DIGESTS_HASH_CONTEXT_MESSAGE_H

#include <rkutils/digests/hash_context/transforms.h>
#include <rkutils/digests/hash_context/words.h>
#include <rkutils/digests/wipe.h>
#include <rkutils/hash_context.h>

#include <cstddef>
#include <cstring>
#include <typeinfo>

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

// Writes words as bytes, each as `Store` has it. Their number is fixed because compilers make far
// too much of a loop over any.
template <void (*Store)(Word word, unsigned char* bytes), std::size_t Count>
void write_words(const Word (&words)[Count], unsigned char* out) {
  for (std::size_t i = 0; i < Count; ++i) Store(words[i], out + i * sizeof(Word));
}

// Writes the first `length` of those bytes.
template <void (*Store)(Word word, unsigned char* bytes), std::size_t Count>
void write_bytes(const Word (&words)[Count], unsigned char* out, std::size_t length) {
  if (length >= sizeof words) {
    write_words<Store>(words, out);
    return;
  }
  unsigned char bytes[sizeof words];
  write_words<Store>(words, bytes);
  std::memcpy(out, bytes, length);
  wipe(bytes);
}

// How many bytes, a one and zeros, leave 8 bytes of a block: at least one.
std::size_t padding_length(const BitCount& count);

// The calls of hash() in which a message's end comes: the padding and the message's length
// together, one behind the other, or each byte of the padding and then the length.
enum class Pieces { kOne, kTwo, kBytes };

enum class ByteOrder { kLowFirst, kHighFirst };

// Ends the message of a context, whose count this is: puts the padding behind it, and the length
// that it had before, through the context's hash().
void end_message(HashContext& context, const BitCount& count, ByteOrder order, Pieces pieces);

// The same for a context that may be one of a derived class, which is given the end in those
// pieces: programs that watch hash() know it so. Where nobody watches it comes in one, because a
// call for each byte costs more than the block.
template <typename Context>
void end_message_of(Context& context, const BitCount& count, ByteOrder order, Pieces when_derived) {
  // Compared as objects: a program that is compiled without them has none for its classes.
  const bool derived = &typeid(context) != &typeid(Context);
  end_message(context, count, order, derived ? when_derived : Pieces::kOne);
}

// The returned length for a request: all for 0 and for too many.
Word returned_length(unsigned long requested, unsigned long complete);

// The same as a result of HashContext::test(): whether the context makes this digest of "abc". It
// is initialized with its complete length afterwards.
int test_context(HashContext& context, const unsigned char* expected, std::size_t length);

}  // namespace rkutils::digests

#endif
