#include "support/configd_stand_in.h"

#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include <sys/stat.h>

#include "support/wire_text.h"

namespace support {
namespace {

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
  std::vector<std::string> arguments = {"--values", setup_.values};
  if (!setup_.record.empty()) {
    arguments.insert(arguments.end(), {"--record", setup_.record});
  }
  if (setup_.record_socket >= 0) {
    arguments.insert(arguments.end(), {"--record-socket", std::to_string(setup_.record_socket)});
  }
  process_.start("tests/support/configd-stand-in", arguments, setup_.record_socket);
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
