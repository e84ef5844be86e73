#include "support/network/echo.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>

namespace support {
namespace {

constexpr std::size_t kHardwareAddress = 6;
constexpr std::size_t kIpHeader = 20;  // without options
constexpr std::size_t kIcmpHeader = 8;
constexpr std::uint8_t kVersion4 = 0x40;
constexpr std::uint8_t kIcmp = 1;

void append16(Bytes& bytes, std::size_t value) {
  bytes.push_back(static_cast<std::uint8_t>(value >> 8U));
  bytes.push_back(static_cast<std::uint8_t>(value));
}

std::uint16_t read16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>((bytes[0] << 8U) | bytes[1]);
}

void put16(Bytes& bytes, std::size_t offset, std::uint16_t value) {
  bytes[offset] = static_cast<std::uint8_t>(value >> 8U);
  bytes[offset + 1] = static_cast<std::uint8_t>(value);
}

void append_hardware_address(Bytes& bytes, const std::string& text) {
  std::array<unsigned, kHardwareAddress> parts = {};
  if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x", &parts[0], &parts[1], &parts[2],
                  &parts[3], &parts[4], &parts[5]) != static_cast<int>(parts.size())) {
    throw std::invalid_argument("no hardware address: " + text);
  }
  for (const unsigned part : parts) bytes.push_back(static_cast<std::uint8_t>(part));
}

std::string hardware_address_text(const std::uint8_t* bytes) {
  std::array<char, 18> text = {};
  std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1],
                bytes[2], bytes[3], bytes[4], bytes[5]);
  return text.data();
}

void append_address(Bytes& bytes, const std::string& text) {
  std::array<std::uint8_t, 4> address = {};
  if (::inet_pton(AF_INET, text.c_str(), address.data()) != 1) {
    throw std::invalid_argument("no address: " + text);
  }
  bytes.insert(bytes.end(), address.begin(), address.end());
}

std::string address_text(const std::uint8_t* bytes) {
  std::array<char, INET_ADDRSTRLEN> text = {};
  ::inet_ntop(AF_INET, bytes, text.data(), text.size());
  return text.data();
}

}  // namespace

std::optional<Echo> read_echo(const Bytes& frame) {
  if (frame.size() < kIcmpOffset + kIcmpHeader) return std::nullopt;
  const std::uint8_t* const ip = frame.data() + kIpOffset;
  if (read16(ip - 2) != 0x0800 || (ip[0] & 0xf0U) != kVersion4 || ip[9] != kIcmp) {
    return std::nullopt;
  }
  const std::size_t ip_header = (ip[0] & 0x0fU) * std::size_t{4};
  const std::size_t total = read16(ip + 2);
  if (ip_header < kIpHeader || total < ip_header + kIcmpHeader ||
      frame.size() < kIpOffset + total) {
    return std::nullopt;
  }
  const std::uint8_t* const icmp = ip + ip_header;
  Echo echo;
  echo.hardware_destination = hardware_address_text(frame.data());
  echo.hardware_source = hardware_address_text(frame.data() + kHardwareAddress);
  echo.source = address_text(ip + 12);
  echo.destination = address_text(ip + 16);
  echo.time_to_live = ip[8];
  echo.ip_options = Bytes(ip + kIpHeader, icmp);
  echo.type = icmp[0];
  echo.code = icmp[1];
  echo.identifier = read16(icmp + 4);
  echo.sequence = read16(icmp + 6);
  echo.payload = Bytes(icmp + kIcmpHeader, ip + total);
  return echo;
}

Echo echo_in(const Frame& frame) {
  std::optional<Echo> echo = read_echo(frame.bytes);
  if (!echo) throw std::runtime_error("no ICMP message");
  return *std::move(echo);
}

bool has_icmp_type(const Frame& frame, std::uint8_t type) {
  const std::optional<Echo> echo = read_echo(frame.bytes);
  return echo && echo->type == type;
}

Bytes make_frame(const Echo& echo) {
  const std::size_t ip_header = kIpHeader + echo.ip_options.size();
  const std::size_t icmp_length = kIcmpHeader + echo.payload.size();
  Bytes frame;
  append_hardware_address(frame, echo.hardware_destination);
  append_hardware_address(frame, echo.hardware_source);
  append16(frame, 0x0800);

  frame.push_back(static_cast<std::uint8_t>(kVersion4 | (ip_header / 4)));
  frame.push_back(0);
  append16(frame, ip_header + icmp_length);
  append16(frame, 0);  // identification
  append16(frame, 0);  // fragment offset
  frame.push_back(echo.time_to_live);
  frame.push_back(kIcmp);
  append16(frame, 0);  // checksum, below
  append_address(frame, echo.source);
  append_address(frame, echo.destination);
  frame.insert(frame.end(), echo.ip_options.begin(), echo.ip_options.end());
  put16(frame, kIpOffset + 10, checksum_by_definition(frame.data() + kIpOffset, ip_header));

  const std::size_t icmp = frame.size();
  frame.push_back(echo.type);
  frame.push_back(echo.code);
  append16(frame, 0);  // checksum, below
  append16(frame, echo.identifier);
  append16(frame, echo.sequence);
  frame.insert(frame.end(), echo.payload.begin(), echo.payload.end());
  put16(frame, icmp + 2, checksum_by_definition(frame.data() + icmp, icmp_length));
  return frame;
}

Echo reply_to(const Echo& request) {
  Echo reply = request;
  std::swap(reply.hardware_source, reply.hardware_destination);
  std::swap(reply.source, reply.destination);
  reply.type = kEchoReply;
  return reply;
}

std::uint16_t checksum_by_definition(const std::uint8_t* data, std::size_t length) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < length; i += 2) {
    const unsigned low = i + 1 < length ? data[i + 1] : 0U;
    sum += static_cast<std::uint32_t>(data[i]) * 256 + low;
    if (sum > 0xffff) sum -= 0xffff;  // the carry comes in again at the other end
  }
  return static_cast<std::uint16_t>(0xffff - sum);
}

}  // namespace support
