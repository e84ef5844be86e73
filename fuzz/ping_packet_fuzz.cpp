// Packets that come in answer to pings, in each of the formats, and the kernel's filter before them.

#include <rkutils/internal/internet_checksum.h>
#include <rkutils/network/ping/echo_filter.h>
#include <rkutils/network/ping/packet.h>
#include <rkutils/network/ping_client_packet.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include <linux/filter.h>

#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using rkutils::network::Echo;
using rkutils::network::Endpoints;
using Bytes = std::vector<std::uint8_t>;

std::uint16_t word_at(const Bytes& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] * 256U + bytes[offset + 1]);
}

std::uint16_t swapped(std::uint16_t word) {
  return static_cast<std::uint16_t>(word << 8U | word >> 8U);
}

void expect_echo(Echo actual, unsigned identifier, unsigned sequence) {
  expect_equal(actual.identifier, identifier, "the identifier");
  expect_equal(actual.sequence, sequence, "the sequence number");
}

// ---- What comes in

void check_icmp(const Bytes& packet) {
  const auto read = rkutils::ping::read_icmp_packet(packet.data(), packet.size());
  expect_equal(read.has_value(), packet.size() >= 76, "whether it is an ICMP packet");
  if (!read) return;
  const std::size_t icmp = std::size_t{packet[0]} % 16 * 4;
  expect_equal(read->is_reply, packet[icmp] == 0, "whether it is a reply");
  expect_echo(read->echo, word_at(packet, icmp + 4), word_at(packet, icmp + 6));
}

void check_ip(const Bytes& packet) {
  const auto read = rkutils::ping::read_ip_packet(packet.data(), packet.size());
  expect_equal(read.has_value(), packet.size() >= 48, "whether it is an IP packet");
  if (!read) return;
  expect_equal(read->is_icmp, packet[9] == 1, "whether it is ICMP in IP");
  expect_equal(read->is_reply, packet[20] == 0, "whether it is a reply in IP");
  expect_echo(read->echo, swapped(word_at(packet, 24)), swapped(word_at(packet, 26)));
}

void check_frame(const Bytes& frame) {
  const auto read = rkutils::ping::read_frame(frame.data(), frame.size());
  expect_equal(read.has_value(), frame.size() >= 42, "whether it is a frame");
  if (!read) return;
  expect(std::equal(read->link.destination.begin(), read->link.destination.end(), frame.begin()),
         "the destination");
  expect(std::equal(read->link.source.begin(), read->link.source.end(), frame.begin() + 6),
         "the source");
  expect_equal(read->protocol, frame[23], "the protocol");
  expect_equal(read->is_icmp, frame[23] == 1, "whether it is ICMP in a frame");
  expect_equal(read->is_reply, frame[34] == 0, "whether it is a reply in a frame");
  expect_echo(read->echo, word_at(frame, 38), word_at(frame, 40));
}

void check_numbers(const Bytes& packet, Echo echo) {
  const std::size_t icmp = packet.empty() ? 0 : std::size_t{packet[0]} % 16 * 4;
  const bool whole = !packet.empty() && packet.size() >= icmp + 8;
  expect_equal(rkutils::network::has_numbers(packet.data(), packet.size(), echo),
               whole && word_at(packet, icmp + 4) == echo.identifier &&
                   word_at(packet, icmp + 6) == echo.sequence,
               "whether it has the numbers");
}

void check_checksum(const Bytes& bytes) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i)
    sum += std::uint64_t{bytes[i]} * (i % 2 == 0 ? 256 : 1);
  while (sum > 0xFFFF) sum = sum / 0x10000 + sum % 0x10000;
  const std::uint16_t checksum = rkutils::internal::internet_checksum(bytes.data(), bytes.size());
  unsigned char in_memory[2];
  std::memcpy(in_memory, &checksum, sizeof in_memory);
  expect_equal(in_memory[0] * 256U + in_memory[1], 0xFFFF - sum, "the checksum");
}

// ---- The filter

// The kernel's machine, as far as the filter uses it: what it lets through of a frame.
std::uint32_t run_filter(const rkutils::ping::EchoFilter& filter, const Bytes& frame) {
  std::uint32_t a = 0;
  std::uint32_t x = 0;
  for (std::size_t at = 0; at < filter.size(); ++at) {
    const sock_filter& step = filter[at];
    // What lies outside of the frame ends the filter, and nothing gets through.
    const auto load = [&](std::size_t offset, std::size_t size) {
      if (offset + size > frame.size()) return false;
      a = size == 1 ? frame[offset] : word_at(frame, offset);
      return true;
    };
    switch (step.code) {
      case BPF_LD | BPF_H | BPF_ABS:
        if (!load(step.k, 2)) return 0;
        break;
      case BPF_LD | BPF_B | BPF_ABS:
        if (!load(step.k, 1)) return 0;
        break;
      case BPF_LD | BPF_H | BPF_IND:
        if (!load(std::size_t{x} + step.k, 2)) return 0;
        break;
      case BPF_LD | BPF_B | BPF_IND:
        if (!load(std::size_t{x} + step.k, 1)) return 0;
        break;
      case BPF_LDX | BPF_B | BPF_MSH:
        if (step.k >= frame.size()) return 0;
        x = frame[step.k] % 16U * 4U;
        break;
      case BPF_JMP | BPF_JEQ | BPF_K:
        at += a == step.k ? step.jt : step.jf;
        break;
      case BPF_JMP | BPF_JSET | BPF_K:
        at += (a & step.k) != 0 ? step.jt : step.jf;
        break;
      case BPF_RET | BPF_K:
        return step.k;
      default:
        fuzz::fail("an instruction that is not known here");
    }
  }
  fuzz::fail("the filter does not end");
}

