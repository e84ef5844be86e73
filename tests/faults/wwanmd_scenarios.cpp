// The client of the modem daemon.

#include <rkutils/wwanmd.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"
#include "support/wwanmd_stand_in.h"

namespace faults {
namespace {

constexpr int kCard = 0;

struct FreeConnection {
  void operator()(wwanmd_connection* connection) const { wwanmd_free(connection); }
};

// A connection as it lies in memory, which is part of what programs' core dumps are read by.
struct ConnectionRecord {
  int card;
  char application_name[16];
  int socket;
  int flags;
  int failures;
  int busy_count;
  std::timespec last_exchange;
};

// Without a connection yet.
struct Unconnected {
  // How often in a row it has failed, and whether it is open.
  [[nodiscard]] std::string after() const {
    if (connection == nullptr) return {};
    const ConnectionRecord& now = record();
    return std::string(now.socket != -1 ? "open" : "closed") + " failures " +
           std::to_string(now.failures);
  }

  [[nodiscard]] ConnectionRecord& record() const {
    return *static_cast<ConnectionRecord*>(static_cast<void*>(connection.get()));
  }

  std::unique_ptr<wwanmd_connection, FreeConnection> connection;
  wwanmd_buffer buffer = {"signal", 6, 5};
};

struct Connected : Unconnected {
  Connected() {
    connection.reset(wwanmd_init(kCard, "tester"));
    // As if the last command had been long ago: the next one need not wait.
    record().last_exchange = {};
  }
};

constexpr auto kReplyAndState = [](const Connected& it) {
  return text_of(it.buffer.data) + "; " + it.after();
};

void send_first(Connected& it) { wwanmd_send(it.connection.get(), &it.buffer); }

// The file that marks a card, for one of which no daemon is asked.
template <int kMarked>
struct Marker {
  Marker() {
    support::put("/tmp/status/wwanmd/card" + std::to_string(kMarked) + "/suspended", "");
    support::put("/tmp/status/wwanmd/card" + std::to_string(kMarked) + "/reset", "");
  }

  static std::string after() { return {}; }

  const Folder folder{"/tmp/status"};
};

std::shared_ptr<void> daemon() {
  auto stand_in = std::make_shared<support::WwanmdStandIn>(kCard);
  stand_in->command("answer \"signal\" \"OK -70\"");
  return stand_in;
}

Scenario with_daemon(Scenario scenario) {
  scenario.surroundings = daemon;
  return scenario;
}

}  // namespace

Scenarios wwanmd() {
  return {
      with_daemon(scenario<Connected>("wwanmd_close",
                                      [](Connected& it) {
                                        wwanmd_close(it.connection.get());
                                        return Word{"done"};
                                      })),
      with_daemon(scenario<Connected>(
          "wwanmd_command", kPrepared,
          [](Connected& it) { return wwanmd_command(it.connection.get(), &it.buffer); },
          kReplyAndState)),
      with_daemon(scenario<Connected>("wwanmd_free",
                                      [](Connected& it) {
                                        it.connection.reset();
                                        return Word{"done"};
                                      })),
      scenario<Marker<1>>("wwanmd_in_reset", [](Marker<1>& /*it*/) { return wwanmd_in_reset(0); }),
      with_daemon(scenario<Unconnected>("wwanmd_init",
                                        [](Unconnected& it) {
                                          it.connection.reset(wwanmd_init(kCard, "tester"));
                                          return made(it.connection.get());
                                        })),
      scenario<Marker<0>>("wwanmd_is_suspended",
                          [](Marker<0>& /*it*/) { return wwanmd_is_suspended(0); }),
      with_daemon(scenario<Connected>(
          "wwanmd_open",
          [](Connected& it) {
            wwanmd_close(it.connection.get());
            it.record().flags = 0;  // as if it had never been open: the introduction need not wait
          },
          [](Connected& it) { return wwanmd_open(it.connection.get()); })),
      with_daemon(scenario<Connected>(
          "wwanmd_recv", send_first,
          [](Connected& it) { return wwanmd_recv(it.connection.get(), &it.buffer); },
          kReplyAndState)),
      with_daemon(scenario<Connected>(
          "wwanmd_send", kPrepared,
          [](Connected& it) { return wwanmd_send(it.connection.get(), &it.buffer); })),
      with_daemon(scenario<Connected>(
          "wwanmd_send soon after another",
          [](Connected& it) {
            wwanmd_command(it.connection.get(), &it.buffer);
            it.buffer = {"signal", 6, 5};
          },
          [](Connected& it) { return wwanmd_send(it.connection.get(), &it.buffer); })),
  };
}

}  // namespace faults
