/*
 * HashContext: message digests, computed from a message that comes in pieces.
 *
 *     Sha1HashContext sha1;
 *     unsigned char digest[20];
 *     sha1.initialize(0);                              (0: a digest of full length)
 *     while ((n = read(fd, buffer, sizeof buffer)) > 0) sha1.hash(buffer, n);
 *     sha1.getHash(digest);
 *
 * Md5HashContext is MD5 (RFC 1321) and Sha1HashContext SHA-1 (FIPS 180-1). Both have been broken:
 * who chooses a message can find another one with the same digest. They are for the protocols and
 * files that have them, and as HMAC (hmac_context.h); for something new, take another digest.
 *
 * Order of calls: initialize(), any number of hash(), then one of getHash() and getCompleteHash().
 * The next message begins with initialize() again. A context that has just been constructed is
 * wiped and not initialized. Out of order, nothing bad happens, but the digest is not that of any
 * message:
 *   - hash() or getHash() before initialize() work on a state of zeros;
 *   - after getHash() or getCompleteHash() the padding belongs to the message, so that finishing a
 *     second time pads again, and hash() goes on behind it.
 *
 * Lengths. A digest can be cut to its first bytes, by initialize(): that many are the returned
 * length, and the digest's own number of bytes is the complete length. Lengths are in bytes
 * everywhere.
 *
 * Where a virtual member does its work through others, it calls them as a derived class has them:
 * what is hashed, padding included, comes through hash(), and lengths come from
 * getCompleteHashLength(). The constructors and destructors alone keep to their own class.
 *
 * Failures: there are none. Nothing allocates, logs, throws or blocks; all state is in the object,
 * which can be copied in the middle of a message, to go on in two ways. destroy() and the
 * destructor leave nothing of the message in it.
 *
 * Threads and signals: nothing is locked; a context is for one thread at a time, and two contexts
 * know nothing of each other. A signal handler may use a context of its own.
 */
#ifndef RKUTILS_HASH_CONTEXT_H
#define RKUTILS_HASH_CONTEXT_H

#include <rkutils/export.h>

#include <cstdint>

/* A digest of any kind. Programs derive from it; its virtual members stay in this order. */
class RK_API HashContext {
 public:
  virtual ~HashContext();

  /*
   * Starts a message, whatever was before. `returnedLength` is the number of bytes that getHash()
   * is to write; 0, and a number above the complete length, mean all.
   *
   * Returns 0. A derived class may fail with another number.
   */
  virtual int initialize(unsigned long returnedLength) = 0;

  /*
   * Overwrites all that is known of the message with zeros, and makes the returned length the
   * complete one. The next message begins with initialize().
   */
  virtual void destroy() = 0;

  /*
   * Adds `length` bytes at `data` to the message. `data` is at any alignment, and may be NULL when
   * `length` is 0. Messages may be longer than memory; their length counts modulo 2^64 bits, as in
   * the standards.
   */
  virtual void hash(const unsigned char* data, unsigned long length) = 0;

  /* The number of bytes that getHash() writes. */
  virtual unsigned long getReturnedHashLength() const = 0;

  /*
   * Ends the message and writes the first bytes of its digest, as many as the returned length, to
   * `out`, which must not be NULL.
   */
  virtual void getHash(unsigned char* out) = 0;

  /* The number of bytes that the digest has: 16 for MD5, 20 for SHA-1. */
  virtual unsigned long getCompleteHashLength() const = 0;

  /* Ends the message and writes its whole digest to `out`, which must not be NULL. */
  virtual void getCompleteHash(unsigned char* out) = 0;

  /*
   * Computes the digest of "abc" and compares it with the one in the standard. A message that was
   * begun is lost; the context is initialized afterwards, with the complete length.
   *
   * Returns 0 when they are equal; -1 when not, which only a derived class or a fault of the
   * machine can bring about.
   */
  virtual int test() = 0;

 protected:
  /* Copied only as a part of a class that can be. */
  HashContext() = default;
  HashContext(const HashContext&) = default;
  HashContext& operator=(const HashContext&) = default;
};

/* MD5 (RFC 1321). The members do what HashContext says of them. */
class RK_API Md5HashContext : public HashContext {
 public:
  /* Wiped and not initialized. */
  Md5HashContext();

  /* Wipes it, as destroy() of this class. */
  ~Md5HashContext() override;

  Md5HashContext(const Md5HashContext&) = default;
  Md5HashContext& operator=(const Md5HashContext&) = default;

  int initialize(unsigned long returnedLength) override;
  void destroy() override;
  void hash(const unsigned char* data, unsigned long length) override;
  unsigned long getReturnedHashLength() const override;
  /* A derived class's hash() is called for the padding, and for the 8 bytes of the length. */
  void getHash(unsigned char* out) override;
  unsigned long getCompleteHashLength() const override;
  void getCompleteHash(unsigned char* out) override;
  int test() override;

 private:
  std::uint32_t state_[4];
  std::uint32_t count_[2];   /* the message's length in bits, low word first */
  unsigned char buffer_[64]; /* the bytes behind the last whole block */
  std::uint32_t returned_length_;
};

/* SHA-1 (FIPS 180-1). The members do what HashContext says of them. */
class RK_API Sha1HashContext : public HashContext {
 public:
  /* Wiped and not initialized. */
  Sha1HashContext();

  /* Wipes it, as destroy() of this class. */
  ~Sha1HashContext() override;

  Sha1HashContext(const Sha1HashContext&) = default;
  Sha1HashContext& operator=(const Sha1HashContext&) = default;

  int initialize(unsigned long returnedLength) override;
  void destroy() override;
  void hash(const unsigned char* data, unsigned long length) override;
  unsigned long getReturnedHashLength() const override;
  /*
   * In a derived class the padding comes byte by byte: hash() is called for the byte 0x80, for each
   * zero, and once for the 8 bytes of the message's length. Programs that watch hash() know it so.
   */
  void getHash(unsigned char* out) override;
  unsigned long getCompleteHashLength() const override;
  void getCompleteHash(unsigned char* out) override;
  int test() override;

 private:
  std::uint32_t state_[5];
  std::uint32_t count_[2];   /* the message's length in bits, low word first */
  unsigned char buffer_[64]; /* the bytes behind the last whole block */
  std::uint32_t returned_length_;
};

#endif