// Which frames are to get through: echo replies of the identifier that begin in them.
bool is_wanted(const Bytes& frame, std::uint16_t identifier) {
  if (frame.size() < 24 || word_at(frame, 12) != 0x0800 || frame[23] != 1) return false;
  if ((word_at(frame, 20) & 0x1FFFU) != 0) return false;
  const std::size_t icmp = 14 + std::size_t{frame[14]} % 16 * 4;
  return frame.size() >= icmp + 6 && frame[icmp] == 0 && word_at(frame, icmp + 4) == identifier;
}

void check_filter(const Bytes& frame, std::uint16_t identifier) {
  expect_equal(run_filter(rkutils::ping::make_echo_filter(identifier), frame),
               is_wanted(frame, identifier) ? 96U : 0U, "what the filter lets through");
}

// ---- What goes out, and is read as its answer would be

bool adds_up(const Bytes& bytes, std::size_t begin, std::size_t end) {
  std::uint32_t sum = 0;
  for (std::size_t i = begin; i < end; i += 2) sum += word_at(bytes, i);
  return sum % 0xFFFF == 0;
}

void check_requests(Endpoints endpoints, Echo echo, std::size_t size, std::uint16_t other) {
  const auto icmp = rkutils::ping::make_icmp_request(echo);
  Bytes packet(20 + icmp.size());
  packet[0] = 0x45;
  std::copy(icmp.begin(), icmp.end(), packet.begin() + 20);
  expect_equal(packet[20], 8, "the type of an ICMP request");
  expect(adds_up(packet, 20, packet.size()), "the checksum of an ICMP request");
  const auto icmp_read = rkutils::ping::read_icmp_packet(packet.data(), packet.size());
  expect(icmp_read && !icmp_read->is_reply && icmp_read->echo == echo, "an ICMP request");

  Bytes ip(std::clamp<std::size_t>(size, 48, 1450), 0xA5);
  rkutils::ping::write_ip_request(ip.data(), ip.size(), endpoints, echo);
  expect(adds_up(ip, 0, 20) && adds_up(ip, 20, 48), "the checksums of an IP request");
  ip[20] = 0;
  const auto ip_read = rkutils::ping::read_ip_packet(ip.data(), ip.size());
  expect(ip_read && ip_read->is_icmp && ip_read->is_reply && ip_read->echo == echo,
         "the reply to an IP request");

  const rkutils::ping::Link link = {{2, 0, 1, 2, 3, 4}, {2, 0, 5, 6, 7, 8}};
  Bytes frame(std::clamp<std::size_t>(size, 42, 1450), 0xA5);
  rkutils::ping::write_frame_request(frame.data(), frame.size(), link, endpoints, echo);
  expect(adds_up(frame, 14, 34) && adds_up(frame, 34, 42), "the checksums of a frame");
  expect_equal(word_at(frame, 16), frame.size() - 14, "the length in a frame");
  expect_equal(run_filter(rkutils::ping::make_echo_filter(echo.identifier), frame), 0U,
               "what the filter lets through of a request");
  frame[34] = 0;
  const auto frame_read = rkutils::ping::read_frame(frame.data(), frame.size());
  expect(frame_read && frame_read->is_icmp && frame_read->is_reply && frame_read->echo == echo &&
             frame_read->link.source == link.source &&
             frame_read->link.destination == link.destination,
         "the reply to a frame");
  check_filter(frame, echo.identifier);
  check_filter(frame, other);

  const auto request = rkutils::network::make_echo_request(endpoints, echo);
  const Bytes bytes(request.begin(), request.end());
  expect(adds_up(bytes, 0, 20) && adds_up(bytes, 20, 28), "the checksums of a client's request");
  check_numbers(bytes, echo);
  check_numbers(bytes, {echo.sequence, other});
}

}  // namespace

// Numbers and addresses, and then a packet.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Echo echo = {input.number<std::uint16_t>(), input.number<std::uint16_t>()};
  const Endpoints endpoints = {input.number<std::uint32_t>(), input.number<std::uint32_t>()};
  const auto request_size = input.number<std::uint16_t>();
  const std::string rest = input.rest();
  const Bytes packet(rest.begin(), rest.end());
  check_icmp(packet);
  check_ip(packet);
  check_frame(packet);
  check_numbers(packet, echo);
  check_checksum(packet);
  check_filter(packet, echo.identifier);
  check_requests(endpoints, echo, request_size, static_cast<std::uint16_t>(packet.size()));
  return 0;
}
