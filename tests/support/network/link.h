// Cables between hosts.
#ifndef TESTS_SUPPORT_NETWORK_LINK_H
#define TESTS_SUPPORT_NETWORK_LINK_H

#include <string>
#include <vector>

#include "support/network/host.h"

namespace support {

// An interface at one end.
struct LinkEnd {
  const Host& host;
  std::string interface;
  std::string hardware_address;        // "02:00:00:00:01:01"
  std::vector<std::string> addresses;  // "10.1.0.1/24", "fd00:1::1/64"
};

// A pair of Ethernet interfaces (veth): what one sends the other receives. They are up, with a
// carrier and with their addresses, from construction on, and gone when the destructor returns.
//
//     const Host router = Host::here();
//     const Host neighbour;
//     const Link link({router, "wan0", "02:00:00:00:01:01", {"10.1.0.1/24"}},
//                     {neighbour, "eth0", "02:00:00:00:01:02", {"10.1.0.2/24"}});
class Link {
 public:
  // The hosts must live longer.
  Link(const LinkEnd& near, const LinkEnd& far);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

 private:
  const Host& host_;
  const std::string interface_;
};

}  // namespace support

#endif
