// The client of the configuration daemon.

#include <rkutils/config_daemon_client.h>
#include <rkutils/configd.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>
#include <rkutils/memory.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <stdexcept>
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
  Open() : connected(configd_open()) {
    connection.reset(connected);
    check(connected != nullptr, "configd_open");
    put(0, "one", "old");
    put(1, "two", "old");
  }

  void put(std::size_t index, const char* key, const char* value) {
    strlcpy(entries[index].key, key, sizeof entries[index].key);
    strlcpy(entries[index].value, value, sizeof entries[index].value);
  }

  [[nodiscard]] std::string values() const {
    return "values " + text_of(entries[0].value) + " " + text_of(entries[1].value);
  }

  // Whether the connection can be used: the daemon's answer comes.
  [[nodiscard]] std::string state() const {
    const std::string file = client_file_of_daemon();
    if (file != "socket file") return file;
    daemon.answer("yes\n\0"sv);
    configd_query query = {};
    strlcpy(query.key, "usable", sizeof query.key);
    const bool answered = configd_prepare_get(connected, &query) == 0 && query.value == "yes"sv;
    return answered ? "usable" : "not usable";
  }
  [[nodiscard]] static std::string client_file_of_daemon() { return Daemon::client_file(); }

  [[nodiscard]] std::string after() const { return state(); }

  configd_connection* connected;
  configd_query entries[3] = {};  // the last one ends the array
};

}  // namespace

Scenarios configd() {
  return {
      scenario<Closed>("configd_open",
                       [](Closed& it) {
                         it.connection.reset(configd_open());
                         return made(it.connection.get());
                       }),
      scenario<Open>(
          "configd_close", kPrepared,
          [](Open& it) {
            it.connection.reset();
            return Word{"done"};
          },
          [](Open&) { return Daemon::client_file(); }),
  };
}

}  // namespace faults
