#include "support/open_descriptors.h"

#include <rkutils/internal/unique_dir.h>

#include <cstdlib>
#include <filesystem>

#include <dirent.h>
#include <sys/resource.h>

namespace support {
namespace {

using rkutils::internal::UniqueDir;

rlim_t set_descriptor_limit(rlim_t limit) {
  rlimit limits = {};
  ::getrlimit(RLIMIT_NOFILE, &limits);
  const rlim_t previous = limits.rlim_cur;
  limits.rlim_cur = limit;
  ::setrlimit(RLIMIT_NOFILE, &limits);
  return previous;
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

// poll() takes no more entries than the limit, and the log's collector has two.
NoMoreDescriptors::NoMoreDescriptors() : previous_(set_descriptor_limit(2)) {}

NoMoreDescriptors::~NoMoreDescriptors() { set_descriptor_limit(previous_); }

}  // namespace support
