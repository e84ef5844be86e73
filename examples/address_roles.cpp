// address-roles: tells what addresses are in their networks.
//
//     address-roles ADDRESS[/SIZE]...
//
// Prints a line for each argument, such as "192.168.1.1/24: an interface in 192.168.1.0/24". The
// exit status is 1 if one is no address that a host, network or broadcast can have.

#include <rkutils/ip_address.h>
#include <rkutils/string.h>

#include <cstdio>
#include <cstdlib>

namespace {

const char* role_of(const IpAddress& address) {
  if (address.isDefGwType()) return "all other networks, for a default gateway";
  if (address.isHostType()) return "a host";
  if (address.isNetType()) return "the network";
  if (address.isIfaceType()) return "an interface in";
  if (address.isDirBcType()) return "the broadcast of";
  if (address.isLimBcType()) return "the broadcast of the link";
  return nullptr;
}

bool has_network(const IpAddress& address) {
  return (address.isNetType() && !address.isDefGwType()) || address.isIfaceType() ||
         address.isDirBcType();
}

}  // namespace

int main(int argc, char** argv) {
  int status = EXIT_SUCCESS;
  for (int i = 1; i < argc; ++i) {
    const IpAddress address{String(argv[i])};
    const char* const role = role_of(address);
    if (role == nullptr) status = EXIT_FAILURE;
    std::printf("%s: %s", argv[i], role == nullptr ? "of no use" : role);
    if (has_network(address)) {
      String network;
      std::printf(" %s/%lu", address.getNetAddressAsString(network).c_str(),
                  address.getNetMaskSize());
    }
    std::printf("\n");
  }
  return status;
}
