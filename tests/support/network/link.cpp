#include "support/network/link.h"

#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/scope_guard.h>

#include <cstdio>
#include <exception>
#include <stdexcept>

#include <net/if.h>

#include "support/network/interface_flags.h"

namespace support {
namespace {

using rkutils::internal::Deadline;
using rkutils::internal::pause_us;
using rkutils::internal::ScopeGuard;

// The groups and addresses that the kernel would give an interface by itself are of no use here, and
// their packets would come between those of the tests.
void keep_new_interfaces_quiet(const Host& host) {
  host.set("ipv6/conf/default/addr_gen_mode", "1");
  host.set("ipv6/conf/default/accept_ra", "0");
}

// The kernel notices a moment later that both ends are up; until then it drops what is sent.
void wait_for_carrier(const LinkEnd& end) {
  const Deadline deadline(10000);
  end.host.run([&] {
    while ((interface_flags(end.interface) & IFF_RUNNING) == 0) {
      if (deadline.remaining_ms() == 0) throw std::runtime_error(end.interface + ": no carrier");
      pause_us(1000);
    }
  });
}

std::string set_up(const LinkEnd& end) {
  std::string commands = "link set " + end.interface + " up";
  for (const std::string& address : end.addresses) {
    const bool is_ipv6 = address.find(':') != std::string::npos;
    commands += "\naddr add " + address + " dev " + end.interface;
    if (is_ipv6) commands += " nodad";  // usable at once
  }
  return commands;
}

// Both ends go with one of them.
void remove_link(const Host& host, const std::string& interface) {
  try {
    // A test may have removed it.
    if (host.run([&] { return ::if_nametoindex(interface.c_str()); }) == 0) return;
    host.ip("link del " + interface);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s stays: %s\n", interface.c_str(), error.what());
  }
}

}  // namespace

Link::Link(const LinkEnd& near, const LinkEnd& far) : host_(near.host), interface_(near.interface) {
  keep_new_interfaces_quiet(near.host);
  keep_new_interfaces_quiet(far.host);
  near.host.ip("link add " + near.interface + " address " + near.hardware_address +
               " type veth peer name " + far.interface + " address " + far.hardware_address +
               " netns " + far.host.path());
  ScopeGuard remove_half_made([&] { remove_link(host_, interface_); });
  near.host.ip(set_up(near));
  far.host.ip(set_up(far));
  wait_for_carrier(near);
  wait_for_carrier(far);
  remove_half_made.dismiss();
}

Link::~Link() { remove_link(host_, interface_); }

}  // namespace support
