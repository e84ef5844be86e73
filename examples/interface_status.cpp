// interface-status: tells the state of network interfaces, and of the links to the outside.
//
//     interface-status NAME...
//
// Prints a line for each name, such as "ETH1 (eth0): up, 192.0.2.1/24", and one for the links. The
// exit status is 1 if one of the interfaces is not up.

#include <rkutils/interface.h>
#include <rkutils/ip_address.h>
#include <rkutils/string.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

// "192.0.2.1/24", or the empty text.
String address_of(const IpInterfaceStatus& interfaces, const char* name) {
  const unsigned int address = interfaces.getIpV4Address(name);
  if (address == 0) return "";
  const IpAddress network(address, interfaces.getIpV4Mask(name));
  String text;
  network.getIpAddrAsString(text);
  text.concatf("/%lu", network.getNetMaskSize());
  return text;
}

// True if it is up.
bool print_interface(const IpInterfaceStatus& interfaces, const char* name) {
  const bool is_up = interfaces.isInterfaceUp(name) == 1;
  std::printf("%s (%s): %s", interfaceize(name), name, is_up ? "up" : "down");
  const String address = address_of(interfaces, name);
  if (address != "") std::printf(", %s", address.c_str());
  std::array<char, 256> members;
  if (bridge_members(name, members.data(), members.size()) > 0) {
    std::printf(", bridges %s", members.data());
  }
  std::printf("\n");
  return is_up;
}

}  // namespace

int main(int argc, char** argv) {
  const IpInterfaceStatus interfaces;
  int status = EXIT_SUCCESS;
  for (int i = 1; i < argc; ++i) {
    if (!print_interface(interfaces, argv[i])) status = EXIT_FAILURE;
  }
  std::printf("links to the outside: %d, %s\n", wanlink_count(),
              interfaces.haveNetworkConnectivity() == 1 ? "connected" : "not connected");
  return status;
}
