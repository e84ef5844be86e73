#include "support/network/surroundings.h"

namespace support {

Surroundings::Surroundings()
    : wan({router, "wan0", "02:00:00:00:01:01", {"10.1.0.1/24", "fd00:1::1/64"}},
          {gateway, "eth0", "02:00:00:00:01:02", {"10.1.0.2/24", "fd00:1::2/64"}}),
      beyond({gateway, "eth1", "02:00:00:00:02:01", {"10.2.0.1/24", "fd00:2::1/64"}},
             {distant, "eth0", "02:00:00:00:02:02", {"10.2.0.2/24", "fd00:2::2/64"}}) {
  gateway.set("ipv4/ip_forward", "1");
  gateway.set("ipv6/conf/all/forwarding", "1");
  router.ip(
      "route add 10.2.0.0/24 via 10.1.0.2\n"
      "route add fd00:2::/64 via fd00:1::2");
  distant.ip(
      "route add 10.1.0.0/24 via 10.2.0.1\n"
      "route add fd00:1::/64 via fd00:2::1");
}

}  // namespace support
