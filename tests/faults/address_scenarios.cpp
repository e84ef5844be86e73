// Addresses in files.

#include <rkutils/address.h>

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

}  // namespace

Scenarios addresses() {
  return {
      scenario<AddressFile>("readaddress",
                            [](AddressFile& it) { return readaddress(kFile, it.record()); }),
  };
}

}  // namespace faults
