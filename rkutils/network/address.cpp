#include <rkutils/address.h>
#include <rkutils/file.h>
#include <rkutils/network/address_record.h>
#include <rkutils/network/dotted_quad.h>
#include <rkutils/network/netmask.h>

#include <algorithm>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace {

using rkutils::network::address_field;
using rkutils::network::AddressField;
using rkutils::network::Byte;
using rkutils::network::bytes_of;
using rkutils::network::family_of;
using rkutils::network::set_family;

static_assert(IPV4_TEXT_SIZE == INET_ADDRSTRLEN && ADDRESS_TEXT_SIZE == INET6_ADDRSTRLEN);
static_assert(NETWORK_TEXT_SIZE >= 2 * ADDRESS_TEXT_SIZE);
static_assert(IPV4_TEXT_SIZE == rkutils::network::kDottedQuadSize);

constexpr std::size_t kWordSize = sizeof(std::uint32_t);
constexpr unsigned kBitsPerByte = 8;

// Words of addresses are in network order.
std::uint32_t load_word(const Byte* bytes) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return ntohl(word);
}

void store_word(Byte* bytes, std::uint32_t word) {
  word = htonl(word);
  std::memcpy(bytes, &word, sizeof word);
}

// Of each record there are `size` bytes; what an address would have beyond them does not count.
bool differ(const Byte* a, const Byte* b, std::size_t size) {
  const sa_family_t family = family_of(a);
  if (family != family_of(b)) return true;
  const AddressField field = address_field(family);
  const std::size_t end = std::min(field.offset + field.size, size);
  return std::memcmp(a + field.offset, b + field.offset, end - field.offset) != 0;
}

bool slots_differ(const address_route* a, const address_route* b, std::size_t slot) {
  const std::size_t offset = offsetof(address_route, address) + slot * sizeof(sockaddr);
  return differ(reinterpret_cast<const Byte*>(a) + offset,
                reinterpret_cast<const Byte*>(b) + offset, sizeof(address_route) - offset);
}

int parse_address(int family, const char* text, sockaddr* record) {
  if (record == nullptr) return -1;
  set_family(bytes_of(record), family);
  // Read elsewhere: some C libraries leave half an address behind when the text is none.
  in6_addr address;
  if (text == nullptr || ::inet_pton(family, text, &address) != 1) return -1;
  const AddressField field = address_field(family);
  std::memcpy(bytes_of(record) + field.offset, &address, field.size);
  return 0;
}

}  // namespace

// ---- Comparing ----

int addr_differs(const sockaddr* a, const sockaddr* b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : 1;
  return differ(bytes_of(a), bytes_of(b), sizeof(sockaddr_in6)) ? 1 : 0;
}

int route_differs(const address_route* a, const address_route* b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : 1;
  return slots_differ(a, b, 0) || slots_differ(a, b, 2) || slots_differ(a, b, 1) ? 1 : 0;
}

// ---- To text ----

char* addr2str(char* dst, const sockaddr* record) {
  if (dst == nullptr || record == nullptr) return nullptr;
  const sa_family_t family = family_of(bytes_of(record));
  const AddressField field = address_field(family);
  if (!field) {
    *dst = '\0';
    return dst;
  }
  in6_addr address;
  std::memcpy(&address, bytes_of(record) + field.offset, field.size);
  ::inet_ntop(family, &address, dst, family == AF_INET ? IPV4_TEXT_SIZE : ADDRESS_TEXT_SIZE);
  return dst;
}

char* net2str(char* dst, const sockaddr* address, const sockaddr* mask) {
  char address_text[ADDRESS_TEXT_SIZE];
  char mask_text[ADDRESS_TEXT_SIZE];
  if (dst == nullptr || addr2str(address_text, address) == nullptr ||
      addr2str(mask_text, mask) == nullptr) {
    return nullptr;
  }
  std::snprintf(dst, NETWORK_TEXT_SIZE, "%s/%s", address_text, mask_text);
  return dst;
}

char* net2cidr(char* dst, const sockaddr* address, const sockaddr* mask) {
  if (dst == nullptr || address == nullptr || mask == nullptr) return nullptr;
  // Of an IPv6 record this is half of the address. The other half stays zero.
  sockaddr_in6 network = {};
  std::memcpy(&network, bytes_of(address), sizeof(sockaddr));
  auto* const record = reinterpret_cast<sockaddr*>(&network);
  if (strip_host_part_from_network_address(record, mask) == 0) return nullptr;
  const int prefix = netmask2cidr(mask);
  if (prefix < 0) return nullptr;
  char text[ADDRESS_TEXT_SIZE];
  std::snprintf(dst, CIDR_TEXT_SIZE, "%s/%d", addr2str(text, record), prefix);
  return dst;
}

