// The names of hosts.
#ifndef TESTS_SUPPORT_NETWORK_HOSTS_FILE_H
#define TESTS_SUPPORT_NETWORK_HOSTS_FILE_H

#include <string>

namespace support {

// Lets /etc/hosts have other lines, from construction to destruction; one at a time:
//
//     const HostsFile names("10.1.0.2 gateway\n");
class HostsFile {
 public:
  explicit HostsFile(const std::string& lines);
  ~HostsFile();
  HostsFile(const HostsFile&) = delete;
  HostsFile& operator=(const HostsFile&) = delete;
};

}  // namespace support

#endif
