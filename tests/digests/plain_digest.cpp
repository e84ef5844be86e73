#include "digests/plain_digest.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

namespace plain_digest {
namespace {

using Word = std::uint32_t;

constexpr std::size_t kBlockSize = 64;

Word rotated(Word word, unsigned count) {
  return static_cast<Word>((std::uint64_t{word} << count | std::uint64_t{word} << count >> 32));
}

Word byte_at(const std::string& bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes[at]);
}

// The eight bytes of a number, the lowest first.
std::string bytes_of(std::uint64_t number) {
  std::string bytes;
  for (unsigned shift = 0; shift < 64; shift += 8) {
    bytes += static_cast<char>(static_cast<unsigned char>(number >> shift));
  }
  return bytes;
}

std::string reversed(const std::string& bytes) { return {bytes.rbegin(), bytes.rend()}; }

// The message, a one and as many zeros as leave room in a block for its length.
std::string padded(std::string message) {
  message += '\x80';
  while (message.size() % kBlockSize != kBlockSize - 8) message += '\0';
  return message;
}

// RFC 1321, section 3.4. Each step leaves the registers turned by one place.
void add_md5_block(std::array<Word, 4>& state, const std::string& text, std::size_t block) {
  constexpr unsigned kTurns[4][4] = {
      {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  auto [a, b, c, d] = state;
  for (unsigned i = 0; i < 64; ++i) {
    Word mixed = 0;
    unsigned word = 0;
    switch (i / 16) {
      case 0:
        mixed = (b & c) | (~b & d);
        word = i;
        break;
      case 1:
        mixed = (b & d) | (c & ~d);
        word = 5 * i + 1;
        break;
      case 2:
        mixed = b ^ c ^ d;
        word = 3 * i + 5;
        break;
      default:
        mixed = c ^ (b | ~d);
        word = 7 * i;
        break;
    }
    const std::size_t at = block + 4 * (word % 16UL);
    const Word input = byte_at(text, at) + 0x100 * byte_at(text, at + 1) +
                       0x10000 * byte_at(text, at + 2) + 0x1000000 * byte_at(text, at + 3);
    const auto sine = static_cast<Word>(std::floor(4294967296.0 * std::fabs(std::sin(i + 1.0))));
    const Word next = b + rotated(a + mixed + input + sine, kTurns[i / 16][i % 4]);
    a = d;
    d = c;
    c = b;
    b = next;
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

// FIPS 180-1, section 7.
void add_sha1_block(std::array<Word, 5>& state, const std::string& text, std::size_t block) {
  std::array<Word, 80> schedule;
  for (std::size_t t = 0; t < schedule.size(); ++t) {
    const std::size_t at = block + 4 * t;
    schedule[t] =
        t < 16
            ? 0x1000000 * byte_at(text, at) + 0x10000 * byte_at(text, at + 1) +
                  0x100 * byte_at(text, at + 2) + byte_at(text, at + 3)
            : rotated(schedule[t - 3] ^ schedule[t - 8] ^ schedule[t - 14] ^ schedule[t - 16], 1);
  }
  auto [a, b, c, d, e] = state;
  for (std::size_t t = 0; t < schedule.size(); ++t) {
    Word mixed = b ^ c ^ d;
    if (t < 20) mixed = (b & c) | (~b & d);
    if (t >= 40 && t < 60) mixed = (b & c) | (b & d) | (c & d);
    constexpr Word kConstants[] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};
    const Word next = rotated(a, 5) + mixed + e + schedule[t] + kConstants[t / 20];
    e = d;
    d = c;
    c = rotated(b, 30);
    b = a;
    a = next;
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
  state[4] += e;
}

}  // namespace

std::string to_hex(const std::string& bytes) {
  std::string digits;
  for (const char byte : bytes) {
    digits += "0123456789abcdef"[static_cast<unsigned char>(byte) / 16];
    digits += "0123456789abcdef"[static_cast<unsigned char>(byte) % 16];
  }
  return digits;
}

std::string from_hex(const std::string& digits) {
  std::string bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
  }
  return bytes;
}

std::string md5(const std::string& message, std::uint64_t bits_before) {
  const std::string text = padded(message) + bytes_of(bits_before + 8 * message.size());
  std::array<Word, 4> state = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
  for (std::size_t block = 0; block < text.size(); block += kBlockSize) {
    add_md5_block(state, text, block);
  }
  std::string digest;
  for (const Word word : state) digest += bytes_of(word).substr(0, 4);
  return to_hex(digest);
}

std::string sha1(const std::string& message, std::uint64_t bits_before) {
  const std::string text = padded(message) + reversed(bytes_of(bits_before + 8 * message.size()));
  std::array<Word, 5> state = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
  for (std::size_t block = 0; block < text.size(); block += kBlockSize) {
    add_sha1_block(state, text, block);
  }
  std::string digest;
  for (const Word word : state) digest += reversed(bytes_of(word).substr(0, 4));
  return to_hex(digest);
}

std::string hmac(std::string (*digest)(const std::string& message, std::uint64_t bits_before),
                 const std::string& key, const std::string& message) {
  std::string block = key.size() > kBlockSize ? from_hex(digest(key, 0)) : key;
  block.resize(kBlockSize, '\0');
  const auto masked = [&block](unsigned mask) {
    std::string pad;
    for (const char byte : block) pad += static_cast<char>(static_cast<unsigned char>(byte) ^ mask);
    return pad;
  };
  return digest(masked(0x5C) + from_hex(digest(masked(0x36) + message, 0)), 0);
}

}  // namespace plain_digest