// ---- From text ----

int str2addr4(const char* text, sockaddr* record) { return parse_address(AF_INET, text, record); }

int str2addr6(const char* text, sockaddr* record) { return parse_address(AF_INET6, text, record); }

int str2addr(const char* text, sockaddr* record) {
  if (text == nullptr) return -1;
  return std::strchr(text, ':') != nullptr ? str2addr6(text, record) : str2addr4(text, record);
}

int readaddress(const char* path, sockaddr* out) {
  if (path == nullptr || out == nullptr) return -1;
  std::memset(bytes_of(out), 0, sizeof(sockaddr));
  const char* const text = readfile(path);
  return *text == '\0' ? -1 : str2addr(text, out);
}

// ---- Masks ----

int strip_host_part_from_network_address(sockaddr* address, const sockaddr* mask) {
  if (address == nullptr || mask == nullptr) return 0;
  const sa_family_t family = family_of(bytes_of(address));
  const AddressField field = address_field(family);
  if (!field || family != family_of(bytes_of(mask))) return 0;
  Byte* const target = bytes_of(address) + field.offset;
  const Byte* const kept = bytes_of(mask) + field.offset;
  for (std::size_t i = 0; i < field.size; ++i) target[i] &= kept[i];
  return 1;
}

int netmask2cidr(const sockaddr* mask) {
  if (mask == nullptr) return -1;
  const AddressField field = address_field(family_of(bytes_of(mask)));
  if (!field) return -1;
  std::size_t ones = 0;
  for (std::size_t i = 0; i < field.size; i += kWordSize) {
    const std::uint32_t word = load_word(bytes_of(mask) + field.offset + i);
    const bool all_ones_before = ones == i * kBitsPerByte;
    if (!rkutils::network::is_mask(word) || (word != 0 && !all_ones_before)) return -1;
    ones += rkutils::network::leading_ones(word);
  }
  return static_cast<int>(ones);
}

int cidr2netmask(int prefix, sockaddr* out, int family) {
  const AddressField field = address_field(family);
  if (out == nullptr || !field || prefix < 0) return -1;
  std::size_t ones = static_cast<unsigned>(prefix);
  if (ones > field.size * kBitsPerByte) return -1;
  set_family(bytes_of(out), family);
  for (std::size_t i = 0; i < field.size; i += kWordSize) {
    const auto in_word =
        static_cast<unsigned>(std::min<std::size_t>(ones, kWordSize * kBitsPerByte));
    store_word(bytes_of(out) + field.offset + i, rkutils::network::mask_of(in_word));
    ones -= in_word;
  }
  return 0;
}

int is_link_local_address(const sockaddr* record) {
  constexpr unsigned kMask = 0xFEC0;
  constexpr unsigned kLinkLocal = 0xFE80;
  if (record == nullptr) return 0;
  const Byte* const address = bytes_of(record) + address_field(AF_INET6).offset;
  const unsigned first = static_cast<unsigned>(address[0]) << kBitsPerByte | address[1];
  return (first & kMask) == kLinkLocal ? 1 : 0;
}

// ---- Dotted quads and numbers ----

int convIPStr2IPUl(const char* text, std::uint32_t* out) {
  if (text == nullptr || out == nullptr) return -1;
  // The target's %lu reads 64 bits and keeps 32 of them: so it is done everywhere.
  std::uint64_t a = 0;
  std::uint64_t b = 0;
  std::uint64_t c = 0;
  std::uint64_t d = 0;
  constexpr const char* kFormat = "%" SCNu64 ".%" SCNu64 ".%" SCNu64 ".%" SCNu64;
  if (std::sscanf(text, kFormat, &a, &b, &c, &d) != 4) return -1;
  *out = static_cast<std::uint32_t>((a << 24U) + (b << 16U) + (c << 8U) + d);
  return 0;
}

int convIPUL2IPStr(std::uint32_t value, char* dst) {
  if (dst != nullptr) rkutils::network::write_dotted_quad(value, dst);
  return 0;
}
