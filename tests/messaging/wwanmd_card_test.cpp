// Which cards there can be, and the files by which the daemon marks them.

#include <climits>
#include <future>
#include <thread>

#include <sys/stat.h>

#include "support/interruption.h"
#include "support/without_override.h"
#include "wwanmd_fixture.h"

namespace {

using support::Stopwatch;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int kInvalidCards[] = {INT_MIN, -1, 6, 7, 8, 9, 16, 17, 100, INT_MAX};
constexpr int kCards[] = {0, 1, 2, 3, 4, 5, 10, 11, 12, 13, 14, 15};

class WwanmdCard : public WwanmdTest {
 protected:
  void expect_refusal(int card) {
    EXPECT_THAT(log_.take(), ElementsAre(err("invalid wwan card " + std::to_string(card))));
  }
};

TEST_F(WwanmdCard, OutsideOfTheirNumbersIsRefusedByAll) {
  const Connection connection = connect();
  wwanmd_buffer buffer = command("x");
  for (const int card : kInvalidCards) {
    EXPECT_EQ(wwanmd_init(card, kName), nullptr);
    expect_refusal(card);
    EXPECT_EQ(wwanmd_in_reset(card), -1);
    expect_refusal(card);
    EXPECT_EQ(wwanmd_is_suspended(card), -1);
    expect_refusal(card);

    record_of(connection).card = card;
    EXPECT_EQ(wwanmd_open(connection.get()), -1);
    expect_refusal(card);
    EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
    expect_refusal(card);
    EXPECT_EQ(wwanmd_recv(connection.get(), &buffer), -1);
    expect_refusal(card);
    EXPECT_EQ(wwanmd_command(connection.get(), &buffer), -1);
    expect_refusal(card);
  }
  record_of(connection).card = 0;
  EXPECT_THAT(daemon_->take_received(), IsEmpty());
  EXPECT_EQ(buffer.length, 1) << "the command was changed";
  expect_exchange_succeeds(connection);  // on the socket that it had
  EXPECT_THAT(daemon_->events("open"), SizeIs(1));
}

TEST_F(WwanmdCard, OfEveryNumberHasADaemonOfItsOwn) {
  for (const int card : kCards) {
    std::unique_ptr<support::WwanmdStandIn> other;
    if (card != 0) other = std::make_unique<support::WwanmdStandIn>(card);
    support::WwanmdStandIn& daemon = other ? *other : *daemon_;
    const Connection connection(wwanmd_init(card, kName));
    ASSERT_NE(connection, nullptr) << card;
    EXPECT_THAT(daemon.take_received(), ElementsAre(kInit));
    EXPECT_EQ(wwanmd_in_reset(card), 0);
    EXPECT_EQ(wwanmd_is_suspended(card), 0);
  }
}

TEST_F(WwanmdCard, IsSuspendedWhileItsMarkerIsThere) {
  for (const int card : kCards) {
    EXPECT_EQ(wwanmd_is_suspended(card), 0);
    Marker marker(card, "suspended");
    EXPECT_EQ(wwanmd_is_suspended(card), 1);
    EXPECT_EQ(wwanmd_is_suspended((card + 1) % 6), 0);
    EXPECT_EQ(wwanmd_in_reset(card), 0);
    marker.remove();
    EXPECT_EQ(wwanmd_is_suspended(card), 0);
  }
}

TEST_F(WwanmdCard, IsNotMarkedByWhatCannotBeRead) {
  const Marker reset(3, "reset");
  const Marker suspended(3, "suspended");
  ::chmod("/tmp/status/wwanmd/card3/reset", 0);
  ::chmod("/tmp/status/wwanmd/card3/suspended", 0);
  int results[] = {-1, -1};
  support::run_without_override([&results] {
    results[0] = wwanmd_in_reset(3);
    results[1] = wwanmd_is_suspended(3);
  });
  EXPECT_THAT(results, Each(0));
}

// Each card is another thread's, so that all wait at once.
TEST_F(WwanmdCard, ThatStaysInResetIsWaitedForFiveSecondsAndLeft) {
  std::vector<std::unique_ptr<support::WwanmdStandIn>> daemons;
  std::vector<Connection> connections;
  for (int card = 1; card <= 4; ++card) {
    daemons.push_back(std::make_unique<support::WwanmdStandIn>(card));
    connections.push_back(connect(card));
  }
  std::vector<std::unique_ptr<Marker>> markers;
  for (const int card : {1, 2, 3, 4, 5, 10}) {
    markers.push_back(std::make_unique<Marker>(card, "reset"));
  }
  wwanmd_buffer sent = command("send");
  wwanmd_buffer received = command("receive");
  wwanmd_buffer commanded = command("command");
  const auto timed = [](const std::function<int()>& call) {
    return std::async(std::launch::async, [call] {
      const Stopwatch watch;
      const int result = call();
      EXPECT_GE(watch.elapsed(), 5s);
      EXPECT_LT(watch.elapsed(), 5s + kSlack);
      return result;
    });
  };
  auto opening = timed([&] { return wwanmd_open(connections[0].get()); });
  auto sending = timed([&] { return wwanmd_send(connections[1].get(), &sent); });
  auto receiving = timed([&] { return wwanmd_recv(connections[2].get(), &received); });
  auto commanding = timed([&] { return wwanmd_command(connections[3].get(), &commanded); });
  auto looking = timed([] { return wwanmd_in_reset(5); });
  auto making = timed([] { return wwanmd_init(10, kName) == nullptr ? 0 : 1; });
  EXPECT_EQ(opening.get(), -11);
  EXPECT_EQ(sending.get(), -11);
  EXPECT_EQ(receiving.get(), -11);
  EXPECT_EQ(commanding.get(), -1);
  EXPECT_EQ(looking.get(), 1);
  EXPECT_EQ(making.get(), 0);
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN) << "receiving leaves it so";

