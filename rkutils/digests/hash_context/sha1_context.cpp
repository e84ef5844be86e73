#include <rkutils/digests/hash_context/message.h>
#include <rkutils/digests/hash_context/transforms.h>
#include <rkutils/digests/hash_context/words.h>
#include <rkutils/digests/wipe.h>
#include <rkutils/hash_context.h>

#include <cstring>

using rkutils::digests::BitCount;
using rkutils::digests::store_high_first;
using rkutils::digests::Word;
using rkutils::digests::write_bytes;
using rkutils::digests::write_words;

namespace {

constexpr Word kLength = 20;
constexpr Word kInitialState[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};

void finish(Sha1HashContext& context, const BitCount& count) {
  using rkutils::digests::ByteOrder;
  using rkutils::digests::Pieces;
  rkutils::digests::end_message_of(context, count, ByteOrder::kHighFirst, Pieces::kBytes);
}

}  // namespace

Sha1HashContext::Sha1HashContext() { Sha1HashContext::destroy(); }

Sha1HashContext::~Sha1HashContext() { Sha1HashContext::destroy(); }

int Sha1HashContext::initialize(unsigned long returnedLength) {
  returned_length_ = rkutils::digests::returned_length(returnedLength, getCompleteHashLength());
  std::memcpy(state_, kInitialState, sizeof state_);
  std::memset(count_, 0, sizeof count_);
  return 0;
}

void Sha1HashContext::destroy() {
  rkutils::digests::wipe(state_);
  rkutils::digests::wipe(count_);
  rkutils::digests::wipe(buffer_);
  // A derived class's own, but in the constructor and the destructor.
  // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall)
  returned_length_ = static_cast<Word>(getCompleteHashLength());
}

void Sha1HashContext::hash(const unsigned char* data, unsigned long length) {
  rkutils::digests::add_to_message(state_, count_, buffer_, data, length,
                                   rkutils::digests::sha1_transform);
}

unsigned long Sha1HashContext::getReturnedHashLength() const { return returned_length_; }

void Sha1HashContext::getHash(unsigned char* out) {
  finish(*this, count_);
  write_bytes<store_high_first>(state_, out, returned_length_);
}

unsigned long Sha1HashContext::getCompleteHashLength() const { return kLength; }

void Sha1HashContext::getCompleteHash(unsigned char* out) {
  finish(*this, count_);
  write_words<store_high_first>(state_, out);
}

int Sha1HashContext::test() {
  static constexpr unsigned char kOfAbc[kLength] = {0xA9, 0x99, 0x3E, 0x36, 0x47, 0x06, 0x81,
                                                    0x6A, 0xBA, 0x3E, 0x25, 0x71, 0x78, 0x50,
                                                    0xC2, 0x6C, 0x9C, 0xD0, 0xD8, 0x9D};
  return rkutils::digests::test_context(*this, kOfAbc, kLength);
}
