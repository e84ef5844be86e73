#include "support/open_descriptors.h"

#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>

namespace support {
namespace {

using rkutils::internal::UniqueDir;
using rkutils::internal::UniqueFd;

rlim_t set_descriptor_limit(rlim_t limit) {
  rlimit limits = {};
  ::getrlimit(RLIMIT_NOFILE, &limits);
  const rlim_t previous = limits.rlim_cur;
  limits.rlim_cur = limit;
  ::setrlimit(RLIMIT_NOFILE, &limits);
  return previous;
}

// The limit that leaves as many of the unused numbers below it.
rlim_t limit_for(unsigned spare) {
  // poll() takes no more entries than the limit, and the log's collector has two.
  rlim_t limit = 2;
  std::vector<UniqueFd> unused;
  for (unsigned i = 0; i < spare; ++i) {
    unused.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    limit = std::max(limit, static_cast<rlim_t>(unused.back().get()) + 1);
  }
  return limit;
}

}  // namespace

std::map<int, std::string> open_descriptors() {
  std::map<int, std::string> descriptors;
  const UniqueDir listing(::opendir("/proc/self/fd"));
  while (const dirent* entry = ::readdir(listing.get())) {
    const int descriptor = std::atoi(entry->d_name);
    if (entry->d_name[0] == '.' || descriptor == ::dirfd(listing.get())) continue;
    const std::string link = std::string("/proc/self/fd/") + entry->d_name;
    descriptors.emplace(descriptor, std::filesystem::read_symlink(link));
  }
  return descriptors;
}

NoMoreDescriptors::NoMoreDescriptors(unsigned spare)
    : previous_(set_descriptor_limit(limit_for(spare))) {}

NoMoreDescriptors::~NoMoreDescriptors() { set_descriptor_limit(previous_); }

}  // namespace support
