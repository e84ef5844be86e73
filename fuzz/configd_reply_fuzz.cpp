// Replies of the configuration daemon to all that its client asks.

#include <rkutils/config_daemon_client.h>
#include <rkutils/configd.h>
#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>
#include <rkutils/string.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "surroundings.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using rkutils::internal::UniqueFd;
using support::LogLine;

constexpr std::size_t kLongestKey = 255;
constexpr std::size_t kLongestFormattedKey = 254;
constexpr std::size_t kLongestValue = 1023;
constexpr std::size_t kLongestReply = 16383;
constexpr std::size_t kLongestShortReply = 16382;
// A socket queues ten datagrams and the one that is sent next waits.
constexpr std::size_t kMostReplies = 9;
constexpr std::size_t kMostEntries = 3;

void copy(char* field, const std::string& text) {
  *std::copy(text.begin(), text.end(), field) = '\0';
}

// What is in a text's field, whole and without a NUL.
std::string text_from(Input& input, std::size_t longest) {
  std::string text = input.some_bytes();
  if (input.flag()) text.append(input.below(longest + 1), 'x');
  return fuzz::text_of(text).substr(0, longest);
}

// ---- The daemon, which has answered before it is asked

class Daemon {
 public:
  Daemon() {
    std::filesystem::create_directories("/var/run/configd");
    socket_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address;
    expect(rkutils::internal::make_unix_address("/var/run/configd/daemon.sock", address) &&
               ::bind(socket_.get(), rkutils::internal::as_sockaddr(address), sizeof address) == 0,
           "the daemon has its socket");
  }

  void reply(const std::string& client, const std::string& bytes) const {
    sockaddr_un address;
    expect(rkutils::internal::make_unix_address(client.c_str(), address) &&
               ::sendto(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT,
                        rkutils::internal::as_sockaddr(address),
                        sizeof address) == static_cast<ssize_t>(bytes.size()),
           "the daemon has replied");
  }

  // Expects that it has been asked this since the last call.
  void expect_requests(const std::vector<std::string>& expected) const {
    for (const std::string& request : expected) expect_equal(next(), request, "a request");
    char byte = 0;
    expect(::recv(socket_.get(), &byte, 1, MSG_DONTWAIT) < 0, "there are no more requests");
  }

 private:
  [[nodiscard]] std::string next() const {
    std::string bytes(kLongestReply + 1, '\0');
    const ssize_t length = ::recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    expect(length >= 0, "there is a request");
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
  }

  UniqueFd socket_;
};

// ---- What the client's queue holds, and what is to come out

std::string client_file(const configd_connection* connection) {
  char path[256];
  std::snprintf(path, sizeof path, "/var/run/configd/client.%d.%p", static_cast<int>(::getpid()),
                static_cast<const void*>(connection));
  return path;
}

// The only client's file that there is.
std::string found_client_file() {
  for (const auto& entry : std::filesystem::directory_iterator("/var/run/configd")) {
    if (entry.path().filename().string().rfind("client.", 0) == 0) return entry.path();
  }
  fuzz::fail("there is no client");
}

class Session {
 public:
  Session(Input& input, const Daemon& daemon, fuzz::Log& log, std::string client)
      : input_(input), daemon_(daemon), log_(log), client_(std::move(client)) {}

  // Replies that come before `requests` more are made: those for them, and some that nobody waits for.
  void prepare(std::size_t requests) {
    if (input_.flag()) reply(reply_from_input());
    while (queue_.size() < requests) reply(reply_from_input());
  }

  // The same with one that is expected, or one that is not.
  void prepare(const std::string& expected) {
    if (queue_.empty() && input_.flag()) reply(expected);
    prepare(1);
  }

  std::string take(std::size_t longest) {
    expect(!queue_.empty(), "there is a reply for each request");
    std::string reply = queue_.front().substr(0, longest);
    queue_.pop_front();
    return reply;
  }

  // The value in the next reply, to a request for that of a key; the one before where there is none.
  std::pair<bool, std::string> take_value(const std::string& key, const std::string& before) {
    requests_.push_back("?" + key + "\n" + std::string(1, '\0'));
    const std::string reply = take(kLongestReply);
    if (reply.size() <= 1) {
      log_error("no response from configd (len " + std::to_string(reply.size()) + ")");
      return {false, before};
    }
    return {true, fuzz::text_of(reply.substr(0, reply.size() - 2)).substr(0, kLongestValue)};
  }

  void request(const std::string& bytes) { requests_.push_back(bytes); }
  void log_error(const std::string& text) { messages_.push_back({LOG_ERR, text}); }
  void log_debug(const std::string& text) { messages_.push_back({LOG_DEBUG, text}); }

  // A new socket has nothing in its queue.
  void reset() { queue_.clear(); }

  // Expects that all this has taken place since the last call.
  void check() {
    log_.expect_lines(messages_);
    daemon_.expect_requests(requests_);
    messages_.clear();
    requests_.clear();
  }

