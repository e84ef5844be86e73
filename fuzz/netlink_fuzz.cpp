// Datagrams of the kernel's routing service.

#include <rkutils/network/route/messages.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include <sys/socket.h>

#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using rkutils::network::route::Bytes;
using rkutils::network::route::Datagram;
using rkutils::network::route::Question;
using rkutils::network::route::Reading;
using rkutils::network::route::RouteMessage;

constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kAttributesBegin = 28;

// ---- Messages as their fields

std::uint32_t word_at(const std::string& bytes, std::size_t at) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + at, sizeof word);
  return word;
}

std::uint16_t half_word_at(const std::string& bytes, std::size_t at) {
  std::uint16_t half_word = 0;
  std::memcpy(&half_word, bytes.data() + at, sizeof half_word);
  return half_word;
}

std::size_t aligned(std::size_t size) { return (size + 3) / 4 * 4; }

struct Expectation {
  Reading::Kind kind;
  std::size_t begin = 0;
  std::size_t size = 0;
};

Expectation expect_in(const std::string& bytes, const Datagram& datagram, Question question) {
  std::size_t at = 0;
  while (bytes.size() - at >= kHeaderSize) {
    const std::size_t length = word_at(bytes, at);
    if (length < kHeaderSize || length > bytes.size() - at) return {Reading::Kind::kMalformed};
    if (datagram.sender == 0 && word_at(bytes, at + 8) == question.sequence &&
        word_at(bytes, at + 12) == question.port) {
      return {Reading::Kind::kAnswer, at, length};
    }
    at = std::min(at + aligned(length), bytes.size());
  }
  const bool whole = at == bytes.size() || datagram.truncated;
  return {whole ? Reading::Kind::kNoAnswer : Reading::Kind::kMalformed};
}

// The interface that a route names, in what fits of its message.
std::uint32_t interface_in(const std::string& message) {
  const std::size_t end =
      std::min({std::size_t{word_at(message, 0)}, message.size(), sizeof(RouteMessage)});
  constexpr unsigned kOutputInterface = 4;
  for (std::size_t at = kAttributesBegin; at + 4 <= end;) {
    const std::size_t length = half_word_at(message, at);
    if (length < 4 || length > end - at) return 0;
    if (half_word_at(message, at + 2) == kOutputInterface) {
      return length >= 8 ? word_at(message, at + 4) : 0;
    }
    at += aligned(length);
  }
  return 0;
}

void check_answer(const std::string& message) {
  namespace route = rkutils::network::route;
  const Bytes bytes = {reinterpret_cast<const rkutils::network::Byte*>(message.data()),
                       message.size()};
  expect_equal(route::type_of(bytes), unsigned{half_word_at(message, 4)}, "the type");
  const int error = message.size() < 36 ? 0 : static_cast<int>(0U - word_at(message, kHeaderSize));
  expect_equal(route::error_of(bytes), error, "the error");
  if (message.size() < kAttributesBegin) return;
  RouteMessage answer = {};
  std::memcpy(&answer, message.data(), std::min(message.size(), sizeof answer));
  expect_equal(route::output_interface(answer), interface_in(message), "the interface");
}

void check_request(Input& input) {
  namespace route = rkutils::network::route;
  const std::string address = input.bytes(input.below(1100));
  const int family = input.flag() ? AF_INET : AF_INET6;
  RouteMessage request;
  const bool made = route::make_route_request(
      family, reinterpret_cast<const rkutils::network::Byte*>(address.data()), address.size(),
      request);
  expect_equal(made, address.size() <= sizeof request.attributes - 4, "whether it can be asked");
  if (!made) {
    expect_equal(request.header.nlmsg_len, 0U, "the length of no request");
    return;
  }
  const std::string bytes(reinterpret_cast<const char*>(&request), request.header.nlmsg_len);
  expect_equal(bytes.size(), kAttributesBegin + aligned(4 + address.size()), "its length");
  expect_equal(half_word_at(bytes, kAttributesBegin), std::uint16_t(4 + address.size()),
               "the attribute's length");
  expect_equal(bytes.substr(kAttributesBegin + 4, address.size()), address, "the address");
}

}  // namespace

// The question, who has sent the datagram, whether it is cut, and what it holds.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Question question = {input.number<std::uint32_t>(), input.number<std::uint32_t>()};
  const std::uint32_t sender = input.flag() ? input.byte() : 0;
  const bool truncated = input.flag();
  if (input.flag()) check_request(input);
  std::string bytes = input.rest();
  bytes.shrink_to_fit();
  const Datagram datagram = {
      {reinterpret_cast<const rkutils::network::Byte*>(bytes.data()), bytes.size()},
      sender,
      truncated};
  const Reading reading = rkutils::network::route::find_answer(datagram, question);
  const Expectation expected = expect_in(bytes, datagram, question);
  expect(reading.kind == expected.kind, "what the datagram is");
  if (reading.kind != Reading::Kind::kAnswer) return 0;
  expect(reading.answer.data == datagram.bytes.data + expected.begin, "where the answer begins");
  expect_equal(reading.answer.size, expected.size, "its size");
  check_answer(bytes.substr(expected.begin, expected.size));
  return 0;
}
