// ip_utils_set_multipath_flags(): what it says to the kernel.

#include <rkutils/route.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "network/netlink_bytes.h"
#include "network/netlink_calls.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/run_program.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

using namespace netlink_bytes;
using netlink_calls::Witness;
using rkutils::internal::UniqueFd;
using support::FailingCall;
using support::SystemCall;
using testing::ElementsAre;
using testing::IsEmpty;

UniqueFd netlink_socket() {
  return UniqueFd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
}

// The address of a netlink socket as in memory.
std::string address(std::uint32_t port, std::uint32_t groups) {
  return u16(AF_NETLINK) + u16(0) + u32(port) + u32(groups);
}

bool take_port(int socket, std::uint32_t port) {
  const std::string bytes = address(port, 0);
  return ::bind(socket, reinterpret_cast<const sockaddr*>(bytes.data()),
                static_cast<socklen_t>(bytes.size())) == 0;
}

short flags_of(const char* interface) {
  const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = {};
  std::strcpy(request.ifr_name, interface);
  return ::ioctl(socket.get(), SIOCGIFFLAGS, &request) == 0 ? request.ifr_flags
                                                            : static_cast<short>(-1);
}

// A router with the interface wan0. A test logs nothing and leaves no descriptor open.
class SetMultipathFlags : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (const char* name : {"wan0", kLongest}) {
      ASSERT_EQ(support::run_program({"ip", "link", "add", name, "type", "bridge"}).status, 0);
    }
  }
  static void TearDownTestSuite() {
    for (const char* name : {"wan0", kLongest}) support::run_program({"ip", "link", "del", name});
  }

  void TearDown() override {
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_);
  }

  int set(const char* interface, int exclude, int backup, std::vector<FailingCall> failing = {}) {
    int result = 1;
    witness_ = {};
    witness_.watch([&] { result = ip_utils_set_multipath_flags(interface, exclude, backup); },
                   std::move(failing));
    return result;
  }

  // All 32 bytes.
  static std::string request(const char* interface, unsigned flags) {
    return u32(32) + u16(16) + u16(1) + u32(0) + u32(0) + zeros(4) +
           u32(::if_nametoindex(interface)) + u32(flags) + u32(0x180000);
  }

  static constexpr const char* kLongest = "uplink-0123456x";
  support::SyslogCollector log_;
  std::map<int, std::string> descriptors_ = support::open_descriptors();
  Witness witness_;
};

TEST_F(SetMultipathFlags, SendsOneRequestWithBothFlags) {
  struct Case {
    int exclude;
    int backup;
    unsigned flags;
  };
  for (const auto& [exclude, backup, flags] :
       {Case{0, 0, 0}, Case{1, 0, 0x80000}, Case{0, 1, 0x100000}, Case{1, 1, 0x180000},
        Case{2, 0, 0x80000}, Case{0, -1, 0x100000}, Case{256, INT_MIN, 0x180000}}) {
    EXPECT_EQ(set("wan0", exclude, backup), 0);
    ASSERT_EQ(witness_.sent.size(), 1U);
    EXPECT_EQ(witness_.sent[0].bytes, request("wan0", flags));
    EXPECT_EQ(witness_.sent[0].address, address(0, 0));
    EXPECT_EQ(witness_.sent[0].flags, 0);
  }
}

TEST_F(SetMultipathFlags, SendsFromTheProcessIdOverASocketOfItsOwn) {
  EXPECT_EQ(set("wan0", 1, 0), 0);
  EXPECT_THAT(witness_.sockets,
              ElementsAre(std::array<int, 3>{AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE}));
  const auto process = static_cast<std::uint32_t>(::getpid());
  EXPECT_THAT(witness_.bound, ElementsAre(address(process, 1)));
  ASSERT_EQ(witness_.sent.size(), 1U);
  EXPECT_EQ(witness_.sent[0].asker.port, process);
  EXPECT_THAT(witness_.options, IsEmpty());
}

TEST_F(SetMultipathFlags, DoesNotWaitForTheAnswer) {
  EXPECT_EQ(set("wan0", 1, 0), 0);
  EXPECT_THAT(witness_.receive_sizes, IsEmpty());
}

TEST_F(SetMultipathFlags, LeavesTheOtherFlagsOfTheInterface) {
  ASSERT_EQ(support::run_program({"ip", "link", "set", "wan0", "up"}).status, 0);
  const short before = flags_of("wan0");
  EXPECT_EQ(ip_utils_set_multipath_flags("wan0", 1, 1), 0);
  EXPECT_EQ(flags_of("wan0"), before);
  EXPECT_EQ(ip_utils_set_multipath_flags("wan0", 0, 0), 0);
  EXPECT_EQ(flags_of("wan0"), before);
  EXPECT_NE(before & IFF_UP, 0);
}

// The same bytes once more, and with the wish for an acknowledgement.
TEST_F(SetMultipathFlags, SendsWhatTheKernelTakes) {
  EXPECT_EQ(set("wan0", 1, 1), 0);
  ASSERT_EQ(witness_.sent.size(), 1U);
  std::string bytes = witness_.sent[0].bytes;
  bytes.replace(6, 2, u16(1 | NLM_F_ACK));
  const UniqueFd socket = netlink_socket();
  ASSERT_EQ(::send(socket.get(), bytes.data(), bytes.size(), 0), 32);
  std::string answer(1024, '\0');
  answer.resize(static_cast<std::size_t>(::recv(socket.get(), answer.data(), answer.size(), 0)));
  ASSERT_GE(answer.size(), 20U);
  EXPECT_EQ(number_at<std::uint16_t>(answer, 4), kError);
  EXPECT_EQ(number_at<std::int32_t>(answer, 16), 0);
}

