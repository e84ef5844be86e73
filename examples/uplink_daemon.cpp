// uplink-daemon: a daemon as a router has many, reduced to what it does with its settings.
//
//     uplink-daemon [ROUNDS]
//
// It looks after its settings twice a second, for ROUNDS rounds or for ever: reads them in one
// batch from the configuration daemon, stores there what it has decided, once, and ends the change
// set; has the modem connect, once, and looks whether the uplink leads anywhere; and notes for people
// what happens at the digital inputs, as a plug-in knows it. While the configuration daemon is away,
// it goes by a file of its own; the connection stays good for when it is back.

#include <rkutils/cfread.h>
#include <rkutils/configd.h>
#include <rkutils/dio.h>
#include <rkutils/dwlog.h>
#include <rkutils/dynamic_module.h>
#include <rkutils/memory.h>
#include <rkutils/ping.h>
#include <rkutils/route.h>
#include <rkutils/storage.h>
#include <rkutils/systeminfo.h>
#include <rkutils/text.h>
#include <rkutils/wwanmd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <net/if.h>
#include <netdb.h>

#include "plug_ins/input.h"

namespace {

using namespace std::chrono_literals;

constexpr char kFile[] = "/etc/uplink/uplink.conf";
constexpr unsigned kPingTimeoutMs = 1000;

struct CloseConnection {
  void operator()(configd_connection* connection) const { configd_close(connection); }
};
using Connection = std::unique_ptr<configd_connection, CloseConnection>;

struct FreeModem {
  void operator()(wwanmd_connection* modem) const { wwanmd_free(modem); }
};
using Modem = std::unique_ptr<wwanmd_connection, FreeModem>;

struct CloseTable {
  void operator()(cfread_table* table) const { cfread_close(table); }
};
using Table = std::unique_ptr<cfread_table, CloseTable>;

struct FreeAddress {
  void operator()(addrinfo* address) const { freeaddrinfo(address); }
};
using Address = std::unique_ptr<addrinfo, FreeAddress>;

struct FreeMedia {
  void operator()(StorageList* media) const {
    old_free_storage(media);
    std::free(media);
  }
};
using Media = std::unique_ptr<StorageList, FreeMedia>;

struct Settings {
  std::string apn;
  std::string user;
  std::string mtu;
  std::string interface;
  std::string gateway;
  std::string probe;   // a host behind the gateway
  std::string inputs;  // a plug-in that knows what is connected
  std::string place;   // of the router, for the plug-in
};

// Reads all settings with one batch of queries. False, with `settings` as they were, when the
// configuration daemon cannot be asked.
bool fetch_settings(configd_connection* config, Settings& settings) {
  configd_clear(config);
  for (const char* name :
       {"apn", "user", "mtu", "interface", "gateway", "probe", "inputs", "place"}) {
    configd_add_query(config, "uplink.%s", name);
  }
  const std::string apn = configd_fetch(config, "uplink.apn");
  if (apn.empty()) return false;  // there is no uplink without one, so this is no value
  const auto value = [&](const char* name) {
    return std::string(configd_fetch(config, "uplink.%s", name));
  };
  settings = {apn,
              value("user"),
              value("mtu"),
              value("interface"),
              value("gateway"),
              value("probe"),
              value("inputs"),
              value("place")};
  return true;
}

// Reads them from the file and those that it includes. False, with `settings` as they were, when it
// cannot be read; the log says why.
bool read_settings(Settings& settings) {
  const Table table(cfread_open(kFile));
  if (table == nullptr) return false;
  const auto value = [&](const char* key) {
    const cfread_entry* const entry = cfread_find_entry(table.get(), key);
    return std::string(entry != nullptr ? entry->value : "");
  };
  settings = {value("uplink.apn"),       value("uplink.user"),    value("uplink.mtu"),
              value("uplink.interface"), value("uplink.gateway"), value("uplink.probe"),
              value("uplink.inputs"),    value("uplink.place")};
  return true;
}

void print(const char* source, const Settings& settings) {
  std::printf("%s: apn %s, user %s, mtu %s\n", source, settings.apn.c_str(), settings.user.c_str(),
              settings.mtu.c_str());
}

configd_query assignment(const char* key, const char* value) {
  configd_query entry = {};
  strlcpy(entry.key, key, sizeof entry.key);
  strlcpy(entry.value, value, sizeof entry.value);
  return entry;
}

// Stores two values and puts them in force.
bool store_state(configd_connection* config, const Settings& settings) {
  std::puts("storing two values");
  const std::array<configd_query, 3> changes = {
      assignment("uplink.state", "up"), assignment("uplink.apn.used", settings.apn.c_str()), {}};
  if (configd_set(config, changes.data()) != 0) return false;

  int result = configd_done(config);
  while (result == 1) {
    std::puts("configd is busy, asking again in 0.3 s");
    std::this_thread::sleep_for(300ms);
    result = configd_done(config);
  }
  if (result == 0) std::puts("the changes are in force");
  return result == 0;
}

// Has the modem connect. False when it cannot, or its daemon is away: the next round tries again.
bool connect_modem(Modem& modem, const Settings& settings) {
  if (modem == nullptr) modem.reset(wwanmd_init(0, "uplink-daemon"));
  wwanmd_buffer buffer = {};
  buffer.length =
      std::snprintf(buffer.data, sizeof buffer.data, "connect %s", settings.apn.c_str());
  buffer.timeout = 60;
  if (modem == nullptr || wwanmd_command(modem.get(), &buffer) != 0) {
    std::puts("the modem does not connect");
    return false;
  }
  std::printf("the modem answers: %s\n", buffer.data);
  return true;
}

void print_way(const std::string& host) {
  addrinfo hints = {};
  hints.ai_flags = AI_NUMERICHOST;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) return;
  const Address address(found);
  char interface[IF_NAMESIZE];
  if (route_get_interface(address.get(), interface) == 0) {
    std::printf("%s is reached through %s\n", host.c_str(), interface);
  } else {
    std::printf("no route leads to %s\n", host.c_str());
  }
}

