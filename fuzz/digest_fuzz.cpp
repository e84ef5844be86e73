// Digests of messages that come in pieces, beside plain ones of the whole message.

#include <rkutils/hash_context.h>
#include <rkutils/hmac_context.h>

#include <cstdint>
#include <string>
#include <vector>

#include "digests/plain_digest.h"
#include "target.h"

namespace {

using fuzz::expect_equal;

// In memory of just their size.
using Bytes = std::vector<unsigned char>;

Bytes bytes_of(const std::string& text) { return {text.begin(), text.end()}; }

std::string hex_of(const Bytes& bytes) {
  return plain_digest::to_hex(std::string(bytes.begin(), bytes.end()));
}

void check_pieces(HashContext& context, const std::vector<Bytes>& pieces,
                  const std::string& expected) {
  context.initialize(0);
  for (const Bytes& piece : pieces) context.hash(piece.data(), piece.size());
  Bytes digest(context.getReturnedHashLength());
  context.getHash(digest.data());
  expect_equal(hex_of(digest), expected, "the digest");
}

void check_hmac(HashContext& context, const std::string& key, const std::vector<Bytes>& pieces,
                const std::string& expected) {
  HmacContext hmac(&context);
  const Bytes key_bytes = bytes_of(key);
  expect_equal(hmac.initialize(key_bytes.data(), key_bytes.size(), 0), 0, "taking the key");
  for (const Bytes& piece : pieces) hmac.hash(piece.data(), piece.size());
  Bytes digest(context.getReturnedHashLength());
  hmac.getHash(digest.data());
  expect_equal(hex_of(digest), expected, "the HMAC");
}

}  // namespace

// Which digest, and whether with a key; a key, and pieces of a message, each with its length.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Md5HashContext md5;
  Sha1HashContext sha1;
  const bool is_md5 = input.flag();
  HashContext& context = is_md5 ? static_cast<HashContext&>(md5) : sha1;
  const auto plain = is_md5 ? plain_digest::md5 : plain_digest::sha1;
  const bool has_key = input.flag();
  const std::string key = input.some_bytes();
  std::vector<Bytes> pieces;
  std::string message;
  while (!input.empty()) {
    const std::string piece = input.some_bytes();
    pieces.push_back(bytes_of(piece));
    message += piece;
  }
  if (has_key) {
    check_hmac(context, key, pieces, plain_digest::hmac(plain, key, message));
  } else {
    check_pieces(context, pieces, plain(message, 0));
  }
  return 0;
}
