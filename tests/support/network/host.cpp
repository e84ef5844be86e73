#include "support/network/host.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/network/interface_flags.h"
#include "support/run_program.h"

namespace support {
namespace {

using rkutils::internal::UniqueFd;

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

// The namespace that this thread is in, as a thing that keeps it.
UniqueFd current_network() {
  UniqueFd network(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
  if (!network) fail("open the network namespace");
  return network;
}

// Where it is is not in everybody's PATH, and where busybox is it has one of its own, which is not
// enough.
std::string path_of_ip() {
  for (const char* path : {"/usr/sbin/ip", "/sbin/ip", "/usr/bin/ip", "/bin/ip"}) {
    if (::access(path, X_OK) == 0) return path;
  }
  throw std::runtime_error("there is no ip(8)");
}

}  // namespace

Host::Visit::Visit(const Host& host) : home_(current_network()) {
  if (::setns(host.network_.get(), CLONE_NEWNET) != 0) fail("enter a host");
}

Host::Visit::~Visit() {
  if (::setns(home_.get(), CLONE_NEWNET) == 0) return;
  std::perror("leave a host");  // all that follows would be done in the wrong one
  std::abort();
}

Host::Host() {
  const UniqueFd home = current_network();
  if (::unshare(CLONE_NEWNET) != 0) fail("make a network namespace");
  network_ = current_network();
  if (::setns(home.get(), CLONE_NEWNET) != 0) fail("leave a new host");
  run([] { bring_up("lo"); });
}

Host Host::here() { return Host(current_network()); }

std::string Host::ip(const std::string& commands) const {
  // Kept across exec, for a program that reads it by its number.
  const UniqueFd batch(::memfd_create("commands of ip", 0));
  const std::string lines = commands + "\n";
  if (!batch ||
      ::write(batch.get(), lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) {
    fail("write the commands of ip");
  }
  const Outcome outcome = run([&] {
    return run_program({path_of_ip(), "-batch", "/proc/self/fd/" + std::to_string(batch.get())});
  });
  if (outcome.status != 0) throw std::runtime_error("ip: " + commands + ": " + outcome.output);
  return outcome.output;
}

void Host::set(const std::string& parameter, const std::string& value) const {
  run([&] {
    std::ofstream file("/proc/sys/net/" + parameter);
    file << value << std::flush;
    if (!file) throw std::runtime_error(parameter + " is not to be set to " + value);
  });
}

void Host::answer_pings(bool answers) const {
  set("ipv4/icmp_echo_ignore_all", answers ? "0" : "1");
  set("ipv6/icmp/echo_ignore_all", answers ? "0" : "1");
}

std::vector<ArpEntry> Host::arp_table() const {
  return run([] {
    std::ifstream file("/proc/thread-self/net/arp");
    std::vector<ArpEntry> table;
    std::string line;
    std::getline(file, line);  // the heading
    while (std::getline(file, line)) {
      ArpEntry entry;
      std::istringstream(line) >> entry.address >> entry.hardware_type >> entry.flags >>
          entry.hardware_address >> entry.mask >> entry.device;
      table.push_back(std::move(entry));
    }
    return table;
  });
}

std::string Host::path() const {
  return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(network_.get());
}

}  // namespace support
