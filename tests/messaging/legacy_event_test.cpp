// Events over ZeroMQ, from sources to sinks.

#include <rkutils/event.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <unistd.h>
#include <zmq.h>

#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/in_child.h"
#include "support/interruption.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

using namespace std::chrono_literals;
using support::Interruption;
using testing::Contains;
using testing::IsEmpty;
using testing::IsSubsetOf;

static_assert(
    std::is_same_v<decltype(&dispatch_legacy_event), int (*)(void*, const rkevent_record*)>);
static_assert(
    std::is_same_v<decltype(&create_legacy_source_with_addr), void* (*)(void*, const char*)>);
static_assert(std::is_same_v<decltype(&create_legacy_source), void* (*)(void*)>);
static_assert(
    std::is_same_v<decltype(&register_legacy_sink_with_addr), void* (*)(void*, const char*)>);
static_assert(std::is_same_v<decltype(&register_legacy_sink), void* (*)(void*)>);

constexpr char kDefaultAddress[] = "tcp://127.0.0.1:47011";
constexpr char kOtherAddress[] = "tcp://127.0.0.1:47012";

struct CloseSocket {
  void operator()(void* socket) const { zmq_close(socket); }
};
using Socket = std::unique_ptr<void, CloseSocket>;

rkevent_record make_record(std::uint32_t event, std::uint32_t parameter = 0,
                           const char* text = "") {
  rkevent_record record = {event, parameter, ""};
  std::strncpy(record.text, text, sizeof record.text - 1);
  return record;
}

