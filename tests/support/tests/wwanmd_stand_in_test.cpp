// The stand-in answers as the daemon does, over connections made here and without the library.

#include "support/wwanmd_stand_in.h"

#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/stopwatch.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using rkutils::internal::UniqueFd;
using testing::ElementsAre;
using testing::SizeIs;

constexpr char kNothing[] = "(nothing)";
constexpr char kEnd[] = "(end)";
constexpr auto kShort = 300ms;  // where nothing is to come

class Client {
 public:
  explicit Client(int card) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address;
    const std::string path = "/var/run/wwanmd" + std::to_string(card) + "/server";
    EXPECT_TRUE(rkutils::internal::make_unix_address(path.c_str(), address));
    connected_ = ::connect(socket_.get(), rkutils::internal::as_sockaddr(address),
                           rkutils::internal::unix_address_length(address)) == 0;
  }

  [[nodiscard]] bool connected() const { return connected_; }

  void send(const std::string& bytes) const {
    ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }

  [[nodiscard]] std::string receive(std::chrono::microseconds wait = 5s) const {
    const timeval time = {wait / 1s, wait % 1s / 1us};
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    std::array<char, 65536> buffer;
    const ssize_t length = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
    if (length == 0) return kEnd;
    return length < 0 ? kNothing : std::string(buffer.data(), static_cast<std::size_t>(length));
  }

  [[nodiscard]] std::string exchange(const std::string& bytes,
                                     std::chrono::microseconds wait = 5s) const {
    send(bytes);
    return receive(wait);
  }

 private:
  UniqueFd socket_;
  bool connected_ = false;
};

class ModemStandIn : public testing::Test {
 protected:
  std::vector<std::string> kinds() {
    std::vector<std::string> kinds;
    for (const auto& event : daemon_.events()) {
      kinds.push_back(event.kind + " " + std::to_string(event.connection) + " " + event.bytes);
    }
    return kinds;
  }

  support::WwanmdStandIn daemon_{0};
};

TEST_F(ModemStandIn, AnswersEveryLineWithOk) {
  const Client client(0);
  EXPECT_EQ(client.exchange("init x\n"), "OK");
  EXPECT_EQ(client.exchange("\n"), "OK");
  EXPECT_EQ(client.exchange("half", kShort), kNothing);
  EXPECT_EQ(client.exchange(" a line\n"), "OK");
}

TEST_F(ModemStandIn, AnswersALineAsItIsTold) {
  daemon_.command(R"(answer "signal" "OK -71\n")");
  const Client client(0);
  EXPECT_EQ(client.exchange("signal\n"), "OK -71\n");
  EXPECT_EQ(client.exchange("signal?\n"), "OK");
}

TEST_F(ModemStandIn, FollowsAPlanForEachLine) {
  daemon_.command(R"(plan 1 send "BUSY" send "ERROR\0")");
  daemon_.command("plan 2");
  daemon_.command("plan 1 wait 200 answer close");
  const Client client(0);
  EXPECT_EQ(client.exchange("a\n"), "BUSY");
  EXPECT_EQ(client.receive(), "ERROR\0"s);
  EXPECT_EQ(client.exchange("b\n", kShort), kNothing);
  EXPECT_EQ(client.exchange("c\n", kShort), kNothing);
  const support::Stopwatch watch;
  EXPECT_EQ(client.exchange("d\n"), "OK");
  EXPECT_GE(watch.elapsed(), 200ms);
  EXPECT_EQ(client.receive(), kEnd);
}

TEST_F(ModemStandIn, SendsOnlyWhenAllBeforeWasFetched) {
  daemon_.command(R"(plan 1 send "a" send "b")");
  const Client client(0);
  client.send("x\n");
  ::usleep(100000);
  EXPECT_EQ(client.receive(), "a");
  EXPECT_EQ(client.receive(), "b");
}

