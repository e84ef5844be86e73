// The demo: an example daemon on a private router, with everything that it says and hears.
//
//   demo-stage DAEMON FOLDER PLUG-IN
//
// Starts DAEMON beside the stand-in for the configuration daemon, which begins with FOLDER's
// configd.conf, is busy once, and is killed and started again on the way; beside that for the
// modem daemon, which takes its time to connect; and, where the machine has FUSE, beside that for the
// driver of digital inputs, one of which is switched. The router is of the product DW4600, FOLDER is
// its /etc/uplink, PLUG-IN is in its /usr/lib/uplink, somebody has put in a USB stick, and it has a
// gateway with a host behind it, but no route to that.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/internal/unix_address.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/configd_stand_in.h"
#include "support/dio_stand_in.h"
#include "support/kernel_folder.h"
#include "support/network/surroundings.h"
#include "support/private_router.h"
#include "support/put_file.h"
#include "support/stopwatch.h"
#include "support/syslog_collector.h"
#include "support/wwanmd_stand_in.h"

namespace {

using rkutils::internal::UniqueFd;
using support::ConfigdStandIn;

constexpr char kValues[] = "/var/lib/configd/values";
constexpr char kUplink[] = "/etc/uplink";
constexpr char kPlugIns[] = "/usr/lib/uplink";
constexpr char kStick[] = "/tmp/stick";
constexpr char kBlockDevices[] = "/sys/class/block";
constexpr char kLog[] = "/var/log/dwlog";
constexpr char kLogKey[] = "/etc/fstab";  // of the log's semaphore
constexpr char kRounds[] = "3";
constexpr int kCard = 0;

// How each kind of line looks; empty where the output is not a terminal.
struct Colours {
  const char* daemon = "";
  const char* peer = "";
  const char* log = "";
  const char* stage = "";
  const char* off = "";
};

Colours colours() {
  if (::isatty(STDOUT_FILENO) == 0) return {};
  return {"\033[1m", "\033[36m", "\033[31m", "\033[33m", "\033[0m"};
}

void print_file(const char* heading, const std::string& path) {
  std::printf("%s\n", heading);
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.front() != '#') std::printf("      %s\n", line.c_str());
  }
}

// Prints every line with its time, in columns: who, and what.
class Script {
 public:
  void line(const char* colour, const std::string& who, const std::string& what) const {
    std::printf("%s%7.3f s  %-15s %s%s\n", colour,
                static_cast<double>(watch_.elapsed().count()) / 1000, who.c_str(), what.c_str(),
                colours_.off);
    std::fflush(stdout);
  }
  void daemon(const std::string& what) const { line(colours_.daemon, "uplink-daemon", what); }
  void request(const std::string& whom, const std::string& what) const {
    line(colours_.peer, "  -> " + whom, what);
  }
  void reply(const std::string& whose, const std::string& what) const {
    line(colours_.peer, "  <- " + whose, what);
  }
  void log(const support::LogLine& message) const {
    line(colours_.log, "syslog " + std::string(support::level_name(message.level)), message.text);
  }
  void stage(const std::string& what) const { line(colours_.stage, "******", what); }

 private:
  support::Stopwatch watch_;
  Colours colours_ = colours();
};

// Everything comes through the one socket on /dev/log: what is logged, what the stand-in records,
// and what the daemon prints. So the lines stand in the order in which things happened.
class Stage {
 public:
  Stage(const char* daemon_program, const std::string& configuration)
      : inbox_(support::open_log_socket()),
        outlet_(connect_to_inbox()),
        configd_({configuration, kValues, "", outlet_.get()}),
        modem_(kCard, outlet_.get()),
        daemon_program_(daemon_program) {
    try {
      driver_.emplace(support::DioStandIn::Setup{2, 0, outlet_.get()});
    } catch (const support::StandInRefused& refusal) {
      std::printf("There is no driver of inputs on this machine: %s\n\n", refusal.what());
    }
  }

  // Runs the daemon to its end and returns its exit status.
  int run() {
    configd_.command("fault 9 delay 0");
    configd_.command("fault 1 reply \"Busy\"");
    modem_.command("plan 1 answer");  // to being told who connects
    modem_.command(
        R"(plan 1 wait 300 send "BUSY" wait 700 send "OKregistered with Example Mobile")");
    start_daemon();
    int status = 0;
    while (::waitpid(daemon_, &status, WNOHANG) == 0) {
      pollfd entry = {inbox_.get(), POLLIN, 0};
      if (::poll(&entry, 1, 50) > 0) show_pending();
    }
    show_pending();
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
  }

 private:
  static UniqueFd connect_to_inbox() {
    UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address;
    if (!rkutils::internal::make_unix_address("/dev/log", address) ||
        ::connect(socket.get(), rkutils::internal::as_sockaddr(address), sizeof address) != 0) {
      throw std::runtime_error("cannot connect to /dev/log");
    }
    return socket;
  }

  void start_daemon() {
    daemon_ = ::fork();
    if (daemon_ != 0) return;
    ::dup2(outlet_.get(), STDOUT_FILENO);
    ::execl(daemon_program_, "uplink-daemon", kRounds, static_cast<char*>(nullptr));
    std::perror(daemon_program_);
    ::_exit(EXIT_FAILURE);
  }

