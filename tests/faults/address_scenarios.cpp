// Addresses in files, and as texts.

#include <rkutils/address.h>
#include <rkutils/ip_address.h>
#include <rkutils/string.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"

namespace faults {
namespace {

constexpr const char* kFile = "/tmp/faults/address";

struct AddressFile {
  AddressFile() { support::put(kFile, "192.0.2.17\n"); }

  [[nodiscard]] std::string after() {
    char text[ADDRESS_TEXT_SIZE];
    addr2str(text, record());
    return *text == '\0' ? "no address" : text;
  }

  sockaddr* record() { return reinterpret_cast<sockaddr*>(&place); }

  const Folder folder{"/tmp/faults"};
  sockaddr_storage place = {};
};

// An address, and the text that it becomes.
struct AddressText {
  [[nodiscard]] std::string after() const { return text.c_str(); }

  const IpAddress address{0xC0000211, 0xFFFFFF00};
  String text;
};

// Without memory for a String the process ends.
Scenario text_of_address(const std::string& name, String& (IpAddress::*write)(String&) const) {
  return in(Process::kOwn, scenario<AddressText>("IpAddress::" + name, [write](AddressText& it) {
              (it.address.*write)(it.text);
              return Word{"done"};
            }));
}

}  // namespace

Scenarios addresses() {
  return {
      scenario<AddressFile>("readaddress",
                            [](AddressFile& it) { return readaddress(kFile, it.record()); }),
      text_of_address("getIpAddrAsString", &IpAddress::getIpAddrAsString),
      text_of_address("getNetMaskAsString", &IpAddress::getNetMaskAsString),
      text_of_address("getNetAddressAsString", &IpAddress::getNetAddressAsString),
  };
}

}  // namespace faults
