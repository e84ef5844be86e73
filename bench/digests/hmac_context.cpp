// HMAC of short messages, each with its key: two thirds of the work are the key's and the
// padding's.

#include <rkutils/hash_context.h>
#include <rkutils/hmac_context.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <mbedtls/md.h>
#include <nettle/hmac.h>

#include "digests/message.h"
#include "digests/rows.h"
#include "support/comparison.h"

namespace bench::digests {
namespace {

using benchmark::State;

constexpr std::size_t kKeyLength = 20;
constexpr std::size_t kMessageLength = 64;

using Code = std::array<unsigned char, 20>;  // MD5's has 16 of them

// What a library keeps from message to message, and how it authenticates one.
template <typename Digest>
class Ours {
 public:
  void operator()(const unsigned char* key, const unsigned char* message, unsigned char* code) {
    hmac_.initialize(key, kKeyLength, 0);
    hmac_.hash(message, kMessageLength);
    hmac_.getHash(code);
  }

 private:
  Digest digest_;
  HmacContext hmac_{&digest_};
};

class NettleMd5 {
 public:
  void operator()(const unsigned char* key, const unsigned char* message, unsigned char* code) {
    hmac_md5_set_key(&context_, kKeyLength, key);
    hmac_md5_update(&context_, kMessageLength, message);
    hmac_md5_digest(&context_, MD5_DIGEST_SIZE, code);
  }

 private:
  hmac_md5_ctx context_;
};

template <mbedtls_md_type_t Type>
class MbedTls {
 public:
  MbedTls() {
    mbedtls_md_init(&context_);
    mbedtls_md_setup(&context_, mbedtls_md_info_from_type(Type), 1);
  }
  ~MbedTls() { mbedtls_md_free(&context_); }
  MbedTls(const MbedTls&) = delete;
  MbedTls& operator=(const MbedTls&) = delete;

  void operator()(const unsigned char* key, const unsigned char* message, unsigned char* code) {
    mbedtls_md_hmac_starts(&context_, key, kKeyLength);
    mbedtls_md_hmac_update(&context_, message, kMessageLength);
    mbedtls_md_hmac_finish(&context_, code);
  }

 private:
  mbedtls_md_context_t context_;
};

template <typename Hmac>
Code code_of_message() {
  const std::vector<unsigned char> key = make_message(kKeyLength);
  const std::vector<unsigned char> message = make_message(kMessageLength);
  Code code = {};
  Hmac hmac;
  hmac(key.data(), message.data(), code.data());
  return code;
}

template <typename Hmac>
Body repeat(const Code& expected) {
  return [expected](State& state) {
    const std::vector<unsigned char> key = make_message(kKeyLength);
    const std::vector<unsigned char> message = make_message(kMessageLength);
    Hmac hmac;
    Code code = {};
    for (auto _ : state) {
      hmac(key.data(), message.data(), code.data());
      if (code != expected) state.SkipWithError("another code");
    }
  };
}

}  // namespace

void add_hmac_context_rows() {
  using MbedTlsMd5 = MbedTls<MBEDTLS_MD_MD5>;
  using MbedTlsSha1 = MbedTls<MBEDTLS_MD_SHA1>;
  const Code md5 = code_of_message<NettleMd5>();
  compare(
      "HMAC-MD5 of 64 B, keyed each time", repeat<Ours<Md5HashContext>>(md5),
      {peer("nettle", 1.0, repeat<NettleMd5>(md5)), peer("mbedTLS", 1.0, repeat<MbedTlsMd5>(md5))});
  const Code sha1 = code_of_message<MbedTlsSha1>();
  compare("HMAC-SHA-1 of 64 B, keyed each time", repeat<Ours<Sha1HashContext>>(sha1),
          {peer("mbedTLS", 1.0, repeat<MbedTlsSha1>(sha1))});
}

}  // namespace bench::digests
