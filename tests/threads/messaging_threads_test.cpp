// Events, short messages, status files and modems, used by several threads at once.

#include <rkutils/event.h>
#include <rkutils/simple_sms.h>
#include <rkutils/status_interface.h>
#include <rkutils/wwanmd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <zmq.h>

#include "support/at_once.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/syslog_collector.h"
#include "support/wwanmd_stand_in.h"

namespace {

using support::at_once;

constexpr int kThreads = 4;

// ---- Events ----

// Into a file in the pipe's place, where each record comes over the one before.
TEST(ThreadsWithEvents, Throw) {
  const std::string path = "/tmp/status/event-manager/throw";
  support::put(path, "");
  at_once(kThreads, [](int thread) {
    for (int round = support::rounds(500); round > 0; --round) {
      ASSERT_EQ(rkevent(static_cast<unsigned>(thread), 0, "text"), 0);
    }
  });
  EXPECT_EQ(std::filesystem::file_size(path), sizeof(rkevent_record));
  std::filesystem::remove_all("/tmp/status");
}

// All in one context, each with a source and a sink of its own.
TEST(ThreadsWithEvents, ShareAContext) {
  void* const context = zmq_ctx_new();
  at_once(kThreads, [context](int thread) {
    const std::string address = "inproc://events" + std::to_string(thread);
    void* const source = create_legacy_source_with_addr(context, address.c_str());
    void* const sink = register_legacy_sink_with_addr(context, address.c_str());
    EXPECT_NE(source, nullptr);
    EXPECT_NE(sink, nullptr);
    const int patience_ms = 20;
    EXPECT_EQ(zmq_setsockopt(sink, ZMQ_RCVTIMEO, &patience_ms, sizeof patience_ms), 0);
    rkevent_record record = {static_cast<std::uint32_t>(thread), 0, "text"};
    rkevent_record received = {};
    int size = -1;
    // What is sent before the sink is connected is lost.
    for (int tries = 0; tries < 500 && size < 0; ++tries) {
      EXPECT_EQ(dispatch_legacy_event(source, &record), 0);
      size = zmq_recv(sink, &received, sizeof received, 0);
    }
    EXPECT_EQ(size, static_cast<int>(sizeof received));
    EXPECT_EQ(received.event, static_cast<std::uint32_t>(thread));
    zmq_close(source);
    zmq_close(sink);
  });
  zmq_ctx_term(context);
}

// ---- Short messages ----

TEST(ThreadsWithShortMessages, ReadTheSpool) {
  const std::string spool = "/var/spool/sms/incoming/";
  for (int i = 0; i < kThreads; ++i) {
    support::put(spool + std::to_string(i), "From: +49 30 " + std::to_string(i) + "\n\nhello\n");
  }
  at_once(kThreads, [](int thread) {
    const std::string id = std::to_string(thread);
    for (int round = support::rounds(200); round > 0; --round) {
      std::vector<std::pair<long, std::string>> ids;
      CSimpleSMS::RetrieveIncomingIds(ids);
      ASSERT_THAT(ids, testing::SizeIs(kThreads));
      const std::unique_ptr<CSimpleSMS> sms(CSimpleSMS::getIncomingSMSById(id));
      ASSERT_NE(sms, nullptr);
      ASSERT_EQ(sms->address, "+49 30 " + id);
    }
  });
  at_once(kThreads, [](int thread) {
    EXPECT_EQ(CSimpleSMS::DeleteIncomingSMSById(std::to_string(thread)), 0);
  });
  EXPECT_TRUE(std::filesystem::is_empty(spool));
}

// ---- Status files ----

TEST(ThreadsWithStatusFiles, HaveInterfacesOfTheirOwn) {
  at_once(kThreads, [](int thread) {
    const std::string name = "/app" + std::to_string(thread);
    StatusInterface status;
    ASSERT_TRUE(status.setup(BASEPATH_STATUS, name.c_str()));
    for (int round = support::rounds(200); round > 0; --round) {
      const std::string state = std::to_string(thread) + ":" + std::to_string(round);
      ASSERT_TRUE(status.setStatus("/state", state.c_str()));
      String value;
      ASSERT_TRUE(status.getStatus("/state", value));
      ASSERT_EQ(value.c_str(), state);
    }
    ASSERT_TRUE(status.setLink("/link", "state"));
  });
  std::filesystem::remove_all("/tmp/status");
}

// ---- Modems ----

// Connections are made one after the other, for each sets the name in the log.
TEST(ThreadsWithModems, HaveConnectionsOfTheirOwn) {
  const support::SyslogCollector log;
  std::vector<std::unique_ptr<support::WwanmdStandIn>> daemons;
  std::vector<wwanmd_connection*> connections;
  for (int card = 1; card <= kThreads; ++card) {
    daemons.push_back(std::make_unique<support::WwanmdStandIn>(card));
    connections.push_back(wwanmd_init(card, "tester"));
    ASSERT_NE(connections.back(), nullptr);
  }
  at_once(kThreads, [&connections](int thread) {
    const std::string command = "command " + std::to_string(thread) + "\n";
    const auto buffer = std::make_unique<wwanmd_buffer>();
    std::memcpy(buffer->data, command.data(), command.size());
    buffer->length = static_cast<int>(command.size());
    EXPECT_EQ(wwanmd_command(connections.at(static_cast<std::size_t>(thread)), buffer.get()), 0);
    EXPECT_EQ(wwanmd_in_reset(thread + 1), 0);
    EXPECT_EQ(wwanmd_is_suspended(thread + 1), 0);
  });
  for (std::size_t i = 0; i < connections.size(); ++i) {
    EXPECT_THAT(daemons[i]->take_received(),
                testing::Contains("command " + std::to_string(i) + "\n"));
    wwanmd_free(connections[i]);
  }
}

}  // namespace
