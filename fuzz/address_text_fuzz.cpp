// Addresses as texts: what is read and written must be what inet_pton() and inet_ntop() make of it.

#include <rkutils/address.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "target.h"

namespace {

using fuzz::Input;
using fuzz::Text;

// Bytes that nobody has written.
constexpr char kUntouched = '\x5A';

sockaddr* record_in(sockaddr_in6& storage) { return reinterpret_cast<sockaddr*>(&storage); }

sockaddr_in6 untouched_record() {
  sockaddr_in6 storage;
  std::memset(&storage, kUntouched, sizeof storage);
  return storage;
}

std::string bytes_of(const sockaddr_in6& storage) {
  return {reinterpret_cast<const char*>(&storage), sizeof storage};
}

// What a reader of one family has to make of a text in an untouched record.
sockaddr_in6 expected_record(int family, const char* text, int& result) {
  sockaddr_in6 storage = untouched_record();
  std::array<char, sizeof(in6_addr)> address;
  result = inet_pton(family, text, address.data()) == 1 ? 0 : -1;
  const auto value = static_cast<sa_family_t>(family);
  auto* const bytes = reinterpret_cast<char*>(&storage);
  std::memcpy(bytes, &value, sizeof value);
  if (result == 0) {
    const bool v4 = family == AF_INET;
    std::memcpy(bytes + (v4 ? offsetof(sockaddr_in, sin_addr) : offsetof(sockaddr_in6, sin6_addr)),
                address.data(), v4 ? sizeof(in_addr) : sizeof(in6_addr));
  }
  return storage;
}

using Reader = int (*)(const char*, sockaddr*);

// Reads a text; one that is an address must come back as the C library writes it, and that text must be
// read as the same record.
void check_reader(Reader read, int family, const Text& text) {
  int expected_result = 0;
  const sockaddr_in6 expected = expected_record(family, text.c_str(), expected_result);
  sockaddr_in6 record = untouched_record();
  fuzz::expect_equal(read(text.c_str(), record_in(record)), expected_result, "the result");
  fuzz::expect_equal(bytes_of(record), bytes_of(expected), "the record");
  if (expected_result != 0) return;

  std::array<char, ADDRESS_TEXT_SIZE> written;
  fuzz::expect(addr2str(written.data(), record_in(record)) == written.data(), "its own buffer");
  std::array<char, INET6_ADDRSTRLEN> by_others;
  const void* const address =
      family == AF_INET ? static_cast<const void*>(&reinterpret_cast<sockaddr_in&>(record).sin_addr)
                        : &record.sin6_addr;
  inet_ntop(family, address, by_others.data(), by_others.size());
  fuzz::expect_equal(std::string(written.data()), std::string(by_others.data()), "the text");
  sockaddr_in6 again = untouched_record();
  fuzz::expect_equal(str2addr(written.data(), record_in(again)), 0, "reading it again");
  fuzz::expect_equal(bytes_of(again), bytes_of(record), "the record read again");
  fuzz::expect_equal(addr_differs(record_in(again), record_in(record)), 0, "the difference");
}

// The address of a record as bits.
std::string bits_of(const sockaddr_in6& record, int family) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&record);
  const std::size_t offset = family == AF_INET ? 4 : 8;
  std::string bits;
  for (std::size_t bit = 0; bit < (family == AF_INET ? 32U : 128U); ++bit) {
    bits += (bytes[offset + bit / 8] >> (7 - bit % 8) & 1) != 0 ? '1' : '0';
  }
  return bits;
}

// The length of the mask's prefix; -1 for bits that are no mask.
int prefix_of(const std::string& bits) {
  const std::size_t ones = std::min(bits.find('0'), bits.size());
  return bits.find('1', ones) == std::string::npos ? static_cast<int>(ones) : -1;
}

