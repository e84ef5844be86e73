// The client of the configuration daemon.

#include <rkutils/config_daemon_client.h>
#include <rkutils/configd.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>
#include <rkutils/memory.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/socket.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

using rkutils::internal::UniqueFd;
using namespace std::string_view_literals;

constexpr const char* kFolder = "/var/run/configd";
constexpr const char* kServer = "/var/run/configd/daemon.sock";

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

sockaddr_un address_of(const std::string& path) {
  sockaddr_un address = {};
  check(rkutils::internal::make_unix_address(path.c_str(), address), "address");
  return address;
}

// The path of the only client's socket; "" where there is none.
std::string client_path() {
  for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
    if (entry.path() != kServer) return entry.path();
  }
  return {};
}

// The daemon's end. It answers beforehand: a reply waits at the client's socket when the query goes
// out, and so nothing has to run meanwhile.
class Daemon {
 public:
  Daemon() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = address_of(kServer);
    check(::bind(socket_.get(), rkutils::internal::as_sockaddr(address), sizeof address) == 0,
          kServer);
  }

  void answer(std::string_view bytes) const {
    const sockaddr_un client = address_of(client_path());
    check(::sendto(socket_.get(), bytes.data(), bytes.size(), 0,
                   rkutils::internal::as_sockaddr(client), sizeof client) >= 0,
          "answer");
  }

  // What has come, in quotes.
  [[nodiscard]] std::string take() const {
    char bytes[64] = "";
    const ssize_t count = ::recv(socket_.get(), bytes, sizeof bytes - 1, MSG_DONTWAIT);
    return count < 0 ? "nothing came" : text_of(bytes);
  }

  // What is left in the folder, which a client keeps its socket in.
  [[nodiscard]] static std::string client_file() {
    const std::string path = client_path();
    if (path.empty()) return "no socket file";
    const auto mode = static_cast<unsigned>(std::filesystem::status(path).permissions());
    return mode == 0777 ? "socket file" : "socket file not for all";
  }

 private:
  const Folder folder_{kFolder};
  const UniqueFd socket_;
};

struct CloseConnection {
  void operator()(configd_connection* connection) const { configd_close(connection); }
};

// Without a connection yet.
struct Closed {
  [[nodiscard]] static std::string after() { return Daemon::client_file(); }

  const Daemon daemon;
  std::unique_ptr<configd_connection, CloseConnection> connection;
};

// With a connection, and two entries of an array.
struct Open : Closed {
  Open() {
    connection.reset(configd_open());
    check(connection != nullptr, "configd_open");
    fill(0, "one");
    fill(1, "two");
  }

  void fill(std::size_t index, const char* key) {
    strlcpy(entries[index].key, key, sizeof entries[index].key);
    strlcpy(entries[index].value, "old", sizeof entries[index].value);
  }

  [[nodiscard]] std::string after() const { return usable_state(daemon, connection.get()); }

  [[nodiscard]] std::string values_and_state() const {
    return text_of(entries[0].value) + " " + text_of(entries[1].value) + "; " + after();
  }

  // "usable" when the daemon's answer comes to the connection, as it does after every failure.
  static std::string usable_state(const Daemon& daemon, configd_connection* connection) {
    std::string file = Daemon::client_file();
    if (file != "socket file") return file;
    daemon.answer("yes\n\0"sv);
    configd_query query = {};
    strlcpy(query.key, "usable", sizeof query.key);
    const bool answered = configd_prepare_get(connection, &query) == 0 && query.value == "yes"sv;
    return answered ? "usable" : "not usable";
  }

  configd_query entries[3] = {};  // the last one ends the array
  char received[16] = "";
};

constexpr auto kValuesAndState = [](const Open& it) { return it.values_and_state(); };

void answer_values(Open& it) {
  it.daemon.answer("1\n\0"sv);
  it.daemon.answer("2\n\0"sv);
}

void queue_and_answer(Open& it) {
  configd_add_query(it.connection.get(), "one");
  configd_add_query(it.connection.get(), "two");
  answer_values(it);
}

// Leaves a file where the connection's socket is going to be.
void leave_stale_file(Open& it) {
  const std::string path = client_path();
  __configd_close(it.connection.get());
  support::put(path, "");
}

// An object of the class, and the Strings that it is called with.
struct Client {
  // The daemon's answer to a get, and its echo of the set that the scenario makes.
  void answer(std::string_view bytes) const { daemon.answer(bytes); }

  [[nodiscard]] std::string after() const {
    return text_of(value.c_str()) + " " + text_of(number) + "; " + Daemon::client_file();
  }

  const Daemon daemon;
  const ConfigDaemonClient client;
  const String key{"lan.mtu"};
  const String pattern{"lan%lu.mtu"};
  const String before{"7"};
  String value{before};  // whose buffer is shared
  long number = 7;
};

