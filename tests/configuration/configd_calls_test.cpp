// The socket calls behind an exchange, as the kernel gets them. The kernel forgives what other
// systems' kernels, and readers of a trace, do not.

#include <rkutils/export.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include "configd_fixture.h"

namespace {

struct Call {
  std::size_t size;  // of the buffer
  int flags;
  sockaddr_un address;  // zero where there is none
  socklen_t address_length;
};

// What this thread has called since the test began.
thread_local std::vector<Call> binds;
thread_local std::vector<Call> sends;
thread_local std::vector<Call> receives;

Call call_of(std::size_t size, int flags, const sockaddr* address, socklen_t length) {
  Call call = {size, flags, {}, length};
  if (address != nullptr) std::memcpy(&call.address, address, std::min<std::size_t>(length, 110));
  return call;
}

}  // namespace

// Stand before the C library's and make the system calls themselves. C libraries differ in whether
// they declare bind() noexcept.
// NOLINTBEGIN(readability-redundant-declaration,readability-inconsistent-declaration-parameter-name)
extern "C" {
RK_API int bind(int socket, const sockaddr* address,
                socklen_t length) noexcept(noexcept(::bind(socket, address, length)));
RK_API ssize_t sendto(int socket, const void* buffer, std::size_t size, int flags,
                      const sockaddr* address, socklen_t length);
RK_API ssize_t recvfrom(int socket, void* buffer, std::size_t size, int flags, sockaddr* address,
                        socklen_t* length);
// What a fortified library calls.
RK_API ssize_t __recvfrom_chk(int socket, void* buffer, std::size_t size, std::size_t buffer_size,
                              int flags, sockaddr* address, socklen_t* length);
}

int bind(int socket, const sockaddr* address,
         socklen_t length) noexcept(noexcept(::bind(socket, address, length))) {
  binds.push_back(call_of(0, 0, address, length));
  return static_cast<int>(::syscall(SYS_bind, socket, address, length));
}

ssize_t sendto(int socket, const void* buffer, std::size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  sends.push_back(call_of(size, flags, address, length));
  return ::syscall(SYS_sendto, socket, buffer, size, flags, address, length);
}

ssize_t recvfrom(int socket, void* buffer, std::size_t size, int flags, sockaddr* address,
                 socklen_t* length) {
  receives.push_back(call_of(size, flags, nullptr, 0));
  return ::syscall(SYS_recvfrom, socket, buffer, size, flags, address, length);
}

ssize_t __recvfrom_chk(int socket, void* buffer, std::size_t size, std::size_t /*buffer_size*/,
                       int flags, sockaddr* address, socklen_t* length) {
  return recvfrom(socket, buffer, size, flags, address, length);
}
// NOLINTEND(readability-redundant-declaration,readability-inconsistent-declaration-parameter-name)

namespace {

using testing::SizeIs;

class ConfigdCalls : public ConfigdTest {
 protected:
  ConfigdCalls() {
    binds.clear();
    connection_ = connect();
    sends.clear();
    receives.clear();
  }

  // Expects one exchange: a request of `sent` bytes, and room for `room` bytes of its reply.
  static void expect_exchange(std::size_t sent, std::size_t room) {
    ASSERT_THAT(sends, SizeIs(1));
    EXPECT_EQ(sends[0].size, sent);
    EXPECT_EQ(sends[0].flags, 0);
    EXPECT_EQ(sends[0].address.sun_family, AF_UNIX);
    EXPECT_STREQ(sends[0].address.sun_path, "/var/run/configd/daemon.sock");
    EXPECT_EQ(sends[0].address_length, 110U) << "the whole structure";
    ASSERT_THAT(receives, SizeIs(1));
    EXPECT_EQ(receives[0].size, room);
    EXPECT_EQ(receives[0].flags, 0);
  }

  void TearDown() override {
    connection_.reset();
    ConfigdTest::TearDown();
  }

  Connection connection_;
};

TEST_F(ConfigdCalls, BindWithFamilyAndPathAlone) {
  ASSERT_THAT(binds, SizeIs(1));
  EXPECT_EQ(binds[0].address.sun_family, AF_UNIX);
  EXPECT_EQ(binds[0].address.sun_path, client_file());
  EXPECT_EQ(binds[0].address_length, 2 + client_file().size()) << "without a NUL";
}

TEST_F(ConfigdCalls, OfAQueryReceiveIntoAllButOneByteOfTheBuffer) {
  configd_query one = entry("lan.address");
  EXPECT_EQ(configd_prepare_get(connection_.get(), &one), 0);
  expect_exchange(std::strlen("lan.address") + 3, 16383);
}

TEST_F(ConfigdCalls, OfAnAssignmentReceiveIntoOneByteLess) {
  EXPECT_EQ(configd_set(connection_.get(), entries({{"a", "1"}}).data()), 0);
  expect_exchange(5, 16382);
}

TEST_F(ConfigdCalls, OfTheEndOfChangesReceiveIntoOneByteLess) {
  EXPECT_EQ(configd_done(connection_.get()), 0);
  expect_exchange(5, 16382);
}

}  // namespace