// Asks the gateway by the routes, and the host behind it past them.
void probe_uplink(const Settings& settings) {
  const char* const interface = settings.interface.c_str();
  const char* const gateway = settings.gateway.c_str();
  const char* const probe = settings.probe.c_str();
  print_way(settings.gateway);
  const bool near = icmpping(interface, gateway, kPingTimeoutMs) == 0;
  std::printf("the gateway %s %s\n", gateway, near ? "answers" : "does not answer");
  print_way(settings.probe);
  const bool far = rawping(interface, probe, gateway, kPingTimeoutMs) == 0;
  std::printf("behind it %s %s\n", probe, far ? "answers" : "does not answer");
}

// The USB sticks, on which people may take things away.
void print_sticks() {
  const Media media(old_get_storage(STORAGE_TYPE_USB));
  if (media == nullptr) return;
  list_node* node = nullptr;
  list_for_each (node, &media->entries) {
    const StorageEntry* const medium = list_entry(node, StorageEntry, links);
    if (medium->available == UINT64_MAX) continue;  // not mounted
    std::printf("%s is at %s, with %s free\n", medium->device, medium->mountpoint,
                format_size(static_cast<std::int64_t>(medium->available)));
  }
}

// The digital inputs, and the plug-in that knows what is connected to them.
class Inputs {
 public:
  Inputs(const std::string& plug_in, std::string place)
      : place_(std::move(place)), plug_in_(plug_in) {
    if (plug_in_.load(place_.data()) != 0) return;  // the log says why
    factory_ = static_cast<const InputFactory*>(plug_in_.getClassFactory());
    look();
    std::printf("watching %u inputs\n", static_cast<unsigned>(before_.in.count));
  }

  // Notes in the persistent log which of them have been switched since the last time.
  void look() {
    DioStatusAll now = {};
    if (factory_ == nullptr || dio_getStatus(&now) != DIO_OK) return;
    for (std::uint32_t number = 1; number <= before_.in.count && number <= now.in.count; ++number) {
      const int on = dio_getInValueFromStatus(&now.in, number);
      if (on != dio_getInValueFromStatus(&before_.in, number)) note(number, on != 0);
    }
    before_ = now;
  }

 private:
  void note(unsigned number, bool on) const {
    const std::unique_ptr<Input> input = factory_->create(number);
    const std::string meaning = input != nullptr ? input->meaning(on) : "nothing is connected";
    std::printf("input %u is %s: %s\n", number, on ? "on" : "off", meaning.c_str());
    if (input != nullptr) dwlog(kInputSwitched, meaning.c_str());
  }

  static constexpr int kInputSwitched = 40;  // its number in the log

  std::string place_;
  CDynamicModule plug_in_;
  const InputFactory* factory_ = nullptr;
  DioStatusAll before_ = {};
};

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  int valid = 0;
  const std::int32_t rounds = argc > 1 ? validValueOf32(&valid, argv[1]) : 0;
  if (valid != 0) {
    std::fputs("usage: uplink-daemon [ROUNDS]\n", stderr);
    return EXIT_FAILURE;
  }
  const Connection config(configd_open());
  if (config == nullptr) return EXIT_FAILURE;  // the log says why

  std::printf("looking after the uplink of a %s\n", get_product());
  print_sticks();
  Settings settings;
  Modem modem;
  std::optional<Inputs> inputs;
  bool stored = false;
  bool connected = false;
  for (long round = 1;; ++round) {
    if (inputs) inputs->look();
    if (fetch_settings(config.get(), settings)) {
      print("settings from configd", settings);
      if (!stored) stored = store_state(config.get(), settings);
      if (!connected) {
        connected = connect_modem(modem, settings);
        if (connected && !settings.interface.empty()) probe_uplink(settings);
      }
    } else if (read_settings(settings)) {
      print("no configd, settings from the file", settings);
    } else {
      print("neither configd nor the file, going on with", settings);
    }
    if (!inputs && !settings.inputs.empty()) inputs.emplace(settings.inputs, settings.place);
    if (round == rounds) return EXIT_SUCCESS;
    std::this_thread::sleep_for(500ms);
  }
}
