#include "support/wwanmd_stand_in.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "support/wire_text.h"

namespace support {
namespace {

WwanmdEvent parse_record(const std::string& line) {
  std::istringstream words(line);
  WwanmdEvent event;
  std::chrono::microseconds::rep time = 0;
  words >> event.kind >> time >> event.connection;
  event.time = std::chrono::steady_clock::time_point(std::chrono::microseconds(time));
  event.bytes = read_quoted(words);
  return event;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const WwanmdEvent& event) {
  return out << event.kind << ' ' << event.connection << ' ' << quote(event.bytes);
}

WwanmdStandIn::WwanmdStandIn(int card) : WwanmdStandIn(card, -1) {}

WwanmdStandIn::WwanmdStandIn(int card, int record_socket)
    : card_(card),
      folder_("/var/run/wwanmd" + std::to_string(card)),
      record_socket_(record_socket) {
  std::filesystem::create_directories(folder_);
  if (record_socket < 0) {
    record_ = "/var/lib/wwanmd" + std::to_string(card) + "/record";
    std::filesystem::create_directories(std::filesystem::path(record_).parent_path());
    std::filesystem::remove(record_);
  }
  start();
}

WwanmdStandIn::~WwanmdStandIn() {
  kill();
  std::error_code already_gone;
  std::filesystem::remove_all(folder_, already_gone);
}

void WwanmdStandIn::start() {
  std::vector<std::string> arguments = {"--card", std::to_string(card_)};
  if (record_.empty()) {
    arguments.insert(arguments.end(), {"--record-socket", std::to_string(record_socket_)});
  } else {
    arguments.insert(arguments.end(), {"--record", record_});
  }
  process_.start("tests/support/wwanmd-stand-in", arguments, record_socket_);
}

std::vector<WwanmdEvent> WwanmdStandIn::events() {
  if (process_.id() > 0) command("sync");
  std::vector<WwanmdEvent> all;
  std::ifstream file(record_);
  for (std::string line; std::getline(file, line);) all.push_back(parse_record(line));
  return all;
}

std::vector<WwanmdEvent> WwanmdStandIn::events(const std::string& kind) {
  std::vector<WwanmdEvent> some = events();
  some.erase(std::remove_if(some.begin(), some.end(),
                            [&](const WwanmdEvent& event) { return event.kind != kind; }),
             some.end());
  return some;
}

std::vector<std::string> WwanmdStandIn::take_received() {
  std::vector<std::string> received;
  for (const WwanmdEvent& event : events("recv")) received.push_back(event.bytes);
  received.erase(received.begin(), received.begin() + static_cast<std::ptrdiff_t>(taken_));
  taken_ += received.size();
  return received;
}

}  // namespace support
