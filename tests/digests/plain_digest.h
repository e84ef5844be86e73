// The digests once more, as their standards describe them and with no other aim: what the library's
// are held against. A digest is returned as hexadecimal digits.
#ifndef TESTS_DIGESTS_PLAIN_DIGEST_H
#define TESTS_DIGESTS_PLAIN_DIGEST_H

#include <cstdint>
#include <string>

namespace plain_digest {

// As if `bits_before` bits had been counted already that had no effect on the state.
std::string md5(const std::string& message, std::uint64_t bits_before = 0);
std::string sha1(const std::string& message, std::uint64_t bits_before = 0);

// RFC 2104, over one of them.
std::string hmac(std::string (*digest)(const std::string& message, std::uint64_t bits_before),
                 const std::string& key, const std::string& message);

// Bytes as hexadecimal digits, and back.
std::string to_hex(const std::string& bytes);
std::string from_hex(const std::string& digits);

}  // namespace plain_digest

#endif
