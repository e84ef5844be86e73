// Socket addresses for tests, each in just the bytes that it needs and at an odd address.
#ifndef TESTS_NETWORK_ADDRESS_RECORD_H
#define TESTS_NETWORK_ADDRESS_RECORD_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

// Where a record has its parts.
constexpr std::size_t kFamilySize = 2;
constexpr std::size_t kIpv4Offset = 4;
constexpr std::size_t kIpv4End = 8;
constexpr std::size_t kIpv6Offset = 8;
constexpr std::size_t kIpv6End = 24;

// Bytes that nobody wrote.
constexpr unsigned char kUntouched = 0xA5;

// A sanitizer sees any byte that is read or written behind the `size` ones.
class Record {
 public:
  explicit Record(std::size_t size) : size_(size), block_(new unsigned char[size + 1]) {
    std::memset(bytes(), kUntouched, size);
  }

  Record(int family, std::size_t size) : Record(size) {
    const auto value = static_cast<sa_family_t>(family);
    std::memcpy(bytes(), &value, sizeof value);
  }

  Record(const Record& other) : Record(other.size_) { std::memcpy(bytes(), other.bytes(), size_); }
  Record& operator=(const Record&) = delete;
  ~Record() = default;

  // A record's pointer is as those of programs are: it does not tell that it points to bytes.
  operator sockaddr*() { return reinterpret_cast<sockaddr*>(bytes()); }
  operator const sockaddr*() const { return reinterpret_cast<const sockaddr*>(bytes()); }

  [[nodiscard]] unsigned char* bytes() { return block_.get() + 1; }
  [[nodiscard]] const unsigned char* bytes() const { return block_.get() + 1; }
  [[nodiscard]] std::size_t size() const { return size_; }

  // All of it, to be compared.
  [[nodiscard]] std::string contents() const {
    return {reinterpret_cast<const char*>(bytes()), size_};
  }
  // The address in an IPv4 record, in host order.
  [[nodiscard]] std::uint32_t number() const {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes() + kIpv4Offset, sizeof number);
    return ntohl(number);
  }
  [[nodiscard]] int family() const {
    sa_family_t family = 0;
    std::memcpy(&family, bytes(), sizeof family);
    return family;
  }

 private:
  std::size_t size_;
  std::unique_ptr<unsigned char[]> block_;
};

// Records as the C library reads their texts. A text that it refuses is a mistake in a test.
inline Record ipv4(const std::string& text, std::size_t size = kIpv4End) {
  Record record(AF_INET, size);
  if (inet_pton(AF_INET, text.c_str(), record.bytes() + kIpv4Offset) != 1) std::abort();
  return record;
}

inline Record ipv6(const std::string& text, std::size_t size = kIpv6End) {
  Record record(AF_INET6, kIpv6End > size ? kIpv6End : size);
  if (inet_pton(AF_INET6, text.c_str(), record.bytes() + kIpv6Offset) != 1) std::abort();
  Record cut(size);
  std::memcpy(cut.bytes(), record.bytes(), size);
  return cut;
}

// A number as its bits, the most significant one first; and back.
inline std::string bits_of(std::uint32_t number) {
  std::string bits;
  for (int bit = 31; bit >= 0; --bit) {
    bits += (number >> static_cast<unsigned>(bit) & 1U) != 0 ? '1' : '0';
  }
  return bits;
}

inline std::uint32_t number_of(const std::string& bits) {
  std::uint32_t number = 0;
  for (const char bit : bits) number = number * 2 + (bit == '1' ? 1 : 0);
  return number;
}

// Records whose addresses are these bits, 32 or 128 of them.
inline Record record_of_bits(const std::string& bits) {
  const bool v4 = bits.size() == 32;
  Record record(v4 ? AF_INET : AF_INET6, v4 ? kIpv4End : kIpv6End);
  unsigned char* const address = record.bytes() + (v4 ? kIpv4Offset : kIpv6Offset);
  for (std::size_t byte = 0; byte < bits.size() / 8; ++byte) {
    address[byte] = static_cast<unsigned char>(number_of(bits.substr(byte * 8, 8)));
  }
  return record;
}

inline std::string mask_bits(std::size_t ones, std::size_t size) {
  return std::string(ones, '1') + std::string(size - ones, '0');
}

// Calls `visit` with every record of `size` bits, 32 or 128, that is a mask with one hole: ones,
// zeros, ones, zeros, where the first and the last may be missing. Until a test fails.
template <typename Visit>
void for_each_mask_with_one_hole(std::size_t size, Visit visit) {
  const std::size_t offset = size == 32 ? kIpv4Offset : kIpv6Offset;
  for (std::size_t hole = 0; hole < size; ++hole) {
    for (std::size_t end = hole + 1; end < size; ++end) {
      Record mask = record_of_bits(mask_bits(hole, size));
      for (std::size_t bit = end; bit < size; ++bit) {
        unsigned char& byte = mask.bytes()[offset + bit / 8];
        byte = static_cast<unsigned char>(byte | 0x80U >> bit % 8);
        if (!testing::Test::HasFailure()) visit(static_cast<const Record&>(mask));
      }
    }
  }
}

#endif
