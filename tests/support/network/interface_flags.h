// The flags of interfaces, of this thread's host.
#ifndef TESTS_SUPPORT_NETWORK_INTERFACE_FLAGS_H
#define TESTS_SUPPORT_NETWORK_INTERFACE_FLAGS_H

#include <string>

namespace support {

// IFF_UP and others. Throws std::system_error when there is no such interface.
short interface_flags(const std::string& interface);

// Sets IFF_UP.
void bring_up(const std::string& interface);

}  // namespace support

#endif
