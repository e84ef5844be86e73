// The digests of the library, for tests that hold for each of them.
#ifndef TESTS_DIGESTS_DIGEST_KIND_H
#define TESTS_DIGESTS_DIGEST_KIND_H

#include <rkutils/hash_context.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "digests/plain_digest.h"

namespace digest_test {

struct Kind {
  const char* name;
  std::unique_ptr<HashContext> (*make)();
  std::string (*plain)(const std::string& message, std::uint64_t bits_before);
  std::size_t length;
  std::vector<std::uint32_t> initial_state;
};

template <typename Context>
std::unique_ptr<HashContext> make() {
  return std::make_unique<Context>();
}

inline const Kind& md5() {
  static const Kind kind = {"Md5",
                            make<Md5HashContext>,
                            plain_digest::md5,
                            16,
                            {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476}};
  return kind;
}

inline const Kind& sha1() {
  static const Kind kind = {"Sha1",
                            make<Sha1HashContext>,
                            plain_digest::sha1,
                            20,
                            {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0}};
  return kind;
}

inline const unsigned char* bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// The context writes into a block of just that many bytes, so that a sanitizer sees one more.
template <typename Context>
std::string hex_of(Context& context, std::size_t length, void (Context::*get)(unsigned char* out)) {
  std::string digest(length, '\0');
  const std::unique_ptr<unsigned char[]> out(new unsigned char[length]);
  (context.*get)(out.get());
  for (std::size_t i = 0; i < length; ++i) digest[i] = static_cast<char>(out[i]);
  return plain_digest::to_hex(digest);
}

// The rest of a message, and the digest. The message is in a block of its own size, as above.
inline std::string finish(HashContext& context) {
  return hex_of(context, context.getReturnedHashLength(), &HashContext::getHash);
}

inline void feed(HashContext& context, const std::string& message) {
  const std::vector<unsigned char> block(message.begin(), message.end());
  context.hash(block.data(), block.size());
}

// The digest of a message in one piece.
inline std::string digest_of(const Kind& kind, const std::string& message) {
  const std::unique_ptr<HashContext> context = kind.make();
  context->initialize(0);
  feed(*context, message);
  return finish(*context);
}

// Bytes without a pattern, the same each time.
inline std::string some_bytes(std::size_t length) {
  std::minstd_rand random(1);
  std::string result(length, '\0');
  for (char& byte : result) byte = static_cast<char>(random() >> 8);
  return result;
}

// What hashing a message leaves in a block behind it: a one, zeros and the length.
inline std::string with_padding(const Kind& kind, std::string message) {
  std::string length;
  for (unsigned shift = 0; shift < 64; shift += 8) {
    length +=
        static_cast<char>(static_cast<unsigned char>(std::uint64_t{8} * message.size() >> shift));
  }
  if (kind.length == 20) length.assign(length.rbegin(), length.rend());
  message += '\x80';
  while (message.size() % 64 != 56) message += '\0';
  return message + length;
}

// ---- What is in a context ----

struct Members {
  std::vector<std::uint32_t> state;
  std::array<std::uint32_t, 2> count;
  std::array<unsigned char, 64> buffer;
  std::uint32_t returned_length;
};

// Of the object, or of the memory where it was: its bytes behind the table of virtual members.
Members members_at(const Kind& kind, const void* object);

// Makes the context have counted that many bits.
void set_count(const Kind& kind, HashContext& context, std::uint64_t bits);

}  // namespace digest_test

#endif