  [[nodiscard]] Input& input() { return input_; }

 private:
  void reply(const std::string& bytes) {
    if (queue_.size() == kMostReplies) return;
    daemon_.reply(client_, bytes);
    queue_.push_back(bytes);
  }

  std::string reply_from_input() {
    static const char* const kReplies[] = {"Ready", "Busy", "value\n", "Done\n"};
    const std::size_t kind = input_.below(8);
    if (kind < 4) return kReplies[kind] + std::string(input_.below(3), '\0');
    std::string bytes = input_.some_bytes();
    if (kind == 4) bytes.append(input_.below(20000), 'v');
    return bytes + (kind == 5 ? std::string("\n\0", 2) : std::string());
  }

  Input& input_;
  const Daemon& daemon_;
  fuzz::Log& log_;
  const std::string client_;
  std::deque<std::string> queue_;
  std::vector<std::string> requests_;
  std::vector<LogLine> messages_;
};

// ---- The functions

struct CloseConnection {
  void operator()(configd_connection* connection) const { configd_close(connection); }
};

// An array ended by an empty key.
std::vector<configd_query> entries_from(Input& input) {
  std::vector<configd_query> entries;
  const std::size_t count = input.below(kMostEntries + 1);
  for (std::size_t i = 0; i < count; ++i) {
    configd_query entry = {};
    copy(entry.key, text_from(input, kLongestKey));
    copy(entry.value, text_from(input, kLongestValue));
    if (entry.key[0] == '\0') break;
    entries.push_back(entry);
  }
  entries.emplace_back();
  return entries;
}

void get(Session& session, configd_connection* connection) {
  std::vector<configd_query> entries = entries_from(session.input());
  const std::vector<configd_query> before = entries;
  session.prepare(entries.size() - 1);
  int expected = 0;
  std::vector<std::string> values;
  for (const configd_query& entry : entries) {
    if (entry.key[0] == '\0') break;
    values.emplace_back(entry.value);
    if (expected != 0) continue;
    const auto [done, value] = session.take_value(entry.key, entry.value);
    values.back() = value;
    if (!done) expected = -1;
  }
  expect_equal(configd_get(connection, entries.data()), expected, "the result of getting");
  for (std::size_t i = 0; i < values.size(); ++i) {
    expect_equal(std::string(entries[i].value), values[i], "a value");
    expect_equal(std::string(entries[i].key), std::string(before[i].key), "its key");
  }
  if (expected != 0) session.reset();
}

void prepare_get(Session& session, configd_connection* connection) {
  configd_query entry = {};
  copy(entry.key, text_from(session.input(), kLongestKey));
  copy(entry.value, "as it was");
  session.prepare(1);
  const auto [done, value] = session.take_value(entry.key, entry.value);
  expect_equal(configd_prepare_get(connection, &entry), done ? 0 : -1, "the result of one");
  expect_equal(std::string(entry.value), value, "its value");
}

void fetch(Session& session, configd_connection* connection) {
  std::vector<std::string> keys;
  const std::size_t count = session.input().below(kMostEntries + 1);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string key = text_from(session.input(), kLongestKey + 45);
    expect_equal(configd_add_query(connection, "%s", key.c_str()), 0, "a key is queued");
    const std::string cut = key.substr(0, kLongestFormattedKey);
    if (std::find(keys.begin(), keys.end(), cut) == keys.end()) keys.push_back(cut);
  }
  session.prepare(keys.size());
  bool done = true;
  std::vector<std::string> values;
  for (std::size_t i = 0; i < keys.size() && done; ++i) {
    const auto [has_value, value] = session.take_value(keys[i], "");
    done = has_value;
    values.push_back(value);
  }
  const char* const asked = keys.empty() ? "" : keys[0].c_str();
  const std::string fetched = configd_fetch(connection, "%s", asked);
  if (!done) {
    session.log_error("configd_get failed");
    session.reset();
    expect_equal(fetched, std::string(), "what is fetched after a failure");
  } else if (keys.empty()) {
    session.log_debug("key '' not found");
    expect_equal(fetched, std::string(), "what is fetched without a key");
  } else {
    for (std::size_t i = 0; i < keys.size(); ++i) {
      expect_equal(std::string(configd_fetch(connection, "%s", keys[i].c_str())), values[i],
                   "what is fetched");
    }
  }
  configd_clear(connection);
}

// What comes of an assignment whose text, with its NUL, is `request`.
int result_of_assignment(Session& session, const std::string& request) {
  session.request(request);
  const std::string reply = session.take(kLongestShortReply);
  if (reply.size() != request.size()) {
    session.log_error("no response from configd (" + std::to_string(reply.size()) +
                      " != " + std::to_string(request.size()) + ")");
    return -3;
  }
  if (fuzz::text_of(reply) == fuzz::text_of(request)) return 0;
  session.log_error("invalid response from configd");
  return -4;
}

