#include "support/network/hosts_file.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <sys/mount.h>
#include <unistd.h>

#include "support/put_file.h"

namespace support {
namespace {

constexpr char kFile[] = "/etc/hosts";

}  // namespace

HostsFile::HostsFile(const std::string& lines) {
  // Laid over what is there, which root in a user namespace may not write to.
  constexpr char kOurs[] = "/tmp/hosts-of-a-test";
  put(kOurs, lines);
  if (::access(kFile, F_OK) != 0) put(kFile, "");
  const bool is_laid = ::mount(kOurs, kFile, nullptr, MS_BIND, nullptr) == 0;
  const int error = errno;
  ::unlink(kOurs);  // the mount keeps it
  if (!is_laid) throw std::system_error(error, std::generic_category(), kFile);
}

HostsFile::~HostsFile() {
  if (::umount(kFile) != 0) std::perror(kFile);
}

}  // namespace support
