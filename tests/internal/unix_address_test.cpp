#include <rkutils/internal/unix_address.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

namespace {

using rkutils::internal::make_unix_address;
using rkutils::internal::unix_address_length;

TEST(MakeUnixAddress, HoldsThePathAndZerosAfterIt) {
  sockaddr_un address;
  std::memset(&address, '#', sizeof address);
  ASSERT_TRUE(make_unix_address("/tmp/x", address));
  EXPECT_EQ(address.sun_family, AF_UNIX);
  EXPECT_STREQ(address.sun_path, "/tmp/x");
  EXPECT_TRUE(std::all_of(std::begin(address.sun_path) + 6, std::end(address.sun_path),
                          [](char byte) { return byte == '\0'; }));
}

TEST(MakeUnixAddress, TakesAPathThatLeavesRoomForItsNul) {
  sockaddr_un address;
  const std::string path(sizeof address.sun_path - 1, 'p');
  ASSERT_TRUE(make_unix_address(path.c_str(), address));
  EXPECT_EQ(address.sun_path, path);
}

TEST(MakeUnixAddress, RefusesALongerPath) {
  sockaddr_un address;
  for (const std::size_t length : {sizeof address.sun_path, std::size_t{4096}}) {
    errno = 0;
    EXPECT_FALSE(make_unix_address(std::string(length, 'p').c_str(), address));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_STREQ(address.sun_path, "");
  }
}

TEST(UnixAddressLength, IsFamilyAndPathWithoutNul) {
  sockaddr_un address;
  ASSERT_TRUE(make_unix_address("/tmp/x", address));
  EXPECT_EQ(unix_address_length(address), 2U + 6U);
}

TEST(MakeUnixAddress, RefusesTheEmptyPath) {
  sockaddr_un address;
  EXPECT_FALSE(make_unix_address("", address));
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
