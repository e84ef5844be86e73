// The stand-in answers as the daemon does, by bytes written here and without the library.

#include "support/configd_stand_in.h"

#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>

#include <array>
#include <chrono>
#include <map>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using rkutils::internal::UniqueFd;
using testing::ElementsAre;
using testing::SizeIs;

using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr char kNoReply[] = "(no reply)";
constexpr char kNotSent[] = "(not sent)";
// For a reply that does not come.
constexpr std::chrono::milliseconds kMoment = 200ms;

// The daemon's reply to a datagram.
std::string exchange(const std::string& request, std::chrono::milliseconds patience = 10s) {
  constexpr char kClient[] = "/var/run/configd/test";
  ::unlink(kClient);
  const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address;
  EXPECT_TRUE(rkutils::internal::make_unix_address(kClient, address));
  EXPECT_EQ(::bind(socket.get(), rkutils::internal::as_sockaddr(address), sizeof address), 0);
  const timeval wait = {patience / 1s, static_cast<suseconds_t>(patience % 1s / 1us)};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  EXPECT_TRUE(rkutils::internal::make_unix_address("/var/run/configd/daemon.sock", address));
  if (::sendto(socket.get(), request.data(), request.size(), 0,
               rkutils::internal::as_sockaddr(address), sizeof address) < 0) {
    return kNotSent;
  }
  std::array<char, 65536> buffer;
  const ssize_t length = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
  return length < 0 ? kNoReply : std::string(buffer.data(), static_cast<std::size_t>(length));
}

class StandIn : public testing::Test {
 protected:
  support::ConfigdStandIn daemon_;
};

TEST_F(StandIn, AnswersAQueryWithItsValue) {
  daemon_.set_value("a", "1");
  EXPECT_EQ(exchange("?a\n\0"s), "1\n\0"s);
  EXPECT_EQ(exchange("?b\n\0"s), "\n\0"s);
}

TEST_F(StandIn, EchoesAssignmentsAndSavesThem) {
  EXPECT_EQ(exchange("a=1\nb=x=y\n\0"s), "a=1\nb=x=y\n\0"s);
  EXPECT_EQ(daemon_.saved_values(), (std::map<std::string, std::string>{{"a", "1"}, {"b", "x=y"}}));
}

TEST_F(StandIn, IsReadyAtTheEndOfChanges) { EXPECT_EQ(exchange("Done\n"), "Ready"); }

TEST_F(StandIn, IgnoresWhatIsNotWellFormed) {
  for (const std::string& request : {"Done\n\0"s, "Done"s, "?a\n"s, "?a\0"s, "a=1\n"s, "a\n\0"s}) {
    EXPECT_EQ(exchange(request, kMoment), kNoReply) << request;
  }
}

TEST_F(StandIn, RecordsEveryDatagram) {
  exchange("?a\n", kMoment);
  exchange("Done\n");
  const auto datagrams = daemon_.datagrams();
  ASSERT_THAT(datagrams, SizeIs(3));
  EXPECT_EQ(datagrams[1].direction, support::Datagram::Direction::kToDaemon);
  EXPECT_EQ(datagrams[1].client, "/var/run/configd/test");
  EXPECT_EQ(datagrams[1].bytes, "Done\n");
  EXPECT_EQ(datagrams[2].direction, support::Datagram::Direction::kFromDaemon);
  EXPECT_EQ(datagrams[2].bytes, "Ready");
  EXPECT_THAT(daemon_.requests(), ElementsAre("?a\n", "Done\n"));
}

TEST_F(StandIn, MisbehavesOnCommandAndThenNoMore) {
  daemon_.set_value("a", "12");
  for (const char* fault : {"silence", "reply \"\\0x\"", "shorten 2", "lengthen 3", "alter 1"}) {
    daemon_.command("fault 1 "s + fault);
  }
  EXPECT_EQ(exchange("?a\n\0"s, kMoment), kNoReply);
  EXPECT_EQ(exchange("?a\n\0"s), "\0x"s);
  EXPECT_EQ(exchange("?a\n\0"s), "12"s);
  EXPECT_EQ(exchange("?a\n\0"s), "12\n\0xxx"s);
  EXPECT_EQ(exchange("?a\n\0"s), "1x\n\0"s);
  EXPECT_EQ(exchange("?a\n\0"s), "12\n\0"s);
}

TEST_F(StandIn, GoesAndComesBack) {
  daemon_.command("gone");
  EXPECT_EQ(exchange("Done\n"), kNotSent);
  daemon_.command("back");
  EXPECT_EQ(exchange("Done\n"), "Ready");
}

TEST_F(StandIn, KeepsWhatWasAssignedAcrossARestart) {
  exchange("a=1\n\0"s);
  daemon_.kill();
  EXPECT_EQ(exchange("?a\n\0"s), kNotSent);
  daemon_.start();
  EXPECT_EQ(exchange("?a\n\0"s), "1\n\0"s);
}

TEST_F(StandIn, RefusesCommandsThatItDoesNotKnow) {
  for (const char* command : {"", "dance", "fault 1 dance", "fault 1 delay soon"}) {
    EXPECT_THROW(daemon_.command(command), std::runtime_error) << command;
  }
}

}  // namespace
