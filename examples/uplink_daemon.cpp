// uplink-daemon: a daemon as a router has many, reduced to what it does with the configuration.
//
//     uplink-daemon [ROUNDS]
//
// It reads its settings in one batch, stores what it decided, ends the change set, and then looks
// after its settings twice a second, for ROUNDS rounds or for ever. When the configuration daemon
// is away it goes on with what it knows, and with the same connection once the daemon is back.

#include <rkutils/configd.h>
#include <rkutils/memory.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;

struct CloseConnection {
  void operator()(configd_connection* connection) const { configd_close(connection); }
};
using Connection = std::unique_ptr<configd_connection, CloseConnection>;

struct Settings {
  std::string apn;
  std::string user;
  std::string mtu;
};

// Reads all settings with one batch of queries. False, with `settings` as they were, when the
// configuration daemon cannot be asked.
bool fetch_settings(configd_connection* config, Settings& settings) {
  configd_clear(config);
  for (const char* name : {"apn", "user", "mtu"}) configd_add_query(config, "uplink.%s", name);
  const std::string apn = configd_fetch(config, "uplink.apn");
  if (apn.empty()) return false;  // there is no uplink without one, so this is no value
  settings = {apn, configd_fetch(config, "uplink.user"), configd_fetch(config, "uplink.mtu")};
  return true;
}

configd_query assignment(const char* key, const char* value) {
  configd_query entry = {};
  strlcpy(entry.key, key, sizeof entry.key);
  strlcpy(entry.value, value, sizeof entry.value);
  return entry;
}

// Stores two values and puts them in force.
bool store_state(configd_connection* config, const Settings& settings) {
  const std::array<configd_query, 3> changes = {
      assignment("uplink.state", "up"), assignment("uplink.apn.used", settings.apn.c_str()), {}};
  if (configd_set(config, changes.data()) != 0) return false;

  int result = configd_done(config);
  while (result == 1) {
    std::puts("configd is busy, asking again in 0.3 s");
    std::this_thread::sleep_for(300ms);
    result = configd_done(config);
  }
  return result == 0;
}

void look_after_settings(configd_connection* config, Settings settings, long rounds) {
  for (long round = 0; rounds == 0 || round < rounds; ++round) {
    std::this_thread::sleep_for(500ms);
    if (fetch_settings(config, settings)) {
      std::printf("settings are fresh: apn %s\n", settings.apn.c_str());
    } else {
      std::printf("no settings to be had, going on with apn %s\n", settings.apn.c_str());
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const Connection config(configd_open());
  if (config == nullptr) return EXIT_FAILURE;  // the log says why

  std::puts("reading three settings in one batch");
  Settings settings;
  if (!fetch_settings(config.get(), settings)) return EXIT_FAILURE;
  std::printf("apn %s, user %s, mtu %s\n", settings.apn.c_str(), settings.user.c_str(),
              settings.mtu.c_str());

  std::puts("storing two values");
  if (!store_state(config.get(), settings)) return EXIT_FAILURE;
  std::puts("the changes are in force");

  look_after_settings(config.get(), settings, argc > 1 ? std::atol(argv[1]) : 0);
  return EXIT_SUCCESS;
}
