#include <rkutils/digests/wipe.h>
#include <rkutils/hmac_context.h>

#include <cstddef>
#include <cstring>

using rkutils::digests::wipe;

namespace {

constexpr unsigned char kInnerByte = 0x36;
constexpr unsigned char kOuterByte = 0x5C;

}  // namespace

AuthenticationContext::~AuthenticationContext() = default;

HmacContext::HmacContext(HashContext* hashContext)
    : hash_context_(hashContext), inner_pad_(), outer_pad_(), returned_length_(0) {
  if (hash_context_ != nullptr) {
    returned_length_ = static_cast<std::uint32_t>(hash_context_->getCompleteHashLength());
  }
}

HmacContext::~HmacContext() { HmacContext::destroy(); }

int HmacContext::initialize(const unsigned char* key, unsigned long keyLength,
                            unsigned long returnedLength) {
  if (hash_context_ == nullptr) return -1;
  const unsigned long complete = hash_context_->getCompleteHashLength();
  if (complete > sizeof inner_pad_) return -1;
  returned_length_ = static_cast<std::uint32_t>(returnedLength);
  if (returned_length_ == 0) returned_length_ = static_cast<std::uint32_t>(complete);
  std::memset(inner_pad_, 0, sizeof inner_pad_);
  std::memset(outer_pad_, 0, sizeof outer_pad_);  // no half of a key, should this one fail
  if (keyLength > sizeof inner_pad_) {
    const int result = hash_context_->initialize(0);
    if (result != 0) return result;
    hash_context_->hash(key, keyLength);
    hash_context_->getHash(inner_pad_);
  } else if (keyLength > 0) {
    std::memcpy(inner_pad_, key, keyLength);
  }
  for (std::size_t i = 0; i < sizeof inner_pad_; ++i) {
    outer_pad_[i] = static_cast<unsigned char>(inner_pad_[i] ^ kOuterByte);
    inner_pad_[i] ^= kInnerByte;
  }
  return reset();
}

void HmacContext::destroy() {
  wipe(inner_pad_);
  wipe(outer_pad_);
  hash_context_ = nullptr;
  returned_length_ = 0;
}

int HmacContext::reset() {
  if (hash_context_ == nullptr) return -1;
  const int result = hash_context_->initialize(0);
  if (result == 0) hash_context_->hash(inner_pad_, sizeof inner_pad_);
  return result;
}

void HmacContext::hash(const unsigned char* data, unsigned long length) {
  if (hash_context_ != nullptr) hash_context_->hash(data, length);
}

void HmacContext::getHash(unsigned char* out) {
  if (hash_context_ == nullptr) return;
  // Zeros where the digest writes less than all, as it does when a message is finished twice.
  unsigned char inner[sizeof inner_pad_] = {};
  const unsigned long complete = hash_context_->getCompleteHashLength();
  if (complete > sizeof inner) return;  // initialize() has refused it
  hash_context_->getHash(inner);
  hash_context_->initialize(returned_length_);
  hash_context_->hash(outer_pad_, sizeof outer_pad_);
  hash_context_->hash(inner, complete);
  hash_context_->getHash(out);
  wipe(inner);
}

unsigned long HmacContext::getCompleteHashLength() const {
  return hash_context_ == nullptr ? 0 : hash_context_->getCompleteHashLength();
}

unsigned long HmacContext::getReturnedHashLength() const { return returned_length_; }
