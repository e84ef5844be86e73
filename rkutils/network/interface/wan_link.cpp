// What the link manager publishes about the links to the outside.

#include <rkutils/file.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/foundations/text/prefix.h>
#include <rkutils/interface.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_dir.h>

#include <climits>
#include <cstddef>
#include <cstdio>

#include <dirent.h>
#include <unistd.h>

namespace {

using rkutils::internal::next_entry;
using rkutils::internal::open_directory;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueDir;
using rkutils::text::begins_with;

constexpr char kFolder[] = "/tmp/status/link-manager";
constexpr char kHotLink[] = "/tmp/status/link-manager/hotlink";
constexpr char kHotLinkInterface[] = "/tmp/status/link-manager/hotlink/interface";
constexpr char kStateFormat[] = "/tmp/status/link-manager/%s/state";

// `name` is that of a folder's entry.
bool is_active(const char* name) {
  if (!begins_with(name, "wanlink")) return false;
  char path[sizeof kStateFormat + NAME_MAX];
  std::snprintf(path, sizeof path, kStateFormat, name);
  const char* const state = readfile(path);
  return *state != '\0' && !begins_with(state, "disabled");
}

}  // namespace

int wanlink_is_up(void) { return ::access(kHotLink, R_OK) == 0 ? 1 : 0; }

int wanlink_count(void) {
  const PostponedCancellation postponed;
  const UniqueDir folder = open_directory(kFolder);
  if (!folder) return 0;
  int count = 0;
  while (const dirent* const entry = next_entry(folder.get())) {
    if (is_active(entry->d_name)) ++count;
  }
  return count;
}

int IpInterfaceStatus::haveNetworkConnectivity() const {
  const PostponedCancellation postponed;
  return rkutils::file::open_to_read(kHotLinkInterface) ? 1 : 0;
}