TEST_F(ModemStandIn, GreetsAndSpeaksUnasked) {
  daemon_.command(R"(greet 1 send "welcome")");
  const Client client(0);
  EXPECT_EQ(client.receive(), "welcome");
  daemon_.command(R"(now send "by the way")");
  EXPECT_EQ(client.receive(), "by the way");
  daemon_.command("greet 1 close");
  EXPECT_EQ(Client(0).receive(), kEnd);
  EXPECT_EQ(client.exchange("still there?\n"), "OK");
}

TEST_F(ModemStandIn, ClosesAtOnce) {
  const Client one(0);
  const Client two(0);
  EXPECT_EQ(two.exchange("x\n"), "OK");
  daemon_.command("now close");
  EXPECT_EQ(one.receive(), kEnd);
  EXPECT_EQ(two.receive(), kEnd);
}

TEST_F(ModemStandIn, ReadsNothingWhenItIsDeaf) {
  const Client client(0);
  EXPECT_EQ(client.exchange("x\n"), "OK");
  daemon_.command("deaf");
  EXPECT_EQ(client.exchange("y\n", kShort), kNothing);
  EXPECT_THAT(daemon_.take_received(), ElementsAre("x\n"));
}

TEST_F(ModemStandIn, TakesItsSocketAwayAndBringsItBack) {
  const Client before(0);
  EXPECT_EQ(before.exchange("x\n"), "OK");
  daemon_.command("gone");
  EXPECT_FALSE(Client(0).connected());
  EXPECT_EQ(before.exchange("x\n"), "OK");
  daemon_.command("back");
  EXPECT_EQ(Client(0).exchange("x\n"), "OK");
}

TEST_F(ModemStandIn, RecordsWhatHappensInItsOrder) {
  {
    const Client client(0);
    EXPECT_EQ(client.exchange("a\0b\n"s), "OK");
  }
  EXPECT_EQ(kinds(),
            (std::vector<std::string>{"open 1 ", "recv 1 a\0b\n"s, "send 1 OK", "gone 1 "}));
  EXPECT_THAT(daemon_.take_received(), ElementsAre("a\0b\n"s));
  daemon_.command("greet 1 close");
  EXPECT_EQ(Client(0).receive(), kEnd);
  EXPECT_THAT(daemon_.events("close"), SizeIs(1));
  EXPECT_EQ(daemon_.events("close").front().connection, 2);
  EXPECT_THAT(daemon_.take_received(), SizeIs(0));
}

TEST_F(ModemStandIn, RecordsWhen) {
  const auto before = std::chrono::steady_clock::now();
  const Client client(0);
  EXPECT_EQ(client.exchange("x\n"), "OK");
  const auto after = std::chrono::steady_clock::now();
  const auto received = daemon_.events("recv");
  ASSERT_THAT(received, SizeIs(1));
  EXPECT_GT(received[0].time, before - 1ms);
  EXPECT_LT(received[0].time, after);
}

TEST_F(ModemStandIn, IsOnePerCard) {
  support::WwanmdStandIn other(11);
  EXPECT_EQ(Client(11).exchange("x\n"), "OK");
  EXPECT_THAT(other.take_received(), SizeIs(1));
  EXPECT_THAT(daemon_.take_received(), SizeIs(0));
}

TEST_F(ModemStandIn, IsGoneWhenItIsKilledAndServesAgain) {
  const Client client(0);
  EXPECT_EQ(client.exchange("x\n"), "OK");
  daemon_.kill();
  EXPECT_EQ(client.receive(), kEnd);
  EXPECT_FALSE(Client(0).connected());
  daemon_.start();
  EXPECT_EQ(Client(0).exchange("y\n"), "OK");
  EXPECT_THAT(daemon_.take_received(), ElementsAre("x\n", "y\n"));
}

TEST_F(ModemStandIn, RefusesWhatItDoesNotKnow) {
  for (const char* text : {"dance", "plan", "plan x", "plan 1 dance", "plan 1 send x",
                           "plan 1 wait", "now dance", "answer \"x\""}) {
    EXPECT_THROW(daemon_.command(text), std::runtime_error) << text;
  }
}

}  // namespace
