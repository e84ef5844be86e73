#include <rkutils/internal/internet_checksum.h>
#include <rkutils/network/ping_client_packet.h>

#include <cstring>

#include <netinet/in.h>

namespace rkutils::network {
namespace {

using internal::internet_checksum;

constexpr std::size_t kIpHeaderSize = 20;
constexpr std::uint8_t kVersion4 = 0x40;
constexpr std::size_t kWord = 4;  // the length of an IP header counts these

// Offsets in the IP header.
constexpr std::size_t kTotalLength = 2;
constexpr std::size_t kTimeToLive = 8;
constexpr std::size_t kProtocol = 9;
constexpr std::size_t kHeaderChecksum = 10;
constexpr std::size_t kSource = 12;
constexpr std::size_t kTarget = 16;

// Offsets in the ICMP message.
constexpr std::size_t kType = 0;
constexpr std::size_t kIcmpChecksum = 2;
constexpr std::size_t kIdentifier = 4;
constexpr std::size_t kSequence = 6;
constexpr std::size_t kIcmpSize = 8;

static_assert(EchoRequest().size() == kIpHeaderSize + kIcmpSize);

void put16(std::uint8_t* bytes, std::size_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value >> 8U);
  bytes[1] = static_cast<std::uint8_t>(value);
}

std::uint16_t get16(const std::uint8_t* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
}

void put32(std::uint8_t* bytes, std::uint32_t value) noexcept {
  put16(bytes, value >> 16U);
  put16(bytes + 2, value);
}

// It comes in the order in which it is stored.
void put_checksum(std::uint8_t* field, std::uint16_t checksum) noexcept {
  std::memcpy(field, &checksum, sizeof checksum);
}

}  // namespace

EchoRequest make_echo_request(std::uint32_t source, std::uint32_t target,
                              EchoNumbers numbers) noexcept {
  EchoRequest request = {};
  std::uint8_t* const ip = request.data();
  ip[0] = kVersion4 | kIpHeaderSize / kWord;
  put16(ip + kTotalLength, request.size());
  ip[kTimeToLive] = 128;
  ip[kProtocol] = IPPROTO_ICMP;
  put32(ip + kSource, source);
  put32(ip + kTarget, target);

  std::uint8_t* const icmp = ip + kIpHeaderSize;
  icmp[kType] = 8;  // echo request
  put16(icmp + kIdentifier, numbers.identifier);
  put16(icmp + kSequence, numbers.sequence);
  put_checksum(icmp + kIcmpChecksum, internet_checksum(icmp, kIcmpSize));

  // Over all of it, which gives what the header alone would: a message with its checksum adds
  // nothing.
  put_checksum(ip + kHeaderChecksum, internet_checksum(ip, request.size()));
  return request;
}

bool has_numbers(const std::uint8_t* packet, std::size_t length, EchoNumbers numbers) noexcept {
  if (length == 0) return false;
  const std::size_t header = (packet[0] & 0x0fU) * kWord;
  if (length < header + kIcmpSize) return false;
  const std::uint8_t* const icmp = packet + header;
  return get16(icmp + kSequence) == numbers.sequence &&
         get16(icmp + kIdentifier) == numbers.identifier;
}

}  // namespace rkutils::network
