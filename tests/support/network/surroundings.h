// The router with a network around it.
#ifndef TESTS_SUPPORT_NETWORK_SURROUNDINGS_H
#define TESTS_SUPPORT_NETWORK_SURROUNDINGS_H

#include "support/network/host.h"
#include "support/network/link.h"

namespace support {

// Two hosts in a row behind the router, from construction to destruction:
//
//     router                  gateway                              distant
//     wan0 ------------------ eth0           eth1 ---------------- eth0
//     10.1.0.1/24             10.1.0.2/24    10.2.0.1/24           10.2.0.2/24
//     fd00:1::1/64            fd00:1::2/64   fd00:2::1/64          fd00:2::2/64
//     02:00:00:00:01:01       ...:01:02      02:00:00:00:02:01     ...:02:02
//
// The gateway forwards, and the router and the distant host have the routes to each other by it, but
// no default route. Nobody has learned anybody's hardware address yet.
struct Surroundings {
  Surroundings();

  const Host router = Host::here();
  const Host gateway;
  const Host distant;
  const Link wan;
  const Link beyond;
};

}  // namespace support

#endif