// Two texts as an address and its mask.
void check_network(const Text& address_text, const Text& mask_text) {
  sockaddr_in6 address = untouched_record();
  sockaddr_in6 mask = untouched_record();
  const bool both = str2addr(address_text.c_str(), record_in(address)) == 0 &&
                    str2addr(mask_text.c_str(), record_in(mask)) == 0;
  const int family = record_in(address)->sa_family;
  if (!both || family != record_in(mask)->sa_family) {
    if (both) {
      fuzz::expect_equal(strip_host_part_from_network_address(record_in(address), record_in(mask)),
                         0, "masking with another family's mask");
      fuzz::expect_equal(addr_differs(record_in(address), record_in(mask)), 1, "the difference");
    }
    return;
  }
  const std::string address_bits = bits_of(address, family);
  const std::string mask_bits = bits_of(mask, family);
  fuzz::expect_equal(addr_differs(record_in(address), record_in(mask)),
                     address_bits != mask_bits ? 1 : 0, "the difference");
  const int prefix = prefix_of(mask_bits);
  fuzz::expect_equal(netmask2cidr(record_in(mask)), prefix, "the prefix");
  if (prefix >= 0) {
    sockaddr_in6 made = untouched_record();
    fuzz::expect_equal(cidr2netmask(prefix, record_in(made), family), 0, "making the mask");
    fuzz::expect_equal(bytes_of(made), bytes_of(mask), "the mask made");
  }

  // The network that it is in, of which an IPv6 address has its first half.
  std::array<char, CIDR_TEXT_SIZE> cidr;
  const bool has_network = net2cidr(cidr.data(), record_in(address), record_in(mask)) != nullptr;
  fuzz::expect_equal(has_network, prefix >= 0, "whether there is a network");
  sockaddr_in6 network = address;
  if (family == AF_INET6) std::fill_n(network.sin6_addr.s6_addr + 8, 8, std::uint8_t{0});
  fuzz::expect_equal(strip_host_part_from_network_address(record_in(network), record_in(mask)), 1,
                     "masking");
  if (has_network) {
    std::array<char, ADDRESS_TEXT_SIZE> network_text;
    fuzz::expect_equal(std::string(cidr.data()),
                       std::string(addr2str(network_text.data(), record_in(network))) + "/" +
                           std::to_string(prefix),
                       "the network");
  }

  fuzz::expect_equal(strip_host_part_from_network_address(record_in(address), record_in(mask)), 1,
                     "masking");
  std::string masked = address_bits;
  for (std::size_t bit = 0; bit < masked.size(); ++bit) {
    if (mask_bits[bit] == '0') masked[bit] = '0';
  }
  fuzz::expect_equal(bits_of(address, family), masked, "the masked address");
}

// ---- The lenient reader, spelled out: four times white space, a sign and digits, with dots between.

// Takes a number as it is in 64 bits; all ones for one that is too large.
bool take_number(const char*& text, std::uint64_t& number) {
  while (std::strchr(" \t\n\v\f\r", *text) != nullptr && *text != '\0') ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  if (*text < '0' || *text > '9') return false;
  bool too_large = false;
  for (number = 0; *text >= '0' && *text <= '9'; ++text) {
    const auto digit = static_cast<std::uint64_t>(*text - '0');
    too_large = too_large || number > (UINT64_MAX - digit) / 10;
    number = number * 10 + digit;
  }
  if (too_large) {
    number = UINT64_MAX;
  } else if (negative) {
    number = 0 - number;
  }
  return true;
}

void check_lenient_reader(const Text& text) {
  const char* rest = text.c_str();
  std::uint64_t sum = 0;
  bool four = true;
  for (int i = 0; i < 4 && four; ++i) {
    std::uint64_t number = 0;
    four = (i == 0 || *rest++ == '.') && take_number(rest, number);
    sum = (sum << 8U) + number;
  }
  constexpr std::uint32_t kBefore = 0xA5A5A5A5;
  std::uint32_t value = kBefore;
  fuzz::expect_equal(convIPStr2IPUl(text.c_str(), &value), four ? 0 : -1, "the lenient reader");
  fuzz::expect_equal(value, four ? static_cast<std::uint32_t>(sum) : kBefore,
                     "the lenient reader's number");
  if (!four) return;

  std::array<char, IPV4_TEXT_SIZE> quad;
  convIPUL2IPStr(value, quad.data());
  in_addr address = {};
  address.s_addr = htonl(value);
  std::array<char, INET_ADDRSTRLEN> by_others;
  inet_ntop(AF_INET, &address, by_others.data(), by_others.size());
  fuzz::expect_equal(std::string(quad.data()), std::string(by_others.data()), "the number's text");
  std::uint32_t again = 0;
  convIPStr2IPUl(quad.data(), &again);
  fuzz::expect_equal(again, value, "the number read again");
}

}  // namespace

// An address, and in the next line a mask.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Text address(input.until('\n'));
  const Text mask(input.rest());
  check_reader(str2addr4, AF_INET, address);
  check_reader(str2addr6, AF_INET6, address);
  check_reader(str2addr, address.view().find(':') == std::string_view::npos ? AF_INET : AF_INET6,
               address);
  check_network(address, mask);
  check_lenient_reader(address);
  return 0;
}
