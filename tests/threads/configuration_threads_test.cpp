// The configuration of several threads: a daemon, files and tables that they share, and what tells
// about the device.

#include <rkutils/cfread.h>
#include <rkutils/config_daemon_client.h>
#include <rkutils/config_reader.h>
#include <rkutils/configd.h>
#include <rkutils/list.h>
#include <rkutils/systeminfo.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "support/at_once.h"
#include "support/configd_stand_in.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/syslog_collector.h"

namespace {

using support::at_once;

constexpr int kThreads = 4;

std::string name_of(int number) { return "card" + std::to_string(number); }

// A file of settings "cardN=N".
class ThreadsWithSettings : public testing::Test {
 protected:
  ThreadsWithSettings() {
    std::string text;
    for (int i = 0; i < kSettings; ++i) text += name_of(i) + "=" + std::to_string(i) + "\n";
    support::put(kPath, text);
  }
  ~ThreadsWithSettings() override { std::filesystem::remove(kPath); }

  static constexpr int kSettings = 100;
  static constexpr const char* kPath = "/tmp/settings";
};

TEST_F(ThreadsWithSettings, AskOneTable) {
  struct Close {
    void operator()(cfread_table* table) const { cfread_close(table); }
  };
  const std::unique_ptr<cfread_table, Close> table(cfread_open(kPath));
  ASSERT_NE(table, nullptr);
  at_once(kThreads, [&table](int thread) {
    for (int round = support::rounds(5000); round > 0; --round) {
      const int i = (thread + round) % kSettings;
      const cfread_entry* const entry = cfread_find_entry(table.get(), name_of(i).c_str());
      ASSERT_NE(entry, nullptr);
      ASSERT_EQ(entry->int_value, i);
      ASSERT_EQ(cfread_find_entry(table.get(), "card"), nullptr);
    }
  });
}

TEST_F(ThreadsWithSettings, ReadOneFile) {
  at_once(kThreads, [](int) {
    for (int round = support::rounds(50); round > 0; --round) {
      cfread_table* const table = cfread_open(kPath);
      ASSERT_NE(table, nullptr);
      ASSERT_NE(cfread_set_entry(table, "card1", "other"), nullptr);
      ASSERT_STREQ(cfread_find_entry(table, "card1")->value, "other");
      cfread_close(table);

      int settings = 0;
      const auto count = [](const char*, const char*, void* data) {
        ++*static_cast<int*>(data);
        return 0;
      };
      ASSERT_EQ(cfread_parse_with_callback(kPath, count, &settings, false), 0);
      ASSERT_EQ(settings, kSettings);
    }
  });
}

TEST_F(ThreadsWithSettings, AskOneReader) {
  ConfigReader reader;
  ASSERT_TRUE(reader.initialize(kPath, 16));
  at_once(kThreads, [&reader](int thread) {
    const String pattern("card%lu");
    const String none;
    for (int round = support::rounds(2000); round > 0; --round) {
      const int i = (thread + round) % kSettings;
      ASSERT_EQ(reader.getValue(name_of(i).c_str(), none).c_str(), std::to_string(i));
      ASSERT_EQ(reader.getIndexedValueAsInt(pattern, static_cast<unsigned long>(i), -1), i);
      ASSERT_EQ(reader.getValueAsInt("card", -1), -1);
    }
  });
}

TEST_F(ThreadsWithSettings, ReadWithReadersOfTheirOwn) {
  at_once(kThreads, [](int) {
    for (int round = support::rounds(50); round > 0; --round) {
      ConfigReader reader;
      ASSERT_TRUE(reader.initialize(kPath, 16));
      ASSERT_EQ(reader.getValueAsInt("card7", -1), 7);
    }
  });
}

// ---- The daemon ----

class ThreadsWithTheDaemon : public testing::Test {
 protected:
  ThreadsWithTheDaemon() {
    for (int i = 0; i < kThreads; ++i) daemon_.set_value(name_of(i), std::to_string(i));
  }

  support::SyslogCollector log_;
  support::ConfigdStandIn daemon_;
};

TEST_F(ThreadsWithTheDaemon, HaveConnectionsOfTheirOwn) {
  at_once(kThreads, [](int thread) {
    for (int round = support::rounds(50); round > 0; --round) {
      configd_connection* const connection = configd_open();
      ASSERT_NE(connection, nullptr);
      for (int i = 0; i < kThreads; ++i) ASSERT_EQ(configd_add_query(connection, "card%d", i), 0);
      ASSERT_EQ(configd_fetch(connection, "card%d", thread), std::to_string(thread));
      configd_close(connection);
    }
  });
}

TEST_F(ThreadsWithTheDaemon, HaveClientsOfTheirOwn) {
  at_once(kThreads, [](int thread) {
    const ConfigDaemonClient client;
    for (int round = support::rounds(50); round > 0; --round) {
      const std::string key = "own" + std::to_string(thread);
      ASSERT_TRUE(client.setValueAsInt(key.c_str(), round));
      long value = -1;
      ASSERT_EQ(client.getValueAsInt(key.c_str(), value), round);
    }
  });
}

// ---- The device ----

TEST(ThreadsWithSystemInfo, HaveTablesOfTheirOwn) {
  support::put("/etc/default/system-info", "name=router\nnumber=12\n");
  std::filesystem::remove_all("/tmp/progress");
  at_once(kThreads, [](int) {
    for (int round = support::rounds(500); round > 0; --round) {
      systeminfo* const table = systeminfo_init();
      ASSERT_NE(table, nullptr);
      ASSERT_EQ(systeminfo_getint(table, "number"), 12);
      ASSERT_EQ(systeminfo_getint(table, "none"), -1);
      systeminfo_free(table);
      ASSERT_EQ(get_generation("lte"), 4);
      ASSERT_EQ(in_maintenance(), 0);
      ASSERT_EQ(has_sim_holder(), 0);
    }
  });
  std::filesystem::remove("/etc/default/system-info");
}

}  // namespace
