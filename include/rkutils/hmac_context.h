/*
 * HmacContext: authenticates messages with a secret key, by HMAC (RFC 2104) over a digest.
 *
 *     Sha1HashContext sha1;                             (the digest that does the work)
 *     HmacContext hmac(&sha1);
 *     unsigned char code[20];
 *     if (hmac.initialize(key, key_length, 0) != 0) return -1;
 *     hmac.hash(message, length);
 *     hmac.getHash(code);
 *     hmac.reset();                                     (and the next message, with the same key)
 *
 * HMAC is sound over MD5 and SHA-1 too. Two codes are best compared by a function that takes the
 * same time wherever they differ.
 *
 * The digest is a HashContext of the caller's, which the HmacContext uses and does not own: it must
 * outlive it, and nothing else may use it between initialize() or reset() and getHash(). One digest
 * can serve several HmacContexts whose messages follow each other. The block size is 64 bytes,
 * which is that of MD5 and SHA-1. A digest with another block size would give codes that are not
 * HMAC, and one whose digest is longer than 64 bytes is refused.
 *
 * Order of calls: initialize(), any number of hash(), getHash(); then reset() or initialize() for
 * another message. Out of order, nothing bad happens, but the code is not that of any message:
 * getHash() before initialize() has no key, and a second one continues what the first one left in
 * the digest.
 *
 * Lengths are in bytes. A code can be cut to its first bytes, the returned length, as RFC 2104
 * allows.
 *
 * Failures: initialize() and reset() can fail, as told there. Nothing allocates, logs or blocks, as
 * long as the digest does not; the two of hash_context.h do not. A copy has the same key and uses
 * the same digest, and with destroy() and the destructor each forgets its own key. What the digest
 * knows of a message it forgets by its own destroy().
 *
 * Threads and signals: as hash_context.h has it, for this object and its digest together.
 */
#ifndef RKUTILS_HMAC_CONTEXT_H
#define RKUTILS_HMAC_CONTEXT_H

#include <rkutils/export.h>
#include <rkutils/hash_context.h>

#include <cstdint>

/*
 * Authentication of messages with a key. Programs derive from it; its virtual members stay in this
 * order.
 */
class RK_API AuthenticationContext {
 public:
  virtual ~AuthenticationContext();

  /*
   * Takes a key of `keyLength` bytes at `key`, which may be NULL when that is 0, and starts a
   * message. `returnedLength` is the number of bytes that getHash() is to write; 0 means all. The
   * key is not needed after the call.
   *
   * Returns 0; another number when it fails.
   */
  virtual int initialize(const unsigned char* key, unsigned long keyLength,
                         unsigned long returnedLength) = 0;

  /* Forgets the key. */
  virtual void destroy() = 0;

  /* Starts another message with the same key. Returns 0; another number when it fails. */
  virtual int reset() = 0;

  /* Adds `length` bytes at `data` to the message. `data` may be NULL when `length` is 0. */
  virtual void hash(const unsigned char* data, unsigned long length) = 0;

  /*
   * Ends the message and writes its code to `out`, which must not be NULL and has room for the
   * complete length.
   */
  virtual void getHash(unsigned char* out) = 0;

  /* The number of bytes that a code has. */
  virtual unsigned long getCompleteHashLength() const = 0;

  /* The number of bytes that were asked for. */
  virtual unsigned long getReturnedHashLength() const = 0;

 protected:
  /* Copied only as a part of a class that can be. */
  AuthenticationContext() = default;
  AuthenticationContext(const AuthenticationContext&) = default;
  AuthenticationContext& operator=(const AuthenticationContext&) = default;
};

class RK_API HmacContext : public AuthenticationContext {
 public:
  /* Without a key. A NULL `hashContext` makes it what destroy() would leave. */
  explicit HmacContext(HashContext* hashContext);

  /* As destroy() of this class. The digest is not deleted. */
  ~HmacContext() override;

  HmacContext(const HmacContext&) = default;
  HmacContext& operator=(const HmacContext&) = default;

  /*
   * A key of up to 64 bytes is used as it is; a longer one is replaced by its digest. RFC 2104
   * advises keys no shorter than the digest.
   *
   * `returnedLength` is taken modulo 2^32, and stored as large as it may be; only the code itself
   * ends at its complete length.
   *
   * Returns what reset() returns. Before that, -1 after destroy() or when the digest is longer than
   * 64 bytes, with nothing changed; and for a long key what the digest's initialize() returns, when
   * that is not 0: there is no key then, neither this one nor the one before.
   */
  int initialize(const unsigned char* key, unsigned long keyLength,
                 unsigned long returnedLength) override;

  /*
   * Overwrites the key with zeros and lets go of the digest, for good. After that initialize() and
   * reset() return -1, lengths are 0, and the others do nothing.
   */
  void destroy() override;

  /* Returns 0; what the digest's initialize() returns when that is not 0; -1 after destroy(). */
  int reset() override;

  void hash(const unsigned char* data, unsigned long length) override;

  /*
   * Writes as many bytes as the returned length, and no more than the complete length; nothing when
   * the digest is one that initialize() refuses.
   */
  void getHash(unsigned char* out) override;

  /* That of the digest. */
  unsigned long getCompleteHashLength() const override;

  /*
   * As it was given to initialize(), also when it is above the complete length: size buffers by
   * that. The complete length when 0 was given, or before initialize().
   */
  unsigned long getReturnedHashLength() const override;

 private:
  HashContext* hash_context_;
  unsigned char inner_pad_[64]; /* the key, every byte XOR 0x36 */
  unsigned char outer_pad_[64]; /* the key, every byte XOR 0x5C */
  std::uint32_t returned_length_;
};

#endif
