// Routes, and the multipath flags of interfaces.

#include <rkutils/route.h>

#include <cstring>
#include <stdexcept>

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>

#include "families.h"
#include "support/network/surroundings.h"

namespace faults {
namespace {

Scenario with_routes(Scenario of) {
  of.surroundings = [] { return std::make_shared<support::Surroundings>(); };
  return of;
}

// The question for a host behind the gateway.
struct Route {
  Route() {
    place.sin_family = AF_INET;
    if (::inet_pton(AF_INET, "10.2.0.2", &place.sin_addr) != 1) throw std::logic_error("address");
    address.ai_family = AF_INET;
    address.ai_addr = reinterpret_cast<sockaddr*>(&place);
  }

  [[nodiscard]] std::string after() const { return interface; }

  sockaddr_in place = {};
  addrinfo address = {};
  char interface[IF_NAMESIZE] = "untouched";
};

}  // namespace

Scenarios routes() {
  return {
      with_routes(scenario<Route>(
          "route_get_interface",
          [](Route& it) { return route_get_interface(&it.address, it.interface); })),
      with_routes(
          scenario<Nothing>("ip_utils_set_multipath_flags",
                            [](Nothing&) { return ip_utils_set_multipath_flags("wan0", 1, 0); })),
  };
}

}  // namespace faults