  EXPECT_THAT(log_.take(), testing::UnorderedElementsAre(debug("wwanmd1 is currently in reset"),
                                                         debug("wwanmd2 is currently in reset"),
                                                         debug("wwanmd3 is currently in reset"),
                                                         debug("wwanmd4 is currently in reset"),
                                                         debug("wwanmd10 is currently in reset")));
  // The connections are closed, and good once the reset is over.
  markers.clear();
  for (std::size_t i = 0; i < connections.size(); ++i) {
    EXPECT_EQ(record_of(connections[i]).socket, -1);
    EXPECT_THAT(daemons[i]->take_received(), ElementsAre(kInit));
    EXPECT_THAT(daemons[i]->events("gone"), SizeIs(1));
    expect_exchange_succeeds(connections[i]);
  }
}

// Sending looks at 0, 1 and 2 seconds and finds the marker, and at 3 that it has gone.
TEST_F(WwanmdCard, ThatComesOutOfResetIsGoneOnWithASecondLater) {
  const Connection connection = connect();
  const Connection closed = connect();
  wwanmd_close(closed.get());
  daemon_->take_received();
  Marker marker(0, "reset");
  const Stopwatch watch;
  const auto expect_four_seconds = [&watch] {
    EXPECT_GE(watch.elapsed(), 4s);
    EXPECT_LT(watch.elapsed(), 4s + kSlack);
  };
  std::thread commanding([&] {
    wwanmd_buffer buffer = command("x");
    EXPECT_EQ(wwanmd_command(connection.get(), &buffer), 0);
    expect_four_seconds();
  });
  std::thread opening([&] {
    EXPECT_EQ(wwanmd_open(closed.get()), 0);
    expect_four_seconds();
  });
  std::thread looking([&] {
    EXPECT_EQ(wwanmd_in_reset(0), 0);
    expect_four_seconds();
  });
  std::thread signalled([&] {
    EXPECT_EQ(wwanmd_in_reset(0), 0);
    expect_four_seconds();
  });
  {
    const support::Interruption interruption;
    for (int i = 0; i < 5; ++i) support::Interruption::send(signalled);
    std::this_thread::sleep_for(2500ms - watch.elapsed());
    marker.remove();
    commanding.join();
    opening.join();
    looking.join();
    signalled.join();
  }
  EXPECT_THAT(daemon_->take_received(), testing::UnorderedElementsAre("x\n", kInit));
}

}  // namespace
