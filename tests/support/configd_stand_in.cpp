#include "support/configd_stand_in.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/private_router.h"
#include "support/wire_text.h"

namespace support {
namespace {

using rkutils::internal::UniqueFd;

constexpr char kSocketFolder[] = "/var/run/configd";

std::map<std::string, std::string> read_values(const std::string& path) {
  std::map<std::string, std::string> values;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos) values[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return values;
}

Datagram parse_record(const std::string& line) {
  const std::size_t client = line.find(' ') + 1;
  const std::size_t bytes = line.find(' ', client) + 1;
  const bool request = line.compare(0, client, "recv ") == 0;
  return {request ? Datagram::Direction::kToDaemon : Datagram::Direction::kFromDaemon,
          line.substr(client, bytes - 1 - client), unquote(line.substr(bytes))};
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Datagram& datagram) {
  return out << (datagram.direction == Datagram::Direction::kToDaemon ? "-> " : "<- ")
             << quote(datagram.bytes);
}

ConfigdStandIn::ConfigdStandIn(Setup setup) : setup_(std::move(setup)) {
  std::filesystem::create_directories(kSocketFolder);
  ::chmod(kSocketFolder, 0777);
  std::filesystem::create_directories(std::filesystem::path(setup_.values).parent_path());
  std::filesystem::remove(setup_.values);
  if (!setup_.initial_values.empty()) {
    std::filesystem::copy_file(setup_.initial_values, setup_.values);
  }
  std::filesystem::remove(setup_.record);
  start();
}

ConfigdStandIn::~ConfigdStandIn() {
  kill();
  std::error_code already_gone;
  std::filesystem::remove_all(kSocketFolder, already_gone);
}

void ConfigdStandIn::start() {
  std::array<int, 2> ends = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  control_.reset(ends[0]);
  UniqueFd theirs(ends[1]);
  const std::string program = built_program("tests/support/configd-stand-in");
  const std::string control = std::to_string(theirs.get());
  std::vector<const char*> arguments = {program.c_str(), "--control", control.c_str(), "--values",
                                        setup_.values.c_str()};
  if (!setup_.record.empty()) {
    arguments.push_back("--record");
    arguments.push_back(setup_.record.c_str());
  }
  const std::string record_socket = std::to_string(setup_.record_socket);
  if (setup_.record_socket >= 0) {
    arguments.push_back("--record-socket");
    arguments.push_back(record_socket.c_str());
  }
  arguments.push_back(nullptr);

  process_ = ::fork();
  if (process_ == 0) {
    // These the stand-in inherits.
    ::fcntl(theirs.get(), F_SETFD, 0);
    if (setup_.record_socket >= 0) ::fcntl(setup_.record_socket, F_SETFD, 0);
    ::execv(arguments[0], const_cast<char**>(arguments.data()));
    std::_Exit(EXIT_FAILURE);
  }
  theirs.reset();
  if (receive_outcome() != "ready") throw std::runtime_error("the stand-in does not start");
}

void ConfigdStandIn::kill() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
  process_ = -1;
  control_.reset();
}

void ConfigdStandIn::command(const std::string& text) {
  if (::send(control_.get(), text.data(), text.size(), MSG_NOSIGNAL) < 0) {
    throw std::system_error(errno, std::generic_category(), "stand-in's control socket");
  }
  const std::string outcome = receive_outcome();
  if (outcome != "ok") throw std::runtime_error(text + ": " + outcome);
}

std::string ConfigdStandIn::receive_outcome() {
  std::array<char, 256> buffer;
  const ssize_t length = ::recv(control_.get(), buffer.data(), buffer.size(), 0);
  return std::string(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
}

std::map<std::string, std::string> ConfigdStandIn::saved_values() const {
  return read_values(setup_.values);
}

std::vector<Datagram> ConfigdStandIn::datagrams() const {
  std::vector<Datagram> all;
  std::ifstream file(setup_.record);
  for (std::string line; std::getline(file, line);) all.push_back(parse_record(line));
  return all;
}

std::vector<std::string> ConfigdStandIn::requests() const {
  std::vector<std::string> requests;
  for (const Datagram& datagram : datagrams()) {
    if (datagram.direction == Datagram::Direction::kToDaemon) requests.push_back(datagram.bytes);
  }
  return requests;
}

}  // namespace support