std::string bytes_of(const rkevent_record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

int option(void* socket, int name) {
  int value = -1;
  std::size_t size = sizeof value;
  EXPECT_EQ(zmq_getsockopt(socket, name, &value, &size), 0);
  return value;
}

std::string last_endpoint(void* socket) {
  char text[256] = "";
  std::size_t size = sizeof text;
  EXPECT_EQ(zmq_getsockopt(socket, ZMQ_LAST_ENDPOINT, text, &size), 0);
  return text;
}

// The next message, whole; nothing when there is none for a while.
std::optional<std::string> receive(void* socket, std::chrono::milliseconds patience = 5s) {
  const int milliseconds = static_cast<int>(patience.count());
  EXPECT_EQ(zmq_setsockopt(socket, ZMQ_RCVTIMEO, &milliseconds, sizeof milliseconds), 0);
  char bytes[512];
  const int size = zmq_recv(socket, bytes, sizeof bytes, 0);
  if (size < 0) return std::nullopt;
  EXPECT_EQ(option(socket, ZMQ_RCVMORE), 0);
  return std::string(bytes, static_cast<std::size_t>(size));
}

// A source does not know when a sink has come: until then it sends records of their own kind.
constexpr std::uint32_t kProbe = 0xffffffff;

void wait_until_connected(void* source, void* sink) {
  const rkevent_record probe = make_record(kProbe);
  for (int tries = 0; tries < 1000; ++tries) {
    ASSERT_EQ(dispatch_legacy_event(source, &probe), 0);
    if (receive(sink, 5ms)) return;
  }
  FAIL() << "the sink does not come to hear the source";
}

// The next message that is no probe.
std::string receive_record(void* sink) {
  for (;;) {
    const std::optional<std::string> message = receive(sink);
    if (!message) return "nothing";
    if (*message != bytes_of(make_record(kProbe))) return *message;
  }
}

// With a context, which ends only when all of its sockets are closed: one that is left open makes
// the test hang, as descriptors that are left open make it fail.
class LegacyEvent : public testing::Test {
 protected:
  void TearDown() override {
    zmq_ctx_term(context_);
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
    EXPECT_THAT(log_.take(), IsEmpty());
  }

  support::SyslogCollector log_;
  const std::map<int, std::string> descriptors_before_ = support::open_descriptors();
  void* const context_ = zmq_ctx_new();
};

using LegacySource = LegacyEvent;
using LegacySink = LegacyEvent;
using DispatchLegacyEvent = LegacyEvent;

// ---- Sources ----

TEST_F(LegacySource, IsAPublisherAtTheDefaultAddress) {
  const Socket source(create_legacy_source(context_));
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(option(source.get(), ZMQ_TYPE), ZMQ_PUB);
  EXPECT_EQ(last_endpoint(source.get()), kDefaultAddress);
}

TEST_F(LegacySource, IsAPublisherAtAGivenAddress) {
  for (const char* address : {kOtherAddress, "ipc:///tmp/events", "inproc://events"}) {
    const Socket source(create_legacy_source_with_addr(context_, address));
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(option(source.get(), ZMQ_TYPE), ZMQ_PUB);
    EXPECT_EQ(last_endpoint(source.get()), address);
  }
}

// ZeroMQ counts a socket until it is really closed, soon after zmq_close().
Socket source_within(std::chrono::milliseconds patience, void* context, const char* address) {
  for (auto left = patience; left > 0ms; left -= 1ms) {
    Socket socket(create_legacy_source_with_addr(context, address));
    if (socket != nullptr) return socket;
    std::this_thread::sleep_for(1ms);
  }
  return nullptr;
}

TEST_F(LegacySource, IsTheOnlyOneAtItsAddress) {
  const Socket first(create_legacy_source(context_));
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(create_legacy_source(context_), nullptr);
  EXPECT_EQ(errno, EADDRINUSE);
  EXPECT_EQ(create_legacy_source_with_addr(context_, kDefaultAddress), nullptr);
  EXPECT_EQ(errno, EADDRINUSE);
}

TEST_F(LegacySource, ThatFailsLeavesNoSocket) {
  // Two: one for the first source and one for all that fail.
  ASSERT_EQ(zmq_ctx_set(context_, ZMQ_MAX_SOCKETS, 2), 0);
  const Socket first(create_legacy_source(context_));
  ASSERT_NE(first, nullptr);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(create_legacy_source(context_), nullptr);
  EXPECT_NE(source_within(5s, context_, kOtherAddress), nullptr);
}

TEST_F(LegacySource, WithoutADescriptorToListenIsNull) {
  void* const context = context_;
  // Starts the context, which has all that it needs for itself then.
  const Socket other(zmq_socket(context, ZMQ_PAIR));
  int error = 0;
  void* source = nullptr;
  {
    const support::NoMoreDescriptors few(1);  // for the ZeroMQ socket itself
    source = create_legacy_source_with_addr(context, "ipc:///tmp/events");
    error = errno;
  }
  EXPECT_EQ(source, nullptr);
  EXPECT_EQ(error, EMFILE);
}

TEST_F(LegacySource, TakesAFileOver) {
  const Socket first(create_legacy_source_with_addr(context_, "ipc:///tmp/events"));
  ASSERT_NE(first, nullptr);
  const Socket before(register_legacy_sink_with_addr(context_, "ipc:///tmp/events"));
  wait_until_connected(first.get(), before.get());
  const Socket second(create_legacy_source_with_addr(context_, "ipc:///tmp/events"));
  ASSERT_NE(second, nullptr);
  const Socket after(register_legacy_sink_with_addr(context_, "ipc:///tmp/events"));
  wait_until_connected(second.get(), after.get());
  const rkevent_record of_first = make_record(1);
  const rkevent_record of_second = make_record(2);
  EXPECT_EQ(dispatch_legacy_event(first.get(), &of_first), 0);
  EXPECT_EQ(dispatch_legacy_event(second.get(), &of_second), 0);
  EXPECT_EQ(receive_record(before.get()), bytes_of(of_first));
  EXPECT_EQ(receive_record(after.get()), bytes_of(of_second));
}

TEST_F(LegacySource, StaysWhenASecondOneFails) {
  const Socket source(create_legacy_source(context_));
  EXPECT_EQ(create_legacy_source(context_), nullptr);
  const Socket sink(register_legacy_sink(context_));
  wait_until_connected(source.get(), sink.get());
}

// ---- Sinks ----

TEST_F(LegacySink, IsASubscriberOfTheDefaultAddress) {
  const Socket sink(register_legacy_sink(context_));
  ASSERT_NE(sink, nullptr);
  EXPECT_EQ(option(sink.get(), ZMQ_TYPE), ZMQ_SUB);
  EXPECT_EQ(last_endpoint(sink.get()), kDefaultAddress);
}

TEST_F(LegacySink, IsASubscriberOfAGivenAddress) {
  const Socket sink(register_legacy_sink_with_addr(context_, kOtherAddress));
  ASSERT_NE(sink, nullptr);
  EXPECT_EQ(option(sink.get(), ZMQ_TYPE), ZMQ_SUB);
  EXPECT_EQ(last_endpoint(sink.get()), kOtherAddress);
}

TEST_F(LegacySink, ReceivesEveryRecordInOrder) {
  const Socket source(create_legacy_source(context_));
  const Socket sink(register_legacy_sink(context_));
  wait_until_connected(source.get(), sink.get());
  // No more than the queues take: the sink does not read meanwhile.
  constexpr std::uint32_t kRecords = 500;
  for (std::uint32_t i = 0; i < kRecords; ++i) {
    const rkevent_record record = make_record(i, ~i, std::to_string(i).c_str());
    ASSERT_EQ(dispatch_legacy_event(source.get(), &record), 0);
  }
  for (std::uint32_t i = 0; i < kRecords; ++i) {
    ASSERT_EQ(receive_record(sink.get()), bytes_of(make_record(i, ~i, std::to_string(i).c_str())));
  }
  EXPECT_EQ(receive(sink.get(), 20ms), std::nullopt);
}

TEST_F(LegacySink, ReceivesWhatTheOthersReceive) {
  const Socket source(create_legacy_source_with_addr(context_, kOtherAddress));
  std::vector<Socket> sinks;
  for (int i = 0; i < 3; ++i) {
    sinks.emplace_back(register_legacy_sink_with_addr(context_, kOtherAddress));
    wait_until_connected(source.get(), sinks.back().get());
  }
  const rkevent_record record = make_record(1, 2, "to all");
  EXPECT_EQ(dispatch_legacy_event(source.get(), &record), 0);
  for (const Socket& sink : sinks) EXPECT_EQ(receive_record(sink.get()), bytes_of(record));
}

TEST_F(LegacySink, ReceivesRecordsOfEveryBeginning) {
  const Socket source(create_legacy_source(context_));
  const Socket sink(register_legacy_sink(context_));
  wait_until_connected(source.get(), sink.get());
  for (const std::uint32_t event : {0x00000000U, 0x01ffff01U, 0x80808080U, 0xfffffffeU}) {
    const rkevent_record record = make_record(event);
    EXPECT_EQ(dispatch_legacy_event(source.get(), &record), 0);
    EXPECT_EQ(receive_record(sink.get()), bytes_of(record));
  }
}

TEST_F(LegacySink, MayComeBeforeItsSource) {
  const Socket sink(register_legacy_sink(context_));
  const Socket source(create_legacy_source(context_));
  wait_until_connected(source.get(), sink.get());
}

TEST_F(LegacySink, IsReachedFromAnotherContext) {
  void* const other = zmq_ctx_new();
  {
    const Socket source(create_legacy_source(other));
    const Socket sink(register_legacy_sink(context_));
    wait_until_connected(source.get(), sink.get());
    const rkevent_record record = make_record(7, 8, "between processes it is the same");
    EXPECT_EQ(dispatch_legacy_event(source.get(), &record), 0);
    EXPECT_EQ(receive_record(sink.get()), bytes_of(record));
  }
  zmq_ctx_term(other);
}

// ---- Both ----

struct Maker {
  const char* name;
  void* (*with_address)(void*, const char*);
  void* (*plain)(void*);
};

class LegacySocket : public LegacyEvent, public testing::WithParamInterface<Maker> {};

TEST_P(LegacySocket, AtAnAddressThatIsNoneIsNullAndLeavesNoSocket) {
  ASSERT_EQ(zmq_ctx_set(context_, ZMQ_MAX_SOCKETS, 1), 0);
  const std::initializer_list<std::pair<const char*, int>> addresses = {
      {"", EINVAL},
      {"127.0.0.1:47011", EINVAL},
      {"tcp:/127.0.0.1:47011", EINVAL},
      {"carrier-pigeon://roof", EPROTONOSUPPORT},
      {"tcp://127.0.0.1", EINVAL},
      {"tcp://127.0.0.1:", EINVAL},
      {"tcp://127.0.0.1:port", EINVAL},
  };
  for (const auto& [address, error] : addresses) {
    // The one socket may be the last one's for another moment.
    int found = EMFILE;
    for (int tries = 0; tries < 5000 && found == EMFILE; ++tries) {
      const Socket socket(GetParam().with_address(context_, address));
      found = errno;
      ASSERT_EQ(socket, nullptr) << address;
      if (found == EMFILE) std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(found, error) << address << ": " << zmq_strerror(found);
  }
}

TEST_P(LegacySocket, OfNullIsNull) {
  EXPECT_EQ(GetParam().with_address(context_, nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(GetParam().with_address(nullptr, kOtherAddress), nullptr);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(GetParam().plain(nullptr), nullptr);
  EXPECT_EQ(errno, EFAULT);
}

TEST_P(LegacySocket, OfAnEndedContextIsNull) {
  const Socket before(GetParam().plain(context_));
  zmq_ctx_shutdown(context_);
  EXPECT_EQ(GetParam().with_address(context_, kOtherAddress), nullptr);
  EXPECT_EQ(errno, ETERM);
}

TEST_P(LegacySocket, IsMadeThroughSignals) {
  // Starts the context: its own threads are not to be interrupted.
  const Socket other(zmq_socket(context_, ZMQ_PAIR));
  bool interrupted = false;
  Socket socket;
  support::run_with_failing_calls(
      {{support::SystemCall::kPoll, EINTR, 0, 3, [&] { interrupted = true; }}},
      [&] { socket.reset(GetParam().plain(context_)); });
  EXPECT_NE(socket, nullptr);
  EXPECT_TRUE(interrupted);
}

TEST_P(LegacySocket, WithoutADescriptorIsNull) {
  // Not read in the absence of descriptors, for the sanitizer needs some to look at the test.
  void* const context = context_;
  const auto make = GetParam().plain;
  // The first one of a context needs some for the context, later ones need their own.
  for (const bool first : {true, false}) {
    const Socket other(first ? nullptr : zmq_socket(context, ZMQ_PAIR));
    int error = 0;
    void* socket = nullptr;
    {
      const support::NoMoreDescriptors none;
      socket = make(context);
      error = errno;
    }
    EXPECT_EQ(socket, nullptr);
    EXPECT_EQ(error, EMFILE);
  }
}

// How a call ends whose nth allocation fails: in a process of its own, for ZeroMQ ends it with most.
std::string outcome_without_memory(unsigned long nth, void* (*make)(void*)) {
  try {
    return support::in_child([&]() -> std::string {
      ::close(STDERR_FILENO);  // ZeroMQ's last words
      void* const context = zmq_ctx_new();
      zmq_socket(context, ZMQ_PAIR);  // starts the context
      const support::FailingAllocation no_memory(nth);
      try {
        if (make(context) != nullptr) return no_memory.happened() ? "all the same" : "all";
        return errno == ENOMEM ? "ENOMEM" : "another error";
      } catch (...) {
        return "an exception";
      }
    });
  } catch (const std::exception&) {
    return "the end";
  }
}

TEST_P(LegacySocket, WithoutMemoryThrowsNothing) {
  std::set<std::string> outcomes;
  for (unsigned long nth = 1; outcomes.count("all") == 0; ++nth) {
    outcomes.insert(outcome_without_memory(nth, GetParam().plain));
  }
  EXPECT_THAT(outcomes, Contains("ENOMEM"));
  EXPECT_THAT(outcomes, IsSubsetOf({"ENOMEM", "the end", "all the same", "all"}));
}

TEST_P(LegacySocket, NeedsLittleStack) {
  support::run_on_small_stack([&] {
    const Socket socket(GetParam().plain(context_));
    EXPECT_NE(socket, nullptr);
  });
}

INSTANTIATE_TEST_SUITE_P(
    Both, LegacySocket,
    testing::Values(Maker{"Source", create_legacy_source_with_addr, create_legacy_source},
                    Maker{"Sink", register_legacy_sink_with_addr, register_legacy_sink}),
    support::CaseName());

// ---- Dispatching ----

TEST_F(DispatchLegacyEvent, SendsTheRecordAsItIs) {
  const Socket source(create_legacy_source(context_));
  const Socket sink(register_legacy_sink(context_));
  wait_until_connected(source.get(), sink.get());
  rkevent_record record;
  std::memset(&record, 0xe4, sizeof record);  // no NUL
  const std::string expected = bytes_of(record);
  EXPECT_EQ(dispatch_legacy_event(source.get(), &record), 0);
  std::memset(&record, 0, sizeof record);  // the message is a copy
  EXPECT_EQ(receive_record(sink.get()), expected);
}

TEST_F(DispatchLegacyEvent, WithoutASinkSucceeds) {
  const Socket source(create_legacy_source(context_));
  const rkevent_record record = make_record(1);
  for (int i = 0; i < 5000; ++i) ASSERT_EQ(dispatch_legacy_event(source.get(), &record), 0);
}

TEST_F(DispatchLegacyEvent, FreesItsCopyOnEveryWay) {
  const Socket source(create_legacy_source(context_));
  const Socket sink(zmq_socket(context_, ZMQ_SUB));
  const rkevent_record record = make_record(1);
  dispatch_legacy_event(source.get(), &record);  // the first one sets something up in ZeroMQ
  const long before = support::unfreed_count();
  dispatch_legacy_event(source.get(), &record);
  dispatch_legacy_event(sink.get(), &record);
  dispatch_legacy_event(nullptr, &record);
  EXPECT_EQ(support::unfreed_count(), before);
}

TEST_F(DispatchLegacyEvent, OnWhatCannotSendIsMinus1) {
  const rkevent_record record = make_record(1);
  EXPECT_EQ(dispatch_legacy_event(nullptr, &record), -1);
  EXPECT_EQ(errno, ENOTSOCK);
  EXPECT_EQ(dispatch_legacy_event(context_, &record), -1);
  EXPECT_EQ(errno, ENOTSOCK);
  const Socket sink(register_legacy_sink(context_));
  EXPECT_EQ(dispatch_legacy_event(sink.get(), &record), -1);
  EXPECT_EQ(errno, ENOTSUP);
}

TEST_F(DispatchLegacyEvent, OfNullIsMinus1) {
  const Socket source(create_legacy_source(context_));
  EXPECT_EQ(dispatch_legacy_event(source.get(), nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(DispatchLegacyEvent, AfterTheEndOfTheContextIsMinus1) {
  const Socket source(create_legacy_source(context_));
  zmq_ctx_shutdown(context_);
  const rkevent_record record = make_record(1);
  EXPECT_EQ(dispatch_legacy_event(source.get(), &record), -1);
  EXPECT_EQ(errno, ETERM);
}

TEST_F(DispatchLegacyEvent, WithoutMemoryIsMinus1) {
  const Socket source(create_legacy_source(context_));
  const rkevent_record record = make_record(1);
  // For the copy, and for ZeroMQ's own part of a message.
  for (unsigned long nth = 1; nth <= 2; ++nth) {
    const long before = support::unfreed_count();
    {
      const support::FailingAllocation no_memory(nth);
      EXPECT_EQ(dispatch_legacy_event(source.get(), &record), -1);
      EXPECT_EQ(errno, ENOMEM);
      EXPECT_TRUE(no_memory.happened());
    }
    EXPECT_EQ(support::unfreed_count(), before);
  }
}

TEST_F(DispatchLegacyEvent, AllocatesTheRecordAlone) {
  const Socket source(create_legacy_source(context_));
  const rkevent_record record = make_record(1);
  dispatch_legacy_event(source.get(), &record);  // the first one sets something up in ZeroMQ
  const support::RecordedAllocations recorded;
  EXPECT_EQ(dispatch_legacy_event(source.get(), &record), 0);
  const std::vector<std::size_t> sizes = recorded.sizes();
  ASSERT_EQ(sizes.size(), 2U) << "and what ZeroMQ needs for a message";
  EXPECT_EQ(sizes[0], sizeof record);
}

TEST_F(DispatchLegacyEvent, IsNotEndedByASignalWhereItWaits) {
  // Sources never let it wait; a socket of a kind that does.
  const Socket waiting(zmq_socket(context_, ZMQ_PUSH));
  ASSERT_EQ(zmq_bind(waiting.get(), "inproc://events"), 0);
  const rkevent_record record = make_record(1, 2, "late");
  const Interruption interruption;
  int result = -2;
  std::thread caller([&] { result = dispatch_legacy_event(waiting.get(), &record); });
  Interruption::send(caller);
  const Socket receiver(zmq_socket(context_, ZMQ_PULL));
  ASSERT_EQ(zmq_connect(receiver.get(), "inproc://events"), 0);
  EXPECT_EQ(receive(receiver.get()), bytes_of(record));
  caller.join();
  EXPECT_EQ(result, 0);
}

TEST_F(DispatchLegacyEvent, NeedsLittleStack) {
  const Socket source(create_legacy_source(context_));
  const rkevent_record record = make_record(1);
  support::run_on_small_stack([&] { EXPECT_EQ(dispatch_legacy_event(source.get(), &record), 0); });
}

TEST_F(DispatchLegacyEvent, IsFinishedThoughCancelled) {
  Socket source;
  Socket sink;
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { source.reset(create_legacy_source(context_)); }));
  ASSERT_NE(source, nullptr);
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { sink.reset(register_legacy_sink(context_)); }));
  ASSERT_NE(sink, nullptr);
  wait_until_connected(source.get(), sink.get());
  const rkevent_record record = make_record(1, 2, "text");
  int result = -1;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = dispatch_legacy_event(source.get(), &record); }));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(receive_record(sink.get()), bytes_of(record));
}

}  // namespace