void set(Session& session, configd_connection* connection) {
  const std::vector<configd_query> entries = entries_from(session.input());
  std::string request;
  for (const configd_query& entry : entries) {
    if (entry.key[0] == '\0') break;
    request.append(entry.key).append("=").append(entry.value).append("\n");
  }
  int expected = -1;
  if (!request.empty()) {
    request += '\0';
    session.prepare(request);
    expected = result_of_assignment(session, request);
  }
  expect_equal(configd_set(connection, entries.data()), expected, "the result of setting");
  if (expected < -1) session.reset();
}

void done(Session& session, configd_connection* connection) {
  session.prepare("Ready");
  session.request("Done\n");
  const std::string reply = session.take(kLongestShortReply);
  const std::string text = fuzz::text_of(reply);
  int expected = -4;
  if (reply.empty()) {
    session.log_error("no response from configd");
    expected = -3;
  } else if (text == "Ready" || text == "Busy") {
    expected = text == "Ready" ? 0 : 1;
  } else {
    session.log_error("invalid response <" + text + "> from configd");
  }
  expect_equal(configd_done(connection), expected, "the result of ending changes");
  if (expected < 0) session.reset();
}

void receive(Session& session, configd_connection* connection) {
  session.prepare(1);
  std::vector<char> buffer(1 + session.input().below(kLongestReply + 2), '?');
  buffer.shrink_to_fit();
  std::string expected = session.take(buffer.size() - 1);
  expect_equal(configd_recv(connection, buffer.data(), static_cast<int>(buffer.size())),
               static_cast<int>(expected.size()), "the bytes received");
  expected.resize(buffer.size());
  expect_equal(std::string(buffer.begin(), buffer.end()), expected, "what is received");
}

void exchange(Session& session, configd_connection* connection) {
  using Function = void(Session&, configd_connection*);
  static Function* const kFunctions[] = {prepare_get, get, fetch, set, done, receive};
  kFunctions[session.input().below(std::size(kFunctions))](session, connection);
  session.check();
}

// ---- The class

void exchange_text(Session& session, const ConfigDaemonClient& client) {
  const std::string key = text_from(session.input(), kLongestKey);
  String value = "as it was";
  std::string expected = value.c_str();
  if (key.empty()) {
    expected = "";
  } else {
    session.prepare(1);
    const auto [done, received] = session.take_value(key, expected);
    expected = received;
    if (!done) session.reset();
  }
  const bool indexed = session.input().flag() && key.find('%') == std::string::npos;
  const String& result =
      indexed ? client.getIndexedValue(key.c_str(), 0, value) : client.getValue(key.c_str(), value);
  expect(&result == &value, "the result is the value given");
  expect_equal(std::string(value.c_str()), expected, "a value of the class");
}

void exchange_number(Session& session, const ConfigDaemonClient& client) {
  const std::string key = "k" + text_from(session.input(), kLongestKey - 1);
  long value = -4711;
  session.prepare(1);
  const auto [done, received] = session.take_value(key, "");
  const long expected = done ? fuzz::number_of(received) : value;
  if (!done) session.reset();
  expect_equal(client.getValueAsInt(key.c_str(), value), expected, "a number of the class");
  expect_equal(value, expected, "the number");
}

void assign(Session& session, const ConfigDaemonClient& client) {
  const std::string key = "k" + text_from(session.input(), kLongestKey - 1);
  const std::string value = text_from(session.input(), kLongestValue);
  const std::string request = key + "=" + value + "\n" + std::string(1, '\0');
  session.prepare(request);
  const int expected = result_of_assignment(session, request);
  if (expected < -1) session.reset();
  expect_equal(client.setValue(key.c_str(), value.c_str()), expected == 0, "an assignment");
}

void exchange(Session& session, const ConfigDaemonClient& client) {
  using Function = void(Session&, const ConfigDaemonClient&);
  static Function* const kFunctions[] = {exchange_text, exchange_number, assign};
  kFunctions[session.input().below(std::size(kFunctions))](session, client);
  session.check();
}

}  // namespace

// Which of the two clients, and then exchanges: what is done, with keys and values, and the replies to it,
// which may be too many.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Daemon daemon;
  static fuzz::Log log;
  const fuzz::NothingLeftOpen nothing_left_open;
  Input input(data, size);
  constexpr int kMostExchanges = 8;
  if (input.flag()) {
    const ConfigDaemonClient client;
    Session session(input, daemon, log, found_client_file());
    for (int i = 0; i < kMostExchanges && !input.empty(); ++i) exchange(session, client);
  } else {
    const std::unique_ptr<configd_connection, CloseConnection> connection(configd_open());
    expect(connection != nullptr, "there is a connection");
    Session session(input, daemon, log, client_file(connection.get()));
    for (int i = 0; i < kMostExchanges && !input.empty(); ++i) exchange(session, connection.get());
  }
  return 0;
}
