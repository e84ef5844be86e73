// MD5 beside OpenSSL's assembly. SHA-1 beside mbedTLS's C: OpenSSL and nettle use the instructions
// that some processors have for it, and the router's does not.

#include <rkutils/hash_context.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <mbedtls/sha1.h>
#include <openssl/md5.h>

#include "digests/message.h"
#include "digests/rows.h"
#include "support/comparison.h"

namespace bench::digests {
namespace {

using benchmark::State;
using Message = std::vector<unsigned char>;

template <std::size_t Length>
using Digest = std::array<unsigned char, Length>;

template <typename Context, std::size_t Length>
Digest<Length> ours(const Message& message) {
  Context context;
  Digest<Length> digest;
  context.initialize(0);
  context.hash(message.data(), message.size());
  context.getHash(digest.data());
  return digest;
}

Digest<16> openssl_md5(const Message& message) {
  Digest<16> digest;
  MD5(message.data(), message.size(), digest.data());
  return digest;
}

Digest<20> mbedtls_sha1(const Message& message) {
  Digest<20> digest;
  mbedtls_sha1_ret(message.data(), message.size(), digest.data());
  return digest;
}

template <std::size_t Length>
Body repeat(Digest<Length> (*digest)(const Message& message), std::size_t message_length,
            const Digest<Length>& expected) {
  return [=](State& state) {
    const Message message = make_message(message_length);
    for (auto _ : state) {
      if (digest(message) != expected) state.SkipWithError("another digest");
    }
  };
}

template <std::size_t Length>
void add(const std::string& work, std::size_t message_length,
         Digest<Length> (*ours)(const Message& message), const std::string& peer_name, double goal,
         Digest<Length> (*theirs)(const Message& message)) {
  const Digest<Length> expected = theirs(make_message(message_length));
  compare(work, repeat(ours, message_length, expected),
          {peer(peer_name, goal, repeat(theirs, message_length, expected))});
}

}  // namespace

void add_hash_context_rows() {
  constexpr std::size_t kMebibyte = std::size_t{1} << 20U;
  add("MD5 of 64 B", 64, ours<Md5HashContext, 16>, "OpenSSL", 1.15, openssl_md5);
  add("MD5 of 1 MiB", kMebibyte, ours<Md5HashContext, 16>, "OpenSSL", 1.1, openssl_md5);
  add("SHA-1 of 64 B", 64, ours<Sha1HashContext, 20>, "mbedTLS", 1.0, mbedtls_sha1);
  add("SHA-1 of 1 MiB", kMebibyte, ours<Sha1HashContext, 20>, "mbedTLS", 1.0, mbedtls_sha1);
}

}  // namespace bench::digests