TEST_F(SetMultipathFlags, TakesTheLongestName) {
  EXPECT_EQ(set(kLongest, 1, 0), 0);
  ASSERT_EQ(witness_.sent.size(), 1U);
  EXPECT_EQ(witness_.sent[0].bytes, request(kLongest, 0x80000));
}

TEST_F(SetMultipathFlags, TakesAnAliasForItsInterface) {
  EXPECT_EQ(set("wan0:1", 1, 0), 0);
  ASSERT_EQ(witness_.sent.size(), 1U);
  EXPECT_EQ(witness_.sent[0].bytes, request("wan0", 0x80000));
}

TEST_F(SetMultipathFlags, IsMinus1ForAnUnknownNameAndSendsNothing) {
  const std::string too_long = std::string(kLongest) + "y";
  for (const char* name : {"wan1", "", "WAN0", "wan", "wan00", " wan0", "uplink-0123456",
                           too_long.c_str(), "a name that is much longer than any"}) {
    EXPECT_EQ(set(name, 1, 1), -1) << name;
    EXPECT_THAT(witness_.sockets, IsEmpty());
    EXPECT_THAT(witness_.sent, IsEmpty());
  }
}

TEST_F(SetMultipathFlags, IsMinus1ForNull) {
  EXPECT_EQ(set(nullptr, 1, 1), -1);
  EXPECT_THAT(witness_.sockets, IsEmpty());
}

TEST_F(SetMultipathFlags, IsMinus1WithoutASocket) {
  // The first is that by which the index is found.
  EXPECT_EQ(set("wan0", 1, 1, {{SystemCall::kSocket, EMFILE, 1}}), -1);
  EXPECT_THAT(witness_.sent, IsEmpty());
  EXPECT_EQ(set("wan0", 1, 1, {{SystemCall::kSocket, EMFILE}}), -1);
  EXPECT_THAT(witness_.sent, IsEmpty());
  const support::NoMoreDescriptors none;
  EXPECT_EQ(ip_utils_set_multipath_flags("wan0", 1, 1), -1);
}

// Here the request is sent in its place, to see what the kernel says to it.
TEST_F(SetMultipathFlags, SendsEvenIfItsPortIdIsTaken) {
  std::vector<ssize_t> results;
  FailingCall sending = {SystemCall::kSendMessage, 0};
  sending.decide = [&](const support::CallArguments& arguments) {
    results.push_back(::sendmsg(static_cast<int>(arguments[0]),
                                netlink_calls::pointer_to<const msghdr>(arguments[1]),
                                static_cast<int>(arguments[2])));
    return std::optional<std::int64_t>(results.back());
  };
  const UniqueFd other = netlink_socket();
  ASSERT_TRUE(take_port(other.get(), static_cast<std::uint32_t>(::getpid())));
  EXPECT_EQ(set("wan0", 0, 1), 0);
  ASSERT_EQ(witness_.sent.size(), 1U);
  EXPECT_EQ(witness_.sent[0].bytes, request("wan0", 0x100000));
  EXPECT_EQ(set("wan0", 0, 1, {sending}), 0);
  EXPECT_THAT(results, ElementsAre(32));
}

TEST_F(SetMultipathFlags, SendsEvenIfItCannotBeBound) {
  EXPECT_EQ(set("wan0", 0, 1, {{SystemCall::kBind, EACCES}}), 0);
  ASSERT_EQ(witness_.sent.size(), 1U);
  EXPECT_EQ(witness_.sent[0].bytes, request("wan0", 0x100000));
}

TEST_F(SetMultipathFlags, IsZeroWhateverBecomesOfTheRequest) {
  EXPECT_EQ(set("wan0", 1, 1, {{SystemCall::kSendMessage, EPERM}}), 0);
  EXPECT_EQ(set("wan0", 1, 1, {{SystemCall::kSendMessage, ENOBUFS}}), 0);
}

TEST_F(SetMultipathFlags, SendsAgainWhenASignalInterruptsIt) {
  int tries = 0;
  FailingCall interrupted = {SystemCall::kSendMessage, 0};
  interrupted.decide = [&](const support::CallArguments&) {
    return ++tries < 4 ? std::optional<std::int64_t>(-EINTR) : std::nullopt;
  };
  EXPECT_EQ(set("wan0", 1, 1, {interrupted}), 0);
  EXPECT_EQ(tries, 4);
}

TEST_F(SetMultipathFlags, NeedsNoMoreStackThanAThreadHas) {
  support::run_on_small_stack([] { EXPECT_EQ(ip_utils_set_multipath_flags("wan0", 1, 1), 0); });
}

TEST_F(SetMultipathFlags, IsDoneBeforeItsThreadIsCancelled) {
  int result = 1;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = ip_utils_set_multipath_flags("wan0", 1, 1); }));
  EXPECT_EQ(result, 0);
}

// All of them want the same port id.
TEST_F(SetMultipathFlags, MayBeCalledBySeveralThreadsAtOnce) {
  constexpr int kThreads = 8;
  const int rounds = support::rounds(500);
  std::vector<int> done(kThreads);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < rounds; ++round) {
        if (ip_utils_set_multipath_flags("wan0", round % 2, static_cast<int>(i % 2)) == 0) {
          ++done[i];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(done, testing::Each(rounds));
}

}  // namespace