constexpr auto kAnswer = [](const Client& it) { it.answer("1500\n\0"sv); };
constexpr auto kEcho = [](const Client& it) { it.answer("lan.mtu=7\n\0"sv); };
constexpr auto kIndexedEcho = [](const Client& it) { it.answer("lan2.mtu=7\n\0"sv); };

// A String ends the process where memory runs out.
template <typename Prepare, typename Act>
Scenario of_client(const std::string& name, Prepare prepare, Act act) {
  return in(Process::kOwn, scenario<Client>("ConfigDaemonClient::" + name, prepare, act));
}

// An object made by the action.
struct UnmadeClient : Closed {
  std::optional<ConfigDaemonClient> client;
};

}  // namespace

Scenarios config_daemon_client() {
  return {
      scenario<UnmadeClient>("ConfigDaemonClient::ConfigDaemonClient",
                             [](UnmadeClient& it) {
                               it.client.emplace();
                               return Word{"done"};
                             }),
      of_client("getIndexedValue", kAnswer,
                [](Client& it) {
                  it.client.getIndexedValue(it.pattern, 2, it.value);
                  return Word{"done"};
                }),
      of_client(
          "getIndexedValueAsInt", kAnswer,
          [](Client& it) { return it.client.getIndexedValueAsInt(it.pattern, 2, it.number); }),
      of_client("getValue", kAnswer,
                [](Client& it) {
                  it.client.getValue(it.key, it.value);
                  return Word{"done"};
                }),
      of_client("getValueAsInt", kAnswer,
                [](Client& it) { return it.client.getValueAsInt(it.key, it.number); }),
      of_client("setIndexedValue", kIndexedEcho,
                [](Client& it) { return it.client.setIndexedValue(it.pattern, 2, it.value); }),
      of_client(
          "setIndexedValueAsInt", kIndexedEcho,
          [](Client& it) { return it.client.setIndexedValueAsInt(it.pattern, 2, it.number); }),
      of_client("setValue", kEcho, [](Client& it) { return it.client.setValue(it.key, it.value); }),
      of_client("setValueAsInt", kEcho,
                [](Client& it) { return it.client.setValueAsInt(it.key, it.number); }),
  };
}

Scenarios configd() {
  return {
      scenario<Open>(
          "__configd_close", kPrepared,
          [](Open& it) {
            __configd_close(it.connection.get());
            return Word{"done"};
          },
          [](Open& /*it*/) { return Daemon::client_file(); }),
      scenario<Open>("__configd_open of an open one",
                     [](Open& it) { return __configd_open(it.connection.get()); }),
      scenario<Open>("__configd_open over a file left", leave_stale_file,
                     [](Open& it) { return __configd_open(it.connection.get()); }),
      scenario<Open>("configd_add_query",
                     [](Open& it) { return configd_add_query(it.connection.get(), "%s", "one"); }),
      scenario<Open>(
          "configd_clear", queue_and_answer,
          [](Open& it) {
            configd_clear(it.connection.get());
            return Word{"done"};
          },
          [](Open& /*it*/) { return Daemon::client_file(); }),
      scenario<Open>(
          "configd_close", kPrepared,
          [](Open& it) {
            it.connection.reset();
            return Word{"done"};
          },
          [](Open& /*it*/) { return Daemon::client_file(); }),
      scenario<Open>(
          "configd_done", [](Open& it) { it.daemon.answer("Ready"); },
          [](Open& it) { return configd_done(it.connection.get()); }),
      scenario<Open>("configd_fetch", queue_and_answer,
                     [](Open& it) { return configd_fetch(it.connection.get(), "two"); }),
      scenario<Open>(
          "configd_get", answer_values,
          [](Open& it) { return configd_get(it.connection.get(), it.entries); }, kValuesAndState),
      scenario<Open>("configd_get of the queue", queue_and_answer,
                     [](Open& it) { return configd_get(it.connection.get(), nullptr); }),
      scenario<Closed>("configd_open",
                       [](Closed& it) {
                         it.connection.reset(configd_open());
                         return made(it.connection.get());
                       }),
      scenario<Open>(
          "configd_prepare_get", [](Open& it) { it.daemon.answer("1\n\0"sv); },
          [](Open& it) { return configd_prepare_get(it.connection.get(), it.entries); },
          [](Open& it) { return text_of(it.entries[0].value) + "; " + Daemon::client_file(); }),
      scenario<Open>(
          "configd_recv", [](Open& it) { it.daemon.answer("text"); },
          [](Open& it) {
            return configd_recv(it.connection.get(), it.received, sizeof it.received);
          },
          [](Open& it) { return text_of(it.received); }),
      scenario<Open>(
          "configd_send", kPrepared,
          [](Open& it) { return with_errno(configd_send(it.connection.get(), "text", 4)); },
          [](Open& it) { return it.daemon.take(); }),
      scenario<Open>(
          "configd_set", [](Open& it) { it.daemon.answer("one=old\ntwo=old\n\0"sv); },
          [](Open& it) { return configd_set(it.connection.get(), it.entries); }),
  };
}

}  // namespace faults