  void show_pending() {
    std::array<char, 32768> buffer;
    for (;;) {
      const ssize_t length = ::recv(inbox_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (length < 0) return;
      std::string_view line(buffer.data(), static_cast<std::size_t>(length));
      if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
      show(std::string(line));
    }
  }

  void show(const std::string& line) {
    if (line.front() == '<') {
      script_.log(support::parse_log_line(line));
    } else if (line.compare(0, 5, "recv ") == 0) {
      script_.request(peer_of(line), line.substr(line.find('"')));
    } else if (line.compare(0, 5, "send ") == 0) {
      script_.reply(peer_of(line), line.substr(line.find('"')));
    } else if (line.compare(0, 8, "read din") == 0) {
      const std::size_t path = sizeof "read";
      script_.reply("driver", line.substr(path, line.find(' ', path) + 1 - path) +
                                  line.substr(line.find('"')));
    } else if (line.back() == '"') {
      // Connections of the modem daemon's come and go, as do those who look for inputs.
    } else {
      script_.daemon(line);
      direct(line);
    }
  }

  // Who has recorded a line: configd with the path of a client's socket, wwanmd with a time.
  static std::string peer_of(const std::string& line) {
    return line.find(" /") == sizeof "recv" - 1 ? "configd" : "wwanmd";
  }

  // What happens around the daemon, each at a line of its.
  void direct(const std::string& line) {
    if (line.find("in force") != std::string::npos) {
      script_.stage("configd is killed");
      configd_.kill();
    } else if (line.find("no configd") != std::string::npos) {
      script_.stage("configd is started again; the daemon keeps the handle it has");
      configd_.start();
    } else if (driver_ && line.find("watching") != std::string::npos) {
      script_.stage("somebody opens the door at input 1");
      driver_->set_contents("din1/value", "1");
    } else if (driver_ && line.find("opened") != std::string::npos) {
      script_.stage("and closes it");
      driver_->set_contents("din1/value", "0");
    }
  }

  UniqueFd inbox_;
  UniqueFd outlet_;
  ConfigdStandIn configd_;
  support::WwanmdStandIn modem_;
  std::optional<support::DioStandIn> driver_;
  const char* daemon_program_;
  Script script_;
  pid_t daemon_ = -1;
};

// Of all block devices of this machine, the router shows a USB stick.
void put_in_stick(const support::KernelFolder& sys, const support::KernelFolder& proc) {
  sys.make_folder("class/block");
  for (const auto& device : std::filesystem::directory_iterator(kBlockDevices)) {
    std::filesystem::remove(device.path());
  }
  std::filesystem::create_symlink("../../devices/usb1/1-1/block/sda",
                                  std::string(kBlockDevices) + "/sda");
  proc.put("sysinfo/usbport0/usbName", "1-1\n");
  std::filesystem::create_directory(kStick);
  if (::mount("/dev/sda", kStick, "tmpfs", 0, "size=16m") != 0) {
    throw std::runtime_error("cannot mount the stick");
  }
}

int play(const char* daemon_program, const std::string& folder, const std::string& plug_in) {
  const support::KernelFolder proc("/proc");
  proc.put("sysinfo/bd/0/prod_name", "4600\n");
  const support::KernelFolder sys("/sys");
  sys.make_folder("devices/halcyonix");
  put_in_stick(sys, proc);
  std::filesystem::copy(folder, kUplink);
  std::filesystem::create_directory(kPlugIns);
  std::filesystem::copy(plug_in, kPlugIns);
  std::filesystem::create_directories(std::filesystem::path(kLog).parent_path());
  if (!std::filesystem::exists(kLogKey)) support::put(kLogKey, "");
  const support::Surroundings network;
  network.router.ip("route del 10.2.0.0/24");
  const std::string configuration = folder + "/configd.conf";

  print_file("The configuration, as configd holds it:\n", configuration);
  print_file("\nWhat the daemon goes by without configd, uplink.conf in /etc/uplink,\n",
             folder + "/uplink.conf");
  print_file("\nand provider.conf:\n", folder + "/provider.conf");
  std::printf(
      "\nuplink-daemon reads and changes the configuration, has the modem connect, looks whether "
      "the\n"
      "uplink leads anywhere, and watches the inputs, all through librkutils. What goes to the "
      "other\n"
      "daemons and comes from them is shown as it is, with \\n for a newline and \\0 for a "
      "NUL.\n\n");
  const int status = Stage(daemon_program, configuration).run();
  std::printf("\n");
  print_file("The configuration afterwards:\n", kValues);
  print_file("\nThe persistent log, newest first:\n", kLog);
  std::printf(
      "\nA few calls did this: configd_add_query and configd_fetch, configd_set, configd_done;\n"
      "wwanmd_init and wwanmd_command; icmpping, rawping and route_get_interface; cfread_open and\n"
      "cfread_find_entry; get_product, old_get_storage; dio_getStatus, dwlog; and a "
      "CDynamicModule.\n"
      "The daemon handled no socket, no time-out and no reconnection, built no packet and parsed\n"
      "no file; see examples/uplink_daemon.cpp.\n");
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: demo-stage DAEMON FOLDER PLUG-IN\n", stderr);
    return EXIT_FAILURE;
  }
  support::enter_private_router(argv);
  try {
    return play(argv[1], argv[2], argv[3]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "demo: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
