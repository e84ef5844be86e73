// The addresses of hosts that are pinged: dotted ones, names, and names that several threads look up
// at once.

#include <rkutils/network/host_address.h>

#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "support/network/hosts_file.h"
#include "support/rounds.h"
#include "support/small_stack.h"

namespace {

using rkutils::network::find_ipv4_address;
using support::HostsFile;
using testing::Optional;

TEST(HostAddress, OfADottedOneIsItself) {
  EXPECT_THAT(find_ipv4_address("192.0.2.7"), Optional(0xC0000207));
  EXPECT_THAT(find_ipv4_address("255.255.255.255"), Optional(0xFFFFFFFF));
  EXPECT_THAT(find_ipv4_address("0.0.0.0"), Optional(0U));
}

TEST(HostAddress, OfANameIsItsFirst) {
  const HostsFile names("192.0.2.7 one one.example\n192.0.2.8 one\n");
  EXPECT_THAT(find_ipv4_address("one"), Optional(0xC0000207));
  EXPECT_THAT(find_ipv4_address("one.example"), Optional(0xC0000207));
}

TEST(HostAddress, IsMissingWithoutOneOfIpv4) {
  const HostsFile names("fd00:1::2 six\n");
  for (const char* host : {"six", "fd00:1::2", "missing.example", "192.0.2.256", "", " "}) {
    EXPECT_EQ(find_ipv4_address(host), std::nullopt) << host;
  }
}

// Its record is larger than the room that there is at first.
TEST(HostAddress, IsFoundInALargeRecord) {
  std::string line = "192.0.2.7 large";
  for (int i = 0; i < 400; ++i) line += " another-name-of-this-host-" + std::to_string(i);
  const HostsFile names(line + "\n");
  EXPECT_THAT(find_ipv4_address("large"), Optional(0xC0000207));
}

TEST(HostAddress, NeedsLittleStack) {
  const HostsFile names("192.0.2.7 one\n");
  support::run_on_small_stack([] {
    EXPECT_THAT(find_ipv4_address("one"), Optional(0xC0000207));
    EXPECT_EQ(find_ipv4_address(std::string(100000, 'x').c_str()), std::nullopt);
  });
}

TEST(HostAddress, IsEachThreadsOwn) {
  const HostsFile names("192.0.2.0 host-0\n192.0.2.1 host-1\n192.0.2.2 host-2\n192.0.2.3 host-3\n");
  std::vector<std::thread> threads;
  for (std::uint32_t i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      const std::string name = "host-" + std::to_string(i);
      int others = 0;
      for (int round = support::rounds(1000); round > 0; --round) {
        if (find_ipv4_address(name.c_str()) != 0xC0000200 + i) ++others;
      }
      EXPECT_EQ(others, 0) << name;
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
