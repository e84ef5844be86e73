#include <rkutils/digests/hash_context/message.h>
#include <rkutils/digests/hash_context/transforms.h>
#include <rkutils/digests/hash_context/words.h>
#include <rkutils/digests/wipe.h>
#include <rkutils/hash_context.h>

#include <cstring>

using rkutils::digests::BitCount;
using rkutils::digests::store_low_first;
using rkutils::digests::Word;
using rkutils::digests::write_bytes;
using rkutils::digests::write_words;

namespace {

constexpr Word kLength = 16;
constexpr Word kInitialState[4] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};

void finish(Md5HashContext& context, const BitCount& count) {
  using rkutils::digests::ByteOrder;
  using rkutils::digests::Pieces;
  rkutils::digests::end_message_of(context, count, ByteOrder::kLowFirst, Pieces::kTwo);
}

}  // namespace

Md5HashContext::Md5HashContext() { Md5HashContext::destroy(); }

Md5HashContext::~Md5HashContext() { Md5HashContext::destroy(); }

int Md5HashContext::initialize(unsigned long returnedLength) {
  returned_length_ = rkutils::digests::returned_length(returnedLength, getCompleteHashLength());
  std::memcpy(state_, kInitialState, sizeof state_);
  std::memset(count_, 0, sizeof count_);
  return 0;
}

void Md5HashContext::destroy() {
  rkutils::digests::wipe(state_);
  rkutils::digests::wipe(count_);
  rkutils::digests::wipe(buffer_);
  // A derived class's own, but in the constructor and the destructor.
  // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall)
  returned_length_ = static_cast<Word>(getCompleteHashLength());
}

void Md5HashContext::hash(const unsigned char* data, unsigned long length) {
  rkutils::digests::add_to_message(state_, count_, buffer_, data, length,
                                   rkutils::digests::md5_transform);
}

unsigned long Md5HashContext::getReturnedHashLength() const { return returned_length_; }

void Md5HashContext::getHash(unsigned char* out) {
  finish(*this, count_);
  write_bytes<store_low_first>(state_, out, returned_length_);
}

unsigned long Md5HashContext::getCompleteHashLength() const { return kLength; }

void Md5HashContext::getCompleteHash(unsigned char* out) {
  finish(*this, count_);
  write_words<store_low_first>(state_, out);
}

int Md5HashContext::test() {
  static constexpr unsigned char kOfAbc[kLength] = {0x90, 0x01, 0x50, 0x98, 0x3C, 0xD2, 0x4F, 0xB0,
                                                    0xD6, 0x96, 0x3F, 0x7D, 0x28, 0xE1, 0x7F, 0x72};
  return rkutils::digests::test_context(*this, kOfAbc, kLength);
}
