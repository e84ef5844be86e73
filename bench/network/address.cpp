// IPv4 addresses as texts, read and written.

#include <rkutils/ip_address.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>

#include "network/rows.h"
#include "support/comparison.h"

namespace bench::network {
namespace {

using benchmark::State;

constexpr std::size_t kCount = 1024;

struct Address {
  std::uint32_t number;  // in host order
  std::string chars;
  String text;
};

// Addresses with octets of all lengths.
const std::array<Address, kCount>& addresses() {
  static const auto all = [] {
    std::array<Address, kCount> result;
    std::mt19937 random(1);
    for (Address& address : result) {
      address.number = static_cast<std::uint32_t>(random());
      const in_addr bytes = {htonl(address.number)};
      std::array<char, INET_ADDRSTRLEN> chars;
      address.chars = ::inet_ntop(AF_INET, &bytes, chars.data(), chars.size());
      address.text = address.chars.c_str();
    }
    return result;
  }();
  return all;
}

// Goes round and round in the array.
class Cursor {
 public:
  const Address& next() { return all_[at_++ % kCount]; }

 private:
  const std::array<Address, kCount>& all_ = addresses();
  std::size_t at_ = 0;
};

void add_reading() {
  compare("address text to binary",
          [](State& state) {
            Cursor cursor;
            IpAddress address;
            for (auto _ : state) {
              const Address& next = cursor.next();
              if (address.setIpAddrAsString(next.text) != 0 ||
                  address.getV4IpAddrAsBinaryUInt32() != next.number) {
                state.SkipWithError("read wrongly");
              }
            }
          },
          {peer("inet_pton", 1.1, [](State& state) {
            Cursor cursor;
            in_addr address = {};
            for (auto _ : state) {
              const Address& next = cursor.next();
              if (::inet_pton(AF_INET, next.chars.c_str(), &address) != 1 ||
                  ntohl(address.s_addr) != next.number) {
                state.SkipWithError("read wrongly");
              }
            }
          })});
}

void add_writing() {
  compare("binary to address text",
          [](State& state) {
            Cursor cursor;
            IpAddress address;
            String text;
            for (auto _ : state) {
              const Address& next = cursor.next();
              address.setV4IpAddrAsBinaryUInt32(next.number);
              address.getIpAddrAsString(text);
              if (text.length() != next.text.length()) state.SkipWithError("written wrongly");
            }
          },
          {peer("snprintf", 0.3, [](State& state) {
            Cursor cursor;
            std::array<char, INET_ADDRSTRLEN> text;
            for (auto _ : state) {
              const Address& next = cursor.next();
              const std::uint32_t number = next.number;
              const int length =
                  std::snprintf(text.data(), text.size(), "%u.%u.%u.%u", number >> 24U,
                                number >> 16U & 0xFFU, number >> 8U & 0xFFU, number & 0xFFU);
              if (length != static_cast<int>(next.chars.size())) {
                state.SkipWithError("written wrongly");
              }
              benchmark::DoNotOptimize(text.data());
            }
          })});
}

}  // namespace

void add_address_rows() {
  add_reading();
  add_writing();
}

}  // namespace bench::network
